#pragma once

#include <ostream>

#include "core/config/config_store.h"
#include "core/discovery/background_item_scanner.h"

namespace holdenmere {

// The background-items block of `--audit`: what macOS's background-items
// record starts at login, read afresh through sfltool (a person is present
// to authorize it), against the managed and blocked apps of the
// configuration when it can be read. An unreadable record is reported as
// incomplete, never as empty.
void printBackgroundItems(std::ostream& out, ToolRunning& tools, const ConfigStore& store);

}  // namespace holdenmere
