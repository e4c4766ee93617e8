#include "core/config/damaged_config.h"

#include <sys/stat.h>

#include <optional>
#include <string>
#include <variant>

#include <gtest/gtest.h>

#include "core/config/config_codec.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

// Settings that fail the whole file, so that only the ledger can be read back.
constexpr const char* kBadSettings = R"("settings": {"probeURL": 7}, "apps": [])";

HoldenmereConfig fullLedger() {
    HoldenmereConfig config;
    config.recordLoginItem("com.example.drift", "Drift", {"/Applications/Drift.app", true});
    config.recordLoginItem("com.example.drift", "Drift", {"/Users/me/Applications/Drift.app", false});
    config.recordAgent("com.example.drift", "Drift", "com.example.drift.agent", "/L/drift.plist", true);
    config.hold({StartupSource::launchdJob, "com.example.sync", std::nullopt, "Sync", "enabled", std::nullopt,
                 Date{700000000}});
    config.delayedHelpers = {{"com.example.helper", "/L/helper.plist", "com.example.drift", "Helper",
                              DelayedHelper::Mode::off}};
    config.blockedApps = {{"com.example.newsbeam", "Newsbeam", "/Applications/Newsbeam.app"}};
    config.keptOff = {"com.example.old"};
    config.restoreOptOuts = {"com.example.mine"};
    config.reopenWindowsOriginal = ReopenWindowsRecord{true, std::nullopt, Date{700000001}};
    return config;
}

// The full ledger as the codec writes it, with the settings broken.
std::string damagedSettingsWithFullLedger() {
    json::Value value = config_codec::encode(fullLedger());
    value["settings"] = json::Value{{"probeURL", 7}};
    return value.dump();
}

// One bad record in each ledger key, beside good ones.
constexpr const char* kBadRecords = R"({"settings": {"probeURL": 7}, "apps": [],
  "takeovers": [
    {"bundleIdentifier": "com.example.drift", "name": "Drift",
     "loginItem": {"path": "/Applications/Drift.app", "hidden": true},
     "additionalLoginItems": [{"path": "/Users/me/Applications/Drift.app", "hidden": "no"}],
     "agents": [{"label": "com.example.drift.agent", "plistPath": "/L/drift.plist", "inferred": true}, {"label": 5}]},
    {"name": "No identifier", "agents": []}],
  "heldStartup": [{"source": "launchdJob", "handle": "com.example.sync", "name": "Sync", "previous": "enabled",
                   "recordedAt": 700000000},
                  {"source": "floppy", "handle": "x", "name": "X", "previous": "on", "recordedAt": 1}],
  "delayedHelpers": [{"label": "com.example.helper", "plistPath": "/L/helper.plist",
                      "appBundleIdentifier": "com.example.drift", "name": "Helper", "mode": "pause"}],
  "blockedApps": [{"bundleIdentifier": "com.example.newsbeam", "name": "Newsbeam",
                   "path": "/Applications/Newsbeam.app"}],
  "keptOff": ["com.example.old", 3],
  "restoreOptOuts": "com.example.mine",
  "reopenWindowsOriginal": {"logoutSavesState": true, "recordedAt": 700000001}})";

HoldenmereConfig goodRecordsOnly() {
    HoldenmereConfig config;
    config.recordLoginItem("com.example.drift", "Drift", {"/Applications/Drift.app", true});
    config.recordAgent("com.example.drift", "Drift", "com.example.drift.agent", "/L/drift.plist", true);
    config.hold({StartupSource::launchdJob, "com.example.sync", std::nullopt, "Sync", "enabled", std::nullopt,
                 Date{700000000}});
    config.blockedApps = {{"com.example.newsbeam", "Newsbeam", "/Applications/Newsbeam.app"}};
    config.keptOff = {"com.example.old"};
    config.reopenWindowsOriginal = ReopenWindowsRecord{true, std::nullopt, Date{700000001}};
    return config;
}

struct Case {
    const char* name;
    std::optional<std::string> file;  // nothing: no file at all
    DefaultsStart::Kind kind;
    HoldenmereConfig after;  // what the configuration file then loads as
    std::size_t kept;
    std::size_t lost;
    const char* text;  // "{copy}" stands for the damaged copy's path
};

