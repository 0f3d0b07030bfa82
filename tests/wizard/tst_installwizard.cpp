#include "core/hexception.h"
#include "core/macrotable.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/installtextdialog.h"
#include "wizard/installwizarddialog.h"

#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>

class tst_InstallWizard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pageDefaults();
    void stateChangedOnEveryChange_data();
    void stateChangedOnEveryChange();
    void window();
    void filing();
    void showPage();
    void showNullPage();
    void buttonsFollowPage_data();
    void buttonsFollowPage();
    void buttonsForwardToVisiblePage();
    void escapeAndCloseAreCancel();
    void f1IsHelp();
};

void tst_InstallWizard::initTestCase()
{
    macros().setDefaults();
    macros().set(QStringLiteral("Product"), QStringLiteral("Calvra"));
    macros().set(QStringLiteral("Version"), QStringLiteral("5.50"));
    macros().set(QStringLiteral("AltArch"), QStringLiteral(" (64-bit)"));
}

void tst_InstallWizard::pageDefaults()
{
    InstallWizardDialog page;
    QCOMPARE(page.backLabel(), QStringLiteral("<&Back"));
    QCOMPARE(page.nextLabel(), QStringLiteral("&Next>"));
    QCOMPARE(page.helpLabel(), QStringLiteral("&Help"));
    QCOMPARE(page.cancelLabel(), QStringLiteral("&Cancel"));
    QCOMPARE(page.flags(), 0u);
    QVERIFY(page.title().isEmpty());
    QVERIFY(page.description().isEmpty());
}

void tst_InstallWizard::stateChangedOnEveryChange_data()
{
    QTest::addColumn<int>("field");
    for (int field = 0; field < 7; ++field)
        QTest::newRow(qPrintable(QString::number(field))) << field;
}

void tst_InstallWizard::stateChangedOnEveryChange()
{
    QFETCH(int, field);
    InstallWizardDialog page;
    QSignalSpy changed(&page, &InstallWizardDialog::stateChanged);
    auto set = [&](const QString &value) {
        switch (field) {
        case 0:
            page.setTitle(value);
            break;
        case 1:
            page.setDescription(value);
            break;
        case 2:
            page.setBackLabel(value);
            break;
        case 3:
            page.setNextLabel(value);
            break;
        case 4:
            page.setCancelLabel(value);
            break;
        case 5:
            page.setHelpLabel(value);
            break;
        case 6:
            page.setFlags(value.size());
            break;
        }
    };
    set(QStringLiteral("abc"));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.at(0).at(0).value<InstallWizardDialog *>(), &page);
    set(QStringLiteral("abc"));
    QCOMPARE(changed.count(), 1);
    set(QStringLiteral("abcd"));
    QCOMPARE(changed.count(), 2);
}

void tst_InstallWizard::window()
{
    ClassicInstallWizard wizard(QPixmap(48, 48));
    QCOMPARE(wizard.windowTitle(), QStringLiteral("Calvra 5.50 (64-bit) Setup"));
    QCOMPARE(wizard.minimumSize(), wizard.maximumSize());
    QCOMPARE(wizard.size(), QSize(ClassicInstallWizard::Width, ClassicInstallWizard::Height));
    QCOMPARE(wizard.focusPolicy(), Qt::NoFocus);

    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    QCOMPARE(wizard.x(), (screen.left() + screen.right()) / 2 - (wizard.width() + 1) / 2);
    QCOMPARE(wizard.y(), (screen.top() + screen.bottom()) / 2 - (wizard.height() + 1) / 2);

    auto *header = wizard.findChild<QFrame *>(QStringLiteral("header"));
    QVERIFY(header);
    QCOMPARE(header->styleSheet(), QStringLiteral("* { background-color: white; }"));
    QCOMPARE(header->frameStyle(), 50);
    QCOMPARE(header->lineWidth(), 1);
    QCOMPARE(wizard.headerLabel()->minimumWidth(), 400);
    QVERIFY(header->isAncestorOf(wizard.headerLabel()));
    QVERIFY(wizard.findChild<QLabel *>(QStringLiteral("headerImage")));
    QVERIFY(wizard.findChild<QStackedWidget *>());

    QCOMPARE(wizard.backButton()->objectName(), QStringLiteral("Back"));
    QCOMPARE(wizard.nextButton()->objectName(), QStringLiteral("Next"));
    QCOMPARE(wizard.cancelButton()->objectName(), QStringLiteral("Cancel"));

    ClassicInstallWizard plain;
    QVERIFY(!plain.findChild<QLabel *>(QStringLiteral("headerImage")));
}

