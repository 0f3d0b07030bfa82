#include "core/hexception.h"
#include "core/installcommandline.h"
#include "core/installexception.h"
#include "core/macrotable.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/installwizardinterface.h"
#include "plan/installconfigurationlist.h"
#include "tests/installer/diskitem.h"
#include "tests/plan/scriptedquestion.h"

#include <QDir>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using Page = InstallWizardInterface::PageId;

// The wizard as a script sees it: pages are ids, a press is a signal, and
// everything the application asks of the window is recorded.
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
    void addPageFlags(int id, quint32 flags) override { pageFlags[id] |= flags; }
    void setPageText(int id, const QString &title, const QString &text) override
    {
        titles[id] = title;
        texts[id] = text;
    }
    int listedRows(int id) const override { return rows.value(id); }
    void setProgressPhase(ProgressPhase phase) override { phases.append(phase); }
    void setProgressTaskPrefix(const QString &prefix) override { prefixes.append(prefix); }
    void setProgressFollowsList(bool follow) override { following = follow; }
    bool runClosingActions() override
    {
        ++closingActions;
        return true;
    }
    QString chooseFolder(const QString &caption, const QString &startFolder) override
    {
        folderQuestions.append(caption + QLatin1Char('|') + startFolder);
        return folderAnswer;
    }
    void reportInstallationError(const QString &message) override { errors.append(message); }
    InstallQuestion *question() override { return &script; }
    void raiseWindow() override { }
    void hideWindow() override { hidden = true; }
    void installationModeChanged(InstallMode::Mode mode) override { modes.append(mode); }

    void next() { emit nextClicked(current); }
    void back() { emit backClicked(current); }
    void cancel() { emit cancelClicked(current); }
    void help() { emit helpClicked(current); }
    void choose(InstallMode::Mode mode) { emit modeChosen(mode); }

    QSet<int> pages;
    int current = -1;
    QList<int> shown;
    bool accepted = false;
    bool hidden = false;
    QMap<int, quint32> pageFlags;
    QMap<int, QString> titles;
    QMap<int, QString> texts;
    QMap<int, int> rows;
    QList<int> phases;
    QStringList prefixes;
    bool following = false;
    int closingActions = 0;
    QString folderAnswer;
    QStringList folderQuestions;
    QStringList errors;
    ScriptedQuestion script;
    QList<int> modes;
};

class tst_InstallApplication : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void installationSequence_data();
    void installationSequence();
    void backRetracesBranch_data();
    void backRetracesBranch();
    void licenceNotAccepted_data();
    void licenceNotAccepted();
    void silentRunReadsLicenceInWindow_data();
    void silentRunReadsLicenceInWindow();
    void existingInstallationBecomesUpgrade();
    void maintenanceStartShowsRemoval_data();
    void maintenanceStartShowsRemoval();
    void maintenanceSequence_data();
    void maintenanceSequence();
    void destinationChosenWhenUnknown_data();
    void destinationChosenWhenUnknown();
    void cancelQuestionByPhase_data();
    void cancelQuestionByPhase();
    void cancelDuringOperationStopsAtNextStep();
    void finishedPagesQuitWithoutQuestion_data();
    void finishedPagesQuitWithoutQuestion();
    void outcomePages_data();
    void outcomePages();
    void terminatedByUser_data();
    void terminatedByUser();
    void missingPageIsAnError();
    void helpReturnsToItsPage();
    void modeChangesReachWizardAndPlan();
    void removalPageText();
    void silentRuns();
    void silentMaintenanceNeedsDestination();
    void plainLines_data();
    void plainLines();

private:
    std::unique_ptr<BrantleInstallerApplication> application(
        FakeWizard *wizard, const QStringList &options = QStringList());
    // Presses Next until page `until` is current, at most `limit` times.
    void nextUntil(FakeWizard &wizard, int until, int limit = 12);
    void installSilently();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<InstallConfigurationList> m_list;
    QSet<QString> m_disk;
    QStringList m_log;
    DiskItem *m_product = nullptr;
    DiskItem *m_docs = nullptr;
};

void tst_InstallApplication::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), m_dir->filePath(QStringLiteral("dest")));
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("dest/bin"))));
    m_disk.clear();
    m_log.clear();
    m_list = std::make_unique<InstallConfigurationList>(QStringLiteral("Plan"), QString(), 0, true);
    m_product = new DiskItem(m_list.get(), QStringLiteral("Product"), &m_disk, &m_log);
    m_docs = new DiskItem(m_list.get(), QStringLiteral("Docs"), &m_disk, &m_log);
}

