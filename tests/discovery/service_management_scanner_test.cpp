// The inventory's ServiceManagement source: jobs registered with launchd
// through ServiceManagement (read from the fake launchctl's real layouts),
// LaunchDaemons that run apps, system extensions, and what each failure to
// read leaves said.
#include "core/discovery/service_management_scanner.h"

#include <gtest/gtest.h>

#include "core/discovery/other_jobs.h"
#include "core/launchd/system_launchctl.h"
#include "core/takeover/startup_safety.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
using State = StartupEntry::State;
using Labels = std::vector<std::string>;
using Extensions = std::vector<SystemExtension>;

// launchd answering "print" from a table, for answers the fake tool never gives.
struct ScriptedLaunchctl final : LaunchctlRunning {
    std::map<std::string, std::string> printed;
    std::optional<std::map<std::string, bool>> marks = std::map<std::string, bool>{};
    Labels asked;
    std::int32_t run(const std::vector<std::string>&) override { return 0; }
    bool isLoaded(std::string_view) override { return false; }
    bool isDisabled(std::string_view) override { return false; }
    std::optional<std::set<std::string>> disabledLabels() override { return std::nullopt; }
    std::optional<std::map<std::string, bool>> disabledMarks() override { return marks; }
    std::optional<std::vector<std::string>> serviceLabels() override { return std::nullopt; }
    LaunchctlOutput runCapturingOutput(const std::vector<std::string>&) override { return {0, {}}; }
    std::optional<std::string> print(std::string_view target) override {
        asked.emplace_back(target);
        auto output = printed.find(std::string(target));
        if (output == printed.end()) return std::nullopt;
        return output->second;
    }
};

SafetyRules rules() {
    return StartupSafety::rules(StartupSafety::systemEnvironment([] { return std::vector<std::string>{}; }));
}

Labels handles(const std::vector<StartupEntry>& rows) {
    Labels result;
    for (const auto& row : rows) result.push_back(row.handle);
    return result;
}

TEST(ServiceManagementScanner, JobsDaemonsAndExtensionsWithStateAndTier) {
    testing::TemporaryDirectory folder;
    testing::FakeLaunchctlTool tool;
    const std::string sync = testing::writeAppBundle(folder / "Applications", "Sync", "Sync", "com.example.sync").string();
    auto state = tool.state();
    // Registered from inside the app (SMAppService), and one plain agent.
    state.loaded["com.example.sync.agent"] = {sync + "/Contents/Library/LaunchAgents/com.example.sync.agent.plist",
                                              sync + "/Contents/MacOS/SyncAgent", {}};
    state.loaded["com.example.sync.login"] = {sync + "/Contents/Library/LaunchAgents/com.example.sync.login.plist",
                                              sync + "/Contents/MacOS/Sync", {}};
    state.loaded["local.plain"] = {(folder / "Library/LaunchAgents/local.plain.plist").string(), "/usr/local/bin/plain", {}};
    state.loaded["com.apple.Siri.agent"] = {"/System/Library/LaunchAgents/com.apple.Siri.agent.plist", "/x", {}};
    state.loaded["application.com.example.Sync.1234.5678"] = {"", "", {}};
    state.disabled["com.example.sync.login"] = true;
    testing::fake_launchctl::writeState(tool.stateFolder(), state);
    SystemLaunchctl launchctl(testing::FakeLaunchctlTool::executable());

    const fs::path daemons = folder / "LaunchDaemons";
    auto daemon = [&](const std::string& label, const std::string& program, const std::string& more) {
        testing::writeFile(daemons / (label + ".plist"),
                           testing::xmlPlist("<key>Label</key><string>" + label + "</string><key>Program</key><string>" +
                                             program + "</string>" + more));
    };
    daemon("com.example.sync.daemon", sync + "/Contents/MacOS/SyncDaemon", "<key>RunAtLoad</key><true/>");
    daemon("com.example.sync.updater", sync + "/Contents/MacOS/Updater", "<key>Disabled</key><true/>");
    daemon("org.example.tool", "/usr/local/sbin/tool", "");

    const Extensions extensions{
        {"com.apple.system_extension.network_extension", true, true, "T", "com.example.vpn.tunnel", "1/1", "VPN Tunnel", "activated enabled"},
        {"com.apple.system_extension.endpoint_security", true, true, "T", "com.example.edr", "2/2", "EDR", "activated enabled"},
        {"com.apple.system_extension.driver_extension", false, true, "-", "com.example.driver", "1/1", "Driver", "activated waiting for user"},
    };

    const auto result = ServiceManagementScanner(launchctl, extensions, rules(), daemons).scan();
    EXPECT_EQ(handles(result.jobs), (Labels{"com.example.sync.agent", "com.example.sync.login"}));
    EXPECT_EQ(result.jobLabels, handles(result.jobs));
    EXPECT_EQ(result.jobs[0].ownerBundleIdentifier, "com.example.sync");
    EXPECT_EQ(result.jobs[0].name, "Sync");
    EXPECT_EQ(result.jobs[0].state, State::startsAtLogin());
    EXPECT_EQ(result.jobs[0].tier, SafetyTier::refused("Can't switch off: helper inside Sync."));
    EXPECT_EQ(result.jobs[1].state, State::off());
    EXPECT_EQ(result.jobs[1].tier, SafetyTier::allowed());

    EXPECT_EQ(handles(result.daemons), (Labels{"com.example.sync.daemon", "com.example.sync.updater"}));
    EXPECT_EQ(result.daemons[0].state, State::startsAtLogin());
    EXPECT_EQ(result.daemons[1].state, State::off());
    EXPECT_EQ(result.daemons[0].tier,
              SafetyTier::refused("A system-wide job (LaunchDaemons). Holdenmere only switches your own login items."));

    ASSERT_EQ(result.extensions.size(), 3u);
    EXPECT_EQ(result.extensions[0].id(), "serviceManagement:com.example.vpn.tunnel");
    EXPECT_EQ(result.extensions[0].tier.kind, SafetyTier::Kind::refused);
    EXPECT_TRUE(result.extensions[0].tier.reason.starts_with("A network system extension."));
    EXPECT_EQ(result.extensions[1].tier.warnings,
              Labels{"EDR is a security or network tool. Switching its startup items off can leave this Mac "
                     "unprotected or offline until you switch it back on."});
    EXPECT_EQ(result.extensions[2].state, State::off());
    EXPECT_TRUE(result.incomplete.empty());

    const auto scan = result.scan();
    EXPECT_EQ(scan.source, StartupSource::serviceManagement);
    EXPECT_EQ(scan.entries.size(), 7u);
    EXPECT_FALSE(scan.unreadable);
    // launchd was asked about the jobs no one else explains, and nothing changed.
    Labels printed;
    for (const auto& call : tool.calls()) {
        EXPECT_TRUE(call[0] == "print" || call[0] == "print-disabled") << call[0];
        if (call[0] == "print") printed.push_back(call[1]);
    }
    EXPECT_EQ(printed, (Labels{launchdDomain(), launchdServiceTarget("com.example.sync.agent"),
                               launchdServiceTarget("com.example.sync.login"), launchdServiceTarget("local.plain")}));
}

