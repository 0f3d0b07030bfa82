#pragma once

#include "wizard/installwizarddialog.h"

class QButtonGroup;
class QTextBrowser;

// The licence agreement: the product's agreement document and the choice to
// accept it or not. Either choice enables Next; the application then refuses
// to go on unless "I accept" was chosen, so a refusal ends as an error rather
// than as a page the user cannot leave.
class InstallLicenseAgreementDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallLicenseAgreementDialog)

public:
    enum Choice { NotAccepted = 0, Accepted = 1 };

    // document: the agreement as HTML.
    explicit InstallLicenseAgreementDialog(const QByteArray &document, QWidget *parent = nullptr);
    ~InstallLicenseAgreementDialog() override;

    bool isAccepted() const;
    // Makes the choice as a click on the radio button would.
    void choose(Choice choice);

    QButtonGroup *choices() const { return m_choices; }
    QTextBrowser *agreement() const { return m_agreement; }

private:
    void onChoiceClicked(int id);

    QTextBrowser *m_agreement;
    QButtonGroup *m_choices;
};
