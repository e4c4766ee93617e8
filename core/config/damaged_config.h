#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/config/config_store.h"
#include "core/config/holdenmere_config.h"

// A configuration file that does not load, and starting over from the
// defaults without forgetting what Holdenmere switched off: the damaged file
// is kept beside the new one, and every ledger record it still holds is
// carried over, so that giving startup back still knows what to give.
namespace holdenmere {

// What could be read back of a damaged file's ledger.
struct LedgerSalvage {
    // Why no record could be looked at: the text is not JSON, or its top
    // level is not an object. Nothing when the records were looked at.
    std::optional<std::string> unreadable;
    // The default configuration with every ledger record that decodes.
    HoldenmereConfig config;
    // The decoding error of each record that does not.
    std::vector<std::string> lost;

    // How many records were read back: each removed Login Item, switched-off
    // agent, held item, held helper, blocked app, kept-off and opted-out
    // identifier, and the reopen-windows record.
    std::size_t recordCount() const;
};

// Reads the ledger of a configuration's text record by record.
[[nodiscard]] LedgerSalvage salvageLedger(std::string_view text);

// Where a damaged configuration is kept: "config.json.damaged", or
// "config.json.damaged-2" and up, the first name not taken.
std::filesystem::path damagedCopyPath(const std::filesystem::path& configPath);

// How starting from the defaults went.
struct DefaultsStart {
    enum class Kind {
        alreadyReadable,   // the file loads (mended meanwhile, or gone): kept as it is
        nothingRecorded,   // replaced; its ledger held no record
        ledgerKept,        // replaced, with every ledger record carried over
        ledgerPartlyKept,  // replaced, with the records that could be read
        ledgerUnreadable,  // replaced; no record of the ledger could be read
    };

    Kind kind = Kind::alreadyReadable;
    // What the file holds now.
    HoldenmereConfig config;
    // Where the damaged file is kept; empty for alreadyReadable.
    std::filesystem::path damagedCopy;
    std::size_t kept = 0;
    std::size_t lost = 0;

    // Nothing the ledger recorded was lost.
    bool isComplete() const { return kind != Kind::ledgerPartlyKept && kind != Kind::ledgerUnreadable; }
    // What happened, for the user.
    std::string text() const;
};

// Why starting from the defaults changed nothing.
struct DefaultsStartFailure {
    enum class Kind {
        copyNotKept,  // the damaged file could not be read or copied
        notSaved,     // the new configuration could not be written
    };

    Kind kind = Kind::copyNotKept;
    std::string reason;  // the failing call's own text

    std::string text() const;
};

// Replaces a configuration file that does not load with the default
// configuration and every ledger record the file still holds. The damaged
// file is first copied, whole and flushed, to damagedCopyPath(), never over
// an earlier copy; then the new file is saved atomically. A file that loads
// is left as it is. The caller holds the startup mutation lock.
[[nodiscard]] std::variant<DefaultsStart, DefaultsStartFailure> startFromDefaults(const ConfigStore& store);

}  // namespace holdenmere
