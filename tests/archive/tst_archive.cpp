// The archive library through its public behaviour: archives of every form
// written and read back, archives written by the independent Python writer
// (tests/data/archives), names and links that would lead out of the target,
// extraction on worker threads, and the compressed streams against libbz2's
// and zlib's own readers and the bzip2 command.
#include "archive/packagearchive.h"
#include "archive/packagearchivebzblockdecoder.h"
#include "archive/packagearchivecompressedbzinputfile.h"
#include "archive/packagearchivecompressedbzoutputfile.h"
#include "archive/packagearchivecompressedgzinputfile.h"
#include "archive/packagearchivecompressedgzoutputfile.h"
#include "archive/packagearchiveextraction.h"
#include "tests/archive/archivetestfiles.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <bzlib.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zlib.h>

namespace {

// Counts the bytes the body stream decompresses and how often it starts over.
template<class Base> class Counting : public Base
{
public:
    Counting(FILE *file, quint64 *produced, int *starts)
        : Base(file)
        , m_produced(produced)
        , m_starts(starts)
    { }

protected:
    void init() override
    {
        ++*m_starts;
        Base::init();
    }
    void readChunk(char *buffer, qint32 size) override
    {
        *m_produced += quint64(size);
        Base::readChunk(buffer, size);
    }

private:
    quint64 *m_produced;
    int *m_starts;
};

class CountingArchive : public PackageArchive
{
public:
    quint64 produced = 0;
    int starts = 0;

protected:
    std::unique_ptr<PackageArchiveCompressedInputFile> createInputFile(quint32 kind, FILE *file) override
    {
        if (kind == 1)
            return std::make_unique<Counting<PackageArchiveCompressedBzInputFile>>(file, &produced, &starts);
        return std::make_unique<Counting<PackageArchiveCompressedGzInputFile>>(file, &produced, &starts);
    }
};

// Reads until the stream fails or size bytes came; how many came, and why it stopped.
QPair<qint64, QString> readStream(PackageArchiveIOFileInterface &stream, qint64 size, QByteArray *out)
{
    char buffer[16384];
    qint64 done = 0;
    try {
        while (done < size) {
            const qint32 want = qint32(qMin<qint64>(sizeof buffer, size - done));
            if (stream.read(buffer, want) != want)
                return { done, QStringLiteral("short read") };
            out->append(buffer, want);
            done += want;
        }
    } catch (const HException &error) {
        return { done, error.message() };
    }
    return { done, QString() };
}

QByteArray run(const QString &program, const QStringList &arguments, const QByteArray &input = QByteArray())
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(120000) || process.exitCode() != 0)
        return QByteArray("<failed>");
    return process.readAllStandardOutput();
}

} // namespace

class tst_Archive : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }
    void roundTrip_data();
    void roundTrip();
    void lookup_data();
    void lookup();
    void independentArchives_data();
    void independentArchives();
    void refusedTargets_data();
    void refusedTargets();
    void bodyReadOnce_data();
    void bodyReadOnce();
    void bzip2AgainstReferences_data();
    void bzip2AgainstReferences();
    void resume_data();
    void resume();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    std::unique_ptr<QTemporaryDir> m_dir;
    // A small tmpfs in a mount namespace of this process's own, when root.
    QTemporaryDir m_smallRoot;
    QString m_smallFolder;
};

void tst_Archive::initTestCase()
{
    // Before any thread starts: a process with threads cannot leave its namespace.
    if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0
        || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return;
    if (::mount("tmpfs", QFile::encodeName(m_smallRoot.path()).constData(), "tmpfs", 0, "size=72m") == 0)
        m_smallFolder = m_smallRoot.path();
}

void tst_Archive::cleanupTestCase()
{
    if (!m_smallFolder.isEmpty())
        ::umount2(QFile::encodeName(m_smallFolder).constData(), MNT_DETACH);
}

