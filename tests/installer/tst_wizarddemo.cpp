#include "core/installcommandline.h"
#include "core/installquestion.h"
#include "core/macrotable.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/installsettingsrecord.h"
#include "installer/licencedocument.h"
#include "media/installmedia.h"
#include "plan/configurationlist.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/customitem.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installcustomsetupdialog.h"
#include "wizard/installstandardwizard.h"
#include "wizard/installwizarddialog.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDirIterator>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

#include <functional>
#include <memory>

using Page = InstallWizardInterface::PageId;

namespace {

// Every file below folder, relative names.
QSet<QString> filesBelow(const QString &folder)
{
    QSet<QString> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.insert(QDir(folder).relativeFilePath(it.next()));
    return files;
}

const QStringList productFolders
    = { "bin", "gcc", "html", "include", "lib", "llvm", "samples", "tamrin-rtl", "source", "targets" };

} // namespace

// The product's own plan on the demo medium, installed, upgraded, modified,
// repaired and removed by the application through the real wizard window,
// pressed button by button as a user would. A user-mode run: the destination,
// the home folder and the settings all live in a temporary folder.
class tst_WizardDemo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void installation_data();
    void installation();
    void customTreeChoices();
    void backRetracesBranch_data();
    void backRetracesBranch();
    void licenceRefused();
    void upgradeFoundAtDestination();
    void maintenance_data();
    void maintenance();
    void cancelByPhase_data();
    void cancelByPhase();
    void cancelDuringLongCopy();

private:
    void start(const QStringList &options = {}, bool maintenancePage = false);
    void end();
    void press(const char *button);
    // Presses Next until the page is shown, accepting the licence and typing
    // the destination on the way.
    void nextUntil(int page);
    void installTypical();
    // Runs the action on the question box once it opens.
    void whenAsked(std::function<void(InstallCheckMessageBox *)> action);
    void answer(int button);
    void clickFeature(InstallConfigurationItem *item, const QString &entry);
    InstallConfigurationItem *itemTitled(const QString &title) const;
    QString destination() const { return m_dir->filePath(QStringLiteral("Calvra Home")); }
    QSet<QString> productFiles(const QString &medium) const;

    QTemporaryDir m_work;
    QString m_medium;
    QString m_longMedium;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<ConfigurationList> m_list;
    std::unique_ptr<InstallStandardWizard> m_wizard;
    std::unique_ptr<BrantleInstallerApplication> m_application;
    QList<int> m_shown;
    QStringList m_questions;
    QPointer<QTimer> m_watch;
};

void tst_WizardDemo::initTestCase()
{
    QVERIFY(m_work.isValid());
    m_medium = m_work.filePath(QStringLiteral("medium"));
    QProcess make;
    make.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    make.start(QStringLiteral(SETUP_SOURCE_DIR "/scripts/make-demo-medium"),
        { m_medium, QStringLiteral(SETUP_BINARY_DIR "/app/Setup") });
    QVERIFY(make.waitForFinished(120000));
    QCOMPARE(make.exitCode(), 0);

    // The same medium with a source folder large enough that copying it
    // takes many steps: 200 files of 256 KiB, fixed contents.
    m_longMedium = m_work.filePath(QStringLiteral("long"));
    QCOMPARE(QProcess::execute(QStringLiteral("cp"), { QStringLiteral("-a"), m_medium, m_longMedium }), 0);
    QVERIFY(QDir().mkpath(m_longMedium + QStringLiteral("/source/large")));
    for (int i = 0; i < 200; ++i) {
        QFile file(m_longMedium + QStringLiteral("/source/large/part%1.bin").arg(i, 3, 10, QLatin1Char('0')));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.write(QByteArray(256 * 1024, char('a' + i % 26))) == 256 * 1024);
    }
}

void tst_WizardDemo::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    // The user's folders (menu entries, file types, settings) are the test's own.
    const QString home = m_dir->filePath(QStringLiteral("home"));
    QVERIFY(QDir().mkpath(home));
    qputenv("HOME", QFile::encodeName(home));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home + QStringLiteral("/.local/share")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/.config")));
    macros().setDefaults();
    macros().set(QStringLiteral("HomeDir"), home);
    macros().set(QStringLiteral("SrcDir"), m_medium);
    m_shown.clear();
    m_questions.clear();
}

