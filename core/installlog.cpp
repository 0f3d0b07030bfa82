#include "core/installlog.h"

#include "core/descriptor.h"
#include "core/fileutils.h"
#include "core/heldfolder.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

Descriptor &logFile()
{
    static Descriptor file;
    return file;
}

} // namespace

namespace InstallLog {

QString open(const QString &path)
{
    const QFileInfo info(path);
    const HeldFolder folder = HeldFolder::open(info.absolutePath());
    if (!folder.isValid())
        return QString::fromLocal8Bit(std::strerror(errno));
    // Made for the running user alone: it may hold paths and answers.
    Descriptor file(::openat(folder.fd(), QFile::encodeName(info.fileName()).constData(),
        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (file.get() < 0)
        return errno == ELOOP ? QStringLiteral("it is a symbolic link")
                              : QString::fromLocal8Bit(std::strerror(errno));
    struct stat status;
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return QStringLiteral("it is not a regular file");
    // Appending to a file of somebody else's, or to a second name of one,
    // would let them choose what root writes into.
    if (status.st_uid != ::geteuid())
        return QStringLiteral("it belongs to user %1").arg(status.st_uid);
    if (status.st_nlink != 1)
        return QStringLiteral("it has other names (hard links)");
    logFile() = std::move(file);
    return QString();
}

bool isOpen()
{
    return logFile().get() >= 0;
}

void write(const QString &text)
{
    if (!isOpen())
        return;
    const QByteArray stamp = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1() + ' ';
    QByteArray lines;
    for (const QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        if (!line.trimmed().isEmpty())
            lines += stamp + line.toLocal8Bit() + '\n';
    }
    // One write, so lines of another run appending meanwhile do not interleave.
    FileUtils::writeAll(logFile().get(), lines.constData(), lines.size());
}

} // namespace InstallLog
