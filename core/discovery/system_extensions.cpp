#include "core/discovery/system_extensions.h"

namespace holdenmere {
namespace {

constexpr std::string_view kCountSuffix = " extension(s)";
constexpr std::string_view kCategoryPrefix = "--- ";
constexpr std::string_view kColumnHeader = "enabled\tactive\tteamID\tbundleID (version)\tname\t[state]";

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

bool isCountLine(std::string_view line) {
    if (!line.ends_with(kCountSuffix)) return false;
    line.remove_suffix(kCountSuffix.size());
    return !line.empty() && line.find_first_not_of("0123456789") == std::string_view::npos;
}

// "*" or nothing; anything else is no flag column.
std::optional<bool> flag(std::string_view column) {
    if (column == "*") return true;
    if (column.empty()) return false;
    return std::nullopt;
}

std::optional<SystemExtension> rowOf(std::string_view line, const std::string& category) {
    const auto columns = split(line, '\t');
    if (columns.size() != 6) return std::nullopt;
    const auto enabled = flag(columns[0]);
    const auto active = flag(columns[1]);
    if (!enabled || !active || columns[2].empty()) return std::nullopt;
    // "com.example.ext (1.0/1)": the version is in the last parentheses.
    const std::string_view identity = columns[3];
    const auto open = identity.rfind(" (");
    if (open == std::string_view::npos || open == 0 || !identity.ends_with(')')) return std::nullopt;
    const std::string_view state = columns[5];
    if (state.size() < 2 || state.front() != '[' || state.back() != ']') return std::nullopt;

    SystemExtension extension;
    extension.category = category;
    extension.enabled = *enabled;
    extension.active = *active;
    extension.teamIdentifier = columns[2];
    extension.bundleIdentifier = identity.substr(0, open);
    extension.version = identity.substr(open + 2, identity.size() - open - 3);
    extension.name = columns[4];
    extension.state = state.substr(1, state.size() - 2);
    return extension;
}

}  // namespace

std::optional<std::vector<SystemExtension>> systemExtensionsFromOutput(std::string_view output) {
    std::vector<SystemExtension> extensions;
    bool counted = false;
    std::optional<std::string> category;
    for (std::string_view line : split(output, '\n')) {
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty()) continue;
        if (!counted) {
            if (!isCountLine(line)) return std::nullopt;
            counted = true;
        } else if (line.starts_with(kCategoryPrefix)) {
            const std::string_view rest = line.substr(kCategoryPrefix.size());
            category = std::string(rest.substr(0, rest.find(' ')));
            if (category->empty()) return std::nullopt;
        } else if (line == kColumnHeader) {
            if (!category) return std::nullopt;
        } else {
            if (!category) return std::nullopt;
            auto extension = rowOf(line, *category);
            if (!extension) return std::nullopt;
            extensions.push_back(std::move(*extension));
        }
    }
    if (!counted) return std::nullopt;
    return extensions;
}

std::optional<std::vector<SystemExtension>> SystemExtensionsReader::list(ToolRunning& tools) {
    std::string failure;
    auto output = tools.output(kSystemextensionsctl, listArguments(), kTimeLimit, failure);
    if (!output) return std::nullopt;
    return systemExtensionsFromOutput(*output);
}

std::optional<std::vector<SystemExtension>> CachedExtensionListing::list() {
    std::lock_guard lock(mutex_);
    if (!asked_) {
        answer_ = SystemExtensionsReader::list(tools_);
        asked_ = true;
    }
    return answer_;
}

void CachedExtensionListing::forget() {
    std::lock_guard lock(mutex_);
    asked_ = false;
    answer_.reset();
}

std::optional<std::vector<std::string>> CachedExtensionListing::bundleIdentifiers() {
    const auto extensions = list();
    if (!extensions) return std::nullopt;
    std::vector<std::string> identifiers;
    for (const auto& extension : *extensions) identifiers.push_back(extension.bundleIdentifier);
    return identifiers;
}

}  // namespace holdenmere
