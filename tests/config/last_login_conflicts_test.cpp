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

// The log is read as UTF-8 text: bytes that are not (a stray byte of
// another encoding, a cut multi-byte character) give no reading at all,
// never a pass or a conflict name made of raw bytes.
TEST(LastLoginConflicts, ALogThatIsNotUtf8GivesNoReading) {
    const std::string pass = "[2026-03-01T08:15:02Z] network reachable after 1 attempt(s) in 0.1s [v1.4.2]\n";
    const std::string conflict = "[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it from Login Items\n";
    ASSERT_TRUE(LastLoginConflicts::read(std::string_view(pass + conflict)).has_value());
    for (const std::string& bad : {std::string("[Holdenmere]   CONFLICT: Caf\xE9 \xE2\x80\x94 remove it\n"),  // Latin-1
                                   std::string("\xE2\x80\n"),              // a character cut short
                                   std::string("\xC0\xAF\n"),              // overlong
                                   std::string("\xED\xA0\x80\n"),          // a surrogate
                                   std::string("[Holdenmere] x \xFF")}) {  // unterminated last line
        EXPECT_EQ(LastLoginConflicts::read(std::string_view(pass + conflict + bad)), std::nullopt) << bad;
        EXPECT_EQ(LastLoginConflicts::read(std::string_view(bad + pass + conflict)), std::nullopt) << bad;
    }

    testing::TemporaryDirectory folder;
    testing::writeFile(folder / "Holdenmere.log",
                       pass + conflict + "[Holdenmere] Mail: launched \x96 at once\n" + pass);
    EXPECT_EQ(LastLoginConflicts::read(folder / "Holdenmere.log"), std::nullopt);
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

namespace holdenmere {
namespace {

TEST(LastLoginConflicts, GarbageAndVeryLongLinesAreHarmless) {
    // Text, but none that means anything here: control characters, brackets
    // and multi-byte characters in every order.
    const std::string_view alphabet[] = {
        "[", "]", "\r", "\t", "\x01", " ", "Z", "9", "\xE2\x80\x94", "\xC3\xA9", "\xF0\x9F\x98\x80", "\x7F"};
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage += alphabet[(i * 7919) % std::size(alphabet)];
    const std::string longTail(2 * 1024 * 1024, 'x');
    std::string log = garbage + "\n" + "[2026-03-01T08:15:02Z] network reachable after 1 attempt(s) " + longTail +
                      " [v1.0]\n" + "[Holdenmere]   CONFLICT: " + longTail + " \xE2\x80\x94 remove it from Login Items\n" +
                      "[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it from Login Items\n" + garbage;
    auto reading = LastLoginConflicts::read(std::string_view(log));
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->stamp, "2026-03-01T08:15:02Z");
    EXPECT_EQ(reading->version, "1.0");
    ASSERT_EQ(reading->conflicts.size(), 2u);
    EXPECT_EQ(reading->conflicts[1], "Mail");
    // A huge line that never closes its version bracket is no pass line.
    EXPECT_EQ(LastLoginConflicts::read(std::string_view("[2026-03-01T08:15:02Z] network reachable " + longTail)),
              std::nullopt);
}

}  // namespace
}  // namespace holdenmere

#include <random>
#include <regex>

namespace holdenmere {
namespace {

// The reader's patterns as regular expressions, for short lines only: the
// reader must agree with them on every line built from the pieces that
// matter (and their near misses).
std::optional<LastLoginConflicts::Reading> readWithRegex(const std::vector<std::string>& lines) {
    static const std::regex pass(R"(\[(\d{4}-\d{2}-\d{2}T[0-9:]+Z)\] network (?:reachable|UNREACHABLE) .*? \[v([^\]]+)\])");
    static const std::regex conflict("^\\[Holdenmere\\]\\s+CONFLICT: (.+?) \xE2\x80\x94 ");
    std::optional<LastLoginConflicts::Reading> current;
    for (const auto& line : lines) {
        if (line.empty()) continue;
        std::smatch match;
        if (std::regex_search(line, match, pass)) {
            current = LastLoginConflicts::Reading{match[1].str(), match[2].str(), {}};
        } else if (current && std::regex_search(line, match, conflict)) {
            current->conflicts.push_back(match[1].str());
        }
    }
    return current;
}

TEST(LastLoginConflicts, AgreesWithThePatternsOnGeneratedLines) {
    const std::vector<std::string> pieces = {
        "[", "]", "[2026-03-01T08:15:02Z]", "[2026-03-01T:Z]", "[2026-3-01T08:15Z]", "[2026-03-01TZ]",
        " network ", "network", "reachable", "UNREACHABLE", "unreachable", " ", "  ", " [v", "[v", "1.4.2", "]",
        " [v]", " [v1.4.2]", " [v2 (57)]", "(57)", "x", "\r", "\t", "[Holdenmere]", "[Holdenmere] ", "CONFLICT: ", "Mail",
        " \xE2\x80\x94 ", "\xE2\x80\x94", "\xE2\x80\x94 ", "9", ":", "Z", "T", "-"};
    std::mt19937 random(20261122);
    int matched = 0;
    for (int round = 0; round < 3000; ++round) {
        std::vector<std::string> lines;
        std::string text;
        const int lineCount = 1 + static_cast<int>(random() % 4);
        for (int l = 0; l < lineCount; ++l) {
            // Most lines start like one of the two kinds, so that the
            // interesting differences are in what follows.
            const std::string starts[] = {"", "[2026-03-01T08:15:02Z] network reachable ",
                                          "[Holdenmere]   CONFLICT: ", "x[2026-03-01T08:15:02Z] network UNREACHABLE"};
            std::string line = starts[random() % 4];
            const int count = 1 + static_cast<int>(random() % 6);
            for (int p = 0; p < count; ++p) line += pieces[random() % pieces.size()];
            lines.push_back(line);
            text += line + "\n";
        }
        auto expected = readWithRegex(lines);
        if (expected) ++matched;
        ASSERT_EQ(LastLoginConflicts::read(std::string_view(text)), expected) << text;
    }
    EXPECT_GT(matched, 200);  // the generator does reach the pass line often
}

}  // namespace
}  // namespace holdenmere
