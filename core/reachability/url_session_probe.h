#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/reachability/reachability_probe.h"

namespace holdenmere {

// The real probe, on libcurl: one unauthenticated GET per attempt that
// neither reuses a connection nor accepts a cached answer, with connect and
// total time limits equal to the attempt's timeout, failing at once when
// there is no route rather than waiting for one.
class URLSessionProbe final : public ReachabilityProbe {
public:
    URLSessionProbe();
    // Waits for attempts still running (each ends within its own timeout).
    ~URLSessionProbe() override;
    URLSessionProbe(const URLSessionProbe&) = delete;
    URLSessionProbe& operator=(const URLSessionProbe&) = delete;

    void probe(const std::string& url, double timeout, Completion completion) override;
    void warmUp(double timeout) override;

    // One attempt on the calling thread.
    ProbeOutcome probeNow(const std::string& url, double timeout);

    // The failure text of a libcurl error, as the URL-loading error it is
    // (see URLError); `osErrno` is the socket error beneath it
    // (CURLINFO_OS_ERRNO), 0 when none, and `detail` libcurl's message about
    // this transfer (its error buffer), which describes the error when given
    // instead of the code's general text.
    static std::string describe(int curlCode, long osErrno, std::string_view detail = {});

private:
    struct HandleCache;
    struct Worker;

    std::unique_ptr<HandleCache> handles_;
    std::mutex workersMutex_;
    std::vector<std::unique_ptr<Worker>> workers_;
};

}  // namespace holdenmere
