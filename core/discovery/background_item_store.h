#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "core/discovery/background_item_scanner.h"
#include "core/support/date.h"

namespace holdenmere {

// The last complete scan of the background items, kept in a small JSON file
// beside the configuration ("background-items.json"). The desktop app saves
// it after each scan a person started; the login pass, which never runs
// sfltool (nobody may be there to authorize it), reads it.
class BackgroundItemStore {
public:
    struct Saved {
        BackgroundItemScanner::Result result;
        Date scannedAt;
        friend bool operator==(const Saved&, const Saved&) = default;
    };

    explicit BackgroundItemStore(std::filesystem::path file) : url(std::move(file)) {}
    // The file in the configuration's folder.
    static BackgroundItemStore besideConfig(const std::filesystem::path& configPath);

    std::filesystem::path url;

    // Nothing when the file is missing, unreadable, too large, damaged or
    // of another format: a saved result is a help, never a requirement.
    std::optional<Saved> load() const;
    // Replaces the file atomically; throws std::system_error when it cannot
    // be written, json::DecodeError when a text is not UTF-8.
    void save(const Saved& saved) const;

    // The file's text read, with nothing for any text load() would refuse,
    // and written as save() writes it.
    static std::optional<Saved> decode(std::string_view text);
    static std::string encode(const Saved& saved);
};

}  // namespace holdenmere
