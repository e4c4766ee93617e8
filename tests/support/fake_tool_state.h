#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/support/files.h"

// What the fake pluginkit, lsappinfo and defaults share (see their mains):
// the folder named by HOLDENMERE_FAKE_TOOL_STATE holds
//   pluginkit.json        the registered extensions and the user's elections
//   lsappinfo.json        the running apps
//   calls.jsonl           every call of every fake, one JSON array a line,
//                         the tool's name first
//   answers/<tool>/{status,stdout,stderr}
//                         a canned answer instead of the fake's own: status
//                         is a decimal exit status or "hang"
// The fake defaults keeps its values in the property list it names (the
// ByHost loginwindow preferences under $HOME), as the real one does.
namespace holdenmere::testing::fake_tool {

inline constexpr const char* kStateVariable = "HOLDENMERE_FAKE_TOOL_STATE";

inline std::filesystem::path stateFolder() {
    const char* value = std::getenv(kStateVariable);
    return value == nullptr ? std::filesystem::path(".") : std::filesystem::path(value);
}

inline void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}
inline void out(std::string_view text) { writeAll(STDOUT_FILENO, text); }
inline void err(std::string_view text) { writeAll(STDERR_FILENO, text); }

// Logs the call, then gives the canned answer when the test left one.
inline std::optional<int> begin(const std::string& tool, int argc, char** argv) {
    std::vector<std::string> call{tool};
    for (int index = 1; index < argc; ++index) call.emplace_back(argv[index]);
    const auto folder = stateFolder();
    files::append(folder / "calls.jsonl",
                  nlohmann::json(call).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    const auto answer = folder / "answers" / tool;
    if (!files::exists(answer / "status")) return std::nullopt;
    if (files::exists(answer / "stdout")) out(files::read(answer / "stdout"));
    if (files::exists(answer / "stderr")) err(files::read(answer / "stderr"));
    const std::string status = files::read(answer / "status");
    if (status.starts_with("hang")) {
        for (;;) ::pause();
    }
    return std::atoi(status.c_str());
}

inline nlohmann::json readJson(const std::string& name, nlohmann::json fallback) {
    const auto path = stateFolder() / name;
    if (!files::exists(path)) return fallback;
    return nlohmann::json::parse(files::read(path));
}

inline void writeJson(const std::string& name, const nlohmann::json& document) {
    files::writeAtomically(stateFolder() / name, document.dump(1, '\t'));
}

}  // namespace holdenmere::testing::fake_tool
