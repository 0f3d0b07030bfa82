#pragma once

#include "archive/packagearchiveiofile.h"

// A decompressing stream: sequential reads of the uncompressed content and a
// seek by uncompressed position. A read delivers exactly the bytes asked for
// or throws HException; it never returns a short count. Seeking backwards
// restarts decompression from the start of the compressed data, unless the
// stream knows a nearer place to resume from (see resumeBefore).
class PackageArchiveCompressedInputFile : public PackageArchiveIOFile
{
public:
    // The compressed data starts at the file's current position.
    explicit PackageArchiveCompressedInputFile(FILE *file);

    qint32 read(char *buffer, qint32 size) override;
    qint32 seek(qint64 position) override;

    quint64 position() const { return m_position; }
    // Bytes decompressed since the stream was made, seeks included.
    quint64 decompressed() const { return m_decompressed; }

protected:
    // Concrete streams call init from their constructor and end from their
    // destructor.
    virtual void init() = 0;
    virtual void end() = 0;
    // Delivers exactly size bytes or throws.
    virtual void readChunk(char *buffer, qint32 size) = 0;
    // The uncompressed position, at most target, from which the stream can
    // resume decompression; 0, the start, unless a stream keeps places of
    // its own. A seek uses it when it is behind the current position or
    // ahead of it.
    virtual quint64 resumeBefore(quint64 target) const;
    // Resumes decompression at a position resumeBefore returned; false when
    // the file cannot be positioned. The start is resumed by end, a file seek
    // and init.
    virtual bool resumeAt(quint64 position);
    qint64 start() const { return m_start; }

    static constexpr qint32 ChunkSize = 16384;

private:
    qint64 m_start;
    quint64 m_position = 0;
    quint64 m_decompressed = 0;
};
