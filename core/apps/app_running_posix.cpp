// SystemAppRunning away from macOS. There is no workspace here: a bundle is
// opened by starting the executable its Info.plist names, as a process of its
// own that outlives the caller, and "running" is read from the process table
// (a live process whose executable lies inside a bundle with that
// identifier). There is no window either, so a hidden launch is confirmed by
// the process staying alive through the stable checks.
#include "core/apps/app_running.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>

#include "core/apps/hidden_launch_confirmation.h"
#include "core/apps/launch_request.h"
#include "core/support/bundle.h"
#include "core/support/clock.h"
#include "core/support/work_queue.h"

extern char** environ;

namespace holdenmere {

struct SystemAppRunning::Implementation {
    DelayedWorkQueue queue;
    SystemClock clock;
    std::mutex mutex;
    std::set<pid_t> children;  // started by us and not yet reaped

    // Whether a child we started has ended; reaps it when it has.
    bool hasEnded(pid_t pid) {
        std::lock_guard lock(mutex);
        if (children.count(pid) == 0) return ::kill(pid, 0) != 0;
        int status = 0;
        pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid || (done < 0 && errno == ECHILD)) {
            children.erase(pid);
            return true;
        }
        return false;
    }
};

namespace {

std::optional<std::string> bundleIdentifierOf(const Bundle& bundle) {
    auto info = bundle.infoDictionary();
    if (!info) return std::nullopt;
    return info->stringAt("CFBundleIdentifier");
}

}  // namespace

SystemAppRunning::SystemAppRunning() : implementation_(new Implementation) {}

SystemAppRunning::~SystemAppRunning() { delete implementation_; }

std::vector<int> SystemAppRunning::processIdentifiers(const std::string& bundleIdentifier) {
    std::vector<int> found;
    std::map<std::filesystem::path, std::optional<std::string>> identifiers;
    DIR* processes = ::opendir("/proc");
    if (processes == nullptr) return found;
    char target[PATH_MAX];
    while (dirent* entry = ::readdir(processes)) {
        const char* name = entry->d_name;
        if (*name < '0' || *name > '9') continue;
        pid_t pid = static_cast<pid_t>(std::strtol(name, nullptr, 10));
        // Called for every app at every login, over every process: a plain
        // readlink, and only an executable in a bundle goes any further.
        const std::string link = std::string("/proc/") + name + "/exe";
        const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
        if (length <= 0 || static_cast<std::size_t>(length) >= sizeof target) continue;  // gone, a zombie, or not ours
        const std::string_view executable(target, static_cast<std::size_t>(length));
        if (executable.find("/Contents/MacOS/") == std::string_view::npos) continue;
        auto bundle = Bundle::containing(std::filesystem::path(executable));
        if (!bundle) continue;
        auto known = identifiers.find(bundle->path);
        if (known == identifiers.end()) known = identifiers.emplace(bundle->path, bundleIdentifierOf(*bundle)).first;
        if (known->second == bundleIdentifier && !implementation_->hasEnded(pid)) found.push_back(pid);
    }
    ::closedir(processes);
    return found;
}

std::optional<std::vector<std::string>> SystemAppRunning::arguments(int processIdentifier) {
    // The NUL-separated argument vector; empty for a zombie or a kernel thread.
    std::ifstream stream("/proc/" + std::to_string(processIdentifier) + "/cmdline", std::ios::binary);
    if (!stream) return std::nullopt;
    const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (stream.bad() || bytes.empty()) return std::nullopt;
    std::vector<std::string> result;
    std::size_t start = 0;
    while (start < bytes.size()) {
        std::size_t end = bytes.find('\0', start);
        if (end == std::string::npos) end = bytes.size();
        result.emplace_back(bytes, start, end - start);
        start = end + 1;
    }
    return result;
}

bool SystemAppRunning::exists(const std::string& path) {
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void SystemAppRunning::begin(const std::string& path, const OpenOptions& options, Completion completion) {
    auto request = std::make_shared<LaunchRequest>(std::move(completion));
    if (!exists(path)) {
        request->deliver(LaunchAttempt::failed("no application bundle at " + path));
        return;
    }
    Bundle bundle{path};
    auto info = bundle.infoDictionary();
    if (!info) {
        request->deliver(LaunchAttempt::failed("no readable Info.plist at " + bundle.infoPlistPath().string()));
        return;
    }
    auto executableName = info->stringAt("CFBundleExecutable");
    if (!executableName || executableName->empty() || executableName->find('/') != std::string::npos) {
        request->deliver(LaunchAttempt::failed("the bundle at " + path + " names no executable"));
        return;
    }
    const auto executable = bundle.path / "Contents" / "MacOS" / *executableName;
    if (::access(executable.c_str(), X_OK) != 0) {
        request->deliver(LaunchAttempt::failed("cannot run " + executable.string() + ": " + std::strerror(errno)));
        return;
    }
    auto identifier = info->stringAt("CFBundleIdentifier");
    if (!options.newInstance && identifier && isRunning(*identifier)) {
        // As the workspace does: opening an app that runs is no new launch.
        request->deliver(LaunchAttempt::opened());
        return;
    }

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY, 0);
    }
    sigset_t noSignals;
    sigset_t defaultSignals;
    sigemptyset(&noSignals);
    sigemptyset(&defaultSignals);
    for (int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&defaultSignals, signal);
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
#if defined(POSIX_SPAWN_SETSID)
    // A session of its own: the app survives the login pass and its terminal.
    flags |= POSIX_SPAWN_SETSID;
#else
    flags |= POSIX_SPAWN_SETPGROUP;
    posix_spawnattr_setpgroup(&attributes, 0);
#endif
    posix_spawnattr_setflags(&attributes, flags);
    posix_spawnattr_setsigmask(&attributes, &noSignals);
    posix_spawnattr_setsigdefault(&attributes, &defaultSignals);

    std::vector<std::string> argv{executable.string()};
    argv.insert(argv.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> argvPointers;
    for (auto& argument : argv) argvPointers.push_back(argument.data());
    argvPointers.push_back(nullptr);

    pid_t pid = 0;
    int spawned = ::posix_spawn(&pid, executable.c_str(), &actions, &attributes, argvPointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        request->deliver(LaunchAttempt::failed("could not start " + executable.string() + ": " + std::strerror(spawned)));
        return;
    }
    {
        std::lock_guard lock(implementation_->mutex);
        implementation_->children.insert(pid);
    }
    request->openReturned();
    if (!options.hidden) {
        request->deliver(LaunchAttempt::opened());
        return;
    }

    Implementation* implementation = implementation_;
    auto schedule = [implementation](double delay, std::function<void()> work) {
        implementation->queue.schedule(delay, std::move(work));
    };
    if (options.timeLimit) request->startTimeLimit(schedule, *options.timeLimit);
    HiddenLaunchConfirmation::Hooks hooks{[implementation] { return implementation->clock.uptime(); }, {}, schedule};
    HiddenLaunchConfirmation::Application application{
        [implementation, pid] {
            HiddenAppState state;
            state.terminated = implementation->hasEnded(pid);
            state.listed = state.terminated || ::kill(pid, 0) == 0;
            state.hidden = true;  // nothing here can show a window
            return state;
        },
        [] { return true; }};
    HiddenLaunchConfirmation::start(
        {}, hooks, application, [request](LaunchAttempt attempt) { request->deliver(std::move(attempt)); },
        options.cancellation);
}

}  // namespace holdenmere
