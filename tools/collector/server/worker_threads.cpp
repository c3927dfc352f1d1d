#include "server/worker_threads.h"

#include <system_error>

void worker_threads::join() {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        all_done_.wait(lock, [this] { return busy_ == 0; });
    }
    pool_.stop();
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
}

void worker_threads::start_one() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (threads_.size() >= most_ || busy_ <= threads_.size()) return;
    try {
        threads_.emplace_back([this] { pool_.attach(); });
        started_ = threads_.size();
    } catch (const std::system_error&) {
        // No more threads from the system: the job waits for a busy one.
    }
}

void worker_threads::finished_one() {
    if (--busy_ > 0) return;
    std::lock_guard<std::mutex> lock(mutex_);
    all_done_.notify_all();
}
