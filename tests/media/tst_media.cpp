// The media library through its public behaviour: both kinds of medium, their
// questions and reports, and what a failed or cancelled copy leaves.
#include "core/inprogressfiles.h"
#include "core/installusercancelexception.h"
#include "media/filestoreinstallmedia.h"
#include "media/installoverwritedecision.h"
#include "media/packagearchiveinstallmedia.h"
#include "tests/archive/archivetestfiles.h"

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

namespace {

class Decision : public InstallOverwriteDecision
{
public:
    bool shouldOverwrite(qint64 modified, quint64 size, const QString &destination) override
    {
        asked.append(
            QStringLiteral("%1 %2 %3").arg(QFileInfo(destination).fileName()).arg(modified).arg(size));
        threads.append(QThread::currentThread());
        return !destination.endsWith(QLatin1String("declined"));
    }
    QStringList asked;
    QList<QThread *> threads;
};

} // namespace

class tst_Media : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }
    void media_data();
    void media();
    void oneByOne_data();
    void oneByOne();
    void filesInProgress_data();
    void filesInProgress();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_Media::media_data()
{
    QTest::addColumn<bool>("archive");
    QTest::addColumn<quint32>("compression");
    QTest::newRow("folder") << false << 0u;
    QTest::newRow("zlib archive inside a data file") << true << 0u;
    QTest::newRow("bzip2 archive inside a data file") << true << 1u;
}

void tst_Media::media()
{
    QFETCH(bool, archive);
    QFETCH(quint32, compression);
    const struct
    {
        QString name;
        QByteArray bytes;
        mode_t mode;
        qint64 time;
    } files[] = {
        { "bin/Quilmor", "#!/bin/sh\necho quilmor\n", 0755, 1600000000 },
        { "bin/declined", "never written", 0644, 1500000000 },
        { "bin/sub/deep.txt", QByteArray(70000, 'd'), 0644, 1500000000 },
        { "bin/sub/readonly.h", QByteArray(), 0444, 1300000000 },
        { "other/file", "not below bin", 0600, 1400000000 },
    };
    std::unique_ptr<InstallMedia> medium;
    if (archive) {
        PrefixedArchive writer(4096);
        writer.setVersion(2);
        writer.setCompression(compression);
        for (const auto &file : files)
            writer.addData(file.bytes, file.mode, file.name)
                .setTime(QDateTime::fromSecsSinceEpoch(file.time));
        writer.save(path("data.bin"));
        medium = std::make_unique<PackageArchiveInstallMedia>(path("data.bin"), 4096);
    } else {
        for (const auto &file : files)
            writeFile(path("medium/") + file.name, file.bytes, file.mode, file.time);
        medium = std::make_unique<FileStoreInstallMedia>(path("medium"));
    }
    Decision decision;
    medium->setOverwriteDecision(&decision);
    QStringList announced;
    QStringList reported;
    connect(
        medium.get(), &InstallMedia::extractingFile, this, [&](const QString &name) { announced << name; });
    connect(medium.get(), &InstallMedia::extractedFile, this,
        [&](quint64 size) { reported << QString::number(size); });
    quint64 total = 0;
    const QStringList names = medium->list(QStringLiteral("bin"), total);
    QCOMPARE(names, QStringList({ "Quilmor", "declined", "sub/deep.txt", "sub/readonly.h" }));
    QCOMPARE(total, quint64(23 + 13 + 70000));
    QCOMPARE(medium->totalSize(), total + 13); // every file, not only those below bin
    writeFile(path("dest/declined"), "the user's");
    writeFile(path("dest/sub/readonly.h"), "old", 0444);
    medium->copyFiles(QStringLiteral("bin"), names, path("dest"));

    // Each file is announced; one declined is not written nor reported as written.
    QCOMPARE(announced, names);
    QCOMPARE(reported, QStringList({ "23", "70000", "0" }));
    // An archive lists each folder once and asks only about files in the way.
    const QStringList inTheWay { "declined 1500000000 13", "readonly.h 1300000000 0" };
    QCOMPARE(decision.asked,
        archive ? inTheWay
                : QStringList({ "Quilmor 1600000000 23", "declined 1500000000 13",
                    "deep.txt 1500000000 70000", "readonly.h 1300000000 0" }));
    QCOMPARE(readAll(path("dest/declined")), QByteArray("the user's"));
    for (const auto &file : files) {
        if (!file.name.startsWith(QLatin1String("bin/sub/")) && file.name != QLatin1String("bin/Quilmor"))
            continue;
        const QString target = path("dest/") + file.name.mid(4);
        QCOMPARE(readAll(target), file.bytes);
        QCOMPARE(statusOf(target).st_mode & 07777, file.mode);
        QCOMPARE(qint64(statusOf(target).st_mtime), file.time);
    }
    // A missing file fails with the medium's message; a link in place of a
    // destination folder is never followed.
    QCOMPARE(message([&] { medium->copyFiles(QStringLiteral("bin"), { "gone" }, path("dest")); }),
        QStringLiteral("Cannot copy file %1/gone to %2/gone")
            .arg(archive ? "bin" : path("medium/bin"), path("dest")));
    QVERIFY(QDir().mkpath(path("outside")) && QFile::link(path("outside"), path("linked")));
    QVERIFY(
        !message([&] { medium->copyFiles(QStringLiteral("bin"), { "Quilmor" }, path("linked")); }).isEmpty());
    QVERIFY(QDir().mkpath(path("dest2")) && QFile::link(path("outside"), path("dest2/sub")));
    QVERIFY(!message([&] {
        medium->copyFiles(QStringLiteral("bin"), { "sub/deep.txt" }, path("dest2"));
    }).isEmpty());
    QCOMPARE(filesBelow(path("outside")), QStringList());
}

