#include "core/reachability/url_session_probe.h"

#include <atomic>
#include <cmath>
#include <mutex>

#include "core/reachability/http_answer.h"
#include "core/reachability/http_url.h"
#include "core/reachability/libcurl.h"
#include "core/reachability/plain_http_get.h"
#include "core/reachability/url_error.h"
#include "core/support/environment.h"

namespace holdenmere {

// Easy handles kept for reuse, all made for one timeout value; a new timeout
// drops them. A handle is never shared: an attempt that the gate gave up on
// may still be running when the next one starts, so each takes its own.
struct URLSessionProbe::HandleCache {
    explicit HandleCache(const Libcurl& library) : curl(library) {}

    const Libcurl& curl;
    std::mutex mutex;
    double timeout = -1;
    std::vector<CURL*> idle;

    ~HandleCache() {
        for (CURL* handle : idle) curl.easyCleanup(handle);
    }

    CURL* take(double forTimeout) {
        std::lock_guard lock(mutex);
        if (forTimeout != timeout) {
            for (CURL* handle : idle) curl.easyCleanup(handle);
            idle.clear();
            timeout = forTimeout;
        }
        if (!idle.empty()) {
            CURL* handle = idle.back();
            idle.pop_back();
            return handle;
        }
        return curl.easyInit();
    }

