// background-items.json is written by the desktop app and read by every
// login pass; anyone can edit it. Any bytes must read as a saved scan or as
// none, and a saved scan that is read must be written back as the same scan.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/discovery/background_item_store.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using holdenmere::BackgroundItemStore;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto saved = BackgroundItemStore::decode(text);
    if (!saved) return 0;
    if (BackgroundItemStore::decode(BackgroundItemStore::encode(*saved)) != saved) std::abort();
    return 0;
}