void tst_Media::oneByOne_data()
{
    // Files f00 to f19, f05 of 16 or 128 MiB: the medium must report bytes
    // within it. In the destination, a folder stands at f05's name or a
    // user's file at f12declined's.
    QTest::addColumn<int>("compression"); // -1: a folder medium
    QTest::addColumn<bool>("folderAtBig"); // f05 cannot be written
    QTest::addColumn<bool>("cancelInBig"); // Cancel from the first bytes reported within f05
    QTest::addColumn<QString>("left"); // the files in the destination afterwards
    const QString first = QStringLiteral("f00 f01 f02 f03 f04");
    const QString all
        = first + QStringLiteral(" f05 f06 f07 f08 f09 f10 f11 f12declined f13 f14 f15 f16 f17 f18 f19");
    for (const int compression : { -1, 0 }) {
        const char *medium = compression < 0 ? "folder" : "zlib archive";
        // Nothing is written or asked about after the failed file.
        QTest::addRow("%s, failed file", medium) << compression << true << false << first + " f12declined";
        QTest::addRow("%s, cancelled within a file", medium)
            << compression << false << true << first + " f12declined";
        QTest::addRow("%s, whole", medium) << compression << false << false << all;
    }
    QTest::newRow("bzip2 archive, whole") << 1 << false << false << all;
}

void tst_Media::oneByOne()
{
    QFETCH(int, compression);
    QFETCH(bool, folderAtBig);
    QFETCH(bool, cancelInBig);
    QFETCH(QString, left);
    QStringList names;
    std::unique_ptr<InstallMedia> medium;
    const bool archive = compression >= 0;
    PackageArchive writer;
    writer.setCompression(quint32(std::max(compression, 0)));
    for (int i = 0; i < 20; ++i) {
        // The decision declines to replace f12declined.
        names.append(QStringLiteral("f%1").arg(i, 2, 10, QLatin1Char('0')) + (i == 12 ? "declined" : ""));
        // A failing f05 is written while the files after it are added.
        const QByteArray bytes
            = i == 5 ? QByteArray(folderAtBig ? 16 << 20 : 128 << 20, '\0') : sample(1000 + i, quint32(i));
        if (archive)
            writer.addData(bytes, 0644, "bin/" + names.last());
        else
            writeFile(path("medium/bin/") + names.last(), bytes);
    }
    if (archive) {
        writer.save(path("data.pa"), 1);
        medium = std::make_unique<PackageArchiveInstallMedia>(path("data.pa"), 0);
    } else {
        medium = std::make_unique<FileStoreInstallMedia>(path("medium"));
    }
    Decision decision;
    medium->setOverwriteDecision(&decision);
    if (folderAtBig)
        writeFile(path("dest/f05/kept"), "a folder");
    writeFile(path("dest/f12declined"), "the user's");
    QStringList announced;
    QStringList reported;
    QList<quint64> bytesOfBig;
    // Every report on this thread; each file reported in order, after its
    // announcement, whole under its name by then.
    connect(medium.get(), &InstallMedia::extractingFile, this, [&](const QString &name) {
        QCOMPARE(QThread::currentThread(), thread());
        announced << name;
    });
    connect(medium.get(), &InstallMedia::extractedFile, this, [&](quint64 size) {
        QCOMPARE(QThread::currentThread(), thread());
        const QString name = announced.last();
        QVERIFY(reported.isEmpty() || reported.last() < name);
        if (name != QLatin1String("f05"))
            QCOMPARE(readAll(path("dest/") + name), sample(qsizetype(size), name.mid(1, 2).toUInt()));
        reported << name;
    });
    connect(medium.get(), &InstallMedia::extractedBytes, this, [&](quint64 bytes) {
        if (announced.last() != QLatin1String("f05"))
            return;
        bytesOfBig.append(bytes);
        if (cancelInBig)
            throw InstallUserCancelException();
    });
    QString failure;
    try {
        medium->copyFiles(QStringLiteral("bin"), names, path("dest"));
    } catch (const InstallUserCancelException &) {
        failure = QStringLiteral("cancelled");
    } catch (const HException &e) {
        failure = e.message();
    } catch (const InstallException &e) {
        failure = e.message();
    }

    QStringList found = filesBelow(path("dest"));
    found.removeAll(QStringLiteral("f05/kept"));
    QCOMPARE(found.join(QLatin1Char(' ')), left);
    QCOMPARE(readAll(path("dest/f12declined")), QByteArray("the user's"));
    // The announced file is the one whose bytes are written: nothing after f05 when it stops there.
    QCOMPARE(announced.last(), failure.isEmpty() ? QStringLiteral("f19") : QStringLiteral("f05"));
    QCOMPARE(decision.threads.count(thread()), decision.threads.size());
    for (const QString &asked : std::as_const(decision.asked))
        QVERIFY2(failure.isEmpty() || asked.section(QLatin1Char(' '), 0, 0) <= QLatin1String("f05"),
            qPrintable(asked));
    QVERIFY2(folderAtBig == failure.contains(QLatin1String("f05")), qPrintable(failure));
    QCOMPARE(cancelInBig, failure == QLatin1String("cancelled"));
    // Bytes within the large file rise and stay below its size.
    QVERIFY(folderAtBig || !bytesOfBig.isEmpty());
    QVERIFY(std::is_sorted(bytesOfBig.cbegin(), bytesOfBig.cend()));
    QVERIFY(bytesOfBig.isEmpty() || bytesOfBig.last() <= quint64(128 << 20));
}

