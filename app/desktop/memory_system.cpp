#include "app/desktop/memory_system.h"

#include <algorithm>

#include "core/discovery/login_items_auditor.h"

namespace holdenmere::desktop {
namespace {

std::string labelOf(const std::string& target) {
    const std::string prefix = launchdDomain() + "/";
    return target.starts_with(prefix) ? target.substr(prefix.size()) : target;
}

// The value of the AppleScript string literal that starts `text`.
std::optional<std::string> literalAt(std::string_view text) {
    if (text.empty() || text.front() != '"') return std::nullopt;
    std::string value;
    for (std::size_t index = 1; index < text.size(); ++index) {
        const char character = text[index];
        if (character == '"') return value;
        if (character == '\\' && index + 1 < text.size()) {
            value += text[++index];
        } else {
            value += character;
        }
    }
    return std::nullopt;
}

}  // namespace

void MemoryLaunchctl::setLoaded(const std::string& label, bool loaded) {
    std::lock_guard lock(mutex_);
    if (loaded) {
        loaded_.insert(label);
    } else {
        loaded_.erase(label);
    }
}

void MemoryLaunchctl::setDisabled(const std::string& label, bool disabled) {
    std::lock_guard lock(mutex_);
    if (disabled) {
        disabled_.insert(label);
    } else {
        disabled_.erase(label);
    }
}

void MemoryLaunchctl::setPlist(const std::string& plistPath, const std::string& label) {
    std::lock_guard lock(mutex_);
    labelOfPlist_[plistPath] = label;
}

std::int32_t MemoryLaunchctl::run(const std::vector<std::string>& arguments) {
    std::lock_guard lock(mutex_);
    if (arguments.empty()) return 64;
    const std::string& verb = arguments[0];
    if (verb == "enable" && arguments.size() == 2) {
        disabled_.erase(labelOf(arguments[1]));
    } else if (verb == "disable" && arguments.size() == 2) {
        disabled_.insert(labelOf(arguments[1]));
    } else if (verb == "bootout" && arguments.size() == 2) {
        if (loaded_.erase(labelOf(arguments[1])) == 0) return 113;
    } else if (verb == "bootstrap" && arguments.size() == 3) {
        auto known = labelOfPlist_.find(arguments[2]);
        if (known == labelOfPlist_.end() || disabled_.count(known->second) != 0) return 5;
        loaded_.insert(known->second);
    } else if (verb == "print" && arguments.size() == 2) {
        return loaded_.count(labelOf(arguments[1])) != 0 ? 0 : 113;
    }
    return 0;
}

bool MemoryLaunchctl::isLoaded(std::string_view label) {
    std::lock_guard lock(mutex_);
    return loaded_.count(std::string(label)) != 0;
}

bool MemoryLaunchctl::isDisabled(std::string_view label) {
    std::lock_guard lock(mutex_);
    return disabled_.count(std::string(label)) != 0;
}

std::optional<std::set<std::string>> MemoryLaunchctl::disabledLabels() {
    std::lock_guard lock(mutex_);
    return disabled_;
}

std::optional<std::map<std::string, bool>> MemoryLaunchctl::disabledMarks() {
    std::lock_guard lock(mutex_);
    std::map<std::string, bool> marks;
    for (const auto& label : disabled_) marks[label] = true;
    return marks;
}

void MemoryLoginItems::add(Item item) {
    std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
}

std::optional<std::string> MemoryLoginItems::run(const std::string& script) {
    std::lock_guard lock(mutex_);
    auto listed = [&](auto text) {
        std::string output;
        for (const Item& item : items_) {
            if (!output.empty()) output += ", ";
            output += text(item);
        }
        return output + "\n";
    };
    if (script == LoginItemsAuditor::kListPathsScript) return listed([](const Item& item) { return item.path; });
    if (script == LoginItemsAuditor::kListHiddenScript) {
        return listed([](const Item& item) { return std::string(item.hidden ? "true" : "false"); });
    }
    for (auto item = items_.begin(); item != items_.end(); ++item) {
        if (script == LoginItemsAuditor::removeByPathScript(item->path) ||
            script == LoginItemsAuditor::removeByNameScript(LoginItemsAuditor::itemName(item->path))) {
            items_.erase(item);
            return std::string();
        }
    }
    constexpr std::string_view kMake = "to make new login item at end with properties {path:";
    if (const auto at = script.find(kMake); at != std::string::npos) {
        const std::string_view rest = std::string_view(script).substr(at + kMake.size());
        auto path = literalAt(rest);
        if (!path) return std::nullopt;
        items_.push_back(Item{*path, rest.find("hidden:true") != std::string_view::npos});
        return std::string("login item ") + LoginItemsAuditor::itemName(*path) + "\n";
    }
    return std::nullopt;
}

}  // namespace holdenmere::desktop
