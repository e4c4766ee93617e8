// The ownership pass against in-memory System Events and launchd, with a
// configuration store whose loads and saves can be made to fail one by one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/config/config_store.h"
#include "core/takeover/login_ownership.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/records.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlRunning;
using testing::FakeLoginItem;
using testing::FakeScriptRunning;
using ::testing::HasSubstr;
using testing::launchRecord;
using testing::managedApp;
using Calls = std::vector<std::vector<std::string>>;

const std::string kDash = " \xE2\x80\x94 ";

// config.json in memory. Calls are counted from 1; a listed call throws as
// the store does.
struct ConfigFile {
    HoldenmereConfig stored;
    int loads = 0;
    int saves = 0;
    std::set<int> failingLoads;
    std::set<int> failingSaves;
    // What another writer (the desktop app) changes before a load.
    std::function<void(HoldenmereConfig&)> beforeLoad;

    std::function<HoldenmereConfig()> load() {
        return [this] {
            if (failingLoads.count(++loads) != 0) throw ConfigStoreError(ConfigStoreError::Kind::read, "disk gone");
            if (beforeLoad) beforeLoad(stored);
            return stored;
        };
    }
    std::function<void(const HoldenmereConfig&)> save() {
        return [this](const HoldenmereConfig& config) {
            if (failingSaves.count(++saves) != 0) throw ConfigStoreError(ConfigStoreError::Kind::write, "disk full");
            stored = config;
        };
    }
};

bool recordsAgent(const HoldenmereConfig& config, const std::string& label) {
    for (const auto& record : config.takeovers) {
        for (const auto& agent : record.agents) {
            if (agent.label == label) return true;
        }
    }
    return false;
}

bool recordsLoginItem(const HoldenmereConfig& config, const std::string& path) {
    return std::any_of(config.takeovers.begin(), config.takeovers.end(), [&](const TakeoverRecord& record) {
        return record.loginItem && record.loginItem->path == path;
    });
}

// launchd that refuses, by failing the test, to disable a label whose
// recovery entry is not in the saved configuration.
class CheckedLaunchctl final : public LaunchctlRunning {
public:
    CheckedLaunchctl(FakeLaunchctlRunning& launchd, const ConfigFile& file) : launchd_(launchd), file_(file) {}
    std::int32_t run(const std::vector<std::string>& arguments) override {
        if (arguments.size() == 2 && arguments[0] == "disable") {
            const std::string label = arguments[1].substr(arguments[1].rfind('/') + 1);
            EXPECT_TRUE(recordsAgent(file_.stored, label)) << label << " disabled before it was recorded";
        }
        return launchd_.run(arguments);
    }
    bool isLoaded(std::string_view label) override { return launchd_.isLoaded(label); }
    bool isDisabled(std::string_view label) override { return launchd_.isDisabled(label); }
    std::optional<std::set<std::string>> disabledLabels() override { return launchd_.disabledLabels(); }

private:
    FakeLaunchctlRunning& launchd_;
    const ConfigFile& file_;
};

