#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "wizard/installprogressdialog.h"
#include "wizard/studioprogressbar.h"

#include "../plan/scriptedquestion.h"

#include <QLabel>
#include <QSignalSpy>
#include <QStyle>
#include <QTest>
#include <QTimer>

namespace {

// An item that reports steps and a task line while it installs.
class WorkingItem : public InstallConfigurationItem
{
public:
    WorkingItem(InstallConfigurationItem *parent, const QString &title, int level)
        : InstallConfigurationItem(parent, title, QString(), level, true, AllFlags)
    { }

    std::function<void()> during;

protected:
    void installAction() override
    {
        announceTotalSteps(8);
        emit progress(QStringLiteral("Copying ") + title());
        emit progress(4);
        if (during)
            during();
    }
};

struct Plan
{
    explicit Plan(int mode = InstallMode::Typical)
        : modeSource(mode)
        , list(QStringLiteral("Calvra"), QString(), 0, true)
        , core(&list, QStringLiteral("Core"), 0)
        , docs(&list, QStringLiteral("Docs"), 1)
        , extra(&list, QStringLiteral("Extra"), 3)
    {
        list.setModeSource(&modeSource);
    }

    FixedMode modeSource;
    InstallConfigurationList list;
    WorkingItem core;
    WorkingItem docs;
    WorkingItem extra;
};

} // namespace

class tst_InstallProgressDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { macros().setDefaults(); }
    void bar();
    void page();
    void phases_data();
    void phases();
    void itemLinesAndBars();
    void skippedAdvancesAtOnce();
    void reportsLetEventsRun_data();
    void reportsLetEventsRun();
    void followsListOnlyWhenAsked();
};

void tst_InstallProgressDialog::bar()
{
    StudioProgressBar bar;
    QCOMPARE(bar.totalSteps(), 100);
    QCOMPARE(bar.progress(), -1);
    QCOMPARE(bar.percentage(), -1);
    QCOMPARE(bar.frameStyle(), int(QFrame::NoFrame));
    QCOMPARE(bar.sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
    const int frame = bar.style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, &bar);
    QCOMPARE(bar.sizeHint(),
        QSize(7 * frame + 4 * bar.fontMetrics().horizontalAdvance(QLatin1Char('0')),
            bar.fontMetrics().height() + 8));
    bar.setTotalSteps(8);
    bar.setProgress(2);
    QCOMPARE(bar.percentage(), 25);
    bar.setProgress(9);
    QCOMPARE(bar.percentage(), 100);
    bar.setTotalSteps(0);
    QCOMPARE(bar.percentage(), 100);
    bar.reset();
    QCOMPARE(bar.progress(), -1);
    // Large byte counts must not overflow on the way to a percentage.
    bar.setTotalSteps(2000000000);
    bar.setProgress(1000000000);
    QCOMPARE(bar.percentage(), 50);
}

void tst_InstallProgressDialog::page()
{
    Plan plan;
    InstallProgressDialog dialog(&plan.list);
    QCOMPARE(dialog.title(), QStringLiteral("Installing"));
    QCOMPARE(dialog.backLabel(), QStringLiteral("<&Back"));
    QCOMPARE(dialog.nextLabel(), QStringLiteral("&Next>"));
    QCOMPARE(dialog.helpLabel(), QStringLiteral("&Help"));
    QCOMPARE(dialog.cancelLabel(), QStringLiteral("&Cancel"));
    QStringList labels;
    for (QLabel *label : dialog.findChildren<QLabel *>()) {
        if (!label->text().isEmpty())
            labels.append(label->text());
    }
    QCOMPARE(labels, QStringList({ "Current Progress", "Total Progress" }));
    QCOMPARE(dialog.findChildren<StudioProgressBar *>().size(), 2);
}

void tst_InstallProgressDialog::phases_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("phase");
    QTest::addColumn<QString>("title");
    QTest::addColumn<int>("steps");
    QTest::addColumn<bool>("currentShown");
    // Typical: the list, Core and Docs install; nothing is installed yet.
    QTest::newRow("installing") << int(InstallMode::Typical) << 0 << "Installing" << 3 << true;
    QTest::newRow("removing") << int(InstallMode::Remove) << 1 << "Removing" << 0 << true;
    QTest::newRow("repairing") << int(InstallMode::Repair) << 3 << "Repairing" << 3 << true;
    QTest::newRow("upgrading") << int(InstallMode::Upgrade) << 4 << "Upgrading" << 3 << true;
    QTest::newRow("checking") << int(InstallMode::Upgrade) << 5 << "Checking For Installed Components" << 3
                              << false;
}