TEST(ServiceManagementScanner, WhatCannotBeReadIsSaidAndNothingReadableIsUnknown) {
    testing::TemporaryDirectory folder;
    ScriptedLaunchctl launchctl;
    launchctl.marks = std::nullopt;
    const std::optional<Extensions> extensions;  // could not be read
    auto result = ServiceManagementScanner(launchctl, extensions, rules(), folder / "none").scan();
    EXPECT_EQ(result.incomplete,
              (Labels{std::string(LaunchAgentScanner::OtherJobs::kDisabledListUnreadable),
                      "launchd's services could not be listed: launchctl print failed",
                      "systemextensionsctl list could not be read; security tools are recognised by their app bundle only"}));
    EXPECT_EQ(result.scan().unreadable, "neither launchd's services nor the system extensions could be read");
    EXPECT_EQ(result.scan().incomplete, result.incomplete);

    launchctl.printed[launchdDomain()] = "garbage\n";
    result = ServiceManagementScanner(launchctl, extensions, rules(), folder / "none").scan();
    EXPECT_EQ(result.incomplete[1], "launchd's services could not be listed: launchctl print output was not recognised");

    // Each job is asked on its own; after three failures the rest are not.
    std::string table = "gui/501 = {\n\tservices = {\n";
    for (const char* label : {"a", "b", "c", "d", "e", "f"}) table += std::string("\t\t       0      - \tcom.example.") + label + "\n";
    launchctl.printed[launchdDomain()] = table + "\t}\n}\n";
    launchctl.printed[launchdServiceTarget("com.example.a")] = "not a service\n";
    launchctl.printed[launchdServiceTarget("com.example.b")] =
        launchdServiceTarget("com.example.b") + " = {\n\tpath = (submitted by smd.500)\n}\n";
    launchctl.marks = std::map<std::string, bool>{};
    launchctl.asked.clear();
    result = ServiceManagementScanner(launchctl, extensions, rules(), folder / "none").scan();
    EXPECT_EQ(handles(result.jobs), Labels{"com.example.b"});
    EXPECT_EQ(result.jobs[0].name, "com.example.b");
    EXPECT_EQ(result.incomplete, (Labels{"com.example.a: launchctl print output was not recognised",
                                         "com.example.c: launchctl print failed", "com.example.d: launchctl print failed",
                                         "com.example.e: launchctl print failed",
                                         "1 more jobs were not asked: launchctl print failed 3 times",
                                         "systemextensionsctl list could not be read; security tools are recognised "
                                         "by their app bundle only"}));
    EXPECT_EQ(launchctl.asked.size(), 6u);
    EXPECT_FALSE(result.scan().unreadable);
}

}  // namespace
}  // namespace holdenmere