void tst_InstallApplication::cleanup()
{
    m_list.reset();
    m_dir.reset();
}

std::unique_ptr<BrantleInstallerApplication> tst_InstallApplication::application(
    FakeWizard *wizard, const QStringList &options)
{
    InstallCommandLine commandLine;
    commandLine.parse(
        QStringList { QStringLiteral("Setup"), QStringLiteral("--user-mode-install") } + options, macros());
    return std::make_unique<BrantleInstallerApplication>(commandLine, m_list.get(), wizard);
}

void tst_InstallApplication::nextUntil(FakeWizard &wizard, int until, int limit)
{
    for (int i = 0; i < limit && wizard.current != until; ++i)
        wizard.next();
    QCOMPARE(wizard.current, until);
}

void tst_InstallApplication::installSilently()
{
    auto installer = application(nullptr, { QStringLiteral("--silent"), QStringLiteral("--accept-license") });
    QCOMPARE(installer->run(), int(InstallApplication::Succeeded));
    m_log.clear();
}

void tst_InstallApplication::installationSequence_data()
{
    QTest::addColumn<QList<int>>("missing");
    QTest::addColumn<int>("environmentRows");
    QTest::addColumn<int>("optionalRows");
    QTest::addColumn<int>("chosenMode");
    QTest::addColumn<QList<int>>("expected");

    const int typical = InstallMode::Typical;
    const int custom = InstallMode::Custom;
    QTest::newRow("typical") << QList<int>() << 0 << 0 << typical << QList<int> { 1, 20, 3, 8, 11 };
    QTest::newRow("custom") << QList<int>() << 0 << 0 << custom << QList<int> { 1, 20, 3, 8, 9, 11 };
    QTest::newRow("custom, variables and components")
        << QList<int>() << 2 << 1 << custom << QList<int> { 1, 20, 3, 8, 9, 6, 7, 11 };
    QTest::newRow("typical, components only")
        << QList<int>() << 0 << 3 << typical << QList<int> { 1, 20, 3, 8, 7, 11 };
    QTest::newRow("minimal, variables only")
        << QList<int>() << 1 << 0 << int(InstallMode::Minimal) << QList<int> { 1, 20, 3, 8, 6, 11 };
    QTest::newRow("no licence page") << QList<int> { 20 } << 0 << 0 << typical << QList<int> { 1, 3, 8, 11 };
    QTest::newRow("no configuration page")
        << QList<int> { 8 } << 0 << 1 << typical << QList<int> { 1, 20, 3, 7, 11 };
}

void tst_InstallApplication::installationSequence()
{
    QFETCH(QList<int>, missing);
    QFETCH(int, environmentRows);
    QFETCH(int, optionalRows);
    QFETCH(int, chosenMode);
    QFETCH(QList<int>, expected);

    FakeWizard wizard;
    for (int id : missing)
        wizard.pages.remove(id);
    wizard.rows[Page::EnvironmentPage] = environmentRows;
    wizard.rows[Page::OptionalPage] = optionalRows;
    wizard.accepted = true;
    auto installer = application(&wizard);
    installer->start();
    for (int i = 0; i < 10 && wizard.current != Page::StartInstallationPage; ++i) {
        if (wizard.current == Page::ConfigurationPage)
            wizard.choose(InstallMode::Mode(chosenMode));
        wizard.next();
    }
    QCOMPARE(wizard.shown, expected);
    QCOMPARE(installer->mode(), InstallMode::Mode(chosenMode));
    QVERIFY(m_log.isEmpty());

    wizard.next();
    QCOMPARE(m_log, (QStringList { QStringLiteral("install Product"), QStringLiteral("install Docs") }));
    QCOMPARE(wizard.shown.mid(expected.size()), (QList<int> { Page::ProgressPage, Page::CompletePage }));
    QCOMPARE(wizard.phases, QList<int> { InstallWizardInterface::Installing });
    QCOMPARE(wizard.prefixes, QStringList { QStringLiteral("Installing ") });
    QVERIFY(!wizard.following);
    QCOMPARE(wizard.titles[Page::CompletePage], QStringLiteral("Install Complete"));
    QVERIFY(QFile::exists(m_dir->filePath(QStringLiteral("dest/bin/IConf.xml"))));
    QVERIFY(!installer->hasEnded());

    wizard.next();
    QVERIFY(installer->hasEnded());
    QCOMPARE(installer->result(), int(InstallApplication::Succeeded));
    QCOMPARE(wizard.closingActions, 1);
    QCOMPARE(wizard.script.asked.size(), 0);
}

