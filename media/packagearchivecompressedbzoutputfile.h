#pragma once

#include "media/packagearchivecompressedoutputfile.h"

// Compresses into a bzip2 stream (compression kind 1) on a stdio file through
// libbz2's stdio interface. The level is the block size in units of 100 000
// bytes, so only 1 to 9 work.
class PackageArchiveCompressedBzOutputFile : public PackageArchiveCompressedOutputFile
{
public:
    PackageArchiveCompressedBzOutputFile(FILE *file, quint32 level);
    ~PackageArchiveCompressedBzOutputFile() override;

    void finish() override;

protected:
    void writeChunk(const char *buffer, qint32 size) override;
    void init() override;

private:
    void *m_handle = nullptr;
};
