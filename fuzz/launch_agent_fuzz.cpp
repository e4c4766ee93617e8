// Any app may drop a property list into a LaunchAgents folder; whatever it
// holds, reading it into an agent must neither crash nor hang.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/startup_discovery.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    holdenmere::plist::Value value;
    try {
        value = holdenmere::plist::parse(bytes);
    } catch (const holdenmere::plist::ParseError&) {
        return 0;
    }
    auto agent = holdenmere::LaunchAgentScanner::agentFrom(value, "/Users/u/Library/LaunchAgents/fuzz.plist");
    if (agent) {
        // Only the rules that read no files: the fuzzer must not wander the disk.
        (void)holdenmere::StartupDiscovery::outermostAppPath(agent->program);
        (void)holdenmere::StartupDiscovery::standardizedPath(agent->program);
    }
    return 0;
}
