#include "app/desktop/startup_items_model.h"

#include <QMetaObject>

#include <algorithm>
#include <set>
#include <sstream>

#include "app/desktop/startup_background_items.h"
#include "app/desktop/startup_work.h"
#include "core/launchd/agent_installer.h"
#include "core/apps/installed_app.h"
#include "core/discovery/startup_discovery.h"
#include "core/support/text.h"
#include "core/takeover/startup_actions.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }


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

std::vector<std::string> chipsOf(const SafetyTier& tier) {
    return tier.kind == SafetyTier::Kind::needsConfirmation ? StartupSafety::chips(tier) : std::vector<std::string>{};
}

}  // namespace

StartupScan StartupScan::run(LaunchctlRunning& launchctl, ScriptRunning& scripts,
                             const std::vector<std::filesystem::path>& agentDirectories,
                             const StartupSafety::Environment& environment, BackgroundItemsTool& backgroundTool,
                             const BackgroundItemStore& backgroundStore) {
    StartupScan scan;
    NotingScripts noting(scripts);
    scan.loginItems = LoginItemsAuditor(noting).loginItems(/*readingHidden=*/true);
    scan.loginItemsUnreadable = noting.listFailed;
    const LaunchAgentScanner scanner(launchctl, agentDirectories);
    auto agents = scanner.startupItems();
    scan.agentItems = std::move(agents.items);
    scan.agentStatesUnknown = !agents.stateKnown();
    scan.ineligible = scanner.ineligibleItems();
    if (environment.systemDaemonAppPaths) scan.systemDaemonApps = environment.systemDaemonAppPaths();
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
    scanBackgroundItems(scan, backgroundTool, environment, backgroundStore);
    return scan;
}

QString StartupItemRow::sourceText() const {
    if (source == Source::backgroundItem && opensItselfAtLogin) {
        return QStringLiteral(
            "Opens itself at login \u00B7 switch it off in System Settings \u203A General \u203A "
            "Login Items");
    }
    if (source == Source::backgroundItem) return QStringLiteral("Background item %1").arg(text(backgroundIdentifier));
    return source == Source::loginItem ? QStringLiteral("Login Item") : QStringLiteral("LaunchAgent %1").arg(text(label));
}

