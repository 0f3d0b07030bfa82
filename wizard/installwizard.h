#pragma once

#include <QDialog>
#include <QMap>

class InstallWizardDialog;
class QStackedWidget;

// The wizard window's page store: every page lives in one stack under an
// integer identifier and one is raised at a time. The wizard does not decide
// which page comes next; it forwards its buttons to the visible page, whose
// signals go to the installer application. A derived class supplies the window
// (the stack, the header, the buttons) and the update of header and buttons.
// Owns its pages. User-interface thread only.
class InstallWizard : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallWizard)

public:
    explicit InstallWizard(QWidget *parent = nullptr);
    ~InstallWizard() override;

    virtual InstallWizardDialog *currentPage() const;
    // Files the page under id and takes it over; -1 when there is no stack.
    virtual int addPage(InstallWizardDialog *page, int id);
    // -1 for a page that is not filed.
    virtual int pageId(const InstallWizardDialog *page) const;
    virtual InstallWizardDialog *findPage(int id) const;
    // Announces, raises and shows the page. Throws HException for a null page.
    virtual void showPage(InstallWizardDialog *page);
    virtual void showPage(int id);

public slots:
    // Brings the header and the buttons in line with the visible page.
    virtual void updateDialog() = 0;

    // The button row; each forwards to the visible page.
    void onBackClicked();
    void onNextClicked();
    void onCancelClicked();
    void onHelpClicked();

protected:
    // The derived window's stack; the wizard files its pages there.
    void setStack(QStackedWidget *stack) { m_stack = stack; }
    QStackedWidget *stack() const { return m_stack; }

private:
    QStackedWidget *m_stack = nullptr;
    QMap<int, InstallWizardDialog *> m_pages;
};
