#pragma once

#include "media/packagearchivecompressedoutputfile.h"

#include <memory>

// Compresses into a zlib stream (compression kind 0) on a stdio file.
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
    // Runs deflate over the pending input and writes every filled buffer.
    void deflateInto(int flush);

    struct State;
    std::unique_ptr<State> m_state;
};
