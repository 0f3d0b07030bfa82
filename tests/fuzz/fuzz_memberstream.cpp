// A zlib or bzip2 body read as the archive reads one: sequentially in
// requests of a size the input picks, then again after seeks backwards and
// forwards, which must give the bytes first read at those positions.

#include "archive/packagearchivecompressedbzinputfile.h"
#include "archive/packagearchivecompressedgzinputfile.h"
#include "core/hexception.h"
#include "tests/fuzz/fuzzing.h"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    // A long read goes past the first access point of a zlib stream (from
    // 1 MiB on), and no further; it is one input in 128, so that the many short
    // ones keep the fuzzer fast.
    const bool longRead = (data[0] >> 1) == 0x7F;
    const qsizetype cap = longRead ? qsizetype(5) << 18 : qsizetype(1) << 14;
    const qint32 request = 1 + ((data[0] >> 1) & 0x3F) * (longRead ? 4099 : 257);
    QByteArray body = bytesOf(data + 2, size - 2);
    FILE *file = openBytes(body);
    if (!file)
        return 0;
    std::unique_ptr<PackageArchiveCompressedInputFile> stream;
    QByteArray content;
    content.reserve(cap + request);
    QByteArray block(request, Qt::Uninitialized);
    try {
        if (data[0] & 1)
            stream = std::make_unique<PackageArchiveCompressedBzInputFile>(file);
        else
            stream = std::make_unique<PackageArchiveCompressedGzInputFile>(file);
        while (content.size() < cap) {
            stream->read(block.data(), request);
            content.append(block);
        }
    } catch (const HException &) { }
    if (!stream || content.isEmpty())
        return 0;
    const qsizetype target = content.size() * data[1] / 256;
    try {
        for (const qsizetype at : { target, target / 2, content.size() - 1 }) {
            const qint32 length = qint32(qMin<qsizetype>(request, content.size() - at));
            require(stream->seek(at) == 0);
            stream->read(block.data(), length);
            require(QByteArrayView(block.constData(), length) == QByteArrayView(content).sliced(at, length));
        }
    } catch (const HException &) {
        // An intact stream delivers its bytes again. Near where a damaged one
        // breaks, what comes before the failure depends on the sizes of the
        // requests (zlib holds back up to one match, libbz2 the request that
        // meets the fault), so there a failure is no finding; other bytes are.
        require(content.size() < cap);
    }
    return 0;
}
