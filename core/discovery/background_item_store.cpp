#include "core/discovery/background_item_store.h"

#include <exception>

#include "core/support/files.h"
#include "core/support/json.h"

namespace holdenmere {
namespace {

constexpr int kFormat = 1;
constexpr const char* kLaunchAgent = "launchAgent";
constexpr const char* kOpenLoginItemsSettings = "openLoginItemsSettings";
constexpr const char* kAppRecord = "app";

json::Value encodeItem(const BackgroundItemScanner::Item& entry) {
    json::Value value{{"bundleIdentifier", entry.item.bundleIdentifier},
                      {"name", entry.item.name},
                      {"identifier", std::get<StartupItem::BackgroundItem>(entry.item.source).identifier}};
    if (entry.item.path) value["path"] = *entry.item.path;
    if (entry.appRecord) value["kind"] = kAppRecord;
    if (const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&entry.remedy)) {
        value["remedy"] = kLaunchAgent;
        value["label"] = agent->label;
        value["plistPath"] = agent->plistPath;
    } else {
        value["remedy"] = kOpenLoginItemsSettings;
    }
    return value;
}

BackgroundItemScanner::Item decodeItem(const json::Value& value, const std::string& path) {
    const json::ObjectReader reader(value, path);
    BackgroundItemScanner::Item entry{
        StartupItem{reader.string("bundleIdentifier"), reader.string("name"), reader.optionalString("path"),
                    StartupItem::BackgroundItem{reader.string("identifier")}},
        BackgroundItemScanner::OpenLoginItemsSettings{},
        reader.optionalString("kind") == std::optional<std::string>(kAppRecord)};
    const std::string remedy = reader.string("remedy");
    if (remedy == kLaunchAgent) {
        entry.remedy = BackgroundItemScanner::LaunchAgent{reader.string("label"), reader.string("plistPath")};
    } else if (remedy != kOpenLoginItemsSettings) {
        throw json::DecodeError(reader.pathOf("remedy") + ": unknown remedy");
    }
    return entry;
}

IneligibleStartupItem decodeIneligible(const json::Value& value, const std::string& path) {
    const json::ObjectReader reader(value, path);
    return {reader.string("name"), reader.string("bundleIdentifier"), reader.string("label"), reader.string("reason")};
}

}  // namespace

BackgroundItemStore BackgroundItemStore::besideConfig(const std::filesystem::path& configPath) {
    return BackgroundItemStore(configPath.parent_path() / "background-items.json");
}

std::optional<BackgroundItemStore::Saved> BackgroundItemStore::load() const {
    std::string text;
    try {
        // A result is a few kilobytes; the reader's limit refuses anything
        // far larger, and a pipe, without waiting.
        text = files::read(url);
    } catch (const files::ReadError&) {
        return std::nullopt;
    }
    return decode(text);
}

std::optional<BackgroundItemStore::Saved> BackgroundItemStore::decode(std::string_view text) {
    try {
        const json::Value value = json::parse(text);
        const json::ObjectReader reader(value, "");
        if (reader.integer("format") != kFormat) return std::nullopt;
        Saved saved;
        saved.scannedAt = reader.date("scannedAt");
        saved.result.items = reader.array("items", decodeItem);
        saved.result.ineligible = reader.array("ineligible", decodeIneligible);
        return saved;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void BackgroundItemStore::save(const Saved& saved) const { files::writeAtomically(url, encode(saved), 0600); }

std::string BackgroundItemStore::encode(const Saved& saved) {
    json::Value items = json::Value::array();
    for (const auto& entry : saved.result.items) items.push_back(encodeItem(entry));
    json::Value ineligible = json::Value::array();
    for (const auto& item : saved.result.ineligible) {
        ineligible.push_back(
            {{"name", item.name}, {"bundleIdentifier", item.bundleIdentifier}, {"label", item.label}, {"reason", item.reason}});
    }
    const json::Value document{{"format", kFormat},
                               {"scannedAt", saved.scannedAt.secondsSinceReferenceDate},
                               {"items", items},
                               {"ineligible", ineligible}};
    return json::encodePretty(document);
}

}  // namespace holdenmere
