#include "wizard/installwizard.h"

#include "core/hexception.h"
#include "wizard/installwizarddialog.h"

#include <QStackedWidget>

InstallWizard::InstallWizard(QWidget *parent)
    : QDialog(parent)
{ }

InstallWizard::~InstallWizard() = default;

InstallWizardDialog *InstallWizard::currentPage() const
{
    return m_stack ? qobject_cast<InstallWizardDialog *>(m_stack->currentWidget()) : nullptr;
}

int InstallWizard::addPage(InstallWizardDialog *page, int id)
{
    if (!m_stack)
        return -1;
    connect(page, &InstallWizardDialog::stateChanged, this, &InstallWizard::updateDialog);
    if (InstallWizardDialog *previous = m_pages.value(id)) {
        m_stack->removeWidget(previous);
        delete previous;
    }
    m_pages.insert(id, page);
    m_stack->addWidget(page);
    return id;
}

int InstallWizard::pageId(const InstallWizardDialog *page) const
{
    for (auto it = m_pages.cbegin(); it != m_pages.cend(); ++it) {
        if (it.value() == page)
            return it.key();
    }
    return -1;
}

InstallWizardDialog *InstallWizard::findPage(int id) const
{
    return m_pages.value(id);
}

void InstallWizard::showPage(InstallWizardDialog *page)
{
    if (!page)
        throw HException(QStringLiteral("Attempted to show dialog NULL dialog"));
    page->announceShow();
    m_stack->setCurrentWidget(page);
    updateDialog();
    show();
}

void InstallWizard::showPage(int id)
{
    showPage(findPage(id));
}

void InstallWizard::onBackClicked()
{
    if (InstallWizardDialog *page = currentPage())
        page->clickBack();
}

void InstallWizard::onNextClicked()
{
    if (InstallWizardDialog *page = currentPage())
        page->clickNext();
}

void InstallWizard::onCancelClicked()
{
    if (InstallWizardDialog *page = currentPage())
        page->clickCancel();
}

void InstallWizard::onHelpClicked()
{
    if (InstallWizardDialog *page = currentPage())
        page->clickHelp();
}
