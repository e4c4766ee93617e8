#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/support/plist.h"

namespace holdenmere {

// What one run of the executable does, decided from its arguments alone.
struct CLIMode {
    enum class Kind { restoreStartup, repairHelpers, unknown, gate, audit, app, help, version };

    Kind kind = Kind::app;
    bool dryRun = false;     // restoreStartup, repairHelpers
    std::string argument;    // unknown: the offending argument

    static CLIMode restoreStartup(bool dryRun) { return {Kind::restoreStartup, dryRun, {}}; }
    static CLIMode repairHelpers(bool dryRun) { return {Kind::repairHelpers, dryRun, {}}; }
    static CLIMode unknown(std::string argument) { return {Kind::unknown, false, std::move(argument)}; }
    static CLIMode gate() { return {Kind::gate, false, {}}; }
    static CLIMode audit() { return {Kind::audit, false, {}}; }
    static CLIMode app() { return {Kind::app, false, {}}; }
    static CLIMode help() { return {Kind::help, false, {}}; }
    static CLIMode version() { return {Kind::version, false, {}}; }

    // Matches whole, case-sensitive arguments anywhere in the vector (element
    // 0 is the executable path) in a fixed order of precedence.
    static CLIMode from(const std::vector<std::string>& arguments);

    static const std::string_view usageText;

    // The version text of the running executable's own bundle.
    static std::string versionText();
    // The version text for an information dictionary (nothing: unpackaged).
    static std::string versionText(const std::optional<plist::Value>& infoDictionary);

    // The hidden option that only answers with a message when it is the first argument.
    static constexpr std::string_view kDeemsterUIOption = "--deemsterui";
    static constexpr std::string_view kDeemsterUIMessage =
        "Holdenmere: DeemsterUI unavailable; build with the sibling DeemsterUI package.\n";
    static bool asksForDeemsterUI(const std::vector<std::string>& arguments);

    friend bool operator==(const CLIMode&, const CLIMode&) = default;
};

}  // namespace holdenmere
