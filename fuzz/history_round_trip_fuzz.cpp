// history.json is read by every login pass and written back with the pass's
// records in front: records read from any bytes must be written so that they
// read back the same, or the next pass would lose or change them. The store
// prints the records one by one (kept printed from the reading), which must
// match printing the whole array at once.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/launch_record.h"

namespace {

std::vector<holdenmere::LaunchRecord> decode(std::string_view text) {
    using holdenmere::json::ObjectReader;
    return ObjectReader::decodeArray(holdenmere::json::parse(text), "", holdenmere::decodeLaunchRecord);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace json = holdenmere::json;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<holdenmere::LaunchRecord> records;
    try {
        records = decode(text);
    } catch (const json::DecodeError&) {
        return 0;
    }
    // Failing to write or read back what was read is a finding: the
    // exceptions are left to end the process.
    std::vector<std::string> elements;
    json::Value whole = json::Value::array();
    for (const auto& record : records) {
        elements.push_back(json::encodePrettyElement(encode(record)));
        whole.push_back(encode(record));
    }
    const std::string written = json::encodePrettyArray(elements);
    if (written != json::encodePretty(whole)) std::abort();
    if (decode(written) != records) std::abort();
    return 0;
}
