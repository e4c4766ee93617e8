#include "core/discovery/startup_inventory.h"

#include <exception>
#include <utility>

namespace holdenmere {

void StartupInventory::plug(StartupSource source, Scanner scanner) {
    if (scanner) {
        scanners_[source] = std::move(scanner);
    } else {
        scanners_.erase(source);
    }
}

StartupSourceScan StartupInventory::scan(StartupSource source) const {
    StartupSourceScan result;
    auto scanner = scanners_.find(source);
    if (scanner == scanners_.end()) {
        result.unreadable = std::string(kNotScanned);
    } else {
        try {
            result = scanner->second();
        } catch (const std::exception& error) {
            // A scanner reports what it cannot read; one that throws has
            // still not read its source, and the others go on.
            result = StartupSourceScan{};
            result.unreadable = std::string("could not be scanned: ") + error.what();
        }
    }
    result.source = source;
    for (auto& entry : result.entries) entry.source = source;
    return result;
}

std::vector<StartupSourceScan> StartupInventory::scan() const {
    std::vector<StartupSourceScan> scans;
    scans.reserve(kAllStartupSources.size());
    for (auto source : kAllStartupSources) scans.push_back(scan(source));
    return scans;
}

}  // namespace holdenmere