class OwnershipPass : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    ConfigFile file;
    FakeLaunchctlRunning launchd;
    CheckedLaunchctl launchctl{launchd, file};
    FakeScriptRunning scripts;
    LoginItemsAuditor auditor{scripts};
    LaunchAgentScanner scanner{launchctl, {folder / "LaunchAgents"}};
    AgentTakeover takeover{launchctl};
    std::vector<LaunchRecord> records;
    std::string mail, drive, chat, sync, cloud;

    void SetUp() override {
        mail = app("Mail", "com.example.mail");
        drive = app("Drive", "com.example.drive");
        chat = app("Chat", "com.example.chat");
        sync = app("Sync", "com.example.sync");
        cloud = app("Cloud", "com.example.cloud");
        agent("com.example.sync.agent", sync + "/Contents/MacOS/Sync", {});
        agent("com.example.cloud.agent", cloud + "/Contents/MacOS/Cloud", {"--quiet"});

        file.stored.startupConsent = StartupConsent::granted;
        file.stored.apps = {managedApp("com.example.mail", "Mail", mail), managedApp("com.example.sync", "Sync", sync)};
        file.stored.blockedApps = {{"com.example.chat", "Chat", chat}};
        scripts.loginItems.items = {{mail}, {drive, true}, {chat}};
        records = {launchRecord("com.example.mail", LaunchOutcome::launched),
                   launchRecord("com.example.sync", LaunchOutcome::alreadyRunning)};

        // Every Login Item removal must find its recovery entry saved.
        scripts.beforeEach = [this](const std::string& script) {
            if (script.find(" to delete ") == std::string::npos) return;
            for (const auto& item : scripts.loginItems.items) {
                if (script.find("\"" + item.path + "\"") != std::string::npos) {
                    EXPECT_TRUE(recordsLoginItem(file.stored, item.path)) << item.path << " removed before recorded";
                }
            }
        };
    }

    std::string app(const std::string& name, const std::string& bundleIdentifier) {
        return testing::writeAppBundle(folder / "Applications", name, name, bundleIdentifier).string();
    }

    void agent(const std::string& label, const std::string& program, const std::vector<std::string>& arguments) {
        std::string body = "<key>Label</key><string>" + label + "</string><key>ProgramArguments</key><array><string>" +
                           program + "</string>";
        for (const auto& argument : arguments) body += "<string>" + argument + "</string>";
        body += "</array><key>RunAtLoad</key><true/>";
        testing::writeFile(folder / "LaunchAgents" / (label + ".plist"), testing::xmlPlist(body));
    }

    void manageAll();
    void expectLoginItemsStay();

    std::string plistOf(const std::string& label) { return (folder / "LaunchAgents" / (label + ".plist")).string(); }

    LoginOwnership::PassResult pass(const std::set<std::string>& switchedOff = {}) {
        return LoginOwnership::ownershipPass(file.load(), file.save(), records, auditor, scanner, takeover, {},
                                             switchedOff);
    }

    Calls disables() const {
        Calls result;
        for (const auto& call : launchd.changes()) {
            if (call[0] == "disable") result.push_back(call);
        }
        return result;
    }
    static std::vector<std::string> disableOf(const std::string& label) {
        return {"disable", launchdServiceTarget(label)};
    }
};

TEST_F(OwnershipPass, WithoutConsentNothingIsTouched) {
    for (auto consent : {StartupConsent::undecided, StartupConsent::declined}) {
        file.stored.startupConsent = consent;
        auto result = pass();
        EXPECT_EQ(result.lines, std::vector<std::string>{
                                    "startup take-over not enabled" + kDash +
                                    "Login Items left to macOS (consent: " + std::string(rawValue(consent)) + ")"});
        EXPECT_EQ(result.loginItemsNotRemoved, 0);
        EXPECT_EQ(result.config, file.stored);
    }
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_EQ(file.saves, 0);
}

