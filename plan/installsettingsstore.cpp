#include "plan/installsettingsstore.h"

#include "core/descriptor.h"
#include "core/hexception.h"
#include "core/macrotable.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char FileName[] = "Installer.conf";

// Opens each folder from the home folder down to the store's own, each
// relative to the one before. As root never through a link: the home folder
// and everything below it may be another user's, who could point a link
// anywhere root can write. With make, missing folders are made on the way.
// Leaves folder closed, errno ENOENT, when one is missing.
void openFolders(Descriptor &folder, const QStringList &names, bool make)
{
    // The home folder itself may be reached through links, and is made when
    // missing, as the settings library always did.
    const QString home = expandMacros(QStringLiteral("$(HomeDir)"));
    if (make)
        QDir().mkpath(home);
    folder.reset(::open(QFile::encodeName(home).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const int noLink = ::geteuid() == 0 ? O_NOFOLLOW : 0;
    for (const QString &name : names) {
        if (folder.get() < 0)
            return;
        const QByteArray encoded = QFile::encodeName(name);
        if (make && ::mkdirat(folder.get(), encoded.constData(), 0777) != 0 && errno != EEXIST) {
            folder.reset();
            return;
        }
        const int next
            = ::openat(folder.get(), encoded.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC | noLink);
        const int error = errno;
        folder.reset(next);
        errno = error;
    }
}

} // namespace

QString InstallSettingsStore::refusal(Access access)
{
    const QString refused = QStringLiteral("Cannot use the settings file ") + filePath();
    const QStringList folders = expandMacros(QStringLiteral(".config/$(ProductRegKey)"))
                                    .split(QLatin1Char('/'), Qt::SkipEmptyParts);
    Descriptor folder;
    openFolders(folder, folders, access == Write);
    if (folder.get() < 0) {
        // Nothing there yet is nothing to read; a store that writes has made
        // the missing folders itself.
        return errno == ENOENT && access != Write
            ? QString()
            : refused + QStringLiteral(": a folder on its way is a link or cannot be made");
    }
    // The file and the settings library's lock file beside it, examined
    // without opening them. A link in place of either goes, as the store's
    // own files are replaced whole anyway; anything else that is not a
    // regular file is refused: opening a FIFO would wait for good, a device
    // could be anything.
    for (const QByteArray &name : { QByteArray(FileName), QByteArray(FileName) + ".lock" }) {
        struct stat status;
        if (::fstatat(folder.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno != ENOENT)
                return refused + QStringLiteral(": it cannot be examined");
        } else if (S_ISLNK(status.st_mode)) {
            if (access != Check && ::unlinkat(folder.get(), name.constData(), 0) != 0)
                return refused + QStringLiteral(": cannot remove the link in its place");
        } else if (!S_ISREG(status.st_mode)) {
            return refused + QStringLiteral(": it is not a regular file");
        }
    }
    return QString();
}

InstallSettingsStore::InstallSettingsStore(const QString &key, Use use)
{
    const QString refused = refusal(use == Writing ? Write : Read);
    if (!refused.isEmpty())
        throw HException(refused);
    m_settings = std::make_unique<QSettings>(filePath(), QSettings::IniFormat);
    m_settings->beginGroup(key);
}

InstallSettingsStore::~InstallSettingsStore()
{
    m_settings->sync();
}

QString InstallSettingsStore::checkFile()
{
    return refusal(Check);
}

QString InstallSettingsStore::filePath()
{
    return expandMacros(QStringLiteral("$(HomeDir)/.config/$(ProductRegKey)/Installer.conf"));
}

QString InstallSettingsStore::value(const QString &name) const
{
    return m_settings->value(name, QString()).toString();
}

void InstallSettingsStore::setValue(const QString &name, const QString &value)
{
    m_settings->setValue(name, value);
}

void InstallSettingsStore::remove(const QString &name)
{
    m_settings->remove(name);
}

bool InstallSettingsStore::sync()
{
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
}
