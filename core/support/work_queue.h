#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace holdenmere {

// One background thread that runs work after a delay, in due order. Work
// still waiting when the queue is destroyed is dropped.
class DelayedWorkQueue {
public:
    DelayedWorkQueue();
    ~DelayedWorkQueue();
    DelayedWorkQueue(const DelayedWorkQueue&) = delete;
    DelayedWorkQueue& operator=(const DelayedWorkQueue&) = delete;

    void schedule(double delaySeconds, std::function<void()> work);

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> due_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace holdenmere
