// System Events' answer to "get path of every login item" is split into
// paths; any app can name itself anything, so the answer is outside input.
// Besides not crashing, the split must be stable: every path is trimmed and
// non-empty, every path after the first starts a new absolute path, and
// joining the paths the way System Events does splits back into the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/discovery/login_items_auditor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto paths = holdenmere::LoginItemsAuditor::splitPathList(text);
    std::string joined;
    for (std::size_t index = 0; index < paths.size(); ++index) {
        const std::string& path = paths[index];
        if (path.empty()) std::abort();
        if (index > 0 && path.front() != '/') std::abort();
        if (holdenmere::LoginItemsAuditor::splitPathList(path).size() != 1) std::abort();
        if (index > 0) joined += ", ";
        joined += path;
    }
    if (holdenmere::LoginItemsAuditor::splitPathList(joined) != paths) std::abort();
    return 0;
}
