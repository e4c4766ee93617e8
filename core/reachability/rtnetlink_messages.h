#pragma once

#include <cstddef>

namespace holdenmere {

// Reading rtnetlink (Linux) as the network-change listener hears it, kept
// apart from the socket so that it can be tried on bytes made by a test.
struct RtnetlinkMessages {
    // Whether one datagram read from a route socket carries at least one
    // message that a link, an address or a route was added, changed or
    // removed. `data` must be aligned for struct nlmsghdr; a message cut
    // short at the end is ignored, and anything after it.
    static bool announceChange(const void* data, std::size_t size);
};

}  // namespace holdenmere
