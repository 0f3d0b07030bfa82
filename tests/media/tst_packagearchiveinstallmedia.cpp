#include "core/hexception.h"
#include "core/installexception.h"
#include "media/installoverwritedecision.h"
#include "media/packagearchive.h"
#include "media/packagearchiveinstallmedia.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

namespace {

struct Member
{
    QString name;
    QByteArray bytes;
    quint32 mode;
    qint64 modified;
};

const QList<Member> &members()
{
    static const QList<Member> list = {
        { "bin/Quilmor", QByteArray("#!/bin/sh\necho quilmor\n"), 0755, 1600000000 },
        { "bin/sub/deep.txt", QByteArray(70000, 'd'), 0644, 1500000000 },
        { "binaries/other", QByteArray("sibling"), 0600, 1400000000 },
        { "include/empty.h", QByteArray(), 0444, 1300000000 },
    };
    return list;
}

// Writes the members as an archive placed at offset inside a larger file.
QString writeDataFile(const QString &folder, qint64 offset, quint32 compression)
{
    PackageArchive archive;
    archive.setVersion(2);
    archive.setCompression(compression);
    for (const Member &m : members()) {
        PackageArchiveFile file = archive.addData(m.bytes, m.mode, m.name);
        file.setTime(QDateTime::fromSecsSinceEpoch(m.modified));
    }
    const QString archivePath = folder + "/body.pa";
    archive.save(archivePath);

    QFile body(archivePath);
    body.open(QIODevice::ReadOnly);
    const QString dataPath = folder + "/data.bin";
    QFile data(dataPath);
    data.open(QIODevice::WriteOnly);
    data.write(QByteArray(offset, '\x5a'));
    data.write(body.readAll());
    return dataPath;
}

class RecordingDecision : public InstallOverwriteDecision
{
public:
    bool shouldOverwrite(qint64 sourceModified, quint64 sourceSize, const QString &destination) override
    {
        askedTimes.append(sourceModified);
        askedSizes.append(sourceSize);
        return !declined.contains(QFileInfo(destination).fileName());
    }

    QList<qint64> askedTimes;
    QList<quint64> askedSizes;
    QStringList declined;
};

} // namespace

class tst_PackageArchiveInstallMedia : public QObject
{
    Q_OBJECT

private slots:
    void listAndSizes_data();
    void listAndSizes();
    void copyKeepsBytesModesAndTimes_data();
    void copyKeepsBytesModesAndTimes();
    void declinedFileIsAnnouncedButNotWritten();
    void missingMemberFails();
    void unsafeNameIsRefused();
    void linkedDestinationFolderIsRefused();
    void notAnArchive();
};

void tst_PackageArchiveInstallMedia::listAndSizes_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<quint64>("size");

    // Only the prefix is tested: "bin" also takes the sibling "binaries", cut after four characters.
    QTest::newRow("bin") << "bin" << QStringList { "Quilmor", "sub/deep.txt", "ries/other" }
                         << quint64(23 + 70000 + 7);
    QTest::newRow("include") << "include" << QStringList { "empty.h" } << quint64(0);
    QTest::newRow("absent") << "samples" << QStringList() << quint64(0);
}

void tst_PackageArchiveInstallMedia::listAndSizes()
{
    QFETCH(QString, folder);
    QFETCH(QStringList, names);
    QFETCH(quint64, size);

    QTemporaryDir dir;
    PackageArchiveInstallMedia media(writeDataFile(dir.path(), 4096, 0), 4096);
    quint64 total = 12345;
    QCOMPARE(media.list(folder, total), names);
    QCOMPARE(total, size);
    QCOMPARE(media.totalSize(), quint64(23 + 70000 + 7));
}

void tst_PackageArchiveInstallMedia::copyKeepsBytesModesAndTimes_data()
{
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<quint32>("compression");
    QTest::newRow("zlib at 0") << qint64(0) << 0u;
    QTest::newRow("bzip2 at 1000") << qint64(1000) << 1u;
}

void tst_PackageArchiveInstallMedia::copyKeepsBytesModesAndTimes()
{
    QFETCH(qint64, offset);
    QFETCH(quint32, compression);

    QTemporaryDir dir;
    PackageArchiveInstallMedia media(writeDataFile(dir.path(), offset, compression), offset);
    RecordingDecision decision;
    media.setOverwriteDecision(&decision);
    QSignalSpy announced(&media, &InstallMedia::extractingFile);
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);

    quint64 total = 0;
    const QStringList names = media.list("bin", total);
    // Files in the way, so that the decision is asked about both.
    for (const QString &name : names.mid(0, 2)) {
        QVERIFY(QDir().mkpath(QFileInfo(dir.path() + "/dest/" + name).path()));
        QFile old(dir.path() + "/dest/" + name);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    }
    media.copyFiles("bin", names.mid(0, 2), dir.path() + "/dest");

    QCOMPARE(announced.count(), 2);
    QCOMPARE(announced.at(1).at(0).toString(), QString("sub/deep.txt"));
    quint64 sum = 0;
    for (const QList<QVariant> &signal : extracted)
        sum += signal.at(0).toULongLong();
    QCOMPARE(sum, quint64(23 + 70000));
    // The decision sees the member's own time and size, so an identical file can be kept.
    QCOMPARE(decision.askedTimes, (QList<qint64> { 1600000000, 1500000000 }));
    QCOMPARE(decision.askedSizes, (QList<quint64> { 23, 70000 }));

    for (int i = 0; i < 2; ++i) {
        const Member &m = members().at(i);
        const QString path = dir.path() + "/dest/" + m.name.mid(4);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), m.bytes);
        struct stat status;
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &status), 0);
        QCOMPARE(quint32(status.st_mode & 07777), m.mode);
        QCOMPARE(qint64(status.st_mtime), m.modified);
    }
}

