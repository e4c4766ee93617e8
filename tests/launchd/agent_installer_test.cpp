#include "core/launchd/agent_installer.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "core/launchd/system_launchctl.h"
#include "core/support/plist.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Calls = std::vector<std::vector<std::string>>;
using Status = HoldenmereLoginAgentStatus;
using testing::FakeLaunchctlTool;
using testing::readFile;
using testing::writeFile;

const std::string kLabel = "com.tavik.holdenmere.agent";

// A home folder of its own, with launchd behind the fake launchctl.
class AgentInstallerTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    FakeLaunchctlTool tool;
    SystemLaunchctl launchctl{FakeLaunchctlTool::executable()};
    std::filesystem::path plist = home.path() / "Library" / "LaunchAgents" / (kLabel + ".plist");
    AgentInstaller installer{launchctl, "/Applications/Holdenmere.app/Contents/MacOS/Holdenmere", plist,
                             home.path() / "Library" / "Logs" / "Holdenmere.log"};
    const std::string target = launchdServiceTarget(kLabel);
    const std::string domain = launchdDomain();

    // A plist of the agent with another ProcessType (or none).
    std::string agentPlist(const std::string& label, const std::string& processType) {
        std::string keys = "<key>Label</key><string>" + label + "</string>";
        keys += "<key>ProgramArguments</key><array><string>/old/Holdenmere</string><string>--gate</string></array>";
        keys += "<key>RunAtLoad</key><true/><key>Nice</key><integer>-5</integer>";
        if (!processType.empty()) keys += "<key>ProcessType</key><string>" + processType + "</string>";
        keys += "<key>StandardOutPath</key><string>/tmp/h.log</string>";
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + keys + "</dict></plist>\n";
    }
};

TEST(AgentPlist, TemplateIsFixedAndEscapesOnlyTheVariableStrings) {
    InertLaunchctl inert;
    AgentInstaller installer(inert, "/Users/o'brien/Apps/Tom & Jerry.app/Contents/MacOS/Holdenmere",
                             "/unused/agent.plist", "/Users/o'brien/Library/Logs/<Holdenmere>.log");
    const std::string expected =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n"
        "<dict>\n"
        "    <key>Label</key>\n"
        "    <string>com.tavik.holdenmere.agent</string>\n"
        "    <key>ProgramArguments</key>\n"
        "    <array>\n"
        "        <string>/Users/o&apos;brien/Apps/Tom &amp; Jerry.app/Contents/MacOS/Holdenmere</string>\n"
        "        <string>--gate</string>\n"
        "    </array>\n"
        "    <key>RunAtLoad</key>\n"
        "    <true/>\n"
        "    <key>KeepAlive</key>\n"
        "    <false/>\n"
        "    <key>ProcessType</key>\n"
        "    <string>Standard</string>\n"
        "    <key>StandardOutPath</key>\n"
        "    <string>/Users/o&apos;brien/Library/Logs/&lt;Holdenmere&gt;.log</string>\n"
        "    <key>StandardErrorPath</key>\n"
        "    <string>/Users/o&apos;brien/Library/Logs/&lt;Holdenmere&gt;.log</string>\n"
        "</dict>\n"
        "</plist>";
    EXPECT_EQ(installer.plistContents(), expected);

    // What launchd reads back is the path as it stands.
    auto parsed = plist::parse(installer.plistContents());
    EXPECT_EQ(*parsed.find("ProgramArguments")->array()->front().string(),
              std::string("/Users/o'brien/Apps/Tom & Jerry.app/Contents/MacOS/Holdenmere"));
    EXPECT_EQ(parsed.find("KeepAlive")->boolean(), false);
}

TEST(AgentPlist, EscapingReplacesTheAmpersandFirst) {
    EXPECT_EQ(xmlEscaped("&<>\"'"), "&amp;&lt;&gt;&quot;&apos;");
    EXPECT_EQ(xmlEscaped("&lt;"), "&amp;lt;");
    EXPECT_EQ(xmlEscaped("/Applications/Holdenmere.app"), "/Applications/Holdenmere.app");
}

