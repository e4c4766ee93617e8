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
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <condition_variable>
#include <functional>
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
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "core/apps/hidden_launch_confirmation.h"
#include "core/apps/launch_request.h"
#include "core/support/bundle.h"
#include "core/support/clock.h"
#include "core/support/spawn.h"
#include "core/support/work_queue.h"

namespace holdenmere {

namespace {

std::optional<std::string> bundleIdentifierOf(const Bundle& bundle) {
    auto info = bundle.infoDictionary();
    if (!info) return std::nullopt;
    return info->stringAt("CFBundleIdentifier");
}

}  // namespace

struct SystemAppRunning::Implementation {
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

    // The bundle identifier of the bundle at `path`, read from its
    // Info.plist once for as long as that file stays as it was: the process
    // table is read for every app a pass opens, and the same bundles (the
    // apps opened a moment ago, this executable's own) turn up every time.
    std::optional<std::string> bundleIdentifierAt(const Bundle& bundle) {
        struct stat info {};
        const bool readable = ::stat(bundle.infoPlistPath().c_str(), &info) == 0;
        const auto stamp = std::make_tuple(info.st_mtim.tv_sec, info.st_mtim.tv_nsec, info.st_size, info.st_ino);
        {
            std::lock_guard lock(mutex);
            const auto known = identifiers.find(bundle.path);
            if (readable && known != identifiers.end() && known->second.first == stamp) return known->second.second;
        }
        auto identifier = bundleIdentifierOf(bundle);
        if (readable) {
            std::lock_guard lock(mutex);
            identifiers[bundle.path] = {stamp, identifier};
        }
        return identifier;
    }

    // The processes whose executable lies inside a bundle, with the bundle's
    // identifier. Read afresh unless a reading began within kTableFreshFor:
    // a pass asks for every app it opens, one after the other, and each
    // reading goes over every process. A reading under way (the warm-up's)
    // is waited for rather than repeated.
    std::map<pid_t, std::string> bundleProcesses() {
        std::unique_lock lock(mutex);
        for (;;) {
            if (tableReadAt && clock.uptime() - *tableReadAt < kTableFreshFor) return table;
            if (!readingTable) break;
            tableRead.wait(lock);
        }
        readingTable = true;
        const double started = clock.uptime();
        lock.unlock();
        std::map<pid_t, std::string> read = readBundleProcesses();
        lock.lock();
        // What this process started since the reading began is kept.
        for (const auto& [pid, identifier] : table) {
            if (startedSinceReading.count(pid) != 0) read.emplace(pid, identifier);
        }
        startedSinceReading.clear();
        table = read;
        tableReadAt = started;
        readingTable = false;
        tableRead.notify_all();
        return table;
    }

    std::map<pid_t, std::string> readBundleProcesses() {
        std::map<pid_t, std::string> found;
        DIR* processes = ::opendir("/proc");
        if (processes == nullptr) return found;
        char target[PATH_MAX];
        while (dirent* entry = ::readdir(processes)) {
            const char* name = entry->d_name;
            if (*name < '0' || *name > '9') continue;
            const auto pid = static_cast<pid_t>(std::strtol(name, nullptr, 10));
            // Over every process: a plain readlink, and only an executable
            // in a bundle goes any further.
            const std::string link = std::string("/proc/") + name + "/exe";
            const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
            if (length <= 0 || static_cast<std::size_t>(length) >= sizeof target) continue;  // gone, a zombie, or not ours
            const std::string_view executable(target, static_cast<std::size_t>(length));
            if (executable.find("/Contents/MacOS/") == std::string_view::npos) continue;
            auto bundle = Bundle::containing(std::filesystem::path(executable));
            if (!bundle) continue;
            if (auto identifier = bundleIdentifierAt(*bundle)) found.emplace(pid, std::move(*identifier));
        }
        ::closedir(processes);
        return found;
    }

    // A process this one started: listed at once, whatever the table's age.
    void started(pid_t pid, const std::optional<std::string>& identifier) {
        std::lock_guard lock(mutex);
        children.insert(pid);
        if (!identifier) return;
        table[pid] = *identifier;
        startedSinceReading.insert(pid);
    }

