#include "core/installmode.h"
#include "core/macrotable.h"
#include "installer/installsettingsrecord.h"
#include "media/filestoreinstallmedia.h"
#include "plan/configurationlist.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfileremovalconfigurationitem.h"
#include "plan/installmodesource.h"
#include "plan/installsettingsstore.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

namespace {

class FixedMode : public InstallModeSource
{
public:
    explicit FixedMode(InstallMode::Mode mode)
        : value(mode)
    { }
    InstallMode::Mode mode() const override { return value; }

    InstallMode::Mode value;
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QStringList filesBelow(const QString &folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(QDir(folder).relativeFilePath(it.next()));
    files.sort();
    return files;
}

// Every item of a tree, parents first.
QList<InstallConfigurationItem *> itemsOf(InstallConfigurationItem *root)
{
    QList<InstallConfigurationItem *> items { root };
    for (InstallConfigurationItem *child : root->children())
        items += itemsOf(child);
    return items;
}

// What the record keeps of an item, as one comparable line.
QString stateOf(const InstallConfigurationItem *item)
{
    QString line = item->title() + QLatin1Char(' ') + QString::number(item->installed())
        + (item->installFlag() ? QStringLiteral(" selected") : QStringLiteral(" unselected"));
    if (const auto *archive = qobject_cast<const InstallArchiveConfigurationItem *>(item))
        line += archive->filesKnown() ? QStringLiteral(" files=") + archive->files().join(QLatin1Char('|'))
                                      : QStringLiteral(" files unknown");
    return line;
}

QStringList statesOf(InstallConfigurationItem *root)
{
    QStringList states;
    for (const InstallConfigurationItem *item : itemsOf(root))
        states.append(stateOf(item));
    return states;
}

QStringList macroValues()
{
    QStringList values;
    for (const char *name : { "DestDir", "SrcDir", "ProgramFolderDir", "ProgramFolderName" })
        values.append(macros().get(QLatin1String(name)));
    return values;
}

// A small plan with every kind of state: a group, an archive item with its
// files, and a plain item.
struct SmallPlan
{
    explicit SmallPlan(
        InstallMode::Mode mode, bool reversed = false, const QString &archiveTitle = QStringLiteral("Two"))
        : modeSource(mode)
        , list(QStringLiteral("Root"), QString(), 0, true)
    {
        list.setModeSource(&modeSource);
        group = new InstallConfigurationItem(&list, QStringLiteral("Group $(Version)"), QString(), 0, true,
            InstallConfigurationItem::AllFlags);
        if (reversed)
            archive = addArchive(archiveTitle);
        optional = new InstallConfigurationItem(
            group, QStringLiteral("One"), QString(), 3, true, InstallConfigurationItem::AllFlags);
        if (!reversed)
            archive = addArchive(archiveTitle);
    }

    InstallArchiveConfigurationItem *addArchive(const QString &title)
    {
        return new InstallArchiveConfigurationItem(group, title, QString(), 0, true,
            InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(DestDir)/bin"),
            InstallArchiveConfigurationItem::ExtractOnInstall
                | InstallArchiveConfigurationItem::RemoveOnUninstall);
    }

    FixedMode modeSource;
    InstallConfigurationList list;
    InstallConfigurationItem *group;
    InstallConfigurationItem *optional;
    InstallArchiveConfigurationItem *archive;
};

// Run as a child process: writes the product's record to the path given.
int writeRecordAndExit(const QString &path)
{
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), QStringLiteral("/opt/calvra"));
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/media/cdrom"));
    macros().set(QStringLiteral("HomeDir"), QFileInfo(path).absolutePath());
    FixedMode mode(InstallMode::Typical);
    ConfigurationList list;
    list.setModeSource(&mode);
    list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
    for (InstallConfigurationItem *item : itemsOf(&list)) {
        if (auto *archive = qobject_cast<InstallArchiveConfigurationItem *>(item))
            archive->setFiles({ archive->archiveName() + QStringLiteral(".txt"), QStringLiteral("sub/x.h") });
    }
    return InstallSettingsRecord(&list).save(path) ? 0 : 1;
}

const char writerVariable[] = "TST_INSTALLSETTINGSRECORD_WRITE";

} // namespace

