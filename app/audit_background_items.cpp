#include "app/audit_background_items.h"

#include <algorithm>

#include "core/discovery/startup_discovery.h"
#include "core/support/log_text.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

std::string remedyText(const BackgroundItemScanner::Remedy& remedy) {
    if (const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&remedy)) {
        return "switch off its LaunchAgent " + agent->label + " (Take Over in Holdenmere, or at the next login)";
    }
    return "only System Settings can switch it off: open Login Items Settings (" +
           std::string(BackgroundItemScanner::kLoginItemsSettingsURL) + ")";
}

}  // namespace

void printBackgroundItems(std::ostream& out, ToolRunning& tools, const ConfigStore& store) {
    const auto scan = BackgroundItemScanner(tools).scan();
    if (!scan.result) {
        out << kTag << "BACKGROUND ITEMS: incomplete" << kDash << scan.incomplete << '\n';
        return;
    }
    // A configuration that cannot be read has been reported in its own
    // block; every item is then unmanaged.
    const HoldenmereConfig config = store.tryLoad().value_or(HoldenmereConfig{});
    const auto& result = *scan.result;
    const auto items = StartupDiscovery::unmanaged(result.startupItems(), config.apps);
    const auto ineligible = LoginOwnership::shownIneligible(result.ineligible, config.apps, config.blockedApps);
    const auto conflicts = BackgroundItemScanner::conflicts(result, config.apps);
    if (items.empty() && ineligible.empty() && conflicts.empty()) {
        out << kTag << "BACKGROUND ITEMS: none start an app at login\n";
        return;
    }
    out << kTag << "BACKGROUND ITEMS (macOS starts these at login):\n";
    for (const auto& item : items) {
        const auto& identifier = std::get<StartupItem::BackgroundItem>(item.source).identifier;
        out << kTag << "  " << item.name << " (" << item.bundleIdentifier << ")" << kDash << "background item "
            << identifier;
        // An app that opens itself at login keeps doing so until it is
        // switched off where macOS lists it.
        const auto entry = std::find_if(result.items.begin(), result.items.end(), [&](const auto& candidate) {
            return std::get<StartupItem::BackgroundItem>(candidate.item.source).identifier == identifier;
        });
        if (entry != result.items.end() && entry->appRecord) {
            out << "; the app opens itself at login; " << remedyText(entry->remedy) << '\n';
        } else {
            out << "; Holdenmere can start it instead\n";
        }
    }
    for (const auto& item : ineligible) {
        out << kTag << "  " << item.name << kDash << "background item " << item.label << kDash << item.reason << '\n';
    }
    for (const auto& conflict : conflicts) {
        out << kTag << "  CONFLICT: " << conflict.managed.name << kDash << "background item " << conflict.identifier
            << " starts it before the network; " << remedyText(conflict.remedy) << '\n';
    }
}

}  // namespace holdenmere
