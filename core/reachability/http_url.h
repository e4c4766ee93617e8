#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace holdenmere {

// An absolute URL read as the probe needs it: the scheme, where to connect
// and what to ask for. Only the generic "scheme://authority/path?query"
// form is read; anything a request could not be sent to is not a URL here.
struct HTTPURL {
    std::string scheme;     // lower case
    std::string host;       // as written, without the brackets of an IPv6 literal
    bool hostIsIPv6 = false;
    int port = 0;           // the scheme's default when the URL gives none
    bool portGiven = false;
    std::string target;     // path and query, "/" when the URL has no path; never the fragment
    bool hasUserInfo = false;
    bool hostIsASCII = true;

    // Null when `text` is not an absolute URL of that form: no scheme, no
    // "//", an empty or malformed host, a port that is not a number up to
    // 65535, or a space, control character or stray "%" anywhere.
    static std::optional<HTTPURL> parse(std::string_view text);

    bool isHTTP() const { return scheme == "http"; }
    bool isHTTPS() const { return scheme == "https"; }

    // The Host header's value: the host, with the port when the URL names one.
    std::string hostHeader() const;
};

}  // namespace holdenmere