void tst_InstallWizard::filing()
{
    ClassicInstallWizard wizard;
    auto *first = new InstallTextDialog(QStringLiteral("One"), QString());
    auto *second = new InstallTextDialog(QStringLiteral("Two"), QString());
    QCOMPARE(wizard.addPage(first, 3), 3);
    QCOMPARE(wizard.addPage(second, 20), 20);
    QCOMPARE(wizard.findPage(3), first);
    QCOMPARE(wizard.findPage(20), second);
    QCOMPARE(wizard.findPage(4), nullptr);
    QCOMPARE(wizard.pageId(second), 20);
    InstallTextDialog stranger(QStringLiteral("Three"), QString());
    QCOMPARE(wizard.pageId(&stranger), -1);
    QCOMPARE(first->parentWidget(), wizard.findChild<QStackedWidget *>());
}

void tst_InstallWizard::showPage()
{
    ClassicInstallWizard wizard;
    auto *welcome = new InstallTextDialog(QStringLiteral("Welcome"), QString());
    welcome->setDescription(QStringLiteral("For $(Product)"));
    auto *other = new InstallTextDialog(QStringLiteral("Other"), QString());
    wizard.addPage(welcome, 1);
    wizard.addPage(other, 2);
    QSignalSpy shown(welcome, &InstallWizardDialog::aboutToShow);
    // The page is announced before it is raised, so a listener can still see
    // the page it leaves.
    InstallWizardDialog *visibleWhenAnnounced = nullptr;
    connect(welcome, &InstallWizardDialog::aboutToShow, this,
        [&] { visibleWhenAnnounced = wizard.currentPage(); });
    wizard.showPage(2);
    wizard.showPage(1);
    QCOMPARE(shown.count(), 1);
    QCOMPARE(visibleWhenAnnounced, other);
    QCOMPARE(wizard.currentPage(), welcome);
    QVERIFY(wizard.isVisible());
    QCOMPARE(wizard.headerLabel()->text(), QStringLiteral("<b>Welcome</b><p>For Calvra</p>"));
}

void tst_InstallWizard::showNullPage()
{
    ClassicInstallWizard wizard;
    wizard.addPage(new InstallTextDialog(QStringLiteral("Welcome"), QString()), 1);
    for (int id : { 0, 2, 21 }) {
        try {
            wizard.showPage(id);
            QFAIL("no exception");
        } catch (const HException &error) {
            QCOMPARE(error.message(), QStringLiteral("Attempted to show dialog NULL dialog"));
        }
    }
    QVERIFY_THROWS_EXCEPTION(HException, wizard.showPage(static_cast<InstallWizardDialog *>(nullptr)));
}

void tst_InstallWizard::buttonsFollowPage_data()
{
    QTest::addColumn<quint32>("flags");
    QTest::addColumn<bool>("back");
    QTest::addColumn<bool>("next");
    QTest::addColumn<bool>("cancel");
    QTest::newRow("none") << 0u << true << true << true;
    QTest::newRow("back") << 2u << false << true << true;
    QTest::newRow("next") << 4u << true << false << true;
    QTest::newRow("cancel") << 8u << true << true << false;
    QTest::newRow("failed page") << 10u << false << true << false;
    QTest::newRow("other bits ignored") << 0x11u << true << true << true;
}