class tst_InstallSettingsRecord : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void documentLayout();
    void roundTrip();
    void versionChangeStillMatches();
    void sourcePerMode_data();
    void sourcePerMode();
    void emptyAttributesKeepMacros_data();
    void emptyAttributesKeepMacros();
    void programFolderName_data();
    void programFolderName();
    void nonAsciiPaths();
    void rewrittenWhole();
    void sameBytesInFreshProcesses();
    void reorderedItemsKeepTheirState();
    void unusableRecordChangesNothing_data();
    void unusableRecordChangesNothing();
    void ambiguousPlanIsNotSaved();
    void settingKeysRecorded();
    void laterRemovalRemovesExactlyWhatWasInstalled();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_InstallSettingsRecord::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("HomeDir"), path(QStringLiteral("home")));
    macros().set(QStringLiteral("DestDir"), path(QStringLiteral("dest")));
    macros().set(QStringLiteral("SrcDir"), path(QStringLiteral("src")));
}

void tst_InstallSettingsRecord::documentLayout()
{
    macros().set(QStringLiteral("DestDir"), QStringLiteral("/opt/x y"));
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("$(HomeDir)/cd"));
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("$(Company)/menu"));
    SmallPlan plan(InstallMode::Typical);
    plan.archive->setFiles({ QStringLiteral("a&b"), QStringLiteral("100%.txt") });
    plan.archive->setInstalled(InstallConfigurationItem::fullyInstalled);

    QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    const QByteArray expected
        = "<!DOCTYPE Install>\n"
          "<configuration dest_dir=\"/opt/x y\" src_dir=\"HOME/cd\" program_folder_dir=\"Tamrin/menu\">\n"
          " <plan version=\"5.50a\">\n"
          "  <item class=\"InstallConfigurationList\" title=\"Root\" installed=\"notInstalled\" "
          "install=\"true\">\n"
          "   <item class=\"InstallConfigurationItem\" title=\"Group 5.50a\" installed=\"notInstalled\" "
          "install=\"true\">\n"
          "    <item class=\"InstallConfigurationItem\" title=\"One\" installed=\"notInstalled\" "
          "install=\"false\"/>\n"
          "    <item class=\"InstallArchiveConfigurationItem\" title=\"Two\" installed=\"fullyInstalled\" "
          "install=\"true\">\n"
          "     <files>\n"
          "      <file name=\"a&amp;b\"/>\n"
          "      <file name=\"100%25.txt\"/>\n"
          "     </files>\n"
          "    </item>\n"
          "   </item>\n"
          "  </item>\n"
          " </plan>\n"
          "</configuration>\n";
    QCOMPARE(contents(path(QStringLiteral("IConf.xml"))),
        QByteArray(expected).replace("HOME", QFile::encodeName(path(QStringLiteral("home")))));
}

void tst_InstallSettingsRecord::roundTrip()
{
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("Tamrin/Calvra Menu"));
    const QStringList saved = { path(QStringLiteral("dest")), path(QStringLiteral("src")),
        QStringLiteral("Tamrin/Calvra Menu"), QStringLiteral("Calvra Menu") };
    QStringList states;
    {
        FixedMode mode(InstallMode::Custom);
        ConfigurationList list;
        list.setModeSource(&mode);
        const QList<InstallConfigurationItem *> items = itemsOf(&list);
        // A pattern of states and selections that no default produces.
        for (int i = 0; i < items.size(); ++i) {
            items[i]->setInstalled(InstallConfigurationItem::InstalledState(i % 3));
            items[i]->setInstall(i % 4 != 1);
            if (auto *archive = qobject_cast<InstallArchiveConfigurationItem *>(items[i]); archive && i % 5)
                archive->setFiles({ archive->archiveName() + QStringLiteral("/f") + QString::number(i),
                    QStringLiteral("é ü/%d") });
        }
        states = statesOf(&list);
        QVERIFY(InstallSettingsRecord(&list).save(path(QStringLiteral("IConf.xml"))));
    }

    macros().set(QStringLiteral("DestDir"), QStringLiteral("/elsewhere"));
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/other/src"));
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("x"));
    macros().set(QStringLiteral("ProgramFolderName"), QStringLiteral("x"));
    FixedMode mode(InstallMode::Modify);
    ConfigurationList list;
    list.setModeSource(&mode);
    QVERIFY(statesOf(&list) != states);
    QVERIFY(InstallSettingsRecord(&list).load(path(QStringLiteral("IConf.xml"))));
    QCOMPARE(macroValues(), saved);
    QCOMPARE(statesOf(&list), states);
}

