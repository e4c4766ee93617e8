#include "core/config/last_login_conflicts.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Reading = LastLoginConflicts::Reading;

const std::string kTwoPasses =
    "[Holdenmere] blocked: Chat \xE2\x80\x94 was switched off in Holdenmere; it does not start at login\n"
    "[2026-03-01T08:15:02Z] network reachable after 3 attempt(s) in 4.2s via https://captive.apple.com/hotspot-detect.html [v1.4.2 (57)]\n"
    "[Holdenmere] Mail: launched\n"
    "[Holdenmere] WARNING: 2 app(s) are ALSO macOS Login Items \xE2\x80\x94 macOS starts these before the network, so the gate has no effect on them:\n"
    "[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it from Login Items\n"
    "[Holdenmere]   CONFLICT: Cloud \xE2\x80\x94 Drive \xE2\x80\x94 remove it from Login Items\n"
    "\n"
    "[2026-03-02T07:00:00Z] network reachable after 1 attempt(s) in 0.1s via https://captive.apple.com/hotspot-detect.html [v1.5]\n"
    "[Holdenmere] Mail: launched\n";

TEST(LastLoginConflicts, TheLastPassWins) {
    EXPECT_EQ(LastLoginConflicts::read(std::string_view(kTwoPasses)), (Reading{"2026-03-02T07:00:00Z", "1.5", {}}));
    // Cut after the first pass: its two conflicts, the second name only up to the first dash.
    auto first = kTwoPasses.substr(0, kTwoPasses.find("\n\n"));
    EXPECT_EQ(LastLoginConflicts::read(std::string_view(first)),
              (Reading{"2026-03-01T08:15:02Z", "1.4.2 (57)", {"Mail", "Cloud"}}));
}

TEST(LastLoginConflicts, UnreachablePassesCountAndStrayLinesDoNot) {
    EXPECT_EQ(LastLoginConflicts::read(std::string_view(
                  "[2026-03-01T08:15:02Z] network UNREACHABLE after 60 attempt(s) in 210.0s via x [v1.4.2]\n"
                  "CONFLICT: Not \xE2\x80\x94 anchored\n"
                  "[Holdenmere] CONFLICT: Tight \xE2\x80\x94 spaced\n"
                  "[Holdenmere]   CONFLICT: NoDash - here\n")),
              (Reading{"2026-03-01T08:15:02Z", "1.4.2", {"Tight"}}));
    EXPECT_EQ(LastLoginConflicts::read(std::string_view("[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it\n")),
              std::nullopt);
    EXPECT_EQ(LastLoginConflicts::read(std::string_view("")), std::nullopt);
    // A stamp that is not UTC, or a version bracket without the v, is no pass line.
    EXPECT_EQ(LastLoginConflicts::read(std::string_view("[2026-03-01T08:15:02] network reachable x [v1]\n")),
              std::nullopt);
    EXPECT_EQ(LastLoginConflicts::read(std::string_view("[2026-03-01T08:15:02Z] network reachable x [1.2]\n")),
              std::nullopt);
}

TEST(LastLoginConflicts, ReadsFilesAndNothingFromMissingOnes) {
    testing::TemporaryDirectory folder;
    EXPECT_EQ(LastLoginConflicts::read(folder / "missing.log"), std::nullopt);
    EXPECT_EQ(LastLoginConflicts::read(folder.path()), std::nullopt);
    std::string log;
    for (int pass = 0; pass < 500; ++pass) log += kTwoPasses;
    log += "[2026-04-01T00:00:00Z] network reachable after 1 attempt(s) [v2.0]\n[Holdenmere]   CONFLICT: Last \xE2\x80\x94 x";
    testing::writeFile(folder / "Holdenmere.log", log);
    EXPECT_EQ(LastLoginConflicts::read(folder / "Holdenmere.log"), (Reading{"2026-04-01T00:00:00Z", "2.0", {"Last"}}));
}

}  // namespace
}  // namespace holdenmere
