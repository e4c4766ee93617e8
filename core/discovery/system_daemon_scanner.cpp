#include "core/discovery/system_daemon_scanner.h"

#include <exception>

#include "core/discovery/startup_discovery.h"

namespace holdenmere {

std::optional<std::string> SystemDaemonScanner::programPath(const plist::Value& job) {
    if (auto program = job.stringAt("Program"); program && !program->empty()) return program;
    const plist::Value* arguments = job.find("ProgramArguments");
    if (arguments == nullptr || arguments->array() == nullptr || arguments->array()->empty()) return std::nullopt;
    const std::string* first = arguments->array()->front().string();
    if (first == nullptr || first->empty()) return std::nullopt;
    return *first;
}

std::set<std::string> SystemDaemonScanner::appPaths() const {
    std::set<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->path().extension() != ".plist") continue;
        try {
            auto job = plist::readFile(entry->path());
            auto program = programPath(job);
            if (!program) continue;
            if (auto app = StartupDiscovery::outermostAppPath(*program)) paths.insert(*app);
        } catch (const std::exception&) {
            // A daemon plist that cannot be read runs nothing we could gate.
        }
    }
    return paths;
}

}  // namespace holdenmere
