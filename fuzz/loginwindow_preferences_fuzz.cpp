// loginwindow's per-host preferences are a property list this program does
// not control: any bytes must read as the apps and setting, or as absent.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/discovery/session_restore_scanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        if (auto restore = holdenmere::SessionRestoreScanner::interpret(holdenmere::plist::parse(bytes))) {
            (void)restore->reopensWindows();
        }
    } catch (const holdenmere::plist::ParseError&) {
    }
    return 0;
}
