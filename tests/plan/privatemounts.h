#pragma once

#include <QDir>
#include <QFile>
#include <QList>
#include <QString>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

// Lets a test write system folders (/usr/share/..., /etc/udev/rules.d) without
// touching the real ones. enter() moves the whole test process into its own
// mount namespace; it must run first in main(), before any thread starts, and
// needs root. A PrivateMounts object then lays writable layers over system
// folders and takes them away again when it is destroyed:
// - overlay(folder, scratch): the folder keeps showing its real contents, and
//   whatever is written there lands in scratch + "/upper" instead, so a test
//   can also see exactly what was written;
// - tmpfs(folder): an empty folder in memory.
// Child processes (the desktop's update commands) run in the same namespace.
class PrivateMounts
{
public:
    static bool enter()
    {
        if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0)
            return false;
        s_entered = ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        return s_entered;
    }
    static bool entered() { return s_entered; }

    PrivateMounts() = default;
    ~PrivateMounts()
    {
        for (auto it = m_mounted.crbegin(); it != m_mounted.crend(); ++it)
            ::umount2(QFile::encodeName(*it).constData(), MNT_DETACH);
    }
    PrivateMounts(const PrivateMounts &) = delete;
    PrivateMounts &operator=(const PrivateMounts &) = delete;

    bool overlay(const QString &folder, const QString &scratch)
    {
        const QString upper = scratch + QStringLiteral("/upper");
        const QString work = scratch + QStringLiteral("/work");
        if (!QDir().mkpath(upper) || !QDir().mkpath(work))
            return false;
        const QByteArray options = QFile::encodeName(
            QStringLiteral("lowerdir=%1,upperdir=%2,workdir=%3").arg(folder, upper, work));
        return mount(folder, "overlay", options);
    }

    bool tmpfs(const QString &folder) { return mount(folder, "tmpfs", QByteArray("mode=0755")); }

private:
    bool mount(const QString &folder, const char *type, const QByteArray &options)
    {
        if (::mount(type, QFile::encodeName(folder).constData(), type, 0, options.constData()) != 0)
            return false;
        m_mounted.append(folder);
        return true;
    }

    static inline bool s_entered = false;
    QList<QString> m_mounted;
};

// main() for a test that needs PrivateMounts.
#define PRIVATE_MOUNTS_TEST_MAIN(TestObject)                                                                 \
    int main(int argc, char *argv[])                                                                         \
    {                                                                                                        \
        PrivateMounts::enter();                                                                              \
        QCoreApplication app(argc, argv);                                                                    \
        TestObject test;                                                                                     \
        QTEST_SET_MAIN_SOURCE_PATH                                                                           \
        return QTest::qExec(&test, argc, argv);                                                              \
    }
