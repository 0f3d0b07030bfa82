#include "core/hexception.h"
#include "media/packagearchive.h"
#include "media/packagearchiveiofile.h"
#include "tests/media/filesizelimit.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <functional>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace {

QString message(const std::function<void()> &action)
{
    try {
        action();
    } catch (const HException &error) {
        return error.message();
    }
    return QString();
}

QByteArray randomBytes(qsizetype size, quint32 seed)
{
    QRandomGenerator random(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(random.bounded(256));
    return bytes;
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

void writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644, qint64 time = -1)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    file.close();
    ::chmod(QFile::encodeName(path).constData(), mode);
    if (time >= 0) {
        const struct utimbuf times = { time_t(time), time_t(time) };
        ::utime(QFile::encodeName(path).constData(), &times);
    }
}

mode_t modeOf(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode : 0;
}

qint64 mtimeOf(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mtime : -1;
}

// Writes its archives behind a prefix, as a data file carries them.
class PrefixedArchive : public PackageArchive
{
public:
    explicit PrefixedArchive(int prefix)
        : m_prefix(prefix)
    { }

protected:
    void beginWrite(FILE *file) override
    {
        const QByteArray prefix(m_prefix, '\x90');
        std::fwrite(prefix.constData(), 1, size_t(prefix.size()), file);
    }

private:
    int m_prefix;
};

// A byte-counting stream for an uncompressed body.
class StoredFile : public PackageArchiveIOFile
{
public:
    explicit StoredFile(FILE *file)
        : PackageArchiveIOFile(file)
        , m_start(::ftello(file))
    { }
    qint32 read(char *buffer, qint32 size) override
    {
        return size < 1 ? 0 : qint32(std::fread(buffer, 1, size_t(size), file()));
    }
    qint32 write(const char *buffer, qint32 size) override
    {
        return size < 1 ? 0 : qint32(std::fwrite(buffer, 1, size_t(size), file()));
    }
    qint32 seek(qint64 position) override { return PackageArchiveIOFile::seek(m_start + position); }

private:
    qint64 m_start;
};

// An archive with an extra compression kind 15 that stores the body as it is,
// written without buffering so that a full disk shows at the failing write.
class StoredArchive : public PackageArchive
{
public:
    static const quint32 Stored = 15;

protected:
    std::unique_ptr<PackageArchiveIOFileInterface> createInputFile(quint32 kind, FILE *file) override
    {
        if (kind == Stored)
            return std::make_unique<StoredFile>(file);
        return PackageArchive::createInputFile(kind, file);
    }
    std::unique_ptr<PackageArchiveIOFileInterface> createOutputFile(
        quint32 kind, FILE *file, quint32 level) override
    {
        if (kind == Stored)
            return std::make_unique<StoredFile>(file);
        return PackageArchive::createOutputFile(kind, file, level);
    }
    void beginWrite(FILE *file) override { std::setvbuf(file, nullptr, _IONBF, 0); }
};

struct Sample
{
    QString name;
    QByteArray bytes;
    quint32 mode;
    qint64 time;
};

// What tests/media/archiveformat.py's sample_members() writes.
QList<Sample> independentSample()
{
    QByteArray ramp;
    for (int i = 0; i < 40; ++i) {
        for (int b = 0; b < 256; ++b)
            ramp.append(char(b));
    }
    return {
        { QStringLiteral("readme.txt"), "hello archive\n", 0100644, 1600000000 },
        { QStringLiteral("bin/tool"), ramp, 0100755, 1500000000 },
        { QStringLiteral("empty"), QByteArray(), 0100444, 0 },
        { QStringLiteral("lib/caf\u00e9.so"),
            "\x7f"
            "ELF"
                + QByteArray(5000, 'x'),
            0100555, 2000000000 },
    };
}

QString dataFile(const QString &name)
{
    return QStringLiteral(SETUP_SOURCE_DIR "/tests/data/archives/") + name;
}

} // namespace

class tst_PackageArchive : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void roundTrip_data();
    void roundTrip();
    void legacyHeaderBytes();
    void levels();
    void readsIndependentArchives_data();
    void readsIndependentArchives();
    void openFailures_data();
    void openFailures();
    void formatOf_data();
    void formatOf();
    void storedBodyFailures_data();
    void storedBodyFailures();
    void lookup_data();
    void lookup();
    void sortedIndexOfManyNames();
    void entries_data();
    void entries();
    void addDataReplaces();
    void memberSources();
    void sizeLimits();
    void extractFailures();
    void extractWriteFailure();
    void extractSelected();
    void saveFailures_data();
    void saveFailures();
    void saveWriteFailures_data();
    void saveWriteFailures();
    void unsafeNames_data();
    void unsafeNames();
    void symbolicLinks();
    void unsafeMemberStopsExtractAll();
    void unprivileged();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString path(const QString &name) const { return m_dir->filePath(name); }
};

void tst_PackageArchive::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void tst_PackageArchive::roundTrip_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("offset");
    QTest::addColumn<bool>("empty");
    const QList<QPair<int, int>> forms = { { 2, 0 }, { 2, 1 }, { 1, 0 } };
    for (const auto &form : forms) {
        for (const int offset : { 0, 4099 }) {
            QTest::addRow("v%d kind %d offset %d", form.first, form.second, offset)
                << form.first << form.second << offset << false;
        }
        QTest::addRow("v%d kind %d no members", form.first, form.second)
            << form.first << form.second << 77 << true;
    }
}

