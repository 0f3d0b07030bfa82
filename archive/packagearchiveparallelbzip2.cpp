#include "archive/packagearchiveparallelbzip2.h"

#include "archive/packagearchivebzblockencoder.h"
#include "core/hexception.h"

struct PackageArchiveParallelBzip2::Segment
{
    QByteArray input;
    // The segment's blocks, each a whole number of bits, and their CRCs.
    PackageArchiveBitWriter blocks;
    std::vector<quint32> crcs;
};

PackageArchiveParallelBzip2::PackageArchiveParallelBzip2(FILE *file, int level, int threads)
    : m_file(file)
    , m_segmentSize(100000 * level - 19)
    , m_work(threads, [level] {
        // Each thread's encoder keeps its buffers from block to block.
        auto encoder = std::make_shared<PackageArchiveBzBlockEncoder>(level);
        return [encoder](Segment &segment) {
            const auto *data = reinterpret_cast<const uchar *>(segment.input.constData());
            for (qint64 at = 0, size = segment.input.size(); at < size;) {
                quint32 crc = 0;
                at += encoder->encode(data + at, size - at, segment.blocks, crc);
                segment.crcs.push_back(crc);
            }
            segment.input = QByteArray();
        };
    })
{
    m_pending.reserve(m_segmentSize);
    for (const char byte : { 'B', 'Z', 'h', char('0' + level) })
        m_out.write(uchar(byte), 8);
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
    while (!m_work.empty())
        writeOldest(failure);
    m_out.write(0x177245, 24);
    m_out.write(0x385090, 24);
    m_out.write(m_combinedCrc, 32);
    m_out.padToByte();
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
    while (m_work.full())
        writeOldest(QStringLiteral("error writing to compressed stream"));
    m_work.add(segment);
}

void PackageArchiveParallelBzip2::writeOldest(const QString &failure)
{
    const std::shared_ptr<Segment> segment = m_work.takeOldest();
    m_out.append(segment->blocks);
    for (const quint32 crc : segment->crcs)
        m_combinedCrc = (m_combinedCrc << 1 | m_combinedCrc >> 31) ^ crc;
    flushBytes(failure);
}

void PackageArchiveParallelBzip2::flushBytes(const QString &failure)
{
    const QByteArray bytes = m_out.takeBytes();
    if (!bytes.isEmpty()
        && std::fwrite(bytes.constData(), 1, size_t(bytes.size()), m_file) != size_t(bytes.size()))
        throw HException(failure);
}
