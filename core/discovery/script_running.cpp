#include "core/discovery/script_running.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "core/support/child_process.h"

namespace holdenmere {
namespace {

// Well-formed UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF).
bool isValidUTF8(std::string_view text) {
    std::size_t index = 0;
    while (index < text.size()) {
        auto byte = static_cast<unsigned char>(text[index]);
        std::size_t length = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (byte < 0x80) {
            ++index;
            continue;
        } else if (byte >= 0xC2 && byte <= 0xDF) {
            length = 2;
        } else if (byte >= 0xE0 && byte <= 0xEF) {
            length = 3;
            if (byte == 0xE0) low = 0xA0;
            if (byte == 0xED) high = 0x9F;
        } else if (byte >= 0xF0 && byte <= 0xF4) {
            length = 4;
            if (byte == 0xF0) low = 0x90;
            if (byte == 0xF4) high = 0x8F;
        } else {
            return false;
        }
        if (index + length > text.size()) return false;
        for (std::size_t offset = 1; offset < length; ++offset) {
            auto next = static_cast<unsigned char>(text[index + offset]);
            unsigned char min = offset == 1 ? low : 0x80;
            unsigned char max = offset == 1 ? high : 0xBF;
            if (next < min || next > max) return false;
        }
        index += length;
    }
    return true;
}

std::vector<std::string> osascriptArguments(const std::string& script) { return {"-e", script}; }

// The last non-empty line of a tool's error output, trimmed: osascript ends
// with the error that stopped the script.
std::string lastLine(std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.remove_suffix(1);
    const auto start = text.rfind('\n');
    if (start != std::string_view::npos) text.remove_prefix(start + 1);
    std::string line(text);
    return isValidUTF8(line) ? line : std::string();
}

// AppleScript's error for an Apple event that Automation does not allow.
constexpr std::string_view kNotAuthorizedError = "(-1743)";

}  // namespace

ShellRunner::ShellRunner(std::filesystem::path executable,
                         std::function<std::vector<std::string>(const std::string&)> argumentsFor,
                         std::chrono::milliseconds timeLimit, std::optional<std::vector<std::string>> environment)
    : executable_(std::move(executable)),
      argumentsFor_(std::move(argumentsFor)),
      timeLimit_(timeLimit),
      environment_(std::move(environment)) {}

std::optional<std::string> ShellRunner::run(const std::string& script) { return runExplaining(script).output; }

ScriptOutcome ShellRunner::runExplaining(const std::string& script) {
    ChildProcessRequest request;
    request.executable = executable_;
    request.arguments = argumentsFor_(script);
    request.environment = environment_;
    request.timeout = timeLimit_;
    request.errorLimit = 64 * 1024;
    ChildProcessResult result = runChildProcess(request);
    const std::string tool = executable_.filename().string();
    switch (result.ending) {
        case ChildProcessResult::Ending::couldNotStart:
            return {std::nullopt, result.startError};
        case ChildProcessResult::Ending::timedOut:
        case ChildProcessResult::Ending::signalled:
            return {std::nullopt, tool + " " + result.describe(timeLimit_)};
        case ChildProcessResult::Ending::exited:
            break;
    }
    if (result.status != 0) {
        std::string failure = tool + " exited with status " + std::to_string(result.status);
        if (auto line = lastLine(result.error); !line.empty()) failure += ": " + line;
        return {std::nullopt, std::move(failure)};
    }
    if (!isValidUTF8(result.output)) return {std::nullopt, tool + " printed text that is not UTF-8"};
    return {std::move(result.output), {}};
}

OSAScriptRunner::OSAScriptRunner(std::filesystem::path executable, std::chrono::milliseconds timeLimit,
                                 std::optional<std::vector<std::string>> environment)
    : shell_(std::move(executable), osascriptArguments, timeLimit, std::move(environment)) {}

ScriptOutcome OSAScriptRunner::runExplaining(const std::string& script) {
    ScriptOutcome outcome = shell_.runExplaining(script);
    if (!outcome.output && outcome.failure.find(kNotAuthorizedError) != std::string::npos) {
        outcome.failure = std::string(kNotAllowed);
    }
    return outcome;
}

}  // namespace holdenmere
