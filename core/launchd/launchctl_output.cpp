#include "core/launchd/launchctl_output.h"

namespace holdenmere {
namespace {

constexpr std::string_view kDisabledHeader = "disabled services = {";
constexpr std::string_view kDisabledMark = "=> disabled";
constexpr std::string_view kEnabledMark = "=> enabled";
constexpr std::string_view kServicesHeader = "\tservices = {";
constexpr std::string_view kBlockEnd = "\t}";

// Calls `visit` with every line of the text split at '\n'; the text after the
// last newline is a line too. Stops early when `visit` returns false.
template <typename Visit>
void forEachLine(std::string_view text, Visit visit) {
    std::size_t start = 0;
    for (;;) {
        std::size_t end = text.find('\n', start);
        std::string_view line = text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (!visit(line)) return;
        if (end == std::string_view::npos) return;
        start = end + 1;
    }
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

std::string_view trimmingSpaces(std::string_view text) {
    std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    std::size_t last = text.find_last_not_of(' ');
    return text.substr(first, last - first + 1);
}

}  // namespace

std::optional<std::set<std::string>> disabledLabelsFromOutput(std::string_view output) {
    if (!contains(output, kDisabledHeader)) return std::nullopt;
    std::set<std::string> labels;
    forEachLine(output, [&](std::string_view line) {
        if (line.empty() || !contains(line, kDisabledMark)) return true;
        std::size_t open = line.find('"');
        if (open == std::string_view::npos) return true;
        std::size_t close = line.find('"', open + 1);
        if (close == std::string_view::npos) return true;
        labels.emplace(line.substr(open + 1, close - open - 1));
        return true;
    });
    return labels;
}

std::optional<std::map<std::string, bool>> disabledMarksFromOutput(std::string_view output) {
    if (!contains(output, kDisabledHeader)) return std::nullopt;
    std::map<std::string, bool> marks;
    forEachLine(output, [&](std::string_view line) {
        const bool disabled = contains(line, kDisabledMark);
        if (!disabled && !contains(line, kEnabledMark)) return true;
        std::size_t open = line.find('"');
        if (open == std::string_view::npos) return true;
        std::size_t close = line.find('"', open + 1);
        if (close == std::string_view::npos) return true;
        marks.emplace(line.substr(open + 1, close - open - 1), disabled);
        return true;
    });
    return marks;
}

bool isDisabledInOutput(std::string_view output, std::string_view label) {
    std::string quoted;
    quoted.reserve(label.size() + 2);
    quoted.append(1, '"').append(label).append(1, '"');
    bool disabled = false;
    forEachLine(output, [&](std::string_view line) {
        if (line.empty() || !contains(line, quoted)) return true;
        disabled = contains(line, kDisabledMark);
        return false;
    });
    return disabled;
}

std::optional<std::vector<std::string>> serviceLabelsFromOutput(std::string_view output) {
    enum class Where { before, inside, after };
    Where where = Where::before;
    std::vector<std::string> labels;
    forEachLine(output, [&](std::string_view line) {
        if (where == Where::before) {
            if (line == kServicesHeader) where = Where::inside;
            return true;
        }
        if (line == kBlockEnd) {
            where = Where::after;
            return false;
        }
        std::size_t lastTab = line.rfind('\t');
        if (lastTab == std::string_view::npos) return true;
        std::string_view label = trimmingSpaces(line.substr(lastTab + 1));
        if (!label.empty()) labels.emplace_back(label);
        return true;
    });
    if (where != Where::after || labels.empty()) return std::nullopt;
    return labels;
}

std::optional<std::map<std::string, std::string>> serviceFieldsFromOutput(std::string_view output) {
    std::map<std::string, std::string> fields;
    bool headed = false;
    forEachLine(output, [&](std::string_view line) {
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (!headed) {
            if (line.empty()) return true;
            headed = line.ends_with(" = {") && !line.starts_with('\t');
            return headed;
        }
        if (line == "}") return false;
        if (line.size() < 2 || line[0] != '\t' || line[1] == '\t' || line.ends_with('{')) return true;
        const auto separator = line.find(" = ");
        if (separator == std::string_view::npos) return true;
        fields.emplace(std::string(line.substr(1, separator - 1)), std::string(line.substr(separator + 3)));
        return true;
    });
    if (!headed || fields.empty()) return std::nullopt;
    return fields;
}

}  // namespace holdenmere
