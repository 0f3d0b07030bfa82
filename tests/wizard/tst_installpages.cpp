#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "wizard/installassociatefilesdialog.h"
#include "wizard/installchoosedestinationdialog.h"
#include "wizard/installconfigurationitemcheckbox.h"
#include "wizard/installenvironmentvariablesdialog.h"
#include "wizard/installfindfiledialog.h"
#include "wizard/installmaintenancedialog.h"
#include "wizard/installoptionaldialog.h"
#include "wizard/installprogramfolderdialog.h"

#include "../plan/scriptedquestion.h"
#include "modalhelper.h"

#include <QButtonGroup>
#include <QFileDialog>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

class tst_InstallPages : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void folderPages_data();
    void folderPages();
    void destinationTypingUpdatesMacros();
    void destinationBrowse_data();
    void destinationBrowse();
    void maintenanceChoices();
    void selectionPages_data();
    void selectionPages();
    void selectionBoxFollowsItem();
    void findFileForms_data();
    void findFileForms();
    void findFileOkSetsMacro_data();
    void findFileOkSetsMacro();
};

void tst_InstallPages::init()
{
    macros().setDefaults();
    macros().set(QStringLiteral("Product"), QStringLiteral("Calvra"));
    macros().set(QStringLiteral("Version"), QStringLiteral("5.50"));
    macros().setPath(QStringLiteral("DestDir"), QStringLiteral("/opt/tamrin/calvra"));
    macros().set(QStringLiteral("DestName"), QStringLiteral("calvra"));
    macros().setPath(QStringLiteral("ProgramFolderDir"), QStringLiteral("Tamrin/Calvra"));
}

void tst_InstallPages::folderPages_data()
{
    QTest::addColumn<bool>("destination");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("shown");
    QTest::newRow("destination")
        << true
        << "Setup will install Calvra 5.50 in the following folder.<p>To install to this "
           "folder, click Next. To install to a different folder, click Browse and select "
           "another folder."
        << "Destination Folder"
        << "/opt/tamrin/calvra";
    QTest::newRow("program folder")
        << false
        << "Setup will add program icons to the Program Folder below.<p>You may type a "
           "new folder name. Click Next to continue."
        << "Program Folder"
        << "Tamrin/Calvra";
}

void tst_InstallPages::folderPages()
{
    QFETCH(bool, destination);
    QFETCH(QString, text);
    QFETCH(QString, group);
    QFETCH(QString, shown);
    std::unique_ptr<InstallFolderFieldDialog> page;
    if (destination)
        page = std::make_unique<InstallChooseDestinationDialog>();
    else
        page = std::make_unique<InstallProgramFolderDialog>();
    QCOMPARE(page->findChild<QLabel *>()->text(), text);
    QCOMPARE(page->findChild<QGroupBox *>()->title(), group);
    QCOMPARE(page->folderEdit()->text(), shown);
    QCOMPARE(page->findChild<QPushButton *>(QStringLiteral("browse")) != nullptr, destination);
    if (destination)
        QCOMPARE(page->findChild<QPushButton *>(QStringLiteral("browse"))->text(), QStringLiteral("..."));

    // A macro changed elsewhere shows on the next show.
    macros().setPath(destination ? QStringLiteral("DestDir") : QStringLiteral("ProgramFolderDir"),
        QStringLiteral("$(HomeDir)/x"));
    page->announceShow();
    QCOMPARE(page->folderEdit()->text(), expandMacros(QStringLiteral("$(HomeDir)/x")));

    page->folderEdit()->clear();
    QTest::keyClicks(page->folderEdit(), QStringLiteral("/srv/tools"));
    const QString folder = destination ? QStringLiteral("DestDir") : QStringLiteral("ProgramFolderDir");
    const QString name = destination ? QStringLiteral("DestName") : QStringLiteral("ProgramFolderName");
    QCOMPARE(macros().get(folder), QStringLiteral("/srv/tools"));
    QCOMPARE(macros().get(name), QStringLiteral("tools"));
}

