#include "core/discovery/tool_running.h"

#include "core/support/text.h"

namespace holdenmere {

std::optional<std::string> ToolRunning::output(const std::filesystem::path& tool,
                                               const std::vector<std::string>& arguments,
                                               std::chrono::milliseconds timeLimit, std::string& failure) {
    const ChildProcessResult result = run(tool, arguments, timeLimit);
    if (result.succeeded()) return text::validUtf8(result.output);
    std::string command = tool.filename().string();
    for (const auto& argument : arguments) command += " " + argument;
    failure = command + ": " + result.describe(timeLimit);
    if (result.ending == ChildProcessResult::Ending::exited) {
        const std::string said = text::validUtf8(result.error.substr(0, result.error.find('\n')));
        if (!said.empty()) failure += ": " + said;
    }
    return std::nullopt;
}

ChildProcessResult SystemToolRunning::run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                                          std::chrono::milliseconds timeLimit) {
    ChildProcessRequest request;
    request.executable = toolsFolder_ ? *toolsFolder_ / tool.filename() : tool;
    request.arguments = arguments;
    request.timeout = timeLimit;
    request.errorLimit = 64 * 1024;
    return runChildProcess(request);
}

}  // namespace holdenmere
