#include "core/discovery/system_daemon_scanner.h"

#include <algorithm>
#include <exception>
#include <system_error>

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

std::vector<SystemDaemonScanner::Daemon> SystemDaemonScanner::daemons(std::vector<std::string>& incomplete) const {
    namespace fs = std::filesystem;
    std::error_code error;
    if (fs::status(folder, error).type() == fs::file_type::not_found) return {};
    std::vector<fs::path> files;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->path().extension() == ".plist") files.push_back(entry->path());
    }
    if (error) incomplete.push_back(folder.string() + " could not be listed: " + error.message());
    std::sort(files.begin(), files.end());

    std::vector<Daemon> result;
    for (const auto& file : files) {
        // Folders are passed over; the reader refuses anything else that is
        // not a regular file (a pipe would block a plain read).
        if (fs::status(file, error).type() == fs::file_type::directory) continue;
        try {
            const auto job = plist::readFile(file);
            auto program = programPath(job);
            if (!program) continue;
            const plist::Value* disabled = job.find("Disabled");
            result.push_back(Daemon{job.stringAt("Label").value_or(file.stem().string()), std::move(*program),
                                    file.string(), disabled != nullptr && disabled->boolean() == true});
        } catch (const std::exception&) {
            incomplete.push_back(file.string() + " could not be read as a property list");
        }
    }
    return result;
}

SystemDaemonScanner::Apps SystemDaemonScanner::appPaths() const {
    Apps apps;
    for (const auto& daemon : daemons(apps.unreadable)) {
        if (auto app = StartupDiscovery::outermostAppPath(daemon.program)) apps.paths.insert(*app);
    }
    return apps;
}

}  // namespace holdenmere
