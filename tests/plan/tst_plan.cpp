// The plan through its public behaviour: which items a mode installs, the
// walks of install, uninstall and check with their questions, the overwrite
// rules, and what the file items write and take away again.
#include "core/hexception.h"
#include "core/installexception.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "media/filestoreinstallmedia.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfeatureselection.h"
#include "plan/installfileremovalconfigurationitem.h"
#include "plan/installoverwritetest.h"
#include "scriptedquestion.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace {

void writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644, time_t modified = 1500000000)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size());
    file.close();
    const struct utimbuf times = { modified, modified };
    QVERIFY(::chmod(QFile::encodeName(path).constData(), mode) == 0);
    QVERIFY(::utime(QFile::encodeName(path).constData(), &times) == 0);
}

// Of the file itself, never of a link's target.
bool setTime(const QString &path, time_t modified)
{
    const struct timespec times[2] = { { modified, 0 }, { modified, 0 } };
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// An item whose actions write to a shared log and fail on request.
class RecordingItem : public InstallConfigurationItem
{
public:
    RecordingItem(InstallConfigurationItem *parent, const QString &title, QStringList *log, int level = 0)
        : InstallConfigurationItem(parent, title, QString(), level, true, AllFlags)
        , m_log(log)
    { }
    QString failing; // "install", "uninstall" or "check"
    InstalledState found = notInstalled;

protected:
    void installAction() override { act(QStringLiteral("install")); }
    void uninstallAction() override { act(QStringLiteral("uninstall")); }
    void checkInstalledAction() override
    {
        act(QStringLiteral("check"));
        setInstalled(found);
    }

private:
    void act(const QString &what)
    {
        m_log->append(what + QLatin1Char(' ') + title());
        if (what == failing)
            throw InstallException(QStringLiteral("Busy"));
    }
    QStringList *m_log;
};

// A list of A with A1 and A2, then B with B1, in a mode the test sets.
struct Tree
{
    explicit Tree(int mode)
        : modeSource(mode)
        , list(QStringLiteral("L"), QString(), 0, true)
        , a(&list, QStringLiteral("A"), &log)
        , a1(&a, QStringLiteral("A1"), &log)
        , a2(&a, QStringLiteral("A2"), &log)
        , b(&list, QStringLiteral("B"), &log)
        , b1(&b, QStringLiteral("B1"), &log)
    {
        list.setModeSource(&modeSource);
        list.setQuestion(&question);
        QObject::connect(&list, &InstallConfigurationList::finished, &list,
            [this](InstallConfigurationItem *item) { finished.append(item->title()); });
    }
    RecordingItem *item(const QString &title)
    {
        for (RecordingItem *item : { &a, &a1, &a2, &b, &b1 }) {
            if (item->title() == title)
                return item;
        }
        return nullptr;
    }
    FixedMode modeSource;
    ScriptedQuestion question;
    QStringList log;
    QStringList finished;
    InstallConfigurationList list;
    RecordingItem a, a1, a2, b, b1;
};

} // namespace

class tst_Plan : public QObject
{
    Q_OBJECT

private slots:
    void init() { InstallOverwriteTest::forgetAnswers(); }
    void levels_data();
    void levels();
    void walks_data();
    void walks();
    void overwrite_data();
    void overwrite();
    void archiveItem();
    void removal_data();
    void removal();
    void features_data();
    void features();
};

void tst_Plan::levels_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QList<int>>("installing"); // the levels a selected item installs at
    QTest::newRow("Minimal") << int(InstallMode::Minimal) << QList<int> { 0, 3, 4 };
    QTest::newRow("Typical") << int(InstallMode::Typical) << QList<int> { 0, 1, 3, 4 };
    QTest::newRow("Full") << int(InstallMode::Full) << QList<int> { 0, 1, 2, 3, 4 };
    QTest::newRow("Custom") << int(InstallMode::Custom) << QList<int> { 0, 1, 2, 3, 4 };
    QTest::newRow("Remove") << int(InstallMode::Remove) << QList<int> { 3, 4 };
}

