#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/fake_launchctl_state.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere::testing {

// The fake launchctl executable with a fresh launchd of its own: the state
// folder is a temporary folder, named to the fake through the environment of
// this process (and so of every child it starts) while the object lives.
class FakeLaunchctlTool {
public:
    FakeLaunchctlTool();
    ~FakeLaunchctlTool();
    FakeLaunchctlTool(const FakeLaunchctlTool&) = delete;
    FakeLaunchctlTool& operator=(const FakeLaunchctlTool&) = delete;

    // The executable to give SystemLaunchctl instead of /bin/launchctl.
    static std::filesystem::path executable();
    const std::filesystem::path& stateFolder() const { return folder_.path(); }

    // launchd's state, as tests set it up and read it back.
    void load(const std::string& label, const std::string& plistPath);
    void unload(const std::string& label);
    void mark(const std::string& label, bool disabled);
    fake_launchctl::State state() const;
    std::set<std::string> loadedLabels() const;

    // Every argument vector the fake received, in order.
    std::vector<std::vector<std::string>> calls() const;
    void forgetCalls();

    // A canned answer for a subcommand instead of the fake's own.
    void answer(const std::string& subcommand, int status, const std::string& out, const std::string& err = {});
    // The canned answer of `subcommand` only once the fake has received an
    // `earlier` subcommand (until then it answers as launchd would).
    void answerOnlyAfter(const std::string& subcommand, const std::string& earlier);
    void hang(const std::string& subcommand);

private:
    TemporaryDirectory folder_;
};

}  // namespace holdenmere::testing
