#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/discovery/system_extensions.h"
#include "core/support/files.h"

// The state of the fake systemextensionsctl (tests/support/
// fake_systemextensionsctl_main.cpp), shared by the fake and the tests. It is
// one JSON file named by HOLDENMERE_FAKE_SYSTEMEXTENSIONSCTL_STATE:
//   "extensions"  the installed system extensions, in the order listed
//   "answer"      optional canned answer instead: "status" (a number, or
//                 "hang"), "stdout", "stderr"
//   "calls"       every argument vector received, appended by the fake
namespace holdenmere::testing::fake_systemextensionsctl {

inline constexpr const char* kStateVariable = "HOLDENMERE_FAKE_SYSTEMEXTENSIONSCTL_STATE";

inline nlohmann::json toJson(const SystemExtension& extension) {
    return {{"category", extension.category}, {"enabled", extension.enabled}, {"active", extension.active},
            {"teamID", extension.teamIdentifier}, {"bundleID", extension.bundleIdentifier},
            {"version", extension.version}, {"name", extension.name}, {"state", extension.state}};
}

inline SystemExtension fromJson(const nlohmann::json& json) {
    return SystemExtension{json.at("category"), json.at("enabled"), json.at("active"), json.at("teamID"),
                           json.at("bundleID"), json.at("version"), json.at("name"), json.at("state")};
}

inline nlohmann::json read(const std::filesystem::path& file) {
    if (!files::exists(file)) return nlohmann::json::object();
    return nlohmann::json::parse(files::read(file));
}

inline void write(const std::filesystem::path& file, const nlohmann::json& state) {
    files::writeAtomically(file, state.dump(1, '\t'));
}

// Installs these extensions, replacing any canned answer.
inline void install(const std::filesystem::path& file, const std::vector<SystemExtension>& extensions) {
    nlohmann::json state = read(file);
    state["extensions"] = nlohmann::json::array();
    for (const auto& extension : extensions) state["extensions"].push_back(toJson(extension));
    state.erase("answer");
    write(file, state);
}

// The next runs answer this instead: a status (or "hang") and the output.
inline void answer(const std::filesystem::path& file, const nlohmann::json& status, const std::string& out,
                   const std::string& err = {}) {
    nlohmann::json state = read(file);
    state["answer"] = {{"status", status}, {"stdout", out}, {"stderr", err}};
    write(file, state);
}

}  // namespace holdenmere::testing::fake_systemextensionsctl
