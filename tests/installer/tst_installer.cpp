// The installer application as the window sees it: which page follows which
// in every mode, what each run does to the plan and which outcome page it
// ends on, Cancel while items work; the installation record that a later
// run restores, or ignores as a whole when it does not fit; and what root
// must never trust or hand over: a lock another user could have squatted,
// the folders a sudo run gives back to its user.
#include "core/fileutils.h"
#include "core/hexception.h"
#include "core/installcommandline.h"
#include "core/installexception.h"
#include "core/macrotable.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/installmanifest.h"
#include "installer/installsettingsrecord.h"
#include "installer/installsingleinstance.h"
#include "installer/installwizardinterface.h"
#include "installer/processentry.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfiledeletion.h"
#include "tests/plan/scriptedquestion.h"

#include <QCryptographicHash>
#include <QDir>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using Page = InstallWizardInterface::PageId;

namespace {

// An item whose "disk" is a set of titles, so that a check after an install
// or a removal sees what the actions did. It also owns five real files,
// $(DestDir)/TITLE/1 to 5, written by its install and deleted by its removal.
class DiskItem : public InstallConfigurationItem
{
public:
    DiskItem(InstallConfigurationItem *parent, const QString &title, QSet<QString> *disk, QStringList *log,
        std::function<void()> *firstAction)
        : InstallConfigurationItem(parent, title, QString(), 0, true, AllFlags)
        , m_disk(disk)
        , m_log(log)
        , m_firstAction(firstAction)
    { }

protected:
    void installAction() override { act(QStringLiteral("install ")); }
    void uninstallAction() override { act(QStringLiteral("remove ")); }
    void checkInstalledAction() override
    {
        setInstalled(m_disk->contains(title()) ? fullyInstalled : notInstalled);
    }

private:
    void act(const QString &what)
    {
        // Whatever the first action of a run is to do besides, it does once.
        if (*m_firstAction)
            std::exchange(*m_firstAction, nullptr)();
        m_log->append(what + title());
        QStringList files;
        for (int i = 1; i <= 5; ++i)
            files.append(QStringLiteral("$(DestDir)/%1/%2").arg(title()).arg(i));
        if (what.startsWith(QLatin1String("install"))) {
            m_disk->insert(title());
            for (const QString &file : std::as_const(files)) {
                QFile written(expandMacros(file));
                QVERIFY(QDir().mkpath(QFileInfo(written).path()) && written.open(QIODevice::WriteOnly));
            }
        } else {
            m_disk->remove(title());
            InstallFileDeletion(this).deleteFiles(files);
        }
    }
    QSet<QString> *m_disk;
    QStringList *m_log;
    std::function<void()> *m_firstAction;
};

} // namespace

// The window as a script sees it: pages are ids, a press is a signal.
class FakeWizard : public InstallWizardInterface
{
    Q_OBJECT

public:
    FakeWizard()
    {
        for (int id = 1; id <= 20; ++id) {
            if (id != MaintenancePage)
                pages.insert(id);
        }
    }
    void showPage(int id) override
    {
        if (!pages.contains(id))
            throw HException(QStringLiteral("Attempted to show dialog NULL dialog"));
        emit aboutToShow(id);
        current = id;
        shown.append(id);
    }
    int currentPageId() const override { return current; }
    bool hasPage(int id) const override { return pages.contains(id); }
    bool licenseAccepted() const override { return pages.contains(LicensePage) && accepted; }
    void acceptLicense() override { accepted = true; }
    void addPageFlags(int, quint32) override { }
    void setPageText(int id, const QString &title, const QString &text) override
    {
        titles[id] = title;
        texts[id] = text;
    }
    int listedRows(int id) const override { return rows.value(id); }
    void setProgressPhase(ProgressPhase) override { }
    void setProgressTaskPrefix(const QString &) override { }
    void setProgressFollowsList(bool) override { }
    bool runClosingActions() override { return true; }
    QString chooseFolder(const QString &, const QString &) override { return QString(); }
    void reportInstallationError(const QString &message) override { titles[0] = message; }
    InstallQuestion *question() override { return &script; }
    void raiseWindow() override { }
    void hideWindow() override { }
    void installationModeChanged(InstallMode::Mode) override { }