TEST(AgentPlist, LivesUnderTheHomeFolder) {
    const char* old = std::getenv("HOME");
    std::string saved = old ? old : "";
    ::setenv("HOME", "/Users/someone", 1);
    EXPECT_EQ(AgentInstaller::defaultPlistURL(), "/Users/someone/Library/LaunchAgents/com.tavik.holdenmere.agent.plist");
    EXPECT_EQ(AgentInstaller::defaultLogPath(), "/Users/someone/Library/Logs/Holdenmere.log");
    InertLaunchctl inert;
    EXPECT_EQ(AgentInstaller(inert, "/x").plistURL(), AgentInstaller::defaultPlistURL());
    if (old) {
        ::setenv("HOME", saved.c_str(), 1);
    } else {
        ::unsetenv("HOME");
    }
}

TEST_F(AgentInstallerTest, InstallWritesTheAgentAndLoadsIt) {
    EXPECT_FALSE(installer.isInstalled());
    EXPECT_EQ(installer.install(), std::nullopt);
    EXPECT_EQ(readFile(plist), installer.plistContents());
    EXPECT_EQ(tool.calls(), (Calls{{"bootout", target}, {"enable", target}, {"bootstrap", domain, plist.string()}}));
    EXPECT_EQ(tool.state().loaded.at(kLabel).plistPath, plist.string());
    EXPECT_EQ(tool.state().loaded.at(kLabel).arguments,
              (std::vector<std::string>{"/Applications/Holdenmere.app/Contents/MacOS/Holdenmere", "--gate"}));
    EXPECT_EQ(installer.status(), Status::activeAtLogin);
}

TEST_F(AgentInstallerTest, InstallReplacesALoadedOlderCopySwitchedOffInLoginItems) {
    writeFile(plist, agentPlist(kLabel, "Background"));
    tool.load(kLabel, plist.string());
    tool.mark(kLabel, true);
    EXPECT_EQ(installer.status(), Status::disabled);

    EXPECT_EQ(installer.install(), std::nullopt);
    EXPECT_EQ(readFile(plist), installer.plistContents());
    EXPECT_EQ(tool.state().disabled.at(kLabel), false);
    EXPECT_EQ(installer.status(), Status::activeAtLogin);
}

TEST_F(AgentInstallerTest, ALaunchdRefusalIsAWarningAndThePlistStays) {
    tool.answer("bootstrap", 5, "", "\n  Bootstrap failed: 5: Input/output error\n\n");
    EXPECT_EQ(installer.install(), "Bootstrap failed: 5: Input/output error");
    EXPECT_EQ(readFile(plist), installer.plistContents());
    EXPECT_EQ(installer.status(), Status::installedNotLoaded);

    tool.answer("bootstrap", 5, " \n", "");
    EXPECT_EQ(installer.install(), "launchctl bootstrap exited 5");
}

TEST_F(AgentInstallerTest, AMissingLaunchctlIsAWarningToo) {
    SystemLaunchctl missing("/nonexistent/launchctl");
    AgentInstaller offline(missing, installer.executablePath(), plist, installer.logPath());
    EXPECT_EQ(offline.install(),
              "failed to run launchctl: could not start /nonexistent/launchctl: No such file or directory");
    EXPECT_TRUE(offline.isInstalled());
    EXPECT_EQ(offline.status(), Status::installedNotLoaded);
}

TEST_F(AgentInstallerTest, AFolderThatCannotBeMadeStopsTheInstallBeforeLaunchd) {
    writeFile(home / "Library" / "LaunchAgents", "a file where the folder should be");
    try {
        installer.install();
        FAIL() << "install went ahead";
    } catch (const AgentInstallerError& error) {
        EXPECT_EQ(error.kind(), AgentInstallerError::Kind::fileSystem);
        EXPECT_EQ(error.domain(), "Holdenmere.AgentInstaller");
        EXPECT_NE(std::string(error.what()).find("LaunchAgents"), std::string::npos) << error.what();
    }
    EXPECT_EQ(readFile(home / "Library" / "LaunchAgents"), "a file where the folder should be");
    EXPECT_TRUE(tool.calls().empty());

    // A folder standing where the plist should be cannot be replaced either.
    std::filesystem::remove(home / "Library" / "LaunchAgents");
    std::filesystem::create_directories(plist / "inside");
    EXPECT_THROW(installer.install(), AgentInstallerError);
    EXPECT_TRUE(std::filesystem::is_directory(plist / "inside"));
    EXPECT_TRUE(tool.calls().empty());
}

