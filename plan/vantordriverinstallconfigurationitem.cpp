#include "plan/vantordriverinstallconfigurationitem.h"

#include "core/installexception.h"
#include "media/installmedia.h"
#include "plan/installconfigurationlist.h"
#include "plan/planlogging.h"

#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Sets the mode of a regular file without following a symbolic link: a link
// planted where the rules file goes must not make us change another file.
bool setRegularFileMode(const QString &path, mode_t mode)
{
    const int fd
        = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status;
    const bool done = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && ::fchmod(fd, mode) == 0;
    ::close(fd);
    return done;
}

} // namespace

VantorDriverInstallConfigurationItem::VantorDriverInstallConfigurationItem(InstallConfigurationItem *parent)
    : InstallConfigurationItem(parent, QStringLiteral("Vantor udev rules file"),
        QStringLiteral("Install the Vantor udev rules file"), levelFromSystem(), true, AllFlags)
{ }

int VantorDriverInstallConfigurationItem::levelFromSystem()
{
    const bool folder = QFileInfo(rulesFolder()).isDir();
    const bool file = QFileInfo::exists(rulesFolder() + QLatin1Char('/') + rulesFileName());
    return (folder && !file) ? 4 : 3;
}

InstallFootprints VantorDriverInstallConfigurationItem::installFootprint() const
{
    // The medium tells folder sizes only; one rules file is a few hundred bytes.
    return { { rulesFolder(), { rulesFileName() }, 0 } };
}

void VantorDriverInstallConfigurationItem::installAction()
{
    InstallConfigurationList *root = list();
    InstallMedia *media = root ? root->media() : nullptr;
    if (!media)
        throw InstallException(QStringLiteral("No installation medium for ") + rulesFileName());
    media->copyFiles(QStringLiteral("bin"), { rulesFileName() }, rulesFolder());

    // udev reads the rules as any user; whatever mode the copy left, make it
    // readable by all and writable by the owner only.
    const QString path = rulesFolder() + QLatin1Char('/') + rulesFileName();
    if (!setRegularFileMode(path, 0644))
        qCWarning(lcPlan) << "Cannot set the mode of" << path;
}
