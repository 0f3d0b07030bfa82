#pragma once

#include "media/packagearchivecompressedinputfile.h"

// Decompresses a bzip2 stream (compression kind 1) from a stdio file through
// libbz2's stdio interface.
class PackageArchiveCompressedBzInputFile : public PackageArchiveCompressedInputFile
{
public:
    explicit PackageArchiveCompressedBzInputFile(FILE *file);
    ~PackageArchiveCompressedBzInputFile() override;

protected:
    void init() override;
    void end() override;
    void readChunk(char *buffer, qint32 size) override;

private:
    void *m_handle = nullptr;
};
