#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// The threads that serve connections: started as connections come, up to a
// maximum, and kept for the next ones. Connections beyond the maximum wait in
// a queue; waiting() tells the threads that hold idle connections to let go.
class worker_pool : public httplib::TaskQueue {
public:
    explicit worker_pool(size_t max_threads);
    ~worker_pool() override;

    void enqueue(std::function<void()> job) override;
    // Runs what is queued, then joins every thread.
    void shutdown() override;
    // Queued jobs that no idle thread is about to take.
    size_t waiting() const;

private:
    void work();

    const size_t max_threads_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    size_t idle_ = 0;
    bool stopping_ = false;
};
