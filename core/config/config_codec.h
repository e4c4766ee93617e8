#pragma once

#include <string>
#include <string_view>

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

}  // namespace holdenmere::config_codec
