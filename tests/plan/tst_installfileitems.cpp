#include "core/installexception.h"
#include "core/installmode.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "media/filestoreinstallmedia.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfileremovalconfigurationitem.h"
#include "plan/installfilesconfigurationitem.h"

#include "asnobody.h"
#include "scriptedquestion.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace {

bool writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644, time_t modified = 1500000000)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        return false;
    file.close();
    const struct utimbuf times = { modified, modified };
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0
        && ::utime(QFile::encodeName(path).constData(), &times) == 0;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<int> ints(const QSignalSpy &spy)
{
    QList<int> values;
    for (const QList<QVariant> &arguments : spy)
        values.append(arguments.at(0).toInt());
    return values;
}

// A list in the given mode whose questions are scripted, with "$(TstSrc)" and
// "$(TstDest)" pointing into a fresh temporary folder.
struct Plan
{
    explicit Plan(int mode)
        : modeSource(mode)
        , list(QStringLiteral("L"), QString(), 0, true)
    {
        list.setModeSource(&modeSource);
        list.setQuestion(&question);
        macros().set(QStringLiteral("TstSrc"), source());
        macros().set(QStringLiteral("TstDest"), destination());
        macros().set(QStringLiteral("DestDir"), destination());
        InstallOverwriteTest::forgetAnswers();
    }

    QString source() const { return dir.filePath(QStringLiteral("src")); }
    QString destination() const { return dir.filePath(QStringLiteral("dest")); }

    QTemporaryDir dir;
    FixedMode modeSource;
    ScriptedQuestion question;
    InstallConfigurationList list;
};

const InstallFilesConfigurationItem::Entry installerFiles[] = {
    { "$(TstSrc)/Setup", "$(TstDest)/bin/uninstall", 0 },
    { "$(TstSrc)/skipped", "$(TstDest)/bin/skipped", InstallFilesConfigurationItem::SkipOnInstall },
    { "$(TstSrc)/libQtCore.so.4", "$(TstDest)/bin/lib/deep/libQtCore.so.4",
        InstallFilesConfigurationItem::KeepOnRemove },
    { "", "", 0 },
};

} // namespace

class tst_InstallFileItems : public QObject
{
    Q_OBJECT

private slots:
    void filesInstall();
    void filesTableCounts();
    void filesLocateSource_data();
    void filesLocateSource();
    void filesSilentMissingSourceEndsRun();
    void filesCannotCreateFolder();
    void filesAskBeforeReplacing();
    void filesCheckInstalled_data();
    void filesCheckInstalled();
    void filesUninstall_data();
    void filesUninstall();
    void archiveInstall();
    void archiveWithoutMedium();
    void archiveRemoveOnly();
    void archiveCheckInstalled();
    void removalKeepsWhatItDidNotWrite();
    void removalLeavesOtherKinds();
    void busyFile_data();
    void busyFile();
};

void tst_InstallFileItems::filesInstall()
{
    Plan plan(InstallMode::Typical);
    QVERIFY(writeFile(plan.source() + "/Setup", "setup program", 0755, 1400000000));
    QVERIFY(writeFile(plan.source() + "/libQtCore.so.4", "core library", 0644, 1300000000));
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, installerFiles);
    QSignalSpy steps(&item, &InstallConfigurationItem::totalSteps);
    QSignalSpy progress(&item, qOverload<int>(&InstallConfigurationItem::progress));

    QVERIFY(plan.list.install());
    QVERIFY(plan.question.asked.isEmpty());
    QCOMPARE(item.installed(), InstallConfigurationItem::fullyInstalled);
    QCOMPARE(ints(steps), QList<int> { 3 });
    QCOMPARE(ints(progress), (QList<int> { 0, 1, 2 }));
    const QString setup = plan.destination() + "/bin/uninstall";
    QCOMPARE(contents(setup), QByteArray("setup program"));
    QCOMPARE(QFileInfo(setup).lastModified().toSecsSinceEpoch(), 1400000000);
    QVERIFY(QFileInfo(setup).permissions() & QFileDevice::ExeOwner);
    QCOMPARE(contents(plan.destination() + "/bin/lib/deep/libQtCore.so.4"), QByteArray("core library"));
    QVERIFY(!QFileInfo::exists(plan.destination() + "/bin/skipped"));
}