TEST(StartFromDefaults, KeepsTheDamagedFileAndEveryLedgerRecordThatStillReads) {
    HoldenmereConfig intact;
    intact.apps.push_back(ManagedApp{"com.example.mail", "Mail", "/Applications/Mail.app"});
    intact.startupConsent = StartupConsent::granted;
    const Case cases[] = {
        {"missing file", std::nullopt, DefaultsStart::Kind::alreadyReadable, HoldenmereConfig{}, 0, 0,
         "The settings file can be read again, so Holdenmere kept it as it is."},
        {"intact file", json::encodePretty(config_codec::encode(intact)), DefaultsStart::Kind::alreadyReadable,
         intact, 0, 0, "The settings file can be read again, so Holdenmere kept it as it is."},
        {"bad settings, whole ledger", damagedSettingsWithFullLedger(), DefaultsStart::Kind::ledgerKept, fullLedger(),
         9, 0,
         "Started from defaults. The records of what Holdenmere switched off were kept (9 records), so Give "
         "Everything Back still works. The damaged file is kept in {copy}."},
        {"one bad record among good ones", std::string(kBadRecords), DefaultsStart::Kind::ledgerPartlyKept,
         goodRecordsOnly(), 6, 7,
         "Started from defaults. 6 records of what Holdenmere switched off were kept, so Give Everything Back "
         "still works for them; 7 could not be read and are kept in {copy}."},
        {"no ledger", "{" + std::string(kBadSettings) + "}", DefaultsStart::Kind::nothingRecorded, HoldenmereConfig{},
         0, 0,
         "Started from defaults. The damaged file recorded nothing that Holdenmere switched off; it is kept in "
         "{copy}."},
        {"wrong top-level type", std::string(R"([{"takeovers": []}])"), DefaultsStart::Kind::ledgerUnreadable,
         HoldenmereConfig{}, 0, 0,
         "Started from defaults. The records of what Holdenmere switched off could not be read; they are kept in "
         "{copy}."},
        {"not JSON", std::string(R"({"takeovers": [{"bundleIdentifier": )"), DefaultsStart::Kind::ledgerUnreadable,
         HoldenmereConfig{}, 0, 0,
         "Started from defaults. The records of what Holdenmere switched off could not be read; they are kept in "
         "{copy}."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryDirectory folder;
        const ConfigStore store{folder / "config.json"};
        const auto firstCopy = folder / "config.json.damaged";
        const auto copy = folder / "config.json.damaged-2";
        // An earlier damage's copy is never replaced.
        writeFile(firstCopy, "earlier damage");
        if (c.file) writeFile(store.url, *c.file);

        auto outcome = startFromDefaults(store);
        ASSERT_TRUE(std::holds_alternative<DefaultsStart>(outcome)) << std::get<DefaultsStartFailure>(outcome).text();
        const auto& started = std::get<DefaultsStart>(outcome);
        EXPECT_EQ(started.kind, c.kind);
        EXPECT_EQ(started.kept, c.kept);
        EXPECT_EQ(started.lost, c.lost);
        std::string text = c.text;
        if (auto at = text.find("{copy}"); at != std::string::npos) text.replace(at, 6, copy.string());
        EXPECT_EQ(started.text(), text);
        EXPECT_EQ(readFile(firstCopy), "earlier damage");

        if (c.kind == DefaultsStart::Kind::alreadyReadable) {
            EXPECT_TRUE(started.damagedCopy.empty());
            EXPECT_FALSE(std::filesystem::exists(copy));
            EXPECT_EQ(std::filesystem::exists(store.url), c.file.has_value());
            if (c.file) {
                EXPECT_EQ(readFile(store.url), *c.file);
            }
        } else {
            EXPECT_EQ(started.damagedCopy, copy);
            EXPECT_EQ(readFile(copy), *c.file);
            struct stat info {};
            ASSERT_EQ(::stat(copy.c_str(), &info), 0);
            EXPECT_EQ(info.st_mode & 0777, 0600u);
        }
        EXPECT_EQ(store.load(), c.after);
        EXPECT_EQ(started.config, c.after);
    }
}

TEST(StartFromDefaults, AFileThatCannotBeReadChangesNothing) {
    TemporaryDirectory folder;
    const ConfigStore store{folder / "config.json"};
    std::filesystem::create_directories(store.url);  // a folder where the file should be

    auto outcome = startFromDefaults(store);
    ASSERT_TRUE(std::holds_alternative<DefaultsStartFailure>(outcome));
    const auto& failure = std::get<DefaultsStartFailure>(outcome);
    EXPECT_EQ(failure.kind, DefaultsStartFailure::Kind::copyNotKept);
    EXPECT_EQ(failure.text().rfind("Could not keep a copy of the damaged settings, so nothing was changed: ", 0), 0u);
    EXPECT_TRUE(std::filesystem::is_directory(store.url));
    EXPECT_FALSE(std::filesystem::exists(folder / "config.json.damaged"));
}

}  // namespace
}  // namespace holdenmere
