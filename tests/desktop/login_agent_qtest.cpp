#include <QCheckBox>
#include <QSignalSpy>
#include <QTest>

#include "app/desktop/settings_model.h"
#include "app/desktop/widgets/settings_page.h"
#include "core/launchd/agent_installer.h"
#include "core/support/files.h"
#include "core/support/plist.h"
#include "tests/desktop/desktop_test_support.h"
#include "tests/support/app_bundles.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

namespace {

const std::string kLabel(AgentInstaller::kLabel);

}  // namespace

// Start at login through the real installer against an in-memory launchd.
class LoginAgentTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<SettingsModel> model;

    std::filesystem::path plist() const { return home->path() / "Library/LaunchAgents/com.tavik.holdenmere.agent.plist"; }
    std::string target() const { return launchdServiceTarget(kLabel); }

    void makeModel() {
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<SettingsModel>(*session, *services);
    }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        services->loginAgent.reset();  // the installer decides
        services->fakeLaunchctl.labelOfPlist[plist().string()] = kLabel;
        HoldenmereConfig config;
        config.apps = {testing::managedApp("Alpha", "a")};
        services->configStore().save(config);
        makeModel();
    }

    void cleanup() {
        model.reset();
        session.reset();
    }

    void notInstalledAtFirst() {
        QCOMPARE(model->loginAgentStatus(), HoldenmereLoginAgentStatus::notInstalled);
        QCOMPARE(model->loginAgentDetail(), QStringLiteral("Not installed \u2014 Holdenmere will not run at login."));
        QVERIFY(model->canChangeStartAtLogin());
        QCOMPARE(model->offWarning(),
                 QStringLiteral("Holdenmere won't run at your next login, so these apps start before the network."));
        QCOMPARE(model->openAtLoginDetail(), QStringLiteral("Needs Start at login above."));
    }

    void turningItOnInstallsAndLoadsTheAgent() {
        QSignalSpy changed(model.get(), &SettingsModel::changed);
        QVERIFY(testing::switchStartAtLogin(*model, true));
        QCOMPARE(changed.count(), 2);  // at the start and at the end
        QVERIFY(std::filesystem::exists(plist()));
        const plist::Value written = plist::readFile(plist());
        QCOMPARE(written.stringAt("Label"), std::optional<std::string>(kLabel));
        const plist::Value* arguments = written.find("ProgramArguments");
        QVERIFY(arguments != nullptr && arguments->array() != nullptr && arguments->array()->size() == 2);
        QCOMPARE(*arguments->array()->at(0).string(), std::string("/Applications/Holdenmere.app/Contents/MacOS/holdenmere"));
        QCOMPARE(*arguments->array()->at(1).string(), std::string("--gate"));
        QCOMPARE(written.stringAt("StandardOutPath"), std::optional<std::string>(services->logPath().string()));
        QCOMPARE(services->fakeLaunchctl.changes(),
                 (std::vector<std::vector<std::string>>{
                     {"bootout", target()}, {"enable", target()}, {"bootstrap", launchdDomain(), plist().string()}}));
        QCOMPARE(model->loginAgentStatus(), HoldenmereLoginAgentStatus::activeAtLogin);
        QCOMPARE(model->loginAgentDetail(), QStringLiteral("Installed and loaded \u2014 runs at every login."));
        QVERIFY(model->loginAgentWarning().isEmpty());
        QVERIFY(model->offWarning().isEmpty());
    }

    void launchdsRefusalIsAWarningNotAFailure() {
        services->fakeLaunchctl.exitStatus["bootstrap"] = 5;
        QSignalSpy notices(model.get(), &SettingsModel::notice);
        QVERIFY(testing::switchStartAtLogin(*model, true));
        QCOMPARE(notices.count(), 0);
        QVERIFY(std::filesystem::exists(plist()));
        QCOMPARE(model->loginAgentWarning(), QStringLiteral("launchd did not load it: launchctl bootstrap exited 5"));
        QCOMPARE(model->loginAgentStatus(), HoldenmereLoginAgentStatus::installedNotLoaded);
        QCOMPARE(model->loginAgentDetail(), QStringLiteral("Plist installed but launchd has NOT loaded it."));
    }

    void turningItOffRemovesTheAgent() {
        QVERIFY(testing::switchStartAtLogin(*model, true));
        QVERIFY(testing::switchStartAtLogin(*model, false));
        QVERIFY(!std::filesystem::exists(plist()));
        const auto changes = services->fakeLaunchctl.changes();
        QCOMPARE(std::vector<std::vector<std::string>>(changes.end() - 2, changes.end()),
                 (std::vector<std::vector<std::string>>{{"bootout", target()}, {"disable", target()}}));
        QCOMPARE(model->loginAgentStatus(), HoldenmereLoginAgentStatus::notInstalled);
    }

    void anAgentSwitchedOffInLaunchdReadsDisabled() {
        QVERIFY(testing::switchStartAtLogin(*model, true));
        services->fakeLaunchctl.disabled.insert(kLabel);
        QSignalSpy changed(model.get(), &SettingsModel::changed);
        model->refreshLoginAgent();
        QCOMPARE(changed.count(), 1);
        QCOMPARE(model->loginAgentStatus(), HoldenmereLoginAgentStatus::disabled);
        QCOMPARE(model->loginAgentDetail(),
                 QStringLiteral("Disabled in Login Items \u2014 Holdenmere will not run at login."));
        QVERIFY(!model->offWarning().isEmpty());
    }

    void withoutItsOwnPathTheAppCannotChangeIt() {
        services->executable.reset();
        QVERIFY(!model->canChangeStartAtLogin());
        QSignalSpy notices(model.get(), &SettingsModel::notice);
        QVERIFY(!testing::switchStartAtLogin(*model, true));
        QCOMPARE(notices.count(), 1);
        QVERIFY(services->fakeLaunchctl.changes().empty());
        QVERIFY(!std::filesystem::exists(plist()));
    }

    void anOlderAgentIsBroughtUpToDateAtStart() {
        AgentInstaller installer(services->fakeLaunchctl, *services->executable, plist(), services->logPath());
        std::string contents = installer.plistContents();
        const std::string standard = "<string>Standard</string>";
        contents.replace(contents.find(standard), standard.size(), "<string>Background</string>");
        files::writeAtomically(plist(), contents);
        QVERIFY(model->updateLoginAgent().isEmpty());
        QCOMPARE(plist::readFile(plist()).stringAt("ProcessType"), std::optional<std::string>("Standard"));
    }

    void aPlistOfAnotherJobIsNeverRewritten() {
        const std::string foreign = testing::plistDocument("<key>Label</key><string>com.example.other</string>\n"
                                                           "<key>ProcessType</key><string>Background</string>\n");
        files::writeAtomically(plist(), foreign);
        QSignalSpy notices(model.get(), &SettingsModel::notice);
        const QString expected = QStringLiteral("Could not update the Holdenmere login agent: Cannot update the "
                                                "Holdenmere login agent: its plist is not a Holdenmere job.");
        QCOMPARE(model->updateLoginAgent(), expected);
        QCOMPARE(notices.count(), 1);
        QCOMPARE(notices.at(0).at(0).toString(), expected);
        QCOMPARE(files::read(plist()), foreign);
    }

    void theSettingsRowSwitchesTheAgent() {
        SettingsPage page(*model);
        page.show();
        QCheckBox* box = page.startAtLoginBox();
        QVERIFY(box->isEnabled());
        QVERIFY(!box->isChecked());
        QVERIFY(testing::startAtLoginSwitched(*model, [&] {
            box->click();
            // Until the switch ends the box shows what was asked for, and waits.
            QVERIFY(box->isChecked());
            QVERIFY(!box->isEnabled());
        }));
        QVERIFY(std::filesystem::exists(plist()));
        QVERIFY(box->isChecked());
        QVERIFY(box->isEnabled());
        services->fakeLaunchctl.exitStatus["bootstrap"] = 5;
        QVERIFY(testing::startAtLoginSwitched(*model, [&] { box->click(); }));
        QVERIFY(testing::startAtLoginSwitched(*model, [&] { box->click(); }));
        QCOMPARE(page.startAtLoginWarningText(), QStringLiteral("launchd did not load it: launchctl bootstrap exited 5"));
        QVERIFY(!box->isChecked());
    }
};

QTEST_MAIN(LoginAgentTest)
#include "login_agent_qtest.moc"
