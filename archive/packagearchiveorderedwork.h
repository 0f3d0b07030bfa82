#pragma once

#include <QtGlobal>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// Runs jobs on worker threads and gives them back in the order they were
// added: a stream compressed in segments on several threads is still written
// in order. Each thread gets a worker of its own from makeWorker, for state
// such as an encoder's buffers. Used from one thread, which keeps at most two
// jobs a thread under way by taking the oldest back while full() holds.
template<class Job> class PackageArchiveOrderedWork
{
public:
    using Worker = std::function<void(Job &)>;

    PackageArchiveOrderedWork(int threads, std::function<Worker()> makeWorker)
        : m_threads(qMax(1, threads))
        , m_makeWorker(std::move(makeWorker))
    { }
    ~PackageArchiveOrderedWork()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_stopping = true;
        }
        m_workWake.notify_all();
        for (std::thread &thread : m_workers)
            thread.join();
    }
    PackageArchiveOrderedWork(const PackageArchiveOrderedWork &) = delete;
    PackageArchiveOrderedWork &operator=(const PackageArchiveOrderedWork &) = delete;

    bool started() const { return !m_workers.empty(); }
    bool empty() const { return m_inOrder.empty(); }
    bool full() const { return int(m_inOrder.size()) >= 2 * m_threads; }

    // Queues the job for a worker; the threads start with the first job.
    void add(std::shared_ptr<Job> job)
    {
        if (m_workers.empty()) {
            for (int i = 0; i < m_threads; ++i)
                m_workers.emplace_back([this, worker = m_makeWorker()] { run(worker); });
        }
        auto entry = std::make_shared<Entry>();
        entry->job = std::move(job);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_inOrder.push_back(entry);
            m_queue.push_back(entry);
        }
        m_workWake.notify_one();
    }
    // Takes a job the caller did itself, in its place in the order.
    void addDone(std::shared_ptr<Job> job)
    {
        auto entry = std::make_shared<Entry>();
        entry->job = std::move(job);
        entry->done = true;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_inOrder.push_back(entry);
    }
    // Waits for the oldest job and takes it back.
    std::shared_ptr<Job> takeOldest()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const std::shared_ptr<Entry> entry = m_inOrder.front();
        m_doneWake.wait(lock, [&entry] { return entry->done; });
        m_inOrder.pop_front();
        return entry->job;
    }

private:
    struct Entry
    {
        std::shared_ptr<Job> job;
        bool done = false;
    };

    void run(const Worker &worker)
    {
        for (;;) {
            std::shared_ptr<Entry> entry;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_workWake.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
                if (m_stopping)
                    return;
                entry = m_queue.front();
                m_queue.pop_front();
            }
            worker(*entry->job);
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                entry->done = true;
            }
            m_doneWake.notify_all();
        }
    }

    const int m_threads;
    const std::function<Worker()> m_makeWorker;
    std::mutex m_mutex;
    std::condition_variable m_workWake;
    std::condition_variable m_doneWake;
    bool m_stopping = false;
    std::deque<std::shared_ptr<Entry>> m_queue;
    std::deque<std::shared_ptr<Entry>> m_inOrder;
    std::vector<std::thread> m_workers;
};
