#include <iostream>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/desktop_module.h"

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    // The desktop app takes over the process's arguments (Qt reads its own
    // options from them) only once the mode says it is the app; its module
    // is opened then and only then.
    holdenmere::setDesktopEntry([&argc, argv] {
        return holdenmere::DesktopModule::run(argc, argv, holdenmere::openedQuietly(), std::cerr);
    });
    return holdenmere::runCommandLine(arguments, std::cout, std::cerr);
}
