#pragma once

#include "wizard/installwizarddialog.h"

class QLabel;

// A page that only says something: welcome, start, failed. The text may hold
// macros and is expanded each time the page is shown.
class InstallTextDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallTextDialog)

public:
    InstallTextDialog(const QString &title, const QString &text,
        const QString &nextLabel = QStringLiteral("&Next>"), quint32 flags = 0, QWidget *parent = nullptr);
    ~InstallTextDialog() override;

    QString text() const { return m_text; }
    void setText(const QString &text);
    // The label as shown, after expansion.
    QLabel *label() const { return m_label; }

protected:
    void prepareShow() override;

private:
    QString m_text;
    QLabel *m_label;
};
