#pragma once

#include "archive/packagearchivebitwriter.h"
#include "archive/packagearchiveorderedwork.h"

#include <QByteArray>

#include <cstdio>

// Writes one ordinary bzip2 stream, compressed on several threads: the input
// is cut into segments of a block's size, each thread encodes a segment's
// blocks (usually one; two when the run-length stage grows it), and the
// blocks' bits are joined behind one header, followed by the end mark and
// the CRC combined from the blocks'. Any bzip2 reader decodes the result.
// Used from one thread; failures throw HException: "error writing to
// compressed stream" while writing, "error compressing stream" when
// finishing, as libbz2's own writer reports them.
class PackageArchiveParallelBzip2
{
public:
    PackageArchiveParallelBzip2(FILE *file, int level, int threads);
    PackageArchiveParallelBzip2(const PackageArchiveParallelBzip2 &) = delete;
    PackageArchiveParallelBzip2 &operator=(const PackageArchiveParallelBzip2 &) = delete;

    void write(const char *data, qint64 size);
    void finish();

    static int defaultThreads() { return 2; }

private:
    struct Segment;

    void submit();
    void writeOldest(const QString &failure);
    // Writes the whole bytes gathered so far.
    void flushBytes(const QString &failure);

    FILE *m_file;
    int m_segmentSize;
    QByteArray m_pending;
    quint32 m_combinedCrc = 0;
    // The stream's bits not yet written.
    PackageArchiveBitWriter m_out;
    // Last: its threads stop before the members they use go.
    PackageArchiveOrderedWork<Segment> m_work;
};
