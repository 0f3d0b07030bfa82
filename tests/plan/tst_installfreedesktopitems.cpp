#include "core/installmode.h"
#include "core/macrotable.h"
#include "plan/configurationlist.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfreedesktopmimetypeconfigurationitem.h"
#include "plan/installfreedesktopshortcutconfigurationitem.h"

#include "privatemounts.h"
#include "scriptedquestion.h"

#include <QDirIterator>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file below folder, relative to it, sorted.
QStringList filesBelow(const QString &folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(QDir(folder).relativeFilePath(it.next()));
    files.sort();
    return files;
}

bool writePicture(const QString &path, int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgba(x * 255 / width, y * 255 / height, 128, 255));
    }
    return QDir().mkpath(QFileInfo(path).absolutePath()) && image.save(path, "PNG");
}

template<typename Item> Item *findItem(InstallConfigurationItem *root, const QString &title)
{
    for (InstallConfigurationItem *child : root->children()) {
        if (auto *item = qobject_cast<Item *>(child); item && item->title() == title)
            return item;
        if (Item *found = findItem<Item>(child, title))
            return found;
    }
    return nullptr;
}

// The system data folders the items write, each overlaid so that the real
// contents stay readable (the update commands need them) and every write
// lands in the scratch folder.
const QStringList systemFolders = { QStringLiteral("/usr/share/applications"),
    QStringLiteral("/usr/share/mime"), QStringLiteral("/usr/share/icons") };

} // namespace

class tst_InstallFreeDesktopItems : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void shortcutFileName_data();
    void shortcutFileName();
    void shortcutContents_data();
    void shortcutContents();
    void shortcutFolderMissing();
    void unwritableFilesFail_data();
    void unwritableFilesFail();
    void mimePackage_data();
    void mimePackage();
    void mimeIconMissing();

    void productShortcutSystemWide();
    void productMimeTypesSystemWide();
    void perUserWritesOnlyUnderHome();

private:
    // Overlays the system folders; false (and a skip) without a namespace.
    bool isolateSystemFolders(PrivateMounts &mounts);
    QString scratchFor(const QString &folder) const;

    QTemporaryDir *m_dir = nullptr;
    std::unique_ptr<QTemporaryDir> m_ownedDir;
    FixedMode m_mode { InstallMode::Typical };
    ScriptedQuestion m_question;
};

void tst_InstallFreeDesktopItems::init()
{
    m_ownedDir = std::make_unique<QTemporaryDir>();
    m_dir = m_ownedDir.get();
    QVERIFY(m_dir->isValid());
    // Per-user items write below HOME; point it into the test's folder.
    qputenv("HOME", QFile::encodeName(m_dir->filePath(QStringLiteral("home"))));
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("home"))));
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), m_dir->filePath(QStringLiteral("dest")));
    m_question = ScriptedQuestion();
    m_mode.value = InstallMode::Typical;
}

QString tst_InstallFreeDesktopItems::scratchFor(const QString &folder) const
{
    return m_dir->filePath(QStringLiteral("scratch") + folder);
}

bool tst_InstallFreeDesktopItems::isolateSystemFolders(PrivateMounts &mounts)
{
    if (!PrivateMounts::entered())
        return false;
    for (const QString &folder : systemFolders) {
        if (!mounts.overlay(folder, scratchFor(folder)))
            return false;
    }
    return true;
}

void tst_InstallFreeDesktopItems::shortcutFileName_data()
{
    QTest::addColumn<QString>("vendor");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("fileName");

    QTest::newRow("product") << "Tamrin"
                             << "Tamrin Calvra 1.0"
                             << "tamrin-tamrin-calvra-1.0.desktop";
    QTest::newRow("macros expanded") << "$(Company)"
                                     << "Calvra $(Version)"
                                     << "tamrin-calvra-5.50a.desktop";
    QTest::newRow("vendor spaces dropped") << "Big  Vendor Ltd"
                                           << "App"
                                           << "bigvendorltd-app.desktop";
    QTest::newRow("each name space a dash") << "V"
                                            << "A  B"
                                            << "v-a--b.desktop";
}