void tst_InstallPages::destinationTypingUpdatesMacros()
{
    InstallChooseDestinationDialog page;
    page.folderEdit()->clear();
    const QString typed = QStringLiteral("/a/bc/");
    QStringList dirs;
    QStringList names;
    connect(page.folderEdit(), &QLineEdit::textEdited, this, [&] {
        dirs.append(macros().get(QStringLiteral("DestDir")));
        names.append(macros().get(QStringLiteral("DestName")));
    });
    QTest::keyClicks(page.folderEdit(), typed);
    QCOMPARE(dirs, QStringList({ "/", "/a", "/a/", "/a/b", "/a/bc", "/a/bc/" }));
    QCOMPARE(names, QStringList({ "", "a", "", "b", "bc", "" }));
    QTest::keyClick(page.folderEdit(), Qt::Key_Backspace);
    QCOMPARE(macros().get(QStringLiteral("DestName")), QStringLiteral("bc"));
    QCOMPARE(expandMacros(QStringLiteral("$(InstallerDir)")), QStringLiteral("/a/bc/bin"));
}

void tst_InstallPages::destinationBrowse_data()
{
    QTest::addColumn<bool>("accept");
    QTest::newRow("chosen") << true;
    QTest::newRow("cancelled") << false;
}

void tst_InstallPages::destinationBrowse()
{
    QFETCH(bool, accept);
    QTemporaryDir root;
    QVERIFY(QDir(root.path()).mkpath(QStringLiteral("target")));
    macros().setPath(QStringLiteral("DestDir"), root.path());
    InstallChooseDestinationDialog page;
    QString caption;
    QString startedAt;
    whenModal([&](QWidget *widget) {
        auto *chooser = qobject_cast<QFileDialog *>(widget);
        QVERIFY(chooser);
        caption = chooser->windowTitle();
        startedAt = chooser->directory().absolutePath();
        if (!accept) {
            chooser->reject();
            return;
        }
        chooser->setDirectory(root.path() + QStringLiteral("/target"));
        // QFileDialog hides accept(); through its base it still checks the choice.
        static_cast<QDialog *>(chooser)->accept();
    });
    QTest::mouseClick(page.findChild<QPushButton *>(QStringLiteral("browse")), Qt::LeftButton);
    QCOMPARE(caption, QStringLiteral("Please select destination folder."));
    QCOMPARE(startedAt, root.path());
    const QString expected = accept ? root.path() + QStringLiteral("/target") : root.path();
    QCOMPARE(macros().get(QStringLiteral("DestDir")), expected);
    QCOMPARE(page.folderEdit()->text(), expected);
    if (accept)
        QCOMPARE(macros().get(QStringLiteral("DestName")), QStringLiteral("target"));
}

void tst_InstallPages::maintenanceChoices()
{
    InstallMaintenanceDialog page(InstallMode::Remove);
    QCOMPARE(page.title(), QStringLiteral("Program Maintenance"));
    QCOMPARE(page.description(), QStringLiteral("Modify, repair or remove the program."));
    QCOMPARE(page.choices()->checkedId(), int(InstallMode::Remove));
    QStringList labels;
    for (QAbstractButton *button : page.choices()->buttons())
        labels.append(button->text() + QLatin1Char('=') + QString::number(page.choices()->id(button)));
    QCOMPARE(labels, QStringList({ "Modify=4", "Repair=5", "Remove=6" }));
    QStringList texts;
    for (QLabel *label : page.findChildren<QLabel *>())
        texts.append(label->text());
    QCOMPARE(texts,
        QStringList(
            { "Change which program features are installed.<p>This option displays the Custom Selection "
              "dialog in which you can change the way features are installed.",
                "Repair errors in the program.<p>This option fixes missing or corrupt files, shortcuts, and "
                "registry "
                "entries.",
                "Remove Calvra from your computer." }));
    QSignalSpy chosen(&page, &InstallModeChoiceDialog::modeChosen);
    page.choices()->button(InstallMode::Modify)->click();
    QCOMPARE(chosen.count(), 1);
    QCOMPARE(chosen.at(0).at(0).value<InstallMode::Mode>(), InstallMode::Modify);
    // An installation mode has no button here; the choice stays as it was.
    page.installationModeChanged(InstallMode::Typical);
    QCOMPARE(page.choices()->checkedId(), int(InstallMode::Modify));
}

