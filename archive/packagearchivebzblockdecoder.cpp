#include "archive/packagearchivebzblockdecoder.h"

#include <array>
#include <cstdlib>

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
// Threads start once this much has been decoded on the caller's thread: one
// large block, or a few small ones.
const quint64 DecodedBeforeThreads = 512u << 10;

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

// Finds the first block or end mark at or after bit from of data: a
// candidate second byte, then the whole 48 bits. A candidate that runs past
// the data is decided once more bytes are in, unless there are none.
bool findMark(const uchar *data, size_t length, quint64 from, bool atEnd, quint64 &mark)
{
    for (size_t j = size_t(from / 8) + 1; j < length; ++j) {
        const quint16 shifts = Candidates[data[j]];
        for (int shift = 0; shifts != 0 && shift < 8; ++shift) {
            const quint64 at = quint64(j - 1) * 8 + quint64(shift);
            if (!(shifts & (0x101u << shift)) || at < from)
                continue;
            if (at + MarkBits > length * 8) {
                if (atEnd)
                    continue;
                return false;
            }
            const quint64 value = bitsAt(data, length, at, 48);
            if (value == BlockMagic || value == EndMagic) {
                mark = at;
                return true;
            }
        }
    }
    return false;
}

// The block at bit from of data as a stream of its own: a header, then the
// stream's own bits on through the 48 of the mark found at bit mark, to the
// end of a byte. Every bit libbz2 reads is the stream's, so what it gives is
// what it gives reading the stream, also where the mark is one that the
// block's data happens to hold; past a whole block, whose CRC it checks
// before it reads on, it runs out of input inside the mark's CRC.
QByteArray oneBlockStream(const uchar *data, quint64 from, quint64 mark, char level)
{
    const quint64 bits = (mark + 48 - from + 7) / 8 * 8;
    const size_t whole = size_t(bits / 8);
    QByteArray out;
    out.reserve(int(4 + whole));
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
    return out;
}

// libbz2 asks for a block-sized table (up to 3.6 MB) for every block it
// decodes. Each thread keeps the last one it gave back, so that a thread
// decoding block after block reuses one table instead of fresh pages.
const size_t KeptTableSize = size_t(1) << 18;
struct KeptTable
{
    ~KeptTable() { std::free(block); }
    size_t *block = nullptr;
};
thread_local KeptTable keptTable;

// Each allocation carries its size in front, for the release to see.
void *allocateForLibbz2(void *, int count, int size)
{
    const size_t bytes = size_t(count) * size_t(size);
    size_t *block = keptTable.block;
    if (block && block[0] == bytes)
        keptTable.block = nullptr;
    else
        block = static_cast<size_t *>(std::malloc(bytes + 2 * sizeof(size_t)));
    if (!block)
        return nullptr;
    block[0] = bytes;
    return block + 2;
}

void releaseForLibbz2(void *, void *pointer)
{
    size_t *block = static_cast<size_t *>(pointer) - 2;
    if (block[0] < KeptTableSize)
        return std::free(block);
    std::free(keptTable.block);
    keptTable.block = block;
}

// A one-block stream being decoded by libbz2.
class OneBlockDecoding
{
public:
    explicit OneBlockDecoding(QByteArray input)
        : m_input(std::move(input))
    {
        PackageArchiveBzBlockDecoder::useKeptTables(m_stream);
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
        // Exactly the room asked for: a block's buffer is not rounded up to a power of two.
        output.reserve(done + int(size));
        output.resize(done + int(size));
        m_stream.next_out = output.data() + done;
        m_stream.avail_out = size;
        const int result = BZ2_bzDecompress(&m_stream);
        output.resize(output.size() - int(m_stream.avail_out));
        if (result != BZ_OK)
            return Failed;
        if (m_stream.avail_out == 0)
            return More;
        // libbz2 stops early only when the input runs out: past the block,
        // once it has given bytes (every block has some), or inside it.
        return m_stream.total_out_lo32 > 0 || m_stream.total_out_hi32 > 0 ? Finished : Failed;
    }
    QByteArray takeInput() { return std::move(m_input); }

private:
    QByteArray m_input;
    bz_stream m_stream {};
    bool m_ready = false;
};

