#pragma once

#include <string>

namespace holdenmere {

// What the lines of the log and of the command-line modes share: the tag
// each line starts with, and the dash between what a line is about and
// what is said of it ("[Holdenmere] Mail: launched — ...").
inline constexpr const char* kTag = "[Holdenmere] ";
inline constexpr const char* kDash = " \xE2\x80\x94 ";

// A line a procedure hands to the mode that prints it, with its severity, so
// that the printer routes it (errors to standard error) without reading the
// text back.
struct LogLine {
    enum class Severity { report, error };

    Severity severity = Severity::report;
    std::string text;  // as printed after the tag, "ERROR: " included

    static LogLine report(std::string text) { return {Severity::report, std::move(text)}; }
    static LogLine error(std::string text) { return {Severity::error, "ERROR: " + std::move(text)}; }
    friend bool operator==(const LogLine&, const LogLine&) = default;
};

}  // namespace holdenmere
