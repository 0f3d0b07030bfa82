#include "wizard/installlicenseagreementdialog.h"

#include <QButtonGroup>
#include <QLabel>
#include <QRadioButton>
#include <QTextBrowser>
#include <QVBoxLayout>

InstallLicenseAgreementDialog::InstallLicenseAgreementDialog(const QByteArray &document, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_agreement(new QTextBrowser)
    , m_choices(new QButtonGroup(this))
{
    setTitle(QStringLiteral("License Agreement"));
    setDescription(QStringLiteral("Please read the following License Agreement."));
    setFlags(NextDisabled);

    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    layout->addWidget(new QLabel(QStringLiteral("You must accept the License Agreement to continue.")));
    m_agreement->setHtml(QString::fromUtf8(document));
    m_agreement->setOpenLinks(false);
    layout->addWidget(m_agreement, 1);

    auto *accept = new QRadioButton(QStringLiteral("I &accept the Agreement"));
    auto *refuse = new QRadioButton(QStringLiteral("I &do not accept the Agreement"));
    m_choices->addButton(accept, Accepted);
    m_choices->addButton(refuse, NotAccepted);
    layout->addWidget(accept);
    layout->addWidget(refuse);
    connect(m_choices, &QButtonGroup::idClicked, this, &InstallLicenseAgreementDialog::onChoiceClicked);
}

InstallLicenseAgreementDialog::~InstallLicenseAgreementDialog() = default;

bool InstallLicenseAgreementDialog::isAccepted() const
{
    const int id = m_choices->checkedId();
    return id != -1 && id != NotAccepted;
}

void InstallLicenseAgreementDialog::choose(Choice choice)
{
    m_choices->button(choice)->setChecked(true);
    onChoiceClicked(choice);
}

void InstallLicenseAgreementDialog::onChoiceClicked(int)
{
    clearFlags(NextDisabled);
}
