#pragma once

#include <string>

#include "core/launchd/agent_installer.h"
#include "core/support/clock.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere {

// How switching Holdenmere's own login agent on or off went.
struct LoginAgentSwitch {
    enum class Kind {
        switched,     // installed and loaded, or removed
        notLoaded,    // installed, but launchd refused to load it; the plist stays
        notSwitched,  // nothing was changed, or the plist could not be written or deleted
    };

    bool on = true;
    Kind kind = Kind::switched;
    // launchd's refusal, or why nothing was switched; empty when switched.
    std::string detail;

    // Empty when switched; "launchd did not load it: {detail}"; or "Could
    // not turn on Start at login: {detail}" (off: "turn off").
    std::string text() const;

    friend bool operator==(const LoginAgentSwitch&, const LoginAgentSwitch&) = default;
};

// Installs (on) or uninstalls (off) the login agent while holding the
// startup mutation lock, waiting for it, so that switching the agent never
// runs in the middle of giving everything back (which turns the agent off)
// or of a login pass. A configuration that cannot be read changes nothing.
// With a cancellation the wait gives up once it is raised, changing nothing.
[[nodiscard]] LoginAgentSwitch switchLoginAgent(const ConfigAccess& access, AgentInstaller& installer, bool on,
                                                const Signal* cancellation = nullptr);

}  // namespace holdenmere
