#include "wizard/installwizarddialog.h"

#include <QLayout>

InstallWizardDialog::InstallWizardDialog(QWidget *parent)
    : QWidget(parent)
    , m_backLabel(QStringLiteral("<&Back"))
    , m_nextLabel(QStringLiteral("&Next>"))
    , m_cancelLabel(QStringLiteral("&Cancel"))
    , m_helpLabel(QStringLiteral("&Help"))
{ }

InstallWizardDialog::~InstallWizardDialog() = default;

void InstallWizardDialog::setTitle(const QString &title)
{
    change(m_title, title);
}

void InstallWizardDialog::setDescription(const QString &description)
{
    change(m_description, description);
}

void InstallWizardDialog::setNextLabel(const QString &label)
{
    change(m_nextLabel, label);
}

void InstallWizardDialog::setFlags(quint32 flags)
{
    if (flags == m_flags)
        return;
    m_flags = flags;
    emit stateChanged(this);
}

void InstallWizardDialog::change(QString &field, const QString &value)
{
    if (field == value)
        return;
    field = value;
    emit stateChanged(this);
}

void InstallWizardDialog::announceShow()
{
    prepareShow();
    emit aboutToShow(this);
}

void InstallWizardDialog::prepareShow()
{ }

void InstallWizardDialog::applyBodySpacing(QLayout *layout)
{
    layout->setContentsMargins(16, 12, 16, 8);
    layout->setSpacing(8);
}
