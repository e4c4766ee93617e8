#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/login_items_auditor.h"
#include "core/discovery/startup_entry.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/clock.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere {

class StartupSwitch;
class ReopenWindowsSetting;
class AppQuitting;
struct StartupSwitches;

// How one change of startup state ended.
struct [[nodiscard]] StartupChangeOutcome {
    enum class Status {
        changed,      // made and confirmed
        unchanged,    // already as wanted: nothing run, nothing recorded
        unconfirmed,  // made, but the state could not be read back; recorded and marked
        notChanged,   // refused, unreadable, not recorded or out of time: nothing run
        failed,       // run, and the state shows it did not take
    };

    Status status = Status::notChanged;
    std::string subject;  // "Mail — LaunchAgent com.example.mail.agent"
    std::string reason;   // why it was not changed or failed, or a note
    bool recorded = false;  // its recovery entry is in the saved ledger now
    // The change was made but the ledger could not be brought up to date
    // after it (the save's error): the entry stays as it was.
    std::optional<std::string> ledgerFailure;

    bool madeChange() const { return status == Status::changed || status == Status::unconfirmed; }
    bool succeeded() const { return status == Status::changed || status == Status::unchanged; }
    // "{subject}: {reason}" or the subject alone.
    std::string line() const;
    friend bool operator==(const StartupChangeOutcome&, const StartupChangeOutcome&) = default;
};

// One change as the engine carries it out. Each part is optional except
// `apply`; the engine runs them in this order: `isDone` (a fresh read of the
// state), `record` (committed before anything is changed), `apply`,
// `confirm` (the state read back), then one of `whenDone`,
// `whenUnconfirmed` or `whenNotTaken` (committed after).
struct StartupStep {
    using ReadState = std::function<std::optional<bool>()>;
    using Change = std::function<void(HoldenmereConfig&)>;

    // What the change is for, which decides what must still hold when it is
    // made (see StartupChangeEngine::decideUnder).
    enum class Purpose {
        change,    // a change the user asked for just now
        takeOver,  // switching an app's startup off on its behalf
        reassert,  // switching a held item off again, or starting a held helper
        giveBack,  // putting a recorded item back
    };

    std::string subject;
    Purpose purpose = Purpose::change;
    // The app a take-over is made for: it must still be managed or blocked.
    std::string forApp;
    // Whether the state already is as wanted; nothing when it cannot be read.
    ReadState isDone;
    std::string unreadableBefore;  // the reason when `isDone` cannot tell
    Change record;
    // Runs the change; its failure text, or nothing.
    std::function<std::optional<std::string>()> apply;
    ReadState confirm;
    std::string notTaken;          // the reason when `confirm` says no and `apply` gave none
    std::string unreadableAfter;   // the reason when `confirm` cannot tell
    Change whenDone;  // also when `isDone` found nothing to change
    Change whenUnconfirmed;
    Change whenNotTaken;
    // The step's recovery entry is in the ledger before it runs (a give-back,
    // a re-assert): `recorded` starts true.
    bool alreadyRecorded = false;
    // The reason when the recovery entry could not be saved.
    std::string_view recordNotSaved;
};

// The one way startup state is changed: Login Items, launchd jobs, held
// helpers, and the ledger that lets all of it be given back. Every change
// runs inside a StartupTransaction (the startup mutation lock held, the
// configuration read under it), reads the state afresh, commits its recovery
// entry before it touches the system, confirms the result, and returns a
// structured outcome. Holdenmere's own bundle and launchd jobs are never
// touched. Once `cancellation` is raised no further change starts; the one
// in flight finishes and is recorded.
class StartupChangeEngine {
public:
    using FileExists = std::function<bool(const std::string& path)>;

    struct App {
        std::string bundleIdentifier;
        std::string name;
    };

    StartupChangeEngine(StartupTransaction& transaction, LaunchctlRunning& launchctl, ScriptRunning& scripts,
                        const Signal* cancellation = nullptr, FileExists fileExists = {});

