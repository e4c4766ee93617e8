// sfltool dumpbtm's output is text this program does not control: any bytes
// must read as records or as unrecognised, never crash or hang, and reading
// them against the file system must not either.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/discovery/background_item_records.h"
#include "core/discovery/background_item_scanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view output(reinterpret_cast<const char*>(data), size);
    const auto dump = holdenmere::BackgroundItemDump::parse(output);
    for (const auto& record : dump.records) {
        (void)record.kind();
        (void)record.isEnabled();
        (void)record.unprefixedIdentifier();
        if (record.url) (void)holdenmere::BackgroundItemDump::filePath(*record.url);
    }
    (void)holdenmere::BackgroundItemScanner::interpret(dump, "501");
    return 0;
}