void tst_InstallApplication::backRetracesBranch_data()
{
    QTest::addColumn<int>("chosenMode");
    QTest::addColumn<int>("environmentRows");
    QTest::addColumn<QList<int>>("backwards");

    // From the optional page back to the destination page, along the way taken.
    QTest::newRow("custom") << int(InstallMode::Custom) << 1 << QList<int> { 6, 9, 8, 3 };
    QTest::newRow("typical") << int(InstallMode::Typical) << 1 << QList<int> { 6, 8, 3 };
    QTest::newRow("custom, no variables") << int(InstallMode::Custom) << 0 << QList<int> { 9, 8, 3 };
    QTest::newRow("typical, no variables") << int(InstallMode::Typical) << 0 << QList<int> { 8, 3 };
}

void tst_InstallApplication::backRetracesBranch()
{
    QFETCH(int, chosenMode);
    QFETCH(int, environmentRows);
    QFETCH(QList<int>, backwards);

    FakeWizard wizard;
    wizard.accepted = true;
    wizard.rows[Page::EnvironmentPage] = environmentRows;
    wizard.rows[Page::OptionalPage] = 1;
    auto installer = application(&wizard);
    installer->start();
    for (int i = 0; i < 10 && wizard.current != Page::OptionalPage; ++i) {
        if (wizard.current == Page::ConfigurationPage)
            wizard.choose(InstallMode::Mode(chosenMode));
        wizard.next();
    }
    QCOMPARE(wizard.current, int(Page::OptionalPage));
    const int before = wizard.shown.size();
    for (int i = 0; i < backwards.size(); ++i)
        wizard.back();
    QCOMPARE(wizard.shown.mid(before), backwards);
    // The history is the way back, and forward again from there.
    QCOMPARE(installer->history(), (QList<int> { 1, 20, 3 }));
    wizard.next();
    QCOMPARE(wizard.current, int(Page::ConfigurationPage));
    QCOMPARE(installer->history(), (QList<int> { 1, 20, 3, 8 }));
}

void tst_InstallApplication::licenceNotAccepted_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("refused");

    QTest::newRow("not accepted") << QStringList() << true;
    QTest::newRow("--accept-license") << QStringList { QStringLiteral("--accept-license") } << false;
}

void tst_InstallApplication::licenceNotAccepted()
{
    QFETCH(QStringList, options);
    QFETCH(bool, refused);

    FakeWizard wizard;
    auto installer = application(&wizard, options);
    installer->start();
    wizard.next();
    wizard.next();
    if (!refused) {
        QCOMPARE(wizard.current, int(Page::DestinationPage));
        return;
    }
    QCOMPARE(wizard.current, int(Page::FailedPage));
    QCOMPARE(wizard.titles[Page::FailedPage], QStringLiteral("Installation Failed"));
    QCOMPARE(wizard.texts[Page::FailedPage],
        QStringLiteral("License agreement not accepted<p>Click Finish to terminate the installer."));
    wizard.next();
    QVERIFY(installer->hasEnded());
    QCOMPARE(installer->result(), int(InstallApplication::Failed));
    QVERIFY(m_log.isEmpty());
}

void tst_InstallApplication::silentRunReadsLicenceInWindow_data()
{
    QTest::addColumn<bool>("accept");
    QTest::newRow("accepted") << true;
    QTest::newRow("refused") << false;
}

void tst_InstallApplication::silentRunReadsLicenceInWindow()
{
    QFETCH(bool, accept);
    FakeWizard wizard;
    auto installer = application(&wizard, { QStringLiteral("--silent") });
    QSignalSpy ended(installer.get(), &InstallApplication::ended);
    // The window shows the agreement alone; the rest of the run is silent:
    // no page of the wizard is shown after it and no question goes to it.
    QTimer::singleShot(0, &wizard, [&wizard, accept] {
        wizard.accepted = accept;
        wizard.next();
    });
    const int result = installer->run();
    QCOMPARE(wizard.shown, QList<int> { Page::LicensePage });
    QVERIFY(wizard.hidden);
    QVERIFY(installer->isSilent());
    QCOMPARE(ended.size(), 1);
    QCOMPARE(result, int(accept ? InstallApplication::Succeeded : InstallApplication::Failed));
    QCOMPARE(m_log,
        accept ? (QStringList { QStringLiteral("install Product"), QStringLiteral("install Docs") })
               : QStringList());
    QCOMPARE(QFile::exists(m_dir->filePath(QStringLiteral("dest/bin/IConf.xml"))), accept);
    QVERIFY(wizard.script.asked.isEmpty());
}

