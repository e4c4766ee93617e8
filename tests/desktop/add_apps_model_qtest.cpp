#include <QSignalSpy>
#include <QTest>

#include "app/desktop/add_apps_model.h"
#include "tests/desktop/desktop_test_support.h"
#include "tests/support/app_bundles.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

namespace {

using Names = std::vector<std::string>;

Names names(const std::vector<AppChoice>& choices) {
    Names result;
    for (const auto& choice : choices) result.push_back(choice.app.name);
    return result;
}

}  // namespace

class AddAppsModelTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<AddAppsModel> model;

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        services->installed = {
            testing::installedApp("Abacus", "com.example.abacus"),
            testing::installedApp("Driftmail", "com.example.driftmail", {{"Handles email links (mailto:)", 3}}),
            testing::installedApp("Newsbeam", "com.example.newsbeam", {{"A news app", 3}}),
        };
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<AddAppsModel>(*session, *services);
    }

    void scansOnlyWhenAsked() {
        QVERIFY(!model->hasScanned());
        QVERIFY(model->choices().empty());
        QCOMPARE(services->scans, 0);
        model->rescan();
        QCOMPARE(services->scans, 1);
        QCOMPARE(names(model->choices()), (Names{"Driftmail", "Newsbeam", "Abacus"}));
        QCOMPARE(names(model->suggestions()), (Names{"Driftmail", "Newsbeam"}));
    }

    void searchFilters() {
        model->rescan();
        QSignalSpy changed(model.get(), &AddAppsModel::choicesChanged);
        model->setQuery(QStringLiteral("NEWS"));
        QCOMPARE(names(model->choices()), (Names{"Newsbeam"}));
        QCOMPARE(changed.count(), 1);
        model->setQuery(QStringLiteral("NEWS"));
        QCOMPARE(changed.count(), 1);
        // The welcome's suggestions ignore the search.
        QCOMPARE(names(model->suggestions()), (Names{"Driftmail", "Newsbeam"}));
    }

    void addingSavesAndMarksTheApps() {
        model->rescan();
        QSignalSpy notices(model.get(), &AddAppsModel::notice);
        QCOMPARE(model->add({"com.example.newsbeam", "com.example.driftmail", "com.example.unknown"}), 2);
        HoldenmereConfig saved = services->configStore().load();
        QCOMPARE(saved.apps.size(), std::size_t{2});
        QCOMPARE(saved.apps[0].bundleIdentifier, std::string("com.example.newsbeam"));
        QCOMPARE(saved.apps[1].path, std::string("/Applications/Driftmail.app"));
        QCOMPARE(notices.at(0).at(0).toString(), QStringLiteral("2 apps now open once the network answers."));
        QCOMPARE(names(model->choices()), (Names{"Abacus", "Driftmail", "Newsbeam"}));
        QCOMPARE(model->choices()[1].mark, AppChoice::Mark::managed);
        QCOMPARE(model->add({"com.example.driftmail"}), 0);
        QCOMPARE(services->configStore().load().apps.size(), std::size_t{2});
    }

    void addingASwitchedOffAppSwitchesItBackOn() {
        HoldenmereConfig config;
        config.blockedApps.push_back({"com.example.newsbeam", "Newsbeam", "/Applications/Newsbeam.app"});
        services->configStore().save(config);
        session->reload();
        model->rescan();
        QCOMPARE(names(model->choices()), (Names{"Driftmail", "Abacus", "Newsbeam"}));
        QCOMPARE(model->choices()[2].mark, AppChoice::Mark::blocked);
        QSignalSpy notices(model.get(), &AddAppsModel::notice);
        QCOMPARE(model->add({"com.example.newsbeam"}), 1);
        QCOMPARE(notices.at(0).at(0).toString(), QStringLiteral("Newsbeam now opens once the network answers."));
        HoldenmereConfig saved = services->configStore().load();
        QVERIFY(saved.blockedApps.empty());
        QCOMPARE(saved.apps.size(), std::size_t{1});
    }

    void anyBundleOnDiskCanBeAdded() {
        auto bundle = testing::makeAppBundle(home->path() / "Elsewhere", "Far Away", "com.example.faraway");
        QVERIFY(model->addBundle(bundle));
        HoldenmereConfig saved = services->configStore().load();
        QCOMPARE(saved.apps.size(), std::size_t{1});
        QCOMPARE(saved.apps[0].name, std::string("Far Away"));
        QCOMPARE(saved.apps[0].path, bundle.string());

        QSignalSpy notices(model.get(), &AddAppsModel::notice);
        QVERIFY(!model->addBundle(bundle));
        QCOMPARE(notices.at(0).at(0).toString(), QStringLiteral("Far Away is already in your list."));
    }

    void bundlesThatCannotBeOpenedAreRefused() {
        QSignalSpy notices(model.get(), &AddAppsModel::notice);
        std::filesystem::create_directories(home->path() / "Bare.app/Contents");
        QVERIFY(!model->addBundle(home->path() / "Bare.app"));
        QCOMPARE(notices.at(0).at(0).toString(),
                 QStringLiteral("Bare has no bundle identifier, so Holdenmere cannot open it at login."));
        auto own = testing::makeAppBundle(home->path(), "Holdenmere", "com.tavik.holdenmere");
        QVERIFY(!model->addBundle(own));
        QCOMPARE(notices.count(), 2);
        QVERIFY(!std::filesystem::exists(services->configStore().url));
    }
};

QTEST_GUILESS_MAIN(AddAppsModelTest)
#include "add_apps_model_qtest.moc"
