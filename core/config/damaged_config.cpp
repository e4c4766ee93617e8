#include "core/config/damaged_config.h"

#include <cerrno>
#include <system_error>

#include "core/config/config_codec.h"
#include "core/support/files.h"

namespace holdenmere {
namespace {

std::filesystem::path numberedCopy(const std::filesystem::path& configPath, int number) {
    std::filesystem::path candidate = configPath;
    candidate += number == 1 ? std::string(".damaged") : ".damaged-" + std::to_string(number);
    return candidate;
}

// Copies the damaged bytes to the first free name; an earlier copy is never
// replaced, even by one that another process made in the meantime.
std::filesystem::path keepCopy(const std::filesystem::path& configPath, std::string_view bytes) {
    for (int number = 1;; ++number) {
        const auto candidate = numberedCopy(configPath, number);
        if (files::exists(candidate)) continue;
        if (files::createAtomically(candidate, bytes, 0600)) return candidate;
    }
}

std::string counted(std::size_t count, std::string_view one, std::string_view many) {
    return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

DefaultsStart::Kind kindOf(const LedgerSalvage& salvage, std::size_t kept) {
    using Kind = DefaultsStart::Kind;
    if (salvage.unreadable) return Kind::ledgerUnreadable;
    if (salvage.lost.empty()) return kept == 0 ? Kind::nothingRecorded : Kind::ledgerKept;
    return kept == 0 ? Kind::ledgerUnreadable : Kind::ledgerPartlyKept;
}

}  // namespace

std::size_t LedgerSalvage::recordCount() const {
    std::size_t count = config.heldStartup.size() + config.delayedHelpers.size() + config.blockedApps.size() +
                        config.keptOff.size() + config.restoreOptOuts.size() +
                        (config.reopenWindowsOriginal ? 1 : 0);
    for (const auto& record : config.takeovers) count += record.loginItems.size() + record.agents.size();
    return count;
}

LedgerSalvage salvageLedger(std::string_view text) {
    LedgerSalvage salvage;
    try {
        auto records = config_codec::decodeLedgerRecords(json::parse(text));
        salvage.config = std::move(records.config);
        salvage.lost = std::move(records.lost);
    } catch (const json::DecodeError& error) {
        salvage.unreadable = error.what();
    }
    return salvage;
}

std::filesystem::path damagedCopyPath(const std::filesystem::path& configPath) {
    int number = 1;
    while (files::exists(numberedCopy(configPath, number))) ++number;
    return numberedCopy(configPath, number);
}

std::string DefaultsStart::text() const {
    const std::string copy = damagedCopy.string();
    const std::string started = "Started from defaults. ";
    switch (kind) {
        case Kind::alreadyReadable:
            return "The settings file can be read again, so Holdenmere kept it as it is.";
        case Kind::nothingRecorded:
            return started + "The damaged file recorded nothing that Holdenmere switched off; it is kept in " + copy +
                   ".";
        case Kind::ledgerKept:
            return started + "The records of what Holdenmere switched off were kept (" +
                   counted(kept, "record", "records") +
                   "), so Give Everything Back still works. The damaged file is kept in " + copy + ".";
        case Kind::ledgerPartlyKept:
            return started + counted(kept, "record", "records") + " of what Holdenmere switched off " +
                   (kept == 1 ? "was" : "were") + " kept, so Give Everything Back still works for " +
                   (kept == 1 ? "it" : "them") + "; " + std::to_string(lost) + " could not be read and " +
                   (lost == 1 ? "is" : "are") + " kept in " + copy + ".";
        case Kind::ledgerUnreadable:
            return started + "The records of what Holdenmere switched off could not be read; they are kept in " +
                   copy + ".";
    }
    return started;
}

std::string DefaultsStartFailure::text() const {
    switch (kind) {
        case Kind::copyNotKept:
            return "Could not keep a copy of the damaged settings, so nothing was changed: " + reason;
        case Kind::notSaved:
            return reason + " The damaged settings file was left as it was.";
    }
    return reason;
}

std::variant<DefaultsStart, DefaultsStartFailure> startFromDefaults(const ConfigStore& store) {
    if (auto readable = store.tryLoad()) return DefaultsStart{DefaultsStart::Kind::alreadyReadable, *readable, {}, 0, 0};

    // The same bytes are kept and read back, so the copy holds whatever the
    // new file was made from.
    std::string bytes;
    std::filesystem::path copy;
    try {
        bytes = files::read(store.url);
        copy = keepCopy(store.url, bytes);
    } catch (const std::system_error& error) {
        if (error.code().value() == ENOENT && !files::exists(store.url)) {
            return DefaultsStart{DefaultsStart::Kind::alreadyReadable, HoldenmereConfig{}, {}, 0, 0};
        }
        return DefaultsStartFailure{DefaultsStartFailure::Kind::copyNotKept, error.what()};
    }

    LedgerSalvage salvage = salvageLedger(bytes);
    try {
        store.save(salvage.config);
    } catch (const ConfigStoreError& error) {
        return DefaultsStartFailure{DefaultsStartFailure::Kind::notSaved, error.what()};
    }
    const std::size_t kept = salvage.recordCount();
    const std::size_t lost = salvage.unreadable ? 0 : salvage.lost.size();
    return DefaultsStart{kindOf(salvage, kept), std::move(salvage.config), copy, kept, lost};
}

}  // namespace holdenmere
