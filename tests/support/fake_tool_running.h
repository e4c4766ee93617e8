#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/discovery/tool_running.h"

namespace holdenmere::testing {

// Tools as a test scripts them: each answer by the tool's file name (the
// last one set is given every time), every call recorded in order with the
// tool's name first, and `beforeRun` called before each (for checking that
// a change comes after its record).
class FakeToolRunning final : public ToolRunning {
public:
    using Call = std::vector<std::string>;

    std::map<std::string, ChildProcessResult> answers;
    // Computes the answer instead, when set for the tool.
    std::map<std::string, std::function<ChildProcessResult(const std::vector<std::string>&)>> handlers;
    std::function<void(const Call&)> beforeRun;
    std::vector<Call> calls;

    static ChildProcessResult printing(std::string output, int status = 0, std::string error = {}) {
        ChildProcessResult result;
        result.ending = ChildProcessResult::Ending::exited;
        result.status = status;
        result.output = std::move(output);
        result.error = std::move(error);
        return result;
    }
    static ChildProcessResult timedOut() {
        ChildProcessResult result;
        result.ending = ChildProcessResult::Ending::timedOut;
        return result;
    }

    ChildProcessResult run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                           std::chrono::milliseconds) override {
        Call call{tool.filename().string()};
        call.insert(call.end(), arguments.begin(), arguments.end());
        if (beforeRun) beforeRun(call);
        calls.push_back(call);
        if (auto handler = handlers.find(call[0]); handler != handlers.end()) return handler->second(arguments);
        if (auto answer = answers.find(call[0]); answer != answers.end()) return answer->second;
        ChildProcessResult missing;
        missing.startError = "could not start " + tool.string() + ": No such file or directory";
        return missing;
    }
};

}  // namespace holdenmere::testing
