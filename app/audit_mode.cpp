#include "app/audit_mode.h"

#include "app/audit_inventory.h"
#include "app/audit_background_items.h"
#include "app/exit_status.h"
#include "core/support/log_text.h"
#include "core/takeover/system_tools.h"
#include "core/config/config_store.h"
#include "core/config/last_login_conflicts.h"
#include "core/discovery/login_items_auditor.h"
#include "core/support/environment.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

template <class Items>
std::string names(const Items& items) {
    std::vector<std::string> result;
    for (const auto& item : items) result.push_back(item.name);
    return text::joined(result, ", ");
}

void printLastLogin(std::ostream& out) {
    auto reading = LastLoginConflicts::read(LastLoginConflicts::resolving(environmentValue("HOLDENMERE_LOG_PATH")));
    if (!reading) {
        out << kTag << "LAST LOGIN: no gate pass in the log" << kDash << "not observed\n";
        return;
    }
    out << kTag << "LAST LOGIN (" << reading->stamp << ", v" << reading->version
        << ") started before the network: " << (reading->conflicts.empty() ? "none" : text::joined(reading->conflicts, ", "))
        << '\n';
    for (const auto& name : reading->conflicts) {
        out << kTag << "  " << name << kDash << "macOS started it before the gate at that login\n";
    }
}

}  // namespace

int runAudit(std::ostream& out, std::ostream& err) {
    const auto scripts = makeSystemScriptRunner();
    return runAudit(out, err, *scripts);
}

int runAudit(std::ostream& out, std::ostream& err, ScriptRunning& scripts) {
    // Read once: every System Events question can take seconds.
    const LoginItemsAuditor auditor(scripts);
    // A list that cannot be read is said to be so, never shown as empty.
    const auto reading = auditor.readExplaining();
    if (!reading.items) {
        out << kTag << "macOS Login Items: could not be read" << kDash << reading.failure << '\n';
    } else if (!reading.items->empty()) {
        out << kTag << "macOS Login Items: " << names(*reading.items) << '\n';
    }

    const ConfigStore store = ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH"));
    try {
        const HoldenmereConfig config = store.load();
        if (!config.apps.empty()) out << kTag << "managed by Holdenmere: " << names(config.apps) << '\n';
        if (!config.blockedApps.empty()) {
            out << kTag << "removed from Holdenmere (do not start at login): " << names(config.blockedApps) << '\n';
        }
        if (!reading.items) {
            if (!config.apps.empty()) {
                out << kTag << "CONFLICTS: could not be checked" << kDash
                    << "the macOS Login Items could not be read, so a managed app may also start from one\n";
            }
        } else if (const auto conflicts = LoginItemsAuditor::conflicts(config.apps, *reading.items);
                   !conflicts.empty()) {
            out << kTag << "CONFLICTS (in both" << kDash << "gate has no effect on these): \n";
            for (const auto& conflict : conflicts) {
                out << kTag << "  " << conflict.managed.name << " ("
                    << conflict.loginItem.bundleIdentifier.value_or("no bundle id") << ")" << kDash
                    << "remove from Login Items to gate it\n";
            }
        }
    } catch (const ConfigStoreError& error) {
        err << kTag << "ERROR: cannot read config" << kDash << error.what() << '\n';
    }
    printBackgroundItems(out, *makeSystemToolRunning(), store);
    printStartupInventory(out);
    printLastLogin(out);
    return exit_status::kSuccess;
}

}  // namespace holdenmere