QString ConflictRow::sourcesText() const {
    QStringList parts;
    if (loginItems.size() == 1) parts << QStringLiteral("Login Item");
    if (loginItems.size() > 1) parts << QStringLiteral("%1 Login Items").arg(loginItems.size());
    for (const Agent& agent : agents) parts << QStringLiteral("LaunchAgent %1").arg(text(agent.label));
    for (const auto& item : settingsItems) parts << QStringLiteral("background item %1").arg(text(item));
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

QString StartupItemsModel::launchAgentsProblem() const {
    if (!scan_.agentStatesUnknown) return {};
    return QStringLiteral(
        "Holdenmere could not read launchd's disabled list, so it cannot tell which LaunchAgents "
        "still start apps at login; they are not listed. Look again in a moment.");
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
    BackgroundItemsTool& backgroundTool = services_.backgroundItemsTool();
    const auto backgroundStore = BackgroundItemStore::besideConfig(session_.store().url);
    StartupItemsModel* self = this;
    queue_->post([self, &launchctl, &scripts, directories = std::move(directories),
                  environment = std::move(environment), &backgroundTool, backgroundStore] {
        StartupScan scan = StartupScan::run(launchctl, scripts, directories, environment, backgroundTool, backgroundStore);
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
    std::vector<IneligibleRow> daemonRun;
    for (const auto& item : StartupDiscovery::unmanaged(StartupDiscovery::merged(all, backgroundStartupItems(scan_)), config.apps)) {
        if (blocked.count(item.bundleIdentifier) != 0) continue;
        if (item.path && StartupSafety::runBySystemDaemon(*item.path, scan_.systemDaemonApps)) {
            const auto* agent = std::get_if<StartupItem::LaunchAgent>(&item.source);
            daemonRun.push_back(IneligibleRow{item.name, item.bundleIdentifier, agent ? agent->label : *item.path,
                                              std::string(StartupSafety::kRunBySystemDaemon), false});
            continue;
        }
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
        } else if (const auto* background = std::get_if<StartupItem::BackgroundItem>(&item.source)) {
            describeBackgroundRow(row, *background, scan_);
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
    auto ineligible = scan_.ineligible;
    if (scan_.background) ineligible.insert(ineligible.end(), scan_.background->ineligible.begin(), scan_.background->ineligible.end());
    for (const auto& item : LoginOwnership::shownIneligible(ineligible, config.apps, config.blockedApps)) {
        ineligible_.push_back(IneligibleRow{item.name, item.bundleIdentifier, item.label, item.reason,
                                            managed.count(item.bundleIdentifier) != 0});
    }
    for (const auto& item : scan_.loginItems) {
        if (item.bundleIdentifier) continue;
        ineligible_.push_back(IneligibleRow{item.name, {}, item.path, "not an app, left in Login Items", false});
    }
    ineligible_.insert(ineligible_.end(), daemonRun.begin(), daemonRun.end());

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
         StartupConflicts::merge(LoginItemsAuditor::conflicts(config.apps, scan_.loginItems), agentConflicts,
                                 backgroundConflicts(scan_, config.apps))) {
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
        describeBackgroundConflict(row, conflict, scan_);
        if (!row.iconPath) {
            if (auto icon = scan_.icons.find(conflict.managed.path); icon != scan_.icons.end()) row.iconPath = icon->second;
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

std::pair<QStringList, bool> asLines(const ActionOutcome& outcome) {
    QStringList lines;
    for (const auto& line : outcome.lines) lines << text(line);
    return {lines, outcome.ok};
}

}  // namespace

bool StartupItemsModel::takeOver(const std::string& bundleIdentifier, bool confirmed) {
    const StartupItemRow* found = item(bundleIdentifier);
    if (found == nullptr) return false;
    const StartupItemRow row = *found;
    if (row.opensLoginItemsSettings) {
        emit finished(QStringLiteral("Only System Settings can stop macOS starting %1: open Login Items Settings.")
                          .arg(text(row.name)),
                      false);
        return false;
    }
    if (row.source != StartupItemRow::Source::loginItem) {
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
    const StartupActions actions = startupActions();
    if (row.source == StartupItemRow::Source::loginItem) {
        startAction([row, actions] { return asLines(actions.takeOverLoginItem(appOf(row), row.path)); });
    } else {
        startAction([row, confirmed, actions] {
            return asLines(actions.takeOverAgent(appOf(row), {row.label, row.plistPath}, confirmed));
        });
    }
    return true;
}

bool StartupItemsModel::endConflict(const std::string& bundleIdentifier, bool confirmed) {
    const ConflictRow* found = conflict(bundleIdentifier);
    if (found == nullptr) return false;
    if (found->loginItems.empty() && found->agents.empty()) {
        openLoginItemsSettings();
        return true;
    }
    if (!confirmed && !conflictConfirmations(bundleIdentifier).isEmpty()) {
        emit finished(QStringLiteral("%1: nothing was changed \u2014 it needs your confirmation first.")
                          .arg(text(found->name)),
                      false);
        return false;
    }
    const ConflictRow row = *found;
    std::vector<std::string> loginItemPaths;
    for (const auto& item : row.loginItems) loginItemPaths.push_back(item.path);
    std::vector<StartupActions::Agent> agents;
    for (const auto& agent : row.agents) agents.push_back({agent.label, agent.plistPath});
    const StartupActions actions = startupActions();
    startAction([row, loginItemPaths, agents, confirmed, actions] {
        return asLines(actions.stopMacOSStarting(row.bundleIdentifier, row.name, loginItemPaths, agents, confirmed));
    });
    return true;
}

QString StartupItemsModel::backgroundItemsProblem() const { return desktop::backgroundItemsProblem(scan_); }

void StartupItemsModel::openLoginItemsSettings() {
    if (auto failure = services_.settingsOpening().open(BackgroundItemScanner::kLoginItemsSettingsURL)) {
        emit finished(QStringLiteral("Switch it off in System Settings › General › Login Items & Extensions. "
                                     "%1.")
                          .arg(text(*failure)),
                      false);
        return;
    }
    emit finished(QStringLiteral("System Settings shows your Login Items: switch the item off there, then look again."),
                  true);
}

StartupActions StartupItemsModel::startupActions() const {
    return StartupActions({ConfigAccess::of(session_.store()), services_.launchctl(), services_.scripts(),
                           services_.safetyEnvironment(), services_.launchAgentDirectories(),
                           services_.startupSwitches()});
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
    const StartupActions actions = startupActions();
    std::optional<AgentInstaller> installer = services_.loginAgentInstaller();
    ++busy_;
    emit busyChanged();
    StartupItemsModel* self = this;
    queue_->post([self, actions, installer]() mutable {
        auto [lines, ok] = asLines(actions.giveEverythingBack([&]() -> std::optional<std::string> {
            if (!installer) return std::string("Holdenmere's own executable could not be found");
            try {
                installer->uninstall();
                return std::nullopt;
            } catch (const AgentInstallerError& error) {
                return std::string(error.what());
            }
        }));
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
