// The system's network-change announcements, heard for real: on Linux in a
// network namespace of the test's own, whose loopback the test brings up
// and down; and the reading of rtnetlink datagrams, on bytes made here.
#include "core/reachability/network_change_listening.h"

#include <atomic>
#include <chrono>

#include <gtest/gtest.h>

#include "core/support/clock.h"
#include "tests/support/network_namespace.h"

#ifdef __linux__
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "core/reachability/rtnetlink_messages.h"
#endif

namespace holdenmere {
namespace {

using namespace std::chrono_literals;

TEST(InertNetworkChangeListening, HearsNothing) {
    EXPECT_EQ(InertNetworkChangeListening::shared().subscribe([] {}), nullptr);
}

#ifdef __linux__

TEST(SystemNetworkChangeListening, HearsLoopbackComeUpAndGoDownAndStopsPromptly) {
    if (!testing::inOwnNetworkNamespace()) return testing::runInOwnNetworkNamespace();

    SystemNetworkChangeListening listening;
    std::atomic<int> calls{0};
    Signal heard;
    auto subscription = listening.subscribe([&] {
        ++calls;
        heard.raise();
    });
    ASSERT_NE(subscription, nullptr);
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(testing::setLoopbackUp(true), "");
    EXPECT_TRUE(heard.waitFor(5)) << "no announcement within 5 s of loopback coming up";

    // A second subscriber hears loopback going down; the first, ended
    // before, hears nothing more. Ending does not wait for an announcement.
    Signal heardDown;
    auto second = listening.subscribe([&] { heardDown.raise(); });
    ASSERT_NE(second, nullptr);
    const auto before = std::chrono::steady_clock::now();
    subscription.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
    const int callsWhenEnded = calls;
    ASSERT_EQ(testing::setLoopbackUp(false), "");
    EXPECT_TRUE(heardDown.waitFor(5)) << "no announcement within 5 s of loopback going down";
    EXPECT_EQ(calls, callsWhenEnded);
}

// Datagrams as the kernel sends them: headers aligned to four bytes, each
// message followed by its payload.
class RouteDatagram {
public:
    RouteDatagram& add(std::uint16_t type, std::size_t payload = 16) {
        nlmsghdr header{};
        header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(payload));
        header.nlmsg_type = type;
        std::memcpy(bytes_ + size_, &header, sizeof header);
        size_ += NLMSG_SPACE(payload);
        return *this;
    }
    // Claims more than the datagram holds, as a message cut short would.
    RouteDatagram& cutShort(std::uint16_t type) {
        nlmsghdr header{};
        header.nlmsg_len = 4096;
        header.nlmsg_type = type;
        std::memcpy(bytes_ + size_, &header, sizeof header);
        size_ += sizeof header;
        return *this;
    }
    bool announcesChange() const { return RtnetlinkMessages::announceChange(bytes_, size_); }

private:
    alignas(nlmsghdr) unsigned char bytes_[1024]{};
    std::size_t size_ = 0;
};

TEST(RtnetlinkMessages, LinksAddressesAndRoutesAreChangesAndNothingElse) {
    using Types = std::initializer_list<std::uint16_t>;
    for (std::uint16_t type : Types{RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR, RTM_DELADDR, RTM_NEWROUTE, RTM_DELROUTE}) {
        EXPECT_TRUE(RouteDatagram().add(type).announcesChange()) << "type " << type;
    }
    for (std::uint16_t type : Types{RTM_NEWNEIGH, RTM_DELNEIGH, RTM_GETLINK, RTM_NEWRULE, NLMSG_DONE, NLMSG_ERROR,
                                    NLMSG_NOOP}) {
        EXPECT_FALSE(RouteDatagram().add(type).announcesChange()) << "type " << type;
    }
    // Every message of a batch is looked at, whatever their sizes.
    EXPECT_TRUE(RouteDatagram().add(RTM_NEWNEIGH, 3).add(RTM_NEWNEIGH, 40).add(RTM_NEWROUTE, 7).announcesChange());
    // Nothing, or a message cut short, is no change; what comes before it still counts.
    EXPECT_FALSE(RouteDatagram().announcesChange());
    EXPECT_FALSE(RouteDatagram().cutShort(RTM_NEWADDR).announcesChange());
    EXPECT_TRUE(RouteDatagram().add(RTM_DELADDR).cutShort(RTM_NEWNEIGH).announcesChange());
    EXPECT_FALSE(RouteDatagram().add(RTM_NEWNEIGH).cutShort(RTM_NEWADDR).announcesChange());
}

#endif

}  // namespace
}  // namespace holdenmere
