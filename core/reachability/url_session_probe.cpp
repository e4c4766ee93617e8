#include "core/reachability/url_session_probe.h"

#include <atomic>
#include <cmath>
#include <mutex>

#include "core/reachability/libcurl.h"
#include "core/reachability/url_error.h"

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

// Whether `url` is something libcurl can send a request to.
bool isWellFormed(const Libcurl& curl, const std::string& url) {
    CURLU* parsed = curl.urlNew();
    if (parsed == nullptr) return false;
    bool wellFormed = curl.urlSet(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    curl.urlCleanup(parsed);
    return wellFormed;
}

// Whether `url` is an http or https URL.
bool isHTTP(const Libcurl& curl, const std::string& url) {
    CURLU* parsed = curl.urlNew();
    if (parsed == nullptr) return false;
    char* scheme = nullptr;
    bool http = false;
    if (curl.urlSet(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
        curl.urlGet(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK && scheme != nullptr) {
        const std::string_view name(scheme);
        http = name == "http" || name == "https";
    }
    curl.freeText(scheme);
    curl.urlCleanup(parsed);
    return http;
}

}  // namespace

URLSessionProbe::URLSessionProbe() {
    if (const Libcurl* curl = Libcurl::shared()) handles_ = std::make_unique<HandleCache>(*curl);
}

URLSessionProbe::~URLSessionProbe() {
    std::lock_guard lock(workersMutex_);
    for (auto& worker : workers_) {
        if (worker->thread.joinable()) worker->thread.join();
    }
}

void URLSessionProbe::warmUp(double timeout) {
    if (handles_ != nullptr) handles_->give(handles_->take(timeout), timeout);
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
    if (handles_ == nullptr) return ProbeOutcome::failure("the network library could not be loaded: " + Libcurl::loadError());
    const Libcurl& curl = handles_->curl;
    if (url.empty() || !isWellFormed(curl, url)) return ProbeOutcome::failure("malformed probe URL: " + url);

    CURL* handle = handles_->take(timeout);
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
    handles_->give(handle, timeout);

    if (code != CURLE_OK) {
        // libcurl refuses an answer without a status line (HTTP/0.9) to an
        // http(s) URL as an "unsupported protocol"; to the probe it is what
        // any other reply that is not HTTP is: an answer it cannot parse.
        const CURLcode reported = code == CURLE_UNSUPPORTED_PROTOCOL && isHTTP(curl, url) ? CURLE_WEIRD_SERVER_REPLY : code;
        return ProbeOutcome::failure(describe(reported, osErrno, errorText));
    }
    if (status == 0) return ProbeOutcome::failure("non-HTTP response");
    if (status >= 200 && status <= 399) return ProbeOutcome::reachable();
    return ProbeOutcome::failure("HTTP " + std::to_string(status));
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
