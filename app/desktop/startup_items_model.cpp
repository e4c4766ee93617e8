#include "app/desktop/startup_items_model.h"

#include <QMetaObject>

#include <algorithm>
#include <set>
#include <sstream>

#include "app/desktop/action_outcome.h"
#include "app/desktop/startup_work.h"
#include "app/restore_startup_mode.h"
#include "core/apps/installed_app.h"
#include "core/discovery/startup_discovery.h"
#include "core/support/text.h"
#include "core/takeover/agent_takeover.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere::desktop {
namespace {

constexpr const char* kDash = " \xE2\x80\x94 ";
constexpr std::string_view kTag = "[Holdenmere] ";

QString text(const std::string& value) { return QString::fromStdString(value); }

using Outcome = ActionOutcome;

// A script runner that notes whether the Login Items could be listed.
class NotingScripts final : public ScriptRunning {
public:
    explicit NotingScripts(ScriptRunning& inner) : inner_(inner) {}
    std::optional<std::string> run(const std::string& script) override {
        auto output = inner_.run(script);
        if (!output && script == LoginItemsAuditor::kListPathsScript) listFailed = true;
        return output;
    }
    bool listFailed = false;

private:
    ScriptRunning& inner_;
};

ManagedApp appOf(const StartupItemRow& row) {
    ManagedApp app;
    app.bundleIdentifier = row.bundleIdentifier;
    app.name = row.name;
    app.path = row.path;
    return app;
}

void leaveNoLongerToMacOS(HoldenmereConfig& config, const std::string& bundleIdentifier) {
    std::erase(config.leftToMacOS, bundleIdentifier);
}

std::vector<std::string> chipsOf(const SafetyTier& tier) {
    return tier.kind == SafetyTier::Kind::needsConfirmation ? StartupSafety::chips(tier) : std::vector<std::string>{};
}

// The line about an agent's arguments that Holdenmere does not pass, if any.
std::optional<std::string> droppedArgumentsLine(const std::string& name, const std::string& plistPath) {
    auto dropped = LoginOwnership::droppedArguments(std::filesystem::path(plistPath));
    if (dropped.empty()) return std::nullopt;
    for (auto& argument : dropped) argument = "\"" + argument + "\"";
    return name + kDash + "its agent passed " + text::joined(dropped, " ") + "; Holdenmere opens it without them";
}

Outcome takeOverLoginItem(const StartupItemRow& row, const ConfigStore& store, ScriptRunning& scripts) {
    Outcome outcome;
    auto problem = StartupTransaction::run(store, [&](StartupTransaction& transaction) {
        LoginItemsAuditor auditor(scripts);
        const auto items = auditor.loginItems(/*readingHidden=*/true);
        auto item = std::find_if(items.begin(), items.end(),
                                 [&](const LoginItemsAuditor::LoginItem& candidate) { return candidate.path == row.path; });
        if (item == items.end()) {
            outcome.fail(row.name + " is no longer a Login Item, so nothing was changed.");
            return;
        }
        ManagedApp app = appOf(row);
        app.launchHidden = item->hidden;
        app.importedFromLoginItem = true;
        transaction.config.manage(app);
        leaveNoLongerToMacOS(transaction.config, row.bundleIdentifier);
        transaction.config.recordLoginItem(row.bundleIdentifier, row.name, RemovedLoginItem{item->path, item->hidden});
        if (auto failure = transaction.save()) {
            outcome.fail(row.name + " was not taken over: the recovery record could not be saved, so its Login Item "
                                    "stays (" + *failure + ").");
            return;
        }
        const LoginItemRemoval removal = auditor.remove(*item);
        if (removal == LoginItemRemoval::failed) {
            outcome.fail(message(removal, row.name));
        } else {
            outcome.lines.push_back(message(removal, row.name));
        }
    });
    if (problem) outcome.fail(*problem);
    return outcome;
}

Outcome takeOverAgent(const StartupItemRow& row, bool confirmed, const ConfigStore& store, LaunchctlRunning& launchctl,
                      const StartupSafety::Environment& environment) {
    Outcome outcome;
    AgentTakeover takeover(launchctl, environment);
    ManagedApp app = appOf(row);
    app.importedFromStartup = true;
    // Decided afresh: the plist may have changed since the scan.
    const SafetyTier tier =
        StartupSafety::tier(LoginOwnership::agentCandidate(app, row.label, row.plistPath), takeover.environment());
    if (tier.kind == SafetyTier::Kind::refused ||
        (tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed)) {
        const auto refused = takeover.switchOff(row.label, tier, confirmed, AgentTakeover::Mechanism::disable);
        outcome.fail(row.name + " was not taken over: " + refused.reason);
        return outcome;
    }
    auto problem = StartupTransaction::run(store, [&](StartupTransaction& transaction) {
        if (takeover.isDisabled(row.label)) {
            // Not Holdenmere's change: nothing to record or to give back.
            transaction.config.manage(app);
            leaveNoLongerToMacOS(transaction.config, row.bundleIdentifier);
            if (auto failure = transaction.save()) {
                outcome.fail(row.name + " was not added: " + *failure);
            } else {
                outcome.lines.push_back(row.name + kDash + "LaunchAgent " + row.label +
                                        " was already switched off; Holdenmere now starts the app");
            }
            return;
        }
        transaction.config.manage(app);
        leaveNoLongerToMacOS(transaction.config, row.bundleIdentifier);
        transaction.config.record(AgentTakeoverResult{row.name, row.bundleIdentifier, row.label, row.plistPath});
        if (auto failure = transaction.save()) {
            outcome.fail(row.name + " was not taken over: the recovery record could not be saved, so launchd was not "
                                    "changed (" + *failure + ").");
            return;
        }
        const auto result = takeover.switchOff(row.label, tier, confirmed, AgentTakeover::Mechanism::disable);
        if (result.kind == AgentTakeover::Result::Kind::failed) {
            outcome.fail(row.name + " is managed now, but its LaunchAgent " + row.label +
                         " is NOT switched off: " + result.reason);
        } else {
            outcome.lines.push_back(row.name + " now starts once the network answers; its LaunchAgent " + row.label +
                                    " is switched off.");
        }
        if (auto line = droppedArgumentsLine(row.name, row.plistPath)) outcome.lines.push_back(*line);
    });
    if (problem) outcome.fail(*problem);
    return outcome;
}

Outcome endConflictJob(const ConflictRow& row, bool confirmed, const ConfigStore& store, LaunchctlRunning& launchctl,
                       ScriptRunning& scripts, const StartupSafety::Environment& environment) {
    Outcome outcome;
    auto problem = StartupTransaction::run(store, [&](StartupTransaction& transaction) {
        HoldenmereConfig& config = transaction.config;
        auto managed = std::find_if(config.apps.begin(), config.apps.end(),
                                    [&](const ManagedApp& app) { return app.bundleIdentifier == row.bundleIdentifier; });
        if (managed == config.apps.end()) {
            outcome.fail(row.name + " is no longer managed, so nothing was changed.");
            return;
        }
        const ManagedApp app = *managed;
        AgentTakeover takeover(launchctl, environment);

        // The agents first: one that needs confirmation stops everything.
        struct Planned {
            ConflictRow::Agent agent;
            SafetyTier tier;
        };
        std::vector<Planned> agents;
        for (const auto& agent : row.agents) {
            if (StartupDiscovery::ownLaunchdLabels.count(agent.label) != 0) continue;
            const SafetyTier tier = StartupSafety::tier(LoginOwnership::agentCandidate(app, agent.label, agent.plistPath),
                                                        takeover.environment());
            if (tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed) {
                outcome.fail(app.name + ": nothing was changed" + kDash + "switching LaunchAgent " + agent.label +
                             " off needs your confirmation first.");
                return;
            }
            if (tier.kind == SafetyTier::Kind::refused) {
                outcome.fail(app.name + kDash + "LaunchAgent " + agent.label + " stays: " + tier.reason);
                continue;
            }
            if (takeover.isDisabled(agent.label)) {
                outcome.lines.push_back(app.name + kDash + "LaunchAgent " + agent.label + " is already switched off");
                continue;
            }
            agents.push_back({agent, tier});
        }
        LoginItemsAuditor auditor(scripts);
        std::vector<LoginItemsAuditor::LoginItem> loginItems;
        if (!row.loginItems.empty()) {
            for (const auto& item : auditor.loginItems(/*readingHidden=*/true)) {
                const bool named = std::any_of(row.loginItems.begin(), row.loginItems.end(),
                                               [&](const auto& listed) { return listed.path == item.path; });
                if (named) loginItems.push_back(item);
            }
        }
        if (agents.empty() && loginItems.empty()) {
            if (outcome.lines.empty()) outcome.lines.push_back(app.name + ": macOS no longer starts it; nothing to end.");
            return;
        }

        // Every recovery entry is saved before anything is changed.
        for (const auto& item : loginItems) {
            config.recordLoginItem(app.bundleIdentifier, app.name, RemovedLoginItem{item.path, item.hidden});
        }
        for (const auto& planned : agents) {
            config.record(AgentTakeoverResult{app.name, app.bundleIdentifier, planned.agent.label, planned.agent.plistPath});
        }
        if (auto failure = transaction.save()) {
            outcome.fail(app.name + ": nothing was changed" + kDash + "the recovery record could not be saved (" +
                         *failure + ").");
            return;
        }
        for (const auto& item : loginItems) {
            const LoginItemRemoval removal = auditor.remove(item);
            if (removal == LoginItemRemoval::failed) {
                outcome.fail(message(removal, app.name));
            } else {
                outcome.lines.push_back(message(removal, app.name));
            }
        }
        for (const auto& planned : agents) {
            const auto result =
                takeover.switchOff(planned.agent.label, planned.tier, confirmed, AgentTakeover::Mechanism::disable);
            if (result.kind == AgentTakeover::Result::Kind::failed) {
                outcome.fail(app.name + kDash + "LaunchAgent " + planned.agent.label + " is NOT switched off: " +
                             result.reason);
            } else {
                outcome.lines.push_back(app.name + kDash + "LaunchAgent " + planned.agent.label + " switched off");
            }
        }
    });
    if (problem) outcome.fail(*problem);
    return outcome;
}

// The give-back of --restore-startup, run while the lock is held.
Outcome giveBackJob(const ConfigStore& store, const std::filesystem::path& loginAgentPlist, LaunchctlRunning& launchctl,
                    ScriptRunning& scripts) {
    Outcome outcome;
    auto problem = StartupTransaction::run(store, [&](StartupTransaction&) {
        const RestoreStartupRun run = RestoreStartupRun::atPath(/*dryRun=*/false, store.url, loginAgentPlist);
        std::ostringstream out;
        std::ostringstream err;
        const int status = runRestoreStartup(run, out, err, launchctl, scripts);
        for (const std::string& stream : {out.str(), err.str()}) {
            std::istringstream lines(stream);
            for (std::string line; std::getline(lines, line);) {
                if (line.starts_with(kTag)) line.erase(0, kTag.size());
                if (!line.empty()) outcome.lines.push_back(line);
            }
        }
        outcome.ok = status == 0;
    });
    if (problem) outcome.fail(*problem);
    return outcome;
}

}  // namespace

