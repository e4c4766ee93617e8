#include "core/reachability/plain_http_get.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <variant>

#include "core/reachability/http_answer.h"
#include "core/reachability/url_error.h"

namespace holdenmere {
namespace {

using SteadyClock = std::chrono::steady_clock;

ProbeOutcome failed(int code, std::string_view description = {}) {
    return ProbeOutcome::failure(URLError::describe(code, description));
}

// The attempt's one deadline, shared by every step.
class Deadline {
public:
    explicit Deadline(double seconds)
        : at_(SteadyClock::now() + std::chrono::microseconds(std::llround(std::max(0.0, seconds) * 1e6))) {}

    SteadyClock::time_point at() const { return at_; }

    // Milliseconds left, rounded up so that a wait never ends early; 0 once passed.
    int remainingMilliseconds() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(at_ - SteadyClock::now()).count();
        return left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
    }

private:
    SteadyClock::time_point at_;
};

class Socket {
public:
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    ~Socket() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// A socket that is non-blocking, closed on exec (apps are started from
// other threads while an attempt runs) and raises no SIGPIPE.
int openSocket(const addrinfo& address) {
#if defined(SOCK_CLOEXEC) && defined(SOCK_NONBLOCK)
    const int descriptor = ::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK,
                                    address.ai_protocol);
    if (descriptor < 0) return -1;
#else
    const int descriptor = ::socket(address.ai_family, address.ai_socktype, address.ai_protocol);
    if (descriptor < 0) return -1;
    if (::fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0 ||
        ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK) != 0) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
        return -1;
    }
#endif
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    (void)::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    return descriptor;
}

#if defined(MSG_NOSIGNAL)
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

// Waits until `descriptor` is ready for `events`; false once the deadline
// has passed.
bool waitFor(int descriptor, short events, const Deadline& deadline) {
    for (;;) {
        pollfd entry{descriptor, events, 0};
        const int ready = ::poll(&entry, 1, deadline.remainingMilliseconds());
        if (ready > 0) return true;
        if (ready == 0) return false;
        if (errno != EINTR) return true;  // the next call on the socket says what is wrong
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c - 'A' + 10;
}

// The host as the resolver takes it: escapes decoded ("%25" before an IPv6
// zone is the zone's "%").
std::string decoded(const std::string& host) {
    std::string text;
    for (std::size_t index = 0; index < host.size(); ++index) {
        if (host[index] == '%' && index + 2 < host.size()) {
            text.push_back(static_cast<char>(hexValue(host[index + 1]) * 16 + hexValue(host[index + 2])));
            index += 2;
        } else {
            text.push_back(host[index]);
        }
    }
    return text;
}

struct AddressList {
    addrinfo* first = nullptr;
    ~AddressList() {
        if (first != nullptr) ::freeaddrinfo(first);
    }
};

// A name lookup that may outlast the attempt: the resolver cannot be
// interrupted, so it runs on a thread of its own, which the attempt leaves
// behind when its deadline passes first.
struct Lookup {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    int status = 0;
    AddressList addresses;
};

// The addresses of `url`'s host, or the failure that ends the attempt.
std::variant<std::shared_ptr<Lookup>, ProbeOutcome> resolve(const HTTPURL& url, const Deadline& deadline) {
    const std::string host = decoded(url.host);
    const std::string service = std::to_string(url.port);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;

    auto lookup = std::make_shared<Lookup>();
    // An address needs no lookup.
    if (::getaddrinfo(host.c_str(), service.c_str(), &hints, &lookup->addresses.first) == 0) return lookup;
    lookup->addresses.first = nullptr;
    if (url.hostIsIPv6) return failed(URLError::kCannotFindHost);

    hints.ai_flags = AI_NUMERICSERV;
    auto work = [lookup, host, service, hints] {
        addrinfo* found = nullptr;
        const int status = ::getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
        std::lock_guard lock(lookup->mutex);
        lookup->status = status;
        lookup->addresses.first = status == 0 ? found : nullptr;
        lookup->done = true;
        lookup->finished.notify_all();
    };
    try {
        std::thread(work).detach();
    } catch (const std::system_error&) {
        work();  // no thread to be had: look it up here
    }
    std::unique_lock lock(lookup->mutex);
    if (!lookup->finished.wait_until(lock, deadline.at(), [&] { return lookup->done; })) {
        return failed(URLError::kTimedOut);
    }
    if (lookup->status != 0) return failed(URLError::kCannotFindHost);
    return lookup;
}

// Connects to the first address that answers; the failure of the last one
// tried when none does.
std::variant<int, ProbeOutcome> connectToAny(const addrinfo* addresses, const Deadline& deadline) {
    int lastError = ECONNREFUSED;
    for (const addrinfo* address = addresses; address != nullptr; address = address->ai_next) {
        const int descriptor = openSocket(*address);
        if (descriptor < 0) {
            lastError = errno;
            continue;
        }
        int error = 0;
        if (::connect(descriptor, address->ai_addr, address->ai_addrlen) != 0) {
            error = errno;
            if (error == EINPROGRESS || error == EINTR) {
                if (!waitFor(descriptor, POLLOUT, deadline)) {
                    ::close(descriptor);
                    return failed(URLError::kTimedOut);
                }
                socklen_t length = sizeof error;
                if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
            }
        }
        if (error == 0) return descriptor;
        ::close(descriptor);
        lastError = error;
    }
    return failed(URLError::fromConnectErrno(lastError));
}

std::optional<ProbeOutcome> sendAll(int descriptor, std::string_view bytes, const Deadline& deadline) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(descriptor, bytes.data(), bytes.size(), kSendFlags);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            if (!waitFor(descriptor, POLLOUT, deadline)) return failed(URLError::kTimedOut);
            continue;
        }
        return failed(URLError::kNetworkConnectionLost);
    }
    return std::nullopt;
}

