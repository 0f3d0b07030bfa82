#include "core/installexception.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"

#include "scriptedquestion.h"

#include <QSignalSpy>
#include <QTest>

namespace {

// An item whose actions write to a shared log and fail on request.
class RecordingItem : public InstallConfigurationItem
{
public:
    RecordingItem(InstallConfigurationItem *parent, const QString &title, int level, QStringList *log,
        quint32 flags = AllFlags, bool visible = true)
        : InstallConfigurationItem(parent, title, QString(), level, visible, flags)
        , m_log(log)
    { }

    QString installFailure;
    QString uninstallFailure;
    QString checkFailure;
    InstalledState found = notInstalled;

protected:
    void installAction() override { act(QStringLiteral("install "), installFailure); }
    void uninstallAction() override { act(QStringLiteral("uninstall "), uninstallFailure); }
    void checkInstalledAction() override
    {
        act(QStringLiteral("check "), checkFailure);
        setInstalled(found);
    }

private:
    void act(const QString &what, const QString &failure)
    {
        m_log->append(what + title());
        if (!failure.isEmpty())
            throw InstallException(failure);
    }

    QStringList *m_log;
};

// The list of the walk tests: A with A1 and A2, then B with B1.
struct Tree
{
    explicit Tree(int mode)
        : modeSource(mode)
        , list(QStringLiteral("L"), QString(), 0, true)
        , a(&list, QStringLiteral("A"), 0, &log)
        , a1(&a, QStringLiteral("A1"), 0, &log)
        , a2(&a, QStringLiteral("A2"), 0, &log)
        , b(&list, QStringLiteral("B"), 0, &log)
        , b1(&b, QStringLiteral("B1"), 0, &log)
    {
        list.setModeSource(&modeSource);
        list.setQuestion(&question);
        QObject::connect(
            &list, &InstallConfigurationList::starting, &list, [this](InstallConfigurationItem *item) {
                announced.append(QStringLiteral("starting ") + item->title());
            });
        QObject::connect(
            &list, &InstallConfigurationList::finished, &list, [this](InstallConfigurationItem *item) {
                announced.append(QStringLiteral("finished ") + item->title());
            });
    }

    FixedMode modeSource;
    ScriptedQuestion question;
    QStringList log;
    QStringList announced;
    InstallConfigurationList list;
    RecordingItem a, a1, a2, b, b1;
};

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(','), Qt::SkipEmptyParts);
}

} // namespace

class tst_InstallConfigurationItem : public QObject
{
    Q_OBJECT

private slots:
    void willInstall_data();
    void willInstall();
    void parentRule_data();
    void parentRule();
    void willUninstall_data();
    void willUninstall();
    void initialSelection();
    void setInstallSelectsRequiredChildren();
    void setInstallRecursive();
    void willInstallChangedOnlyOnChange();
    void installWalk();
    void installSkipsInstalledButWalksChildren();
    void installFailure_data();
    void installFailure();
    void uninstallWalk();
    void uninstallFailure_data();
    void uninstallFailure();
    void checkWalk();
    void checkFailureSkips();
    void stepCounts();
    void visitingWalk();
    void matchAndItemCount();
    void properties();
    void texts();
    void titlesExpandedOnce();
    void childDeletedBeforeParent();
};

// Which levels install when selected, per mode: -1 is "no application",
// 8 a value beyond the known modes.
void tst_InstallConfigurationItem::willInstall_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("selected");
    QTest::addColumn<bool>("expected");

    const struct
    {
        int mode;
        const char *name;
        QList<int> installing;
    } modes[] = {
        { -1, "no application", { 3, 4 } },
        { InstallMode::Minimal, "Minimal", { 0, 3, 4 } },
        { InstallMode::Typical, "Typical", { 0, 1, 3, 4 } },
        { InstallMode::Full, "Full", { 0, 1, 2, 3, 4 } },
        { InstallMode::Custom, "Custom", { 0, 1, 2, 3, 4 } },
        { InstallMode::Modify, "Modify", { 0, 1, 2, 3, 4 } },
        { InstallMode::Repair, "Repair", { 0, 1, 2, 3, 4 } },
        { InstallMode::Remove, "Remove", { 3, 4 } },
        { InstallMode::Upgrade, "Upgrade", { 0, 1, 2, 3, 4 } },
        { 8, "beyond Upgrade", { 3, 4 } },
    };
    for (const auto &mode : modes) {
        for (int level = 0; level <= 4; ++level) {
            for (bool selected : { true, false }) {
                QTest::addRow("%s level %d %s", mode.name, level, selected ? "selected" : "deselected")
                    << mode.mode << level << selected << (selected && mode.installing.contains(level));
            }
        }
    }
}