void tst_InstallWizard::buttonsFollowPage()
{
    QFETCH(quint32, flags);
    QFETCH(bool, back);
    QFETCH(bool, next);
    QFETCH(bool, cancel);
    ClassicInstallWizard wizard;
    auto *page = new InstallTextDialog(QStringLiteral("Start"), QString(), QStringLiteral("&Install"));
    wizard.addPage(page, 11);
    wizard.showPage(11);
    QCOMPARE(wizard.nextButton()->text(), QStringLiteral("&Install"));
    QCOMPARE(wizard.backButton()->text(), QStringLiteral("<&Back"));
    QCOMPARE(wizard.cancelButton()->text(), QStringLiteral("&Cancel"));
    // A change on the visible page reaches the buttons without another show.
    page->setFlags(flags);
    QCOMPARE(wizard.backButton()->isEnabled(), back);
    QCOMPARE(wizard.nextButton()->isEnabled(), next);
    QCOMPARE(wizard.cancelButton()->isEnabled(), cancel);
    page->setNextLabel(QStringLiteral("&Finish"));
    QCOMPARE(wizard.nextButton()->text(), QStringLiteral("&Finish"));
    page->setTitle(QStringLiteral("Done"));
    QCOMPARE(wizard.headerLabel()->text(), QStringLiteral("<b>Done</b><p></p>"));
}

void tst_InstallWizard::buttonsForwardToVisiblePage()
{
    ClassicInstallWizard wizard;
    auto *first = new InstallTextDialog(QStringLiteral("First"), QString());
    auto *second = new InstallTextDialog(QStringLiteral("Second"), QString());
    wizard.addPage(first, 1);
    wizard.addPage(second, 2);
    QSignalSpy firstNext(first, &InstallWizardDialog::nextClicked);
    QSignalSpy secondBack(second, &InstallWizardDialog::backClicked);
    QSignalSpy secondNext(second, &InstallWizardDialog::nextClicked);
    QSignalSpy secondCancel(second, &InstallWizardDialog::cancelClicked);
    wizard.showPage(1);
    QTest::mouseClick(wizard.nextButton(), Qt::LeftButton);
    QCOMPARE(firstNext.count(), 1);
    QCOMPARE(secondNext.count(), 0);
    wizard.showPage(2);
    QTest::mouseClick(wizard.nextButton(), Qt::LeftButton);
    QTest::mouseClick(wizard.backButton(), Qt::LeftButton);
    QTest::mouseClick(wizard.cancelButton(), Qt::LeftButton);
    QCOMPARE(firstNext.count(), 1);
    QCOMPARE(secondNext.count(), 1);
    QCOMPARE(secondNext.at(0).at(0).value<InstallWizardDialog *>(), second);
    QCOMPARE(secondBack.count(), 1);
    QCOMPARE(secondCancel.count(), 1);
    // A disabled button forwards nothing.
    second->setFlags(InstallWizardDialog::NextDisabled);
    QTest::mouseClick(wizard.nextButton(), Qt::LeftButton);
    QCOMPARE(secondNext.count(), 1);
}

void tst_InstallWizard::escapeAndCloseAreCancel()
{
    ClassicInstallWizard wizard;
    auto *page = new InstallTextDialog(QStringLiteral("First"), QString());
    wizard.addPage(page, 1);
    wizard.showPage(1);
    QSignalSpy cancelled(page, &InstallWizardDialog::cancelClicked);
    QTest::keyClick(&wizard, Qt::Key_Escape);
    QVERIFY(wizard.isVisible());
    QVERIFY(!wizard.close());
    QVERIFY(wizard.isVisible());
    QCOMPARE(cancelled.count(), 2);
}

void tst_InstallWizard::f1IsHelp()
{
    ClassicInstallWizard wizard;
    auto *page = new InstallTextDialog(QStringLiteral("First"), QString());
    wizard.addPage(page, 1);
    wizard.showPage(1);
    QVERIFY(QTest::qWaitForWindowActive(&wizard));
    QSignalSpy help(page, &InstallWizardDialog::helpClicked);
    QTest::keyClick(&wizard, Qt::Key_F1);
    QCOMPARE(help.count(), 1);
}

QTEST_MAIN(tst_InstallWizard)
#include "tst_installwizard.moc"
