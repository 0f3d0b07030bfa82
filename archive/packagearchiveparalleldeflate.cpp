#include "archive/packagearchiveparalleldeflate.h"

#include "core/hexception.h"

#include <zlib.h>

namespace {

// Big enough that the sync flush at each end costs nothing measurable, small
// enough that two threads stay busy on a modest body.
const int SegmentSize = 1 << 20;
const int WindowSize = 32768;

} // namespace

struct PackageArchiveParallelDeflate::Segment
{
    QByteArray input;
    qint64 length = 0;
    QByteArray dictionary;
    bool last = false;
    QByteArray output;
    quint32 adler = 1;
    bool failed = false;
};

PackageArchiveParallelDeflate::PackageArchiveParallelDeflate(FILE *file, int level, int threads)
    : m_file(file)
    , m_level(level)
    , m_work(threads, [this] {
        return [this](Segment &segment) {
            compress(segment);
        };
    })
{
    m_pending.reserve(SegmentSize);
}

void PackageArchiveParallelDeflate::write(const char *data, qint64 size)
{
    while (size > 0) {
        const int take = int(qMin<qint64>(size, SegmentSize - m_pending.size()));
        m_pending.append(data, take);
        data += take;
        size -= take;
        if (m_pending.size() == SegmentSize)
            submit(false);
    }
}

void PackageArchiveParallelDeflate::finish()
{
    submit(true);
    while (!m_work.empty())
        writeOldest();
    if (!m_headerWritten)
        throw HException(QStringLiteral("error compressing stream"));
    const uchar trailer[4]
        = { uchar(m_adler >> 24), uchar(m_adler >> 16), uchar(m_adler >> 8), uchar(m_adler) };
    writeOut(reinterpret_cast<const char *>(trailer), sizeof trailer);
}

void PackageArchiveParallelDeflate::submit(bool last)
{
    auto segment = std::make_shared<Segment>();
    segment->input = m_pending;
    segment->length = m_pending.size();
    segment->dictionary = m_dictionary;
    segment->last = last;
    m_dictionary = m_pending.right(WindowSize);
    m_pending.clear();
    m_pending.reserve(SegmentSize);
    while (m_work.full())
        writeOldest();
    // A body that fits one segment needs no thread at all.
    if (!m_work.started() && last) {
        compress(*segment);
        m_work.addDone(segment);
        return;
    }
    m_work.add(segment);
}

void PackageArchiveParallelDeflate::writeOldest()
{
    const std::shared_ptr<Segment> segment = m_work.takeOldest();
    if (segment->failed)
        throw HException(QStringLiteral("error compressing stream"));
    if (!m_headerWritten) {
        // What deflate itself writes at this level: CM 8, a 32 KiB window,
        // the level's flag, no dictionary, checked by 31.
        const int levelFlag = m_level < 2 ? 0 : m_level < 6 ? 1 : m_level == 6 ? 2 : 3;
        quint16 header = quint16(0x78 << 8 | levelFlag << 6);
        header = quint16(header + 31 - header % 31);
        const char bytes[2] = { char(header >> 8), char(header & 0xFF) };
        writeOut(bytes, 2);
        m_headerWritten = true;
    }
    writeOut(segment->output.constData(), size_t(segment->output.size()));
    m_adler = quint32(adler32_combine(m_adler, segment->adler, z_off_t(segment->length)));
}

void PackageArchiveParallelDeflate::writeOut(const char *data, size_t size)
{
    if (size > 0 && std::fwrite(data, 1, size, m_file) != size)
        throw HException(QStringLiteral("error writing to compressed stream"));
}

void PackageArchiveParallelDeflate::compress(Segment &segment) const
{
    segment.adler = quint32(
        adler32(1, reinterpret_cast<const Bytef *>(segment.input.constData()), uInt(segment.input.size())));
    z_stream stream {};
    if (deflateInit2(&stream, m_level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        segment.failed = true;
        return;
    }
    if (!segment.dictionary.isEmpty()
        && deflateSetDictionary(&stream, reinterpret_cast<const Bytef *>(segment.dictionary.constData()),
               uInt(segment.dictionary.size()))
            != Z_OK) {
        deflateEnd(&stream);
        segment.failed = true;
        return;
    }
    // Room for the worst case and the flush marker, so one call does it all.
    segment.output.resize(int(deflateBound(&stream, uLong(segment.input.size())) + 64));
    stream.next_in = reinterpret_cast<Bytef *>(segment.input.data());
    stream.avail_in = uInt(segment.input.size());
    stream.next_out = reinterpret_cast<Bytef *>(segment.output.data());
    stream.avail_out = uInt(segment.output.size());
    const int result = deflate(&stream, segment.last ? Z_FINISH : Z_SYNC_FLUSH);
    const bool ok = segment.last ? result == Z_STREAM_END : result == Z_OK && stream.avail_out > 0;
    segment.output.resize(int(segment.output.size() - int(stream.avail_out)));
    deflateEnd(&stream);
    segment.failed = !ok || stream.avail_in != 0;
    segment.input = QByteArray();
    segment.dictionary = QByteArray();
}
