#include "core/macrotable.h"
#include "wizard/installfinisheddialog.h"

#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

namespace {

InstallFinishedDialog::Settings productSettings()
{
    return { QStringLiteral("$(DestDir)/doc/release-notes.html"),
        QStringLiteral("$(DestDir)/bin/calvra --welcome"), QStringLiteral("Start $(Product)") };
}

// Runs the enclosed code with nobody's effective user and group ids (the
// group too, or root's group would still decide); root gets them back.
class AsNobody
{
public:
    AsNobody() { m_ok = ::setegid(65534) == 0 && ::seteuid(65534) == 0; }
    ~AsNobody()
    {
        if (::seteuid(0) != 0 || ::setegid(0) != 0)
            qFatal("cannot return to root");
    }
    bool ok() const { return m_ok; }

private:
    bool m_ok;
};

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

} // namespace

class tst_InstallFinishedDialog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void page();
    void boxesByMode_data();
    void boxesByMode();
    void commands_data();
    void commands();
    void writesCommandsFile();
    void replacesOldContents();
    void nothingCheckedWritesNothing();
    void refusesPlantedLink();
    void withoutRootOnlyThroughExistingFile_data();
    void withoutRootOnlyThroughExistingFile();

private:
    std::unique_ptr<QTemporaryDir> m_src;
};

void tst_InstallFinishedDialog::init()
{
    QVERIFY2(::geteuid() == 0, "the check boxes are offered without a commands file only to root");
    macros().setDefaults();
    macros().set(QStringLiteral("Product"), QStringLiteral("Calvra"));
    macros().setPath(QStringLiteral("DestDir"), QStringLiteral("/opt/calvra"));
    m_src = std::make_unique<QTemporaryDir>();
    macros().setPath(QStringLiteral("SrcDir"), m_src->path());
}

void tst_InstallFinishedDialog::page()
{
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    QCOMPARE(dialog.title(), QStringLiteral("Installation Complete"));
    QCOMPARE(dialog.nextLabel(), QStringLiteral("&Finish"));
    QCOMPARE(dialog.releaseNotesBox()->text(), QStringLiteral("Show Release Notes"));
    QVERIFY(!dialog.releaseNotesBox()->isChecked());
    QCOMPARE(dialog.runBox()->text(), QStringLiteral("Start Calvra"));
    QVERIFY(dialog.runBox()->isChecked());
    dialog.setText(
        QStringLiteral("$(Product) has now been installed.<p>Click Finish to complete the installation."));
    QCOMPARE(dialog.findChild<QLabel *>()->text(),
        QStringLiteral("Calvra has now been installed.<p>Click Finish to complete the installation."));
    QCOMPARE(InstallFinishedDialog::commandsFile(), m_src->path() + QStringLiteral("/.extract_commands.txt"));

    InstallFinishedDialog plain({}, InstallMode::Typical);
    QVERIFY(!plain.releaseNotesBox());
    QVERIFY(!plain.runBox());
    QVERIFY(plain.commands().isEmpty());
}

void tst_InstallFinishedDialog::boxesByMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("offered");
    QTest::newRow("typical") << int(InstallMode::Typical) << true;
    QTest::newRow("custom") << int(InstallMode::Custom) << true;
    QTest::newRow("modify") << int(InstallMode::Modify) << true;
    QTest::newRow("upgrade") << int(InstallMode::Upgrade) << true;
    QTest::newRow("remove") << int(InstallMode::Remove) << false;
}

void tst_InstallFinishedDialog::boxesByMode()
{
    QFETCH(int, mode);
    QFETCH(bool, offered);
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    dialog.installationModeChanged(InstallMode::Mode(mode));
    dialog.announceShow();
    QCOMPARE(!dialog.runBox()->isHidden(), offered);
    QCOMPARE(!dialog.releaseNotesBox()->isHidden(), offered);
    // A hidden box runs nothing, even when checked.
    QCOMPARE(dialog.commands().size(), offered ? 1 : 0);
}

