#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/discovery/script_running.h"
#include "tests/support/system_events_login_items.h"

namespace holdenmere::testing {

// System Events' Login Items kept in memory: the five Login Items scripts are
// answered as osascript would print them, "delete" and "make new" change the
// list, and every script is recorded in order.
class FakeScriptRunning final : public ScriptRunning {
public:
    SystemEventsLoginItems loginItems;
    // Every script fails, as when Automation is not allowed.
    bool unavailable = false;
    // Deletions are acknowledged but leave the item in place.
    bool ignoreDeletes = false;
    // Replaces the printed answer to the hidden-flags script.
    std::optional<std::string> hiddenAnswer;
    // Called before each script is answered: lets a test put items back the
    // way an app re-registers itself.
    std::function<void(const std::string& script)> beforeEach;

    explicit FakeScriptRunning(std::vector<FakeLoginItem> items = {}) { loginItems.items = std::move(items); }

    std::optional<std::string> run(const std::string& script) override {
        std::lock_guard lock(mutex_);
        scripts_.push_back(script);
        if (beforeEach) beforeEach(script);
        if (unavailable) return std::nullopt;
        if (ignoreDeletes && script.find(" to delete ") != std::string::npos) return std::string();
        if (hiddenAnswer && script.ends_with("get hidden of every login item")) return *hiddenAnswer;
        ScriptAnswer answer = loginItems.answer(script);
        if (answer.status != 0) return std::nullopt;
        return answer.output;
    }

    std::vector<std::string> scripts() const {
        std::lock_guard lock(mutex_);
        return scripts_;
    }
    void clearScripts() {
        std::lock_guard lock(mutex_);
        scripts_.clear();
    }
    std::vector<std::string> paths() const {
        std::vector<std::string> result;
        for (const auto& item : loginItems.items) result.push_back(item.path);
        return result;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> scripts_;
};

}  // namespace holdenmere::testing
