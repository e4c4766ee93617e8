// SystemNetworkChangeListening where the platform has no announcements this
// code knows how to hear: the gate polls.
#include "core/reachability/network_change_listening.h"

namespace holdenmere {

std::unique_ptr<NetworkChangeListening::Subscription> SystemNetworkChangeListening::subscribe(std::function<void()>) {
    return nullptr;
}

}  // namespace holdenmere
