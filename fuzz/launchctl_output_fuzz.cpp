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
    // Every label marked disabled is a disabled label; a service block with
    // no field is absent.
    auto marks = holdenmere::disabledMarksFromOutput(output);
    if (marks.has_value() != disabled.has_value()) std::abort();
    if (marks) {
        for (const auto& [label, isDisabled] : *marks) {
            if (isDisabled && disabled->count(label) == 0) std::abort();
        }
    }
    auto fields = holdenmere::serviceFieldsFromOutput(output);
    if (fields && fields->empty()) std::abort();
    return 0;
}
