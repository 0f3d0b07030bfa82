#include "core/installmode.h"
#include "core/macrotable.h"
#include "core/productinfo.h"
#include "plan/configurationlist.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installfileremovalconfigurationitem.h"
#include "plan/installfilesconfigurationitem.h"
#include "plan/installfreedesktopmimetypeconfigurationitem.h"
#include "plan/installfreedesktopshortcutconfigurationitem.h"
#include "plan/installsettingkeyconfigurationitem.h"
#include "plan/vantordriverinstallconfigurationitem.h"

#include "privatemounts.h"
#include "scriptedquestion.h"

#include <QDirIterator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

// One row of the product's plan as the installer shows and runs it.
struct Row
{
    QString parent;
    QString kind;
    QString title;
    QString description;
    // -1: decided from the system (3 or 4).
    int level;
    bool visible;

    bool operator==(const Row &other) const
    {
        return parent == other.parent && kind == other.kind && title == other.title
            && description == other.description && level == other.level && visible == other.visible;
    }
};

char *toString(const Row &row)
{
    return QTest::toString(QStringLiteral("%1 > %2 \"%3\" \"%4\" level %5 %6")
                               .arg(row.parent, row.kind, row.title, row.description)
                               .arg(row.level)
                               .arg(row.visible ? QStringLiteral("visible") : QStringLiteral("hidden")));
}

const QString group = QStringLiteral("Tamrin Calvra for ARM 5.50a");

// The product's plan in creation order.
const QList<Row> &expectedTree()
{
    static const QList<Row> rows = {
        { "", "ConfigurationList", "Install Configuration List", "", 0, true },
        { "Install Configuration List", "InstallFilesConfigurationItem", "Installer", "", 0, false },
        { "Install Configuration List", "InstallFileRemovalConfigurationItem", "System File Remover", "", 0,
            false },
        { "Install Configuration List", "InstallSettingKeyConfigurationItem", "Installer Settings", "", 0,
            false },
        { "Install Configuration List", "InstallConfigurationItem", group,
            "Tamrin Calvra for ARM 5.50a Installation", 0, true },
        { group, "InstallArchiveConfigurationItem", "Binary Files",
            "Executable files required to run Tamrin Calvra for ARM", 0, true },
        { group, "InstallArchiveConfigurationItem", "GCC Files", "Install GCC tools.", 0, true },
        { group, "InstallArchiveConfigurationItem", "Help Files", "Tamrin Calvra for ARM help files", 0,
            true },
        { group, "InstallArchiveConfigurationItem", "Include Files", "Tamrin Calvra for ARM include files", 0,
            true },
        { group, "InstallArchiveConfigurationItem", "Library Files", "Tamrin Calvra for ARM library files", 0,
            true },
        { group, "InstallArchiveConfigurationItem", "LLVM Files", "Install LLVM tools", 0, true },
        { group, "InstallArchiveConfigurationItem", "Sample Files",
            "Tamrin Calvra for ARM sample project and source files", 0, true },
        { group, "InstallArchiveConfigurationItem", "Tamrin-RTL Files",
            "Tamrin Calvra for ARM Tamrin-RTL files", 0, true },
        { group, "InstallArchiveConfigurationItem", "Source Files", "Tamrin Calvra for ARM source files", 0,
            true },
        { group, "InstallArchiveConfigurationItem", "Target Definition Files",
            "Tamrin Calvra for ARM target definition files", 0, true },
        { group, "VantorDriverInstallConfigurationItem", "Vantor udev rules file",
            "Install the Vantor udev rules file", -1, true },
        { group, "InstallFreeDesktopMimeTypeConfigurationItem", ".qzProject Mime Type",
            "Install .qzProject file Mime type", 0, false },
        { group, "InstallFreeDesktopMimeTypeConfigurationItem", ".qzPackage Mime Type",
            "Install .qzPackage file Mime type", 0, false },
        { group, "InstallFreeDesktopMimeTypeConfigurationItem", ".qzArchive Mime Type",
            "Install .qzArchive file Mime type", 0, false },
        { group, "InstallFreeDesktopShortcutConfigurationItem", "Quilmor Shortcut",
            "Install shortcut for Quilmor", 0, false },
        { group, "InstallFileRemovalConfigurationItem", "File Remover", "", 0, false },
    };
    return rows;
}

