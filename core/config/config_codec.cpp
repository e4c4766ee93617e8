#include "core/config/config_codec.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace holdenmere::config_codec {
namespace {

using json::ObjectReader;
using json::Value;

template <class Enum, class FromRaw>
Enum decodeEnum(const Value& value, const std::string& path, std::string_view what, FromRaw fromRaw) {
    std::string raw = json::decodeString(value, path);
    if (auto decoded = fromRaw(raw)) return *decoded;
    throw json::DecodeError("\"" + path + "\": \"" + raw + "\" is not a " + std::string(what));
}

GateSettings decodeSettings(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    GateSettings settings;
    settings.probeURL = reader.string("probeURL");
    settings.pollInterval = reader.number("pollInterval");
    settings.maxAttempts = reader.integer("maxAttempts");
    settings.launchAnywayOnTimeout = reader.boolean("launchAnywayOnTimeout");
    settings.isEnabled = reader.boolean("isEnabled");
    settings.menuBarMode = reader.boolean("menuBarMode", false);
    settings.openAppAtLogin = reader.boolean("openAppAtLogin", false);
    return settings;
}

ManagedApp decodeApp(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    ManagedApp app;
    app.bundleIdentifier = reader.string("bundleIdentifier");
    app.name = reader.string("name");
    app.path = reader.string("path");
    app.isEnabled = reader.boolean("isEnabled", true);
    app.launchHidden = reader.boolean("launchHidden", false);
    app.importedFromLoginItem = reader.boolean("importedFromLoginItem", false);
    app.importedFromStartup = reader.boolean("importedFromStartup", false);
    app.delaySeconds = reader.number("delaySeconds", 0);
    return app;
}

DelayedHelper decodeHelper(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    DelayedHelper helper;
    helper.label = reader.string("label");
    helper.plistPath = reader.string("plistPath");
    helper.appBundleIdentifier = reader.string("appBundleIdentifier");
    helper.name = reader.string("name");
    helper.mode = decodeEnum<DelayedHelper::Mode>(reader.require("mode"), reader.pathOf("mode"), "helper mode",
                                                  delayedHelperModeFromRaw);
    return helper;
}

BlockedApp decodeBlocked(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    return BlockedApp{reader.string("bundleIdentifier"), reader.string("name"), reader.string("path")};
}

DisabledAgent decodeAgent(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    DisabledAgent agent{reader.string("label"), reader.string("plistPath"), reader.boolean("inferred")};
    if (const Value* unconfirmed = reader.find("unconfirmed")) {
        agent.unconfirmed = json::decodeBool(*unconfirmed, reader.pathOf("unconfirmed"));
    }
    return agent;
}

RemovedLoginItem decodeLoginItem(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    return RemovedLoginItem{reader.string("path"), reader.boolean("hidden")};
}

Value encodeLoginItem(const RemovedLoginItem& item) { return Value{{"path", item.path}, {"hidden", item.hidden}}; }

TakeoverRecord decodeTakeover(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    TakeoverRecord record;
    record.bundleIdentifier = reader.string("bundleIdentifier");
    record.name = reader.string("name");
    // "loginItem" holds the first removed Login Item, "additionalLoginItems"
    // the others of the same app: a file with one item reads as it always did.
    if (const Value* item = reader.find("loginItem")) {
        record.loginItems.push_back(decodeLoginItem(*item, reader.pathOf("loginItem")));
    }
    for (auto& item : reader.optionalArray("additionalLoginItems", decodeLoginItem)) {
        if (record.loginItem(item.path) == nullptr) record.loginItems.push_back(std::move(item));
    }
    record.agents = reader.array("agents", decodeAgent);
    return record;
}

ReopenWindowsRecord decodeReopenWindows(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    ReopenWindowsRecord record;
    if (const Value* saves = reader.find("logoutSavesState")) {
        record.logoutSavesState = json::decodeBool(*saves, reader.pathOf("logoutSavesState"));
    }
    if (const Value* relaunch = reader.find("launchesRelaunchApps")) {
        record.launchesRelaunchApps = json::decodeBool(*relaunch, reader.pathOf("launchesRelaunchApps"));
    }
    record.recordedAt = reader.date("recordedAt");
    return record;
}

Value encodeDate(Date date) { return Value(date.secondsSinceReferenceDate); }

Value encodeSettings(const GateSettings& settings) {
    return Value{
        {"probeURL", settings.probeURL},
        {"pollInterval", settings.pollInterval},
        {"maxAttempts", settings.maxAttempts},
        {"launchAnywayOnTimeout", settings.launchAnywayOnTimeout},
        {"isEnabled", settings.isEnabled},
        {"menuBarMode", settings.menuBarMode},
        {"openAppAtLogin", settings.openAppAtLogin},
    };
}

Value encodeApp(const ManagedApp& app) {
    return Value{
        {"bundleIdentifier", app.bundleIdentifier},
        {"name", app.name},
        {"path", app.path},
        {"isEnabled", app.isEnabled},
        {"launchHidden", app.launchHidden},
        {"importedFromLoginItem", app.importedFromLoginItem},
        {"importedFromStartup", app.importedFromStartup},
        {"delaySeconds", app.delaySeconds},
    };
}

Value encodeTakeover(const TakeoverRecord& record) {
    Value agents = Value::array();
    for (const auto& agent : record.agents) {
        Value encodedAgent{{"label", agent.label}, {"plistPath", agent.plistPath}, {"inferred", agent.inferred}};
        if (agent.unconfirmed) encodedAgent["unconfirmed"] = true;
        agents.push_back(std::move(encodedAgent));
    }
    Value encoded{{"bundleIdentifier", record.bundleIdentifier}, {"name", record.name}, {"agents", agents}};
    if (!record.loginItems.empty()) {
        encoded["loginItem"] = encodeLoginItem(record.loginItems.front());
        if (record.loginItems.size() > 1) {
            Value others = Value::array();
            for (auto item = std::next(record.loginItems.begin()); item != record.loginItems.end(); ++item) {
                others.push_back(encodeLoginItem(*item));
            }
            encoded["additionalLoginItems"] = std::move(others);
        }
    }
    return encoded;
}

template <class T, class Encode>
Value encodeArray(const std::vector<T>& items, Encode encodeItem) {
    Value array = Value::array();
    for (const auto& item : items) array.push_back(encodeItem(item));
    return array;
}

}  // namespace

