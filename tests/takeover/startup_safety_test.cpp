#include "core/takeover/startup_safety.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace holdenmere {
namespace {

using ::testing::ElementsAre;
using Candidate = StartupSafety::Candidate;

const std::string kSystemWide = "A system-wide job (LaunchDaemons). Holdenmere only switches your own login items.";
const std::string kOwnItem = "Holdenmere's own item. Switching it off would stop the login pass.";
const std::string kApple = "An Apple macOS component.";

std::string serviceWarning(const std::string& name) {
    return "Switching this off removes a service other apps use (" + name +
           "). Those apps may stop working until you switch it back on.";
}
std::string securityWarning(const std::string& name) {
    return name +
           " is a security or network tool. Switching its startup items off can leave this Mac unprotected "
           "or offline until you switch it back on.";
}
std::string finderWarning(const std::string& name) {
    return "Switching this off removes " + name + "'s folder from Finder until you switch it back on.";
}
std::string ownJobWarning(const std::string& name) {
    return name + " is your own job, outside any app, so nothing else will start it.";
}

// A machine where the given paths are helper executables and the given apps
// carry system extensions.
struct Machine {
    std::set<std::string> helpers;
    std::set<std::string> unknownPrograms;  // cannot tell whether they are helpers
    std::set<std::string> appsWithExtensions;
    std::vector<std::string> extensions;

