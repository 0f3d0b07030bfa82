// Seeking into a compressed body without starting over, the parallel bzip2
// decoder against libbz2's own sequential reader, and parallel zlib output
// read by zlib's one-stream reader and Python's.
#include "core/hexception.h"
#include "media/packagearchivecompressedbzinputfile.h"
#include "media/packagearchivecompressedbzoutputfile.h"
#include "media/packagearchivecompressedgzinputfile.h"
#include "media/packagearchivecompressedgzoutputfile.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <bzlib.h>
#include <memory>
#include <zlib.h>

namespace {

enum Kind { Zlib, Bzip2 };

// Runs of random bytes and of text, as in a product: both compressors work.
QByteArray sample(qsizetype size, quint32 seed)
{
    QRandomGenerator random(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = (i / 5000) % 3 == 0 ? char(random.bounded(256)) : char('a' + (i * 7 + i / 13) % 26);
    return bytes;
}

// Data that takes the bzip2 encoder's unusual paths.
QByteArray shaped(const QString &shape, qsizetype size)
{
    QRandomGenerator random(7);
    QByteArray bytes;
    bytes.reserve(size + 4096);
    if (shape == QLatin1String("sample"))
        return sample(size, 3);
    if (shape == QLatin1String("zeros"))
        return QByteArray(size, '\0');
    if (shape == QLatin1String("random")) {
        while (bytes.size() < size)
            bytes.append(char(random.bounded(256)));
    } else if (shape == QLatin1String("runs")) {
        // Runs of 1 to 300 bytes: around 4, 255 and 256 in particular.
        for (int length = 1; bytes.size() < size; length = length % 300 + 1)
            bytes.append(QByteArray(length, char(length)));
    } else if (shape == QLatin1String("copies")) {
        // Random bytes and stretches of 100 to 3,000 bytes copied from
        // earlier, as in machine code.
        while (bytes.size() < size) {
            if (bytes.size() > 8192 && random.bounded(2)) {
                const qsizetype from = random.bounded(int(bytes.size() - 4096));
                bytes.append(bytes.mid(from, 100 + random.bounded(2900)));
            } else {
                for (int i = 0; i < 1000; ++i)
                    bytes.append(char(random.bounded(256)));
            }
        }
    } else if (shape == QLatin1String("twice")) {
        while (bytes.size() < size / 2)
            bytes.append(char(random.bounded(256)));
        bytes.append(bytes);
    } else if (shape == QLatin1String("repeats")) {
        // A 4 KiB stretch over and over, a different byte between copies.
        QByteArray stretch;
        while (stretch.size() < 4096)
            stretch.append(char(random.bounded(256)));
        for (int copy = 0; bytes.size() < size; ++copy)
            bytes.append(stretch).append(char(copy));
    } else {
        while (bytes.size() < size)
            bytes.append(shape.toLatin1());
    }
    bytes.truncate(size);
    return bytes;
}

FILE *openFile(const QString &path, const char *mode)
{
    FILE *file = std::fopen(QFile::encodeName(path).constData(), mode);
    if (!file)
        qFatal("cannot open %s", qPrintable(path));
    return file;
}

// Counts what the stream decompresses and how often it starts from the beginning.
template<class Base> class Counting : public Base
{
public:
    explicit Counting(FILE *file)
        : Base(file)
    { }
    int starts = 0;
    quint64 produced = 0;

protected:
    void init() override
    {
        ++starts;
        Base::init();
    }
    void readChunk(char *buffer, qint32 size) override
    {
        produced += quint64(size);
        Base::readChunk(buffer, size);
    }
};

std::unique_ptr<PackageArchiveCompressedInputFile> input(Kind kind, FILE *file)
{
    if (kind == Zlib)
        return std::make_unique<Counting<PackageArchiveCompressedGzInputFile>>(file);
    return std::make_unique<Counting<PackageArchiveCompressedBzInputFile>>(file);
}

template<class Stream> void counts(PackageArchiveCompressedInputFile &stream, int &starts, quint64 &produced)
{
    if (auto *counting = dynamic_cast<Counting<Stream> *>(&stream)) {
        starts = counting->starts;
        produced = counting->produced;
    }
}

void counts(PackageArchiveCompressedInputFile &stream, int &starts, quint64 &produced)
{
    counts<PackageArchiveCompressedGzInputFile>(stream, starts, produced);
    counts<PackageArchiveCompressedBzInputFile>(stream, starts, produced);
}

void writeCompressed(Kind kind, const QString &path, const QByteArray &bytes, quint32 level)
{
    std::unique_ptr<PackageArchiveCompressedOutputFile> stream;
    if (kind == Zlib)
        stream = std::make_unique<PackageArchiveCompressedGzOutputFile>(openFile(path, "wb"), level);
    else
        stream = std::make_unique<PackageArchiveCompressedBzOutputFile>(openFile(path, "wb"), level);
    QCOMPARE(stream->write(bytes.constData(), qint32(bytes.size())), qint32(bytes.size()));
    stream->finish();
    QVERIFY(stream->close());
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(path));
    return file.readAll();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

// Reads in 16 KiB steps until the stream fails or size bytes came; returns
// how many came and the failure's message.
QPair<qint64, QString> readUntilFailure(
    PackageArchiveCompressedInputFile &stream, qint64 size, QByteArray *out)
{
    char buffer[16384];
    qint64 done = 0;
    try {
        while (done < size) {
            const qint32 want = qint32(qMin<qint64>(sizeof buffer, size - done));
            stream.read(buffer, want);
            if (out)
                out->append(buffer, want);
            done += want;
        }
    } catch (const HException &error) {
        return { done, error.message() };
    }
    return { done, QString() };
}

// The same with libbz2's stdio reader, the reference for a damaged stream.
QPair<qint64, QString> referenceRead(const QString &path, qint64 size, QByteArray *out)
{
    FILE *file = openFile(path, "rb");
    int error = BZ_OK;
    BZFILE *handle = BZ2_bzReadOpen(&error, file, 0, 0, nullptr, 0);
    char buffer[16384];
    qint64 done = 0;
    QString message;
    while (done < size) {
        const int want = int(qMin<qint64>(sizeof buffer, size - done));
        const int got = BZ2_bzRead(&error, handle, buffer, want);
        if (got != want || (error != BZ_OK && error != BZ_STREAM_END)) {
            message = QStringLiteral("error reading from compressed stream");
            break;
        }
        out->append(buffer, want);
        done += want;
    }
    BZ2_bzReadClose(&error, handle);
    std::fclose(file);
    return { done, message };
}

} // namespace

class tst_PackageArchiveResume : public QObject
{
    Q_OBJECT

private slots:
    void randomAccess_data();
    void randomAccess();
    void parallelBzip2_data();
    void parallelBzip2();
    void damagedBzip2_data();
    void damagedBzip2();
    void parallelZlibOutput_data();
    void parallelZlibOutput();

private:
    QTemporaryDir m_dir;
};

void tst_PackageArchiveResume::randomAccess_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<quint32>("level");
    QTest::newRow("zlib") << int(Zlib) << 6u;
    // 100 000-byte blocks: many places to resume at.
    QTest::newRow("bzip2 level 1") << int(Bzip2) << 1u;
}

