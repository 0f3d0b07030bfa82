#include "core/console.h"
#include "core/entrycommandline.h"
#include "core/hexception.h"
#include "core/installcommandline.h"
#include "core/macrotable.h"

#include <QTemporaryDir>
#include <QtTest>

class tst_CommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void firstPass_data();
    void firstPass();
    void helpPageLayout();
    void secondPass_data();
    void secondPass();
    void secondPassRejects_data();
    void secondPassRejects();
    void userModeInstallSetsPathMacro();

private:
    QTemporaryDir m_home;
};

void tst_CommandLine::initTestCase()
{
    QVERIFY(m_home.isValid());
    qputenv("HOME", QFile::encodeName(m_home.path()));
}

void tst_CommandLine::firstPass_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<bool>("copy");
    QTest::addColumn<QString>("destination");
    QTest::addColumn<bool>("hasDataFile");
    QTest::addColumn<QString>("dataFile");
    QTest::addColumn<uint>("offset");
    QTest::addColumn<bool>("progress");
    QTest::addColumn<bool>("verbose");
    QTest::addColumn<bool>("accepted");

    using L = QStringList;
    const int go = EntryCommandLine::Continue;
    const int help = EntryCommandLine::Help;
    const int missing = EntryCommandLine::ArgumentExpected;
    QTest::newRow("nothing") << L {} << go << false << "" << false << "" << 0u << true << false << false;
    QTest::newRow("help") << L { "--help" } << help << false << "" << false << "" << 0u << true << false
                          << false;
    QTest::newRow("help then unknown")
        << L { "--help", "--bogus" } << help << false << "" << false << "" << 0u << true << false << false;
    QTest::newRow("unknown then help")
        << L { "--bogus", "--help" } << help << false << "" << false << "" << 0u << true << false << false;
    QTest::newRow("help stops before missing value") << L { "--help", "--data-file" } << help << false << ""
                                                     << false << "" << 0u << true << false << false;
    QTest::newRow("copy mode") << L { "--copy-files-to", "/d", "--verbose", "--silent", "--accept-license" }
                               << go << true << "/d" << false << "" << 0u << false << true << true;
    QTest::newRow("value may start with a dash") << L { "--copy-files-to", "--help" } << go << true
                                                 << "--help" << false << "" << 0u << true << false << false;
    QTest::newRow("later value wins") << L { "--copy-files-to", "/a", "--copy-files-to", "/b" } << go << true
                                      << "/b" << false << "" << 0u << true << false << false;
    QTest::newRow("data file and offset")
        << L { "--data-file", "f.dat", "--data-offset", "1A2b" } << go << false << "" << true << "f.dat"
        << 0x1a2bu << true << false << false;
    QTest::newRow("largest offset") << L { "--data-offset", "ffffffff" } << go << false << "" << false << ""
                                    << 0xffffffffu << true << false << false;
    QTest::newRow("offset beyond 32 bits") << L { "--data-offset", "100000000" } << go << false << "" << false
                                           << "" << 0u << true << false << false;
    QTest::newRow("offset not hexadecimal")
        << L { "--data-offset", "zz" } << go << false << "" << false << "" << 0u << true << false << false;
    QTest::newRow("second-pass options ignored")
        << L { "--modify", "--set", "A=b", "--quiet", "-s", "--destination" } << go << false << "" << false
        << "" << 0u << true << false << false;
    QTest::newRow("no joined forms") << L { "--copy-files-to=/d", "--SILENT" } << go << false << "" << false
                                     << "" << 0u << true << false << false;
    QTest::newRow("copy destination missing")
        << L { "--copy-files-to" } << missing << false << "" << false << "" << 0u << true << false << false;
    QTest::newRow("data file missing") << L { "--silent", "--data-file" } << missing << false << "" << false
                                       << "" << 0u << false << false << false;
    QTest::newRow("data offset missing")
        << L { "--data-offset" } << missing << false << "" << false << "" << 0u << true << false << false;
}