void tst_PackageArchive::roundTrip()
{
    QFETCH(int, version);
    QFETCH(int, kind);
    QFETCH(int, offset);
    QFETCH(bool, empty);

    // Members from disk (with their modes and times) and from memory.
    const QList<Sample> onDisk = {
        { QStringLiteral("bin/tool"), randomBytes(200000, 1), 0755, 1234567890 },
        { QStringLiteral("include/deep/er/header.h"), QByteArray(3000, 'h'), 0444, 1000000000 },
        { QStringLiteral("empty"), QByteArray(), 0600, 1500000000 },
        { QStringLiteral("caf\u00e9 \u00fc.txt"), "latin-1 name", 0640, 1700000000 },
    };
    PrefixedArchive writer(offset);
    writer.setVersion(quint32(version));
    writer.setCompression(quint32(kind));
    if (!empty) {
        for (const Sample &sample : onDisk) {
            const QString source = path(QStringLiteral("source/") + QString::number(writer.count()));
            writeFile(source, sample.bytes, sample.mode, sample.time);
            writer.addFile(source, sample.name);
        }
        writer.addData("in memory", 0604, QStringLiteral("memory.txt"));
        writer.addData(QByteArray(), 0600, QStringLiteral("empty too"));
    }
    const QString file = path(QStringLiteral("archive.bin"));
    writer.save(file);
    QCOMPARE(QFileInfo(file).size() > offset, true);
    QCOMPARE(readAll(file).left(offset), QByteArray(offset, '\x90'));

    PackageArchive reader;
    reader.open(file, offset);
    QCOMPARE(reader.version(), quint32(version));
    QCOMPARE(reader.compression(), quint32(kind));
    QCOMPARE(reader.count(), writer.count());
    const QString out = path(QStringLiteral("out"));
    reader.extractAll(out, false);
    for (int i = 0; i < writer.count(); ++i) {
        const PackageArchiveFile written = writer.member(i);
        const PackageArchiveFile read = reader.member(i);
        QCOMPARE(read.name(), written.name());
        QCOMPARE(read.size(), written.size());
        QCOMPARE(read.time().toSecsSinceEpoch(), written.time().toSecsSinceEpoch());
        // Version 1 keeps only whether the member is read-only.
        const quint32 mode = version == 2 ? written.mode() : (written.isReadOnly() ? 0444 : 0666);
        QCOMPARE(read.mode(), mode);
        QCOMPARE(read.isReadOnly(), written.isReadOnly());
        const QByteArray bytes = writer.data(written);
        QCOMPARE(reader.data(read), bytes);
        const QString target = out + QLatin1Char('/') + read.name();
        QCOMPARE(readAll(target), bytes);
        QCOMPARE(modeOf(target) & 07777, mode & 0777);
        QCOMPARE(mtimeOf(target), read.time().toSecsSinceEpoch());
    }
    if (!empty) {
        QCOMPARE(reader.member(0).mode(), version == 2 ? quint32(0100755) : quint32(0666));
        QCOMPARE(reader.member(1).mode(), version == 2 ? quint32(0100444) : quint32(0444));
    }
    // Reading backwards restarts the body and still gives the right bytes.
    if (!empty)
        QCOMPARE(reader.data(reader.member(0)), onDisk[0].bytes);
}

void tst_PackageArchive::legacyHeaderBytes()
{
    PackageArchive archive;
    archive.addData(QByteArray(500, 'a'), 0644, QStringLiteral("a"));
    archive.addData(QByteArray(70000, 'b'), 0444, QStringLiteral("b"));
    const QString file = path(QStringLiteral("v1.pa"));
    archive.save(file);
    const QByteArray bytes = readAll(file);
    QCOMPARE(qFromLittleEndian<quint32>(bytes.constData()), 0xB231F47Au);
    QCOMPARE(qFromLittleEndian<quint32>(bytes.constData() + 4), 1u);
    // T = 1040 * 2 + (500 + 1040) + (70000 + 1040) = 74660; T + T / 100 + 13.
    QCOMPARE(qFromBigEndian<quint32>(bytes.constData() + 8), 74660u + 746u + 13u);
    // The body is a zlib stream of the inner header, the records and the data.
    QByteArray framed(4, '\0');
    qToBigEndian<quint32>(8 + 2 * 1040 + 70500, framed.data());
    const QByteArray body = qUncompress(framed + bytes.mid(12));
    QCOMPARE(body.size(), 8 + 2 * 1040 + 70500);
    QCOMPARE(qFromLittleEndian<quint32>(body.constData()), 0x4152C3C8u);
    QCOMPARE(qFromLittleEndian<quint32>(body.constData() + 8 + 1024), quint32(8 + 2 * 1040));
    QCOMPARE(qFromLittleEndian<quint32>(body.constData() + 8 + 1032), 0u);
    QCOMPARE(qFromLittleEndian<quint32>(body.constData() + 8 + 1040 + 1032), 1u);
}

