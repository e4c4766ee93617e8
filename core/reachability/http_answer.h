#pragma once

#include <cstddef>
#include <string_view>

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
};

}  // namespace holdenmere
