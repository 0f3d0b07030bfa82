#include "core/console.h"
#include "core/installcommandline.h"
#include "core/macrotable.h"
#include "core/places.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using Assignments = QList<QPair<QString, QString>>;
Q_DECLARE_METATYPE(Assignments)

class tst_MacroTable : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void expand_data();
    void expand();
    void commandLineEffects_data();
    void commandLineEffects();
    void getInsertsEmptyEntry();
    void setKeepsPathMark();
    void namesSorted();
    void defaultsInOrder();
    void defaultsOverwriteButKeepNames();
    void escapeForPattern_data();
    void escapeForPattern();

private:
    QTemporaryDir m_home;
};

void tst_MacroTable::initTestCase()
{
    QVERIFY(m_home.isValid());
    qputenv("HOME", QFile::encodeName(m_home.path()));
    qputenv("TMP", "/var/tmp/setup-test");
}

void tst_MacroTable::expand_data()
{
    QTest::addColumn<Assignments>("assignments");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const QString product = QStringLiteral("Tamrin Calvra for ARM");
    const Assignments none;
    QTest::newRow("empty") << none << QString() << QString();
    QTest::newRow("plain text") << none << "no references here"
                                << "no references here";
    QTest::newRow("title") << none << "$(Product) $(Version)$(AltArch) Setup" << product + " 5.50a Setup";
    QTest::newRow("nested to the end") << none << "$(InstallerDir)"
                                       << "/usr/share/tamrin_calvra_for_arm_5.50a/bin";
    QTest::newRow("program folder") << none << "$(ProgramFolderDir)|$(ProgramFolderName)"
                                    << "Tamrin/tamrin_calvra_for_arm_5.50a|tamrin_calvra_for_arm_5.50a";
    QTest::newRow("registry key") << none << "$(ProductRegKey)"
                                  << "Tamrin/" + product;
    QTest::newRow("undefined kept") << none << "$(Unknown)/x"
                                    << "$(Unknown)/x";
    QTest::newRow("unclosed kept") << none << "$(Company"
                                   << "$(Company";
    QTest::newRow("lower case is another name") << none << "$(company)"
                                                << "$(company)";
    QTest::newRow("blank inside name kept") << none << "$( Company)"
                                            << "$( Company)";
    QTest::newRow("bare dollar") << none << "$Company (x)"
                                 << "$Company (x)";
    QTest::newRow("several in one text") << none << "$(OSRootDir)$(OSArch)-$(OSArch)"
                                         << "/x64-x64";
    QTest::newRow("set value expanded on use") << Assignments { { "DestDir", "/opt/x" } } << "$(InstallerDir)"
                                               << "/opt/x/bin";
    QTest::newRow("value built from two names")
        << Assignments { { "A", "$(B)$(C)" }, { "B", "b" }, { "C", "$(B)c" } } << "[$(A)]"
        << "[bbc]";
    QTest::newRow("name sorted after its reference")
        << Assignments { { "Z", "$(A)" }, { "A", "a" } } << "$(Z)"
        << "a";
    QTest::newRow("self reference is a fixed point") << Assignments { { "A", "$(A)" } } << "x$(A)y"
                                                     << "x$(A)y";
    QTest::newRow("cycle of two settles on a name")
        << Assignments { { "A", "$(B)" }, { "B", "$(A)" } } << "$(A)"
        << "$(A)";
    QTest::newRow("reference assembled by expansion")
        << Assignments { { "Open", "$(" }, { "N", "Company)" } } << "$(Open)$(N)"
        << "Tamrin";
    QTest::newRow("name as expression matches more") << Assignments { { "A.", "dot" } } << "$(AB) $(A.)"
                                                     << "dot dot";
    QTest::newRow("empty value") << Assignments { { "Empty", QString() } } << "a$(Empty)b"
                                 << "ab";
}

void tst_MacroTable::expand()
{
    QFETCH(Assignments, assignments);
    QFETCH(QString, text);
    QFETCH(QString, expected);

    MacroTable table;
    table.setDefaults();
    for (const auto &assignment : assignments)
        table.set(assignment.first, assignment.second);
    QCOMPARE(table.expand(text), expected);
}

void tst_MacroTable::commandLineEffects_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const QString home = m_home.path();
    QTest::newRow("set destination") << QStringList { "--set", "DestDir=/opt/x" } << "$(InstallerDir)"
                                     << "/opt/x/bin";
    QTest::newRow("set keeps value unexpanded")
        << QStringList { "--set", "DestDir=$(HomeDir)/a", "--set", "HomeDir=/h" } << "$(DestDir)"
        << "/h/a";
    QTest::newRow("destination expanded when given")
        << QStringList { "--destination", "$(HomeDir)/p", "--set", "HomeDir=/other" } << "$(InstallerDir)"
        << home + "/p/bin";
    QTest::newRow("destination last is empty") << QStringList { "--destination" } << "[$(DestDir)]"
                                               << "[]";
    QTest::newRow("user mode moves the default") << QStringList { "--user-mode-install" } << "$(DestDir)"
                                                 << home + "/.local/share/tamrin_calvra_for_arm_5.50a";
    QTest::newRow("set splits at first equals") << QStringList { "--set", "A=b=c" } << "$(A)"
                                                << "b=c";
    QTest::newRow("set without equals ignored") << QStringList { "--set", "Company" } << "$(Company)"
                                                << "Tamrin";
    QTest::newRow("set with leading equals ignored") << QStringList { "--set", "=Company" } << "$(Company)"
                                                     << "Tamrin";
    QTest::newRow("set last changes nothing") << QStringList { "--set" } << "$(Company)"
                                              << "Tamrin";
    QTest::newRow("set empty value") << QStringList { "--set", "Company=" } << "[$(Company)]"
                                     << "[]";
    QTest::newRow("later set wins") << QStringList { "--set", "A=1", "--set", "A=2" } << "$(A)"
                                    << "2";
}

