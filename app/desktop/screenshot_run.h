#pragma once

#include <ostream>
#include <string>

#include "app/desktop/desktop_context.h"

namespace holdenmere::desktop {

// For the screenshot test and scripts/screenshots.sh only (set through
// HOLDENMERE_UI_SCREENSHOTS, a folder): saves a PNG of every page of the
// main window, of the startup take-over consent sheet and of every welcome
// step, at a fixed size, then returns the exit status (0 when every picture
// was saved). The Activity page is taken after a network test has run, so
// that its progress shows; the Startup Items and Settings pages once the
// startup items and helpers have been read.
int runScreenshots(DesktopContext& context, const std::string& folder, std::ostream& err);

}  // namespace holdenmere::desktop
