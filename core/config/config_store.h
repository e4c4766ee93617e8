#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "core/config/holdenmere_config.h"

namespace holdenmere {

// A failure of the config store; what() is the user text
// ("Could not read config: ..." / "Could not write config: ...").
class ConfigStoreError : public std::runtime_error {
public:
    enum class Kind { read, write };
    ConfigStoreError(Kind kind, std::string description);

    Kind kind() const { return kind_; }
    // The underlying failure's own text, without the prefix.
    const std::string& description() const { return description_; }

private:
    Kind kind_;
    std::string description_;
};

// Owns config.json. Every call reads or rewrites the whole file; the store
// takes no lock (writers of startup state hold the startup mutation lock).
struct ConfigStore {
    std::filesystem::path url;

    // "~/Library/Application Support/Holdenmere/config.json".
    static std::filesystem::path defaultURL();
    // The override path as it stands, or the default when absent or empty.
    static ConfigStore resolving(const std::optional<std::string>& override);

    // The config with its settings clamped; the default config when no file
    // exists (nothing is written). Throws ConfigStoreError read; a file that
    // cannot be read is left exactly as it is.
    HoldenmereConfig load() const;
    // The same, or nothing for callers that carry on without the file
    // (whose damage is told elsewhere) rather than report it.
    [[nodiscard]] std::optional<HoldenmereConfig> tryLoad() const;
    // Writes the whole config atomically, creating missing folders. Throws
    // ConfigStoreError write; the previous file then stays intact.
    void save(const HoldenmereConfig& config) const;
};

}  // namespace holdenmere
