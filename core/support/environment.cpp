#include "core/support/environment.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>
#include <vector>

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

namespace holdenmere {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return std::string(value);
}

std::filesystem::path homeDirectory() {
    if (auto home = environmentValue("HOME")) return *home;
    long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr) {
        return found->pw_dir;
    }
    // No home folder at all: the current folder is the only place left to resolve against.
    return std::filesystem::current_path();
}

std::optional<std::filesystem::path> executablePath() {
#if defined(__APPLE__)
    uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string raw(size, '\0');
    if (_NSGetExecutablePath(raw.data(), &size) != 0) return std::nullopt;
    raw.resize(std::char_traits<char>::length(raw.c_str()));
    std::error_code error;
    auto resolved = std::filesystem::canonical(raw, error);
    if (error) return std::filesystem::path(raw);
    return resolved;
#else
    std::error_code error;
    auto resolved = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return std::nullopt;
    return resolved;
#endif
}

}  // namespace holdenmere
