#include "core/support/startup_command.h"

#include "core/support/text.h"

namespace holdenmere {
namespace {

ChildProcessRequest request(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                            std::chrono::milliseconds timeout) {
    ChildProcessRequest result;
    result.executable = executable;
    result.arguments = arguments;
    result.timeout = timeout;
    return result;
}

bool exited(const ChildProcessResult& result) { return result.ending == ChildProcessResult::Ending::exited; }

}  // namespace

std::optional<std::string> StartupCommand::run(const std::filesystem::path& executable,
                                               const std::vector<std::string>& arguments,
                                               std::chrono::milliseconds timeout) {
    auto toolRequest = request(executable, arguments, timeout);
    // What a tool says on standard error is not its answer: read and drop it,
    // so a chatty tool neither blocks nor fills memory.
    toolRequest.errorLimit = 0;
    auto result = runChildProcess(toolRequest);
    if (!result.succeeded()) return std::nullopt;
    return text::validUtf8(result.output);
}

std::int32_t StartupCommand::exitStatus(const std::filesystem::path& executable,
                                        const std::vector<std::string>& arguments,
                                        std::chrono::milliseconds timeout) {
    auto toolRequest = request(executable, arguments, timeout);
    toolRequest.outputLimit = 0;
    toolRequest.errorLimit = 0;
    auto result = runChildProcess(toolRequest);
    return exited(result) ? static_cast<std::int32_t>(result.status) : -1;
}

CommandOutcome StartupCommand::runCombined(const std::filesystem::path& executable,
                                           const std::vector<std::string>& arguments,
                                           std::chrono::milliseconds timeout) {
    auto toolRequest = request(executable, arguments, timeout);
    toolRequest.combineOutput = true;
    auto result = runChildProcess(toolRequest);
    CommandOutcome outcome;
    outcome.ending = result.ending;
    outcome.output = text::validUtf8(result.output);
    if (exited(result)) {
        outcome.status = static_cast<std::int32_t>(result.status);
    } else {
        outcome.failure = result.describe(timeout);
    }
    return outcome;
}

}  // namespace holdenmere