void tst_WizardDemo::cleanup()
{
    delete m_watch;
    end();
    m_dir.reset();
}

void tst_WizardDemo::start(const QStringList &options, bool maintenancePage)
{
    end();
    InstallCommandLine commandLine;
    commandLine.parse(
        QStringList { QStringLiteral("Setup"), QStringLiteral("--user-mode-install") } + options, macros());
    m_list = std::make_unique<ConfigurationList>(false);
    InstallStandardWizard::Options wizardOptions;
    wizardOptions.licenseDocument = LicenceDocument::bytes();
    wizardOptions.maintenancePage = maintenancePage;
    wizardOptions.mode = commandLine.mode();
    m_wizard = std::make_unique<InstallStandardWizard>(m_list.get(), wizardOptions);
    connect(
        m_wizard.get(), &InstallWizardInterface::aboutToShow, this, [this](int id) { m_shown.append(id); });
    m_application = std::make_unique<BrantleInstallerApplication>(commandLine, m_list.get(), m_wizard.get());
    m_application->start();
    QVERIFY(m_wizard->window()->isVisible());
}

void tst_WizardDemo::end()
{
    m_application.reset();
    m_wizard.reset();
    m_list.reset();
    m_shown.clear();
}

void tst_WizardDemo::press(const char *button)
{
    auto *target = m_wizard->window()->findChild<QPushButton *>(QLatin1String(button));
    QVERIFY(target);
    QVERIFY2(target->isEnabled(), button);
    QVERIFY(target->isVisible());
    target->click();
}

void tst_WizardDemo::nextUntil(int page)
{
    for (int i = 0; i < 12 && m_wizard->currentPageId() != page; ++i) {
        InstallWizardDialog *current = m_wizard->page(m_wizard->currentPageId());
        if (m_wizard->currentPageId() == Page::LicensePage) {
            for (QRadioButton *choice : current->findChildren<QRadioButton *>()) {
                if (choice->text() == QLatin1String("I &accept the Agreement"))
                    choice->click();
            }
        } else if (m_wizard->currentPageId() == Page::DestinationPage) {
            auto *field = current->findChild<QLineEdit *>();
            QVERIFY(field);
            field->selectAll();
            QTest::keyClicks(field, destination());
        }
        press("Next");
        if (QTest::currentTestFailed())
            return;
    }
    QCOMPARE(m_wizard->currentPageId(), page);
}

void tst_WizardDemo::installTypical()
{
    start();
    nextUntil(Page::CompletePage);
    press("Next");
    QCOMPARE(m_application->result(), int(InstallApplication::Succeeded));
    end();
}

void tst_WizardDemo::whenAsked(std::function<void(InstallCheckMessageBox *)> action)
{
    delete m_watch;
    m_watch = new QTimer(this);
    m_watch->setInterval(5);
    connect(m_watch, &QTimer::timeout, this, [this, action] {
        auto *box = qobject_cast<InstallCheckMessageBox *>(QApplication::activeModalWidget());
        if (!box || !box->isVisible())
            return;
        m_watch->deleteLater();
        m_watch->stop();
        m_questions.append(box->textLabel()->text());
        action(box);
    });
    m_watch->start();
}

void tst_WizardDemo::answer(int button)
{
    whenAsked([button](InstallCheckMessageBox *box) {
        auto *pressed = box->findChild<QAbstractButton *>(QString::number(button));
        QVERIFY(pressed);
        pressed->click();
    });
}

void tst_WizardDemo::clickFeature(InstallConfigurationItem *item, const QString &entry)
{
    auto *page = qobject_cast<InstallCustomSetupDialog *>(m_wizard->page(Page::CustomSetupPage));
    QVERIFY(page && page->isVisible());
    CustomItem *row = page->rowOf(item);
    QVERIFY(row);
    QTreeWidget *tree = page->tree();
    tree->scrollToItem(row);
    QTimer menuWatch;
    menuWatch.setInterval(5);
    bool chosen = false;
    connect(&menuWatch, &QTimer::timeout, this, [&] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        if (!menu)
            return;
        menuWatch.stop();
        for (QAction *action : menu->actions()) {
            if (action->text() == entry) {
                menu->setActiveAction(action);
                chosen = true;
            }
        }
        QTest::keyClick(menu, chosen ? Qt::Key_Return : Qt::Key_Escape);
    });
    menuWatch.start();
    const QRect rect = tree->visualItemRect(row);
    const int iconColumn = tree->header()->sectionPosition(0) + tree->header()->sectionSize(0) / 2;
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, QPoint(iconColumn, rect.center().y()));
    QVERIFY2(chosen, qPrintable(entry));
}