void tst_InstallApplication::existingInstallationBecomesUpgrade()
{
    installSilently();
    m_list->setInstalled(InstallConfigurationItem::notInstalled, true);

    FakeWizard wizard;
    wizard.accepted = true;
    auto installer = application(&wizard);
    installer->start();
    nextUntil(wizard, Page::DestinationPage);
    wizard.next();
    QCOMPARE(installer->mode(), InstallMode::Upgrade);
    QCOMPARE(wizard.shown, (QList<int> { 1, 20, 3, 16, 15 }));
    QCOMPARE(wizard.phases, QList<int> { InstallWizardInterface::Checking });
    QVERIFY(wizard.pageFlags[Page::StartUpgradePage] & InstallWizardInterface::BackDisabled);
    QCOMPARE(m_product->installed(), InstallConfigurationItem::fullyInstalled);

    wizard.next();
    QCOMPARE(m_log,
        (QStringList { QStringLiteral("remove Docs"), QStringLiteral("remove Product"),
            QStringLiteral("install Product"), QStringLiteral("install Docs") }));
    QCOMPARE(wizard.prefixes, (QStringList { QStringLiteral("Removing "), QStringLiteral("Installing ") }));
    QCOMPARE(wizard.titles[Page::CompletePage], QStringLiteral("Upgrade Complete"));
    QCOMPARE(wizard.texts[Page::CompletePage],
        QStringLiteral(
            "$(Product) $(Version) has now been upgraded.<p>Click Finish to complete the installation."));
}

void tst_InstallApplication::maintenanceStartShowsRemoval_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("--remove") << QStringLiteral("--remove");
    QTest::newRow("--repair") << QStringLiteral("--repair");
    QTest::newRow("--modify") << QStringLiteral("--modify");
}

void tst_InstallApplication::maintenanceStartShowsRemoval()
{
    QFETCH(QString, option);
    installSilently();
    QFile record(m_dir->filePath(QStringLiteral("dest/bin/IConf.xml")));
    QVERIFY(record.open(QIODevice::ReadOnly));
    const QByteArray recorded = record.readAll();
    record.close();

    FakeWizard wizard;
    auto installer = application(&wizard, { option });
    installer->start();
    QCOMPARE(wizard.shown, (QList<int> { Page::ProgressPage, Page::StartRemovalPage }));
    QCOMPARE(wizard.phases, QList<int> { InstallWizardInterface::Checking });
    QCOMPARE(installer->mode(), InstallMode::Remove);
    QCOMPARE(m_product->installed(), InstallConfigurationItem::fullyInstalled);

    wizard.next();
    QCOMPARE(m_log, (QStringList { QStringLiteral("remove Docs"), QStringLiteral("remove Product") }));
    QCOMPARE(wizard.titles[Page::CompletePage], QStringLiteral("Uninstall Complete"));
    QCOMPARE(wizard.texts[Page::CompletePage],
        QStringLiteral(
            "$(Product) $(Version) had now been uninstalled.<p>Click Finish to close the installer."));
    // A removal that succeeded does not write the record (its own item removes it).
    QVERIFY(record.open(QIODevice::ReadOnly));
    QCOMPARE(record.readAll(), recorded);
    wizard.next();
    QCOMPARE(installer->result(), int(InstallApplication::Removed));
}

void tst_InstallApplication::maintenanceSequence_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QList<int>>("expected");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QString>("title");

    const QStringList removeBoth { QStringLiteral("remove Docs"), QStringLiteral("remove Product") };
    QTest::newRow("repair") << int(InstallMode::Repair) << QList<int> { 10, 14, 16, 17 }
                            << removeBoth
            + QStringList { QStringLiteral("install Product"), QStringLiteral("install Docs") }
                            << QStringLiteral("Repair Complete");
    QTest::newRow("remove") << int(InstallMode::Remove) << QList<int> { 10, 12, 16, 17 } << removeBoth
                            << QStringLiteral("Uninstall Complete");
    // Docs deselected on the custom setup page: only it goes.
    QTest::newRow("modify") << int(InstallMode::Modify) << QList<int> { 10, 9, 13, 16, 17 }
                            << QStringList { QStringLiteral("remove Docs") }
                            << QStringLiteral("Modify Complete");
}

