#include "app/desktop/memory_system.h"

#include "core/discovery/background_item_scanner.h"

namespace holdenmere::desktop {

void MemoryLaunchctl::setLoaded(const std::string& label, bool loaded) {
    std::lock_guard lock(mutex_);
    if (loaded) {
        launchd_.loaded.insert(label);
    } else {
        launchd_.loaded.erase(label);
    }
}

void MemoryLaunchctl::setDisabled(const std::string& label, bool disabled) {
    std::lock_guard lock(mutex_);
    if (disabled) {
        launchd_.disabled.insert(label);
    } else {
        launchd_.disabled.erase(label);
    }
}

void MemoryLaunchctl::setPlist(const std::string& plistPath, const std::string& label) {
    std::lock_guard lock(mutex_);
    launchd_.labelOfPlist[plistPath] = label;
}

std::int32_t MemoryLaunchctl::run(const std::vector<std::string>& arguments) {
    std::lock_guard lock(mutex_);
    return launchd_.apply(arguments);
}

bool MemoryLaunchctl::isLoaded(std::string_view label) {
    std::lock_guard lock(mutex_);
    return launchd_.loaded.count(std::string(label)) != 0;
}

bool MemoryLaunchctl::isDisabled(std::string_view label) {
    std::lock_guard lock(mutex_);
    return launchd_.disabled.count(std::string(label)) != 0;
}

std::optional<std::set<std::string>> MemoryLaunchctl::disabledLabels() {
    std::lock_guard lock(mutex_);
    return launchd_.disabled;
}

std::optional<std::map<std::string, bool>> MemoryLaunchctl::disabledMarks() {
    std::lock_guard lock(mutex_);
    return launchd_.marks();
}

void MemoryLoginItems::add(SimulatedLoginItem item) {
    std::lock_guard lock(mutex_);
    loginItems_.items.push_back(std::move(item));
}

std::optional<std::string> MemoryLoginItems::run(const std::string& script) {
    std::lock_guard lock(mutex_);
    ScriptAnswer answer = loginItems_.answer(script);
    if (answer.status != 0) return std::nullopt;
    return std::move(answer.output);
}

ChildProcessResult MemoryTools::run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                                    std::chrono::milliseconds) {
    ChildProcessResult result;
    if (tool.filename() != "sfltool" || arguments != BackgroundItemScanner::dumpArguments()) {
        result.startError = "could not start " + tool.string() + ": no tools in a fixture";
        return result;
    }
    result.ending = ChildProcessResult::Ending::exited;
    result.status = 0;
    result.output = "========================\n Records for UID " + BackgroundItemScanner::currentUid() +
                    " : 00000000-0000-0000-0000-000000000000\n========================\n\n Items:\n\n";
    return result;
}

}  // namespace holdenmere::desktop