    void next() { emit nextClicked(current); }
    void back() { emit backClicked(current); }
    void help() { emit helpClicked(current); }
    void cancel() { emit cancelClicked(current); }
    void choose(InstallMode::Mode mode) { emit modeChosen(mode); }

    QSet<int> pages;
    int current = -1;
    QList<int> shown;
    bool accepted = true;
    QMap<int, QString> titles;
    QMap<int, QString> texts;
    QMap<int, int> rows;
    ScriptedQuestion script;
};

class tst_Installer : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void sequences_data();
    void sequences();
    void backAndHelp();
    void record_data();
    void record();
    void squattedLock_data();
    void squattedLock();
    void handBack_data();
    void handBack();
    void manifest_data();
    void manifest();
    void manifestOfWhatWasWritten();

private:
    std::unique_ptr<BrantleInstallerApplication> application(
        FakeWizard *wizard, const QStringList &options = {});
    QString path(const QString &name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<InstallConfigurationList> m_list;
    QSet<QString> m_disk;
    QStringList m_log;
    DiskItem *m_product = nullptr;
    DiskItem *m_docs = nullptr;
    std::function<void()> m_firstAction;
};

void tst_Installer::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), path(QStringLiteral("dest")));
    QVERIFY(QDir().mkpath(path(QStringLiteral("dest/bin"))));
    m_disk.clear();
    m_log.clear();
    m_list = std::make_unique<InstallConfigurationList>(QStringLiteral("Plan"), QString(), 0, true);
    m_product = new DiskItem(m_list.get(), QStringLiteral("Product"), &m_disk, &m_log, &m_firstAction);
    m_docs = new DiskItem(m_list.get(), QStringLiteral("Docs"), &m_disk, &m_log, &m_firstAction);
}

void tst_Installer::cleanup()
{
    m_list.reset();
    m_dir.reset();
}

std::unique_ptr<BrantleInstallerApplication> tst_Installer::application(
    FakeWizard *wizard, const QStringList &options)
{
    InstallCommandLine commandLine;
    commandLine.parse(
        QStringList { QStringLiteral("Setup"), QStringLiteral("--user-mode-install") } + options, macros());
    return std::make_unique<BrantleInstallerApplication>(commandLine, m_list.get(), wizard);
}

