#include "media/packagearchivecompressedbzinputfile.h"

#include "core/hexception.h"
#include "media/medialog.h"

#include <bzlib.h>

PackageArchiveCompressedBzInputFile::PackageArchiveCompressedBzInputFile(FILE *file)
    : PackageArchiveCompressedInputFile(file)
{
    init();
}

PackageArchiveCompressedBzInputFile::~PackageArchiveCompressedBzInputFile()
{
    try {
        end();
    } catch (const HException &error) {
        qCWarning(lcMedia) << error.message();
    }
}

void PackageArchiveCompressedBzInputFile::init()
{
    int error = BZ_OK;
    m_handle = BZ2_bzReadOpen(&error, file(), 0, 0, nullptr, 0);
    if (!m_handle || error != BZ_OK) {
        m_handle = nullptr;
        throw HException(QStringLiteral("cannot initialise inflate"));
    }
}

void PackageArchiveCompressedBzInputFile::end()
{
    if (!m_handle)
        return;
    int error = BZ_OK;
    BZ2_bzReadClose(&error, m_handle);
    m_handle = nullptr;
    if (error != BZ_OK)
        throw HException(QStringLiteral("error decompressing stream"));
}

void PackageArchiveCompressedBzInputFile::readChunk(char *buffer, qint32 size)
{
    int error = BZ_OK;
    const int got = BZ2_bzRead(&error, m_handle, buffer, size);
    if (got != size || (error != BZ_OK && error != BZ_STREAM_END))
        throw HException(QStringLiteral("error reading from compressed stream"));
}
