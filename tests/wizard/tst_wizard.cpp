// The window offscreen: the question box (which buttons, which answer for
// Enter, Escape and a click), the real wizard driven by the real application
// through its buttons, and the closing commands the complete page leaves.
// The window under a real X server is the end-to-end window walk.
#include "core/installcommandline.h"
#include "core/macrotable.h"
#include "installer/installsettingsrecord.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/licencedocument.h"
#include "plan/installconfigurationlist.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installfinisheddialog.h"
#include "wizard/installstandardwizard.h"
#include "wizard/installwizarddialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
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
    void window_data();
    void window();
    void closingCommands();

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

void tst_Wizard::window_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("cancelAnswer"); // 0: no Cancel; else pressed on the first page
    QTest::addColumn<QList<int>>("pages");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("install") << QStringList() << 0 << QList<int> { 1, 20, 3, 8, 7, 11, 17 }
                             << "install Product,install Samples"
                             << "Install Complete";
    QTest::newRow("remove") << QStringList { "--remove" } << 0 << QList<int> { 12, 17 }
                            << "remove Samples,remove Product"
                            << "Uninstall Complete";
    QTest::newRow("Cancel, No goes on") << QStringList() << int(InstallQuestion::No) << QList<int> { 1 } << ""
                                        << "";
    QTest::newRow("Cancel, Yes ends the run")
        << QStringList() << int(InstallQuestion::Yes) << QList<int> { 1 } << ""
        << "";
}

void tst_Wizard::window()
{
    QFETCH(QStringList, options);
    QFETCH(int, cancelAnswer);
    QFETCH(QList<int>, pages);
    QFETCH(QString, log);
    QFETCH(QString, outcome);
    QStringList done;
    InstallConfigurationList list(QStringLiteral("Plan"), QString(), 0, true);
    auto *product = new LoggingItem(&list, QStringLiteral("Product"), &done, 0);
    // Optional: listed on the optional page, chosen there. Below a required
    // component, so that a removal takes it too.
    auto *samples = new LoggingItem(product, QStringLiteral("Samples"), &done, 3);
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("dest/bin"))));
    InstallStandardWizard::Options wizardOptions;
    wizardOptions.licenseDocument = LicenceDocument::bytes();
    InstallStandardWizard wizard(&list, wizardOptions);
    InstallCommandLine commandLine;
    commandLine.parse(QStringList { "Setup", "--user-mode-install" } + options, macros());
    BrantleInstallerApplication application(commandLine, &list, &wizard);
    if (options.contains(QStringLiteral("--remove"))) {
        // What is removed is what the record says is installed.
        list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
        QVERIFY(InstallSettingsRecord(&list).save(InstallSettingsRecord::defaultPath()));
    }
    application.start();
    QVERIFY(wizard.window()->isVisible());
    const auto press = [&wizard](const char *name) {
        auto *button = wizard.window()->findChild<QPushButton *>(QLatin1String(name));
        QVERIFY(button && button->isEnabled());
        button->click();
    };
    QList<int> shown { wizard.currentPageId() };
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
    for (int i = 0; i < 10 && !cancelAnswer && wizard.currentPageId() != Page::CompletePage; ++i) {
        if (wizard.currentPageId() == Page::LicensePage)
            wizard.acceptLicense();
        if (wizard.currentPageId() == Page::OptionalPage)
            samples->setInstall(true);
        press("Next");
        shown.append(wizard.currentPageId());
    }
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
    // A link planted in its place is refused, never written through.
    QVERIFY(QFile::remove(commands));
    QFile victim(m_dir->filePath(QStringLiteral("victim")));
    QVERIFY(victim.open(QIODevice::WriteOnly) && victim.write("keep me\n") == 8);
    victim.close();
    QVERIFY(QFile::link(victim.fileName(), commands));
    InstallFinishedDialog dialog(settings, InstallMode::Typical);
    dialog.announceShow();
    QVERIFY(!dialog.runClosingActions());
    QCOMPARE(readAll(victim.fileName()), QByteArray("keep me\n"));
}

QTEST_MAIN(tst_Wizard)
#include "tst_wizard.moc"
