#include "media/packagearchivebzblockdecoder.h"

#include <bzlib.h>

#include <array>

namespace {

const quint64 BlockMagic = 0x314159265359ULL;
const quint64 EndMagic = 0x177245385090ULL;
// A magic number and the CRC behind it.
const quint64 MarkBits = 48 + 32;
// Reads start at the first size and grow with what the buffer holds, so that
// a short stream, or one resumed near its end, is not charged a whole read.
const size_t FirstReadSize = size_t(1) << 16;
const size_t ReadSize = size_t(1) << 20;
// No block of a valid stream comes near this many compressed bytes (its
// uncompressed limit is 900 000).
const size_t MaxBlockInput = size_t(2) << 20;
// A block of long runs decodes to up to 45 MB: the workers give up on those
// beyond this size and the reader decodes them in pieces of this size, which
// keeps memory bounded whatever the data.
const unsigned PieceSize = 4u << 20;

// For each byte value, the shifts s (bits 0-7 for a block, 8-15 for the end)
// at which a magic number starting s bits into the byte before has it as its
// second byte, which lies wholly inside the magic whatever the shift.
std::array<quint16, 256> makeCandidates()
{
    std::array<quint16, 256> table {};
    for (int shift = 0; shift < 8; ++shift) {
        table[(BlockMagic >> (32 + shift)) & 0xFF] |= quint16(1u << shift);
        table[(EndMagic >> (32 + shift)) & 0xFF] |= quint16(1u << (8 + shift));
    }
    return table;
}

const std::array<quint16, 256> Candidates = makeCandidates();

// Up to 57 bits at bit from of data (most significant first); bytes past
// length read as zero.
quint64 bitsAt(const uchar *data, size_t length, quint64 from, int count)
{
    const size_t first = size_t(from / 8);
    quint64 word = 0;
    for (size_t i = 0; i < 8; ++i)
        word = word << 8 | (first + i < length ? data[first + i] : 0);
    return (word >> (64 - int(from % 8) - count)) & ((quint64(1) << count) - 1);
}

// Writes bits most significant first.
class BitWriter
{
public:
    explicit BitWriter(QByteArray &out)
        : m_out(out)
    { }
    void put(quint64 value, int count)
    {
        for (int i = count - 1; i >= 0; --i) {
            m_byte = uchar(m_byte << 1 | ((value >> i) & 1));
            if (++m_used == 8)
                flush();
        }
    }
    void pad()
    {
        if (m_used > 0) {
            m_byte = uchar(m_byte << (8 - m_used));
            flush();
        }
    }

private:
    void flush()
    {
        m_out.append(char(m_byte));
        m_byte = 0;
        m_used = 0;
    }

    QByteArray &m_out;
    uchar m_byte = 0;
    int m_used = 0;
};

// The block's bits [from, to) of data as a stream of its own: header, the
// block, the end mark and the one block's CRC as the stream's.
QByteArray oneBlockStream(const uchar *data, size_t length, quint64 from, quint64 to, char level, quint32 crc)
{
    const quint64 bits = to - from;
    const size_t whole = size_t(bits / 8);
    QByteArray out;
    out.reserve(int(4 + whole + 16));
    out.append("BZh", 3);
    out.append(level);
    const uchar *source = data + from / 8;
    const int shift = int(from % 8);
    out.resize(int(4 + whole));
    uchar *target = reinterpret_cast<uchar *>(out.data()) + 4;
    if (shift == 0) {
        std::copy(source, source + whole, target);
    } else {
        for (size_t i = 0; i < whole; ++i)
            target[i] = uchar(source[i] << shift | source[i + 1] >> (8 - shift));
    }
    BitWriter writer(out);
    const int rest = int(bits % 8);
    if (rest > 0)
        writer.put(bitsAt(data, length, from + whole * 8, rest), rest);
    writer.put(EndMagic, 48);
    writer.put(crc, 32);
    writer.pad();
    return out;
}

// A one-block stream being decoded by libbz2.
class OneBlockDecoding
{
public:
    explicit OneBlockDecoding(QByteArray input)
        : m_input(std::move(input))
    {
        m_ready = BZ2_bzDecompressInit(&m_stream, 0, 0) == BZ_OK;
        m_stream.next_in = m_input.data();
        m_stream.avail_in = unsigned(m_input.size());
    }
    ~OneBlockDecoding()
    {
        if (m_ready)
            BZ2_bzDecompressEnd(&m_stream);
    }
    OneBlockDecoding(const OneBlockDecoding &) = delete;
    OneBlockDecoding &operator=(const OneBlockDecoding &) = delete;

