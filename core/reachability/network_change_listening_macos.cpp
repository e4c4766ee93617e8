// SystemNetworkChangeListening on macOS: a dynamic store session watching
// the global IPv4 and IPv6 state and every interface's IPv4, IPv6 and link
// state, delivered on a serial dispatch queue of the subscription's own.
// Plain C APIs, so this is C++, not Objective-C++; with no Objective-C the
// dispatch queue is a C object, retained and released by hand.
#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dispatch/dispatch.h>

#include "core/reachability/network_change_listening.h"

namespace holdenmere {
namespace {

// What the store's callback reaches through its context: the subscriber's
// function. Owned by the subscription, which outlives every call.
struct Listener {
    std::function<void()> changed;
};

void storeChanged(SCDynamicStoreRef, CFArrayRef, void* info) { static_cast<Listener*>(info)->changed(); }

// Nothing to do: dispatch_sync_f on it returns once every callback queued
// before it on the same serial queue has returned.
void drained(void*) {}

class DynamicStoreSubscription final : public NetworkChangeListening::Subscription {
public:
    DynamicStoreSubscription(std::unique_ptr<Listener> listener, SCDynamicStoreRef store, dispatch_queue_t queue)
        : listener_(std::move(listener)), store_(store), queue_(queue) {}

    ~DynamicStoreSubscription() override {
        // No new delivery is queued once the store leaves the queue; one
        // already queued or running finishes before the synchronous no-op.
        SCDynamicStoreSetDispatchQueue(store_, nullptr);
        dispatch_sync_f(queue_, nullptr, drained);
        CFRelease(store_);
        dispatch_release(queue_);
    }

    DynamicStoreSubscription(const DynamicStoreSubscription&) = delete;
    DynamicStoreSubscription& operator=(const DynamicStoreSubscription&) = delete;

private:
    std::unique_ptr<Listener> listener_;
    SCDynamicStoreRef store_;
    dispatch_queue_t queue_;
};

// Sets the keys on the store; false when the store refuses them.
bool watchNetworkState(SCDynamicStoreRef store) {
    const void* keys[] = {CFSTR("State:/Network/Global/IPv4"), CFSTR("State:/Network/Global/IPv6")};
    const void* patterns[] = {CFSTR("State:/Network/Interface/[^/]+/(IPv4|IPv6|Link)")};
    CFArrayRef keyArray = CFArrayCreate(nullptr, keys, 2, &kCFTypeArrayCallBacks);
    CFArrayRef patternArray = CFArrayCreate(nullptr, patterns, 1, &kCFTypeArrayCallBacks);
    const bool watching = keyArray != nullptr && patternArray != nullptr &&
                          SCDynamicStoreSetNotificationKeys(store, keyArray, patternArray);
    if (keyArray != nullptr) CFRelease(keyArray);
    if (patternArray != nullptr) CFRelease(patternArray);
    return watching;
}

}  // namespace

std::unique_ptr<NetworkChangeListening::Subscription> SystemNetworkChangeListening::subscribe(
    std::function<void()> changed) {
    auto listener = std::make_unique<Listener>(Listener{std::move(changed)});
    SCDynamicStoreContext context{0, listener.get(), nullptr, nullptr, nullptr};
    SCDynamicStoreRef store = SCDynamicStoreCreate(nullptr, CFSTR("Holdenmere network gate"), storeChanged, &context);
    if (store == nullptr) return nullptr;
    if (!watchNetworkState(store)) {
        CFRelease(store);
        return nullptr;
    }
    dispatch_queue_t queue = dispatch_queue_create("holdenmere.network-changes", DISPATCH_QUEUE_SERIAL);
    if (queue == nullptr) {
        CFRelease(store);
        return nullptr;
    }
    // Owned from here on, so that every way out releases them.
    auto subscription = std::make_unique<DynamicStoreSubscription>(std::move(listener), store, queue);
    if (!SCDynamicStoreSetDispatchQueue(store, queue)) return nullptr;
    return subscription;
}

}  // namespace holdenmere