void tst_InstallSettingsRecord::versionChangeStillMatches()
{
    macros().set(QStringLiteral("Version"), QStringLiteral("5.40"));
    {
        SmallPlan plan(InstallMode::Typical);
        QCOMPARE(plan.group->title(), QStringLiteral("Group 5.40"));
        plan.group->setInstalled(InstallConfigurationItem::fullyInstalled);
        plan.archive->setFiles({ QStringLiteral("old") });
        QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    }
    macros().set(QStringLiteral("Version"), QStringLiteral("5.50a"));
    SmallPlan plan(InstallMode::Typical);
    QVERIFY(InstallSettingsRecord(&plan.list).load(path(QStringLiteral("IConf.xml"))));
    QCOMPARE(plan.group->installed(), InstallConfigurationItem::fullyInstalled);
    QCOMPARE(plan.archive->files(), QStringList { QStringLiteral("old") });
}

void tst_InstallSettingsRecord::sourcePerMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("restored");

    QTest::newRow("minimal") << int(InstallMode::Minimal) << false;
    QTest::newRow("typical") << int(InstallMode::Typical) << false;
    QTest::newRow("full") << int(InstallMode::Full) << false;
    QTest::newRow("custom") << int(InstallMode::Custom) << false;
    QTest::newRow("modify") << int(InstallMode::Modify) << true;
    QTest::newRow("repair") << int(InstallMode::Repair) << true;
    QTest::newRow("remove") << int(InstallMode::Remove) << false;
    QTest::newRow("upgrade") << int(InstallMode::Upgrade) << false;
}

void tst_InstallSettingsRecord::sourcePerMode()
{
    QFETCH(int, mode);
    QFETCH(bool, restored);

    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/recorded/src"));
    {
        SmallPlan plan(InstallMode::Typical);
        QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    }
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("$(SrcInstallerDir)"));
    macros().set(QStringLiteral("DestDir"), QStringLiteral("/now"));
    SmallPlan plan { InstallMode::Mode(mode) };
    QVERIFY(InstallSettingsRecord(&plan.list).load(path(QStringLiteral("IConf.xml"))));
    QCOMPARE(macros().get(QStringLiteral("SrcDir")),
        restored ? QStringLiteral("/recorded/src") : QStringLiteral("$(SrcInstallerDir)"));
    QCOMPARE(macros().get(QStringLiteral("DestDir")), path(QStringLiteral("dest")));
}

void tst_InstallSettingsRecord::emptyAttributesKeepMacros_data()
{
    QTest::addColumn<QString>("attribute");
    QTest::addColumn<QStringList>("expected");

    const QString dest = QStringLiteral("DEST");
    QTest::newRow("dest_dir") << "dest_dir" << QStringList { "$(Before)", "/src", "/a/menu", "menu" };
    QTest::newRow("src_dir") << "src_dir" << QStringList { dest, "$(Before)", "/a/menu", "menu" };
    QTest::newRow("program_folder_dir")
        << "program_folder_dir" << QStringList { dest, "/src", "$(Before)", "$(Before)" };
}

void tst_InstallSettingsRecord::emptyAttributesKeepMacros()
{
    QFETCH(QString, attribute);
    QFETCH(QStringList, expected);
    expected.replaceInStrings(QStringLiteral("DEST"), path(QStringLiteral("dest")));

    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/src"));
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("/a/menu"));
    {
        SmallPlan plan(InstallMode::Typical);
        QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    }
    QString record = QString::fromLatin1(contents(path(QStringLiteral("IConf.xml"))));
    const QString empty = QLatin1Char(' ') + attribute + QStringLiteral("=\"\"");
    record.replace(QRegularExpression(QStringLiteral(" %1=\"[^\"]*\"").arg(attribute)), empty);
    QCOMPARE(record.count(empty), 1);
    QVERIFY(writeFile(path(QStringLiteral("IConf.xml")), record.toLatin1()));

    for (const char *name : { "DestDir", "SrcDir", "ProgramFolderDir", "ProgramFolderName" })
        macros().set(QLatin1String(name), QStringLiteral("$(Before)"));
    SmallPlan plan(InstallMode::Modify);
    QVERIFY(InstallSettingsRecord(&plan.list).load(path(QStringLiteral("IConf.xml"))));
    QCOMPARE(macroValues(), expected);
}

