#include "core/takeover/agent_takeover.h"

#include <gtest/gtest.h>

#include <unordered_set>

#include "tests/support/fake_launchctl_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlRunning;
using Calls = std::vector<std::vector<std::string>>;
using Result = AgentTakeover::Result;
using Mechanism = AgentTakeover::Mechanism;

const std::string kLabel = "com.example.sync.agent";
const std::string kPlist = "/Users/sam/Library/LaunchAgents/com.example.sync.agent.plist";

class AgentTakeoverTest : public ::testing::Test {
protected:
    FakeLaunchctlRunning launchd;
    std::set<std::string> files{kPlist};
    AgentTakeover takeover{launchd, AgentTakeover::systemEnvironment(),
                           [this](const std::string& path) { return files.count(path) != 0; }};
    const std::string target = launchdServiceTarget(kLabel);
};

TEST_F(AgentTakeoverTest, TakeOverDisablesAndChecks) {
    EXPECT_EQ(takeover.takeOver(kLabel), Result::switchedOff());
    EXPECT_EQ(launchd.changes(), (Calls{{"disable", target}}));
    // Once off, launchd is not asked to change anything again.
    EXPECT_EQ(takeover.takeOver(kLabel), Result::alreadyOff());
    EXPECT_EQ(launchd.changes().size(), 1u);
}

TEST_F(AgentTakeoverTest, TakeOverFailures) {
    launchd.exitStatus["disable"] = 5;
    EXPECT_EQ(takeover.takeOver(kLabel), Result::failed("launchctl disable failed (exit 5)"));
    launchd.exitStatus["disable"] = -1;  // hung and killed, or not started
    EXPECT_EQ(takeover.takeOver(kLabel), Result::failed("launchctl disable failed (exit -1)"));
    // An exit status of 0 is not taken at its word.
    launchd.exitStatus.clear();
    launchd.disabledListReadable = false;
    EXPECT_EQ(takeover.takeOver(kLabel), Result::failed("LaunchAgent is still enabled in launchd"));
}

TEST_F(AgentTakeoverTest, SwitchOffActsOnlyWhereTheTierAllows) {
    const auto refused = SafetyTier::refused("An Apple macOS component.");
    const auto warned = SafetyTier::needsConfirmation({"A warning.", "Another."});
    EXPECT_EQ(takeover.switchOff(kLabel, refused, true, Mechanism::disable),
              Result::failed("An Apple macOS component."));
    EXPECT_EQ(takeover.switchOff(kLabel, warned, false, Mechanism::disable),
              Result::failed("not switched off without your confirmation: A warning. Another."));
    EXPECT_TRUE(launchd.calls().empty());

    EXPECT_EQ(takeover.switchOff(kLabel, warned, true, Mechanism::disable), Result::switchedOff());
    EXPECT_EQ(launchd.changes(), (Calls{{"disable", target}}));
}

TEST_F(AgentTakeoverTest, SwitchOffWithBootout) {
    launchd.loaded = {kLabel};
    EXPECT_EQ(takeover.switchOff(kLabel, SafetyTier::allowed(), false, Mechanism::disableAndBootout),
              Result::switchedOff());
    EXPECT_EQ(launchd.changes(), (Calls{{"disable", target}, {"bootout", target}}));
    EXPECT_TRUE(launchd.loaded.empty());

    // A job that was not loaded is no failure; one that stays loaded is.
    launchd.disabled.clear();
    EXPECT_EQ(takeover.switchOff(kLabel, SafetyTier::allowed(), false, Mechanism::disableAndBootout),
              Result::switchedOff());
    launchd.disabled.clear();
    launchd.loaded = {kLabel};
    launchd.exitStatus["bootout"] = 5;
    EXPECT_EQ(takeover.switchOff(kLabel, SafetyTier::allowed(), false, Mechanism::disableAndBootout),
              Result::failed("launchctl bootout failed (exit 5); it is disabled for the next login but still running"));
    EXPECT_EQ(launchd.disabled, std::set<std::string>{kLabel});
}

