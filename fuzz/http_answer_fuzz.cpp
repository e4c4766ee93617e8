// What a server sends back to the probe: any bytes at all, read as the head
// of an HTTP answer while they arrive. Each prefix is read, as the probe
// reads after every receive: once a verdict is final, more bytes never make
// it pending again, and a status once read stays. The probe URL is read too.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/reachability/http_answer.h"
#include "core/reachability/http_url.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using holdenmere::HTTPAnswer;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    bool final = false;
    HTTPAnswer first;
    for (std::size_t length = 0; length <= bytes.size(); length += 1 + length / 8) {
        const HTTPAnswer answer = HTTPAnswer::read(bytes.substr(0, length));
        if (final && answer.state == HTTPAnswer::State::incomplete) std::abort();
        if (final && first.state == HTTPAnswer::State::complete &&
            (answer.state != first.state || answer.status != first.status)) {
            std::abort();
        }
        if (!final && answer.state != HTTPAnswer::State::incomplete) {
            final = true;
            first = answer;
        }
        if (answer.state == HTTPAnswer::State::complete && (answer.status < 100 || answer.status > 999)) std::abort();
    }
    if (const auto url = holdenmere::HTTPURL::parse(bytes)) {
        if (url->host.empty() || url->target.empty() || url->target.front() != '/') std::abort();
        if (url->port < 0 || url->port > 65535) std::abort();
        static_cast<void>(url->hostHeader());
    }
    return 0;
}
