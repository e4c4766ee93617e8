// SystemAppRunning on macOS without AppKit. Running apps are read from the
// process table (libproc): a live process whose executable lies inside a
// bundle with that identifier, as away from macOS. Opening one needs the
// workspace, which lives in AppKit: that part is a module of its own
// (platform/macos/app_opener_macos.mm), loaded the first time an app is
// opened, so that a mode that opens nothing never loads a GUI framework.
#include "core/apps/app_running.h"

#include <dlfcn.h>
#include <libproc.h>
#include <sys/proc_info.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include "core/apps/app_opener_module.h"
#include "core/support/bundle.h"

namespace holdenmere {

struct SystemAppRunning::Implementation {
    std::mutex mutex;
    // The bundle identifier of each bundle met, read from its Info.plist once.
    std::map<std::filesystem::path, std::optional<std::string>> identifiers;
    // The module's entry, or why it could not be had; loaded once.
    std::once_flag loading;
    std::variant<AppOpenerBegin, std::string> opener = std::string("not loaded");

    std::optional<std::string> identifierOf(const Bundle& bundle) {
        std::lock_guard lock(mutex);
        auto known = identifiers.find(bundle.path);
        if (known != identifiers.end()) return known->second;
        std::optional<std::string> identifier;
        if (auto info = bundle.infoDictionary()) identifier = info->stringAt("CFBundleIdentifier");
        identifiers.emplace(bundle.path, identifier);
        return identifier;
    }

    static std::filesystem::path modulePath() {
        if (auto bundle = Bundle::main()) return bundle->path / "Contents/PlugIns" / HOLDENMERE_APP_OPENER_MODULE_NAME;
        // An executable outside the bundle (the test programs) uses the one
        // this build put in its bundle.
        return std::filesystem::path(HOLDENMERE_BUILD_PLUGINS_DIR) / HOLDENMERE_APP_OPENER_MODULE_NAME;
    }

    void load() {
        const std::filesystem::path path = modulePath();
        void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr) {
            const char* error = ::dlerror();
            opener = "the part of Holdenmere that opens apps could not be loaded from " + path.string() + ": " +
                     (error != nullptr ? error : "unknown error");
            return;
        }
        const auto* interface = static_cast<const int*>(::dlsym(module, "holdenmere_app_opener_interface"));
        void* entry = ::dlsym(module, "holdenmere_app_opener_begin");
        if (interface == nullptr || entry == nullptr || *interface != HOLDENMERE_APP_OPENER_INTERFACE) {
            ::dlclose(module);
            opener = "the part of Holdenmere that opens apps at " + path.string() +
                     " belongs to another build of Holdenmere";
            return;
        }
        // Kept loaded for the life of the process: launches complete on its threads.
        opener = reinterpret_cast<AppOpenerBegin>(entry);
    }
};

SystemAppRunning::SystemAppRunning() : implementation_(new Implementation) {}

SystemAppRunning::~SystemAppRunning() { delete implementation_; }

std::vector<int> SystemAppRunning::processIdentifiers(const std::string& bundleIdentifier) {
    std::vector<int> found;
    // Asked with no buffer, proc_listallpids tells how many there are; a
    // margin covers the processes started between the two calls.
    const int count = ::proc_listallpids(nullptr, 0);
    if (count <= 0) return found;
    std::vector<pid_t> pids(static_cast<std::size_t>(count) + 64);
    const int listed = ::proc_listallpids(pids.data(), static_cast<int>(pids.size() * sizeof(pid_t)));
    if (listed <= 0) return found;
    pids.resize(static_cast<std::size_t>(listed));
    char executable[PROC_PIDPATHINFO_MAXSIZE];
    for (pid_t pid : pids) {
        const int length = ::proc_pidpath(pid, executable, sizeof executable);
        if (length <= 0) continue;  // gone, or not ours to read
        const std::string_view path(executable, static_cast<std::size_t>(length));
        if (path.find("/Contents/MacOS/") == std::string_view::npos) continue;
        auto bundle = Bundle::containing(std::filesystem::path(path));
        if (!bundle) continue;
        if (implementation_->identifierOf(*bundle) == bundleIdentifier) found.push_back(pid);
    }
    return found;
}

std::optional<std::vector<std::string>> SystemAppRunning::arguments(int) {
    // Not read on macOS: a running app is what the process table lists.
    return std::nullopt;
}

bool SystemAppRunning::exists(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

void SystemAppRunning::begin(const std::string& path, const OpenOptions& options, Completion completion) {
    Implementation& implementation = *implementation_;
    std::call_once(implementation.loading, [&implementation] { implementation.load(); });
    if (const auto* failure = std::get_if<std::string>(&implementation.opener)) {
        completion(LaunchAttempt::failed(*failure));
        return;
    }
    std::get<AppOpenerBegin>(implementation.opener)(path, options, std::move(completion));
}

void SystemAppRunning::warmUp() {
    // Nothing to prepare: the process table is read when it is asked about,
    // and the opening module is loaded only when an app is opened.
}

}  // namespace holdenmere
