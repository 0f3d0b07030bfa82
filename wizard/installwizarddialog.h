#pragma once

#include <QWidget>

class QLayout;

// The base of every wizard page: what the wizard shows in its header (title,
// description) and on its buttons (labels, enabled flags), and the signals by
// which a page reports its buttons. The wizard owns its pages and forwards the
// button row to the visible one. User-interface thread only.
class InstallWizardDialog : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallWizardDialog)

public:
    enum Flag : quint32 { BackDisabled = 2, NextDisabled = 4, CancelDisabled = 8 };

    explicit InstallWizardDialog(QWidget *parent = nullptr);
    ~InstallWizardDialog() override;

    QString title() const { return m_title; }
    QString description() const { return m_description; }
    QString backLabel() const { return m_backLabel; }
    QString nextLabel() const { return m_nextLabel; }
    QString cancelLabel() const { return m_cancelLabel; }
    QString helpLabel() const { return m_helpLabel; }
    quint32 flags() const { return m_flags; }

    // Each setter emits stateChanged when the value changes.
    void setTitle(const QString &title);
    void setDescription(const QString &description);
    void setNextLabel(const QString &label);
    void setFlags(quint32 flags);
    void addFlags(quint32 flags) { setFlags(m_flags | flags); }
    void clearFlags(quint32 flags) { setFlags(m_flags & ~flags); }

    // The wizard's buttons, forwarded to the visible page.
    void clickBack() { emit backClicked(this); }
    void clickNext() { emit nextClicked(this); }
    void clickCancel() { emit cancelClicked(this); }
    void clickHelp() { emit helpClicked(this); }
    // Called by the wizard just before the page is raised: the page brings
    // its macro-expanded texts up to date, then announces itself.
    void announceShow();

signals:
    void cancelClicked(InstallWizardDialog *page);
    void backClicked(InstallWizardDialog *page);
    void nextClicked(InstallWizardDialog *page);
    void helpClicked(InstallWizardDialog *page);
    void aboutToShow(InstallWizardDialog *page);
    void stateChanged(InstallWizardDialog *page);

protected:
    // Refreshes what the page shows from macros and the plan; called on every show.
    virtual void prepareShow();
    // The page body's layout, with the margins and spacing all pages share.
    static void applyBodySpacing(QLayout *layout);

private:
    void change(QString &field, const QString &value);

    QString m_title;
    QString m_description;
    QString m_backLabel;
    QString m_nextLabel;
    QString m_cancelLabel;
    QString m_helpLabel;
    quint32 m_flags = 0;
};
