#include "core/discovery/launcher_child_scanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/support/files.h"
#include "tests/support/fake_tool_running.h"
#include "tests/support/fake_tool_state.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::FakeToolRunning;

std::string fixture(const std::string& name) {
    return files::read(std::filesystem::path(HOLDENMERE_FIXTURES_DIR) / "lsappinfo" / name);
}

TEST(LauncherChildScanner, ReadsTheRealRecords) {
    auto list = LauncherChildScanner::parse(fixture("list-record.excerpt.txt"));
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 1u);
    const RunningApp& logi = (*list)[0];
    EXPECT_EQ(logi.name, "Logi Capture");
    EXPECT_EQ(logi.asn, "0x0-0x69069");
    EXPECT_EQ(logi.bundleIdentifier, "com.logitech.logicapture");
    EXPECT_EQ(logi.bundlePath, "/Applications/Logi Capture.app");
    EXPECT_EQ(logi.executablePath, "/Applications/Logi Capture.app/Contents/MacOS/Logi Capture");
    EXPECT_EQ(logi.pid, 1378);
    EXPECT_EQ(logi.parentName, "Spotlight");
    EXPECT_EQ(logi.parentAsn, "0x1-0x2ff");

    auto info = LauncherChildScanner::parse(fixture("info-record.txt"));
    ASSERT_TRUE(info);
    ASSERT_EQ(info->size(), 1u);
    EXPECT_EQ((*info)[0].asn, "0x0-0xa30a3");
    EXPECT_EQ((*info)[0].parentName, "Alfred");
    // Opened by Spotlight and by another app: neither is a launcher's child.
    EXPECT_TRUE(LauncherChildScanner::children(*list).empty());
}

TEST(LauncherChildScanner, AnythingElseIsNotRecognised) {
    for (const std::string garbled : {"lsappinfo: could not connect\n", "    bundleID=\"a\"\n",
                                      "1) Name ASN:0x0-0x1:\n", "1) \"Name\" ASN::\n", "x) \"Name\" ASN:0x0-0x1:\n"}) {
        EXPECT_FALSE(LauncherChildScanner::parse(garbled)) << garbled;
    }
}

class LauncherChildren : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    void SetUp() override {
        std::filesystem::create_directories(folder / "tools");
        std::filesystem::create_symlink(testing::fakeLsappinfoPath(), folder / "tools/lsappinfo");
        ::setenv(testing::fake_tool::kStateVariable, folder.path().c_str(), 1);
        // Drive's launcher (a login-item helper) opened Drive; the Dock
        // opened Notes; Mail's own helper (not a login item) opened Mail.
        files::writeAtomically(folder / "lsappinfo.json", R"([
            {"name": "Dock", "asn": "0x0-0x1001", "bundleID": "com.apple.dock", "pid": 90,
             "bundlePath": "/System/Library/CoreServices/Dock.app",
             "executablePath": "/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock"},
            {"name": "DriveLauncher", "asn": "0x0-0x2002", "bundleID": "com.example.drive.launcher", "pid": 101,
             "bundlePath": "/Applications/Drive.app/Contents/Library/LoginItems/DriveLauncher.app",
             "executablePath": "/Applications/Drive.app/Contents/Library/LoginItems/DriveLauncher.app/Contents/MacOS/DriveLauncher"},
            {"name": "Drive", "asn": "0x0-0x3003", "bundleID": "com.example.drive", "pid": 102,
             "bundlePath": "/Applications/Drive.app", "executablePath": "/Applications/Drive.app/Contents/MacOS/Drive",
             "parentName": "DriveLauncher", "parentAsn": "0x0-0x2002"},
            {"name": "Notes", "asn": "0x0-0x4004", "bundleID": "com.example.notes", "pid": 103,
             "bundlePath": "/Applications/Notes.app", "executablePath": "/Applications/Notes.app/Contents/MacOS/Notes",
             "parentName": "Dock", "parentAsn": "0x0-0x1001"},
            {"name": "MailStarter", "asn": "0x0-0x5005", "bundleID": "com.example.mail.starter", "pid": 104,
             "bundlePath": "/Applications/Mail.app/Contents/Helpers/MailStarter.app",
             "executablePath": "/Applications/Mail.app/Contents/Helpers/MailStarter.app/Contents/MacOS/MailStarter"},
            {"name": "Mail", "asn": "0x0-0x6006", "bundleID": "com.example.mail", "pid": 105,
             "bundlePath": "/Applications/Mail.app", "executablePath": "/Applications/Mail.app/Contents/MacOS/Mail",
             "parentName": "MailStarter", "parentAsn": "0x0-0x5005"}])");
    }
    void TearDown() override { ::unsetenv(testing::fake_tool::kStateVariable); }
};

