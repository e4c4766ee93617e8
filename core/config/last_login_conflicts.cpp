#include "core/config/last_login_conflicts.h"

#include <fstream>
#include <regex>

#include "core/support/environment.h"

namespace holdenmere {
namespace {

// Written by the login pass when its wait for the network ends, either way.
const std::regex& passPattern() {
    static const std::regex pattern(R"(\[(\d{4}-\d{2}-\d{2}T[0-9:]+Z)\] network (?:reachable|UNREACHABLE) .*? \[v([^\]]+)\])");
    return pattern;
}

// One line per app in conflict during that pass.
const std::regex& conflictPattern() {
    static const std::regex pattern("^\\[Holdenmere\\]\\s+CONFLICT: (.+?) \xE2\x80\x94 ");
    return pattern;
}

}  // namespace

std::filesystem::path LastLoginConflicts::defaultURL() { return homeDirectory() / "Library" / "Logs" / "Holdenmere.log"; }

std::filesystem::path LastLoginConflicts::resolving(const std::optional<std::string>& override) {
    if (override && !override->empty()) return *override;
    return defaultURL();
}

void LastLoginConflicts::Scanner::feed(std::string_view line) {
    if (line.empty()) return;
    std::match_results<std::string_view::const_iterator> match;
    // Cheap tests first: most lines of a long log are neither kind, and the
    // regular expressions are what costs.
    if (line.find("] network ") != std::string_view::npos &&
        std::regex_search(line.begin(), line.end(), match, passPattern())) {
        current_ = Reading{match[1].str(), match[2].str(), {}};
        return;
    }
    if (current_ && line.starts_with("[Holdenmere]") && line.find("CONFLICT: ") != std::string_view::npos &&
        std::regex_search(line.begin(), line.end(), match, conflictPattern())) {
        current_->conflicts.push_back(match[1].str());
    }
}

std::optional<LastLoginConflicts::Reading> LastLoginConflicts::read(std::string_view text) {
    Scanner scanner;
    while (!text.empty()) {
        auto end = text.find('\n');
        scanner.feed(text.substr(0, end));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return scanner.reading();
}

std::optional<LastLoginConflicts::Reading> LastLoginConflicts::read(const std::filesystem::path& url) {
    std::ifstream stream(url, std::ios::binary);
    if (!stream) return std::nullopt;
    Scanner scanner;
    std::string line;
    while (std::getline(stream, line)) scanner.feed(line);
    if (stream.bad()) return std::nullopt;
    return scanner.reading();
}

}  // namespace holdenmere
