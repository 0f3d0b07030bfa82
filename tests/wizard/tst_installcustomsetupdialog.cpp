#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "wizard/customitem.h"
#include "wizard/installcustomsetupdialog.h"

#include "../plan/scriptedquestion.h"
#include "modalhelper.h"

#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QTest>
#include <QTreeWidget>

namespace {

// Tools (level 0) with Compiler (0) and Examples (3); Docs (1); a hidden item.
struct Plan
{
    explicit Plan(int mode = InstallMode::Custom)
        : modeSource(mode)
        , list(QStringLiteral("Calvra"), QString(), 0, true)
        , tools(&list, QStringLiteral("Tools"), QStringLiteral("The tools"), 0, true,
              InstallConfigurationItem::AllFlags)
        , compiler(&tools, QStringLiteral("Compiler"), QStringLiteral("The compiler"), 0, true,
              InstallConfigurationItem::AllFlags)
        , examples(&tools, QStringLiteral("Examples"), QStringLiteral("Example projects"), 3, true,
              InstallConfigurationItem::AllFlags)
        , docs(&list, QStringLiteral("Docs"), QStringLiteral("Manuals"), 1, true,
              InstallConfigurationItem::AllFlags)
        , hidden(&list, QStringLiteral("Hidden"), QString(), 0, false, InstallConfigurationItem::AllFlags)
    {
        list.setModeSource(&modeSource);
        list.setQuestion(&question);
        list.checkWillInstall();
    }

    ScriptedQuestion question;
    FixedMode modeSource;
    InstallConfigurationList list;
    InstallConfigurationItem tools;
    InstallConfigurationItem compiler;
    InstallConfigurationItem examples;
    InstallConfigurationItem docs;
    InstallConfigurationItem hidden;
};

const QStringList MenuEntries = { QStringLiteral("This feature will be installed on the local hard drive."),
    QStringLiteral("This feature, and all subfeatures, will be installed on the local hard drive."),
    QString(), QStringLiteral("This feature will not be available.") };

} // namespace

class tst_InstallCustomSetupDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { macros().setDefaults(); }
    void page();
    void treeFollowsPlan();
    void popupOnIconColumn();
    void choices_data();
    void choices();
    void minimalItemQuestion_data();
    void minimalItemQuestion();
    void descriptionArea_data();
    void descriptionArea();
};

void tst_InstallCustomSetupDialog::page()
{
    Plan plan;
    InstallCustomSetupDialog dialog(&plan.list);
    QCOMPARE(dialog.title(), QStringLiteral("Custom Setup"));
    QCOMPARE(dialog.description(), QStringLiteral("Select the program features that you want to install"));
    QCOMPARE(dialog.findChild<QLabel *>()->text(),
        QStringLiteral("Click on an icon in the list below to change how a feature is installed."));
    QCOMPARE(dialog.tree()->columnCount(), 2);
    QCOMPARE(dialog.tree()->headerItem()->text(0), QStringLiteral("Icon"));
    QCOMPARE(dialog.tree()->headerItem()->text(1), QStringLiteral("Name"));
}

void tst_InstallCustomSetupDialog::treeFollowsPlan()
{
    Plan plan;
    InstallCustomSetupDialog dialog(&plan.list);
    QTreeWidget *tree = dialog.tree();
    QCOMPARE(tree->topLevelItemCount(), 2);
    QCOMPARE(tree->topLevelItem(0)->text(1), QStringLiteral("Tools"));
    QCOMPARE(tree->topLevelItem(1)->text(1), QStringLiteral("Docs"));
    QCOMPARE(tree->topLevelItem(0)->childCount(), 2);
    QCOMPARE(tree->topLevelItem(0)->child(1)->text(1), QStringLiteral("Examples"));
    QCOMPARE(dialog.rowOf(&plan.hidden), nullptr);
    // Tools installs but not its optional Examples: partly.
    QCOMPARE(dialog.rowOf(&plan.tools)->state(), CustomItem::PartlyInstalled);
    QCOMPARE(dialog.rowOf(&plan.compiler)->state(), CustomItem::Installed);
    QCOMPARE(dialog.rowOf(&plan.examples)->state(), CustomItem::NotInstalled);
    QCOMPARE(dialog.rowOf(&plan.docs)->state(), CustomItem::Installed);
    QVERIFY(!dialog.rowOf(&plan.tools)->icon(0).isNull());
    const auto image = [&](InstallConfigurationItem *item) {
        return dialog.rowOf(item)->icon(0).pixmap(16).toImage();
    };
    QVERIFY(image(&plan.tools) != image(&plan.docs));
    QVERIFY(image(&plan.examples) != image(&plan.docs));
    QCOMPARE(image(&plan.compiler), image(&plan.docs));
}

