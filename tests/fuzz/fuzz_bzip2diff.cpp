// The parallel block decoder against libbz2 on the same bytes. Blocks the
// decoder delivers are libbz2's bytes, and where it reaches the stream's end
// libbz2 reaches the same end; the body reader built on both delivers exactly
// what libbz2 delivers and fails where libbz2 fails.

#include "core/hexception.h"
#include "media/packagearchivebzblockdecoder.h"
#include "media/packagearchivecompressedbzinputfile.h"
#include "tests/fuzz/fuzzing.h"

#include <bzlib.h>

namespace {

const qsizetype Cap = qsizetype(4) << 20;

// libbz2's bytes up to the end, a fault or the cap; true at the end.
bool referenceDecode(QByteArray &input, QByteArray &output)
{
    bz_stream stream {};
    if (BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK)
        return false;
    stream.next_in = input.data();
    stream.avail_in = unsigned(input.size());
    output.resize(Cap);
    stream.next_out = output.data();
    stream.avail_out = unsigned(Cap);
    int result = BZ_OK;
    while (result == BZ_OK && stream.avail_in > 0 && stream.avail_out > 0)
        result = BZ2_bzDecompress(&stream);
    output.resize(Cap - stream.avail_out);
    BZ2_bzDecompressEnd(&stream);
    return result == BZ_STREAM_END;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray input = bytesOf(data, size);
    QByteArray expected;
    const bool ends = referenceDecode(input, expected);
    const bool capped = !ends && expected.size() == Cap;

    FILE *file = openBytes(input);
    if (!file)
        return 0;
    QByteArray decoded;
    auto result = PackageArchiveBzBlockDecoder::Block;
    {
        PackageArchiveBzBlockDecoder decoder(file, 0, PackageArchiveBzBlockDecoder::Place(), 1);
        PackageArchiveBzBlockDecoder::Place place;
        QByteArray bytes;
        while (decoded.size() < Cap
            && (result = decoder.next(bytes, place)) == PackageArchiveBzBlockDecoder::Block)
            decoded.append(bytes);
    }
    std::fclose(file);
    const qsizetype common = qMin(decoded.size(), expected.size());
    require(decoded.left(common) == expected.left(common));
    if (result == PackageArchiveBzBlockDecoder::End)
        require(ends && decoded == expected);

    file = openBytes(input);
    if (!file)
        return 0;
    QByteArray delivered;
    bool failed = false;
    try {
        PackageArchiveCompressedBzInputFile stream(file);
        QByteArray block;
        // In requests that end inside blocks and on their ends, then one past
        // the end. libbz2 does not count what it wrote of a block that turns
        // out damaged, so there the reader only has to fail.
        const qsizetype goal = ends ? expected.size() : Cap;
        while (delivered.size() < goal + (capped ? 0 : 1)) {
            block.resize(qMax<qsizetype>(1, qMin<qsizetype>(65521, goal - delivered.size())));
            stream.read(block.data(), qint32(block.size()));
            delivered.append(block);
        }
    } catch (const HException &) {
        failed = true;
    }
    const qsizetype shared = qMin(delivered.size(), expected.size());
    require(delivered.left(shared) == expected.left(shared) && failed != capped);
    if (ends)
        require(delivered == expected);
    return 0;
}
