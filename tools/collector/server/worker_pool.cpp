#include "server/worker_pool.h"

worker_pool::worker_pool(size_t max_threads) : max_threads_(max_threads) {}

worker_pool::~worker_pool() {
    shutdown();
}

void worker_pool::enqueue(std::function<void()> job) {
    std::lock_guard<std::mutex> lock(mutex_);
    jobs_.push_back(std::move(job));
    if (jobs_.size() > idle_ && threads_.size() < max_threads_) {
        try {
            threads_.emplace_back(&worker_pool::work, this);
            return;
        } catch (const std::system_error&) {
            // No more threads from the system: the job waits for a busy one.
        }
    }
    wake_.notify_one();
}

void worker_pool::shutdown() {
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        threads.swap(threads_);
    }
    wake_.notify_all();
    for (std::thread& thread : threads) thread.join();
}

size_t worker_pool::waiting() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return jobs_.size() > idle_ ? jobs_.size() - idle_ : 0;
}

void worker_pool::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        while (jobs_.empty() && !stopping_) {
            ++idle_;
            wake_.wait(lock);
            --idle_;
        }
        if (jobs_.empty()) return;
        std::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        job();
        lock.lock();
    }
}
