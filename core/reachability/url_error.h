#pragma once

#include <string>
#include <string_view>

namespace holdenmere {

// The error codes of the platform's URL loading (NSURLErrorDomain) that a
// probe attempt can end with, and what libcurl's errors are in those terms,
// so that a failed attempt reads the same whichever library sent it.
struct URLError {
    static constexpr int kUnknown = -1;
    static constexpr int kCancelled = -999;
    static constexpr int kBadURL = -1000;
    static constexpr int kTimedOut = -1001;
    static constexpr int kUnsupportedURL = -1002;
    static constexpr int kCannotFindHost = -1003;
    static constexpr int kCannotConnectToHost = -1004;
    static constexpr int kNetworkConnectionLost = -1005;
    static constexpr int kDNSLookupFailed = -1006;
    static constexpr int kHTTPTooManyRedirects = -1007;
    static constexpr int kNotConnectedToInternet = -1009;
    static constexpr int kBadServerResponse = -1011;
    static constexpr int kCannotDecodeContentData = -1016;
    static constexpr int kCannotParseResponse = -1017;
    static constexpr int kDataLengthExceedsMaximum = -1103;
    static constexpr int kSecureConnectionFailed = -1200;
    static constexpr int kServerCertificateUntrusted = -1202;

    // The code for a libcurl error (a CURLcode); `osErrno` is the socket
    // error beneath it (CURLINFO_OS_ERRNO), 0 when none. An error with no
    // counterpart is kUnknown.
    static int fromCurl(int curlCode, long osErrno);

    // The code for a connection that could not be made, from the socket's
    // error: a refusal, or a network that is not there.
    static int fromConnectErrno(long osErrno);

    // The failure text of an error: the probe's own words for the codes it
    // names ("timed out", "cannot connect to host", ...), otherwise the
    // error's description followed by " (URLError {code})".
    static std::string describe(int code, std::string_view description);
};

}  // namespace holdenmere
