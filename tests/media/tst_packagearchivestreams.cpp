#include "core/hexception.h"
#include "media/packagearchivecompressedbzinputfile.h"
#include "media/packagearchivecompressedbzoutputfile.h"
#include "media/packagearchivecompressedgzinputfile.h"
#include "media/packagearchivecompressedgzoutputfile.h"
#include "tests/media/filesizelimit.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <memory>

namespace {

enum Kind { Zlib, Bzip2 };

QByteArray sample(qsizetype size, quint32 seed)
{
    // Half random, half repetitive: both compressors have work to do.
    QRandomGenerator random(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = (i / 4096) % 2 ? char(random.bounded(256)) : char('a' + i % 7);
    return bytes;
}

FILE *openFile(const QString &path, const char *mode)
{
    FILE *file = std::fopen(QFile::encodeName(path).constData(), mode);
    if (!file)
        qFatal("cannot open %s", qPrintable(path));
    return file;
}

std::unique_ptr<PackageArchiveCompressedOutputFile> output(Kind kind, FILE *file, quint32 level)
{
    if (kind == Zlib)
        return std::make_unique<PackageArchiveCompressedGzOutputFile>(file, level);
    return std::make_unique<PackageArchiveCompressedBzOutputFile>(file, level);
}

std::unique_ptr<PackageArchiveCompressedInputFile> input(Kind kind, FILE *file)
{
    if (kind == Zlib)
        return std::make_unique<PackageArchiveCompressedGzInputFile>(file);
    return std::make_unique<PackageArchiveCompressedBzInputFile>(file);
}

void writeCompressed(Kind kind, const QString &path, const QByteArray &bytes, quint32 level = 6)
{
    auto stream = output(kind, openFile(path, "wb"), level);
    for (qsizetype done = 0; done < bytes.size(); done += 5000) {
        const qint32 n = qint32(qMin<qsizetype>(5000, bytes.size() - done));
        QCOMPARE(stream->write(bytes.constData() + done, n), n);
    }
    stream->finish();
    QVERIFY(stream->close());
}

QString message(const std::function<void()> &action)
{
    try {
        action();
    } catch (const HException &error) {
        return error.message();
    }
    return QString();
}

} // namespace

class tst_PackageArchiveStreams : public QObject
{
    Q_OBJECT

private slots:
    void plainStreamCountsWholeBlocks();
    void roundTrip_data();
    void roundTrip();
    void zlibOutputIsAZlibStream();
    void seek_data();
    void seek();
    void readFailures_data();
    void readFailures();
    void cannotInitialise();
    void writeFailures_data();
    void writeFailures();

private:
    QTemporaryDir m_dir;
};

void tst_PackageArchiveStreams::plainStreamCountsWholeBlocks()
{
    const QString path = m_dir.filePath(QStringLiteral("plain"));
    {
        PackageArchiveIOFile out(openFile(path, "wb"));
        const QByteArray record(1040, 'r');
        QCOMPARE(out.write(record.constData(), 1040), 1);
        QCOMPARE(out.write(record.constData(), 0), 0);
    }
    PackageArchiveIOFile in(openFile(path, "rb"));
    char buffer[2000];
    QCOMPARE(in.read(buffer, 1040), 1);
    QCOMPARE(in.seek(1000), 0);
    // Only 40 bytes are left: a partial block counts as nothing.
    QCOMPARE(in.read(buffer, 41), 0);
    QCOMPARE(in.seek(0), 0);
    QCOMPARE(in.read(buffer, 1), 1);
    QCOMPARE(buffer[0], 'r');
}

void tst_PackageArchiveStreams::roundTrip_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("level");
    for (const int kind : { Zlib, Bzip2 }) {
        const char *name = kind == Zlib ? "zlib" : "bzip2";
        QTest::addRow("%s empty", name) << kind << 0 << 1;
        QTest::addRow("%s one byte", name) << kind << 1 << 9;
        QTest::addRow("%s exactly one chunk", name) << kind << 16384 << 5;
        QTest::addRow("%s several chunks", name) << kind << 300001 << 1;
    }
    QTest::addRow("zlib stored") << int(Zlib) << 70000 << 0;
}

