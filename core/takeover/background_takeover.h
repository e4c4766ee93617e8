#pragma once

#include <string>
#include <vector>

#include "core/config/launch_record.h"
#include "core/discovery/background_item_store.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {

// The background items of managed apps, taken over at the end of a login
// pass from the last scan the desktop app saved (the pass never runs
// sfltool). An item with a LaunchAgent behind it is switched off through the
// engine like any agent, recorded first as a DisabledAgent of the app's
// take-over record, so that --restore-startup gives it back; one that only
// System Settings can switch off is named with that remedy. Nothing happens
// without consent or without a saved scan.
struct BackgroundTakeover {
    // "{name} — background item {identifier}"
    static std::string subject(const std::string& name, const std::string& identifier);
    // The line that names what only System Settings can switch off.
    static std::string settingsLine(const std::string& name, const std::string& identifier);

    // Lines without the "[Holdenmere] " tag. An app whose launch failed in
    // this pass keeps its items.
    static std::vector<std::string> pass(StartupChangeEngine& engine, const BackgroundItemStore& store,
                                         const StartupSafety::Environment& environment,
                                         const std::vector<LaunchRecord>& records);
};

}  // namespace holdenmere
