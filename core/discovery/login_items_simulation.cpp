#include "core/discovery/login_items_simulation.h"

#include <algorithm>

namespace holdenmere {
namespace {

constexpr std::string_view kTell = "tell application \"System Events\" to ";

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts) {
        if (!text.empty()) text += ", ";
        text += part;
    }
    return text;
}

ScriptAnswer syntaxError(std::string_view script) {
    return ScriptAnswer{
        1, "",
        SimulatedLoginItems::errorLine(script, "syntax error: Expected end of line but found identifier. (-2741)")};
}

}  // namespace

std::string SimulatedLoginItems::errorLine(std::string_view script, std::string_view error) {
    std::size_t start = script.starts_with(kTell) ? kTell.size() : 0;
    return std::to_string(start) + ":" + std::to_string(script.size()) + ": " + std::string(error) + "\n";
}

std::string SimulatedLoginItems::nameOf(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    auto slash = path.rfind('/');
    std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (last.ends_with(".app")) last.remove_suffix(4);
    return std::string(last);
}

std::optional<std::pair<std::string, std::string_view>> SimulatedLoginItems::stringLiteral(std::string_view text) {
    if (text.empty() || text[0] != '"') return std::nullopt;
    std::string value;
    for (std::size_t index = 1; index < text.size(); ++index) {
        char character = text[index];
        if (character == '"') return std::make_pair(value, text.substr(index + 1));
        if (character == '\\') {
            if (++index == text.size()) return std::nullopt;
            char escaped = text[index];
            if (escaped != '"' && escaped != '\\') return std::nullopt;  // the only escapes sent
            value += escaped;
        } else {
            value += character;
        }
    }
    return std::nullopt;
}

ScriptAnswer SimulatedLoginItems::answer(std::string_view script) {
    if (!script.starts_with(kTell)) return syntaxError(script);
    std::string_view command = script.substr(kTell.size());

    if (command == "get path of every login item" || command == "get hidden of every login item") {
        bool paths = command == "get path of every login item";
        std::vector<std::string> parts;
        for (const auto& item : items) parts.push_back(paths ? item.path : item.hidden ? "true" : "false");
        return ScriptAnswer{0, joined(parts) + "\n", ""};
    }

    constexpr std::string_view kDeleteByPath = "delete (every login item whose path is ";
    if (command.starts_with(kDeleteByPath)) {
        auto literal = stringLiteral(command.substr(kDeleteByPath.size()));
        if (!literal || literal->second != ")") return syntaxError(script);
        std::erase_if(items, [&](const SimulatedLoginItem& item) { return item.path == literal->first; });
        return ScriptAnswer{0, "", ""};
    }

    constexpr std::string_view kDeleteByName = "delete login item ";
    if (command.starts_with(kDeleteByName)) {
        auto literal = stringLiteral(command.substr(kDeleteByName.size()));
        if (!literal || !literal->second.empty()) return syntaxError(script);
        auto found = std::find_if(items.begin(), items.end(),
                                  [&](const SimulatedLoginItem& item) { return nameOf(item.path) == literal->first; });
        if (found == items.end()) {
            return ScriptAnswer{
                1, "",
                errorLine(script, "execution error: System Events got an error: Can\u2019t get login item \"" +
                                      literal->first + "\". (-1728)")};
        }
        items.erase(found);
        return ScriptAnswer{0, "", ""};
    }

    constexpr std::string_view kMake = "make new login item at end with properties {path:";
    if (command.starts_with(kMake)) {
        auto literal = stringLiteral(command.substr(kMake.size()));
        if (!literal) return syntaxError(script);
        bool hidden = false;
        if (literal->second == ", hidden:true}") {
            hidden = true;
        } else if (literal->second != ", hidden:false}") {
            return syntaxError(script);
        }
        items.push_back(SimulatedLoginItem{literal->first, hidden});
        return ScriptAnswer{0, "login item " + nameOf(literal->first) + "\n", ""};
    }
    return syntaxError(script);
}

}  // namespace holdenmere
