#pragma once

#include <chrono>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// The system extensions installed on this Mac, as one seam so that the
// logic can run against a fake. Nothing means the list could not be read.
class ExtensionListing {
public:
    virtual ~ExtensionListing() = default;
    virtual std::optional<std::vector<SystemExtension>> list() = 0;
};

// Runs "systemextensionsctl list" through the generic command runner, within
// its time limit.
class SystemExtensionListing final : public ExtensionListing {
public:
    static constexpr const char* kExecutable = "/usr/bin/systemextensionsctl";

    explicit SystemExtensionListing(std::filesystem::path tool = kExecutable,
                                    std::chrono::milliseconds limit = std::chrono::seconds(5))
        : tool_(std::move(tool)), limit_(limit) {}
    std::optional<std::vector<SystemExtension>> list() override;

private:
    std::filesystem::path tool_;
    std::chrono::milliseconds limit_;
};

// Asks another listing once and keeps its answer, so that every scanner and
// safety rule of one inventory sees the same list for one run of the tool.
class CachedExtensionListing final : public ExtensionListing {
public:
    explicit CachedExtensionListing(ExtensionListing& inner) : inner_(inner) {}
    std::optional<std::vector<SystemExtension>> list() override;
    // The bundle identifiers of the list; nothing when it could not be read
    // (which is not an empty list: nobody can tell what is installed).
    std::optional<std::vector<std::string>> bundleIdentifiers();
    // The next question asks the tool again.
    void forget();

private:
    ExtensionListing& inner_;
    std::mutex mutex_;
    bool asked_ = false;
    std::optional<std::vector<SystemExtension>> answer_;
};

// Knows of no extension and cannot read the list.
class InertExtensionListing final : public ExtensionListing {
public:
    std::optional<std::vector<SystemExtension>> list() override { return std::nullopt; }
};

}  // namespace holdenmere