InstallConfigurationItem *tst_WizardDemo::itemTitled(const QString &title) const
{
    for (InstallConfigurationItem *item : m_list->findChildren<InstallConfigurationItem *>()) {
        if (item->title() == title)
            return item;
    }
    return nullptr;
}

QSet<QString> tst_WizardDemo::productFiles(const QString &medium) const
{
    QSet<QString> files;
    for (const QString &folder : productFolders) {
        for (const QString &name : filesBelow(medium + QLatin1Char('/') + folder))
            files.insert(folder + QLatin1Char('/') + name);
    }
    return files;
}

void tst_WizardDemo::installation_data()
{
    QTest::addColumn<QString>("configuration");
    QTest::addColumn<QList<int>>("pages");
    QTest::newRow("typical") << QString() << QList<int> { 1, 20, 3, 8, 7, 11, 16, 17 };
    QTest::newRow("minimal") << QStringLiteral("Minimal") << QList<int> { 1, 20, 3, 8, 7, 11, 16, 17 };
    QTest::newRow("custom") << QStringLiteral("Custom") << QList<int> { 1, 20, 3, 8, 9, 7, 11, 16, 17 };
}

void tst_WizardDemo::installation()
{
    QFETCH(QString, configuration);
    QFETCH(QList<int>, pages);
    start();
    nextUntil(Page::ConfigurationPage);
    if (!configuration.isEmpty()) {
        for (QRadioButton *choice : m_wizard->page(Page::ConfigurationPage)->findChildren<QRadioButton *>()) {
            if (choice->text() == configuration)
                choice->click();
        }
    }
    nextUntil(Page::CompletePage);
    QCOMPARE(m_shown, pages);
    QVERIFY(m_wizard->page(Page::CompletePage)->title().contains(QStringLiteral("Install Complete")));
    press("Next");
    QCOMPARE(m_application->result(), int(InstallApplication::Succeeded));

    // Every product file arrived, with the installer's copy and the record.
    QSet<QString> installed = filesBelow(destination());
    QVERIFY(installed.contains(QStringLiteral("bin/uninstall")));
    QVERIFY(installed.contains(QStringLiteral("bin/IConf.xml")));
    QVERIFY(installed.contains(productFiles(m_medium)));
    QVERIFY(QFile::exists(m_dir->filePath(
        QStringLiteral("home/.local/share/applications/tamrin-tamrin-calvra-5.50a.desktop"))));
}

void tst_WizardDemo::customTreeChoices()
{
    start();
    nextUntil(Page::ConfigurationPage);
    for (QRadioButton *choice : m_wizard->page(Page::ConfigurationPage)->findChildren<QRadioButton *>()) {
        if (choice->text() == QLatin1String("Custom"))
            choice->click();
    }
    press("Next");
    QCOMPARE(m_wizard->currentPageId(), int(Page::CustomSetupPage));
    InstallConfigurationItem *gcc = itemTitled(QStringLiteral("GCC Files"));
    InstallConfigurationItem *llvm = itemTitled(QStringLiteral("LLVM Files"));
    QVERIFY(gcc && llvm);
    const QString notAvailable = QStringLiteral("This feature will not be available.");

    // The question about a feature the minimal installation needs: its
    // default, No, keeps the feature.
    whenAsked([](InstallCheckMessageBox *box) { QTest::keyClick(box, Qt::Key_Return); });
    clickFeature(gcc, notAvailable);
    QCOMPARE(m_questions.size(), 1);
    QCOMPARE(m_questions.first(),
        QStringLiteral("<b>Remove GCC Files?</b><p>The GCC Files component is required for the minimal "
                       "installation.<p>Are you sure you want to remove it?"));
    QVERIFY(gcc->willInstall());

    // Yes removes it; the other is removed and chosen again.
    answer(InstallQuestion::Yes);
    clickFeature(gcc, notAvailable);
    QVERIFY(!gcc->willInstall());
    answer(InstallQuestion::Yes);
    clickFeature(llvm, notAvailable);
    QVERIFY(!llvm->willInstall());
    clickFeature(llvm, QStringLiteral("This feature will be installed on the local hard drive."));
    QVERIFY(llvm->willInstall());
    QCOMPARE(m_questions.size(), 3);

    nextUntil(Page::CompletePage);
    const QSet<QString> installed = filesBelow(destination());
    QSet<QString> expected = productFiles(m_medium);
    for (auto it = expected.begin(); it != expected.end();)
        it = it->startsWith(QLatin1String("gcc/")) ? expected.erase(it) : std::next(it);
    QVERIFY(installed.contains(expected));
    QVERIFY(!QDir(destination() + QStringLiteral("/gcc")).exists());
    QVERIFY(QFile::exists(destination() + QStringLiteral("/llvm/bin/clang")));
}

