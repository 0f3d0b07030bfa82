#include "core/hexception.h"
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installconfigurationdialog.h"
#include "wizard/installcustomsetupdialog.h"
#include "wizard/installfinisheddialog.h"
#include "wizard/installlicenseagreementdialog.h"
#include "wizard/installmaintenancedialog.h"
#include "wizard/installprogressdialog.h"
#include "wizard/installstandardwizard.h"
#include "wizard/installtextdialog.h"

#include "../plan/scriptedquestion.h"
#include "modalhelper.h"

#include <QButtonGroup>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QTimer>

namespace {

// A plan with one optional component and one environment item, told apart
// by description since the test has no item kinds of its own.
struct Plan
{
    Plan()
        : modeSource(InstallMode::Typical)
        , list(QStringLiteral("Calvra"), QString(), 0, true)
        , core(&list, QStringLiteral("Core"), QStringLiteral("The core"), 0, true,
              InstallConfigurationItem::AllFlags)
        , path(&list, QStringLiteral("PATH"), QStringLiteral("environment"), 1, true,
              InstallConfigurationItem::AllFlags)
        , probe(&list, QStringLiteral("Probe Rules"), QStringLiteral("Rules"), 3, true,
              InstallConfigurationItem::AllFlags)
    {
        list.setModeSource(&modeSource);
    }

    FixedMode modeSource;
    InstallConfigurationList list;
    InstallConfigurationItem core;
    InstallConfigurationItem path;
    InstallConfigurationItem probe;
};

InstallStandardWizard::Options options()
{
    InstallStandardWizard::Options result;
    result.licenseDocument = QByteArrayLiteral("<h1>Agreement</h1><p>Terms.</p>");
    result.environment = [](const InstallConfigurationItem *item) {
        return item->description() == QLatin1String("environment");
    };
    return result;
}

} // namespace

class tst_InstallStandardWizard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void textPages_data();
    void textPages();
    void fixedPages_data();
    void fixedPages();
    void optionalPages();
    void buttonsReportPageIds();
    void licenseChoice_data();
    void licenseChoice();
    void pageFlagsAndTexts();
    void listedRows();
    void modeChoice();
    void progressThroughInterface();
    void cancelHeardDuringOperation();
    void installationError();
    void questionIsTheMessageBox();
    void hiddenWindowStaysHidden();
};

void tst_InstallStandardWizard::initTestCase()
{
    macros().setDefaults();
    macros().set(QStringLiteral("Product"), QStringLiteral("Calvra"));
    macros().set(QStringLiteral("Version"), QStringLiteral("5.50"));
}

void tst_InstallStandardWizard::textPages_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("next");
    QTest::addColumn<quint32>("flags");
    QTest::addColumn<QString>("text");
    QTest::newRow("welcome")
        << 1 << "Welcome"
        << "&Next>" << 2u
        << "Welcome to the installer for Calvra.<p>The installer will allow you to install "
           "Calvra. To continue, click Next.";
    QTest::newRow("upgrade welcome")
        << 2 << "Welcome"
        << "&Next>" << 2u
        << "Welcome to the installer for Calvra.<p>The installer will upgrade your "
           "existing installation of Calvra. To continue, click Next.";
    QTest::newRow("start installation")
        << 11 << "Start Installation"
        << "&Install" << 0u << "To start installation of Calvra, click Install.";
    QTest::newRow("start removal") << 12 << "Start Removal"
                                   << "&Remove" << 2u << "To start removal of Calvra, click Remove.";
    QTest::newRow("start modify") << 13 << "Start Modify"
                                  << "&Modify" << 0u
                                  << "To start modification of Calvra 5.50 installation, click Modify.";
    QTest::newRow("start repair") << 14 << "Start Repair"
                                  << "&Repair" << 0u
                                  << "To start repair of Calvra 5.50 installation, click Repair.";
    QTest::newRow("start upgrade") << 15 << "Start Upgrade"
                                   << "&Upgrade" << 0u << "To start upgrade of Calvra, click Upgrade.";
    QTest::newRow("failed") << 18 << "Installation Failed"
                            << "&Finish" << 10u << "";
    QTest::newRow("help")
        << 19 << "Help"
        << "&Next>" << 0u
        << "<b>Setwright</b><p>The installer will allow you to install, modify, repair or remove "
           "Calvra.<p>Click Next to step through each installer stage, click Back to move to the "
           "previous installer stage and click Cancel to terminate the installation.";
}

