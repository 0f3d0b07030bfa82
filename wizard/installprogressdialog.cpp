#include "wizard/installprogressdialog.h"

#include "plan/installconfigurationlist.h"
#include "wizard/studioprogressbar.h"

#include <QCoreApplication>
#include <QLabel>
#include <QVBoxLayout>

InstallProgressDialog::InstallProgressDialog(InstallConfigurationList *list, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_list(list)
    , m_itemLine(new QLabel)
    , m_taskLine(new QLabel)
    , m_currentLabel(new QLabel(QStringLiteral("Current Progress")))
    , m_currentBar(new StudioProgressBar)
    , m_totalBar(new StudioProgressBar)
{
    setTitle(QStringLiteral("Installing"));
    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    layout->setSpacing(4);
    layout->addStretch(1);
    // Long paths must not widen the fixed window.
    for (QLabel *line : { m_itemLine, m_taskLine }) {
        line->setTextFormat(Qt::PlainText);
        line->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        line->setMinimumHeight(line->fontMetrics().height());
        layout->addWidget(line);
    }
    layout->addSpacing(12);
    layout->addWidget(m_currentLabel);
    layout->addWidget(m_currentBar);
    layout->addSpacing(12);
    layout->addWidget(new QLabel(QStringLiteral("Total Progress")));
    layout->addWidget(m_totalBar);
    layout->addStretch(2);
}

InstallProgressDialog::~InstallProgressDialog() = default;

void InstallProgressDialog::followList(bool follow)
{
    for (const QMetaObject::Connection &connection : std::as_const(m_listConnections))
        disconnect(connection);
    m_listConnections.clear();
    if (!follow)
        return;
    m_listConnections = {
        connect(m_list, &InstallConfigurationList::starting, this, &InstallProgressDialog::starting),
        connect(m_list, &InstallConfigurationList::finished, this, &InstallProgressDialog::finished),
        connect(m_list, &InstallConfigurationList::skipped, this, &InstallProgressDialog::skipped),
    };
}

void InstallProgressDialog::starting(InstallConfigurationItem *item)
{
    ++m_stepsDone;
    m_itemLine->setText(m_taskPrefix + item->title());
    disconnectItem();
    m_itemConnections = {
        connect(item, &InstallConfigurationItem::totalSteps, this, &InstallProgressDialog::setTaskTotalSteps),
        connect(item, qOverload<int>(&InstallConfigurationItem::progress), this,
            &InstallProgressDialog::setTaskProgress),
        connect(item, qOverload<const QString &>(&InstallConfigurationItem::progress), this,
            &InstallProgressDialog::setTask),
    };
    letEventsRun();
}

void InstallProgressDialog::finished(InstallConfigurationItem *)
{
    disconnectItem();
    m_totalBar->setProgress(m_stepsDone);
    m_currentBar->reset();
    m_itemLine->clear();
    m_taskLine->clear();
    letEventsRun();
}

void InstallProgressDialog::skipped(int count)
{
    m_stepsDone += count;
    m_totalBar->setProgress(m_stepsDone);
    letEventsRun();
}

void InstallProgressDialog::setTaskTotalSteps(int steps)
{
    m_currentBar->setTotalSteps(steps);
}

void InstallProgressDialog::setTaskProgress(int progress)
{
    m_currentBar->setProgress(progress);
    letEventsRun();
}

void InstallProgressDialog::setTask(const QString &task)
{
    m_taskLine->setText(task);
    letEventsRun();
}

void InstallProgressDialog::setPhase(InstallProgressDialog::Phase phase)
{
    m_phase = phase;
    int steps = 0;
    switch (phase) {
    case Installing:
        setTitle(QStringLiteral("Installing"));
        steps = m_list->installationSteps();
        break;
    case Removing:
        setTitle(QStringLiteral("Removing"));
        steps = m_list->removalSteps();
        break;
    case Repairing:
        setTitle(QStringLiteral("Repairing"));
        steps = m_list->repairSteps();
        break;
    case Upgrading:
        setTitle(QStringLiteral("Upgrading"));
        steps = m_list->upgradeSteps();
        break;
    case Checking:
        setTitle(QStringLiteral("Checking For Installed Components"));
        steps = m_list->upgradeSteps();
        break;
    }
    m_currentLabel->setHidden(phase == Checking);
    m_currentBar->setHidden(phase == Checking);
    m_stepsDone = 0;
    m_totalBar->setTotalSteps(steps);
    m_totalBar->setProgress(0);
    // The wizard updates its header from stateChanged, which setTitle emits
    // only on a change; ask for it anyway so a repeated phase redraws too.
    emit stateChanged(this);
    letEventsRun();
}

void InstallProgressDialog::disconnectItem()
{
    for (const QMetaObject::Connection &connection : std::as_const(m_itemConnections))
        disconnect(connection);
    m_itemConnections.clear();
}

void InstallProgressDialog::letEventsRun()
{
    QCoreApplication::processEvents();
}
