#include "installer/installsingleinstance.h"
#include "installer/processentry.h"

#include <QCryptographicHash>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

class tst_InstallSingleInstance : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void identifier();
    void secondInstanceSendsMessage_data();
    void secondInstanceSendsMessage();
    void otherIdentifierRunsOnItsOwn();
    void lockReleasedWithTheGuard();
    void lockNeverExpiresWhileHeld();
    void fileLeftByAKilledInstallerDoesNotBlock_data();
    void fileLeftByAKilledInstallerDoesNotBlock();
    void squattedLockObeyedOnlyInAPrivateFolder_data();
    void squattedLockObeyedOnlyInAPrivateFolder();

private:
    QString lockPath(const QString &identifier, const QString &folder) const;

    QTemporaryDir m_temporary;
    // Where the guards of this test keep their locks (made by the first).
    QString m_folder;
};

void tst_InstallSingleInstance::initTestCase()
{
    QVERIFY(m_temporary.isValid());
    m_folder = m_temporary.filePath(QStringLiteral("locks"));
}

QString tst_InstallSingleInstance::lockPath(const QString &identifier, const QString &folder) const
{
    const QByteArray hash = QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex();
    return folder + QStringLiteral("/setup-%1.lock").arg(QString::fromLatin1(hash.left(16)));
}

void tst_InstallSingleInstance::identifier()
{
    QCOMPARE(ProcessEntry::instanceIdentifier(), QStringLiteral("Tamrin Tamrin Calvra for ARM 5.50a Setup"));
}

void tst_InstallSingleInstance::secondInstanceSendsMessage_data()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("empty") << QString();
    QTest::newRow("text") << QStringLiteral("raise");
}

void tst_InstallSingleInstance::secondInstanceSendsMessage()
{
    QFETCH(QString, message);
    InstallSingleInstance first(QStringLiteral("tst identifier"), m_folder);
    QVERIFY(!first.isRunning());
    QSignalSpy received(&first, &InstallSingleInstance::messageReceived);

    InstallSingleInstance second(QStringLiteral("tst identifier"), m_folder);
    QVERIFY(second.isRunning());
    QVERIFY(second.sendMessage(message, 5000));
    QVERIFY(received.wait());
    QCOMPARE(received.size(), 1);
    QCOMPARE(received.at(0).at(0).toString(), message);
}

void tst_InstallSingleInstance::otherIdentifierRunsOnItsOwn()
{
    InstallSingleInstance first(QStringLiteral("tst one"), m_folder);
    InstallSingleInstance other(QStringLiteral("tst two"), m_folder);
    QVERIFY(!first.isRunning());
    QVERIFY(!other.isRunning());
}

void tst_InstallSingleInstance::lockReleasedWithTheGuard()
{
    {
        InstallSingleInstance first(QStringLiteral("tst again"), m_folder);
        QVERIFY(!first.isRunning());
    }
    InstallSingleInstance next(QStringLiteral("tst again"), m_folder);
    QVERIFY(!next.isRunning());
}

void tst_InstallSingleInstance::lockNeverExpiresWhileHeld()
{
    // An installer waiting at a page for an hour still holds its identifier.
    InstallSingleInstance first(QStringLiteral("tst long run"), m_folder);
    QVERIFY(!first.isRunning());
    const QStringList locks = QDir(m_folder).entryList({ QStringLiteral("*.lock") }, QDir::Files);
    QVERIFY(!locks.isEmpty());
    for (const QString &name : locks) {
        QFile lock(m_folder + QLatin1Char('/') + name);
        QVERIFY(lock.open(QIODevice::ReadWrite));
        QVERIFY(lock.setFileTime(
            QDateTime::currentDateTimeUtc().addSecs(-3600), QFileDevice::FileModificationTime));
    }
    InstallSingleInstance second(QStringLiteral("tst long run"), m_folder);
    QVERIFY(second.isRunning());
}

void tst_InstallSingleInstance::fileLeftByAKilledInstallerDoesNotBlock_data()
{
    QTest::addColumn<QByteArray>("content");
    // Killed right after creating the file, or after writing it.
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("partial") << QByteArray("12");
    QTest::newRow("this process") << QByteArray::number(QCoreApplication::applicationPid())
            + "\nSetup\nhost\n";
}

void tst_InstallSingleInstance::fileLeftByAKilledInstallerDoesNotBlock()
{
    QFETCH(QByteArray, content);
    const QString identifier = QStringLiteral("tst killed ") + QString::fromLatin1(QTest::currentDataTag());
    // The file a killed installer left, just made: nobody holds it, whatever
    // stands in it.
    QVERIFY(QDir().mkpath(m_folder));
    QFile lock(lockPath(identifier, m_folder));
    QVERIFY(lock.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(lock.write(content), content.size());
    lock.close();
    InstallSingleInstance next(identifier, m_folder);
    QVERIFY(!next.isRunning());
}

void tst_InstallSingleInstance::squattedLockObeyedOnlyInAPrivateFolder_data()
{
    QTest::addColumn<QString>("change"); // what differs from a private folder of this user's own
    QTest::addColumn<bool>("obeyed");
    QTest::newRow("private folder") << QString() << true;
    QTest::newRow("folder open to others") << QStringLiteral("mode 0755") << false;
    QTest::newRow("link to a private folder") << QStringLiteral("link") << false;
    QTest::newRow("folder of another user") << QStringLiteral("folder owner") << false;
    QTest::newRow("lock file of another user") << QStringLiteral("lock owner") << false;
}

void tst_InstallSingleInstance::squattedLockObeyedOnlyInAPrivateFolder()
{
    QFETCH(QString, change);
    QFETCH(bool, obeyed);
    if (change.endsWith(QLatin1String("owner")) && ::geteuid() != 0)
        QSKIP("giving files away needs root");
    const QString identifier = QStringLiteral("tst squatted");
    const QTemporaryDir scratch(m_temporary.filePath(QStringLiteral("squat-XXXXXX")));
    const QString real = scratch.filePath(QStringLiteral("real"));
    QVERIFY(QDir().mkdir(real)
        && QFile::setPermissions(real, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    // Somebody holds a lock file where the guard would look.
    const int squatter
        = ::open(QFile::encodeName(lockPath(identifier, real)).constData(), O_RDWR | O_CREAT, 0600);
    QVERIFY(squatter >= 0 && ::flock(squatter, LOCK_EX | LOCK_NB) == 0);
    QString folder = real;
    if (change == QLatin1String("mode 0755")) {
        QVERIFY(::chmod(QFile::encodeName(real).constData(), 0755) == 0);
    } else if (change == QLatin1String("link")) {
        folder = scratch.filePath(QStringLiteral("link"));
        QVERIFY(QFile::link(real, folder));
    } else if (change == QLatin1String("folder owner")) {
        QVERIFY(::chown(QFile::encodeName(real).constData(), 12345, 12345) == 0);
    } else if (change == QLatin1String("lock owner")) {
        QVERIFY(::fchown(squatter, 12345, 12345) == 0);
    }
    InstallSingleInstance guard(identifier, folder);
    ::close(squatter);
    QCOMPARE(guard.isRunning(), obeyed);
}

QTEST_GUILESS_MAIN(tst_InstallSingleInstance)
#include "tst_installsingleinstance.moc"
