#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "core/launchd/launchctl_running.h"
#include "core/launchd/login_agent_status.h"

namespace holdenmere {

// A failure of the login agent's installer. what() is the description shown
// after the caller's prefix ("Could not update the Holdenmere login agent: ").
class AgentInstallerError : public std::runtime_error {
public:
    enum class Kind {
        notHoldenmereJob,  // the plist at the agent's path belongs to another job
        fileSystem,        // a folder or file could not be read, written or deleted
    };
    static constexpr std::string_view kDomain = "Holdenmere.AgentInstaller";

    AgentInstallerError(Kind kind, const std::string& description) : std::runtime_error(description), kind_(kind) {}

    Kind kind() const { return kind_; }
    std::string_view domain() const { return kDomain; }

private:
    Kind kind_;
};

// Holdenmere's own per-user LaunchAgent, which runs this executable with
// "--gate" at every login: writes its property list, loads it into the user's
// GUI domain, removes it again, and tells whether it will run at the next
// login. launchd is reached only through `launchctl`.
class AgentInstaller {
public:
    static constexpr std::string_view kLabel = "com.tavik.holdenmere.agent";
    static constexpr std::string_view kNotHoldenmereJob =
        "Cannot update the Holdenmere login agent: its plist is not a Holdenmere job.";

    // "~/Library/LaunchAgents/com.tavik.holdenmere.agent.plist".
    static std::filesystem::path defaultPlistURL();
    // "~/Library/Logs/Holdenmere.log", where the agent's output goes.
    static std::filesystem::path defaultLogPath();

    // `executablePath` is the absolute path of the program to run at login
    // (the running executable's own: see executablePath()).
    AgentInstaller(LaunchctlRunning& launchctl, std::filesystem::path executablePath,
                   std::filesystem::path plistURL = defaultPlistURL(), std::filesystem::path logPath = defaultLogPath());

    const std::filesystem::path& executablePath() const { return executablePath_; }
    const std::filesystem::path& plistURL() const { return plistURL_; }
    const std::filesystem::path& logPath() const { return logPath_; }

    // Something exists at the plist's path.
    bool isInstalled() const;
    // The agent's property list, from a fixed template: the executable and
    // log paths XML-escaped, no newline after the closing tag.
    std::string plistContents() const;

    // Writes the plist (creating its folder) and loads it: bootout of an older
    // copy, enable, bootstrap. Nothing on success; launchd's refusal as a
    // warning (the plist stays written). Throws AgentInstallerError fileSystem
    // when the folder or the file cannot be written; launchd is then not asked.
    std::optional<std::string> install();
    // Unloads (bootout), disables and deletes the agent. Throws
    // AgentInstallerError fileSystem only when the plist exists and cannot be
    // deleted.
    void uninstall();
    // Rewrites an existing agent's "ProcessType" "Background" as "Standard",
    // keeping every other key; true when it changed the plist. Throws
    // AgentInstallerError notHoldenmereJob, changing nothing, when the file is
    // not a property list whose "Label" is the agent's; fileSystem when it
    // cannot be read or written.
    bool migrateProcessTypeIfNeeded();
    // Installed from the file; loaded and disabled as launchd says.
    HoldenmereLoginAgentStatus status();

private:
    LaunchctlRunning& launchctl_;
    std::filesystem::path executablePath_;
    std::filesystem::path plistURL_;
    std::filesystem::path logPath_;
};

// The text with XML's special characters replaced, in this order: & < > " '.
std::string xmlEscaped(std::string_view text);

}  // namespace holdenmere