    void give(CURL* handle, double forTimeout) {
        std::lock_guard lock(mutex);
        if (forTimeout == timeout && idle.size() < 2) {
            idle.push_back(handle);
        } else {
            curl.easyCleanup(handle);
        }
    }
};

struct URLSessionProbe::Worker {
    std::thread thread;
    std::atomic<bool> finished{false};
};

namespace {

std::size_t discardBody(char*, std::size_t size, std::size_t count, void*) { return size * count; }

// Whether libcurl can send a request to `url`.
bool isWellFormed(const Libcurl& curl, const std::string& url) {
    CURLU* parsed = curl.urlNew();
    if (parsed == nullptr) return false;
    bool wellFormed = curl.urlSet(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    curl.urlCleanup(parsed);
    return wellFormed;
}

// Whether the environment sends http requests through a proxy, as libcurl
// reads it: "http_proxy" (lower case only, as a CGI script's environment
// may carry a request's "Proxy" header as HTTP_PROXY), then "all_proxy" or
// "ALL_PROXY". Where one is set, libcurl goes through it, and applies
// "no_proxy".
bool environmentNamesHTTPProxy() {
    return environmentValue("http_proxy") || environmentValue("all_proxy") || environmentValue("ALL_PROXY");
}

}  // namespace

URLSessionProbe::URLSessionProbe(Transport transport) : transport_(transport) {}

URLSessionProbe::~URLSessionProbe() {
    std::lock_guard lock(workersMutex_);
    for (auto& worker : workers_) {
        if (worker->thread.joinable()) worker->thread.join();
    }
}

URLSessionProbe::HandleCache* URLSessionProbe::handles() {
    std::call_once(handlesOnce_, [this] {
        if (const Libcurl* curl = Libcurl::shared()) handles_ = std::make_unique<HandleCache>(*curl);
    });
    return handles_.get();
}

bool URLSessionProbe::usesLibrary(const std::string& url) const {
    if (transport_ == Transport::library) return true;
    const auto parsed = HTTPURL::parse(url);
    if (!parsed || !(parsed->isHTTP() || parsed->isHTTPS())) return false;  // refused before any transport
    // Names outside ASCII need IDNA, and credentials in the URL are sent
    // as libcurl sends them.
    return parsed->isHTTPS() || !parsed->hostIsASCII || parsed->hasUserInfo || environmentNamesHTTPProxy();
}

void URLSessionProbe::willProbe(const std::string& url) {
    std::lock_guard lock(expectedMutex_);
    expectedURL_ = url;
}

void URLSessionProbe::warmUp(double timeout) {
    std::string expected;
    {
        std::lock_guard lock(expectedMutex_);
        expected = expectedURL_;
    }
    // Nothing to prepare for a plain connection; libcurl is loaded, and a
    // handle made, only for a URL that will need them (or for any URL when
    // none was named).
    if (!expected.empty() && !usesLibrary(expected)) return;
    if (HandleCache* cache = handles()) cache->give(cache->take(timeout), timeout);
}

void URLSessionProbe::probe(const std::string& url, double timeout, Completion completion) {
    std::lock_guard lock(workersMutex_);
    // Reap attempts that have ended.
    std::erase_if(workers_, [](const std::unique_ptr<Worker>& worker) {
        if (!worker->finished.load()) return false;
        worker->thread.join();
        return true;
    });
    auto worker = std::make_unique<Worker>();
    Worker* raw = worker.get();
    raw->thread = std::thread([this, raw, url, timeout, completion = std::move(completion)] {
        completion(probeNow(url, timeout));
        raw->finished = true;
    });
    workers_.push_back(std::move(worker));
}

ProbeOutcome URLSessionProbe::probeNow(const std::string& url, double timeout) {
    const auto parsed = HTTPURL::parse(url);
    if (!parsed) return ProbeOutcome::failure("malformed probe URL: " + url);
    if (!parsed->isHTTP() && !parsed->isHTTPS()) {
        return ProbeOutcome::failure(URLError::describe(URLError::kUnsupportedURL, "unsupported URL"));
    }
    if (usesLibrary(url)) return probeWithLibrary(url, timeout);
    return PlainHTTPGet::send(*parsed, timeout);
}

ProbeOutcome URLSessionProbe::probeWithLibrary(const std::string& url, double timeout) {
    HandleCache* cache = handles();
    if (cache == nullptr) return ProbeOutcome::failure("the network library could not be loaded: " + Libcurl::loadError());
    const Libcurl& curl = cache->curl;
    if (!isWellFormed(curl, url)) return ProbeOutcome::failure("malformed probe URL: " + url);

    CURL* handle = cache->take(timeout);
    if (handle == nullptr) return ProbeOutcome::failure("could not create a request");
    curl.easyReset(handle);

    const long milliseconds = std::max(1L, std::lround(timeout * 1000));
    curl_slist* headers = nullptr;
    headers = curl.slistAppend(headers, "Cache-Control: no-cache, no-store, max-age=0");
    headers = curl.slistAppend(headers, "Pragma: no-cache");
    char errorText[CURL_ERROR_SIZE] = {};

    curl.easySetopt(handle, CURLOPT_URL, url.c_str());
    curl.easySetopt(handle, CURLOPT_HTTPGET, 1L);
    curl.easySetopt(handle, CURLOPT_HTTPHEADER, headers);
    curl.easySetopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl.easySetopt(handle, CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    curl.easySetopt(handle, CURLOPT_TIMEOUT_MS, milliseconds);
    // Each attempt must prove that the network answers now: no connection,
    // and no name lookup, carried over from an earlier attempt.
    curl.easySetopt(handle, CURLOPT_FRESH_CONNECT, 1L);
    curl.easySetopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl.easySetopt(handle, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
    curl.easySetopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl.easySetopt(handle, CURLOPT_WRITEFUNCTION, discardBody);
    curl.easySetopt(handle, CURLOPT_USERAGENT, "Holdenmere");
    curl.easySetopt(handle, CURLOPT_ERRORBUFFER, errorText);
#if LIBCURL_VERSION_NUM >= 0x075500
    curl.easySetopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    curl.easySetopt(handle, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif

    const CURLcode code = curl.easyPerform(handle);
    long status = 0;
    long osErrno = 0;
    curl.easyGetinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    curl.easyGetinfo(handle, CURLINFO_OS_ERRNO, &osErrno);
    curl.easySetopt(handle, CURLOPT_HTTPHEADER, nullptr);
    curl.easySetopt(handle, CURLOPT_ERRORBUFFER, nullptr);
    curl.slistFreeAll(headers);
    cache->give(handle, timeout);

    if (code != CURLE_OK) {
        // libcurl refuses an answer without a status line (HTTP/0.9), or
        // with a status below 100, to an http(s) URL as an "unsupported
        // protocol"; to the probe it is what any other reply that is not
        // HTTP is: an answer it cannot parse.
        const CURLcode reported = code == CURLE_UNSUPPORTED_PROTOCOL ? CURLE_WEIRD_SERVER_REPLY : code;
        return ProbeOutcome::failure(describe(reported, osErrno, errorText));
    }
    // No status at all: the answer was no HTTP response.
    if (status == 0) return ProbeOutcome::failure("non-HTTP response");
    return HTTPAnswer::probeOutcome(status);
}

std::string URLSessionProbe::describe(int curlCode, long osErrno, std::string_view detail) {
    std::string generalText;
    if (detail.empty()) {
        const Libcurl* curl = Libcurl::shared();
        generalText = curl != nullptr ? curl->easyStrerror(static_cast<CURLcode>(curlCode))
                                      : "libcurl error " + std::to_string(curlCode);
    }
    const std::string_view description = detail.empty() ? std::string_view(generalText) : detail;
    return URLError::describe(URLError::fromCurl(curlCode, osErrno), description);
}

}  // namespace holdenmere
