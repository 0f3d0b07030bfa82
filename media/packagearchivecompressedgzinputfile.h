#pragma once

#include "media/packagearchivecompressedinputfile.h"

#include <memory>

// Decompresses a zlib stream (compression kind 0) from a stdio file.
class PackageArchiveCompressedGzInputFile : public PackageArchiveCompressedInputFile
{
public:
    explicit PackageArchiveCompressedGzInputFile(FILE *file);
    ~PackageArchiveCompressedGzInputFile() override;

protected:
    void init() override;
    void end() override;
    void readChunk(char *buffer, qint32 size) override;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
