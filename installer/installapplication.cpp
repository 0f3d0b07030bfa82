#include "installer/installapplication.h"

#include "core/hexception.h"
#include "core/installexception.h"
#include "core/installlog.h"
#include "core/installquestion.h"
#include "core/installshutdownexception.h"
#include "core/installsilentquestion.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "core/plaintext.h"
#include "installer/installconsolequestion.h"
#include "installer/installdeploymentplan.h"
#include "installer/installerlogging.h"
#include "installer/installmanifest.h"
#include "installer/installmodetexts.h"
#include "installer/installsettingsrecord.h"
#include "installer/installwizardinterface.h"
#include "media/filestoreinstallmedia.h"
#include "media/packagearchiveinstallmedia.h"
#include "plan/installconfigurationlist.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <cstdio>
#include <utility>

namespace {

std::unique_ptr<InstallMedia> createMedia(const InstallCommandLine &commandLine)
{
    if (commandLine.hasDataFile())
        return std::make_unique<PackageArchiveInstallMedia>(commandLine.dataFile(), commandLine.dataOffset());
    return std::make_unique<FileStoreInstallMedia>(expandMacros(QStringLiteral("$(SrcDir)")));
}

void writeTo(std::FILE *stream, const QString &text)
{
    InstallLog::write(text);
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

// The window's questions, each written to the log with the answer given.
class LoggedQuestion : public InstallQuestion
{
public:
    explicit LoggedQuestion(InstallQuestion *question)
        : m_question(question)
    { }

    int ask(const QString &heading, const QString &text, int buttons, int defaultButton) override
    {
        const int answer = m_question->ask(heading, text, buttons, defaultButton);
        InstallLog::write(plainLine(heading + QStringLiteral(": ") + text) + QStringLiteral(" -> ")
            + InstallSilentQuestion::buttonName(answer));
        return answer;
    }

    QString locateFile(const QString &path) override
    {
        const QString located = m_question->locateFile(path);
        InstallLog::write(QStringLiteral("Locate ") + path + QStringLiteral(" -> ") + located);
        return located;
    }

private:
    InstallQuestion *m_question;
};

} // namespace

InstallApplication::InstallApplication(const InstallCommandLine &commandLine, InstallConfigurationList *list,
    InstallWizardInterface *wizard, QObject *parent)
    : QObject(parent)
    , m_commandLine(commandLine)
    , m_list(list)
    , m_wizard(wizard)
    , m_media(createMedia(commandLine))
    , m_mode(commandLine.mode())
    , m_runFlags(commandLine.runFlags())
{
    m_list->setModeSource(this);
    m_list->setMedia(m_media.get());
    m_list->setCheckpoint(this);
    m_media->setCheckpoint(this);
    connect(this, &InstallApplication::modeChanged, m_list, &InstallConfigurationItem::checkWillInstall);
    // A silent run says what each walk step does.
    connect(m_list, &InstallConfigurationList::starting, this, [this](InstallConfigurationItem *item) {
        if (m_operationRunning && !m_wizard && item != m_list)
            printLine(m_taskPrefix + item->title());
    });

    if (m_wizard) {
        m_windowQuestion = std::make_unique<LoggedQuestion>(m_wizard->question());
        m_list->setQuestion(m_windowQuestion.get());
        connect(this, &InstallApplication::modeChanged, m_wizard,
            &InstallWizardInterface::installationModeChanged);
        connect(m_wizard, &InstallWizardInterface::nextClicked, this, &InstallApplication::onNextClicked);
        connect(m_wizard, &InstallWizardInterface::backClicked, this, &InstallApplication::onBackClicked);
        connect(m_wizard, &InstallWizardInterface::cancelClicked, this, &InstallApplication::onCancelClicked);
        connect(m_wizard, &InstallWizardInterface::helpClicked, this, &InstallApplication::onHelpClicked);
        connect(m_wizard, &InstallWizardInterface::aboutToShow, this, &InstallApplication::onAboutToShow);
        connect(m_wizard, &InstallWizardInterface::modeChosen, this, &InstallApplication::setMode);
        if (m_runFlags & LicenceAccepted)
            m_wizard->acceptLicense();
        m_wizard->installationModeChanged(m_mode);
    } else {
        m_consoleQuestion = std::make_unique<InstallConsoleQuestion>();
        m_list->setQuestion(m_consoleQuestion.get());
    }
    m_list->checkWillInstall();
}

InstallApplication::~InstallApplication()
{
    m_list->setMedia(nullptr);
    m_list->setCheckpoint(nullptr);
    m_list->setModeSource(nullptr);
    m_list->setQuestion(nullptr);
}

void InstallApplication::setMode(Mode mode)
{
    m_mode = mode;
    emit modeChanged(mode);
}

int InstallApplication::run()
{
    // A silent run with a window shows only the agreement there (start()).
    if (!m_wizard) {
        runSilent();
        m_ended = true;
        return m_result;
    }
    start();
    if (!m_ended) {
        QEventLoop loop;
        connect(this, &InstallApplication::ended, &loop, &QEventLoop::quit);
        loop.exec();
    }
    if (m_escaped)
        std::rethrow_exception(m_escaped);
    return m_result;
}

void InstallApplication::handleEvent(const std::function<void()> &handler)
{
    try {
        handler();
    } catch (const std::bad_alloc &) {
        m_escaped = std::current_exception();
        m_cancelRequested = true;
        quit(Failed);
    }
}

void InstallApplication::reportInstallationError(const QString &message)
{
    qCInfo(lcInstaller) << "Installation error:" << message;
    if (m_wizard) {
        InstallLog::write(QStringLiteral("error: ") + plainLine(message));
        m_wizard->reportInstallationError(expandMacros(message));
    } else
        writeTo(stderr, QStringLiteral("error: ") + plainLine(message) + QLatin1Char('\n'));
}

void InstallApplication::showComplete(const QString &message)
{
    const QString closing = m_mode == InstallMode::Remove
        ? QStringLiteral("<p>Click Finish to close the installer.")
        : QStringLiteral("<p>Click Finish to complete the installation.");
    if (m_wizard) {
        InstallLog::write(
            InstallModeTexts::of(m_mode).completeTitle + QLatin1Char('\n') + plainLines(message));
        m_wizard->setPageText(InstallWizardInterface::CompletePage,
            InstallModeTexts::of(m_mode).completeTitle, message + closing);
        showPage(InstallWizardInterface::CompletePage);
    } else {
        // Nothing to click: the outcome alone.
        std::fflush(stderr);
        writeTo(stdout,
            InstallModeTexts::of(m_mode).completeTitle + QLatin1Char('\n') + plainLines(message)
                + QLatin1Char('\n'));
    }
}

void InstallApplication::showFailed(const QString &message)
{
    if (m_wizard) {
        InstallLog::write(
            InstallModeTexts::of(m_mode).failedTitle + QStringLiteral("\nerror: ") + plainLine(message));
        m_wizard->setPageText(InstallWizardInterface::FailedPage, InstallModeTexts::of(m_mode).failedTitle,
            message + QStringLiteral("<p>Click Finish to terminate the installer."));
        showPage(InstallWizardInterface::FailedPage);
    } else {
        writeTo(stdout, InstallModeTexts::of(m_mode).failedTitle + QLatin1Char('\n'));
        reportInstallationError(message);
    }
}

void InstallApplication::onNextClicked(int id)
{
    handleEvent([&] {
        // Nothing may leave a button handler: it runs inside the event loop.
        try {
            nextPage(remapPage(id, m_mode));
        } catch (const HException &e) {
            showFailed(e.message());
        } catch (const InstallException &e) {
            showFailed(e.message());
        } catch (const InstallUserCancelException &) {
            showFailed(InstallModeTexts::of(m_mode).cancelled);
        } catch (const InstallShutdownException &) {
            endOnShutdown();
        }
    });
}

void InstallApplication::onBackClicked(int)
{
    handleEvent([&] {
        if (m_history.size() < 2)
            return;
        m_history.removeLast();
        const int previous = m_history.takeLast();
        try {
            showPage(previous);
        } catch (const HException &e) {
            showFailed(e.message());
        }
    });
}

void InstallApplication::onCancelClicked(int id)
{
    handleEvent([&] {
        if (!m_wizard)
            return;
        // Once the run is over Cancel closes the window, as Finish would.
        if (id == InstallWizardInterface::CompletePage) {
            quit(m_mode == InstallMode::Remove ? Removed : Succeeded);
            return;
        }
        if (id == InstallWizardInterface::FailedPage) {
            quit(Failed);
            return;
        }
        const bool running = id == InstallWizardInterface::ProgressPage;
        const QString question = running
            ? QStringLiteral(
                "<p>If you terminate the installation now, $(Product) may not work properly.<p>Are you "
                "sure you want to terminate the installation?<p>Click Yes to terminate installation or No "
                "to continue.")
            : QStringLiteral(
                "<p>Are you sure you want to terminate the installation?<p>Click Yes to terminate or No "
                "to continue.");
        const int answer = m_windowQuestion->ask(expandMacros(InstallModeTexts::of(m_mode).cancelTitle),
            expandMacros(InstallModeTexts::of(m_mode).cancelLead + question),
            InstallQuestion::Yes | InstallQuestion::No, InstallQuestion::Yes);
        if (answer != InstallQuestion::Yes)
            return;
        if (running && m_operationRunning) {
            // The walk is below us on the stack: it stops at its next step and
            // the run ends on the failed page, with what was done recorded.
            m_cancelRequested = true;
            return;
        }
        quit(Failed);
    });
}

void InstallApplication::onHelpClicked(int id)
{
    handleEvent([&] {
        // Help is already up, or an operation owns the window until it ends.
        if (id == InstallWizardInterface::HelpPage || m_operationRunning)
            return;
        try {
            showPage(InstallWizardInterface::HelpPage);
        } catch (const HException &e) {
            showFailed(e.message());
        }
    });
}

void InstallApplication::onAboutToShow(int id)
{
    m_history.append(id);
}

int InstallApplication::remapPage(int id, Mode)
{
    return id;
}

bool InstallApplication::perform(Operation operation)
{
    static const InstallWizardInterface::ProgressPhase phases[]
        = { InstallWizardInterface::Installing, InstallWizardInterface::Upgrading,
              InstallWizardInterface::Installing, InstallWizardInterface::Repairing,
              InstallWizardInterface::Removing, InstallWizardInterface::Repairing };
    if (!hasSpaceFor(operation))
        return false;
    if (m_wizard) {
        m_wizard->setProgressPhase(phases[operation]);
        showPage(InstallWizardInterface::ProgressPage);
        processEvents();
    }

    bool succeeded = false;
    bool stopped = false;
    QString failure;
    m_media->setInProgressPath(expandMacros(QStringLiteral("$(InstallerDir)/files-in-progress")));
    {
        const OperationScope scope(this);
        try {
            succeeded = walk(operation);
        } catch (const InstallShutdownException &) {
            stopped = true;
        } catch (const InstallUserCancelException &e) {
            // Silently nobody chose to stop: the failure that stopped the run is the news.
            failure = (m_runFlags & Silent) && !e.failure().isEmpty()
                ? e.failure()
                : InstallModeTexts::of(m_mode).cancelled;
        } catch (const InstallException &e) {
            failure = e.message();
        } catch (const HException &e) {
            failure = e.message();
        }
    }
    if (stopped) {
        // What was done so far is recorded, so that a later run can undo it.
        writeRecord();
        throw InstallShutdownException();
    }
    // Every file this run made is complete only when nothing failed.
    if (succeeded && failure.isEmpty())
        m_media->finishInProgress();
    if (!failure.isEmpty()) {
        showFailed(failure);
    } else if (succeeded) {
        if (operation == RepairDamaged)
            printLine(QStringLiteral("%1 files repaired").arg(m_list->rewritten()));
        showComplete(InstallModeTexts::of(m_mode).success);
    } else {
        showFailed(InstallModeTexts::of(m_mode).failure);
    }
    if (!(succeeded && failure.isEmpty() && operation == Remove))
        writeRecord();
    return succeeded && failure.isEmpty();
}

bool InstallApplication::hasSpaceFor(Operation operation)
{
    if (operation == Remove)
        return true;
    QString shortage;
    try {
        shortage = InstallDeploymentPlan(m_list, operation != Install, operation != Remove).spaceShortage();
    } catch (const InstallException &) {
        return true;
    }
    if (shortage.isEmpty())
        return true;
    if (m_wizard) {
        m_wizard->question()->ask(expandMacros(QStringLiteral("$(Product) $(Version) Setup")), shortage,
            InstallQuestion::Ok, InstallQuestion::Ok);
    } else {
        reportInstallationError(shortage);
        quit(NoSpace);
    }
    return false;
}

int InstallApplication::showPlan(Operation operation)
{
    static const char *const names[] = { "install", "upgrade", "modify", "repair", "remove", "repair" };
    const QString mode = QLatin1String(names[operation]);
    const QString destination = expandMacros(QStringLiteral("$(DestDir)"));
    InstallDeploymentPlan plan(m_list, operation != Install, operation != Remove);
    if (operation != Install)
        plan.compareFiles(
            destination, { InstallSettingsRecord::defaultPath(), InstallManifest::defaultPath() });
    writeTo(stdout,
        m_commandLine.dryRun() == InstallCommandLine::DryRunJson
            ? QString::fromUtf8(plan.json(mode, destination))
            : plan.text(mode, destination));
    const QString shortage = plan.spaceShortage();
    if (shortage.isEmpty())
        return Succeeded;
    reportInstallationError(shortage);
    return NoSpace;
}

InstallApplication::OperationScope::OperationScope(InstallApplication *application)
    : m_application(application)
{
    m_application->m_operationRunning = true;
    m_application->m_cancelRequested = false;
    if (m_application->m_wizard)
        m_application->m_wizard->setProgressFollowsList(true);
}

InstallApplication::OperationScope::~OperationScope()
{
    m_application->m_operationRunning = false;
    m_application->m_taskPrefix.clear();
    if (m_application->m_wizard)
        m_application->m_wizard->setProgressFollowsList(false);
}

bool InstallApplication::walk(Operation operation)
{
    const QString installing = QStringLiteral("Installing ");
    const QString removing = QStringLiteral("Removing ");
    auto setPrefix = [this](const QString &prefix) {
        m_taskPrefix = prefix;
        if (m_wizard)
            m_wizard->setProgressTaskPrefix(prefix);
    };
    auto removeThenInstall = [&](bool installOnlyAfterRemoval) {
        setPrefix(removing);
        const bool removed = m_list->uninstall();
        if (!removed && installOnlyAfterRemoval)
            return false;
        setPrefix(installing);
        return m_list->install() && removed;
    };

    switch (operation) {
    case Install:
    case RepairDamaged:
        setPrefix(installing);
        return m_list->install();
    case Remove:
        setPrefix(removing);
        return m_list->uninstall();
    case Upgrade:
    case Modify:
        return removeThenInstall(false);
    case Repair:
        return removeThenInstall(true);
    }
    return false;
}

void InstallApplication::showPage(int id)
{
    if (!m_wizard->hasPage(id))
        throw HException(QStringLiteral("Attempted to show dialog NULL dialog"));
    m_wizard->showPage(id);
}

void InstallApplication::followSourceFolder()
{
    if (m_commandLine.hasDataFile())
        return;
    m_media = std::make_unique<FileStoreInstallMedia>(expandMacros(QStringLiteral("$(SrcDir)")));
    m_media->setCheckpoint(this);
    m_list->setMedia(m_media.get());
}

void InstallApplication::processEvents()
{
    QCoreApplication::processEvents();
}

void InstallApplication::quit(int result)
{
    m_result = result;
    if (m_ended)
        return;
    m_ended = true;
    emit ended(result);
}

void InstallApplication::leaveWizard(bool licenceAccepted)
{
    if (!m_wizard)
        return;
    disconnect(m_wizard, nullptr, this, nullptr);
    disconnect(this, nullptr, m_wizard, nullptr);
    m_wizard->hideWindow();
    m_wizard = nullptr;
    m_consoleQuestion = std::make_unique<InstallConsoleQuestion>();
    m_list->setQuestion(m_consoleQuestion.get());
    if (licenceAccepted)
        m_runFlags |= LicenceAccepted;
}

void InstallApplication::check()
{
    if (!m_operationRunning)
        return;
    const InstallStopSignals::Request request = InstallStopSignals::request();
    if (request == InstallStopSignals::Terminate)
        throw InstallShutdownException();
    // Cancel in the window or Ctrl-C at the terminal: the run ends as the
    // user chose, with what was done so far recorded.
    if (std::exchange(m_cancelRequested, false) || request == InstallStopSignals::Interrupt)
        throw InstallUserCancelException();
}

void InstallApplication::endOnShutdown()
{
    const QString message = QStringLiteral("Setup has been stopped by a termination signal.");
    if (m_wizard)
        writeTo(stderr, QStringLiteral("error: ") + message + QLatin1Char('\n'));
    else
        showFailed(message);
    quit(Failed);
}

void InstallApplication::printLine(const QString &line)
{
    writeTo(stdout, line + QLatin1Char('\n'));
}
