#include "archive/packagearchivecompressedoutputfile.h"

#include "archive/archivelogging.h"
#include "core/hexception.h"

PackageArchiveCompressedOutputFile::PackageArchiveCompressedOutputFile(FILE *file, quint32 level)
    : PackageArchiveIOFile(file)
    , m_level(level)
{ }

qint32 PackageArchiveCompressedOutputFile::write(const char *buffer, qint32 size)
{
    if (size < 1)
        return 0;
    writeChunk(buffer, size);
    return size;
}

void PackageArchiveCompressedOutputFile::finishQuietly()
{
    if (m_finished)
        return;
    try {
        finish();
    } catch (const HException &error) {
        qCWarning(lcArchive) << "compressed stream not finished:" << error.message();
    }
}