void tst_PackageArchive::levels()
{
    // Out-of-range levels are clamped: negative is 7, above 9 is 9.
    PackageArchive archive;
    archive.addData(randomBytes(5000, 2) + QByteArray(50000, 'z'), 0644, QStringLiteral("x"));
    const auto saved = [&](int level) {
        const QString file = path(QStringLiteral("level") + QString::number(level));
        archive.save(file, level);
        return readAll(file);
    };
    QCOMPARE(saved(-3), saved(7));
    QCOMPARE(saved(12), saved(9));
    QVERIFY(saved(1) != saved(9));
    archive.setVersion(2);
    archive.setCompression(1);
    QCOMPARE(message([&] { archive.save(path(QStringLiteral("bz")), 0); }),
        QStringLiteral("cannot initialise deflate"));
    QCOMPARE(saved(-1), saved(7));
}

void tst_PackageArchive::readsIndependentArchives_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("version");
    QTest::newRow("v2 zlib") << "v2-zlib.pa" << 0 << 2;
    QTest::newRow("v2 bzip2") << "v2-bzip2.pa" << 0 << 2;
    QTest::newRow("v1") << "v1.pa" << 0 << 1;
    QTest::newRow("v1 behind a current bzip2 header") << "v1-in-current-bzip2.pa" << 0 << 1;
    QTest::newRow("embedded") << "embedded-at-1000.bin" << 1000 << 2;
}

void tst_PackageArchive::readsIndependentArchives()
{
    QFETCH(QString, file);
    QFETCH(int, offset);
    QFETCH(int, version);
    PackageArchive archive;
    archive.open(dataFile(file), offset, PackageArchive::SortedIndex);
    const QList<Sample> samples = independentSample();
    QCOMPARE(archive.count(), samples.size());
    // Read out of order on purpose: lookups by name, backwards.
    for (qsizetype i = samples.size() - 1; i >= 0; --i) {
        const Sample &sample = samples[i];
        const PackageArchiveFile member = archive.find(sample.name);
        QVERIFY2(!member.isNull(), qPrintable(sample.name));
        QCOMPARE(archive.indexOf(sample.name), int(i));
        QCOMPARE(member.size(), quint32(sample.bytes.size()));
        QCOMPARE(member.mode(), version == 2 ? sample.mode : ((sample.mode & 0222) ? 0666u : 0444u));
        QCOMPARE(member.time().toSecsSinceEpoch(), sample.time);
        QCOMPARE(archive.data(sample.name), sample.bytes);
    }
}

void tst_PackageArchive::openFailures_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("expected");
    QTest::newRow("missing") << "missing.pa" << dataFile(QStringLiteral("missing.pa")) + " does not exist";
    QTest::newRow("shorter than a header") << "short-header.pa"
                                           << "unsupported package file format";
    QTest::newRow("not an archive") << "not-an-archive.txt"
                                    << "unsupported package file format";
    QTest::newRow("version 0") << "version0.pa"
                               << "unsupported package file format";
    QTest::newRow("version 3") << "version3.pa"
                               << "unsupported package file format";
    QTest::newRow("kind 2") << "kind2.pa"
                            << "unsupported compression algorithm";
    QTest::newRow("legacy without inner magic") << "legacy-bad-inner.pa"
                                                << "unsupported package file format";
    QTest::newRow("embedded, read at 0") << "embedded-at-1000.bin"
                                         << "unsupported package file format";
    QTest::newRow("uncompressed v1, one member") << "plain-v1-one.pa"
                                                 << "bad table of contents";
    QTest::newRow("truncated zlib body") << "truncated-zlib.pa"
                                         << "error reading stream";
    QTest::newRow("zlib body ends in the table") << "truncated-table-zlib.pa"
                                                 << "error reading stream";
    QTest::newRow("corrupted zlib body") << "corrupt-zlib.pa"
                                         << "error reading from compressed stream";
    QTest::newRow("truncated bzip2 body") << "truncated-bzip2.pa"
                                          << "error reading from compressed stream";
    QTest::newRow("corrupted bzip2 body") << "corrupt-bzip2.pa"
                                          << "error reading from compressed stream";
    QTest::newRow("uncompressed v1, empty") << "plain-v1-empty.pa"
                                            << "";
    QTest::newRow("v1, empty") << "v1-empty.pa"
                               << "";
    QTest::newRow("v2, empty") << "v2-empty.pa"
                               << "";
}

void tst_PackageArchive::openFailures()
{
    QFETCH(QString, file);
    QFETCH(QString, expected);
    PackageArchive archive;
    archive.addData("stale", 0644, QStringLiteral("left over"));
    QCOMPARE(message([&] { archive.open(dataFile(file)); }), expected);
    // Opening discards what the archive held before, whatever the outcome.
    QCOMPARE(archive.count(), 0);
    QCOMPARE(archive.find(QStringLiteral("left over")).isNull(), true);
}

void tst_PackageArchive::formatOf_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("count");
    QTest::newRow("v2 zlib") << "v2-zlib.pa" << 0 << 2 << 0 << 4;
    QTest::newRow("v2 bzip2 at 1000") << "embedded-at-1000.bin" << 1000 << 2 << 1 << 4;
    QTest::newRow("v1") << "v1.pa" << 0 << 1 << 0 << 4;
    QTest::newRow("v1 behind a current header") << "v1-in-current-bzip2.pa" << 0 << 1 << 1 << 4;
    QTest::newRow("uncompressed v1") << "plain-v1-one.pa" << 0 << 1 << 0 << 1;
    QTest::newRow("v2 empty") << "v2-empty.pa" << 0 << 2 << 0 << 0;
}

