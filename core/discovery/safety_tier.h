#pragma once

#include <string>
#include <utility>
#include <vector>

namespace holdenmere {

// What switching one startup item off would mean: refused outright, allowed
// after the user confirms one or more warnings, or simply allowed.
struct SafetyTier {
    enum class Kind { refused, needsConfirmation, allowed };

    Kind kind = Kind::allowed;
    std::string reason;                 // refused only
    std::vector<std::string> warnings;  // needsConfirmation only, in order

    static SafetyTier refused(std::string reason) { return {Kind::refused, std::move(reason), {}}; }
    static SafetyTier needsConfirmation(std::vector<std::string> warnings) {
        return {Kind::needsConfirmation, {}, std::move(warnings)};
    }
    static SafetyTier allowed() { return {}; }

    friend bool operator==(const SafetyTier&, const SafetyTier&) = default;
};

}  // namespace holdenmere