void tst_InstallCustomSetupDialog::popupOnIconColumn()
{
    Plan plan;
    InstallCustomSetupDialog dialog(&plan.list);
    dialog.resize(500, 400);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QTreeWidget *tree = dialog.tree();
    CustomItem *row = dialog.rowOf(&plan.examples);
    QStringList entries;
    bool iconsOnEntries = true;
    whenModal(
        [&](QWidget *widget) {
            auto *menu = qobject_cast<QMenu *>(widget);
            QVERIFY(menu);
            for (QAction *action : menu->actions()) {
                entries.append(action->text());
                if (!action->isSeparator() && action->icon().isNull())
                    iconsOnEntries = false;
            }
            menu->setActiveAction(menu->actions().at(1));
            QTest::keyClick(menu, Qt::Key_Return);
        },
        true);
    const QRect icon = tree->visualItemRect(row);
    const int iconColumn = tree->header()->sectionPosition(0) + tree->header()->sectionSize(0) / 2;
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, QPoint(iconColumn, icon.center().y()));
    QCOMPARE(entries, MenuEntries);
    QVERIFY(iconsOnEntries);
    QVERIFY(plan.examples.willInstall());
    QCOMPARE(dialog.rowOf(&plan.tools)->state(), CustomItem::Installed);

    // A click on the name only selects the row.
    bool opened = false;
    QTimer *watch = whenModal(
        [&](QWidget *widget) {
            opened = true;
            widget->close();
        },
        true);
    const int nameColumn = tree->header()->sectionPosition(1) + 20;
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, QPoint(nameColumn, icon.center().y()));
    // A menu would have run its own loop inside the click.
    delete watch;
    QVERIFY(!opened);
    QCOMPARE(tree->currentItem(), row);
}

void tst_InstallCustomSetupDialog::choices_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<int>("choice");
    QTest::addColumn<QStringList>("installing");
    const QStringList initially = { "Tools", "Compiler", "Docs" };
    QTest::newRow("feature only") << "Tools" << 0 << initially;
    QTest::newRow("feature and subfeatures")
        << "Tools" << 1 << QStringList({ "Tools", "Compiler", "Examples", "Docs" });
    QTest::newRow("optional child alone")
        << "Examples" << 0 << QStringList({ "Tools", "Compiler", "Examples", "Docs" });
    QTest::newRow("not available, typical level") << "Docs" << 2 << QStringList({ "Tools", "Compiler" });
    QTest::newRow("not available, optional") << "Examples" << 2 << initially;
}

void tst_InstallCustomSetupDialog::choices()
{
    QFETCH(QString, item);
    QFETCH(int, choice);
    QFETCH(QStringList, installing);
    Plan plan;
    InstallCustomSetupDialog dialog(&plan.list);
    InstallConfigurationItem *target = plan.list.findChild<InstallConfigurationItem *>();
    for (InstallConfigurationItem *candidate : plan.list.findChildren<InstallConfigurationItem *>()) {
        if (candidate->title() == item)
            target = candidate;
    }
    dialog.applyChoice(dialog.rowOf(target), InstallCustomSetupDialog::Choice(choice));
    QStringList result;
    for (InstallConfigurationItem *candidate : { &plan.tools, &plan.compiler, &plan.examples, &plan.docs }) {
        if (candidate->willInstall())
            result.append(candidate->title());
    }
    QCOMPARE(result, installing);
    QVERIFY(plan.question.asked.isEmpty());
    // The icons follow the items.
    for (InstallConfigurationItem *candidate : { &plan.tools, &plan.compiler, &plan.examples, &plan.docs }) {
        const CustomItem::State expected = !candidate->willInstall()   ? CustomItem::NotInstalled
            : candidate == &plan.tools && !plan.examples.willInstall() ? CustomItem::PartlyInstalled
                                                                       : CustomItem::Installed;
        QCOMPARE(dialog.rowOf(candidate)->state(), expected);
    }
}