void tst_InstallConfigurationItem::willInstall()
{
    QFETCH(int, mode);
    QFETCH(int, level);
    QFETCH(bool, selected);
    QFETCH(bool, expected);

    FixedMode source(mode);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    if (mode >= 0)
        list.setModeSource(&source);
    QStringList log;
    RecordingItem item(&list, QStringLiteral("item"), level, &log);
    item.setInstall(selected);
    QCOMPARE(item.installFlag(), selected);
    QCOMPARE(item.willInstall(), expected);
    QCOMPARE(item.property("install").toBool(), expected);

    RecordingItem disabled(&list, QStringLiteral("disabled"), level, &log, 0xffffffff & ~0x10000u);
    disabled.setInstall(selected);
    QVERIFY(!disabled.willInstall());
}

void tst_InstallConfigurationItem::parentRule_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("parentLevel");
    QTest::addColumn<bool>("parentSelected");
    QTest::addColumn<int>("childLevel");
    QTest::addColumn<bool>("expected");

    QTest::newRow("deselected optional parent") << int(InstallMode::Custom) << 3 << false << 0 << false;
    QTest::newRow("selected optional parent") << int(InstallMode::Custom) << 3 << true << 0 << true;
    QTest::newRow("Minimal, parent of level 1") << int(InstallMode::Minimal) << 1 << true << 0 << false;
    QTest::newRow("Typical, parent of level 1") << int(InstallMode::Typical) << 1 << true << 0 << true;
    QTest::newRow("deselected required parent, optional child")
        << int(InstallMode::Custom) << 0 << false << 3 << false;
    QTest::newRow("Remove, optional under a required group")
        << int(InstallMode::Remove) << 0 << true << 3 << false;
    QTest::newRow("Remove, optional under an optional group")
        << int(InstallMode::Remove) << 3 << true << 4 << true;
    QTest::newRow("Remove, required under an optional group")
        << int(InstallMode::Remove) << 3 << true << 0 << false;
    QTest::newRow("Remove, optional under a deselected optional group")
        << int(InstallMode::Remove) << 3 << false << 4 << false;
}

void tst_InstallConfigurationItem::parentRule()
{
    QFETCH(int, mode);
    QFETCH(int, parentLevel);
    QFETCH(bool, parentSelected);
    QFETCH(int, childLevel);
    QFETCH(bool, expected);

    FixedMode source(mode);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&source);
    QStringList log;
    RecordingItem parent(&list, QStringLiteral("parent"), parentLevel, &log);
    RecordingItem child(&parent, QStringLiteral("child"), childLevel, &log);
    child.setInstall(true);
    parent.setInstall(parentSelected);
    QCOMPARE(child.willInstall(), expected);
}

void tst_InstallConfigurationItem::willUninstall_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("selected");
    QTest::addColumn<bool>("uninstallFlag");
    QTest::addColumn<bool>("expected");

    QTest::newRow("Repair, selected") << int(InstallMode::Repair) << true << true << true;
    QTest::newRow("Upgrade, selected") << int(InstallMode::Upgrade) << true << true << true;
    QTest::newRow("Repair, not removable") << int(InstallMode::Repair) << true << false << false;
    QTest::newRow("Modify, still selected") << int(InstallMode::Modify) << true << true << false;
    QTest::newRow("Modify, deselected") << int(InstallMode::Modify) << false << true << true;
    QTest::newRow("Remove") << int(InstallMode::Remove) << true << true << true;
    QTest::newRow("Remove, not removable") << int(InstallMode::Remove) << true << false << false;
    QTest::newRow("Typical, selected") << int(InstallMode::Typical) << true << true << false;
}

