#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace holdenmere {

// The launchd labels that the sibling job runner Brackenspur owns, read from
// its owned-labels file. Brackenspur starts and stops those jobs itself, so
// the inventory names them apart and offers no switch for them.
struct BrackenspurLabels {
    // The file's path; an empty value counts as unset.
    static constexpr const char* kVariable = "HOLDENMERE_BRACKENSPUR_OWNED_LABELS";

    std::vector<std::string> labels;
    // Why the file named by the variable could not be read; nothing when it
    // was read or when no file is named.
    std::optional<std::string> failure;

    // The file named by HOLDENMERE_BRACKENSPUR_OWNED_LABELS; no labels and no
    // failure when the variable is unset.
    static BrackenspurLabels fromEnvironment();
    static BrackenspurLabels read(const std::filesystem::path& file);
    // The file's text: a JSON array of label strings, or one label a line
    // (blank lines and lines starting with "#" skipped). Nothing when it is
    // neither: a label never holds white space, quotes or control characters.
    static std::optional<std::vector<std::string>> parse(std::string_view text);
};

}  // namespace holdenmere