StartupScan StartupScan::run(LaunchctlRunning& launchctl, ScriptRunning& scripts,
                             const std::vector<std::filesystem::path>& agentDirectories,
                             const StartupSafety::Environment& environment) {
    StartupScan scan;
    NotingScripts noting(scripts);
    scan.loginItems = LoginItemsAuditor(noting).loginItems(/*readingHidden=*/true);
    scan.loginItemsUnreadable = noting.listFailed;
    const LaunchAgentScanner scanner(launchctl, agentDirectories);
    scan.agentItems = scanner.startupItems();
    scan.ineligible = scanner.ineligibleItems();
    for (const auto& item : scan.agentItems) {
        const auto& agent = std::get<StartupItem::LaunchAgent>(item.source);
        ManagedApp app;
        app.bundleIdentifier = item.bundleIdentifier;
        app.name = item.name;
        app.path = item.path.value_or(std::string());
        scan.agentTiers[agent.label] =
            StartupSafety::tier(LoginOwnership::agentCandidate(app, agent.label, agent.plistPath), environment);
    }
    auto icon = [&](const std::optional<std::string>& path) {
        if (path && scan.icons.count(*path) == 0) scan.icons[*path] = InstalledApp::read(*path).iconPath;
    };
    for (const auto& item : scan.loginItems) {
        if (item.bundleIdentifier) icon(item.path);
    }
    for (const auto& item : scan.agentItems) icon(item.path);
    return scan;
}

