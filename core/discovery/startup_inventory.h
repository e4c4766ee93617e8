#pragma once

#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include "core/discovery/startup_entry.h"
#include "core/startup/startup_source.h"

namespace holdenmere {

// Everything macOS starts at login besides Login Items and the LaunchAgents
// that open an app, read source by source. Each source has one scanner,
// plugged in as a function, so that a source's scan can be built, faked and
// tested on its own; the inventory only runs them in order and makes sure
// that every source answers: a source without a scanner, or whose scanner
// fails, is listed as unreadable with the reason, never left out or empty.
class StartupInventory {
public:
    // Reads one source. It blocks while the tools it asks answer (each
    // within its own time limit).
    using Scanner = std::function<StartupSourceScan()>;

    static constexpr std::string_view kNotScanned = "not scanned in this build";

    // Gives the source its scanner, replacing any earlier one.
    void plug(StartupSource source, Scanner scanner);
    bool scans(StartupSource source) const { return scanners_.count(source) != 0; }

    // One scan per source, in the order of kAllStartupSources. A scan's
    // `source` is always the source it stands for.
    std::vector<StartupSourceScan> scan() const;
    // The scan of one source alone.
    StartupSourceScan scan(StartupSource source) const;

private:
    std::map<StartupSource, Scanner> scanners_;
};

}  // namespace holdenmere
