#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/login_items_auditor.h"
#include "core/support/clock.h"

namespace holdenmere {

// Some apps put their Login Item back each time they start. After a login
// pass has opened the managed apps, the sweep watches the Login Items for a
// while and removes those apps' items again as often as they come back.
struct ReregistrationSweep {
    struct Removal {
        ManagedApp app;
        LoginItemRemoval outcome = LoginItemRemoval::removed;
        friend bool operator==(const Removal&, const Removal&) = default;
    };

    static constexpr double kWindow = 120.0;
    static constexpr double kInterval = 5.0;

    LoginItemsAuditor auditor;
    // Sleeps and the deadline go through this clock; it must outlive the sweep.
    Clock* clock;
    double window = kWindow;
    double interval = kInterval;

    ReregistrationSweep(LoginItemsAuditor sweepAuditor, Clock& sweepClock, double sweepWindow = kWindow,
                        double sweepInterval = kInterval)
        : auditor(sweepAuditor), clock(&sweepClock), window(sweepWindow), interval(sweepInterval) {}

    // Removes one Login Item of an app. The startup-change engine's removal
    // is passed in, so that each one is recorded before it is made and holds
    // the startup mutation lock only for its own length. Nothing when the
    // removal is no longer wanted (the app was given back or is no longer
    // managed): the app is not watched any more.
    using Remove = std::function<std::optional<LoginItemRemoval>(const ManagedApp& app,
                                                                 const LoginItemsAuditor::LoginItem& item)>;

    // Watches the launched apps and the blocked apps for the whole window,
    // never less: a round reads the conflicts, removes each conflicting item
    // through `remove` (one Removal per attempt, repeats included), then
    // sleeps the interval or what is left of the window. Nothing to watch
    // returns at once. The window is measured on the clock's monotonic time,
    // so a wall-clock correction when the network comes up neither cuts it
    // short nor stretches it. Once the window has passed, or `cancellation`
    // is raised, no further removal starts.
    std::vector<Removal> run(const std::vector<ManagedApp>& launched, const std::vector<BlockedApp>& blocked,
                             const Remove& remove, const Signal* cancellation = nullptr) const;

    // The apps the sweep watches after a pass: the managed apps, in order,
    //  - whose Login Item was handed over to Holdenmere: imported from a Login
    //    Item, or recorded in the take-over ledger with a removed Login Item;
    //  - and whose newest record in the history (newest first, as the history
    //    store keeps it) is "launched": the pass just opened it, so it may be
    //    re-adding its item right now. An app that was already running
    //    started before the pass and was seen by the take-over step.
    // Nothing unless startup take-over is granted: without consent the
    // user's Login Items are left alone. An identifier is listed once.
    static std::vector<ManagedApp> handedOver(const std::vector<ManagedApp>& managed, const HoldenmereConfig& config,
                                              const std::vector<LaunchRecord>& history);
    // Whether any of `managed` could be handed over whatever the history
    // says; when none can, the history need not be read at all.
    static bool mayHandOver(const std::vector<ManagedApp>& managed, const HoldenmereConfig& config);

    // A blocked app as a managed-app record for the sweep: its bundle
    // identifier, name and path; switched off, since it is never opened.
    static ManagedApp managedRecord(const BlockedApp& blocked);
};

}  // namespace holdenmere
