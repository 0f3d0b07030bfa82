// Extraction with worker threads: what the user-interface thread sees (the
// order of signals and questions), Cancel in the middle, failures, and how
// much of the body is decompressed when members are asked for out of order.
#include "core/hexception.h"
#include "core/installexception.h"
#include "core/installusercancelexception.h"
#include "media/installoverwritedecision.h"
#include "media/packagearchive.h"
#include "media/packagearchivecompressedbzinputfile.h"
#include "media/packagearchivecompressedgzinputfile.h"
#include "media/packagearchiveextraction.h"
#include "media/packagearchiveinstallmedia.h"

#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

QByteArray content(int index, qsizetype size)
{
    QRandomGenerator random(quint32(index) + 1);
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = i % 3 ? char('a' + (index + i) % 26) : char(random.bounded(256));
    return bytes;
}

qsizetype memberSize(int index, bool large)
{
    if (!large)
        return 20000 + index * 997;
    return index % 10 == 3 ? (3 << 20) + index : 100 + index * 37;
}

// Members "bin/fNNN": mostly small, every tenth a few megabytes unless large
// is false, so that several are under way at once.
QString writeArchive(const QString &folder, quint32 compression, int count, bool large = true)
{
    PackageArchive archive;
    archive.setVersion(2);
    archive.setCompression(compression);
    for (int i = 0; i < count; ++i) {
        const qsizetype size = memberSize(i, large);
        archive.addData(content(i, size), 0640, QStringLiteral("bin/f%1").arg(i, 3, 10, QLatin1Char('0')));
    }
    const QString path = folder + QStringLiteral("/archive.pa");
    archive.save(path, compression == 1 ? 1 : 6);
    return path;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file below folder, relative to it.
QStringList filesBelow(const QString &folder)
{
    QStringList found;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        found.append(QDir(folder).relativeFilePath(it.next()));
    found.sort();
    return found;
}

// Records what each file's target held when the decision was asked.
class Decision : public InstallOverwriteDecision
{
public:
    bool shouldOverwrite(qint64, quint64, const QString &destination) override
    {
        threads.append(QThread::currentThread());
        heldBefore.append(readAll(destination));
        return true;
    }
    QList<QThread *> threads;
    QByteArrayList heldBefore;
};

// Counts the bytes the body stream decompresses.
template<class Base> class CountingStream : public Base
{
public:
    CountingStream(FILE *file, quint64 *produced)
        : Base(file)
        , m_produced(produced)
    { }

protected:
    void readChunk(char *buffer, qint32 size) override
    {
        *m_produced += quint64(size);
        Base::readChunk(buffer, size);
    }

private:
    quint64 *m_produced;
};

class CountingArchive : public PackageArchive
{
public:
    quint64 produced = 0;

protected:
    std::unique_ptr<PackageArchiveIOFileInterface> createInputFile(quint32 kind, FILE *file) override
    {
        if (kind == 1)
            return std::make_unique<CountingStream<PackageArchiveCompressedBzInputFile>>(file, &produced);
        return std::make_unique<CountingStream<PackageArchiveCompressedGzInputFile>>(file, &produced);
    }
};

} // namespace

class tst_PackageArchiveExtraction : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void signalOrder_data();
    void signalOrder();
    void cancelLeavesNoPartialFile_data();
    void cancelLeavesNoPartialFile();
    void failureKeepsEarlierFiles();
    void writeFailureReported();
    void outOfOrderReadsBodyOnce_data();
    void outOfOrderReadsBodyOnce();
    void itemsInAnyOrderReadBodyOnce_data();
    void itemsInAnyOrderReadBodyOnce();

private:
    // A small tmpfs in a mount namespace of this process's own, when root.
    QTemporaryDir m_smallRoot;
    QString m_smallFolder;
};

void tst_PackageArchiveExtraction::initTestCase()
{
    // Before any thread starts: a process with threads cannot leave its namespace.
    if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0
        || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return;
    if (::mount("tmpfs", QFile::encodeName(m_smallRoot.path()).constData(), "tmpfs", 0, "size=72m") == 0)
        m_smallFolder = m_smallRoot.path();
}

void tst_PackageArchiveExtraction::cleanupTestCase()
{
    if (!m_smallFolder.isEmpty())
        ::umount2(QFile::encodeName(m_smallFolder).constData(), MNT_DETACH);
}

