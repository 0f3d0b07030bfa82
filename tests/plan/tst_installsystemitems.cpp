#include "core/installmode.h"
#include "core/macrotable.h"
#include "media/filestoreinstallmedia.h"
#include "plan/installconfigurationlist.h"
#include "plan/installsettingkeyconfigurationitem.h"
#include "plan/installsettingsstore.h"
#include "plan/vantordriverinstallconfigurationitem.h"

#include "privatemounts.h"
#include "scriptedquestion.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace {

bool writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size()
        && ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

mode_t modeOf(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

const QString rulesFolder = QStringLiteral("/etc/udev/rules.d");
const QString rulesFile = QStringLiteral("/etc/udev/rules.d/99-vantor.rules");

} // namespace

class tst_InstallSystemItems : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void udevLevel_data();
    void udevLevel();
    void udevInstall_data();
    void udevInstall();
    void udevMissingOnMedium();

    void settingKeyLifecycle();
    void settingKeyCheck_data();
    void settingKeyCheck();

private:
    // /etc overlaid so that /etc/udev can be made or left out at will.
    bool isolateEtc(PrivateMounts &mounts);

    std::unique_ptr<QTemporaryDir> m_dir;
    FixedMode m_mode { InstallMode::Custom };
    ScriptedQuestion m_question;
};

void tst_InstallSystemItems::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("HomeDir"), m_dir->filePath(QStringLiteral("home")));
    m_question = ScriptedQuestion();
    m_mode.value = InstallMode::Custom;
    InstallOverwriteTest::forgetAnswers();
}

bool tst_InstallSystemItems::isolateEtc(PrivateMounts &mounts)
{
    return PrivateMounts::entered()
        && mounts.overlay(QStringLiteral("/etc"), m_dir->filePath(QStringLiteral("etc")));
}

void tst_InstallSystemItems::udevLevel_data()
{
    QTest::addColumn<bool>("folder");
    QTest::addColumn<bool>("file");
    QTest::addColumn<int>("level");

    QTest::newRow("no udev") << false << false << 3;
    QTest::newRow("folder without rules") << true << false << 4;
    QTest::newRow("rules installed") << true << true << 3;
}

void tst_InstallSystemItems::udevLevel()
{
    QFETCH(bool, folder);
    QFETCH(bool, file);
    QFETCH(int, level);

    PrivateMounts mounts;
    if (!isolateEtc(mounts))
        QSKIP("needs root and a private mount namespace");
    if (folder) {
        QVERIFY(QDir().mkpath(rulesFolder));
        QVERIFY(mounts.tmpfs(rulesFolder));
    } else {
        QVERIFY(!QDir(QStringLiteral("/etc/udev")).exists() || mounts.tmpfs(QStringLiteral("/etc/udev")));
    }
    if (file)
        QVERIFY(writeFile(rulesFile, "old rules"));

    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    const VantorDriverInstallConfigurationItem item(&list);
    QCOMPARE(item.level(), level);
    QCOMPARE(item.title(), QStringLiteral("Vantor udev rules file"));
    QCOMPARE(item.description(), QStringLiteral("Install the Vantor udev rules file"));
    QVERIFY(item.isVisible());
    QVERIFY(!item.installFlag());
}

void tst_InstallSystemItems::udevInstall_data()
{
    QTest::addColumn<bool>("folder");
    QTest::addColumn<uint>("sourceMode");

    QTest::newRow("folder made by the medium") << false << 0600u;
    QTest::newRow("private source") << true << 0600u;
    QTest::newRow("executable source") << true << 0775u;
}

void tst_InstallSystemItems::udevInstall()
{
    QFETCH(bool, folder);
    QFETCH(uint, sourceMode);

    PrivateMounts mounts;
    if (!isolateEtc(mounts))
        QSKIP("needs root and a private mount namespace");
    if (folder) {
        QVERIFY(QDir().mkpath(rulesFolder));
        QVERIFY(mounts.tmpfs(rulesFolder));
    } else {
        QVERIFY(!QDir(QStringLiteral("/etc/udev")).exists() || mounts.tmpfs(QStringLiteral("/etc/udev")));
        QVERIFY(!QFileInfo::exists(rulesFolder));
    }
    const QByteArray rules = "SUBSYSTEM==\"usb\", ATTR{idVendor}==\"1234\", MODE=\"0666\"\n";
    const QString medium = m_dir->filePath(QStringLiteral("medium"));
    QVERIFY(writeFile(medium + QStringLiteral("/bin/99-vantor.rules"), rules, sourceMode));

    FileStoreInstallMedia media(medium);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    list.setMedia(&media);
    // Below a product group, as in the product's plan.
    auto *product = new InstallConfigurationItem(
        &list, QStringLiteral("P"), QString(), 0, true, InstallConfigurationItem::AllFlags);
    auto *item = new VantorDriverInstallConfigurationItem(product);
    item->setInstall(true);
    QVERIFY(list.install());
    QVERIFY(m_question.asked.isEmpty());
    QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);
    QCOMPARE(contents(rulesFile), rules);
    QCOMPARE(modeOf(rulesFile), mode_t(0644));

    // Removing the product keeps the rules: other tools share them.
    m_mode.value = InstallMode::Remove;
    QVERIFY(list.uninstall());
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    QCOMPARE(contents(rulesFile), rules);
}

