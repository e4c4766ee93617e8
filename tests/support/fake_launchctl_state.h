#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/support/files.h"

// The state of the fake launchctl (tests/support/fake_launchctl_main.cpp),
// shared by the fake and the tests that set it up and read it back. It lives
// in the folder named by HOLDENMERE_FAKE_LAUNCHCTL_STATE:
//   state.json           loaded jobs and launchd's enabled/disabled marks
//   calls.jsonl          every argument vector received, one JSON array a line
//   answers/<subcommand>/{status,stdout,stderr}
//                        a canned answer instead of the fake's own: status is
//                        a decimal exit status or "hang"; nothing is changed
namespace holdenmere::testing::fake_launchctl {

inline constexpr const char* kStateVariable = "HOLDENMERE_FAKE_LAUNCHCTL_STATE";

struct Job {
    std::string plistPath;
    std::string program;
    std::vector<std::string> arguments;
    friend bool operator==(const Job&, const Job&) = default;
};

struct State {
    std::map<std::string, Job> loaded;        // by label
    std::map<std::string, bool> disabled;     // label -> disabled (false: marked enabled)
};

inline State readState(const std::filesystem::path& folder) {
    State state;
    const auto path = folder / "state.json";
    if (!files::exists(path)) return state;
    auto document = nlohmann::json::parse(files::read(path));
    for (const auto& [label, job] : document.at("loaded").items()) {
        state.loaded[label] = Job{job.at("plistPath").get<std::string>(), job.at("program").get<std::string>(),
                                  job.at("arguments").get<std::vector<std::string>>()};
    }
    for (const auto& [label, disabled] : document.at("disabled").items()) state.disabled[label] = disabled.get<bool>();
    return state;
}

inline void writeState(const std::filesystem::path& folder, const State& state) {
    nlohmann::json document{{"loaded", nlohmann::json::object()}, {"disabled", nlohmann::json::object()}};
    for (const auto& [label, job] : state.loaded) {
        document["loaded"][label] = {{"plistPath", job.plistPath}, {"program", job.program}, {"arguments", job.arguments}};
    }
    for (const auto& [label, disabled] : state.disabled) document["disabled"][label] = disabled;
    files::writeAtomically(folder / "state.json", document.dump(1, '\t', false, nlohmann::json::error_handler_t::replace));
}

}  // namespace holdenmere::testing::fake_launchctl