void tst_Installer::sequences_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("installedBefore"); // a silent installation first
    QTest::addColumn<QString>(
        "wizard"); // "no licence", "not accepted", "maintenance", "environment", "optional"
    QTest::addColumn<int>("chosen"); // the mode chosen on the configuration or maintenance page
    QTest::addColumn<QList<int>>("pages"); // every page shown
    QTest::addColumn<QString>("log");
    QTest::addColumn<QString>("outcome"); // the last page's title
    QTest::addColumn<int>("result");
    // Cancel pressed as the first item acts: its question's heading. "SIGTERM" arrives then instead (a
    // shutdown): the run ends at the next file, with its record and no failed page to wait on.
    QTest::addColumn<QString>("cancelled");
    const QString both = QStringLiteral("install Product,install Docs");
    const QString removeBoth = QStringLiteral("remove Docs,remove Product");
    const int typical = InstallMode::Typical;
    const int succeeded = InstallApplication::Succeeded;
    QTest::newRow("typical") << QStringList() << false << "" << typical
                             << QList<int> { 1, 20, 3, 8, 11, 16, 17 } << both << "Install Complete"
                             << succeeded << "";
    QTest::newRow("custom, variables and components")
        << QStringList() << false << "environment optional" << int(InstallMode::Custom)
        << QList<int> { 1, 20, 3, 8, 9, 6, 7, 11, 16, 17 } << both << "Install Complete" << succeeded << "";
    QTest::newRow("minimal, components only")
        << QStringList() << false << "optional" << int(InstallMode::Minimal)
        << QList<int> { 1, 20, 3, 8, 7, 11, 16, 17 } << both << "Install Complete" << succeeded << "";
    QTest::newRow("no licence page") << QStringList() << false << "no licence" << typical
                                     << QList<int> { 1, 3, 8, 11, 16, 17 } << both << "Install Complete"
                                     << succeeded << "";
    QTest::newRow("licence not accepted")
        << QStringList() << false << "not accepted" << typical << QList<int> { 1, 20, 18 } << ""
        << "Installation Failed" << int(InstallApplication::Failed) << "";
    QTest::newRow("an installation at the destination is upgraded")
        << QStringList() << true << "" << typical << QList<int> { 1, 20, 3, 16, 15, 16, 17 }
        << removeBoth + "," + both << "Upgrade Complete" << succeeded << "";
    QTest::newRow("--remove starts at the removal")
        << QStringList { "--remove" } << true << "" << typical << QList<int> { 16, 12, 16, 17 } << removeBoth
        << "Uninstall Complete" << int(InstallApplication::Removed) << "";
    QTest::newRow("repair chosen on the maintenance page")
        << QStringList() << true << "maintenance" << int(InstallMode::Repair) << QList<int> { 10, 14, 16, 17 }
        << removeBoth + "," + both << "Repair Complete" << succeeded << "";
    // Docs deselected on the custom setup page: only it goes.
    QTest::newRow("modify chosen on the maintenance page")
        << QStringList() << true << "maintenance" << int(InstallMode::Modify)
        << QList<int> { 10, 9, 13, 16, 17 } << "remove Docs"
        << "Modify Complete" << succeeded << "";
    // Cancel answered No, then Yes: the run stops before the next item, on the failed page.
    const int failed = InstallApplication::Failed;
    QTest::newRow("typical, cancelled")
        << QStringList() << false << "" << typical << QList<int> { 1, 20, 3, 8, 11, 16, 18 }
        << "install Product"
        << "Installation Failed" << failed << "The installation is not complete";
    QTest::newRow("upgrade, cancelled")
        << QStringList() << true << "" << typical << QList<int> { 1, 20, 3, 16, 15, 16, 18 } << "remove Docs"
        << "Upgrade Failed" << failed << "The installation is not complete";
    QTest::newRow("--remove, cancelled")
        << QStringList { "--remove" } << true << "" << typical << QList<int> { 16, 12, 16, 18 }
        << "remove Docs"
        << "Uninstall Failed" << failed << "The installation removal is not complete";
    QTest::newRow("repair, cancelled")
        << QStringList() << true << "maintenance" << int(InstallMode::Repair) << QList<int> { 10, 14, 16, 18 }
        << "remove Docs"
        << "Repair Failed" << failed << "The installation repair is not complete";
    QTest::newRow("modify, cancelled")
        << QStringList() << true << "maintenance" << int(InstallMode::Modify)
        << QList<int> { 10, 9, 13, 16, 18 } << "remove Docs"
        << "Modify Failed" << failed << "The installation modify is not complete";
    QTest::newRow("--remove, terminated")
        << QStringList { "--remove" } << true << "" << typical << QList<int> { 16, 12, 16 } << "remove Docs"
        << "" << failed << "SIGTERM";
}

