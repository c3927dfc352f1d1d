#pragma once

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

// The threads that run what requests ask (routes, the database, files): one
// more starts while every one is busy, up to `most`, and is kept. A quiet
// collector so keeps few threads, each warm, and a busy one no more than the
// machine can use.
class worker_threads {
public:
    explicit worker_threads(std::size_t most) : most_(most) {}
    ~worker_threads() { join(); }
    worker_threads(const worker_threads&) = delete;
    worker_threads& operator=(const worker_threads&) = delete;

    template <class Job>
    void post(Job job) {
        if (++busy_ > started_) start_one();
        boost::asio::post(pool_, [this, job = std::move(job)]() mutable {
            job();
            finished_one();
        });
    }
    // Runs what is posted, then ends every thread.
    void join();
    std::size_t started() const { return started_; }

private:
    void start_one();
    void finished_one();

    const std::size_t most_;
    boost::asio::thread_pool pool_{0};  // its threads are those below
    std::atomic<std::size_t> busy_{0};  // posted and not yet finished
    std::atomic<std::size_t> started_{0};
    std::mutex mutex_;
    std::condition_variable all_done_;
    std::vector<std::thread> threads_;
};