void tst_Archive::roundTrip_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("offset");
    QTest::newRow("v2 zlib") << 2 << 0 << 0;
    QTest::newRow("v2 bzip2 behind a prefix") << 2 << 1 << 4099;
    QTest::newRow("v1 behind a prefix") << 1 << 0 << 77;
}

void tst_Archive::roundTrip()
{
    QFETCH(int, version);
    QFETCH(int, kind);
    QFETCH(int, offset);
    PrefixedArchive writer(offset);
    writer.setVersion(quint32(version));
    writer.setCompression(quint32(kind));
    writeFile(path("source/tool"), sample(200000, 1), 06755, 1234567890);
    writeFile(path("source/header"), QByteArray(3000, 'h'), 0444, 1000000000);
    writer.addFile(path("source/tool"), QStringLiteral("bin/tool"));
    writer.addFile(path("source/header"), QStringLiteral("include/deep/er/caf\u00e9 \u00fc.h"));
    writer.addData(QByteArray(), 0600, QStringLiteral("empty"));
    writer.save(path("archive.bin"));

    PackageArchive reader;
    reader.open(path("archive.bin"), offset);
    QCOMPARE(reader.count(), 3);
    reader.extractAll(path("out"), false);
    // Version 1 keeps only whether a member is read-only; set-id bits never travel.
    const QList<quint32> modes
        = version == 2 ? QList<quint32> { 0100755, 0100444, 0600 } : QList<quint32> { 0666, 0444, 0666 };
    for (int i = 0; i < 3; ++i) {
        const PackageArchiveFile read = reader.member(i);
        QCOMPARE(read.name(), writer.member(i).name());
        QCOMPARE(read.mode(), modes[i]);
        QCOMPARE(read.time().toSecsSinceEpoch(), writer.member(i).time().toSecsSinceEpoch());
        const QString target = path("out/") + read.name();
        QCOMPARE(readAll(target), writer.data(writer.member(i)));
        QCOMPARE(statusOf(target).st_mode & 07777, modes[i] & 0777);
        QCOMPARE(qint64(statusOf(target).st_mtime), read.time().toSecsSinceEpoch());
    }
    // Going back restarts the body and still gives the right bytes.
    QCOMPARE(reader.data(reader.member(0)), sample(200000, 1));
    // The longest name the version holds goes through; a byte more is refused.
    const QString longest(version == 2 ? 65535 : 1023, QLatin1Char('n'));
    writer.addData("long", 0644, longest);
    writer.save(path("long.bin"));
    reader.open(path("long.bin"), offset);
    QCOMPARE(reader.member(3).name(), longest);
    writer.addData("longer", 0644, longest + "m");
    QCOMPARE(message([&] { writer.save(path("longer.bin")); }), QStringLiteral("filename too long"));
}

void tst_Archive::lookup_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QStringList>("found");
    QTest::newRow("a star crosses folders") << "*.so" << QStringList { "lib/a.so", "lib/b.so", "lib/c.so" };
    QTest::newRow("one character") << "lib/?.so" << QStringList { "lib/a.so", "lib/b.so", "lib/c.so" };
    QTest::newRow("a range") << "lib/[a-b].so" << QStringList { "lib/a.so", "lib/b.so" };
    QTest::newRow("a negated set") << "lib/[!ac].so" << QStringList { "lib/b.so" };
    QTest::newRow("a bracket first in a set") << "[]x]*" << QStringList { "]x" };
    QTest::newRow("an unclosed bracket is itself") << "odd[" << QStringList { "odd[" };
    QTest::newRow("the whole name only") << "lib" << QStringList();
    QTest::newRow("beyond Latin-1, nothing") << QStringLiteral("lib/\u0101.so") << QStringList();
}