    StartupSafety::Environment environment() const {
        return {
            [this] { return extensions; },
            [this](const std::string& path) -> std::optional<bool> {
                if (unknownPrograms.count(path) != 0) return std::nullopt;
                return helpers.count(path) != 0;
            },
            [this](const std::string& app) { return appsWithExtensions.count(app) != 0; },
            [] { return std::string("/Users/ada"); },
            [] { return std::set<std::string>{}; },
        };
    }
};

Candidate agent(std::string label, std::string name, std::optional<std::string> program) {
    Candidate candidate;
    candidate.source = StartupSource::launchdJob;
    candidate.handle = std::move(label);
    candidate.name = std::move(name);
    candidate.programPath = std::move(program);
    return candidate;
}

const std::string kSyncProgram = "/Applications/Sync.app/Contents/Library/LoginItems/Agent.app/Contents/MacOS/Agent";

TEST(StartupSafetyRefusal, RulesApplyInOrder) {
    Machine machine;
    const auto environment = machine.environment();

    // A system-wide job of Holdenmere itself: the system-wide rule comes first.
    auto own =
        agent("com.tavik.holdenmere.agent", "Holdenmere", "/Applications/Holdenmere.app/Contents/MacOS/Holdenmere");
    own.isSystemDomain = true;
    EXPECT_EQ(StartupSafety::tier(own, environment), SafetyTier::refused(kSystemWide));
    own.isSystemDomain = false;
    EXPECT_EQ(StartupSafety::refusal(own, environment), kOwnItem);
    for (const char* handle : {"com.tavik.holdenmere.axsampler", "com.tavik.holdenmere"}) {
        own.handle = handle;
        EXPECT_EQ(StartupSafety::refusal(own, environment), kOwnItem) << handle;
    }
    auto ownedByUs = agent("com.example.anything", "Anything", std::nullopt);
    ownedByUs.ownerBundleIdentifier = "com.tavik.holdenmere";
    EXPECT_EQ(StartupSafety::refusal(ownedByUs, environment), kOwnItem);
    // Only exact labels are ours.
    EXPECT_EQ(StartupSafety::refusal(agent("com.tavik.holdenmere.agent2", "Other", "/opt/x"), environment),
              std::nullopt);

    Candidate vpn;
    vpn.source = StartupSource::appExtension;
    vpn.handle = "com.example.vpn.tunnel";
    vpn.name = "Tunnel";
    vpn.extensionProtocol = "com.apple.networkextension.packet-tunnel";
    EXPECT_EQ(StartupSafety::refusal(vpn, environment),
              "A network system extension. macOS controls it in System Settings, not through an election Holdenmere "
              "can change.");

    EXPECT_EQ(StartupSafety::refusal(
                  agent("com.example.x", "Music", "/System/Applications/Music.app/Contents/MacOS/Music"), environment),
              kApple);
}

TEST(StartupSafetyRefusal, HelperInsideAnotherAppNamesTheOutermostApp) {
    Machine machine;
    machine.helpers = {kSyncProgram, "/Library/PrivilegedHelperTools/com.example.helper"};
    const auto environment = machine.environment();

    EXPECT_EQ(StartupSafety::refusal(agent("com.example.sync.agent", "Sync Agent", kSyncProgram), environment),
              "Can't switch off: helper inside Sync.");
    EXPECT_EQ(
        StartupSafety::refusal(
            agent("com.example.helper", "Helper", "/Library/PrivilegedHelperTools/com.example.helper"), environment),
        "Can't switch off: helper inside another app.");
    // Cannot tell: refused as well, saying what could not be read.
    machine.unknownPrograms = {kSyncProgram};
    EXPECT_EQ(
        StartupSafety::refusal(agent("com.example.sync.agent", "Sync Agent", kSyncProgram), machine.environment()),
        "Can't switch off: Holdenmere could not read which program Sync runs, so it cannot tell whether this is "
        "Sync itself or a helper inside it.");
    // Not a helper binary: no refusal, whatever the path.
    machine.unknownPrograms.clear();
    machine.helpers.clear();
    EXPECT_EQ(StartupSafety::tier(agent("com.example.sync.agent", "Sync Agent", kSyncProgram), machine.environment()),
              SafetyTier::allowed());
}

TEST(StartupSafetyIsApple, OwnerHandleOrSystemFolder) {
    EXPECT_TRUE(StartupSafety::isApple(agent("com.apple.Safari.SafeBrowsing", "Safe Browsing", std::nullopt)));
    auto owned = agent("com.example.x", "X", std::nullopt);
    owned.ownerBundleIdentifier = "com.apple.Safari";
    EXPECT_TRUE(StartupSafety::isApple(owned));
    for (const char* program :
         {"/System/Library/CoreServices/Finder.app/Contents/MacOS/Finder", "/usr/libexec/xpcd", "/usr/bin/true",
          "/usr/sbin/cupsd", "/bin/sh", "/sbin/launchd", "/Library/Apple/System/Library/x", "/system/library/lowercase",
          "/usr/../System/Library/x", "//System/Library/x"}) {
        EXPECT_TRUE(StartupSafety::isApple(agent("com.example.x", "X", program))) << program;
    }
    auto bundled = agent("com.example.x", "X", std::nullopt);
    bundled.bundlePath = "/System/Applications/Mail.app";
    EXPECT_TRUE(StartupSafety::isApple(bundled));

    for (const char* program :
         {"/usr/local/bin/tool", "/opt/homebrew/bin/tool", "/Applications/Sync.app/Contents/MacOS/Sync",
          "/System/Volumes/Data/Applications/Sync.app/Contents/MacOS/Sync", "/Users/ada/bin/job", "/binaries/job",
          "relative/usr/bin/x", "/Systemic/x"}) {
        EXPECT_FALSE(StartupSafety::isApple(agent("com.example.x", "X", program))) << program;
    }
    auto applecart = agent("com.applecart.sync", "Applecart", std::nullopt);
    applecart.ownerBundleIdentifier = "com.applecart";
    EXPECT_FALSE(StartupSafety::isApple(applecart));
}

TEST(StartupSafetyConfirmations, WarningsInOrder) {
    Machine machine;
    machine.appsWithExtensions = {"/Applications/Shield.app"};
    const auto environment = machine.environment();

    auto service = agent("com.example.sync.xpc", "Sync Service", kSyncProgram);
    service.launchdOnlyReason = "a MachServices job";
    EXPECT_EQ(StartupSafety::tier(service, environment),
              SafetyTier::needsConfirmation({serviceWarning("Sync Service")}));

    // A file-provider extension of a security tool: both warnings, security first.
    Candidate drive;
    drive.source = StartupSource::appExtension;
    drive.handle = "com.example.shield.files";
    drive.name = "Shield";
    drive.bundlePath = "/Applications/Shield.app/Contents/PlugIns/Files.appex";
    drive.extensionProtocol = "com.apple.fileprovider-nonui";
    auto tier = StartupSafety::tier(drive, environment);
    EXPECT_EQ(tier, SafetyTier::needsConfirmation({securityWarning("Shield"), finderWarning("Shield")}));
    EXPECT_THAT(StartupSafety::chips(tier), ElementsAre("Security or network tool", "Finder folder"));

    // The entitlement alone, or a system extension named after the owner.
    auto entitled = agent("com.example.guard", "Guard", "/Applications/Guard.app/Contents/MacOS/Guard");
    entitled.holdsSecurityEntitlement = true;
    EXPECT_THAT(StartupSafety::confirmations(entitled, environment), ElementsAre(securityWarning("Guard")));
    auto owner = agent("com.example.vpn.agent", "VPN", "/Applications/VPN.app/Contents/MacOS/VPN");
    owner.ownerBundleIdentifier = "com.example.vpn";
    EXPECT_TRUE(StartupSafety::confirmations(owner, environment).empty());
    machine.extensions = {"com.example.vpnextra.x", "com.example.vpn.tunnel"};
    EXPECT_THAT(StartupSafety::confirmations(owner, machine.environment()), ElementsAre(securityWarning("VPN")));
}

TEST(StartupSafetyConfirmations, OwnJobOutsideAnyApp) {
    Machine machine;
    const auto environment = machine.environment();
    auto job = agent("local.backup", "backup", "/Users/ada/bin/backup.sh");
    EXPECT_TRUE(StartupSafety::isOwnersOwnJob(job, environment));
    EXPECT_EQ(StartupSafety::tier(job, environment), SafetyTier::needsConfirmation({ownJobWarning("backup")}));
    EXPECT_TRUE(StartupSafety::chips(StartupSafety::tier(job, environment)).empty());

    // Inside an app ("~" resolved against the home folder), macOS's own, not
    // a LaunchAgent, a daemon, or without a program: not the user's own job.
    EXPECT_FALSE(
        StartupSafety::isOwnersOwnJob(agent("local.a", "a", "~/Applications/A.app/Contents/MacOS/A"), environment));
    EXPECT_FALSE(StartupSafety::isOwnersOwnJob(agent("local.b", "b", "/usr/libexec/b"), environment));
    EXPECT_FALSE(StartupSafety::isOwnersOwnJob(agent("local.c", "c", std::nullopt), environment));
    auto daemon = job;
    daemon.isSystemDomain = true;
    EXPECT_FALSE(StartupSafety::isOwnersOwnJob(daemon, environment));
    auto restored = job;
    restored.source = StartupSource::sessionRestore;
    EXPECT_FALSE(StartupSafety::isOwnersOwnJob(restored, environment));

    // A service the user wrote: both warnings, the service first.
    job.launchdOnlyReason = "a MachServices job";
    auto tier = StartupSafety::tier(job, environment);
    EXPECT_EQ(tier.warnings, (std::vector<std::string>{serviceWarning("backup"), ownJobWarning("backup")}));
    EXPECT_THAT(StartupSafety::chips(tier), ElementsAre("Provides a service"));
}

TEST(StartupSafetyEnvironment, MissingQuestionsCountAsNo) {
    StartupSafety::Environment empty;
    auto candidate = agent("com.example.sync.agent", "Sync Agent", kSyncProgram);
    candidate.ownerBundleIdentifier = "com.example.sync";
    EXPECT_EQ(StartupSafety::tier(candidate, empty), SafetyTier::allowed());
    EXPECT_TRUE(StartupSafety::chips(SafetyTier::refused(kApple)).empty());
}

}  // namespace
}  // namespace holdenmere