TEST_F(AgentTakeoverTest, SwitchOnAndUndo) {
    launchd.disabled = {kLabel};
    launchd.labelOfPlist[kPlist] = kLabel;
    EXPECT_EQ(takeover.undo(kLabel, kPlist), Result::switchedOn());
    EXPECT_EQ(launchd.changes(), (Calls{{"enable", target}, {"bootstrap", launchdDomain(), kPlist}}));
    EXPECT_EQ(launchd.loaded, std::set<std::string>{kLabel});

    // Loaded already: nothing to bootstrap.
    launchd.disabled = {kLabel};
    EXPECT_EQ(takeover.undo(kLabel, kPlist), Result::switchedOn());
    EXPECT_EQ(launchd.changes().size(), 3u);

    // switchOn never loads anything.
    launchd.loaded.clear();
    EXPECT_EQ(takeover.switchOn(kLabel), Result::switchedOn());
    EXPECT_TRUE(launchd.loaded.empty());
}

TEST_F(AgentTakeoverTest, UndoFailures) {
    launchd.disabled = {kLabel};
    launchd.exitStatus["enable"] = 5;
    EXPECT_EQ(takeover.undo(kLabel, kPlist), Result::failed("launchctl enable failed (exit 5)"));
    EXPECT_EQ(launchd.changes(), (Calls{{"enable", target}}));

    launchd.exitStatus.clear();
    launchd.stuckDisabled = {kLabel};
    EXPECT_EQ(takeover.undo(kLabel, kPlist), Result::failed("LaunchAgent is still disabled in launchd"));

    launchd.stuckDisabled.clear();
    EXPECT_EQ(takeover.undo(kLabel, kPlist),
              Result::failed("switched back on, but launchctl bootstrap failed (exit 5)"));

    // A plist that is gone: the mark is cleared, there is nothing to load.
    files.clear();
    launchd.disabled = {kLabel};
    EXPECT_EQ(takeover.undo(kLabel, kPlist), Result::switchedOn("its plist is gone, so there is nothing to load"));
    EXPECT_TRUE(launchd.disabled.empty());
    EXPECT_EQ(takeover.undo(kLabel, ""), Result::switchedOn("no plist was recorded, so nothing was loaded"));
}

TEST(AgentTakeoverResult, ComparableAndHashable) {
    std::unordered_set<Result> results{Result::switchedOff(), Result::alreadyOff(), Result::failed("a"),
                                       Result::failed("a"), Result::failed("b")};
    EXPECT_EQ(results.size(), 4u);
    EXPECT_FALSE(Result::failed("a").succeeded());
    EXPECT_TRUE(Result::alreadyOff().succeeded());
}

TEST(AgentTakeoverEnvironment, SecurityToolsByTheirBundlesExtensions) {
    testing::TemporaryDirectory folder;
    testing::writeFile(folder / "Vpn.app/Contents/Library/SystemExtensions/com.example.vpn.tunnel.systemextension/x",
                       "");
    testing::writeFile(folder / "Mail.app/Contents/Info.plist", "");
    testing::writeFile(folder / "Empty.app/Contents/Library/SystemExtensions/.keep", "");
    std::filesystem::remove(folder / "Empty.app/Contents/Library/SystemExtensions/.keep");
    auto environment = AgentTakeover::systemEnvironment();
    EXPECT_TRUE(environment.bundleHasSystemExtensions((folder / "Vpn.app").string()));
    EXPECT_FALSE(environment.bundleHasSystemExtensions((folder / "Mail.app").string()));
    EXPECT_FALSE(environment.bundleHasSystemExtensions((folder / "Empty.app").string()));
    EXPECT_TRUE(environment.systemExtensions().empty());
}

}  // namespace
}  // namespace holdenmere
