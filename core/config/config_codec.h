#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/support/json.h"

// config.json <-> HoldenmereConfig. Decoding is strict about types and
// enumeration strings (one bad value fails the whole file) and tolerant of
// missing optional keys; unknown keys are ignored.
namespace holdenmere::config_codec {

// Throws json::DecodeError. Derives the consent when the file has none; the
// settings are returned as stored (the store clamps them).
HoldenmereConfig decode(std::string_view text);
HoldenmereConfig decodeValue(const json::Value& value);

json::Value encode(const HoldenmereConfig& config);

// Single records, for the stores and tools that keep them elsewhere.
json::Value encode(const HeldStartupItem& item);
HeldStartupItem decodeHeldStartupItem(const json::Value& value, const std::string& path);

// What a lenient read of a configuration's ledger found, for a file that
// does not decode as a whole.
struct LedgerRecords {
    // The default configuration with every ledger record that decodes: the
    // take-over records (each Login Item and agent on its own), held startup
    // items, delayed helpers, blocked apps, "keptOff", "restoreOptOuts" and
    // the reopen-windows record.
    HoldenmereConfig config;
    // The decoding error of each record (or ledger key) that does not.
    std::vector<std::string> lost;
};
// Reads the ledger keys of a configuration record by record, so that one
// bad record loses that record only. Throws json::DecodeError when `value`
// is not an object.
LedgerRecords decodeLedgerRecords(const json::Value& value);

}  // namespace holdenmere::config_codec
