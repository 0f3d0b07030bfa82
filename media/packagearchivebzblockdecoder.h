#pragma once

#include <QByteArray>

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// Decodes a bzip2 stream's blocks in parallel. A block starts with a 48-bit
// magic number at any bit position; the scanner finds each one (as bzip2's
// recovery tool does), copies the block's bits into a stream of its own with
// a header and an end-of-stream trailer, and worker threads decode those with
// libbz2, which checks each block's CRC. The blocks' CRCs are combined and
// compared with the stream's at its end. Anything unusual (a header that is
// not bzip2's, a block that does not decode, a CRC that does not match)
// stops the decoder with Unusual, and the caller falls back to the plain
// sequential decoder, which then reports whatever is wrong as it always did.
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

private:
    struct Task;
    struct LargeBlock;

    void scan();
    void decodeLoop();
    bool fill(std::vector<uchar> &buffer, size_t &length);
    bool queue(std::shared_ptr<Task> task);
    Result nextPiece(QByteArray &bytes, Place &place);

    FILE *m_file;
    qint64 m_start;
    Place m_place;
    std::mutex m_mutex;
    std::condition_variable m_scannerWake;
    std::condition_variable m_decoderWake;
    std::condition_variable m_resultWake;
    bool m_stopping = false;
    // Tasks in stream order, decoded or not; the scanner's end is a task too.
    std::deque<std::shared_ptr<Task>> m_tasks;
    std::deque<std::shared_ptr<Task>> m_toDecode;
    std::vector<std::thread> m_threads;
    int m_maxTasks;
    // The large block the reader is decoding, if any (reader's thread only).
    std::unique_ptr<LargeBlock> m_large;
};
