#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace holdenmere {

// The value of an environment variable; an empty value counts as unset.
std::optional<std::string> environmentValue(const char* name);

// The current user's home folder: $HOME when it is set and not empty,
// otherwise the password database entry of the real user id.
std::filesystem::path homeDirectory();

// The absolute path of the running executable with symbolic links resolved,
// or nothing when the platform cannot tell.
std::optional<std::filesystem::path> executablePath();

}  // namespace holdenmere