void tst_PackageArchive::formatOf()
{
    QFETCH(QString, file);
    QFETCH(int, offset);
    QFETCH(int, version);
    QFETCH(int, kind);
    QFETCH(int, count);
    const PackageArchive::Format format = PackageArchive::formatOf(dataFile(file), offset);
    QCOMPARE(format.version, quint32(version));
    QCOMPARE(format.compression, quint32(kind));
    QCOMPARE(format.count, quint32(count));
    QCOMPARE(message([&] { PackageArchive::formatOf(dataFile(QStringLiteral("version3.pa"))); }),
        QStringLiteral("unsupported package file format"));
}

void tst_PackageArchive::storedBodyFailures_data()
{
    // Layout of the stored archive below: 8-byte header, 20-byte table header,
    // records of 18 bytes + name ("one" then "two"), then 10 + 20 data bytes.
    QTest::addColumn<int>("keep");
    QTest::addColumn<QString>("expected");
    QTest::newRow("whole") << 8 + 20 + 21 + 21 + 30 << "";
    QTest::newRow("in the table header") << 8 + 12 << "bad header";
    QTest::newRow("in a record") << 8 + 20 + 10 << "bad table of contents";
    QTest::newRow("in a name") << 8 + 20 + 18 + 1 << "bad table of contents";
    QTest::newRow("in the second record") << 8 + 20 + 21 + 17 << "bad table of contents";
    QTest::newRow("in the data") << 8 + 20 + 21 + 21 + 25 << "cannot read file two from archive";
}

void tst_PackageArchive::storedBodyFailures()
{
    QFETCH(int, keep);
    QFETCH(QString, expected);
    StoredArchive writer;
    writer.setVersion(2);
    writer.setCompression(StoredArchive::Stored);
    writer.addData(QByteArray(10, '1'), 0644, QStringLiteral("one"));
    writer.addData(QByteArray(20, '2'), 0644, QStringLiteral("two"));
    const QString file = path(QStringLiteral("stored.pa"));
    writer.save(file);
    QCOMPARE(QFileInfo(file).size(), qint64(8 + 20 + 21 + 21 + 30));
    QVERIFY(QFile::resize(file, keep));

    StoredArchive reader;
    const QString failure = message([&] {
        reader.open(file);
        QCOMPARE(reader.data(QStringLiteral("one")), QByteArray(10, '1'));
        QCOMPARE(reader.data(QStringLiteral("two")), QByteArray(20, '2'));
    });
    QCOMPARE(failure, expected);
}

void tst_PackageArchive::lookup_data()
{
    QTest::addColumn<bool>("indexed");
    QTest::newRow("linear") << false;
    QTest::newRow("sorted index") << true;
}

void tst_PackageArchive::lookup()
{
    QFETCH(bool, indexed);
    // addFile keeps duplicates; the first in table order wins.
    const QStringList names = { "m", "b/x", "dup", "a", "dup", "z", "B" };
    PackageArchive writer;
    writer.setVersion(2);
    for (int i = 0; i < names.size(); ++i) {
        const QString source = path(QString::number(i));
        writeFile(source, QByteArray(i, 'x'));
        writer.addFile(source, names[i]);
    }
    const QString file = path(QStringLiteral("lookup.pa"));
    writer.save(file);

    PackageArchive archive;
    archive.open(file, 0, indexed ? quint32(PackageArchive::SortedIndex) : 0u);
    for (int i = 0; i < names.size(); ++i) {
        const int first = names.indexOf(names[i]);
        QCOMPARE(archive.find(names[i]), archive.member(first));
        QCOMPARE(archive.find(names[i]).size(), quint32(first));
        QCOMPARE(archive.indexOf(names[i]), first);
    }
    QVERIFY(archive.find(QStringLiteral("b")).isNull());
    QVERIFY(archive.find(QStringLiteral("Dup")).isNull());
    QCOMPARE(archive.indexOf(QStringLiteral("nothing")), -1);
    QVERIFY(archive.member(-1).isNull());
    QVERIFY(archive.member(names.size()).isNull());
    // Members added later are found as well.
    archive.addData("new", 0644, QStringLiteral("c"));
    QCOMPARE(archive.find(QStringLiteral("c")).size(), 3u);
    QCOMPARE(QStringLiteral("cannot read file nothing from archive"),
        message([&] { archive.data(QStringLiteral("nothing")); }));
}