void tst_Archive::lookup()
{
    QFETCH(QString, pattern);
    QFETCH(QStringList, found);
    PackageArchive writer;
    for (const char *name : { "lib/a.so", "doc/calvra_package.xml", "lib/b.so", "]x", "lib/c.so", "odd[" })
        writer.addData(name, 0644, QString::fromLatin1(name));
    // Added again, a name keeps its place and takes the new bytes.
    writer.addData("again", 0600, QStringLiteral("]x"));
    writer.save(path("a.pa"));
    QCOMPARE(PackageArchive::formatOf(path("a.pa")).count, 6u);
    PackageArchive archive(path("a.pa"));
    QStringList names;
    for (const PackageArchiveFile &member : archive.entries(pattern))
        names.append(member.name());
    QCOMPARE(names, found);
    QCOMPARE(archive.packageDescription().name(), QStringLiteral("doc/calvra_package.xml"));
    QCOMPARE(archive.data(QStringLiteral("]x")), QByteArray("again"));
    QCOMPARE(archive.indexOf(QStringLiteral("]x")), 3);
    QCOMPARE(message([&] { archive.data(QStringLiteral("lib")); }),
        QStringLiteral("cannot read file lib from archive"));
    // One member to a name of its own, one below a folder; neither overwrites unasked.
    archive.extractToFile(archive.find(QStringLiteral("lib/b.so")), path("out/renamed"), false);
    archive.extract(archive.find(QStringLiteral("odd[")), path("out"), false);
    QCOMPARE(readAll(path("out/renamed")) + readAll(path("out/odd[")), QByteArray("lib/b.soodd["));
    QCOMPARE(message([&] { archive.extract(archive.find(QStringLiteral("odd[")), path("out"), false); }),
        QStringLiteral("cannot overwrite file ") + path("out/odd["));
}

void tst_Archive::independentArchives_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("expected"); // the failure, if any
    QTest::newRow("v2 zlib") << "v2-zlib.pa" << 0 << 2 << "";
    QTest::newRow("v2 bzip2") << "v2-bzip2.pa" << 0 << 2 << "";
    QTest::newRow("v1") << "v1.pa" << 0 << 1 << "";
    QTest::newRow("v1 behind a current bzip2 header") << "v1-in-current-bzip2.pa" << 0 << 1 << "";
    QTest::newRow("embedded at 1000") << "embedded-at-1000.bin" << 1000 << 2 << "";
    QTest::newRow("embedded, read at 0")
        << "embedded-at-1000.bin" << 0 << 2
        << "unsupported package file format in embedded-at-1000.bin at offset 0x0";
    QTest::newRow("version 3") << "version3.pa" << 0 << 2
                               << "unsupported package file format in version3.pa at offset 0x0";
    QTest::newRow("kind 2") << "kind2.pa" << 0 << 2 << "unsupported compression algorithm";
    QTest::newRow("uncompressed v1, one member") << "plain-v1-one.pa" << 0 << 1 << "bad table of contents";
    QTest::newRow("zlib body ends in the table")
        << "truncated-table-zlib.pa" << 0 << 2 << "error reading stream";
    QTest::newRow("corrupted zlib body")
        << "corrupt-zlib.pa" << 0 << 2 << "error reading from compressed stream";
    QTest::newRow("truncated bzip2 body")
        << "truncated-bzip2.pa" << 0 << 2 << "error reading from compressed stream";
    QTest::newRow("member longer than the body")
        << "short-member-zlib.pa" << 0 << 2 << "error reading stream";
}

