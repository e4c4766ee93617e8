#pragma once

namespace holdenmere::desktop {

// How the running app shows itself, decided from the settings and the platform.
struct Presence {
    bool menuBarItem = false;           // the icon in the menu bar / system tray
    bool dockIcon = false;              // the Dock icon (macOS)
    bool showWindow = false;            // open the main window (or the welcome) now
    bool quitWhenWindowCloses = false;  // nothing would be left to reach the app by
    bool showWelcome = false;

    friend bool operator==(const Presence&, const Presence&) = default;
};

struct PresenceInputs {
    bool menuBarMode = false;     // the settings ask for the menu bar rather than the Dock
    bool openedQuietly = false;   // the login pass opened this instance
    bool trayAvailable = true;    // the platform has a menu bar / system tray
    bool platformHasDock = false; // macOS
    bool welcomeDone = true;      // the first-run window was completed
};

// Opened quietly, the app raises no window: it waits in the menu bar or the
// Dock. Where neither exists (no tray, no Dock) a window is the only way in,
// so it is shown, and closing it ends the app. Without a Dock, a quiet start
// in Dock mode uses the tray so that it stays reachable. The welcome is never
// shown on a quiet start.
Presence decidePresence(const PresenceInputs& inputs);

// Shows or hides the Dock icon (macOS); does nothing elsewhere.
void setDockIconVisible(bool visible);
bool platformHasDock();

}  // namespace holdenmere::desktop