void tst_PackageArchiveResume::randomAccess()
{
    QFETCH(int, kind);
    QFETCH(quint32, level);
    const QByteArray bytes = sample(6 << 20, 7);
    const QString path = m_dir.filePath(QStringLiteral("random-%1").arg(kind));
    writeCompressed(Kind(kind), path, bytes, level);

    auto stream = input(Kind(kind), openFile(path, "rb"));
    // One pass forwards leaves the places behind.
    QByteArray all;
    QCOMPARE(readUntilFailure(*stream, bytes.size(), &all).second, QString());
    QVERIFY(all == bytes);

    int starts = 0;
    quint64 produced = 0;
    counts(*stream, starts, produced);
    QCOMPARE(starts, 0);
    const quint64 afterPass = produced;

    // Backwards and forwards past the first megabyte: never from the start,
    // and never much more than the bytes asked for plus one gap between places.
    QRandomGenerator random(11);
    const int seeks = 60;
    for (int i = 0; i < seeks; ++i) {
        const qint64 at = (1 << 20) + qint64(random.bounded(bytes.size() - (1 << 20) - 1000));
        QCOMPARE(stream->seek(at), 0);
        QByteArray piece(1000, Qt::Uninitialized);
        QCOMPARE(stream->read(piece.data(), 1000), 1000);
        QVERIFY2(piece == bytes.mid(at, 1000), qPrintable(QStringLiteral("at %1").arg(at)));
    }
    counts(*stream, starts, produced);
    QCOMPARE(starts, 0);
    QVERIFY2(produced - afterPass <= quint64(seeks) * ((1 << 20) + 1000),
        qPrintable(QStringLiteral("%1 bytes for %2 seeks").arg(produced - afterPass).arg(seeks)));

    // Behind the first place, the start is the only way back.
    QCOMPARE(stream->seek(10), 0);
    QByteArray head(5, Qt::Uninitialized);
    QCOMPARE(stream->read(head.data(), 5), 5);
    QCOMPARE(head, bytes.mid(10, 5));
    counts(*stream, starts, produced);
    QCOMPARE(starts, 1);
}

