#include "core/reachability/url_session_probe.h"

#include <curl/curl.h>

#include <atomic>
#include <cmath>
#include <mutex>

#include "core/reachability/url_error.h"

namespace holdenmere {

// Easy handles kept for reuse, all made for one timeout value; a new timeout
// drops them. A handle is never shared: an attempt that the gate gave up on
// may still be running when the next one starts, so each takes its own.
struct URLSessionProbe::HandleCache {
    std::mutex mutex;
    double timeout = -1;
    std::vector<CURL*> idle;

    ~HandleCache() {
        for (CURL* handle : idle) curl_easy_cleanup(handle);
    }

    CURL* take(double forTimeout) {
        std::lock_guard lock(mutex);
        if (forTimeout != timeout) {
            for (CURL* handle : idle) curl_easy_cleanup(handle);
            idle.clear();
            timeout = forTimeout;
        }
        if (!idle.empty()) {
            CURL* handle = idle.back();
            idle.pop_back();
            return handle;
        }
        return curl_easy_init();
    }

    void give(CURL* handle, double forTimeout) {
        std::lock_guard lock(mutex);
        if (forTimeout == timeout && idle.size() < 2) {
            idle.push_back(handle);
        } else {
            curl_easy_cleanup(handle);
        }
    }
};

struct URLSessionProbe::Worker {
    std::thread thread;
    std::atomic<bool> finished{false};
};

namespace {

void initialiseCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::size_t discardBody(char*, std::size_t size, std::size_t count, void*) { return size * count; }

// Whether `url` is something libcurl can send a request to.
bool isWellFormed(const std::string& url) {
    CURLU* parsed = curl_url();
    if (parsed == nullptr) return false;
    bool wellFormed = curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    curl_url_cleanup(parsed);
    return wellFormed;
}

// Whether `url` is an http or https URL.
bool isHTTP(const std::string& url) {
    CURLU* parsed = curl_url();
    if (parsed == nullptr) return false;
    char* scheme = nullptr;
    bool http = false;
    if (curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
        curl_url_get(parsed, CURLUPART_SCHEME, &scheme, 0) == CURLUE_OK && scheme != nullptr) {
        const std::string_view name(scheme);
        http = name == "http" || name == "https";
    }
    curl_free(scheme);
    curl_url_cleanup(parsed);
    return http;
}

}  // namespace

URLSessionProbe::URLSessionProbe() : handles_(std::make_unique<HandleCache>()) { initialiseCurlOnce(); }

URLSessionProbe::~URLSessionProbe() {
    std::lock_guard lock(workersMutex_);
    for (auto& worker : workers_) {
        if (worker->thread.joinable()) worker->thread.join();
    }
}

void URLSessionProbe::warmUp(double timeout) { handles_->give(handles_->take(timeout), timeout); }

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
    if (url.empty() || !isWellFormed(url)) return ProbeOutcome::failure("malformed probe URL: " + url);

    CURL* handle = handles_->take(timeout);
    if (handle == nullptr) return ProbeOutcome::failure("could not create a request");
    curl_easy_reset(handle);

    const long milliseconds = std::max(1L, std::lround(timeout * 1000));
    curl_slist* headers = nullptr;
    headers = curl_slist_append(headers, "Cache-Control: no-cache, no-store, max-age=0");
    headers = curl_slist_append(headers, "Pragma: no-cache");
    char errorText[CURL_ERROR_SIZE] = {};

    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, milliseconds);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, milliseconds);
    // Each attempt must prove that the network answers now: no connection,
    // and no name lookup, carried over from an earlier attempt.
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(handle, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, discardBody);
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "Holdenmere");
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText);
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
#else
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif

    const CURLcode code = curl_easy_perform(handle);
    long status = 0;
    long osErrno = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &osErrno);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
    curl_slist_free_all(headers);
    handles_->give(handle, timeout);

    if (code != CURLE_OK) {
        // libcurl refuses an answer without a status line (HTTP/0.9) to an
        // http(s) URL as an "unsupported protocol"; to the probe it is what
        // any other reply that is not HTTP is: an answer it cannot parse.
        const CURLcode reported = code == CURLE_UNSUPPORTED_PROTOCOL && isHTTP(url) ? CURLE_WEIRD_SERVER_REPLY : code;
        return ProbeOutcome::failure(describe(reported, osErrno, errorText));
    }
    if (status == 0) return ProbeOutcome::failure("non-HTTP response");
    if (status >= 200 && status <= 399) return ProbeOutcome::reachable();
    return ProbeOutcome::failure("HTTP " + std::to_string(status));
}

std::string URLSessionProbe::describe(int curlCode, long osErrno, std::string_view detail) {
    const std::string_view description =
        detail.empty() ? std::string_view(curl_easy_strerror(static_cast<CURLcode>(curlCode))) : detail;
    return URLError::describe(URLError::fromCurl(curlCode, osErrno), description);
}

}  // namespace holdenmere