void tst_Archive::independentArchives()
{
    QFETCH(QString, file);
    QFETCH(int, offset);
    QFETCH(int, version);
    QFETCH(QString, expected);
    QByteArray ramp;
    for (int i = 0; i < 40 * 256; ++i)
        ramp.append(char(i));
    // What archiveformat.py's sample_members() writes.
    const struct
    {
        QString name;
        QByteArray bytes;
        quint32 mode;
        qint64 time;
    } samples[] = {
        { QStringLiteral("readme.txt"), "hello archive\n", 0100644, 1600000000 },
        { QStringLiteral("bin/tool"), ramp, 0100755, 1500000000 },
        { QStringLiteral("empty"), QByteArray(), 0100444, 0 },
        { QStringLiteral("lib/caf\u00e9.so"),
            "\x7f"
            "ELF"
                + QByteArray(5000, 'x'),
            0100555, 2000000000 },
    };
    const QString folder = QStringLiteral(SETUP_SOURCE_DIR "/tests/data/archives/");
    PackageArchive archive;
    const QString failure = message([&] {
        archive.open(folder + file, offset, PackageArchive::SortedIndex);
        for (const auto &member : archive.entries(QStringLiteral("*")))
            archive.data(member);
    });
    // The rows name the file without its folder.
    QCOMPARE(QString(failure).remove(folder), expected);
    if (!expected.isEmpty())
        return;
    QCOMPARE(archive.count(), 4);
    // Backwards, by name.
    for (int i = 3; i >= 0; --i) {
        const PackageArchiveFile member = archive.find(samples[i].name);
        QCOMPARE(archive.indexOf(samples[i].name), i);
        QCOMPARE(member.mode(), version == 2 ? samples[i].mode : ((samples[i].mode & 0222) ? 0666u : 0444u));
        QCOMPARE(member.time().toSecsSinceEpoch(), samples[i].time);
        QCOMPARE(archive.data(member), samples[i].bytes);
    }
}

void tst_Archive::refusedTargets_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected"); // empty: written below out
    const QString link = QStringLiteral("refusing file name that leads through a symbolic link ");
    QTest::newRow("absolute") << "/etc/passwd"
                              << "refusing absolute file name /etc/passwd";
    QTest::newRow("parent deeper") << "a/b/../../../escape"
                                   << "refusing file name with a .. component a/b/../../../escape";
    QTest::newRow("through a link out") << "escape/victim" << link + "escape/victim";
    QTest::newRow("through a link climbing out") << "real/up/x" << link + "real/up/x";
    QTest::newRow("through a dangling link") << "dangling/x" << link + "dangling/x";
    // Even a link that stays inside is not followed: it could be swapped meanwhile.
    QTest::newRow("through a link inside") << "inside/ok" << link + "inside/ok";
    QTest::newRow("a link in the file's place is replaced") << "victim" << QString();
    QTest::newRow("dots inside names are fine") << "a/..b/c.." << QString();
}

void tst_Archive::refusedTargets()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    const QString out = path("out");
    const QString outside = path("outside");
    QVERIFY(QDir().mkpath(out + "/real") && QDir().mkpath(outside));
    writeFile(outside + "/victim", "precious");
    QVERIFY(QFile::link(outside, out + "/escape"));
    QVERIFY(QFile::link("../..", out + "/real/up"));
    QVERIFY(QFile::link("real", out + "/inside"));
    QVERIFY(QFile::link(path("nowhere"), out + "/dangling"));
    QVERIFY(QFile::link(outside + "/victim", out + "/victim"));
    // Through an archive file, as an attacker would deliver it.
    PackageArchive writer;
    writer.addData("evil", 0644, name);
    writer.save(path("evil.pa"));
    PackageArchive archive(path("evil.pa"));
    QCOMPARE(message([&] { archive.extractAll(out, true); }), expected);
    QCOMPARE(filesBelow(outside), QStringList("victim"));
    QCOMPARE(readAll(outside + "/victim"), QByteArray("precious"));
    QVERIFY(!QFileInfo::exists(path("nowhere")) && !QFileInfo::exists(path("escape")));
    QCOMPARE(filesBelow(out + "/real"), QStringList());
    if (expected.isEmpty()) {
        const QString written = QFileInfo(out + "/" + name).canonicalFilePath();
        QVERIFY2(written.startsWith(out + "/"), qPrintable(written));
        QCOMPARE(readAll(written), QByteArray("evil"));
    }
}

