// lsappinfo's list is text this program does not control: any bytes must
// read as a list or as absent, never crash or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/discovery/launcher_child_scanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view output(reinterpret_cast<const char*>(data), size);
    if (auto apps = holdenmere::LauncherChildScanner::parse(output)) {
        for (const auto& child : holdenmere::LauncherChildScanner::children(*apps)) {
            if (!child.launcher.bundleIdentifier) std::abort();
            (void)holdenmere::LauncherChildScanner::entry(child, {});
        }
    }
    return 0;
}
