// The window offscreen: the question box (which buttons, which answer for
// Enter, Escape and a click), the box that asks where something went, the
// custom setup page's popup, the real wizard driven by the real application
// through its buttons, and the closing commands the complete page leaves.
// The window under a real X server is the end-to-end window walk.
#include "core/installcommandline.h"
#include "core/macrotable.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/installsettingsrecord.h"
#include "installer/licencedocument.h"
#include "plan/installconfigurationlist.h"
#include "tests/plan/scriptedquestion.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/customitem.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installcustomsetupdialog.h"
#include "wizard/installfindfiledialog.h"
#include "wizard/installfinisheddialog.h"
#include "wizard/installstandardwizard.h"
#include "wizard/installwizarddialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <unistd.h>

using Page = InstallWizardInterface::PageId;

namespace {

// Acts on the next modal dialog once it has the focus, as a user would see it.
void whenModal(std::function<void(QWidget *)> action)
{
    auto *timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, action] {
        QWidget *widget = QApplication::activeModalWidget();
        if (!widget || QApplication::activeWindow() != widget)
            return;
        timer->stop();
        timer->deleteLater();
        action(widget);
    });
    timer->start();
}

// Picks the nth entry of the next popup menu.
void whenPopup(int entry)
{
    auto *timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, entry] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        if (!menu)
            return;
        timer->stop();
        timer->deleteLater();
        QList<QAction *> entries = menu->actions();
        entries.removeIf([](QAction *action) { return action->isSeparator(); });
        menu->setActiveAction(entries.at(entry));
        QTest::keyClick(menu, Qt::Key_Return);
    });
    timer->start();
}

class LoggingItem : public InstallConfigurationItem
{
public:
    LoggingItem(InstallConfigurationItem *parent, const QString &title, QStringList *log, int level)
        : InstallConfigurationItem(parent, title, QString(), level, true, AllFlags)
        , m_log(log)
    { }

protected:
    void installAction() override { m_log->append(QStringLiteral("install ") + title()); }
    void uninstallAction() override { m_log->append(QStringLiteral("remove ") + title()); }
    void checkInstalledAction() override { setInstalled(fullyInstalled); }

private:
    QStringList *m_log;
};

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace

class tst_Wizard : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void questionBox_data();
    void questionBox();
    void locate_data();
    void locate();
    void customSetup_data();
    void customSetup();
    void window_data();
    void window();
    void closingCommands();
    void installationError();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_Wizard::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), m_dir->filePath(QStringLiteral("dest")));
    macros().setPath(QStringLiteral("SrcDir"), m_dir->path());
}

void tst_Wizard::questionBox_data()
{
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("defaultButton");
    QTest::addColumn<QString>("press"); // a label, "Enter" or "Escape"
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<int>("result");
    const QStringList yesNo { "&Yes", "&No" };
    QTest::newRow("click No") << 17 << 1 << "&No" << yesNo << 16;
    QTest::newRow("Enter presses the default") << 17 << 16 << "Enter" << yesNo << 16;
    QTest::newRow("Escape says No") << 17 << 1 << "Escape" << yesNo << 16;
    QTest::newRow("Escape cancels when it can")
        << (1 | 2 | 16 | 32 | 256) << 1 << "Escape"
        << QStringList { "&Yes", "Yes to &All", "&No", "No to A&ll", "&Cancel" } << 256;
    QTest::newRow("Escape on OK alone") << 4 << 4 << "Escape" << QStringList { "&OK" } << 4;
    QTest::newRow("removal failure") << (8 | 64 | 128 | 256) << 8 << "I&gnore All"
                                     << QStringList { "&Retry", "&Ignore", "I&gnore All", "&Cancel" } << 128;
}