QString StartupItemRow::sourceText() const {
    return source == Source::loginItem ? QStringLiteral("Login Item") : QStringLiteral("LaunchAgent %1").arg(text(label));
}

QString ConflictRow::sourcesText() const {
    QStringList parts;
    if (loginItems.size() == 1) parts << QStringLiteral("Login Item");
    if (loginItems.size() > 1) parts << QStringLiteral("%1 Login Items").arg(loginItems.size());
    for (const Agent& agent : agents) parts << QStringLiteral("LaunchAgent %1").arg(text(agent.label));
    return parts.join(QStringLiteral(" and "));
}

StartupItemsModel::StartupItemsModel(ConfigSession& session, DesktopServices& services,
                                     DesktopPreferences& preferences, QObject* parent)
    : QObject(parent),
      session_(session),
      services_(services),
      preferences_(preferences),
      queue_(std::make_unique<BackgroundQueue>()) {
    connect(&session_, &ConfigSession::changed, this, [this] {
        derive();
        emit rowsChanged();
    });
}

StartupItemsModel::~StartupItemsModel() {
    // The worker goes first: what it posts back dies with this object.
    queue_.reset();
}

QString StartupItemsModel::loginItemsProblem() const {
    if (!scan_.loginItemsUnreadable) return {};
    return QStringLiteral("Holdenmere could not read your Login Items. Allow it to control System Events in System "
                          "Settings \u203A Privacy & Security \u203A Automation, then look again.");
}

