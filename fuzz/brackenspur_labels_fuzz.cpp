// Brackenspur's owned-labels file is written by another program: any bytes
// must read as a list of labels or as not one, never crash.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/discovery/brackenspur_labels.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto labels = holdenmere::BrackenspurLabels::parse(text);
    if (!labels) return 0;
    for (const auto& label : *labels) {
        if (label.empty() || label.find_first_of(" \t\r\n\"") != std::string::npos) std::abort();
    }
    return 0;
}