void tst_InstallConfigurationItem::willUninstall()
{
    QFETCH(int, mode);
    QFETCH(bool, selected);
    QFETCH(bool, uninstallFlag);
    QFETCH(bool, expected);

    FixedMode source(mode);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&source);
    QStringList log;
    RecordingItem item(&list, QStringLiteral("item"), 1, &log);
    item.setInstall(selected);
    item.setUninstall(uninstallFlag);
    QCOMPARE(item.willUninstall(), expected);
}

void tst_InstallConfigurationItem::initialSelection()
{
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    QStringList log;
    QList<bool> selected;
    for (int level = 0; level <= 4; ++level)
        selected.append(RecordingItem(&list, QStringLiteral("x"), level, &log).installFlag());
    QCOMPARE(selected, (QList<bool> { true, true, false, false, false }));
}

void tst_InstallConfigurationItem::setInstallSelectsRequiredChildren()
{
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    QStringList log;
    RecordingItem parent(&list, QStringLiteral("parent"), 3, &log);
    QList<RecordingItem *> children;
    for (int level = 0; level <= 4; ++level) {
        children.append(new RecordingItem(&parent, QStringLiteral("child"), level, &log));
        children.last()->setInstall(false);
    }
    RecordingItem grandchild(children.first(), QStringLiteral("grandchild"), 0, &log);
    grandchild.setInstall(false);

    parent.setInstall(true);
    QList<bool> selected;
    for (RecordingItem *child : children)
        selected.append(child->installFlag());
    QCOMPARE(selected, (QList<bool> { true, true, false, false, false }));
    // Not recursive: the child's own required children follow only its change.
    QVERIFY(grandchild.installFlag());

    // Deselecting leaves the children's flags alone.
    parent.setInstall(false);
    QVERIFY(children.first()->installFlag());
}

void tst_InstallConfigurationItem::setInstallRecursive()
{
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    QStringList log;
    RecordingItem parent(&list, QStringLiteral("parent"), 0, &log);
    RecordingItem optional(&parent, QStringLiteral("optional"), 4, &log);
    RecordingItem deep(&optional, QStringLiteral("deep"), 3, &log);
    parent.setInstall(true, true);
    QVERIFY(optional.installFlag());
    QVERIFY(deep.installFlag());
    parent.setInstall(false, true);
    QVERIFY(!parent.installFlag());
    QVERIFY(!optional.installFlag());
    QVERIFY(!deep.installFlag());
}

void tst_InstallConfigurationItem::willInstallChangedOnlyOnChange()
{
    FixedMode source(InstallMode::Custom);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&source);
    QStringList log;
    RecordingItem parent(&list, QStringLiteral("parent"), 3, &log);
    RecordingItem child(&parent, QStringLiteral("child"), 0, &log);
    QSignalSpy parentSpy(&parent, &InstallConfigurationItem::willInstallChanged);
    QSignalSpy childSpy(&child, &InstallConfigurationItem::willInstallChanged);

    list.checkWillInstall();
    QCOMPARE(parentSpy.count(), 1);
    QCOMPARE(parentSpy.takeFirst().at(0).toInt(), 0);
    QCOMPARE(childSpy.count(), 1);
    QCOMPARE(childSpy.takeFirst().at(0).toInt(), 0);

    list.checkWillInstall();
    QCOMPARE(parentSpy.count(), 0);
    QCOMPARE(childSpy.count(), 0);

    parent.setInstall(true);
    QCOMPARE(parentSpy.count(), 1);
    QCOMPARE(parentSpy.takeFirst().at(0).toInt(), 1);
    QCOMPARE(childSpy.count(), 1);
    QCOMPARE(childSpy.takeFirst().at(0).toInt(), 1);

    // A mode change is announced by the application calling checkWillInstall:
    // the optional parent keeps its value, the required child loses it.
    source.value = InstallMode::Remove;
    list.checkWillInstall();
    QCOMPARE(parentSpy.count(), 0);
    QCOMPARE(childSpy.count(), 1);
    QCOMPARE(childSpy.takeFirst().at(0).toInt(), 0);
}

