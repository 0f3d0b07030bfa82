#include "wizard/installstandardwizard.h"

#include "plan/installconfigurationlist.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/installassociatefilesdialog.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installchoosedestinationdialog.h"
#include "wizard/installconfigurationdialog.h"
#include "wizard/installcustomsetupdialog.h"
#include "wizard/installenvironmentvariablesdialog.h"
#include "wizard/installfolderchooser.h"
#include "wizard/installhelpdialog.h"
#include "wizard/installlicenseagreementdialog.h"
#include "wizard/installmaintenancedialog.h"
#include "wizard/installoptionaldialog.h"
#include "wizard/installprogramfolderdialog.h"
#include "wizard/installprogressdialog.h"
#include "wizard/installtextdialog.h"
#include "wizard/wizardresources.h"

#include <QMessageBox>

namespace {

const char AssociationKind[] = "InstallFileAssociationConfigurationItem";
const char EnvironmentKind[] = "InstallSystemEnvironmentConfigurationItem";

InstallItemSelectionDialog::Filter kindFilter(const char *kind)
{
    return [kind](const InstallConfigurationItem *item) {
        return item->inherits(kind);
    };
}

bool isAdditionalComponent(const InstallConfigurationItem *item)
{
    return item->level() >= 3 && !item->inherits(AssociationKind) && !item->inherits(EnvironmentKind);
}

} // namespace

InstallStandardWizard::InstallStandardWizard(
    InstallConfigurationList *list, const Options &options, QObject *parent)
    : InstallWizardInterface(parent)
    , m_window(std::make_unique<ClassicInstallWizard>(WizardResources::headerImage()))
{
    const QString next = QStringLiteral("&Next>");
    addTextPage(WelcomePage, QStringLiteral("Welcome"),
        QStringLiteral("Welcome to the installer for $(Product).<p>The installer will allow you to install "
                       "$(Product). To continue, click Next."),
        next, BackDisabled);
    addTextPage(UpgradeWelcomePage, QStringLiteral("Welcome"),
        QStringLiteral("Welcome to the installer for $(Product).<p>The installer will upgrade your existing "
                       "installation of $(Product). To continue, click Next."),
        next, BackDisabled);
    addPage(new InstallChooseDestinationDialog, DestinationPage);
    addPage(new InstallProgramFolderDialog, ProgramFolderPage);
    addPage(new InstallAssociateFilesDialog(
                list, options.associations ? options.associations : kindFilter(AssociationKind)),
        AssociateFilesPage);
    addPage(new InstallEnvironmentVariablesDialog(
                list, options.environment ? options.environment : kindFilter(EnvironmentKind)),
        EnvironmentPage);
    addPage(new InstallOptionalDialog(list, options.optional ? options.optional : isAdditionalComponent),
        OptionalPage);
    if (options.configurationChoice) {
        auto *configuration = new InstallConfigurationDialog(options.mode);
        connect(
            configuration, &InstallModeChoiceDialog::modeChosen, this, &InstallWizardInterface::modeChosen);
        addPage(configuration, ConfigurationPage);
    }
    addPage(new InstallCustomSetupDialog(list), CustomSetupPage);
    if (options.maintenancePage) {
        auto *maintenance = new InstallMaintenanceDialog(options.mode);
        connect(maintenance, &InstallModeChoiceDialog::modeChosen, this, &InstallWizardInterface::modeChosen);
        addPage(maintenance, MaintenancePage);
    }
    addTextPage(StartInstallationPage, QStringLiteral("Start Installation"),
        QStringLiteral("To start installation of $(Product), click Install."), QStringLiteral("&Install"), 0);
    addTextPage(StartRemovalPage, QStringLiteral("Start Removal"),
        QStringLiteral("To start removal of $(Product), click Remove."), QStringLiteral("&Remove"),
        BackDisabled);
    addTextPage(StartModifyPage, QStringLiteral("Start Modify"),
        QStringLiteral("To start modification of $(Product) $(Version) installation, click Modify."),
        QStringLiteral("&Modify"), 0);
    addTextPage(StartRepairPage, QStringLiteral("Start Repair"),
        QStringLiteral("To start repair of $(Product) $(Version) installation, click Repair."),
        QStringLiteral("&Repair"), 0);
    addTextPage(StartUpgradePage, QStringLiteral("Start Upgrade"),
        QStringLiteral("To start upgrade of $(Product), click Upgrade."), QStringLiteral("&Upgrade"), 0);
    // While an operation runs only Cancel means anything.
    auto *progress = new InstallProgressDialog(list);
    progress->setFlags(BackDisabled | NextDisabled);
    addPage(progress, ProgressPage);
    // The run is over: there is nothing to go back to.
    auto *complete = new InstallFinishedDialog(options.finished, options.mode);
    complete->setFlags(BackDisabled);
    addPage(complete, CompletePage);
    addTextPage(FailedPage, QStringLiteral("Installation Failed"), QString(), QStringLiteral("&Finish"),
        BackDisabled | CancelDisabled);
    addPage(new InstallHelpDialog, HelpPage);
    if (!options.licenseDocument.isEmpty())
        addPage(new InstallLicenseAgreementDialog(options.licenseDocument), LicensePage);

    m_question = new InstallCheckMessageBox(m_window.get());
}