void tst_Installer::sequences()
{
    QFETCH(QStringList, options);
    QFETCH(bool, installedBefore);
    QFETCH(QString, wizard);
    QFETCH(int, chosen);
    QFETCH(QList<int>, pages);
    QFETCH(QString, log);
    QFETCH(QString, outcome);
    QFETCH(int, result);
    QFETCH(QString, cancelled);
    if (installedBefore) {
        auto installer
            = application(nullptr, { QStringLiteral("--silent"), QStringLiteral("--accept-license") });
        QCOMPARE(installer->run(), int(InstallApplication::Succeeded));
        m_list->setInstalled(InstallConfigurationItem::notInstalled, true);
        m_log.clear();
    }
    FakeWizard window;
    window.accepted = wizard != QLatin1String("not accepted");
    if (wizard == QLatin1String("no licence"))
        window.pages.remove(Page::LicensePage);
    window.rows[Page::EnvironmentPage] = wizard.contains(QLatin1String("environment")) ? 2 : 0;
    window.rows[Page::OptionalPage] = wizard.contains(QLatin1String("optional")) ? 1 : 0;
    auto installer = application(&window, options);
    const bool terminated = cancelled == QLatin1String("SIGTERM");
    if (terminated) {
        m_firstAction = std::bind(::raise, SIGTERM);
    } else if (!cancelled.isEmpty()) {
        window.script.answers = { InstallQuestion::No, InstallQuestion::Yes };
        m_firstAction = [&window] {
            window.cancel();
            window.cancel();
        };
    }
    if (wizard == QLatin1String("maintenance")) {
        // A product whose own maintenance page chooses the mode.
        window.pages.insert(Page::MaintenancePage);
        QVERIFY(m_list->checkInstalled());
        window.choose(InstallMode::Mode(chosen));
        window.showPage(Page::MaintenancePage);
    } else {
        installer->start();
    }
    for (int i = 0; i < 12 && !installer->hasEnded(); ++i) {
        if (window.current == Page::ConfigurationPage)
            window.choose(InstallMode::Mode(chosen));
        if (window.current == Page::CustomSetupPage && wizard == QLatin1String("maintenance"))
            m_docs->setInstall(false);
        window.next();
    }
    QVERIFY(installer->hasEnded());
    QCOMPARE(window.shown, pages);
    QCOMPARE(m_log.join(QLatin1Char(',')), log);
    QCOMPARE(window.titles[window.shown.last()], outcome);
    QCOMPARE(installer->result(), result);
    QCOMPARE(window.script.headings(),
        cancelled.isEmpty() || terminated ? QStringList() : (QStringList { cancelled, cancelled }));
    // Cancel is heard before the next file: a removal cancelled in its first item deletes none of it.
    if (!cancelled.isEmpty() && log.startsWith(QLatin1String("remove")))
        QVERIFY(QFile::exists(path(QStringLiteral("dest/Docs/1"))));
    // Every run that changed something leaves its record for the next one.
    QCOMPARE(QFile::exists(path(QStringLiteral("dest/bin/IConf.xml"))), !log.isEmpty() || installedBefore);
}

void tst_Installer::backAndHelp()
{
    FakeWizard window;
    auto installer = application(&window);
    installer->start();
    window.next();
    window.help();
    for (int i = 0; i < 3; ++i)
        window.back();
    // Help is a page like any other; Back goes no further than the first page.
    QCOMPARE(window.shown,
        (QList<int> {
            Page::WelcomePage, Page::LicensePage, Page::HelpPage, Page::LicensePage, Page::WelcomePage }));
    window.cancel();
    QVERIFY(installer->hasEnded());
}

void tst_Installer::record_data()
{
    QTest::addColumn<int>("mode"); // of the run that reads the record
    QTest::addColumn<QByteArray>("from"); // an edit of the record first
    QTest::addColumn<QByteArray>("to");
    QTest::addColumn<bool>("usable");
    QTest::newRow("Modify restores the source")
        << int(InstallMode::Modify) << QByteArray() << QByteArray() << true;
    QTest::newRow("Repair restores the source")
        << int(InstallMode::Repair) << QByteArray() << QByteArray() << true;
    QTest::newRow("Remove keeps its own source")
        << int(InstallMode::Remove) << QByteArray() << QByteArray() << true;
    const int modify = InstallMode::Modify;
    QTest::newRow("renamed item") << modify << QByteArray("title=\"Docs\"") << QByteArray("title=\"Doc\"")
                                  << false;
    QTest::newRow("other root") << modify << QByteArray("title=\"Plan\"") << QByteArray("title=\"Other\"")
                                << false;
    QTest::newRow("unknown state") << modify << QByteArray("installed=\"fullyInstalled\"")
                                   << QByteArray("installed=\"2\"") << false;
    QTest::newRow("broken escape") << modify << QByteArray("sub/x.h") << QByteArray("sub%G0x.h") << false;
}