void tst_InstallConfigurationItem::installWalk()
{
    Tree tree(InstallMode::Typical);
    QVERIFY(tree.list.install());
    QCOMPARE(tree.log, words("install A,install A1,install A2,install B,install B1"));
    QCOMPARE(tree.announced,
        words("starting L,finished L,starting A,finished A,starting A1,finished A1,starting A2,finished A2,"
              "starting B,finished B,starting B1,finished B1"));
    QCOMPARE(tree.list.matchCount(InstallConfigurationItem::fullyInstalled, true), 6);
    QVERIFY(tree.question.asked.isEmpty());
}

void tst_InstallConfigurationItem::installSkipsInstalledButWalksChildren()
{
    Tree tree(InstallMode::Custom);
    tree.a.setInstalled(InstallConfigurationItem::fullyInstalled);
    tree.b.setInstalled(InstallConfigurationItem::partiallyInstalled);
    tree.b1.setInstall(false);
    QVERIFY(tree.list.install());
    QCOMPARE(tree.log, words("install A1,install A2,install B"));
    QCOMPARE(tree.b1.installed(), InstallConfigurationItem::notInstalled);
}

void tst_InstallConfigurationItem::installFailure_data()
{
    QTest::addColumn<int>("answer");
    QTest::newRow("Yes terminates") << int(InstallQuestion::Yes);
    QTest::newRow("No goes on") << int(InstallQuestion::No);
}

void tst_InstallConfigurationItem::installFailure()
{
    QFETCH(int, answer);
    Tree tree(InstallMode::Typical);
    tree.a.installFailure = QStringLiteral("Cannot copy file x to y");
    tree.question.answers = { answer };

    bool cancelled = false;
    try {
        tree.list.install();
    } catch (const InstallUserCancelException &) {
        cancelled = true;
    }
    QCOMPARE(cancelled, answer == InstallQuestion::Yes);
    QCOMPARE(tree.question.asked.size(), 1);
    const ScriptedQuestion::Asked &asked = tree.question.asked.first();
    QCOMPARE(asked.heading, QStringLiteral("A Installation Failed"));
    QCOMPARE(asked.text,
        QStringLiteral("<p>The installation of the A component has failed.</p><p>Cannot copy file x to y.</p>"
                       "<p>Do you want to terminate the installation?</p>"
                       "<p>Click Yes to terminate installation or No to continue.</p>"));
    QCOMPARE(asked.buttons, int(InstallQuestion::Yes | InstallQuestion::No));
    QCOMPARE(asked.defaultButton, int(InstallQuestion::Yes));
    QCOMPARE(tree.a.installed(), InstallConfigurationItem::notInstalled);
    // finished pairs starting either way.
    QCOMPARE(tree.announced.count(QStringLiteral("finished A")), 1);
    if (cancelled) {
        QCOMPARE(tree.log, words("install A"));
    } else {
        QCOMPARE(tree.log, words("install A,install A1,install A2,install B,install B1"));
        QCOMPARE(tree.a1.installed(), InstallConfigurationItem::fullyInstalled);
    }
}

