#include "core/config/config_store.h"

#include <system_error>

#include "core/config/config_codec.h"
#include "core/support/environment.h"
#include "core/support/files.h"

namespace holdenmere {

ConfigStoreError::ConfigStoreError(Kind kind, std::string description)
    : std::runtime_error((kind == Kind::read ? "Could not read config: " : "Could not write config: ") + description),
      kind_(kind),
      description_(std::move(description)) {}

std::filesystem::path ConfigStore::defaultURL() {
    return homeDirectory() / "Library" / "Application Support" / "Holdenmere" / "config.json";
}

ConfigStore ConfigStore::resolving(const std::optional<std::string>& override) {
    if (override && !override->empty()) return ConfigStore{*override};
    return ConfigStore{defaultURL()};
}

HoldenmereConfig ConfigStore::load() const {
    std::string text;
    try {
        text = files::read(url);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory) return HoldenmereConfig{};
        throw ConfigStoreError(ConfigStoreError::Kind::read, error.what());
    }
    try {
        HoldenmereConfig config = config_codec::decode(text);
        config.settings = config.settings.validated();
        return config;
    } catch (const json::DecodeError& error) {
        throw ConfigStoreError(ConfigStoreError::Kind::read, error.what());
    }
}

std::optional<HoldenmereConfig> ConfigStore::tryLoad() const {
    try {
        return load();
    } catch (const ConfigStoreError&) {
        return std::nullopt;
    }
}

void ConfigStore::save(const HoldenmereConfig& config) const {
    try {
        files::writeAtomically(url, json::encodePretty(config_codec::encode(config)));
    } catch (const std::system_error& error) {
        throw ConfigStoreError(ConfigStoreError::Kind::write, error.what());
    } catch (const json::DecodeError& error) {
        throw ConfigStoreError(ConfigStoreError::Kind::write, error.what());
    }
}

}  // namespace holdenmere