HeldStartupItem decodeHeldStartupItem(const Value& value, const std::string& path) {
    ObjectReader reader(value, path);
    HeldStartupItem item;
    item.source = decodeEnum<StartupSource>(reader.require("source"), reader.pathOf("source"), "startup source",
                                            startupSourceFromRaw);
    item.handle = reader.string("handle");
    item.ownerBundleIdentifier = reader.optionalString("ownerBundleIdentifier");
    item.name = reader.string("name");
    item.previous = reader.string("previous");
    item.plistPath = reader.optionalString("plistPath");
    item.recordedAt = reader.date("recordedAt");
    return item;
}

Value encode(const HeldStartupItem& item) {
    Value encoded{
        {"source", std::string(rawValue(item.source))},
        {"handle", item.handle},
        {"name", item.name},
        {"previous", item.previous},
        {"recordedAt", encodeDate(item.recordedAt)},
    };
    if (item.ownerBundleIdentifier) encoded["ownerBundleIdentifier"] = *item.ownerBundleIdentifier;
    if (item.plistPath) encoded["plistPath"] = *item.plistPath;
    return encoded;
}

HoldenmereConfig decodeValue(const Value& value) {
    ObjectReader reader(value, "");
    HoldenmereConfig config;
    config.settings = decodeSettings(reader.require("settings"), "settings");
    config.apps = reader.array("apps", decodeApp);
    config.delayedHelpers = reader.optionalArray("delayedHelpers", decodeHelper);
    config.blockedApps = reader.optionalArray("blockedApps", decodeBlocked);
    config.takeovers = reader.optionalArray("takeovers", decodeTakeover);
    config.predatesLedger = reader.find("takeovers") == nullptr;
    config.keptOff = reader.optionalArray("keptOff", json::decodeString);
    config.leftToMacOS = reader.optionalArray("leftToMacOS", json::decodeString);
    config.restoreOptOuts = reader.optionalArray("restoreOptOuts", json::decodeString);
    if (const Value* reopen = reader.find("reopenWindowsOriginal")) {
        config.reopenWindowsOriginal = decodeReopenWindows(*reopen, "reopenWindowsOriginal");
    }
    config.heldStartup = reader.optionalArray("heldStartup", decodeHeldStartupItem);
    config.loginItemsOrder = reader.optionalArray("loginItemsOrder", json::decodeString);
    if (reader.find("giveBackGeneration") != nullptr) {
        config.giveBackGeneration = static_cast<std::uint64_t>(std::max<std::int64_t>(0, reader.integer("giveBackGeneration")));
    }
    if (const Value* consent = reader.find("startupConsent")) {
        config.startupConsent =
            decodeEnum<StartupConsent>(*consent, "startupConsent", "startup consent", startupConsentFromRaw);
    } else {
        config.startupConsent = config.derivedConsent();
    }
    return config;
}

HoldenmereConfig decode(std::string_view text) { return decodeValue(json::parse(text)); }