void tst_PackageArchive::sortedIndexOfManyNames()
{
    // Names in descending order, the worst case for an index built one
    // insertion at a time: built with one sort, it costs about what reading
    // the table does.
    const int count = 50000;
    QByteArray body(20, '\0');
    qToLittleEndian<quint32>(count, body.data());
    for (int i = count - 1; i >= 0; --i) {
        const QByteArray name = "lib/f" + QByteArray::number(i).rightJustified(6, '0');
        uchar record[18] = {};
        qToLittleEndian<quint16>(quint16(name.size()), record);
        body.append(reinterpret_cast<const char *>(record), 18).append(name);
    }
    uchar header[8] = {};
    qToLittleEndian<quint32>(0x71F5C6B1, header);
    qToLittleEndian<quint16>(2, header + 4);
    const QString file = path(QStringLiteral("names.pa"));
    // qCompress writes the length, then a zlib stream.
    writeFile(file, QByteArray(reinterpret_cast<const char *>(header), 8) + qCompress(body, 1).mid(4));

    PackageArchive archive;
    const auto fastest = [&](quint32 flags) {
        qint64 best = std::numeric_limits<qint64>::max();
        for (int run = 0; run < 3; ++run) {
            QElapsedTimer timer;
            timer.start();
            archive.open(file, 0, flags);
            best = std::min(best, timer.nsecsElapsed());
        }
        return best;
    };
    const qint64 plain = fastest(0);
    const qint64 indexed = fastest(PackageArchive::SortedIndex);
    QVERIFY2(indexed < 3 * plain,
        qPrintable(QStringLiteral("%1 ms with the index, %2 ms without")
                       .arg(indexed / 1000000)
                       .arg(plain / 1000000)));
    QCOMPARE(archive.find(QStringLiteral("lib/f000000")), archive.member(count - 1));
    QCOMPARE(archive.find(QStringLiteral("lib/f049999")), archive.member(0));
    QCOMPARE(archive.find(QStringLiteral("lib/f030000")), archive.member(count - 1 - 30000));
    QVERIFY(archive.find(QStringLiteral("lib/f050000")).isNull());
}

void tst_PackageArchive::entries_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("star crosses folders") << "*.h" << QStringList { "inc/a.h", "inc/sub/b.h", "c.h" };
    QTest::newRow("prefix") << "inc/*" << QStringList { "inc/a.h", "inc/sub/b.h", "inc/x_package.xml" };
    QTest::newRow("question mark") << "?.h" << QStringList { "c.h" };
    QTest::newRow("set") << "inc/[ab].h" << QStringList { "inc/a.h" };
    QTest::newRow("negated set") << "[!i]*" << QStringList { "c.h", "doc_package.xml", "d[1].txt" };
    QTest::newRow("range") << "[a-c].h" << QStringList { "c.h" };
    QTest::newRow("unclosed bracket is literal") << "d[1*" << QStringList { "d[1].txt" };
    QTest::newRow("exact") << "c.h" << QStringList { "c.h" };
    QTest::newRow("case matters") << "C.H" << QStringList {};
    QTest::newRow("everything") << "*"
                                << QStringList { "inc/a.h", "inc/sub/b.h", "c.h", "inc/x_package.xml",
                                       "doc_package.xml", "d[1].txt" };
}

void tst_PackageArchive::entries()
{
    QFETCH(QString, pattern);
    QFETCH(QStringList, expected);
    PackageArchive archive;
    for (const char *name :
        { "inc/a.h", "inc/sub/b.h", "c.h", "inc/x_package.xml", "doc_package.xml", "d[1].txt" })
        archive.addData(name, 0644, QString::fromLatin1(name));
    QStringList found;
    for (const PackageArchiveFile &member : archive.entries(pattern))
        found.append(member.name());
    QCOMPARE(found, expected);
    QCOMPARE(archive.packageDescription().name(), QStringLiteral("inc/x_package.xml"));
    QVERIFY(PackageArchive().packageDescription().isNull());
}

void tst_PackageArchive::addDataReplaces()
{
    PackageArchive archive(dataFile(QStringLiteral("v2-zlib.pa")));
    const QDateTime before = archive.member(0).time();
    const PackageArchiveFile replaced = archive.addData("new bytes", 0600, QStringLiteral("readme.txt"));
    QCOMPARE(archive.count(), 4);
    QCOMPARE(replaced, archive.member(0));
    QCOMPARE(replaced.size(), 9u);
    QCOMPARE(replaced.mode(), 0600u);
    QCOMPARE(replaced.time(), before);
    QCOMPARE(archive.data(replaced), QByteArray("new bytes"));
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const PackageArchiveFile added = archive.addData("x", 0644, QStringLiteral("added"));
    QCOMPARE(archive.member(4), added);
    QVERIFY(qAbs(added.time().toSecsSinceEpoch() - now) <= 1);

    // Saving an opened archive copies the members it read from the body.
    archive.setVersion(2);
    const QString file = path(QStringLiteral("resaved.pa"));
    archive.save(file);
    PackageArchive reopened(file);
    QCOMPARE(reopened.data(QStringLiteral("readme.txt")), QByteArray("new bytes"));
    QCOMPARE(reopened.data(QStringLiteral("bin/tool")), independentSample()[1].bytes);
    QCOMPARE(reopened.data(QStringLiteral("added")), QByteArray("x"));
}

void tst_PackageArchive::memberSources()
{
    PackageArchive archive;
    const QString source = path(QStringLiteral("source"));
    writeFile(source, "on disk", 06755, 1111111111);
    const PackageArchiveFile member = archive.addFile(source, QStringLiteral("tool"));
    // Type bits and permissions are kept, set-id and sticky bits dropped.
    QCOMPARE(member.mode(), quint32(0100755));
    QCOMPARE(member.size(), 7u);
    QCOMPARE(member.time().toSecsSinceEpoch(), 1111111111);
    QCOMPARE(archive.data(member), QByteArray("on disk"));
    QVERIFY(!member.isSelected());
    PackageArchiveFile handle = member;
    handle.setSelected(true);
    QVERIFY(member.isSelected());

    QVERIFY(QFile::remove(source));
    QCOMPARE(message([&] { archive.data(member); }), QStringLiteral("cannot read file tool"));
    QCOMPARE(message([&] { archive.save(path(QStringLiteral("out.pa"))); }),
        QStringLiteral("cannot read file tool"));
    QCOMPARE(message([&] { archive.addFile(source, QStringLiteral("again")); }),
        QStringLiteral("cannot read ") + source);
}