// Most blocks decode to no more than their level's hundred thousands of
// bytes (only runs of four or more grow back beyond), and to less than
// eight times their compressed size: room for a block's output starts at the
// smaller, and grows by the larger.
unsigned blockSizeOf(const QByteArray &input)
{
    return unsigned(input.at(3) - '0') * 100000u;
}

unsigned firstRoomOf(const QByteArray &input)
{
    return qMin(blockSizeOf(input), 8 * unsigned(input.size()) + 4096);
}

} // namespace

void PackageArchiveBzBlockDecoder::useKeptTables(bz_stream &stream)
{
    stream.bzalloc = allocateForLibbz2;
    stream.bzfree = releaseForLibbz2;
}

// A block the reader decodes itself, a piece at a time as it is read: one
// too large for a worker, or one of the first blocks of the stream.
struct PackageArchiveBzBlockDecoder::LargeBlock
{
    LargeBlock(QByteArray input, unsigned firstPiece, unsigned laterPieces)
        : decoding(std::move(input))
        , piece(firstPiece)
        , laterPieces(laterPieces)
    { }
    OneBlockDecoding decoding;
    Place place;
    unsigned piece;
    unsigned laterPieces;
};

struct PackageArchiveBzBlockDecoder::Task
{
    PackageArchiveBzBlockDecoder::Result kind = Unusual;
    quint64 bit = 0;
    quint32 combinedCrc = 0;
    QByteArray input;
    QByteArray output;
    bool failed = false;
    // Decodes to more than PieceSize: the input is kept for the reader.
    bool large = false;
    // One of the first blocks, left whole for the reader to decode.
    bool here = false;
};

PackageArchiveBzBlockDecoder::PackageArchiveBzBlockDecoder(
    FILE *file, qint64 start, const Place &place, int threads)
    : m_file(file)
    , m_start(start)
    , m_place(place)
    , m_work(threads, [] { return &PackageArchiveBzBlockDecoder::decode; })
    , m_base(place.bit / 8)
    , m_blockStart(place.bit)
    , m_combined(place.combinedCrc)
{
    // The buffer holds the compressed bytes from byte m_base on.
    if (::fseeko(m_file, off_t(m_start + qint64(m_base)), SEEK_SET) != 0) {
        m_final = stop(Unusual);
        return;
    }
    if (place.bit == 0) {
        while (m_length < 4 && fill()) { }
        if (m_length < 4 || m_buffer[0] != 'B' || m_buffer[1] != 'Z' || m_buffer[2] != 'h'
            || m_buffer[3] < '1' || m_buffer[3] > '9') {
            m_final = stop(Unusual);
            return;
        }
        m_place.level = char(m_buffer[3]);
        m_blockStart = 32;
    }
}

PackageArchiveBzBlockDecoder::~PackageArchiveBzBlockDecoder() = default;

