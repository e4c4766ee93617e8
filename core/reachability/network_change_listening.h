#pragma once

#include <functional>
#include <memory>

namespace holdenmere {

// The system's announcements that the network changed: an interface came up
// or went down, an address or a route was added or removed. They say only
// "look again", never whether the network now answers; the gate uses them to
// send its next attempt at once instead of at the end of its pause. An
// operation set, so that the gate can run against a fake announcer.
class NetworkChangeListening {
public:
    // Announcements are delivered while it lives. Destroying it stops them:
    // it waits for a call in progress to return (so it must not be destroyed
    // from inside the callback) and no call starts afterwards.
    class Subscription {
    public:
        virtual ~Subscription() = default;
    };

    virtual ~NetworkChangeListening() = default;

    // Starts listening. `changed` is called on another thread, once for a
    // batch of announcements that arrived together, until the subscription
    // is destroyed; it should return quickly. nullptr when the system's
    // announcements cannot be had here: the caller polls as it would without.
    [[nodiscard]] virtual std::unique_ptr<Subscription> subscribe(std::function<void()> changed) = 0;
};

// Hears nothing: every subscription is nullptr.
class InertNetworkChangeListening final : public NetworkChangeListening {
public:
    std::unique_ptr<Subscription> subscribe(std::function<void()>) override { return nullptr; }

    // One for callers that listen to nothing; it holds no state.
    static InertNetworkChangeListening& shared();
};

// The platform's: rtnetlink's link, address and route groups on Linux, the
// dynamic store's network state keys on macOS; elsewhere, nothing.
class SystemNetworkChangeListening final : public NetworkChangeListening {
public:
    std::unique_ptr<Subscription> subscribe(std::function<void()> changed) override;
};

}  // namespace holdenmere
