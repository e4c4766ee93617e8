#pragma once

#include <filesystem>
#include <vector>

#include "core/discovery/login_items_simulation.h"

// System Events' Login Items for the fakes: the in-memory script runner
// and the fake osascript executable answer through the same simulation;
// the executable keeps the items in a file between its runs.
namespace holdenmere::testing {

using FakeLoginItem = SimulatedLoginItem;

class SystemEventsLoginItems : public SimulatedLoginItems {
public:
    // The items kept in a JSON file ([{"path": ..., "hidden": ...}]); a
    // missing file holds none.
    static std::vector<FakeLoginItem> load(const std::filesystem::path& file);
    static void save(const std::filesystem::path& file, const std::vector<FakeLoginItem>& items);
};

}  // namespace holdenmere::testing