PackageArchiveBzBlockDecoder::Result PackageArchiveBzBlockDecoder::next(QByteArray &bytes, Place &place)
{
    if (m_large)
        return nextPiece(bytes, place);
    if (m_final)
        return m_final->kind;
    // Keep every worker busy with the blocks behind this one.
    while (!m_scanned && !m_work.full()) {
        std::shared_ptr<Task> task = scan();
        if (task->kind != Block) {
            m_scanned = true;
            m_work.addDone(std::move(task));
        } else if (!m_work.started() && m_decodedHere < DecodedBeforeThreads) {
            // The first blocks are decoded right here, only as far as they
            // are read: a short stream (an archive's table, a small medium)
            // needs no threads, nor does one that is damaged near its start,
            // and a short read of a block of long runs decodes little of it.
            task->large = true;
            task->here = true;
            m_work.addDone(std::move(task));
            break;
        } else {
            m_work.add(std::move(task));
        }
    }
    const std::shared_ptr<Task> task = m_work.takeOldest();
    if (task->failed)
        task->kind = Unusual;
    if (task->kind != Block) {
        m_final = task;
        return task->kind;
    }
    place.position = m_place.position;
    place.bit = task->bit;
    place.combinedCrc = task->combinedCrc;
    place.level = m_place.level;
    if (task->large) {
        const unsigned first = task->here ? firstRoomOf(task->input) : PieceSize;
        const unsigned later = task->here ? blockSizeOf(task->input) : PieceSize;
        m_large = std::make_unique<LargeBlock>(std::move(task->input), first, later);
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
    const OneBlockDecoding::Step step = m_large->decoding.decode(bytes, m_large->piece);
    m_large->piece = m_large->laterPieces;
    place = m_large->place;
    if (step == OneBlockDecoding::Failed || (step == OneBlockDecoding::More && bytes.isEmpty())) {
        m_large.reset();
        m_final = stop(Unusual);
        return Unusual;
    }
    m_place.position += quint64(bytes.size());
    m_decodedHere += quint64(bytes.size());
    if (step == OneBlockDecoding::Finished) {
        m_large.reset();
        // A block that ended exactly where the worker stopped.
        if (bytes.isEmpty())
            return next(bytes, place);
    }
    return Block;
}

bool PackageArchiveBzBlockDecoder::fill()
{
    const size_t want = qBound(FirstReadSize, m_length, ReadSize);
    if (m_buffer.size() < m_length + want)
        m_buffer.resize(m_length + want);
    const size_t got = std::fread(m_buffer.data() + m_length, 1, want, m_file);
    m_length += got;
    m_atEnd = got == 0;
    return got > 0;
}

std::shared_ptr<PackageArchiveBzBlockDecoder::Task> PackageArchiveBzBlockDecoder::stop(Result kind)
{
    auto task = std::make_shared<Task>();
    task->kind = kind;
    return task;
}

// Finds the block at m_blockStart and the mark behind it: the block as a
// task to decode, or the stream's end, or Unusual.
std::shared_ptr<PackageArchiveBzBlockDecoder::Task> PackageArchiveBzBlockDecoder::scan()
{
    // m_blockStart must hold a block's magic; the search for the next mark
    // starts behind its CRC.
    const quint64 localStart = m_blockStart - m_base * 8;
    while (m_length * 8 < localStart + MarkBits && fill()) { }
    if (m_length * 8 < localStart + MarkBits)
        return stop(Unusual);
    const uchar *data = m_buffer.data();
    const quint64 mark = bitsAt(data, m_length, localStart, 48);
    if (mark == EndMagic) {
        const quint32 stored = quint32(bitsAt(data, m_length, localStart + 48, 32));
        return stop(stored == m_combined ? End : Unusual);
    }
    if (mark != BlockMagic)
        return stop(Unusual);
    const quint32 crc = quint32(bitsAt(data, m_length, localStart + 48, 32));

    quint64 searchFrom = localStart + MarkBits;
    quint64 next = 0;
    while (!findMark(m_buffer.data(), m_length, searchFrom, m_atEnd, next)) {
        if (m_length - size_t(localStart / 8) > MaxBlockInput || m_atEnd)
            return stop(Unusual);
        // Keep the last bytes, a mark may straddle what is read next.
        searchFrom = qMax<quint64>(m_length * 8 > 96 ? m_length * 8 - 96 : 0, localStart + MarkBits);
        fill();
    }

    auto task = std::make_shared<Task>();
    task->kind = Block;
    task->bit = m_blockStart;
    task->combinedCrc = m_combined;
    // The mark's 80 bits are in the buffer: the block's stream ends within them.
    task->input = oneBlockStream(m_buffer.data(), localStart, next, m_place.level);
    m_combined = (m_combined << 1 | m_combined >> 31) ^ crc;
    m_blockStart = m_base * 8 + next;

    // Drop the bytes before the next block.
    const size_t keep = size_t(next / 8);
    std::copy(m_buffer.begin() + qptrdiff(keep), m_buffer.begin() + qptrdiff(m_length), m_buffer.begin());
    m_length -= keep;
    m_base += keep;
    return task;
}

void PackageArchiveBzBlockDecoder::decode(Task &task)
{
    const unsigned blockSize = blockSizeOf(task.input);
    unsigned room = firstRoomOf(task.input);
    OneBlockDecoding decoding(std::move(task.input));
    OneBlockDecoding::Step step = OneBlockDecoding::More;
    while (step == OneBlockDecoding::More && unsigned(task.output.size()) < PieceSize) {
        if (!task.output.isEmpty())
            room = qMax(blockSize, unsigned(task.output.size()));
        step = decoding.decode(task.output, qMin(room, PieceSize - unsigned(task.output.size())));
    }
    task.failed = step == OneBlockDecoding::Failed;
    task.large = step == OneBlockDecoding::More;
    if (task.large) {
        task.output = QByteArray();
        task.input = decoding.takeInput();
    }
}
