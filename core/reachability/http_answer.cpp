#include "core/reachability/http_answer.h"

#include <string>

#include "core/reachability/url_error.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

using text::isAsciiDigit;

constexpr std::string_view kProtocol = "HTTP/";

// Whether `head` (a whole status line, without its line end) reads
// "HTTP/1.1 204 No Content", and its status when it does.
bool readStatusLine(std::string_view line, int& status) {
    if (!line.starts_with(kProtocol)) return false;
    std::size_t index = kProtocol.size();
    auto digits = [&] {
        const std::size_t start = index;
        while (index < line.size() && isAsciiDigit(line[index])) ++index;
        return index > start;
    };
    if (!digits() || index >= line.size() || line[index] != '.') return false;
    ++index;
    if (!digits() || index >= line.size() || line[index] != ' ') return false;
    while (index < line.size() && line[index] == ' ') ++index;
    if (index + 3 > line.size()) return false;
    status = 0;
    for (std::size_t end = index + 3; index < end; ++index) {
        if (!isAsciiDigit(line[index])) return false;
        status = status * 10 + (line[index] - '0');
    }
    // "HTTP/1.1 014" has three digits but no status.
    return HTTPAnswer::isStatus(status) && (index == line.size() || line[index] == ' ');
}

// Where the header block that begins `text` ends (after its empty line),
// or npos while it has not arrived whole. Lines end in CRLF or a bare LF.
std::size_t headEnd(std::string_view text) {
    std::size_t lineStart = 0;
    for (;;) {
        const std::size_t newline = text.find('\n', lineStart);
        if (newline == std::string_view::npos) return std::string_view::npos;
        const std::size_t length = newline - lineStart;
        if (lineStart > 0 && (length == 0 || (length == 1 && text[lineStart] == '\r'))) return newline + 1;
        lineStart = newline + 1;
    }
}

ProbeOutcome cannotParse() {
    return ProbeOutcome::failure(URLError::describe(URLError::kCannotParseResponse, "cannot parse response"));
}

}  // namespace

ProbeOutcome HTTPAnswer::probeOutcome() const {
    return state == State::complete ? probeOutcome(status) : cannotParse();
}

ProbeOutcome HTTPAnswer::probeOutcome(long status) {
    if (!isStatus(status)) return cannotParse();
    if (status >= 200 && status <= 399) return ProbeOutcome::reachable();
    return ProbeOutcome::failure("HTTP " + std::to_string(status));
}

HTTPAnswer HTTPAnswer::read(std::string_view received) {
    HTTPAnswer answer;
    std::size_t consumed = 0;
    for (;;) {
        const std::string_view rest = received.substr(consumed);
        // Refuse what cannot become an answer as soon as its first bytes are in.
        const std::size_t known = rest.size() < kProtocol.size() ? rest.size() : kProtocol.size();
        if (rest.substr(0, known) != kProtocol.substr(0, known)) {
            answer.state = State::notHTTP;
            return answer;
        }
        const std::size_t lineEnd = rest.find('\n');
        if (lineEnd == std::string_view::npos) {
            answer.state = received.size() > kMaxHeadBytes ? State::tooLarge : State::incomplete;
            return answer;
        }
        std::string_view line = rest.substr(0, lineEnd);
        if (line.ends_with('\r')) line.remove_suffix(1);
        int status = 0;
        if (!readStatusLine(line, status)) {
            answer.state = State::notHTTP;
            return answer;
        }
        const std::size_t end = headEnd(rest);
        if (end == std::string_view::npos) {
            answer.state = received.size() > kMaxHeadBytes ? State::tooLarge : State::incomplete;
            return answer;
        }
        if (consumed + end > kMaxHeadBytes) {
            answer.state = State::tooLarge;
            return answer;
        }
        // "100 Continue" and the like come before the answer itself.
        if (status >= 100 && status <= 199 && status != 101) {
            consumed += end;
            continue;
        }
        answer.state = State::complete;
        answer.status = status;
        return answer;
    }
}

}  // namespace holdenmere
