// --audit's startup inventory: a block per source, every row with its state
// and tier chips, and what could not be read or was left out said, not dropped.
#include "app/audit_inventory.h"

#include <gtest/gtest.h>

#include <sstream>

namespace holdenmere {
namespace {

const std::string kDash = " \xE2\x80\x94 ";

StartupEntry row(StartupSource source, const std::string& name, const std::string& handle, StartupEntry::State state,
                 SafetyTier tier) {
    return StartupEntry{source, std::nullopt, name, handle, std::move(state), std::move(tier)};
}

TEST(AuditInventory, ABlockPerSourceWithEveryRowAndEveryGap) {
    StartupSourceScan jobs;
    jobs.source = StartupSource::launchdJob;
    jobs.entries = {
        row(StartupSource::launchdJob, "Sync", "com.example.sync.helper", StartupEntry::State::startsAtLogin(),
            SafetyTier::refused("Can't switch off: helper inside Sync.")),
        row(StartupSource::launchdJob, "local.backup", "local.backup", StartupEntry::State::off(),
            SafetyTier::needsConfirmation({"local.backup is your own job, outside any app, so nothing else will start it."})),
        row(StartupSource::launchdJob, "local.vpn", "local.vpn",
            StartupEntry::State::unknown("launchd's disabled list could not be read, so no state is known"),
            SafetyTier::needsConfirmation({"Switching this off removes a service other apps use (local.vpn). Those "
                                           "apps may stop working until you switch it back on."})),
    };
    jobs.incomplete = {"launchd's disabled list could not be read"};
    jobs.notes = {"3 of Apple's own jobs are not listed"};
    EXPECT_EQ(inventoryBlock(jobs),
              "[Holdenmere] Other launchd jobs (launchdJob): 3 items\n"
              "[Holdenmere]   Sync" + kDash + "com.example.sync.helper [starts at login] [refused: Can't switch off: "
              "helper inside Sync.]\n"
              "[Holdenmere]   local.backup" + kDash + "local.backup [off] [asks first]\n"
              "[Holdenmere]   local.vpn" + kDash + "local.vpn [unknown: launchd's disabled list could not be read, so "
              "no state is known] [Provides a service]\n"
              "[Holdenmere]   incomplete: launchd's disabled list could not be read\n"
              "[Holdenmere]   not listed: 3 of Apple's own jobs are not listed\n");

    StartupSourceScan unreadable;
    unreadable.source = StartupSource::serviceManagement;
    unreadable.unreadable = "launchd's services could not be listed: launchctl print failed";
    unreadable.incomplete = {"systemextensionsctl list could not be read; security tools are recognised by their app "
                             "bundle only"};
    EXPECT_EQ(inventoryBlock(unreadable),
              "[Holdenmere] ServiceManagement jobs, LaunchDaemons and system extensions (serviceManagement): unknown" +
                  kDash + "launchd's services could not be listed: launchctl print failed\n"
                  "[Holdenmere]   incomplete: systemextensionsctl list could not be read; security tools are "
                  "recognised by their app bundle only\n");

    // Another scanner's rows print the same way.
    StartupSourceScan extensions;
    extensions.source = StartupSource::appExtension;
    extensions.entries = {row(StartupSource::appExtension, "Drive", "com.example.drive.findersync",
                              StartupEntry::State::startsAtLogin(), SafetyTier::allowed())};
    EXPECT_EQ(inventoryBlock(extensions), "[Holdenmere] App extensions (appExtension): 1 item\n"
                                          "[Holdenmere]   Drive" + kDash +
                                              "com.example.drive.findersync [starts at login] [can be switched off]\n");

    std::ostringstream out;
    printInventory(out, {unreadable, jobs});
    EXPECT_EQ(out.str(), "[Holdenmere] STARTUP INVENTORY (what else macOS starts, by source):\n" +
                             inventoryBlock(unreadable) + inventoryBlock(jobs));
}

}  // namespace
}  // namespace holdenmere
