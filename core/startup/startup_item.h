#pragma once

#include <optional>
#include <string>
#include <variant>

namespace holdenmere {

// An app that macOS starts at login and that Holdenmere could take over.
// Its identity is its bundle identifier.
struct StartupItem {
    struct LaunchAgent {
        std::string label;
        std::string plistPath;
        friend bool operator==(const LaunchAgent&, const LaunchAgent&) = default;
    };
    struct BackgroundItem {
        std::string identifier;
        friend bool operator==(const BackgroundItem&, const BackgroundItem&) = default;
    };
    struct LoginItem {
        friend bool operator==(const LoginItem&, const LoginItem&) = default;
    };
    // How macOS starts it, in this order: a LaunchAgent job, an entry of the
    // background-items record, a Login Item.
    using Source = std::variant<LaunchAgent, BackgroundItem, LoginItem>;

    std::string bundleIdentifier;
    std::string name;
    std::optional<std::string> path;  // the app bundle; items without one are never offered
    Source source = LoginItem{};

    const std::string& id() const { return bundleIdentifier; }
    friend bool operator==(const StartupItem&, const StartupItem&) = default;
};

// Something that starts at login but that Holdenmere must leave alone, with
// the one-line reason shown to the user. Its identity is its label.
struct IneligibleStartupItem {
    std::string name;
    std::string bundleIdentifier;
    std::string label;  // launchd label or background-item identifier
    std::string reason;

    const std::string& id() const { return label; }
    friend bool operator==(const IneligibleStartupItem&, const IneligibleStartupItem&) = default;
};

}  // namespace holdenmere
