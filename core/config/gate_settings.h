#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace holdenmere {

// How the login pass waits for the network.
struct GateSettings {
    // The platform vendor's captive-portal detection page: it answers 200 with
    // a tiny body once the network really reaches the internet.
    static constexpr std::string_view kDefaultProbeURL = "https://captive.apple.com/hotspot-detect.html";
    // No single probe attempt may take longer than this, whatever the interval.
    static constexpr double kMaxProbeAttemptTimeout = 1.5;

    static constexpr double kMinPollInterval = 0.5;
    static constexpr double kMaxPollInterval = 60.0;
    static constexpr std::int64_t kMinAttempts = 1;
    static constexpr std::int64_t kMaxAttempts = 600;

    std::string probeURL{kDefaultProbeURL};
    double pollInterval = 2.0;
    std::int64_t maxAttempts = 60;
    bool launchAnywayOnTimeout = true;
    bool isEnabled = true;
    bool menuBarMode = false;
    bool openAppAtLogin = false;

    // A copy with the probe URL replaced by the default when it is not an
    // absolute URL, the interval clamped to 0.5 ... 60 s and the attempts to 1 ... 600.
    GateSettings validated() const;

    // pollInterval x maxAttempts.
    double timeoutCeiling() const;
    // How long one probe attempt may take: min(pollInterval + 1, 1.5).
    double probeAttemptTimeout() const;
    // The longest a login pass can wait for the network.
    double worstCaseWait() const;

    static double clampedPollInterval(double value);
    static std::int64_t clampedAttempts(std::int64_t value);

    friend bool operator==(const GateSettings&, const GateSettings&) = default;
};

// Whether the text parses as a URL reference and carries a scheme
// ("https:", "http:", ...). Plain words, empty text or text with spaces do not.
bool isAbsoluteURL(std::string_view text);

}  // namespace holdenmere