void StartupItemsModel::rescan() {
    if (scanning_) {
        scanAgain_ = true;
        return;
    }
    scanning_ = true;
    emit scanningChanged();
    LaunchctlRunning& launchctl = services_.launchctl();
    ScriptRunning& scripts = services_.scripts();
    auto directories = services_.launchAgentDirectories();
    auto environment = services_.safetyEnvironment();
    StartupItemsModel* self = this;
    queue_->post([self, &launchctl, &scripts, directories = std::move(directories),
                  environment = std::move(environment)] {
        StartupScan scan = StartupScan::run(launchctl, scripts, directories, environment);
        QMetaObject::invokeMethod(
            self, [self, scan = std::move(scan)]() mutable { self->adoptScan(std::move(scan)); }, Qt::QueuedConnection);
    });
}

void StartupItemsModel::adoptScan(StartupScan scan) {
    scan_ = std::move(scan);
    scanned_ = true;
    scanning_ = false;
    derive();
    emit rowsChanged();
    emit scanningChanged();
    if (scanAgain_) {
        scanAgain_ = false;
        rescan();
    }
}

void StartupItemsModel::derive() {
    const HoldenmereConfig& config = session_.config();
    std::set<std::string> blocked;
    for (const auto& app : config.blockedApps) blocked.insert(app.bundleIdentifier);
    const std::set<std::string> leftToMacOS(config.leftToMacOS.begin(), config.leftToMacOS.end());

    // Login Items first, so that an app's Login Item wins over its LaunchAgent.
    std::vector<StartupItem> all;
    for (const auto& item : scan_.loginItems) {
        if (item.bundleIdentifier) all.push_back(StartupItem{*item.bundleIdentifier, item.name, item.path, StartupItem::LoginItem{}});
    }
    all.insert(all.end(), scan_.agentItems.begin(), scan_.agentItems.end());
    items_.clear();
    for (const auto& item : StartupDiscovery::unmanaged(all, config.apps)) {
        if (blocked.count(item.bundleIdentifier) != 0) continue;
        StartupItemRow row;
        row.bundleIdentifier = item.bundleIdentifier;
        row.name = item.name;
        row.path = item.path.value_or(std::string());
        row.leftToMacOS = leftToMacOS.count(item.bundleIdentifier) != 0;
        if (auto icon = scan_.icons.find(row.path); icon != scan_.icons.end()) row.iconPath = icon->second;
        if (const auto* agent = std::get_if<StartupItem::LaunchAgent>(&item.source)) {
            row.source = StartupItemRow::Source::launchAgent;
            row.label = agent->label;
            row.plistPath = agent->plistPath;
            if (auto tier = scan_.agentTiers.find(agent->label); tier != scan_.agentTiers.end()) row.tier = tier->second;
            row.chips = chipsOf(row.tier);
        } else {
            for (const auto& loginItem : scan_.loginItems) {
                if (loginItem.path == row.path) row.hidden = loginItem.hidden;
            }
        }
        items_.push_back(std::move(row));
    }

    std::set<std::string> managed;
    for (const auto& app : config.apps) managed.insert(app.bundleIdentifier);
    ineligible_.clear();
    for (const auto& item : LoginOwnership::shownIneligible(scan_.ineligible, config.apps, config.blockedApps)) {
        ineligible_.push_back(IneligibleRow{item.name, item.bundleIdentifier, item.label, item.reason,
                                            managed.count(item.bundleIdentifier) != 0});
    }
    for (const auto& item : scan_.loginItems) {
        if (item.bundleIdentifier) continue;
        ineligible_.push_back(IneligibleRow{item.name, {}, item.path, "not an app, left in Login Items", false});
    }

    std::vector<LaunchAgentScanner::AgentConflict> agentConflicts;
    for (const auto& app : config.apps) {
        for (const auto& item : scan_.agentItems) {
            if (item.bundleIdentifier != app.bundleIdentifier) continue;
            const auto& agent = std::get<StartupItem::LaunchAgent>(item.source);
            agentConflicts.push_back({app, agent.label, agent.plistPath});
        }
    }
    conflicts_.clear();
    for (const auto& conflict :
         StartupConflicts::merge(LoginItemsAuditor::conflicts(config.apps, scan_.loginItems), agentConflicts)) {
        ConflictRow row;
        row.bundleIdentifier = conflict.managed.bundleIdentifier;
        row.name = conflict.managed.name;
        for (const auto& loginItem : conflict.loginItems) {
            row.loginItems.push_back(loginItem.loginItem);
            if (auto icon = scan_.icons.find(loginItem.loginItem.path); icon != scan_.icons.end() && !row.iconPath) {
                row.iconPath = icon->second;
            }
        }
        for (const auto& agent : conflict.agents) {
            ConflictRow::Agent entry{agent.agentLabel, agent.plistPath, {}, {}};
            for (const auto& item : scan_.agentItems) {
                const auto* source = std::get_if<StartupItem::LaunchAgent>(&item.source);
                if (row.iconPath || source == nullptr || source->label != agent.agentLabel || !item.path) continue;
                if (auto icon = scan_.icons.find(*item.path); icon != scan_.icons.end()) row.iconPath = icon->second;
            }
            if (auto tier = scan_.agentTiers.find(agent.agentLabel); tier != scan_.agentTiers.end()) {
                entry.tier = tier->second;
            }
            entry.chips = chipsOf(entry.tier);
            row.agents.push_back(std::move(entry));
        }
        conflicts_.push_back(std::move(row));
    }
}

