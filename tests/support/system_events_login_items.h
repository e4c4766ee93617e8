#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// System Events' Login Items as osascript shows them, for the fakes: the
// in-memory script runner and the fake osascript executable answer the same
// scripts the same way.
namespace holdenmere::testing {

struct FakeLoginItem {
    std::string path;
    bool hidden = false;
    friend bool operator==(const FakeLoginItem&, const FakeLoginItem&) = default;
};

// What osascript would do with one script: its exit status and both streams.
struct ScriptAnswer {
    int status = 0;
    std::string output;
    std::string error;
};

class SystemEventsLoginItems {
public:
    std::vector<FakeLoginItem> items;

    // Answers the five Login Items scripts; "delete" and "make new" change
    // `items`. Lists are printed joined by ", " on one line (an empty list is
    // an empty line); deleting a name that is not there is System Events'
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

    // The items kept in a JSON file ([{"path": ..., "hidden": ...}]); a
    // missing file holds none.
    static std::vector<FakeLoginItem> load(const std::filesystem::path& file);
    static void save(const std::filesystem::path& file, const std::vector<FakeLoginItem>& items);
};

}  // namespace holdenmere::testing
