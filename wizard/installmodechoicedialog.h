#pragma once

#include "core/installmode.h"
#include "wizard/installwizarddialog.h"

class QButtonGroup;
class QGridLayout;

// A page that picks the installation mode with radio buttons whose ids are
// modes. It shows the mode the application holds and reports a click as
// modeChosen; the application sets the mode, whose change comes back through
// installationModeChanged.
class InstallModeChoiceDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallModeChoiceDialog)

public:
    ~InstallModeChoiceDialog() override;

    QButtonGroup *choices() const { return m_choices; }

public slots:
    void installationModeChanged(InstallMode::Mode mode);

signals:
    void modeChosen(InstallMode::Mode mode);

protected:
    InstallModeChoiceDialog(const QString &groupTitle, QWidget *parent);

    // One row: the radio button and, beside it, what the choice does.
    void addChoice(InstallMode::Mode mode, const QString &label, const QString &description);

private:
    QButtonGroup *m_choices;
    QGridLayout *m_grid;
};
