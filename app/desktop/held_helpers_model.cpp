#include "app/desktop/held_helpers_model.h"

#include <QMetaObject>
#include <QStringList>

#include <algorithm>
#include <set>

#include "app/desktop/action_outcome.h"
#include "app/desktop/startup_work.h"
#include "core/launchd/helper_delay.h"

namespace holdenmere::desktop {
namespace {

constexpr const char* kDash = " \xE2\x80\x94 ";
// Who repaired, as the run log names it.
constexpr const char* kLogSource = "app";

QString text(const std::string& value) { return QString::fromStdString(value); }

// A helper's own name: the innermost app bundle on its program's path that
// is not the app itself, else the program's file name.
std::string helperName(const std::string& program, const std::string& appName) {
    const std::filesystem::path path(program);
    std::string name = path.filename().string();
    for (const auto& component : path) {
        const std::string part = component.string();
        if (part.ends_with(".app") && part != appName + ".app") name = part.substr(0, part.size() - 4);
    }
    return name;
}

std::vector<DelayedHelper>::iterator recordOf(HoldenmereConfig& config, const std::string& label) {
    return std::find_if(config.delayedHelpers.begin(), config.delayedHelpers.end(),
                        [&](const DelayedHelper& helper) { return helper.label == label; });
}

using Outcome = ActionOutcome;

std::string heldLine(const std::string& name, DelayedHelper::Mode mode) {
    return mode == DelayedHelper::Mode::delay ? name + " now waits for the network at login."
                                              : name + " is kept off at login.";
}

Outcome setModeJob(const HelperRow& row, HelperRow::Mode wanted, HoldenmereLoginAgentStatus loginAgent,
                   const ConfigStore& store, LaunchctlRunning& launchctl) {
    Outcome outcome;
    auto problem = StartupTransaction::run(store, [&](StartupTransaction& transaction) {
        HelperDelay helperDelay(launchctl);
        auto record = recordOf(transaction.config, row.label);
        if (record == transaction.config.delayedHelpers.end()) {
            if (wanted == HelperRow::Mode::notHeld) return;
            // Recorded first, so that a helper switched off is never unknown.
            const DelayedHelper helper{row.label, row.plistPath, row.appBundleIdentifier, row.name,
                                       wanted == HelperRow::Mode::delay ? DelayedHelper::Mode::delay
                                                                        : DelayedHelper::Mode::off};
            transaction.config.delayedHelpers.push_back(helper);
            if (auto failure = transaction.save()) {
                outcome.fail(row.name + " was not held: the record could not be saved, so launchd was not changed (" +
                             *failure + ").");
                return;
            }
            if (auto failure = helperDelay.delay(helper)) {
                transaction.config.delayedHelpers.erase(recordOf(transaction.config, row.label));
                const auto undone = transaction.save();
                outcome.fail(row.name + " could not be held: " + *failure +
                             (undone ? "; its record stays until the next try (" + *undone + ")" : std::string()));
                return;
            }
            outcome.lines.push_back(heldLine(row.name, helper.mode));
            return;
        }
        const DelayedHelper held = *record;
        if (wanted == HelperRow::Mode::notHeld) {
            // Given back first; the record goes only once it is back on.
            if (auto failure = helperDelay.release(held)) {
                outcome.fail(held.name + " could not be switched back on: " + *failure);
                return;
            }
            transaction.config.delayedHelpers.erase(record);
            if (auto failure = transaction.save()) {
                outcome.fail(held.name + " is switched back on, but its record could not be removed (" + *failure +
                             ").");
                return;
            }
            outcome.lines.push_back(held.name + " starts with macOS again.");
            return;
        }
        const auto mode = wanted == HelperRow::Mode::delay ? DelayedHelper::Mode::delay : DelayedHelper::Mode::off;
        if (held.mode == mode) return;
        const auto conversion = helperDelay.convert(held, mode, loginAgent);
        if (const std::string* refusal = conversion.refusal()) {
            outcome.fail(*refusal);
            return;
        }
        *record = *conversion.helper();
        if (auto failure = transaction.save()) {
            outcome.fail(held.name + " was not changed: " + *failure);
            return;
        }
        outcome.lines.push_back(heldLine(held.name, mode));
    });
    if (problem) outcome.fail(*problem);
    return outcome;
}

Outcome repairJob(const std::vector<HelperRepair::Candidate>& candidates, const ConfigStore& store,
                  LaunchctlRunning& launchctl, const std::filesystem::path& logPath, Date now) {
    Outcome outcome;
    auto problem = StartupTransaction::run(store, [&](StartupTransaction& transaction) {
        // Planned again on the fresh read: a record made meanwhile explains a helper.
        std::vector<HelperRepair::Candidate> still;
        for (const auto& candidate : candidates) {
            const bool recorded = recordOf(transaction.config, candidate.label) != transaction.config.delayedHelpers.end();
            if (!recorded) still.push_back(candidate);
        }
        const auto steps = HelperRepair::repair(still, launchctl, /*dryRun=*/false);
        for (const auto& step : steps) {
            if (step.outcome == HelperRepair::Outcome::failed) {
                outcome.fail(step.line());
            } else {
                outcome.lines.push_back(step.line());
            }
        }
        if (auto failure = HelperRepair::log(steps, kLogSource, logPath, now)) {
            outcome.lines.push_back("The run log could not be written" + std::string(kDash) + *failure);
        }
    });
    if (problem) outcome.fail(*problem);
    return outcome;
}

}  // namespace

HelperScan HelperScan::run(LaunchctlRunning& launchctl, const std::vector<std::filesystem::path>& agentDirectories) {
    const LaunchAgentScanner scanner(launchctl, agentDirectories);
    return HelperScan{scanner.helpers(), scanner.ineligible(/*whereDisabled=*/true)};
}

QString HelperRow::modeText(Mode mode) {
    switch (mode) {
        case Mode::notHeld: return QStringLiteral("Starts with macOS");
        case Mode::delay: return QStringLiteral("Waits for the network");
        case Mode::off: return QStringLiteral("Kept off");
    }
    return {};
}

QString HelperRow::detail() const {
    QString line = QStringLiteral("%1 \u2014 %2").arg(text(appName), text(label));
    if (!found) line += QStringLiteral(" (its plist is gone)");
    if (found && mode == Mode::notHeld && disabledInLaunchd) line += QStringLiteral(" \u00B7 switched off in launchd");
    return line;
}

HeldHelpersModel::HeldHelpersModel(ConfigSession& session, DesktopServices& services, QObject* parent)
    : QObject(parent), session_(session), services_(services), queue_(std::make_unique<BackgroundQueue>()) {
    connect(&session_, &ConfigSession::changed, this, [this] {
        derive();
        emit rowsChanged();
    });
}

HeldHelpersModel::~HeldHelpersModel() { queue_.reset(); }

void HeldHelpersModel::rescan() {
    if (scanning_) {
        scanAgain_ = true;
        return;
    }
    scanning_ = true;
    LaunchctlRunning& launchctl = services_.launchctl();
    auto directories = services_.launchAgentDirectories();
    HeldHelpersModel* self = this;
    queue_->post([self, &launchctl, directories = std::move(directories)] {
        HelperScan scan = HelperScan::run(launchctl, directories);
        QMetaObject::invokeMethod(
            self,
            [self, scan = std::move(scan)]() mutable {
                self->scan_ = std::move(scan);
                self->scanned_ = true;
                self->scanning_ = false;
                self->derive();
                emit self->rowsChanged();
                if (self->scanAgain_) {
                    self->scanAgain_ = false;
                    self->rescan();
                }
            },
            Qt::QueuedConnection);
    });
}

void HeldHelpersModel::derive() {
    const HoldenmereConfig& config = session_.config();
    std::set<std::string> managed;
    for (const auto& app : config.apps) managed.insert(app.bundleIdentifier);
    auto recorded = [&](const std::string& label) -> const DelayedHelper* {
        auto found = std::find_if(config.delayedHelpers.begin(), config.delayedHelpers.end(),
                                  [&](const DelayedHelper& helper) { return helper.label == label; });
        return found == config.delayedHelpers.end() ? nullptr : &*found;
    };
    auto modeOf = [](DelayedHelper::Mode mode) {
        return mode == DelayedHelper::Mode::delay ? HelperRow::Mode::delay : HelperRow::Mode::off;
    };

    rows_.clear();
    std::set<std::string> shown;
    for (const auto& helper : scan_.helpers) {
        const DelayedHelper* record = recorded(helper.label);
        if (managed.count(helper.appBundleIdentifier) == 0 && record == nullptr) continue;
        HelperRow row;
        row.label = helper.label;
        row.plistPath = helper.plistPath;
        row.appBundleIdentifier = helper.appBundleIdentifier;
        row.appName = helper.appName;
        row.name = record ? record->name : helperName(helper.program, helper.appName);
        row.mode = record ? modeOf(record->mode) : HelperRow::Mode::notHeld;
        row.disabledInLaunchd = helper.isDisabled;
        rows_.push_back(std::move(row));
        shown.insert(helper.label);
    }
    // Held helpers the scan no longer finds stay listed, so that they can be given back.
    for (const auto& helper : config.delayedHelpers) {
        if (!scanned_ || shown.count(helper.label) != 0) continue;
        HelperRow row;
        row.label = helper.label;
        row.plistPath = helper.plistPath;
        row.appBundleIdentifier = helper.appBundleIdentifier;
        row.name = helper.name;
        row.appName = helper.name;
        for (const auto& app : config.apps) {
            if (app.bundleIdentifier == helper.appBundleIdentifier) row.appName = app.name;
        }
        row.mode = modeOf(helper.mode);
        row.found = false;
        rows_.push_back(std::move(row));
    }
    candidates_ = scanned_ ? HelperRepair::plan(config, scan_.disabledIneligible) : std::vector<HelperRepair::Candidate>{};
}

const HelperRow* HeldHelpersModel::row(const std::string& label) const {
    auto found = std::find_if(rows_.begin(), rows_.end(), [&](const HelperRow& row) { return row.label == label; });
    return found == rows_.end() ? nullptr : &*found;
}

void HeldHelpersModel::startAction(std::function<std::pair<std::vector<std::string>, bool>()> work) {
    ++busy_;
    emit busyChanged();
    HeldHelpersModel* self = this;
    queue_->post([self, work = std::move(work)] {
        auto [lines, ok] = work();
        QStringList texts;
        for (const auto& line : lines) texts << text(line);
        QMetaObject::invokeMethod(
            self,
            [self, texts, ok] {
                --self->busy_;
                self->session_.reload();
                emit self->busyChanged();
                if (!texts.isEmpty()) emit self->finished(texts.join(QLatin1Char('\n')), ok);
                self->rescan();
            },
            Qt::QueuedConnection);
    });
}

bool HeldHelpersModel::setMode(const std::string& label, HelperRow::Mode mode) {
    const HelperRow* found = row(label);
    if (found == nullptr || found->mode == mode) return false;
    const HoldenmereLoginAgentStatus loginAgent = services_.loginAgentStatus();
    if (mode == HelperRow::Mode::delay) {
        // A held helper would never start without the login pass.
        if (auto refusal = HelperDelayPolicy::refusal(DelayedHelper::Mode::delay, loginAgent)) {
            emit finished(text(*refusal), false);
            return false;
        }
    }
    const HelperRow copy = *found;
    const ConfigStore store = session_.store();
    LaunchctlRunning& launchctl = services_.launchctl();
    startAction([copy, mode, loginAgent, store, &launchctl] {
        const Outcome outcome = setModeJob(copy, mode, loginAgent, store, launchctl);
        return std::make_pair(outcome.lines, outcome.ok);
    });
    return true;
}

QString HeldHelpersModel::repairQuestion() const {
    if (candidates_.empty()) return {};
    return text(HelperRepair::question(candidates_.size()));
}

bool HeldHelpersModel::repair() {
    if (candidates_.empty()) return false;
    const auto candidates = candidates_;
    const ConfigStore store = session_.store();
    LaunchctlRunning& launchctl = services_.launchctl();
    const std::filesystem::path logPath = services_.logPath();
    const Date now = services_.clock().now();
    startAction([candidates, store, &launchctl, logPath, now] {
        const Outcome outcome = repairJob(candidates, store, launchctl, logPath, now);
        return std::make_pair(outcome.lines, outcome.ok);
    });
    return true;
}

}  // namespace holdenmere::desktop
