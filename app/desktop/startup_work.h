#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "core/config/config_store.h"

namespace holdenmere::desktop {

// One worker thread that runs posted work in order, so that scans and
// changes that ask System Events or launchd never freeze the window. Work
// still waiting when the queue is destroyed is dropped; the work that is
// running is waited for.
class BackgroundQueue {
public:
    BackgroundQueue() = default;
    ~BackgroundQueue();
    BackgroundQueue(const BackgroundQueue&) = delete;
    BackgroundQueue& operator=(const BackgroundQueue&) = delete;

    void post(std::function<void()> work);

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> waiting_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace holdenmere::desktop
