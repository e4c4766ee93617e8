#include "core/takeover/login_agent_switch.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include "core/config/config_store.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using Calls = std::vector<std::vector<std::string>>;
using testing::TemporaryDirectory;

// launchd in memory, with a look around before each change.
struct InMemoryLaunchd {
    testing::FakeLaunchctlRunning launchd;
};
class ObservedLaunchctl final : private InMemoryLaunchd, public testing::ForwardingLaunchctl {
public:
    using InMemoryLaunchd::launchd;
    std::function<void()> beforeChange;

    ObservedLaunchctl() : ForwardingLaunchctl(launchd) {}
    std::int32_t run(const std::vector<std::string>& arguments) override {
        if (beforeChange) beforeChange();
        return ForwardingLaunchctl::run(arguments);
    }
};

class LoginAgentSwitchTest : public ::testing::Test {
protected:
    TemporaryDirectory home;
    ConfigStore store{home / "Holdenmere/config.json"};
    ObservedLaunchctl launchctl;
    std::filesystem::path plist = home / "LaunchAgents/com.tavik.holdenmere.agent.plist";
    AgentInstaller installer{launchctl, "/Applications/Holdenmere.app/Contents/MacOS/holdenmere", plist,
                             home / "Holdenmere.log"};

    void SetUp() override {
        launchctl.launchd.labelOfPlist[plist.string()] = std::string(AgentInstaller::kLabel);
        store.save(HoldenmereConfig{});
    }
    // What a second process gets when it tries to take the lock now.
    std::string secondProcessTakingTheLock() const {
        return testing::runTestHelper({"try-lock", store.url.string()}).output;
    }
};

TEST_F(LoginAgentSwitchTest, InstallAndUninstallRunWhileHoldingTheStartupLock) {
    const std::string busy = "errno " + std::to_string(EWOULDBLOCK) + "\n";
    std::vector<std::string> seen;
    launchctl.beforeChange = [&] { seen.push_back(secondProcessTakingTheLock()); };

    EXPECT_EQ(switchLoginAgent(ConfigAccess::of(store), installer, true),
              (LoginAgentSwitch{true, LoginAgentSwitch::Kind::switched, {}}));
    EXPECT_TRUE(std::filesystem::exists(plist));
    EXPECT_EQ(switchLoginAgent(ConfigAccess::of(store), installer, false),
              (LoginAgentSwitch{false, LoginAgentSwitch::Kind::switched, {}}));
    EXPECT_FALSE(std::filesystem::exists(plist));

    // bootout, enable, bootstrap; then bootout, disable.
    EXPECT_EQ(seen, std::vector<std::string>(5, busy));
    EXPECT_EQ(secondProcessTakingTheLock(), "acquired\n");
}

TEST_F(LoginAgentSwitchTest, WaitsWhileAnotherChangeHoldsTheLock) {
    // Another change of startup state (giving everything back) holds the lock.
    auto giveBack = StartupMutationLock(store.url).acquire(false);
    std::atomic<bool> released{false};
    std::atomic<int> changesBeforeRelease{0};
    launchctl.beforeChange = [&] {
        if (!released) ++changesBeforeRelease;
    };
    LoginAgentSwitch outcome;
    std::thread switching([&] { outcome = switchLoginAgent(ConfigAccess::of(store), installer, true); });
    released = true;
    giveBack.release();
    switching.join();

    EXPECT_EQ(outcome.kind, LoginAgentSwitch::Kind::switched);
    EXPECT_EQ(changesBeforeRelease, 0);
    EXPECT_EQ(launchctl.launchd.changes().size(), 3u);
}

TEST_F(LoginAgentSwitchTest, ABusyLockGivenUpOrADamagedConfigChangesNothing) {
    struct Case {
        const char* name;
        bool holdLock;
        const char* config;  // nothing: the saved defaults
        std::string textStart;
    };
    const Case cases[] = {
        {"lock held, wait given up", true, nullptr,
         "Could not turn on Start at login: Holdenmere is changing your startup items right now."},
        {"config damaged", false, "{ not json",
         "Could not turn on Start at login: config unreadable at " + store.url.string() + ": "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.config) testing::writeFile(store.url, c.config);
        std::optional<StartupMutationLock::Lease> other;
        if (c.holdLock) other.emplace(StartupMutationLock(store.url).acquire(false));
        Signal givenUp;
        givenUp.raise();

        const auto outcome = switchLoginAgent(ConfigAccess::of(store), installer, true, &givenUp);
        EXPECT_EQ(outcome.kind, LoginAgentSwitch::Kind::notSwitched);
        EXPECT_EQ(outcome.text().rfind(c.textStart, 0), 0u) << outcome.text();
        EXPECT_TRUE(launchctl.launchd.changes().empty());
        EXPECT_FALSE(std::filesystem::exists(plist));
    }
}

}  // namespace
}  // namespace holdenmere
