#include "core/reachability/reachability_probe.h"

#include <memory>

#include "core/support/clock.h"

namespace holdenmere {

bool ReachabilityProbe::isReachable(const std::string& url, double timeout) {
    struct Answer {
        Signal arrived;
        bool reachable = false;
    };
    auto answer = std::make_shared<Answer>();
    probe(url, timeout, [answer](ProbeOutcome outcome) {
        answer->reachable = outcome.isReachable;
        answer->arrived.raise();
    });
    answer->arrived.wait();
    return answer->reachable;
}

}  // namespace holdenmere
