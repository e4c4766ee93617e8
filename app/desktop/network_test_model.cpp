#include "app/desktop/network_test_model.h"

#include <QMetaObject>

#include "app/desktop/presentation.h"
#include "core/reachability/reachability_gate.h"

namespace holdenmere::desktop {

// What the worker thread owns: the probe must outlive every attempt the
// gate started, so it lives as long as the run.
struct NetworkTestModel::Run {
    std::unique_ptr<ReachabilityProbe> probe;
    Signal cancellation;
};

NetworkTestModel::NetworkTestModel(ConfigSession& session, DesktopServices& services, QObject* parent)
    : QObject(parent), session_(session), services_(services) {}

NetworkTestModel::~NetworkTestModel() {
    if (run_) run_->cancellation.raise();
    join();
}

void NetworkTestModel::join() {
    if (worker_.joinable()) worker_.join();
}

QString NetworkTestModel::attemptLine(int attempt, const ProbeOutcome& outcome) {
    if (outcome.isReachable) return QStringLiteral("Attempt %1 \u2014 the network answered").arg(attempt);
    return QStringLiteral("Attempt %1 \u2014 no answer: %2").arg(attempt).arg(QString::fromStdString(outcome.failureText));
}

QString NetworkTestModel::summaryText(const ProbeResult& result, bool cancelled) {
    const QString attempts =
        result.attempts == 1 ? QStringLiteral("1 attempt") : QStringLiteral("%1 attempts").arg(result.attempts);
    const QString elapsed = presentation::duration(result.elapsed);
    if (result.reachable) return QStringLiteral("The network answered after %1 in %2.").arg(attempts, elapsed);
    if (cancelled) return QStringLiteral("Test stopped after %1 in %2.").arg(attempts, elapsed);
    QString text = QStringLiteral("No answer after %1 in %2").arg(attempts, elapsed);
    if (result.lastFailure) text += QStringLiteral(": %1").arg(QString::fromStdString(*result.lastFailure));
    return text + QLatin1Char('.');
}

void NetworkTestModel::start() {
    if (running_) return;
    join();  // a finished worker that was not joined yet
    running_ = true;
    lines_.clear();
    summary_.clear();

    // The settings as saved now, not as last shown.
    const auto saved = session_.store().tryLoad();
    const GateSettings settings = saved ? saved->settings : session_.config().settings;

    run_ = std::make_shared<Run>();
    run_->probe = services_.makeProbe();
    lines_ << QStringLiteral("Asking %1").arg(QString::fromStdString(ReachabilityGate::probeURL(settings)));
    emit started();

    // The destructor joins the worker before the object goes, and queued
    // calls die with the object, so `self` is alive wherever it is used.
    NetworkTestModel* self = this;
    Clock& clock = services_.clock();
    worker_ = std::thread([self, run = run_, settings, &clock] {
        ReachabilityGate gate(*run->probe, clock);
        ProbeResult result = gate.waitForNetwork(
            settings,
            [self](int attempt, const ProbeOutcome& outcome) {
                const QString line = attemptLine(attempt, outcome);
                QMetaObject::invokeMethod(self, [self, attempt, line] {
                    self->lines_ << line;
                    emit self->attempted(attempt, line);
                }, Qt::QueuedConnection);
            },
            &run->cancellation);
        const bool cancelled = run->cancellation.isRaised() && !result.reachable;
        const QString summary = summaryText(result, cancelled);
        QMetaObject::invokeMethod(self, [self, result, summary] {
            self->running_ = false;
            self->summary_ = summary;
            emit self->finished(result.reachable, summary);
        }, Qt::QueuedConnection);
    });
}

void NetworkTestModel::cancel() {
    if (run_) run_->cancellation.raise();
}

}  // namespace holdenmere::desktop