void tst_Wizard::questionBox()
{
    QFETCH(int, buttons);
    QFETCH(int, defaultButton);
    QFETCH(QString, press);
    QFETCH(QStringList, labels);
    QFETCH(int, result);
    InstallCheckMessageBox box;
    QStringList seen;
    QString text;
    whenModal([&](QWidget *widget) {
        auto *shown = qobject_cast<InstallCheckMessageBox *>(widget);
        QVERIFY(shown);
        text = shown->textLabel()->text();
        QPushButton *target = nullptr;
        for (QPushButton *button : shown->buttons()) {
            seen.append(button->text() + (button->isDefault() ? QStringLiteral("*") : QString()));
            if (button->text() == press)
                target = button;
        }
        if (target)
            QTest::mouseClick(target, Qt::LeftButton);
        else
            QTest::keyClick(widget, press == QLatin1String("Enter") ? Qt::Key_Return : Qt::Key_Escape);
    });
    QCOMPARE(box.ask(QStringLiteral("Core Installation Failed"), QStringLiteral("Terminate $(Product)?"),
                 buttons, defaultButton),
        result);
    for (QString &label : labels) {
        if (label == InstallCheckMessageBox::buttonLabel(defaultButton))
            label += QLatin1Char('*');
    }
    QCOMPARE(seen, labels);
    QCOMPARE(text, QStringLiteral("<b>Core Installation Failed</b><p>Terminate Tamrin Calvra for ARM?"));
}

void tst_Wizard::locate_data()
{
    QTest::addColumn<int>("form");
    QTest::addColumn<QString>("typed"); // into the path field; empty: left as it was
    QTest::addColumn<bool>("ok"); // else Cancel
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("macro"); // "name=value" the answer sets
    using D = InstallFindFileDialog;
    const QString none;
    QTest::newRow("a file, OK") << int(D::File) << " /mnt/cd/lib/libcalvra.a " << true << "Locate File"
                                << "/mnt/cd/lib/libcalvra.a"
                                << "SrcDir=/mnt/cd/lib";
    QTest::newRow("a file, Cancel") << int(D::File) << "/mnt/cd/lib/x" << false << "Locate File" << none
                                    << "SrcDir=/old";
    QTest::newRow("the installation folder")
        << int(D::InstallationFolder) << "/opt/calvra" << true << "Locate Installation Folder"
        << "/opt/calvra"
        << "DestDir=/opt/calvra";
    QTest::newRow("the product folder, nothing given")
        << int(D::ProductFolder) << none << true << "Locate Tamrin Calvra for ARM Folder" << none
        << "DestDir=/old";
}

void tst_Wizard::locate()
{
    QFETCH(int, form);
    QFETCH(QString, typed);
    QFETCH(bool, ok);
    QFETCH(QString, title);
    QFETCH(QString, result);
    QFETCH(QString, macro);
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/old"));
    macros().set(QStringLiteral("DestDir"), QStringLiteral("/old"));
    const auto kind = InstallFindFileDialog::Form(form);
    const QString missing
        = kind == InstallFindFileDialog::ProductFolder ? QString() : QStringLiteral("/gone/x.a");
    QString shown;
    whenModal([&](QWidget *widget) {
        auto *box = qobject_cast<InstallFindFileDialog *>(widget);
        QVERIFY(box && box->text().contains(missing));
        shown = box->windowTitle();
        QCOMPARE(box->pathEdit()->text(), missing);
        box->pathEdit()->setText(typed);
        for (QPushButton *button : box->findChildren<QPushButton *>()) {
            if (button->text() == (ok ? QLatin1String("&OK") : QLatin1String("&Cancel")))
                button->click();
        }
    });
    // Items ask for a file through the question box.
    const QString located = kind == InstallFindFileDialog::File
        ? InstallCheckMessageBox().locateFile(missing)
        : InstallFindFileDialog(kind, missing).locate();
    QCOMPARE(located, result);
    QCOMPARE(shown, title);
    const QString name = macro.section(QLatin1Char('='), 0, 0);
    QCOMPARE(name + QLatin1Char('=') + expandMacros(QStringLiteral("$(%1)").arg(name)), macro);
}

