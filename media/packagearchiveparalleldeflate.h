#pragma once

#include <QByteArray>

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// Writes one ordinary zlib stream, compressed on several threads: the input
// is cut into segments that are deflated independently (raw deflate, primed
// with the 32 KiB before them, ended by a sync flush that byte-aligns them,
// the last one finished), then written in order between the zlib header and
// the Adler-32 of all input, combined from the segments' own. Any zlib reader
// decodes the result. Used from one thread; failures throw HException with the
// stream's messages.
class PackageArchiveParallelDeflate
{
public:
    PackageArchiveParallelDeflate(FILE *file, int level, int threads);
    ~PackageArchiveParallelDeflate();
    PackageArchiveParallelDeflate(const PackageArchiveParallelDeflate &) = delete;
    PackageArchiveParallelDeflate &operator=(const PackageArchiveParallelDeflate &) = delete;

    void write(const char *data, qint64 size);
    // Compresses and writes what is left and the trailer.
    void finish();

    static int defaultThreads() { return 2; }

private:
    struct Segment;

    void submit(bool last);
    // Writes the oldest segment once it is compressed.
    void writeOldest();
    void work();
    void compress(Segment &segment);
    void writeOut(const char *data, size_t size);

    FILE *m_file;
    int m_level;
    int m_threads;
    QByteArray m_pending;
    QByteArray m_dictionary;
    bool m_headerWritten = false;
    quint32 m_adler = 1;
    std::mutex m_mutex;
    std::condition_variable m_workWake;
    std::condition_variable m_doneWake;
    bool m_stopping = false;
    std::deque<std::shared_ptr<Segment>> m_queue;
    std::deque<std::shared_ptr<Segment>> m_inOrder;
    std::vector<std::thread> m_workers;
};
