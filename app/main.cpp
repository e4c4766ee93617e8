#include <iostream>
#include <string>
#include <vector>

#include "app/command_line.h"

#ifdef HOLDENMERE_DESKTOP
#include "app/desktop/desktop_app.h"
#endif

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
#ifdef HOLDENMERE_DESKTOP
    // The desktop app takes over the process's arguments (Qt reads its own
    // options from them) only once the mode says it is the app.
    holdenmere::setDesktopEntry(
        [&argc, argv] { return holdenmere::desktop::runDesktopApp(argc, argv, holdenmere::openedQuietly()); });
#endif
    return holdenmere::runCommandLine(arguments, std::cout, std::cerr);
}