    // The caller decided what to change from a configuration whose
    // give-back generation was `giveBackGeneration` (a login pass, from the
    // file it read at its start). From now on, immediately before each
    // change, the engine reads the configuration again under the lock and
    // asks whether the change is still wanted: the generation unchanged (a
    // give-back since then stops every further change of this engine), and
    // for a take-over the consent still granted and the app still managed
    // or blocked and not left to macOS.
    void decideUnder(std::uint64_t giveBackGeneration) { decidedUnder_ = giveBackGeneration; }
    // A give-back happened since the caller decided: nothing more changes.
    bool superseded() const { return superseded_; }
    // Raises the give-back generation in the file (once per engine), so that
    // a pass that decided before this give-back changes nothing after it.
    // Every give-back step does so before it changes anything; the error's
    // text when it could not be saved.
    [[nodiscard]] std::optional<std::string> noteGiveBack();

    StartupTransaction& transaction() { return transaction_; }
    const HoldenmereConfig& config() const { return transaction_.config(); }
    LaunchctlRunning& launchctl() { return launchctl_; }
    const LoginItemsAuditor& auditor() const { return auditor_; }
    // The cancellation was raised: no change starts any more.
    bool stopped() const;
    // Whether a file (an app bundle, a plist) is there.
    bool exists(const std::string& path) const { return fileExists_(path); }

    // Carries one step out (see StartupStep).
    StartupChangeOutcome run(const StartupStep& step);

    // --- Texts ------------------------------------------------------------
    static constexpr std::string_view kDisabledListUnreadable =
        "launchd's disabled list could not be read, so nothing was changed.";
    static constexpr std::string_view kDisabledListUnconfirmed =
        "The command ran but launchd's disabled list could not be read to confirm it.";
    static constexpr std::string_view kLoginItemsUnreadable =
        "the Login Items could not be read from System Events, so nothing was changed.";
    static constexpr std::string_view kLoginItemsUnconfirmed =
        "The command ran but the Login Items could not be read from System Events to confirm it.";
    static constexpr std::string_view kOutOfTime = "out of time, so nothing was changed; retried at the next login";
    static constexpr std::string_view kOwnItem = "Holdenmere's own item. Switching it off would stop the login pass.";
    static constexpr std::string_view kRecordNotSaved =
        "the recovery record could not be saved, so launchd was not changed";
    static constexpr std::string_view kRecordNotSavedLoginItems =
        "the recovery record could not be saved, so the Login Items were not changed";
    static constexpr std::string_view kRecordNotSavedElsewhere =
        "the recovery record could not be saved, so nothing was changed";
    static constexpr std::string_view kGivenBackSince =
        "startup was given back since this pass started, so nothing was changed";
    static constexpr std::string_view kConsentWithdrawn =
        "startup take-over is no longer allowed, so nothing was changed";
    static constexpr std::string_view kNoLongerManaged =
        "the app is no longer managed or blocked in Holdenmere, so nothing was changed";
    static constexpr std::string_view kLeftToMacOS = "left to macOS at your choice, so nothing was changed";
    static constexpr std::string_view kHelperPlistMissing = "helper plist not found at ";
    static constexpr std::string_view kHelperNotLoaded = "helper is not loaded in launchd";

    // Whether a label or a bundle is Holdenmere's own.
    static bool isOwnLabel(std::string_view label);
    static bool isOwnBundle(std::string_view bundleIdentifier);

    // --- Login Items ------------------------------------------------------

    // The Login Items with their hidden flags, or nothing when System Events
    // cannot be read.
    std::optional<std::vector<LoginItemsAuditor::LoginItem>> loginItems() const;

    // Removes one Login Item of `app`, recorded first with its path and
    // hidden flag as read now. Unchanged when it is gone already.
    StartupChangeOutcome removeLoginItem(const App& app, const std::string& path);
    // Puts a recorded Login Item back as it was and drops it from the ledger.
    StartupChangeOutcome giveBackLoginItem(const App& app, const RemovedLoginItem& item);

