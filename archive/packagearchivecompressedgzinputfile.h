#pragma once

#include "archive/packagearchivecompressedinputfile.h"

#include <memory>

// Decompresses a zlib stream (compression kind 0) from a stdio file. On its
// way forwards it keeps access points (a deflate block boundary with the 32 KiB
// before it), so a later seek resumes at the nearest one instead of the start.
class PackageArchiveCompressedGzInputFile : public PackageArchiveCompressedInputFile
{
public:
    explicit PackageArchiveCompressedGzInputFile(FILE *file);
    ~PackageArchiveCompressedGzInputFile() override;

protected:
    void init() override;
    void end() override;
    void readChunk(char *buffer, qint32 size) override;
    quint64 resumeBefore(quint64 target) const override;
    bool resumeAt(quint64 position) override;

private:
    void keepAccessPoint();

    struct State;
    std::unique_ptr<State> m_state;
};
