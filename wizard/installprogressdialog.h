#pragma once

#include "wizard/installwizarddialog.h"

#include <QMetaObject>

class InstallConfigurationItem;
class InstallConfigurationList;
class QLabel;
class StudioProgressBar;

// The progress page: the item being worked on, its current task, its own bar
// and the bar of the whole operation. The configuration list announces every
// item; each report lets pending events run, so the window repaints and
// Cancel is heard while a long operation runs on this same thread.
class InstallProgressDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallProgressDialog)

public:
    enum Phase { Installing = 0, Removing = 1, Repairing = 3, Upgrading = 4, Checking = 5 };

    explicit InstallProgressDialog(InstallConfigurationList *list, QWidget *parent = nullptr);
    ~InstallProgressDialog() override;

    Phase phase() const { return m_phase; }
    int stepsDone() const { return m_stepsDone; }
    QString taskPrefix() const { return m_taskPrefix; }
    void setTaskPrefix(const QString &prefix) { m_taskPrefix = prefix; }

    QLabel *itemLine() const { return m_itemLine; }
    QLabel *taskLine() const { return m_taskLine; }
    QLabel *currentLabel() const { return m_currentLabel; }
    StudioProgressBar *currentBar() const { return m_currentBar; }
    StudioProgressBar *totalBar() const { return m_totalBar; }

    // Connects starting, finished and skipped of the list, or disconnects them.
    void followList(bool follow);

public slots:
    void starting(InstallConfigurationItem *item);
    void finished(InstallConfigurationItem *item);
    void skipped(int count);
    void setTaskTotalSteps(int steps);
    void setTaskProgress(int progress);
    void setTask(const QString &task);
    // Retitles the page, sets the total bar's length for the phase and
    // starts it from 0; the steps done start again too.
    void setPhase(InstallProgressDialog::Phase phase);

private:
    void disconnectItem();
    static void letEventsRun();

    InstallConfigurationList *m_list;
    Phase m_phase = Installing;
    int m_stepsDone = 0;
    QString m_taskPrefix;
    QLabel *m_itemLine;
    QLabel *m_taskLine;
    QLabel *m_currentLabel;
    StudioProgressBar *m_currentBar;
    StudioProgressBar *m_totalBar;
    QList<QMetaObject::Connection> m_itemConnections;
    QList<QMetaObject::Connection> m_listConnections;
};
