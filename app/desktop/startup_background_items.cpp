#include "app/desktop/startup_background_items.h"

#include <exception>

#include "core/apps/installed_app.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere::desktop {

void scanBackgroundItems(StartupScan& scan, BackgroundItemsTool& tool, const StartupSafety::Environment& environment,
                         const BackgroundItemStore& store) {
    auto result = BackgroundItemScanner(tool).scan();
    if (!result.result) {
        scan.backgroundIncomplete = result.incomplete;
        return;
    }
    for (const auto& entry : result.result->items) {
        if (entry.item.path && scan.icons.count(*entry.item.path) == 0) {
            scan.icons[*entry.item.path] = InstalledApp::read(*entry.item.path).iconPath;
        }
        const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&entry.remedy);
        if (agent == nullptr) continue;
        ManagedApp app;
        app.bundleIdentifier = entry.item.bundleIdentifier;
        app.name = entry.item.name;
        app.path = entry.item.path.value_or(std::string());
        scan.agentTiers[agent->label] =
            StartupSafety::tier(LoginOwnership::agentCandidate(app, agent->label, agent->plistPath), environment);
    }
    try {
        store.save({*result.result, Date::now()});
    } catch (const std::exception& error) {
        // The page shows what it read; the login pass keeps the earlier
        // scan, which the atomic save left in place.
        scan.backgroundNotSaved = error.what();
        scan.earlierBackgroundSaved = store.load().has_value();
    }
    scan.background = std::move(result.result);
}

std::optional<std::vector<StartupItem>> backgroundStartupItems(const StartupScan& scan) {
    if (!scan.background) return std::nullopt;
    return scan.background->startupItems();
}

void describeBackgroundRow(StartupItemRow& row, const StartupItem::BackgroundItem& source, const StartupScan& scan) {
    row.source = StartupItemRow::Source::backgroundItem;
    row.backgroundIdentifier = source.identifier;
    if (!scan.background) return;
    for (const auto& entry : scan.background->items) {
        if (std::get<StartupItem::BackgroundItem>(entry.item.source) != source) continue;
        row.opensItselfAtLogin = entry.appRecord;
        if (const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&entry.remedy)) {
            row.label = agent->label;
            row.plistPath = agent->plistPath;
            if (auto tier = scan.agentTiers.find(agent->label); tier != scan.agentTiers.end()) row.tier = tier->second;
        } else {
            row.opensLoginItemsSettings = true;
        }
        return;
    }
}

std::vector<BackgroundItemScanner::Conflict> backgroundConflicts(const StartupScan& scan,
                                                                 const std::vector<ManagedApp>& managed) {
    if (!scan.background) return {};
    return BackgroundItemScanner::conflicts(*scan.background, managed);
}

void describeBackgroundConflict(ConflictRow& row, const StartupConflict& conflict, const StartupScan& scan) {
    for (const auto& item : conflict.backgroundItems) {
        const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&item.remedy);
        if (agent == nullptr) {
            row.settingsItems.push_back(item.identifier);
            continue;
        }
        const bool listed = std::any_of(row.agents.begin(), row.agents.end(),
                                        [&](const ConflictRow::Agent& known) { return known.label == agent->label; });
        if (listed) continue;
        ConflictRow::Agent entry{agent->label, agent->plistPath, {}, {}};
        if (auto tier = scan.agentTiers.find(agent->label); tier != scan.agentTiers.end()) entry.tier = tier->second;
        if (entry.tier.kind == SafetyTier::Kind::needsConfirmation) entry.chips = StartupSafety::chips(entry.tier);
        row.agents.push_back(std::move(entry));
    }
    row.opensLoginItemsSettings = StartupConflicts::opensLoginItemsSettings(conflict);
}

QString backgroundItemsProblem(const StartupScan& scan) {
    if (scan.background && !scan.backgroundNotSaved.empty()) {
        return (scan.earlierBackgroundSaved
                    ? QStringLiteral("Holdenmere could not save the background items it found, so the login pass "
                                     "goes on with the list saved before: %1")
                    : QStringLiteral("Holdenmere could not save the background items it found, so the login pass "
                                     "has no list of them: %1"))
            .arg(QString::fromStdString(scan.backgroundNotSaved));
    }
    if (scan.background || scan.backgroundIncomplete.empty()) return {};
    return QStringLiteral("Holdenmere could not read the background items macOS starts at login, so this list is "
                          "incomplete: %1")
        .arg(QString::fromStdString(scan.backgroundIncomplete));
}

}  // namespace holdenmere::desktop
