#pragma once

#include "media/packagearchiveiofile.h"

// A decompressing stream: sequential reads of the uncompressed content and a
// seek by uncompressed position. A read delivers exactly the bytes asked for
// or throws HException; it never returns a short count. Seeking backwards
// restarts decompression from the start of the compressed data, so readers
// should go forwards.
class PackageArchiveCompressedInputFile : public PackageArchiveIOFile
{
public:
    // The compressed data starts at the file's current position.
    explicit PackageArchiveCompressedInputFile(FILE *file);

    qint32 read(char *buffer, qint32 size) override;
    qint32 seek(qint64 position) override;

    quint64 position() const { return m_position; }

protected:
    // Concrete streams call init from their constructor and end from their
    // destructor.
    virtual void init() = 0;
    virtual void end() = 0;
    // Delivers exactly size bytes or throws.
    virtual void readChunk(char *buffer, qint32 size) = 0;

    static constexpr qint32 ChunkSize = 16384;

private:
    qint64 m_start;
    quint64 m_position = 0;
};
