#import <AppKit/AppKit.h>

#include "app/desktop/presence.h"

namespace holdenmere::desktop {

void setDockIconVisible(bool visible) {
    // An accessory app has no Dock icon and no menu of its own, and lives in the menu bar.
    [NSApp setActivationPolicy:visible ? NSApplicationActivationPolicyRegular : NSApplicationActivationPolicyAccessory];
}

bool platformHasDock() { return true; }

}  // namespace holdenmere::desktop
