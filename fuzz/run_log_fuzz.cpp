// The run log collects whatever the login pass and anything else writing to
// the agent's standard streams printed; --audit reads it back.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/config/last_login_conflicts.h"
#include "core/support/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto reading = holdenmere::LastLoginConflicts::read(text);
    if (reading && reading->version.empty()) __builtin_trap();  // a pass always has a version
    if (reading && !holdenmere::text::isValidUtf8(text)) __builtin_trap();  // only text is read
    return 0;
}