void tst_Plan::levels()
{
    QFETCH(int, mode);
    QFETCH(QList<int>, installing);
    FixedMode source(mode);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    list.setModeSource(&source);
    QStringList log;
    QList<int> found;
    for (int level = 0; level <= 4; ++level) {
        RecordingItem item(&list, QStringLiteral("item"), &log, level);
        // Only levels 0 and 1 start selected; an optional one is chosen here.
        QCOMPARE(item.installFlag(), level < 2);
        item.setInstall(true);
        if (item.willInstall())
            found.append(level);
        item.setInstall(false);
        QVERIFY(!item.willInstall());
    }
    QCOMPARE(found, installing);
    // A child goes with its optional parent only.
    RecordingItem parent(&list, QStringLiteral("parent"), &log, 3);
    RecordingItem child(&parent, QStringLiteral("child"), &log, 0);
    parent.setInstall(false);
    QVERIFY(!child.willInstall());
    parent.setInstall(true);
    QCOMPARE(child.willInstall(), installing.contains(0));
}

void tst_Plan::walks_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("walk");
    QTest::addColumn<QString>("installed"); // items installed before, comma-separated
    QTest::addColumn<QString>("deselected");
    QTest::addColumn<QString>("failing"); // "item action"
    QTest::addColumn<int>("answer"); // to the question a failure asks
    QTest::addColumn<QString>("log");
    QTest::addColumn<QString>("question");
    QTest::addColumn<bool>("cancelled");
    const int yes = InstallQuestion::Yes;
    const int no = InstallQuestion::No;
    const QString all = QStringLiteral("A,A1,A2,B,B1");
    const QString none;
    QTest::newRow("install, parents first")
        << int(InstallMode::Typical) << "install" << none << none << none << 0
        << "install A,install A1,install A2,install B,install B1" << none << false;
    QTest::newRow("install skips what is installed, not its children")
        << int(InstallMode::Custom) << "install"
        << "A"
        << "B1" << none << 0 << "install A1,install A2,install B" << none << false;
    QTest::newRow("install failure, Yes terminates")
        << int(InstallMode::Typical) << "install" << none << none << "A install" << yes << "install A"
        << "A Installation Failed" << true;
    QTest::newRow("install failure, No goes on")
        << int(InstallMode::Typical) << "install" << none << none << "A install" << no
        << "install A,install A1,install A2,install B,install B1"
        << "A Installation Failed" << false;
    QTest::newRow("remove, children last to first")
        << int(InstallMode::Remove) << "uninstall"
        << "A,A2,B1" << none << none << 0 << "uninstall B1,uninstall A2,uninstall A" << none << false;
    QTest::newRow("modify removes only what is deselected")
        << int(InstallMode::Modify) << "uninstall" << all << "A" << none << 0
        << "uninstall A2,uninstall A1,uninstall A" << none << false;
    QTest::newRow("repair removes everything")
        << int(InstallMode::Repair) << "uninstall" << all << none << none << 0
        << "uninstall B1,uninstall B,uninstall A2,uninstall A1,uninstall A" << none << false;
    QTest::newRow("removal failure, Yes terminates") << int(InstallMode::Remove) << "uninstall" << all << none
                                                     << "B uninstall" << yes << "uninstall B1,uninstall B"
                                                     << "B Removal Failed" << true;
    QTest::newRow("repair asks nothing about a removal failure")
        << int(InstallMode::Repair) << "uninstall" << all << none << "B uninstall" << 0
        << "uninstall B1,uninstall B,uninstall A2,uninstall A1,uninstall A" << none << false;
    QTest::newRow("check, children last to first")
        << int(InstallMode::Upgrade) << "check" << none << none << none << 0
        << "check B1,check B,check A2,check A1,check A" << none << false;
    QTest::newRow("check gives up at a failure")
        << int(InstallMode::Upgrade) << "check" << none << none << "A2 check" << 0
        << "check B1,check B,check A2" << none << false;
}