void tst_InstallFinishedDialog::commands_data()
{
    QTest::addColumn<bool>("notes");
    QTest::addColumn<bool>("run");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("both") << true << true
                          << QStringList({ "xdg-open|file:///opt/calvra/doc/release-notes.html",
                                 "/opt/calvra/bin/calvra --welcome" });
    QTest::newRow("notes") << true << false
                           << QStringList({ "xdg-open|file:///opt/calvra/doc/release-notes.html" });
    QTest::newRow("run") << false << true << QStringList({ "/opt/calvra/bin/calvra --welcome" });
    QTest::newRow("none") << false << false << QStringList();
}

void tst_InstallFinishedDialog::commands()
{
    QFETCH(bool, notes);
    QFETCH(bool, run);
    QFETCH(QStringList, expected);
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    dialog.announceShow();
    dialog.releaseNotesBox()->setChecked(notes);
    dialog.runBox()->setChecked(run);
    QCOMPARE(dialog.commands(), expected);
}

void tst_InstallFinishedDialog::writesCommandsFile()
{
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    dialog.announceShow();
    dialog.releaseNotesBox()->setChecked(true);
    QVERIFY(dialog.runClosingActions());
    QCOMPARE(readAll(InstallFinishedDialog::commandsFile()),
        QByteArray("xdg-open|file:///opt/calvra/doc/release-notes.html\n/opt/calvra/bin/calvra --welcome\n"));
}

void tst_InstallFinishedDialog::replacesOldContents()
{
    QFile old(InstallFinishedDialog::commandsFile());
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write(QByteArray(200, 'x'));
    old.close();
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    dialog.announceShow();
    QVERIFY(dialog.runClosingActions());
    QCOMPARE(
        readAll(InstallFinishedDialog::commandsFile()), QByteArray("/opt/calvra/bin/calvra --welcome\n"));
}

void tst_InstallFinishedDialog::nothingCheckedWritesNothing()
{
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    dialog.announceShow();
    dialog.runBox()->setChecked(false);
    QVERIFY(dialog.runClosingActions());
    QVERIFY(!QFile::exists(InstallFinishedDialog::commandsFile()));
}

void tst_InstallFinishedDialog::refusesPlantedLink()
{
    const QString victim = m_src->path() + QStringLiteral("/victim");
    QFile file(victim);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("keep me\n");
    file.close();
    QVERIFY(QFile::link(victim, InstallFinishedDialog::commandsFile()));
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    dialog.announceShow();
    QVERIFY(!dialog.runClosingActions());
    QCOMPARE(readAll(victim), QByteArray("keep me\n"));
    QVERIFY(QFileInfo(InstallFinishedDialog::commandsFile()).isSymLink());
}

void tst_InstallFinishedDialog::withoutRootOnlyThroughExistingFile_data()
{
    QTest::addColumn<bool>("fileExists");
    QTest::newRow("no file") << false;
    QTest::newRow("file made by the starting program") << true;
}

void tst_InstallFinishedDialog::withoutRootOnlyThroughExistingFile()
{
    QFETCH(bool, fileExists);
    QVERIFY(QFile::setPermissions(m_src->path(),
        QFile::permissions(m_src->path()) | QFile::ReadOther | QFile::ExeOther | QFile::WriteOther));
    if (fileExists) {
        QFile file(InstallFinishedDialog::commandsFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(file.setPermissions(file.permissions() | QFile::WriteOther));
    }
    InstallFinishedDialog dialog(productSettings(), InstallMode::Typical);
    {
        AsNobody nobody;
        QVERIFY(nobody.ok());
        dialog.announceShow();
        QCOMPARE(!dialog.runBox()->isHidden(), fileExists);
        QCOMPARE(!dialog.releaseNotesBox()->isHidden(), fileExists);
        QVERIFY(dialog.runClosingActions());
    }
    QCOMPARE(readAll(InstallFinishedDialog::commandsFile()),
        fileExists ? QByteArray("/opt/calvra/bin/calvra --welcome\n") : QByteArray("<unreadable>"));
}

QTEST_MAIN(tst_InstallFinishedDialog)
#include "tst_installfinisheddialog.moc"
