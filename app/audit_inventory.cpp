#include "app/audit_inventory.h"

#include "core/config/config_store.h"
#include "core/support/environment.h"
#include "core/support/log_text.h"
#include "core/support/text.h"
#include "core/takeover/inventory_text.h"
#include "core/takeover/system_inventory.h"

namespace holdenmere {
namespace {

std::string chip(const std::string& text) { return "[" + text + "]"; }

}  // namespace

std::string inventoryBlock(const StartupSourceScan& scan) {
    std::string block = kTag + InventoryText::title(scan.source) + " (" + std::string(rawValue(scan.source)) + "): ";
    if (scan.unreadable) {
        block += "unknown" + std::string(kDash) + *scan.unreadable + "\n";
    } else {
        block += std::to_string(scan.entries.size()) + (scan.entries.size() == 1 ? " item\n" : " items\n");
    }
    for (const auto& entry : scan.entries) {
        block += kTag + std::string("  ") + entry.name + kDash + entry.handle + " " +
                 chip(InventoryText::state(entry.state));
        for (const auto& tierChip : InventoryText::tierChips(entry.tier)) block += " " + chip(tierChip);
        block += "\n";
    }
    for (const auto& text : scan.incomplete) block += kTag + std::string("  incomplete: ") + text + "\n";
    for (const auto& note : scan.notes) block += kTag + std::string("  not listed: ") + note + "\n";
    return block;
}

void printInventory(std::ostream& out, const std::vector<StartupSourceScan>& scans) {
    out << kTag << "STARTUP INVENTORY (what else macOS starts, by source):\n";
    for (const auto& scan : scans) out << inventoryBlock(scan);
}

void printStartupInventory(std::ostream& out) {
    // Held items read as held; a configuration that cannot be read is
    // reported above and holds nothing here.
    auto system = makeSystemStartupInventory([] {
        auto config = ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH")).tryLoad();
        return config ? config->heldStartup : std::vector<HeldStartupItem>{};
    });
    printInventory(out, system.inventory.scan());
}

}  // namespace holdenmere