void tst_InstallPages::selectionPages_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("row");
    QTest::newRow("associate")
        << 0 << "Associate Files"
        << "Select the file types you want to associate with $(Product)."
        << "The installer can associate the following file types with Calvra 5.50.<p>Select "
           "the files you want associate, then click Next to continue."
        << "Project Files";
    QTest::newRow("environment")
        << 1 << "Update Environment Variables"
        << "Select the environment variables that you want to update."
        << "The installer can update the following environment variables in order to run "
           "Calvra 5.50.<p>Select the environment variables you want to update, then click "
           "Next to continue."
        << "Update Project";
    QTest::newRow("optional")
        << 2 << "Additional Components"
        << "Select the additional components to install."
        << "The installer can install the following additional components.<p>Select required "
           "components, then click Next to continue."
        << "Install Project";
}

void tst_InstallPages::selectionPages()
{
    QFETCH(int, kind);
    QFETCH(QString, title);
    QFETCH(QString, description);
    QFETCH(QString, text);
    QFETCH(QString, row);
    FixedMode mode(InstallMode::Custom);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&mode);
    InstallConfigurationItem project(&list, QStringLiteral("Project"), QString(), 3, true, 0xffffffff);
    InstallConfigurationItem hidden(&list, QStringLiteral("Hidden"), QString(), 3, false, 0xffffffff);
    InstallConfigurationItem other(&list, QStringLiteral("Other"), QString(), 3, true, 0xffffffff);
    // Every kind of page takes its rows from its filter, over visible items only.
    const auto filter = [&](const InstallConfigurationItem *item) {
        return item != &other;
    };
    std::unique_ptr<InstallItemSelectionDialog> page;
    switch (kind) {
    case 0:
        page = std::make_unique<InstallAssociateFilesDialog>(&list, filter);
        break;
    case 1:
        page = std::make_unique<InstallEnvironmentVariablesDialog>(&list, filter);
        break;
    default:
        page = std::make_unique<InstallOptionalDialog>(&list, filter);
        break;
    }
    QCOMPARE(page->title(), title);
    QCOMPARE(page->description(), description);
    QCOMPARE(page->findChild<QLabel *>()->text(), text);
    QCOMPARE(page->rowCount(), 1);
    InstallConfigurationItemCheckBox *box = page->rows().constFirst();
    QCOMPARE(box->text(), row);
    QCOMPARE(box->item(), &project);
    QVERIFY(!box->isChecked());
    QSignalSpy changed(box, &InstallConfigurationItemCheckBox::willInstallChanged);
    box->click();
    QVERIFY(project.willInstall());
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.at(0).at(0).toInt(), 1);
    box->click();
    QVERIFY(!project.willInstall());
    QCOMPARE(changed.at(1).at(0).toInt(), 0);
}

void tst_InstallPages::selectionBoxFollowsItem()
{
    FixedMode mode(InstallMode::Custom);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&mode);
    InstallConfigurationItem parent(&list, QStringLiteral("Parent"), QString(), 3, true, 0xffffffff);
    InstallConfigurationItem child(&parent, QStringLiteral("Child"), QString(), 1, true, 0xffffffff);
    InstallOptionalDialog page(&list, [&](const InstallConfigurationItem *item) { return item == &child; });
    InstallConfigurationItemCheckBox *box = page.rows().constFirst();
    list.checkWillInstall();
    QVERIFY(!box->isChecked());
    // Selecting the parent makes its required child install; the box shows it.
    parent.setInstall(true);
    QVERIFY(child.willInstall());
    QVERIFY(box->isChecked());
    parent.setInstall(false);
    QVERIFY(!box->isChecked());
    QVERIFY(child.installFlag());
}