void tst_InstallConfigurationItem::uninstallWalk()
{
    Tree tree(InstallMode::Remove);
    tree.list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
    tree.a1.setInstalled(InstallConfigurationItem::notInstalled);
    tree.b.setUninstall(false);
    QVERIFY(tree.list.uninstall());
    QCOMPARE(tree.log, words("uninstall B1,uninstall A2,uninstall A"));
    QCOMPARE(tree.announced,
        words("starting B1,finished B1,starting A2,finished A2,starting A,finished A,starting L,finished L"));
    QCOMPARE(tree.b.installed(), InstallConfigurationItem::fullyInstalled);
    QCOMPARE(tree.a.installed(), InstallConfigurationItem::notInstalled);
    QCOMPARE(tree.list.installed(), InstallConfigurationItem::notInstalled);

    // Outside Repair and Upgrade only items no longer wanted go.
    Tree modify(InstallMode::Modify);
    modify.list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
    modify.a.setInstall(false);
    QVERIFY(modify.list.uninstall());
    QCOMPARE(modify.log, words("uninstall A2,uninstall A1,uninstall A"));

    Tree repair(InstallMode::Repair);
    repair.list.setInstalled(InstallConfigurationItem::partiallyInstalled, true);
    QVERIFY(repair.list.uninstall());
    QCOMPARE(repair.log, words("uninstall B1,uninstall B,uninstall A2,uninstall A1,uninstall A"));
}

void tst_InstallConfigurationItem::uninstallFailure_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("asks");
    QTest::newRow("Remove, Yes terminates") << int(InstallMode::Remove) << int(InstallQuestion::Yes) << true;
    QTest::newRow("Remove, No goes on") << int(InstallMode::Remove) << int(InstallQuestion::No) << true;
    QTest::newRow("Upgrade, No goes on") << int(InstallMode::Upgrade) << int(InstallQuestion::No) << true;
    QTest::newRow("Repair asks nothing") << int(InstallMode::Repair) << int(InstallQuestion::Yes) << false;
}

void tst_InstallConfigurationItem::uninstallFailure()
{
    QFETCH(int, mode);
    QFETCH(int, answer);
    QFETCH(bool, asks);
    Tree tree(mode);
    tree.list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
    tree.b.uninstallFailure = QStringLiteral("Busy");
    tree.question.answers = { answer };

    bool cancelled = false;
    try {
        QVERIFY(tree.list.uninstall());
    } catch (const InstallUserCancelException &) {
        cancelled = true;
    }
    QCOMPARE(cancelled, asks && answer == InstallQuestion::Yes);
    QCOMPARE(tree.question.asked.size(), asks ? 1 : 0);
    if (asks) {
        const ScriptedQuestion::Asked &asked = tree.question.asked.first();
        QCOMPARE(asked.heading, QStringLiteral("B Removal Failed"));
        QCOMPARE(asked.text,
            QStringLiteral(
                "The removal of the B component has failed.<p>Busy.<p>Do you want to terminate the "
                "installation? Click Yes to terminate installation or No to continue."));
        QCOMPARE(asked.buttons, int(InstallQuestion::Yes | InstallQuestion::No));
        QCOMPARE(asked.defaultButton, int(InstallQuestion::Yes));
    }
    QCOMPARE(tree.b.installed(), InstallConfigurationItem::fullyInstalled);
    if (cancelled) {
        QCOMPARE(tree.log, words("uninstall B1,uninstall B"));
        QVERIFY(!tree.announced.contains(QStringLiteral("finished B")));
    } else {
        QCOMPARE(tree.log, words("uninstall B1,uninstall B,uninstall A2,uninstall A1,uninstall A"));
        QVERIFY(tree.announced.contains(QStringLiteral("finished B")));
        QCOMPARE(tree.a.installed(), InstallConfigurationItem::notInstalled);
    }
}

void tst_InstallConfigurationItem::checkWalk()
{
    Tree tree(InstallMode::Upgrade);
    tree.a.setInstall(false);
    tree.a1.setInstall(false);
    tree.b.setInstall(false);
    tree.a1.found = InstallConfigurationItem::partiallyInstalled;
    tree.a2.found = InstallConfigurationItem::fullyInstalled;
    tree.a.found = InstallConfigurationItem::fullyInstalled;
    QSignalSpy skipped(&tree.list, &InstallConfigurationList::skipped);

    QVERIFY(tree.list.checkInstalled());
    QCOMPARE(tree.log, words("check B1,check B,check A2,check A1,check A"));
    // Each child is framed by its parent's signals.
    QCOMPARE(tree.announced,
        words("starting L,starting B,finished B,finished L,"
              "starting L,starting A,finished A,starting A,finished A,finished L"));
    QCOMPARE(skipped.count(), 0);
    // Installed items show as selected; the rest keep their selection.
    QVERIFY(tree.a.installFlag());
    QVERIFY(tree.a1.installFlag());
    QVERIFY(!tree.b.installFlag());
    QCOMPARE(tree.a1.installed(), InstallConfigurationItem::partiallyInstalled);
}