void tst_Wizard::customSetup_data()
{
    QTest::addColumn<QString>("before"); // Product, Docs below it, Samples below Docs: 1 selected
    QTest::addColumn<QString>("row"); // clicked
    QTest::addColumn<int>("entry"); // of the popup
    QTest::addColumn<int>("answer"); // to the question about a required feature; 0: none asked
    QTest::addColumn<QString>("after");
    QTest::addColumn<QString>("icons"); // per row: I installed, P partly, N not
    QTest::addColumn<QString>("described"); // how the description area ends
    const int yes = InstallQuestion::Yes;
    using D = InstallCustomSetupDialog;
    QTest::newRow("a feature selects its parents") << "000"
                                                   << "Samples" << int(D::InstallFeature) << 0 << "111"
                                                   << "III"
                                                   << "Optional installation.";
    QTest::newRow("a feature selects what it needs, not its options")
        << "000"
        << "Product" << int(D::InstallFeature) << 0 << "110"
        << "PPN"
        << "Required for minimal installation.";
    QTest::newRow("and all subfeatures") << "000"
                                         << "Product" << int(D::InstallFeatureAndSubfeatures) << 0 << "111"
                                         << "III"
                                         << "Required for minimal installation.";
    // Maintenance: the description tells whether the feature is installed.
    QTest::newRow("a typical feature goes unasked")
        << "111"
        << "Docs" << int(D::DoNotInstall) << 0 << "101"
        << "PNN"
        << "Required for typical installation.<p><b>Status:</b> Currently installed.";
    QTest::newRow("a required feature is asked about, No keeps it")
        << "111"
        << "Product" << int(D::DoNotInstall) << int(InstallQuestion::No) << "111"
        << "III"
        << "<p><b>Status:</b> Currently installed.";
    QTest::newRow("Yes takes it out") << "111"
                                      << "Product" << int(D::DoNotInstall) << yes << "011"
                                      << "NNN"
                                      << "<p><b>Status:</b> Currently installed.";
}

void tst_Wizard::customSetup()
{
    QFETCH(QString, before);
    QFETCH(QString, row);
    QFETCH(int, entry);
    QFETCH(int, answer);
    QFETCH(QString, after);
    QFETCH(QString, icons);
    QFETCH(QString, described);
    QStringList done;
    InstallConfigurationList list(QStringLiteral("Plan"), QString(), 0, true);
    FixedMode mode(before == QLatin1String("111") ? InstallMode::Modify : InstallMode::Custom);
    list.setModeSource(&mode);
    ScriptedQuestion question;
    if (answer)
        question.answers = { answer };
    list.setQuestion(&question);
    auto *product = new LoggingItem(&list, QStringLiteral("Product"), &done, 0);
    auto *docs = new LoggingItem(product, QStringLiteral("Docs"), &done, 1);
    auto *samples = new LoggingItem(docs, QStringLiteral("Samples"), &done, 3);
    const QList<InstallConfigurationItem *> items { product, docs, samples };
    for (int i = 0; i < 3; ++i) {
        items[i]->setInstall(before[i] == QLatin1Char('1'), false);
        items[i]->setInstalled(InstallConfigurationItem::fullyInstalled);
    }
    InstallCustomSetupDialog dialog(&list);
    dialog.installationModeChanged(InstallMode::Mode(mode.value));
    CustomItem *clicked = dialog.rowOf(items.at(QStringList { "Product", "Docs", "Samples" }.indexOf(row)));
    dialog.tree()->setCurrentItem(clicked);
    whenPopup(entry);
    emit dialog.tree()->itemClicked(clicked, 0);
    QString selected;
    QString shown;
    for (InstallConfigurationItem *item : items) {
        selected += item->installFlag() ? QLatin1Char('1') : QLatin1Char('0');
        shown += QStringLiteral("IPN").at(int(dialog.rowOf(item)->state()));
    }
    QCOMPARE(selected, after);
    QCOMPARE(shown, icons);
    QCOMPARE(question.headings(), answer ? QStringList { "Remove Product?" } : QStringList());
    QVERIFY2(
        dialog.descriptionArea()->text().endsWith(described), qPrintable(dialog.descriptionArea()->text()));
}

