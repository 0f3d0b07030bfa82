// Shows the real wizard window on an X server with every page and saves a
// picture of each into <build>/screenshots, and checks that no text is cut
// off and no control leaves its page. Run under xvfb-run.
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "wizard/classicinstallwizard.h"
#include "wizard/customitem.h"
#include "wizard/installcheckmessagebox.h"
#include "wizard/installcustomsetupdialog.h"
#include "wizard/installfindfiledialog.h"
#include "wizard/installprogressdialog.h"
#include "wizard/installstandardwizard.h"
#include "wizard/studioprogressbar.h"

#include "../plan/scriptedquestion.h"
#include "modalhelper.h"

#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QDir>
#include <QFont>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QTest>
#include <QTreeWidget>

namespace {

// A plan shaped like the product's: required components, an optional one.
struct Plan
{
    Plan()
        : modeSource(InstallMode::Custom)
        , list(QStringLiteral("$(Product)"), QString(), 0, true)
        , ide(&list, QStringLiteral("$(Product) Development Environment"),
              QStringLiteral("Editor, build and debugger"), 0)
        , compiler(&ide, QStringLiteral("Compiler Toolchain"),
              QStringLiteral("Compilers and linkers for the targets"), 0)
        , examples(&ide, QStringLiteral("Example Projects"), QStringLiteral("Projects to start from"), 3)
        , help(&list, QStringLiteral("Help and Manuals"), QStringLiteral("The reference manuals"), 1)
        , desktop(
              &list, QStringLiteral("Desktop Integration"), QStringLiteral("Menu entry and file types"), 0)
        , environment(&list, QStringLiteral("PATH"), QStringLiteral("environment"), 1)
        , probe(&list, QStringLiteral("Debug Probe Rules"),
              QStringLiteral("Access to the debug probe for every user"), 3)
    {
        list.setModeSource(&modeSource);
        list.checkWillInstall();
    }

    struct Item : InstallConfigurationItem
    {
        Item(InstallConfigurationItem *parent, const QString &title, const QString &description, int level)
            : InstallConfigurationItem(parent, title, description, level, true, AllFlags)
        { }
    };

    FixedMode modeSource;
    InstallConfigurationList list;
    Item ide;
    Item compiler;
    Item examples;
    Item help;
    Item desktop;
    Item environment;
    Item probe;
};

const char Agreement[]
    = "<h3>Calvra Licence Agreement</h3>"
      "<p>This agreement is between you and Tamrin. Read it before you install the product.</p>"
      "<p><b>1. Grant.</b> You may install and use the product on the computers you own.</p>"
      "<p><b>2. Restrictions.</b> You may not rent, lease or lend the product.</p>"
      "<p><b>3. Warranty.</b> The product is provided as it is, without warranty of any kind.</p>";

QString screenshotFolder()
{
    return QStringLiteral(SETUP_BINARY_DIR "/screenshots");
}

// Text that does not fit, controls outside their window or on top of a sibling.
QStringList layoutFaults(QWidget *root)
{
    QStringList faults;
    const auto insideScrollArea = [root](const QWidget *widget) {
        for (const QWidget *up = widget->parentWidget(); up && up != root; up = up->parentWidget()) {
            if (qobject_cast<const QAbstractScrollArea *>(up))
                return true;
        }
        return false;
    };
    for (QWidget *widget : root->findChildren<QWidget *>()) {
        if (!widget->isVisible() || widget->isWindow() || insideScrollArea(widget))
            continue;
        const QString name = QString::fromLatin1(widget->metaObject()->className());
        const QRect inRoot(widget->mapTo(root, QPoint(0, 0)), widget->size());
        if (!root->rect().contains(inRoot))
            faults.append(name + QStringLiteral(" outside its window"));
        for (QObject *object : widget->parent()->children()) {
            auto *sibling = qobject_cast<QWidget *>(object);
            if (sibling && sibling != widget && sibling->isVisible() && !sibling->isWindow()
                && sibling->geometry().intersects(widget->geometry()))
                faults.append(name + QStringLiteral(" overlaps ")
                    + QString::fromLatin1(sibling->metaObject()->className()));
        }
        if (auto *label = qobject_cast<QLabel *>(widget)) {
            if (label->text().isEmpty() || label->sizePolicy().horizontalPolicy() == QSizePolicy::Ignored)
                continue;
            const int needed
                = label->wordWrap() ? label->heightForWidth(label->width()) : label->sizeHint().height();
            if (needed > label->height()
                || (!label->wordWrap() && label->sizeHint().width() > label->width()))
                faults.append(QStringLiteral("label cut off: ") + label->text().left(40));
        }
        if (auto *button = qobject_cast<QAbstractButton *>(widget)) {
            if (button->sizeHint().width() > button->width()
                || button->sizeHint().height() > button->height())
                faults.append(QStringLiteral("button cut off: ") + button->text());
        }
    }
    return faults;
}

void save(QWidget *widget, const QString &name)
{
    QVERIFY(widget->grab().save(screenshotFolder() + QLatin1Char('/') + name + QStringLiteral(".png")));
}

} // namespace

class tst_WizardScreenshots : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pages_data();
    void pages();
    void questionBox();
    void locator();
    void installationError();

private:
    std::unique_ptr<Plan> m_plan;
    std::unique_ptr<InstallStandardWizard> m_wizard;
};

