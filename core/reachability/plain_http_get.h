#pragma once

#include <string>

#include "core/reachability/http_url.h"
#include "core/reachability/probe_result.h"

namespace holdenmere {

// One probe attempt over a plain TCP connection of its own, for http URLs:
// a GET that asks for no cached answer, read up to the head of the answer
// and no further, all within `timeout` seconds from the call (the name
// lookup, the connection, sending and the answer together).
//
// It needs nothing beyond the C library, so an attempt at an http URL costs
// no more than the socket: the login pass loads no TLS or HTTP library for
// it. Its failures read as those of the platform's URL loading, through
// URLError, the same as the library-backed attempt's.
struct PlainHTTPGet {
    static ProbeOutcome send(const HTTPURL& url, double timeout);

    // The request as it is sent.
    static std::string request(const HTTPURL& url);
};

}  // namespace holdenmere