const StartupItemRow* StartupItemsModel::item(const std::string& bundleIdentifier) const {
    auto found = std::find_if(items_.begin(), items_.end(),
                              [&](const StartupItemRow& row) { return row.bundleIdentifier == bundleIdentifier; });
    return found == items_.end() ? nullptr : &*found;
}

const ConflictRow* StartupItemsModel::conflict(const std::string& bundleIdentifier) const {
    auto found = std::find_if(conflicts_.begin(), conflicts_.end(),
                              [&](const ConflictRow& row) { return row.bundleIdentifier == bundleIdentifier; });
    return found == conflicts_.end() ? nullptr : &*found;
}

QString StartupItemsModel::refusal(const std::string& bundleIdentifier) const {
    const StartupItemRow* row = item(bundleIdentifier);
    if (row == nullptr || row->tier.kind != SafetyTier::Kind::refused) return {};
    return text(row->tier.reason);
}

QStringList StartupItemsModel::confirmations(const std::string& bundleIdentifier) const {
    QStringList warnings;
    if (const StartupItemRow* row = item(bundleIdentifier); row && row->tier.kind == SafetyTier::Kind::needsConfirmation) {
        for (const auto& warning : row->tier.warnings) warnings << text(warning);
    }
    return warnings;
}

QStringList StartupItemsModel::conflictConfirmations(const std::string& bundleIdentifier) const {
    QStringList warnings;
    if (const ConflictRow* row = conflict(bundleIdentifier)) {
        for (const auto& agent : row->agents) {
            if (agent.tier.kind != SafetyTier::Kind::needsConfirmation) continue;
            for (const auto& warning : agent.tier.warnings) {
                if (!warnings.contains(text(warning))) warnings << text(warning);
            }
        }
    }
    return warnings;
}

