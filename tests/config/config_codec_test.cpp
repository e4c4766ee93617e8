#include "core/config/config_codec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace holdenmere {
namespace {

using ::testing::HasSubstr;

const char* kSettings =
    R"("settings": {"probeURL": "https://example.com/p", "pollInterval": 2, "maxAttempts": 60,
                    "launchAnywayOnTimeout": true, "isEnabled": true})";

std::string withApps(const std::string& apps, const std::string& more = "") {
    return std::string("{") + kSettings + R"(, "apps": )" + apps + more + "}";
}

const char* kOneApp = R"([{"bundleIdentifier": "com.example.mail", "name": "Mail", "path": "/Applications/Mail.app"}])";

HoldenmereConfig everythingSet() {
    HoldenmereConfig config;
    config.settings.probeURL = "http://127.0.0.1:8080/ok";
    config.settings.pollInterval = 1.25;
    config.settings.maxAttempts = 7;
    config.settings.launchAnywayOnTimeout = false;
    config.settings.isEnabled = false;
    config.settings.menuBarMode = true;
    config.settings.openAppAtLogin = true;
    config.apps.push_back({"com.example.mail", "Mail \xE2\x9C\x89 \"quoted\"", "/Applications/Mail.app", false, true,
                           true, true, 12.5});
    config.delayedHelpers.push_back({"com.example.helper", "/Library/LaunchAgents/h.plist", "com.example.mail",
                                     "Helper", DelayedHelper::Mode::off});
    config.blockedApps.push_back({"com.example.chat", "Chat", "/Applications/Chat.app"});
    config.takeovers.push_back({"com.example.mail",
                                "Mail",
                                {{"/Applications/Mail.app", true}, {"/Users/sam/Applications/Mail.app", false}},
                                {{"com.example.mail.agent", "/p.plist", true}, {"com.example.mail.sync", "/s.plist", false, true}}});
    config.takeovers.push_back({"com.example.sync", "Sync", {}, {}});
    config.keptOff = {"com.example.updater"};
    config.startupConsent = StartupConsent::declined;
    config.leftToMacOS = {"a", "b"};
    config.restoreOptOuts = {"com.example.keep"};
    config.loginItemsOrder = {"/Applications/Notes.app", "/Applications/Mail.app"};
    config.reopenWindowsOriginal = ReopenWindowsRecord{true, std::nullopt, Date{785000000.125}};
    config.heldStartup.push_back({StartupSource::sessionRestore, "handle/1", "com.example.mail", "Mail", "reopen",
                                  "/x.plist", Date{785000001.5}});
    config.heldStartup.push_back(
        {StartupSource::launcherChild, "child", std::nullopt, "Child", "running", std::nullopt, Date{-3.75}});
    return config;
}

TEST(ConfigCodec, EveryFieldRoundTrips) {
    HoldenmereConfig config = everythingSet();
    std::string text = json::encodePretty(config_codec::encode(config));
    EXPECT_EQ(config_codec::decode(text), config);
    // Absent optionals are left out rather than written as null.
    EXPECT_THAT(text, Not(HasSubstr("null")));
    EXPECT_EQ(config_codec::decode(json::encodePretty(config_codec::encode(HoldenmereConfig{}))), HoldenmereConfig{});
}

TEST(ConfigCodec, MissingOptionalKeysTakeTheirDefaults) {
    HoldenmereConfig config = config_codec::decode(withApps(kOneApp));
    ASSERT_EQ(config.apps.size(), 1u);
    const ManagedApp& app = config.apps[0];
    EXPECT_TRUE(app.isEnabled);
    EXPECT_FALSE(app.launchHidden);
    EXPECT_FALSE(app.importedFromLoginItem);
    EXPECT_FALSE(app.importedFromStartup);
    EXPECT_EQ(app.delaySeconds, 0);
    EXPECT_FALSE(config.settings.menuBarMode);
    EXPECT_FALSE(config.settings.openAppAtLogin);
    EXPECT_TRUE(config.delayedHelpers.empty() && config.blockedApps.empty() && config.takeovers.empty());
    EXPECT_TRUE(config.keptOff.empty() && config.leftToMacOS.empty() && config.restoreOptOuts.empty());
    EXPECT_TRUE(config.heldStartup.empty());
    EXPECT_FALSE(config.reopenWindowsOriginal.has_value());
    // Null reads as missing.
    EXPECT_EQ(config_codec::decode(withApps(kOneApp, R"(, "keptOff": null, "startupConsent": null)")), config);
}

