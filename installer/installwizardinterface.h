#pragma once

#include "core/installmode.h"

#include <QObject>
#include <QString>

class InstallQuestion;

// What the installer application sees of the wizard window. The application
// decides the page sequence; the wizard shows pages, reports button presses by
// page identifier and holds the pages' state (licence choice, selections,
// destination). The application never touches a widget: it drives the wizard
// only through this class, and the wizard library implements it.
//
// Page identifiers are fixed and shared with the application:
//   1 Welcome, 2 Welcome (upgrade), 3 Destination, 4 Program folder,
//   5 File associations, 6 Environment variables, 7 Additional components,
//   8 Installation type, 9 Custom setup, 10 Maintenance (not registered by the
//   standard wizard), 11-15 Start installation/removal/modify/repair/upgrade,
//   16 Progress, 17 Complete, 18 Failed, 19 Help, 20 Licence agreement.
//
// Modes are InstallMode::Mode; the application's own mode type should be that
// enumeration (or an alias of it) so that its modeChanged signal connects
// straight to installationModeChanged.
//
// User-interface thread only. The button signals are also emitted from inside
// progress reports while an operation runs (Cancel stays responsive); their
// handlers must not throw through the event loop, so a handler that decides to
// stop an operation records it and lets the operation stop at its next step.
class InstallWizardInterface : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallWizardInterface)

public:
    enum PageId {
        WelcomePage = 1,
        UpgradeWelcomePage = 2,
        DestinationPage = 3,
        ProgramFolderPage = 4,
        AssociateFilesPage = 5,
        EnvironmentPage = 6,
        OptionalPage = 7,
        ConfigurationPage = 8,
        CustomSetupPage = 9,
        MaintenancePage = 10,
        StartInstallationPage = 11,
        StartRemovalPage = 12,
        StartModifyPage = 13,
        StartRepairPage = 14,
        StartUpgradePage = 15,
        ProgressPage = 16,
        CompletePage = 17,
        FailedPage = 18,
        HelpPage = 19,
        LicensePage = 20,
    };

    // Flags of a page; other bits are kept but mean nothing to the wizard.
    enum PageFlag : quint32 { BackDisabled = 2, NextDisabled = 4, CancelDisabled = 8 };

    // Phases of the progress page, each with its own title and step count.
    enum ProgressPhase { Installing = 0, Removing = 1, Repairing = 3, Upgrading = 4, Checking = 5 };

    explicit InstallWizardInterface(QObject *parent = nullptr);
    ~InstallWizardInterface() override;

    // Shows the page (it emits aboutToShow first) and makes the window visible.
    // Throws HException "Attempted to show dialog NULL dialog" for an id that
    // has no page.
    virtual void showPage(int id) = 0;
    // The page now visible, -1 before the first show.
    virtual int currentPageId() const = 0;
    virtual bool hasPage(int id) const = 0;

    // The licence page's choice: true only for "I accept"; false when there
    // is no licence page.
    virtual bool licenseAccepted() const = 0;
    // Chooses "I accept" on the licence page (the "--accept-license" run flag).
    virtual void acceptLicense() = 0;

    // Adds PageFlag bits to a page (e.g. Back disabled on the start-upgrade
    // page reached through an existing installation); the buttons follow.
    virtual void addPageFlags(int id, quint32 flags) = 0;
    // Title and text of a text page or of the complete page (page 17) and the
    // failed page (18). Both may hold macros; they are expanded when shown.
    virtual void setPageText(int id, const QString &title, const QString &text) = 0;

    // Rows that a selection page (5, 6, 7) lists; 0 for any other page. The
    // sequence passes over a page that lists none.
    virtual int listedRows(int id) const = 0;

    // Progress page: the phase decides its title, its total step count (asked
    // of the configuration list now, so set the mode first) and whether the
    // current-item bar shows. The prefix goes in front of each item name.
    virtual void setProgressPhase(ProgressPhase phase) = 0;
    virtual void setProgressTaskPrefix(const QString &prefix) = 0;
    // While set, the progress page follows the configuration list's starting,
    // finished and skipped signals; set it for the length of a walk.
    virtual void setProgressFollowsList(bool follow) = 0;

    // The finished page's closing actions when Finish is pressed on page 17:
    // writes the chosen commands to "$(SrcDir)/.extract_commands.txt". False
    // when the file could not be written.
    virtual bool runClosingActions() = 0;

    // A modal folder chooser; an empty text when cancelled.
    virtual QString chooseFolder(const QString &caption, const QString &startFolder) = 0;
    // The box "Installation Error" with message + ".<p>Click OK to terminate
    // installation"; returns when the user has pressed OK.
    virtual void reportInstallationError(const QString &message) = 0;
    // The question box; owned by the wizard, valid as long as it is.
    virtual InstallQuestion *question() = 0;
    // Brings the window to the front (a second start of the installer).
    virtual void raiseWindow() = 0;
    // Takes the window off the screen (a silent run once the agreement has
    // been answered in it).
    virtual void hideWindow() = 0;

public slots:
    // Keeps the mode-dependent pages (configuration, maintenance, custom
    // setup, complete) in step; connect the application's modeChanged here.
    virtual void installationModeChanged(InstallMode::Mode mode) = 0;

signals:
    // A page's button, by the identifier of the page that was visible.
    void backClicked(int id);
    void nextClicked(int id);
    void cancelClicked(int id);
    // F1 in the window (the button row has no Help button).
    void helpClicked(int id);
    // Emitted by showPage before the page becomes visible; the application
    // keeps its history of shown pages from it.
    void aboutToShow(int id);
    // The configuration or maintenance page picked a mode; the application
    // sets it (and its modeChanged comes back to installationModeChanged).
    void modeChosen(InstallMode::Mode mode);
};