    enum Step { More, Finished, Failed };
    // Decodes up to size more bytes into output.
    Step decode(QByteArray &output, unsigned size)
    {
        if (!m_ready)
            return Failed;
        const int done = output.size();
        output.resize(done + int(size));
        m_stream.next_out = output.data() + done;
        m_stream.avail_out = size;
        const int result = BZ2_bzDecompress(&m_stream);
        output.resize(output.size() - int(m_stream.avail_out));
        if (result == BZ_STREAM_END)
            return m_stream.avail_in == 0 ? Finished : Failed;
        // libbz2 stops early only when the input runs out.
        return result == BZ_OK && m_stream.avail_out == 0 ? More : Failed;
    }
    QByteArray takeInput() { return std::move(m_input); }

private:
    QByteArray m_input;
    bz_stream m_stream {};
    bool m_ready = false;
};

} // namespace

// A block too large for a worker, decoded by the reader as it goes.
struct PackageArchiveBzBlockDecoder::LargeBlock
{
    explicit LargeBlock(QByteArray input)
        : decoding(std::move(input))
    { }
    OneBlockDecoding decoding;
    Place place;
};

struct PackageArchiveBzBlockDecoder::Task
{
    PackageArchiveBzBlockDecoder::Result kind = Unusual;
    quint64 bit = 0;
    quint32 combinedCrc = 0;
    QByteArray input;
    QByteArray output;
    bool decoded = false;
    bool failed = false;
    // Decodes to more than PieceSize: the input is kept for the reader.
    bool large = false;
};

PackageArchiveBzBlockDecoder::PackageArchiveBzBlockDecoder(
    FILE *file, qint64 start, const Place &place, int threads)
    : m_file(file)
    , m_start(start)
    , m_place(place)
    , m_maxTasks(qMax(1, threads) + 1)
{
    m_threads.emplace_back(&PackageArchiveBzBlockDecoder::scan, this);
    for (int i = 0; i < qMax(1, threads); ++i)
        m_threads.emplace_back(&PackageArchiveBzBlockDecoder::decodeLoop, this);
}

PackageArchiveBzBlockDecoder::~PackageArchiveBzBlockDecoder()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_scannerWake.notify_all();
    m_decoderWake.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
}

PackageArchiveBzBlockDecoder::Result PackageArchiveBzBlockDecoder::next(QByteArray &bytes, Place &place)
{
    if (m_large)
        return nextPiece(bytes, place);
    std::shared_ptr<Task> task;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_resultWake.wait(lock, [this] { return !m_tasks.empty() && m_tasks.front()->decoded; });
        task = m_tasks.front();
        // The end stays in place for any further call; a large block until
        // its last piece.
        if (task->kind == Block && !task->failed && !task->large)
            m_tasks.pop_front();
    }
    m_scannerWake.notify_one();
    if (task->failed || task->kind != Block)
        return task->failed ? Unusual : task->kind;
    place.position = m_place.position;
    place.bit = task->bit;
    place.combinedCrc = task->combinedCrc;
    place.level = m_place.level;
    if (task->large) {
        m_large = std::make_unique<LargeBlock>(std::move(task->input));
        m_large->place = place;
        return nextPiece(bytes, place);
    }
    m_place.position += quint64(task->output.size());
    bytes = std::move(task->output);
    return Block;
}

// Every piece of a large block comes with the block's place: only its start
// is a place to resume at.
PackageArchiveBzBlockDecoder::Result PackageArchiveBzBlockDecoder::nextPiece(QByteArray &bytes, Place &place)
{
    bytes.clear();
    const OneBlockDecoding::Step step = m_large->decoding.decode(bytes, PieceSize);
    place = m_large->place;
    if (step == OneBlockDecoding::Failed || (step == OneBlockDecoding::More && bytes.isEmpty()))
        return Unusual;
    m_place.position += quint64(bytes.size());
    if (step == OneBlockDecoding::Finished) {
        m_large.reset();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_tasks.pop_front();
        }
        m_scannerWake.notify_one();
        // A block that ended exactly where the worker stopped.
        if (bytes.isEmpty())
            return next(bytes, place);
    }
    return Block;
}

bool PackageArchiveBzBlockDecoder::queue(std::shared_ptr<Task> task)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_scannerWake.wait(lock, [this] { return m_stopping || int(m_tasks.size()) < m_maxTasks; });
    if (m_stopping)
        return false;
    m_tasks.push_back(task);
    if (task->kind == Block) {
        m_toDecode.push_back(task);
        lock.unlock();
        m_decoderWake.notify_one();
    } else {
        task->decoded = true;
        lock.unlock();
        m_resultWake.notify_one();
    }
    return true;
}

bool PackageArchiveBzBlockDecoder::fill(std::vector<uchar> &buffer, size_t &length)
{
    const size_t want = qBound(FirstReadSize, length, ReadSize);
    if (buffer.size() < length + want)
        buffer.resize(length + want);
    const size_t got = std::fread(buffer.data() + length, 1, want, m_file);
    length += got;
    return got > 0;
}

