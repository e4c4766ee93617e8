#include <iostream>
#include <string>
#include <vector>

#include "app/command_line.h"

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv, argv + argc);
    return holdenmere::runCommandLine(arguments, std::cout, std::cerr);
}
