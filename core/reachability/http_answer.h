#pragma once

#include <cstddef>
#include <string_view>

#include "core/reachability/probe_result.h"

namespace holdenmere {

// What the bytes of an HTTP/1.x answer received so far say about it. Only
// the head matters to the probe: the status of the first final answer
// (interim 1xx answers are passed over), once its header block has arrived
// whole. The body is never read.
struct HTTPAnswer {
    enum class State {
        incomplete,  // more bytes are needed
        complete,    // `status` is the final answer's
        notHTTP,     // the bytes are not an HTTP/1.x answer
        tooLarge,    // the head runs past kMaxHeadBytes
    };

    static constexpr std::size_t kMaxHeadBytes = 64 * 1024;

    State state = State::incomplete;
    int status = 0;

    static HTTPAnswer read(std::string_view received);

    // Whether a number is a status a status line can carry: three digits,
    // 100 to 999. An answer with any other is no HTTP answer.
    static constexpr bool isStatus(long status) { return status >= 100 && status <= 999; }

    // How a probe attempt ends on these bytes, or on a final status another
    // transport read, the same for every transport: 2xx and 3xx are
    // reachable, another status is "HTTP {status}", and bytes that are not a
    // complete head, or a number that is no status, are an answer that
    // cannot be parsed.
    ProbeOutcome probeOutcome() const;
    static ProbeOutcome probeOutcome(long status);
};

}  // namespace holdenmere