void tst_PackageArchiveStreams::roundTrip()
{
    QFETCH(int, kind);
    QFETCH(int, size);
    QFETCH(int, level);
    const QString path = m_dir.filePath(QStringLiteral("round"));
    const QByteArray bytes = sample(size, quint32(size));
    writeCompressed(Kind(kind), path, bytes, quint32(level));

    auto stream = input(Kind(kind), openFile(path, "rb"));
    QByteArray back(size, Qt::Uninitialized);
    // Odd read sizes cross the 16384-byte steps of the decompressor.
    for (qsizetype done = 0; done < size;) {
        const qint32 n = qint32(qMin<qsizetype>(12345, size - done));
        QCOMPARE(stream->read(back.data() + done, n), n);
        done += n;
    }
    QCOMPARE(back, bytes);
    QCOMPARE(stream->position(), quint64(size));
    char none;
    QCOMPARE(stream->read(&none, 0), 0);
    // A valid stream is decoded in parallel to its end, never by libbz2's reader.
    if (kind == Bzip2)
        QCOMPARE(static_cast<PackageArchiveCompressedBzInputFile &>(*stream).fallbacks(), 0);
}

void tst_PackageArchiveStreams::zlibOutputIsAZlibStream()
{
    const QString path = m_dir.filePath(QStringLiteral("zlib"));
    const QByteArray bytes = sample(50000, 3);
    writeCompressed(Zlib, path, bytes);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    // qUncompress takes a zlib stream behind a big-endian length.
    QByteArray framed(4, '\0');
    qToBigEndian<quint32>(quint32(bytes.size()), framed.data());
    QCOMPARE(qUncompress(framed + file.readAll()), bytes);
}

void tst_PackageArchiveStreams::seek_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("zlib") << int(Zlib);
    QTest::newRow("bzip2") << int(Bzip2);
}

void tst_PackageArchiveStreams::seek()
{
    QFETCH(int, kind);
    const QString path = m_dir.filePath(QStringLiteral("seek"));
    const QByteArray bytes = sample(100000, 11);
    // The compressed data starts behind a prefix: seeking back returns there.
    {
        FILE *file = openFile(path, "wb");
        std::fputs("prefix", file);
        auto stream = output(Kind(kind), file, 9);
        stream->write(bytes.constData(), qint32(bytes.size()));
        stream->finish();
    }
    FILE *file = openFile(path, "rb");
    std::fseek(file, 6, SEEK_SET);
    auto stream = input(Kind(kind), file);
    char buffer[100];
    QCOMPARE(stream->seek(40000), 0);
    QCOMPARE(stream->position(), quint64(40000));
    QCOMPARE(stream->seek(40000), 0);
    QCOMPARE(stream->read(buffer, 100), 100);
    QCOMPARE(QByteArray(buffer, 100), bytes.mid(40000, 100));
    QCOMPARE(stream->seek(40099), 0);
    QCOMPARE(stream->read(buffer, 10), 10);
    QCOMPARE(QByteArray(buffer, 10), bytes.mid(40099, 10));
    QCOMPARE(stream->seek(0), 0);
    QCOMPARE(stream->read(buffer, 100), 100);
    QCOMPARE(QByteArray(buffer, 100), bytes.left(100));
    QCOMPARE(stream->seek(99990), 0);
    QCOMPARE(stream->read(buffer, 10), 10);
    QCOMPARE(QByteArray(buffer, 10), bytes.right(10));
    if (kind == Bzip2)
        QCOMPARE(static_cast<PackageArchiveCompressedBzInputFile &>(*stream).fallbacks(), 0);
}

void tst_PackageArchiveStreams::readFailures_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("damage");
    QTest::addColumn<QString>("expected");
    QTest::newRow("zlib past the end") << int(Zlib) << "none"
                                       << "error reading stream";
    QTest::newRow("zlib past the end with more file behind") << int(Zlib) << "append"
                                                             << "error reading stream";
    QTest::newRow("zlib truncated") << int(Zlib) << "truncate"
                                    << "error reading stream";
    QTest::newRow("zlib corrupted") << int(Zlib) << "corrupt"
                                    << "error reading from compressed stream";
    QTest::newRow("bzip2 past the end") << int(Bzip2) << "none"
                                        << "error reading from compressed stream";
    QTest::newRow("bzip2 truncated") << int(Bzip2) << "truncate"
                                     << "error reading from compressed stream";
    QTest::newRow("bzip2 corrupted") << int(Bzip2) << "corrupt"
                                     << "error reading from compressed stream";
}

