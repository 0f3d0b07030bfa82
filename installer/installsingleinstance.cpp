#include "installer/installsingleinstance.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QLoggingCategory>

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcInstance, "setup.installer")

InstallSingleInstance::InstallSingleInstance(const QString &identifier, QObject *parent)
    : QObject(parent)
{
    // The identifier holds blanks and dots; a hash makes a safe file and socket
    // name, the user id keeps users apart.
    const QByteArray hash = QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex();
    m_serverName = QStringLiteral("setup-%1-%2").arg(QString::fromLatin1(hash.left(16))).arg(::getuid());
    const QString lockPath = QDir::tempPath() + QLatin1Char('/') + m_serverName + QStringLiteral(".lock");
    m_lockFd
        = ::open(QFile::encodeName(lockPath).constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (m_lockFd < 0) {
        // Somebody else's file (or link) in the shared folder must not stop
        // the installer; it runs without the guard.
        qCWarning(lcInstance) << "cannot open the lock file" << lockPath;
    } else if (::flock(m_lockFd, LOCK_EX | LOCK_NB) != 0) {
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
        qCWarning(lcInstance) << "cannot listen on" << m_serverName << m_server.errorString();
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