void tst_InstallStandardWizard::textPages()
{
    QFETCH(int, id);
    QFETCH(QString, title);
    QFETCH(QString, next);
    QFETCH(quint32, flags);
    QFETCH(QString, text);
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    auto *page = qobject_cast<InstallTextDialog *>(wizard.page(id));
    QVERIFY(page);
    QCOMPARE(page->title(), title);
    QVERIFY(page->description().isEmpty());
    QCOMPARE(page->nextLabel(), next);
    QCOMPARE(page->backLabel(), QStringLiteral("<&Back"));
    QCOMPARE(page->helpLabel(), QStringLiteral("&Help"));
    QCOMPARE(page->cancelLabel(), QStringLiteral("&Cancel"));
    QCOMPARE(page->flags(), flags);
    wizard.showPage(id);
    QCOMPARE(page->label()->text(), text);
    QCOMPARE(wizard.currentPageId(), id);
}

void tst_InstallStandardWizard::fixedPages_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("next");
    QTest::addColumn<quint32>("flags");
    QTest::newRow("destination") << 3 << "InstallChooseDestinationDialog"
                                 << "Choose Destination Location"
                                 << "Select folder where Setup will install files."
                                 << "&Next>" << 0u;
    QTest::newRow("program folder") << 4 << "InstallProgramFolderDialog"
                                    << "Select Program Folder"
                                    << "Please select a program folder."
                                    << "&Next>" << 0u;
    QTest::newRow("associations") << 5 << "InstallAssociateFilesDialog"
                                  << "Associate Files"
                                  << "Select the file types you want to associate with $(Product)."
                                  << "&Next>" << 0u;
    QTest::newRow("environment") << 6 << "InstallEnvironmentVariablesDialog"
                                 << "Update Environment Variables"
                                 << "Select the environment variables that you want to update."
                                 << "&Next>" << 0u;
    QTest::newRow("optional") << 7 << "InstallOptionalDialog"
                              << "Additional Components"
                              << "Select the additional components to install."
                              << "&Next>" << 0u;
    QTest::newRow("configuration") << 8 << "InstallConfigurationDialog"
                                   << "Choose Configuration"
                                   << "Select the type of installation to carry out."
                                   << "&Next>" << 0u;
    QTest::newRow("custom") << 9 << "InstallCustomSetupDialog"
                            << "Custom Setup"
                            << "Select the program features that you want to install"
                            << "&Next>" << 0u;
    QTest::newRow("progress") << 16 << "InstallProgressDialog"
                              << "Installing"
                              << ""
                              << "&Next>" << 6u;
    QTest::newRow("complete") << 17 << "InstallFinishedDialog"
                              << "Installation Complete"
                              << ""
                              << "&Finish" << 2u;
    QTest::newRow("licence") << 20 << "InstallLicenseAgreementDialog"
                             << "License Agreement"
                             << "Please read the following License Agreement."
                             << "&Next>" << 4u;
}

void tst_InstallStandardWizard::fixedPages()
{
    QFETCH(int, id);
    QFETCH(QString, className);
    QFETCH(QString, title);
    QFETCH(QString, description);
    QFETCH(QString, next);
    QFETCH(quint32, flags);
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    InstallWizardDialog *page = wizard.page(id);
    QVERIFY(page);
    QCOMPARE(QString::fromLatin1(page->metaObject()->className()), className);
    QCOMPARE(page->title(), title);
    QCOMPARE(page->description(), description);
    QCOMPARE(page->nextLabel(), next);
    QCOMPARE(page->backLabel(), QStringLiteral("<&Back"));
    QCOMPARE(page->cancelLabel(), QStringLiteral("&Cancel"));
    QCOMPARE(page->helpLabel(), QStringLiteral("&Help"));
    QCOMPARE(page->flags(), flags);
    wizard.showPage(id);
    QCOMPARE(wizard.window()->headerLabel()->text(),
        QStringLiteral("<b>") + title + QStringLiteral("</b><p>") + expandMacros(description)
            + QStringLiteral("</p>"));
}

