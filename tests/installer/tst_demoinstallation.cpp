#include "core/installmode.h"
#include "core/macrotable.h"
#include "installer/installsettingsrecord.h"
#include "media/filestoreinstallmedia.h"
#include "plan/configurationlist.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installmodesource.h"
#include "plan/installsettingsstore.h"
#include "plan/vantordriverinstallconfigurationitem.h"

#include "../plan/privatemounts.h"
#include "../plan/scriptedquestion.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace {

// Every file below folder with a digest of its bytes, relative names sorted.
QMap<QString, QByteArray> digests(const QString &folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            files.insert(QDir(folder).relativeFilePath(path),
                QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
    }
    return files;
}

const QStringList productFolders
    = { "bin", "gcc", "html", "include", "lib", "llvm", "samples", "tamrin-rtl", "source", "targets" };

} // namespace

// The product's whole plan run against the demo medium: installed into a
// private copy of the system, recorded, then removed by a later run that knows
// only the record.
class tst_DemoInstallation : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void installRecordRemove();

private:
    QTemporaryDir m_dir;
    QString m_medium;
};

void tst_DemoInstallation::initTestCase()
{
    if (!PrivateMounts::entered())
        QSKIP("needs root and a private mount namespace");
    QVERIFY(m_dir.isValid());
    m_medium = m_dir.filePath(QStringLiteral("medium"));
    QProcess make;
    make.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    make.start(QStringLiteral(SETUP_SOURCE_DIR "/scripts/make-demo-medium"),
        { m_medium, QStringLiteral(SETUP_BINARY_DIR "/app/Setup") });
    QVERIFY(make.waitForFinished(120000));
    QCOMPARE(make.exitCode(), 0);
}

void tst_DemoInstallation::installRecordRemove()
{
    PrivateMounts mounts;
    for (const char *folder : { "/usr/share/applications", "/usr/share/mime", "/usr/share/icons", "/etc" })
        QVERIFY(mounts.overlay(
            QLatin1String(folder), m_dir.filePath(QStringLiteral("scratch") + QLatin1String(folder))));
    if (QDir(QStringLiteral("/etc/udev")).exists())
        QVERIFY(mounts.tmpfs(QStringLiteral("/etc/udev")));

    const QString destination = m_dir.filePath(QStringLiteral("Calvra Home"));
    macros().setDefaults();
    macros().set(QStringLiteral("SrcDir"), m_medium);
    macros().set(QStringLiteral("DestDir"), destination);
    macros().set(QStringLiteral("HomeDir"), m_dir.filePath(QStringLiteral("home")));
    InstallOverwriteTest::forgetAnswers();

    // First run: a custom installation with the udev rules chosen.
    {
        FileStoreInstallMedia media(m_medium);
        FixedMode mode(InstallMode::Custom);
        ScriptedQuestion question;
        ConfigurationList list;
        list.setModeSource(&mode);
        list.setQuestion(&question);
        list.setMedia(&media);
        for (InstallConfigurationItem *item : list.children().at(3)->children()) {
            if (qobject_cast<VantorDriverInstallConfigurationItem *>(item))
                item->setInstall(true);
        }
        QVERIFY(list.install());
        QVERIFY2(question.asked.isEmpty(), qPrintable(question.headings().join(QLatin1Char('\n'))));
        QCOMPARE(list.matchCount(InstallConfigurationItem::fullyInstalled, true), list.itemCount());
        QVERIFY(InstallSettingsRecord(&list).save(InstallSettingsRecord::defaultPath()));
    }

    // Every medium folder arrived byte for byte, beside the installer's copy.
    const QMap<QString, QByteArray> medium = digests(m_medium);
    QMap<QString, QByteArray> expected;
    for (auto it = medium.cbegin(); it != medium.cend(); ++it) {
        if (productFolders.contains(it.key().section(QLatin1Char('/'), 0, 0)))
            expected.insert(it.key(), it.value());
        else if (it.key() == QLatin1String("Setup"))
            expected.insert(QStringLiteral("bin/uninstall"), it.value());
        else
            expected.insert(QStringLiteral("bin/") + it.key(), it.value());
    }
    QMap<QString, QByteArray> installed = digests(destination);
    QVERIFY(installed.remove(QStringLiteral("bin/IConf.xml")));
    QCOMPARE(installed, expected);
    QVERIFY(QFileInfo(destination + QStringLiteral("/bin/Quilmor")).isExecutable());

    // The system side: menu entry, file types, udev rules, settings key.
    QVERIFY(QFile::exists(QStringLiteral("/usr/share/applications/tamrin-tamrin-calvra-5.50a.desktop")));
    QVERIFY(QFile::exists(QStringLiteral("/usr/share/mime/packages/application-x-tamrin-qzarchive.xml")));
    QVERIFY(QFile::exists(
        QStringLiteral("/usr/share/icons/hicolor/256x256/mimetypes/application-x-tamrin-qzproject.png")));
    struct stat rules;
    QCOMPARE(::stat("/etc/udev/rules.d/99-vantor.rules", &rules), 0);
    QCOMPARE(rules.st_mode & 07777, mode_t(0644));
    const QString store = InstallSettingsStore::filePath();
    QCOMPARE(QSettings(store, QSettings::IniFormat)
                 .value(QStringLiteral("Tamrin/Tamrin Calvra for ARM/Installer/5.50a/DestDir"))
                 .toString(),
        destination);

    // A later removal, started elsewhere, learns everything from the record.
    const QString userFile = destination + QStringLiteral("/samples/Blinky/notes.txt");
    {
        QFile notes(userFile);
        QVERIFY(notes.open(QIODevice::WriteOnly));
    }
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), destination);
    macros().set(QStringLiteral("HomeDir"), m_dir.filePath(QStringLiteral("home")));
    FixedMode mode(InstallMode::Remove);
    ScriptedQuestion question;
    ConfigurationList list;
    list.setModeSource(&mode);
    list.setQuestion(&question);
    QVERIFY(InstallSettingsRecord(&list).load(InstallSettingsRecord::defaultPath()));
    QVERIFY(list.checkInstalled());
    for (InstallConfigurationItem *item : list.children().at(3)->children()) {
        if (auto *archive = qobject_cast<InstallArchiveConfigurationItem *>(item))
            QCOMPARE(archive->installed(), InstallConfigurationItem::fullyInstalled);
    }
    QVERIFY(list.uninstall());
    QVERIFY(question.asked.isEmpty());

    // Only the user's own file is left of the installation; the shared
    // registrations stay, the menu entry and the settings go.
    QCOMPARE(digests(destination).keys(), QStringList { QStringLiteral("samples/Blinky/notes.txt") });
    QVERIFY(!QFile::exists(QStringLiteral("/usr/share/applications/tamrin-tamrin-calvra-5.50a.desktop")));
    QVERIFY(QFile::exists(QStringLiteral("/usr/share/mime/packages/application-x-tamrin-qzarchive.xml")));
    QVERIFY(QFile::exists(QStringLiteral("/etc/udev/rules.d/99-vantor.rules")));
    QVERIFY(QSettings(store, QSettings::IniFormat).allKeys().isEmpty());
}

PRIVATE_MOUNTS_TEST_MAIN(tst_DemoInstallation)
#include "tst_demoinstallation.moc"
