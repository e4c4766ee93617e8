#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/reachability/reachability_probe.h"

namespace holdenmere {

// The real probe: one unauthenticated GET per attempt that neither reuses a
// connection nor accepts a cached answer, with connect and total time limits
// equal to the attempt's timeout, failing at once when there is no route
// rather than waiting for one.
//
// An http URL is asked over a plain connection of the probe's own
// (PlainHTTPGet); https, and http through a proxy that the environment
// names, go through libcurl, which is loaded only when the first such
// attempt (or a warm-up for such a URL) needs it.
class URLSessionProbe final : public ReachabilityProbe {
public:
    enum class Transport {
        automatic,  // as above
        library,    // libcurl for every URL
    };

    explicit URLSessionProbe(Transport transport = Transport::automatic);
    // Waits for attempts still running (each ends within its own timeout).
    ~URLSessionProbe() override;
    URLSessionProbe(const URLSessionProbe&) = delete;
    URLSessionProbe& operator=(const URLSessionProbe&) = delete;

    void probe(const std::string& url, double timeout, Completion completion) override;
    void willProbe(const std::string& url) override;
    void warmUp(double timeout) override;

    // One attempt on the calling thread.
    ProbeOutcome probeNow(const std::string& url, double timeout);

    // Whether an attempt at `url` goes through libcurl, with the proxy
    // settings of this process's environment.
    bool usesLibrary(const std::string& url) const;

    // The failure text of a libcurl error, as the URL-loading error it is
    // (see URLError); `osErrno` is the socket error beneath it
    // (CURLINFO_OS_ERRNO), 0 when none, and `detail` libcurl's message about
    // this transfer (its error buffer), which describes the error when given
    // instead of the code's general text.
    static std::string describe(int curlCode, long osErrno, std::string_view detail = {});

private:
    struct HandleCache;
    struct Worker;

    // The handle cache over libcurl, loading it on first use; null when it
    // cannot be loaded.
    HandleCache* handles();
    ProbeOutcome probeWithLibrary(const std::string& url, double timeout);

    Transport transport_;
    std::once_flag handlesOnce_;
    std::unique_ptr<HandleCache> handles_;
    std::mutex expectedMutex_;
    std::string expectedURL_;
    std::mutex workersMutex_;
    std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace holdenmere