void tst_InstallProgressDialog::phases()
{
    QFETCH(int, mode);
    QFETCH(int, phase);
    QFETCH(QString, title);
    QFETCH(int, steps);
    QFETCH(bool, currentShown);
    Plan plan(mode);
    InstallProgressDialog dialog(&plan.list);
    dialog.show();
    // Leave the page mid-way through something else first.
    dialog.setPhase(InstallProgressDialog::Checking);
    dialog.skipped(2);
    QSignalSpy changed(&dialog, &InstallWizardDialog::stateChanged);
    dialog.setPhase(InstallProgressDialog::Phase(phase));
    QCOMPARE(dialog.phase(), InstallProgressDialog::Phase(phase));
    QCOMPARE(dialog.title(), title);
    QVERIFY(changed.count() >= 1);
    QCOMPARE(dialog.totalBar()->totalSteps(), steps);
    QCOMPARE(dialog.totalBar()->progress(), 0);
    QCOMPARE(dialog.stepsDone(), 0);
    QCOMPARE(dialog.currentBar()->isVisible(), currentShown);
    QCOMPARE(dialog.currentLabel()->isVisible(), currentShown);
    // Every other phase shows the current bar again.
    dialog.setPhase(phase == InstallProgressDialog::Checking ? InstallProgressDialog::Installing
                                                             : InstallProgressDialog::Checking);
    QCOMPARE(dialog.currentBar()->isVisible(), !currentShown);
    QCOMPARE(dialog.currentLabel()->isVisible(), !currentShown);
}

void tst_InstallProgressDialog::itemLinesAndBars()
{
    Plan plan;
    InstallProgressDialog dialog(&plan.list);
    dialog.setTaskPrefix(QStringLiteral("Installing "));
    dialog.setPhase(InstallProgressDialog::Installing);
    dialog.followList(true);
    QStringList seen;
    plan.docs.during = [&] {
        seen << dialog.itemLine()->text() << dialog.taskLine()->text()
             << QString::number(dialog.currentBar()->totalSteps())
             << QString::number(dialog.currentBar()->progress())
             << QString::number(dialog.totalBar()->progress()) << QString::number(dialog.stepsDone());
    };
    QVERIFY(plan.list.install());
    QCOMPARE(seen, QStringList({ "Installing Docs", "Copying Docs", "8", "4", "2", "3" }));
    // After finished both lines stay empty and the current bar is back to not started.
    QVERIFY(dialog.itemLine()->text().isEmpty());
    QVERIFY(dialog.taskLine()->text().isEmpty());
    QCOMPARE(dialog.currentBar()->progress(), -1);
    QCOMPARE(dialog.totalBar()->progress(), 3);
    // A finished item no longer drives the bars.
    emit plan.core.progress(7);
    emit plan.core.progress(QStringLiteral("late"));
    QCOMPARE(dialog.currentBar()->progress(), -1);
    QVERIFY(dialog.taskLine()->text().isEmpty());
}

void tst_InstallProgressDialog::skippedAdvancesAtOnce()
{
    Plan plan;
    InstallProgressDialog dialog(&plan.list);
    dialog.setPhase(InstallProgressDialog::Installing);
    dialog.starting(&plan.core);
    dialog.finished(&plan.core);
    dialog.skipped(5);
    QCOMPARE(dialog.stepsDone(), 6);
    QCOMPARE(dialog.totalBar()->progress(), 6);
    dialog.skipped(1);
    QCOMPARE(dialog.totalBar()->progress(), 7);
}

void tst_InstallProgressDialog::reportsLetEventsRun_data()
{
    QTest::addColumn<int>("report");
    QTest::newRow("starting") << 0;
    QTest::newRow("finished") << 1;
    QTest::newRow("skipped") << 2;
    QTest::newRow("task progress") << 3;
    QTest::newRow("task") << 4;
    QTest::newRow("phase") << 5;
}

void tst_InstallProgressDialog::reportsLetEventsRun()
{
    QFETCH(int, report);
    Plan plan;
    InstallProgressDialog dialog(&plan.list);
    // Stands for a Cancel click waiting in the queue during a long copy.
    bool handled = false;
    QTimer::singleShot(0, this, [&] { handled = true; });
    switch (report) {
    case 0:
        dialog.starting(&plan.core);
        break;
    case 1:
        dialog.finished(&plan.core);
        break;
    case 2:
        dialog.skipped(1);
        break;
    case 3:
        dialog.setTaskProgress(1);
        break;
    case 4:
        dialog.setTask(QStringLiteral("x"));
        break;
    default:
        dialog.setPhase(InstallProgressDialog::Removing);
        break;
    }
    QVERIFY(handled);
}

void tst_InstallProgressDialog::followsListOnlyWhenAsked()
{
    Plan plan;
    InstallProgressDialog dialog(&plan.list);
    dialog.setPhase(InstallProgressDialog::Installing);
    QVERIFY(plan.list.install());
    QCOMPARE(dialog.stepsDone(), 0);
    dialog.followList(true);
    dialog.followList(true);
    plan.list.setInstalled(InstallConfigurationItem::notInstalled, true);
    QVERIFY(plan.list.install());
    // Following twice still counts each item once.
    QCOMPARE(dialog.stepsDone(), 3);
    dialog.followList(false);
    plan.list.setInstalled(InstallConfigurationItem::notInstalled, true);
    QVERIFY(plan.list.install());
    QCOMPARE(dialog.stepsDone(), 3);
}

QTEST_MAIN(tst_InstallProgressDialog)
#include "tst_installprogressdialog.moc"
