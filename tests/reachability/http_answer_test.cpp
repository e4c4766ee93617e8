#include "core/reachability/http_answer.h"

#include <string>

#include <gtest/gtest.h>

namespace holdenmere {
namespace {

using State = HTTPAnswer::State;

TEST(HTTPAnswer, TheStatusCountsOnceTheHeadIsWhole) {
    struct Row {
        std::string received;
        State state;
        int status;
    };
    const std::vector<Row> table = {
        {"", State::incomplete, 0},
        {"HTT", State::incomplete, 0},
        {"HTTP/1.1 204 No Content\r\n", State::incomplete, 0},
        {"HTTP/1.1 204 No Content\r\nServer: x\r\n", State::incomplete, 0},
        {"HTTP/1.1 204 No Content\r\nServer: x\r\n\r\n", State::complete, 204},
        {"HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello", State::complete, 200},
        {"HTTP/1.1 304\r\n\r\n", State::complete, 304},
        {"HTTP/1.1 404 Not Found\n\n", State::complete, 404},
        {"HTTP/1.1   500 Oops\r\n\r\n", State::complete, 500},
        // Interim answers come before the answer itself.
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 302 Found\r\nLocation: /\r\n\r\n", State::complete, 302},
        {"HTTP/1.1 100 Continue\r\n\r\n", State::incomplete, 0},
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 2", State::incomplete, 0},
        {"HTTP/1.1 101 Switching Protocols\r\n\r\n", State::complete, 101},
    };
    for (const auto& row : table) {
        const auto answer = HTTPAnswer::read(row.received);
        EXPECT_EQ(answer.state, row.state) << row.received;
        EXPECT_EQ(answer.status, row.status) << row.received;
    }
}

TEST(HTTPAnswer, BytesThatAreNotAnHTTPAnswerAreRefusedAtOnce) {
    for (const char* received :
         {"<", "hello", "SSH-2.0-OpenSSH\r\n", "\x16\x03\x01", "HTTP/1.1 2000 OK\r\n\r\n", "HTTP/1.1 20 OK\r\n\r\n",
          "HTTP/x.1 200 OK\r\n\r\n", "HTTP/1.1200 OK\r\n\r\n", "HTTP/1.1 abc\r\n",
          "HTTP/1.1 100 Continue\r\n\r\nnonsense", "HTTP/1.1 014 OK\r\n\r\n", "HTTP/1.1 000\r\n\r\n"}) {
        EXPECT_EQ(HTTPAnswer::read(received).state, State::notHTTP) << received;
    }
}

TEST(HTTPAnswer, AHeadWithoutEndIsRefusedPastItsLimit) {
    std::string head = "HTTP/1.1 200 OK\r\n";
    while (head.size() <= HTTPAnswer::kMaxHeadBytes) head += "X-Filler: " + std::string(100, 'x') + "\r\n";
    EXPECT_EQ(HTTPAnswer::read(head).state, State::tooLarge);
    EXPECT_EQ(HTTPAnswer::read("HTTP/1.1 200 " + std::string(HTTPAnswer::kMaxHeadBytes, 'x')).state, State::tooLarge);
}

}  // namespace
}  // namespace holdenmere