void StartupItemsModel::startAction(std::function<std::pair<QStringList, bool>()> work) {
    ++busy_;
    emit busyChanged();
    StartupItemsModel* self = this;
    queue_->post([self, work = std::move(work)] {
        auto [lines, ok] = work();
        QMetaObject::invokeMethod(
            self, [self, lines, ok] { self->endAction(lines, ok); }, Qt::QueuedConnection);
    });
}

void StartupItemsModel::endAction(const QStringList& lines, bool ok) {
    --busy_;
    session_.reload();
    emit busyChanged();
    emit finished(lines.join(QLatin1Char('\n')), ok);
    rescan();
}

namespace {

std::pair<QStringList, bool> asLines(const Outcome& outcome) {
    QStringList lines;
    for (const auto& line : outcome.lines) lines << text(line);
    return {lines, outcome.ok};
}

}  // namespace

bool StartupItemsModel::takeOver(const std::string& bundleIdentifier, bool confirmed) {
    const StartupItemRow* found = item(bundleIdentifier);
    if (found == nullptr) return false;
    const StartupItemRow row = *found;
    if (row.source == StartupItemRow::Source::launchAgent) {
        // Nothing is asked of the system for what the rules do not allow.
        if (row.tier.kind == SafetyTier::Kind::refused) {
            emit finished(QStringLiteral("%1 was not taken over: %2").arg(text(row.name), text(row.tier.reason)), false);
            return false;
        }
        if (row.tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed) {
            emit finished(QStringLiteral("%1 was not taken over: it needs your confirmation first.").arg(text(row.name)),
                          false);
            return false;
        }
    }
    const ConfigStore store = session_.store();
    if (row.source == StartupItemRow::Source::loginItem) {
        ScriptRunning& scripts = services_.scripts();
        startAction([row, store, &scripts] { return asLines(takeOverLoginItem(row, store, scripts)); });
    } else {
        LaunchctlRunning& launchctl = services_.launchctl();
        auto environment = services_.safetyEnvironment();
        startAction([row, confirmed, store, &launchctl, environment] {
            return asLines(takeOverAgent(row, confirmed, store, launchctl, environment));
        });
    }
    return true;
}

