#include "core/config/gate_settings.h"

#include <algorithm>
#include <cmath>

#include "core/support/text.h"

namespace holdenmere {
namespace {

using text::isAsciiDigit;
using text::isAsciiLetter;
using text::isHexDigit;

// Characters a URL may hold as they stand: unreserved, reserved and '%'.
bool isURLCharacter(char c) {
    if (isAsciiLetter(c) || isAsciiDigit(c)) return true;
    switch (c) {
        case '-': case '.': case '_': case '~':
        case ':': case '/': case '?': case '#': case '[': case ']': case '@':
        case '!': case '$': case '&': case '\'': case '(': case ')':
        case '*': case '+': case ',': case ';': case '=': case '%':
            return true;
        default:
            return false;
    }
}

}  // namespace

bool isAbsoluteURL(std::string_view text) {
    if (text.empty() || !isAsciiLetter(text.front())) return false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        char c = text[index];
        if (!isURLCharacter(c)) return false;
        if (c == '%' && (index + 2 >= text.size() || !isHexDigit(text[index + 1]) || !isHexDigit(text[index + 2]))) {
            return false;
        }
    }
    // scheme = ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ) ":"
    for (std::size_t index = 1; index < text.size(); ++index) {
        char c = text[index];
        if (c == ':') return true;
        if (!(isAsciiLetter(c) || isAsciiDigit(c) || c == '+' || c == '-' || c == '.')) return false;
    }
    return false;
}

double GateSettings::clampedPollInterval(double value) {
    if (std::isnan(value) || value <= kMinPollInterval) return kMinPollInterval;
    return std::min(value, kMaxPollInterval);
}

std::int64_t GateSettings::clampedAttempts(std::int64_t value) {
    return std::clamp(value, kMinAttempts, kMaxAttempts);
}

GateSettings GateSettings::validated() const {
    GateSettings copy = *this;
    if (!isAbsoluteURL(copy.probeURL)) copy.probeURL = std::string(kDefaultProbeURL);
    copy.pollInterval = clampedPollInterval(pollInterval);
    copy.maxAttempts = clampedAttempts(maxAttempts);
    return copy;
}

double GateSettings::timeoutCeiling() const { return pollInterval * static_cast<double>(maxAttempts); }

double GateSettings::probeAttemptTimeout() const {
    return std::min(pollInterval + 1.0, kMaxProbeAttemptTimeout);
}

double GateSettings::worstCaseWait() const {
    return (pollInterval + probeAttemptTimeout()) * static_cast<double>(maxAttempts);
}

}  // namespace holdenmere
