// One probe attempt on loopback, against the same request made by the curl
// command-line tool: the probe must cost no more than a tool start would.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include "core/reachability/url_session_probe.h"
#include "core/support/child_process.h"
#include "tests/support/loopback_http_server.h"

namespace {

using holdenmere::testing::LoopbackHTTPServer;

void BM_ProbeAttemptOnLoopback(benchmark::State& state) {
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 204, 600);
    holdenmere::URLSessionProbe probe;
    probe.warmUp(1.5);
    for (auto _ : state) {
        auto outcome = probe.probeNow(server.url(), 1.5);
        if (!outcome.isReachable) state.SkipWithError(outcome.failureText.c_str());
    }
}
BENCHMARK(BM_ProbeAttemptOnLoopback)->Unit(benchmark::kMicrosecond);

void BM_CurlToolOnLoopback(benchmark::State& state) {
    const char* tool = "/usr/bin/curl";
    if (::access(tool, X_OK) != 0) {
        state.SkipWithError("the curl tool is not installed");
        return;
    }
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 204, 600);
    holdenmere::ChildProcessRequest request;
    request.executable = tool;
    request.arguments = {"-s", "-o", "/dev/null", "-H", "Cache-Control: no-cache", "--max-time", "1.5", server.url()};
    for (auto _ : state) {
        auto result = holdenmere::runChildProcess(request);
        if (!result.succeeded()) state.SkipWithError("curl failed");
    }
}
BENCHMARK(BM_CurlToolOnLoopback)->Unit(benchmark::kMicrosecond);

}  // namespace
