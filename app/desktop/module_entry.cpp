// The desktop app's entry, the one symbol its module exports. The executable
// opens the module only for the app mode, so that the headless modes never
// load Qt and what it brings (see app/desktop_module.h).
#include <exception>
#include <iostream>

#include "app/desktop/desktop_app.h"
#include "app/desktop_module_interface.h"

extern "C" {

__attribute__((visibility("default"))) extern const int holdenmere_desktop_interface = HOLDENMERE_DESKTOP_INTERFACE;

__attribute__((visibility("default"))) int holdenmere_desktop_main(int* argc, char** argv, int openedQuietly) {
    try {
        return holdenmere::desktop::runDesktopApp(*argc, argv, openedQuietly != 0);
    } catch (const std::exception& error) {
        // Nothing may unwind into the executable, which has a C++ runtime of its own.
        std::cerr << "Holdenmere: " << error.what() << '\n';
    } catch (...) {
        std::cerr << "Holdenmere: the desktop app ended with an unknown error\n";
    }
    return 1;
}

}  // extern "C"
