#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "core/discovery/startup_entry.h"

namespace holdenmere {

// The startup inventory as --audit prints it: one block per source, each a
// header line with the count (or "unknown" and why the source could not be
// read), one line per row with its state and tier chips, then what the scan
// could not read and what it left out, never dropped.
std::string inventoryBlock(const StartupSourceScan& scan);

// Every source's block, in order, under a heading line.
void printInventory(std::ostream& out, const std::vector<StartupSourceScan>& scans);

// Scans this machine's inventory and prints it.
void printStartupInventory(std::ostream& out);

}  // namespace holdenmere
