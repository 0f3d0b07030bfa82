#include "archive/packagearchivecompressedbzoutputfile.h"

#include "core/hexception.h"

PackageArchiveCompressedBzOutputFile::PackageArchiveCompressedBzOutputFile(FILE *file, quint32 level)
    : PackageArchiveCompressedOutputFile(file, level)
{
    init();
}

PackageArchiveCompressedBzOutputFile::~PackageArchiveCompressedBzOutputFile()
{
    finishQuietly();
}

void PackageArchiveCompressedBzOutputFile::init()
{
    // The block sizes libbz2 accepts.
    if (level() < 1 || level() > 9)
        throw HException(QStringLiteral("cannot initialise deflate"));
    m_compressor = std::make_unique<PackageArchiveParallelBzip2>(
        file(), int(level()), PackageArchiveParallelBzip2::defaultThreads());
}

void PackageArchiveCompressedBzOutputFile::writeChunk(const char *buffer, qint32 size)
{
    m_compressor->write(buffer, size);
}

void PackageArchiveCompressedBzOutputFile::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    m_compressor->finish();
    m_compressor.reset();
}