void tst_InstallStandardWizard::optionalPages()
{
    Plan plan;
    InstallStandardWizard::Options bare;
    bare.configurationChoice = false;
    InstallStandardWizard wizard(&plan.list, bare);
    QVERIFY(!wizard.hasPage(20));
    QVERIFY(!wizard.hasPage(8));
    QVERIFY(!wizard.hasPage(10));
    QVERIFY(!wizard.licenseAccepted());
    QVERIFY(wizard.hasPage(1));
    QVERIFY_THROWS_EXCEPTION(HException, wizard.showPage(20));

    bare.maintenancePage = true;
    bare.mode = InstallMode::Repair;
    InstallStandardWizard maintained(&plan.list, bare);
    auto *maintenance = qobject_cast<InstallMaintenanceDialog *>(maintained.page(10));
    QVERIFY(maintenance);
    QCOMPARE(maintenance->choices()->checkedId(), int(InstallMode::Repair));
}

void tst_InstallStandardWizard::buttonsReportPageIds()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    QSignalSpy next(&wizard, &InstallWizardInterface::nextClicked);
    QSignalSpy back(&wizard, &InstallWizardInterface::backClicked);
    QSignalSpy cancel(&wizard, &InstallWizardInterface::cancelClicked);
    QSignalSpy shown(&wizard, &InstallWizardInterface::aboutToShow);
    wizard.showPage(3);
    wizard.showPage(9);
    QCOMPARE(shown.count(), 2);
    QCOMPARE(shown.at(0).at(0).toInt(), 3);
    QCOMPARE(shown.at(1).at(0).toInt(), 9);
    QTest::mouseClick(wizard.window()->nextButton(), Qt::LeftButton);
    QTest::mouseClick(wizard.window()->backButton(), Qt::LeftButton);
    QTest::mouseClick(wizard.window()->cancelButton(), Qt::LeftButton);
    QCOMPARE(next.count(), 1);
    QCOMPARE(next.at(0).at(0).toInt(), 9);
    QCOMPARE(back.at(0).at(0).toInt(), 9);
    QCOMPARE(cancel.at(0).at(0).toInt(), 9);
    wizard.showPage(18);
    QTest::mouseClick(wizard.window()->nextButton(), Qt::LeftButton);
    QCOMPARE(next.at(1).at(0).toInt(), 18);
}

void tst_InstallStandardWizard::licenseChoice_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("accept") << "I &accept the Agreement" << true;
    QTest::newRow("refuse") << "I &do not accept the Agreement" << false;
}

void tst_InstallStandardWizard::licenseChoice()
{
    QFETCH(QString, button);
    QFETCH(bool, accepted);
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    wizard.showPage(20);
    auto *page = qobject_cast<InstallLicenseAgreementDialog *>(wizard.page(20));
    QVERIFY(page->agreement()->toPlainText().contains(QStringLiteral("Terms.")));
    QVERIFY(page->findChild<QLabel *>()->text()
        == QStringLiteral("You must accept the License Agreement to continue."));
    QVERIFY(!wizard.window()->nextButton()->isEnabled());
    QVERIFY(!wizard.licenseAccepted());
    QRadioButton *radio = nullptr;
    for (QRadioButton *candidate : page->findChildren<QRadioButton *>()) {
        if (candidate->text() == button)
            radio = candidate;
    }
    QVERIFY(radio);
    // On the indicator: the button is wider than what it answers clicks on.
    QTest::mouseClick(radio, Qt::LeftButton, {}, QPoint(6, radio->height() / 2));
    // Either choice lets the user press Next; the application then refuses a refusal.
    QVERIFY(wizard.window()->nextButton()->isEnabled());
    QCOMPARE(wizard.licenseAccepted(), accepted);
    QCOMPARE(page->choices()->id(radio), accepted ? 1 : 0);
}

