#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/discovery/script_running.h"
#include "core/launchd/launchctl_running.h"

namespace holdenmere::desktop {

// launchd for a UI fixture, kept in memory: which labels are loaded and
// which are disabled. "enable", "disable", "bootout" and "bootstrap" change
// it as launchd would; nothing reaches the real launchd. Safe to call from
// any thread.
class MemoryLaunchctl final : public LaunchctlRunning {
public:
    void setLoaded(const std::string& label, bool loaded);
    void setDisabled(const std::string& label, bool disabled);
    // The label that "bootstrap" of this plist loads.
    void setPlist(const std::string& plistPath, const std::string& label);

    std::int32_t run(const std::vector<std::string>& arguments) override;
    bool isLoaded(std::string_view label) override;
    bool isDisabled(std::string_view label) override;
    std::optional<std::set<std::string>> disabledLabels() override;
    // The disabled labels; a fixture marks nothing enabled.
    std::optional<std::map<std::string, bool>> disabledMarks() override;

private:
    std::mutex mutex_;
    std::set<std::string> loaded_;
    std::set<std::string> disabled_;
    std::map<std::string, std::string> labelOfPlist_;
};

// System Events' Login Items for a UI fixture, kept in memory: answers the
// scripts of the Login Items auditor (list paths, list hidden flags, delete
// by path or name, make new) and nothing else. Safe to call from any thread.
class MemoryLoginItems final : public ScriptRunning {
public:
    struct Item {
        std::string path;
        bool hidden = false;
    };

    void add(Item item);
    std::optional<std::string> run(const std::string& script) override;

private:
    std::mutex mutex_;
    std::vector<Item> items_;
};

}  // namespace holdenmere::desktop