void tst_Wizard::window_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("cancelAnswer"); // 0: no Cancel; else pressed on the first page
    QTest::addColumn<QList<int>>("pages");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("maintenance"); // the choice on the maintenance page, when it is shown
    const QString none;
    QTest::newRow("install, Back once from the destination")
        << QStringList() << 0 << QList<int> { 1, 20, 3, 20, 3, 8, 7, 11, 17 }
        << "install Product,install Samples"
        << "Install Complete" << none;
    QTest::newRow("repair chosen on the maintenance page")
        << QStringList { "--remove" } << 0 << QList<int> { 10, 14, 17 }
        << "remove Samples,remove Product,install Product,install Samples"
        << "Repair Complete"
        << "Repair";
    // The installation is not where the command line says: the user points at
    // it in the folder chooser, from the destination page or when asked.
    const QStringList elsewhere { "--destination", "/nonexistent/calvra" };
    QTest::newRow("an installation found at the destination is upgraded")
        << elsewhere << 0 << QList<int> { 1, 20, 3, 20, 3, 15, 17 }
        << "remove Samples,remove Product,install Product,install Samples"
        << "Upgrade Complete" << none;
    QTest::newRow("remove, the installation located in the chooser")
        << QStringList { "--remove" } + elsewhere << 0 << QList<int> { 12, 17 }
        << "remove Samples,remove Product"
        << "Uninstall Complete" << none;
    QTest::newRow("Cancel, No goes on")
        << QStringList() << int(InstallQuestion::No) << QList<int> { 1 } << none << none << none;
    QTest::newRow("Cancel, Yes ends the run")
        << QStringList() << int(InstallQuestion::Yes) << QList<int> { 1 } << none << none << none;
}

void tst_Wizard::window()
{
    QFETCH(QStringList, options);
    QFETCH(int, cancelAnswer);
    QFETCH(QList<int>, pages);
    QFETCH(QString, log);
    QFETCH(QString, outcome);
    QFETCH(QString, maintenance);
    QStringList done;
    InstallConfigurationList list(QStringLiteral("Plan"), QString(), 0, true);
    auto *product = new LoggingItem(&list, QStringLiteral("Product"), &done, 0);
    // Optional: listed on the optional page, chosen there. Below a required
    // component, so that a removal takes it too.
    new LoggingItem(product, QStringLiteral("Samples"), &done, 3);
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("dest/bin"))));
    InstallStandardWizard::Options wizardOptions;
    wizardOptions.licenseDocument = LicenceDocument::bytes();
    wizardOptions.maintenancePage = !maintenance.isEmpty();
    InstallStandardWizard wizard(&list, wizardOptions);
    if (outcome != QLatin1String("Install Complete")) {
        // What is removed or upgraded is what the record says is installed.
        list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
        QVERIFY(InstallSettingsRecord(&list).save(InstallSettingsRecord::defaultPath()));
    }
    InstallCommandLine commandLine;
    commandLine.parse(QStringList { "Setup", "--user-mode-install" } + options, macros());
    BrantleInstallerApplication application(commandLine, &list, &wizard);
    const bool located = options.contains(QStringLiteral("--destination"));
    const auto locate = [this] {
        whenModal([this](QWidget *chooser) {
            chooser->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))
                ->setText(m_dir->filePath(QStringLiteral("dest")));
            static_cast<QDialog *>(chooser)->accept();
        });
    };
    if (located && options.contains(QStringLiteral("--remove")))
        locate();
    application.start();
    QVERIFY(wizard.window()->isVisible());
    const auto press = [&wizard](const char *name) {
        auto *button = wizard.window()->findChild<QPushButton *>(QLatin1String(name));
        QVERIFY(button && button->isEnabled());
        button->click();
    };
    if (!maintenance.isEmpty()) {
        // A product whose own maintenance page chooses the mode.
        wizard.showPage(Page::MaintenancePage);
        for (QRadioButton *choice : wizard.window()->findChildren<QRadioButton *>()) {
            if (choice->text() == maintenance && choice->isVisible())
                choice->click();
        }
    }
    QList<int> shown { wizard.currentPageId() };
    // The header's title stays in place, whether a page has a description or not.
    QSet<int> headerHeights;
    const auto *header = wizard.window()->findChild<QLabel *>(QStringLiteral("headerText"));
    QVERIFY(header);
    bool wentBack = false;
    if (cancelAnswer) {
        QString question;
        whenModal([&](QWidget *box) {
            question = qobject_cast<InstallCheckMessageBox *>(box)->textLabel()->text();
            box->findChild<QPushButton *>(QString::number(cancelAnswer))->click();
        });
        press("Cancel");
        QVERIFY2(question.contains(QStringLiteral("Are you sure you want to terminate the installation?")),
            qPrintable(question));
        QCOMPARE(application.hasEnded(), cancelAnswer == InstallQuestion::Yes);
    }
    for (int i = 0; i < 12 && !cancelAnswer && wizard.currentPageId() != Page::CompletePage; ++i) {
        if (wizard.currentPageId() == Page::LicensePage)
            wizard.acceptLicense();
        for (QCheckBox *optional : wizard.window()->findChildren<QCheckBox *>()) {
            if (optional->isVisible() && optional->text() == QLatin1String("Install Samples"))
                optional->click();
        }
        if (located && wizard.currentPageId() == Page::DestinationPage) {
            locate();
            press("browse");
        }
        const bool back = !wentBack && !options.contains(QStringLiteral("--remove"))
            && wizard.currentPageId() == Page::DestinationPage;
        wentBack = wentBack || back;
        press(back ? "Back" : "Next");
        shown.append(wizard.currentPageId());
        headerHeights.insert(header->sizeHint().height());
    }
    QVERIFY2(headerHeights.size() <= 1, qPrintable(QString::number(headerHeights.size())));
    QCOMPARE(shown, pages);
    QCOMPARE(done.join(QLatin1Char(',')), log);
    if (outcome.isEmpty())
        return;
    QVERIFY(wizard.page(Page::CompletePage)->title().contains(outcome));
    press("Next");
    QVERIFY(application.hasEnded());
}

