// "systemextensionsctl list" prints text this program does not control: any
// bytes must read as a list or as absent, never crash or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/discovery/system_extensions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view output(reinterpret_cast<const char*>(data), size);
    auto extensions = holdenmere::systemExtensionsFromOutput(output);
    if (!extensions) return 0;
    // Every row read names its extension and sits under a category.
    for (const auto& extension : *extensions) {
        if (extension.bundleIdentifier.empty() || extension.category.empty()) std::abort();
    }
    return 0;
}
