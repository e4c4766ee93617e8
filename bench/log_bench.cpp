// --audit reads the whole run log, which grows by one block per login and is
// never trimmed by us: a year of logins must still read in a blink.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/config/last_login_conflicts.h"

namespace {

std::filesystem::path makeLog(int passes) {
    auto path = std::filesystem::temp_directory_path() / ("holdenmere-bench-" + std::to_string(passes) + ".log");
    std::ofstream stream(path, std::ios::trunc);
    for (int pass = 0; pass < passes; ++pass) {
        stream << "[Holdenmere] migrated nothing\n"
               << "[2026-03-01T08:15:02Z] network reachable after 3 attempt(s) in 4.2s [v1.4.2 (57)]\n";
        for (int app = 0; app < 20; ++app) stream << "[Holdenmere] App " << app << ": launched after 5s offset\n";
        stream << "[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it from Login Items\n";
    }
    return path;
}

void BM_ReadLastLoginFromLog(benchmark::State& state) {
    auto path = makeLog(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(holdenmere::LastLoginConflicts::read(path));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(path)));
    std::filesystem::remove(path);
}
BENCHMARK(BM_ReadLastLoginFromLog)->Arg(365)->Arg(3650)->Unit(benchmark::kMillisecond);

}  // namespace
