#include "core/places.h"

#include <QtTest>

#include <optional>

using Variable = std::optional<QByteArray>;
Q_DECLARE_METATYPE(Variable)

class tst_Places : public QObject
{
    Q_OBJECT

private slots:
    void temporaryFolder_data();
    void temporaryFolder();
    void cleanPath_data();
    void cleanPath();
    void executablePath();
    void dataFolders();
};

void tst_Places::temporaryFolder_data()
{
    QTest::addColumn<Variable>("tmp");
    QTest::addColumn<Variable>("temp");
    QTest::addColumn<Variable>("tmpdir");
    QTest::addColumn<QString>("expected");

    const Variable unset;
    const Variable empty = QByteArray("");
    QTest::newRow("TMP first") << Variable("/a") << Variable("/b") << Variable("/c") << "/a";
    QTest::newRow("TEMP second") << unset << Variable("/b") << Variable("/c") << "/b";
    QTest::newRow("TMPDIR third") << unset << unset << Variable("/c") << "/c";
    QTest::newRow("nothing set") << unset << unset << unset << "/tmp";
    QTest::newRow("empty TMP skipped") << empty << Variable("/b") << Variable("/c") << "/b";
    QTest::newRow("empty TMP, TEMP unset") << empty << unset << Variable("/c") << "/c";
    QTest::newRow("empty TMP and TEMP, no TMPDIR") << empty << empty << unset << "/tmp";
    QTest::newRow("empty TMPDIR taken as it is") << unset << unset << empty << "";
    QTest::newRow("relative value kept") << Variable("rel") << unset << unset << "rel";
}

void tst_Places::temporaryFolder()
{
    QFETCH(Variable, tmp);
    QFETCH(Variable, temp);
    QFETCH(Variable, tmpdir);
    QFETCH(QString, expected);

    const QList<QPair<const char *, Variable>> variables
        = { { "TMP", tmp }, { "TEMP", temp }, { "TMPDIR", tmpdir } };
    for (const auto &[name, value] : variables) {
        if (value)
            qputenv(name, *value);
        else
            qunsetenv(name);
    }
    QCOMPARE(Places::temporaryFolder(), expected);
}

void tst_Places::cleanPath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("clean") << "/usr/share"
                           << "/usr/share";
    QTest::newRow("dot dropped") << "/usr/./share/."
                                 << "/usr/share";
    QTest::newRow("dot dot removes one") << "/usr/lib/../share"
                                         << "/usr/share";
    QTest::newRow("two dot dots") << "/a/b/c/../../d"
                                  << "/a/d";
    QTest::newRow("double slash") << "/a//b"
                                  << "/a/b";
    QTest::newRow("trailing slash") << "/a/b/"
                                    << "/a/b";
    QTest::newRow("relative") << "a/./b/../c"
                              << "a/c";
    QTest::newRow("leading dot dot dropped") << "../a"
                                             << "a";
    QTest::newRow("above root stays at root") << "/../a"
                                              << "/a";
    QTest::newRow("root") << "/"
                          << "/";
    QTest::newRow("everything removed") << "a/.."
                                        << "";
    QTest::newRow("dots in names kept") << "/a/.b/..c/c."
                                        << "/a/.b/..c/c.";
}

void tst_Places::cleanPath()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    QCOMPARE(Places::cleanPath(path), expected);
}

void tst_Places::executablePath()
{
    QCOMPARE(Places::executablePath(), QCoreApplication::applicationFilePath());
}

void tst_Places::dataFolders()
{
    QCOMPARE(Places::systemDataFolder(), QStringLiteral("/usr/share"));
    const QByteArray saved = qgetenv("HOME");
    qputenv("HOME", "/home/someone");
    QCOMPARE(Places::userDataFolder(), QStringLiteral("/home/someone/.local/share"));
    qputenv("HOME", saved);
}

QTEST_GUILESS_MAIN(tst_Places)
#include "tst_places.moc"
