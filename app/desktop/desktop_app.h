#pragma once

#include <QObject>

#include <memory>

#include "app/desktop/desktop_context.h"
#include "app/desktop/onboarding_flow.h"
#include "app/desktop/presence.h"

namespace holdenmere::desktop {

class MainWindow;
class MenuBarItem;
class OnboardingWindow;

// The running desktop app: the main window, the menu-bar item and the
// welcome, shown as the presence rules say.
class DesktopApp : public QObject {
    Q_OBJECT

public:
    DesktopApp(DesktopContext& context, bool openedQuietly, QObject* parent = nullptr);
    ~DesktopApp() override;

    // Shows what should be shown now.
    void start();
    const Presence& presence() const { return presence_; }

    MainWindow* window() const { return window_.get(); }
    MenuBarItem* menuBarItem() const { return menuBarItem_.get(); }
    // While the welcome is open.
    OnboardingWindow* welcome() const { return welcome_.get(); }

public slots:
    void openWindow();
    void quit();

private:
    void applyPresence();
    void showWelcome();

    DesktopContext& context_;
    bool openedQuietly_;
    Presence presence_;
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<MenuBarItem> menuBarItem_;
    std::unique_ptr<OnboardingFlow> flow_;
    std::unique_ptr<OnboardingWindow> welcome_;
};

// The desktop app as a process: the app mode of the executable. `argc` and
// `argv` go to Qt. HOLDENMERE_UI_FIXTURE replaces the system with a fixture.
int runDesktopApp(int& argc, char** argv, bool openedQuietly);

}  // namespace holdenmere::desktop
