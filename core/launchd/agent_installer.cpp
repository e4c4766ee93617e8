#include "core/launchd/agent_installer.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "core/support/environment.h"
#include "core/support/files.h"
#include "core/support/plist.h"

namespace holdenmere {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\r\v\f";

std::string_view trimmed(std::string_view text) {
    std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

// Runs a file operation, turning its system error into the installer's.
template <typename Operation>
auto onFileSystem(Operation operation) {
    try {
        return operation();
    } catch (const std::system_error& error) {
        throw AgentInstallerError(AgentInstallerError::Kind::fileSystem, error.what());
    }
}

AgentInstallerError notHoldenmereJob() {
    return AgentInstallerError(AgentInstallerError::Kind::notHoldenmereJob,
                               std::string(AgentInstaller::kNotHoldenmereJob));
}

}  // namespace

std::string xmlEscaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (char character : text) {
        switch (character) {
            case '&': result += "&amp;"; break;
            case '<': result += "&lt;"; break;
            case '>': result += "&gt;"; break;
            case '"': result += "&quot;"; break;
            case '\'': result += "&apos;"; break;
            default: result += character; break;
        }
    }
    return result;
}

std::filesystem::path AgentInstaller::defaultPlistURL() {
    return homeDirectory() / "Library" / "LaunchAgents" / (std::string(kLabel) + ".plist");
}

std::filesystem::path AgentInstaller::defaultLogPath() { return homeDirectory() / "Library" / "Logs" / "Holdenmere.log"; }

AgentInstaller::AgentInstaller(LaunchctlRunning& launchctl, std::filesystem::path executablePath,
                               std::filesystem::path plistURL, std::filesystem::path logPath)
    : launchctl_(launchctl),
      executablePath_(std::move(executablePath)),
      plistURL_(std::move(plistURL)),
      logPath_(std::move(logPath)) {}

bool AgentInstaller::isInstalled() const { return files::exists(plistURL_); }

std::string AgentInstaller::plistContents() const {
    const std::string executable = xmlEscaped(executablePath_.string());
    const std::string log = xmlEscaped(logPath_.string());
    std::string text;
    text += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    text += "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n";
    text += "<plist version=\"1.0\">\n";
    text += "<dict>\n";
    text += "    <key>Label</key>\n";
    text += "    <string>" + std::string(kLabel) + "</string>\n";
    text += "    <key>ProgramArguments</key>\n";
    text += "    <array>\n";
    text += "        <string>" + executable + "</string>\n";
    text += "        <string>--gate</string>\n";
    text += "    </array>\n";
    text += "    <key>RunAtLoad</key>\n";
    text += "    <true/>\n";
    text += "    <key>KeepAlive</key>\n";
    text += "    <false/>\n";
    text += "    <key>ProcessType</key>\n";
    text += "    <string>Standard</string>\n";
    text += "    <key>StandardOutPath</key>\n";
    text += "    <string>" + log + "</string>\n";
    text += "    <key>StandardErrorPath</key>\n";
    text += "    <string>" + log + "</string>\n";
    text += "</dict>\n";
    text += "</plist>";
    return text;
}

std::optional<std::string> AgentInstaller::install() {
    onFileSystem([&] {
        files::createDirectories(plistURL_.parent_path());
        files::writeAtomically(plistURL_, plistContents());
    });

    const std::string target = launchdServiceTarget(kLabel);
    // An older copy may still be loaded, or the label switched off under
    // Login Items; neither must stop the fresh copy from loading.
    launchctl_.runCapturingOutput({"bootout", target});
    launchctl_.runCapturingOutput({"enable", target});
    auto bootstrap = launchctl_.runCapturingOutput({"bootstrap", launchdDomain(), plistURL_.string()});
    if (bootstrap.status == 0) return std::nullopt;
    std::string_view said = trimmed(bootstrap.output);
    if (!said.empty()) return std::string(said);
    return "launchctl bootstrap exited " + std::to_string(bootstrap.status);
}

void AgentInstaller::uninstall() {
    const std::string target = launchdServiceTarget(kLabel);
    launchctl_.runCapturingOutput({"bootout", target});
    launchctl_.runCapturingOutput({"disable", target});
    if (!files::exists(plistURL_)) return;
    if (::unlink(plistURL_.c_str()) != 0 && errno != ENOENT) {
        const int code = errno;
        onFileSystem([&] { files::throwErrno(code, "unlink", plistURL_); });
    }
}

bool AgentInstaller::migrateProcessTypeIfNeeded() {
    if (!files::exists(plistURL_)) return false;
    std::string bytes = onFileSystem([&] { return files::read(plistURL_); });

    plist::Value agent;
    try {
        agent = plist::parse(bytes);
    } catch (const plist::ParseError&) {
        throw notHoldenmereJob();
    }
    if (agent.dictionary() == nullptr || agent.stringAt("Label") != kLabel) throw notHoldenmereJob();
    if (agent.stringAt("ProcessType") != "Background") return false;

    for (auto& [key, value] : std::get<plist::Dictionary>(agent.storage)) {
        if (key == "ProcessType") value = plist::Value{std::string("Standard")};
    }
    std::string rewritten;
    try {
        rewritten = plist::toXml(agent);
    } catch (const plist::ParseError& error) {
        throw AgentInstallerError(AgentInstallerError::Kind::fileSystem, error.what());
    }
    onFileSystem([&] { files::writeAtomically(plistURL_, rewritten); });
    return true;
}

HoldenmereLoginAgentStatus AgentInstaller::status() {
    if (!isInstalled()) return HoldenmereLoginAgentStatus::notInstalled;
    const bool loaded = launchctl_.isLoaded(kLabel);
    const bool disabled = launchctl_.isDisabled(kLabel);
    return resolveLoginAgentStatus(true, loaded, disabled);
}

}  // namespace holdenmere
