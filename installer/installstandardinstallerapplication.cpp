#include "installer/installstandardinstallerapplication.h"

#include "core/console.h"
#include "core/hexception.h"
#include "core/installexception.h"
#include "core/installlog.h"
#include "core/installquestion.h"
#include "core/installshutdownexception.h"
#include "core/macrotable.h"
#include "core/places.h"
#include "installer/consolelicenceprompt.h"
#include "installer/installerlogging.h"
#include "installer/installmanifest.h"
#include "installer/installsettingsrecord.h"
#include "installer/installwizardinterface.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfeatureselection.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

using Page = InstallWizardInterface::PageId;

// Selects exactly the installed items of the subtree.
void selectInstalled(InstallConfigurationItem *item)
{
    item->setInstall(item->installed() != InstallConfigurationItem::notInstalled);
    for (InstallConfigurationItem *child : item->children())
        selectInstalled(child);
}

// Marks the installed items that stay selected for installing again; an
// installed item no longer selected keeps its state, so that it is removed.
void reinstallSelected(InstallConfigurationItem *item)
{
    if (item->installed() != InstallConfigurationItem::notInstalled && item->willInstall())
        item->setInstalled(InstallConfigurationItem::notInstalled);
    for (InstallConfigurationItem *child : item->children())
        reinstallSelected(child);
}

void forgetInstalled(InstallConfigurationItem *item)
{
    item->setInstalled(InstallConfigurationItem::notInstalled);
    for (InstallConfigurationItem *child : item->children())
        forgetInstalled(child);
}

// Why a page of a sequence is passed over.
bool withoutPage(const InstallStandardInstallerApplication &application, Page page)
{
    return !application.wizard()->hasPage(page);
}

bool notCustom(const InstallStandardInstallerApplication &application, Page)
{
    return application.mode() != InstallMode::Custom;
}

// A selection page with no row to choose.
bool nothingListed(const InstallStandardInstallerApplication &application, Page page)
{
    return application.wizard()->listedRows(page) <= 0;
}

} // namespace

InstallStandardInstallerApplication::InstallStandardInstallerApplication(
    const InstallCommandLine &commandLine, InstallConfigurationList *list, InstallWizardInterface *wizard,
    QObject *parent)
    : InstallApplication(commandLine, list, wizard, parent)
{ }

InstallStandardInstallerApplication::~InstallStandardInstallerApplication() = default;

QString InstallStandardInstallerApplication::recordPath()
{
    return InstallSettingsRecord::defaultPath();
}

bool InstallStandardInstallerApplication::readRecord(const QString &path, QString *failure)
{
    const QString sourceBefore = expandMacros(QStringLiteral("$(SrcDir)"));
    const InstallSettingsRecord record(list());
    if (!record.load(path)) {
        if (failure)
            *failure = record.failure();
        return false;
    }
    qCInfo(lcInstaller) << "Read the installation record" << path;
    if (expandMacros(QStringLiteral("$(SrcDir)")) != sourceBefore)
        followSourceFolder();
    return true;
}

void InstallStandardInstallerApplication::writeRecord()
{
    const QString path = recordPath();
    if (InstallSettingsRecord(list()).save(path))
        InstallLog::write(QStringLiteral("written ") + path);
    else
        qCWarning(lcInstaller) << "Cannot record the installation in" << path;
    const QString destination = expandMacros(QStringLiteral("$(DestDir)"));
    const QString manifest = InstallManifest::defaultPath();
    if (InstallManifest::write(manifest, destination, InstallManifest::installedFiles(list(), destination)))
        InstallLog::write(QStringLiteral("written ") + manifest);
    else
        qCWarning(lcInstaller) << "Cannot write the installation manifest" << manifest;
}

bool InstallStandardInstallerApplication::repair()
{
    // Without a usable manifest nothing tells the damaged files apart:
    // everything is installed again.
    QList<InstallManifest::Entry> entries;
    if (!InstallManifest::read(InstallManifest::defaultPath(), entries).isEmpty())
        return perform(Repair);
    const QString destination = expandMacros(QStringLiteral("$(DestDir)"));
    QSet<QString> intact;
    for (const InstallManifest::Entry &entry : std::as_const(entries))
        intact.insert(QDir::cleanPath(destination + QLatin1Char('/') + entry.name));
    for (const InstallManifest::Finding &finding : InstallManifest::check(destination, entries))
        intact.remove(QDir::cleanPath(destination + QLatin1Char('/') + finding.name));
    // As after the removal a full repair starts with, every selected item is
    // installed; files the manifest does not know (a run that stopped
    // early) are written too.
    forgetInstalled(list());
    list()->setIntactFiles(intact);
    // A damaged file may have kept its size and time, which would keep it.
    media()->setOverwriteDecision(nullptr);
    const bool succeeded = perform(RepairDamaged);
    list()->setIntactFiles(std::nullopt);
    list()->setMedia(media());
    return succeeded;
}