void tst_PackageArchiveStreams::readFailures()
{
    QFETCH(int, kind);
    QFETCH(QString, damage);
    QFETCH(QString, expected);
    const QString path = m_dir.filePath(QStringLiteral("damaged"));
    const QByteArray bytes = sample(40000, 5);
    writeCompressed(Kind(kind), path, bytes);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QByteArray compressed = file.readAll();
    if (damage == QLatin1String("truncate")) {
        compressed.chop(compressed.size() / 2);
    } else if (damage == QLatin1String("corrupt")) {
        for (int i = 100; i < 140; ++i)
            compressed[i] = char(compressed[i] ^ 0x33);
    } else if (damage == QLatin1String("append")) {
        compressed += QByteArray(50000, 'z');
    }
    file.resize(0);
    file.write(compressed);
    file.close();

    auto stream = input(Kind(kind), openFile(path, "rb"));
    QByteArray back(bytes.size() + 1, Qt::Uninitialized);
    QCOMPARE(message([&] { stream->read(back.data(), qint32(back.size())); }), expected);
}

void tst_PackageArchiveStreams::cannotInitialise()
{
    // libbz2 accepts block sizes 1 to 9 only; zlib levels 0 to 9.
    const QString path = m_dir.filePath(QStringLiteral("init"));
    QCOMPARE(message([&] { PackageArchiveCompressedBzOutputFile(openFile(path, "wb"), 0); }),
        QStringLiteral("cannot initialise deflate"));
    QCOMPARE(message([&] { PackageArchiveCompressedBzOutputFile(openFile(path, "wb"), 10); }),
        QStringLiteral("cannot initialise deflate"));
    QCOMPARE(message([&] { PackageArchiveCompressedGzOutputFile(openFile(path, "wb"), 10); }),
        QStringLiteral("cannot initialise deflate"));
    // A file that is not open for reading has its error flag set by the first
    // read; libbz2 refuses to start on it.
    QCOMPARE(message([&] {
        FILE *file = openFile(path, "wb");
        char byte;
        QCOMPARE(std::fread(&byte, 1, 1, file), size_t(0));
        PackageArchiveCompressedBzInputFile stream(file);
    }),
        QStringLiteral("cannot initialise inflate"));
}

void tst_PackageArchiveStreams::writeFailures_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("failsAt");
    QTest::addColumn<QString>("expected");
    // zlib compresses 1 MiB segments on its threads and writes each in turn
    // once more than four are under way, the rest when finishing, through the
    // file's buffer, which only closing empties.
    QTest::newRow("zlib while writing") << int(Zlib) << (6 << 20) << "write"
                                        << "error writing to compressed stream";
    QTest::newRow("zlib when closing") << int(Zlib) << 3000 << "close"
                                       << "";
    // bzip2 writes each finished block (of 99 981 bytes at level 1) once more
    // than four are under way, and flushes the file itself when finishing.
    QTest::newRow("bzip2 while writing") << int(Bzip2) << 600000 << "write"
                                         << "error writing to compressed stream";
    QTest::newRow("bzip2 when finishing") << int(Bzip2) << 3000 << "finish"
                                          << "error compressing stream";
}

void tst_PackageArchiveStreams::writeFailures()
{
    QFETCH(int, kind);
    QFETCH(int, size);
    QFETCH(QString, failsAt);
    QFETCH(QString, expected);
    const QString path = m_dir.filePath(QStringLiteral("full"));
    const QByteArray bytes = sample(size, 9);
    FileSizeLimit limit(10);
    auto stream = output(Kind(kind), openFile(path, "wb"), 1);
    QString failure = message([&] { stream->write(bytes.constData(), qint32(bytes.size())); });
    QString step = QStringLiteral("write");
    if (failure.isEmpty()) {
        step = QStringLiteral("finish");
        failure = message([&] { stream->finish(); });
    }
    if (failure.isEmpty()) {
        step = QStringLiteral("close");
        QVERIFY(!stream->close());
    }
    QCOMPARE(step, failsAt);
    QCOMPARE(failure, expected);
}

QTEST_GUILESS_MAIN(tst_PackageArchiveStreams)
#include "tst_packagearchivestreams.moc"
