// What a route socket delivers: datagrams of netlink messages, read by the
// gate's network-change listener. Only the kernel's are read, but a message
// cut short or a length field that lies must never be read past.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__linux__)
#include <linux/netlink.h>

#include "core/reachability/rtnetlink_messages.h"
#endif

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
#if defined(__linux__)
    // Aligned as a receive buffer is, and exactly as long as the datagram.
    std::vector<nlmsghdr> buffer(size / sizeof(nlmsghdr) + 1);
    if (size > 0) std::memcpy(buffer.data(), data, size);
    static_cast<void>(holdenmere::RtnetlinkMessages::announceChange(buffer.data(), size));
#else
    static_cast<void>(data);
    static_cast<void>(size);
#endif
    return 0;
}
