#include "app/desktop/startup_work.h"

namespace holdenmere::desktop {

BackgroundQueue::~BackgroundQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        waiting_.clear();
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void BackgroundQueue::post(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        waiting_.push_back(std::move(work));
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    }
    changed_.notify_all();
}

void BackgroundQueue::run() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
            if (stopping_) return;
            work = std::move(waiting_.front());
            waiting_.pop_front();
        }
        work();
    }
}

}  // namespace holdenmere::desktop