void tst_InstallStandardWizard::pageFlagsAndTexts()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    wizard.showPage(15);
    QVERIFY(wizard.window()->backButton()->isEnabled());
    wizard.addPageFlags(15, InstallWizardInterface::BackDisabled);
    QVERIFY(!wizard.window()->backButton()->isEnabled());
    QCOMPARE(wizard.page(15)->flags(), 2u);

    wizard.acceptLicense();
    QVERIFY(wizard.licenseAccepted());
    QCOMPARE(wizard.page(20)->flags(), 0u);

    wizard.setPageText(17, QStringLiteral("Upgrade Complete"),
        QStringLiteral(
            "$(Product) $(Version) has now been upgraded.<p>Click Finish to complete the installation."));
    wizard.showPage(17);
    auto *complete = qobject_cast<InstallFinishedDialog *>(wizard.page(17));
    QCOMPARE(complete->title(), QStringLiteral("Upgrade Complete"));
    QVERIFY(wizard.window()->headerLabel()->text().startsWith(QStringLiteral("<b>Upgrade Complete</b>")));
    QVERIFY(complete->findChild<QLabel *>()->text().startsWith(
        QStringLiteral("Calvra 5.50 has now been upgraded.")));

    wizard.setPageText(18, QStringLiteral("Uninstall Failed"), QStringLiteral("Gone wrong."));
    wizard.showPage(18);
    QCOMPARE(
        qobject_cast<InstallTextDialog *>(wizard.page(18))->label()->text(), QStringLiteral("Gone wrong."));
    QVERIFY(wizard.window()->headerLabel()->text().startsWith(QStringLiteral("<b>Uninstall Failed</b>")));
}

void tst_InstallStandardWizard::listedRows()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    QCOMPARE(wizard.listedRows(5), 0);
    QCOMPARE(wizard.listedRows(6), 1);
    // By default only optional items are additional components.
    QCOMPARE(wizard.listedRows(7), 1);
    QCOMPARE(wizard.listedRows(3), 0);
    QCOMPARE(wizard.listedRows(42), 0);
}

void tst_InstallStandardWizard::modeChoice()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    auto *configuration = qobject_cast<InstallConfigurationDialog *>(wizard.page(8));
    QCOMPARE(configuration->choices()->checkedId(), int(InstallMode::Typical));
    QSignalSpy chosen(&wizard, &InstallWizardInterface::modeChosen);
    wizard.showPage(8);
    QTest::mouseClick(configuration->choices()->button(InstallMode::Custom), Qt::LeftButton);
    QCOMPARE(chosen.count(), 1);
    QCOMPARE(chosen.at(0).at(0).value<InstallMode::Mode>(), InstallMode::Custom);
    // The application's mode change, from wherever it comes, moves the choice.
    wizard.installationModeChanged(InstallMode::Minimal);
    QCOMPARE(configuration->choices()->checkedId(), int(InstallMode::Minimal));
    wizard.installationModeChanged(InstallMode::Full);
    QCOMPARE(configuration->choices()->checkedId(), int(InstallMode::Full));
}