bool StartupItemsModel::endConflict(const std::string& bundleIdentifier, bool confirmed) {
    const ConflictRow* found = conflict(bundleIdentifier);
    if (found == nullptr) return false;
    if (!confirmed && !conflictConfirmations(bundleIdentifier).isEmpty()) {
        emit finished(QStringLiteral("%1: nothing was changed \u2014 it needs your confirmation first.")
                          .arg(text(found->name)),
                      false);
        return false;
    }
    const ConflictRow row = *found;
    const ConfigStore store = session_.store();
    LaunchctlRunning& launchctl = services_.launchctl();
    ScriptRunning& scripts = services_.scripts();
    auto environment = services_.safetyEnvironment();
    startAction([row, confirmed, store, &launchctl, &scripts, environment] {
        return asLines(endConflictJob(row, confirmed, store, launchctl, scripts, environment));
    });
    return true;
}

StartupConsent StartupItemsModel::consent() const { return session_.config().startupConsent; }

QString StartupItemsModel::consentText() const {
    const HoldenmereConfig& config = session_.config();
    const QString state = QStringLiteral("Startup take-over: %1.").arg(text(std::string(rawValue(config.startupConsent))));
    switch (config.startupConsent) {
        case StartupConsent::undecided:
            return state + QStringLiteral(" Holdenmere leaves Login Items and LaunchAgents to macOS until you decide.");
        case StartupConsent::granted: {
            const auto left = config.leftToMacOS.size();
            QString rest = QStringLiteral(" At each login Holdenmere takes over the Login Items and LaunchAgents of "
                                          "apps and opens them once the network answers");
            if (left == 1) rest += QStringLiteral(", except 1 app you leave to macOS");
            if (left > 1) rest += QStringLiteral(", except %1 apps you leave to macOS").arg(left);
            return state + rest + QLatin1Char('.');
        }
        case StartupConsent::declined:
            return state + QStringLiteral(" Holdenmere leaves Login Items and LaunchAgents to macOS; you can still take "
                                          "single items over here.");
    }
    return state;
}

bool StartupItemsModel::shouldAskConsent() const {
    return consent() == StartupConsent::undecided && !preferences_.startupConsentAsked();
}

void StartupItemsModel::markConsentAsked() { preferences_.setStartupConsentAsked(true); }

bool StartupItemsModel::grantConsent(const std::vector<std::string>& leftToMacOS) {
    markConsentAsked();
    const bool done = session_.change([&](HoldenmereConfig& config) {
        const auto before = config;
        config.grantStartupConsent(leftToMacOS);
        return config != before;
    });
    if (done) {
        emit finished(QStringLiteral("From the next login Holdenmere takes startup items over and opens them once the "
                                     "network answers."),
                      true);
    }
    return done;
}

bool StartupItemsModel::declineConsent() {
    markConsentAsked();
    const bool done = session_.change([](HoldenmereConfig& config) {
        if (config.startupConsent == StartupConsent::declined) return false;
        config.declineStartupConsent();
        return true;
    });
    if (done) emit finished(QStringLiteral("Holdenmere leaves your startup items to macOS."), true);
    return done;
}

QString StartupItemsModel::giveBackQuestion() {
    return QStringLiteral("Give every startup item back to macOS?");
}

QString StartupItemsModel::giveBackDetail() {
    return QStringLiteral("Holdenmere puts back the Login Items and LaunchAgents it switched off, releases the helpers "
                          "it holds, stops taking startup items over, and turns off its login agent, so it no longer "
                          "runs at login. Items that were already off when Holdenmere found them stay off.");
}

bool StartupItemsModel::giveEverythingBack() {
    const ConfigStore store = session_.store();
    const std::filesystem::path plist = services_.loginAgentPlistPath();
    LaunchctlRunning& launchctl = services_.launchctl();
    ScriptRunning& scripts = services_.scripts();
    ++busy_;
    emit busyChanged();
    StartupItemsModel* self = this;
    queue_->post([self, store, plist, &launchctl, &scripts] {
        auto [lines, ok] = asLines(giveBackJob(store, plist, launchctl, scripts));
        QMetaObject::invokeMethod(
            self,
            [self, lines, ok] {
                --self->busy_;
                self->session_.reload();
                emit self->busyChanged();
                emit self->loginAgentChanged();
                emit self->gaveBack(lines, ok);
                self->rescan();
            },
            Qt::QueuedConnection);
    });
    return true;
}

}  // namespace holdenmere::desktop
