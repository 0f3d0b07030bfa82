#include "media/packagearchivecompressedbzoutputfile.h"

#include "core/hexception.h"

#include <bzlib.h>

PackageArchiveCompressedBzOutputFile::PackageArchiveCompressedBzOutputFile(FILE *file, quint32 level)
    : PackageArchiveCompressedOutputFile(file, level)
{
    init();
}

PackageArchiveCompressedBzOutputFile::~PackageArchiveCompressedBzOutputFile()
{
    finishQuietly();
    if (m_handle) {
        // Only after a failed finish: release the handle, write nothing more.
        // libbz2 refuses to let go of a handle while the file shows an error.
        std::clearerr(file());
        int error = BZ_OK;
        BZ2_bzWriteClose(&error, m_handle, 1, nullptr, nullptr);
    }
}

void PackageArchiveCompressedBzOutputFile::init()
{
    int error = BZ_OK;
    m_handle = BZ2_bzWriteOpen(&error, file(), int(level()), 0, 30);
    if (!m_handle || error != BZ_OK) {
        m_handle = nullptr;
        throw HException(QStringLiteral("cannot initialise deflate"));
    }
}

void PackageArchiveCompressedBzOutputFile::writeChunk(const char *buffer, qint32 size)
{
    int error = BZ_OK;
    BZ2_bzWrite(&error, m_handle, const_cast<char *>(buffer), size);
    if (error != BZ_OK)
        throw HException(QStringLiteral("error writing to compressed stream"));
}

void PackageArchiveCompressedBzOutputFile::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    int error = BZ_OK;
    BZ2_bzWriteClose(&error, m_handle, 0, nullptr, nullptr);
    if (error != BZ_OK)
        throw HException(QStringLiteral("error compressing stream"));
    m_handle = nullptr;
}
