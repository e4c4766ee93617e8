// The startup inventory of launchd jobs and ServiceManagement, run as a user
// would in a temporary home with the fake launchctl and systemextensionsctl
// (HOLDENMERE_TOOLS_DIR): what --audit prints, and a launchd job held off
// from the inventory, switched off again at the next login and given back by
// --restore-startup.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/config/config_store.h"
#include "core/discovery/other_jobs.h"
#include "core/launchd/system_launchctl.h"
#include "core/takeover/startup_actions.h"
#include "core/takeover/system_inventory.h"
#include "tests/support/config_file.h"
#include "tests/support/e2e_home.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/plist_files.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
namespace sysext = testing::fake_systemextensionsctl;

const std::string kTag = "[Holdenmere] ";
const std::string kDash = " \xE2\x80\x94 ";
const std::string kPhotos = "local.photos.sync";

class StartupInventoryE2E : public ::testing::Test {
protected:
    testing::E2EHome e2e;
    testing::LoopbackHTTPServer server{testing::LoopbackHTTPServer::Mode::status, 204};
    std::string sync;
    std::filesystem::path owned = e2e.home / "brackenspur-owned.txt";
    const std::vector<std::string> brackenspur = {"HOLDENMERE_BRACKENSPUR_OWNED_LABELS=" + owned.string()};

    void job(const std::string& label, const std::string& program, const std::string& more) {
        testing::writeFile(e2e.plistOf(label), testing::xmlPlist("<key>Label</key><string>" + label +
                                                                 "</string><key>Program</key><string>" + program +
                                                                 "</string>" + more));
        e2e.launchd.load(label, e2e.plistOf(label));
    }

    void SetUp() override {
        ::setenv(sysext::kStateVariable, e2e.systemExtensions().c_str(), 1);
        sync = testing::writeAppBundle(e2e.home / "Applications", "Sync", "Sync", "com.example.sync").string();
        job(kPhotos, "/usr/local/bin/photos-sync", "<key>RunAtLoad</key><true/>");
        job("com.example.sync.helper", sync + "/Contents/MacOS/SyncHelper", "<key>KeepAlive</key><true/>");
        job("com.example.runner.job", "/usr/local/bin/runner", "<key>RunAtLoad</key><true/>");
        job("com.example.update.loginwindow", "/usr/local/bin/update",
            "<key>LimitLoadToSessionType</key><string>LoginWindow</string>");
        testing::writeFile(owned, "com.example.runner.job\n");
        sysext::install(e2e.systemExtensions(),
                        {{"com.apple.system_extension.network_extension", true, true, "T1", "com.example.vpn.tunnel",
                          "1.0/1", "Example VPN Tunnel", "activated enabled"}});
        HoldenmereConfig config;
        config.settings.probeURL = server.url();
        config.settings.pollInterval = 0.5;
        config.settings.maxAttempts = 2;
        ConfigStore{e2e.configPath()}.save(config);
    }
    void TearDown() override { ::unsetenv(sysext::kStateVariable); }
};

TEST_F(StartupInventoryE2E, AuditPrintsABlockPerSourceAndSaysWhatItCouldNotRead) {
    auto audit = e2e.run({"--audit"}, brackenspur);
    ASSERT_EQ(audit.status, 0) << audit.output << audit.error;
    const std::string& out = audit.output;
    EXPECT_THAT(out, HasSubstr(kTag + "STARTUP INVENTORY (what else macOS starts, by source):\n" + kTag +
                               "ServiceManagement jobs, LaunchDaemons and system extensions (serviceManagement): 1 "
                               "item\n" + kTag + "  Example VPN Tunnel" + kDash +
                               "com.example.vpn.tunnel [starts at login] [refused: A network system extension."));
    EXPECT_THAT(out, HasSubstr(kTag + "Other launchd jobs (launchdJob): 2 items\n" + kTag + "  Sync" + kDash +
                               "com.example.sync.helper [starts at login] [refused: Can't switch off: helper inside "
                               "Sync.]\n" + kTag + "  " + kPhotos + kDash + kPhotos + " [starts at login] [asks first]\n"));
    EXPECT_THAT(out, HasSubstr(kTag + "  not listed: 1 jobs belong to Brackenspur, which starts and stops them "
                                      "itself: com.example.runner.job\n"));
    EXPECT_THAT(out, HasSubstr("com.example.update.loginwindow\n"));
    // The home's fake pluginkit and lsappinfo list nothing, which a Mac never
    // does: unknown, with why; loginwindow's preferences have the setting.
    EXPECT_THAT(out, HasSubstr(" (appExtension): unknown" + kDash + "pluginkit listed no extensions at all"));
    EXPECT_THAT(out, HasSubstr(" (launcherChild): unknown" + kDash + "lsappinfo listed no running apps at all\n"));
    EXPECT_THAT(out, HasSubstr(" (sessionRestore): 1 item\n" + kTag + "  Reopen windows when logging back in"));
    EXPECT_THAT(out, Not(HasSubstr("not scanned in this build")));

    // launchd answers garbage and systemextensionsctl fails: the rows stay,
    // their states unknown, and both gaps are said in each block.
    e2e.launchd.answer("print-disabled", 0, "Disabled services: none\n");
    sysext::answer(e2e.systemExtensions(), 1, "", "systemextensionsctl: Operation not permitted\n");
    audit = e2e.run({"--audit"});
    ASSERT_EQ(audit.status, 0) << audit.error;
    EXPECT_THAT(audit.output, HasSubstr(kPhotos + " [unknown: launchd's disabled list could not be read, so no state "
                                                  "is known]"));
    const std::string gap = kTag + "  incomplete: " + std::string(LaunchAgentScanner::OtherJobs::kSystemExtensionsUnreadable);
    const auto first = audit.output.find(gap);
    ASSERT_NE(first, std::string::npos) << audit.output;
    EXPECT_NE(audit.output.find(gap, first + 1), std::string::npos) << audit.output;
    EXPECT_THAT(audit.output, HasSubstr(kTag + "  incomplete: " +
                                        std::string(LaunchAgentScanner::OtherJobs::kDisabledListUnreadable) + "\n"));
}

