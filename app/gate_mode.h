#pragma once

#include <ostream>

namespace holdenmere {

// `--gate`: one headless login pass. Log lines go to `out` (the login agent
// sends standard output to the run log), errors to `err`. Returns the exit
// status; a pass that passes its deadline ends the process itself.
int runGate(std::ostream& out, std::ostream& err);

}  // namespace holdenmere
