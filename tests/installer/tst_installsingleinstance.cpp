#include "installer/installsingleinstance.h"
#include "installer/processentry.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

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

QTEST_GUILESS_MAIN(tst_InstallSingleInstance)
#include "tst_installsingleinstance.moc"
