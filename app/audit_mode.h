#pragma once

#include <ostream>

namespace holdenmere {

// `--audit`: what Holdenmere manages and what macOS started before the gate
// at the last login, read from the configuration and the run log.
int runAudit(std::ostream& out, std::ostream& err);

}  // namespace holdenmere