void InstallStandardInstallerApplication::start()
{
    try {
        if (InstallMode::isInstallation(mode())) {
            // The custom setup page starts from the features the command line switched.
            InstallFeatureSelection::apply(list(), commandLine().featureSwitches());
            // A silent run gets a window only to read the agreement in.
            if (runFlags() & Silent)
                showPage(Page::LicensePage);
            else
                showPage(Page::WelcomePage);
            return;
        }
        if (!locateInstallation()) {
            quit(Failed);
            return;
        }
        checkInstallation();
        if (mode() == InstallMode::Upgrade) {
            showPage(Page::UpgradeWelcomePage);
            return;
        }
        // Modify and repair are reached from the removal page's own choices.
        setMode(InstallMode::Remove);
        showPage(Page::StartRemovalPage);
    } catch (const HException &e) {
        showFailed(e.message());
    }
}

void InstallStandardInstallerApplication::runSilent()
{
    try {
        Operation operation = Install;
        if (InstallMode::isInstallation(mode())) {
            // A wrong title is told before the agreement is asked for.
            InstallFeatureSelection::apply(list(), commandLine().featureSwitches());
            // A dry run waits for nobody; a real one would stop here.
            if (!(runFlags() & LicenceAccepted) && commandLine().isDryRun())
                throw HException(QStringLiteral("License agreement not accepted"));
            if (!(runFlags() & LicenceAccepted)) {
                int columns = 0;
                int rows = 0;
                Console::textSize(&columns, &rows);
                ConsoleLicencePrompt::confirmAgreement(columns, rows);
            }
            // An installation already under the destination is upgraded.
            if (readRecord(recordPath())) {
                setMode(InstallMode::Upgrade);
                checkInstallation();
                // Finding what is installed selected it; the switches come after.
                InstallFeatureSelection::apply(list(), commandLine().featureSwitches());
                operation = Upgrade;
            }
        } else {
            locateInstallation();
            checkInstallation();
            switch (mode()) {
            case InstallMode::Repair:
                operation = Repair;
                break;
            case InstallMode::Modify:
                // What is installed is installed again, with the features
                // switched on the command line added or removed.
                selectInstalled(list());
                InstallFeatureSelection::apply(list(), commandLine().featureSwitches());
                reinstallSelected(list());
                operation = Modify;
                break;
            default:
                operation = Remove;
                break;
            }
        }
        if (commandLine().isDryRun()) {
            quit(showPlan(operation));
            return;
        }
        // A repair with a manifest writes only what is damaged.
        const bool succeeded = operation == Repair ? repair() : perform(operation);
        if (!hasEnded())
            quit(succeeded ? Succeeded : Failed);
    } catch (const HException &e) {
        reportInstallationError(e.message());
        quit(Failed);
    } catch (const InstallException &e) {
        // The dry run met a medium it cannot read.
        reportInstallationError(e.message());
        quit(Failed);
    } catch (const InstallShutdownException &) {
        endOnShutdown();
    }
}

// One page of a sequence: passed over while skipped holds; leaving it first
// runs leave, when there is one, which returns false when the run stays on
// the page or has taken another way.
struct InstallStandardInstallerApplication::PageStep
{
    Page page;
    bool (*skipped)(const InstallStandardInstallerApplication &, Page) = nullptr;
    bool (InstallStandardInstallerApplication::*leave)() = nullptr;
};

// The pages of a run in one mode; Next on the last page starts the
// operation.
struct InstallStandardInstallerApplication::PageSequence
{
    // Minimal stands for all four installation types.
    Mode mode;
    Operation operation;
    std::vector<PageStep> steps;
};

const InstallStandardInstallerApplication::PageSequence &InstallStandardInstallerApplication::sequenceOf(
    Mode mode)
{
    using Self = InstallStandardInstallerApplication;
    static const PageSequence sequences[] = {
        { InstallMode::Minimal, Install,
            {
                { Page::WelcomePage },
                { Page::LicensePage, withoutPage, &Self::leaveLicence },
                { Page::DestinationPage, nullptr, &Self::leaveDestination },
                { Page::ConfigurationPage, withoutPage },
                { Page::CustomSetupPage, notCustom },
                { Page::EnvironmentPage, nothingListed },
                { Page::OptionalPage, nothingListed },
                { Page::StartInstallationPage },
            } },
        { InstallMode::Upgrade, Upgrade,
            {
                { Page::UpgradeWelcomePage },
                { Page::LicensePage, withoutPage, &Self::leaveLicence },
                { Page::StartUpgradePage },
            } },
        // Modify starts without checking the installation again: it was
        // checked when the run started, and checking again would select every
        // installed component once more and undo the choices just made.
        { InstallMode::Modify, Modify,
            { { Page::MaintenancePage }, { Page::CustomSetupPage }, { Page::StartModifyPage } } },
        { InstallMode::Repair, Repair, { { Page::MaintenancePage }, { Page::StartRepairPage } } },
        { InstallMode::Remove, Remove, { { Page::MaintenancePage }, { Page::StartRemovalPage } } },
    };
    const Mode key = InstallMode::isInstallation(mode) ? InstallMode::Minimal : mode;
    return *std::find_if(std::begin(sequences), std::end(sequences),
        [key](const PageSequence &sequence) { return sequence.mode == key; });
}

