#include "app/desktop/presence.h"

namespace holdenmere::desktop {

Presence decidePresence(const PresenceInputs& inputs) {
    Presence presence;
    presence.dockIcon = inputs.platformHasDock && !inputs.menuBarMode;
    presence.menuBarItem =
        inputs.trayAvailable && (inputs.menuBarMode || (inputs.openedQuietly && !inputs.platformHasDock));
    const bool reachableWithoutWindow = presence.menuBarItem || presence.dockIcon;
    presence.showWindow = !inputs.openedQuietly || !reachableWithoutWindow;
    presence.quitWhenWindowCloses = !reachableWithoutWindow;
    presence.showWelcome = presence.showWindow && !inputs.openedQuietly && !inputs.welcomeDone;
    return presence;
}

#ifndef __APPLE__
void setDockIconVisible(bool) {}
bool platformHasDock() { return false; }
#endif

}  // namespace holdenmere::desktop