void tst_Installer::record()
{
    QFETCH(int, mode);
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);
    QFETCH(bool, usable);
    auto *archive = new InstallArchiveConfigurationItem(m_list.get(), QStringLiteral("Files"), QString(), 0,
        true, InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(DestDir)/bin"), 3);
    FixedMode modeSource(InstallMode::Typical);
    m_list->setModeSource(&modeSource);
    const QString recordPath = path(QStringLiteral("dest/bin/IConf.xml"));
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/media/cd"));
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("$(Company)/menu"));
    m_list->setInstalled(InstallConfigurationItem::fullyInstalled, true);
    m_docs->setInstall(false);
    archive->setFiles({ QStringLiteral("a b%\u00e9.txt"), QStringLiteral("sub/x.h") });
    QVERIFY(InstallSettingsRecord(m_list.get()).save(recordPath));
    QFile file(recordPath);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QByteArray bytes = file.readAll();
    file.close();
    QVERIFY(bytes.contains("dest_dir=\"" + QFile::encodeName(path(QStringLiteral("dest"))) + "\""));
    QVERIFY(bytes.contains("src_dir=\"/media/cd\" program_folder_dir=\"Tamrin/menu\""));
    if (!from.isEmpty()) {
        QVERIFY2(bytes.contains(from), bytes.constData());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes.replace(from, to));
        file.close();
    }

    // A later run, started elsewhere, with a fresh plan.
    m_list->setInstalled(InstallConfigurationItem::notInstalled, true);
    m_docs->setInstall(true);
    archive->setFiles({});
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/run/from/here"));
    macros().set(QStringLiteral("ProgramFolderDir"), QStringLiteral("$(Before)"));
    modeSource.value = InstallMode::Mode(mode);
    QCOMPARE(InstallSettingsRecord(m_list.get()).load(recordPath), usable);
    const bool restoresSource = usable && mode != InstallMode::Remove;
    QCOMPARE(expandMacros(QStringLiteral("$(SrcDir)")), restoresSource ? "/media/cd" : "/run/from/here");
    QCOMPARE(expandMacros(QStringLiteral("$(ProgramFolderDir)")), usable ? "Tamrin/menu" : "$(Before)");
    QCOMPARE(m_product->installed(),
        usable ? InstallConfigurationItem::fullyInstalled : InstallConfigurationItem::notInstalled);
    QCOMPARE(m_docs->installFlag(), !usable);
    QCOMPARE(archive->files(), usable ? QStringList({ "a b%\u00e9.txt", "sub/x.h" }) : QStringList());
}

void tst_Installer::squattedLock_data()
{
    QTest::addColumn<QString>("change"); // what differs from a private folder of this user's own
    QTest::addColumn<bool>("obeyed");
    QTest::newRow("private folder") << QString() << true;
    QTest::newRow("folder open to others") << "mode 0755" << false;
    QTest::newRow("link to a private folder") << "link" << false;
    QTest::newRow("folder of another user") << "folder owner" << false;
    QTest::newRow("lock file of another user") << "lock owner" << false;
}

