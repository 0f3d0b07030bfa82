// Feeds arbitrary bytes to the archive reader: open, look members up, read
// every member's bytes and check its name as extraction would.

#include "core/hexception.h"
#include "media/packagearchive.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// The reader wants a path; an in-memory file gives it one without touching disk.
class MemoryFile
{
public:
    MemoryFile(const uint8_t *data, size_t size)
        : m_fd(::memfd_create("fuzz-archive", 0))
    {
        if (m_fd >= 0 && ::write(m_fd, data, size) != ssize_t(size)) {
            ::close(m_fd);
            m_fd = -1;
        }
    }
    ~MemoryFile()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    bool isValid() const { return m_fd >= 0; }
    QString path() const { return QStringLiteral("/proc/self/fd/") + QString::number(m_fd); }

private:
    int m_fd;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    MemoryFile file(data, size);
    if (!file.isValid())
        return 0;
    try {
        PackageArchive::formatOf(file.path());
    } catch (const HException &) { }
    try {
        PackageArchive archive;
        archive.open(file.path(), 0, size % 2 ? PackageArchive::SortedIndex : 0);
        archive.packageDescription();
        for (int i = 0; i < archive.count(); ++i) {
            const PackageArchiveFile member = archive.member(i);
            archive.find(member.name());
            archive.indexOf(member.name());
            try {
                PackageArchive::checkName(member.name());
            } catch (const HException &) { }
            const QByteArray bytes = archive.data(member);
            if (bytes.size() != qsizetype(member.size()))
                __builtin_trap();
        }
        archive.entries(QStringLiteral("*[a-z]?.h"));
    } catch (const HException &) { }
    return 0;
}
