#pragma once

#include "archive/packagearchiveiofile.h"

// A compressing stream. A write takes the whole block or throws HException and
// returns the byte count. The compressor is flushed by finish(): call it to
// learn about a failure; the destructor of a concrete stream finishes one that
// was not finished, silently. The plain seek of the base stays and is not used.
class PackageArchiveCompressedOutputFile : public PackageArchiveIOFile
{
public:
    PackageArchiveCompressedOutputFile(FILE *file, quint32 level);

    qint32 write(const char *buffer, qint32 size) override;

    quint32 level() const { return m_level; }

    // Flushes the compressor into the file and ends the stream; throws on
    // failure. Called once; the stream takes no writes afterwards.
    virtual void finish() = 0;
    bool finishWriting() override
    {
        finish();
        return close();
    }

protected:
    virtual void writeChunk(const char *buffer, qint32 size) = 0;
    virtual void init() = 0;

    // For destructors: finishes an unfinished stream without throwing.
    void finishQuietly();
    bool m_finished = false;

    static constexpr qint32 ChunkSize = 16384;

private:
    quint32 m_level;
};