void tst_InstallApplication::maintenanceSequence()
{
    QFETCH(int, mode);
    QFETCH(QList<int>, expected);
    QFETCH(QStringList, log);
    QFETCH(QString, title);
    installSilently();

    // A product whose own maintenance page chooses the mode.
    FakeWizard wizard;
    wizard.pages.insert(Page::MaintenancePage);
    auto installer = application(&wizard);
    QVERIFY(m_list->checkInstalled());
    wizard.choose(InstallMode::Mode(mode));
    wizard.showPage(Page::MaintenancePage);
    for (int i = 0; i < 6 && wizard.current != Page::CompletePage; ++i) {
        if (wizard.current == Page::CustomSetupPage)
            m_docs->setInstall(false);
        wizard.next();
    }
    QCOMPARE(wizard.shown, expected);
    QCOMPARE(m_log, log);
    QCOMPARE(wizard.titles[Page::CompletePage], title);
}

void tst_InstallApplication::destinationChosenWhenUnknown_data()
{
    QTest::addColumn<QString>("answer");
    QTest::newRow("cancelled") << QString();
    QTest::newRow("chosen") << QStringLiteral("/chosen");
}

void tst_InstallApplication::destinationChosenWhenUnknown()
{
    QFETCH(QString, answer);

    FakeWizard wizard;
    wizard.folderAnswer = answer;
    auto installer
        = application(&wizard, { QStringLiteral("--remove"), QStringLiteral("--destination"), QString() });
    installer->start();
    QCOMPARE(wizard.folderQuestions,
        QStringList { QStringLiteral("Please locate Tamrin Calvra for ARM folder.\n|") });
    if (answer.isEmpty()) {
        QVERIFY(installer->hasEnded());
        QCOMPARE(installer->result(), int(InstallApplication::Failed));
        QVERIFY(wizard.shown.isEmpty());
    } else {
        QCOMPARE(expandMacros(QStringLiteral("$(DestDir)")), answer);
        QCOMPARE(wizard.current, int(Page::StartRemovalPage));
    }
}

void tst_InstallApplication::cancelQuestionByPhase_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");

    const QString notStarted = QStringLiteral("<p>Are you sure you want to terminate the "
                                              "installation?<p>Click Yes to terminate or No to continue.");
    QTest::newRow("install, yes") << QStringList() << int(InstallQuestion::Yes)
                                  << QStringLiteral("The installation is not complete")
                                  << QStringLiteral("Setup has not installed Tamrin Calvra for ARM.")
            + notStarted;
    QTest::newRow("install, no") << QStringList() << int(InstallQuestion::No)
                                 << QStringLiteral("The installation is not complete")
                                 << QStringLiteral("Setup has not installed Tamrin Calvra for ARM.")
            + notStarted;
    QTest::newRow("remove, yes") << QStringList { QStringLiteral("--remove") } << int(InstallQuestion::Yes)
                                 << QStringLiteral("The installation removal is not complete")
                                 << QStringLiteral("Setup has not removed Tamrin Calvra for ARM.")
            + notStarted;
}

void tst_InstallApplication::cancelQuestionByPhase()
{
    QFETCH(QStringList, options);
    QFETCH(int, answer);
    QFETCH(QString, title);
    QFETCH(QString, text);

    FakeWizard wizard;
    wizard.script.answers = { answer };
    auto installer = application(&wizard, options);
    installer->start();
    const int page = wizard.current;
    wizard.cancel();
    QCOMPARE(wizard.script.headings(), QStringList { title });
    QCOMPARE(wizard.script.asked.first().text, text);
    QCOMPARE(wizard.script.asked.first().buttons, InstallQuestion::Yes | InstallQuestion::No);
    QCOMPARE(installer->hasEnded(), answer == InstallQuestion::Yes);
    QCOMPARE(wizard.current, page);
    QCOMPARE(installer->result(), int(InstallApplication::Failed));
    QVERIFY(m_log.isEmpty());
}

