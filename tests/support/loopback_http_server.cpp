#include "tests/support/loopback_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace holdenmere::testing {
namespace {

int bindLoopback(int* port, bool freeBind = false) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) throw std::runtime_error("socket failed");
    if (freeBind) {
#ifdef IP_FREEBIND
        const int on = 1;
        if (::setsockopt(fd, IPPROTO_IP, IP_FREEBIND, &on, sizeof on) != 0) {
            ::close(fd);
            throw std::runtime_error("setsockopt(IP_FREEBIND) failed");
        }
#else
        ::close(fd);
        throw std::runtime_error("IP_FREEBIND is not available here");
#endif
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        throw std::runtime_error("bind failed");
    }
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    *port = ntohs(address.sin_port);
    return fd;
}

std::string reasonFor(int status) {
    switch (status) {
        case 200: return "OK";
        case 204: return "No Content";
        case 302: return "Found";
        case 304: return "Not Modified";
        case 404: return "Not Found";
        case 500: return "Internal Server Error";
        case 503: return "Service Unavailable";
        default: return "Status";
    }
}

}  // namespace

LoopbackHTTPServer::LoopbackHTTPServer(Mode mode, int status, double lifetimeSeconds, bool freeBind)
    : mode_(mode), status_(status), lifetime_(lifetimeSeconds) {
    listener_ = bindLoopback(&port_, freeBind);
    ::listen(listener_, 16);
    thread_ = std::thread([this] { serve(); });
}

LoopbackHTTPServer::~LoopbackHTTPServer() {
    stopping_ = true;
    thread_.join();
    for (int fd : held_) ::close(fd);
    ::close(listener_);
}

std::string LoopbackHTTPServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<std::string> LoopbackHTTPServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<std::chrono::steady_clock::time_point> LoopbackHTTPServer::arrivals() const {
    std::lock_guard lock(mutex_);
    return arrivals_;
}

int LoopbackHTTPServer::closedPort() {
    int port = 0;
    int fd = bindLoopback(&port);
    ::close(fd);
    return port;
}

void LoopbackHTTPServer::serve() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(lifetime_);
    while (!stopping_ && std::chrono::steady_clock::now() < deadline) {
        pollfd watched{listener_, POLLIN, 0};
        if (::poll(&watched, 1, 20) <= 0) continue;
        int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        const auto arrived = std::chrono::steady_clock::now();
        if (mode_ == Mode::hangUp) {
            ::close(client);
            continue;
        }
        // Read the request head (bounded in time).
        std::string request;
        char buffer[4096];
        while (request.find("\r\n\r\n") == std::string::npos) {
            pollfd readable{client, POLLIN, 0};
            if (::poll(&readable, 1, 1000) <= 0) break;
            ssize_t count = ::read(client, buffer, sizeof buffer);
            if (count <= 0) break;
            request.append(buffer, static_cast<std::size_t>(count));
        }
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(request);
            arrivals_.push_back(arrived);
        }
        std::string answer;
        if (mode_ == Mode::silent) {
            held_.push_back(client);  // kept open, never answered, closed with the server
            continue;
        }
        if (mode_ == Mode::garbage) {
            answer = "SSH-2.0-NotHTTP\r\n\r\nhello there\n";
        } else {
            // Always three digits, as a status line has them: 14 is sent as "014".
            const int status = status_;
            char digits[16];
            std::snprintf(digits, sizeof digits, "%03d", status);
            answer = "HTTP/1.1 " + std::string(digits) + " " + reasonFor(status) + "\r\n";
            if (status == 302) answer += "Location: http://127.0.0.1:1/elsewhere\r\n";
            answer += "Content-Length: 0\r\nConnection: close\r\n\r\n";
        }
        (void)::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        ::shutdown(client, SHUT_WR);
        ::close(client);
    }
}

}  // namespace holdenmere::testing
