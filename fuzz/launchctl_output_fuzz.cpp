// launchctl's output is text this program does not control ("is NOT API"):
// any bytes must read as an answer or as absent, never crash or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/launchd/launchctl_output.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view output(reinterpret_cast<const char*>(data), size);
    auto disabled = holdenmere::disabledLabelsFromOutput(output);
    if (disabled && !disabled->empty()) (void)holdenmere::isDisabledInOutput(output, *disabled->begin());
    (void)holdenmere::isDisabledInOutput(output, "com.tavik.holdenmere.agent");
    // A table that lists nothing is absent, never an empty list.
    auto services = holdenmere::serviceLabelsFromOutput(output);
    if (services && services->empty()) std::abort();
    return 0;
}