void tst_InstallFileItems::filesTableCounts()
{
    Plan plan(InstallMode::Typical);
    const InstallFilesConfigurationItem::Entry one[]
        = { { "$(TstSrc)/a", "$(TstDest)/a", 1 }, { nullptr, nullptr, 0 } };
    const InstallFilesConfigurationItem::Entry none[] = { { nullptr, nullptr, 0 } };
    InstallFilesConfigurationItem single(
        &plan.list, QStringLiteral("one"), QString(), 0, false, InstallConfigurationItem::AllFlags, one);
    InstallFilesConfigurationItem empty(
        &plan.list, QStringLiteral("none"), QString(), 0, false, InstallConfigurationItem::AllFlags, none);
    QCOMPARE(single.entryCount(), 1);
    QCOMPARE(empty.entryCount(), 0);
    QSignalSpy singleSteps(&single, &InstallConfigurationItem::totalSteps);
    QSignalSpy emptySteps(&empty, &InstallConfigurationItem::totalSteps);
    QSignalSpy emptyProgress(&empty, qOverload<int>(&InstallConfigurationItem::progress));
    QVERIFY(plan.list.install());
    // Step counts below 2 are raised to 2.
    QCOMPARE(ints(singleSteps), QList<int> { 2 });
    QCOMPARE(ints(emptySteps), QList<int> { 2 });
    QCOMPARE(emptyProgress.count(), 0);
}

void tst_InstallFileItems::filesLocateSource_data()
{
    QTest::addColumn<bool>("located");
    QTest::newRow("located elsewhere") << true;
    QTest::newRow("not located") << false;
}

void tst_InstallFileItems::filesLocateSource()
{
    QFETCH(bool, located);
    Plan plan(InstallMode::Typical);
    const InstallFilesConfigurationItem::Entry table[] = {
        { "$(TstSrc)/missing.so", "$(TstDest)/missing.so", 0 },
        { nullptr, nullptr, 0 },
    };
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, table);
    const QString elsewhere = plan.dir.filePath(QStringLiteral("elsewhere/found.so"));
    QVERIFY(writeFile(elsewhere, "found"));
    if (located)
        plan.question.locations = { elsewhere };
    plan.question.answers = { InstallQuestion::No };

    QVERIFY(plan.list.install());
    QCOMPARE(plan.question.located, QStringList { plan.source() + "/missing.so" });
    if (located) {
        QVERIFY(plan.question.asked.isEmpty());
        QCOMPARE(contents(plan.destination() + "/missing.so"), QByteArray("found"));
        QCOMPARE(item.installed(), InstallConfigurationItem::fullyInstalled);
    } else {
        QCOMPARE(plan.question.headings(), QStringList { "Installer Installation Failed" });
        QVERIFY(plan.question.asked.first().text.contains(
            "<p>Cannot find file '" + plan.source() + "/missing.so'.</p>"));
        QCOMPARE(item.installed(), InstallConfigurationItem::notInstalled);
    }
}

void tst_InstallFileItems::filesSilentMissingSourceEndsRun()
{
    Plan plan(InstallMode::Typical);
    plan.list.setQuestion(nullptr);
    const InstallFilesConfigurationItem::Entry table[] = {
        { "$(TstSrc)/missing.so", "$(TstDest)/missing.so", 0 },
        { nullptr, nullptr, 0 },
    };
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, table);
    // The failure question's default, Yes, terminates.
    QVERIFY_THROWS_EXCEPTION(InstallUserCancelException, plan.list.install());
}

void tst_InstallFileItems::filesCannotCreateFolder()
{
    Plan plan(InstallMode::Typical);
    QVERIFY(writeFile(plan.source() + "/Setup", "setup"));
    QVERIFY(writeFile(plan.destination() + "/bin", "a file where the folder goes"));
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, installerFiles);
    plan.question.answers = { InstallQuestion::No };
    QVERIFY(plan.list.install());
    QCOMPARE(plan.question.asked.size(), 1);
    QVERIFY(plan.question.asked.first().text.contains(
        "<p>Cannot create folder " + plan.destination() + "/bin.</p>"));
}