QList<InstallConfigurationItem *> itemsOf(InstallConfigurationItem *root)
{
    QList<InstallConfigurationItem *> items { root };
    for (InstallConfigurationItem *child : root->children())
        items += itemsOf(child);
    return items;
}

template<typename Item> QList<Item *> itemsOfKind(InstallConfigurationItem *root)
{
    QList<Item *> found;
    for (InstallConfigurationItem *item : itemsOf(root)) {
        if (auto *typed = qobject_cast<Item *>(item))
            found.append(typed);
    }
    return found;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QStringList filesBelow(const QString &folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(QDir(folder).relativeFilePath(it.next()));
    files.sort();
    return files;
}

} // namespace

class tst_ConfigurationList : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void tree();
    void initialSelection();
    void archiveFolders();
    void installerFiles();
    void removersAndSettingKey();
    void fileTypes();
    void shortcut();
    void udevOnlyWhenChosen_data();
    void udevOnlyWhenChosen();
    void titlesUseMacrosAtConstruction();
    void removalOrder();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_ConfigurationList::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    macros().setDefaults();
    macros().set(QStringLiteral("DestDir"), m_dir->filePath(QStringLiteral("dest")));
    macros().set(QStringLiteral("SrcDir"), m_dir->filePath(QStringLiteral("src")));
    macros().set(QStringLiteral("HomeDir"), m_dir->filePath(QStringLiteral("home")));
}

void tst_ConfigurationList::tree()
{
    ConfigurationList list;
    QList<Row> rows;
    for (InstallConfigurationItem *item : itemsOf(&list)) {
        const bool decidedBySystem = qobject_cast<VantorDriverInstallConfigurationItem *>(item);
        if (decidedBySystem)
            QVERIFY2(item->level() == 3 || item->level() == 4, qPrintable(QString::number(item->level())));
        rows.append({ item->parentItem() ? item->parentItem()->title() : QString(),
            QString::fromLatin1(item->metaObject()->className()), item->title(), item->description(),
            decidedBySystem ? -1 : item->level(), item->isVisible() });
        QCOMPARE(item->flags(), quint32(InstallConfigurationItem::AllFlags));
    }
    QCOMPARE(rows, expectedTree());
    QCOMPARE(list.itemCount(), expectedTree().size());
    QCOMPARE(list.parent(), nullptr);
    // Every item is owned by its parent item.
    for (InstallConfigurationItem *item : itemsOf(&list).mid(1))
        QCOMPARE(item->parent(), item->parentItem());
}

void tst_ConfigurationList::initialSelection()
{
    ConfigurationList list;
    for (InstallConfigurationItem *item : itemsOf(&list)) {
        QCOMPARE(item->installFlag(), item->level() < 2);
        QCOMPARE(item->installed(), InstallConfigurationItem::notInstalled);
    }
}

void tst_ConfigurationList::archiveFolders()
{
    ConfigurationList list;
    QStringList folders;
    for (InstallArchiveConfigurationItem *archive : itemsOfKind<InstallArchiveConfigurationItem>(&list)) {
        QCOMPARE(archive->destination(), QStringLiteral("$(DestDir)/") + archive->archiveName());
        QCOMPARE(archive->options(),
            quint32(InstallArchiveConfigurationItem::ExtractOnInstall
                | InstallArchiveConfigurationItem::RemoveOnUninstall));
        QVERIFY(!archive->filesKnown());
        folders.append(archive->archiveName());
    }
    QCOMPARE(folders,
        (QStringList {
            "bin", "gcc", "html", "include", "lib", "llvm", "samples", "tamrin-rtl", "source", "targets" }));
}

void tst_ConfigurationList::installerFiles()
{
    // The table is seen through what the item does: with every source in
    // "$(SrcDir)" it copies each one to "$(InstallerDir)".
    const QStringList libraries = { "libQt6Core.so.6", "libQt6Gui.so.6", "libQt6Widgets.so.6",
        "libQt6Network.so.6", "libQt6Xml.so.6", "libQt6DBus.so.6", "libQt6XcbQpa.so.6" };
    QVERIFY(writeFile(m_dir->filePath(QStringLiteral("src/Setup")), "setup program"));
    for (const QString &library : libraries)
        QVERIFY(writeFile(m_dir->filePath(QStringLiteral("src/")) + library, library.toLatin1()));

    FixedMode mode(InstallMode::Typical);
    ScriptedQuestion question;
    ConfigurationList list;
    list.setModeSource(&mode);
    list.setQuestion(&question);
    const auto files = itemsOfKind<InstallFilesConfigurationItem>(&list);
    QCOMPARE(files.size(), 1);
    QCOMPARE(files.first()->entryCount(), libraries.size() + 1);
    QVERIFY(files.first()->install());
    QVERIFY(question.asked.isEmpty());
    QStringList expected = QStringList(libraries) << QStringLiteral("uninstall");
    expected.replaceInStrings(QRegularExpression(QStringLiteral("^")), QStringLiteral("bin/"));
    expected.sort();
    QCOMPARE(filesBelow(m_dir->filePath(QStringLiteral("dest"))), expected);
    QFile copy(m_dir->filePath(QStringLiteral("dest/bin/uninstall")));
    QVERIFY(copy.open(QIODevice::ReadOnly));
    QCOMPARE(copy.readAll(), QByteArray("setup program"));
}

