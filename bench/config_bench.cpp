// The login pass reads config.json and rewrites history.json (200 records)
// on every login; both must stay far below a millisecond on a large file.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/config/config_codec.h"
#include "core/config/history_store.h"
#include "core/config/launch_record.h"

namespace {

holdenmere::HoldenmereConfig largeConfig() {
    holdenmere::HoldenmereConfig config;
    for (int index = 0; index < 100; ++index) {
        holdenmere::ManagedApp app;
        app.bundleIdentifier = "com.example.app" + std::to_string(index);
        app.name = "App " + std::to_string(index);
        app.path = "/Applications/App " + std::to_string(index) + ".app";
        app.delaySeconds = index % 9 * 5;
        config.apps.push_back(app);
        config.recordAgent(app.bundleIdentifier, app.name, app.bundleIdentifier + ".agent",
                           "/Library/LaunchAgents/" + app.bundleIdentifier + ".agent.plist", index % 2 == 0);
    }
    return config;
}

void BM_DecodeConfig(benchmark::State& state) {
    std::string text = holdenmere::json::encodePretty(holdenmere::config_codec::encode(largeConfig()));
    for (auto _ : state) benchmark::DoNotOptimize(holdenmere::config_codec::decode(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_DecodeConfig);

void BM_EncodeConfig(benchmark::State& state) {
    auto config = largeConfig();
    for (auto _ : state) benchmark::DoNotOptimize(holdenmere::json::encodePretty(holdenmere::config_codec::encode(config)));
}
BENCHMARK(BM_EncodeConfig);

void BM_EncodeHistory(benchmark::State& state) {
    holdenmere::json::Value records = holdenmere::json::Value::array();
    for (int index = 0; index < 200; ++index) {
        records.push_back(holdenmere::encode(holdenmere::LaunchRecord{
            "com.example.app" + std::to_string(index), "App", holdenmere::LaunchOutcome::launched,
            holdenmere::Date{785000000.0 + index}, "after 2.1s"}));
    }
    for (auto _ : state) benchmark::DoNotOptimize(holdenmere::json::encodePretty(records));
}
BENCHMARK(BM_EncodeHistory);

// The history a pass reads before it appends its records: 200 records as a
// pass writes them, from a file.
void BM_LoadHistory(benchmark::State& state) {
    const auto folder = std::filesystem::temp_directory_path() / ("holdenmere-bench-" + std::to_string(::getpid()));
    const holdenmere::HistoryStore store{folder / "history.json", holdenmere::HistoryStore::kDefaultLimit};
    std::vector<holdenmere::LaunchRecord> records;
    for (int index = 0; index < 200; ++index) {
        records.push_back(holdenmere::LaunchRecord{"com.example.bench.App" + std::to_string(index % 10),
                                                   "App" + std::to_string(index % 10),
                                                   holdenmere::LaunchOutcome::launched,
                                                   holdenmere::Date{785000000.0 + index},
                                                   "launched [issued +0.0s] [late +0.0s]"});
    }
    store.appendOrThrow(records);
    for (auto _ : state) benchmark::DoNotOptimize(store.loadOrThrow());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * std::filesystem::file_size(store.url)));
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_LoadHistory);

}  // namespace
