#pragma once

#include <functional>
#include <string>

#include "core/reachability/probe_result.h"

namespace holdenmere {

// One HTTP probe attempt, behind a seam so that the gate can run against a
// fake probe.
class ReachabilityProbe {
public:
    using Completion = std::function<void(ProbeOutcome)>;

    virtual ~ReachabilityProbe() = default;
    // Starts one attempt. `completion` is called exactly once, possibly on
    // another thread and possibly after the caller stopped waiting for it.
    virtual void probe(const std::string& url, double timeout, Completion completion) = 0;
    // Names the URL that the attempts to come will ask, before the warm-up,
    // so that it prepares what that URL needs and nothing more.
    virtual void willProbe(const std::string& url) { (void)url; }
    // Prepares whatever the first attempt would otherwise pay for.
    virtual void warmUp(double timeout) = 0;
    // One attempt, waited for.
    bool isReachable(const std::string& url, double timeout);
};

// A probe that never touches the network and answers "reachable" at once.
class InertReachabilityProbe final : public ReachabilityProbe {
public:
    void probe(const std::string&, double, Completion completion) override { completion(ProbeOutcome::reachable()); }
    void warmUp(double) override {}
};

}  // namespace holdenmere