void tst_PackageArchiveExtraction::signalOrder_data()
{
    QTest::addColumn<quint32>("compression");
    QTest::newRow("zlib") << 0u;
    QTest::newRow("bzip2") << 1u;
}

void tst_PackageArchiveExtraction::signalOrder()
{
    QFETCH(quint32, compression);
    QTemporaryDir dir;
    const int count = 60;
    PackageArchiveInstallMedia media(writeArchive(dir.path(), compression, count), 0);
    Decision decision;
    media.setOverwriteDecision(&decision);
    const QString destination = dir.path() + QStringLiteral("/dest");
    // An old file in one target: the decision must see it before it is replaced.
    QVERIFY(QDir().mkpath(destination));
    QFile old(destination + QStringLiteral("/f013"));
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old") == 3);
    old.close();

    QStringList events;
    QList<QThread *> threads;
    connect(&media, &InstallMedia::extractingFile, this, [&](const QString &name) {
        threads.append(QThread::currentThread());
        events.append(QStringLiteral("announce ") + name);
    });
    connect(&media, &InstallMedia::extractedFile, this, [&](quint64 size) {
        threads.append(QThread::currentThread());
        // The file is complete under its name when it is reported.
        const int index = events.filter(QStringLiteral("done ")).size();
        const QString name = QStringLiteral("f%1").arg(index, 3, 10, QLatin1Char('0'));
        QCOMPARE(readAll(destination + QLatin1Char('/') + name), content(index, qsizetype(size)));
        events.append(QStringLiteral("done ") + name);
    });

    quint64 total = 0;
    const QStringList names = media.list(QStringLiteral("bin"), total);
    QCOMPARE(names.size(), count);
    media.copyFiles(QStringLiteral("bin"), names, destination);

    // Each file announced before it is reported, reports in list order, all
    // on this thread; the decision was asked about the old file only, and
    // saw it.
    QCOMPARE(events.size(), 2 * count);
    QStringList announced = events.filter(QStringLiteral("announce "));
    QStringList done = events.filter(QStringLiteral("done "));
    for (int i = 0; i < count; ++i) {
        const QString name = names.at(i);
        QCOMPARE(announced.at(i), QStringLiteral("announce ") + name);
        QCOMPARE(done.at(i), QStringLiteral("done ") + name);
        QVERIFY(events.indexOf(QStringLiteral("announce ") + name)
            < events.indexOf(QStringLiteral("done ") + name));
    }
    QVERIFY(std::all_of(threads.cbegin(), threads.cend(), [this](QThread *t) { return t == thread(); }));
    QVERIFY(std::all_of(
        decision.threads.cbegin(), decision.threads.cend(), [this](QThread *t) { return t == thread(); }));
    QCOMPARE(decision.heldBefore, QByteArrayList { QByteArray("old") });
    QVERIFY(filesBelow(destination) == names);
}

void tst_PackageArchiveExtraction::cancelLeavesNoPartialFile_data()
{
    QTest::addColumn<quint32>("compression");
    QTest::addColumn<int>("cancelAt");
    QTest::newRow("zlib, early") << 0u << 2;
    QTest::newRow("zlib, after a large file") << 0u << 14;
    QTest::newRow("bzip2") << 1u << 4;
}

void tst_PackageArchiveExtraction::cancelLeavesNoPartialFile()
{
    QFETCH(quint32, compression);
    QFETCH(int, cancelAt);
    QTemporaryDir dir;
    const int count = 40;
    PackageArchiveInstallMedia media(writeArchive(dir.path(), compression, count), 0);
    const QString destination = dir.path() + QStringLiteral("/dest");
    int reported = 0;
    connect(&media, &InstallMedia::extractingFile, this, [&](const QString &name) {
        // Cancel as the progress page does: from a report, on this thread.
        if (name == QStringLiteral("f%1").arg(cancelAt, 3, 10, QLatin1Char('0')))
            throw InstallUserCancelException();
    });
    connect(&media, &InstallMedia::extractedFile, this, [&](quint64) { ++reported; });

    quint64 total = 0;
    bool cancelled = false;
    try {
        media.copyFiles(QStringLiteral("bin"), media.list(QStringLiteral("bin"), total), destination);
    } catch (const InstallUserCancelException &) {
        cancelled = true;
    }
    QVERIFY(cancelled);

    // Whatever is there is whole, under its own name, and nothing else is:
    // no temporary file is left behind, nothing after the Cancel was written.
    const QStringList found = filesBelow(destination);
    QVERIFY(found.size() >= reported);
    for (const QString &name : found) {
        QVERIFY2(name.startsWith(QLatin1Char('f')), qPrintable(name));
        const int index = name.mid(1).toInt();
        QVERIFY(index < cancelAt);
        const qsizetype size = memberSize(index, true);
        QVERIFY2(readAll(destination + QLatin1Char('/') + name) == content(index, size), qPrintable(name));
    }
}

