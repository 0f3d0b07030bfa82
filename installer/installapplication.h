#pragma once

#include "core/installcheckpoint.h"
#include "core/installcommandline.h"
#include "core/installmode.h"
#include "installer/installstopsignals.h"
#include "plan/installmodesource.h"

#include <QList>
#include <QObject>
#include <QString>

#include <exception>
#include <functional>
#include <memory>

class InstallConfigurationList;
class InstallMedia;
class InstallQuestion;
class InstallWizardInterface;

// One installer run: the mode, the run flags, the result, the medium, the
// plan and the wizard. With a wizard the run is driven by its buttons (every
// Next comes here and the next page is decided from the mode and the page);
// without one the run is silent and goes straight to the operation, writing
// outcomes to standard output and errors to standard error.
//
// Owns the medium. Refers to the configuration list and the wizard, which the
// process entry creates before it and destroys after it. It is the checkpoint
// of the list's walks and the medium's copies: Cancel, SIGINT and SIGTERM
// take effect there. Derived classes supply the page sequence (nextPage), the
// start of the run and the record. User-interface thread only.
class InstallApplication : public QObject, public InstallModeSource, private InstallCheckpoint
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallApplication)

public:
    using Mode = InstallMode::Mode;

    enum RunFlag {
        Silent = InstallCommandLine::Silent,
        LicenceAccepted = InstallCommandLine::LicenceAccepted,
    };

    // What run() returns and the process entry turns into the exit status
    // (0 for Succeeded only, 3 for NoSpace).
    enum Result { Failed = 0, Succeeded = 1, Removed = 2, NoSpace = 3 };

    // The command line has been parsed; the medium is created here from it (a
    // package archive for "--data-file", else the folder "$(SrcDir)"), which
    // throws HException when the archive cannot be opened. A null wizard
    // makes a silent run.
    InstallApplication(const InstallCommandLine &commandLine, InstallConfigurationList *list,
        InstallWizardInterface *wizard, QObject *parent = nullptr);
    ~InstallApplication() override;

    Mode mode() const override { return m_mode; }
    void setMode(Mode mode);
    int runFlags() const { return m_runFlags; }
    // No window to answer to: outcomes and questions go to the console.
    bool isSilent() const { return !m_wizard; }
    int result() const { return m_result; }
    bool hasEnded() const { return m_ended; }

    InstallConfigurationList *list() const { return m_list; }
    InstallWizardInterface *wizard() const { return m_wizard; }
    InstallMedia *media() const { return m_media.get(); }
    const InstallCommandLine &commandLine() const { return m_commandLine; }
    // The ids of the pages shown so far, oldest first.
    const QList<int> &history() const { return m_history; }

    // Runs to the end and returns the result: with a wizard, start() and the
    // buttons until a page quits; silently, runSilent().
    int run();
    // Shows the first page of the mode (or ends the run at once).
    virtual void start() = 0;

    // The box "Installation Error", or "error: " + message on standard error.
    void reportInstallationError(const QString &message);
    // The complete page (17) with the mode's success title, or the outcome on
    // standard output.
    void showComplete(const QString &message);
    // The failed page (18) with the mode's failure title; silently the title
    // on standard output and "error: " + message on standard error.
    void showFailed(const QString &message);

public slots:
    void onNextClicked(int id);
    void onBackClicked(int id);
    void onCancelClicked(int id);
    void onHelpClicked(int id);
    void onAboutToShow(int id);

signals:
    void modeChanged(InstallMode::Mode mode);
    // The run is over; result() holds its outcome.
    void ended(int result);

protected:
    // What the operation walks do, in the order they run.
    // RepairDamaged installs again all but the list's intactFiles().
    enum Operation { Install, Upgrade, Modify, Repair, Remove, RepairDamaged };

    // The silent run from start to end; returns when it is over.
    virtual void runSilent() = 0;
    // Next pressed on the page with this id (after remapPage).
    virtual void nextPage(int id) = 0;
    // Lets a product see the (page, mode) pair before the sequence decides;
    // returns the page id to decide by.
    virtual int remapPage(int id, Mode mode);
    // Writes the record of the installation after an operation.
    virtual void writeRecord() = 0;

    // Shows the progress page for the phase, runs the walks of the operation
    // and shows the outcome. False when it failed or was cancelled. The record
    // is written afterwards, unless a removal succeeded (it took the record
    // with it). A shutdown request is passed on: InstallShutdownException,
    // thrown once the record is written, for the run routine to catch.
    bool perform(Operation operation);
    // Ends the run the shutdown request stopped: status Failed at once, the
    // reason on standard error (silently after the failure title), and no
    // page left waiting for a button that nobody may be there to press.
    void endOnShutdown();
    // Whether the file systems have room for what the operation writes, less
    // what it deletes first. When not: the question box, or the error and
    // the result NoSpace. A medium that cannot be read is left to the walk.
    bool hasSpaceFor(Operation operation);
    // The dry run: prints what the operation would do and returns the
    // result the run would start with.
    int showPlan(Operation operation);
    // Shows a page, or throws HException when the wizard has none under id.
    void showPage(int id);
    // A folder medium follows "$(SrcDir)" when a record has changed it; an
    // archive named on the command line stays.
    void followSourceFolder();
    // Lets the window paint before long work starts.
    void processEvents();
    // Ends the run with the result.
    void quit(int result);
    // A line on standard output, and in the log.
    void printLine(const QString &line);
    // Runs what an event handler (a button, a queued call) does. No exception
    // may cross the toolkit's event loop: running out of memory stops the
    // walk and ends the run here, and run() throws it again once the loop
    // has returned.
    void handleEvent(const std::function<void()> &handler);
    // A silent run that showed the agreement in the window goes on without
    // it: the window is hidden and forgotten, questions and outcomes go to
    // the console, and the licence counts as accepted when it was.
    void leaveWizard(bool licenceAccepted);

private:
    // Marks an operation as running for the length of a walk.
    class OperationScope
    {
    public:
        explicit OperationScope(InstallApplication *application);
        ~OperationScope();
        OperationScope(const OperationScope &) = delete;
        OperationScope &operator=(const OperationScope &) = delete;

    private:
        InstallApplication *m_application;
        InstallStopSignals m_stopSignals;
    };

    // SIGTERM ends the operation as a shutdown; Cancel and SIGINT as the
    // user's choice.
    void check() override;
    bool walk(Operation operation);

    InstallCommandLine m_commandLine;
    InstallConfigurationList *m_list;
    InstallWizardInterface *m_wizard;
    std::unique_ptr<InstallMedia> m_media;
    std::unique_ptr<InstallQuestion> m_consoleQuestion;
    // The window's question box, answers logged.
    std::unique_ptr<InstallQuestion> m_windowQuestion;
    Mode m_mode;
    int m_runFlags;
    int m_result = Failed;
    bool m_ended = false;
    bool m_operationRunning = false;
    // Cancel confirmed while a walk runs.
    bool m_cancelRequested = false;
    QString m_taskPrefix;
    QList<int> m_history;
    // What an event handler could not handle, for run() to pass on.
    std::exception_ptr m_escaped;
};
