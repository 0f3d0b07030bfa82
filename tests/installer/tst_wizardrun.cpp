#include "core/installcommandline.h"
#include "core/installquestion.h"
#include "core/macrotable.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/licencedocument.h"
#include "plan/installconfigurationlist.h"
#include "tests/installer/diskitem.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/installstandardwizard.h"
#include "wizard/installwizarddialog.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using Page = InstallWizardInterface::PageId;

// The application driving the real wizard window, pressed through its
// buttons as a user would.
class tst_WizardRun : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void installationThroughTheWindow();
    void cancelAsksInTheQuestionBox_data();
    void cancelAsksInTheQuestionBox();
    void removalThroughTheWindow();

private:
    void start(const QStringList &options);
    void press(const char *button);
    // Presses the question box's button when it opens.
    void answerNextQuestion(int button);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<InstallConfigurationList> m_list;
    std::unique_ptr<InstallStandardWizard> m_wizard;
    std::unique_ptr<BrantleInstallerApplication> m_application;
    QSet<QString> m_disk;
    QStringList m_log;
    QStringList m_questions;
};

void tst_WizardRun::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), m_dir->filePath(QStringLiteral("dest")));
    macros().set(QStringLiteral("SrcDir"), m_dir->path());
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("dest/bin"))));
    m_disk.clear();
    m_log.clear();
    m_questions.clear();
    m_list = std::make_unique<InstallConfigurationList>(QStringLiteral("Plan"), QString(), 0, true);
    new DiskItem(m_list.get(), QStringLiteral("Product"), &m_disk, &m_log);
}

void tst_WizardRun::cleanup()
{
    m_application.reset();
    m_wizard.reset();
    m_list.reset();
    m_dir.reset();
}

void tst_WizardRun::start(const QStringList &options)
{
    InstallStandardWizard::Options wizardOptions;
    wizardOptions.licenseDocument = LicenceDocument::bytes();
    QVERIFY(!wizardOptions.licenseDocument.isEmpty());
    m_wizard = std::make_unique<InstallStandardWizard>(m_list.get(), wizardOptions);
    InstallCommandLine commandLine;
    commandLine.parse(
        QStringList { QStringLiteral("Setup"), QStringLiteral("--user-mode-install") } + options, macros());
    m_application = std::make_unique<BrantleInstallerApplication>(commandLine, m_list.get(), m_wizard.get());
    m_application->start();
    QVERIFY(m_wizard->window()->isVisible());
}

void tst_WizardRun::press(const char *button)
{
    auto *target = m_wizard->window()->findChild<QPushButton *>(QLatin1String(button));
    QVERIFY(target);
    QVERIFY(target->isEnabled());
    target->click();
}

void tst_WizardRun::answerNextQuestion(int button)
{
    QTimer::singleShot(0, this, [this, button] {
        QWidget *box = QApplication::activeModalWidget();
        QVERIFY(box);
        QStringList texts;
        for (const QLabel *label : box->findChildren<QLabel *>())
            texts.append(label->text());
        m_questions.append(texts.join(QLatin1Char('|')));
        auto *answer = box->findChild<QAbstractButton *>(QString::number(button));
        QVERIFY(answer);
        answer->click();
    });
}

void tst_WizardRun::installationThroughTheWindow()
{
    start({});
    if (QTest::currentTestFailed())
        return;
    QList<int> pages { m_wizard->currentPageId() };
    for (int i = 0; i < 8 && m_wizard->currentPageId() != Page::CompletePage; ++i) {
        if (m_wizard->currentPageId() == Page::LicensePage)
            m_wizard->acceptLicense();
        press("Next");
        pages.append(m_wizard->currentPageId());
    }
    QCOMPARE(pages, (QList<int> { 1, 20, 3, 8, 11, 17 }));
    QCOMPARE(m_log, QStringList { QStringLiteral("install Product") });
    QVERIFY(QFile::exists(m_dir->filePath(QStringLiteral("dest/bin/IConf.xml"))));
    QVERIFY(m_wizard->page(Page::CompletePage)->title().contains(QStringLiteral("Install Complete")));

    // Back retraces nothing once the run is over: Finish quits with success.
    press("Next");
    QVERIFY(m_application->hasEnded());
    QCOMPARE(m_application->result(), int(InstallApplication::Succeeded));
}

void tst_WizardRun::cancelAsksInTheQuestionBox_data()
{
    QTest::addColumn<int>("answer");
    QTest::newRow("yes") << int(InstallQuestion::Yes);
    QTest::newRow("no") << int(InstallQuestion::No);
}

void tst_WizardRun::cancelAsksInTheQuestionBox()
{
    QFETCH(int, answer);
    start({});
    if (QTest::currentTestFailed())
        return;
    answerNextQuestion(answer);
    press("Cancel");
    QCOMPARE(m_questions.size(), 1);
    QVERIFY2(m_questions.first().contains(QStringLiteral("The installation is not complete")),
        qPrintable(m_questions.first()));
    QVERIFY(
        m_questions.first().contains(QStringLiteral("Are you sure you want to terminate the installation?")));
    QCOMPARE(m_application->hasEnded(), answer == InstallQuestion::Yes);
    QCOMPARE(m_wizard->currentPageId(), int(Page::WelcomePage));
}

void tst_WizardRun::removalThroughTheWindow()
{
    m_disk.insert(QStringLiteral("Product"));
    start({ QStringLiteral("--remove") });
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(m_wizard->currentPageId(), int(Page::StartRemovalPage));
    press("Next");
    QCOMPARE(m_log, QStringList { QStringLiteral("remove Product") });
    QCOMPARE(m_wizard->currentPageId(), int(Page::CompletePage));
    QVERIFY(m_wizard->page(Page::CompletePage)->title().contains(QStringLiteral("Uninstall Complete")));
    press("Next");
    QCOMPARE(m_application->result(), int(InstallApplication::Removed));
}

QTEST_MAIN(tst_WizardRun)
#include "tst_wizardrun.moc"
