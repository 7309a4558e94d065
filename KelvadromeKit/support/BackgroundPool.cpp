#include "KelvadromeKit/support/BackgroundPool.h"

#include <system_error>

namespace kelvadrome {

BackgroundPool::~BackgroundPool() {
    std::vector<std::thread> threads;
    {
        std::lock_guard guard(lock_);
        closing_ = true;
        threads.swap(threads_);
    }
    wake_.notify_all();
    for (auto& thread : threads)
        thread.join();
}

void BackgroundPool::post(std::function<void()> job) {
    {
        std::lock_guard guard(lock_);
        jobs_.push_back(std::move(job));
        if (jobs_.size() > idle_)
            grow();
    }
    wake_.notify_one();
}

void BackgroundPool::grow() {
    try {
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // The system gives no more threads: the job waits for one of those that are there.
        if (!threads_.empty())
            return;
        jobs_.pop_back();
        throw;
    }
}

void BackgroundPool::work() {
    std::unique_lock guard(lock_);
    for (;;) {
        ++idle_;
        wake_.wait(guard, [this] { return closing_ || !jobs_.empty(); });
        --idle_;
        if (jobs_.empty())
            return;
        auto job = std::move(jobs_.front());
        jobs_.pop_front();
        guard.unlock();
        job();
        job = nullptr;
        guard.lock();
    }
}

} // namespace kelvadrome