void tst_WizardDemo::backRetracesBranch_data()
{
    QTest::addColumn<QString>("configuration");
    QTest::addColumn<QList<int>>("back");
    QTest::newRow("typical") << QStringLiteral("Typical") << QList<int> { 7, 8, 3, 20, 1 };
    QTest::newRow("custom") << QStringLiteral("Custom") << QList<int> { 7, 9, 8, 3, 20, 1 };
}

void tst_WizardDemo::backRetracesBranch()
{
    QFETCH(QString, configuration);
    QFETCH(QList<int>, back);
    start();
    nextUntil(Page::ConfigurationPage);
    for (QRadioButton *choice : m_wizard->page(Page::ConfigurationPage)->findChildren<QRadioButton *>()) {
        if (choice->text() == configuration)
            choice->click();
    }
    nextUntil(Page::StartInstallationPage);
    QList<int> visited;
    while (m_wizard->currentPageId() != Page::WelcomePage) {
        press("Back");
        if (QTest::currentTestFailed())
            return;
        visited.append(m_wizard->currentPageId());
    }
    QCOMPARE(visited, back);
    // Back is disabled on the first page; nothing was written.
    QVERIFY(!m_wizard->window()->findChild<QPushButton *>(QStringLiteral("Back"))->isEnabled());
    QVERIFY(!QDir(destination()).exists());
}

void tst_WizardDemo::licenceRefused()
{
    start();
    press("Next");
    QCOMPARE(m_wizard->currentPageId(), int(Page::LicensePage));
    for (QRadioButton *choice : m_wizard->page(Page::LicensePage)->findChildren<QRadioButton *>()) {
        if (choice->text() == QLatin1String("I &do not accept the Agreement"))
            choice->click();
    }
    press("Next");
    QCOMPARE(m_wizard->currentPageId(), int(Page::FailedPage));
    QLabel *text = nullptr;
    for (QLabel *label : m_wizard->page(Page::FailedPage)->findChildren<QLabel *>()) {
        if (label->text().contains(QStringLiteral("License agreement not accepted")))
            text = label;
    }
    QVERIFY(text);
    press("Next");
    QCOMPARE(m_application->result(), int(InstallApplication::Failed));
    QVERIFY(!QDir(destination()).exists());
}

void tst_WizardDemo::upgradeFoundAtDestination()
{
    installTypical();
    QFile::remove(destination() + QStringLiteral("/include/calvra/core.h"));
    start();
    nextUntil(Page::StartUpgradePage);
    QCOMPARE(m_shown, (QList<int> { 1, 20, 3, 16, 15 }));
    // Found at the destination: there is no going back to choose again.
    QVERIFY(!m_wizard->window()->findChild<QPushButton *>(QStringLiteral("Back"))->isEnabled());
    press("Next");
    QCOMPARE(m_wizard->currentPageId(), int(Page::CompletePage));
    QCOMPARE(m_wizard->page(Page::CompletePage)->title(), QStringLiteral("Upgrade Complete"));
    press("Next");
    QCOMPARE(m_application->result(), int(InstallApplication::Succeeded));
    QVERIFY(filesBelow(destination()).contains(productFiles(m_medium)));
}