TEST_F(LauncherChildren, FindsTheAppsALauncherOpenedInTheFakeToolsList) {
    SystemToolRunning tools(folder / "tools");
    std::string failure;
    auto output = tools.output(LauncherChildScanner::kLsappinfo, {"list"}, std::chrono::seconds(10), failure);
    ASSERT_TRUE(output) << failure;
    auto apps = LauncherChildScanner::parse(*output);
    ASSERT_TRUE(apps) << *output;
    ASSERT_EQ(apps->size(), 6u);
    const auto children = LauncherChildScanner::children(*apps);
    ASSERT_EQ(children.size(), 2u);
    EXPECT_EQ(children[0].child.bundleIdentifier, "com.example.drive");
    EXPECT_TRUE(children[0].launcherIsLoginItem);
    EXPECT_FALSE(children[1].launcherIsLoginItem);

    const std::vector<HeldStartupItem> held = {{StartupSource::launcherChild, "com.example.sync.launcher",
                                                "com.example.sync", "Sync", "startsAtLogin", std::nullopt, Date{0}}};
    const auto scan = LauncherChildScanner::scan(
        tools,
        [](const LauncherChild& child) {
            return child.launcherIsLoginItem ? SafetyTier::allowed() : SafetyTier::refused("cannot be told");
        },
        held);
    ASSERT_EQ(scan.entries.size(), 3u);
    EXPECT_EQ(scan.entries[0].id(), "launcherChild:com.example.drive.launcher");
    EXPECT_EQ(scan.entries[0].name, "Drive");
    EXPECT_EQ(scan.entries[0].ownerBundleIdentifier, "com.example.drive");
    EXPECT_EQ(scan.entries[1].tier, SafetyTier::refused("cannot be told"));
    // A launcher kept from starting opens nothing: the ledger lists it.
    EXPECT_EQ(scan.entries[2].id(), "launcherChild:com.example.sync.launcher");
    EXPECT_EQ(scan.entries[2].state, StartupEntry::State::off());
}

TEST(LauncherChildScanner, AnUnreadableSlowOrGarbledToolIsUnknownNeverEmpty) {
    FakeToolRunning tools;
    const std::vector<std::pair<ChildProcessResult, std::string>> cases = {
        {FakeToolRunning::printing("", 1, "lsappinfo: no session\n"), "lsappinfo list: exit status 1: lsappinfo: no session"},
        {FakeToolRunning::timedOut(), "lsappinfo list: timed out after 10s"},
        {FakeToolRunning::printing("<html>\n"), "lsappinfo printed a list this version of Holdenmere does not recognise"},
        {FakeToolRunning::printing("\n"), "lsappinfo listed no running apps at all"},
    };
    for (const auto& [answer, reason] : cases) {
        tools.answers["lsappinfo"] = answer;
        const auto scan = LauncherChildScanner::scan(tools, {}, {});
        EXPECT_EQ(scan.unreadable, reason);
        EXPECT_TRUE(scan.entries.empty());
    }
}

}  // namespace
}  // namespace holdenmere
