#include "installer/processentry.h"

#include <QtTest>

#include <sys/stat.h>

class tst_ProcessEntry : public QObject
{
    Q_OBJECT

private slots:
    void prepareInstaller_data();
    void prepareInstaller();
};

void tst_ProcessEntry::prepareInstaller_data()
{
    QTest::addColumn<QByteArray>("before"); // null: unset
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("unset becomes 1") << QByteArray() << QByteArray("1");
    QTest::newRow("user value kept") << QByteArray("0") << QByteArray("0");
    QTest::newRow("empty value kept") << QByteArray("") << QByteArray("");
}

void tst_ProcessEntry::prepareInstaller()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    if (before.isNull())
        qunsetenv("QT_X11_NO_MITSHM");
    else
        qputenv("QT_X11_NO_MITSHM", before);
    const mode_t saved = ::umask(077);

    char program[] = "Setup";
    char *argv[] = { program, nullptr };
    ProcessEntry entry(1, argv);
    entry.prepareInstaller();
    const mode_t mask = ::umask(saved);

    QVERIFY(qEnvironmentVariableIsSet("QT_X11_NO_MITSHM"));
    QCOMPARE(qgetenv("QT_X11_NO_MITSHM"), after);
    QCOMPARE(int(mask), 022);
}

QTEST_GUILESS_MAIN(tst_ProcessEntry)
#include "tst_processentry.moc"