void tst_Archive::bodyReadOnce_data()
{
    QTest::addColumn<quint32>("compression");
    QTest::addColumn<QList<int>>("items");
    // Where the passed members are kept: 0 the usual temporary folder, -1
    // nowhere (reading still works, by going back), else a temporary folder
    // of that many MiB.
    QTest::addColumn<int>("room");
    QTest::newRow("zlib, reversed") << 0u << QList<int> { 3, 2, 1, 0 } << 0;
    QTest::newRow("bzip2, shuffled") << 1u << QList<int> { 2, 0, 3, 1 } << 0;
    QTest::newRow("bzip2, reversed, nowhere to keep") << 1u << QList<int> { 3, 2, 1, 0 } << -1;
    // Less room than the passed members take: some are kept, the rest read again.
    QTest::newRow("zlib, reversed, small temporary folder") << 0u << QList<int> { 3, 2, 1, 0 } << 72;
}

void tst_Archive::bodyReadOnce()
{
    // Items each take a quarter of the members, one extraction each, in
    // another order than the body's: what is passed on the way is kept.
    QFETCH(quint32, compression);
    QFETCH(QList<int>, items);
    QFETCH(int, room);
    if (room > 0 && m_smallFolder.isEmpty())
        QSKIP("a small temporary folder needs root");
    // Members "0" to "119" of tens of kilobytes each.
    const int count = 120;
    const QString file = path("archive.pa");
    PackageArchive writer;
    writer.setCompression(compression);
    quint64 body = 0;
    for (int i = 0; i < count; ++i)
        body += writer.addData(sample(20000 + i * 997, uint(i)), 0640, QString::number(i)).size();
    writer.save(file, compression == 1 ? 1 : 6);
    const QByteArray temporaryFolder = qgetenv("TMPDIR");
    // A file is no folder to make a temporary file in.
    qputenv("TMPDIR", QFile::encodeName(room < 0 ? file : room > 0 ? m_smallFolder : m_dir->path()));
    CountingArchive archive;
    archive.open(file);
    archive.produced = 0;
    for (const int item : items) {
        PackageArchiveExtraction extraction(archive);
        extraction.extract(count / 4, [&](int index) {
            const PackageArchiveFile member = archive.member(item * count / 4 + index);
            return extraction.below(path("out"), member, member.name(), false);
        });
        if (room > 0 && item == items.first()) {
            // The kept members leave half of what was free beyond 64 MiB.
            struct statvfs status;
            QCOMPARE(::statvfs(QFile::encodeName(m_smallFolder).constData(), &status), 0);
            const qint64 used = qint64(status.f_blocks - status.f_bfree) * qint64(status.f_frsize);
            QVERIFY2(used > 0 && used <= (qint64(room - 64) << 20) / 2, qPrintable(QString::number(used)));
        }
    }
    qputenv("TMPDIR", temporaryFolder);
    const QString measured
        = QStringLiteral("%1 decompressed for a body of %2").arg(archive.produced).arg(body);
    if (room == 0)
        QVERIFY2(archive.produced <= body + body / 20, qPrintable(measured));
    else
        QVERIFY2(archive.produced > body + (room < 0 ? body / 2 : 0), qPrintable(measured));
    for (int i = 0; i < count; ++i)
        QVERIFY(
            readAll(path("out/") + archive.member(i).name()) == sample(archive.member(i).size(), quint32(i)));
}