TEST_F(OwnershipPass, TakesEverythingOverAndRecordsItFirst) {
    auto result = pass({"com.example.chat"});
    EXPECT_EQ(result.lines,
              (std::vector<std::string>{
                  "taken over: Mail" + kDash + "a managed app's Login Item; removed",
                  "imported: Drive" + kDash + "was a macOS Login Item; Holdenmere now starts it",
                  "blocked: Chat" + kDash +
                      "was switched off in Holdenmere but macOS still started it from Login Items; its Login Item is "
                      "removed",
                  "imported: Cloud" + kDash + "was a macOS startup item; Holdenmere now starts it",
                  "Cloud" + kDash + "its agent passed \"--quiet\"; Holdenmere opens it without them",
                  "taken over: Sync" + kDash + "LaunchAgent com.example.sync.agent disabled",
                  "taken over: Cloud" + kDash + "LaunchAgent com.example.cloud.agent disabled",
                  "Mail" + kDash + "recorded for --restore-startup",
                  "Drive" + kDash + "recorded for --restore-startup",
                  "Chat" + kDash + "recorded for --restore-startup",
                  "Sync" + kDash + "recorded for --restore-startup",
                  "Cloud" + kDash + "recorded for --restore-startup",
              }));
    EXPECT_EQ(result.loginItemsNotRemoved, 0);
    EXPECT_TRUE(scripts.loginItems.items.empty());
    EXPECT_EQ(disables(), (Calls{disableOf("com.example.sync.agent"), disableOf("com.example.cloud.agent")}));

    const HoldenmereConfig& saved = file.stored;
    EXPECT_EQ(result.config, saved);
    ASSERT_EQ(saved.apps.size(), 4u);
    EXPECT_EQ(saved.apps[2].name, "Drive");
    EXPECT_TRUE(saved.apps[2].launchHidden);
    EXPECT_TRUE(saved.apps[2].importedFromLoginItem);
    EXPECT_EQ(saved.apps[3].name, "Cloud");
    EXPECT_TRUE(saved.apps[3].importedFromStartup);
    EXPECT_EQ(saved.takeovers, (std::vector<TakeoverRecord>{
                                   {"com.example.mail", "Mail", RemovedLoginItem{mail, false}, {}},
                                   {"com.example.drive", "Drive", RemovedLoginItem{drive, true}, {}},
                                   {"com.example.chat", "Chat", RemovedLoginItem{chat, false}, {}},
                                   {"com.example.sync",
                                    "Sync",
                                    std::nullopt,
                                    {{"com.example.sync.agent", plistOf("com.example.sync.agent"), false}}},
                                   {"com.example.cloud",
                                    "Cloud",
                                    std::nullopt,
                                    {{"com.example.cloud.agent", plistOf("com.example.cloud.agent"), false}}},
                               }));

    // The next pass finds nothing left to do and changes nothing.
    const int saves = file.saves;
    launchd.exitStatus["disable"] = 5;
    auto again = pass();
    EXPECT_TRUE(again.lines.empty());
    EXPECT_EQ(file.saves, saves);
}

