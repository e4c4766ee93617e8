#include "core/reachability/network_change_listening.h"

namespace holdenmere {

InertNetworkChangeListening& InertNetworkChangeListening::shared() {
    static InertNetworkChangeListening listening;
    return listening;
}

}  // namespace holdenmere