void tst_WizardDemo::maintenance_data()
{
    QTest::addColumn<QString>("choice");
    QTest::addColumn<QList<int>>("pages");
    QTest::addColumn<QString>("title");
    // Without a maintenance page of its own the product's removal page is
    // where every maintenance start lands.
    QTest::newRow("remove") << QString() << QList<int> { 16, 12, 16, 17 }
                            << QStringLiteral("Uninstall Complete");
    QTest::newRow("modify") << QStringLiteral("Modify") << QList<int> { 16, 12, 10, 9, 13, 16, 17 }
                            << QStringLiteral("Modify Complete");
    QTest::newRow("repair") << QStringLiteral("Repair") << QList<int> { 16, 12, 10, 14, 16, 17 }
                            << QStringLiteral("Repair Complete");
    QTest::newRow("remove, maintenance page")
        << QStringLiteral("Remove") << QList<int> { 16, 12, 10, 12, 16, 17 }
        << QStringLiteral("Uninstall Complete");
}

void tst_WizardDemo::maintenance()
{
    QFETCH(QString, choice);
    QFETCH(QList<int>, pages);
    QFETCH(QString, title);
    installTypical();
    const QString deleted = destination() + QStringLiteral("/samples/Blinky/main.c");
    QVERIFY(QFile::exists(deleted));
    QVERIFY(QFile::remove(deleted));

    start({ QStringLiteral("--remove"), QStringLiteral("--destination"), destination() }, !choice.isEmpty());
    QCOMPARE(m_wizard->currentPageId(), int(Page::StartRemovalPage));
    InstallConfigurationItem *gcc = itemTitled(QStringLiteral("GCC Files"));
    if (!choice.isEmpty()) {
        // A product with its own maintenance page offers the choice there.
        m_wizard->showPage(Page::MaintenancePage);
        for (QRadioButton *button : m_wizard->page(Page::MaintenancePage)->findChildren<QRadioButton *>()) {
            if (button->text() == choice)
                button->click();
        }
    }
    for (int i = 0; i < 6 && m_wizard->currentPageId() != Page::CompletePage; ++i) {
        if (m_wizard->currentPageId() == Page::CustomSetupPage) {
            answer(InstallQuestion::Yes);
            clickFeature(gcc, QStringLiteral("This feature will not be available."));
        }
        press("Next");
    }
    QCOMPARE(m_shown, pages);
    QCOMPARE(m_wizard->page(Page::CompletePage)->title(), title);
    press("Next");

    const QSet<QString> left = filesBelow(destination());
    if (choice.isEmpty() || choice == QLatin1String("Remove")) {
        QCOMPARE(m_application->result(), int(InstallApplication::Removed));
        QCOMPARE(left, QSet<QString>());
    } else if (choice == QLatin1String("Repair")) {
        QCOMPARE(m_application->result(), int(InstallApplication::Succeeded));
        QVERIFY(left.contains(productFiles(m_medium)));
    } else {
        // Modify: the feature taken away is gone; a kept one that was found
        // incomplete is completed.
        QCOMPARE(m_application->result(), int(InstallApplication::Succeeded));
        QVERIFY(!QDir(destination() + QStringLiteral("/gcc")).exists());
        QVERIFY(left.contains(QStringLiteral("samples/Blinky/main.c")));
        QVERIFY(left.contains(QStringLiteral("llvm/bin/clang")));
    }
}

void tst_WizardDemo::cancelByPhase_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("page");
    QTest::addColumn<int>("button");
    QTest::addColumn<QString>("question");
    QTest::addColumn<bool>("ends");

    const QString before = QStringLiteral("<p>Are you sure you want to terminate the installation?<p>Click "
                                          "Yes to terminate or No to continue.");
    const QString installation = QStringLiteral(
        "<b>The installation is not complete</b><p>Setup has not installed Tamrin Calvra for ARM.");
    const QString removal = QStringLiteral(
        "<b>The installation removal is not complete</b><p>Setup has not removed Tamrin Calvra for ARM.");
    const QStringList remove { QStringLiteral("--remove") };
    for (int page : { int(Page::WelcomePage), int(Page::LicensePage), int(Page::DestinationPage),
             int(Page::ConfigurationPage), int(Page::StartInstallationPage) }) {
        QTest::addRow("page %d, no", page)
            << QStringList() << page << int(InstallQuestion::No) << installation + before << false;
        QTest::addRow("page %d, yes", page)
            << QStringList() << page << int(InstallQuestion::Yes) << installation + before << true;
    }
    QTest::newRow("removal, no") << remove << int(Page::StartRemovalPage) << int(InstallQuestion::No)
                                 << removal + before << false;
    QTest::newRow("removal, yes") << remove << int(Page::StartRemovalPage) << int(InstallQuestion::Yes)
                                  << removal + before << true;
    QTest::newRow("complete") << QStringList() << int(Page::CompletePage) << 0 << QString() << true;
}