void tst_MacroTable::commandLineEffects()
{
    QFETCH(QStringList, options);
    QFETCH(QString, text);
    QFETCH(QString, expected);

    if (!Console::isAdministrator() && !options.contains("--user-mode-install"))
        QSKIP("the second pass requires root without --user-mode-install");
    MacroTable table;
    table.setDefaults();
    InstallCommandLine commandLine;
    commandLine.parse(QStringList { "Setup" } + options, table);
    QCOMPARE(table.expand(text), expected);
}

void tst_MacroTable::getInsertsEmptyEntry()
{
    MacroTable table;
    QVERIFY(!table.contains("Never"));
    QCOMPARE(table.get("Never"), QString());
    QVERIFY(table.contains("Never"));
    QCOMPARE(table.names(), QStringList { "Never" });
    QVERIFY(!table.isPath("Never"));
    // Defined now, as empty: a reference to it disappears.
    QCOMPARE(table.expand("a$(Never)b"), QStringLiteral("ab"));
}

void tst_MacroTable::setKeepsPathMark()
{
    MacroTable table;
    table.set("Plain", "1");
    QVERIFY(!table.isPath("Plain"));
    table.setPath("Marked", "1");
    QVERIFY(table.isPath("Marked"));
    table.set("Marked", "2");
    QVERIFY(table.isPath("Marked"));
    QCOMPARE(table.get("Marked"), QStringLiteral("2"));
}

void tst_MacroTable::namesSorted()
{
    MacroTable table;
    for (const char *name : { "b", "B", "a", "A", "_", "aa" })
        table.set(name, QString());
    QCOMPARE(table.names(), (QStringList { "A", "B", "_", "a", "aa", "b" }));
}

void tst_MacroTable::defaultsInOrder()
{
    MacroTable table;
    table.setDefaults();
    const QString home = m_home.path();
    const QList<std::tuple<QString, QString, bool>> expected = {
        { "Company", "Tamrin", false },
        { "Product", "Tamrin Calvra for ARM", false },
        { "Version", "5.50a", false },
        { "AltArch", "", false },
        { "SrcDir", "$(SrcInstallerDir)", true },
        { "DestDir", "$(OSAppDir)/tamrin_calvra_for_arm_5.50a", true },
        { "DestName", "tamrin_calvra_for_arm_5.50a", false },
        { "ProgramFolderDir", "$(Company)/$(DestName)", true },
        { "ProgramFolderName", "$(DestName)", true },
        { "InstallerDir", "$(DestDir)/bin", true },
        { "ProductRegKey", "$(Company)/$(Product)", true },
        { "SrcInstallerDir", QFileInfo(QCoreApplication::applicationFilePath()).absolutePath(), true },
        { "CurrentDir", QDir::currentPath(), true },
        { "OSRootDir", "/", true },
        { "OSDir", "/", true },
        { "OSArch", "x64", true },
        { "OSAppDir", "/usr/share", true },
        { "UserAppDir", home + "/.local/share", true },
        { "HomeDir", home, true },
        { "TmpDir", "/var/tmp/setup-test", true },
    };
    QCOMPARE(table.names().size(), expected.size());
    for (const auto &[name, value, path] : expected) {
        QCOMPARE(table.get(name), value);
        QVERIFY2(table.isPath(name) == path, qPrintable(name));
    }
}

void tst_MacroTable::defaultsOverwriteButKeepNames()
{
    MacroTable table;
    table.set("Company", "Other");
    table.set("Extra", "kept");
    table.setDefaults();
    QCOMPARE(table.get("Company"), QStringLiteral("Tamrin"));
    QCOMPARE(table.get("Extra"), QStringLiteral("kept"));
}

void tst_MacroTable::escapeForPattern_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "abc/def"
                           << "abc/def";
    QTest::newRow("every special") << "\\{}[]():?^$.+*,"
                                   << "\\\\\\{\\}\\[\\]\\(\\)\\:\\?\\^\\$\\.\\+\\*\\,";
    QTest::newRow("path") << "/opt/a.b (1)"
                          << "/opt/a\\.b \\(1\\)";
    QTest::newRow("bar and dash left") << "a|b-c"
                                       << "a|b-c";
}

void tst_MacroTable::escapeForPattern()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    const QString escaped = MacroTable::escapeForPattern(text);
    QCOMPARE(escaped, expected);
    // The point of it: the text matches itself literally inside a longer text.
    const QRegularExpression pattern(QStringLiteral("^x") + escaped + QStringLiteral("y$"));
    QVERIFY(pattern.isValid());
    QVERIFY(pattern.match(QStringLiteral("x") + text + QStringLiteral("y")).hasMatch());
}

QTEST_GUILESS_MAIN(tst_MacroTable)
#include "tst_macrotable.moc"
