// A stand-in for /bin/launchctl in tests: it answers the subcommands this
// program uses in the current user's GUI domain as launchctl does (same
// output layout, streams and exit statuses; see tests/fixtures/launchctl),
// keeps launchd's state in files of the folder named by
// HOLDENMERE_FAKE_LAUNCHCTL_STATE, and logs every argument vector it receives
// (tests/support/fake_launchctl_state.h describes the files).
//
//   print gui/<uid>                 the domain, with its service table
//   print gui/<uid>/<label>         a loaded service; 113 when not loaded
//   print-disabled gui/<uid>        launchd's enabled/disabled marks
//   enable|disable gui/<uid>/<label>
//   bootout gui/<uid>/<label>       3 when not loaded
//   bootstrap gui/<uid> <plist>     reads the Label from the plist; 5 when it
//                                   cannot be read, is disabled or loaded
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/support/files.h"
#include "core/support/plist.h"
#include "tests/support/fake_launchctl_state.h"

namespace {

namespace fake = holdenmere::testing::fake_launchctl;
namespace files = holdenmere::files;

constexpr int kUsage = 64;
constexpr int kNoSuchProcess = 3;
constexpr int kInputOutputError = 5;
constexpr int kServiceNotFound = 113;
// The audit session of the pretend login; launchd prints it beside the domain.
constexpr const char* kSession = "100008";

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void out(std::string_view text) { writeAll(STDOUT_FILENO, text); }
void err(std::string_view text) { writeAll(STDERR_FILENO, text); }

void logCall(const std::filesystem::path& folder, const std::vector<std::string>& arguments) {
    std::string line = nlohmann::json(arguments).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    line += '\n';
    int fd = ::open((folder / "calls.jsonl").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return;
    writeAll(fd, line);
    ::close(fd);
}

// Whether a call of the subcommand came in before this one.
bool received(const std::filesystem::path& folder, const std::string& subcommand) {
    if (!files::exists(folder / "calls.jsonl")) return false;
    const std::string calls = files::read(folder / "calls.jsonl");
    return calls.find("[\"" + subcommand + "\"") != std::string::npos;
}

// A canned answer for the subcommand, when the test left one.
std::optional<int> cannedAnswer(const std::filesystem::path& folder, const std::string& subcommand) {
    const auto answer = folder / "answers" / subcommand;
    if (subcommand.empty() || !files::exists(answer / "status")) return std::nullopt;
    if (files::exists(answer / "after") && !received(folder, files::read(answer / "after"))) return std::nullopt;
    if (files::exists(answer / "stdout")) out(files::read(answer / "stdout"));
    if (files::exists(answer / "stderr")) err(files::read(answer / "stderr"));
    std::string status = files::read(answer / "status");
    if (status.starts_with("hang")) {
        for (;;) ::pause();
    }
    return std::atoi(status.c_str());
}

// "gui/<uid>" and "gui/<uid>/<label>" split into the uid and the label.
struct Target {
    std::string uid;
    std::optional<std::string> label;
};

std::optional<Target> parseTarget(std::string_view text) {
    if (!text.starts_with("gui/")) return std::nullopt;
    text.remove_prefix(4);
    std::size_t slash = text.find('/');
    Target target{std::string(text.substr(0, slash)), std::nullopt};
    if (target.uid.empty() || target.uid.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    if (slash != std::string_view::npos) target.label = std::string(text.substr(slash + 1));
    return target;
}

int unrecognisedTarget() {
    err("Unrecognized target specifier.\n");
    return kUsage;
}

std::string padded(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

std::string disabledLines(const fake::State& state, const std::string& indent) {
    std::string text;
    for (const auto& [label, disabled] : state.disabled) {
        text += indent + "\"" + label + "\" => " + (disabled ? "disabled" : "enabled") + "\n";
    }
    return text;
}

int printDisabled(const fake::State& state) {
    out("disabled services = {\n" + disabledLines(state, "\t") + "}\nlogin item associations = {\n}\n");
    return 0;
}

int printDomain(const fake::State& state, const std::string& uid) {
    const std::string count = std::to_string(state.loaded.size());
    std::string text = "gui/" + uid + " = {\n";
    text += "\ttype = login\n";
    text += std::string("\thandle = ") + kSession + "\n";
    text += "\tactive count = " + count + "\n";
    text += "\tservice count = " + count + "\n";
    text += "\tactive service count = 0\n";
    text += "\tmaximum allowed shutdown time = 65 s\n";
    text += "\tservice stats = 0\n";
    text += "\tcreator = loginwindow[154]\n";
    text += "\tcreator euid = 0\n";
    text += "\tauxiliary bootstrapper = com.apple.xpc.otherbsd (complete)\n";
    text += "\tsecurity context = {\n";
    text += "\t\tuid = " + uid + "\n";
    text += std::string("\t\tasid = ") + kSession + "\n";
    text += "\t}\n\n";
    text += "\tbringup time = 63 ms\n";
    text += "\tdeath port = 0x6c03\n\n";
    // Process id (0: not running), last exit status ("-": never exited), label.
    text += "\tservices = {\n";
    for (const auto& [label, job] : state.loaded) text += "\t\t" + padded("0", 8) + " " + padded("-", 6) + " \t" + label + "\n";
    text += "\t}\n\n";
    text += "\tunmanaged processes = {\n\t}\n\n";
    text += "\tendpoints = {\n\t}\n\n";
    text += "\ttask-special ports = {\n\t}\n\n";
    text += "\tdisabled services = {\n" + disabledLines(state, "\t\t") + "\t}\n\n";
    text += "\tproperties = \n";
    text += "}\n";
    out(text);
    return 0;
}

int printService(const fake::State& state, const Target& target) {
    auto job = state.loaded.find(*target.label);
    if (job == state.loaded.end()) {
        err("Could not find service \"" + *target.label + "\" in domain for user gui: " + target.uid + "\n");
        return kServiceNotFound;
    }
    std::string text = "gui/" + target.uid + "/" + *target.label + " = {\n";
    text += "\tactive count = 0\n";
    text += "\tpath = " + job->second.plistPath + "\n";
    text += "\ttype = LaunchAgent\n";
    text += "\tstate = not running\n\n";
    text += "\tprogram = " + job->second.program + "\n";
    text += "\targuments = {\n";
    for (const auto& argument : job->second.arguments) text += "\t\t" + argument + "\n";
    text += "\t}\n\n";
    text += "\tdomain = gui/" + target.uid + " [" + kSession + "]\n";
    text += std::string("\tasid = ") + kSession + "\n";
    text += "\tminimum runtime = 10\n";
    text += "\texit timeout = 5\n";
    text += "\truns = 0\n";
    text += "\tlast exit code = (never exited)\n\n";
    text += "\tspawn type = daemon (3)\n";
    text += "\tjetsam priority = 40\n";
    text += "\tproperties = inferred program\n";
    text += "}\n";
    out(text);
    return 0;
}

int bootstrapFailed() {
    err("Bootstrap failed: 5: Input/output error\n");
    return kInputOutputError;
}

int bootstrap(fake::State& state, const std::filesystem::path& folder, const std::string& plistPath) {
    holdenmere::plist::Value agent;
    try {
        agent = holdenmere::plist::readFile(plistPath);
    } catch (const std::exception&) {
        return bootstrapFailed();
    }
    auto label = agent.stringAt("Label");
    if (!label || label->empty()) return bootstrapFailed();
    if (state.loaded.count(*label) != 0) return bootstrapFailed();
    if (auto mark = state.disabled.find(*label); mark != state.disabled.end() && mark->second) return bootstrapFailed();

    fake::Job job{plistPath, {}, {}};
    if (const auto* arguments = agent.find("ProgramArguments"); arguments != nullptr && arguments->array() != nullptr) {
        for (const auto& argument : *arguments->array()) {
            if (argument.string() != nullptr) job.arguments.push_back(*argument.string());
        }
    }
    job.program = agent.stringAt("Program").value_or(job.arguments.empty() ? std::string() : job.arguments.front());
    state.loaded[*label] = job;
    fake::writeState(folder, state);
    return 0;
}

int usage(std::string_view line) {
    err(std::string("Usage: launchctl ") + std::string(line) + "\n");
    return kUsage;
}

int answer(const std::filesystem::path& folder, const std::vector<std::string>& arguments) {
    const std::string subcommand = arguments.empty() ? std::string() : arguments[0];
    fake::State state = fake::readState(folder);

    if (subcommand == "print") {
        if (arguments.size() != 2) return usage("print <domain-target> | <service-target>");
        auto target = parseTarget(arguments[1]);
        if (!target) return unrecognisedTarget();
        return target->label ? printService(state, *target) : printDomain(state, target->uid);
    }
    if (subcommand == "print-disabled") {
        if (arguments.size() != 2) return usage("print-disabled <domain-target>");
        auto target = parseTarget(arguments[1]);
        if (!target || target->label) return unrecognisedTarget();
        return printDisabled(state);
    }
    if (subcommand == "enable" || subcommand == "disable") {
        if (arguments.size() != 2) return usage(subcommand + " <service-target>");
        auto target = parseTarget(arguments[1]);
        if (!target || !target->label || target->label->empty()) return unrecognisedTarget();
        state.disabled[*target->label] = subcommand == "disable";
        fake::writeState(folder, state);
        return 0;
    }
    if (subcommand == "bootout") {
        if (arguments.size() != 2) return usage("bootout <domain-target> [service-path ...] | <service-target>");
        auto target = parseTarget(arguments[1]);
        if (!target || !target->label) return unrecognisedTarget();
        if (state.loaded.erase(*target->label) == 0) {
            err("Boot-out failed: 3: No such process\n");
            return kNoSuchProcess;
        }
        fake::writeState(folder, state);
        return 0;
    }
    if (subcommand == "bootstrap") {
        if (arguments.size() != 3) return usage("bootstrap <domain-target> [service-path, service-path2, ...]");
        auto target = parseTarget(arguments[1]);
        if (!target || target->label) return unrecognisedTarget();
        return bootstrap(state, folder, arguments[2]);
    }
    err("Unrecognized subcommand: " + subcommand + "\n");
    return kUsage;
}

}  // namespace

int main(int argc, char** argv) {
    const char* folder = std::getenv(fake::kStateVariable);
    if (folder == nullptr || *folder == '\0') {
        err(std::string("fake launchctl: ") + fake::kStateVariable + " is not set\n");
        return 70;
    }
    std::vector<std::string> arguments(argv + 1, argv + argc);
    try {
        logCall(folder, arguments);
        if (auto status = cannedAnswer(folder, arguments.empty() ? std::string() : arguments[0])) return *status;
        return answer(folder, arguments);
    } catch (const std::exception& error) {
        err(std::string("fake launchctl: ") + error.what() + "\n");
        return 70;
    }
}
