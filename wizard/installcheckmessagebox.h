#pragma once

#include "core/installquestion.h"

#include <QDialog>
#include <QList>

class QLabel;
class QPushButton;

// The installer's question box: an icon, the question and a row of buttons
// chosen by a bit set, laid out in the order of InstallQuestion::Button. It
// answers the plan's and the media's questions while the wizard is shown;
// locating a missing file opens the file locator.
class InstallCheckMessageBox : public QDialog, public InstallQuestion
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallCheckMessageBox)

public:
    explicit InstallCheckMessageBox(QWidget *parent = nullptr);
    ~InstallCheckMessageBox() override;

    // Modal; returns the bit of the button pressed. Closing the box (Escape,
    // the window's close button) is the most cautious answer offered: Cancel,
    // else No, else the default; never a Yes the user did not press.
    int ask(const QString &heading, const QString &text, int buttons, int defaultButton) override;
    QString locateFile(const QString &path) override;

    // The buttons of the question now shown, in their order.
    QList<QPushButton *> buttons() const { return m_buttons; }
    QLabel *textLabel() const { return m_text; }

    static QString buttonLabel(int button);

    void reject() override;

private:
    QLabel *m_text;
    QWidget *m_buttonRow;
    QList<QPushButton *> m_buttons;
    int m_closeAnswer = Ok;
};
