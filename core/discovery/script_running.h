#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace holdenmere {

// What a script printed, or why it gave no answer.
struct [[nodiscard]] ScriptOutcome {
    std::optional<std::string> output;
    // Why there is no output, for the user: "not allowed to control System
    // Events (…)", "osascript exited with status 1: {its error}", "could not
    // start /usr/bin/osascript: No such file or directory". Empty with output.
    std::string failure;

    friend bool operator==(const ScriptOutcome&, const ScriptOutcome&) = default;
};

// Runs an AppleScript and hands back what it printed: the one seam between
// the Login Items logic and System Events, so that the logic can run against
// a fake. An absent answer means the script could not be run, was not allowed
// or failed; it is never confused with an empty answer.
class ScriptRunning {
public:
    virtual ~ScriptRunning() = default;
    // The script's standard output, or nothing when it could not be started,
    // did not finish within its time limit or ended with a non-zero status.
    virtual std::optional<std::string> run(const std::string& script) = 0;
    // The same, with the reason when there is no output. A runner that
    // cannot say why only says that the script failed.
    [[nodiscard]] virtual ScriptOutcome runExplaining(const std::string& script) {
        auto output = run(script);
        return {output, output ? std::string() : std::string(kUnexplainedFailure)};
    }

    static constexpr std::string_view kUnexplainedFailure = "the script failed";
};

// Runs nothing: every script "fails", so Login Items read as unreadable and
// nothing is ever removed or added.
class InertScriptRunning final : public ScriptRunning {
public:
    std::optional<std::string> run(const std::string&) override { return std::nullopt; }
};

// Runs a script through a command-line tool: `executable` with the arguments
// that `argumentsFor` makes of the script, as an argument vector (never
// through a shell). Standard error is drained alongside and dropped. The
// output counts only when the tool exits 0 and it is valid UTF-8.
class ShellRunner final : public ScriptRunning {
public:
    ShellRunner(std::filesystem::path executable,
                std::function<std::vector<std::string>(const std::string& script)> argumentsFor,
                std::chrono::milliseconds timeLimit,
                std::optional<std::vector<std::string>> environment = std::nullopt);

    std::optional<std::string> run(const std::string& script) override;
    // Why it failed: the start error, "{tool} timed out after 10s", or
    // "{tool} exited with status 1" followed by the last line it wrote to
    // standard error.
    ScriptOutcome runExplaining(const std::string& script) override;

    const std::filesystem::path& executable() const { return executable_; }
    std::vector<std::string> argumentsFor(const std::string& script) const { return argumentsFor_(script); }
    std::chrono::milliseconds timeLimit() const { return timeLimit_; }

private:
    std::filesystem::path executable_;
    std::function<std::vector<std::string>(const std::string&)> argumentsFor_;
    std::chrono::milliseconds timeLimit_;
    std::optional<std::vector<std::string>> environment_;
};

// AppleScript through osascript: "/usr/bin/osascript" "-e" SCRIPT.
//
// Every call is bounded by kTimeLimit. The first script addressed to System
// Events makes macOS ask the user for permission, and osascript then waits
// for an answer for up to AppleScript's two-minute event timeout; at login
// nobody may be there to answer. System Events itself is started on demand
// and answers within a second or two even at a cold login, so ten seconds
// leaves ample room for a slow machine while a prompt can never hold a login
// pass (or a re-registration sweep round) for long.
class OSAScriptRunner final : public ScriptRunning {
public:
    static constexpr const char* kExecutable = "/usr/bin/osascript";
    static constexpr std::chrono::milliseconds kTimeLimit{10'000};

    // The executable and the environment ("NAME=value"; this process's when
    // absent) are for tests, which put a fake osascript in its place.
    explicit OSAScriptRunner(std::filesystem::path executable = kExecutable,
                             std::chrono::milliseconds timeLimit = kTimeLimit,
                             std::optional<std::vector<std::string>> environment = std::nullopt);

    std::optional<std::string> run(const std::string& script) override { return shell_.run(script); }
    // As the shell runner says it, except that Automation's refusal (error
    // -1743) reads as kNotAllowed.
    ScriptOutcome runExplaining(const std::string& script) override;

    static constexpr std::string_view kNotAllowed =
        "Holdenmere is not allowed to control System Events (System Settings \u203A Privacy & Security \u203A "
        "Automation)";

    const ShellRunner& shell() const { return shell_; }

private:
    ShellRunner shell_;
};

}  // namespace holdenmere
