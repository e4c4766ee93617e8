#include "app/desktop/settings_model.h"

#include <algorithm>

#include "app/desktop/presentation.h"
#include "app/desktop/startup_work.h"
#include "core/gate/open_at_login.h"

namespace holdenmere::desktop {
namespace {

QString fromView(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

SettingsModel::SettingsModel(ConfigSession& session, DesktopServices& services, QObject* parent)
    : QObject(parent),
      session_(session),
      services_(services),
      loginAgent_(services.loginAgentStatus()),
      closing_(std::make_unique<Signal>()),
      queue_(std::make_unique<BackgroundQueue>()) {
    connect(&session_, &ConfigSession::changed, this, &SettingsModel::changed);
}

SettingsModel::~SettingsModel() {
    // A switch still waiting for the lock gives up; one that runs is waited
    // for, and what it posts back dies with this object.
    closing_->raise();
    queue_.reset();
}

bool SettingsModel::changeSettings(const std::function<void(GateSettings&)>& edit) {
    return session_.change([&](HoldenmereConfig& config) {
        GateSettings wanted = config.settings;
        edit(wanted);
        wanted = wanted.validated();
        if (wanted == config.settings) return false;
        config.settings = wanted;
        return true;
    });
}

bool SettingsModel::setProbeURL(const QString& url) {
    const std::string text = url.trimmed().toStdString();
    if (!isAbsoluteURL(text)) {
        emit notice(QStringLiteral("Enter a full web address, such as %1").arg(fromView(GateSettings::kDefaultProbeURL)));
        return false;
    }
    return changeSettings([&](GateSettings& settings) { settings.probeURL = text; });
}

bool SettingsModel::resetProbeURL() {
    return changeSettings([](GateSettings& settings) { settings.probeURL = std::string(GateSettings::kDefaultProbeURL); });
}

bool SettingsModel::setPollInterval(double seconds) {
    return changeSettings([&](GateSettings& settings) { settings.pollInterval = seconds; });
}

bool SettingsModel::setMaxAttempts(int attempts) {
    return changeSettings([&](GateSettings& settings) { settings.maxAttempts = attempts; });
}

bool SettingsModel::setLaunchAnywayOnTimeout(bool on) {
    return changeSettings([&](GateSettings& settings) { settings.launchAnywayOnTimeout = on; });
}

bool SettingsModel::setGateEnabled(bool on) {
    return changeSettings([&](GateSettings& settings) { settings.isEnabled = on; });
}

bool SettingsModel::setMenuBarMode(bool on) {
    return changeSettings([&](GateSettings& settings) { settings.menuBarMode = on; });
}

bool SettingsModel::setOpenAppAtLogin(bool on) {
    return changeSettings([&](GateSettings& settings) { settings.openAppAtLogin = on; });
}

QString SettingsModel::worstCaseText() const {
    return QStringLiteral("Waits at most %1 for the network at each login.")
        .arg(presentation::duration(settings().worstCaseWait()));
}

QString SettingsModel::openAtLoginDetail() const {
    return fromView(OpenAtLogin::settingsDetail(loginAgentStatus(), settings().menuBarMode));
}

QString SettingsModel::loginAgentDetail() const { return fromView(settingsDetail(loginAgent_)); }

QString SettingsModel::offWarning() const {
    const auto& apps = session_.config().apps;
    const bool anyEnabled = std::any_of(apps.begin(), apps.end(), [](const ManagedApp& app) { return app.isEnabled; });
    if (!anyEnabled) return {};
    auto warning = OpenAtLogin::offWarning(loginAgent_);
    return warning ? fromView(*warning) : QString();
}

bool SettingsModel::canChangeStartAtLogin() const { return services_.canChangeStartAtLogin(); }

void SettingsModel::refreshLoginAgent() {
    const HoldenmereLoginAgentStatus status = services_.loginAgentStatus();
    if (status == loginAgent_) return;
    loginAgent_ = status;
    if (runsAtLogin(status)) loginAgentWarning_.clear();
    emit changed();
}

void SettingsModel::setStartAtLogin(bool on) {
    ++switching_;
    wanted_ = on;
    emit changed();
    SettingsModel* self = this;
    DesktopServices& services = services_;
    const Signal* closing = closing_.get();
    queue_->post([self, &services, closing, on] {
        const LoginAgentSwitch outcome = services.setStartAtLogin(on, closing);
        QMetaObject::invokeMethod(
            self, [self, outcome] { self->endStartAtLogin(outcome); }, Qt::QueuedConnection);
    });
}

void SettingsModel::endStartAtLogin(const LoginAgentSwitch& outcome) {
    --switching_;
    const QString text = QString::fromStdString(outcome.text());
    loginAgentWarning_ = outcome.kind == LoginAgentSwitch::Kind::notLoaded ? text : QString();
    loginAgent_ = services_.loginAgentStatus();
    const bool ok = outcome.kind != LoginAgentSwitch::Kind::notSwitched;
    if (!ok) emit notice(text);
    emit changed();
    emit startAtLoginSwitched(ok);
}

QString SettingsModel::updateFailureText(const QString& description) {
    return QStringLiteral("Could not update the Holdenmere login agent: %1").arg(description);
}

QString SettingsModel::updateLoginAgent() {
    auto failure = services_.updateLoginAgent();
    if (!failure) return {};
    const QString text = updateFailureText(QString::fromStdString(*failure));
    emit notice(text);
    return text;
}

QString SettingsModel::helpersSummary() const {
    int delayed = 0;
    int off = 0;
    for (const DelayedHelper& helper : session_.config().delayedHelpers) {
        (helper.mode == DelayedHelper::Mode::delay ? delayed : off) += 1;
    }
    if (delayed == 0 && off == 0) return QStringLiteral("No helpers of your apps are held.");
    QString text;
    if (delayed > 0) {
        text = delayed == 1 ? QStringLiteral("1 helper waits for the network")
                            : QStringLiteral("%1 helpers wait for the network").arg(delayed);
    }
    if (off > 0) {
        if (!text.isEmpty()) text += QStringLiteral(", ");
        const QString noun = text.isEmpty() ? QStringLiteral(" helper") : QString();
        const QString nouns = text.isEmpty() ? QStringLiteral(" helpers") : QString();
        text += off == 1 ? QStringLiteral("1%1 is kept off").arg(noun) : QStringLiteral("%1%2 are kept off").arg(off).arg(nouns);
    }
    return text + QLatin1Char('.');
}

}  // namespace holdenmere::desktop
