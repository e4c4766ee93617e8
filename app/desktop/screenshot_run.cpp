#include "app/desktop/screenshot_run.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QListWidget>
#include <QRadioButton>
#include <QTimer>

#include <functional>

#include "app/desktop/widgets/add_apps_page.h"
#include "app/desktop/widgets/main_window.h"
#include "app/desktop/widgets/managed_apps_page.h"
#include "app/desktop/widgets/onboarding_steps.h"
#include "app/desktop/widgets/onboarding_window.h"
#include "app/desktop/widgets/startup_items_page.h"

namespace holdenmere::desktop {
namespace {

constexpr QSize kWindowSize(920, 640);
constexpr QSize kWelcomeSize(620, 500);

void settle() {
    // Layouts and deferred updates run from the event loop.
    for (int round = 0; round < 5; ++round) QApplication::processEvents();
}

QString slug(const QString& title) { return title.toLower().replace(QLatin1Char(' '), QLatin1Char('-')); }

// Runs the event loop until `done` holds (the scans post their results to
// it), at most ten seconds.
void waitUntil(const std::function<bool()>& done) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done()) loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    poll.start(10);
    if (!done()) loop.exec();
}

bool scansDone(DesktopContext& context) {
    return context.startupItems.hasScanned() && !context.startupItems.isScanning() && context.helpers.hasScanned() &&
           !context.helpers.isBusy();
}

// Saves each window as "{name}.png" in the folder, counting what could not
// be saved.
struct Shots {
    const QDir& dir;
    std::ostream& err;
    int failures = 0;

    void save(QWidget& widget, const QString& name) {
        settle();
        const QString path = dir.filePath(name + QStringLiteral(".png"));
        if (!widget.grab().save(path)) {
            err << "Holdenmere: cannot save " << path.toStdString() << '\n';
            ++failures;
        }
    }
};

// Every page of the main window, each once what it shows has been read.
void takeWindowPages(MainWindow& window, DesktopContext& context, Shots& shots) {
    window.resize(kWindowSize);
    window.show();
    window.addAppsPage()->ensureScanned();
    if (!context.managedApps.apps().empty()) {
        window.managedAppsPage()->select(context.managedApps.apps().front().bundleIdentifier);
    }
    // The network test runs before the Activity page is taken.
    QEventLoop loop;
    QObject::connect(&context.networkTest, &NetworkTestModel::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    context.networkTest.start();
    if (context.networkTest.isRunning()) loop.exec();

    // What macOS starts at login is read on a worker thread; each page is
    // taken once the reading it started is done.
    context.startupItems.rescan();
    context.helpers.rescan();
    for (int index = 0; index < window.pageCount(); ++index) {
        window.showPageAt(index);
        settle();
        waitUntil([&] { return scansDone(context); });
        shots.save(window, slug(window.pageTitle(index)));
    }
    window.hide();
}

// The consent sheet of the Startup Items page, as it asks.
void takeConsentSheet(DesktopContext& context, Shots& shots) {
    StartupConsentDialog sheet(context.startupItems.items(), {"com.example.vaultguard"});
    sheet.resize(kWelcomeSize);
    sheet.show();
    shots.save(sheet, QStringLiteral("startup-consent"));
    sheet.hide();
}

// The welcome, on its own preferences' behalf: nothing is finished or saved.
void takeWelcome(DesktopContext& context, Shots& shots) {
    OnboardingFlow flow(context.addApps, context.preferences);
    flow.setLoginAgent(&context.settings);
    flow.setStartupItems(&context.startupItems);
    OnboardingWindow welcome(flow);
    welcome.setStepPage(OnboardingFlow::Step::startAtLogin, new StartAtLoginStepPage(flow));
    auto* consentPage = new StartupConsentStepPage(flow);
    welcome.setStepPage(OnboardingFlow::Step::startupConsent, consentPage);
    welcome.resize(kWelcomeSize);
    welcome.show();
    shots.save(welcome, QStringLiteral("welcome"));
    flow.next();
    QListWidget* list = welcome.suggestionList();
    for (int row = 0; row < list->count() && row < 2; ++row) list->item(row)->setCheckState(Qt::Checked);
    shots.save(welcome, QStringLiteral("welcome-apps"));
    flow.next();
    shots.save(welcome, QStringLiteral("welcome-start-at-login"));
    flow.next();
    consentPage->grantButton()->setChecked(true);
    shots.save(welcome, QStringLiteral("welcome-startup-consent"));
    welcome.hide();
}

}  // namespace

int runScreenshots(DesktopContext& context, const std::string& folder, std::ostream& err) {
    QApplication::setQuitOnLastWindowClosed(false);
    const QDir dir(QString::fromStdString(folder));
    if (!QDir().mkpath(dir.absolutePath())) {
        err << "Holdenmere: cannot create " << folder << '\n';
        return 1;
    }
    Shots shots{dir, err};
    MainWindow window(context);
    takeWindowPages(window, context, shots);
    takeConsentSheet(context, shots);
    takeWelcome(context, shots);
    return shots.failures == 0 ? 0 : 1;
}

}  // namespace holdenmere::desktop