void tst_PackageArchive::sizeLimits()
{
    // Sparse files: large on paper, nothing on disk.
    const auto sparse = [&](const QString &name, qint64 size) {
        const QString file = path(name);
        QFile out(file);
        if (!out.open(QIODevice::WriteOnly) || !out.resize(size))
            qFatal("cannot make %s", qPrintable(file));
        return file;
    };
    PackageArchive archive;
    const QString huge = sparse(QStringLiteral("huge"), Q_INT64_C(0x100000000));
    QCOMPARE(message([&] { archive.addFile(huge, QStringLiteral("huge")); }),
        QStringLiteral("file too large ") + huge);
    QCOMPARE(archive.count(), 0);
    // Two members that fit one by one but not together; nothing is written.
    archive.addFile(sparse(QStringLiteral("a"), Q_INT64_C(0x80000000)), QStringLiteral("a"));
    archive.addFile(sparse(QStringLiteral("b"), Q_INT64_C(0x80000000)), QStringLiteral("b"));
    const QString target = path(QStringLiteral("too-large.pa"));
    QCOMPARE(message([&] { archive.save(target); }), QStringLiteral("archive too large"));
    QVERIFY(!QFileInfo::exists(target));
}

void tst_PackageArchive::extractFailures()
{
    PackageArchive archive;
    const PackageArchiveFile member = archive.addData("fresh", 0640, QStringLiteral("sub/file"));
    const QString out = path(QStringLiteral("out"));
    const QString target = out + QStringLiteral("/sub/file");
    writeFile(target, "old", 0600);
    QCOMPARE(message([&] { archive.extract(member, out, false); }),
        QStringLiteral("cannot overwrite file ") + target);
    QCOMPARE(readAll(target), QByteArray("old"));
    archive.extract(member, out, true);
    QCOMPARE(readAll(target), QByteArray("fresh"));
    QCOMPARE(modeOf(target) & 07777, mode_t(0640));

    // A folder in the file's place cannot be replaced by a file.
    QVERIFY(QDir().mkpath(out + QStringLiteral("/dir/inner")));
    QCOMPARE(message([&] { archive.extractToFile(member, out + QStringLiteral("/dir"), true); }),
        QStringLiteral("cannot create output file ") + out + QStringLiteral("/dir"));
    // A file in the place of a folder on the way.
    writeFile(out + QStringLiteral("/blocker"), "x");
    QCOMPARE(message([&] { archive.extractToFile(member, out + QStringLiteral("/blocker/file"), false); }),
        QStringLiteral("cannot create output file ") + out + QStringLiteral("/blocker/file"));
    // extractToFile writes exactly where it is told, creating the folders.
    archive.extractToFile(member, out + QStringLiteral("/a/b/c/renamed"), false);
    QCOMPARE(readAll(out + QStringLiteral("/a/b/c/renamed")), QByteArray("fresh"));
    // extractTo checks the relative name it is given.
    archive.extractTo(member, out, QStringLiteral("other/name"), false);
    QCOMPARE(readAll(out + QStringLiteral("/other/name")), QByteArray("fresh"));
}

void tst_PackageArchive::extractWriteFailure()
{
    PackageArchive archive;
    const PackageArchiveFile member = archive.addData(QByteArray(5000, 'w'), 0644, QStringLiteral("big"));
    const QString out = path(QStringLiteral("out"));
    QVERIFY(QDir().mkpath(out));
    FileSizeLimit limit(1000);
    QCOMPARE(message([&] { archive.extract(member, out, false); }),
        QStringLiteral("cannot write to output file ") + out + QStringLiteral("/big"));
}

void tst_PackageArchive::extractSelected()
{
    PackageArchive archive(dataFile(QStringLiteral("v1.pa")));
    archive.member(1).setSelected(true);
    archive.member(3).setSelected(true);
    const QString out = path(QStringLiteral("out"));
    archive.extractSelected(out, false);
    QStringList found;
    QDirIterator it(out, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        found.append(QDir(out).relativeFilePath(it.next()));
    found.sort();
    QCOMPARE(found, QStringList({ QStringLiteral("bin/tool"), QStringLiteral("lib/caf\u00e9.so") }));
    // Version 1: 0555 has no write bit, so it comes back as 0444.
    QCOMPARE(modeOf(out + QStringLiteral("/lib/caf\u00e9.so")) & 07777, mode_t(0444));
    QCOMPARE(modeOf(out + QStringLiteral("/bin/tool")) & 07777, mode_t(0666));
}

void tst_PackageArchive::saveFailures_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("nameLength");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("expected");
    QTest::newRow("v1 longest name") << 1 << 0 << 1023 << "a.pa"
                                     << "";
    QTest::newRow("v1 name too long") << 1 << 0 << 1024 << "a.pa"
                                      << "filename too long";
    QTest::newRow("v2 longest name") << 2 << 0 << 65535 << "a.pa"
                                     << "";
    QTest::newRow("v2 name too long") << 2 << 0 << 65536 << "a.pa"
                                      << "filename too long";
    QTest::newRow("no such folder") << 2 << 0 << 1 << "none/a.pa"
                                    << "cannot open output file";
    QTest::newRow("version 3") << 3 << 0 << 1 << "a.pa"
                               << "unsupported package file version";
    QTest::newRow("kind 2") << 2 << 2 << 1 << "a.pa"
                            << "unsupported compression algorithm";
}

