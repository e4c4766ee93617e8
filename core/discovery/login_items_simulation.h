#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace holdenmere {

struct SimulatedLoginItem {
    std::string path;
    bool hidden = false;
    friend bool operator==(const SimulatedLoginItem&, const SimulatedLoginItem&) = default;
};

// What osascript does with one script: its exit status and both streams.
struct ScriptAnswer {
    int status = 0;
    std::string output;
    std::string error;
};

// System Events' Login Items, simulated in memory, answering the scripts
// the Login Items auditor sends as osascript shows the answers. The sample
// states of the desktop app and the tests' fakes both answer through it.
// Not synchronized: its owner guards it.
class SimulatedLoginItems {
public:
    std::vector<SimulatedLoginItem> items;

    // Answers "get path of every login item", "get hidden of every login
    // item", both deletes and "make new"; the last three change `items`.
    // Lists are printed joined by ", " on one line (an empty list is an
    // empty line); deleting a name that is not there is System Events'
    // -1728 error; any other script is a syntax error.
    ScriptAnswer answer(std::string_view script);

    // An error as osascript prints it on standard error: "start:end: error\n",
    // where start and end delimit the command after "tell application ... to ".
    static std::string errorLine(std::string_view script, std::string_view error);
    // The name System Events gives an item: the last path component without ".app".
    static std::string nameOf(std::string_view path);
    // An AppleScript string literal at the start of `text` (escapes: \" and
    // a doubled backslash): its value and the text after it; nothing when
    // there is none.
    static std::optional<std::pair<std::string, std::string_view>> stringLiteral(std::string_view text);
};

}  // namespace holdenmere