TEST(ConfigCodec, LedgerFormsOfEarlierVersionsStillLoad) {
    // Without "takeovers" the file predates the ledger; once written it does not.
    HoldenmereConfig old = config_codec::decode(withApps(kOneApp));
    EXPECT_TRUE(old.predatesLedger);
    EXPECT_FALSE(config_codec::decode(json::encodePretty(config_codec::encode(old))).predatesLedger);
    EXPECT_FALSE(config_codec::decode(withApps(kOneApp, R"(, "takeovers": [])")).predatesLedger);

    // One removed Login Item per record, as earlier versions wrote it.
    HoldenmereConfig single = config_codec::decode(withApps(
        kOneApp,
        R"(, "takeovers": [{"bundleIdentifier": "t", "name": "T", "agents": [], "loginItem": {"path": "/A/T.app", "hidden": true}}])"));
    ASSERT_EQ(single.takeovers.size(), 1u);
    EXPECT_EQ(single.takeovers[0].loginItems, (std::vector<RemovedLoginItem>{{"/A/T.app", true}}));
    const std::string written = json::encodePretty(config_codec::encode(single));
    EXPECT_THAT(written, HasSubstr("\"loginItem\""));
    EXPECT_THAT(written, Not(HasSubstr("additionalLoginItems")));
}

TEST(ConfigCodec, ConsentIsDerivedOnlyWhenMissing) {
    EXPECT_EQ(config_codec::decode(withApps(kOneApp)).startupConsent, StartupConsent::granted);
    EXPECT_EQ(config_codec::decode(withApps("[]")).startupConsent, StartupConsent::undecided);
    EXPECT_EQ(config_codec::decode(withApps("[]", R"(, "blockedApps": [{"bundleIdentifier": "b", "name": "B", "path": "/B.app"}])"))
                  .startupConsent,
              StartupConsent::granted);
    EXPECT_EQ(config_codec::decode(withApps("[]", R"(, "takeovers": [{"bundleIdentifier": "t", "name": "T", "agents": []}])"))
                  .startupConsent,
              StartupConsent::granted);
    EXPECT_EQ(config_codec::decode(withApps(kOneApp, R"(, "startupConsent": "undecided")")).startupConsent,
              StartupConsent::undecided);
}

TEST(ConfigCodec, UnknownKeysAreIgnored) {
    EXPECT_EQ(config_codec::decode(withApps(kOneApp, R"(, "futureKey": {"x": [1, 2]})")),
              config_codec::decode(withApps(kOneApp)));
}

struct BadFile {
    std::string text;
    std::string messagePart;
};

