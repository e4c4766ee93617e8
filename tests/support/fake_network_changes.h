#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "core/reachability/network_change_listening.h"

namespace holdenmere::testing {

// Announces network changes when a test says so (from a FakeClock alarm, to
// announce at a given fake time) to whoever is subscribed at that moment;
// an announcement with no subscriber is dropped, as the system's would be.
// Counts subscriptions, announcements and deliveries.
class FakeNetworkChangeListening final : public NetworkChangeListening {
public:
    // When false, every subscription is nullptr, as on a system without announcements.
    bool available = true;

    std::unique_ptr<Subscription> subscribe(std::function<void()> changed) override {
        std::lock_guard lock(state_->mutex);
        ++state_->subscriptions;
        if (!available) return nullptr;
        state_->changed = std::move(changed);
        return std::make_unique<FakeSubscription>(state_);
    }

    // Delivers one announcement, on the calling thread.
    void announce() {
        std::lock_guard lock(state_->mutex);
        ++state_->announced;
        if (state_->changed) {
            ++state_->delivered;
            state_->changed();
        }
    }

    int subscriptions() const { return read(&State::subscriptions); }
    int announced() const { return read(&State::announced); }
    int delivered() const { return read(&State::delivered); }
    bool subscribed() const {
        std::lock_guard lock(state_->mutex);
        return static_cast<bool>(state_->changed);
    }

private:
    struct State {
        // Held while a callback runs, so that ending a subscription waits for it.
        std::mutex mutex;
        std::function<void()> changed;
        int subscriptions = 0;
        int announced = 0;
        int delivered = 0;
    };

    class FakeSubscription final : public Subscription {
    public:
        explicit FakeSubscription(std::shared_ptr<State> state) : state_(std::move(state)) {}
        ~FakeSubscription() override {
            std::lock_guard lock(state_->mutex);
            state_->changed = nullptr;
        }

    private:
        std::shared_ptr<State> state_;
    };

    int read(int State::*field) const {
        std::lock_guard lock(state_->mutex);
        return state_.get()->*field;
    }

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace holdenmere::testing
