// SystemNetworkChangeListening on Linux: a route netlink socket joined to the
// kernel's link, IPv4/IPv6 address and IPv4/IPv6 route groups, read by a
// thread of the subscription's own. The thread waits in poll() on the
// socket and on an eventfd that the subscription's destructor writes to, so
// that stopping never waits for the next announcement.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>
#include <utility>

#include "core/reachability/network_change_listening.h"
#include "core/reachability/rtnetlink_messages.h"

namespace holdenmere {
namespace {

// A descriptor closed with its owner.
class OwnedFd {
public:
    explicit OwnedFd(int fd = -1) : fd_(fd) {}
    ~OwnedFd() {
        if (fd_ >= 0) ::close(fd_);
    }
    OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    OwnedFd& operator=(OwnedFd&&) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

private:
    int fd_;
};

constexpr unsigned kGroups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;

// Reads per wake-up before the thread looks at the stop descriptor again: a
// storm of announcements must not keep a destructor waiting.
constexpr int kReadsPerWakeUp = 64;

OwnedFd openRouteSocket() {
    OwnedFd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!socket.valid()) return OwnedFd();
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kGroups;
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return OwnedFd();
    return socket;
}

class RouteSocketSubscription final : public NetworkChangeListening::Subscription {
public:
    RouteSocketSubscription(OwnedFd socket, OwnedFd stop, std::function<void()> changed)
        : socket_(std::move(socket)), stop_(std::move(stop)), changed_(std::move(changed)) {
        thread_ = std::thread([this] { listen(); });
    }

    ~RouteSocketSubscription() override {
        const std::uint64_t one = 1;
        // An eventfd write of 1 fails only when the counter is full, which
        // wakes the thread just the same.
        [[maybe_unused]] const ssize_t written = ::write(stop_.get(), &one, sizeof one);
        thread_.join();
    }

    RouteSocketSubscription(const RouteSocketSubscription&) = delete;
    RouteSocketSubscription& operator=(const RouteSocketSubscription&) = delete;

private:
    enum class Drained { more, failed };

    void listen() {
        pollfd watched[2] = {{socket_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}};
        for (;;) {
            if (::poll(watched, 2, -1) < 0) {
                if (errno == EINTR) continue;
                return;
            }
            if (watched[1].revents != 0) return;
            // POLLERR comes with an overrun (ENOBUFS), which drain() reads.
            if (watched[0].revents == 0) continue;
            bool changed = false;
            const Drained drained = drain(changed);
            if (changed) changed_();
            if (drained == Drained::failed) return;
        }
    }

    // Reads what is waiting, without blocking. An overrun means the kernel
    // dropped announcements this socket did not read in time: something
    // changed, though what is lost. Messages not from the kernel are ignored.
    Drained drain(bool& changed) {
        alignas(nlmsghdr) char buffer[16384];
        for (int reads = 0; reads < kReadsPerWakeUp; ++reads) {
            sockaddr_nl from{};
            socklen_t length = sizeof from;
            const ssize_t count = ::recvfrom(socket_.get(), buffer, sizeof buffer, MSG_DONTWAIT,
                                             reinterpret_cast<sockaddr*>(&from), &length);
            if (count < 0) {
                if (errno == EINTR) continue;
                if (errno == ENOBUFS) {
                    changed = true;
                    continue;
                }
                return errno == EAGAIN || errno == EWOULDBLOCK ? Drained::more : Drained::failed;
            }
            if (from.nl_pid != 0) continue;
            if (RtnetlinkMessages::announceChange(buffer, static_cast<std::size_t>(count))) changed = true;
        }
        return Drained::more;
    }

    OwnedFd socket_;
    OwnedFd stop_;
    std::function<void()> changed_;
    std::thread thread_;
};

}  // namespace

std::unique_ptr<NetworkChangeListening::Subscription> SystemNetworkChangeListening::subscribe(
    std::function<void()> changed) {
    OwnedFd socket = openRouteSocket();
    if (!socket.valid()) return nullptr;
    OwnedFd stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!stop.valid()) return nullptr;
    try {
        return std::make_unique<RouteSocketSubscription>(std::move(socket), std::move(stop), std::move(changed));
    } catch (const std::system_error&) {
        return nullptr;  // no thread to be had
    }
}

}  // namespace holdenmere