void tst_ConfigurationList::removersAndSettingKey()
{
    ConfigurationList list;
    const auto removers = itemsOfKind<InstallFileRemovalConfigurationItem>(&list);
    QCOMPARE(removers.size(), 2);
    QCOMPARE(removers[0]->files(), QStringList { QStringLiteral("$(InstallerDir)/IConf.xml") });
    QCOMPARE(removers[1]->files(), QStringList { QStringLiteral("$(DestDir)/html/contents.bin") });

    const auto keys = itemsOfKind<InstallSettingKeyConfigurationItem>(&list);
    QCOMPARE(keys.size(), 1);
    QCOMPARE(keys.first()->key(), QStringLiteral("$(ProductRegKey)/Installer/$(Version)$(AltArch)"));
    QCOMPARE(keys.first()->values(),
        (QStringList {
            QStringLiteral("DestDir"), QStringLiteral("SrcDir"), QStringLiteral("ProgramFolderDir") }));
}

void tst_ConfigurationList::fileTypes()
{
    ConfigurationList list;
    QStringList types;
    for (InstallFreeDesktopMimeTypeConfigurationItem *type :
        itemsOfKind<InstallFreeDesktopMimeTypeConfigurationItem>(&list)) {
        QCOMPARE(type->systemWide(), 1u);
        QCOMPARE(type->parentType(), QStringLiteral("text/xml"));
        QCOMPARE(type->icon(), QStringLiteral("$(DestDir)/bin/FileIcon.png"));
        QCOMPARE(type->title(), type->extension() + QStringLiteral(" Mime Type"));
        QVERIFY(type->packagePath().startsWith(QStringLiteral("/usr/share/mime/packages/")));
        types.append(
            type->extension() + QLatin1Char(' ') + type->mimeType() + QLatin1Char(' ') + type->comment());
    }
    QCOMPARE(types,
        (QStringList { ".qzProject application/x-tamrin-qzproject Tamrin Calvra Project File",
            ".qzPackage application/x-tamrin-qzpackage Tamrin Calvra Package File",
            ".qzArchive application/x-tamrin-qzarchive Tamrin Calvra Archive File" }));
}

void tst_ConfigurationList::shortcut()
{
    ConfigurationList list;
    const auto shortcuts = itemsOfKind<InstallFreeDesktopShortcutConfigurationItem>(&list);
    QCOMPARE(shortcuts.size(), 1);
    const InstallFreeDesktopShortcutConfigurationItem *item = shortcuts.first();
    QCOMPARE(item->systemWide(), 1u);
    QCOMPARE(
        item->shortcutPath(), QStringLiteral("/usr/share/applications/tamrin-tamrin-calvra-5.50a.desktop"));
    QCOMPARE(item->name(), ProductInfo::productName() + QStringLiteral(" $(Version)"));
    QCOMPARE(item->exec(), QStringLiteral("$(DestDir)/bin/Quilmor"));
    QCOMPARE(item->icon(), QStringLiteral("$(DestDir)/bin/StudioIcon.png"));
    QVERIFY(!item->terminal());
    QVERIFY(item->startupNotify());
    QCOMPARE(item->categories(), QStringLiteral("Development;X-MandrivaLinux-MoreApplications-Development;"));
    QCOMPARE(item->mimeTypes(),
        QStringLiteral(
            "application/x-tamrin-qzproject;application/x-tamrin-qzpackage;application/x-tamrin-qzarchive;"));
}

