#include "core/reachability/url_session_probe.h"

#include <curl/curl.h>

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/loopback_http_server.h"

namespace holdenmere {
namespace {

using testing::LoopbackHTTPServer;
using Mode = LoopbackHTTPServer::Mode;

TEST(URLSessionProbe, RedirectsAndSuccessesAreReachableOtherStatusesAreNot) {
    URLSessionProbe probe;
    for (int status : {200, 204, 302, 304}) {
        LoopbackHTTPServer server(Mode::status, status);
        EXPECT_EQ(probe.probeNow(server.url(), 1.5), ProbeOutcome::reachable()) << status;
    }
    for (int status : {404, 500}) {
        LoopbackHTTPServer server(Mode::status, status);
        EXPECT_EQ(probe.probeNow(server.url(), 1.5), ProbeOutcome::failure("HTTP " + std::to_string(status)));
    }
}

TEST(URLSessionProbe, SendsOnePlainUncachedGet) {
    URLSessionProbe probe;
    LoopbackHTTPServer server(Mode::status, 200);
    ASSERT_TRUE(probe.isReachable(server.url("/hotspot-detect.html"), 1.5));
    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    const std::string& request = requests[0];
    EXPECT_THAT(request, ::testing::StartsWith("GET /hotspot-detect.html HTTP/1.1\r\n"));
    EXPECT_THAT(request, ::testing::HasSubstr("Cache-Control: no-cache, no-store, max-age=0\r\n"));
    EXPECT_THAT(request, ::testing::HasSubstr("Pragma: no-cache\r\n"));
    EXPECT_THAT(request, ::testing::Not(::testing::HasSubstr("Authorization")));
    // A second attempt opens a connection of its own.
    ASSERT_TRUE(probe.isReachable(server.url(), 1.5));
    EXPECT_EQ(server.requests().size(), 2u);
}

TEST(URLSessionProbe, FailuresHaveTheirTexts) {
    URLSessionProbe probe;
    {
        LoopbackHTTPServer server(Mode::silent);
        EXPECT_EQ(probe.probeNow(server.url(), 0.3), ProbeOutcome::failure("timed out"));
    }
    {
        LoopbackHTTPServer server(Mode::garbage);
        EXPECT_EQ(probe.probeNow(server.url(), 1.5), ProbeOutcome::failure("non-HTTP response"));
    }
    {
        LoopbackHTTPServer server(Mode::hangUp);
        EXPECT_EQ(probe.probeNow(server.url(), 1.5), ProbeOutcome::failure("connection lost"));
    }
    const int closed = LoopbackHTTPServer::closedPort();
    EXPECT_EQ(probe.probeNow("http://127.0.0.1:" + std::to_string(closed) + "/", 1.5),
              ProbeOutcome::failure("cannot connect to host"));
    EXPECT_EQ(probe.probeNow("http://exa mple.com/", 1.5), ProbeOutcome::failure("malformed probe URL: http://exa mple.com/"));
    EXPECT_EQ(probe.probeNow("", 1.5), ProbeOutcome::failure("malformed probe URL: "));
    EXPECT_EQ(probe.probeNow("ftp://127.0.0.1:" + std::to_string(closed) + "/", 1.5),
              ProbeOutcome::failure("non-HTTP response"));
}

// Name lookups are not exercised for real: a lookup of even a ".invalid" name
// may be handed to a resolver off this machine. The mapping is what matters.
TEST(URLSessionProbe, DescribesTransportErrors) {
    EXPECT_EQ(URLSessionProbe::describe(CURLE_OPERATION_TIMEDOUT, 0), "timed out");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_COULDNT_RESOLVE_HOST, 0), "cannot find host (DNS)");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_COULDNT_RESOLVE_PROXY, 0), "DNS lookup failed");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_COULDNT_CONNECT, ECONNREFUSED), "cannot connect to host");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_COULDNT_CONNECT, ENETUNREACH), "not connected to internet");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_COULDNT_CONNECT, ETIMEDOUT), "timed out");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_RECV_ERROR, ECONNRESET), "connection lost");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_SSL_CONNECT_ERROR, 0), "TLS handshake failed");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_PEER_FAILED_VERIFICATION, 0), "TLS handshake failed");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_ABORTED_BY_CALLBACK, 0), "cancelled");
    EXPECT_EQ(URLSessionProbe::describe(CURLE_OUT_OF_MEMORY, 0), "Out of memory (curl error 27)");
}

TEST(URLSessionProbe, AsynchronousAttemptsReportOnceEach) {
    LoopbackHTTPServer server(Mode::status, 204);
    std::atomic<int> answers{0};
    {
        URLSessionProbe probe;
        probe.warmUp(1.5);
        for (int index = 0; index < 4; ++index) {
            probe.probe(server.url(), 1.5, [&](ProbeOutcome outcome) {
                if (outcome.isReachable) ++answers;
            });
        }
    }  // destruction waits for the attempts
    EXPECT_EQ(answers.load(), 4);
}

}  // namespace
}  // namespace holdenmere
