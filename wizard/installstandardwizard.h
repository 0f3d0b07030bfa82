#pragma once

#include "installer/installwizardinterface.h"
#include "wizard/installfinisheddialog.h"
#include "wizard/installitemselectiondialog.h"

#include <QByteArray>
#include <QPointer>

#include <memory>

class ClassicInstallWizard;
class InstallCheckMessageBox;
class InstallConfigurationList;
class InstallWizardDialog;

// The wizard as the installer application drives it: the classic window with
// the standard pages filed under their fixed identifiers, button presses
// reported by page identifier, and the pages' state exposed without widgets.
// Owns the window and its pages; refers to the configuration list, which must
// outlive it. User-interface thread only.
class InstallStandardWizard : public InstallWizardInterface
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallStandardWizard)

public:
    struct Options
    {
        // The agreement as HTML; without one there is no licence page.
        QByteArray licenseDocument;
        // Release notes and the program offered on the complete page.
        InstallFinishedDialog::Settings finished;
        // Whether the installation type page is offered.
        bool configurationChoice = true;
        // Whether the maintenance page is filed under its id.
        bool maintenancePage = false;
        // Which items the three selection pages list. By default, items of
        // the file-association and environment kinds, and optional items
        // (levels 3 and 4) of neither kind as additional components.
        InstallItemSelectionDialog::Filter associations;
        InstallItemSelectionDialog::Filter environment;
        InstallItemSelectionDialog::Filter optional;
        // The mode the pages show before the first modeChanged.
        InstallMode::Mode mode = InstallMode::Typical;
    };

    InstallStandardWizard(InstallConfigurationList *list, const Options &options, QObject *parent = nullptr);
    ~InstallStandardWizard() override;

    void showPage(int id) override;
    int currentPageId() const override;
    bool hasPage(int id) const override;
    bool licenseAccepted() const override;
    void acceptLicense() override;
    void addPageFlags(int id, quint32 flags) override;
    void setPageText(int id, const QString &title, const QString &text) override;
    int listedRows(int id) const override;
    void setProgressPhase(ProgressPhase phase) override;
    void setProgressTaskPrefix(const QString &prefix) override;
    void setProgressFollowsList(bool follow) override;
    bool runClosingActions() override;
    QString chooseFolder(const QString &caption, const QString &startFolder) override;
    void reportInstallationError(const QString &message) override;
    InstallQuestion *question() override;
    void raiseWindow() override;
    void hideWindow() override;

    // The window itself, for the process entry and for tests.
    ClassicInstallWizard *window() const { return m_window.get(); }
    InstallWizardDialog *page(int id) const;

public slots:
    void installationModeChanged(InstallMode::Mode mode) override;

private:
    void addPage(InstallWizardDialog *page, int id);
    void addTextPage(
        int id, const QString &title, const QString &text, const QString &nextLabel, quint32 flags);
    template<typename Page> Page *pageAs(int id) const;

    std::unique_ptr<ClassicInstallWizard> m_window;
    QPointer<InstallCheckMessageBox> m_question;
    bool m_windowHidden = false;
};