    // --- launchd jobs -----------------------------------------------------

    // Switches a LaunchAgent of `app` off (launchctl disable), recorded first
    // as a DisabledAgent of the app's take-over record, within its safety
    // tier: a refused tier, or one that needs confirmation without
    // `confirmed`, asks launchd nothing. One already off is unchanged and
    // not recorded: it is not Holdenmere's change.
    StartupChangeOutcome takeOverAgent(const App& app, const std::string& label, const std::string& plistPath,
                                       const SafetyTier& tier, bool confirmed);
    // Holds a launchd job off for an inventory row (launchctl disable), within
    // its safety tier, recorded first as `item` with "previous" set from a
    // fresh read: "off" when launchd marks it disabled, or when its plist
    // says "Disabled" and launchd has not marked it enabled; "startsAtLogin"
    // otherwise. One that is off already is held without a change, so that
    // the next login keeps it off and a give-back leaves it off.
    StartupChangeOutcome holdJob(HeldStartupItem item, const SafetyTier& tier, bool confirmed);
    // Switches a held launchd job off again where launchd runs it in the
    // user's session (by its marks and its plist's "Disabled"); its held
    // record is its recovery entry. A job its plist keeps off is left
    // without a mark.
    StartupChangeOutcome reassertJob(const HeldStartupItem& item);
    // Holds a helper ("delay" or "off"): recorded as a DelayedHelper first;
    // one that launchd had off already is also noted in "keptOff", so that
    // giving startup back leaves it off.
    StartupChangeOutcome holdHelper(const DelayedHelper& helper);
    // Switches a job back on (and loads its plist when launchd has not), then
    // runs `forget` on the ledger. Used to give back agents, held helpers
    // and held jobs.
    StartupChangeOutcome switchOnJob(const std::string& subject, const std::string& label,
                                     const std::string& plistPath, const StartupStep::Change& forget);
    // Gives a held helper back: switched on and loaded from its plist, then
    // `forget` runs on the ledger. A helper left unloaded (its plist gone,
    // or bootstrap failing) or still disabled fails and stays recorded.
    StartupChangeOutcome releaseHelper(const DelayedHelper& helper, const StartupStep::Change& forget);
    // Switches a job on that an earlier version left off without a record.
    StartupChangeOutcome enableJob(const std::string& subject, const std::string& label);

    // Starts a held helper for this session after the network answered and
    // disables it again for the next login; the record the pass keeps for
    // it (held_helper_start.cpp). Only a helper the configuration still
    // holds, read afresh, is started, and never one of Holdenmere's own.
    LaunchRecord startHeldHelper(const DelayedHelper& helper, Date now);

    // --- Held items of the other sources (held_item_changes.cpp) ---------

    // The switches of app extensions, launcher children and session
    // restore; without them those held items are left as they are.
    void useSwitches(const StartupSwitches* switches) { switches_ = switches; }
    const StartupSwitches* switches() const { return switches_; }
    // The reason a tier stops a switch-off: refused, or warnings not yet
    // confirmed. Nothing when the change may go ahead.
    static std::optional<std::string> tierRefusal(const SafetyTier& tier, bool confirmed);