void tst_CommandLine::firstPass()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, outcome);
    QFETCH(bool, copy);
    QFETCH(QString, destination);
    QFETCH(bool, hasDataFile);
    QFETCH(QString, dataFile);
    QFETCH(uint, offset);
    QFETCH(bool, progress);
    QFETCH(bool, verbose);
    QFETCH(bool, accepted);

    EntryCommandLine commandLine;
    QCOMPARE(int(commandLine.parse(QStringList { "Setup" } + arguments)), outcome);
    if (outcome != EntryCommandLine::Continue)
        return;
    QCOMPARE(commandLine.copyFilesMode(), copy);
    QCOMPARE(commandLine.copyDestination(), destination);
    QCOMPARE(commandLine.hasDataFile(), hasDataFile);
    QCOMPARE(commandLine.dataFile(), dataFile);
    QCOMPARE(uint(commandLine.dataOffset()), offset);
    QCOMPARE(commandLine.showProgress(), progress);
    QCOMPARE(commandLine.verbose(), verbose);
    QCOMPARE(commandLine.licenceAccepted(), accepted);
}

void tst_CommandLine::helpPageLayout()
{
    const QStringList lines = EntryCommandLine::helpPage().split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 19); // 18 lines, each ending in a line feed
    QCOMPARE(lines.last(), QString());
    QCOMPARE(lines.at(0), QStringLiteral("Options:"));
    QCOMPARE(lines.at(7), QString());
    QCOMPARE(lines.at(8), QStringLiteral("Macros:"));
    for (int i : { 1, 2, 3, 4, 5, 6, 9, 10, 11, 12, 13, 14, 15, 16, 17 }) {
        const QString &line = lines.at(i);
        QVERIFY2(line.startsWith(QLatin1String("  ")) && line.at(2) != QLatin1Char(' '), qPrintable(line));
        // Descriptions begin in column 25.
        QVERIFY2(line.at(23) == QLatin1Char(' ') && line.at(24) != QLatin1Char(' '), qPrintable(line));
    }
}

void tst_CommandLine::secondPass_data()
{
    QTest::addColumn<QStringList>("arguments"); // the program path first
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("flags");
    QTest::addColumn<bool>("hasDataFile");
    QTest::addColumn<QString>("dataFile");
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<bool>("rootRequired");

    using L = QStringList;
    using namespace InstallMode;
    const int silent = InstallCommandLine::Silent;
    const int accepted = InstallCommandLine::LicenceAccepted;
    QTest::newRow("nothing installs")
        << L { "/x/Setup" } << int(Typical) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("silent") << L { "Setup", "--silent" } << int(Typical) << silent << false << "" << qint64(0)
                            << true;
    QTest::newRow("quiet") << L { "Setup", "--quiet" } << int(Typical) << silent << false << "" << qint64(0)
                           << true;
    QTest::newRow("-s and licence") << L { "Setup", "-s", "--accept-license" } << int(Typical)
                                    << (silent | accepted) << false << "" << qint64(0) << true;
    QTest::newRow("repeated flags stay set")
        << L { "Setup", "-s", "--silent", "--accept-license", "--accept-license" } << int(Typical)
        << (silent | accepted) << false << "" << qint64(0) << true;
    QTest::newRow("no upgrade changes nothing")
        << L { "Setup", "--no-upgrade" } << int(Typical) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("uninstall in the name")
        << L { "/opt/bin/uninstall" } << int(Remove) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("uninstall in any case")
        << L { "./Uninstall-setup" } << int(Remove) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("uninstall only in the folder")
        << L { "/uninstall/Setup" } << int(Typical) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("modify beats the name")
        << L { "UNINSTALL", "--modify" } << int(Modify) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("modify beats remove")
        << L { "Setup", "--remove", "--modify" } << int(Modify) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("remove beats repair")
        << L { "Setup", "--repair", "--remove" } << int(Remove) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("repair") << L { "Setup", "--repair" } << int(Repair) << 0 << false << "" << qint64(0)
                            << true;
    QTest::newRow("repair by uninstall name")
        << L { "uninstall", "--repair" } << int(Repair) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("data file and offset") << L { "Setup", "--data-file", "/m.dat", "--data-offset", "7fF" }
                                          << int(Typical) << 0 << true << "/m.dat" << qint64(0x7ff) << true;
    QTest::newRow("later data file wins") << L { "Setup", "--data-file", "/a", "--data-file", "/b" }
                                          << int(Typical) << 0 << true << "/b" << qint64(0) << true;
    QTest::newRow("offset beyond 32 bits") << L { "Setup", "--data-offset", "123456789a" } << int(Typical)
                                           << 0 << false << "" << qint64(0x123456789a) << true;
    QTest::newRow("negative offset") << L { "Setup", "--data-offset", "-10" } << int(Typical) << 0 << false
                                     << "" << qint64(-16) << true;
    QTest::newRow("offset not converting is 0")
        << L { "Setup", "--data-offset", "12g" } << int(Typical) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("data file last is empty")
        << L { "Setup", "--data-file" } << int(Typical) << 0 << true << "" << qint64(0) << true;
    QTest::newRow("offset last is empty")
        << L { "Setup", "--data-offset" } << int(Typical) << 0 << false << "" << qint64(0) << true;
    QTest::newRow("value may look like an option") << L { "Setup", "--data-file", "--remove" } << int(Typical)
                                                   << 0 << true << "--remove" << qint64(0) << true;
    QTest::newRow("user mode") << L { "Setup", "--user-mode-install" } << int(Typical) << 0 << false << ""
                               << qint64(0) << false;
}

