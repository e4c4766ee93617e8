#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/discovery/tool_running.h"

namespace holdenmere {

// One row of "systemextensionsctl list": a system extension that an app
// installed (a network filter, an endpoint-security client, a driver).
struct SystemExtension {
    std::string category;  // "com.apple.system_extension.network_extension"
    bool enabled = false;
    bool active = false;
    std::string teamIdentifier;  // "-" when it has none
    std::string bundleIdentifier;
    std::string version;  // "1.98.8/101.98.8"
    std::string name;
    std::string state;  // "activated enabled", "terminated waiting to uninstall on reboot"

    friend bool operator==(const SystemExtension&, const SystemExtension&) = default;
};

// Reads "systemextensionsctl list": a count line ("2 extension(s)"), then per
// category a line "--- {category}" (macOS 15 adds " (Go to 'System
// Settings > …')"), a tab-separated column header and one tab-separated row
// per extension: enabled and active ("*" or nothing), team, "bundle
// (version)", name and "[state]". Nothing when the output is not that: no
// count line, a row before any category, or a row of another shape.
std::optional<std::vector<SystemExtension>> systemExtensionsFromOutput(std::string_view output);

// The system extensions installed on this Mac, as "systemextensionsctl
// list" prints them.
struct SystemExtensionsReader {
    static constexpr const char* kSystemextensionsctl = "/usr/bin/systemextensionsctl";
    static constexpr std::chrono::milliseconds kTimeLimit{5'000};

    static std::vector<std::string> listArguments() { return {"list"}; }
    // Nothing when the tool fails, hangs or prints what the parser does not
    // recognise: nobody can tell what is installed, which is not an empty list.
    static std::optional<std::vector<SystemExtension>> list(ToolRunning& tools);
};

// Reads the list once and keeps its answer, so that every scanner and
// safety rule of one inventory sees the same list for one run of the tool.
// Safe to ask from any thread.
class CachedExtensionListing {
public:
    explicit CachedExtensionListing(ToolRunning& tools) : tools_(tools) {}
    std::optional<std::vector<SystemExtension>> list();
    // The bundle identifiers of the list; nothing when it could not be read.
    std::optional<std::vector<std::string>> bundleIdentifiers();
    // The next question asks the tool again.
    void forget();

private:
    ToolRunning& tools_;
    std::mutex mutex_;
    bool asked_ = false;
    std::optional<std::vector<SystemExtension>> answer_;
};

}  // namespace holdenmere