    // Switches an inventory row off through its source's switch, recorded
    // first as a HeldStartupItem (previous "startsAtLogin"), within its
    // tier. One already off is unchanged and not recorded.
    StartupChangeOutcome holdItem(StartupSwitch& source, const StartupEntry& entry, const SafetyTier& tier,
                                  bool confirmed);
    // Switches a held item off again where macOS switched it back on.
    StartupChangeOutcome reassertItem(StartupSwitch& source, const HeldStartupItem& item);
    // Switches a held item back on and releases it.
    StartupChangeOutcome giveBackItem(StartupSwitch& source, const HeldStartupItem& item);
    // Holds an app that loginwindow reopens, so that each login pass quits
    // it: the record is the whole change.
    StartupChangeOutcome quitAfterLogin(const StartupEntry& entry, const SafetyTier& tier, bool confirmed);
    // Quits a held app that loginwindow reopened at this login, gracefully.
    StartupChangeOutcome quitRestoredApp(AppQuitting& apps, const HeldStartupItem& item);
    // Switches the reopen-windows setting off, its values as they were
    // recorded first (an unset key as unset).
    StartupChangeOutcome switchReopenWindowsOff(ReopenWindowsSetting& setting);
    // Puts the setting back as recorded (an unset key deleted again) and
    // drops the record.
    StartupChangeOutcome giveBackReopenWindows(ReopenWindowsSetting& setting, const ReopenWindowsRecord& original);

    // launchd's disabled list, asked afresh.
    std::optional<std::set<std::string>> disabledLabels() { return launchctl_.disabledLabels(); }

private:
    // The steps of `run`, in its order. Why the step must not go ahead:
    // out of time, no longer wanted, or a give-back that could not be noted.
    std::optional<std::string> reasonNotToGoAhead(const StartupStep& step);
    // Reads the state afresh; true when the step ends there (it cannot be
    // read, or it is as wanted already), with the outcome filled in.
    bool endsAtFreshRead(const StartupStep& step, StartupChangeOutcome& outcome);
    // Commits the recovery entry before anything is changed; false, with the
    // reason, when it could not be saved.
    bool recordFirst(const StartupStep& step, StartupChangeOutcome& outcome);
    // The outcome from the change's failure and the state read back, and the
    // ledger brought up to date after it.
    void settleConfirmed(const StartupStep& step, const std::optional<std::string>& failure,
                         std::optional<bool> confirmed, StartupChangeOutcome& outcome);

    StartupChangeOutcome refused(std::string subject, std::string_view reason) const;
    // Why a change of `purpose` (for `forApp`) is no longer wanted, read
    // afresh under the lock; nothing when it may go ahead.
    std::optional<std::string> unwanted(StartupStep::Purpose purpose, const std::string& forApp);
    // The refusal a tier gives without (or with) the user's confirmation.
    std::optional<StartupChangeOutcome> outsideTier(const std::string& subject, const SafetyTier& tier,
                                                    bool confirmed) const;
    StartupStep::ReadState labelDisabled(const std::string& label, bool wanted);
    // A job given back is enabled (and loaded) again whatever launchd shows
    // now, once its disabled list can be read at all.
    StartupStep::ReadState switchedOnAnyway();
    // A give-back of a launchd job, recorded already: switched on again
    // whatever launchd shows now, `forget` once it is done.
    StartupStep jobGiveBack(const std::string& subject, const StartupStep::Change& forget);
    StartupStep::ReadState loginItemListed(const std::string& path, bool wanted) const;
    std::optional<std::string> launchctlRun(const std::vector<std::string>& arguments);
    // The steps of startHeldHelper (held_helper_start.cpp): whether launchd
    // has the helper disabled, read afresh (nothing when it cannot be read);
    // a helper held off, which is only checked; and the start of one held
    // with a delay, switched off again for the next login.
    std::optional<bool> helperDisabled(const std::string& label);
    LaunchRecord checkHelperKeptOff(const DelayedHelper& helper, Date now);
    LaunchRecord startHelperForSession(const DelayedHelper& helper, Date now);

    StartupTransaction& transaction_;
    LaunchctlRunning& launchctl_;
    ScriptRunning& scripts_;
    LoginItemsAuditor auditor_;
    const Signal* cancellation_;
    FileExists fileExists_;
    const StartupSwitches* switches_ = nullptr;
    std::optional<std::uint64_t> decidedUnder_;
    bool superseded_ = false;
    bool giveBackNoted_ = false;
};

}  // namespace holdenmere
