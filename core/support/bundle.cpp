#include "core/support/bundle.h"

#include <exception>

#include "core/support/environment.h"

namespace holdenmere {

std::optional<Bundle> Bundle::containing(const std::filesystem::path& executable) {
    auto macOS = executable.parent_path();
    auto contents = macOS.parent_path();
    if (macOS.filename() != "MacOS" || contents.filename() != "Contents") return std::nullopt;
    auto root = contents.parent_path();
    if (root.empty()) return std::nullopt;
    return Bundle{root};
}

std::optional<Bundle> Bundle::main() {
    auto executable = executablePath();
    if (!executable) return std::nullopt;
    return containing(*executable);
}

std::optional<plist::Value> Bundle::infoDictionary() const {
    auto value = plist::tryReadFile(infoPlistPath());
    if (!value || value->dictionary() == nullptr) return std::nullopt;
    return std::move(value).value();
}

}  // namespace holdenmere