void tst_Wizard::closingCommands()
{
    if (::geteuid() != 0)
        QSKIP("the check boxes are offered without a commands file only to root");
    const InstallFinishedDialog::Settings settings { QStringLiteral("$(DestDir)/doc/notes.html"),
        QStringLiteral("$(DestDir)/bin/calvra --welcome"), QStringLiteral("Start $(Product)") };
    const QString commands = InstallFinishedDialog::commandsFile();
    QCOMPARE(commands, m_dir->filePath(QStringLiteral(".extract_commands.txt")));
    {
        InstallFinishedDialog dialog(settings, InstallMode::Typical);
        dialog.announceShow();
        dialog.releaseNotesBox()->setChecked(true);
        QVERIFY(dialog.runClosingActions());
        const QByteArray destination = QFile::encodeName(m_dir->filePath(QStringLiteral("dest")));
        QCOMPARE(readAll(commands),
            "xdg-open|file://" + destination + "/doc/notes.html\n" + destination + "/bin/calvra --welcome\n");
    }
    // A link planted in its place is replaced, never written through.
    QVERIFY(QFile::remove(commands));
    QFile victim(m_dir->filePath(QStringLiteral("victim")));
    QVERIFY(victim.open(QIODevice::WriteOnly) && victim.write("keep me\n") == 8);
    victim.close();
    QVERIFY(QFile::link(victim.fileName(), commands));
    InstallFinishedDialog dialog(settings, InstallMode::Typical);
    dialog.announceShow();
    QVERIFY(dialog.runClosingActions() && !QFileInfo(commands).isSymLink());
    QCOMPARE(readAll(victim.fileName()), QByteArray("keep me\n"));
}

void tst_Wizard::installationError()
{
    // A failure the run cannot go on from: a box with OK alone, which Escape presses too.
    InstallConfigurationList list(QStringLiteral("Plan"), QString(), 0, true);
    InstallStandardWizard wizard(&list, InstallStandardWizard::Options());
    QString shown;
    whenModal([&shown](QWidget *box) {
        shown = box->windowTitle() + QLatin1Char('|') + qobject_cast<QMessageBox *>(box)->text();
        QTest::keyClick(box, Qt::Key_Escape);
    });
    wizard.reportInstallationError(QStringLiteral("The installer must be run as root"));
    QCOMPARE(
        shown, "Installation Error|The installer must be run as root.<p>Click OK to terminate installation");
}

QTEST_MAIN(tst_Wizard)
#include "tst_wizard.moc"