void tst_PackageArchiveExtraction::failureKeepsEarlierFiles()
{
    QTemporaryDir dir;
    PackageArchiveInstallMedia media(writeArchive(dir.path(), 0, 20), 0);
    const QString destination = dir.path() + QStringLiteral("/dest");
    QSignalSpy extracted(&media, &InstallMedia::extractedFile);
    QStringList names;
    for (int i = 0; i < 12; ++i)
        names.append(QStringLiteral("f%1").arg(i, 3, 10, QLatin1Char('0')));
    names.insert(8, QStringLiteral("missing"));
    try {
        media.copyFiles(QStringLiteral("bin"), names, destination);
        QFAIL("a missing member was copied");
    } catch (const InstallException &error) {
        QCOMPARE(error.message(),
            QStringLiteral("Cannot copy file bin/missing to ") + destination + QStringLiteral("/missing"));
    }
    // The eight before it are written and reported; none after it.
    QCOMPARE(extracted.count(), 8);
    QCOMPARE(filesBelow(destination), names.mid(0, 8));
}

void tst_PackageArchiveExtraction::writeFailureReported()
{
    // A folder where a file should go fails that file with the archive's
    // message; the files before it stay, its temporary file goes.
    QTemporaryDir dir;
    PackageArchive archive(writeArchive(dir.path(), 0, 12), nullptr);
    const QString out = dir.path() + QStringLiteral("/out");
    QVERIFY(QDir().mkpath(out + QStringLiteral("/bin/f005/inner")));
    try {
        archive.extractAll(out, true);
        QFAIL("a file replaced a folder");
    } catch (const HException &error) {
        QCOMPARE(error.message(),
            QStringLiteral("cannot create output file ") + out + QStringLiteral("/bin/f005"));
    }
    const QStringList found = filesBelow(out + QStringLiteral("/bin"));
    for (int i = 0; i < 5; ++i)
        QVERIFY(found.contains(QStringLiteral("f%1").arg(i, 3, 10, QLatin1Char('0'))));
    QVERIFY(
        std::none_of(found.cbegin(), found.cend(), [](const QString &name) { return name.contains('.'); }));
}

void tst_PackageArchiveExtraction::outOfOrderReadsBodyOnce_data()
{
    QTest::addColumn<quint32>("compression");
    QTest::newRow("zlib") << 0u;
    QTest::newRow("bzip2") << 1u;
}

void tst_PackageArchiveExtraction::outOfOrderReadsBodyOnce()
{
    // A batch listed in reverse, within one window, is still read going
    // forwards: the body is decompressed about once, not once per file.
    QFETCH(quint32, compression);
    QTemporaryDir dir;
    const int count = 200;
    CountingArchive archive;
    archive.open(writeArchive(dir.path(), compression, count, false));
    quint64 body = 0;
    for (int i = 0; i < count; ++i)
        body += archive.member(i).size();
    archive.produced = 0;

    const QString out = dir.path() + QStringLiteral("/out");
    {
        PackageArchiveExtraction extraction(archive);
        for (int i = count - 1; i >= 0; --i)
            extraction.addBelow(archive.member(i), out, archive.member(i).name(), false);
        extraction.finish();
    }
    QVERIFY2(archive.produced <= body + body / 20,
        qPrintable(QStringLiteral("%1 bytes decompressed for a body of %2").arg(archive.produced).arg(body)));
    for (int i = 0; i < count; i += 7)
        QVERIFY(readAll(out + QLatin1Char('/') + archive.member(i).name())
            == content(i, qsizetype(archive.member(i).size())));
}

