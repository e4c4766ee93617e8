#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// Reading the two launchctl outputs this program relies on. launchctl's
// manual warns that its output is not an API, so these rules are narrow and
// exact, and whatever they do not recognise is reported as absent rather than
// guessed at. Pure functions, so they are tested on captured output.
namespace holdenmere {

// The labels that "print-disabled gui/{uid}" marks disabled. Every line of
// the output that contains "=> disabled" contributes the text between its
// first two double quotes (possibly empty); lines without two double quotes
// and lines marking a label enabled are skipped. All lines count, not only
// those of the first block. Absent when the output has no
// "disabled services = {" header at all.
std::optional<std::set<std::string>> disabledLabelsFromOutput(std::string_view output);

// Every mark of "print-disabled gui/{uid}": label -> true where the line says
// "=> disabled", false where it says "=> enabled" (an override that lets a job
// run whose plist says "Disabled"). The label is read as for
// disabledLabelsFromOutput; the first line of a label decides. Absent without
// the "disabled services = {" header.
std::optional<std::map<std::string, bool>> disabledMarksFromOutput(std::string_view output);

// Whether "print-disabled" output marks the label disabled: the first
// non-empty line holding the label in double quotes decides, by whether it
// contains "=> disabled". No such line (or no output) gives false.
bool isDisabledInOutput(std::string_view output, std::string_view label);

// The labels of the service table of "print gui/{uid}", in output order and
// with duplicates kept: the lines between one that is exactly a tab and
// "services = {" and the next that is exactly a tab and "}", each giving the
// text after its last tab, trimmed of spaces (lines without a tab, or with
// nothing left, are skipped). Absent when the block never starts, never
// ends, or lists no label.
std::optional<std::vector<std::string>> serviceLabelsFromOutput(std::string_view output);

// The top-level "key = value" lines of "print {service-target}" (a block
// headed "{target} = {", its fields indented by one tab): "path", "program",
// "parent bundle identifier", … Nested blocks are passed over; the first line
// of a key counts. Absent when the output has no such header or no field.
std::optional<std::map<std::string, std::string>> serviceFieldsFromOutput(std::string_view output);

}  // namespace holdenmere
