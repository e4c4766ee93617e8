#include <QCheckBox>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTest>

#include "app/desktop/desktop_preferences.h"
#include "app/desktop/onboarding_flow.h"
#include "app/desktop/presence.h"
#include "app/desktop/widgets/onboarding_steps.h"
#include "app/desktop/widgets/onboarding_window.h"
#include "tests/desktop/startup_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class OnboardingTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<AddAppsModel> apps;
    std::unique_ptr<DesktopPreferences> preferences;

    std::vector<std::string> managed() const {
        std::vector<std::string> result;
        for (const auto& app : services->configStore().load().apps) result.push_back(app.bundleIdentifier);
        return result;
    }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        services->installed = {
            testing::installedApp("Abacus", "com.example.abacus"),
            testing::installedApp("Cloudhaven", "com.example.cloudhaven", {{"Keeps files in sync", 4}}),
            testing::installedApp("Driftmail", "com.example.driftmail", {{"Handles email links (mailto:)", 3}}),
        };
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        apps = std::make_unique<AddAppsModel>(*session, *services);
        preferences = std::make_unique<DesktopPreferences>(home->path(), DesktopPreferences::suiteFromEnvironment());
    }

    void introductionIsTwoSentences() {
        const QString text = OnboardingFlow::introduction();
        QCOMPARE(text.count(QStringLiteral(". ")) + (text.endsWith(QLatin1Char('.')) ? 1 : 0), 2);
    }

    void finishingAddsTheChosenSuggestionsAndIsRemembered() {
        QVERIFY(OnboardingFlow::shouldShow(*preferences));
        OnboardingFlow flow(*apps, *preferences, {OnboardingFlow::Step::welcome, OnboardingFlow::Step::chooseApps});
        QCOMPARE(flow.current(), OnboardingFlow::Step::welcome);
        QVERIFY(!flow.canGoBack());
        flow.next();
        QCOMPARE(flow.current(), OnboardingFlow::Step::chooseApps);
        QVERIFY(flow.isLast());
        QCOMPARE(flow.suggestions().size(), std::size_t{2});
        flow.setChosen("com.example.driftmail", true);
        flow.setChosen("com.example.cloudhaven", true);
        flow.setChosen("com.example.cloudhaven", false);
        flow.setChosen("com.example.cloudhaven", true);
        QSignalSpy completed(&flow, &OnboardingFlow::completed);
        QVERIFY(flow.finish());
        QCOMPARE(completed.count(), 1);
        // In the order suggested, strongest first.
        QCOMPARE(managed(), (std::vector<std::string>{"com.example.cloudhaven", "com.example.driftmail"}));

        // A new process reads the same suite.
        DesktopPreferences again(home->path(), DesktopPreferences::suiteFromEnvironment());
        QVERIFY(!OnboardingFlow::shouldShow(again));
        QVERIFY(std::filesystem::exists(
            DesktopPreferences::fileFor(home->path(), QString::fromLatin1(DesktopPreferences::kDefaultSuite))));
    }

    void skippingAddsNothing() {
        OnboardingFlow flow(*apps, *preferences);
        flow.setChosen("com.example.driftmail", true);
        flow.skip();
        QVERIFY(!OnboardingFlow::shouldShow(*preferences));
        QVERIFY(!std::filesystem::exists(services->configStore().url));
    }

    void aFailedSaveKeepsTheWelcome() {
        services->configStore().save(HoldenmereConfig{});
        std::filesystem::resize_file(services->configStore().url, 0);  // now damaged
        session->reload();
        OnboardingFlow flow(*apps, *preferences);
        flow.setChosen("com.example.driftmail", true);
        QVERIFY(!flow.finish());
        QVERIFY(OnboardingFlow::shouldShow(*preferences));
    }

    void theSuiteComesFromTheEnvironment() {
        qputenv("HOLDENMERE_DEFAULTS_SUITE", "com.example.test-suite");
        QCOMPARE(DesktopPreferences::suiteFromEnvironment(), QStringLiteral("com.example.test-suite"));
        DesktopPreferences suite(home->path(), DesktopPreferences::suiteFromEnvironment());
        suite.setOnboardingDone(true);
        QVERIFY(std::filesystem::exists(DesktopPreferences::fileFor(home->path(), QStringLiteral("com.example.test-suite"))));
        // The default suite is untouched.
        QVERIFY(OnboardingFlow::shouldShow(*preferences));
        qputenv("HOLDENMERE_DEFAULTS_SUITE", "");
        QCOMPARE(DesktopPreferences::suiteFromEnvironment(), QStringLiteral("com.tavik.holdenmere"));
        qunsetenv("HOLDENMERE_DEFAULTS_SUITE");
    }

    void stepsCanBeSlottedIn() {
        OnboardingFlow flow(*apps, *preferences,
                            {OnboardingFlow::Step::welcome, OnboardingFlow::Step::chooseApps,
                             OnboardingFlow::Step::startAtLogin, OnboardingFlow::Step::startupConsent});
        flow.next();
        flow.next();
        QCOMPARE(flow.current(), OnboardingFlow::Step::startAtLogin);
        QVERIFY(!flow.isLast());
        flow.next();
        QCOMPARE(flow.current(), OnboardingFlow::Step::startupConsent);
        flow.next();
        QCOMPARE(flow.current(), OnboardingFlow::Step::startupConsent);
        flow.back();
        QCOMPARE(flow.index(), 2);
    }

    void theWindowWalksTheFlow() {
        OnboardingFlow flow(*apps, *preferences, {OnboardingFlow::Step::welcome, OnboardingFlow::Step::chooseApps});
        OnboardingWindow window(flow);
        QSignalSpy done(&window, &OnboardingWindow::done);
        window.show();
        QCOMPARE(window.primaryButton()->text(), QStringLiteral("Continue"));
        window.primaryButton()->click();
        QCOMPARE(flow.current(), OnboardingFlow::Step::chooseApps);
        QCOMPARE(window.primaryButton()->text(), QStringLiteral("Done"));
        QListWidget* list = window.suggestionList();
        QCOMPARE(list->count(), 2);
        list->item(1)->setCheckState(Qt::Checked);
        QCOMPARE(window.primaryButton()->text(), QStringLiteral("Add 1 App"));
        list->item(0)->setCheckState(Qt::Checked);
        QCOMPARE(window.primaryButton()->text(), QStringLiteral("Add 2 Apps"));
        window.primaryButton()->click();
        QCOMPARE(done.count(), 1);
        QCOMPARE(managed().size(), std::size_t{2});
    }

    void everyStepIsInTheDefaultFlow() {
        QCOMPARE(OnboardingFlow::defaultSteps(),
                 (std::vector<OnboardingFlow::Step>{OnboardingFlow::Step::welcome, OnboardingFlow::Step::chooseApps,
                                                    OnboardingFlow::Step::startAtLogin,
                                                    OnboardingFlow::Step::startupConsent}));
    }

    void startAtLoginIsTickedOnlyWhileTheAgentWasNeverSetUp() {
        SettingsModel settings(*session, *services);
        OnboardingFlow flow(*apps, *preferences);
        services->loginAgent = HoldenmereLoginAgentStatus::notInstalled;
        settings.refreshLoginAgent();
        flow.setLoginAgent(&settings);
        QVERIFY(flow.startAtLoginWanted());
        QVERIFY(!flow.startAtLoginAlreadyOn());
        // Switched off under Login Items by the user: stays off unless ticked.
        services->loginAgent = HoldenmereLoginAgentStatus::disabled;
        settings.refreshLoginAgent();
        flow.setLoginAgent(&settings);
        QVERIFY(!flow.startAtLoginWanted());
        services->loginAgent = HoldenmereLoginAgentStatus::activeAtLogin;
        settings.refreshLoginAgent();
        flow.setLoginAgent(&settings);
        QVERIFY(!flow.startAtLoginWanted());
        QVERIFY(flow.startAtLoginAlreadyOn());
    }

    void finishingSwitchesTheAgentOnAndSavesTheConsent() {
        // The real installer over an in-memory launchd.
        services->loginAgent.reset();
        const auto plist = home->path() / "Library/LaunchAgents/com.tavik.holdenmere.agent.plist";
        services->fakeLaunchctl.labelOfPlist[plist.string()] = "com.tavik.holdenmere.agent";
        const std::string notes = testing::writeApp(home->path(), "Notes", "com.example.notes");
        const std::string parcel = testing::writeApp(home->path(), "Parcel", "com.example.parcel");
        services->fakeScripts.loginItems.items = {{notes, false}, {parcel, false}};

        SettingsModel settings(*session, *services);
        StartupItemsModel startup(*session, *services, *preferences);
        OnboardingFlow flow(*apps, *preferences);
        flow.setLoginAgent(&settings);
        flow.setStartupItems(&startup);
        OnboardingWindow window(flow);
        auto* agentPage = new StartAtLoginStepPage(flow);
        auto* consentPage = new StartupConsentStepPage(flow);
        window.setStepPage(OnboardingFlow::Step::startAtLogin, agentPage);
        window.setStepPage(OnboardingFlow::Step::startupConsent, consentPage);
        window.show();
        window.primaryButton()->click();
        window.primaryButton()->click();
        QCOMPARE(flow.current(), OnboardingFlow::Step::startAtLogin);
        QVERIFY(agentPage->checkBox()->isChecked());
        // Nothing changes before the welcome is finished.
        QVERIFY(!std::filesystem::exists(plist));
        window.primaryButton()->click();
        QCOMPARE(flow.current(), OnboardingFlow::Step::startupConsent);
        QCOMPARE(window.primaryButton()->text(), QStringLiteral("Done"));
        QVERIFY(testing::scanned(startup));
        QCOMPARE(consentPage->list()->count(), 2);
        consentPage->grantButton()->click();
        consentPage->list()->item(1)->setCheckState(Qt::Unchecked);
        QSignalSpy done(&window, &OnboardingWindow::done);
        QVERIFY(testing::startAtLoginSwitched(settings, [&] { window.primaryButton()->click(); }));
        QCOMPARE(done.count(), 1);

        QVERIFY(std::filesystem::exists(plist));
        QCOMPARE(settings.loginAgentStatus(), HoldenmereLoginAgentStatus::activeAtLogin);
        const HoldenmereConfig config = services->configStore().load();
        QCOMPARE(config.startupConsent, StartupConsent::granted);
        QCOMPARE(config.leftToMacOS, std::vector<std::string>{"com.example.parcel"});
        // Only consent: Login Items are the login pass's to take over.
        QCOMPARE(services->fakeScripts.paths(), (std::vector<std::string>{notes, parcel}));
    }

    void finishingWithoutAnAnswerLeavesConsentUndecided() {
        SettingsModel settings(*session, *services);
        StartupItemsModel startup(*session, *services, *preferences);
        OnboardingFlow flow(*apps, *preferences);
        flow.setLoginAgent(&settings);
        flow.setStartupItems(&startup);
        flow.setStartAtLoginWanted(false);
        QVERIFY(flow.finish());
        QCOMPARE(services->configStore().load().startupConsent, StartupConsent::undecided);
        QVERIFY(services->startAtLoginRequests.empty());
        // The Startup Items page still asks, once.
        QVERIFY(startup.shouldAskConsent());
    }

    void decliningInTheWelcomeIsSaved() {
        StartupItemsModel startup(*session, *services, *preferences);
        OnboardingFlow flow(*apps, *preferences);
        flow.setStartupItems(&startup);
        flow.setConsent(OnboardingFlow::Consent::decline);
        QVERIFY(flow.finish());
        QCOMPARE(services->configStore().load().startupConsent, StartupConsent::declined);
        QVERIFY(!startup.shouldAskConsent());
    }

    void presenceRules() {
        PresenceInputs inputs;
        // An ordinary start in Dock mode on macOS: Dock icon and window.
        inputs.platformHasDock = true;
        QCOMPARE(decidePresence(inputs), (Presence{false, true, true, false, false}));
        // Opened by the login pass in menu-bar mode: only the menu-bar item.
        inputs.menuBarMode = true;
        inputs.openedQuietly = true;
        QCOMPARE(decidePresence(inputs), (Presence{true, false, false, false, false}));
        // Opened quietly in Dock mode: only the Dock icon.
        inputs.menuBarMode = false;
        QCOMPARE(decidePresence(inputs), (Presence{false, true, false, false, false}));
        // Without a Dock a quiet start keeps to the tray.
        inputs.platformHasDock = false;
        QCOMPARE(decidePresence(inputs), (Presence{true, false, false, false, false}));
        // Neither tray nor Dock: the window is the only way in.
        inputs.trayAvailable = false;
        QCOMPARE(decidePresence(inputs), (Presence{false, false, true, true, false}));
        // The welcome shows on an ordinary first start, never on a quiet one.
        inputs.welcomeDone = false;
        QCOMPARE(decidePresence(inputs).showWelcome, false);
        inputs.openedQuietly = false;
        QCOMPARE(decidePresence(inputs).showWelcome, true);
    }
};

QTEST_MAIN(OnboardingTest)
#include "onboarding_qtest.moc"