void tst_Archive::bzip2AgainstReferences_data()
{
    QTest::addColumn<quint32>("level");
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<QByteArray>("unit"); // repeated; empty: sample()
    QTest::addColumn<bool>("threads"); // does reading the bzip2 command's stream start threads
    QTest::newRow("many blocks") << 1u << qsizetype(3 << 20) << QByteArray() << true;
    QTest::newRow("empty") << 9u << qsizetype(0) << QByteArray() << false;
    // Long runs shrink to a fiftieth: one block holds many segments' worth.
    QTest::newRow("zeros") << 1u << qsizetype(4 << 20) << QByteArray(1, '\0') << false;
    // Runs of four grow by a quarter: a segment no longer fits one block.
    QTest::newRow("runs of four") << 1u << qsizetype(1 << 20) << QByteArray("aaaab") << true;
    // Rotations equal all the way round: sorting must end, ties not matter.
    QTest::newRow("a run of exactly four") << 9u << qsizetype(4) << QByteArray(1, '\0') << false;
    QTest::newRow("period of seven") << 1u << qsizetype(300000) << QByteArray("abcdefg") << false;
    QTest::newRow("a stretch twice") << 9u << qsizetype(600000) << QByteArray("twice") << false;
}

void tst_Archive::bzip2AgainstReferences()
{
    QFETCH(quint32, level);
    QFETCH(qsizetype, size);
    QFETCH(QByteArray, unit);
    QFETCH(bool, threads);
    QByteArray bytes;
    if (unit == "twice")
        bytes = sample(size / 2, 9).repeated(2);
    else
        bytes = unit.isEmpty() ? sample(size, 3) : unit.repeated(size / unit.size() + 1).left(size);
    const QString ours = path("ours.bz2");
    {
        PackageArchiveCompressedBzOutputFile stream(
            std::fopen(QFile::encodeName(ours).constData(), "wb"), level);
        QCOMPARE(stream.write(bytes.constData(), qint32(bytes.size())), qint32(bytes.size()));
        stream.finish();
        QVERIFY(stream.close());
    }
    // Written on several threads, it is one stream for libbz2's one-call
    // reader and for the bzip2 command.
    const QByteArray coded = readAll(ours);
    QByteArray decoded(qMax<qsizetype>(bytes.size(), 1), Qt::Uninitialized);
    unsigned decodedSize = unsigned(decoded.size());
    QCOMPARE(BZ2_bzBuffToBuffDecompress(decoded.data(), &decodedSize, const_cast<char *>(coded.constData()),
                 unsigned(coded.size()), 0, 0),
        BZ_OK);
    QVERIFY(decoded.left(qsizetype(decodedSize)) == bytes);
    QVERIFY(run(QStringLiteral("bzip2"), { "-dc", ours }) == bytes);
    // And our parallel reader reads both ours and what the bzip2 command writes.
    writeFile(
        path("theirs.bz2"), run(QStringLiteral("bzip2"), { "-c", QStringLiteral("-%1").arg(level) }, bytes));
    const auto threadCount = [] {
        return QDir(QStringLiteral("/proc/self/task")).count();
    };
    for (const QString &file : { ours, path("theirs.bz2") }) {
        const uint before = threadCount();
        quint64 produced = 0;
        int starts = 0;
        Counting<PackageArchiveCompressedBzInputFile> stream(
            std::fopen(QFile::encodeName(file).constData(), "rb"), &produced, &starts);
        QByteArray all;
        QCOMPARE(readStream(stream, bytes.size(), &all), qMakePair(qint64(bytes.size()), QString()));
        QVERIFY(all == bytes);
        QCOMPARE(stream.fallbacks(), 0);
        // A short stream is not worth starting threads for (ours may cut the
        // same bytes into more blocks than the bzip2 command).
        if (file != ours)
            QCOMPARE(threadCount() > before, threads);
        // The last block is still in memory: reading its end again decodes nothing.
        if (!bytes.isEmpty()) {
            QCOMPARE(stream.seek(bytes.size() - 1), 0);
            QCOMPARE(readStream(stream, 1, &all).first, 1);
            QCOMPARE(all.back(), bytes.back());
            QCOMPARE(starts, 0);
        }
        QCOMPARE(readStream(stream, 1, &all).second, QStringLiteral("error reading from compressed stream"));
        // The first piece is at most a block's worth of bytes: a short read of
        // a block of long runs decodes a little of it, not its megabytes.
        const std::unique_ptr<FILE, int (*)(FILE *)> handle(
            std::fopen(QFile::encodeName(file).constData(), "rb"), std::fclose);
        PackageArchiveBzBlockDecoder decoder(handle.get(), 0, {}, 2);
        PackageArchiveBzBlockDecoder::Place place;
        QByteArray piece;
        QVERIFY(decoder.next(piece, place) != PackageArchiveBzBlockDecoder::Unusual);
        QVERIFY2(piece.size() <= qsizetype(level) * 100000, qPrintable(QString::number(piece.size())));
    }
}