void tst_PackageArchiveResume::parallelBzip2_data()
{
    QTest::addColumn<quint32>("level");
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<QString>("shape");
    QTest::newRow("one block") << 9u << qsizetype(50000) << "sample";
    QTest::newRow("many blocks") << 1u << qsizetype(3 << 20) << "sample";
    QTest::newRow("empty") << 9u << qsizetype(0) << "sample";
    // Long runs shrink to a fiftieth in the run-length stage: one block
    // holds many segments' worth.
    QTest::newRow("zeros") << 1u << qsizetype(4 << 20) << "zeros";
    // Runs of four grow by a quarter: a segment no longer fits one block.
    QTest::newRow("runs of four") << 1u << qsizetype(1 << 20) << "aaaab";
    QTest::newRow("runs of every length") << 1u << qsizetype(1 << 20) << "runs";
    // Rotations equal all the way round, or to thousands of bytes: sorting
    // them must end, and ties must not matter.
    QTest::newRow("one byte") << 9u << qsizetype(1) << "zeros";
    QTest::newRow("three equal bytes") << 9u << qsizetype(3) << "zeros";
    QTest::newRow("a run of exactly four") << 9u << qsizetype(4) << "zeros";
    QTest::newRow("period of two") << 9u << qsizetype(1000000) << "ab";
    QTest::newRow("period of seven") << 1u << qsizetype(300000) << "abcdefg";
    QTest::newRow("long repeats") << 2u << qsizetype(1 << 20) << "repeats";
    // A stretch that occurs twice makes pairs of rotations that tie for as
    // long as it lasts; a block that is one stretch twice ties them all the
    // way round.
    QTest::newRow("stretches copied") << 9u << qsizetype(3 << 20) << "copies";
    QTest::newRow("a stretch twice") << 9u << qsizetype(1 << 20) << "twice";
    QTest::newRow("a block of one stretch twice") << 9u << qsizetype(600000) << "twice";
    QTest::newRow("random, every byte value") << 9u << qsizetype(2 << 20) << "random";
}

void tst_PackageArchiveResume::parallelBzip2()
{
    QFETCH(quint32, level);
    QFETCH(qsizetype, size);
    QFETCH(QString, shape);
    const QByteArray bytes = shaped(shape, size);
    const QString path = m_dir.filePath(QStringLiteral("parallel"));
    writeCompressed(Bzip2, path, bytes, level);

    auto stream = input(Bzip2, openFile(path, "rb"));
    QByteArray all;
    QCOMPARE(readUntilFailure(*stream, bytes.size(), &all), qMakePair(qint64(bytes.size()), QString()));
    QVERIFY(all == bytes);
    // Past the end, the same failure as libbz2's reader.
    QCOMPARE(
        readUntilFailure(*stream, 1, nullptr).second, QStringLiteral("error reading from compressed stream"));

    // Written on several threads, it is still one stream for libbz2's
    // one-call reader and Python's, which refuse anything behind it.
    const QByteArray coded = readFile(path);
    QByteArray decoded(qMax<qsizetype>(bytes.size(), 1), Qt::Uninitialized);
    unsigned decodedSize = unsigned(decoded.size());
    QCOMPARE(BZ2_bzBuffToBuffDecompress(decoded.data(), &decodedSize, const_cast<char *>(coded.constData()),
                 unsigned(coded.size()), 0, 0),
        BZ_OK);
    QVERIFY(decoded.left(qsizetype(decodedSize)) == bytes);
    QProcess python;
    python.start(QStringLiteral("python3"),
        { QStringLiteral("-c"),
            QStringLiteral("import sys, bz2\n"
                           "d = bz2.BZ2Decompressor()\n"
                           "out = d.decompress(open(sys.argv[1], 'rb').read())\n"
                           "assert d.eof and not d.unused_data\n"
                           "sys.stdout.buffer.write(out)"),
            path });
    QVERIFY(python.waitForFinished(60000));
    QCOMPARE(python.exitCode(), 0);
    QVERIFY(python.readAllStandardOutput() == bytes);

    // The bzip2 command reads what was written, and we read what it writes.
    QProcess bzip2;
    bzip2.start(QStringLiteral("bzip2"), { QStringLiteral("-dc"), path });
    QVERIFY(bzip2.waitForFinished(60000));
    QVERIFY(bzip2.readAllStandardOutput() == bytes);
    bzip2.start(QStringLiteral("bzip2"), { QStringLiteral("-c"), QStringLiteral("-%1").arg(level) });
    QVERIFY(bzip2.waitForStarted());
    bzip2.write(bytes);
    bzip2.closeWriteChannel();
    QVERIFY(bzip2.waitForFinished(60000));
    const QString theirs = m_dir.filePath(QStringLiteral("theirs.bz2"));
    writeFile(theirs, bzip2.readAllStandardOutput());
    auto reader = input(Bzip2, openFile(theirs, "rb"));
    all.clear();
    QCOMPARE(readUntilFailure(*reader, bytes.size(), &all).second, QString());
    QVERIFY(all == bytes);
}