void tst_InstallApplication::cancelDuringOperationStopsAtNextStep()
{
    FakeWizard wizard;
    wizard.accepted = true;
    wizard.script.answers = { InstallQuestion::No, InstallQuestion::Yes };
    auto installer = application(&wizard);
    // Cancel pressed twice while the first item works: No goes on, Yes stops
    // the run before the second item.
    // Help (F1) meanwhile leaves the progress page up.
    int pageDuringWork = 0;
    m_product->duringInstall = [&wizard, &pageDuringWork] {
        wizard.help();
        pageDuringWork = wizard.current;
        wizard.cancel();
        wizard.cancel();
    };
    installer->start();
    nextUntil(wizard, Page::StartInstallationPage);
    wizard.next();

    QCOMPARE(pageDuringWork, int(Page::ProgressPage));
    QCOMPARE(wizard.script.asked.size(), 2);
    QCOMPARE(wizard.script.asked.first().heading, QStringLiteral("The installation is not complete"));
    QCOMPARE(wizard.script.asked.first().text,
        QStringLiteral(
            "Setup has not installed Tamrin Calvra for ARM.<p>If you terminate the installation now, "
            "Tamrin Calvra for ARM may not work properly.<p>Are you sure you want to terminate the "
            "installation?<p>Click Yes to terminate installation or No to continue."));
    QCOMPARE(m_log, QStringList { QStringLiteral("install Product") });
    // The run ends on the failed page, which says why; Finish then quits.
    QVERIFY(!installer->hasEnded());
    QCOMPARE(wizard.current, int(Page::FailedPage));
    QCOMPARE(wizard.titles[Page::FailedPage], QStringLiteral("Installation Failed"));
    QVERIFY(wizard.texts[Page::FailedPage].startsWith(
        QStringLiteral("Installation has been cancelled by user.")));
    QVERIFY(!wizard.following);
    // What was done is recorded for a later removal.
    QVERIFY(QFile::exists(m_dir->filePath(QStringLiteral("dest/bin/IConf.xml"))));
    wizard.next();
    QVERIFY(installer->hasEnded());
    QCOMPARE(installer->result(), int(InstallApplication::Failed));
}

void tst_InstallApplication::finishedPagesQuitWithoutQuestion_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("page");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<int>("result");

    const QStringList remove { QStringLiteral("--remove") };
    QTest::newRow("complete, finish") << QStringList() << int(Page::CompletePage) << false << 1;
    QTest::newRow("complete, cancel") << QStringList() << int(Page::CompletePage) << true << 1;
    QTest::newRow("failed, finish") << QStringList() << int(Page::FailedPage) << false << 0;
    QTest::newRow("failed, cancel") << QStringList() << int(Page::FailedPage) << true << 0;
    QTest::newRow("removed, finish") << remove << int(Page::CompletePage) << false << 2;
    QTest::newRow("removal failed, finish") << remove << int(Page::FailedPage) << false << 0;
}

void tst_InstallApplication::finishedPagesQuitWithoutQuestion()
{
    QFETCH(QStringList, options);
    QFETCH(int, page);
    QFETCH(bool, cancel);
    QFETCH(int, result);

    FakeWizard wizard;
    auto installer = application(&wizard, options);
    installer->start();
    wizard.showPage(page);
    QSignalSpy ended(installer.get(), &InstallApplication::ended);
    cancel ? wizard.cancel() : wizard.next();
    QCOMPARE(wizard.script.asked.size(), 0);
    QCOMPARE(ended.size(), 1);
    QCOMPARE(installer->result(), result);
    QCOMPARE(wizard.closingActions, !cancel && page == Page::CompletePage ? 1 : 0);
}

void tst_InstallApplication::outcomePages_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("complete");
    QTest::addColumn<QString>("failed");
    QTest::addColumn<QString>("success");
    QTest::addColumn<QString>("failure");

    const QString installed = QStringLiteral("$(Product) $(Version) has now been installed.");
    const QString notInstalled = QStringLiteral("$(Product) $(Version) has not been installed.");
    for (int mode = InstallMode::Minimal; mode <= InstallMode::Custom; ++mode) {
        QTest::addRow("installation %d", mode)
            << mode << QStringLiteral("Install Complete") << QStringLiteral("Installation Failed")
            << installed << notInstalled;
    }
    QTest::newRow("modify") << int(InstallMode::Modify) << QStringLiteral("Modify Complete")
                            << QStringLiteral("Modify Failed")
                            << QStringLiteral("The $(Product) $(Version) installation has now been modified.")
                            << QStringLiteral("$(Product) $(Version) has not been modified successfully.");
    QTest::newRow("repair") << int(InstallMode::Repair) << QStringLiteral("Repair Complete")
                            << QStringLiteral("Repair Failed") << installed << notInstalled;
    QTest::newRow("remove") << int(InstallMode::Remove) << QStringLiteral("Uninstall Complete")
                            << QStringLiteral("Uninstall Failed")
                            << QStringLiteral("$(Product) $(Version) had now been uninstalled.")
                            << QStringLiteral("$(Product) $(Version) has not been uninstalled.");
    QTest::newRow("upgrade") << int(InstallMode::Upgrade) << QStringLiteral("Upgrade Complete")
                             << QStringLiteral("Upgrade Failed")
                             << QStringLiteral("$(Product) $(Version) has now been upgraded.")
                             << QStringLiteral("$(Product) $(Version) has not been upgraded.");
    QTest::newRow("beyond") << 8 << QString() << QString() << installed << notInstalled;
}

