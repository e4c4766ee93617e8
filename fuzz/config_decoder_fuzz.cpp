// config.json is outside input: the user, other tools or a crash may leave
// anything there. Decoding must either succeed or throw DecodeError, and a
// decoded config must survive an encode/decode round trip unchanged.
// Reading back the ledger of a damaged file never throws, and for a file
// that decodes it finds the whole ledger and loses nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "core/config/config_codec.h"
#include "core/config/damaged_config.h"

namespace {

bool salvagedWhole(const holdenmere::LedgerSalvage& salvage, const holdenmere::HoldenmereConfig& config) {
    std::vector<holdenmere::TakeoverRecord> takeovers;
    for (const auto& record : config.takeovers) {
        if (!record.isEmpty()) takeovers.push_back(record);
    }
    const auto& found = salvage.config;
    return !salvage.unreadable && salvage.lost.empty() && found.takeovers == takeovers &&
           found.heldStartup == config.heldStartup && found.delayedHelpers == config.delayedHelpers &&
           found.blockedApps == config.blockedApps && found.keptOff == config.keptOff &&
           found.restoreOptOuts == config.restoreOptOuts &&
           found.reopenWindowsOriginal == config.reopenWindowsOriginal;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const holdenmere::LedgerSalvage salvage = holdenmere::salvageLedger(text);
    holdenmere::HoldenmereConfig config;
    try {
        config = holdenmere::config_codec::decode(text);
    } catch (const holdenmere::json::DecodeError&) {
        return 0;
    }
    if (!salvagedWhole(salvage, config)) std::abort();
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