    static constexpr double kTableFreshFor = 0.1;
    std::map<pid_t, std::string> table;
    std::optional<double> tableReadAt;  // when the reading behind `table` began
    bool readingTable = false;
    std::condition_variable tableRead;
    std::set<pid_t> startedSinceReading;

    void start(std::vector<std::string> argv, const std::optional<std::string>& identifier, const OpenOptions& options,
               const std::shared_ptr<LaunchRequest>& request);

    // Runs `work` on a thread of its own; throws std::system_error when no
    // thread can be had. The implementation outlives every such thread.
    void onStarter(std::function<void()> work) {
        {
            std::lock_guard lock(mutex);
            ++activeStarters;
        }
        try {
            std::thread([this, work = std::move(work)] {
                work();
                // Notified under the lock: the destructor cannot go on until
                // this thread has let go of it, and it touches nothing after.
                std::lock_guard lock(mutex);
                if (--activeStarters == 0) startersEnded.notify_all();
            }).detach();
        } catch (const std::system_error&) {
            std::lock_guard lock(mutex);
            --activeStarters;
            throw;
        }
    }

    ~Implementation() {
        std::unique_lock lock(mutex);
        startersEnded.wait(lock, [this] { return activeStarters == 0; });
    }

    int activeStarters = 0;
    std::condition_variable startersEnded;

    using Stamp = std::tuple<time_t, long, off_t, ino_t>;
    std::map<std::filesystem::path, std::pair<Stamp, std::optional<std::string>>> identifiers;

    // Declared last, so destroyed first: work it is running (a hidden
    // launch's checks, the warm-up's reading) ends before anything it uses.
    DelayedWorkQueue queue;
};

// Starts the executable argv[0] and reports to `request`: at once, or,
// for a hidden launch, once the stable checks have passed.
void SystemAppRunning::Implementation::start(std::vector<std::string> argv, const std::optional<std::string>& identifier,
                                             const OpenOptions& options, const std::shared_ptr<LaunchRequest>& request) {
    // A session of its own: the app survives the login pass and its terminal.
    SpawnSetup setup;
    setup.nullDevice(STDIN_FILENO)
        .nullDevice(STDOUT_FILENO)
        .nullDevice(STDERR_FILENO)
        .ownSession()
        .defaultSignals({SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD});
    int spawned = 0;
    const pid_t pid = setup.spawn(argv, nullptr, spawned);
    const std::string& executable = argv.front();
    if (spawned != 0) {
        request->deliver(LaunchAttempt::failed("could not start " + executable + ": " + std::strerror(spawned)));
        return;
    }
    started(pid, identifier);
    request->openReturned();
    if (!options.hidden) {
        request->deliver(LaunchAttempt::opened());
        return;
    }

    Implementation* implementation = this;
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


SystemAppRunning::SystemAppRunning() : implementation_(new Implementation) {}

SystemAppRunning::~SystemAppRunning() { delete implementation_; }

std::vector<int> SystemAppRunning::processIdentifiers(const std::string& bundleIdentifier) {
    const auto table = implementation_->bundleProcesses();
    std::vector<int> found;
    for (const auto& [pid, identifier] : table) {
        if (identifier == bundleIdentifier && !implementation_->hasEnded(pid)) found.push_back(pid);
    }
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

void SystemAppRunning::warmUp() {
    Implementation* implementation = implementation_;
    implementation->queue.schedule(0, [implementation] { (void)implementation->bundleProcesses(); });
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

    // Started on a thread of its own, as the workspace opens apps
    // asynchronously: posix_spawn returns only once the new process has
    // executed, and the next app need not wait for that.
    Implementation* implementation = implementation_;
    std::vector<std::string> argv{executable.string()};
    argv.insert(argv.end(), options.arguments.begin(), options.arguments.end());
    try {
        implementation->onStarter([implementation, argv, identifier, options, request] {
            implementation->start(argv, identifier, options, request);
        });
    } catch (const std::system_error&) {
        // No thread to be had: start it here.
        implementation->start(std::move(argv), identifier, options, request);
    }
}

}  // namespace holdenmere