void tst_InstallConfigurationItem::checkFailureSkips()
{
    Tree tree(InstallMode::Upgrade);
    RecordingItem a21(&tree.a2, QStringLiteral("A21"), 0, &tree.log);
    a21.checkFailure = QStringLiteral("unreadable");
    QSignalSpy skipped(&tree.list, &InstallConfigurationList::skipped);

    QVERIFY(!tree.list.checkInstalled());
    QCOMPARE(tree.log, words("check B1,check B,check A21"));
    // A2 gives up its one remaining item, A its four, the list its seven.
    QCOMPARE(skipped.count(), 3);
    QCOMPARE(skipped.at(0).at(0).toInt(), 1);
    QCOMPARE(skipped.at(1).at(0).toInt(), 3);
    QCOMPARE(skipped.at(2).at(0).toInt(), 6);
}

void tst_InstallConfigurationItem::stepCounts()
{
    Tree tree(InstallMode::Typical);
    QCOMPARE(tree.list.installationSteps(), 6);
    tree.b.setInstall(false);
    tree.a1.setInstalled(InstallConfigurationItem::fullyInstalled);
    QCOMPARE(tree.list.installationSteps(), 3);
    tree.list.install();
    QCOMPARE(tree.announced.count() / 2, 3);

    tree.modeSource.value = InstallMode::Remove;
    tree.announced.clear();
    QCOMPARE(tree.list.removalSteps(), 4);
    tree.list.uninstall();
    QCOMPARE(tree.announced.count() / 2, 4);

    Tree upgrade(InstallMode::Upgrade);
    upgrade.a.setInstalled(InstallConfigurationItem::fullyInstalled);
    upgrade.b1.setInstalled(InstallConfigurationItem::partiallyInstalled);
    upgrade.b1.setUninstall(false);
    // A is removed and installed again; B1 stays and is installed over.
    QCOMPARE(upgrade.list.upgradeSteps(), 1 + 6);
    QCOMPARE(upgrade.list.repairSteps(), upgrade.list.upgradeSteps());
    upgrade.list.uninstall();
    upgrade.list.install();
    QCOMPARE(upgrade.announced.count() / 2, 7);
}

void tst_InstallConfigurationItem::visitingWalk()
{
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    QStringList log;
    RecordingItem a(&list, QStringLiteral("A"), 0, &log);
    RecordingItem a1(&a, QStringLiteral("A1"), 0, &log);
    RecordingItem hidden(&a, QStringLiteral("hidden"), 0, &log, InstallConfigurationItem::AllFlags, false);
    RecordingItem underHidden(&hidden, QStringLiteral("under hidden"), 0, &log);
    RecordingItem disabled(&list, QStringLiteral("disabled"), 0, &log, 0, true);
    RecordingItem b(&list, QStringLiteral("B"), 0, &log);

    QStringList visited;
    auto visitor = [&visited](const QString &path, InstallConfigurationItem *item) {
        const QString inner = path + QLatin1Char('/') + item->title();
        visited.append(inner);
        return inner;
    };
    list.visit(QString(), visitor);
    QCOMPARE(visited, words("/A,/A/A1,/B"));

    visited.clear();
    list.visit(QStringLiteral("root"), visitor, true);
    QCOMPARE(visited, words("root/L,root/L/A,root/L/A/A1,root/L/B"));
}

