// The archive's headers and table from arbitrary bytes: open with and without
// the sorted index, look every member up, check its name as extraction
// would. Member bodies are the stream targets' concern.

#include "core/hexception.h"
#include "media/packagearchive.h"
#include "tests/fuzz/fuzzing.h"

#include <QString>

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The reader wants a path; an in-memory file gives it one, one per process.
    static const int fd = ::memfd_create("fuzz-archive", 0);
    static const QString path = QStringLiteral("/proc/self/fd/") + QString::number(fd);
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != ssize_t(size))
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