ProbeOutcome receiveAnswer(int descriptor, const Deadline& deadline) {
    std::string received;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::recv(descriptor, buffer, sizeof buffer, 0);
        if (count > 0) {
            received.append(buffer, static_cast<std::size_t>(count));
            const HTTPAnswer answer = HTTPAnswer::read(received);
            if (answer.state != HTTPAnswer::State::incomplete) return answer.probeOutcome();
            continue;
        }
        if (count == 0) {
            // Closed before the head was whole: bytes that are not HTTP are
            // an answer that cannot be read, anything else a lost connection.
            if (!received.empty()) {
                if (const HTTPAnswer answer = HTTPAnswer::read(received); answer.state == HTTPAnswer::State::notHTTP) {
                    return answer.probeOutcome();
                }
            }
            return failed(URLError::kNetworkConnectionLost);
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
            if (!waitFor(descriptor, POLLIN, deadline)) return failed(URLError::kTimedOut);
            continue;
        }
        return failed(URLError::kNetworkConnectionLost);
    }
}

// The request target as sent: bytes outside ASCII escaped.
std::string escapedTarget(const std::string& target) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    for (char c : target) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text.push_back(c);
            continue;
        }
        text.push_back('%');
        text.push_back(kHex[byte >> 4]);
        text.push_back(kHex[byte & 0x0f]);
    }
    return text;
}

}  // namespace

std::string PlainHTTPGet::request(const HTTPURL& url) {
    return "GET " + escapedTarget(url.target) +
           " HTTP/1.1\r\n"
           "Host: " +
           url.hostHeader() +
           "\r\n"
           "User-Agent: Holdenmere\r\n"
           "Accept: */*\r\n"
           "Cache-Control: no-cache, no-store, max-age=0\r\n"
           "Pragma: no-cache\r\n"
           "Connection: close\r\n"
           "\r\n";
}

ProbeOutcome PlainHTTPGet::send(const HTTPURL& url, double timeout) {
    const Deadline deadline(timeout);
    auto resolved = resolve(url, deadline);
    if (auto* failure = std::get_if<ProbeOutcome>(&resolved)) return *failure;
    const auto lookup = std::get<std::shared_ptr<Lookup>>(std::move(resolved));

    auto connected = connectToAny(lookup->addresses.first, deadline);
    if (auto* failure = std::get_if<ProbeOutcome>(&connected)) return *failure;
    const Socket socket(std::get<int>(connected));

    if (auto failure = sendAll(socket.get(), request(url), deadline)) return *failure;
    return receiveAnswer(socket.get(), deadline);
}

}  // namespace holdenmere
