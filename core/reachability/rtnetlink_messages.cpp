#include "core/reachability/rtnetlink_messages.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <climits>
#include <cstdint>

namespace holdenmere {
namespace {

bool isChange(std::uint16_t type) {
    switch (type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
        case RTM_NEWADDR:
        case RTM_DELADDR:
        case RTM_NEWROUTE:
        case RTM_DELROUTE:
            return true;
        default:
            return false;
    }
}

}  // namespace

// The kernel's own macros decide what a whole message is. They count in
// int and compare that with the header's unsigned length, which clang
// reports even though the macros come from a system header; a datagram
// never comes near INT_MAX.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
bool RtnetlinkMessages::announceChange(const void* data, std::size_t size) {
    int left = size > INT_MAX ? INT_MAX : static_cast<int>(size);
    for (auto* header = static_cast<const nlmsghdr*>(data); NLMSG_OK(header, left); header = NLMSG_NEXT(header, left)) {
        if (isChange(header->nlmsg_type)) return true;
    }
    return false;
}
#pragma GCC diagnostic pop

}  // namespace holdenmere