void tst_InstallFreeDesktopItems::shortcutFileName()
{
    QFETCH(QString, vendor);
    QFETCH(QString, name);
    QFETCH(QString, fileName);

    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    const InstallFreeDesktopShortcutConfigurationItem user(0, vendor, name, QStringLiteral("/x"), QString(),
        false, false, QString(), QString(), &list, QStringLiteral("S"), QString(), 0, false);
    QCOMPARE(
        user.shortcutPath(), m_dir->filePath(QStringLiteral("home/.local/share/applications/")) + fileName);
    const InstallFreeDesktopShortcutConfigurationItem system(1, vendor, name, QStringLiteral("/x"), QString(),
        false, false, QString(), QString(), &list, QStringLiteral("S"), QString(), 0, false);
    QCOMPARE(system.shortcutPath(), QStringLiteral("/usr/share/applications/") + fileName);
}

void tst_InstallFreeDesktopItems::shortcutContents_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<bool>("terminal");
    QTest::addColumn<bool>("startupNotify");
    QTest::addColumn<QString>("categories");
    QTest::addColumn<QString>("mimeTypes");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("everything") << "$(DestDir)/bin/Quilmor"
                                << "$(DestDir)/bin/Studio Icon.png" << false << true << "Development;"
                                << "a/b;c/d;"
                                << QByteArray("[Desktop Entry]\nVersion=1.0\nName=Calvra 5.50a\n"
                                              "Comment=Calvra 5.50a\nType=Application\n"
                                              "Exec=DEST/bin/Quilmor\nTryExec=DEST/bin/Quilmor\n"
                                              "Icon=DEST/bin/Studio\\ Icon.png\nTerminal=false\n"
                                              "StartupNotify=true\nCategories=Development;\n"
                                              "MimeType=a/b;c/d;\n");
    QTest::newRow("hidden, no icon, no types")
        << "/opt/my tools/run it"
        << "" << true << false << ""
        << ""
        << QByteArray("[Desktop Entry]\nVersion=1.0\nName=Calvra 5.50a\nComment=Calvra 5.50a\n"
                      "Type=Application\nExec=/opt/my\\ tools/run\\ it\nTryExec=/opt/my\\ tools/run\\ it\n"
                      "Terminal=true\nStartupNotify=false\nNoDisplay=true\n");
}

void tst_InstallFreeDesktopItems::shortcutContents()
{
    QFETCH(QString, exec);
    QFETCH(QString, icon);
    QFETCH(bool, terminal);
    QFETCH(bool, startupNotify);
    QFETCH(QString, categories);
    QFETCH(QString, mimeTypes);
    QFETCH(QByteArray, expected);

    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    auto *item = new InstallFreeDesktopShortcutConfigurationItem(0, QStringLiteral("$(Company)"),
        QStringLiteral("Calvra $(Version)"), exec, icon, terminal, startupNotify, categories, mimeTypes,
        &list, QStringLiteral("Shortcut"), QString(), 0, false);

    QVERIFY(list.install());
    QVERIFY(m_question.asked.isEmpty());
    expected.replace("DEST", QFile::encodeName(m_dir->filePath(QStringLiteral("dest"))));
    QCOMPARE(contents(item->shortcutPath()), expected);
    QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);

    item->setInstalled(InstallConfigurationItem::notInstalled);
    QVERIFY(list.checkInstalled());
    QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);

    // Removal deletes the entry and the check then finds nothing.
    m_mode.value = InstallMode::Remove;
    QVERIFY(list.uninstall());
    QVERIFY(!QFile::exists(item->shortcutPath()));
    item->setInstalled(InstallConfigurationItem::fullyInstalled);
    QVERIFY(list.checkInstalled());
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
}

