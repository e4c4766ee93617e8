#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace holdenmere::testing {

// A tiny HTTP server on 127.0.0.1 and an ephemeral port, for the probe's
// tests. It answers every connection the same way and stops when destroyed,
// or by itself after `lifetimeSeconds`, whichever comes first. With
// `freeBind` (Linux) it listens even while 127.0.0.1 is not assigned, as in
// a network namespace whose loopback is still down; connections arrive once
// it is up.
class LoopbackHTTPServer {
public:
    enum class Mode {
        status,   // "HTTP/1.1 {status as three digits} ..." with an empty body
        silent,   // accepts and never answers
        garbage,  // answers with bytes that are not HTTP
        hangUp,   // closes the connection without a byte
    };

    explicit LoopbackHTTPServer(Mode mode, int status = 200, double lifetimeSeconds = 30, bool freeBind = false);
    ~LoopbackHTTPServer();
    LoopbackHTTPServer(const LoopbackHTTPServer&) = delete;
    LoopbackHTTPServer& operator=(const LoopbackHTTPServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path = "/hotspot-detect.html") const;
    // The raw requests received so far.
    std::vector<std::string> requests() const;
    // When the connection of each of those requests was accepted, in the same order.
    std::vector<std::chrono::steady_clock::time_point> arrivals() const;

    // The status of the answers from now on (Mode::status).
    void setStatus(int status) { status_ = status; }

    // A loopback port on which nothing listens (bound, then released).
    static int closedPort();

private:
    void serve();

    Mode mode_;
    std::atomic<int> status_;
    double lifetime_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::vector<std::chrono::steady_clock::time_point> arrivals_;
    std::vector<int> held_;
    std::thread thread_;
};

}  // namespace holdenmere::testing
