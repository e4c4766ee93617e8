#include "core/config/last_login_conflicts.h"

#include "core/support/environment.h"
#include "core/support/files.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

using text::isAsciiDigit;

// The two lines the login pass writes that this reader relies on:
//
//   pass line, anywhere in a line:
//     \[(\d{4}-\d{2}-\d{2}T[0-9:]+Z)\] network (?:reachable|UNREACHABLE) .*? \[v([^\]]+)\]
//   conflict line, at the start of a line:
//     ^\[Holdenmere\]\s+CONFLICT: (.+?) — 
//
// They are matched by hand with exactly those semantics: std::regex
// recurses once per character, so one very long line in a damaged log would
// overflow the stack, and the log is outside input.

// What `.` matches in an ECMAScript pattern over bytes: anything but a line end.
bool isLineEnd(char c) { return c == '\n' || c == '\r'; }
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

bool digitsAt(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) return false;
    for (std::size_t i = 0; i < count; ++i) {
        if (!isAsciiDigit(text[at + i])) return false;
    }
    return true;
}

// The stamp that ends with "Z" just before `close` (the index of its "]"):
// "[dddd-dd-ddT" then one or more of [0-9:] then "Z". Its opening bracket's
// index, or npos.
std::size_t stampStart(std::string_view line, std::size_t close) {
    if (close == 0 || line[close - 1] != 'Z') return std::string_view::npos;
    std::size_t i = close - 1;  // at the Z
    std::size_t timeStart = i;
    while (timeStart > 0 && (isAsciiDigit(line[timeStart - 1]) || line[timeStart - 1] == ':')) --timeStart;
    if (timeStart == i) return std::string_view::npos;  // [0-9:]+ needs one
    // "[dddd-dd-ddT" is 12 bytes before the time.
    if (timeStart < 12) return std::string_view::npos;
    std::size_t open = timeStart - 12;
    if (line[open] != '[' || !digitsAt(line, open + 1, 4) || line[open + 5] != '-' || !digitsAt(line, open + 6, 2) ||
        line[open + 8] != '-' || !digitsAt(line, open + 9, 2) || line[open + 11] != 'T') {
        return std::string_view::npos;
    }
    return open;
}

// ".*? \[v([^\]]+)\]" from `from`: the version of the first " [v…]" whose
// brackets hold something, with no line end before it.
std::optional<std::string_view> versionFrom(std::string_view line, std::size_t from) {
    std::size_t at = from;
    while (true) {
        std::size_t found = line.find(" [v", at);
        if (found == std::string_view::npos) return std::nullopt;
        for (std::size_t i = at; i < found; ++i) {
            if (isLineEnd(line[i])) return std::nullopt;
        }
        std::size_t begin = found + 3;
        std::size_t close = line.find(']', begin);
        if (close == std::string_view::npos) return std::nullopt;  // no later " [v" can close either
        if (close > begin) return line.substr(begin, close - begin);
        at = found + 1;
    }
}

struct PassLine {
    std::string_view stamp;
    std::string_view version;
};

std::optional<PassLine> matchPassLine(std::string_view line) {
    constexpr std::string_view network = "] network ";
    for (std::size_t at = line.find(network); at != std::string_view::npos; at = line.find(network, at + 1)) {
        std::size_t open = stampStart(line, at);
        if (open == std::string_view::npos) continue;
        std::string_view rest = line.substr(at + network.size());
        std::size_t word = 0;
        if (rest.starts_with("reachable ")) {
            word = 10;
        } else if (rest.starts_with("UNREACHABLE ")) {
            word = 12;
        } else {
            continue;
        }
        if (auto version = versionFrom(rest, word)) {
            return PassLine{line.substr(open + 1, at - open - 1), *version};
        }
    }
    return std::nullopt;
}

std::optional<std::string_view> matchConflictLine(std::string_view line) {
    constexpr std::string_view tag = "[Holdenmere]";
    constexpr std::string_view conflict = "CONFLICT: ";
    constexpr std::string_view dash = " \xE2\x80\x94 ";
    if (!line.starts_with(tag)) return std::nullopt;
    std::size_t i = tag.size();
    if (i >= line.size() || !isSpace(line[i])) return std::nullopt;
    while (i < line.size() && isSpace(line[i])) ++i;
    if (line.substr(i, conflict.size()) != conflict) return std::nullopt;
    std::size_t nameStart = i + conflict.size();
    std::size_t end = line.find(dash, nameStart + 1);
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view name = line.substr(nameStart, end - nameStart);
    for (char c : name) {
        if (isLineEnd(c)) return std::nullopt;
    }
    return name;
}

}  // namespace

std::filesystem::path LastLoginConflicts::defaultURL() { return homeDirectory() / "Library" / "Logs" / "Holdenmere.log"; }

std::filesystem::path LastLoginConflicts::resolving(const std::optional<std::string>& override) {
    if (override && !override->empty()) return *override;
    return defaultURL();
}

void LastLoginConflicts::Scanner::feed(std::string_view line) {
    // A newline byte never occurs inside a multi-byte sequence, so checking
    // each line checks the whole text.
    if (!isText_ || !text::isValidUtf8(line)) {
        isText_ = false;
        return;
    }
    if (line.empty()) return;
    if (auto pass = matchPassLine(line)) {
        current_ = Reading{std::string(pass->stamp), std::string(pass->version), {}};
        return;
    }
    if (!current_) return;
    if (auto name = matchConflictLine(line)) current_->conflicts.emplace_back(*name);
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
    Scanner scanner;
    try {
        files::forEachLine(url, [&](std::string_view line) { scanner.feed(line); });
    } catch (const files::ReadError&) {
        return std::nullopt;
    }
    return scanner.reading();
}

}  // namespace holdenmere
