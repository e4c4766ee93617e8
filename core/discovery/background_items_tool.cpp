#include "core/discovery/background_items_tool.h"

#include <unistd.h>

#include "core/support/child_process.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    return line;
}

}  // namespace

CannedBackgroundItemsTool::CannedBackgroundItemsTool()
    : reading{"========================\n Records for UID " + std::to_string(::getuid()) +
                  " : 00000000-0000-0000-0000-000000000000\n========================\n\n Items:\n\n",
              {}} {}

SystemBackgroundItemsTool::SystemBackgroundItemsTool(std::filesystem::path executable,
                                                     std::chrono::milliseconds timeLimit,
                                                     std::optional<std::vector<std::string>> environment)
    : executable_(std::move(executable)), timeLimit_(timeLimit), environment_(std::move(environment)) {}

BackgroundItemsTool::Reading SystemBackgroundItemsTool::dump() {
    ChildProcessRequest request;
    request.executable = executable_;
    request.arguments = {"dumpbtm"};
    request.environment = environment_;
    request.timeout = timeLimit_;
    request.errorLimit = 64 * 1024;
    const ChildProcessResult result = runChildProcess(request);
    if (result.succeeded()) return {result.output, {}};
    switch (result.ending) {
        case ChildProcessResult::Ending::couldNotStart:
            return {std::nullopt, result.startError};
        case ChildProcessResult::Ending::timedOut:
            return {std::nullopt, "sfltool dumpbtm did not finish within " +
                                      text::number(static_cast<double>(timeLimit_.count()) / 1000.0) +
                                      " s (an administrator's authorization nobody answered?)"};
        case ChildProcessResult::Ending::exited:
        case ChildProcessResult::Ending::signalled:
            break;
    }
    std::string reason = "sfltool dumpbtm failed with " + result.describe(timeLimit_);
    if (auto line = firstLine(result.error); !line.empty()) reason += ": " + line;
    return {std::nullopt, reason};
}

}  // namespace holdenmere
