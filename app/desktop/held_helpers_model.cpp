#include "app/desktop/held_helpers_model.h"

#include <QMetaObject>
#include <QStringList>

#include <algorithm>
#include <set>

#include "app/desktop/startup_work.h"
#include "core/discovery/startup_discovery.h"
#include "core/launchd/helper_delay.h"
#include "core/takeover/startup_actions.h"

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

}  // namespace

HelperScan HelperScan::run(LaunchdReading& launchctl, const std::vector<std::filesystem::path>& agentDirectories) {
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
        row.name = record ? record->name : StartupDiscovery::helperName(helper.program, helper.appName + ".app");
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
    const DelayedHelper helper{found->label, found->plistPath, found->appBundleIdentifier, found->name,
                               mode == HelperRow::Mode::off ? DelayedHelper::Mode::off : DelayedHelper::Mode::delay};
    const std::optional<DelayedHelper::Mode> wanted =
        mode == HelperRow::Mode::notHeld ? std::nullopt : std::optional(helper.mode);
    const StartupActions actions = startupActions();
    startAction([helper, wanted, loginAgent, actions] {
        const ActionOutcome outcome = actions.setHelperMode(helper, wanted, loginAgent);
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
    const std::filesystem::path logPath = services_.logPath();
    const Date now = services_.clock().now();
    const StartupActions actions = startupActions();
    startAction([candidates, logPath, now, actions] {
        const ActionOutcome outcome = actions.repairHelpers(candidates, logPath, now);
        return std::make_pair(outcome.lines, outcome.ok);
    });
    return true;
}

StartupActions HeldHelpersModel::startupActions() const {
    return StartupActions({ConfigAccess::of(session_.store()), services_.launchctl(), services_.scripts(),
                           services_.safetyEnvironment()});
}

}  // namespace holdenmere::desktop
