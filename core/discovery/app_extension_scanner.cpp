#include "core/discovery/app_extension_scanner.h"

#include <algorithm>

#include "core/discovery/startup_discovery.h"

namespace holdenmere {
namespace {

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const auto at = text.find(separator);
        parts.push_back(text.substr(0, at));
        if (at == std::string_view::npos) return parts;
        text.remove_prefix(at + 1);
    }
}

std::optional<AppExtension::Election> electionOf(char marker) {
    switch (marker) {
        case '+': return AppExtension::Election::use;
        case '-': return AppExtension::Election::ignore;
        // Not chosen, superseded by another version, or in development.
        case ' ':
        case '=':
        case '!': return AppExtension::Election::none;
        default: return std::nullopt;
    }
}

// "{marker}    {identifier}({version})", optionally followed by the
// tab-separated UUID, timestamp and path of the -v form.
std::optional<AppExtension> headerLine(std::string_view line) {
    if (line.size() < 2 || line[1] != ' ') return std::nullopt;
    const auto election = electionOf(line[0]);
    if (!election) return std::nullopt;
    const auto fields = split(line.substr(1), '\t');
    if (fields.size() != 1 && fields.size() != 4) return std::nullopt;
    const std::string_view name = trimmed(fields[0]);
    const auto open = name.rfind('(');
    if (open == std::string_view::npos || open == 0 || !name.ends_with(')')) return std::nullopt;
    AppExtension extension;
    extension.identifier = std::string(name.substr(0, open));
    if (extension.identifier.find_first_of(" \t()") != std::string::npos) return std::nullopt;
    extension.version = std::string(name.substr(open + 1, name.size() - open - 2));
    extension.election = *election;
    if (fields.size() == 4) {
        const std::string_view path = trimmed(fields[3]);
        if (!path.starts_with('/')) return std::nullopt;
        extension.path = std::string(path);
    }
    return extension;
}

// "\t            Path = /Applications/…" below a header line.
bool detailLine(std::string_view line, AppExtension& extension) {
    const auto equals = line.find(" = ");
    if (equals == std::string_view::npos) return false;
    const std::string_view key = trimmed(line.substr(0, equals));
    const std::string value(trimmed(line.substr(equals + 3)));
    if (key.empty()) return false;
    if (value.empty()) return true;
    if (key == "Path") extension.path = value;
    if (key == "SDK") extension.extensionPoint = value;
    if (key == "Parent Bundle") extension.parentBundle = value;
    if (key == "Display Name") extension.displayName = value;
    return true;
}

}  // namespace

bool AppExtension::isApple() const {
    return identifier.starts_with("com.apple.") || (path && path->starts_with("/System/"));
}

std::vector<std::string> AppExtensionScanner::electionArguments(const std::string& identifier, bool use) {
    return {"-e", use ? "use" : "ignore", "-i", identifier};
}

std::optional<std::vector<AppExtension>> AppExtensionScanner::parse(std::string_view output) {
    std::vector<AppExtension> extensions;
    for (const auto line : split(output, '\n')) {
        if (trimmed(line).empty()) continue;
        if (line.front() == '\t') {
            if (extensions.empty() || !detailLine(line, extensions.back())) return std::nullopt;
            continue;
        }
        auto extension = headerLine(line);
        if (!extension) return std::nullopt;
        extensions.push_back(std::move(*extension));
    }
    return extensions;
}

const AppExtension* AppExtensionScanner::find(const std::vector<AppExtension>& extensions,
                                              std::string_view identifier) {
    auto found = std::find_if(extensions.begin(), extensions.end(),
                              [&](const AppExtension& extension) { return extension.identifier == identifier; });
    return found == extensions.end() ? nullptr : &*found;
}

std::optional<std::vector<AppExtension>> AppExtensionScanner::list(ToolRunning& tools, std::string& failure) {
    const auto output = tools.output(kPluginkit, listArguments(), kTimeLimit, failure);
    if (!output) return std::nullopt;
    auto extensions = parse(*output);
    if (!extensions) {
        failure = "pluginkit printed a list this version of Holdenmere does not recognise";
        return std::nullopt;
    }
    if (extensions->empty()) {
        failure = "pluginkit listed no extensions at all, not even macOS's own";
        return std::nullopt;
    }
    return extensions;
}

StartupEntry AppExtensionScanner::entry(const AppExtension& extension, const TierOf& tierOf) {
    StartupEntry entry;
    entry.source = StartupSource::appExtension;
    entry.handle = extension.identifier;
    entry.state = extension.isOff() ? StartupEntry::State::off() : StartupEntry::State::startsAtLogin();
    std::optional<std::string> parent = extension.parentBundle;
    if (!parent && extension.path) parent = StartupDiscovery::outermostAppPath(*extension.path);
    if (parent) entry.ownerBundleIdentifier = StartupDiscovery::bundleIdentifier(*parent);
    if (extension.displayName) {
        entry.name = *extension.displayName;
    } else if (extension.path) {
        entry.name = std::filesystem::path(*extension.path).stem().string();
    } else {
        entry.name = extension.identifier;
    }
    if (tierOf) entry.tier = tierOf(extension);
    return entry;
}

StartupSourceScan AppExtensionScanner::scan(ToolRunning& tools, const TierOf& tierOf) {
    StartupSourceScan scan;
    scan.source = StartupSource::appExtension;
    std::string failure;
    const auto extensions = list(tools, failure);
    if (!extensions) {
        scan.unreadable = failure;
        return scan;
    }
    for (const auto& extension : *extensions) {
        if (extension.isApple()) continue;
        const bool seen = std::any_of(scan.entries.begin(), scan.entries.end(),
                                      [&](const StartupEntry& row) { return row.handle == extension.identifier; });
        if (!seen) scan.entries.push_back(entry(extension, tierOf));
    }
    return scan;
}

}  // namespace holdenmere