void tst_WizardDemo::cancelByPhase()
{
    QFETCH(QStringList, options);
    QFETCH(int, page);
    QFETCH(int, button);
    QFETCH(QString, question);
    QFETCH(bool, ends);
    if (!options.isEmpty()) {
        installTypical();
        options << QStringLiteral("--destination") << destination();
    }
    start(options);
    nextUntil(page);
    if (button)
        answer(button);
    press("Cancel");
    QCOMPARE(m_questions, question.isEmpty() ? QStringList() : QStringList { question });
    QCOMPARE(m_application->hasEnded(), ends);
    if (ends) {
        QCOMPARE(m_application->result(),
            int(page == Page::CompletePage ? InstallApplication::Succeeded : InstallApplication::Failed));
        return;
    }
    // Nothing changed: the page stays and the run goes on from it.
    QCOMPARE(m_wizard->currentPageId(), page);
    nextUntil(Page::CompletePage);
    press("Next");
    QVERIFY(m_application->hasEnded());
}

void tst_WizardDemo::cancelDuringLongCopy()
{
    macros().set(QStringLiteral("SrcDir"), m_longMedium);
    start();
    nextUntil(Page::StartInstallationPage);

    // Cancel is pressed while the large folder is being copied: the press
    // only arrives if the window keeps handling events during the copy.
    int copied = 0;
    QPushButton *cancel = m_wizard->window()->findChild<QPushButton *>(QStringLiteral("Cancel"));
    connect(m_list->media(), &InstallMedia::extractingFile, this, [&](const QString &name) {
        if (name.startsWith(QLatin1String("large/")) && ++copied == 20)
            QTimer::singleShot(0, cancel, [cancel] { QTest::mouseClick(cancel, Qt::LeftButton); });
    });
    answer(InstallQuestion::Yes);
    press("Next");
    QCOMPARE(m_wizard->currentPageId(), int(Page::FailedPage));
    QCOMPARE(m_questions.size(), 1);
    QVERIFY(m_questions.first().contains(QStringLiteral("may not work properly")));
    QCOMPARE(m_wizard->page(Page::FailedPage)->title(), QStringLiteral("Installation Failed"));
    bool cancelledText = false;
    for (QLabel *label : m_wizard->page(Page::FailedPage)->findChildren<QLabel *>())
        cancelledText |= label->text().startsWith(QStringLiteral("Installation has been cancelled by user."));
    QVERIFY(cancelledText);
    press("Next");
    QCOMPARE(m_application->result(), int(InstallApplication::Failed));

    // The copy stopped part of the way through the folder; nothing after it began.
    const QSet<QString> written = filesBelow(destination());
    int large = 0;
    for (const QString &name : written)
        large += name.startsWith(QLatin1String("source/large/")) ? 1 : 0;
    QVERIFY2(large >= 20 && large < 200, qPrintable(QString::number(large)));
    QVERIFY(!QDir(destination() + QStringLiteral("/targets")).exists());
    QVERIFY(written.contains(QStringLiteral("bin/IConf.xml")));

    // The record knows what was written: removing by it leaves nothing behind.
    end();
    macros().setDefaults();
    macros().set(QStringLiteral("HomeDir"), m_dir->filePath(QStringLiteral("home")));
    start({ QStringLiteral("--remove"), QStringLiteral("--destination"), destination() });
    QCOMPARE(m_wizard->currentPageId(), int(Page::StartRemovalPage));
    press("Next");
    QCOMPARE(m_wizard->page(Page::CompletePage)->title(), QStringLiteral("Uninstall Complete"));
    press("Next");
    QCOMPARE(filesBelow(destination()), QSet<QString>());
}

QTEST_MAIN(tst_WizardDemo)
#include "tst_wizarddemo.moc"
