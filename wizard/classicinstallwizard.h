#pragma once

#include "wizard/installwizard.h"

#include <QPixmap>

class QLabel;
class QPushButton;

// The installer's window: a white header with the page's title and
// description and the product's header image, the page stack, a rule and the
// Back/Next/Cancel row. Fixed in size and centred on the primary screen.
// Closing the window or pressing Escape counts as Cancel, so the application
// asks its question instead of the window vanishing; F1 counts as Help.
class ClassicInstallWizard : public InstallWizard
{
    Q_OBJECT
    Q_DISABLE_COPY(ClassicInstallWizard)

public:
    // Large enough for the header and the largest page at the installer's font.
    static constexpr int Width = 620;
    static constexpr int Height = 470;

    explicit ClassicInstallWizard(const QPixmap &headerImage = QPixmap(), QWidget *parent = nullptr);
    ~ClassicInstallWizard() override;

    QLabel *headerLabel() const { return m_headerLabel; }
    QPushButton *backButton() const { return m_backButton; }
    QPushButton *nextButton() const { return m_nextButton; }
    QPushButton *cancelButton() const { return m_cancelButton; }

    void reject() override;

public slots:
    void updateDialog() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void centreOnPrimaryScreen();

    QLabel *m_headerLabel;
    QPushButton *m_backButton;
    QPushButton *m_nextButton;
    QPushButton *m_cancelButton;
};