void tst_PackageArchiveInstallMedia::declinedFileIsAnnouncedButNotWritten()
{
    QTemporaryDir dir;
    PackageArchiveInstallMedia media(writeDataFile(dir.path(), 0, 0), 0);
    RecordingDecision decision;
    decision.declined = QStringList { "Quilmor" };
    media.setOverwriteDecision(&decision);
    QSignalSpy announced(&media, &InstallMedia::extractingFile);
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);

    QVERIFY(QDir().mkpath(dir.path() + "/dest"));
    QFile old(dir.path() + "/dest/Quilmor");
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    old.close();
    media.copyFiles("bin", QStringList { "Quilmor" }, dir.path() + "/dest");
    QCOMPARE(announced.count(), 1);
    QCOMPARE(extracted.count(), 0);
    QVERIFY(old.open(QIODevice::ReadOnly) && old.readAll() == "old");
}

void tst_PackageArchiveInstallMedia::missingMemberFails()
{
    QTemporaryDir dir;
    PackageArchiveInstallMedia media(writeDataFile(dir.path(), 0, 0), 0);
    const QString target = dir.path() + "/dest/nothing";
    try {
        media.copyFiles("bin", QStringList { "nothing" }, dir.path() + "/dest");
        QFAIL("a missing member was copied");
    } catch (const InstallException &e) {
        QCOMPARE(e.message(), "Cannot copy file bin/nothing to " + target);
    }
}

void tst_PackageArchiveInstallMedia::unsafeNameIsRefused()
{
    QTemporaryDir dir;
    PackageArchive archive;
    archive.setVersion(2);
    archive.addData(QByteArray("evil"), 0644, "bin/../../escaped");
    archive.save(dir.path() + "/evil.pa");

    PackageArchiveInstallMedia media(dir.path() + "/evil.pa", 0);
    quint64 total = 0;
    const QStringList names = media.list("bin", total);
    // Refused before the overwrite decision is asked or a byte is written.
    RecordingDecision decision;
    media.setOverwriteDecision(&decision);
    QVERIFY_THROWS_EXCEPTION(InstallException, media.copyFiles("bin", names, dir.path() + "/dest/inner"));
    QVERIFY(decision.askedSizes.isEmpty());
    QVERIFY(!QFile::exists(dir.path() + "/dest/escaped"));
    QVERIFY(!QFile::exists(dir.path() + "/escaped"));
}

void tst_PackageArchiveInstallMedia::linkedDestinationFolderIsRefused()
{
    QTemporaryDir dir;
    PackageArchiveInstallMedia media(writeDataFile(dir.path(), 0, 0), 0);
    QDir().mkpath(dir.path() + "/outside");
    QDir().mkpath(dir.path() + "/dest");
    QVERIFY(QFile::link(dir.path() + "/outside", dir.path() + "/dest/bin"));
    QVERIFY_THROWS_EXCEPTION(
        InstallException, media.copyFiles("bin", QStringList { "Quilmor" }, dir.path() + "/dest/bin"));
    QVERIFY(QDir(dir.path() + "/outside").isEmpty());
}

void tst_PackageArchiveInstallMedia::notAnArchive()
{
    QTemporaryDir dir;
    QFile file(dir.path() + "/plain.txt");
    file.open(QIODevice::WriteOnly);
    file.write("not an archive at all");
    file.close();
    try {
        PackageArchiveInstallMedia media(file.fileName(), 0);
        QFAIL("a text file opened as an archive");
    } catch (const HException &e) {
        QCOMPARE(e.message(), QString("unsupported package file format"));
    }
    try {
        PackageArchiveInstallMedia media(dir.path() + "/absent.bin", 0);
        QFAIL("a missing file opened as an archive");
    } catch (const HException &e) {
        QCOMPARE(e.message(), dir.path() + "/absent.bin does not exist");
    }
}

QTEST_GUILESS_MAIN(tst_PackageArchiveInstallMedia)
#include "tst_packagearchiveinstallmedia.moc"
