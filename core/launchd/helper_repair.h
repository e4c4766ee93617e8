#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/startup/startup_item.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/date.h"

namespace holdenmere {

// Finds the helpers of managed apps that an earlier version left disabled in
// launchd without recording them, so that nothing would ever start them
// again, and switches them back on.
struct HelperRepair {
    struct Candidate {
        std::string label;
        std::string appName;
        std::string bundleIdentifier;
        std::string reason;  // why the scanner left it alone

        const std::string& id() const { return label; }
        // "{appName} — {label}: {reason}".
        std::string line() const;
        friend bool operator==(const Candidate&, const Candidate&) = default;
    };

    enum class Outcome { planned, repaired, failed };

    struct Step {
        Candidate candidate;
        Outcome outcome = Outcome::planned;

        // "would switch back on: …", "switched back on: …" or "FAILED: … could
        // not be switched back on".
        std::string line() const;
        friend bool operator==(const Step&, const Step&) = default;
    };

    // The LaunchAgents that the scanner found disabled in launchd and left
    // alone, kept when they belong to a managed app and none of the
    // configuration's records explains them: a delayed helper (the login pass
    // starts it), an agent of a take-over record (given back with it), or an
    // item the user chose to keep off ("keptOff", which holds such an item's
    // label). In the scanner's order.
    static std::vector<Candidate> plan(const HoldenmereConfig& config,
                                       const std::vector<IneligibleStartupItem>& disabledIneligibleAgents);

    // Switches one candidate back on; true when launchd's disabled list
    // shows it on afterwards. The startup-change engine's, so that every
    // change of launchd state goes one way.
    using Enable = std::function<bool(const Candidate& candidate)>;
    // One step per label, in order. A dry run plans every step and runs
    // nothing; otherwise each label is enabled and checked.
    static std::vector<Step> repair(const std::vector<Candidate>& candidates, const Enable& enable, bool dryRun);

    // The run log's line for a step: "[{time}] repair ({source}): {appName} —
    // {label}: {result}"; a failed step's result is "still disabled after
    // `launchctl enable`". `source` says who repaired ("cli", "app").
    static std::string logLine(const Step& step, std::string_view source, Date at);

    // Appends the steps' lines to the run log at `path` in one write, creating
    // its folder. The error text on failure, nothing on success.
    static std::optional<std::string> log(const std::vector<Step>& steps, std::string_view source,
                                          const std::filesystem::path& path, Date at);

    // The desktop app's question before repairing `count` helpers.
    static std::string question(std::size_t count);
};

}  // namespace holdenmere
