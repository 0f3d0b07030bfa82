#pragma once

#include "archive/packagearchiveorderedwork.h"

#include <QByteArray>

#include <cstdio>

// Writes one ordinary zlib stream, compressed on several threads: the input
// is cut into segments that are deflated independently (raw deflate, primed
// with the 32 KiB before them, ended by a sync flush that byte-aligns them,
// the last one finished), then written in order between the zlib header and
// the Adler-32 of all input, combined from the segments' own. Any zlib reader
// decodes the result. Used from one thread; failures throw HException with the
// stream's messages.
class PackageArchiveParallelDeflate
{
public:
    PackageArchiveParallelDeflate(FILE *file, int level, int threads);
    PackageArchiveParallelDeflate(const PackageArchiveParallelDeflate &) = delete;
    PackageArchiveParallelDeflate &operator=(const PackageArchiveParallelDeflate &) = delete;

    void write(const char *data, qint64 size);
    // Compresses and writes what is left and the trailer.
    void finish();

    static int defaultThreads() { return 2; }

private:
    struct Segment;

    void submit(bool last);
    // Writes the oldest segment once it is compressed.
    void writeOldest();
    void compress(Segment &segment) const;
    void writeOut(const char *data, size_t size);

    FILE *m_file;
    int m_level;
    QByteArray m_pending;
    QByteArray m_dictionary;
    bool m_headerWritten = false;
    quint32 m_adler = 1;
    // Last: its threads stop before the members they use go.
    PackageArchiveOrderedWork<Segment> m_work;
};