void tst_Installer::squattedLock()
{
    QFETCH(QString, change);
    QFETCH(bool, obeyed);
    if (change.endsWith(QLatin1String("owner")) && ::geteuid() != 0)
        QSKIP("giving files away needs root");
    const QString identifier = QStringLiteral("tst squatted");
    const QString real = path(QStringLiteral("real"));
    QVERIFY(QDir().mkdir(real) && ::chmod(QFile::encodeName(real).constData(), 0700) == 0);
    // Somebody holds a lock file where the guard looks.
    const QByteArray hash = QCryptographicHash::hash(identifier.toUtf8(), QCryptographicHash::Sha1).toHex();
    const QByteArray lock = QFile::encodeName(real) + "/setup-" + hash.left(16) + ".lock";
    const int squatter = ::open(lock.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    QVERIFY(squatter >= 0 && ::flock(squatter, LOCK_EX | LOCK_NB) == 0);
    QString folder = real;
    if (change == QLatin1String("mode 0755"))
        QVERIFY(::chmod(QFile::encodeName(real).constData(), 0755) == 0);
    else if (change == QLatin1String("link"))
        QVERIFY(QFile::link(real, folder = path(QStringLiteral("link"))));
    else if (change == QLatin1String("folder owner"))
        QVERIFY(::chown(QFile::encodeName(real).constData(), 12345, 12345) == 0);
    else if (change == QLatin1String("lock owner"))
        QVERIFY(::fchown(squatter, 12345, 12345) == 0);
    InstallSingleInstance guard(identifier, folder);
    ::close(squatter);
    QCOMPARE(guard.isRunning(), obeyed);
}

void tst_Installer::handBack_data()
{
    // The home folder is the user's unless a step gives it back to root.
    QTest::addColumn<QStringList>(
        "layout"); // "d path", "f path", "l path target", "h path target", "c path uid:gid"
    QTest::addColumn<QStringList>("owners"); // "path owner" after the hand-back
    const QString user = QStringLiteral("12345:23456");
    const QString root = QStringLiteral("0:0");
    QTest::newRow("config of another user kept") << QStringList { "d .config/Co", "c .config 7:7" }
                                                 << QStringList { ".config 7:7", ".config/Co " + user };
    QTest::newRow("config of root, another group kept") << QStringList { "d .config/Co",
        "c .config 0:7" } << QStringList { ".config 0:7", ".config/Co " + user };
    // Links are neither followed nor handed over themselves.
    QTest::newRow("company link") << QStringList { "d .config", "d outside/Prod", "l .config/Co ../outside" }
                                  << QStringList { ".config/Co " + root, "outside " + root,
                                         "outside/Prod " + root };
    QTest::newRow("product link") << QStringList { "d .config/Co", "d outside",
        "l .config/Co/Prod ../../outside" }
                                  << QStringList { ".config/Co/Prod " + root, "outside " + root };
    QTest::newRow("config link") << QStringList { "d outside/Co/Prod", "l .config outside" }
                                 << QStringList { ".config " + root, "outside/Co " + root,
                                        "outside/Co/Prod " + root };
    // A file of root's linked in where a folder belongs.
    QTest::newRow("product hard link") << QStringList { "d .config/Co", "f secret",
        "h .config/Co/Prod secret" } << QStringList { ".config/Co " + user, "secret " + root };
}

void tst_Installer::handBack()
{
    QFETCH(QStringList, layout);
    QFETCH(QStringList, owners);
    if (::geteuid() != 0)
        QSKIP("changing owners needs root");
    const QString home = path(QStringLiteral("home"));
    QVERIFY(QDir().mkdir(home) && ::chown(QFile::encodeName(home).constData(), 12345, 23456) == 0);
    for (const QString &step : layout) {
        const QStringList parts = step.split(QLatin1Char(' '));
        const QString target = home + QLatin1Char('/') + parts.at(1);
        const QByteArray encoded = QFile::encodeName(target);
        if (parts.at(0) == QLatin1String("d"))
            QVERIFY(QDir().mkpath(target));
        else if (parts.at(0) == QLatin1String("f"))
            QVERIFY(QFile(target).open(QIODevice::WriteOnly));
        else if (parts.at(0) == QLatin1String("l"))
            QVERIFY(::symlink(QFile::encodeName(parts.at(2)).constData(), encoded.constData()) == 0);
        else if (parts.at(0) == QLatin1String("h"))
            QVERIFY(::link(QFile::encodeName(home + QLatin1Char('/') + parts.at(2)).constData(),
                        encoded.constData())
                == 0);
        else
            QVERIFY(::chown(encoded.constData(), parts.at(2).section(':', 0, 0).toUInt(),
                        parts.at(2).section(':', 1).toUInt())
                == 0);
    }
    ProcessEntry::handBackConfiguration(home, QStringLiteral("Co"), QStringLiteral("Prod"), 12345, 23456);
    for (const QString &expected : owners) {
        struct stat status;
        const QString name = expected.section(QLatin1Char(' '), 0, 0);
        QVERIFY(::lstat(QFile::encodeName(home + QLatin1Char('/') + name).constData(), &status) == 0);
        QCOMPARE(QStringLiteral("%1 %2:%3").arg(name).arg(status.st_uid).arg(status.st_gid), expected);
    }
}

void tst_Installer::manifest_data()
{
    // Each line of a manifest is a stranger's: anything but what the writer
    // writes is damaged, and names obey the archive member rules.
    const QByteArray hash(64, 'a');
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("two files, one escaped") << "# 0755 10\n" + hash + "  bin/a b\n# 0644 0\n\\" + hash
            + "  c\\\\d\\ne\n" << QString() << QStringList { "bin/a b", "c\\d\ne" };
    QTest::newRow("empty") << QByteArray() << QString() << QStringList();
    QTest::newRow("no attributes") << hash + "  a\n"
                                   << QStringLiteral("it is damaged: line 1") << QStringList();
    QTest::newRow("mode not octal") << "# 0855 1\n" + hash + "  a\n"
                                    << QStringLiteral("it is damaged: line 1") << QStringList();
    QTest::newRow("upper-case hash") << "# 0644 1\n" + hash.toUpper() + "  a\n"
                                     << QStringLiteral("it is damaged: line 2") << QStringList();
    QTest::newRow("one space") << "# 0644 1\n" + hash + " a\n"
                               << QStringLiteral("it is damaged: line 2") << QStringList();
    QTest::newRow("climbs out") << "# 0644 1\n" + hash + "  lib/../../x\n"
                                << QStringLiteral("it is damaged: line 2") << QStringList();
    QTest::newRow("absolute") << "# 0644 1\n" + hash + "  /etc/x\n"
                              << QStringLiteral("it is damaged: line 2") << QStringList();
    QTest::newRow("unknown escape") << "# 0644 1\n\\" + hash + "  a\\t\n"
                                    << QStringLiteral("it is damaged: line 2") << QStringList();
    QTest::newRow("twice") << "# 0644 1\n" + hash + "  a\n# 0644 1\n" + hash + "  a\n"
                           << QStringLiteral("it is damaged: line 4") << QStringList();
    QTest::newRow("last line cut") << "# 0644 1\n" + hash + "  a"
                                   << QStringLiteral("it is damaged: it ends inside a line") << QStringList();
    QTest::newRow("attributes alone")
        << QByteArray("# 0644 1\n") << QStringLiteral("it is damaged: line 2") << QStringList();
}

void tst_Installer::manifest()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, failure);
    QFETCH(QStringList, names);
    QFile file(path(QStringLiteral("dest/bin/manifest.sha256")));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    QList<InstallManifest::Entry> entries;
    QCOMPARE(InstallManifest::read(file.fileName(), entries), failure);
    QStringList read;
    for (const InstallManifest::Entry &entry : std::as_const(entries))
        read.append(entry.name);
    QCOMPARE(read, names);
}