void PackageArchiveBzBlockDecoder::scan()
{
    const auto stop = [this](Result kind) {
        auto task = std::make_shared<Task>();
        task->kind = kind;
        queue(task);
    };
    // The buffer holds the compressed bytes from byte base on.
    const quint64 firstByte = m_place.bit / 8;
    if (::fseeko(m_file, off_t(m_start + qint64(firstByte)), SEEK_SET) != 0)
        return stop(Unusual);
    std::vector<uchar> buffer;
    size_t length = 0;
    quint64 base = firstByte;
    quint64 blockStart = m_place.bit;
    quint32 combined = m_place.combinedCrc;
    char level = m_place.level;
    if (m_place.bit == 0) {
        while (length < 4 && fill(buffer, length)) { }
        if (length < 4 || buffer[0] != 'B' || buffer[1] != 'Z' || buffer[2] != 'h' || buffer[3] < '1'
            || buffer[3] > '9')
            return stop(Unusual);
        level = char(buffer[3]);
        blockStart = 32;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_place.level = level;
    }

    // blockStart must hold a block's magic; the search for the next mark
    // starts behind its CRC.
    quint64 searchFrom = 0;
    bool atEnd = false;
    for (;;) {
        const quint64 localStart = blockStart - base * 8;
        while (length * 8 < localStart + MarkBits && !atEnd)
            atEnd = !fill(buffer, length);
        if (length * 8 < localStart + MarkBits)
            return stop(Unusual);
        const quint64 mark = bitsAt(buffer.data(), length, localStart, 48);
        if (mark == EndMagic) {
            const quint32 stored = quint32(bitsAt(buffer.data(), length, localStart + 48, 32));
            return stop(stored == combined ? End : Unusual);
        }
        if (mark != BlockMagic)
            return stop(Unusual);
        const quint32 crc = quint32(bitsAt(buffer.data(), length, localStart + 48, 32));

        // Find the next mark: a candidate second byte, then the whole 48 bits.
        if (searchFrom < localStart + MarkBits)
            searchFrom = localStart + MarkBits;
        quint64 next = 0;
        bool found = false;
        while (!found) {
            const size_t firstByte = size_t(searchFrom / 8);
            for (size_t j = firstByte + 1; j < length && !found; ++j) {
                const quint16 shifts = Candidates[buffer[j]];
                if (shifts == 0)
                    continue;
                for (int shift = 0; shift < 8 && !found; ++shift) {
                    if (!(shifts & (0x101u << shift)))
                        continue;
                    const quint64 at = quint64(j - 1) * 8 + quint64(shift);
                    if (at < searchFrom)
                        continue;
                    if (at + MarkBits > length * 8) {
                        // Decide once more bytes are in, unless there are none.
                        if (atEnd)
                            continue;
                        j = length;
                        break;
                    }
                    const quint64 value = bitsAt(buffer.data(), length, at, 48);
                    if (value == BlockMagic || value == EndMagic) {
                        next = at;
                        found = true;
                    }
                }
            }
            if (found)
                break;
            if (length - size_t(localStart / 8) > MaxBlockInput)
                return stop(Unusual);
            // Keep the last bytes, a mark may straddle what is read next.
            searchFrom = length * 8 > 96 ? length * 8 - 96 : 0;
            if (searchFrom < localStart + MarkBits)
                searchFrom = localStart + MarkBits;
            if (atEnd)
                return stop(Unusual);
            atEnd = !fill(buffer, length);
        }

        auto task = std::make_shared<Task>();
        task->kind = Block;
        task->bit = blockStart;
        task->combinedCrc = combined;
        task->input = oneBlockStream(buffer.data(), length, localStart, next, level, crc);
        if (!queue(task))
            return;
        combined = (combined << 1 | combined >> 31) ^ crc;
        blockStart = base * 8 + next;
        searchFrom = 0;

        // Drop the bytes before the next block.
        const size_t keep = size_t(next / 8);
        std::copy(buffer.begin() + qptrdiff(keep), buffer.begin() + qptrdiff(length), buffer.begin());
        length -= keep;
        base += keep;
    }
}

void PackageArchiveBzBlockDecoder::decodeLoop()
{
    for (;;) {
        std::shared_ptr<Task> task;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_decoderWake.wait(lock, [this] { return m_stopping || !m_toDecode.empty(); });
            if (m_stopping)
                return;
            task = m_toDecode.front();
            m_toDecode.pop_front();
        }
        OneBlockDecoding decoding(std::move(task->input));
        OneBlockDecoding::Step step = OneBlockDecoding::More;
        // Most blocks decode to 900 000 bytes or less: room grows from 1 MiB.
        while (step == OneBlockDecoding::More && unsigned(task->output.size()) < PieceSize) {
            const unsigned room = qMax(1u << 20, unsigned(task->output.size()));
            step = decoding.decode(task->output, qMin(room, PieceSize - unsigned(task->output.size())));
        }
        const bool large = step == OneBlockDecoding::More;
        if (large) {
            task->output = QByteArray();
            task->input = decoding.takeInput();
        }
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            task->failed = step == OneBlockDecoding::Failed;
            task->large = large;
            task->decoded = true;
        }
        m_resultWake.notify_one();
    }
}
