#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/config/config_store.h"
#include "core/config/holdenmere_config.h"
#include "core/support/clock.h"
#include "core/takeover/startup_mutation_lock.h"

namespace holdenmere {

// The configuration file as the startup-change engine reads and writes it.
// The startup mutation lock lies beside `url`. `load` and `save` throw as the
// configuration store does; tests hand in their own.
struct ConfigAccess {
    std::filesystem::path url;
    std::function<HoldenmereConfig()> load;
    std::function<void(const HoldenmereConfig&)> save;

    static ConfigAccess of(const ConfigStore& store);
};

// One holder of the startup mutation lock with the configuration as it reads
// under that lock. Every change of startup state happens inside one: the
// recovery entry is committed (a fresh read, the transaction's changes so
// far, this change, one atomic save) before the system is touched.
class StartupTransaction {
public:
    enum class Wait { untilFree, never };

    // Why a transaction could not begin. Nothing was changed.
    struct Failure {
        // `outOfTime`: the lock was still held elsewhere when the
        // cancellation was raised.
        enum class Kind { lockBusy, lockUnavailable, configUnreadable, outOfTime };
        Kind kind = Kind::lockUnavailable;
        std::string reason;  // the failing call's own text

        // "startup mutation lock unavailable — {reason}", "config unreadable
        // at {path}: {reason}", or the busy text.
        std::string text(const std::filesystem::path& configPath) const;
    };

    using Begun = std::variant<StartupTransaction, Failure>;

    // Takes the lock (waiting for it, or failing at once when another
    // process holds it), then reads the configuration. With a cancellation
    // the wait asks again every 50 ms and gives up once it is raised: a
    // thread blocked in flock could not be woken by a deadline, and a login
    // pass must never hang behind another holder. With `patience` as well,
    // the wait also gives up (`outOfTime`) after that many seconds.
    [[nodiscard]] static Begun begin(ConfigAccess access, Wait wait, const Signal* cancellation = nullptr,
                                     std::optional<double> patience = std::nullopt);
    // A transaction over a configuration without taking the lock, for a
    // caller that already holds it for its whole run.
    [[nodiscard]] static std::variant<StartupTransaction, Failure> underHeldLock(ConfigAccess access);

    StartupTransaction(StartupTransaction&&) = default;
    StartupTransaction& operator=(StartupTransaction&&) = default;

    // What the file holds, as last read or committed.
    const HoldenmereConfig& config() const { return config_; }
    const std::filesystem::path& configPath() const { return access_.url; }

    // Applies `change` to a fresh read of the file with every change this
    // transaction committed before applied again, and saves the result
    // whole. The error's text when nothing was saved; `config()` is then as
    // it was. Changes must be idempotent (record, forget, manage).
    [[nodiscard]] std::optional<std::string> commit(const std::function<void(HoldenmereConfig&)>& change);
    // Reads the file again; the error's text when it cannot be read.
    [[nodiscard]] std::optional<std::string> refresh();

    // Gives the lock up; the transaction can no longer commit.
    void end();
    bool isOpen() const { return open_; }

private:
    StartupTransaction(ConfigAccess access, std::optional<StartupMutationLock::Lease> lease);

    ConfigAccess access_;
    std::optional<StartupMutationLock::Lease> lease_;
    HoldenmereConfig config_;
    std::vector<std::function<void(HoldenmereConfig&)>> committed_;
    bool open_ = true;
};

}  // namespace holdenmere
