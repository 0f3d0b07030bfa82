#include "core/console.h"

#include <QtTest>

#include <pwd.h>
#include <unistd.h>

class tst_Console : public QObject
{
    Q_OBJECT

private slots:
    void setVariable_data();
    void setVariable();
    void fixHome();
    void isAdministrator();
    void terminalSizeWithoutTerminal();
    void readKeyWithoutTerminal();
};

void tst_Console::setVariable_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("value");
    QTest::newRow("new") << QByteArray() << "value";
    QTest::newRow("overwrites") << QByteArray("old") << "new";
    QTest::newRow("empty") << QByteArray("old") << "";
    QTest::newRow("blanks and equals") << QByteArray() << "a = b";
}

void tst_Console::setVariable()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, value);
    if (before.isNull())
        qunsetenv("SETUP_TEST_VARIABLE");
    else
        qputenv("SETUP_TEST_VARIABLE", before);
    Console::setVariable(QStringLiteral("SETUP_TEST_VARIABLE"), value);
    QVERIFY(qEnvironmentVariableIsSet("SETUP_TEST_VARIABLE"));
    QCOMPARE(qEnvironmentVariable("SETUP_TEST_VARIABLE"), value);
}

void tst_Console::fixHome()
{
    const struct passwd *entry = ::getpwuid(::getuid());
    QVERIFY(entry);
    const QByteArray saved = qgetenv("HOME");
    qputenv("HOME", "/nonexistent/elsewhere");
    Console::fixHome();
    const QByteArray fixed = qgetenv("HOME");
    qputenv("HOME", saved);
    QCOMPARE(fixed, QByteArray(entry->pw_dir));
}

void tst_Console::isAdministrator()
{
    QCOMPARE(Console::isAdministrator(), ::getuid() == 0);
}

void tst_Console::terminalSizeWithoutTerminal()
{
    // Standard output pointed at a pipe has no size; the stores stay untouched.
    int saved = ::dup(STDOUT_FILENO);
    int fds[2];
    QVERIFY(::pipe(fds) == 0);
    ::dup2(fds[1], STDOUT_FILENO);
    int columns = -7;
    int rows = -7;
    const bool result = Console::terminalSize(&columns, &rows);
    const bool withNull = Console::terminalSize(nullptr, nullptr);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    ::close(fds[0]);
    ::close(fds[1]);
    QVERIFY(!result);
    QVERIFY(!withNull);
    QCOMPARE(columns, -7);
    QCOMPARE(rows, -7);
}

void tst_Console::readKeyWithoutTerminal()
{
    // Without a terminal the key is still read, one character at a time.
    int saved = ::dup(STDIN_FILENO);
    int fds[2];
    QVERIFY(::pipe(fds) == 0);
    QCOMPARE(::write(fds[1], "ab", 2), ssize_t(2));
    ::close(fds[1]);
    ::dup2(fds[0], STDIN_FILENO);
    std::clearerr(stdin);
    const int first = Console::readKey();
    const int second = Console::readKey();
    const int third = Console::readKey();
    ::dup2(saved, STDIN_FILENO);
    ::close(saved);
    ::close(fds[0]);
    std::clearerr(stdin);
    QCOMPARE(first, int('a'));
    QCOMPARE(second, int('b'));
    QCOMPARE(third, EOF);
}

QTEST_GUILESS_MAIN(tst_Console)
#include "tst_console.moc"
