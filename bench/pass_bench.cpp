// The executable as the login agent runs it: the start-up of --version, and
// a whole --gate pass with the network up and ten apps without delay, with
// the peak memory of that pass.
#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/support/child_process.h"
#include "tests/support/loopback_http_server.h"

namespace {

using holdenmere::testing::LoopbackHTTPServer;

holdenmere::ChildProcessResult runHoldenmere(const std::vector<std::string>& arguments, const std::string& home,
                                             const std::string& history) {
    holdenmere::ChildProcessRequest request;
    request.executable = HOLDENMERE_EXECUTABLE;
    request.arguments = arguments;
    request.environment = std::vector<std::string>{"HOME=" + home, "PATH=/usr/bin:/bin",
                                                   "HOLDENMERE_HISTORY_PATH=" + history};
    request.timeout = std::chrono::seconds(120);
    return holdenmere::runChildProcess(request);
}

void BM_VersionStartUp(benchmark::State& state) {
    auto home = std::filesystem::temp_directory_path().string();
    for (auto _ : state) {
        auto result = runHoldenmere({"--version"}, home, "/dev/null");
        if (!result.succeeded()) state.SkipWithError("--version failed");
    }
}
BENCHMARK(BM_VersionStartUp)->Unit(benchmark::kMillisecond);

void BM_GatePassTenApps(benchmark::State& state) {
    const auto home = std::filesystem::temp_directory_path() / "holdenmere-bench-pass";
    std::filesystem::remove_all(home);
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 204, 3600);
    holdenmere::HoldenmereConfig config;
    config.settings.probeURL = server.url();
    for (int index = 0; index < 10; ++index) {
        const std::string name = "App" + std::to_string(index);
        const auto bundle = home / "Applications" / (name + ".app");
        std::filesystem::create_directories(bundle / "Contents/MacOS");
        std::filesystem::copy_file(HOLDENMERE_DEMO_APP, bundle / "Contents/MacOS" / name);
        std::ofstream(bundle / "Contents/Info.plist")
            << "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>"
               "com.example.bench." << name << "</string><key>CFBundleExecutable</key><string>" << name
            << "</string></dict></plist>";
        holdenmere::ManagedApp app;
        app.bundleIdentifier = "com.example.bench." + name;
        app.name = name;
        app.path = bundle.string();
        config.apps.push_back(app);
    }
    holdenmere::ConfigStore{home / "Library/Application Support/Holdenmere/config.json"}.save(config);
    holdenmere::SystemAppRunning apps;
    for (auto _ : state) {
        auto result = runHoldenmere({"--gate"}, home.string(), (home / "history.json").string());
        if (!result.succeeded()) state.SkipWithError("the pass failed");
        state.PauseTiming();
        for (const auto& app : config.apps) {
            for (int pid : apps.processIdentifiers(app.bundleIdentifier)) ::kill(pid, SIGKILL);
        }
        state.ResumeTiming();
    }
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    // ru_maxrss is in kilobytes on Linux, bytes on macOS: the largest child of this process.
    state.counters["peak_rss_children"] = static_cast<double>(usage.ru_maxrss);
    std::filesystem::remove_all(home);
}
BENCHMARK(BM_GatePassTenApps)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace
