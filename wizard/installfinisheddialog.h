#pragma once

#include "core/installmode.h"
#include "wizard/installwizarddialog.h"

class QCheckBox;
class QLabel;

// The complete page: the outcome of the run and, after an installation, the
// offer to show the release notes and to start the product. The chosen
// commands are not run here (the installer usually runs as root): they are
// left in "$(SrcDir)/.extract_commands.txt" for the program that started the
// installer, which runs them as the user once the installer has ended.
class InstallFinishedDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFinishedDialog)

public:
    struct Settings
    {
        // Document to open; may hold macros. Empty: no release notes box.
        QString releaseNotes;
        // Command to run; may hold macros. Empty: no run box.
        QString runProgram;
        // Label of the run box; may hold macros.
        QString runLabel;
    };

    explicit InstallFinishedDialog(
        const Settings &settings, InstallMode::Mode mode, QWidget *parent = nullptr);
    ~InstallFinishedDialog() override;

    QString text() const { return m_text; }
    void setText(const QString &text);

    // Null when the product has no such setting.
    QCheckBox *releaseNotesBox() const { return m_releaseNotesBox; }
    QCheckBox *runBox() const { return m_runBox; }

    // The lines the closing actions write, one per checked box on show.
    QStringList commands() const;
    // Writes commands() to the commands file, replacing it, never through a
    // symbolic link planted in its place. True when there was nothing to
    // write or the file was written.
    bool runClosingActions() const;

    static QString commandsFile();

public slots:
    void installationModeChanged(InstallMode::Mode mode);

protected:
    void prepareShow() override;

private:
    QCheckBox *addBox(const QString &label, bool checked);
    bool offersBoxes() const;

    Settings m_settings;
    InstallMode::Mode m_mode;
    QString m_text;
    QLabel *m_label;
    QCheckBox *m_releaseNotesBox = nullptr;
    QCheckBox *m_runBox = nullptr;
};