void tst_Plan::walks()
{
    QFETCH(int, mode);
    QFETCH(QString, walk);
    QFETCH(QString, installed);
    QFETCH(QString, deselected);
    QFETCH(QString, failing);
    QFETCH(int, answer);
    QFETCH(QString, log);
    QFETCH(QString, question);
    QFETCH(bool, cancelled);
    Tree tree(mode);
    for (const QString &title : installed.split(QLatin1Char(','), Qt::SkipEmptyParts))
        tree.item(title)->setInstalled(InstallConfigurationItem::fullyInstalled);
    for (const QString &title : deselected.split(QLatin1Char(','), Qt::SkipEmptyParts))
        tree.item(title)->setInstall(false);
    if (!failing.isEmpty())
        tree.item(failing.section(QLatin1Char(' '), 0, 0))->failing = failing.section(QLatin1Char(' '), 1);
    tree.a1.found = InstallConfigurationItem::partiallyInstalled;
    if (answer)
        tree.question.answers = { answer };
    bool threw = false;
    bool result = false;
    try {
        result = walk == QLatin1String("install") ? tree.list.install()
            : walk == QLatin1String("uninstall")  ? tree.list.uninstall()
                                                  : tree.list.checkInstalled();
    } catch (const InstallUserCancelException &) {
        threw = true;
    }
    QCOMPARE(threw, cancelled);
    QCOMPARE(tree.log.join(QLatin1Char(',')), log);
    QCOMPARE(tree.question.headings().join(QString()), question);
    QCOMPARE(tree.question.unscripted, 0);
    if (threw)
        return;
    QCOMPARE(result, !failing.endsWith(QLatin1String("check")));
    // What each action did is what the items say of themselves afterwards.
    for (RecordingItem *item : { &tree.a, &tree.a1, &tree.a2, &tree.b, &tree.b1 }) {
        const bool acted = tree.log.contains(walk + QLatin1Char(' ') + item->title());
        const bool failed = failing == item->title() + QLatin1Char(' ') + walk;
        const bool wasInstalled = installed.split(QLatin1Char(',')).contains(item->title());
        InstallConfigurationItem::InstalledState expected = wasInstalled
            ? InstallConfigurationItem::fullyInstalled
            : InstallConfigurationItem::notInstalled;
        if (acted && !failed && walk == QLatin1String("install"))
            expected = InstallConfigurationItem::fullyInstalled;
        else if (acted && !failed && walk == QLatin1String("uninstall"))
            expected = InstallConfigurationItem::notInstalled;
        else if (acted && !failed)
            expected = item->found;
        QCOMPARE(item->installed(), expected);
        // finished pairs every action, failed or not, that was not cancelled.
        if (walk != QLatin1String("check"))
            QCOMPARE(tree.finished.contains(item->title()), acted);
    }
    if (walk == QLatin1String("check") && failing.isEmpty())
        QVERIFY(tree.a1.installFlag()); // an installed component shows as selected
}

void tst_Plan::overwrite_data()
{
    QTest::addColumn<QString>("standing"); // what stands at the destination
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("questions"); // headings, "|" between them, the default after ":"
    const int yes = InstallQuestion::Yes;
    const int no = InstallQuestion::No;
    const int cancel = InstallQuestion::Cancel;
    QTest::newRow("nothing") << "missing" << QList<int>() << true << "";
    QTest::newRow("same time and size") << "same" << QList<int>() << false << "";
    QTest::newRow("older, Yes") << "older" << QList<int> { yes } << true
                                << "Older version of file already exists:1";
    QTest::newRow("newer, No") << "newer" << QList<int> { no } << false
                               << "Newer version of file already exists:16";
    QTest::newRow("same time, other size, No")
        << "other size" << QList<int> { no } << false << "file already exists:16";
    QTest::newRow("older, Cancel") << "older" << QList<int> { cancel } << false
                                   << "Older version of file already exists:1";
    QTest::newRow("older read-only, Yes, then Yes again")
        << "older read-only" << QList<int> { yes, yes } << true
        << "Older version of file already exists:1|%1 is a read only file:16";
    QTest::newRow("older read-only, Yes, then No")
        << "older read-only" << QList<int> { yes, no } << false
        << "Older version of file already exists:1|%1 is a read only file:16";
    // The read-only answer "to all" holds too; Cancel ends the run there.
    const QList<QPair<int, const char *>> readOnlyAnswers { { InstallQuestion::YesToAll, "Yes to All" },
        { InstallQuestion::NoToAll, "No to All" }, { cancel, "Cancel" } };
    for (const auto &[answer, name] : readOnlyAnswers)
        QTest::addRow("older read-only, Yes, then %s", name)
            << "older read-only" << QList<int> { yes, answer } << (answer == InstallQuestion::YesToAll)
            << "Older version of file already exists:1|%1 is a read only file:16";
    // Only a regular file is made writable: one that cannot be is asked about until skipped.
    QTest::newRow("older read-only FIFO, skipped on the second try")
        << "older read-only FIFO" << QList<int> { yes, yes, no, yes } << false
        << "Older version of file already exists:1|%1 is a read only file:16|Cannot make %1 writable:1|"
           "Cannot make %1 writable:1";
    QTest::newRow("a link where the file belongs is replaced unasked")
        << "link" << QList<int> {} << true << "";
    QTest::newRow("Yes to All holds for the next file") << "older" << QList<int> { InstallQuestion::YesToAll }
                                                        << true << "Older version of file already exists:1";
    QTest::newRow("No to All holds for the next file") << "older" << QList<int> { InstallQuestion::NoToAll }
                                                       << false << "Older version of file already exists:1";
}

