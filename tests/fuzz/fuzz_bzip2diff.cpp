// The parallel block decoder against libbz2 on the same bytes. Blocks the
// decoder delivers are libbz2's bytes, and where it reaches the stream's end
// libbz2 reaches the same end; the body reader built on both delivers what
// libbz2's stdio reader delivers, request for request, and fails where it fails.

#include "archive/packagearchivebzblockdecoder.h"
#include "archive/packagearchivecompressedbzinputfile.h"
#include "core/hexception.h"
#include "tests/fuzz/fuzzing.h"

#include <bzlib.h>

namespace {

const qint32 Request = 65521;
const qsizetype Cap = qsizetype(4) << 20;

struct Reference
{
    QByteArray bytes; // all libbz2 delivered
    qsizetype whole = 0; // in whole requests, until one failed or the cap
    bool ends = false; // the stream's end was reached
};

Reference readWithLibbz2(QByteArray &input)
{
    Reference reference;
    FILE *file = openBytes(input);
    int error = BZ_OK;
    BZFILE *handle = file ? BZ2_bzReadOpen(&error, file, 0, 0, nullptr, 0) : nullptr;
    QByteArray block(Request, Qt::Uninitialized);
    while (handle && reference.whole < Cap) {
        const int got = BZ2_bzRead(&error, handle, block.data(), Request);
        reference.bytes.append(block.constData(), qMax(got, 0));
        reference.ends = reference.ends || error == BZ_STREAM_END;
        if (got != Request || (error != BZ_OK && error != BZ_STREAM_END))
            break;
        reference.whole += Request;
    }
    BZ2_bzReadClose(&error, handle);
    if (file)
        std::fclose(file);
    return reference;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray input = bytesOf(data, size);
    const Reference reference = readWithLibbz2(input);
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
    const qsizetype common = qMin(decoded.size(), reference.bytes.size());
    require(decoded.left(common) == reference.bytes.left(common));
    if (result == PackageArchiveBzBlockDecoder::End)
        require(reference.ends && decoded == reference.bytes);

    QByteArray delivered;
    bool failed = false;
    PackageArchiveCompressedBzInputFile stream(openBytes(input));
    try {
        QByteArray block(Request, Qt::Uninitialized);
        while (delivered.size() < Cap) {
            stream.read(block.data(), Request);
            delivered.append(block);
        }
    } catch (const HException &) {
        failed = true;
    }
    require(delivered == reference.bytes.left(reference.whole) && failed == (reference.whole < Cap));
    return 0;
}
