#include "media/packagearchiveparallelbzip2.h"

#include "core/hexception.h"

#include <bzlib.h>

namespace {

const quint64 EndMagic = 0x177245385090ULL;

quint64 bitsAt(const uchar *data, size_t length, quint64 from, int count)
{
    const size_t first = size_t(from / 8);
    quint64 word = 0;
    for (size_t i = 0; i < 8; ++i)
        word = word << 8 | (first + i < length ? data[first + i] : 0);
    return (word >> (64 - int(from % 8) - count)) & ((quint64(1) << count) - 1);
}

} // namespace

struct PackageArchiveParallelBzip2::Segment
{
    QByteArray input;
    QByteArray output;
    // The block's bits in output, from bit 32 on, and its CRC.
    quint64 blockBits = 0;
    quint32 crc = 0;
    bool done = false;
    bool failed = false;
};

PackageArchiveParallelBzip2::PackageArchiveParallelBzip2(FILE *file, int level, int threads)
    : m_file(file)
    , m_level(level)
    , m_threads(qMax(1, threads))
    // A block holds 100 000 * level - 19 bytes after the run-length stage,
    // which turns 4 equal bytes into 5 at worst.
    , m_segmentSize((100000 * level - 19) * 4 / 5 - 4)
{
    m_pending.reserve(m_segmentSize);
    m_out.append("BZh", 3);
    m_out.append(char('0' + level));
}

PackageArchiveParallelBzip2::~PackageArchiveParallelBzip2()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_workWake.notify_all();
    for (std::thread &worker : m_workers)
        worker.join();
}

void PackageArchiveParallelBzip2::write(const char *data, qint64 size)
{
    while (size > 0) {
        const int take = int(qMin<qint64>(size, m_segmentSize - m_pending.size()));
        m_pending.append(data, take);
        data += take;
        size -= take;
        if (m_pending.size() == m_segmentSize)
            submit();
    }
}

void PackageArchiveParallelBzip2::finish()
{
    const QString failure = QStringLiteral("error compressing stream");
    if (!m_pending.isEmpty())
        submit();
    while (!m_inOrder.empty())
        writeOldest(failure);
    putValue(EndMagic, 48);
    putValue(m_combinedCrc, 32);
    if (m_partialBits > 0)
        putValue(0, 8 - m_partialBits);
    flushBytes(failure);
    if (std::fflush(m_file) != 0)
        throw HException(failure);
}

void PackageArchiveParallelBzip2::submit()
{
    auto segment = std::make_shared<Segment>();
    segment->input = m_pending;
    m_pending.clear();
    m_pending.reserve(m_segmentSize);
    while (int(m_inOrder.size()) >= 2 * m_threads)
        writeOldest(QStringLiteral("error writing to compressed stream"));
    if (m_workers.empty()) {
        for (int i = 0; i < m_threads; ++i)
            m_workers.emplace_back(&PackageArchiveParallelBzip2::work, this);
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_inOrder.push_back(segment);
        m_queue.push_back(segment);
    }
    m_workWake.notify_one();
}

void PackageArchiveParallelBzip2::writeOldest(const QString &failure)
{
    std::shared_ptr<Segment> segment;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        segment = m_inOrder.front();
        m_doneWake.wait(lock, [&segment] { return segment->done; });
        m_inOrder.pop_front();
    }
    if (segment->failed)
        throw HException(QStringLiteral("error compressing stream"));
    putBits(reinterpret_cast<const uchar *>(segment->output.constData()) + 4, segment->blockBits);
    m_combinedCrc = (m_combinedCrc << 1 | m_combinedCrc >> 31) ^ segment->crc;
    flushBytes(failure);
}

void PackageArchiveParallelBzip2::putBits(const uchar *data, quint64 count)
{
    const size_t whole = size_t(count / 8);
    if (m_partialBits == 0) {
        m_out.append(reinterpret_cast<const char *>(data), qsizetype(whole));
    } else {
        const qsizetype at = m_out.size();
        m_out.resize(at + qsizetype(whole));
        uchar *target = reinterpret_cast<uchar *>(m_out.data()) + at;
        const int shift = m_partialBits;
        uchar carry = m_partial;
        for (size_t i = 0; i < whole; ++i) {
            target[i] = uchar(carry << (8 - shift) | data[i] >> shift);
            carry = uchar(data[i] & ((1u << shift) - 1));
        }
        m_partial = carry;
    }
    const int rest = int(count % 8);
    if (rest > 0)
        putValue(data[whole] >> (8 - rest), rest);
}

void PackageArchiveParallelBzip2::putValue(quint64 value, int count)
{
    for (int i = count - 1; i >= 0; --i) {
        m_partial = uchar(m_partial << 1 | ((value >> i) & 1));
        if (++m_partialBits == 8) {
            m_out.append(char(m_partial));
            m_partial = 0;
            m_partialBits = 0;
        }
    }
}

void PackageArchiveParallelBzip2::flushBytes(const QString &failure)
{
    if (!m_out.isEmpty()
        && std::fwrite(m_out.constData(), 1, size_t(m_out.size()), m_file) != size_t(m_out.size()))
        throw HException(failure);
    m_out.clear();
}

void PackageArchiveParallelBzip2::compress(Segment &segment)
{
    const unsigned capacity = unsigned(segment.input.size() + segment.input.size() / 100 + 600);
    segment.output.resize(int(capacity));
    unsigned length = capacity;
    segment.failed = true;
    if (BZ2_bzBuffToBuffCompress(segment.output.data(), &length, segment.input.data(),
            unsigned(segment.input.size()), m_level, 0, 30)
        != BZ_OK)
        return;
    segment.output.resize(int(length));
    segment.input = QByteArray();
    // Header (32 bits), one block (magic, CRC, ...), end mark, the stream's
    // CRC (the block's, as there is one), up to 7 bits of padding.
    const uchar *data = reinterpret_cast<const uchar *>(segment.output.constData());
    const quint64 total = quint64(length) * 8;
    if (total < 32 + 80 + 80)
        return;
    segment.crc = quint32(bitsAt(data, length, 32 + 48, 32));
    for (int padding = 0; padding < 8; ++padding) {
        const quint64 end = total - 80 - quint64(padding);
        if (bitsAt(data, length, end, 48) == EndMagic && bitsAt(data, length, end + 48, 32) == segment.crc) {
            segment.blockBits = end - 32;
            segment.failed = false;
            return;
        }
    }
}

void PackageArchiveParallelBzip2::work()
{
    for (;;) {
        std::shared_ptr<Segment> segment;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_workWake.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
            if (m_stopping)
                return;
            segment = m_queue.front();
            m_queue.pop_front();
        }
        compress(*segment);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            segment->done = true;
        }
        m_doneWake.notify_all();
    }
}