void tst_InstallCustomSetupDialog::minimalItemQuestion_data()
{
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<bool>("removed");
    QTest::newRow("yes") << QList<int> { InstallQuestion::Yes } << true;
    QTest::newRow("no") << QList<int> { InstallQuestion::No } << false;
    // Nothing scripted: the box's default answer decides, and it is No.
    QTest::newRow("default") << QList<int>() << false;
}

void tst_InstallCustomSetupDialog::minimalItemQuestion()
{
    QFETCH(QList<int>, answers);
    QFETCH(bool, removed);
    Plan plan;
    plan.question.answers = answers;
    InstallCustomSetupDialog dialog(&plan.list);
    dialog.applyChoice(dialog.rowOf(&plan.tools), InstallCustomSetupDialog::DoNotInstall);
    QCOMPARE(plan.question.asked.size(), 1);
    const ScriptedQuestion::Asked &asked = plan.question.asked.constFirst();
    QCOMPARE(asked.heading, QStringLiteral("Remove Tools?"));
    QCOMPARE(asked.text,
        QStringLiteral(
            "The Tools component is required for the minimal installation.<p>Are you sure you want to "
            "remove it?"));
    QCOMPARE(asked.buttons, InstallQuestion::Yes | InstallQuestion::No);
    QCOMPARE(asked.defaultButton, int(InstallQuestion::No));
    QCOMPARE(plan.tools.willInstall(), !removed);
    QCOMPARE(plan.compiler.willInstall(), !removed);
    QCOMPARE(plan.tools.installFlag(), !removed);
    QCOMPARE(
        dialog.rowOf(&plan.compiler)->state(), removed ? CustomItem::NotInstalled : CustomItem::Installed);
}

void tst_InstallCustomSetupDialog::descriptionArea_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("docs");
    QTest::addColumn<QString>("examples");
    QTest::newRow("custom")
        << int(InstallMode::Custom)
        << "<b>Description:</b> Manuals.<p><b>Installation Level:</b> Required for typical "
           "installation."
        << "<b>Description:</b> Example projects.<p><b>Installation Level:</b> Optional "
           "installation.";
    QTest::newRow("modify")
        << int(InstallMode::Modify)
        << "<b>Description:</b> Manuals.<p><b>Installation Level:</b> Required for typical "
           "installation.<p><b>Status:</b> Currently installed."
        << "<b>Description:</b> Example projects.<p><b>Installation Level:</b> Optional "
           "installation.<p><b>Status:</b> Not currently installed.";
}

void tst_InstallCustomSetupDialog::descriptionArea()
{
    QFETCH(int, mode);
    QFETCH(QString, docs);
    QFETCH(QString, examples);
    Plan plan(mode);
    plan.docs.setInstalled(InstallConfigurationItem::fullyInstalled);
    InstallCustomSetupDialog dialog(&plan.list);
    dialog.tree()->setCurrentItem(dialog.rowOf(&plan.docs));
    QCOMPARE(dialog.descriptionArea()->text(), docs);
    dialog.tree()->setCurrentItem(dialog.rowOf(&plan.examples));
    QCOMPARE(dialog.descriptionArea()->text(), examples);

    // The mode may change after the page was built.
    const bool maintenance = mode != InstallMode::Custom;
    dialog.installationModeChanged(maintenance ? InstallMode::Custom : InstallMode::Repair);
    QCOMPARE(dialog.descriptionArea()->text().contains(QStringLiteral("<b>Status:</b>")), !maintenance);
}

QTEST_MAIN(tst_InstallCustomSetupDialog)
#include "tst_installcustomsetupdialog.moc"
