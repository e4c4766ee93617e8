// A login pass's ownership step against in-memory System Events and
// launchd, through the startup-change engine, with a configuration whose
// loads and saves can be made to fail one by one: the fixture of the
// ownership-pass tests.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "core/takeover/login_ownership.h"
#include "core/takeover/login_ownership_pass.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/records.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere::testing {

using Calls = std::vector<std::vector<std::string>>;

// Mail (a Login Item) and Sync (an agent) managed, Chat blocked with a Login
// Item; Drive's Login Item and Cloud's agent are not Holdenmere's yet.
class OwnershipPass : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    FakeLaunchctlRunning launchd;
    CheckedLaunchctl launchctl{launchd, file};
    FakeScriptRunning scripts;
    LaunchAgentScanner scanner{launchctl, {folder / "LaunchAgents"}};
    std::vector<LaunchRecord> records;
    Signal cancellation;
    bool predatesLedger = false;
    std::vector<std::string> unreadableDaemons;
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

    std::string plistOf(const std::string& label) { return (folder / "LaunchAgents" / (label + ".plist")).string(); }

    LoginOwnership::PassResult pass(const std::set<std::string>& switchedOff = {}) {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts, &cancellation);
        return LoginOwnership::ownershipPass(engine, scanner, StartupSafety::systemEnvironment(),
                                             {records, {}, switchedOff, predatesLedger, unreadableDaemons});
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

// Mail and Drive managed with Login Items; Sync and Cloud managed with
// agents; nothing blocked or to import.
inline void OwnershipPass::manageAll() {
    file.stored.apps.push_back(managedApp("com.example.drive", "Drive", drive));
    file.stored.apps.push_back(managedApp("com.example.cloud", "Cloud", cloud));
    file.stored.blockedApps.clear();
    scripts.loginItems.items = {{mail}, {drive}};
}

}  // namespace holdenmere::testing