TEST_F(OwnershipPass, AppsWhoseLaunchFailedKeepTheirLoginItemAndAgent) {
    records = {launchRecord("com.example.mail", LaunchOutcome::failed),
               launchRecord("com.example.sync", LaunchOutcome::failed)};
    auto result = pass();
    EXPECT_THAT(result.lines,
                ::testing::Contains("Mail" + kDash + "its launch failed this pass, so its Login Item stays"));
    EXPECT_THAT(result.lines,
                ::testing::Contains("Sync" + kDash + "its launch failed this pass, so its LaunchAgent stays"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{mail});
    EXPECT_EQ(disables(), Calls{disableOf("com.example.cloud.agent")});
    EXPECT_EQ(file.stored.takeover("com.example.mail"), nullptr);
    EXPECT_EQ(file.stored.takeover("com.example.sync"), nullptr);
}

TEST_F(OwnershipPass, UnsavedImportsKeepTheirLoginItemsAndAgents) {
    file.failingSaves = {1};
    auto result = pass();
    EXPECT_THAT(result.lines, ::testing::Contains("WARNING: could not save imported apps" + kDash +
                                                  "Could not write config: disk full"));
    EXPECT_THAT(result.lines,
                ::testing::Contains("Drive" + kDash + "its import could not be saved, so its Login Item stays"));
    EXPECT_THAT(result.lines,
                ::testing::Contains("Cloud" + kDash + "its import could not be saved, so its LaunchAgent stays"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{drive});
    EXPECT_EQ(disables(), Calls{disableOf("com.example.sync.agent")});
    // The later saves start from the file, so the unsaved imports never reach it.
    EXPECT_EQ(file.stored.apps.size(), 2u);
    EXPECT_EQ(file.stored.takeover("com.example.drive"), nullptr);
    // The pass goes on with them in memory.
    EXPECT_EQ(result.config.apps.size(), 4u);
}

// Mail and Drive managed with Login Items; Sync and Cloud managed with
// agents. Loads: the pass's own, then one before each save. Saves: the Login
// Items' record, Sync's record, Cloud's record, the ledger.
void OwnershipPass::manageAll() {
    file.stored.apps.push_back(managedApp("com.example.drive", "Drive", drive));
    file.stored.apps.push_back(managedApp("com.example.cloud", "Cloud", cloud));
    file.stored.blockedApps.clear();
    scripts.loginItems.items = {{mail}, {drive}};
}

void OwnershipPass::expectLoginItemsStay() {
    auto result = pass();
    EXPECT_THAT(result.lines, ::testing::Contains(
                                  HasSubstr("WARNING: could not save the recovery record of the Login Items" + kDash)));
    EXPECT_THAT(result.lines, ::testing::Contains("Mail" + kDash +
                                                  "the recovery record could not be saved, so its Login Item stays"));
    EXPECT_THAT(result.lines, ::testing::Contains("Drive" + kDash +
                                                  "the recovery record could not be saved, so its Login Item stays"));
    EXPECT_EQ(result.loginItemsNotRemoved, 2);
    EXPECT_EQ(scripts.paths(), (std::vector<std::string>{mail, drive}));
    for (const auto& script : scripts.scripts()) EXPECT_EQ(script.find(" to delete "), std::string::npos);
    EXPECT_FALSE(recordsLoginItem(file.stored, mail));
    // The agents are recorded and switched on their own.
    EXPECT_EQ(disables(), (Calls{disableOf("com.example.sync.agent"), disableOf("com.example.cloud.agent")}));
}

TEST_F(OwnershipPass, LoginItemsStayWhenTheirRecordCannotBeSaved) {
    manageAll();
    file.failingSaves = {1};
    expectLoginItemsStay();
}

TEST_F(OwnershipPass, LoginItemsStayWhenTheConfigCannotBeReadForTheirRecord) {
    manageAll();
    file.failingLoads = {2};
    expectLoginItemsStay();
}

TEST_F(OwnershipPass, LaunchdIsNotChangedWhenTheAgentsRecordIsNotSaved) {
    manageAll();
    scripts.loginItems.items.clear();
    file.failingSaves = {1};  // Sync's record
    auto result = pass();
    EXPECT_THAT(result.lines, ::testing::Contains("WARNING: could not save the recovery record of a LaunchAgent" +
                                                  kDash + "Could not write config: disk full"));
    EXPECT_THAT(result.lines, ::testing::Contains("Sync" + kDash +
                                                  "LaunchAgent com.example.sync.agent is NOT disabled: the recovery "
                                                  "record could not be saved, so launchd was not changed"));
    EXPECT_EQ(disables(), Calls{disableOf("com.example.cloud.agent")});
    EXPECT_FALSE(recordsAgent(file.stored, "com.example.sync.agent"));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
}

TEST_F(OwnershipPass, NoReadNoRecordNoChange) {
    manageAll();
    file.failingLoads = {2, 3, 4, 5};
    auto result = pass();
    EXPECT_TRUE(launchd.changes().empty());
    for (const auto& script : scripts.scripts()) EXPECT_EQ(script.find(" to delete "), std::string::npos);
    EXPECT_EQ(file.saves, 0);
    EXPECT_EQ(result.loginItemsNotRemoved, 2);
    // Nothing was recorded, so there is no ledger to write.
    EXPECT_EQ(result.lines.back(), "Cloud" + kDash +
                                       "LaunchAgent com.example.cloud.agent is NOT disabled: the recovery record could "
                                       "not be saved, so launchd was not changed");
}

TEST_F(OwnershipPass, TheLedgerIsMergedIntoAFreshRead) {
    scripts.loginItems.items = {{mail}};
    file.stored.blockedApps.clear();
    // The desktop app adds an app while the pass runs.
    file.beforeLoad = [this](HoldenmereConfig& config) {
        if (file.loads == 2) config.apps.push_back(ManagedApp{"com.example.new", "New", "/New.app"});
    };
    auto result = pass();
    ASSERT_EQ(file.stored.apps.size(), 4u);
    EXPECT_EQ(file.stored.apps[2].name, "New");
    EXPECT_EQ(file.stored.apps[3].name, "Cloud");
    EXPECT_TRUE(recordsLoginItem(file.stored, mail));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.sync.agent"));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
    EXPECT_EQ(result.config, file.stored);
}

TEST_F(OwnershipPass, TheLedgersSaveOrReReadFailingAfterEveryChangeWasSaved) {
    file.stored.apps.push_back(managedApp("com.example.cloud", "Cloud", cloud));
    file.stored.blockedApps.clear();
    scripts.loginItems.items = {{mail}};
    // Saves: Mail's record, Sync's, Cloud's, the ledger.
    file.failingSaves = {4};
    auto result = pass();
    EXPECT_EQ(result.lines.back(), "WARNING: could not save the take-over ledger" + kDash +
                                       "its entries were saved before each change (Could not write config: disk full)");
    EXPECT_TRUE(recordsLoginItem(file.stored, mail));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
}

TEST_F(OwnershipPass, TheLedgersReReadFailing) {
    file.stored.blockedApps.clear();
    scripts.loginItems.items = {{mail}};
    file.stored.apps.push_back(managedApp("com.example.cloud", "Cloud", cloud));
    // Loads: the pass's, Mail's record, Sync's, Cloud's, the ledger's.
    file.failingLoads = {5};
    auto result = pass();
    EXPECT_EQ(result.lines.back(), "WARNING: could not re-read the config to save the take-over ledger");
    EXPECT_EQ(file.saves, 3);
    EXPECT_TRUE(recordsAgent(result.config, "com.example.cloud.agent"));
    EXPECT_TRUE(recordsLoginItem(result.config, mail));
}

TEST_F(OwnershipPass, ALedgerOnlyBackfilledIsUnknownWhenItsSaveFails) {
    file.stored.apps = {managedApp("com.example.sync", "Sync", sync)};
    file.stored.blockedApps.clear();
    scripts.loginItems.items.clear();
    launchd.disabled = {"com.example.sync.agent", "com.example.cloud.agent"};
    file.failingSaves = {1};
    auto result = pass();
    EXPECT_EQ(result.lines,
              (std::vector<std::string>{
                  "ledger: Sync" + kDash + "LaunchAgent com.example.sync.agent is disabled; probably by Holdenmere",
                  "WARNING: could not save the take-over ledger" + kDash + "--restore-startup will not know about Sync",
              }));
    EXPECT_TRUE(launchd.changes().empty());
    EXPECT_TRUE(file.stored.takeovers.empty());
    EXPECT_TRUE(recordsAgent(result.config, "com.example.sync.agent"));

    file.failingSaves.clear();
    file.saves = 0;
    result = pass();
    EXPECT_EQ(result.lines.back(), "Sync" + kDash + "recorded for --restore-startup");
    EXPECT_EQ(file.stored.takeover("com.example.sync")->agents,
              (std::vector<DisabledAgent>{{"com.example.sync.agent", plistOf("com.example.sync.agent"), true}}));
}

TEST_F(OwnershipPass, FailedSwitchesAndRemovalsAreReported) {
    file.stored.blockedApps.clear();
    scripts.loginItems.items = {{mail}};
    scripts.ignoreDeletes = true;
    launchd.exitStatus["disable"] = 5;
    auto result = pass();
    EXPECT_THAT(result.lines, ::testing::Contains("Mail" + kDash + "could NOT remove it from Login Items"));
    EXPECT_THAT(result.lines,
                ::testing::Contains("Sync" + kDash +
                                    "LaunchAgent com.example.sync.agent is NOT disabled: launchctl disable "
                                    "failed (exit 5)"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
}

TEST_F(OwnershipPass, SafetyRulesComeBeforeAnyRecord) {
    // An app that carries a system extension is a security or network tool:
    // its agent is not switched off at login without the user's confirmation.
    testing::writeFile(std::filesystem::path(sync) / "Contents/Library/SystemExtensions/net.systemextension/x", "");
    file.stored.blockedApps.clear();
    scripts.loginItems.items.clear();
    auto result = pass();
    EXPECT_THAT(result.lines,
                ::testing::Contains(::testing::StartsWith(
                    "Sync" + kDash +
                    "LaunchAgent com.example.sync.agent is NOT disabled: not switched off without your confirmation: "
                    "Sync is a security or network tool.")));
    EXPECT_EQ(disables(), Calls{disableOf("com.example.cloud.agent")});
    EXPECT_FALSE(recordsAgent(file.stored, "com.example.sync.agent"));
}

TEST_F(OwnershipPass, AnUnreadableConfigChangesNothing) {
    file.failingLoads = {1};
    auto result = pass();
    EXPECT_EQ(result.lines, std::vector<std::string>{"WARNING: could not read the config" + kDash +
                                                     "Could not read config: disk gone; Login Items and LaunchAgents "
                                                     "left as they are"});
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(launchd.calls().empty());
}

}  // namespace
}  // namespace holdenmere
