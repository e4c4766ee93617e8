#include "app/desktop/startup_items_model.h"

#include <QMetaObject>

#include <algorithm>
#include <set>
#include <sstream>

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


ManagedApp appOf(const StartupItemRow& row) {
    ManagedApp app;
    app.bundleIdentifier = row.bundleIdentifier;
    app.name = row.name;
    app.path = row.path;
    return app;
}

}  // namespace

QString sourceText(const StartupItemRow& row) {
    if (row.source == StartupItemRow::Source::backgroundItem && row.opensItselfAtLogin) {
        return QStringLiteral(
            "Opens itself at login \u00B7 switch it off in System Settings \u203A General \u203A "
            "Login Items");
    }
    if (row.source == StartupItemRow::Source::backgroundItem) {
        return QStringLiteral("Background item %1").arg(text(row.backgroundIdentifier));
    }
    return row.source == StartupItemRow::Source::loginItem ? QStringLiteral("Login Item")
                                                          : QStringLiteral("LaunchAgent %1").arg(text(row.label));
}

QString sourcesText(const ConflictRow& row) {
    QStringList parts;
    if (row.loginItems.size() == 1) parts << QStringLiteral("Login Item");
    if (row.loginItems.size() > 1) parts << QStringLiteral("%1 Login Items").arg(row.loginItems.size());
    for (const ConflictRow::Agent& agent : row.agents) parts << QStringLiteral("LaunchAgent %1").arg(text(agent.label));
    for (const auto& item : row.settingsItems) parts << QStringLiteral("background item %1").arg(text(item));
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
    ToolRunning& backgroundTools = services_.backgroundItemsTool();
    const auto backgroundStore = BackgroundItemStore::besideConfig(session_.store().url);
    StartupItemsModel* self = this;
    queue_->post([self, &launchctl, &scripts, directories = std::move(directories),
                  environment = std::move(environment), &backgroundTools, backgroundStore] {
        StartupScan scan = StartupScan::run(launchctl, scripts, directories, environment, backgroundTools, backgroundStore);
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

void StartupItemsModel::derive() { listing_ = StartupItemsListing::from(scan_, session_.config()); }

const StartupItemRow* StartupItemsModel::item(const std::string& bundleIdentifier) const {
    auto found = std::find_if(items().begin(), items().end(),
                              [&](const StartupItemRow& row) { return row.bundleIdentifier == bundleIdentifier; });
    return found == items().end() ? nullptr : &*found;
}

const ConflictRow* StartupItemsModel::conflict(const std::string& bundleIdentifier) const {
    auto found = std::find_if(conflicts().begin(), conflicts().end(),
                              [&](const ConflictRow& row) { return row.bundleIdentifier == bundleIdentifier; });
    return found == conflicts().end() ? nullptr : &*found;
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
    // Nothing is asked of the system for what the rules do not allow.
    if (row.source != StartupItemRow::Source::loginItem) {
        if (auto refusal = StartupActions::tierRefusal(row.name, row.tier, confirmed)) {
            emit finished(text(*refusal), false);
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

QString StartupItemsModel::backgroundItemsProblem() const {
    if (scan_.background && !scan_.backgroundNotSaved.empty()) {
        return (scan_.earlierBackgroundSaved
                    ? QStringLiteral("Holdenmere could not save the background items it found, so the login pass "
                                     "goes on with the list saved before: %1")
                    : QStringLiteral("Holdenmere could not save the background items it found, so the login pass "
                                     "has no list of them: %1"))
            .arg(text(scan_.backgroundNotSaved));
    }
    if (scan_.background || scan_.backgroundIncomplete.empty()) return {};
    return QStringLiteral("Holdenmere could not read the background items macOS starts at login, so this list is "
                          "incomplete: %1")
        .arg(text(scan_.backgroundIncomplete));
}

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