TEST_F(AgentInstallerTest, UninstallUnloadsDisablesAndDeletes) {
    installer.install();
    tool.forgetCalls();
    installer.uninstall();
    EXPECT_EQ(tool.calls(), (Calls{{"bootout", target}, {"disable", target}}));
    EXPECT_FALSE(installer.isInstalled());
    EXPECT_TRUE(tool.state().loaded.empty());
    EXPECT_EQ(tool.state().disabled.at(kLabel), true);
    EXPECT_EQ(installer.status(), Status::notInstalled);

    // Nothing installed: launchd is still told, and nothing fails.
    tool.forgetCalls();
    EXPECT_NO_THROW(installer.uninstall());
    EXPECT_EQ(tool.calls(), (Calls{{"bootout", target}, {"disable", target}}));
}

TEST_F(AgentInstallerTest, UninstallThrowsOnlyWhenThePlistCannotBeDeleted) {
    std::filesystem::create_directories(plist / "inside");
    EXPECT_THROW(installer.uninstall(), AgentInstallerError);
    EXPECT_TRUE(std::filesystem::exists(plist / "inside"));
}

TEST_F(AgentInstallerTest, StatusComesFromTheFileAndLaunchd) {
    // Not installed wins, whatever launchd says, and launchd is not asked.
    tool.load(kLabel, plist.string());
    tool.mark(kLabel, true);
    EXPECT_EQ(installer.status(), Status::notInstalled);
    EXPECT_TRUE(tool.calls().empty());

    writeFile(plist, installer.plistContents());
    EXPECT_EQ(installer.status(), Status::disabled);  // even though loaded
    EXPECT_EQ(tool.calls(), (Calls{{"print", target}, {"print-disabled", domain}}));

    tool.mark(kLabel, false);
    EXPECT_EQ(installer.status(), Status::activeAtLogin);

    tool.unload(kLabel);
    tool.mark(kLabel, true);
    EXPECT_EQ(installer.status(), Status::disabled);

    tool.mark(kLabel, false);
    EXPECT_EQ(installer.status(), Status::installedNotLoaded);
}

TEST_F(AgentInstallerTest, MigrationRewritesOnlyBackgroundAsStandard) {
    EXPECT_FALSE(installer.migrateProcessTypeIfNeeded());
    EXPECT_FALSE(installer.isInstalled());

    writeFile(plist, agentPlist(kLabel, "Background"));
    EXPECT_TRUE(installer.migrateProcessTypeIfNeeded());
    auto migrated = plist::readFile(plist);
    auto expected = plist::parse(agentPlist(kLabel, "Standard"));
    EXPECT_EQ(migrated, expected);  // every other key kept, in its order
    EXPECT_FALSE(installer.migrateProcessTypeIfNeeded());

    for (const std::string processType : {"Standard", "Interactive", "Adaptive", ""}) {
        const std::string original = agentPlist(kLabel, processType);
        writeFile(plist, original);
        EXPECT_FALSE(installer.migrateProcessTypeIfNeeded()) << processType;
        EXPECT_EQ(readFile(plist), original) << processType;
    }
    EXPECT_TRUE(tool.calls().empty());
}

TEST_F(AgentInstallerTest, MigrationNeverTouchesAnotherJobsPlist) {
    const std::vector<std::string> others = {
        agentPlist("com.example.other", "Background"),
        agentPlist("", "Background"),
        "<plist version=\"1.0\"><dict><key>ProcessType</key><string>Background</string></dict></plist>",
        "<plist version=\"1.0\"><array><string>com.tavik.holdenmere.agent</string></array></plist>",
        "<plist version=\"1.0\"><dict><key>Label</key><integer>1</integer></dict></plist>",
        "not a property list",
        "",
    };
    for (const auto& other : others) {
        writeFile(plist, other);
        try {
            installer.migrateProcessTypeIfNeeded();
            ADD_FAILURE() << "rewrote " << other;
        } catch (const AgentInstallerError& error) {
            EXPECT_EQ(error.kind(), AgentInstallerError::Kind::notHoldenmereJob);
            EXPECT_STREQ(error.what(), "Cannot update the Holdenmere login agent: its plist is not a Holdenmere job.");
        }
        EXPECT_EQ(readFile(plist), other);
    }
}

TEST_F(AgentInstallerTest, MigrationReportsAPlistThatCannotBeRead) {
    std::filesystem::create_directories(plist);
    try {
        installer.migrateProcessTypeIfNeeded();
        FAIL() << "read a folder as a plist";
    } catch (const AgentInstallerError& error) {
        EXPECT_EQ(error.kind(), AgentInstallerError::Kind::fileSystem);
    }
}

}  // namespace
}  // namespace holdenmere
