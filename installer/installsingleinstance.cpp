#include "installer/installsingleinstance.h"

#include "core/descriptor.h"
#include "installer/installerlogging.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The folder itself, never a link in its place: made when missing, refused
// unless it belongs to this user and nobody else may enter it.
int openPrivateFolder(const QString &folder)
{
    const QByteArray path = QFile::encodeName(folder);
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST)
        return -1;
    const int fd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status;
    if (fd >= 0
        && (::fstat(fd, &status) != 0 || status.st_uid != ::geteuid() || (status.st_mode & 07777) != 0700)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

InstallSingleInstance::InstallSingleInstance(const QString &identifier, QObject *parent)
    : InstallSingleInstance(identifier, defaultFolder(), parent)
{ }

InstallSingleInstance::InstallSingleInstance(
    const QString &identifier, const QString &folder, QObject *parent)
    : QObject(parent)
{
    // The identifier holds blanks and dots; a hash makes a safe file and socket name.
    const QByteArray hash = QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex();
    const QString base = QStringLiteral("setup-") + QString::fromLatin1(hash.left(16));
    m_serverName = folder + QLatin1Char('/') + base + QStringLiteral(".socket");
    const Descriptor folderFd(openPrivateFolder(folder));
    if (folderFd.get() < 0) {
        qCWarning(lcInstaller) << "no single-instance guard: not a private folder" << folder;
        return;
    }
    m_lockFd = ::openat(folderFd.get(), QFile::encodeName(base + QStringLiteral(".lock")).constData(),
        O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    struct stat status;
    if (m_lockFd >= 0
        && (::fstat(m_lockFd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != ::geteuid())) {
        // Only root could have put it there; it is not ours to obey.
        ::close(m_lockFd);
        m_lockFd = -1;
    }
    if (m_lockFd < 0) {
        qCWarning(lcInstaller) << "no single-instance guard: cannot use the lock file in" << folder;
        return;
    }
    if (::flock(m_lockFd, LOCK_EX | LOCK_NB) != 0) {
        ::close(m_lockFd);
        m_lockFd = -1;
        m_running = true;
        return;
    }

    connect(&m_server, &QLocalServer::newConnection, this, &InstallSingleInstance::onNewConnection);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    // A socket left by a crashed instance would block listening.
    QLocalServer::removeServer(m_serverName);
    if (!m_server.listen(m_serverName))
        qCWarning(lcInstaller) << "cannot listen on" << m_serverName << m_server.errorString();
}

QString InstallSingleInstance::defaultFolder()
{
    const uid_t user = ::geteuid();
    if (user == 0)
        return QStringLiteral("/run/setup-installer");
    // The session's own folder, when it is what it should be; checked again
    // when it is opened.
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    struct stat status;
    if (!runtime.isEmpty() && ::lstat(runtime.constData(), &status) == 0 && S_ISDIR(status.st_mode)
        && status.st_uid == user && (status.st_mode & 07777) == 0700)
        return QFile::decodeName(runtime);
    return QDir::tempPath() + QStringLiteral("/setup-%1").arg(user);
}

InstallSingleInstance::~InstallSingleInstance()
{
    // The file stays: removing it could part a later holder from a waiting one.
    if (m_lockFd >= 0)
        ::close(m_lockFd);
}

bool InstallSingleInstance::sendMessage(const QString &message, int timeout)
{
    const QDeadlineTimer deadline(timeout);
    QLocalSocket socket;
    socket.connectToServer(m_serverName);
    if (!socket.waitForConnected(int(deadline.remainingTime())))
        return false;
    socket.write(message.toUtf8());
    if (socket.bytesToWrite() > 0 && !socket.waitForBytesWritten(int(deadline.remainingTime())))
        return false;
    socket.disconnectFromServer();
    return socket.state() == QLocalSocket::UnconnectedState
        || socket.waitForDisconnected(int(deadline.remainingTime()));
}

void InstallSingleInstance::onNewConnection()
{
    while (QLocalSocket *socket = m_server.nextPendingConnection()) {
        // The message is complete when the sender hangs up.
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
            const QString message = QString::fromUtf8(socket->readAll());
            socket->deleteLater();
            emit messageReceived(message);
        });
    }
}
