#include "core/config/gate_settings.h"

#include <algorithm>
#include <cmath>

namespace holdenmere {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// Characters a URL may hold as they stand: unreserved, reserved and '%'.
bool isURLCharacter(char c) {
    if (isAlpha(c) || isDigit(c)) return true;
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
    if (text.empty() || !isAlpha(text.front())) return false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        char c = text[index];
        if (!isURLCharacter(c)) return false;
        if (c == '%' && (index + 2 >= text.size() || !isHex(text[index + 1]) || !isHex(text[index + 2]))) {
            return false;
        }
    }
    // scheme = ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ) ":"
    for (std::size_t index = 1; index < text.size(); ++index) {
        char c = text[index];
        if (c == ':') return true;
        if (!(isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.')) return false;
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
