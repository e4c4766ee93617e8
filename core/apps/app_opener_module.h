#pragma once

#include <string>

#include "core/apps/app_running.h"

// On macOS apps are opened through the workspace, which lives in AppKit, a
// framework the headless modes must not load. The opening is therefore a
// module of its own in the bundle's Contents/PlugIns, which SystemAppRunning
// opens the first time it opens an app. Its interface: the number below,
// exported as `holdenmere_app_opener_interface`, and
// `holdenmere_app_opener_begin`, which behaves as AppRunning::begin. Raise
// the number whenever either changes.
#define HOLDENMERE_APP_OPENER_INTERFACE 1
#define HOLDENMERE_APP_OPENER_MODULE_NAME "HoldenmereAppOpener.dylib"

namespace holdenmere {

using AppOpenerBegin = void (*)(const std::string& path, const OpenOptions& options,
                                AppRunning::Completion completion);

}  // namespace holdenmere