void tst_InstallFileItems::filesAskBeforeReplacing()
{
    Plan plan(InstallMode::Typical);
    const InstallFilesConfigurationItem::Entry table[] = {
        { "$(TstSrc)/a", "$(TstDest)/a", 0 },
        { "$(TstSrc)/b", "$(TstDest)/b", 0 },
        { "$(TstSrc)/c", "$(TstDest)/c", 0 },
        { nullptr, nullptr, 0 },
    };
    for (const char *name : { "a", "b", "c" }) {
        QVERIFY(writeFile(plan.source() + '/' + name, "new", 0644, 1500000000));
        QVERIFY(writeFile(plan.destination() + '/' + name, "old", 0644, 1400000000));
    }
    QVERIFY(writeFile(plan.destination() + "/c", "same", 0644, 1500000000));
    QVERIFY(writeFile(plan.source() + "/c", "same", 0644, 1500000000));
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, table);
    plan.question.answers = { InstallQuestion::No, InstallQuestion::YesToAll };
    QVERIFY(plan.list.install());
    QCOMPARE(plan.question.headings(),
        (QStringList { "Older version of a already exists", "Older version of b already exists" }));
    QCOMPARE(contents(plan.destination() + "/a"), QByteArray("old"));
    QCOMPARE(contents(plan.destination() + "/b"), QByteArray("new"));
}

void tst_InstallFileItems::filesCheckInstalled_data()
{
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<int>("expected");
    QTest::newRow("all, skipped entry counted") << QStringList { "uninstall", "skipped",
        "lib/deep/libQtCore.so.4" } << int(InstallConfigurationItem::fullyInstalled);
    QTest::newRow("some") << QStringList { "uninstall" } << int(InstallConfigurationItem::partiallyInstalled);
    QTest::newRow("none") << QStringList() << int(InstallConfigurationItem::notInstalled);
}

void tst_InstallFileItems::filesCheckInstalled()
{
    QFETCH(QStringList, present);
    QFETCH(int, expected);
    Plan plan(InstallMode::Upgrade);
    for (const QString &name : present)
        QVERIFY(writeFile(plan.destination() + "/bin/" + name, "x"));
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, installerFiles);
    item.setInstall(false);
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(int(item.installed()), expected);
    // What is there shows as selected.
    QCOMPARE(item.installFlag(), expected != InstallConfigurationItem::notInstalled);

    const InstallFilesConfigurationItem::Entry none[] = { { nullptr, nullptr, 0 } };
    InstallFilesConfigurationItem empty(
        &plan.list, QStringLiteral("none"), QString(), 0, false, InstallConfigurationItem::AllFlags, none);
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(empty.installed(), InstallConfigurationItem::fullyInstalled);
}

void tst_InstallFileItems::filesUninstall_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("keeps");
    QTest::newRow("Remove keeps marked files") << int(InstallMode::Remove) << true;
    QTest::newRow("Repair removes them") << int(InstallMode::Repair) << false;
    QTest::newRow("Upgrade removes them") << int(InstallMode::Upgrade) << false;
}

