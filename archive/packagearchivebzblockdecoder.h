#pragma once

#include "archive/packagearchiveorderedwork.h"

#include <QByteArray>

#include <bzlib.h>

#include <cstdio>
#include <memory>
#include <vector>

// Decodes a bzip2 stream's blocks in parallel. A block starts with a 48-bit
// magic number at any bit position; the scanner finds each one (as bzip2's
// recovery tool does), copies the block's bits, and the next mark's, into a
// stream of its own behind a header, and worker threads decode those with
// libbz2, which checks each block's CRC. Since libbz2 reads nothing but the
// stream's own bits, the bytes it gives are those of reading the stream
// itself, and may go out before the block's end. The blocks' CRCs are combined and
// compared with the stream's at its end. Anything unusual (a header that is
// not bzip2's, a block that does not decode, a CRC that does not match)
// stops the decoder with Unusual, and the caller falls back to the plain
// sequential decoder, which then reports whatever is wrong as it always did.
// The scan runs on the caller's thread as it asks for blocks: finding a mark
// costs a small part of decoding the block, so the workers of the ordered
// work stay ahead without a thread of the scanner's own.
class PackageArchiveBzBlockDecoder
{
public:
    enum Result { Block, End, Unusual };

    // Where decoding can start: the stream's start, or a block found earlier.
    struct Place
    {
        quint64 position = 0; // uncompressed
        quint64 bit = 0; // from the start of the compressed data; 0 is the header
        quint32 combinedCrc = 0; // of the blocks before it
        char level = 0; // the header's block-size digit; 0 until it is read
    };

    // Reads the file from start + the place's bit; the file is the decoder's
    // until it is destroyed.
    PackageArchiveBzBlockDecoder(FILE *file, qint64 start, const Place &place, int threads);
    ~PackageArchiveBzBlockDecoder();
    PackageArchiveBzBlockDecoder(const PackageArchiveBzBlockDecoder &) = delete;
    PackageArchiveBzBlockDecoder &operator=(const PackageArchiveBzBlockDecoder &) = delete;

    // The next block's bytes in stream order, the end of the stream (its
    // combined CRC checked), or Unusual. Each Block comes with the place at
    // which it starts.
    Result next(QByteArray &bytes, Place &place);

    static int defaultThreads() { return 2; }

    // Makes a libbz2 stream take its block table (up to 3.6 MB) from one
    // kept by the thread, as the decoder's own do.
    static void useKeptTables(bz_stream &stream);

private:
    struct Task;
    struct LargeBlock;

    std::shared_ptr<Task> scan();
    // A worker's job: decodes one block, or keeps the input of a block that
    // decodes to more than a piece for the reader.
    static void decode(Task &task);
    static std::shared_ptr<Task> stop(Result kind);
    bool fill();
    Result nextPiece(QByteArray &bytes, Place &place);

    FILE *m_file;
    qint64 m_start;
    Place m_place;
    PackageArchiveOrderedWork<Task> m_work;
    // The end of the stream, or the first thing unusual, once it is taken:
    // every further call gives it again.
    std::shared_ptr<Task> m_final;
    bool m_scanned = false;
    // Bytes decoded on the caller's thread before the workers started.
    quint64 m_decodedHere = 0;
    // The scan's compressed bytes, from byte m_base of the stream on.
    std::vector<uchar> m_buffer;
    size_t m_length = 0;
    quint64 m_base = 0;
    bool m_atEnd = false;
    // The next block's first bit, and the CRC of the blocks before it.
    quint64 m_blockStart = 0;
    quint32 m_combined = 0;
    // The large block the reader is decoding, if any.
    std::unique_ptr<LargeBlock> m_large;
};
