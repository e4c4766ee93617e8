// history.json is read by every login pass and by the desktop app.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/config/launch_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        auto value = holdenmere::json::parse(text);
        (void)holdenmere::json::ObjectReader::decodeArray(value, "", holdenmere::decodeLaunchRecord);
    } catch (const holdenmere::json::DecodeError&) {
    }
    return 0;
}
