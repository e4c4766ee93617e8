// Runs the built bundle as a user would, in a temporary home folder.
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include "core/gate/cli_mode.h"
#include "core/support/child_process.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

const std::string kUsage = std::string(CLIMode::usageText) + "\n";
const char* kDamaged = R"({"settings": {"probeURL": 7}, "apps": []})";

class CommandLine : public ::testing::Test {
protected:
    TemporaryDirectory home;
    std::vector<std::string> environment{"HOME=" + home.path().string(), "PATH=/usr/bin:/bin"};

    std::filesystem::path defaultConfig() const {
        return home / "Library/Application Support/Holdenmere/config.json";
    }

    ChildProcessResult run(std::vector<std::string> arguments, std::filesystem::path executable = {}) {
        ChildProcessRequest request;
        request.executable = executable.empty() ? std::filesystem::path(testing::holdenmerePath()) : executable;
        request.arguments = std::move(arguments);
        request.environment = environment;
        request.timeout = std::chrono::seconds(30);
        return runChildProcess(request);
    }

    // A copy of the executable in a bundle of its own with the given Info.plist keys, written as a binary plist.
    std::filesystem::path bundledCopy(const std::vector<std::pair<std::string, std::string>>& keys) {
        auto executable = home / "Copy.app/Contents/MacOS/holdenmere";
        std::filesystem::create_directories(executable.parent_path());
        std::filesystem::copy_file(testing::holdenmerePath(), executable);
        plist_t root = plist_new_dict();
        for (const auto& [key, value] : keys) plist_dict_set_item(root, key.c_str(), plist_new_string(value.c_str()));
        char* bytes = nullptr;
        uint32_t length = 0;
        plist_to_bin(root, &bytes, &length);
        writeFile(home / "Copy.app/Contents/Info.plist", std::string(bytes, length));
        plist_to_bin_free(bytes);
        plist_free(root);
        return executable;
    }
};

TEST_F(CommandLine, VersionComesFromTheBundle) {
    auto result = run({"--version"});
    EXPECT_EQ(result.status, 0);
    // An unnumbered development build has no CFBundleVersion.
    std::string build = HOLDENMERE_BUILD_NUMBER;
    EXPECT_EQ(result.output,
              std::string("Holdenmere ") + HOLDENMERE_VERSION + (build.empty() ? "" : " (" + build + ")") + "\n");
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(run({"-v"}).output, result.output);

    EXPECT_EQ(run({"--version"}, bundledCopy({{"CFBundleShortVersionString", "2.1"}, {"CFBundleVersion", "2.1"}})).output,
              "Holdenmere 2.1\n");
}

TEST_F(CommandLine, VersionOfACopyInAnotherBundleOrNone) {
    EXPECT_EQ(run({"--version"}, bundledCopy({{"CFBundleShortVersionString", "2.1"}, {"CFBundleVersion", "57"}})).output,
              "Holdenmere 2.1 (57)\n");
    auto loose = home / "bin/holdenmere";
    std::filesystem::create_directories(loose.parent_path());
    std::filesystem::copy_file(testing::holdenmerePath(), loose);
    auto result = run({"--version"}, loose);
    EXPECT_EQ(result.output, "Holdenmere dev (unpackaged build)\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CommandLine, HelpPrintsTheUsage) {
    for (const char* option : {"--help", "-h"}) {
        auto result = run({option});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, kUsage);
        EXPECT_EQ(result.error, "");
    }
}

TEST_F(CommandLine, UnknownOptionIsAUsageError) {
    auto result = run({"-x"});
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(result.error, "Holdenmere: unknown option '-x'\n");
    EXPECT_EQ(result.output, kUsage);

    result = run({"--dry-run"});
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(result.error, "Holdenmere: unknown option '--dry-run'\n");
}

TEST_F(CommandLine, DeemsterUIOnlyAsTheFirstArgument) {
    auto result = run({"--deemsterui", "--gate"});
    EXPECT_EQ(result.status, 69);
    EXPECT_EQ(result.error, "Holdenmere: DeemsterUI unavailable; build with the sibling DeemsterUI package.\n");
    EXPECT_EQ(result.output, "");

    result = run({"-psn_0_1", "--deemsterui"});
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(result.error, "Holdenmere: unknown option '--deemsterui'\n");
}

