#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <thread>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"
#include "core/reachability/probe_result.h"

namespace holdenmere::desktop {

// "Test the network now": one wait for the network with the saved settings,
// run on a worker thread so that the window never freezes, reporting each
// attempt as it ends. Nothing is recorded in the history or the log.
class NetworkTestModel : public QObject {
    Q_OBJECT

public:
    NetworkTestModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);
    // Stops a running test and waits for its worker (at most one attempt's cap).
    ~NetworkTestModel() override;

    bool isRunning() const { return running_; }
    // What is asked, then a line per attempt so far.
    const QStringList& lines() const { return lines_; }
    const QString& summary() const { return summary_; }

    // "Attempt 2 — no answer: timed out".
    static QString attemptLine(int attempt, const ProbeOutcome& outcome);
    // "The network answered after 3 attempts in 4.2 s." and the like.
    static QString summaryText(const ProbeResult& result, bool cancelled);

public slots:
    void start();
    void cancel();

signals:
    void started();
    void attempted(int attempt, const QString& line);
    void finished(bool reachable, const QString& summary);

private:
    struct Run;
    void join();

    ConfigSession& session_;
    DesktopServices& services_;
    std::shared_ptr<Run> run_;
    std::thread worker_;
    bool running_ = false;
    QStringList lines_;
    QString summary_;
};

}  // namespace holdenmere::desktop