void tst_InstallSettingsRecord::programFolderName_data()
{
    QTest::addColumn<QString>("programFolderDir");
    QTest::addColumn<QString>("name");

    QTest::newRow("absolute") << "/a/b/c"
                              << "c";
    QTest::newRow("relative") << "Tamrin/tamrin_calvra_for_arm_5.50a"
                              << "tamrin_calvra_for_arm_5.50a";
    QTest::newRow("single") << "Menu"
                            << "Menu";
    QTest::newRow("trailing slash") << "/a/b/"
                                    << "b";
}

void tst_InstallSettingsRecord::programFolderName()
{
    QFETCH(QString, programFolderDir);
    QFETCH(QString, name);

    macros().set(QStringLiteral("ProgramFolderDir"), programFolderDir);
    {
        SmallPlan plan(InstallMode::Typical);
        QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    }
    macros().setDefaults();
    SmallPlan plan(InstallMode::Typical);
    QVERIFY(InstallSettingsRecord(&plan.list).load(path(QStringLiteral("IConf.xml"))));
    QCOMPARE(macros().get(QStringLiteral("ProgramFolderDir")), programFolderDir);
    QCOMPARE(macros().get(QStringLiteral("ProgramFolderName")), name);
}

void tst_InstallSettingsRecord::nonAsciiPaths()
{
    const QString destination = QStringLiteral("/opt/Ünïcode/日本");
    macros().set(QStringLiteral("DestDir"), destination);
    const QStringList files = { QStringLiteral("naïve.txt"), QStringLiteral("日本/語.h") };
    {
        SmallPlan plan(InstallMode::Typical);
        plan.archive->setFiles(files);
        QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    }
    const QByteArray record = contents(path(QStringLiteral("IConf.xml")));
    for (const char c : record)
        QVERIFY2(uchar(c) < 0x80, record.constData());

    SmallPlan plan(InstallMode::Typical);
    QVERIFY(InstallSettingsRecord(&plan.list).load(path(QStringLiteral("IConf.xml"))));
    // The path does not survive the ASCII record; the item's file names,
    // which the record encodes, do.
    QCOMPARE(macros().get(QStringLiteral("DestDir")), QStringLiteral("/opt/?n?code/??"));
    QCOMPARE(plan.archive->files(), files);
}

void tst_InstallSettingsRecord::rewrittenWhole()
{
    QVERIFY(writeFile(path(QStringLiteral("IConf.xml")), QByteArray(100000, 'x')));
    SmallPlan plan(InstallMode::Typical);
    QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    const QByteArray record = contents(path(QStringLiteral("IConf.xml")));
    QVERIFY(record.startsWith("<!DOCTYPE Install>\n"));
    QVERIFY(record.endsWith("</configuration>\n"));
    QVERIFY(!record.contains('x' + QByteArray("xxxx")));
}

void tst_InstallSettingsRecord::sameBytesInFreshProcesses()
{
    // Each process hashes with its own seed; attributes must not follow it.
    QList<QByteArray> records;
    for (int i = 0; i < 4; ++i) {
        const QString record = path(QStringLiteral("IConf%1.xml").arg(i));
        QProcess writer;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QLatin1String(writerVariable), record);
        environment.remove(QStringLiteral("QT_HASH_SEED"));
        writer.setProcessEnvironment(environment);
        writer.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(writer.waitForFinished());
        QCOMPARE(writer.exitCode(), 0);
        records.append(contents(record));
    }
    QVERIFY(records.first().startsWith(
        "<!DOCTYPE Install>\n<configuration dest_dir=\"/opt/calvra\" "
        "src_dir=\"/media/cdrom\" program_folder_dir=\"Tamrin/tamrin_calvra_for_arm_5.50a\">\n"));
    for (const QByteArray &record : records)
        QCOMPARE(record, records.first());
}

void tst_InstallSettingsRecord::reorderedItemsKeepTheirState()
{
    {
        SmallPlan plan(InstallMode::Custom);
        plan.optional->setInstall(true);
        plan.optional->setInstalled(InstallConfigurationItem::partiallyInstalled);
        plan.archive->setInstalled(InstallConfigurationItem::fullyInstalled);
        plan.archive->setFiles({ QStringLiteral("kept") });
        QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    }
    SmallPlan plan(InstallMode::Custom, true);
    QCOMPARE(plan.group->children().first(), plan.archive);
    QVERIFY(InstallSettingsRecord(&plan.list).load(path(QStringLiteral("IConf.xml"))));
    QCOMPARE(plan.optional->installed(), InstallConfigurationItem::partiallyInstalled);
    QVERIFY(plan.optional->installFlag());
    QCOMPARE(plan.archive->installed(), InstallConfigurationItem::fullyInstalled);
    QCOMPARE(plan.archive->files(), QStringList { QStringLiteral("kept") });
}

