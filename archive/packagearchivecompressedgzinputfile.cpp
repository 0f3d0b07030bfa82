#include "archive/packagearchivecompressedgzinputfile.h"

#include "core/hexception.h"

#include <zlib.h>

#include <algorithm>
#include <vector>

namespace {

const int WindowSize = 32768;
// Access points start this far apart; when there are MaxPoints, every other
// one goes and the spacing doubles, so they never take more than
// MaxPoints * 32 KiB whatever the size of the body.
const quint64 FirstSpacing = quint64(1) << 20;
const size_t MaxPoints = 128;

struct AccessPoint
{
    quint64 position = 0; // uncompressed
    qint64 input = 0; // file offset of the first whole byte after the boundary
    int bits = 0; // bits of the byte before input that belong to the next block
    QByteArray window;
};

} // namespace

// zlib only checks the first digit; the streams have always introduced
// themselves as this version.
static const char ZlibVersion[] = "1.2.5";

struct PackageArchiveCompressedGzInputFile::State
{
    z_stream stream {};
    bool initialised = false;
    bool ended = false;
    unsigned char input[ChunkSize];
    // File offset just past what has been read into input.
    qint64 inputEnd = 0;
    // Uncompressed bytes produced since the start of the body.
    quint64 produced = 0;
    std::vector<AccessPoint> points;
    quint64 spacing = FirstSpacing;
};

PackageArchiveCompressedGzInputFile::PackageArchiveCompressedGzInputFile(FILE *file)
    : PackageArchiveCompressedInputFile(file)
    , m_state(std::make_unique<State>())
{
    init();
}

PackageArchiveCompressedGzInputFile::~PackageArchiveCompressedGzInputFile()
{
    end();
}

void PackageArchiveCompressedGzInputFile::init()
{
    m_state->stream = z_stream {};
    m_state->stream.next_in = Z_NULL;
    m_state->stream.avail_in = 0;
    m_state->ended = false;
    m_state->inputEnd = start();
    m_state->produced = 0;
    if (inflateInit_(&m_state->stream, ZlibVersion, int(sizeof(z_stream))) != Z_OK)
        throw HException(QStringLiteral("cannot initialise inflate"));
    m_state->initialised = true;
}

void PackageArchiveCompressedGzInputFile::end()
{
    if (m_state->initialised)
        inflateEnd(&m_state->stream);
    m_state->initialised = false;
}

void PackageArchiveCompressedGzInputFile::readChunk(char *buffer, qint32 size)
{
    z_stream &stream = m_state->stream;
    stream.next_out = reinterpret_cast<Bytef *>(buffer);
    stream.avail_out = uInt(size);
    while (stream.avail_out > 0) {
        // Past the end of the compressed stream nothing more can come; this is
        // the same fault as running out of file.
        if (m_state->ended)
            throw HException(QStringLiteral("error reading stream"));
        if (stream.avail_in == 0) {
            const size_t got = std::fread(m_state->input, 1, sizeof m_state->input, file());
            if (got == 0)
                throw HException(QStringLiteral("error reading stream"));
            stream.next_in = m_state->input;
            stream.avail_in = uInt(got);
            m_state->inputEnd += qint64(got);
        }
        // Stopping at block boundaries is what lets a place be kept there.
        const uInt before = stream.avail_out;
        const int result = inflate(&stream, Z_BLOCK);
        m_state->produced += before - stream.avail_out;
        if (result == Z_STREAM_END)
            m_state->ended = true;
        else if (result != Z_OK)
            throw HException(QStringLiteral("error reading from compressed stream"));
        else if ((stream.data_type & 128) && !(stream.data_type & 64))
            keepAccessPoint();
    }
}

void PackageArchiveCompressedGzInputFile::keepAccessPoint()
{
    State &state = *m_state;
    const quint64 last = state.points.empty() ? 0 : state.points.back().position;
    if (state.produced < last + state.spacing)
        return;
    AccessPoint point;
    point.position = state.produced;
    point.input = state.inputEnd - qint64(state.stream.avail_in);
    point.bits = state.stream.data_type & 7;
    // Exactly the window's size: resize() would leave room to grow.
    point.window = QByteArray(WindowSize, Qt::Uninitialized);
    uInt length = WindowSize;
    if (inflateGetDictionary(&state.stream, reinterpret_cast<Bytef *>(point.window.data()), &length) != Z_OK)
        return;
    if (length < WindowSize) {
        point.window.truncate(int(length));
        point.window.squeeze();
    }
    state.points.push_back(std::move(point));
    if (state.points.size() >= MaxPoints) {
        std::vector<AccessPoint> thinned;
        thinned.reserve(MaxPoints);
        for (size_t i = 1; i < state.points.size(); i += 2)
            thinned.push_back(std::move(state.points[i]));
        state.points = std::move(thinned);
        state.spacing *= 2;
    }
}

quint64 PackageArchiveCompressedGzInputFile::resumeBefore(quint64 target) const
{
    const auto &points = m_state->points;
    const auto after = std::upper_bound(points.begin(), points.end(), target,
        [](quint64 value, const AccessPoint &point) { return value < point.position; });
    return after == points.begin() ? 0 : std::prev(after)->position;
}

bool PackageArchiveCompressedGzInputFile::resumeAt(quint64 position)
{
    const auto &points = m_state->points;
    const auto found = std::find_if(points.begin(), points.end(),
        [position](const AccessPoint &point) { return point.position == position; });
    if (position == 0 || found == points.end())
        return PackageArchiveCompressedInputFile::resumeAt(0);

    // A raw inflate picks up at the block boundary: the bits of the boundary
    // byte that belong to the next block first, then the window before it.
    const AccessPoint &point = *found;
    end();
    State &state = *m_state;
    state.stream = z_stream {};
    state.ended = false;
    if (inflateInit2_(&state.stream, -15, ZlibVersion, int(sizeof(z_stream))) != Z_OK)
        throw HException(QStringLiteral("cannot initialise inflate"));
    state.initialised = true;
    const qint64 from = point.input - (point.bits ? 1 : 0);
    if (::fseeko(file(), off_t(from), SEEK_SET) != 0)
        return false;
    state.inputEnd = from;
    if (point.bits) {
        const int byte = std::fgetc(file());
        if (byte == EOF)
            return false;
        state.inputEnd += 1;
        inflatePrime(&state.stream, point.bits, byte >> (8 - point.bits));
    }
    inflateSetDictionary(
        &state.stream, reinterpret_cast<const Bytef *>(point.window.constData()), uInt(point.window.size()));
    state.produced = position;
    return true;
}
