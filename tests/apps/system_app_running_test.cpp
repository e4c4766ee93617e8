#include "core/apps/app_running.h"

#include <signal.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::TemporaryDirectory;

// Real bundles in a temporary folder whose executable is a copy of the test
// helper, which behaves as an app by its name.
class SystemAppRunningTest : public ::testing::Test {
protected:
    TemporaryDirectory folder;
    SystemAppRunning system;

    // Identifiers are unique to this test's folder: tests run in parallel
    // processes, and each kills only the apps it started.
    std::string id(const std::string& name) const { return "com.example." + name + "." + folder.path().filename().string(); }

    std::string makeBundle(const std::string& name, const std::string& identifier, const std::string& executable,
                           bool withExecutable = true) {
        auto bundle = folder / (name + ".app");
        std::string info = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                           "<key>CFBundleIdentifier</key><string>" + identifier + "</string>"
                           "<key>CFBundleExecutable</key><string>" + executable + "</string></dict></plist>\n";
        testing::writeFile(bundle / "Contents/Info.plist", info);
        if (withExecutable) {
            std::filesystem::create_directories(bundle / "Contents/MacOS");
            std::filesystem::copy_file(testing::testHelperPath(), bundle / "Contents/MacOS" / executable);
        }
        return bundle.string();
    }

    void TearDown() override {
        for (const auto& identifier : {id("lingering"), id("hidden")}) {
            for (int pid : system.processIdentifiers(identifier)) ::kill(pid, SIGKILL);
        }
    }
};

TEST_F(SystemAppRunningTest, OpensABundleThatThenRuns) {
    auto path = makeBundle("Lingering", id("lingering"), "LingeringApp");
    EXPECT_TRUE(system.exists(path));
    EXPECT_FALSE(system.isRunning(id("lingering")));
    EXPECT_EQ(system.launch(path, {}), LaunchAttempt::opened());
    EXPECT_TRUE(system.isRunning(id("lingering")));
    auto pids = system.processIdentifiers(id("lingering"));
    ASSERT_EQ(pids.size(), 1u);
    // Opening it again is no second launch.
    EXPECT_EQ(system.launch(path, {}), LaunchAttempt::opened());
    EXPECT_EQ(system.processIdentifiers(id("lingering")), pids);
}

// The pass has the process table read while it waits for the network; the
// launches after it use that reading while it is fresh, and wait for it
// rather than read the table a second time.
TEST_F(SystemAppRunningTest, AWarmedUpTableShowsWhatRunsAndWhatIsStartedSince) {
    auto path = makeBundle("Lingering", id("lingering"), "LingeringApp");
    {
        SystemAppRunning other;  // an app opened by somebody else
        ASSERT_EQ(other.launch(path, {}), LaunchAttempt::opened());
    }
    system.warmUp();
    const auto pids = system.processIdentifiers(id("lingering"));
    ASSERT_EQ(pids.size(), 1u);
    auto second = makeBundle("Hidden", id("hidden"), "LingeringApp");
    EXPECT_EQ(system.launch(second, {}), LaunchAttempt::opened());
    EXPECT_TRUE(system.isRunning(id("hidden")));
    EXPECT_EQ(system.processIdentifiers(id("lingering")), pids);

    // Gone before its reading is done, or while it runs.
    for (int round = 0; round < 20; ++round) {
        SystemAppRunning brief;
        brief.warmUp();
        if (round % 2 == 0) {
            EXPECT_TRUE(brief.isRunning(id("lingering")));
        }
    }
}

TEST_F(SystemAppRunningTest, AHiddenLaunchIsConfirmedWhileTheAppLives) {
    auto path = makeBundle("Hidden", id("hidden"), "LingeringApp");
    OpenOptions options;
    options.hidden = true;
    EXPECT_EQ(system.launch(path, options), LaunchAttempt::opened());

    auto quick = makeBundle("Quick", id("quick"), "QuickApp");
    EXPECT_EQ(system.launch(quick, options),
              LaunchAttempt::unconfirmed("application terminated before hidden confirmation"));
}

// A hidden launch whose caller no longer waits ends its confirmation at
// once (here: already given up when the app was started) instead of
// watching on through its checks.
TEST_F(SystemAppRunningTest, ACancelledHiddenLaunchEndsItsConfirmation) {
    auto path = makeBundle("Hidden", id("hidden"), "LingeringApp");
    OpenOptions options;
    options.hidden = true;
    options.cancellation = std::make_shared<LaunchCancellation>();
    options.cancellation->cancel();
    // The answer comes from the thread that starts the app, as soon as it
    // has started: the confirmation ends before its first check.
    EXPECT_EQ(system.launch(path, options), LaunchAttempt::unconfirmed("launch confirmation cancelled"));
    EXPECT_TRUE(system.isRunning(id("hidden")));
}

// The process table tells what each process was started with, so a
// headless run of an app's executable can be told from the app itself.
TEST_F(SystemAppRunningTest, TellsTheArgumentsOfARunningProcess) {
    auto path = makeBundle("Lingering", id("lingering"), "LingeringApp");
    OpenOptions options;
    options.arguments = {"--gate", "two words", ""};
    ASSERT_EQ(system.launch(path, options), LaunchAttempt::opened());
    auto pids = system.processIdentifiers(id("lingering"));
    ASSERT_EQ(pids.size(), 1u);
    // The kernel shows the new executable a moment before the arguments of
    // a process still finishing its exec: until then they are not told.
    auto arguments = system.arguments(pids[0]);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!arguments && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        arguments = system.arguments(pids[0]);
    }
    EXPECT_EQ(arguments, (std::vector<std::string>{path + "/Contents/MacOS/LingeringApp", "--gate", "two words", ""}));
    EXPECT_EQ(system.arguments(-1), std::nullopt);
}

TEST_F(SystemAppRunningTest, BrokenBundlesFailWithTheirReason) {
    EXPECT_FALSE(system.exists((folder / "None.app").string()));
    EXPECT_EQ(system.launch((folder / "None.app").string(), {}),
              LaunchAttempt::failed("no application bundle at " + (folder / "None.app").string()));

    std::filesystem::create_directories(folder / "Bare.app");
    EXPECT_THAT(system.launch((folder / "Bare.app").string(), {}).reason, ::testing::StartsWith("no readable Info.plist at "));

    auto noExecutable = makeBundle("Empty", "com.example.empty", "Missing", false);
    auto attempt = system.launch(noExecutable, {});
    EXPECT_EQ(attempt.result, LaunchAttempt::Result::failed);
    EXPECT_THAT(attempt.reason, ::testing::HasSubstr("No such file or directory"));

    auto escaping = makeBundle("Escape", "com.example.escape", "../../../bin/true", false);
    EXPECT_EQ(system.launch(escaping, {}), LaunchAttempt::failed("the bundle at " + escaping + " names no executable"));
}

}  // namespace
}  // namespace holdenmere