void tst_InstallFreeDesktopItems::shortcutFolderMissing()
{
    // A file where the applications folder would be: no entry, and no error.
    const QString share = m_dir->filePath(QStringLiteral("home/.local/share"));
    QVERIFY(QDir().mkpath(share));
    QFile blocker(share + QStringLiteral("/applications"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    auto *item = new InstallFreeDesktopShortcutConfigurationItem(0, QStringLiteral("V"), QStringLiteral("N"),
        QStringLiteral("/x"), QString(), false, false, QString(), QString(), &list,
        QStringLiteral("Shortcut"), QString(), 0, false);
    QVERIFY(list.install());
    QVERIFY(m_question.asked.isEmpty());
    QVERIFY(QFileInfo(share + QStringLiteral("/applications")).isFile());
    QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);
}

void tst_InstallFreeDesktopItems::unwritableFilesFail_data()
{
    QTest::addColumn<bool>("shortcut");
    QTest::addColumn<QString>("message");

    QTest::newRow("shortcut") << true << "Cannot write .desktop file";
    QTest::newRow("mime type") << false << "Cannot write Mime type file";
}

void tst_InstallFreeDesktopItems::unwritableFilesFail()
{
    QFETCH(bool, shortcut);
    QFETCH(QString, message);

    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    InstallConfigurationItem *item;
    QString target;
    if (shortcut) {
        auto *entry = new InstallFreeDesktopShortcutConfigurationItem(0, QStringLiteral("V"),
            QStringLiteral("N"), QStringLiteral("/x"), QString(), false, false, QString(), QString(), &list,
            QStringLiteral("Item"), QString(), 0, false);
        target = entry->shortcutPath();
        item = entry;
    } else {
        auto *type = new InstallFreeDesktopMimeTypeConfigurationItem(0, QStringLiteral("application/x-t"),
            QStringLiteral("T"), QString(), QStringLiteral(".t"), QString(), &list, QStringLiteral("Item"),
            QString(), 0, false);
        target = type->packagePath();
        item = type;
    }
    // A folder in the file's place cannot be opened for writing, even by root.
    QVERIFY(QDir().mkpath(target));

    m_question.answers = { InstallQuestion::No };
    QVERIFY(list.install());
    QCOMPARE(m_question.headings(), QStringList { QStringLiteral("Item Installation Failed") });
    QVERIFY2(
        m_question.asked.first().text.contains(QStringLiteral("</p><p>") + message + QStringLiteral(".</p>")),
        qPrintable(m_question.asked.first().text));
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
}

void tst_InstallFreeDesktopItems::mimePackage_data()
{
    QTest::addColumn<QString>("parentType");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("subclass")
        << "text/xml"
        << QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
                      "  <mime-type type=\"application/x-tamrin-qzpackage\">\n"
                      "    <sub-class-of type=\"text/xml\"/>\n"
                      "    <comment>Tamrin Calvra Package File</comment>\n"
                      "    <glob pattern=\"*.qzPackage\"/>\n"
                      "  </mime-type>\n"
                      "</mime-info>\n");
    QTest::newRow("no parent type")
        << ""
        << QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
                      "  <mime-type type=\"application/x-tamrin-qzpackage\">\n"
                      "    <comment>Tamrin Calvra Package File</comment>\n"
                      "    <glob pattern=\"*.qzPackage\"/>\n"
                      "  </mime-type>\n"
                      "</mime-info>\n");
}

void tst_InstallFreeDesktopItems::mimePackage()
{
    QFETCH(QString, parentType);
    QFETCH(QByteArray, expected);

    // Not square, so that a scaling that kept the aspect ratio would show.
    QVERIFY(writePicture(m_dir->filePath(QStringLiteral("dest/bin/FileIcon.png")), 300, 200));
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    auto *item = new InstallFreeDesktopMimeTypeConfigurationItem(0,
        QStringLiteral("application/x-tamrin-qzpackage"), QStringLiteral("Tamrin Calvra Package File"),
        parentType, QStringLiteral(".qzPackage"), QStringLiteral("$(DestDir)/bin/FileIcon.png"), &list,
        QStringLiteral("Type"), QString(), 0, false);

    const QString share = m_dir->filePath(QStringLiteral("home/.local/share"));
    QCOMPARE(
        item->packagePath(), share + QStringLiteral("/mime/packages/application-x-tamrin-qzpackage.xml"));
    QVERIFY(list.install());
    QVERIFY(m_question.asked.isEmpty());
    QCOMPARE(contents(item->packagePath()), expected);

    QCOMPARE(InstallFreeDesktopMimeTypeConfigurationItem::iconSizes(),
        (QList<int> { 256, 128, 64, 48, 32, 24, 16 }));
    for (const int size : InstallFreeDesktopMimeTypeConfigurationItem::iconSizes()) {
        const QString path = share
            + QStringLiteral("/icons/hicolor/%1x%1/mimetypes/application-x-tamrin-qzpackage.png").arg(size);
        QVERIFY2(contents(path).startsWith("\x89PNG\r\n\x1a\n"), qPrintable(path));
        const QImage icon(path);
        QCOMPARE(icon.size(), QSize(size, size));
    }

    // The product's removal leaves the type registered.
    m_mode.value = InstallMode::Remove;
    QVERIFY(list.uninstall());
    QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(QFile::exists(item->packagePath()));
    QVERIFY(QFile::exists(item->iconPath(16)));
    QVERIFY(list.checkInstalled());
    QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);
}