void InstallStandardInstallerApplication::nextPage(int id)
{
    if (id == Page::HelpPage) {
        // Back to the page the help was opened from.
        onBackClicked(id);
        return;
    }
    const PageSequence &sequence = sequenceOf(mode());
    const auto end = sequence.steps.end();
    auto step = std::find_if(
        sequence.steps.begin(), end, [id](const PageStep &candidate) { return candidate.page == id; });
    if (step == end) {
        finish(id);
        return;
    }
    if (step->leave && !(this->*step->leave)())
        return;
    do
        ++step;
    while (step != end && step->skipped && step->skipped(*this, step->page));
    if (step == end)
        perform(sequence.operation);
    else
        showPage(step->page);
}

bool InstallStandardInstallerApplication::leaveLicence()
{
    if (runFlags() & Silent) {
        const bool accepted = wizard()->licenseAccepted();
        leaveWizard(accepted);
        if (!accepted) {
            reportInstallationError(QStringLiteral("License agreement not accepted"));
            quit(Failed);
            return false;
        }
        // The rest of the run is silent; it starts once this press is handled.
        QMetaObject::invokeMethod(
            this, [this] { handleEvent([this] { runSilent(); }); }, Qt::QueuedConnection);
        return false;
    }
    if (!wizard()->licenseAccepted())
        throw HException(QStringLiteral("License agreement not accepted"));
    return true;
}

bool InstallStandardInstallerApplication::leaveDestination()
{
    // The field may hold anything typed: nothing would mean the root folder,
    // and a relative folder would be recorded as such and meet another
    // folder when read later from elsewhere.
    const QString destination = expandMacros(QStringLiteral("$(DestDir)"));
    if (destination.trimmed().isEmpty()) {
        wizard()->question()->ask(expandMacros(QStringLiteral("$(Product) Setup")),
            expandMacros(QStringLiteral("Please enter the folder to install $(Product) in.")),
            InstallQuestion::Ok, InstallQuestion::Ok);
        return false;
    }
    macros().setPath(
        QStringLiteral("DestDir"), QDir::cleanPath(QDir::current().absoluteFilePath(destination)));
    if (!readRecord(recordPath()))
        return true;
    setMode(InstallMode::Upgrade);
    checkInstallation();
    // The installation found decides the way on; there is no going back to choose again.
    wizard()->addPageFlags(Page::StartUpgradePage, InstallWizardInterface::BackDisabled);
    showPage(Page::StartUpgradePage);
    return false;
}

void InstallStandardInstallerApplication::finish(int id)
{
    if (id == Page::CompletePage) {
        if (!wizard()->runClosingActions())
            qCWarning(lcInstaller) << "Cannot leave the closing commands";
        quit(mode() == InstallMode::Remove ? Removed : Succeeded);
    } else if (id == Page::FailedPage) {
        quit(Failed);
    }
}

void InstallStandardInstallerApplication::checkInstallation()
{
    if (wizard()) {
        wizard()->setProgressPhase(InstallWizardInterface::Checking);
        showPage(Page::ProgressPage);
        processEvents();
        wizard()->setProgressFollowsList(true);
    }
    const bool checked = list()->checkInstalled();
    if (wizard())
        wizard()->setProgressFollowsList(false);
    if (!checked)
        throw HException(QStringLiteral("Cannot check installation configuration"));
}

bool InstallStandardInstallerApplication::locateInstallation()
{
    // An upgrade reads the record under the destination; the maintenance
    // modes the one beside the running installer, which is where the
    // "uninstall" copy runs from. Started from elsewhere, the record under
    // the destination given on the command line is the installation meant.
    QString path = mode() == InstallMode::Upgrade
        ? recordPath()
        : QFileInfo(Places::executablePath()).absolutePath() + QStringLiteral("/IConf.xml");
    if (!QFileInfo::exists(path))
        path = recordPath();
    if (!QFileInfo::exists(path) && wizard()) {
        const QString folder
            = wizard()->chooseFolder(expandMacros(QStringLiteral("Please locate $(Product) folder.\n")),
                expandMacros(QStringLiteral("$(DestDir)")));
        if (folder.isEmpty())
            return false;
        macros().set(QStringLiteral("DestDir"), folder);
        path = recordPath();
    }
    // Maintaining an installation that cannot be read would report work
    // that was never done.
    const QString hint = wizard() ? QString() : QStringLiteral("; name its folder with --destination");
    if (!QFileInfo::exists(path)) {
        throw HException(
            QStringLiteral("Cannot find the $(Product) installation: no record at ") + path + hint);
    }
    QString failure;
    if (!readRecord(path, &failure))
        throw HException(
            QStringLiteral("Cannot use the installation record ") + path + QStringLiteral(": ") + failure);
    return true;
}