void tst_InstallSystemItems::udevMissingOnMedium()
{
    PrivateMounts mounts;
    if (!isolateEtc(mounts))
        QSKIP("needs root and a private mount namespace");
    QVERIFY(QDir().mkpath(rulesFolder));
    QVERIFY(mounts.tmpfs(rulesFolder));

    const QString medium = m_dir->filePath(QStringLiteral("medium"));
    QVERIFY(QDir().mkpath(medium + QStringLiteral("/bin")));
    FileStoreInstallMedia media(medium);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    list.setMedia(&media);
    auto *item = new VantorDriverInstallConfigurationItem(&list);
    item->setInstall(true);
    m_question.answers = { InstallQuestion::No };
    QVERIFY(list.install());
    QCOMPARE(
        m_question.headings(), QStringList { QStringLiteral("Vantor udev rules file Installation Failed") });
    QVERIFY2(m_question.asked.first().text.contains(QStringLiteral("Cannot copy file ")),
        qPrintable(m_question.asked.first().text));
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(!QFileInfo::exists(rulesFile));
}

void tst_InstallSystemItems::settingKeyLifecycle()
{
    macros().set(QStringLiteral("DestDir"), QStringLiteral("/opt/calvra"));
    macros().set(QStringLiteral("SrcDir"), QStringLiteral("/media/cd"));
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    auto *item = new InstallSettingKeyConfigurationItem(
        QStringLiteral("$(ProductRegKey)/Installer/$(Version)$(AltArch)"), &list,
        QStringLiteral("Installer Settings"), QString(), 0, false);
    for (const char *name : { "DestDir", "SrcDir", "ProgramFolderDir" })
        item->addValue(QLatin1String(name));
    QCOMPARE(item->flags(), quint32(InstallConfigurationItem::AllFlags));

    // Another version's key in the same store must survive this one's removal.
    const QString store
        = m_dir->filePath(QStringLiteral("home/.config/Tamrin/Tamrin Calvra for ARM/Installer.conf"));
    {
        QSettings settings(store, QSettings::IniFormat);
        settings.setValue(
            QStringLiteral("Tamrin/Tamrin Calvra for ARM/Installer/5.40/DestDir"), QStringLiteral("/old"));
    }

    QVERIFY(list.checkInstalled());
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(item->recordValues());
    {
        QSettings settings(store, QSettings::IniFormat);
        settings.beginGroup(QStringLiteral("Tamrin/Tamrin Calvra for ARM/Installer/5.50a"));
        QCOMPARE(settings.value(QStringLiteral("DestDir")).toString(), QStringLiteral("/opt/calvra"));
        QCOMPARE(settings.value(QStringLiteral("SrcDir")).toString(), QStringLiteral("/media/cd"));
        QCOMPARE(settings.value(QStringLiteral("ProgramFolderDir")).toString(),
            QStringLiteral("Tamrin/tamrin_calvra_for_arm_5.50a"));
    }
    QVERIFY(list.checkInstalled());
    QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);

    // The product's removal takes the values away; a later run finds nothing.
    m_mode.value = InstallMode::Remove;
    QVERIFY(list.uninstall());
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(list.checkInstalled());
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    QSettings settings(store, QSettings::IniFormat);
    QCOMPARE(settings.allKeys(),
        QStringList { QStringLiteral("Tamrin/Tamrin Calvra for ARM/Installer/5.40/DestDir") });
    // Removing again, with nothing there, is no error.
    item->setInstalled(InstallConfigurationItem::fullyInstalled);
    QVERIFY(list.uninstall());
    QVERIFY(m_question.asked.isEmpty());
}

void tst_InstallSystemItems::settingKeyCheck_data()
{
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<int>("state");

    QTest::newRow("none") << QStringList() << int(InstallConfigurationItem::notInstalled);
    QTest::newRow("one") << QStringList { "SrcDir" } << int(InstallConfigurationItem::partiallyInstalled);
    QTest::newRow("empty value counts as missing") << QStringList { "DestDir", "SrcDir", "ProgramFolderDir=" }
                                                   << int(InstallConfigurationItem::partiallyInstalled);
    QTest::newRow("all") << QStringList { "DestDir", "SrcDir", "ProgramFolderDir" }
                         << int(InstallConfigurationItem::fullyInstalled);
}

void tst_InstallSystemItems::settingKeyCheck()
{
    QFETCH(QStringList, present);
    QFETCH(int, state);

    macros().set(QStringLiteral("AltArch"), QStringLiteral("-x"));
    {
        InstallSettingsStore store(
            QStringLiteral("Tamrin/Tamrin Calvra for ARM/Installer/5.50a-x"), InstallSettingsStore::Writing);
        for (const QString &value : present)
            store.setValue(value.section(QLatin1Char('='), 0, 0),
                value.contains(QLatin1Char('=')) ? QString() : QStringLiteral("/somewhere"));
    }
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    auto *item = new InstallSettingKeyConfigurationItem(
        QStringLiteral("$(ProductRegKey)/Installer/$(Version)$(AltArch)"), &list,
        QStringLiteral("Installer Settings"), QString(), 0, false);
    for (const char *name : { "DestDir", "SrcDir", "ProgramFolderDir" })
        item->addValue(QLatin1String(name));
    QVERIFY(list.checkInstalled());
    QCOMPARE(int(item->installed()), state);
}

PRIVATE_MOUNTS_TEST_MAIN(tst_InstallSystemItems)
#include "tst_installsystemitems.moc"