void tst_PackageArchive::saveFailures()
{
    QFETCH(int, version);
    QFETCH(int, kind);
    QFETCH(int, nameLength);
    QFETCH(QString, target);
    QFETCH(QString, expected);
    PackageArchive archive;
    archive.setVersion(quint32(version));
    archive.setCompression(quint32(kind));
    const QString name(nameLength, QLatin1Char('n'));
    archive.addData("bytes", 0644, name);
    const QString file = path(target);
    QCOMPARE(message([&] { archive.save(file); }), expected);
    if (expected.isEmpty()) {
        PackageArchive reopened(file);
        QCOMPARE(reopened.member(0).name(), name);
        QCOMPARE(reopened.data(name), QByteArray("bytes"));
    }
}

void tst_PackageArchive::saveWriteFailures_data()
{
    // The stored body is written unbuffered, so the size limit shows at the
    // exact write that crosses it. Layout: 8 + 20 + (18 + 4) + 5000 bytes.
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QString>("expected");
    const int stored = int(StoredArchive::Stored);
    QTest::newRow("header") << stored << 4 << "cannot write header";
    QTest::newRow("table header") << stored << 8 + 19 << "cannot write header2";
    QTest::newRow("record") << stored << 8 + 20 + 17 << "cannot write table of contents";
    QTest::newRow("record name") << stored << 8 + 20 + 18 + 3 << "cannot write table of contents filename";
    QTest::newRow("data") << stored << 8 + 20 + 22 + 4999 << "cannot write file";
    QTest::newRow("fits") << stored << 8 + 20 + 22 + 5000 << "";
    QTest::newRow("zlib body") << 0 << 300 << "error writing to compressed stream";
    QTest::newRow("bzip2 body") << 1 << 300 << "error compressing stream";
}

void tst_PackageArchive::saveWriteFailures()
{
    QFETCH(int, kind);
    QFETCH(int, limit);
    QFETCH(QString, expected);
    StoredArchive archive;
    archive.setVersion(2);
    archive.setCompression(quint32(kind));
    archive.addData(randomBytes(5000, 4), 0644, QStringLiteral("data"));
    FileSizeLimit cap { rlim_t(limit) };
    QCOMPARE(message([&] { archive.save(path(QStringLiteral("full.pa"))); }), expected);
}

void tst_PackageArchive::unsafeNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    QTest::newRow("absolute") << "/etc/passwd"
                              << "refusing absolute file name /etc/passwd";
    QTest::newRow("parent") << "../escape"
                            << "refusing file name with a .. component ../escape";
    QTest::newRow("parent deeper") << "a/b/../../../escape"
                                   << "refusing file name with a .. component a/b/../../../escape";
    QTest::newRow("parent last") << "a/.."
                                 << "refusing file name with a .. component a/..";
    QTest::newRow("zero byte") << QString::fromLatin1("a\0b", 3)
                               << QString::fromLatin1("refusing file name with a zero byte a\0b", 39);
    QTest::newRow("dots in a name are fine") << "a/..b/c.."
                                             << "";
    QTest::newRow("dot component is fine") << "./a/./b"
                                           << "";
}

void tst_PackageArchive::unsafeNames()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    const QString out = path(QStringLiteral("deep/out"));
    QVERIFY(QDir().mkpath(out));
    // Through an archive file, as an attacker would deliver it.
    PackageArchive writer;
    writer.setVersion(2);
    writer.addData("payload", 0644, name);
    writer.save(path(QStringLiteral("evil.pa")));
    PackageArchive archive(path(QStringLiteral("evil.pa")));
    QCOMPARE(message([&] { archive.extractAll(out, true); }), expected);

    // Nothing appeared anywhere but below out.
    QStringList written;
    QDirIterator it(m_dir->path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        if (!file.endsWith(QLatin1String("evil.pa")))
            written.append(file);
    }
    if (expected.isEmpty()) {
        QCOMPARE(written, QStringList(QDir::cleanPath(out + QLatin1Char('/') + name)));
    } else {
        QCOMPARE(written, QStringList());
    }
}

