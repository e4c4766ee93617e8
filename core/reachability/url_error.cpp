#include "core/reachability/url_error.h"

#include <curl/curl.h>

#include <cerrno>

namespace holdenmere {

int URLError::fromCurl(int curlCode, long osErrno) {
    switch (static_cast<CURLcode>(curlCode)) {
        case CURLE_OPERATION_TIMEDOUT:
            return kTimedOut;
        case CURLE_COULDNT_RESOLVE_HOST:
            return kCannotFindHost;
        case CURLE_COULDNT_RESOLVE_PROXY:
            return kDNSLookupFailed;
        case CURLE_COULDNT_CONNECT:
            // libcurl says only that the connection failed; the socket error
            // tells a refusal from a network that is not there.
            return fromConnectErrno(osErrno);
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_HTTP2_STREAM:
            return kNetworkConnectionLost;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_USE_SSL_FAILED:
            return kSecureConnectionFailed;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return kServerCertificateUntrusted;
        case CURLE_ABORTED_BY_CALLBACK:
            return kCancelled;
        case CURLE_URL_MALFORMAT:
            return kBadURL;
        case CURLE_UNSUPPORTED_PROTOCOL:
            return kUnsupportedURL;
        case CURLE_WEIRD_SERVER_REPLY:
            return kCannotParseResponse;
        case CURLE_HTTP2:
        case CURLE_HTTP3:
            return kBadServerResponse;
        case CURLE_TOO_MANY_REDIRECTS:
            return kHTTPTooManyRedirects;
        case CURLE_BAD_CONTENT_ENCODING:
            return kCannotDecodeContentData;
        case CURLE_FILESIZE_EXCEEDED:
            return kDataLengthExceedsMaximum;
        default:
            return kUnknown;
    }
}

int URLError::fromConnectErrno(long osErrno) {
    switch (osErrno) {
        case ENETUNREACH:
        case ENETDOWN:
        case EHOSTUNREACH:
        case EHOSTDOWN:
        case EADDRNOTAVAIL:
            return kNotConnectedToInternet;
        case ETIMEDOUT:
            return kTimedOut;
        default:
            return kCannotConnectToHost;
    }
}

std::string URLError::describe(int code, std::string_view description) {
    switch (code) {
        case kTimedOut:
            return "timed out";
        case kNetworkConnectionLost:
            return "connection lost";
        case kNotConnectedToInternet:
            return "not connected to internet";
        case kDNSLookupFailed:
            return "DNS lookup failed";
        case kSecureConnectionFailed:
            return "TLS handshake failed";
        case kCancelled:
            return "cancelled";
        case kCannotFindHost:
            return "cannot find host (DNS)";
        case kCannotConnectToHost:
            return "cannot connect to host";
        default:
            break;
    }
    std::string text = description.empty() ? std::string("unknown") : std::string(description);
    return text + " (URLError " + std::to_string(code) + ")";
}

}  // namespace holdenmere
