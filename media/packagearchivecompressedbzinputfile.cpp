#include "media/packagearchivecompressedbzinputfile.h"

#include "core/hexception.h"
#include "media/medialog.h"

#include <bzlib.h>

#include <algorithm>
#include <cstring>

PackageArchiveCompressedBzInputFile::PackageArchiveCompressedBzInputFile(FILE *file)
    : PackageArchiveCompressedInputFile(file)
{
    init();
}

PackageArchiveCompressedBzInputFile::~PackageArchiveCompressedBzInputFile()
{
    try {
        end();
    } catch (const HException &error) {
        qCWarning(lcMedia) << error.message();
    }
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
    int error = BZ_OK;
    m_handle = BZ2_bzReadOpen(&error, file(), 0, 0, nullptr, 0);
    if (!m_handle || error != BZ_OK) {
        m_handle = nullptr;
        throw HException(QStringLiteral("cannot initialise inflate"));
    }
}

void PackageArchiveCompressedBzInputFile::end()
{
    m_decoder.reset();
    if (!m_handle)
        return;
    int error = BZ_OK;
    BZ2_bzReadClose(&error, m_handle);
    m_handle = nullptr;
    if (error != BZ_OK)
        throw HException(QStringLiteral("error decompressing stream"));
}

void PackageArchiveCompressedBzInputFile::fallBack()
{
    qCDebug(lcMedia) << "bzip2 stream: sequential decoding from" << m_produced;
    const quint64 skip = m_produced;
    m_decoder.reset();
    m_parallel = false;
    if (::fseeko(file(), off_t(start()), SEEK_SET) != 0)
        throw HException(QStringLiteral("error reading from compressed stream"));
    openSequential();
    char discard[ChunkSize];
    for (quint64 done = 0; done < skip;) {
        const qint32 want = qint32(std::min<quint64>(ChunkSize, skip - done));
        readSequential(discard, want);
        done += quint64(want);
    }
}

void PackageArchiveCompressedBzInputFile::readChunk(char *buffer, qint32 size)
{
    while (m_decoder && size > 0) {
        if (m_blockUsed == m_block.size()) {
            PackageArchiveBzBlockDecoder::Place place;
            const auto result = m_decoder->next(m_block, place);
            m_blockUsed = 0;
            if (result == PackageArchiveBzBlockDecoder::End)
                throw HException(QStringLiteral("error reading from compressed stream"));
            if (result == PackageArchiveBzBlockDecoder::Unusual) {
                m_block.clear();
                fallBack();
                break;
            }
            if (m_places.empty() || place.position > m_places.back().position)
                m_places.push_back(place);
            continue;
        }
        const qint32 take = std::min<qint32>(size, qint32(m_block.size()) - m_blockUsed);
        std::memcpy(buffer, m_block.constData() + m_blockUsed, size_t(take));
        m_blockUsed += take;
        m_produced += quint64(take);
        buffer += take;
        size -= take;
    }
    if (size > 0)
        readSequential(buffer, size);
}

void PackageArchiveCompressedBzInputFile::readSequential(char *buffer, qint32 size)
{
    int error = BZ_OK;
    const int got = BZ2_bzRead(&error, m_handle, buffer, size);
    if (got != size || (error != BZ_OK && error != BZ_STREAM_END))
        throw HException(QStringLiteral("error reading from compressed stream"));
    m_produced += quint64(size);
}

quint64 PackageArchiveCompressedBzInputFile::resumeBefore(quint64 target) const
{
    if (!m_parallel)
        return 0;
    const auto after = std::upper_bound(m_places.begin(), m_places.end(), target,
        [](quint64 value, const PackageArchiveBzBlockDecoder::Place &place) {
            return value < place.position;
        });
    return after == m_places.begin() ? 0 : std::prev(after)->position;
}

bool PackageArchiveCompressedBzInputFile::resumeAt(quint64 position)
{
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
