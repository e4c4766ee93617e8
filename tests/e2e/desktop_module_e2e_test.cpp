// The desktop app is a module of the bundle that only the app mode opens:
// the headless modes load no GUI library, whether the module is there or
// not, and the app mode says clearly when it cannot open it.
#include <signal.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "core/config/config_store.h"
#include "core/support/child_process.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

extern char** environ;

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::TemporaryDirectory;

class DesktopModule : public ::testing::Test {
protected:
    TemporaryDirectory home;
    std::vector<std::string> environment{"HOME=" + home.path().string(), "PATH=/usr/bin:/bin",
                                         "HOLDENMERE_HISTORY_PATH=" + (home / "history.json").string()};

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }

    ChildProcessResult run(const std::filesystem::path& executable, std::vector<std::string> arguments,
                           std::vector<std::string> extraEnvironment = {}) {
        ChildProcessRequest request;
        request.executable = executable;
        request.arguments = std::move(arguments);
        request.environment = environment;
        request.environment->insert(request.environment->end(), extraEnvironment.begin(), extraEnvironment.end());
        request.timeout = std::chrono::seconds(30);
        return runChildProcess(request);
    }

    // A bundle of the test's own: the executable and its Info.plist, and in
    // Contents/PlugIns whatever `module` holds (nothing when empty).
    std::filesystem::path bundleWithModule(const std::string& module) {
        const auto bundle = home / "Copy.app";
        std::filesystem::create_directories(bundle / "Contents/MacOS");
        const auto executable = bundle / "Contents/MacOS/holdenmere";
        std::filesystem::copy_file(testing::holdenmerePath(), executable);
        const auto source = std::filesystem::path(testing::holdenmerePath()).parent_path().parent_path();
        std::filesystem::copy_file(source / "Info.plist", bundle / "Contents/Info.plist");
        if (!module.empty()) testing::writeFile(bundle / "Contents/PlugIns" / HOLDENMERE_DESKTOP_MODULE_NAME, module);
        return executable;
    }
};

TEST_F(DesktopModule, TheAppModeWithoutItSaysSoAndChangesNothing) {
    // The headless bundle the other end-to-end tests run has no module at all.
    const auto module = std::filesystem::path(testing::holdenmerePath()).parent_path().parent_path() / "PlugIns" /
                        HOLDENMERE_DESKTOP_MODULE_NAME;
    ASSERT_FALSE(std::filesystem::exists(module));
    for (const auto& arguments : {std::vector<std::string>{}, std::vector<std::string>{"-psn_0_12345"}}) {
        auto result = run(testing::holdenmerePath(), arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, "Holdenmere: the desktop app is missing from this installation (" + module.string() +
                                    "). Reinstall Holdenmere to get it back; the command-line modes work without "
                                    "it (see 'Holdenmere --help').\n");
    }
    EXPECT_FALSE(std::filesystem::exists(home / "Library"));
}

TEST_F(DesktopModule, ADamagedModuleIsReportedAndTheHeadlessModesDoNotNotice) {
    const auto executable = bundleWithModule("\x7f" "ELF this is not a shared library");
    auto result = run(executable, {});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("Holdenmere: the desktop app could not be loaded from " +
                                        (home / "Copy.app/Contents/PlugIns/" HOLDENMERE_DESKTOP_MODULE_NAME).string()));
    EXPECT_THAT(result.error, HasSubstr("Reinstall Holdenmere"));
    EXPECT_FALSE(std::filesystem::exists(home / "Library"));

    result = run(executable, {"--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    result = run(executable, {"--audit"});
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.output, HasSubstr("[Holdenmere] LAST LOGIN: no gate pass in the log"));
}

#ifdef __linux__
// The libraries the dynamic loader maps are what a mode pays for at start.
// The full bundle is used here: its module is present, and still unused.

std::string librariesOf(const std::string& maps) {
    std::istringstream lines(maps);
    std::string line;
    std::string names;
    while (std::getline(lines, line)) {
        const auto slash = line.rfind('/');
        if (slash != std::string::npos && line.find(".so", slash) != std::string::npos) {
            names += line.substr(slash + 1) + "\n";
        }
    }
    return names;
}

// The libraries a pass has mapped once its first attempt has reached a
// server that never answers: the pass is then in its network wait.
std::string librariesOfAWaitingPass(const std::vector<std::string>& environment, const std::string& probeURL,
                                    const testing::LoopbackHTTPServer& server, const std::filesystem::path& config) {
    HoldenmereConfig settings;
    settings.settings.probeURL = probeURL;
    settings.settings.pollInterval = 2;
    settings.settings.maxAttempts = 30;
    ConfigStore{config}.save(settings);

    const std::string executable = testing::bundleExecutablePath();
    std::vector<char*> argv{const_cast<char*>(executable.c_str()), const_cast<char*>("--gate"), nullptr};
    std::vector<std::string> variables = environment;
    std::vector<char*> envp;
    for (auto& variable : variables) envp.push_back(variable.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, executable.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return "could not start the pass";

    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (server.arrivals().empty() && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::string libraries = librariesOf(std::string(std::istreambuf_iterator<char>(maps), {}));
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return server.arrivals().empty() ? "the pass never reached its network wait" : libraries;
}

TEST_F(DesktopModule, TheLoginPassMapsNoGUILibraryAndNoNetworkLibraryForAnHTTPProbe) {
    using testing::LoopbackHTTPServer;
    {
        // An http probe URL is asked over the pass's own connection.
        LoopbackHTTPServer server(LoopbackHTTPServer::Mode::silent);
        const auto libraries = librariesOfAWaitingPass(environment, server.url(), server, configPath());
        EXPECT_THAT(libraries, HasSubstr("libc.so"));
        EXPECT_THAT(libraries, Not(HasSubstr("libcurl")));
        EXPECT_THAT(libraries, Not(HasSubstr("libssl")));
        EXPECT_THAT(libraries, Not(HasSubstr("libQt")));
        EXPECT_THAT(libraries, Not(HasSubstr("HoldenmereDesktop")));
        EXPECT_THAT(libraries, Not(HasSubstr("libicu")));
        EXPECT_THAT(libraries, Not(HasSubstr("libX11")));
    }
    {
        // An https one loads libcurl for TLS, and still nothing of the desktop.
        LoopbackHTTPServer server(LoopbackHTTPServer::Mode::silent);
        const auto url = "https://127.0.0.1:" + std::to_string(server.port()) + "/hotspot-detect.html";
        const auto libraries = librariesOfAWaitingPass(environment, url, server, configPath());
        EXPECT_THAT(libraries, HasSubstr("libcurl"));
        EXPECT_THAT(libraries, Not(HasSubstr("libQt")));
        EXPECT_THAT(libraries, Not(HasSubstr("HoldenmereDesktop")));
    }
}
#endif

#ifdef __GLIBC__
TEST_F(DesktopModule, TheOtherHeadlessModesLoadNeitherQtNorTheNetworkLibrary) {
    // glibc's loader names every object it loads on standard error.
    for (const auto& mode : {"--version", "--help", "--audit", "--bogus"}) {
        auto result = run(testing::bundleExecutablePath(), {mode}, {"LD_DEBUG=files"});
        EXPECT_THAT(result.error, HasSubstr("file=libplist")) << mode;
        EXPECT_THAT(result.error, Not(HasSubstr("libQt"))) << mode;
        EXPECT_THAT(result.error, Not(HasSubstr("HoldenmereDesktop"))) << mode;
        EXPECT_THAT(result.error, Not(HasSubstr("libcurl"))) << mode;
    }
}
#endif

}  // namespace
}  // namespace holdenmere