void tst_Installer::manifestOfWhatWasWritten()
{
    // Written by this run, a file is not read back: changed in place since at
    // the same size and time, it keeps the digest of what was written, which
    // a check, reading it, finds changed.
    QFile source(path(QStringLiteral("a")));
    QVERIFY(source.open(QIODevice::WriteOnly) && source.write("written") == 7);
    source.close();
    QVERIFY(FileUtils::copyFile(source.fileName(), path(QStringLiteral("dest/a")), true));
    struct stat before;
    QVERIFY(::stat(QFile::encodeName(path(QStringLiteral("dest/a"))).constData(), &before) == 0);
    QFile copy(path(QStringLiteral("dest/a")));
    QVERIFY(copy.open(QIODevice::ReadWrite) && copy.write("changed") == 7);
    copy.close();
    const struct timespec times[2] = { before.st_atim, before.st_mtim };
    QVERIFY(::utimensat(AT_FDCWD, QFile::encodeName(copy.fileName()).constData(), times, 0) == 0);
    QVERIFY(InstallManifest::write(path(QStringLiteral("manifest")), path(QStringLiteral("dest")), { "a" }));
    QList<InstallManifest::Entry> entries;
    QCOMPARE(InstallManifest::read(path(QStringLiteral("manifest")), entries), QString());
    QCOMPARE(entries.value(0).sha256, QCryptographicHash::hash("written", QCryptographicHash::Sha256));
    QCOMPARE(InstallManifest::check(path(QStringLiteral("dest")), entries).value(0).differences,
        int(InstallManifest::Content));
    // A manifest of more lines than one piece holds loses none at the joins.
    QStringList many { "a" };
    for (int i = 0; i < 1500; ++i)
        many.append(QStringLiteral("many/%1").arg(i, 4, 10, QLatin1Char('0')));
    QVERIFY(FileUtils::makePath(path(QStringLiteral("dest/many"))));
    for (const QString &name : many.mid(1))
        QVERIFY(FileUtils::writeFile(path(QStringLiteral("dest/")) + name, name.toUtf8()));
    QVERIFY(InstallManifest::write(path(QStringLiteral("manifest")), path(QStringLiteral("dest")), many));
    QCOMPARE(InstallManifest::read(path(QStringLiteral("manifest")), entries), QString());
    QCOMPARE(entries.size(), many.size());
    QCOMPARE(entries.last().name, many.last());
    QCOMPARE(InstallManifest::check(path(QStringLiteral("dest")), entries).size(), 1);
}

QTEST_GUILESS_MAIN(tst_Installer)
#include "tst_installer.moc"
