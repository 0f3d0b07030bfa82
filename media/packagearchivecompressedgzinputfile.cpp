#include "media/packagearchivecompressedgzinputfile.h"

#include "core/hexception.h"

#include <zlib.h>

// zlib only checks the first digit; the streams have always introduced
// themselves as this version.
static const char ZlibVersion[] = "1.2.5";

struct PackageArchiveCompressedGzInputFile::State
{
    z_stream stream {};
    bool initialised = false;
    bool ended = false;
    unsigned char input[ChunkSize];
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
        }
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result == Z_STREAM_END)
            m_state->ended = true;
        else if (result != Z_OK)
            throw HException(QStringLiteral("error reading from compressed stream"));
    }
}
