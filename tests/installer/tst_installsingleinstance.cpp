#include "installer/installsingleinstance.h"
#include "installer/processentry.h"

#include <QCryptographicHash>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

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

private:
    QTemporaryDir m_temporary;
};

void tst_InstallSingleInstance::initTestCase()
{
    // Lock files and sockets go to the temporary folder: keep them in ours.
    QVERIFY(m_temporary.isValid());
    qputenv("TMPDIR", QFile::encodeName(m_temporary.path()));
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
    InstallSingleInstance first(QStringLiteral("tst identifier"));
    QVERIFY(!first.isRunning());
    QSignalSpy received(&first, &InstallSingleInstance::messageReceived);

    InstallSingleInstance second(QStringLiteral("tst identifier"));
    QVERIFY(second.isRunning());
    QVERIFY(second.sendMessage(message, 5000));
    QVERIFY(received.wait());
    QCOMPARE(received.size(), 1);
    QCOMPARE(received.at(0).at(0).toString(), message);
}

void tst_InstallSingleInstance::otherIdentifierRunsOnItsOwn()
{
    InstallSingleInstance first(QStringLiteral("tst one"));
    InstallSingleInstance other(QStringLiteral("tst two"));
    QVERIFY(!first.isRunning());
    QVERIFY(!other.isRunning());
}

void tst_InstallSingleInstance::lockReleasedWithTheGuard()
{
    {
        InstallSingleInstance first(QStringLiteral("tst again"));
        QVERIFY(!first.isRunning());
    }
    InstallSingleInstance next(QStringLiteral("tst again"));
    QVERIFY(!next.isRunning());
}

void tst_InstallSingleInstance::lockNeverExpiresWhileHeld()
{
    // An installer waiting at a page for an hour still holds its identifier.
    InstallSingleInstance first(QStringLiteral("tst long run"));
    QVERIFY(!first.isRunning());
    const QStringList locks = QDir(m_temporary.path()).entryList({ QStringLiteral("*.lock") }, QDir::Files);
    QVERIFY(!locks.isEmpty());
    for (const QString &name : locks) {
        QFile lock(m_temporary.filePath(name));
        QVERIFY(lock.open(QIODevice::ReadWrite));
        QVERIFY(lock.setFileTime(
            QDateTime::currentDateTimeUtc().addSecs(-3600), QFileDevice::FileModificationTime));
    }
    InstallSingleInstance second(QStringLiteral("tst long run"));
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
    const QByteArray hash = QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex();
    QFile lock(m_temporary.filePath(
        QStringLiteral("setup-%1-%2.lock").arg(QString::fromLatin1(hash.left(16))).arg(::getuid())));
    QVERIFY(lock.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(lock.write(content), content.size());
    lock.close();
    InstallSingleInstance next(identifier);
    QVERIFY(!next.isRunning());
}

QTEST_GUILESS_MAIN(tst_InstallSingleInstance)
#include "tst_installsingleinstance.moc"
