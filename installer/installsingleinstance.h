#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

// One running installer per product, version and user. The first process to
// take the per-user lock listens on a local socket; a later one finds the lock
// taken and can send the first a message instead of running itself. The lock
// is the kernel's lock on an open file: it lasts exactly as long as its holder,
// so it never expires under a long run and a killed installer, whenever it
// died, never blocks the next start.
// Lock and socket live in a folder only their user (root: only root) can
// create in, so nobody else can take the lock first or answer in the
// installer's place. When that folder or the lock file is not what it must be,
// the guard is off: the run goes on, as if no other installer ran.
// Lives on the user-interface thread for the whole run.
class InstallSingleInstance : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallSingleInstance)

public:
    // Lock and socket in defaultFolder().
    explicit InstallSingleInstance(const QString &identifier, QObject *parent = nullptr);
    // Lock and socket in folder, which is made with mode 0700 when missing.
    // It must be a folder (not a link) of the running user with mode 0700.
    InstallSingleInstance(const QString &identifier, const QString &folder, QObject *parent = nullptr);
    ~InstallSingleInstance() override;

    // Root: a folder below /run, which only root can write. Others:
    // $XDG_RUNTIME_DIR when it is a folder of theirs with mode 0700, else
    // "setup-UID" in the temporary folder.
    static QString defaultFolder();

    // True when another process holds the identifier.
    bool isRunning() const { return m_running; }
    // Delivers message to the running instance; false when it could not be
    // delivered within timeout milliseconds.
    bool sendMessage(const QString &message, int timeout);

signals:
    // The running instance got a message from a later start (the window
    // should come to the front).
    void messageReceived(const QString &message);

private:
    void onNewConnection();

    QString m_serverName;
    int m_lockFd = -1;
    QLocalServer m_server;
    bool m_running = false;
};
