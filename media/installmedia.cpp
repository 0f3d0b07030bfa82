#include "media/installmedia.h"

#include "core/fileutils.h"
#include "core/installexception.h"
#include "media/installoverwritedecision.h"

#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>

InstallMedia::InstallMedia(QObject *parent)
    : QObject(parent)
{ }

InstallMedia::~InstallMedia() = default;

bool InstallMedia::shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const
{
    return !m_decision || m_decision->shouldOverwrite(sourceModified, sourceSize, target);
}

void InstallMedia::makeTargetFolder(const QString &target)
{
    const QString folder = QFileInfo(target).absolutePath();
    if (!FileUtils::makePath(folder))
        throw InstallException(QStringLiteral("Cannot create folder ") + folder);
}

bool InstallMedia::staysInside(const QString &destination, const QString &name)
{
    const QStringList parts = name.split(QLatin1Char('/'));
    if (name.startsWith(QLatin1Char('/')) || parts.contains(QStringLiteral("..")))
        return false;
    QString folder = destination;
    for (int i = -1; i + 1 < parts.size(); ++i) {
        if (i >= 0)
            folder += QLatin1Char('/') + parts.at(i);
        struct stat status;
        if (::lstat(QFile::encodeName(folder).constData(), &status) != 0)
            return errno == ENOENT; // the rest is made fresh below a real folder
        if (S_ISLNK(status.st_mode))
            return false;
        // Anything else in the way makes the folder fail to be made.
        if (!S_ISDIR(status.st_mode))
            return true;
    }
    return true;
}