void tst_InstallConfigurationItem::matchAndItemCount()
{
    Tree tree(InstallMode::Typical);
    QCOMPARE(tree.list.itemCount(), 6);
    QCOMPARE(tree.a.itemCount(), 3);
    QCOMPARE(tree.a1.itemCount(), 1);
    tree.b.setInstall(false);
    tree.a.setInstalled(InstallConfigurationItem::fullyInstalled, true);
    tree.b.setInstalled(InstallConfigurationItem::partiallyInstalled);
    QCOMPARE(tree.list.matchCount(InstallConfigurationItem::fullyInstalled, true), 3);
    QCOMPARE(tree.list.matchCount(InstallConfigurationItem::partiallyInstalled, false), 1);
    QCOMPARE(tree.list.matchCount(InstallConfigurationItem::notInstalled, false), 1);
    QCOMPARE(tree.list.matchCount(InstallConfigurationItem::notInstalled, true), 1);
    QCOMPARE(tree.a.matchCount(InstallConfigurationItem::notInstalled, true), 0);
}

void tst_InstallConfigurationItem::properties()
{
    FixedMode source(InstallMode::Custom);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&source);
    QStringList log;
    RecordingItem item(&list, QStringLiteral("item"), 3, &log);
    QCOMPARE(item.property("install").toBool(), false);
    QVERIFY(item.setProperty("install", true));
    QVERIFY(item.installFlag());
    QCOMPARE(item.property("install").toBool(), true);

    QVERIFY(item.setProperty("installed", QVariant::fromValue(InstallConfigurationItem::partiallyInstalled)));
    QCOMPARE(item.installed(), InstallConfigurationItem::partiallyInstalled);
    QCOMPARE(item.property("installed").value<InstallConfigurationItem::InstalledState>(),
        InstallConfigurationItem::partiallyInstalled);
    QCOMPARE(item.list(), &list);
    QCOMPARE(list.list(), &list);
}

void tst_InstallConfigurationItem::texts()
{
    QCOMPARE(InstallConfigurationItem::levelText(0), QStringLiteral("Required for minimal installation."));
    QCOMPARE(InstallConfigurationItem::levelText(1), QStringLiteral("Required for typical installation."));
    QCOMPARE(InstallConfigurationItem::levelText(2), QStringLiteral("Required for full installation."));
    QCOMPARE(InstallConfigurationItem::levelText(3), QStringLiteral("Optional installation."));
    QCOMPARE(InstallConfigurationItem::levelText(4), QStringLiteral("Optional installation."));
    QCOMPARE(InstallConfigurationItem::levelText(5), QString());
    QCOMPARE(InstallConfigurationItem::installedText(InstallConfigurationItem::notInstalled),
        QStringLiteral("Not currently installed."));
    QCOMPARE(InstallConfigurationItem::installedText(InstallConfigurationItem::partiallyInstalled),
        QStringLiteral("Only partially installed."));
    QCOMPARE(InstallConfigurationItem::installedText(InstallConfigurationItem::fullyInstalled),
        QStringLiteral("Currently installed."));
}

void tst_InstallConfigurationItem::titlesExpandedOnce()
{
    macros().set(QStringLiteral("TstProduct"), QStringLiteral("Calvra"));
    InstallConfigurationList list(
        QStringLiteral("$(TstProduct) list"), QStringLiteral("about $(TstProduct)"), 0, true);
    macros().set(QStringLiteral("TstProduct"), QStringLiteral("Other"));
    QCOMPARE(list.title(), QStringLiteral("Calvra list"));
    QCOMPARE(list.description(), QStringLiteral("about Calvra"));
}

void tst_InstallConfigurationItem::childDeletedBeforeParent()
{
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    QStringList log;
    auto *a = new RecordingItem(&list, QStringLiteral("A"), 0, &log);
    auto *b = new RecordingItem(&list, QStringLiteral("B"), 0, &log);
    new RecordingItem(a, QStringLiteral("A1"), 0, &log);
    delete a;
    QCOMPARE(list.children().size(), 1);
    QCOMPARE(list.children().first(), b);
    QCOMPARE(list.itemCount(), 2);
}

QTEST_GUILESS_MAIN(tst_InstallConfigurationItem)
#include "tst_installconfigurationitem.moc"
