// pluginkit's list is text this program does not control: any bytes must
// read as a list or as absent, never crash or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/discovery/app_extension_scanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view output(reinterpret_cast<const char*>(data), size);
    if (auto extensions = holdenmere::AppExtensionScanner::parse(output)) {
        for (const auto& extension : *extensions) {
            if (extension.identifier.empty()) std::abort();
            (void)holdenmere::AppExtensionScanner::entry(extension, {}).id();
        }
    }
    return 0;
}