TEST_F(StartupInventoryE2E, AHeldJobIsRecordedFirstSwitchedOffAgainAtLoginAndGivenBack) {
    // The desktop's Switch Off on the inventory's row, in this process.
    // launchd through the fake tool, failing the test when a job is switched
    // off before the configuration on disk holds it.
    SystemLaunchctl system(testing::FakeLaunchctlTool::executable());
    testing::CheckedLaunchctl launchctl(system, [this] { return ConfigStore{e2e.configPath()}.load(); });
    SystemToolRunning extensions(e2e.home / "tools");
    auto inventory = makeStartupInventory(InventoryTools{launchctl, extensions, {e2e.agentsFolder()},
                                                         e2e.home / "LaunchDaemons", BrackenspurLabels{}, nullptr,
                                                         std::nullopt, {}});
    const auto jobs = inventory.scan(StartupSource::launchdJob);
    auto row = std::find_if(jobs.entries.begin(), jobs.entries.end(),
                            [](const StartupEntry& entry) { return entry.handle == kPhotos; });
    ASSERT_NE(row, jobs.entries.end());
    const HoldenmereConfig before = ConfigStore{e2e.configPath()}.load();
    ASSERT_EQ(StartupActions::actionFor(*row, before), StartupActions::RowAction::switchOff);
    testing::FakeScriptRunning scripts;
    StartupActions actions{{ConfigAccess::of(ConfigStore{e2e.configPath()}), launchctl, scripts,
                            StartupSafety::systemEnvironment(), {e2e.agentsFolder()}}};
    const auto held = actions.holdEntry(*row, /*confirmed=*/true, Date{100});
    ASSERT_TRUE(held.ok) << held.lines[0];
    EXPECT_TRUE(e2e.launchd.state().disabled.at(kPhotos));
    auto config = ConfigStore{e2e.configPath()}.load();
    ASSERT_EQ(config.heldStartup.size(), 1u);
    EXPECT_EQ(config.heldStartup[0], (HeldStartupItem{StartupSource::launchdJob, kPhotos, std::nullopt, kPhotos,
                                                      "startsAtLogin", e2e.plistOf(kPhotos), Date{100}}));

    // Something switches it back on; the next login switches it off again.
    e2e.launchd.mark(kPhotos, false);
    const auto pass = e2e.run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr(kTag + "re-asserted: " + kPhotos + kDash + kPhotos +
                                       " was switched on again; switched off again\n"));
    EXPECT_TRUE(e2e.launchd.state().disabled.at(kPhotos));

    // Give-back: listed first, then switched back on and loaded.
    e2e.launchd.unload(kPhotos);
    const auto dryRun = e2e.run({"--restore-startup", "--dry-run"});
    EXPECT_THAT(dryRun.output, HasSubstr("switch " + kPhotos + " back on"));
    EXPECT_TRUE(e2e.launchd.state().disabled.at(kPhotos));
    const auto restore = e2e.run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_THAT(restore.output, HasSubstr(kPhotos + " switched back on"));
    EXPECT_FALSE(e2e.launchd.state().disabled.at(kPhotos));
    EXPECT_TRUE(e2e.launchd.loadedLabels().count(kPhotos));
    EXPECT_TRUE(ConfigStore{e2e.configPath()}.load().heldStartup.empty());
}

}  // namespace
}  // namespace holdenmere
