#include "app/desktop/desktop_app.h"

#include <QApplication>

#include <iostream>
#include <stdexcept>

#include "app/desktop/app_icons.h"
#include "app/desktop/screenshot_run.h"
#include "app/desktop/ui_fixture.h"
#include "app/desktop/widgets/main_window.h"
#include "app/desktop/widgets/menu_bar_item.h"
#include "app/desktop/widgets/onboarding_steps.h"
#include "app/desktop/widgets/onboarding_window.h"
#include "core/support/environment.h"

namespace holdenmere::desktop {

DesktopApp::DesktopApp(DesktopContext& context, bool openedQuietly, QObject* parent)
    : QObject(parent), context_(context), openedQuietly_(openedQuietly) {
    window_ = std::make_unique<MainWindow>(context_);
    const QByteArray geometry = context_.preferences.windowGeometry();
    if (geometry.isEmpty() || !window_->restoreGeometry(geometry)) window_->resize(920, 640);
    connect(window_.get(), &MainWindow::quitRequested, this, &DesktopApp::quit);
    if (MenuBarItem::isAvailable()) {
        menuBarItem_ = std::make_unique<MenuBarItem>(context_.activity);
        connect(menuBarItem_.get(), &MenuBarItem::openRequested, this, &DesktopApp::openWindow);
        connect(menuBarItem_.get(), &MenuBarItem::quitRequested, this, &DesktopApp::quit);
    }
    // Switching between menu bar and Dock in the settings applies at once.
    connect(&context_.session, &ConfigSession::changed, this, &DesktopApp::applyPresence);
#ifdef __APPLE__
    // Opening the app again (from the Finder or a click on its Dock icon)
    // while it waits in the Dock without a window brings the window up.
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        // In the menu bar the item's menu is the way in; opening it must not raise the window.
        if (state != Qt::ApplicationActive || !presence_.dockIcon || window_->isVisible()) return;
        if (welcome_ && welcome_->isVisible()) return;
        openWindow();
    });
#endif
}

DesktopApp::~DesktopApp() = default;

void DesktopApp::applyPresence() {
    PresenceInputs inputs;
    inputs.menuBarMode = context_.session.config().settings.menuBarMode;
    inputs.openedQuietly = openedQuietly_;
    inputs.trayAvailable = menuBarItem_ != nullptr;
    inputs.platformHasDock = platformHasDock();
    inputs.welcomeDone = !OnboardingFlow::shouldShow(context_.preferences);
    presence_ = decidePresence(inputs);
    if (menuBarItem_) menuBarItem_->setVisible(presence_.menuBarItem);
    setDockIconVisible(presence_.dockIcon);
    qApp->setQuitOnLastWindowClosed(presence_.quitWhenWindowCloses);
}

void DesktopApp::start() {
    context_.watchFiles();
    // Before anything relies on the login agent: its plist brought up to
    // date (a failure shows in the window).
    context_.settings.updateLoginAgent();
    applyPresence();
    if (!presence_.showWindow) return;
    if (presence_.showWelcome) {
        showWelcome();
    } else {
        openWindow();
    }
}

void DesktopApp::showWelcome() {
    flow_ = std::make_unique<OnboardingFlow>(context_.addApps, context_.preferences);
    flow_->setLoginAgent(&context_.settings);
    flow_->setStartupItems(&context_.startupItems);
    welcome_ = std::make_unique<OnboardingWindow>(*flow_);
    welcome_->setStepPage(OnboardingFlow::Step::startAtLogin, new StartAtLoginStepPage(*flow_));
    welcome_->setStepPage(OnboardingFlow::Step::startupConsent, new StartupConsentStepPage(*flow_));
    connect(welcome_.get(), &OnboardingWindow::done, this, [this] {
        // The window first, so that the app never has no window open.
        openWindow();
        welcome_->hide();
        welcome_.release()->deleteLater();
        flow_.release()->deleteLater();
    });
    welcome_->show();
    welcome_->raise();
}

void DesktopApp::openWindow() {
    window_->show();
    window_->raise();
    window_->activateWindow();
}

void DesktopApp::quit() {
    context_.preferences.setWindowGeometry(window_->saveGeometry());
    qApp->quit();
}

int runDesktopApp(int& argc, char** argv, bool openedQuietly) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Holdenmere"));
    QApplication::setOrganizationDomain(QStringLiteral("tavik.com"));
    QApplication::setWindowIcon(icons::holdenmere());

    std::unique_ptr<DesktopServices> services;
    std::filesystem::path home = homeDirectory();
    bool fixtureWelcomeDone = true;
    if (auto fixture = environmentValue("HOLDENMERE_UI_FIXTURE")) {
        try {
            auto fixtureServices = FixtureDesktopServices::load(QString::fromStdString(*fixture));
            home = fixtureServices->home();
            fixtureWelcomeDone = fixtureServices->onboardingDone();
            services = std::move(fixtureServices);
        } catch (const std::exception& error) {
            std::cerr << "Holdenmere: " << error.what() << '\n';
            return 1;
        }
    } else {
        services = std::make_unique<SystemDesktopServices>();
    }
    DesktopPreferences preferences(home, DesktopPreferences::suiteFromEnvironment());
    if (environmentValue("HOLDENMERE_UI_FIXTURE")) preferences.setOnboardingDone(fixtureWelcomeDone);

    DesktopContext context(*services, preferences);
    if (auto folder = environmentValue("HOLDENMERE_UI_SCREENSHOTS")) {
        return runScreenshots(context, *folder, std::cerr);
    }
    DesktopApp app(context, openedQuietly);
    app.start();
    return QApplication::exec();
}

}  // namespace holdenmere::desktop
