// System Events' answer to "get hidden of every login item" is split into
// flags that must line up with the paths; the answer is outside input. The
// split must count exactly the non-empty parts between commas, and the flags
// written back the way System Events joins them must split into the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/discovery/login_items_auditor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using holdenmere::LoginItemsAuditor;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto flags = LoginItemsAuditor::splitHiddenFlags(text);

    std::size_t parts = 0;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t comma = text.find(',', start);
        if (comma == std::string_view::npos) comma = text.size();
        if (comma > start) ++parts;
        start = comma + 1;
    }
    if (flags.size() != parts) std::abort();

    std::string joined;
    for (std::size_t index = 0; index < flags.size(); ++index) {
        if (index > 0) joined += ", ";
        joined += flags[index] ? "true" : "false";
    }
    if (LoginItemsAuditor::splitHiddenFlags(joined) != flags) std::abort();
    return 0;
}
