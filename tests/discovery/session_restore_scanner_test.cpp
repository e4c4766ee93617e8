#include "core/discovery/session_restore_scanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "core/support/files.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;

const fs::path kFixtures = fs::path(HOLDENMERE_FIXTURES_DIR) / "loginwindow";
const std::string kFirst = "com.apple.loginwindow.24844F30-679B-528F-901D-69B709AF2175.plist";
const std::string kSecond = "com.apple.loginwindow.729D8536-E3D5-57E0-8547-1CCEEBAF1C30.plist";

class SessionRestoreScan : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    fs::path byHost() const { return home / "Library/Preferences/ByHost"; }
    void place(const std::string& name, const std::string& bytes) {
        fs::create_directories(byHost());
        files::writeAtomically(byHost() / name, bytes);
    }
};

TEST_F(SessionRestoreScan, ReadsTheRealBinaryPreferences) {
    place(kFirst, files::read(kFixtures / kFirst));
    auto read = SessionRestoreScanner::read(home.path());
    ASSERT_TRUE(std::holds_alternative<SessionRestore>(read)) << std::get<std::string>(read);
    const auto& restore = std::get<SessionRestore>(read);
    ASSERT_EQ(restore.apps.size(), 7u);
    EXPECT_EQ(restore.apps[2].bundleIdentifier, "com.google.chrome");
    EXPECT_EQ(restore.apps[2].path, "/Applications/Google Chrome.app");
    EXPECT_FALSE(restore.logoutSavesState);
    EXPECT_TRUE(restore.reopensWindows());

    const auto scan = SessionRestoreScanner::scan(
        home.path(), [](const SessionRestore::App& app) {
            return app.path.starts_with("/System/") ? SafetyTier::refused("An Apple macOS component.")
                                                    : SafetyTier::allowed();
        },
        {{StartupSource::sessionRestore, "desktop.whatsapp", std::nullopt, "WhatsApp", "startsAtLogin", std::nullopt,
          Date{0}}});
    ASSERT_EQ(scan.entries.size(), 8u);
    EXPECT_EQ(scan.entries[0].id(), "sessionRestore:reopenWindows");
    EXPECT_EQ(scan.entries[0].state, StartupEntry::State::startsAtLogin());
    EXPECT_EQ(scan.entries[1].tier, SafetyTier::refused("An Apple macOS component."));
    EXPECT_EQ(scan.entries[4].id(), "sessionRestore:desktop.whatsapp");
    EXPECT_EQ(scan.entries[4].name, "WhatsApp");
    EXPECT_EQ(scan.entries[4].state, StartupEntry::State::off());  // held: quit after login
    EXPECT_EQ(scan.entries[7].name, "Visual Studio Code");
}

TEST_F(SessionRestoreScan, ReadsXmlAndTheSettingAndTheNewestOfSeveralFiles) {
    place(kSecond, files::read(kFixtures / kSecond));
    fs::last_write_time(byHost() / kSecond, fs::file_time_type::clock::now() - std::chrono::hours(24));
    place("com.apple.loginwindow.00000000-0000-0000-0000-000000000001.plist",
          testing::xmlPlist("<key>TALLogoutSavesState</key><false/>"
                            "<key>LoginwindowLaunchesRelaunchApps</key><integer>1</integer>"
                            "<key>TALAppsToRelaunchAtLogin</key><array><dict><key>BundleID</key>"
                            "<string>com.example.mail</string><key>Hide</key><true/></dict>"
                            "<dict><key>Path</key><string>/bin/tool</string></dict></array>"));
    auto read = SessionRestoreScanner::read(home.path());
    ASSERT_TRUE(std::holds_alternative<SessionRestore>(read));
    const auto& restore = std::get<SessionRestore>(read);
    EXPECT_EQ(restore.apps, (std::vector<SessionRestore::App>{{"com.example.mail", "", true}}));
    EXPECT_EQ(restore.logoutSavesState, false);
    EXPECT_EQ(restore.launchesRelaunchApps, true);
    EXPECT_FALSE(restore.reopensWindows());
    EXPECT_EQ(SessionRestoreScanner::scan(home.path(), {}, {}).entries[0].state, StartupEntry::State::off());

    // The older file alone reads as it is (binary, Spotify hidden).
    fs::remove(byHost() / "com.apple.loginwindow.00000000-0000-0000-0000-000000000001.plist");
    EXPECT_TRUE(std::get<SessionRestore>(SessionRestoreScanner::read(home.path())).apps[6].hide);
}

TEST_F(SessionRestoreScan, NoFileYetMeansNothingReopensButTheDefaultSetting) {
    const auto scan = SessionRestoreScanner::scan(home.path(), {}, {});
    EXPECT_FALSE(scan.unreadable);
    ASSERT_EQ(scan.entries.size(), 1u);
    EXPECT_EQ(scan.entries[0].state, StartupEntry::State::startsAtLogin());
}

TEST_F(SessionRestoreScan, UnreadableGarbledAndPipedPreferencesAreUnknown) {
    const std::string name = "com.apple.loginwindow.11111111-2222-3333-4444-555555555555.plist";
    for (const std::string& garbled :
         {std::string("not a property list"), testing::xmlPlist("<key>TALAppsToRelaunchAtLogin</key><string>x</string>"),
          testing::xmlPlist("<key>TALLogoutSavesState</key><string>yes</string>"),
          testing::xmlPlist("<key>TALAppsToRelaunchAtLogin</key><array><string>x</string></array>")}) {
        place(name, garbled);
        const auto scan = SessionRestoreScanner::scan(home.path(), {}, {});
        ASSERT_TRUE(scan.unreadable);
        EXPECT_THAT(*scan.unreadable, ::testing::HasSubstr(name));
        EXPECT_TRUE(scan.entries.empty());
    }
    // A FIFO nobody writes is refused by the reader, well within the limit.
    fs::remove(byHost() / name);
    ASSERT_EQ(::mkfifo((byHost() / name).c_str(), 0644), 0);
    auto read = SessionRestoreScanner::read(home.path(), std::chrono::seconds(100));
    ASSERT_TRUE(std::holds_alternative<std::string>(read));
    EXPECT_THAT(
        std::get<std::string>(read),
        ::testing::HasSubstr("could not be read: read(" + (byHost() / name).string() + "): not a regular file"));
}

}  // namespace
}  // namespace holdenmere