void tst_PackageArchiveExtraction::itemsInAnyOrderReadBodyOnce_data()
{
    QTest::addColumn<quint32>("compression");
    QTest::addColumn<QList<int>>("items");
    // Where the passed members are kept: 0 the usual temporary folder, -1
    // nowhere (reading still works, by seeking back), else a temporary folder
    // of that many MiB.
    QTest::addColumn<int>("room");
    QTest::newRow("zlib, in body order") << 0u << QList<int> { 0, 1, 2, 3 } << 0;
    QTest::newRow("zlib, reversed") << 0u << QList<int> { 3, 2, 1, 0 } << 0;
    QTest::newRow("bzip2, reversed") << 1u << QList<int> { 3, 2, 1, 0 } << 0;
    QTest::newRow("bzip2, shuffled") << 1u << QList<int> { 2, 0, 3, 1 } << 0;
    QTest::newRow("bzip2, reversed, nowhere to keep") << 1u << QList<int> { 3, 2, 1, 0 } << -1;
    QTest::newRow("zlib, reversed, nowhere to keep") << 0u << QList<int> { 3, 2, 1, 0 } << -1;
    // Less room than the members passed take: some are kept, the rest read again.
    QTest::newRow("zlib, reversed, small temporary folder") << 0u << QList<int> { 3, 2, 1, 0 } << 72;
}

void tst_PackageArchiveExtraction::itemsInAnyOrderReadBodyOnce()
{
    // Items each take a quarter of the members, one extraction each, in
    // another order than the body's: the members passed on the way to a
    // later quarter are kept, not decompressed again.
    QFETCH(quint32, compression);
    QFETCH(QList<int>, items);
    QFETCH(int, room);
    if (room > 0 && m_smallFolder.isEmpty())
        QSKIP("a small temporary folder needs root");
    QTemporaryDir dir;
    const int count = 120;
    const QByteArray temporaryFolder = qgetenv("TMPDIR");
    const QString path = writeArchive(dir.path(), compression, count, false);
    // A file is no folder to make a temporary file in.
    qputenv("TMPDIR", QFile::encodeName(room < 0 ? path : room > 0 ? m_smallFolder : dir.path()));
    CountingArchive archive;
    archive.open(path);
    quint64 body = 0;
    for (int i = 0; i < count; ++i)
        body += archive.member(i).size();
    archive.produced = 0;

    const QString out = dir.path() + QStringLiteral("/out");
    for (const int item : items) {
        PackageArchiveExtraction extraction(archive);
        for (int i = item * count / 4; i < (item + 1) * count / 4; ++i)
            extraction.addBelow(archive.member(i), out, archive.member(i).name(), false);
        extraction.finish();
        if (room > 0 && item == items.first()) {
            // The kept members leave half of what was free beyond 64 MiB.
            struct statvfs status;
            QCOMPARE(::statvfs(QFile::encodeName(m_smallFolder).constData(), &status), 0);
            const qint64 used = qint64(status.f_blocks - status.f_bfree) * qint64(status.f_frsize);
            QVERIFY2(used > 0 && used <= (qint64(room - 64) << 20) / 2,
                qPrintable(QStringLiteral("%1 bytes kept in %2 MiB").arg(used).arg(room)));
        }
    }
    qputenv("TMPDIR", temporaryFolder);
    const QString measured
        = QStringLiteral("%1 bytes decompressed for a body of %2").arg(archive.produced).arg(body);
    if (room == 0)
        QVERIFY2(archive.produced <= body + body / 20, qPrintable(measured));
    else
        QVERIFY2(archive.produced > body + (room < 0 ? body / 2 : 0), qPrintable(measured));
    QCOMPARE(filesBelow(out).size(), count);
    for (int i = 0; i < count; ++i)
        QVERIFY(readAll(out + QLatin1Char('/') + archive.member(i).name())
            == content(i, qsizetype(archive.member(i).size())));
    // Nothing of the kept members stays behind.
    QCOMPARE(
        QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList { QStringLiteral("archive.pa") });
}

QTEST_GUILESS_MAIN(tst_PackageArchiveExtraction)
#include "tst_packagearchiveextraction.moc"
