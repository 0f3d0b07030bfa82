#pragma once

#include "archive/packagearchivecompressedoutputfile.h"
#include "archive/packagearchiveparalleldeflate.h"

#include <memory>

// Compresses into a zlib stream (compression kind 0) on a stdio file, on
// several threads (see PackageArchiveParallelDeflate).
class PackageArchiveCompressedGzOutputFile : public PackageArchiveCompressedOutputFile
{
public:
    PackageArchiveCompressedGzOutputFile(FILE *file, quint32 level);
    ~PackageArchiveCompressedGzOutputFile() override;

    void finish() override;

protected:
    void writeChunk(const char *buffer, qint32 size) override;
    void init() override;

private:
    std::unique_ptr<PackageArchiveParallelDeflate> m_deflate;
};
