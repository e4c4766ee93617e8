// config.json is outside input: the user, other tools or a crash may leave
// anything there. Decoding must either succeed or throw DecodeError, and a
// decoded config must survive an encode/decode round trip unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/config/config_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    holdenmere::HoldenmereConfig config;
    try {
        config = holdenmere::config_codec::decode(text);
    } catch (const holdenmere::json::DecodeError&) {
        return 0;
    }
    config.settings = config.settings.validated();
    std::string encoded;
    try {
        encoded = holdenmere::json::encodePretty(holdenmere::config_codec::encode(config));
    } catch (const holdenmere::json::DecodeError&) {
        return 0;  // strings that are not UTF-8 cannot be written back
    }
    auto again = holdenmere::config_codec::decode(encoded);
    // Written back, the file carries the ledger's keys whatever it held.
    config.predatesLedger = false;
    if (!(again == config)) std::abort();
    return 0;
}