void tst_WizardScreenshots::initTestCase()
{
    QVERIFY2(QGuiApplication::platformName() == QLatin1String("xcb"), "run under xvfb-run");
    // What the installer itself sets before it builds the window.
    QApplication::setFont(QFont(QStringLiteral("Sans"), 10));
    QVERIFY(QDir().mkpath(screenshotFolder()));
    macros().setDefaults();
    macros().set(QStringLiteral("Product"), QStringLiteral("Calvra"));
    macros().set(QStringLiteral("Version"), QStringLiteral("5.50"));
    macros().setPath(QStringLiteral("DestDir"), QStringLiteral("/opt/Tamrin/Calvra 5.50"));
    macros().setPath(QStringLiteral("ProgramFolderDir"), QStringLiteral("Tamrin/Calvra 5.50"));
    m_plan = std::make_unique<Plan>();
    InstallStandardWizard::Options options;
    options.licenseDocument = QByteArray(Agreement);
    options.maintenancePage = true;
    options.mode = InstallMode::Custom;
    options.finished = { QStringLiteral("$(DestDir)/doc/release-notes.html"),
        QStringLiteral("$(DestDir)/bin/calvra"), QStringLiteral("Start $(Product) $(Version) now") };
    options.environment = [](const InstallConfigurationItem *item) {
        return item->description() == QLatin1String("environment");
    };
    options.associations = [](const InstallConfigurationItem *item) {
        return item->title() == QLatin1String("Desktop Integration");
    };
    m_wizard = std::make_unique<InstallStandardWizard>(&m_plan->list, options);
    m_plan->list.setQuestion(m_wizard->question());
}

void tst_WizardScreenshots::pages_data()
{
    QTest::addColumn<int>("id");
    for (int id = 1; id <= 20; ++id)
        QTest::newRow(qPrintable(QStringLiteral("page-%1").arg(id, 2, 10, QLatin1Char('0')))) << id;
}

void tst_WizardScreenshots::pages()
{
    QFETCH(int, id);
    ClassicInstallWizard *window = m_wizard->window();
    switch (id) {
    case InstallWizardInterface::ProgressPage: {
        m_wizard->setProgressPhase(InstallWizardInterface::Installing);
        auto *progress = qobject_cast<InstallProgressDialog *>(m_wizard->page(id));
        progress->setTaskPrefix(QStringLiteral("Installing "));
        progress->starting(&m_plan->compiler);
        progress->setTask(
            QStringLiteral("/opt/Tamrin/Calvra 5.50/toolchain/arm-none-eabi/lib/thumb/v7e-m/libc.a"));
        progress->setTaskTotalSteps(100);
        progress->setTaskProgress(62);
        progress->totalBar()->setProgress(3);
        break;
    }
    case InstallWizardInterface::CompletePage:
        m_wizard->setPageText(id, QStringLiteral("Install Complete"),
            QStringLiteral("$(Product) $(Version) has now been installed.<p>Click Finish to complete the "
                           "installation."));
        break;
    case InstallWizardInterface::FailedPage:
        m_wizard->setPageText(id, QStringLiteral("Installation Failed"),
            QStringLiteral(
                "Installation has been cancelled by user.<p>Click Finish to terminate the installer."));
        break;
    case InstallWizardInterface::LicensePage:
        m_wizard->acceptLicense();
        break;
    default:
        break;
    }
    if (!m_wizard->hasPage(id))
        QSKIP("no page under this id");
    m_wizard->showPage(id);
    QVERIFY(QTest::qWaitForWindowExposed(window));
    if (id == InstallWizardInterface::CustomSetupPage) {
        auto *custom = qobject_cast<InstallCustomSetupDialog *>(m_wizard->page(id));
        custom->tree()->setCurrentItem(custom->rowOf(&m_plan->examples));
    }
    QCoreApplication::processEvents();
    save(window, QStringLiteral("page-%1").arg(id, 2, 10, QLatin1Char('0')));
    const QStringList faults = layoutFaults(window);
    QVERIFY2(faults.isEmpty(), qPrintable(faults.join(QStringLiteral("; "))));
}

void tst_WizardScreenshots::questionBox()
{
    QStringList faults;
    whenModal([&](QWidget *box) {
        save(box, QStringLiteral("question-box"));
        faults = layoutFaults(box);
        QTest::keyClick(box, Qt::Key_Return);
    });
    const int answer = m_wizard->question()->ask(QStringLiteral("The installation is not complete"),
        QStringLiteral(
            "Setup has not installed $(Product).<p>Are you sure you want to terminate the installation?<p>"
            "Click Yes to terminate or No to continue."),
        InstallQuestion::Yes | InstallQuestion::No, InstallQuestion::No);
    QCOMPARE(answer, int(InstallQuestion::No));
    QVERIFY2(faults.isEmpty(), qPrintable(faults.join(QStringLiteral("; "))));
}

void tst_WizardScreenshots::locator()
{
    QStringList faults;
    InstallFindFileDialog dialog(
        InstallFindFileDialog::File, QStringLiteral("/media/cdrom/Calvra/toolchain.pkg"), m_wizard->window());
    whenModal([&](QWidget *box) {
        save(box, QStringLiteral("locate-file"));
        faults = layoutFaults(box);
        QTest::keyClick(box, Qt::Key_Escape);
    });
    QVERIFY(dialog.locate().isEmpty());
    QVERIFY2(faults.isEmpty(), qPrintable(faults.join(QStringLiteral("; "))));
}

void tst_WizardScreenshots::installationError()
{
    whenModal([&](QWidget *box) {
        save(box, QStringLiteral("installation-error"));
        QTest::keyClick(box, Qt::Key_Return);
    });
    m_wizard->reportInstallationError(QStringLiteral("License agreement not accepted"));
}

QTEST_MAIN(tst_WizardScreenshots)
#include "tst_wizardscreenshots.moc"
