#include "core/config/holdenmere_config.h"

#include <gtest/gtest.h>

namespace holdenmere {
namespace {

ManagedApp app(std::string identifier, double delay, bool enabled = true) {
    ManagedApp result;
    result.bundleIdentifier = std::move(identifier);
    result.name = result.bundleIdentifier;
    result.path = "/Applications/" + result.bundleIdentifier + ".app";
    result.delaySeconds = delay;
    result.isEnabled = enabled;
    return result;
}

TEST(GateSettings, ValidatedClampsIntervalAttemptsAndURL) {
    GateSettings settings;
    settings.pollInterval = 0.2;
    settings.maxAttempts = 0;
    settings.probeURL = "plain words";
    auto clamped = settings.validated();
    EXPECT_EQ(clamped.pollInterval, 0.5);
    EXPECT_EQ(clamped.maxAttempts, 1);
    EXPECT_EQ(clamped.probeURL, GateSettings::kDefaultProbeURL);

    settings.pollInterval = 300;
    settings.maxAttempts = 100000;
    settings.probeURL = "http://192.0.2.1:8080/probe?x=1";
    clamped = settings.validated();
    EXPECT_EQ(clamped.pollInterval, 60.0);
    EXPECT_EQ(clamped.maxAttempts, 600);
    EXPECT_EQ(clamped.probeURL, "http://192.0.2.1:8080/probe?x=1");

    settings.pollInterval = 0.5;
    EXPECT_EQ(settings.validated().pollInterval, 0.5);
    settings.pollInterval = 0.75;
    EXPECT_EQ(settings.validated().pollInterval, 0.75);
    settings.pollInterval = -3;
    EXPECT_EQ(settings.validated().pollInterval, 0.5);
}

TEST(GateSettings, AbsoluteURLNeedsAScheme) {
    EXPECT_TRUE(isAbsoluteURL("https://captive.apple.com/hotspot-detect.html"));
    EXPECT_TRUE(isAbsoluteURL("http://[::1]:8080/"));
    EXPECT_TRUE(isAbsoluteURL("https://example.com/a%20b"));
    EXPECT_FALSE(isAbsoluteURL(""));
    EXPECT_FALSE(isAbsoluteURL("example.com/probe"));
    EXPECT_FALSE(isAbsoluteURL("plain words"));
    EXPECT_FALSE(isAbsoluteURL("https://exa mple.com"));
    EXPECT_FALSE(isAbsoluteURL("1http://example.com"));
    EXPECT_FALSE(isAbsoluteURL("https://example.com/%zz"));
    EXPECT_FALSE(isAbsoluteURL("://example.com"));
}

TEST(GateSettings, DerivedTimes) {
    GateSettings settings;  // 2 s x 60
    EXPECT_EQ(settings.timeoutCeiling(), 120.0);
    EXPECT_EQ(settings.probeAttemptTimeout(), 1.5);
    EXPECT_EQ(settings.worstCaseWait(), 210.0);
    settings.pollInterval = 0.5;
    settings.maxAttempts = 10;
    EXPECT_EQ(settings.probeAttemptTimeout(), 1.5);
    EXPECT_EQ(settings.worstCaseWait(), 20.0);
}

TEST(ManagedApp, LaunchModeAndDelay) {
    ManagedApp immediate = app("com.example.a", 0);
    EXPECT_EQ(immediate.launchMode(), ManagedApp::LaunchMode::noDelay);
    EXPECT_EQ(immediate.delay(ManagedApp::LaunchMode::noDelay), 0);
    // Switching an app without a stored delay to delayed mode gives 5 s.
    EXPECT_EQ(immediate.delay(ManagedApp::LaunchMode::delayed), 5.0);

    ManagedApp delayed = app("com.example.b", 12.5);
    EXPECT_EQ(delayed.launchMode(), ManagedApp::LaunchMode::delayed);
    EXPECT_EQ(delayed.delay(ManagedApp::LaunchMode::delayed), 12.5);
    EXPECT_EQ(delayed.delay(ManagedApp::LaunchMode::noDelay), 0);

    EXPECT_EQ(app("com.example.c", -4).launchMode(), ManagedApp::LaunchMode::noDelay);
}

TEST(HoldenmereConfig, RunTimeoutWorkedExample) {
    HoldenmereConfig config;
    config.apps = {app("com.example.a", 3), app("com.example.b", 41)};
    // D = 40, worst case wait (2 + 1.5) x 60 = 210: 2 x 20 + 40 + 40 + 210.
    EXPECT_EQ(config.runTimeout(), 330.0);
}

TEST(HoldenmereConfig, RunTimeoutCountsOnlyEnabledAppsAndClampsSettings) {
    HoldenmereConfig config;
    EXPECT_EQ(config.runTimeout(), 40.0 + 210.0);
    config.apps = {app("com.example.a", 10), app("com.example.off", 40, false), app("com.example.neg", -7)};
    EXPECT_EQ(config.runTimeout(), 2 * 20.0 + 40.0 + 10.0 + 210.0);
    config.apps = {app("com.example.a", 10.01)};
    EXPECT_EQ(config.runTimeout(), 20.0 + 40.0 + 15.0 + 210.0);
    // Settings straight from a file, not yet clamped: 0.1 s counts as 0.5 s, 0 attempts as 1.
    config.settings.pollInterval = 0.1;
    config.settings.maxAttempts = 0;
    EXPECT_EQ(config.runTimeout(), 20.0 + 40.0 + 15.0 + (0.5 + 1.5) * 1);
}

TEST(HoldenmereConfig, ConsentOperations) {
    HoldenmereConfig config;
    EXPECT_EQ(config.derivedConsent(), StartupConsent::undecided);
    config.blockedApps.push_back({"com.example.x", "X", "/Applications/X.app"});
    EXPECT_EQ(config.derivedConsent(), StartupConsent::granted);

    config.grantStartupConsent({"com.example.z", "com.example.a", "com.example.z"});
    EXPECT_EQ(config.startupConsent, StartupConsent::granted);
    EXPECT_EQ(config.leftToMacOS, (std::vector<std::string>{"com.example.a", "com.example.z"}));

    config.declineStartupConsent();
    EXPECT_EQ(config.startupConsent, StartupConsent::declined);
    EXPECT_EQ(config.leftToMacOS, (std::vector<std::string>{"com.example.a", "com.example.z"}));
}

TEST(HoldenmereConfig, KeepOffHoldAndRecordAgentKeepTheirInvariants) {
    HoldenmereConfig config;
    config.keepOff({"a", "b", "a"});
    config.keepOff({"b", "c"});
    EXPECT_EQ(config.keptOff, (std::vector<std::string>{"a", "b", "c"}));

    HeldStartupItem item{
        StartupSource::launchdJob, "com.example.sync", "com.example", "Sync", "enabled", std::nullopt, Date{100}};
    config.hold(item);
    HeldStartupItem again = item;
    again.previous = "disabled";
    config.hold(again);
    ASSERT_EQ(config.heldStartup.size(), 1u);
    EXPECT_EQ(config.heldStartup[0].previous, "enabled");
    again.source = StartupSource::appExtension;
    config.hold(again);
    EXPECT_EQ(config.heldStartup.size(), 2u);

    config.recordAgent("com.example", "Example", "com.example.agent", "/a.plist", false);
    config.recordAgent("com.example", "Example", "com.example.other", "/b.plist", true);
    config.recordAgent("com.example", "Example", "com.example.agent", "/c.plist", true);
    config.recordAgent("com.second", "Second", "com.second.agent", "/d.plist", false);
    ASSERT_EQ(config.takeovers.size(), 2u);
    EXPECT_EQ(config.takeovers[0].agents, (std::vector<DisabledAgent>{{"com.example.agent", "/c.plist", true},
                                                                      {"com.example.other", "/b.plist", true}}));
    EXPECT_TRUE(config.takeovers[0].loginItems.empty());
    EXPECT_EQ(config.takeovers[1].name, "Second");
}

TEST(HoldenmereConfigLedger, RecordsMergeAndManage) {
    HoldenmereConfig config;
    config.recordLoginItem("com.example.mail", "Mail", {"/Applications/Mail.app", true});
    config.recordLoginItem("com.example.mail", "Mail", {"/Users/sam/Mail.app", false});
    config.record(AgentTakeoverResult{"Mail", "com.example.mail", "com.example.mail.agent", "/m.plist"});
    ASSERT_EQ(config.takeovers.size(), 1u);
    // Each copy of the app had a Login Item of its own; each is recorded as the user had it.
    EXPECT_EQ(config.takeover("com.example.mail")->loginItems,
              (std::vector<RemovedLoginItem>{{"/Applications/Mail.app", true}, {"/Users/sam/Mail.app", false}}));
    config.recordLoginItem("com.example.mail", "Mail", {"/Applications/Mail.app", false});
    EXPECT_TRUE(config.takeover("com.example.mail")->loginItem("/Applications/Mail.app")->hidden);
    EXPECT_EQ(config.takeover("com.example.mail")->agents,
              (std::vector<DisabledAgent>{{"com.example.mail.agent", "/m.plist", false}}));
    EXPECT_EQ(config.takeover("com.example.other"), nullptr);

    HoldenmereConfig pass;
    pass.recordLoginItem("com.example.mail", "Mail", {"/elsewhere/Mail.app", false});
    pass.recordAgent("com.example.mail", "Mail", "com.example.mail.agent", "/other.plist", true);
    pass.recordAgent("com.example.mail", "Mail", "com.example.mail.sync", "/s.plist", true);
    pass.recordAgent("com.example.drive", "Drive", "com.example.drive.agent", "/d.plist", false);
    pass.hold({StartupSource::launchdJob, "com.example.job", std::nullopt, "Job", "on", std::nullopt, Date{1}});
    pass.apps = {app("com.example.ignored", 0)};
    config.mergeLedger(pass);
    config.mergeLedger(pass);
    EXPECT_EQ(config.takeovers,
              (std::vector<TakeoverRecord>{
                  {"com.example.mail",
                   "Mail",
                   {{"/Applications/Mail.app", true}, {"/Users/sam/Mail.app", false}, {"/elsewhere/Mail.app", false}},
                   {{"com.example.mail.agent", "/m.plist", false}, {"com.example.mail.sync", "/s.plist", true}}},
                  {"com.example.drive", "Drive", {}, {{"com.example.drive.agent", "/d.plist", false}}},
              }));
    EXPECT_EQ(config.heldStartup.size(), 1u);
    EXPECT_TRUE(config.apps.empty());

    // An agent known only by inference gives way to one known by association.
    HoldenmereConfig inferred;
    inferred.recordAgent("com.example.a", "A", "com.example.a.agent", "/a.plist", true);
    HoldenmereConfig known;
    known.recordAgent("com.example.a", "A", "com.example.a.agent", "/a.plist", false);
    inferred.mergeLedger(known);
    EXPECT_FALSE(inferred.takeovers[0].agents[0].inferred);

    EXPECT_TRUE(config.manage(app("com.example.mail", 0)));
    EXPECT_FALSE(config.manage(app("com.example.mail", 5)));
    ASSERT_EQ(config.apps.size(), 1u);
    EXPECT_EQ(config.apps[0].delaySeconds, 0);
}

TEST(HoldenmereConfigLedger, LoginItemsOrderKeepsWhereRemovedItemsStood) {
    HoldenmereConfig config;
    auto removeAt = [&config](const std::vector<std::string>& listed, const std::string& path) {
        config.noteLoginItemsOrder(listed);
        config.recordLoginItem("com.example." + path, path, {path, false});
    };
    removeAt({"B", "A", "N", "C"}, "A");
    removeAt({"B", "N", "C"}, "C");
    // The user removed N; B was added again at the end; D is new.
    removeAt({"B", "D"}, "B");
    EXPECT_EQ(config.loginItemsOrder, (std::vector<std::string>{"B", "A", "C", "D"}));
    EXPECT_LT(config.loginItemRank("A"), config.loginItemRank("C"));
    EXPECT_EQ(config.loginItemRank("never seen"), config.loginItemsOrder.size());

    HoldenmereConfig other;
    other.loginItemsOrder = {"E", "A"};
    config.mergeLedger(other);
    EXPECT_EQ(config.loginItemsOrder, (std::vector<std::string>{"B", "A", "C", "D", "E"}));

    // Once nothing removed is left to give back, the order is forgotten.
    for (const std::string path : {"A", "B"}) config.forgetLoginItem("com.example." + path, path);
    EXPECT_FALSE(config.loginItemsOrder.empty());
    config.forgetLoginItem("com.example.C", "C");
    EXPECT_TRUE(config.loginItemsOrder.empty());
}

}  // namespace
}  // namespace holdenmere