void tst_Plan::overwrite()
{
    QFETCH(QString, standing);
    QFETCH(QList<int>, answers);
    QFETCH(bool, expected);
    QFETCH(QString, questions);
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("file"));
    const qint64 sourceTime = 1500000000;
    if (standing == QLatin1String("same"))
        writeFile(file, QByteArray(10, 'd'), 0644, sourceTime);
    else if (standing == QLatin1String("other size"))
        writeFile(file, QByteArray(11, 'd'), 0644, sourceTime);
    else if (standing == QLatin1String("newer"))
        writeFile(file, QByteArray(10, 'd'), 0644, sourceTime + 100);
    else if (standing.endsWith(QLatin1String("FIFO")))
        QVERIFY(::mkfifo(QFile::encodeName(file).constData(), 0444) == 0 && setTime(file, sourceTime - 100));
    else if (standing.startsWith(QLatin1String("older")))
        writeFile(file, QByteArray(10, 'd'), standing.endsWith(QLatin1String("read-only")) ? 0444 : 0644,
            sourceTime - 100);
    else if (standing == QLatin1String("link")) {
        writeFile(dir.filePath(QStringLiteral("elsewhere")), "not ours", 0444);
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("elsewhere")), file));
        QVERIFY(setTime(file, sourceTime - 100));
    }
    ScriptedQuestion question;
    question.answers = answers;
    InstallOverwriteTest test(&question);
    bool cancelled = false;
    bool result = false;
    try {
        result = test.shouldOverwrite(sourceTime, 10, file);
    } catch (const InstallUserCancelException &) {
        cancelled = true;
    }
    QCOMPARE(cancelled, answers.contains(InstallQuestion::Cancel));
    QCOMPARE(result, expected);
    QStringList asked;
    for (const ScriptedQuestion::Asked &one : std::as_const(question.asked))
        asked.append(one.heading + QLatin1Char(':') + QString::number(one.defaultButton));
    QCOMPARE(asked.join(QLatin1Char('|')), questions.replace(QStringLiteral("%1"), file));
    if (standing == QLatin1String("link")) {
        // The read-only rule never lends the link's target the write bit.
        QCOMPARE(QFile::permissions(dir.filePath(QStringLiteral("elsewhere"))) & QFileDevice::WriteOwner,
            QFileDevice::Permissions());
    }
    // A "to all" answer holds for the next file without a question.
    writeFile(dir.filePath(QStringLiteral("next")), QByteArray(10, 'n'), 0644, sourceTime - 1);
    const int before = question.asked.size();
    question.answers = { InstallQuestion::No };
    const bool next = test.shouldOverwrite(sourceTime, 10, dir.filePath(QStringLiteral("next")));
    if (answers.value(0) == InstallQuestion::YesToAll || answers.value(0) == InstallQuestion::NoToAll) {
        QCOMPARE(question.asked.size(), before);
        QCOMPARE(next, answers.value(0) == InstallQuestion::YesToAll);
    } else {
        QCOMPARE(question.asked.size(), before + 1);
        QVERIFY(!next);
    }
}

