#include "tests/support/fake_launchctl.h"

#include <stdlib.h>

#include <sstream>

namespace holdenmere::testing {

FakeLaunchctlTool::FakeLaunchctlTool() {
    ::setenv(fake_launchctl::kStateVariable, folder_.path().c_str(), 1);
}

FakeLaunchctlTool::~FakeLaunchctlTool() { ::unsetenv(fake_launchctl::kStateVariable); }

std::filesystem::path FakeLaunchctlTool::executable() { return HOLDENMERE_FAKE_LAUNCHCTL; }

void FakeLaunchctlTool::load(const std::string& label, const std::string& plistPath) {
    auto current = state();
    current.loaded[label] = fake_launchctl::Job{plistPath, "/Applications/Example.app/Contents/MacOS/Example", {}};
    fake_launchctl::writeState(folder_.path(), current);
}

void FakeLaunchctlTool::unload(const std::string& label) {
    auto current = state();
    current.loaded.erase(label);
    fake_launchctl::writeState(folder_.path(), current);
}

void FakeLaunchctlTool::mark(const std::string& label, bool disabled) {
    auto current = state();
    current.disabled[label] = disabled;
    fake_launchctl::writeState(folder_.path(), current);
}

fake_launchctl::State FakeLaunchctlTool::state() const { return fake_launchctl::readState(folder_.path()); }

std::set<std::string> FakeLaunchctlTool::loadedLabels() const {
    std::set<std::string> labels;
    for (const auto& [label, job] : state().loaded) labels.insert(label);
    return labels;
}

std::vector<std::vector<std::string>> FakeLaunchctlTool::calls() const {
    std::vector<std::vector<std::string>> result;
    const auto log = folder_.path() / "calls.jsonl";
    if (!std::filesystem::exists(log)) return result;
    std::istringstream lines(readFile(log));
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) result.push_back(nlohmann::json::parse(line).get<std::vector<std::string>>());
    }
    return result;
}

void FakeLaunchctlTool::forgetCalls() { std::filesystem::remove(folder_.path() / "calls.jsonl"); }

void FakeLaunchctlTool::answer(const std::string& subcommand, int status, const std::string& out,
                               const std::string& err) {
    const auto folder = folder_.path() / "answers" / subcommand;
    writeFile(folder / "stdout", out);
    writeFile(folder / "stderr", err);
    writeFile(folder / "status", std::to_string(status));
}

void FakeLaunchctlTool::answerOnlyAfter(const std::string& subcommand, const std::string& earlier) {
    writeFile(folder_.path() / "answers" / subcommand / "after", earlier);
}

void FakeLaunchctlTool::hang(const std::string& subcommand) {
    writeFile(folder_.path() / "answers" / subcommand / "status", "hang");
}

}  // namespace holdenmere::testing
