#pragma once

#include <string>
#include <utility>
#include <vector>

namespace holdenmere {

// What one user action on startup state did: one line per item it touched,
// and whether every part of it went through. Made on a worker thread and
// shown by the page that asked.
struct ActionOutcome {
    std::vector<std::string> lines;
    bool ok = true;

    void fail(std::string line) {
        lines.push_back(std::move(line));
        ok = false;
    }
};

}  // namespace holdenmere