void tst_InstallFileItems::filesUninstall()
{
    QFETCH(int, mode);
    QFETCH(bool, keeps);
    Plan plan(mode);
    for (const char *name : { "uninstall", "skipped", "lib/deep/libQtCore.so.4" })
        QVERIFY(writeFile(plan.destination() + "/bin/" + name, "x"));
    QVERIFY(writeFile(plan.dir.filePath(QStringLiteral("keep.txt")), "x"));
    InstallFilesConfigurationItem item(&plan.list, QStringLiteral("Installer"), QString(), 0, false,
        InstallConfigurationItem::AllFlags, installerFiles);
    item.setInstalled(InstallConfigurationItem::fullyInstalled);
    QSignalSpy steps(&item, &InstallConfigurationItem::totalSteps);
    QSignalSpy progress(&item, qOverload<int>(&InstallConfigurationItem::progress));

    QVERIFY(plan.list.uninstall());
    QCOMPARE(item.installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(!QFileInfo::exists(plan.destination() + "/bin/uninstall"));
    // Passed over at installation, but removed like the rest.
    QVERIFY(!QFileInfo::exists(plan.destination() + "/bin/skipped"));
    QCOMPARE(QFileInfo::exists(plan.destination() + "/bin/lib/deep/libQtCore.so.4"), keeps);
    QCOMPARE(QFileInfo::exists(plan.destination() + "/bin"), keeps);
    // Emptied folders go up to the first one that holds something else.
    QCOMPARE(QFileInfo::exists(plan.destination()), keeps);
    QVERIFY(QFileInfo::exists(plan.dir.filePath(QStringLiteral("keep.txt"))));
    QCOMPARE(ints(steps), QList<int> { keeps ? 2 : 3 });
    QCOMPARE(ints(progress), keeps ? (QList<int> { 0, 1, 2 }) : (QList<int> { 0, 1, 2, 3 }));
}

void tst_InstallFileItems::archiveInstall()
{
    Plan plan(InstallMode::Typical);
    QVERIFY(writeFile(plan.source() + "/bin/Quilmor", QByteArray(5000, 'q'), 0755, 1500000000));
    QVERIFY(writeFile(plan.source() + "/bin/plugins/a.so", QByteArray(3000, 'a'), 0644, 1400000000));
    QVERIFY(writeFile(plan.source() + "/bin/FileIcon.png", QByteArray(300, 'p'), 0600, 1300000000));
    QVERIFY(writeFile(plan.source() + "/html/index.html", "<p>"));
    FileStoreInstallMedia media(plan.source());
    plan.list.setMedia(&media);
    InstallArchiveConfigurationItem item(&plan.list, QStringLiteral("Binary Files"), QString(), 0, true,
        InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(TstDest)/bin"), 3);
    QSignalSpy steps(&item, &InstallConfigurationItem::totalSteps);
    QSignalSpy progress(&item, qOverload<int>(&InstallConfigurationItem::progress));
    QSignalSpy tasks(&item, qOverload<const QString &>(&InstallConfigurationItem::progress));

    QVERIFY(plan.list.install());
    QVERIFY(plan.question.asked.isEmpty());
    QCOMPARE(item.files(), (QStringList { "FileIcon.png", "Quilmor", "plugins/a.so" }));
    QVERIFY(item.filesKnown());
    QCOMPARE(item.property("files").toStringList(), item.files());
    QCOMPARE(ints(steps), QList<int> { 8300 >> 10 });
    QCOMPARE(ints(progress), (QList<int> { 0, 300 >> 10, 5300 >> 10, 8300 >> 10 }));
    QCOMPARE(ints(progress).last(), ints(steps).last());
    QCOMPARE(tasks.count(), 3);
    QCOMPARE(tasks.at(1).at(0).toString(), QStringLiteral("Quilmor"));
    QCOMPARE(contents(plan.destination() + "/bin/plugins/a.so"), QByteArray(3000, 'a'));
    QCOMPARE(QFileInfo(plan.destination() + "/bin/Quilmor").lastModified().toSecsSinceEpoch(), 1500000000);
    QVERIFY(!QFileInfo::exists(plan.destination() + "/bin/index.html"));

    // The medium is let go once the item is done.
    emit media.extractedFile(1 << 20);
    QCOMPARE(progress.count(), 4);
}

void tst_InstallFileItems::archiveWithoutMedium()
{
    Plan plan(InstallMode::Typical);
    InstallArchiveConfigurationItem item(&plan.list, QStringLiteral("Binary Files"), QString(), 0, true,
        InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(TstDest)/bin"), 3);
    plan.question.answers = { InstallQuestion::No };
    QVERIFY(plan.list.install());
    QCOMPARE(plan.question.headings(), QStringList { "Binary Files Installation Failed" });
    QCOMPARE(item.installed(), InstallConfigurationItem::notInstalled);
}

void tst_InstallFileItems::archiveRemoveOnly()
{
    Plan plan(InstallMode::Typical);
    QVERIFY(writeFile(plan.source() + "/bin/tool", "t"));
    FileStoreInstallMedia media(plan.source());
    plan.list.setMedia(&media);
    InstallArchiveConfigurationItem removeOnly(&plan.list, QStringLiteral("remove only"), QString(), 0, true,
        InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(TstDest)/bin"), 2);
    QVERIFY(plan.list.install());
    QVERIFY(!QFileInfo::exists(plan.destination() + "/bin/tool"));
    QVERIFY(!removeOnly.filesKnown());

    // A later run learns the names from the record and removes them.
    QVERIFY(writeFile(plan.destination() + "/bin/tool", "t"));
    QVERIFY(writeFile(plan.destination() + "/bin/sub/x", "x"));
    QVERIFY(removeOnly.setProperty("files", QStringList { "tool", "sub/x" }));
    plan.modeSource.value = InstallMode::Remove;
    QVERIFY(plan.list.uninstall());
    QVERIFY(!QFileInfo::exists(plan.destination()));

    // Without option 2 nothing is removed.
    InstallArchiveConfigurationItem keep(&plan.list, QStringLiteral("keep"), QString(), 0, true,
        InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(TstDest)/bin"), 1);
    QVERIFY(writeFile(plan.destination() + "/bin/tool", "t"));
    keep.setFiles({ "tool" });
    keep.setInstalled(InstallConfigurationItem::fullyInstalled);
    QVERIFY(plan.list.uninstall());
    QCOMPARE(keep.installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(QFileInfo::exists(plan.destination() + "/bin/tool"));
}

void tst_InstallFileItems::archiveCheckInstalled()
{
    Plan plan(InstallMode::Upgrade);
    InstallArchiveConfigurationItem item(&plan.list, QStringLiteral("Binary Files"), QString(), 0, true,
        InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(TstDest)/bin"), 0);
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(item.installed(), InstallConfigurationItem::fullyInstalled);

    item.setFiles({ "a", "sub/b" });
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(item.installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(writeFile(plan.destination() + "/bin/sub/b", "b"));
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(item.installed(), InstallConfigurationItem::partiallyInstalled);
    QVERIFY(writeFile(plan.destination() + "/bin/a", "a"));
    QVERIFY(plan.list.checkInstalled());
    QCOMPARE(item.installed(), InstallConfigurationItem::fullyInstalled);
}

void tst_InstallFileItems::removalKeepsWhatItDidNotWrite()
{
    Plan plan(InstallMode::Remove);
    const QString dest = plan.destination();
    for (const char *name : { "html/contents.bin", "html/a/b/c/deep.txt", "html/a/other/o.txt", "bin/tool" })
        QVERIFY(writeFile(dest + '/' + name, "x"));
    QVERIFY(writeFile(dest + "/html/a/foreign.txt", "the user's"));
    QVERIFY(QDir().mkpath(dest + "/html/a/empty-foreign"));
    InstallFileRemovalConfigurationItem remover(
        &plan.list, QStringLiteral("File Remover"), QString(), 0, false);
    for (const char *name :
        { "html/contents.bin", "html/a/other/o.txt", "html/gone.txt", "html/a/b/c/deep.txt" })
        remover.addFile("$(TstDest)/" + QString::fromLatin1(name));
    remover.setInstalled(InstallConfigurationItem::fullyInstalled);
    QSignalSpy progress(&remover, qOverload<int>(&InstallConfigurationItem::progress));

    QVERIFY(plan.list.uninstall());
    QVERIFY(plan.question.asked.isEmpty());
    QCOMPARE(ints(progress), (QList<int> { 0, 1, 2, 3, 4 }));
    QVERIFY(!QFileInfo::exists(dest + "/html/contents.bin"));
    // Nested folders emptied by the same item all go, deepest first.
    QVERIFY(!QFileInfo::exists(dest + "/html/a/b"));
    QVERIFY(!QFileInfo::exists(dest + "/html/a/other"));
    // A folder holding what the item did not write stays, with its parents.
    QCOMPARE(contents(dest + "/html/a/foreign.txt"), QByteArray("the user's"));
    QVERIFY(QFileInfo(dest + "/html/a/empty-foreign").isDir());
    QVERIFY(QFileInfo::exists(dest + "/bin/tool"));
}

void tst_InstallFileItems::removalLeavesOtherKinds()
{
    Plan plan(InstallMode::Remove);
    const QString dest = plan.destination();
    QVERIFY(writeFile(dest + "/target.txt", "kept"));
    QVERIFY(QDir().mkpath(dest + "/folder/inner"));
    QVERIFY(QFile::link(dest + "/target.txt", dest + "/link"));
    InstallFileRemovalConfigurationItem remover(
        &plan.list, QStringLiteral("File Remover"), QString(), 0, false);
    remover.addFile(dest + "/link");
    remover.addFile(dest + "/folder");
    remover.setInstalled(InstallConfigurationItem::fullyInstalled);
    QVERIFY(plan.list.uninstall());
    QVERIFY(QFileInfo(dest + "/link").isSymLink());
    QVERIFY(QFileInfo(dest + "/folder/inner").isDir());
    QCOMPARE(contents(dest + "/target.txt"), QByteArray("kept"));
    QVERIFY(plan.question.asked.isEmpty());
}

void tst_InstallFileItems::busyFile_data()
{
    QTest::addColumn<int>("answer");
    QTest::newRow("Retry") << int(InstallQuestion::Retry);
    QTest::newRow("Ignore") << int(InstallQuestion::Ignore);
    QTest::newRow("Cancel") << int(InstallQuestion::Cancel);
}

void tst_InstallFileItems::busyFile()
{
    QFETCH(int, answer);
    if (::geteuid() != 0)
        QSKIP("needs root to hand the files to an unprivileged user");
    Plan plan(InstallMode::Remove);
    const QString dest = plan.destination();
    QVERIFY(writeFile(dest + "/first.txt", "1"));
    QVERIFY(writeFile(dest + "/locked/busy.txt", "busy"));
    QVERIFY(writeFile(dest + "/last.txt", "3"));
    // The unprivileged user owns everything, but may not change the locked folder.
    for (const QString &path : { plan.dir.path(), dest, dest + "/locked" })
        QVERIFY(::chown(QFile::encodeName(path).constData(), AsNobody::uid, AsNobody::gid) == 0);
    QVERIFY(::chmod(QFile::encodeName(plan.dir.path()).constData(), 0755) == 0);
    QVERIFY(::chmod(QFile::encodeName(dest + "/locked").constData(), 0555) == 0);

    InstallFileRemovalConfigurationItem remover(
        &plan.list, QStringLiteral("File Remover"), QString(), 0, false);
    for (const char *name : { "first.txt", "locked/busy.txt", "last.txt" })
        remover.addFile("$(TstDest)/" + QString::fromLatin1(name));
    remover.setInstalled(InstallConfigurationItem::fullyInstalled);
    // Retry first fails again, then succeeds once the folder is opened.
    plan.question.answers = { answer };
    if (answer == InstallQuestion::Retry)
        plan.question.answers.append(InstallQuestion::Retry);
    plan.question.beforeAnswer = [&](int asked) {
        if (answer == InstallQuestion::Retry && asked == 2)
            ::chmod(QFile::encodeName(dest + "/locked").constData(), 0755);
    };

    bool cancelled = false;
    {
        AsNobody nobody;
        QVERIFY(nobody.unprivileged());
        try {
            QVERIFY(plan.list.uninstall());
        } catch (const InstallUserCancelException &) {
            cancelled = true;
        }
    }
    ::chmod(QFile::encodeName(dest + "/locked").constData(), 0755);

    QCOMPARE(cancelled, answer == InstallQuestion::Cancel);
    QCOMPARE(plan.question.asked.size(), answer == InstallQuestion::Retry ? 2 : 1);
    QCOMPARE(plan.question.unscripted, 0);
    for (const ScriptedQuestion::Asked &asked : std::as_const(plan.question.asked)) {
        QCOMPARE(asked.heading, QStringLiteral("Cannot remove busy.txt"));
        QCOMPARE(asked.text,
            "The file " + dest
                + "/locked/busy.txt cannot be removed, please check that it is not in use.<p>Click Retry to "
                  "remove file, Ignore to skip the file or Cancel to terminate installation.");
        QCOMPARE(
            asked.buttons, int(InstallQuestion::Retry | InstallQuestion::Ignore | InstallQuestion::Cancel));
        QCOMPARE(asked.defaultButton, int(InstallQuestion::Retry));
    }
    // What was removed before Cancel stays removed.
    QVERIFY(!QFileInfo::exists(dest + "/first.txt"));
    QCOMPARE(QFileInfo::exists(dest + "/locked/busy.txt"), answer != InstallQuestion::Retry);
    QCOMPARE(QFileInfo::exists(dest + "/last.txt"), answer == InstallQuestion::Cancel);
    // A file left behind never fails the item.
    QCOMPARE(remover.installed(),
        cancelled ? InstallConfigurationItem::fullyInstalled : InstallConfigurationItem::notInstalled);
    QCOMPARE(QFileInfo::exists(dest), answer != InstallQuestion::Retry);
}

QTEST_GUILESS_MAIN(tst_InstallFileItems)
#include "tst_installfileitems.moc"
