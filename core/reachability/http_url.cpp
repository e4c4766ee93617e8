#include "core/reachability/http_url.h"

#include "core/support/text.h"

namespace holdenmere {
namespace {

using text::asciiLower;
using text::isAsciiDigit;
using text::isAsciiLetter;
using text::isHexDigit;

bool isSpaceOrControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7f;
}

// Every "%" starts an escape of two hex digits.
bool escapesAreWhole(std::string_view text) {
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '%') continue;
        if (index + 2 >= text.size() || !isHexDigit(text[index + 1]) || !isHexDigit(text[index + 2])) return false;
    }
    return true;
}

// A registered name or an IPv4 address: unreserved characters, sub-delims
// and escapes (RFC 3986, 3.2.2). Bytes above ASCII are an international
// name, left for a resolver that knows IDNA.
bool isRegisteredName(std::string_view host, bool& ascii) {
    ascii = true;
    for (char c : host) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            continue;
        }
        if (isAsciiLetter(c) || isAsciiDigit(c)) continue;
        switch (c) {
            case '-': case '.': case '_': case '~': case '%':
            case '!': case '$': case '&': case '\'': case '(': case ')':
            case '*': case '+': case ',': case ';': case '=':
                continue;
            default:
                return false;
        }
    }
    return true;
}

// The inside of "[...]": hex digits, colons and dots, with an optional zone
// ("%25" and a name) at the end.
bool isIPv6Literal(std::string_view literal) {
    const std::size_t zone = literal.find('%');
    const std::string_view address = literal.substr(0, zone);
    if (address.find(':') == std::string_view::npos) return false;
    for (char c : address) {
        if (!(isHexDigit(c) || c == ':' || c == '.')) return false;
    }
    if (zone == std::string_view::npos) return true;
    const std::string_view name = literal.substr(zone);
    return name.size() > 3 && name.starts_with("%25");
}

// scheme = ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ), then "://": the
// scheme in lower case, and `rest` set to what follows.
bool readScheme(std::string_view text, HTTPURL& url, std::string_view& rest) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || !isAsciiLetter(text.front())) return false;
    for (char c : text.substr(0, colon)) {
        if (!(isAsciiLetter(c) || isAsciiDigit(c) || c == '+' || c == '-' || c == '.')) return false;
        url.scheme.push_back(asciiLower(c));
    }
    rest = text.substr(colon + 1);
    if (!rest.starts_with("//")) return false;
    rest.remove_prefix(2);
    return true;
}

// The host of the authority (without its user info): a bracketed IPv6
// literal or a registered name, and `port` set to the digits after it.
bool readHost(std::string_view authority, HTTPURL& url, std::string_view& port) {
    if (authority.starts_with("[")) {
        const std::size_t close = authority.find(']');
        if (close == std::string_view::npos) return false;
        const std::string_view literal = authority.substr(1, close - 1);
        if (!isIPv6Literal(literal)) return false;
        url.host = std::string(literal);
        url.hostIsIPv6 = true;
        const std::string_view after = authority.substr(close + 1);
        if (!after.empty()) {
            if (after.front() != ':') return false;
            port = after.substr(1);
            url.portGiven = true;
        }
        return true;
    }
    const std::size_t portColon = authority.find(':');
    const std::string_view host = authority.substr(0, portColon);
    if (host.empty() || !isRegisteredName(host, url.hostIsASCII)) return false;
    url.host = std::string(host);
    if (portColon != std::string_view::npos) {
        port = authority.substr(portColon + 1);
        url.portGiven = true;
    }
    return true;
}

// The port as written, or the scheme's own when none is.
bool readPort(std::string_view port, HTTPURL& url) {
    if (port.empty()) {
        // "http://host:/" names no port: the scheme's own.
        url.portGiven = false;
        url.port = url.scheme == "https" ? 443 : url.scheme == "http" ? 80 : 0;
        return true;
    }
    if (port.size() > 5) return false;
    int value = 0;
    for (char c : port) {
        if (!isAsciiDigit(c)) return false;
        value = value * 10 + (c - '0');
    }
    if (value > 65535) return false;
    url.port = value;
    return true;
}

}  // namespace

std::optional<HTTPURL> HTTPURL::parse(std::string_view text) {
    for (char c : text) {
        if (isSpaceOrControl(c)) return std::nullopt;
    }
    if (!escapesAreWhole(text)) return std::nullopt;

    HTTPURL url;
    std::string_view rest;
    if (!readScheme(text, url, rest)) return std::nullopt;

    const std::size_t authorityEnd = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, authorityEnd);
    std::string_view tail = authorityEnd == std::string_view::npos ? std::string_view() : rest.substr(authorityEnd);
    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
        url.hasUserInfo = true;
        authority.remove_prefix(at + 1);
    }
    std::string_view port;
    if (!readHost(authority, url, port) || !readPort(port, url)) return std::nullopt;

    tail = tail.substr(0, tail.find('#'));
    url.target = tail.empty() || tail.front() == '?' ? "/" + std::string(tail) : std::string(tail);
    return url;
}

std::string HTTPURL::hostHeader() const {
    std::string header = hostIsIPv6 ? "[" + host + "]" : host;
    if (portGiven) header += ":" + std::to_string(port);
    return header;
}

}  // namespace holdenmere