void tst_ConfigurationList::udevOnlyWhenChosen_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("selected");
    QTest::addColumn<bool>("installs");

    // Unselected, as it starts, it installs in no mode.
    for (int mode = InstallMode::Minimal; mode <= InstallMode::Upgrade; ++mode)
        QTest::addRow("mode %d", mode) << mode << false << false;
    // Chosen on the custom page or kept from the installation record. (The
    // installation types that show no feature page leave it unselected.)
    QTest::newRow("custom selected") << int(InstallMode::Custom) << true << true;
    QTest::newRow("modify selected") << int(InstallMode::Modify) << true << true;
    QTest::newRow("repair selected") << int(InstallMode::Repair) << true << true;
    QTest::newRow("upgrade selected") << int(InstallMode::Upgrade) << true << true;
    // The product group installs nothing in Remove mode, so neither does the
    // option below it.
    QTest::newRow("remove selected") << int(InstallMode::Remove) << true << false;
}

void tst_ConfigurationList::udevOnlyWhenChosen()
{
    QFETCH(int, mode);
    QFETCH(bool, selected);
    QFETCH(bool, installs);

    FixedMode modeSource(mode);
    ConfigurationList list;
    list.setModeSource(&modeSource);
    const auto udev = itemsOfKind<VantorDriverInstallConfigurationItem>(&list);
    QCOMPARE(udev.size(), 1);
    QVERIFY(!udev.first()->installFlag());
    udev.first()->setInstall(selected);
    QCOMPARE(udev.first()->willInstall(), installs);
}

void tst_ConfigurationList::titlesUseMacrosAtConstruction()
{
    macros().set(QStringLiteral("Product"), QStringLiteral("Other"));
    macros().set(QStringLiteral("Version"), QStringLiteral("9"));
    ConfigurationList list;
    const InstallConfigurationItem *product = list.children().at(3);
    QCOMPARE(product->title(), QStringLiteral("Other 9"));
    QCOMPARE(
        product->children().first()->description(), QStringLiteral("Executable files required to run Other"));
    // Paths stay unexpanded, so a destination chosen later applies.
    macros().set(QStringLiteral("DestDir"), QStringLiteral("/later"));
    QCOMPARE(itemsOfKind<InstallArchiveConfigurationItem>(&list).first()->destination(),
        QStringLiteral("$(DestDir)/bin"));
}

void tst_ConfigurationList::removalOrder()
{
    // The shortcut's removal touches the system's applications folder.
    PrivateMounts mounts;
    if (!PrivateMounts::entered()
        || !mounts.overlay(
            QStringLiteral("/usr/share/applications"), m_dir->filePath(QStringLiteral("scratch"))))
        QSKIP("needs root and a private mount namespace");

    QVERIFY(writeFile(m_dir->filePath(QStringLiteral("dest/html/contents.bin")), "index"));
    QVERIFY(writeFile(m_dir->filePath(QStringLiteral("dest/html/page.html")), "page"));
    FixedMode mode(InstallMode::Remove);
    ScriptedQuestion question;
    ConfigurationList list;
    list.setModeSource(&mode);
    list.setQuestion(&question);
    list.setInstalled(InstallConfigurationItem::fullyInstalled, true);
    for (InstallArchiveConfigurationItem *archive : itemsOfKind<InstallArchiveConfigurationItem>(&list))
        archive->setFiles(archive->archiveName() == QLatin1String("html")
                ? QStringList { QStringLiteral("page.html") }
                : QStringList());

    QSignalSpy starting(&list, &InstallConfigurationList::starting);
    QVERIFY(list.uninstall());
    QVERIFY(question.asked.isEmpty());
    QStringList order;
    for (const QList<QVariant> &arguments : starting)
        order.append(arguments.at(0).value<InstallConfigurationItem *>()->title());

    // Children last to first, then the parent; the product's own files go
    // before its folders, and the installer's files after the product.
    QStringList expected;
    const QList<Row> &rows = expectedTree();
    for (qsizetype i = rows.size() - 1; i >= 5; --i)
        expected.append(rows[i].title);
    expected += { group, QStringLiteral("Installer Settings"), QStringLiteral("System File Remover"),
        QStringLiteral("Installer"), QStringLiteral("Install Configuration List") };
    QCOMPARE(order, expected);
    // With its index gone first, the help folder could go too.
    QVERIFY(!QFileInfo::exists(m_dir->filePath(QStringLiteral("dest/html"))));
}

PRIVATE_MOUNTS_TEST_MAIN(tst_ConfigurationList)
#include "tst_configurationlist.moc"