namespace {

// The elements of the array at `key` that decode; each one that does not
// (or the key itself, when it holds no array) is noted in `lost`.
template <class Decode>
auto decodeEach(const ObjectReader& reader, std::string_view key, Decode element, std::vector<std::string>& lost) {
    using T = decltype(element(std::declval<const Value&>(), std::string()));
    std::vector<T> found;
    const Value* value = reader.find(key);
    if (value == nullptr) return found;
    const std::string path = reader.pathOf(key);
    if (!value->is_array()) {
        lost.push_back(ObjectReader::mismatch(path, "an array", *value));
        return found;
    }
    for (std::size_t index = 0; index < value->size(); ++index) {
        try {
            found.push_back(element((*value)[index], path + "[" + std::to_string(index) + "]"));
        } catch (const json::DecodeError& error) {
            lost.emplace_back(error.what());
        }
    }
    return found;
}

// A take-over record whose app is known keeps every Login Item and agent
// that decodes; one without them is lost whole.
TakeoverRecord decodeTakeoverLeniently(const Value& value, const std::string& path, std::vector<std::string>& lost) {
    ObjectReader reader(value, path);
    TakeoverRecord record;
    record.bundleIdentifier = reader.string("bundleIdentifier");
    record.name = reader.string("name");
    if (const Value* item = reader.find("loginItem")) {
        try {
            record.loginItems.push_back(decodeLoginItem(*item, reader.pathOf("loginItem")));
        } catch (const json::DecodeError& error) {
            lost.emplace_back(error.what());
        }
    }
    for (auto& item : decodeEach(reader, "additionalLoginItems", decodeLoginItem, lost)) {
        if (record.loginItem(item.path) == nullptr) record.loginItems.push_back(std::move(item));
    }
    record.agents = decodeEach(reader, "agents", decodeAgent, lost);
    return record;
}

}  // namespace

LedgerRecords decodeLedgerRecords(const Value& value) {
    ObjectReader reader(value, "");
    LedgerRecords records;
    auto& lost = records.lost;
    HoldenmereConfig& config = records.config;
    for (auto& record : decodeEach(
             reader, "takeovers",
             [&lost](const Value& element, const std::string& path) {
                 return decodeTakeoverLeniently(element, path, lost);
             },
             lost)) {
        if (!record.isEmpty()) config.takeovers.push_back(std::move(record));
    }
    config.heldStartup = decodeEach(reader, "heldStartup", decodeHeldStartupItem, lost);
    config.delayedHelpers = decodeEach(reader, "delayedHelpers", decodeHelper, lost);
    config.blockedApps = decodeEach(reader, "blockedApps", decodeBlocked, lost);
    config.keptOff = decodeEach(reader, "keptOff", json::decodeString, lost);
    config.restoreOptOuts = decodeEach(reader, "restoreOptOuts", json::decodeString, lost);
    config.loginItemsOrder = decodeEach(reader, "loginItemsOrder", json::decodeString, lost);
    if (const Value* reopen = reader.find("reopenWindowsOriginal")) {
        try {
            config.reopenWindowsOriginal = decodeReopenWindows(*reopen, "reopenWindowsOriginal");
        } catch (const json::DecodeError& error) {
            lost.emplace_back(error.what());
        }
    }
    return records;
}

Value encode(const HoldenmereConfig& config) {
    Value encoded{
        {"settings", encodeSettings(config.settings)},
        {"apps", encodeArray(config.apps, encodeApp)},
        {"delayedHelpers", encodeArray(config.delayedHelpers,
                                       [](const DelayedHelper& helper) {
                                           return Value{{"label", helper.label},
                                                        {"plistPath", helper.plistPath},
                                                        {"appBundleIdentifier", helper.appBundleIdentifier},
                                                        {"name", helper.name},
                                                        {"mode", std::string(rawValue(helper.mode))}};
                                       })},
        {"blockedApps", encodeArray(config.blockedApps,
                                    [](const BlockedApp& app) {
                                        return Value{{"bundleIdentifier", app.bundleIdentifier},
                                                     {"name", app.name},
                                                     {"path", app.path}};
                                    })},
        {"takeovers", encodeArray(config.takeovers, encodeTakeover)},
        {"keptOff", config.keptOff},
        {"startupConsent", std::string(rawValue(config.startupConsent))},
        {"leftToMacOS", config.leftToMacOS},
        {"restoreOptOuts", config.restoreOptOuts},
        {"heldStartup", encodeArray(config.heldStartup, [](const HeldStartupItem& item) { return encode(item); })},
        {"giveBackGeneration", config.giveBackGeneration},
    };
    if (!config.loginItemsOrder.empty()) encoded["loginItemsOrder"] = config.loginItemsOrder;
    if (config.reopenWindowsOriginal) {
        const auto& record = *config.reopenWindowsOriginal;
        Value reopen{{"recordedAt", encodeDate(record.recordedAt)}};
        if (record.logoutSavesState) reopen["logoutSavesState"] = *record.logoutSavesState;
        if (record.launchesRelaunchApps) reopen["launchesRelaunchApps"] = *record.launchesRelaunchApps;
        encoded["reopenWindowsOriginal"] = reopen;
    }
    return encoded;
}

}  // namespace holdenmere::config_codec
