#pragma once

// Background-item records as `sfltool dumpbtm` prints them (see
// tests/fixtures/sfltool): a section per user, keys right-aligned to the
// colon, a blank line between records. Shared by the fake sfltool and the
// tests that build records of every type and disposition.
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace holdenmere::testing {

struct FakeBackgroundItem {
    std::string name;
    std::string type = "agent (0x8)";
    std::string disposition = "[enabled, allowed, notified] (0xb)";
    std::string identifier;
    std::string url = "(null)";
    std::optional<std::string> executablePath;
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> parentIdentifier;
    std::optional<std::string> uid;  // the section it is printed in; the current user's when absent

};

inline void to_json(nlohmann::json& json, const FakeBackgroundItem& item) {
    json = {{"name", item.name}, {"type", item.type}, {"disposition", item.disposition},
            {"identifier", item.identifier}, {"url", item.url}};
    if (item.executablePath) json["executablePath"] = *item.executablePath;
    if (item.bundleIdentifier) json["bundleIdentifier"] = *item.bundleIdentifier;
    if (item.parentIdentifier) json["parentIdentifier"] = *item.parentIdentifier;
    if (item.uid) json["uid"] = *item.uid;
}

inline void from_json(const nlohmann::json& json, FakeBackgroundItem& item) {
    auto optional = [&](const char* key) -> std::optional<std::string> {
        if (!json.contains(key)) return std::nullopt;
        return json.at(key).get<std::string>();
    };
    item.name = json.value("name", "");
    item.type = json.value("type", item.type);
    item.disposition = json.value("disposition", item.disposition);
    item.identifier = json.value("identifier", "");
    item.url = json.value("url", item.url);
    item.executablePath = optional("executablePath");
    item.bundleIdentifier = optional("bundleIdentifier");
    item.parentIdentifier = optional("parentIdentifier");
    item.uid = optional("uid");
}

inline std::string btmLine(const std::string& key, const std::string& value) {
    constexpr std::size_t kWidth = 21;
    std::string line = key.size() < kWidth ? std::string(kWidth - key.size(), ' ') + key : key;
    return line + ": " + value + "\n";
}

inline std::string btmRecord(int number, const FakeBackgroundItem& item) {
    std::string text = " #" + std::to_string(number) + ":\n";
    text += btmLine("UUID", "9A1C2F40-0000-4000-8000-" + std::string(12 - std::to_string(number).size(), '0') +
                                std::to_string(number));
    text += btmLine("Name", item.name);
    text += btmLine("Developer Name", "(null)");
    text += btmLine("Type", item.type);
    text += btmLine("Flags", "[  ] (0)");
    text += btmLine("Disposition", item.disposition);
    text += btmLine("Identifier", item.identifier);
    text += btmLine("URL", item.url);
    if (item.executablePath) text += btmLine("Executable Path", *item.executablePath);
    text += btmLine("Generation", "1");
    if (item.bundleIdentifier) text += btmLine("Bundle Identifier", *item.bundleIdentifier);
    if (item.parentIdentifier) text += btmLine("Parent Identifier", *item.parentIdentifier);
    return text + "\n";
}

inline std::string btmSection(const std::string& uid, const std::vector<FakeBackgroundItem>& items) {
    std::string text = "========================\n Records for UID " + uid +
                       " : 4E2A9C1B-7D3F-4A55-9E61-0C8B2D4F6A" + (uid.size() < 2 ? "0" + uid : uid.substr(0, 2)) +
                       "\n========================\n\n ServiceManagement migrated: true\n"
                       " LaunchServices registered: true\n\n Items:\n\n";
    int number = 0;
    for (const auto& item : items) text += btmRecord(++number, item);
    return text;
}

}  // namespace holdenmere::testing
