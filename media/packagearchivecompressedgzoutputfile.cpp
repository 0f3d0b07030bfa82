#include "media/packagearchivecompressedgzoutputfile.h"

#include "core/hexception.h"

#include <zlib.h>

static const char ZlibVersion[] = "1.2.5";

struct PackageArchiveCompressedGzOutputFile::State
{
    z_stream stream {};
    bool initialised = false;
    unsigned char output[ChunkSize];
};

PackageArchiveCompressedGzOutputFile::PackageArchiveCompressedGzOutputFile(FILE *file, quint32 level)
    : PackageArchiveCompressedOutputFile(file, level)
    , m_state(std::make_unique<State>())
{
    init();
}

PackageArchiveCompressedGzOutputFile::~PackageArchiveCompressedGzOutputFile()
{
    finishQuietly();
    if (m_state->initialised)
        deflateEnd(&m_state->stream);
}

void PackageArchiveCompressedGzOutputFile::init()
{
    m_state->stream = z_stream {};
    if (deflateInit_(&m_state->stream, int(level()), ZlibVersion, int(sizeof(z_stream))) != Z_OK)
        throw HException(QStringLiteral("cannot initialise deflate"));
    m_state->initialised = true;
}

void PackageArchiveCompressedGzOutputFile::deflateInto(int flush)
{
    z_stream &stream = m_state->stream;
    for (;;) {
        stream.next_out = m_state->output;
        stream.avail_out = sizeof m_state->output;
        const int result = deflate(&stream, flush);
        // Without flushing, "no progress possible" only means all input is taken.
        if (result == Z_BUF_ERROR && flush != Z_FINISH)
            return;
        if (result != Z_OK && result != Z_STREAM_END)
            throw HException(QStringLiteral("error compressing stream"));
        const size_t produced = sizeof m_state->output - stream.avail_out;
        if (produced > 0 && std::fwrite(m_state->output, 1, produced, file()) != produced)
            throw HException(QStringLiteral("error writing to compressed stream"));
        if (flush == Z_FINISH ? result == Z_STREAM_END : stream.avail_out != 0)
            return;
    }
}

void PackageArchiveCompressedGzOutputFile::writeChunk(const char *buffer, qint32 size)
{
    z_stream &stream = m_state->stream;
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(buffer));
    stream.avail_in = uInt(size);
    deflateInto(Z_NO_FLUSH);
}

void PackageArchiveCompressedGzOutputFile::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    m_state->stream.next_in = Z_NULL;
    m_state->stream.avail_in = 0;
    deflateInto(Z_FINISH);
    deflateEnd(&m_state->stream);
    m_state->initialised = false;
}