void tst_InstallSettingsRecord::unusableRecordChangesNothing_data()
{
    QTest::addColumn<QByteArray>("from");
    QTest::addColumn<QByteArray>("to");

    // Each row edits a good record into a bad one.
    QTest::newRow("missing") << QByteArray() << QByteArray("DELETE");
    QTest::newRow("not xml") << QByteArray() << QByteArray("this is not a record");
    QTest::newRow("truncated") << QByteArray("  </item>\n </plan>\n</configuration>\n")
                               << QByteArray("  </it");
    QTest::newRow("no configuration") << QByteArray("configuration") << QByteArray("settings");
    QTest::newRow("no plan") << QByteArray("plan") << QByteArray("layout");
    QTest::newRow("renamed item") << QByteArray("title=\"Two\"") << QByteArray("title=\"Deux\"");
    QTest::newRow("other class") << QByteArray("class=\"InstallArchiveConfigurationItem\"")
                                 << QByteArray("class=\"InstallFilesConfigurationItem\"");
    QTest::newRow("other root") << QByteArray("title=\"Root\"") << QByteArray("title=\"Another Product\"");
    QTest::newRow("extra item")
        << QByteArray("<files>")
        << QByteArray("<item class=\"X\" title=\"X\" installed=\"notInstalled\" install=\"true\"/><files>");
    const QByteArray one
        = "    <item class=\"InstallConfigurationItem\" title=\"One\" installed=\"fullyInstalled\" "
          "install=\"false\"/>\n";
    QTest::newRow("same item twice") << one << one + one;
    QTest::newRow("unknown state") << QByteArray("installed=\"fullyInstalled\"")
                                   << QByteArray("installed=\"2\"");
    QTest::newRow("bad selection") << QByteArray("install=\"false\"") << QByteArray("install=\"no\"");
    QTest::newRow("unknown element") << QByteArray("<files>") << QByteArray("<extra/><files>");
    QTest::newRow("file without name") << QByteArray("<file name=\"bin.txt\"/>") << QByteArray("<file/>");
    QTest::newRow("broken escape") << QByteArray("bin.txt") << QByteArray("bin%G0.txt");
    QTest::newRow("files of a plain item")
        << QByteArray("title=\"One\" installed=\"fullyInstalled\" install=\"false\"/>")
        << QByteArray("title=\"One\" installed=\"fullyInstalled\" install=\"false\"><files/></item>");
}

void tst_InstallSettingsRecord::unusableRecordChangesNothing()
{
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);

    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("/recorded/menu"));
    const QString recordPath = path(QStringLiteral("bin/IConf.xml"));
    QVERIFY(QDir().mkpath(path(QStringLiteral("bin"))));
    {
        SmallPlan plan(InstallMode::Typical);
        plan.list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
        plan.archive->setFiles({ QStringLiteral("bin.txt") });
        QVERIFY(InstallSettingsRecord(&plan.list).save(recordPath));
    }
    QByteArray record = contents(recordPath);
    if (to == "DELETE") {
        QVERIFY(QFile::remove(recordPath));
    } else {
        if (from.isEmpty())
            record = to;
        else
            QVERIFY2(record.contains(from), record.constData());
        record.replace(from, to);
        QVERIFY(writeFile(recordPath, record));
    }

    // A destination holding a file the record names: nothing may remove it.
    QVERIFY(writeFile(path(QStringLiteral("dest/bin/bin.txt")), "payload"));
    for (const char *name : { "DestDir", "SrcDir", "ProgramFolderDir", "ProgramFolderName" })
        macros().set(QLatin1String(name), QStringLiteral("$(Before)"));
    macros().set(QStringLiteral("DestDir"), path(QStringLiteral("dest")));
    const QStringList macrosBefore = macroValues();

    SmallPlan plan(InstallMode::Modify);
    const QStringList statesBefore = statesOf(&plan.list);
    QVERIFY(!InstallSettingsRecord(&plan.list).load(recordPath));
    QCOMPARE(macroValues(), macrosBefore);
    QCOMPARE(statesOf(&plan.list), statesBefore);

    plan.modeSource.value = InstallMode::Remove;
    QCOMPARE(plan.list.removalSteps(), 0);
    QVERIFY(plan.list.uninstall());
    QCOMPARE(contents(path(QStringLiteral("dest/bin/bin.txt"))), QByteArray("payload"));
}

