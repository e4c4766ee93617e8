#include "app/desktop/startup_work.h"

#include <cerrno>
#include <system_error>

#include "app/desktop/config_session.h"
#include "core/takeover/startup_mutation_lock.h"

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

std::optional<std::string> StartupTransaction::run(const ConfigStore& store,
                                                   const std::function<void(StartupTransaction&)>& work) {
    std::optional<StartupMutationLock::Lease> lease;
    try {
        lease.emplace(StartupMutationLock(store.url).acquire(/*wait=*/false));
    } catch (const std::system_error& error) {
        if (error.code().value() == EWOULDBLOCK) return ConfigSession::lockBusyText().toStdString();
        return "Could not lock the settings: " + std::string(error.what());
    }
    StartupTransaction transaction(store);
    try {
        transaction.config = store.load();
    } catch (const ConfigStoreError& error) {
        return std::string(error.what());
    }
    transaction.saved_ = transaction.config;
    work(transaction);
    return std::nullopt;
}

std::optional<std::string> StartupTransaction::save() {
    try {
        store_.save(config);
    } catch (const ConfigStoreError& error) {
        return std::string(error.what());
    }
    saved_ = config;
    return std::nullopt;
}

}  // namespace holdenmere::desktop