void tst_InstallStandardWizard::progressThroughInterface()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    auto *progress = qobject_cast<InstallProgressDialog *>(wizard.page(16));
    wizard.setProgressPhase(InstallWizardInterface::Checking);
    wizard.showPage(16);
    QCOMPARE(progress->title(), QStringLiteral("Checking For Installed Components"));
    QVERIFY(
        wizard.window()->headerLabel()->text().contains(QStringLiteral("Checking For Installed Components")));
    wizard.setProgressPhase(InstallWizardInterface::Installing);
    QCOMPARE(progress->title(), QStringLiteral("Installing"));
    QVERIFY(wizard.window()->headerLabel()->text().contains(QStringLiteral("<b>Installing</b>")));

    wizard.setProgressTaskPrefix(QStringLiteral("Installing "));
    wizard.setProgressFollowsList(true);
    QString lineDuringInstall;
    connect(&plan.list, &InstallConfigurationList::starting, this,
        [&] { lineDuringInstall = progress->itemLine()->text(); });
    QVERIFY(plan.list.install());
    // The wizard's slot ran before this test's, so the line already named the item.
    QCOMPARE(lineDuringInstall, QStringLiteral("Installing PATH"));
    // The list itself, Core and PATH; the optional probe rules are not selected.
    QCOMPARE(progress->stepsDone(), 3);
    wizard.setProgressFollowsList(false);
    plan.list.setInstalled(InstallConfigurationItem::notInstalled, true);
    QVERIFY(plan.list.install());
    QCOMPARE(progress->stepsDone(), 3);
}

void tst_InstallStandardWizard::cancelHeardDuringOperation()
{
    // An item whose action takes long: while it runs, a Cancel click waits in
    // the queue; the next progress report must deliver it.
    struct SlowItem : InstallConfigurationItem
    {
        SlowItem(InstallConfigurationItem *parent, InstallStandardWizard *wizard, QList<int> *seenDuring,
            const QList<int> *cancels)
            : InstallConfigurationItem(parent, QStringLiteral("Toolchain"), QString(), 0, true, AllFlags)
            , m_wizard(wizard)
            , m_seenDuring(seenDuring)
            , m_cancels(cancels)
        { }
        void installAction() override
        {
            announceTotalSteps(10);
            QTimer::singleShot(0, m_wizard->window()->cancelButton(), &QPushButton::click);
            emit progress(5);
            *m_seenDuring = *m_cancels;
        }
        InstallStandardWizard *m_wizard;
        QList<int> *m_seenDuring;
        const QList<int> *m_cancels;
    };
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    QList<int> cancels;
    QList<int> seenDuring;
    connect(&wizard, &InstallWizardInterface::cancelClicked, this, [&](int id) { cancels.append(id); });
    SlowItem slow(&plan.list, &wizard, &seenDuring, &cancels);
    wizard.setProgressPhase(InstallWizardInterface::Installing);
    wizard.showPage(16);
    wizard.setProgressFollowsList(true);
    QVERIFY(plan.list.install());
    QCOMPARE(seenDuring, QList<int> { 16 });
}

void tst_InstallStandardWizard::installationError()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    QString title;
    QString text;
    QStringList buttons;
    whenModal([&](QWidget *widget) {
        auto *box = qobject_cast<QMessageBox *>(widget);
        QVERIFY(box);
        title = box->windowTitle();
        text = box->text();
        for (QAbstractButton *button : box->buttons())
            buttons.append(button->text());
        box->buttons().constFirst()->click();
    });
    wizard.reportInstallationError(QStringLiteral("Cannot check installation configuration"));
    QCOMPARE(title, QStringLiteral("Installation Error"));
    QCOMPARE(text,
        QStringLiteral("Cannot check installation configuration.<p>Click OK to terminate installation"));
    QCOMPARE(buttons, QStringList { QStringLiteral("&OK") });
}

void tst_InstallStandardWizard::questionIsTheMessageBox()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    auto *box = dynamic_cast<InstallCheckMessageBox *>(wizard.question());
    QVERIFY(box);
    QCOMPARE(box->parentWidget(), wizard.window());
}

void tst_InstallStandardWizard::hiddenWindowStaysHidden()
{
    Plan plan;
    InstallStandardWizard wizard(&plan.list, options());
    wizard.showPage(InstallWizardInterface::LicensePage);
    QVERIFY(wizard.window()->isVisible());
    wizard.hideWindow();
    QVERIFY(!wizard.window()->isVisible());
    // A second start of the installer asks to raise it: it stays away.
    wizard.raiseWindow();
    QVERIFY(!wizard.window()->isVisible());
}

QTEST_MAIN(tst_InstallStandardWizard)
#include "tst_installstandardwizard.moc"
