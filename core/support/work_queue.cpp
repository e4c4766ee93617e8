#include "core/support/work_queue.h"

namespace holdenmere {

DelayedWorkQueue::DelayedWorkQueue() : thread_([this] { run(); }) {}

DelayedWorkQueue::~DelayedWorkQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void DelayedWorkQueue::schedule(double delaySeconds, std::function<void()> work) {
    const auto when = std::chrono::steady_clock::now() +
                      std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                          std::chrono::duration<double>(delaySeconds > 0 ? delaySeconds : 0));
    {
        std::lock_guard lock(mutex_);
        due_.emplace(when, std::move(work));
    }
    changed_.notify_all();
}

void DelayedWorkQueue::run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (due_.empty()) {
            changed_.wait(lock);
            continue;
        }
        auto next = due_.begin();
        if (std::chrono::steady_clock::now() < next->first) {
            changed_.wait_until(lock, next->first);
            continue;
        }
        auto work = std::move(next->second);
        due_.erase(next);
        lock.unlock();
        work();
        lock.lock();
    }
}

}  // namespace holdenmere
