// What one launchctl question costs through the tool runner, measured against
// /bin/true so that only the runner's own work (spawn, pipes, reaping) counts;
// and reading a large domain print.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <string>

#include "core/launchd/launchctl_output.h"
#include "core/launchd/system_launchctl.h"
#include "core/support/startup_command.h"

namespace {

using namespace std::chrono_literals;

const char* trueTool() { return ::access("/bin/true", X_OK) == 0 ? "/bin/true" : "/usr/bin/true"; }

void BM_StartupCommandRunTrue(benchmark::State& state) {
    for (auto _ : state) {
        auto output = holdenmere::StartupCommand::run(trueTool(), {"print-disabled", "gui/501"}, 5s);
        if (!output) state.SkipWithError("true did not answer");
    }
}
BENCHMARK(BM_StartupCommandRunTrue)->Unit(benchmark::kMicrosecond);

void BM_SystemLaunchctlIsLoadedOnTrue(benchmark::State& state) {
    holdenmere::SystemLaunchctl launchctl(trueTool());
    for (auto _ : state) {
        if (!launchctl.isLoaded("com.tavik.holdenmere.agent")) state.SkipWithError("true did not exit 0");
    }
}
BENCHMARK(BM_SystemLaunchctlIsLoadedOnTrue)->Unit(benchmark::kMicrosecond);

// A domain print the size of a busy login session (launchd lists several
// hundred services in gui/<uid>) with its disabled block.
std::string largeDomainPrint(int services) {
    std::string text = "gui/501 = {\n\ttype = login\n\tservices = {\n";
    for (int index = 0; index < services; ++index) {
        text += "\t\t       0      - \tcom.example.service" + std::to_string(index) + "\n";
    }
    text += "\t}\n\n\tdisabled services = {\n";
    for (int index = 0; index < services; index += 3) {
        text += "\t\t\"com.example.service" + std::to_string(index) + "\" => disabled\n";
    }
    text += "\t}\n}\n";
    return text;
}

void BM_ParseDomainPrint(benchmark::State& state) {
    const std::string output = largeDomainPrint(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(holdenmere::serviceLabelsFromOutput(output));
        benchmark::DoNotOptimize(holdenmere::disabledLabelsFromOutput(output));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(output.size()));
}
BENCHMARK(BM_ParseDomainPrint)->Arg(400)->Arg(4000)->Unit(benchmark::kMicrosecond);

}  // namespace
