#include "core/takeover/login_agent_switch.h"

#include <variant>

namespace holdenmere {

std::string LoginAgentSwitch::text() const {
    switch (kind) {
        case Kind::switched: return {};
        case Kind::notLoaded: return "launchd did not load it: " + detail;
        case Kind::notSwitched:
            return std::string(on ? "Could not turn on Start at login: " : "Could not turn off Start at login: ") +
                   detail;
    }
    return detail;
}

LoginAgentSwitch switchLoginAgent(const ConfigAccess& access, AgentInstaller& installer, bool on,
                                  const Signal* cancellation) {
    auto begun = StartupTransaction::begin(access, StartupTransaction::Wait::untilFree, cancellation);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        // A wait given up while another holder kept the lock reads as that
        // holder being busy.
        const StartupTransaction::Failure shown =
            failure->kind == StartupTransaction::Failure::Kind::outOfTime
                ? StartupTransaction::Failure{StartupTransaction::Failure::Kind::lockBusy, {}}
                : *failure;
        return {on, LoginAgentSwitch::Kind::notSwitched, shown.text(access.url)};
    }
    // The transaction holds the lock until it goes out of scope.
    try {
        if (!on) {
            installer.uninstall();
            return {on, LoginAgentSwitch::Kind::switched, {}};
        }
        if (auto refusal = installer.install()) return {on, LoginAgentSwitch::Kind::notLoaded, *refusal};
        return {on, LoginAgentSwitch::Kind::switched, {}};
    } catch (const AgentInstallerError& error) {
        return {on, LoginAgentSwitch::Kind::notSwitched, error.what()};
    }
}

}  // namespace holdenmere