void tst_CommandLine::secondPass()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, mode);
    QFETCH(int, flags);
    QFETCH(bool, hasDataFile);
    QFETCH(QString, dataFile);
    QFETCH(qint64, offset);
    QFETCH(bool, rootRequired);

    if (rootRequired && !Console::isAdministrator())
        QSKIP("the second pass requires root without --user-mode-install");
    MacroTable table;
    InstallCommandLine commandLine;
    commandLine.parse(arguments, table);
    QCOMPARE(int(commandLine.mode()), mode);
    QCOMPARE(commandLine.runFlags(), flags);
    QCOMPARE(commandLine.isSilent(), bool(flags & InstallCommandLine::Silent));
    QCOMPARE(commandLine.licenceAccepted(), bool(flags & InstallCommandLine::LicenceAccepted));
    QCOMPARE(commandLine.hasDataFile(), hasDataFile);
    QCOMPARE(commandLine.dataFile(), dataFile);
    QCOMPARE(commandLine.dataOffset(), offset);
    QCOMPARE(commandLine.rootRequired(), rootRequired);
}

void tst_CommandLine::secondPassRejects_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    using L = QStringList;
    QTest::newRow("unknown") << L { "--bogus" } << "Unknown command line option: '--bogus'";
    QTest::newRow("verbose") << L { "--verbose" } << "Unknown command line option: '--verbose'";
    QTest::newRow("copy files to") << L { "--copy-files-to", "/d" }
                                   << "Unknown command line option: '--copy-files-to'";
    QTest::newRow("help") << L { "--help" } << "Unknown command line option: '--help'";
    QTest::newRow("case matters") << L { "--Silent" } << "Unknown command line option: '--Silent'";
    QTest::newRow("no joined value") << L { "--set=A=b" } << "Unknown command line option: '--set=A=b'";
    QTest::newRow("no combined short options") << L { "-ss" } << "Unknown command line option: '-ss'";
    QTest::newRow("empty argument") << L { "" } << "Unknown command line option: ''";
    QTest::newRow("first unknown named") << L { "--silent", "a", "b" } << "Unknown command line option: 'a'";
    QTest::newRow("after a value") << L { "--set", "A=1", "A=2" } << "Unknown command line option: 'A=2'";
}

void tst_CommandLine::secondPassRejects()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    MacroTable table;
    InstallCommandLine commandLine;
    try {
        commandLine.parse(QStringList { "Setup", "--user-mode-install" } + arguments, table);
        QFAIL("no error");
    } catch (const HException &e) {
        QCOMPARE(e.message(), message);
    }
}

void tst_CommandLine::userModeInstallSetsPathMacro()
{
    MacroTable table;
    table.setDefaults();
    QVERIFY(table.isPath("OSAppDir"));
    table.set("OSAppDir", "/elsewhere");
    InstallCommandLine commandLine;
    commandLine.parse({ "Setup", "--user-mode-install" }, table);
    QCOMPARE(table.get("OSAppDir"), m_home.path() + "/.local/share");
    QVERIFY(table.isPath("OSAppDir"));
    QVERIFY(!commandLine.rootRequired());
}

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
