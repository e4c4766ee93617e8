#include "core/takeover/startup_transaction.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <system_error>

#include "core/support/log_text.h"

namespace holdenmere {

ConfigAccess ConfigAccess::of(const ConfigStore& store) {
    return ConfigAccess{store.url, [store] { return store.load(); },
                        [store](const HoldenmereConfig& config) { store.save(config); }};
}

std::string StartupTransaction::Failure::text(const std::filesystem::path& configPath) const {
    switch (kind) {
        case Kind::lockBusy:
            return "Holdenmere is changing your startup items right now. Nothing was changed; try again in a moment.";
        case Kind::lockUnavailable:
            return "startup mutation lock unavailable" + std::string(kDash) + reason;
        case Kind::configUnreadable:
            return "config unreadable at " + configPath.string() + ": " + reason;
        case Kind::outOfTime:
            return "the startup mutation lock was still held elsewhere when the time for changes ran out";
    }
    return reason;
}

StartupTransaction::StartupTransaction(ConfigAccess access, std::optional<StartupMutationLock::Lease> lease)
    : access_(std::move(access)), lease_(std::move(lease)) {}

StartupTransaction::Begun StartupTransaction::begin(ConfigAccess access, Wait wait, const Signal* cancellation,
                                                    std::optional<double> patience) {
    std::optional<StartupMutationLock::Lease> lease;
    const StartupMutationLock lock(access.url);
    const Signal neverRaised;
    if (patience && cancellation == nullptr) cancellation = &neverRaised;
    const bool polling = wait == Wait::untilFree && cancellation != nullptr;
    const auto givingUp = std::chrono::steady_clock::now() + std::chrono::duration<double>(patience.value_or(0.0));
    for (;;) {
        try {
            lease.emplace(lock.acquire(wait == Wait::untilFree && !polling));
            break;
        } catch (const std::system_error& error) {
            const bool held = error.code().value() == EWOULDBLOCK;
            const bool patient = !patience || std::chrono::steady_clock::now() < givingUp;
            if (polling && held && patient && !cancellation->waitFor(0.05)) continue;
            if (polling && held) return Failure{Failure::Kind::outOfTime, {}};
            return Failure{held && wait == Wait::never ? Failure::Kind::lockBusy : Failure::Kind::lockUnavailable,
                           error.what()};
        }
    }
    StartupTransaction transaction(std::move(access), std::move(lease));
    if (auto failure = transaction.refresh()) return Failure{Failure::Kind::configUnreadable, *failure};
    return transaction;
}

std::variant<StartupTransaction, StartupTransaction::Failure> StartupTransaction::underHeldLock(ConfigAccess access) {
    StartupTransaction transaction(std::move(access), std::nullopt);
    if (auto failure = transaction.refresh()) return Failure{Failure::Kind::configUnreadable, *failure};
    return transaction;
}

std::optional<std::string> StartupTransaction::refresh() {
    try {
        config_ = access_.load();
        return std::nullopt;
    } catch (const std::exception& error) {
        return std::string(error.what());
    }
}

std::optional<std::string> StartupTransaction::commit(const std::function<void(HoldenmereConfig&)>& change) {
    if (!open_) return std::string("the startup mutation lock was already given up");
    HoldenmereConfig fresh;
    try {
        fresh = access_.load();
    } catch (const std::exception& error) {
        return std::string(error.what());
    }
    for (const auto& earlier : committed_) earlier(fresh);
    change(fresh);
    // Once saved the file carries the ledger's keys.
    fresh.predatesLedger = false;
    try {
        access_.save(fresh);
    } catch (const std::exception& error) {
        return std::string(error.what());
    }
    committed_.push_back(change);
    config_ = std::move(fresh);
    return std::nullopt;
}

void StartupTransaction::end() {
    open_ = false;
    if (lease_) lease_->release();
}

}  // namespace holdenmere