void tst_Media::filesInProgress_data()
{
    // An earlier run was cut short: "cutdeclined" is left half-written and
    // listed, "users" is somebody's own. Only a list its owner alone may
    // write, and the owner is the one running, is obeyed. A folder medium
    // asks about every file.
    QTest::addColumn<bool>("archive");
    QTest::addColumn<QString>("list");
    QTest::addColumn<QStringList>("asked");
    for (const bool archive : { false, true }) {
        const QStringList news = archive ? QStringList() : QStringList({ "new", "new" });
        for (const char *list : { "its own list", "a list others may write", "another user's list" })
            QTest::addRow("%s, %s", archive ? "archive" : "folder", list)
                << archive << list
                << (list[0] == 'i' ? QStringList() : QStringList("cutdeclined")) + news
                    + QStringList("users");
    }
}

void tst_Media::filesInProgress()
{
    QFETCH(bool, archive);
    QFETCH(QString, list);
    QFETCH(QStringList, asked);
    const bool own = list.startsWith(QLatin1String("its own"));
    if (list.startsWith(QLatin1String("another")) && ::geteuid() != 0)
        QSKIP("another user's list needs root to make");
    const QStringList names { "cutdeclined", "new", "sub/new", "users" };
    std::unique_ptr<InstallMedia> medium;
    PackageArchive writer;
    for (const QString &name : names) {
        if (archive)
            writer.addData("the medium's " + name.toUtf8(), 0644, "bin/" + name);
        else
            writeFile(path("medium/bin/") + name, "the medium's " + name.toUtf8());
    }
    if (archive) {
        writer.save(path("data.pa"), 1);
        medium = std::make_unique<PackageArchiveInstallMedia>(path("data.pa"), 0);
    } else {
        medium = std::make_unique<FileStoreInstallMedia>(path("medium"));
    }
    // Newer than the medium's: without the list it would be kept.
    writeFile(path("dest/cutdeclined"), "the me", 0644, 4000000000);
    writeFile(path("dest/users"), "the user's", 0644, 4000000000);
    const QString listPath = path("dest/files-in-progress");
    {
        const auto earlier = InProgressFiles::open(listPath);
        QVERIFY(earlier);
        const struct stat folder = statusOf(path("dest"));
        QVERIFY(earlier->written(earlier->add(folder.st_dev, folder.st_ino, "cutdeclined")));
    }
    const QByteArray listName = QFile::encodeName(listPath);
    if (list.endsWith(QLatin1String("may write")))
        QVERIFY(::chmod(listName.constData(), 0622) == 0);
    else if (!own)
        QVERIFY(::chown(listName.constData(), 65534, 65534) == 0);

    Decision decision;
    medium->setOverwriteDecision(&decision);
    medium->setInProgressPath(listPath);
    medium->copyFiles(QStringLiteral("bin"), names, path("dest"));
    for (QString &question : decision.asked)
        question = question.section(QLatin1Char(' '), 0, 0);
    QCOMPARE(decision.asked, asked);
    QCOMPARE(readAll(path("dest/cutdeclined")),
        QByteArray(asked.contains("cutdeclined") ? "the me" : "the medium's cutdeclined"));
    QCOMPARE(readAll(path("dest/sub/new")), QByteArray("the medium's sub/new"));
    // A file the archive made at its name is listed until the run finishes.
    const QByteArray entries = readAll(listPath);
    const struct stat sub = statusOf(path("dest/sub"));
    const QByteArray subEntry
        = QByteArray::number(quint64(sub.st_dev)) + ' ' + QByteArray::number(sub.st_ino) + " new\n";
    QCOMPARE(entries.contains(subEntry), archive && own);
    medium->finishInProgress();
    QCOMPARE(QFileInfo::exists(listPath), !own);
}

QTEST_GUILESS_MAIN(tst_Media)
#include "tst_media.moc"