void tst_InstallSettingsRecord::ambiguousPlanIsNotSaved()
{
    SmallPlan plan(InstallMode::Typical);
    plan.addArchive(QStringLiteral("Two"));
    QVERIFY(!InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
    QVERIFY(!QFile::exists(path(QStringLiteral("IConf.xml"))));
    // The same title on another kind of item is told apart by its class.
    new InstallConfigurationItem(
        plan.group, QStringLiteral("One"), QString(), 0, true, InstallConfigurationItem::AllFlags);
    delete plan.group->children().last();
    delete plan.group->children().last();
    new InstallFileRemovalConfigurationItem(plan.group, QStringLiteral("One"), QString(), 0, false);
    QVERIFY(InstallSettingsRecord(&plan.list).save(path(QStringLiteral("IConf.xml"))));
}

void tst_InstallSettingsRecord::settingKeysRecorded()
{
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("Tamrin/Menu"));
    FixedMode mode(InstallMode::Typical);
    ConfigurationList list;
    list.setModeSource(&mode);
    QVERIFY(InstallSettingsRecord(&list).save(path(QStringLiteral("IConf.xml"))));

    const QString store = path(QStringLiteral("home/.config/Tamrin/Tamrin Calvra for ARM/Installer.conf"));
    QCOMPARE(InstallSettingsStore::filePath(), store);
    QSettings settings(store, QSettings::IniFormat);
    settings.beginGroup(QStringLiteral("Tamrin/Tamrin Calvra for ARM/Installer/5.50a"));
    QCOMPARE(settings.childKeys(),
        (QStringList {
            QStringLiteral("DestDir"), QStringLiteral("ProgramFolderDir"), QStringLiteral("SrcDir") }));
    QCOMPARE(settings.value(QStringLiteral("DestDir")).toString(), path(QStringLiteral("dest")));
    QCOMPARE(settings.value(QStringLiteral("SrcDir")).toString(), path(QStringLiteral("src")));
    QCOMPARE(settings.value(QStringLiteral("ProgramFolderDir")).toString(), QStringLiteral("Tamrin/Menu"));
}

void tst_InstallSettingsRecord::laterRemovalRemovesExactlyWhatWasInstalled()
{
    const QString medium = path(QStringLiteral("medium"));
    QVERIFY(writeFile(medium + QStringLiteral("/bin/tool"), "tool"));
    QVERIFY(writeFile(medium + QStringLiteral("/bin/sub/deep/data"), "data"));
    const QString recordPath = path(QStringLiteral("IConf.xml"));
    {
        FileStoreInstallMedia media(medium);
        SmallPlan plan(InstallMode::Typical);
        plan.list.setMedia(&media);
        QVERIFY(plan.list.install());
        QCOMPARE(plan.archive->installed(), InstallConfigurationItem::fullyInstalled);
        QVERIFY(InstallSettingsRecord(&plan.list).save(recordPath));
    }
    // The user adds a file of their own beside the installed ones.
    QVERIFY(writeFile(path(QStringLiteral("dest/bin/sub/mine")), "mine"));
    QCOMPARE(filesBelow(path(QStringLiteral("dest"))),
        (QStringList { QStringLiteral("bin/sub/deep/data"), QStringLiteral("bin/sub/mine"),
            QStringLiteral("bin/tool") }));

    // A later run knows nothing until it reads the record.
    SmallPlan plan(InstallMode::Remove);
    QVERIFY(!plan.archive->filesKnown());
    QVERIFY(InstallSettingsRecord(&plan.list).load(recordPath));
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(plan.archive->installed(), InstallConfigurationItem::fullyInstalled);
    QVERIFY(plan.list.uninstall());
    QCOMPARE(filesBelow(path(QStringLiteral("dest"))), QStringList { QStringLiteral("bin/sub/mine") });
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString writeTo = qEnvironmentVariable(writerVariable);
    if (!writeTo.isEmpty())
        return writeRecordAndExit(writeTo);
    tst_InstallSettingsRecord test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_installsettingsrecord.moc"