void tst_PackageArchiveResume::damagedBzip2_data()
{
    QTest::addColumn<QString>("damage");
    QTest::newRow("a block's bits") << "block";
    QTest::newRow("the stream's CRC") << "stream crc";
    QTest::newRow("cut short") << "cut";
    QTest::newRow("not bzip2") << "header";
    QTest::newRow("two streams") << "concatenated";
}

void tst_PackageArchiveResume::damagedBzip2()
{
    QFETCH(QString, damage);
    const QByteArray bytes = sample(2 << 20, 5);
    const QString path = m_dir.filePath(QStringLiteral("damaged"));
    writeCompressed(Bzip2, path, bytes, 1);
    QByteArray coded = readFile(path);
    if (damage == QLatin1String("block"))
        coded[coded.size() / 2] = char(coded[coded.size() / 2] ^ 0x10);
    else if (damage == QLatin1String("stream crc"))
        coded[coded.size() - 2] = char(coded[coded.size() - 2] ^ 0x01);
    else if (damage == QLatin1String("cut"))
        coded.chop(coded.size() / 3);
    else if (damage == QLatin1String("header"))
        coded[3] = '0';
    else
        coded += coded;
    writeFile(path, coded);

    // The bytes libbz2's own reader delivers, then its failure.
    const qint64 wanted = damage == QLatin1String("concatenated") ? 2 * bytes.size() : bytes.size();
    QByteArray reference;
    const auto expected = referenceRead(path, wanted, &reference);
    QVERIFY(!expected.second.isEmpty());
    auto stream = input(Bzip2, openFile(path, "rb"));
    QByteArray got;
    const auto result = readUntilFailure(*stream, wanted, &got);
    QCOMPARE(result.second, expected.second);
    QCOMPARE(result.first, expected.first);
    QVERIFY(got == reference);
}

void tst_PackageArchiveResume::parallelZlibOutput_data()
{
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<quint32>("level");
    QTest::newRow("empty") << qsizetype(0) << 6u;
    QTest::newRow("small, stored") << qsizetype(100) << 0u;
    QTest::newRow("one segment exactly") << qsizetype(1 << 20) << 1u;
    QTest::newRow("many segments") << qsizetype((7 << 20) + 3) << 6u;
    QTest::newRow("many segments, level 9") << qsizetype((3 << 20) + 1) << 9u;
}

void tst_PackageArchiveResume::parallelZlibOutput()
{
    QFETCH(qsizetype, size);
    QFETCH(quint32, level);
    const QByteArray bytes = sample(size, 17);
    const QString path = m_dir.filePath(QStringLiteral("parallel.z"));
    writeCompressed(Zlib, path, bytes, level);
    const QByteArray coded = readFile(path);

    // The header deflate itself writes at this level.
    QByteArray reference(int(compressBound(10)), Qt::Uninitialized);
    uLongf referenceSize = uLongf(reference.size());
    QCOMPARE(compress2(reinterpret_cast<Bytef *>(reference.data()), &referenceSize,
                 reinterpret_cast<const Bytef *>("x"), 1, int(level)),
        Z_OK);
    QCOMPARE(coded.left(2), reference.left(2));

    // zlib's one-call reader, which wants exactly one stream with its checksum.
    QByteArray decoded(qMax<qsizetype>(size, 1), Qt::Uninitialized);
    uLongf decodedSize = uLongf(decoded.size());
    QCOMPARE(uncompress(reinterpret_cast<Bytef *>(decoded.data()), &decodedSize,
                 reinterpret_cast<const Bytef *>(coded.constData()), uLong(coded.size())),
        Z_OK);
    decoded.resize(qsizetype(decodedSize));
    QVERIFY(decoded == bytes);

    // Python's reader, which refuses anything behind the stream.
    QProcess python;
    python.start(QStringLiteral("python3"),
        { QStringLiteral("-c"),
            QStringLiteral("import sys, zlib\n"
                           "d = zlib.decompressobj()\n"
                           "out = d.decompress(open(sys.argv[1], 'rb').read())\n"
                           "assert d.eof and not d.unused_data\n"
                           "sys.stdout.buffer.write(out)"),
            path });
    QVERIFY(python.waitForFinished(60000));
    QCOMPARE(python.exitCode(), 0);
    QVERIFY(python.readAllStandardOutput() == bytes);

    // And ours.
    auto stream = input(Zlib, openFile(path, "rb"));
    QByteArray all;
    QCOMPARE(readUntilFailure(*stream, size, &all).second, QString());
    QVERIFY(all == bytes);
}

QTEST_GUILESS_MAIN(tst_PackageArchiveResume)
#include "tst_packagearchiveresume.moc"