void tst_InstallApplication::outcomePages()
{
    QFETCH(int, mode);
    QFETCH(QString, complete);
    QFETCH(QString, failed);
    QFETCH(QString, success);
    QFETCH(QString, failure);

    QCOMPARE(InstallApplication::successMessage(mode), success);
    QCOMPARE(InstallApplication::failureMessage(mode), failure);

    FakeWizard wizard;
    auto installer = application(&wizard);
    installer->setMode(InstallMode::Mode(mode));
    installer->showComplete(QStringLiteral("Done."));
    QCOMPARE(wizard.current, int(Page::CompletePage));
    QCOMPARE(wizard.titles[Page::CompletePage], complete);
    QCOMPARE(wizard.texts[Page::CompletePage],
        mode == InstallMode::Remove ? QStringLiteral("Done.<p>Click Finish to close the installer.")
                                    : QStringLiteral("Done.<p>Click Finish to complete the installation."));
    installer->showFailed(QStringLiteral("Broken"));
    QCOMPARE(wizard.current, int(Page::FailedPage));
    QCOMPARE(wizard.titles[Page::FailedPage], failed);
    QCOMPARE(
        wizard.texts[Page::FailedPage], QStringLiteral("Broken<p>Click Finish to terminate the installer."));
}

void tst_InstallApplication::terminatedByUser_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("message");

    QTest::newRow("installation") << QStringList() << QStringLiteral("Installation Failed")
                                  << QStringLiteral("Installation has been cancelled by user.");
    QTest::newRow("upgrade") << QStringList { QStringLiteral("upgrade") } << QStringLiteral("Upgrade Failed")
                             << QStringLiteral("Upgrade has been cancelled by user.");
}

void tst_InstallApplication::terminatedByUser()
{
    QFETCH(QStringList, options);
    QFETCH(QString, title);
    QFETCH(QString, message);
    if (!options.isEmpty())
        installSilently();

    // The item fails and the user answers Yes to "terminate the installation?".
    m_product->failure = QStringLiteral("Disk full");
    FakeWizard wizard;
    wizard.accepted = true;
    wizard.script.answers = { InstallQuestion::Yes };
    auto installer = application(&wizard);
    installer->start();
    nextUntil(wizard, options.isEmpty() ? int(Page::StartInstallationPage) : int(Page::StartUpgradePage));
    wizard.next();
    QCOMPARE(wizard.script.headings(), QStringList { QStringLiteral("Product Installation Failed") });
    QCOMPARE(wizard.current, int(Page::FailedPage));
    QCOMPARE(wizard.titles[Page::FailedPage], title);
    QCOMPARE(wizard.texts[Page::FailedPage],
        message + QStringLiteral("<p>Click Finish to terminate the installer."));
    QVERIFY(!m_log.contains(QStringLiteral("install Docs")));
    QVERIFY(QFile::exists(m_dir->filePath(QStringLiteral("dest/bin/IConf.xml"))));
}

void tst_InstallApplication::missingPageIsAnError()
{
    FakeWizard wizard;
    wizard.accepted = true;
    wizard.pages.remove(Page::StartInstallationPage);
    auto installer = application(&wizard);
    installer->start();
    nextUntil(wizard, Page::FailedPage);
    QCOMPARE(wizard.texts[Page::FailedPage],
        QStringLiteral("Attempted to show dialog NULL dialog<p>Click Finish to terminate the installer."));
}

void tst_InstallApplication::helpReturnsToItsPage()
{
    FakeWizard wizard;
    wizard.accepted = true;
    auto installer = application(&wizard);
    installer->start();
    nextUntil(wizard, Page::DestinationPage);
    wizard.help();
    QCOMPARE(wizard.current, int(Page::HelpPage));
    wizard.help();
    wizard.next();
    QCOMPARE(wizard.current, int(Page::DestinationPage));
    wizard.next();
    QCOMPARE(wizard.current, int(Page::ConfigurationPage));
    QCOMPARE(installer->history(), (QList<int> { 1, 20, 3, 8 }));
}

