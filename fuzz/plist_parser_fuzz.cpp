// Property lists come from Info.plist files and LaunchAgents that any app
// may install: XML or binary, well-formed or not.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/support/plist.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        auto value = holdenmere::plist::parse(bytes);
        (void)value.stringAt("CFBundleShortVersionString");
    } catch (const holdenmere::plist::ParseError&) {
    }
    return 0;
}
