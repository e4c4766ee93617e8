#include "app/restore_startup_mode.h"

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <system_error>

#include "core/config/config_store.h"
#include "core/launchd/agent_installer.h"
#include "core/takeover/startup_mutation_lock.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Calls = std::vector<std::vector<std::string>>;
const std::string kTag = "[Holdenmere] ";
const std::string kDash = " \xE2\x80\x94 ";

class RestoreStartupMode : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    testing::FakeLaunchctlRunning launchd;
    testing::FakeScriptRunning scripts;
    HoldenmereConfig stored;
    std::vector<HoldenmereConfig> saved;
    std::set<int> failingSaves;
    RestoreStartupRun run;
    std::ostringstream out;
    std::ostringstream err;
    std::string mail;
    const std::string agentTarget = launchdServiceTarget(AgentInstaller::kLabel);

    void SetUp() override {
        mail = (home / "Mail.app").string();
        testing::writeFile(home / "Mail.app/Contents/Info.plist", "");
        testing::writeFile(home / "agent.plist", "<plist/>");
        stored.startupConsent = StartupConsent::granted;
        stored.recordLoginItem("com.example.mail", "Mail", {mail, false});
        run.config.url = home / "config.json";
        run.loginAgentPlist = home / "agent.plist";
        run.config.load = [this] { return stored; };
        run.config.save = [this](const HoldenmereConfig& config) {
            if (failingSaves.count(static_cast<int>(saved.size()) + 1) != 0) {
                saved.emplace_back();  // counts the attempt
                throw ConfigStoreError(ConfigStoreError::Kind::write, "disk full");
            }
            saved.push_back(config);
            stored = config;
        };
    }

    int restore() { return runRestoreStartup(run, out, err, launchd, scripts); }
};

TEST_F(RestoreStartupMode, AnUnsavedOptOutRestoresNothing) {
    failingSaves = {1};
    EXPECT_EQ(restore(), 1);
    EXPECT_EQ(err.str(), kTag + "ERROR: could not save startup opt-out" + kDash +
                             "Could not write config: disk full. Nothing restored; login agent left on.\n");
    EXPECT_EQ(out.str(), "");
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_TRUE(std::filesystem::exists(run.loginAgentPlist));
    EXPECT_EQ(stored.startupConsent, StartupConsent::granted);
}

TEST_F(RestoreStartupMode, AnUnsavedLedgerIsAWarningAndTheModeEndsNormally) {
    failingSaves = {3};  // after the opt-out and the give-back generation
    EXPECT_EQ(restore(), 0);
    EXPECT_EQ(out.str(), kTag + "Login Items: given back: Mail" + kDash + "added " + mail + "\n" + kTag +
                             "login agent: turned off; Holdenmere no longer runs at login\n");
    EXPECT_EQ(err.str(),
              kTag + "WARNING: could not save the updated ledger" + kDash + "Could not write config: disk full\n");
    // The opt-out was saved first; the ledger still holds the Login Item.
    EXPECT_EQ(stored.startupConsent, StartupConsent::declined);
    EXPECT_NE(stored.takeover("com.example.mail"), nullptr);
    EXPECT_EQ(launchd.changes(), (Calls{{"bootout", agentTarget}, {"disable", agentTarget}}));
    EXPECT_FALSE(std::filesystem::exists(run.loginAgentPlist));
}

TEST_F(RestoreStartupMode, AFailedItemEndsWithStatusOneAfterTheLoginAgentIsOff) {
    scripts.unavailable = true;
    EXPECT_EQ(restore(), 1);
    EXPECT_NE(out.str().find("Login Items: FAILED: Mail"), std::string::npos);
    EXPECT_NE(out.str().find("login agent: turned off"), std::string::npos);
    // Nothing was given back, so only the opt-out and the give-back
    // generation were saved.
    EXPECT_EQ(saved.size(), 2u);
    EXPECT_NE(stored.takeover("com.example.mail"), nullptr);
}

TEST_F(RestoreStartupMode, TheLockIsTakenForTheWholeRun) {
    const StartupMutationLock lock(run.config.url);
    std::atomic<bool> heldDuringLoad = false;
    run.config.load = [&] {
        try {
            (void)lock.acquire(/*wait=*/false);
        } catch (const std::system_error&) {
            heldDuringLoad = true;
        }
        return stored;
    };
    EXPECT_EQ(restore(), 0);
    EXPECT_TRUE(heldDuringLoad);
}

}  // namespace
}  // namespace holdenmere
