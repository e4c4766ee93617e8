#include <QSignalSpy>
#include <QTest>

#include "app/desktop/network_test_model.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

namespace {

// A probe whose first answer waits until the test releases it, on the
// worker thread that asked: the window's thread must stay free meanwhile.
class HeldProbe final : public ReachabilityProbe {
public:
    explicit HeldProbe(std::shared_ptr<Signal> release) : release_(std::move(release)) {}
    void probe(const std::string&, double, Completion completion) override {
        release_->wait();
        completion(ProbeOutcome::reachable());
    }
    void warmUp(double) override {}

private:
    std::shared_ptr<Signal> release_;
};

}  // namespace

class NetworkTestModelTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<ConfigSession> session;

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
    }

    void reportsEachAttemptAndTheOutcome() {
        services->probeSteps = {{ProbeOutcome::failure("could not connect to the server"), 0.1, false},
                                {ProbeOutcome::failure("timed out"), 0.1, false},
                                {ProbeOutcome::reachable(), 0.1, false}};
        NetworkTestModel model(*session, *services);
        QSignalSpy attempts(&model, &NetworkTestModel::attempted);
        QSignalSpy finished(&model, &NetworkTestModel::finished);
        model.start();
        QVERIFY(model.isRunning());
        QVERIFY(finished.wait(10000));
        QVERIFY(!model.isRunning());
        QCOMPARE(attempts.count(), 3);
        QCOMPARE(model.lines(),
                 (QStringList{QStringLiteral("Asking https://captive.apple.com/hotspot-detect.html"),
                              QStringLiteral("Attempt 1 \u2014 no answer: could not connect to the server"),
                              QStringLiteral("Attempt 2 \u2014 no answer: timed out"),
                              QStringLiteral("Attempt 3 \u2014 the network answered")}));
        QVERIFY(finished.at(0).at(0).toBool());
        QVERIFY(model.summary().startsWith(QStringLiteral("The network answered after 3 attempts in ")));
    }

    void usesTheSettingsAsSavedNow() {
        HoldenmereConfig config;
        config.settings.probeURL = "http://127.0.0.1:9/probe";
        config.settings.maxAttempts = 2;
        services->configStore().save(config);  // after the session's read
        services->probeSteps = {{ProbeOutcome::failure("refused"), 0, false},
                                {ProbeOutcome::failure("refused"), 0, false}};
        std::vector<std::string> asked;
        NetworkTestModel model(*session, *services);
        QSignalSpy finished(&model, &NetworkTestModel::finished);
        model.start();
        QVERIFY(finished.wait(10000));
        QCOMPARE(model.lines().first(), QStringLiteral("Asking http://127.0.0.1:9/probe"));
        QVERIFY(!finished.at(0).at(0).toBool());
        QVERIFY(model.summary().startsWith(QStringLiteral("No answer after 2 attempts in ")));
        QVERIFY(model.summary().endsWith(QStringLiteral(": refused.")));
    }

    void theWindowThreadStaysFreeAndATestCanBeStopped() {
        auto release = std::make_shared<Signal>();
        services->probeFactory = [release] { return std::make_unique<HeldProbe>(release); };
        NetworkTestModel model(*session, *services);
        QSignalSpy finished(&model, &NetworkTestModel::finished);
        model.start();
        // start() returned while the probe is still held, and events still run.
        QVERIFY(model.isRunning());
        bool ranEvent = false;
        QMetaObject::invokeMethod(&model, [&] { ranEvent = true; }, Qt::QueuedConnection);
        QTRY_VERIFY(ranEvent);
        QVERIFY(model.isRunning());
        model.start();  // a second start while running does nothing
        model.cancel();
        release->raise();
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.count(), 1);
        QVERIFY(!model.isRunning());
    }

    void destroyingARunningTestWaitsForItsWorker() {
        auto release = std::make_shared<Signal>();
        services->probeFactory = [release] { return std::make_unique<HeldProbe>(release); };
        auto model = std::make_unique<NetworkTestModel>(*session, *services);
        model->start();
        release->raise();
        model.reset();  // joins; no call reaches the destroyed model
        QCoreApplication::processEvents();
    }

    void summaries() {
        ProbeResult result;
        result.reachable = true;
        result.attempts = 1;
        result.elapsed = 0.24;
        QCOMPARE(NetworkTestModel::summaryText(result, false), QStringLiteral("The network answered after 1 attempt in 0.2 s."));
        result.reachable = false;
        result.attempts = 4;
        result.elapsed = 12;
        QCOMPARE(NetworkTestModel::summaryText(result, true), QStringLiteral("Test stopped after 4 attempts in 12 s."));
        result.lastFailure = "HTTP 503";
        QCOMPARE(NetworkTestModel::summaryText(result, false), QStringLiteral("No answer after 4 attempts in 12 s: HTTP 503."));
    }
};

QTEST_GUILESS_MAIN(NetworkTestModelTest)
#include "network_test_model_qtest.moc"
