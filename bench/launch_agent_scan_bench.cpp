// The startup-items screen and every login pass scan the LaunchAgents
// folders; a machine with many apps holds hundreds of agents. A scan of
// 1,000 agent plists (a quarter binary) pointing into 100 app bundles.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/discovery/launch_agent_scanner.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/plist_files.h"

namespace {

namespace fs = std::filesystem;

std::string xml(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" + body + "\n</dict>\n</plist>\n";
}

std::string binary(const std::string& text) { return holdenmere::testing::binaryPlist(text); }

void write(const fs::path& path, const std::string& contents) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
}

// A temporary home with 1,000 agents: per app a login agent, a helper at
// login, an hourly updater, an on-demand service, and six bare tools.
class AgentFolder {
public:
    AgentFolder() {
        std::string pattern = (fs::temp_directory_path() / "holdenmere-bench-agents-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        root = pattern;
        agents = root / "LaunchAgents";
        for (int index = 0; index < 100; ++index) {
            const std::string name = "App" + std::to_string(index);
            const std::string app = (root / "Applications" / (name + ".app")).string();
            const std::string id = "com.example.bench." + name;
            write(app + "/Contents/Info.plist", xml("<key>CFBundleIdentifier</key><string>" + id +
                                                    "</string><key>CFBundleExecutable</key><string>" + name +
                                                    "</string>"));
            auto job = [&](const std::string& label, const std::string& program, const std::string& more) {
                std::string text = xml("<key>Label</key><string>" + label +
                                       "</string><key>ProgramArguments</key><array><string>" + program +
                                       "</string><string>--flag</string></array>" + more);
                write(agents / (label + ".plist"), (index % 4 == 0) ? binary(text) : text);
            };
            job(id, app + "/Contents/MacOS/" + name, "<key>RunAtLoad</key><true/>");
            job(id + ".helper", app + "/Contents/Library/LoginItems/Helper.app/Contents/MacOS/Helper",
                "<key>RunAtLoad</key><true/>");
            job(id + ".updater", app + "/Contents/Helpers/update", "<key>StartInterval</key><integer>3600</integer>");
            job(id + ".service", app + "/Contents/XPCServices/service",
                "<key>MachServices</key><dict><key>" + id + ".xpc</key><true/></dict>");
            for (int tool = 0; tool < 6; ++tool) {
                job(id + ".tool" + std::to_string(tool), "/usr/local/bin/tool" + std::to_string(tool),
                    "<key>KeepAlive</key><true/>");
            }
        }
    }
    ~AgentFolder() {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }

    fs::path root;
    fs::path agents;
};

void BM_ReadLaunchAgents(benchmark::State& state) {
    AgentFolder folder;
    holdenmere::testing::FakeLaunchctlRunning launchctl;
    holdenmere::LaunchAgentScanner scanner(launchctl, {folder.agents});
    for (auto _ : state) {
        std::vector<std::string> incomplete;
        benchmark::DoNotOptimize(scanner.readTopLevelAgents(incomplete));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 1000);
}
BENCHMARK(BM_ReadLaunchAgents)->Unit(benchmark::kMillisecond);

void BM_LaunchAgentStartupItems(benchmark::State& state) {
    AgentFolder folder;
    holdenmere::testing::FakeLaunchctlRunning launchctl;
    holdenmere::LaunchAgentScanner scanner(launchctl, {folder.agents});
    for (auto _ : state) benchmark::DoNotOptimize(scanner.startupItems());
}
BENCHMARK(BM_LaunchAgentStartupItems)->Unit(benchmark::kMillisecond);

void BM_LaunchAgentIneligibleItems(benchmark::State& state) {
    AgentFolder folder;
    holdenmere::testing::FakeLaunchctlRunning launchctl;
    holdenmere::LaunchAgentScanner scanner(launchctl, {folder.agents});
    for (auto _ : state) benchmark::DoNotOptimize(scanner.ineligibleItems());
}
BENCHMARK(BM_LaunchAgentIneligibleItems)->Unit(benchmark::kMillisecond);

}  // namespace