TEST_F(CommandLine, GateWithAnUnreadableConfigLaunchesNothing) {
    writeFile(defaultConfig(), kDamaged);
    environment.push_back("HOLDENMERE_CONFIG_PATH=");  // empty counts as unset
    auto result = run({"--gate"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "[Holdenmere] ERROR: config unreadable at " + defaultConfig().string() +
                                ": Could not read config: \"settings.probeURL\": expected a string, found a number. "
                                "Launching nothing. Open Holdenmere to repair it.\n");
    EXPECT_EQ(readFile(defaultConfig()), kDamaged);
    EXPECT_FALSE(std::filesystem::exists(home / "Library/Application Support/Holdenmere/history.json"));
}

TEST_F(CommandLine, GateWithAFolderForAConfig) {
    auto folder = home / "config-folder";
    std::filesystem::create_directories(folder);
    environment.push_back("HOLDENMERE_CONFIG_PATH=" + folder.string());
    auto result = run({"--gate"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "[Holdenmere] ERROR: config unreadable at " + folder.string() +
                                ": Could not read config: read(" + folder.string() +
                                "): not a regular file. Launching nothing. Open Holdenmere to repair it.\n");
}

TEST_F(CommandLine, RepairHelpersWithNothingToRepair) {
    // launchd as the fake launchctl keeps it: readable, nothing disabled.
    testing::FakeLaunchctlTool launchd;
    std::filesystem::create_directories(home / "tools");
    std::filesystem::create_symlink(testing::FakeLaunchctlTool::executable(), home / "tools/launchctl");
    environment.push_back("HOLDENMERE_TOOLS_DIR=" + (home / "tools").string());
    environment.push_back(std::string(testing::fake_launchctl::kStateVariable) + "=" + launchd.stateFolder().string());
    using Arguments = std::vector<std::string>;
    for (const auto& arguments : {Arguments{"--repair-helpers"}, Arguments{"--repair-helpers", "--dry-run"}}) {
        auto result = run(arguments);
        EXPECT_EQ(result.status, 0) << ::testing::PrintToString(arguments);
        EXPECT_EQ(result.output, "[Holdenmere] nothing to repair: no helper of a managed app is switched off that "
                                 "Holdenmere cannot start itself\n");
        EXPECT_EQ(result.error, "");
    }
    EXPECT_FALSE(std::filesystem::exists(defaultConfig()));
    EXPECT_FALSE(std::filesystem::exists(home / "Library/Logs/Holdenmere.log"));
}

TEST_F(CommandLine, RepairHelpersThatCannotReadLaunchdSaysSoAndFails) {
    // A launchctl that answers print-disabled with something else entirely.
    const auto tools = home / "tools";
    std::filesystem::create_directories(tools);
    std::filesystem::create_symlink(HOLDENMERE_TEST_HELPER, tools / "launchctl");
    environment.push_back("HOLDENMERE_TOOLS_DIR=" + tools.string());
    auto result = run({"--repair-helpers"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, "[Holdenmere] ERROR: launchd's disabled list could not be read, so nothing was changed. "
                            "Holdenmere could not tell which helpers are switched off. Nothing repaired.\n");
    EXPECT_FALSE(std::filesystem::exists(defaultConfig()));
    EXPECT_FALSE(std::filesystem::exists(home / "Library/Logs/Holdenmere.log"));
}

TEST_F(CommandLine, MutatingModesTakeTheLockBeforeReadingTheConfig) {
    auto config = home / "custom/config.json";
    environment.push_back("HOLDENMERE_CONFIG_PATH=" + config.string());
    writeFile(config, kDamaged);

    auto result = run({"--restore-startup"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.error, "[Holdenmere] ERROR: config unreadable at " + config.string() +
                                ": Could not read config: \"settings.probeURL\": expected a string, found a number. "
                                "Nothing restored.\n");
    EXPECT_TRUE(std::filesystem::exists(config.string() + ".startup-lock"));

    result = run({"--repair-helpers", "--dry-run"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, ::testing::EndsWith(". Nothing repaired.\n"));

    // A lock path that is a symbolic link is never followed: the mode stops
    // before it reads anything.
    std::filesystem::remove(config.string() + ".startup-lock");
    std::filesystem::create_symlink(home / "target", config.string() + ".startup-lock");
    for (const char* mode : {"--restore-startup", "--repair-helpers"}) {
        result = run({mode});
        EXPECT_EQ(result.status, 75);
        EXPECT_EQ(result.error, "[Holdenmere] ERROR: startup mutation lock unavailable \xE2\x80\x94 open(" +
                                    config.string() +
                                    ".startup-lock): Too many levels of symbolic links. Nothing changed.\n");
    }
    EXPECT_EQ(readFile(config), kDamaged);
    EXPECT_FALSE(std::filesystem::exists(home / "target"));
}

// --audit's startup inventory (tests/e2e/startup_inventory_e2e_test.cpp
// tests it), cut out of the output, which must hold it.
std::string withoutInventory(const std::string& output) {
    const auto start = output.find("[Holdenmere] STARTUP INVENTORY");
    EXPECT_NE(start, std::string::npos) << output;
    if (start == std::string::npos) return output;
    return output.substr(0, start) + output.substr(output.find("[Holdenmere] LAST LOGIN", start));
}

TEST_F(CommandLine, AuditReportsManagedAppsAndTheLastLogin) {
    writeFile(defaultConfig(), R"({"settings": {"probeURL": "https://captive.apple.com/hotspot-detect.html",
        "pollInterval": 2, "maxAttempts": 60, "launchAnywayOnTimeout": true, "isEnabled": true},
        "apps": [{"bundleIdentifier": "com.example.mail", "name": "Mail", "path": "/Applications/Mail.app"},
                 {"bundleIdentifier": "com.example.drive", "name": "Drive", "path": "/Applications/Drive.app"}],
        "blockedApps": [{"bundleIdentifier": "com.example.chat", "name": "Chat", "path": "/Applications/Chat.app"}]})");
    const std::string configBefore = readFile(defaultConfig());
    auto result = run({"--audit"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    // No osascript at all: the Login Items cannot be read, and so neither
    // can the conflicts be checked; each says so.
    EXPECT_EQ(withoutInventory(result.output),
              "[Holdenmere] macOS Login Items: could not be read \xE2\x80\x94 could not start /usr/bin/osascript: No "
              "such file or directory\n"
              "[Holdenmere] managed by Holdenmere: Mail, Drive\n"
              "[Holdenmere] removed from Holdenmere (do not start at login): Chat\n"
              "[Holdenmere] CONFLICTS: could not be checked \xE2\x80\x94 the macOS Login Items could not be read, so a "
              "managed app may also start from one\n"
              "[Holdenmere] BACKGROUND ITEMS: incomplete \xE2\x80\x94 could not start /usr/bin/sfltool: No such file "
              "or directory\n"
              "[Holdenmere] LAST LOGIN: no gate pass in the log \xE2\x80\x94 not observed\n");

    auto log = home / "logs/custom.log";
    environment.push_back("HOLDENMERE_LOG_PATH=" + log.string());
    writeFile(log,
              "[2026-03-01T08:15:02Z] network reachable after 1 attempt(s) [v0.1.0 (3)]\n"
              "[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it from Login Items\n"
              "[Holdenmere]   CONFLICT: Drive \xE2\x80\x94 remove it from Login Items\n");
    result = run({"--audit"});
    EXPECT_THAT(result.output,
                ::testing::EndsWith("[Holdenmere] LAST LOGIN (2026-03-01T08:15:02Z, v0.1.0 (3)) started before the network: Mail, Drive\n"
                                    "[Holdenmere]   Mail \xE2\x80\x94 macOS started it before the gate at that login\n"
                                    "[Holdenmere]   Drive \xE2\x80\x94 macOS started it before the gate at that login\n"));
    EXPECT_EQ(readFile(defaultConfig()), configBefore);
}

TEST_F(CommandLine, AuditWithAnUnreadableConfigStillReportsTheLog) {
    writeFile(defaultConfig(), kDamaged);
    auto result = run({"--audit"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "[Holdenmere] ERROR: cannot read config \xE2\x80\x94 Could not read config: "
                            "\"settings.probeURL\": expected a string, found a number\n");
    EXPECT_EQ(withoutInventory(result.output),
              "[Holdenmere] macOS Login Items: could not be read \xE2\x80\x94 could not start /usr/bin/osascript: No "
              "such file or directory\n"
              "[Holdenmere] BACKGROUND ITEMS: incomplete \xE2\x80\x94 could not start /usr/bin/sfltool: No such file "
              "or directory\n"
              "[Holdenmere] LAST LOGIN: no gate pass in the log \xE2\x80\x94 not observed\n");
    EXPECT_EQ(readFile(defaultConfig()), kDamaged);
}

TEST_F(CommandLine, AuditListsLoginItemsAndTheAppsInBoth) {
    // System Events as the fake osascript keeps it, in the tools folder.
    std::filesystem::create_directories(home / "tools");
    std::filesystem::create_symlink(testing::fakeOsascriptPath(), home / "tools/osascript");
    environment.push_back("HOLDENMERE_TOOLS_DIR=" + (home / "tools").string());
    environment.push_back("FAKE_OSASCRIPT_STATE=" + (home / "login-items.json").string());
    const auto mail = home / "Applications/Mail.app";
    writeFile(mail / "Contents/Info.plist",
              "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
              "<string>com.example.mail</string></dict></plist>");
    const auto notes = home / "Applications/Notes, Work.app";  // no Info.plist: matched by path
    std::filesystem::create_directories(notes);
    writeFile(home / "login-items.json", "[{\"path\": \"" + mail.string() + "\", \"hidden\": false}, {\"path\": \"" +
                                             notes.string() + "\", \"hidden\": true}, {\"path\": \"/Applications/"
                                             "Other.app\", \"hidden\": false}]");
    writeFile(defaultConfig(), R"({"settings": {"probeURL": "https://captive.apple.com/hotspot-detect.html",
        "pollInterval": 2, "maxAttempts": 60, "launchAnywayOnTimeout": true, "isEnabled": true},
        "apps": [{"bundleIdentifier": "com.example.notes", "name": "Notes", "path": ")" + notes.string() + R"("},
                 {"bundleIdentifier": "com.example.mail", "name": "Mail", "path": "/Applications/Mail.app"},
                 {"bundleIdentifier": "com.example.drive", "name": "Drive", "path": "/Applications/Drive.app"}]})");

    auto result = run({"--audit"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(withoutInventory(result.output),
              "[Holdenmere] macOS Login Items: Mail, Notes, Work, Other\n"
              "[Holdenmere] managed by Holdenmere: Notes, Mail, Drive\n"
              "[Holdenmere] CONFLICTS (in both \xE2\x80\x94 gate has no effect on these): \n"
              "[Holdenmere]   Notes (no bundle id) \xE2\x80\x94 remove from Login Items to gate it\n"
              "[Holdenmere]   Mail (com.example.mail) \xE2\x80\x94 remove from Login Items to gate it\n"
              "[Holdenmere] BACKGROUND ITEMS: incomplete \xE2\x80\x94 could not start " + (home / "tools/sfltool").string() +
                  ": No such file or directory\n"
              "[Holdenmere] LAST LOGIN: no gate pass in the log \xE2\x80\x94 not observed\n");

    // System Events refusing Automation: the Login Items and the conflicts
    // are said to be unknown, with why; the rest stands.
    environment.push_back("FAKE_OSASCRIPT_MODE=denied");
    result = run({"--audit"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(withoutInventory(result.output),
              "[Holdenmere] macOS Login Items: could not be read \xE2\x80\x94 Holdenmere is not allowed to control "
              "System Events (System Settings \xE2\x80\xBA Privacy & Security \xE2\x80\xBA Automation)\n"
              "[Holdenmere] managed by Holdenmere: Notes, Mail, Drive\n"
              "[Holdenmere] CONFLICTS: could not be checked \xE2\x80\x94 the macOS Login Items could not be read, so a "
              "managed app may also start from one\n"
              "[Holdenmere] BACKGROUND ITEMS: incomplete \xE2\x80\x94 could not start " +
                  (home / "tools/sfltool").string() +
                  ": No such file or directory\n"
                  "[Holdenmere] LAST LOGIN: no gate pass in the log \xE2\x80\x94 not observed\n");
}

}  // namespace
}  // namespace holdenmere