void tst_Plan::archiveItem()
{
    // An archive item copies its medium folder, knows what it wrote, and
    // removal takes exactly that away with the folders it emptied.
    QTemporaryDir dir;
    FixedMode mode(InstallMode::Typical);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    ScriptedQuestion question;
    list.setModeSource(&mode);
    list.setQuestion(&question);
    // Files are written and removed below the destination folder held open.
    macros().set(QStringLiteral("TstDest"), dir.filePath(QStringLiteral("dest")));
    macros().set(QStringLiteral("DestDir"), dir.filePath(QStringLiteral("dest")));
    writeFile(dir.filePath("src/bin/Quilmor"), QByteArray(5000, 'q'), 0755, 1500000000);
    writeFile(dir.filePath("src/bin/plugins/a.so"), QByteArray(3000, 'a'), 0600, 1400000000);
    writeFile(dir.filePath("src/html/index.html"), "<p>");
    FileStoreInstallMedia media(dir.filePath(QStringLiteral("src")));
    list.setMedia(&media);
    InstallArchiveConfigurationItem item(&list, QStringLiteral("Binary Files"), QString(), 0, true,
        InstallConfigurationItem::AllFlags, QStringLiteral("bin"), QStringLiteral("$(TstDest)/bin"), 3);
    QVERIFY(list.install());
    QVERIFY(question.asked.isEmpty());
    QCOMPARE(item.files(), (QStringList { "Quilmor", "plugins/a.so" }));
    QCOMPARE(contents(dir.filePath("dest/bin/plugins/a.so")), QByteArray(3000, 'a'));
    QCOMPARE(QFileInfo(dir.filePath("dest/bin/Quilmor")).lastModified().toSecsSinceEpoch(), 1500000000);
    QVERIFY(!QFileInfo::exists(dir.filePath("dest/bin/index.html")));

    writeFile(dir.filePath("dest/bin/mine/notes.txt"), "the user's");
    mode.value = InstallMode::Upgrade;
    QVERIFY(list.checkInstalled());
    QCOMPARE(item.installed(), InstallConfigurationItem::fullyInstalled);
    QVERIFY(QFile::remove(dir.filePath("dest/bin/Quilmor")));
    QVERIFY(list.checkInstalled());
    QCOMPARE(item.installed(), InstallConfigurationItem::partiallyInstalled);
    mode.value = InstallMode::Remove;
    QVERIFY(list.uninstall());
    QCOMPARE(item.installed(), InstallConfigurationItem::notInstalled);
    QVERIFY(!QFileInfo::exists(dir.filePath("dest/bin/plugins")));
    QCOMPARE(contents(dir.filePath("dest/bin/mine/notes.txt")), QByteArray("the user's"));
}

void tst_Plan::removal_data()
{
    QTest::addColumn<int>("answer"); // to the question about the busy file
    QTest::newRow("Retry") << int(InstallQuestion::Retry);
    QTest::newRow("Ignore") << int(InstallQuestion::Ignore);
    QTest::newRow("Cancel") << int(InstallQuestion::Cancel);
}

