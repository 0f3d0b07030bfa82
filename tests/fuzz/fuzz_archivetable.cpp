// The archive's headers and table: open with and without the sorted index,
// look every member up, check its name as extraction would. The input is an
// archive whose zlib body is written out plain; the target compresses it, so
// that mutations reach the table instead of breaking the compressed stream
// (the stream targets fuzz those). Other bodies are taken as they stand.

#include "archive/packagearchive.h"
#include "archive/packagearchiveformat.h"
#include "core/hexception.h"
#include "tests/fuzz/fuzzing.h"

#include <QString>
#include <QtEndian>

#include <zlib.h>

#include <sys/mman.h>
#include <unistd.h>

namespace {

// The archive file for an input: a zlib body compressed at the fastest level.
QByteArray archiveOf(const uint8_t *data, size_t size)
{
    using namespace PackageArchiveFormat;
    const quint32 magic = size >= 6 ? qFromLittleEndian<quint32>(data) : 0;
    const size_t header = magic == Magic ? HeaderSize : LegacyHeaderSize;
    if ((magic != LegacyMagic && (magic != Magic || qFromLittleEndian<quint16>(data + 4) >> 12))
        || size <= header)
        return bytesOf(data, size);
    QByteArray coded(qsizetype(compressBound(uLong(size - header))), Qt::Uninitialized);
    uLongf codedSize = uLongf(coded.size());
    compress2(reinterpret_cast<Bytef *>(coded.data()), &codedSize, data + header, uLong(size - header), 1);
    return bytesOf(data, header) + coded.left(qsizetype(codedSize));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The reader wants a path; an in-memory file gives it one, one per process.
    static const int fd = ::memfd_create("fuzz-archive", 0);
    static const QString path = QStringLiteral("/proc/self/fd/") + QString::number(fd);
    const QByteArray file = archiveOf(data, size);
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, file.constData(), size_t(file.size()), 0) != file.size())
        return 0;
    try {
        PackageArchive archive;
        archive.open(path, 0, size % 2 ? PackageArchive::SortedIndex : 0);
        archive.packageDescription();
        for (int i = 0; i < archive.count(); ++i) {
            const PackageArchiveFile member = archive.member(i);
            require(archive.find(member.name()).name() == member.name());
            require(archive.indexOf(member.name()) <= i);
            try {
                PackageArchive::checkName(member.name());
            } catch (const HException &) { }
        }
        archive.entries(QStringLiteral("*[a-z]?.h"));
    } catch (const HException &) { }
    return 0;
}
