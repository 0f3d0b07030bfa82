#pragma once

#include "archive/packagearchivecompressedoutputfile.h"
#include "archive/packagearchiveparallelbzip2.h"

#include <memory>

// Compresses into a bzip2 stream (compression kind 1) on a stdio file, on
// several threads (see PackageArchiveParallelBzip2). The level is the block
// size in units of 100 000 bytes, so only 1 to 9 work.
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
    std::unique_ptr<PackageArchiveParallelBzip2> m_compressor;
};