void tst_Archive::resume_data()
{
    QTest::addColumn<quint32>("kind");
    QTest::addColumn<quint32>("level");
    QTest::newRow("zlib") << 0u << 6u;
    QTest::newRow("bzip2, many blocks") << 1u << 1u;
}

void tst_Archive::resume()
{
    QFETCH(quint32, kind);
    QFETCH(quint32, level);
    const QByteArray bytes = sample(6 << 20, 7);
    const QString file = path("body");
    {
        std::unique_ptr<PackageArchiveCompressedOutputFile> out;
        FILE *handle = std::fopen(QFile::encodeName(file).constData(), "wb");
        if (kind == 0)
            out = std::make_unique<PackageArchiveCompressedGzOutputFile>(handle, level);
        else
            out = std::make_unique<PackageArchiveCompressedBzOutputFile>(handle, level);
        QCOMPARE(out->write(bytes.constData(), qint32(bytes.size())), qint32(bytes.size()));
        out->finish();
        QVERIFY(out->close());
    }
    if (kind == 0) {
        // zlib's one-call reader takes what the parallel writer made as one stream.
        const QByteArray coded = readAll(file);
        QByteArray decoded(bytes.size() + 1, Qt::Uninitialized);
        uLongf decodedSize = uLongf(decoded.size());
        QCOMPARE(uncompress(reinterpret_cast<Bytef *>(decoded.data()), &decodedSize,
                     reinterpret_cast<const Bytef *>(coded.constData()), uLong(coded.size())),
            Z_OK);
        QVERIFY(decoded.left(qsizetype(decodedSize)) == bytes);
    }
    quint64 produced = 0;
    int starts = 0;
    FILE *handle = std::fopen(QFile::encodeName(file).constData(), "rb");
    std::unique_ptr<PackageArchiveCompressedInputFile> stream;
    if (kind == 0)
        stream = std::make_unique<Counting<PackageArchiveCompressedGzInputFile>>(handle, &produced, &starts);
    else
        stream = std::make_unique<Counting<PackageArchiveCompressedBzInputFile>>(handle, &produced, &starts);
    QByteArray all;
    QCOMPARE(readStream(*stream, bytes.size(), &all).second, QString());
    QVERIFY(all == bytes);
    const int startsAfterPass = starts;
    const quint64 afterPass = produced;
    // Back and forth past the first megabyte: never from the start, and never
    // much more than the bytes asked for plus one gap between resume points.
    QRandomGenerator random(11);
    const int seeks = 40;
    for (int i = 0; i < seeks; ++i) {
        const qint64 at = (1 << 20) + qint64(random.bounded(bytes.size() - (1 << 20) - 1000));
        QCOMPARE(stream->seek(at), 0);
        QByteArray piece;
        QCOMPARE(readStream(*stream, 1000, &piece).second, QString());
        QVERIFY(piece == bytes.mid(at, 1000));
    }
    QCOMPARE(starts, startsAfterPass);
    QVERIFY2(
        produced - afterPass <= quint64(seeks) * ((1 << 20) + 1000), qPrintable(QString::number(produced)));
    // A valid stream is decoded in parallel throughout, never by libbz2's reader.
    if (kind == 1)
        QCOMPARE(static_cast<PackageArchiveCompressedBzInputFile &>(*stream).fallbacks(), 0);
}

QTEST_GUILESS_MAIN(tst_Archive)
#include "tst_archive.moc"
