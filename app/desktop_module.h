#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <variant>

#include "app/desktop_module_interface.h"

namespace holdenmere {

// The desktop app lives in a module of the bundle,
// Contents/PlugIns/<module> beside Contents/MacOS/<executable>, opened only
// when the app mode runs. The headless modes never open it, so they run the
// same whether it is there, damaged or missing.
class DesktopModule {
public:
    // Where the module of the bundle that holds `executable` is.
    static std::filesystem::path location(const std::filesystem::path& executable);

    // Opens the module at `path` and finds its entry; on failure, the text
    // to show ("Holdenmere: the desktop app …").
    static std::variant<HoldenmereDesktopMain, std::string> open(const std::filesystem::path& path);

    // Opens the module of this executable's bundle and runs the app. When
    // the module cannot be opened it says why on `err` and returns 1.
    static int run(int& argc, char** argv, bool openedQuietly, std::ostream& err);
};

}  // namespace holdenmere