void tst_InstallFreeDesktopItems::mimeIconMissing()
{
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    auto *item = new InstallFreeDesktopMimeTypeConfigurationItem(0, QStringLiteral("application/x-t"),
        QStringLiteral("T"), QString(), QStringLiteral(".t"), QStringLiteral("$(DestDir)/missing.png"), &list,
        QStringLiteral("Type"), QString(), 0, false);
    QVERIFY(list.install());
    QVERIFY(m_question.asked.isEmpty());
    QVERIFY(QFile::exists(item->packagePath()));
    for (const int size : InstallFreeDesktopMimeTypeConfigurationItem::iconSizes())
        QVERIFY(!QFile::exists(item->iconPath(size)));
}

void tst_InstallFreeDesktopItems::productShortcutSystemWide()
{
    PrivateMounts mounts;
    if (!isolateSystemFolders(mounts))
        QSKIP("needs root and a private mount namespace");

    QVERIFY(writePicture(m_dir->filePath(QStringLiteral("dest/bin/StudioIcon.png")), 64, 64));
    ConfigurationList list;
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    auto *shortcut
        = findItem<InstallFreeDesktopShortcutConfigurationItem>(&list, QStringLiteral("Quilmor Shortcut"));
    QVERIFY(shortcut);
    QCOMPARE(shortcut->shortcutPath(),
        QStringLiteral("/usr/share/applications/tamrin-tamrin-calvra-5.50a.desktop"));
    QVERIFY(shortcut->install());
    QVERIFY(m_question.asked.isEmpty());

    QProcess validate;
    validate.start(QStringLiteral("desktop-file-validate"), { shortcut->shortcutPath() });
    QVERIFY(validate.waitForFinished());
    const QByteArray report = validate.readAll();
    QVERIFY2(validate.exitStatus() == QProcess::NormalExit && validate.exitCode() == 0, report.constData());
    QVERIFY2(!report.contains("error"), report.constData());

    // The entry landed in the system folder (here: its private layer), and
    // the desktop database there was rebuilt with the entry's types.
    const QString upper = scratchFor(QStringLiteral("/usr/share/applications")) + QStringLiteral("/upper");
    QVERIFY(QFile::exists(upper + QStringLiteral("/tamrin-tamrin-calvra-5.50a.desktop")));
    const QByteArray cache = contents(QStringLiteral("/usr/share/applications/mimeinfo.cache"));
    for (const char *type : { "application/x-tamrin-qzproject=", "application/x-tamrin-qzpackage=",
             "application/x-tamrin-qzarchive=" })
        QVERIFY2(cache.contains(QByteArray(type) + "tamrin-tamrin-calvra-5.50a.desktop"), cache.constData());

    m_mode.value = InstallMode::Remove;
    QVERIFY(shortcut->uninstall());
    QVERIFY(!QFile::exists(shortcut->shortcutPath()));
    QVERIFY(!contents(QStringLiteral("/usr/share/applications/mimeinfo.cache")).contains("qzproject"));
}

