#include "archive/packagearchivecompressedgzoutputfile.h"

#include "core/hexception.h"

#include <zlib.h>

static const char ZlibVersion[] = "1.2.5";

PackageArchiveCompressedGzOutputFile::PackageArchiveCompressedGzOutputFile(FILE *file, quint32 level)
    : PackageArchiveCompressedOutputFile(file, level)
{
    init();
}

PackageArchiveCompressedGzOutputFile::~PackageArchiveCompressedGzOutputFile()
{
    finishQuietly();
}

void PackageArchiveCompressedGzOutputFile::init()
{
    // deflate's own initialisation decides which levels exist.
    z_stream probe {};
    if (deflateInit_(&probe, int(level()), ZlibVersion, int(sizeof(z_stream))) != Z_OK)
        throw HException(QStringLiteral("cannot initialise deflate"));
    deflateEnd(&probe);
    m_deflate = std::make_unique<PackageArchiveParallelDeflate>(
        file(), int(level()), PackageArchiveParallelDeflate::defaultThreads());
}

void PackageArchiveCompressedGzOutputFile::writeChunk(const char *buffer, qint32 size)
{
    m_deflate->write(buffer, size);
}

void PackageArchiveCompressedGzOutputFile::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    m_deflate->finish();
    m_deflate.reset();
}
