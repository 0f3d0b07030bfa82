#include "plan/installfootprint.h"

#include <QFile>

#include <sys/stat.h>

InstallFootprint InstallFootprint::onDisk(const QString &folder, const QStringList &names)
{
    InstallFootprint footprint { folder, {}, 0 };
    for (const QString &name : names) {
        struct stat status;
        const QByteArray path = QFile::encodeName(folder + QLatin1Char('/') + name);
        if (::lstat(path.constData(), &status) == 0 && S_ISREG(status.st_mode)) {
            footprint.files.append(name);
            footprint.bytes += quint64(status.st_size);
        }
    }
    return footprint;
}