void tst_InstallFreeDesktopItems::productMimeTypesSystemWide()
{
    PrivateMounts mounts;
    if (!isolateSystemFolders(mounts))
        QSKIP("needs root and a private mount namespace");

    QVERIFY(writePicture(m_dir->filePath(QStringLiteral("dest/bin/FileIcon.png")), 48, 48));
    ConfigurationList list;
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    const QList<QPair<QString, QString>> types = {
        { QStringLiteral(".qzProject"), QStringLiteral("application/x-tamrin-qzproject") },
        { QStringLiteral(".qzPackage"), QStringLiteral("application/x-tamrin-qzpackage") },
        { QStringLiteral(".qzArchive"), QStringLiteral("application/x-tamrin-qzarchive") },
    };
    for (const auto &type : types) {
        auto *item = findItem<InstallFreeDesktopMimeTypeConfigurationItem>(
            &list, type.first + QStringLiteral(" Mime Type"));
        QVERIFY(item);
        QVERIFY(item->install());
        QCOMPARE(item->installed(), InstallConfigurationItem::fullyInstalled);
        for (const int size : InstallFreeDesktopMimeTypeConfigurationItem::iconSizes())
            QCOMPARE(QImage(item->iconPath(size)).size(), QSize(size, size));
    }
    QVERIFY(m_question.asked.isEmpty());

    // update-mime-database keeps globs in lower case unless they are marked
    // case-sensitive; the desktop matches them without regard to case.
    const QList<QByteArray> globs = contents(QStringLiteral("/usr/share/mime/globs2")).split('\n');
    for (const auto &type : types) {
        const QByteArray line = "50:" + type.second.toLatin1() + ":*" + type.first.toLower().toLatin1();
        QVERIFY2(globs.contains(line), line.constData());
    }
    QVERIFY(contents(QStringLiteral("/usr/share/mime/subclasses"))
                .contains("application/x-tamrin-qzarchive text/xml"));
    // gtk-update-icon-cache rebuilt the theme's cache in the private layer.
    QVERIFY(QFile::exists(
        scratchFor(QStringLiteral("/usr/share/icons")) + QStringLiteral("/upper/hicolor/icon-theme.cache")));
}

void tst_InstallFreeDesktopItems::perUserWritesOnlyUnderHome()
{
    PrivateMounts mounts;
    if (!isolateSystemFolders(mounts))
        QSKIP("needs root and a private mount namespace");

    QVERIFY(writePicture(m_dir->filePath(QStringLiteral("dest/bin/FileIcon.png")), 32, 32));
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&m_mode);
    list.setQuestion(&m_question);
    new InstallFreeDesktopMimeTypeConfigurationItem(0, QStringLiteral("application/x-tamrin-qzproject"),
        QStringLiteral("Tamrin Calvra Project File"), QStringLiteral("text/xml"),
        QStringLiteral(".qzProject"), QStringLiteral("$(DestDir)/bin/FileIcon.png"), &list,
        QStringLiteral("Type"), QString(), 0, false);
    new InstallFreeDesktopShortcutConfigurationItem(0, QStringLiteral("$(Company)"), QStringLiteral("Calvra"),
        QStringLiteral("$(DestDir)/bin/Quilmor"), QStringLiteral("$(DestDir)/bin/FileIcon.png"), false, true,
        QStringLiteral("Development;"), QStringLiteral("application/x-tamrin-qzproject;"), &list,
        QStringLiteral("Shortcut"), QString(), 0, false);
    QVERIFY(list.install());
    QVERIFY(m_question.asked.isEmpty());

    for (const QString &folder : systemFolders)
        QCOMPARE(filesBelow(scratchFor(folder) + QStringLiteral("/upper")), QStringList());
    const QString share = m_dir->filePath(QStringLiteral("home/.local/share"));
    const QStringList written = filesBelow(share);
    QVERIFY(written.contains(QStringLiteral("applications/tamrin-calvra.desktop")));
    QVERIFY(written.contains(QStringLiteral("applications/mimeinfo.cache")));
    QVERIFY(written.contains(QStringLiteral("mime/packages/application-x-tamrin-qzproject.xml")));
    QVERIFY(
        written.contains(QStringLiteral("icons/hicolor/24x24/mimetypes/application-x-tamrin-qzproject.png")));
    QVERIFY(contents(share + QStringLiteral("/mime/globs2"))
                .contains("application/x-tamrin-qzproject:*.qzproject"));
    // Nothing else of the test's folder was touched besides the icon source.
    QCOMPARE(filesBelow(m_dir->filePath(QStringLiteral("dest"))),
        QStringList { QStringLiteral("bin/FileIcon.png") });
}

PRIVATE_MOUNTS_TEST_MAIN(tst_InstallFreeDesktopItems)
#include "tst_installfreedesktopitems.moc"
