#include "core/discovery/login_items_auditor.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>

#include "core/support/bundle.h"

namespace holdenmere {
namespace {

// White space and line ends as the platform's string trimming knows them:
// tab to carriage return, NEL, and the Unicode space separators, line and
// paragraph separators.
bool isWhiteSpaceOrLineEnd(std::uint32_t scalar) {
    return (scalar >= 0x09 && scalar <= 0x0D) || scalar == 0x20 || scalar == 0x85 || scalar == 0xA0 ||
           scalar == 0x1680 || (scalar >= 0x2000 && scalar <= 0x200A) || scalar == 0x2028 || scalar == 0x2029 ||
           scalar == 0x202F || scalar == 0x205F || scalar == 0x3000;
}

// The scalar encoded by the well-formed UTF-8 sequence `bytes`, or nothing.
std::optional<std::uint32_t> decodeScalar(std::string_view bytes) {
    auto byte = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
    if (bytes.empty()) return std::nullopt;
    if (bytes.size() == 1) return byte(0) < 0x80 ? std::optional<std::uint32_t>(byte(0)) : std::nullopt;
    for (std::size_t index = 1; index < bytes.size(); ++index) {
        if ((byte(index) & 0xC0) != 0x80) return std::nullopt;
    }
    std::uint32_t scalar = 0;
    if (bytes.size() == 2 && (byte(0) & 0xE0) == 0xC0) {
        scalar = byte(0) & 0x1Fu;
    } else if (bytes.size() == 3 && (byte(0) & 0xF0) == 0xE0) {
        scalar = byte(0) & 0x0Fu;
    } else {
        return std::nullopt;  // nothing four bytes long is white space
    }
    for (std::size_t index = 1; index < bytes.size(); ++index) scalar = (scalar << 6) | (byte(index) & 0x3Fu);
    return scalar;
}

// Length of the white space or line end that starts `text`, 0 when none.
std::size_t leadingSpaceLength(std::string_view text) {
    if (text.empty()) return 0;
    auto first = static_cast<unsigned char>(text[0]);
    std::size_t length = first < 0x80 ? 1 : (first & 0xE0) == 0xC0 ? 2 : (first & 0xF0) == 0xE0 ? 3 : 0;
    if (length == 0 || length > text.size()) return 0;
    auto scalar = decodeScalar(text.substr(0, length));
    return scalar && isWhiteSpaceOrLineEnd(*scalar) ? length : 0;
}

// Length of the white space or line end that ends `text`, 0 when none.
std::size_t trailingSpaceLength(std::string_view text) {
    std::size_t start = text.size();
    while (start > 0 && text.size() - start < 3) {
        --start;
        if ((static_cast<unsigned char>(text[start]) & 0xC0) != 0x80) break;
    }
    if (start == text.size()) return 0;
    auto scalar = decodeScalar(text.substr(start));
    return scalar && isWhiteSpaceOrLineEnd(*scalar) ? text.size() - start : 0;
}

std::string_view trimmed(std::string_view text) {
    while (std::size_t length = leadingSpaceLength(text)) text.remove_prefix(length);
    while (std::size_t length = trailingSpaceLength(text)) text.remove_suffix(length);
    return text;
}

std::optional<std::string> bundleIdentifierOf(const std::string& appPath) {
    auto info = Bundle{appPath}.infoDictionary();
    if (!info) return std::nullopt;
    return info->stringAt("CFBundleIdentifier");
}

bool contains(const std::vector<std::string>& list, std::string_view value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

std::string message(LoginItemRemoval outcome, std::string_view appName) {
    const std::string app(appName);
    switch (outcome) {
        case LoginItemRemoval::removed:
            return "Removed " + app + " from Login Items \u2014 Holdenmere now gates it.";
        case LoginItemRemoval::reregistered:
            return app +
                   " adds itself back to Login Items each time it starts. Holdenmere removes it again after each "
                   "login, so it keeps waiting for the network. To stop the re-adding, turn off \"start at login\" "
                   "in " +
                   app + "'s own settings.";
        case LoginItemRemoval::failed:
            return "Could not remove " + app +
                   " from Login Items. Remove it in System Settings \u203A General \u203A Login Items.";
    }
    return {};
}

std::string LoginItemsAuditor::quoted(std::string_view value) {
    std::string result = "\"";
    for (char character : value) {
        if (character == '\\') {
            result += "\\\\";
        } else if (character == '"') {
            result += "\\\"";
        } else {
            result += character;
        }
    }
    result += '"';
    return result;
}

std::string LoginItemsAuditor::removeByPathScript(std::string_view path) {
    return "tell application \"System Events\" to delete (every login item whose path is " + quoted(path) + ")";
}

std::string LoginItemsAuditor::removeByNameScript(std::string_view name) {
    return "tell application \"System Events\" to delete login item " + quoted(name);
}

std::string LoginItemsAuditor::addScript(std::string_view path, bool hidden) {
    return "tell application \"System Events\" to make new login item at end with properties {path:" + quoted(path) +
           ", hidden:" + (hidden ? "true" : "false") + "}";
}

std::vector<std::string> LoginItemsAuditor::splitPathList(std::string_view output) {
    std::string_view text = trimmed(output);
    std::vector<std::string> paths;
    std::string piece;
    auto complete = [&] {
        std::string_view done = trimmed(piece);
        if (!done.empty()) paths.emplace_back(done);
        piece.clear();
    };
    std::size_t position = 0;
    while (position < text.size()) {
        std::size_t comma = text.find(',', position);
        if (comma == std::string_view::npos) break;
        piece.append(text.substr(position, comma - position));
        std::size_t next = comma + 1;
        while (next < text.size() && text[next] == ' ') ++next;
        if (next < text.size() && text[next] == '/') {
            complete();
        } else {
            piece.append(", ");
        }
        position = next;
    }
    if (position < text.size()) piece.append(text.substr(position));
    complete();
    return paths;
}

std::vector<bool> LoginItemsAuditor::splitHiddenFlags(std::string_view output) {
    std::vector<bool> flags;
    while (!output.empty()) {
        const std::size_t comma = output.find(',');
        const std::string_view part = output.substr(0, comma);
        if (!part.empty()) flags.push_back(trimmed(part) == "true");
        output = comma == std::string_view::npos ? std::string_view() : output.substr(comma + 1);
    }
    return flags;
}

std::string LoginItemsAuditor::itemName(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    std::size_t slash = path.rfind('/');
    std::string_view last = slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
    if (last.ends_with(".app")) last.remove_suffix(4);
    return std::string(last);
}

std::optional<std::vector<std::string>> LoginItemsAuditor::paths() const {
    auto output = runner_->run(std::string(kListPathsScript));
    if (!output) return std::nullopt;
    return splitPathList(*output);
}

std::vector<LoginItemsAuditor::LoginItem> LoginItemsAuditor::loginItems(bool readingHidden) const {
    return read(readingHidden, /*strict=*/false).value_or(std::vector<LoginItem>{});
}

std::optional<std::vector<LoginItemsAuditor::LoginItem>> LoginItemsAuditor::readLoginItems(bool readingHidden) const {
    return read(readingHidden, /*strict=*/true);
}

std::vector<LoginItemsAuditor::LoginItem> LoginItemsAuditor::itemsAt(std::vector<std::string> paths) {
    std::vector<LoginItem> items;
    items.reserve(paths.size());
    for (auto& path : paths) {
        LoginItem item;
        item.name = itemName(path);
        item.bundleIdentifier = bundleIdentifierOf(path);
        item.path = std::move(path);
        items.push_back(std::move(item));
    }
    return items;
}

LoginItemsAuditor::Reading LoginItemsAuditor::readExplaining() const {
    auto outcome = runner_->runExplaining(std::string(kListPathsScript));
    if (!outcome.output) return {std::nullopt, std::move(outcome.failure)};
    return {itemsAt(splitPathList(*outcome.output)), {}};
}

std::optional<std::vector<LoginItemsAuditor::LoginItem>> LoginItemsAuditor::read(bool readingHidden,
                                                                                 bool strict) const {
    auto itemPaths = paths();
    if (!itemPaths) return std::nullopt;
    std::vector<LoginItem> items = itemsAt(std::move(*itemPaths));
    // With no paths there is nothing to flag, and a System Events that did
    // not answer the first script is not asked (and waited for) twice.
    if (!readingHidden || items.empty()) return items;
    auto output = runner_->run(std::string(kListHiddenScript));
    if (!output) return strict ? std::nullopt : std::optional(items);
    const std::vector<bool> flags = splitHiddenFlags(*output);
    if (flags.size() != items.size()) return strict ? std::nullopt : std::optional(items);
    for (std::size_t index = 0; index < items.size(); ++index) items[index].hidden = flags[index];
    return items;
}

std::vector<StartupItem> LoginItemsAuditor::startupItems() const {
    std::vector<StartupItem> result;
    for (auto& item : loginItems(false)) {
        if (!item.bundleIdentifier) continue;
        result.push_back(StartupItem{*item.bundleIdentifier, item.name, item.path, StartupItem::LoginItem{}});
    }
    return result;
}

std::vector<LoginItemsAuditor::Conflict> LoginItemsAuditor::conflicts(const std::vector<ManagedApp>& managed) const {
    std::vector<Conflict> result;
    if (managed.empty()) return result;
    // The paths are all a conflict needs; hidden flags would cost a script.
    return conflicts(managed, loginItems(false));
}

std::vector<LoginItemsAuditor::Conflict> LoginItemsAuditor::conflicts(const std::vector<ManagedApp>& managed,
                                                                      const std::vector<LoginItem>& items) {
    std::vector<Conflict> result;
    for (const auto& app : managed) {
        auto match = std::find_if(items.begin(), items.end(), [&](const LoginItem& item) {
            return item.bundleIdentifier ? *item.bundleIdentifier == app.bundleIdentifier : item.path == app.path;
        });
        if (match != items.end()) result.push_back(Conflict{app, *match});
    }
    return result;
}

std::vector<LoginItemsAuditor::Conflict> LoginItemsAuditor::conflictsNotLaunchedThisRun(
    const std::vector<Conflict>& conflicts, const std::vector<LaunchRecord>& records) {
    std::set<std::string> launched;
    for (const auto& record : records) {
        if (record.outcome == LaunchOutcome::launched) launched.insert(record.bundleIdentifier);
    }
    std::vector<Conflict> result;
    for (const auto& conflict : conflicts) {
        if (launched.count(conflict.managed.bundleIdentifier) == 0) result.push_back(conflict);
    }
    return result;
}

LoginItemRemoval LoginItemsAuditor::remove(const LoginItem& loginItem) const {
    (void)runner_->run(removeByPathScript(loginItem.path));
    auto after = paths();
    return after && contains(*after, loginItem.path) ? LoginItemRemoval::failed : LoginItemRemoval::removed;
}

LoginItemRemoval LoginItemsAuditor::remove(std::string_view name) const {
    (void)runner_->run(removeByNameScript(name));
    for (const auto& path : paths().value_or(std::vector<std::string>{})) {
        if (itemName(path) == name) return LoginItemRemoval::failed;
    }
    return LoginItemRemoval::removed;
}

bool LoginItemsAuditor::add(std::string_view path, bool hidden) const {
    (void)runner_->run(addScript(path, hidden));
    auto after = paths();
    return after && contains(*after, path);
}

std::map<std::string, LoginItemRemoval> LoginItemsAuditor::recheck(const std::vector<std::string>& names) const {
    std::set<std::string> present;
    for (const auto& path : paths().value_or(std::vector<std::string>{})) present.insert(itemName(path));
    std::map<std::string, LoginItemRemoval> result;
    for (const auto& name : names) {
        result[name] = present.count(name) != 0 ? LoginItemRemoval::reregistered : LoginItemRemoval::removed;
    }
    return result;
}

LoginItemRemoval LoginItemsAuditor::recheck(std::string_view name) const {
    auto outcomes = recheck(std::vector<std::string>{std::string(name)});
    auto found = outcomes.find(std::string(name));
    return found == outcomes.end() ? LoginItemRemoval::removed : found->second;
}

}  // namespace holdenmere