TEST(ConfigCodec, OneBadValueFailsTheWholeFile) {
    const std::vector<BadFile> cases = {
        {"not json", "not valid JSON"},
        {"", "not valid JSON"},
        {"[]", "the top level: expected an object, found an array"},
        {R"({"apps": []})", "\"settings\": required key is missing"},
        {std::string("{") + kSettings + "}", "\"apps\": required key is missing"},
        {std::string("{") + kSettings + R"(, "apps": null})", "\"apps\": required key is missing"},
        {R"({"settings": "fast", "apps": []})", "\"settings\": expected an object, found a string"},
        {R"({"settings": {"probeURL": "x", "pollInterval": "2", "maxAttempts": 60, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": []})",
         "\"settings.pollInterval\": expected a number, found a string"},
        {R"({"settings": {"probeURL": "x", "pollInterval": 2, "maxAttempts": 2.5, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": []})",
         "\"settings.maxAttempts\": expected a whole number"},
        {R"({"settings": {"probeURL": "x", "pollInterval": 2, "maxAttempts": 6, "launchAnywayOnTimeout": 1, "isEnabled": true}, "apps": []})",
         "\"settings.launchAnywayOnTimeout\": expected a boolean, found a number"},
        {R"({"settings": {"probeURL": "x", "pollInterval": true, "maxAttempts": 6, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": []})",
         "\"settings.pollInterval\": expected a number, found a boolean"},
        {R"({"settings": {"pollInterval": 2, "maxAttempts": 6, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": []})",
         "\"settings.probeURL\": required key is missing"},
        {withApps(R"([{"bundleIdentifier": "a", "name": "A"}])"), "\"apps[0].path\": required key is missing"},
        {withApps(R"([{"bundleIdentifier": "a", "name": "A", "path": "/A.app", "isEnabled": "yes"}])"),
         "\"apps[0].isEnabled\": expected a boolean"},
        {withApps("{}"), "\"apps\": expected an array, found an object"},
        {withApps(kOneApp, R"(, "delayedHelpers": [{"label": "l", "plistPath": "p", "appBundleIdentifier": "a", "name": "n", "mode": "pause"}])"),
         "\"delayedHelpers[0].mode\": \"pause\" is not a helper mode"},
        {withApps(kOneApp, R"(, "startupConsent": "maybe")"), "\"startupConsent\": \"maybe\" is not a startup consent"},
        {withApps(kOneApp, R"(, "heldStartup": [{"source": "loginItem", "handle": "h", "name": "n", "previous": "p", "recordedAt": 1}])"),
         "\"heldStartup[0].source\": \"loginItem\" is not a startup source"},
        {withApps(kOneApp, R"(, "heldStartup": [{"source": "launchdJob", "handle": "h", "name": "n", "previous": "p", "recordedAt": "yesterday"}])"),
         "\"heldStartup[0].recordedAt\": expected a date"},
        {withApps(kOneApp, R"(, "keptOff": ["a", 3])"), "\"keptOff[1]\": expected a string, found a number"},
        {withApps(kOneApp, R"(, "takeovers": [{"bundleIdentifier": "t", "name": "T"}])"),
         "\"takeovers[0].agents\": required key is missing"},
        {withApps(kOneApp, R"(, "takeovers": [{"bundleIdentifier": "t", "name": "T", "agents": [], "loginItem": {"path": "/x"}}])"),
         "\"takeovers[0].loginItem.hidden\": required key is missing"},
        {withApps(kOneApp, R"(, "reopenWindowsOriginal": {"logoutSavesState": "on", "recordedAt": 1})"),
         "\"reopenWindowsOriginal.logoutSavesState\": expected a boolean"},
        {withApps(kOneApp, ", \"name\": \"\xff\""), "not valid JSON"},
    };
    for (const auto& bad : cases) {
        try {
            config_codec::decode(bad.text);
            ADD_FAILURE() << "decoded: " << bad.text;
        } catch (const json::DecodeError& error) {
            EXPECT_THAT(error.what(), HasSubstr(bad.messagePart)) << bad.text;
        }
    }
}

TEST(ConfigCodec, OutOfRangeNumbersDecodeForTheStoreToClamp) {
    auto text = [](const std::string& attempts) {
        return R"({"settings": {"probeURL": "x", "pollInterval": 1e300, "maxAttempts": )" + attempts +
               R"(, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": []})";
    };
    auto settings = config_codec::decode(text("99999999999999999999999")).settings.validated();
    EXPECT_EQ(settings.maxAttempts, 600);
    EXPECT_EQ(settings.pollInterval, 60.0);
    EXPECT_EQ(config_codec::decode(text("-5")).settings.validated().maxAttempts, 1);
    EXPECT_EQ(config_codec::decode(text("60.0")).settings.maxAttempts, 60);
}

TEST(JsonEncoding, KeysSortedAtEveryLevelWithFinalNewline) {
    json::Value value{{"zeta", 1}, {"alpha", json::Value{{"b", 1}, {"a", json::Value::array({json::Value{{"y", 1}, {"x", 2}}})}}}};
    EXPECT_EQ(json::encodePretty(value),
              "{\n  \"alpha\": {\n    \"a\": [\n      {\n        \"x\": 2,\n        \"y\": 1\n      }\n    ],\n"
              "    \"b\": 1\n  },\n  \"zeta\": 1\n}\n");
    EXPECT_THROW(json::encodePretty(json::Value(std::string("\xff"))), json::DecodeError);
}

}  // namespace
}  // namespace holdenmere
