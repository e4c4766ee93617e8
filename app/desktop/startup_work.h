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

// A change of startup state, made as every writer of it must: holding the
// startup mutation lock (taken without waiting: a login pass that holds it
// is busy changing startup items), on a fresh read of the configuration,
// saved whole with an atomic replace. Works on any thread.
class StartupTransaction {
public:
    // Takes the lock and reads the configuration, then runs `work`; the lock
    // is held until `work` returns. The problem when the lock is busy or the
    // configuration cannot be read (nothing was run then), or nothing.
    static std::optional<std::string> run(const ConfigStore& store,
                                          const std::function<void(StartupTransaction&)>& work);

    // The configuration as read, with the changes made so far.
    HoldenmereConfig config;

    // Saves `config`; the error's text when it could not be saved.
    std::optional<std::string> save();
    // The configuration as last read or saved: what is on disk.
    const HoldenmereConfig& saved() const { return saved_; }

private:
    explicit StartupTransaction(const ConfigStore& store) : store_(store) {}

    const ConfigStore& store_;
    HoldenmereConfig saved_;
};

}  // namespace holdenmere::desktop