InstallStandardWizard::~InstallStandardWizard() = default;

void InstallStandardWizard::showPage(int id)
{
    m_window->showPage(id);
}

int InstallStandardWizard::currentPageId() const
{
    return m_window->pageId(m_window->currentPage());
}

bool InstallStandardWizard::hasPage(int id) const
{
    return m_window->findPage(id) != nullptr;
}

bool InstallStandardWizard::licenseAccepted() const
{
    const auto *license = pageAs<InstallLicenseAgreementDialog>(LicensePage);
    return license && license->isAccepted();
}

void InstallStandardWizard::acceptLicense()
{
    if (auto *license = pageAs<InstallLicenseAgreementDialog>(LicensePage))
        license->choose(InstallLicenseAgreementDialog::Accepted);
}

void InstallStandardWizard::addPageFlags(int id, quint32 flags)
{
    if (InstallWizardDialog *target = page(id))
        target->addFlags(flags);
}

void InstallStandardWizard::setPageText(int id, const QString &title, const QString &text)
{
    InstallWizardDialog *target = page(id);
    if (!target)
        return;
    target->setTitle(title);
    if (auto *textPage = qobject_cast<InstallTextDialog *>(target))
        textPage->setText(text);
    else if (auto *finished = qobject_cast<InstallFinishedDialog *>(target))
        finished->setText(text);
}

int InstallStandardWizard::listedRows(int id) const
{
    const auto *selection = pageAs<InstallItemSelectionDialog>(id);
    return selection ? selection->rowCount() : 0;
}

void InstallStandardWizard::setProgressPhase(ProgressPhase phase)
{
    pageAs<InstallProgressDialog>(ProgressPage)->setPhase(static_cast<InstallProgressDialog::Phase>(phase));
}

void InstallStandardWizard::setProgressTaskPrefix(const QString &prefix)
{
    pageAs<InstallProgressDialog>(ProgressPage)->setTaskPrefix(prefix);
}

void InstallStandardWizard::setProgressFollowsList(bool follow)
{
    pageAs<InstallProgressDialog>(ProgressPage)->followList(follow);
}

bool InstallStandardWizard::runClosingActions()
{
    return pageAs<InstallFinishedDialog>(CompletePage)->runClosingActions();
}

QString InstallStandardWizard::chooseFolder(const QString &caption, const QString &startFolder)
{
    return InstallFolderChooser::choose(m_window.get(), caption, startFolder);
}

void InstallStandardWizard::reportInstallationError(const QString &message)
{
    QMessageBox box(QMessageBox::Critical, QStringLiteral("Installation Error"),
        message + QStringLiteral(".<p>Click OK to terminate installation"), QMessageBox::NoButton,
        m_window.get());
    box.setObjectName(QStringLiteral("installation-error"));
    box.setTextFormat(Qt::RichText);
    box.addButton(QStringLiteral("&OK"), QMessageBox::AcceptRole);
    box.exec();
}

InstallQuestion *InstallStandardWizard::question()
{
    return m_question.data();
}

void InstallStandardWizard::raiseWindow()
{
    // Once put away, a second start must not bring the window back.
    if (m_windowHidden)
        return;
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void InstallStandardWizard::hideWindow()
{
    m_windowHidden = true;
    m_window->hide();
}

InstallWizardDialog *InstallStandardWizard::page(int id) const
{
    return m_window->findPage(id);
}

void InstallStandardWizard::installationModeChanged(InstallMode::Mode mode)
{
    if (auto *configuration = pageAs<InstallConfigurationDialog>(ConfigurationPage))
        configuration->installationModeChanged(mode);
    if (auto *maintenance = pageAs<InstallMaintenanceDialog>(MaintenancePage))
        maintenance->installationModeChanged(mode);
    pageAs<InstallCustomSetupDialog>(CustomSetupPage)->installationModeChanged(mode);
    pageAs<InstallFinishedDialog>(CompletePage)->installationModeChanged(mode);
}

void InstallStandardWizard::addPage(InstallWizardDialog *page, int id)
{
    m_window->addPage(page, id);
    connect(page, &InstallWizardDialog::backClicked, this,
        [this, page] { emit backClicked(m_window->pageId(page)); });
    connect(page, &InstallWizardDialog::nextClicked, this,
        [this, page] { emit nextClicked(m_window->pageId(page)); });
    connect(page, &InstallWizardDialog::cancelClicked, this,
        [this, page] { emit cancelClicked(m_window->pageId(page)); });
    connect(page, &InstallWizardDialog::helpClicked, this,
        [this, page] { emit helpClicked(m_window->pageId(page)); });
    connect(page, &InstallWizardDialog::aboutToShow, this,
        [this, page] { emit aboutToShow(m_window->pageId(page)); });
}

void InstallStandardWizard::addTextPage(
    int id, const QString &title, const QString &text, const QString &nextLabel, quint32 flags)
{
    addPage(new InstallTextDialog(title, text, nextLabel, flags), id);
}

template<typename Page> Page *InstallStandardWizard::pageAs(int id) const
{
    return qobject_cast<Page *>(page(id));
}