void tst_Plan::removal()
{
    QFETCH(int, answer);
    if (::geteuid() != 0)
        QSKIP("needs root to hand the files to an unprivileged user");
    QTemporaryDir dir;
    FixedMode mode(InstallMode::Remove);
    InstallConfigurationList list(QStringLiteral("L"), QString(), 0, true);
    ScriptedQuestion question;
    list.setModeSource(&mode);
    list.setQuestion(&question);
    const QString dest = dir.filePath(QStringLiteral("dest"));
    macros().set(QStringLiteral("DestDir"), dest);
    for (const char *name : { "first.txt", "locked/busy.txt", "last/a/b/c/deep.txt", "last/a/link" })
        writeFile(dest + "/" + name, "x");
    writeFile(dest + "/last/mine.txt", "the user's");
    QVERIFY(
        QFile::remove(dest + "/last/a/link") && QFile::link(dest + "/last/mine.txt", dest + "/last/a/link"));
    // The unprivileged user owns everything, but may not change the locked folder.
    QVERIFY(::chown(QFile::encodeName(dir.path()).constData(), 65534, 65534) == 0);
    QDirIterator it(
        dir.path(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        QVERIFY(::lchown(QFile::encodeName(it.next()).constData(), 65534, 65534) == 0);
    QVERIFY(::chmod(QFile::encodeName(dir.path()).constData(), 0755) == 0);
    QVERIFY(::chmod(QFile::encodeName(dest + "/locked").constData(), 0555) == 0);
    InstallFileRemovalConfigurationItem remover(&list, QStringLiteral("File Remover"), QString(), 0, false);
    for (const char *name :
        { "first.txt", "locked/busy.txt", "last/a/b/c/deep.txt", "last/a/link", "gone.txt" })
        remover.addFile(dest + "/" + name);
    remover.setInstalled(InstallConfigurationItem::fullyInstalled);
    // Retry fails once more, then succeeds once the folder is opened.
    question.answers = { answer, answer };
    question.beforeAnswer = [&](int asked) {
        if (asked == 2)
            ::chmod(QFile::encodeName(dest + "/locked").constData(), 0755);
    };
    bool cancelled = false;
    ::setegid(65534);
    ::seteuid(65534);
    try {
        list.uninstall();
    } catch (const InstallUserCancelException &) {
        cancelled = true;
    }
    QVERIFY(::seteuid(0) == 0 && ::setegid(0) == 0);
    ::chmod(QFile::encodeName(dest + "/locked").constData(), 0755);
    QCOMPARE(cancelled, answer == InstallQuestion::Cancel);
    QCOMPARE(question.asked.size(), answer == InstallQuestion::Retry ? 2 : 1);
    QCOMPARE(question.asked.first().heading, QStringLiteral("Cannot remove busy.txt"));
    QCOMPARE(question.asked.first().defaultButton, int(InstallQuestion::Retry));
    QVERIFY(!QFileInfo::exists(dest + "/first.txt"));
    QCOMPARE(QFileInfo::exists(dest + "/locked/busy.txt"), answer != InstallQuestion::Retry);
    // What comes after a Cancel stays; otherwise the emptied folders go, up to
    // the one holding the user's file, and a link is never taken for a file.
    QCOMPARE(QFileInfo::exists(dest + "/last/a/b"), cancelled);
    QVERIFY(QFileInfo(dest + "/last/a/link").isSymLink());
    QCOMPARE(contents(dest + "/last/mine.txt"), QByteArray("the user's"));
    QCOMPARE(remover.installed(),
        cancelled ? InstallConfigurationItem::fullyInstalled : InstallConfigurationItem::notInstalled);
}

void tst_Plan::features_data()
{
    QTest::addColumn<QStringList>("switches"); // title=on|off; A is deselected first
    QTest::addColumn<QString>("installing"); // the items that will install after, or the error's start
    QTest::newRow("off, any case") << QStringList { "A=on", "a1=off", "b1=OFF" } << "A,A2,B";
    QTest::newRow("on takes its holder and what it needs") << QStringList { "A2=on" } << "A,A1,A2,B,B1";
    QTest::newRow("the last switch wins") << QStringList { "B1=off", "b1=on" } << "B,B1";
    QTest::newRow("unknown, after a good one") << QStringList { "A2=on",
        "Z=on" } << "Unknown feature 'Z'; the features are 'A', 'A1', 'A2', 'B', 'B1'";
    QTest::newRow("a top row stays") << QStringList { "b=off" } << "The feature 'B' cannot be switched off";
}

void tst_Plan::features()
{
    QFETCH(QStringList, switches);
    QFETCH(QString, installing);
    Tree tree(InstallMode::Custom);
    tree.a.setInstall(false);
    QList<InstallCommandLine::FeatureSwitch> chosen;
    for (const QString &feature : switches)
        chosen.append({ feature.section(QLatin1Char('='), 0, 0), feature.endsWith(QLatin1String("=on")) });
    QString found;
    try {
        InstallFeatureSelection::apply(&tree.list, chosen);
        QStringList titles;
        for (RecordingItem *item : { &tree.a, &tree.a1, &tree.a2, &tree.b, &tree.b1 }) {
            if (item->willInstall())
                titles.append(item->title());
        }
        found = titles.join(QLatin1Char(','));
    } catch (const HException &e) {
        // Nothing is switched when one title is wrong.
        QVERIFY(!tree.a.installFlag());
        found = e.message().left(installing.size());
    }
    QCOMPARE(found, installing);
}

QTEST_GUILESS_MAIN(tst_Plan)
#include "tst_plan.moc"