void tst_InstallPages::findFileForms_data()
{
    QTest::addColumn<int>("form");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::newRow("installation folder")
        << int(InstallFindFileDialog::InstallationFolder) << "/opt/old"
        << "Locate Installation Folder"
        << "<p>Cannot find the directory named:<p>/opt/old<p>Please locate the 'Calvra 5.50' installation "
           "folder\nand "
           "then click OK to continue. Click Cancel to terminate installation.";
    QTest::newRow("file")
        << int(InstallFindFileDialog::File) << "/media/disk/core.pkg"
        << "Locate File"
        << "<p>Cannot find the file named:<p>/media/disk/core.pkg<p>Please locate the core.pkg file "
           "and then click OK to continue. Click Cancel to terminate installation.";
    QTest::newRow("product folder")
        << int(InstallFindFileDialog::ProductFolder) << ""
        << "Locate Calvra Folder"
        << "Please locate the 'Calvra 5.50' folder\nand then click OK to continue. Click "
           "Cancel to terminate installation.";
}

void tst_InstallPages::findFileForms()
{
    QFETCH(int, form);
    QFETCH(QString, path);
    QFETCH(QString, title);
    QFETCH(QString, text);
    InstallFindFileDialog dialog(InstallFindFileDialog::Form(form), path);
    QCOMPARE(dialog.windowTitle(), title);
    QCOMPARE(dialog.text(), text);
    QVERIFY(dialog.isModal());
    QStringList buttons;
    for (QPushButton *button : dialog.findChildren<QPushButton *>())
        buttons.append(button->text());
    QCOMPARE(buttons, QStringList({ "...", "&OK", "&Cancel" }));
}

void tst_InstallPages::findFileOkSetsMacro_data()
{
    QTest::addColumn<int>("form");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("macro");
    QTest::newRow("file ok") << int(InstallFindFileDialog::File) << true << "SrcDir";
    QTest::newRow("file cancelled") << int(InstallFindFileDialog::File) << false << "SrcDir";
    QTest::newRow("folder ok") << int(InstallFindFileDialog::InstallationFolder) << true << "DestDir";
    QTest::newRow("product folder ok") << int(InstallFindFileDialog::ProductFolder) << true << "DestDir";
    QTest::newRow("folder cancelled") << int(InstallFindFileDialog::InstallationFolder) << false << "DestDir";
}

void tst_InstallPages::findFileOkSetsMacro()
{
    QFETCH(int, form);
    QFETCH(bool, ok);
    QFETCH(QString, macro);
    macros().setPath(macro, QStringLiteral("/before"));
    InstallFindFileDialog dialog(InstallFindFileDialog::Form(form), QStringLiteral("/missing/core.pkg"));
    whenModal([&](QWidget *widget) {
        auto *locator = qobject_cast<InstallFindFileDialog *>(widget);
        QVERIFY(locator);
        locator->pathEdit()->setText(QStringLiteral("/found/core.pkg"));
        for (QPushButton *button : locator->findChildren<QPushButton *>()) {
            if (button->text() == (ok ? QStringLiteral("&OK") : QStringLiteral("&Cancel")))
                button->click();
        }
    });
    const QString result = dialog.locate();
    QCOMPARE(result, ok ? QStringLiteral("/found/core.pkg") : QString());
    const QString expected = !ok              ? QStringLiteral("/before")
        : form == InstallFindFileDialog::File ? QStringLiteral("/found")
                                              : QStringLiteral("/found/core.pkg");
    QCOMPARE(macros().get(macro), expected);
}

QTEST_MAIN(tst_InstallPages)
#include "tst_installpages.moc"
