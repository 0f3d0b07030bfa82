#include "archive/packagearchivecompressedinputfile.h"

#include <QtGlobal>

PackageArchiveCompressedInputFile::PackageArchiveCompressedInputFile(FILE *file)
    : PackageArchiveIOFile(file)
    , m_start(::ftello(file))
{ }

qint32 PackageArchiveCompressedInputFile::read(char *buffer, qint32 size)
{
    if (size < 1)
        return 0;
    readChunk(buffer, size);
    m_position += quint64(size);
    m_decompressed += quint64(size);
    return size;
}

qint32 PackageArchiveCompressedInputFile::seek(qint64 position)
{
    if (position < 0)
        return -1;
    const quint64 target = quint64(position);
    const quint64 resume = resumeBefore(target);
    if (target < m_position || resume > m_position) {
        if (!resumeAt(resume))
            return -1;
        m_position = resume;
    }
    char discard[ChunkSize];
    while (m_position < target)
        read(discard, qint32(qMin<quint64>(ChunkSize, target - m_position)));
    return 0;
}

quint64 PackageArchiveCompressedInputFile::resumeBefore(quint64) const
{
    return 0;
}

bool PackageArchiveCompressedInputFile::resumeAt(quint64)
{
    end();
    if (::fseeko(file(), off_t(m_start), SEEK_SET) != 0)
        return false;
    init();
    return true;
}
