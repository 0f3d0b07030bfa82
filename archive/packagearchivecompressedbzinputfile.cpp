#include "archive/packagearchivecompressedbzinputfile.h"

#include "archive/archivelogging.h"
#include "core/hexception.h"

#include <bzlib.h>

#include <algorithm>
#include <cstring>

// What libbz2's stdio reader does, on a stream of its own: that reader
// allocates a fresh block table for every stream.
struct PackageArchiveCompressedBzInputFile::Sequential
{
    Sequential() { PackageArchiveBzBlockDecoder::useKeptTables(stream); }
    ~Sequential()
    {
        if (ready)
            BZ2_bzDecompressEnd(&stream);
    }
    Sequential(const Sequential &) = delete;
    Sequential &operator=(const Sequential &) = delete;

    bz_stream stream {};
    bool ready = false;
    bool ended = false;
    char input[BZ_MAX_UNUSED];
};

namespace {

// At the end of the file, as libbz2's reader tells it: a byte read ahead and put back.
bool atEnd(FILE *file)
{
    const int c = std::fgetc(file);
    if (c == EOF)
        return true;
    std::ungetc(c, file);
    return false;
}

} // namespace

PackageArchiveCompressedBzInputFile::PackageArchiveCompressedBzInputFile(FILE *file)
    : PackageArchiveCompressedInputFile(file)
{
    init();
}

PackageArchiveCompressedBzInputFile::~PackageArchiveCompressedBzInputFile()
{
    end();
}

void PackageArchiveCompressedBzInputFile::init()
{
    m_block.clear();
    m_blockUsed = 0;
    m_produced = 0;
    if (m_parallel) {
        // libbz2 refuses to start on a file whose error flag is set; so does this.
        if (std::ferror(file()))
            throw HException(QStringLiteral("cannot initialise inflate"));
        m_decoder = std::make_unique<PackageArchiveBzBlockDecoder>(file(), start(),
            PackageArchiveBzBlockDecoder::Place(), PackageArchiveBzBlockDecoder::defaultThreads());
        return;
    }
    openSequential();
}

void PackageArchiveCompressedBzInputFile::openSequential()
{
    auto sequential = std::make_unique<Sequential>();
    if (std::ferror(file()) || BZ2_bzDecompressInit(&sequential->stream, 0, 0) != BZ_OK)
        throw HException(QStringLiteral("cannot initialise inflate"));
    sequential->ready = true;
    m_sequential = std::move(sequential);
}

void PackageArchiveCompressedBzInputFile::end()
{
    m_decoder.reset();
    m_sequential.reset();
}

void PackageArchiveCompressedBzInputFile::fallBack(quint64 position)
{
    qCDebug(lcArchive) << "bzip2 stream: sequential decoding from" << position;
    ++m_fallbacks;
    m_decoder.reset();
    m_block.clear();
    m_blockUsed = 0;
    m_parallel = false;
    if (::fseeko(file(), off_t(start()), SEEK_SET) != 0)
        throw HException(QStringLiteral("error reading from compressed stream"));
    openSequential();
    m_produced = 0;
    char discard[ChunkSize];
    while (m_produced < position)
        readSequential(discard, qint32(std::min<quint64>(ChunkSize, position - m_produced)));
}

bool PackageArchiveCompressedBzInputFile::nextBlock()
{
    PackageArchiveBzBlockDecoder::Place place;
    QByteArray bytes;
    const auto result = m_decoder->next(bytes, place);
    if (result == PackageArchiveBzBlockDecoder::Unusual)
        return false;
    if (result == PackageArchiveBzBlockDecoder::Block) {
        m_block = std::move(bytes);
        m_blockUsed = 0;
        if (m_places.empty() || place.position > m_places.back().position)
            m_places.push_back(place);
    }
    return true;
}

void PackageArchiveCompressedBzInputFile::readChunk(char *buffer, qint32 size)
{
    // On anything unusual the whole request is read again by libbz2's
    // reader, so it fails (or not) exactly as that reader would.
    const quint64 requestStart = m_produced;
    bool usual = true;
    for (qint32 done = 0; m_decoder && done < size;) {
        if (m_blockUsed == m_block.size()) {
            usual = nextBlock();
            if (!usual)
                break;
            if (m_blockUsed == m_block.size())
                throw HException(QStringLiteral("error reading from compressed stream"));
        }
        const qint32 take = std::min<qint32>(size - done, qint32(m_block.size()) - m_blockUsed);
        std::memcpy(buffer + done, m_block.constData() + m_blockUsed, size_t(take));
        m_blockUsed += take;
        m_produced += quint64(take);
        done += take;
        // libbz2's reader goes on into the next block (or the end of the
        // stream) when a request ends where a block does; look there too.
        if (done == size && m_blockUsed == m_block.size())
            usual = nextBlock();
    }
    if (m_decoder && usual)
        return;
    if (m_decoder)
        fallBack(requestStart);
    readSequential(buffer, size);
}

void PackageArchiveCompressedBzInputFile::readSequential(char *buffer, qint32 size)
{
    const auto failure = [] {
        return HException(QStringLiteral("error reading from compressed stream"));
    };
    bz_stream &stream = m_sequential->stream;
    if (m_sequential->ended)
        throw failure();
    stream.next_out = buffer;
    stream.avail_out = unsigned(size);
    while (stream.avail_out > 0) {
        if (std::ferror(file()))
            throw failure();
        if (stream.avail_in == 0 && !atEnd(file())) {
            stream.avail_in
                = unsigned(std::fread(m_sequential->input, 1, sizeof m_sequential->input, file()));
            stream.next_in = m_sequential->input;
            if (std::ferror(file()))
                throw failure();
        }
        const int result = BZ2_bzDecompress(&stream);
        if (result == BZ_STREAM_END) {
            m_sequential->ended = true;
            if (stream.avail_out > 0)
                throw failure();
        } else if (result != BZ_OK || (stream.avail_in == 0 && stream.avail_out > 0 && atEnd(file()))) {
            throw failure();
        }
    }
    m_produced += quint64(size);
}

quint64 PackageArchiveCompressedBzInputFile::resumeBefore(quint64 target) const
{
    if (!m_parallel)
        return 0;
    if (m_decoder && blockPosition() <= target && target <= blockPosition() + quint64(m_block.size()))
        return blockPosition();
    const auto after = std::upper_bound(m_places.begin(), m_places.end(), target,
        [](quint64 value, const PackageArchiveBzBlockDecoder::Place &place) {
            return value < place.position;
        });
    return after == m_places.begin() ? 0 : std::prev(after)->position;
}

bool PackageArchiveCompressedBzInputFile::resumeAt(quint64 position)
{
    if (m_decoder && position == blockPosition() && !m_block.isEmpty()) {
        m_produced = position;
        m_blockUsed = 0;
        return true;
    }
    const auto found = std::find_if(m_places.begin(), m_places.end(),
        [position](const PackageArchiveBzBlockDecoder::Place &place) { return place.position == position; });
    if (!m_parallel || position == 0 || found == m_places.end())
        return PackageArchiveCompressedInputFile::resumeAt(0);
    end();
    m_block.clear();
    m_blockUsed = 0;
    m_produced = position;
    m_decoder = std::make_unique<PackageArchiveBzBlockDecoder>(
        file(), start(), *found, PackageArchiveBzBlockDecoder::defaultThreads());
    return true;
}