void tst_PackageArchive::symbolicLinks()
{
    const QString out = path(QStringLiteral("out"));
    const QString outside = path(QStringLiteral("outside"));
    QVERIFY(QDir().mkpath(out + QStringLiteral("/real")));
    QVERIFY(QDir().mkpath(outside));
    writeFile(outside + QStringLiteral("/victim"), "precious");
    QVERIFY(QFile::link(outside, out + QStringLiteral("/escape")));
    QVERIFY(QFile::link(QStringLiteral("../.."), out + QStringLiteral("/real/up")));
    QVERIFY(QFile::link(QStringLiteral("real"), out + QStringLiteral("/inside")));
    QVERIFY(QFile::link(path(QStringLiteral("nowhere")), out + QStringLiteral("/dangling")));
    QVERIFY(QFile::link(outside + QStringLiteral("/victim"), out + QStringLiteral("/victim")));

    PackageArchive archive;
    const auto extract = [&](const QString &name, bool overwrite) {
        return message([&] { archive.extract(archive.addData("evil", 0644, name), out, overwrite); });
    };
    const QString refused = QStringLiteral("refusing file name that leads through a symbolic link ");
    QCOMPARE(extract(QStringLiteral("escape/victim"), true), refused + QStringLiteral("escape/victim"));
    QCOMPARE(extract(QStringLiteral("escape/new"), true), refused + QStringLiteral("escape/new"));
    QCOMPARE(extract(QStringLiteral("real/up/x"), true), refused + QStringLiteral("real/up/x"));
    QCOMPARE(extract(QStringLiteral("dangling/x"), true), refused + QStringLiteral("dangling/x"));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("nowhere"))));
    QCOMPARE(QDir(outside).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList("victim"));

    // Even a link that stays inside the folder is not followed.
    QCOMPARE(extract(QStringLiteral("inside/ok"), false), refused + QStringLiteral("inside/ok"));
    QVERIFY(!QFileInfo::exists(out + QStringLiteral("/real/ok")));

    // A link in the place of the file itself is replaced, never followed.
    QCOMPARE(
        extract(QStringLiteral("victim"), false), QStringLiteral("cannot overwrite file ") + out + "/victim");
    QCOMPARE(extract(QStringLiteral("victim"), true), QString());
    QVERIFY(!QFileInfo(out + QStringLiteral("/victim")).isSymLink());
    QCOMPARE(readAll(out + QStringLiteral("/victim")), QByteArray("evil"));
    QCOMPARE(readAll(outside + QStringLiteral("/victim")), QByteArray("precious"));
    // extractToFile does not follow a link at the file either.
    QVERIFY(QFile::link(outside + QStringLiteral("/victim"), out + QStringLiteral("/second")));
    archive.extractToFile(archive.member(0), out + QStringLiteral("/second"), true);
    QCOMPARE(readAll(outside + QStringLiteral("/victim")), QByteArray("precious"));
}

void tst_PackageArchive::unsafeMemberStopsExtractAll()
{
    PackageArchive archive;
    archive.addData("1", 0644, QStringLiteral("first"));
    archive.addData("2", 0644, QStringLiteral("../second"));
    archive.addData("3", 0644, QStringLiteral("third"));
    const QString out = path(QStringLiteral("out"));
    QCOMPARE(message([&] { archive.extractAll(out, false); }),
        QStringLiteral("refusing file name with a .. component ../second"));
    QCOMPARE(QDir(out).entryList(QDir::Files), QStringList("first"));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("second"))));
}

void tst_PackageArchive::unprivileged()
{
    if (::geteuid() == 0)
        QSKIP("needs a user that file permissions apply to (run by its own CTest entry)");
    const QString archiveFile = path(QStringLiteral("a.pa"));
    PackageArchive writer;
    writer.addData("x", 0644, QStringLiteral("x"));
    writer.save(archiveFile);
    QVERIFY(::chmod(QFile::encodeName(archiveFile).constData(), 0) == 0);
    QCOMPARE(
        message([&] { PackageArchive reader(archiveFile); }), QStringLiteral("cannot read ") + archiveFile);
    QCOMPARE(message([&] { writer.addFile(archiveFile, QStringLiteral("y")); }),
        QStringLiteral("cannot read ") + archiveFile);

    const QString source = path(QStringLiteral("source"));
    writeFile(source, "secret");
    const PackageArchiveFile member = writer.addFile(source, QStringLiteral("secret"));
    QVERIFY(::chmod(QFile::encodeName(source).constData(), 0) == 0);
    QCOMPARE(message([&] { writer.data(member); }), QStringLiteral("cannot read file secret"));

    const QString locked = path(QStringLiteral("locked"));
    QVERIFY(QDir().mkpath(locked));
    QVERIFY(::chmod(QFile::encodeName(locked).constData(), 0555) == 0);
    QCOMPARE(message([&] { writer.extract(writer.member(0), locked, false); }),
        QStringLiteral("cannot create output file ") + locked + QStringLiteral("/x"));
    QCOMPARE(message([&] { writer.save(locked + QStringLiteral("/a.pa")); }),
        QStringLiteral("cannot open output file"));

    // Someone else's file that may be written but not removed: the bytes go
    // in, the mode cannot be set.
    const QString shared = qEnvironmentVariable("SETUP_TEST_SHARED_FOLDER");
    if (shared.isEmpty())
        QSKIP("no shared folder prepared by root");
    const PackageArchiveFile replacement = writer.addData("new", 0644, QStringLiteral("shared-file"));
    QCOMPARE(message([&] { writer.extract(replacement, shared, true); }),
        QStringLiteral("cannot set mode of output file ") + shared + QStringLiteral("/shared-file"));
    QCOMPARE(readAll(shared + QStringLiteral("/shared-file")), QByteArray("new"));
}

QTEST_GUILESS_MAIN(tst_PackageArchive)
#include "tst_packagearchive.moc"
