#include "archive/packagearchiveiofile.h"

PackageArchiveIOFile::PackageArchiveIOFile(FILE *file)
    : m_file(file)
{ }

PackageArchiveIOFile::~PackageArchiveIOFile()
{
    if (m_file)
        std::fclose(m_file);
}

qint32 PackageArchiveIOFile::read(char *buffer, qint32 size)
{
    if (size < 1)
        return 0;
    return qint32(std::fread(buffer, size_t(size), 1, m_file));
}

qint32 PackageArchiveIOFile::write(const char *buffer, qint32 size)
{
    if (size < 1)
        return 0;
    return qint32(std::fwrite(buffer, size_t(size), 1, m_file));
}

qint32 PackageArchiveIOFile::seek(qint64 position)
{
    return ::fseeko(m_file, off_t(position), SEEK_SET) == 0 ? 0 : -1;
}

bool PackageArchiveIOFile::close()
{
    FILE *file = m_file;
    m_file = nullptr;
    return file && std::fclose(file) == 0;
}