void tst_InstallApplication::modeChangesReachWizardAndPlan()
{
    FakeWizard wizard;
    auto installer = application(&wizard);
    QCOMPARE(wizard.modes, QList<int> { InstallMode::Typical });
    QVERIFY(m_product->willInstall());
    QSignalSpy changes(m_product, &InstallConfigurationItem::willInstallChanged);
    wizard.choose(InstallMode::Remove);
    QCOMPARE(installer->mode(), InstallMode::Remove);
    QCOMPARE(wizard.modes, (QList<int> { InstallMode::Typical, InstallMode::Remove }));
    // The plan heard of it at once.
    QCOMPARE(changes.size(), 1);
    QVERIFY(!m_product->willInstall());
}

void tst_InstallApplication::removalPageText()
{
    FakeWizard wizard;
    auto installer = application(&wizard);
    QCOMPARE(wizard.titles[Page::StartRemovalPage], QStringLiteral("Start Removal"));
    QCOMPARE(wizard.texts[Page::StartRemovalPage],
        QStringLiteral("<p>To start removal of <b>$(Product)</b>, click <b>Remove</b>.</p>"));
}

void tst_InstallApplication::silentRuns()
{
    const QStringList silent { QStringLiteral("--silent"), QStringLiteral("--accept-license") };
    installSilently();
    QCOMPARE(m_disk, (QSet<QString> { QStringLiteral("Product"), QStringLiteral("Docs") }));

    // Over an installation: an upgrade.
    {
        auto installer = application(nullptr, silent);
        QCOMPARE(installer->run(), int(InstallApplication::Succeeded));
        QCOMPARE(installer->mode(), InstallMode::Upgrade);
        QCOMPARE(m_log.size(), 4);
    }
    // Repair: removes, then installs.
    m_log.clear();
    {
        auto installer = application(nullptr, silent + QStringList { QStringLiteral("--repair") });
        QCOMPARE(installer->run(), int(InstallApplication::Succeeded));
        QCOMPARE(installer->mode(), InstallMode::Repair);
        QCOMPARE(m_log,
            (QStringList { QStringLiteral("remove Docs"), QStringLiteral("remove Product"),
                QStringLiteral("install Product"), QStringLiteral("install Docs") }));
    }
    // Modify: what is installed is installed again, nothing else.
    m_log.clear();
    m_disk.remove(QStringLiteral("Docs"));
    {
        auto installer = application(nullptr, silent + QStringList { QStringLiteral("--modify") });
        QCOMPARE(installer->run(), int(InstallApplication::Succeeded));
        QCOMPARE(m_log, QStringList { QStringLiteral("install Product") });
        QVERIFY(!m_docs->installFlag());
    }
    m_docs->setInstall(true);
    m_disk.insert(QStringLiteral("Docs"));
    // A failing item ends the run: the silent answer to "terminate?" is Yes.
    m_log.clear();
    m_docs->failure = QStringLiteral("Broken");
    {
        auto installer = application(nullptr, silent + QStringList { QStringLiteral("--repair") });
        QCOMPARE(installer->run(), int(InstallApplication::Failed));
    }
    m_docs->failure.clear();
    // Removal, without the collapse of the window's start.
    m_log.clear();
    {
        auto installer = application(nullptr, silent + QStringList { QStringLiteral("--remove") });
        QCOMPARE(installer->run(), int(InstallApplication::Succeeded));
        QCOMPARE(installer->mode(), InstallMode::Remove);
    }
    QVERIFY(m_disk.isEmpty());
}

void tst_InstallApplication::silentMaintenanceNeedsDestination()
{
    auto installer = application(nullptr,
        { QStringLiteral("--silent"), QStringLiteral("--remove"), QStringLiteral("--destination"),
            QString() });
    QCOMPARE(installer->run(), int(InstallApplication::Failed));
    QVERIFY(m_log.isEmpty());
}

void tst_InstallApplication::plainLines_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("paragraphs") << QStringLiteral("One.<p>Two.") << QStringLiteral("One.\nTwo.");
    QTest::newRow("macros and bold") << QStringLiteral("<p>To start removal of <b>$(Product)</b>.</p>")
                                     << QStringLiteral("To start removal of Tamrin Calvra for ARM.");
    QTest::newRow("breaks, empty paragraphs") << QStringLiteral("a<br>b<p><p>c") << QStringLiteral("a\nb\nc");
    QTest::newRow("plain") << QStringLiteral("plain") << QStringLiteral("plain");
}

void tst_InstallApplication::plainLines()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(InstallApplication::plainLines(text), expected);
}

QTEST_GUILESS_MAIN(tst_InstallApplication)
#include "tst_installapplication.moc"
