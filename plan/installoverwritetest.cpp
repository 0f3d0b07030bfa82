#include "plan/installoverwritetest.h"

#include "core/installquestion.h"
#include "core/installusercancelexception.h"
#include "plan/planlogging.h"

#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The answers hold for the whole process: every item and both the copy and
// the extraction paths share them.
InstallOverwriteTest::Memory s_overwriteMemory = InstallOverwriteTest::Ask;
InstallOverwriteTest::Memory s_readOnlyMemory = InstallOverwriteTest::Ask;

constexpr int s_fiveButtons = InstallQuestion::Yes | InstallQuestion::YesToAll | InstallQuestion::No
    | InstallQuestion::NoToAll | InstallQuestion::Cancel;

// A file is read-only when its mode grants no write permission or this process
// may not write it. The mode counts even for the administrator, who could
// write anyway: somebody protected the file on purpose.
bool isWritable(const QByteArray &path)
{
    struct stat status;
    if (::stat(path.constData(), &status) != 0)
        return false;
    return (status.st_mode & 0222) && ::access(path.constData(), W_OK) == 0;
}

// Only a regular file is made writable, through a descriptor opened without
// following links: a link planted in place of a product file must not lend
// its target the write bit.
bool makeWritable(const QByteArray &path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status;
    const bool changed = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)
        && ::fchmod(fd, (status.st_mode & 07777) | S_IWUSR) == 0;
    ::close(fd);
    return changed && isWritable(path);
}

} // namespace

InstallOverwriteTest::InstallOverwriteTest(InstallQuestion *question)
    : m_question(question)
{ }

void InstallOverwriteTest::forgetAnswers()
{
    s_overwriteMemory = Ask;
    s_readOnlyMemory = Ask;
}

bool InstallOverwriteTest::shouldOverwrite(
    qint64 sourceModified, quint64 sourceSize, const QString &destination)
{
    const QByteArray encoded = QFile::encodeName(destination);
    struct stat status;
    if (::lstat(encoded.constData(), &status) != 0)
        return true;
    // A link where a product file belongs holds none of the user's bytes: it
    // is replaced, and neither its target's age nor its mode counts.
    if (S_ISLNK(status.st_mode))
        return true;
    if (s_overwriteMemory == NoToAll)
        return false;
    const qint64 destinationModified = status.st_mtim.tv_sec;
    if (destinationModified == sourceModified && quint64(status.st_size) == sourceSize) {
        qCDebug(lcPlan) << "keeping" << destination << "of the same time and size";
        return false;
    }

    if (s_overwriteMemory != YesToAll) {
        const QString name = QFileInfo(destination).fileName();
        QString heading;
        QString text;
        int defaultButton = InstallQuestion::No;
        if (destinationModified == sourceModified) {
            heading = name + QStringLiteral(" already exists");
            text = QStringLiteral("Do you want to overwrite \"") + destination + QStringLiteral("\"?");
        } else if (destinationModified > sourceModified) {
            heading = QStringLiteral("Newer version of ") + name + QStringLiteral(" already exists");
            text = QStringLiteral("Do you want to overwrite \"") + destination
                + QStringLiteral("\" with older file?");
        } else {
            heading = QStringLiteral("Older version of ") + name + QStringLiteral(" already exists");
            text = QStringLiteral("Do you want to overwrite \"") + destination
                + QStringLiteral("\" with newer file?");
            defaultButton = InstallQuestion::Yes;
        }
        switch (m_question->ask(heading, text, s_fiveButtons, defaultButton)) {
        case InstallQuestion::Cancel:
            throw InstallUserCancelException();
        case InstallQuestion::YesToAll:
            s_overwriteMemory = YesToAll;
            break;
        case InstallQuestion::Yes:
            break;
        case InstallQuestion::NoToAll:
            s_overwriteMemory = NoToAll;
            return false;
        default:
            return false;
        }
    }
    return isWritable(encoded) || overwriteReadOnly(destination);
}

bool InstallOverwriteTest::overwriteReadOnly(const QString &destination)
{
    if (s_readOnlyMemory == NoToAll)
        return false;
    const QString name = QFileInfo(destination).fileName();
    if (s_readOnlyMemory == Ask) {
        switch (m_question->ask(destination + QStringLiteral(" is a read only file"),
            QStringLiteral("Do you want to overwrite read only file \"") + name + QStringLiteral("\"?"),
            s_fiveButtons, InstallQuestion::No)) {
        case InstallQuestion::Cancel:
            throw InstallUserCancelException();
        case InstallQuestion::YesToAll:
            s_readOnlyMemory = YesToAll;
            break;
        case InstallQuestion::Yes:
            break;
        case InstallQuestion::NoToAll:
            s_readOnlyMemory = NoToAll;
            return false;
        default:
            return false;
        }
    }
    const QByteArray encoded = QFile::encodeName(destination);
    for (;;) {
        if (makeWritable(encoded))
            return true;
        const int answer
            = m_question->ask(QStringLiteral("Cannot make ") + destination + QStringLiteral(" writable"),
                QStringLiteral("Do you want to skip over installation of ") + name + QStringLiteral("?"),
                InstallQuestion::Yes | InstallQuestion::No | InstallQuestion::Cancel, InstallQuestion::Yes);
        if (answer == InstallQuestion::Cancel)
            throw InstallUserCancelException();
        if (answer == InstallQuestion::Yes)
            return false;
    }
}
