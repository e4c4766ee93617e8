#pragma once

// The background items' part of the Startup Items page: scanned with the
// other sources on the worker thread (and the result saved for the login
// pass), then shown in the same sections.
#include <QString>

#include "app/desktop/startup_items_model.h"
#include "core/discovery/background_item_store.h"

namespace holdenmere::desktop {

// Reads the background items into `scan`, with the safety tier of each
// LaunchAgent behind one, and saves a complete result to `store` (a save
// that fails is noted in `scan`).
void scanBackgroundItems(StartupScan& scan, BackgroundItemsTool& tool, const StartupSafety::Environment& environment,
                         const BackgroundItemStore& store);

// The background items of the scan, or nothing when it has no result.
std::optional<std::vector<StartupItem>> backgroundStartupItems(const StartupScan& scan);
// Fills a row of a background item: its identifier, and the LaunchAgent
// behind it or the System Settings remedy.
void describeBackgroundRow(StartupItemRow& row, const StartupItem::BackgroundItem& source, const StartupScan& scan);
// The conflicts of managed apps with background items.
std::vector<BackgroundItemScanner::Conflict> backgroundConflicts(const StartupScan& scan,
                                                                 const std::vector<ManagedApp>& managed);
// Adds a conflict's background items to its row: LaunchAgents to its
// agents, the rest as items only System Settings can switch off.
void describeBackgroundConflict(ConflictRow& row, const StartupConflict& conflict, const StartupScan& scan);
// Why the background items are missing or could not be saved for the
// login pass, or empty.
QString backgroundItemsProblem(const StartupScan& scan);

}  // namespace holdenmere::desktop
