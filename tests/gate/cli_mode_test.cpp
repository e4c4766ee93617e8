#include "core/gate/cli_mode.h"

#include <gtest/gtest.h>

#include "core/support/plist.h"

namespace holdenmere {
namespace {

CLIMode modeOf(std::vector<std::string> extra) {
    extra.insert(extra.begin(), "/Applications/Holdenmere.app/Contents/MacOS/holdenmere");
    return CLIMode::from(extra);
}

TEST(CLIModeMatching, EachOptionAlone) {
    EXPECT_EQ(modeOf({}), CLIMode::app());
    EXPECT_EQ(modeOf({"--gate"}), CLIMode::gate());
    EXPECT_EQ(modeOf({"--audit"}), CLIMode::audit());
    EXPECT_EQ(modeOf({"--help"}), CLIMode::help());
    EXPECT_EQ(modeOf({"-h"}), CLIMode::help());
    EXPECT_EQ(modeOf({"--version"}), CLIMode::version());
    EXPECT_EQ(modeOf({"-v"}), CLIMode::version());
    EXPECT_EQ(modeOf({"--restore-startup"}), CLIMode::restoreStartup(false));
    EXPECT_EQ(modeOf({"--restore-startup", "--dry-run"}), CLIMode::restoreStartup(true));
    EXPECT_EQ(modeOf({"--dry-run", "--repair-helpers"}), CLIMode::repairHelpers(true));
    EXPECT_EQ(modeOf({"--repair-helpers"}), CLIMode::repairHelpers(false));
}

TEST(CLIModeMatching, PrecedenceDecidesCombinations) {
    EXPECT_EQ(modeOf({"--restore-startup", "--dry-run", "--repair-helpers"}), CLIMode::restoreStartup(true));
    EXPECT_EQ(modeOf({"--repair-helpers", "--gate"}), CLIMode::repairHelpers(false));
    EXPECT_EQ(modeOf({"--audit", "--gate"}), CLIMode::gate());
    EXPECT_EQ(modeOf({"--help", "--gate"}), CLIMode::gate());
    EXPECT_EQ(modeOf({"--version", "--audit"}), CLIMode::audit());
    EXPECT_EQ(modeOf({"-v", "-h"}), CLIMode::help());
    EXPECT_EQ(modeOf({"--bogus", "--gate"}), CLIMode::gate());
    EXPECT_EQ(modeOf({"--bogus", "--version"}), CLIMode::version());
}

TEST(CLIModeMatching, UnknownOptionsAndIgnoredArguments) {
    EXPECT_EQ(modeOf({"-x"}), CLIMode::unknown("-x"));
    EXPECT_EQ(modeOf({"--dry-run"}), CLIMode::unknown("--dry-run"));
    EXPECT_EQ(modeOf({"word", "--first", "--second"}), CLIMode::unknown("--first"));
    EXPECT_EQ(modeOf({"--GATE"}), CLIMode::unknown("--GATE"));
    EXPECT_EQ(modeOf({"--gate=1"}), CLIMode::unknown("--gate=1"));
    EXPECT_EQ(modeOf({"plain", "words"}), CLIMode::app());
    // What the system and the frameworks hand a launched application.
    EXPECT_EQ(modeOf({"-NSDocumentRevisionsDebugMode", "YES"}), CLIMode::app());
    EXPECT_EQ(modeOf({"-psn_0_12345"}), CLIMode::app());
    EXPECT_EQ(modeOf({"-AppleLanguages", "(en)"}), CLIMode::app());
    EXPECT_EQ(modeOf({"-com.apple.foo"}), CLIMode::app());
    EXPECT_EQ(modeOf({"-NS", "-x"}), CLIMode::unknown("-x"));
}

TEST(CLIModeMatching, ExecutablePathIsNeverAnOption) {
    EXPECT_EQ(CLIMode::from({"-weird-executable-name"}), CLIMode::app());
    EXPECT_EQ(CLIMode::from({}), CLIMode::app());
    // ...but an option in element 0 still counts for the whole-vector rules.
    EXPECT_EQ(CLIMode::from({"--gate"}), CLIMode::gate());
}

TEST(CLIModeMatching, DeemsterUIOnlyAsFirstArgument) {
    EXPECT_TRUE(CLIMode::asksForDeemsterUI({"holdenmere", "--deemsterui"}));
    EXPECT_TRUE(CLIMode::asksForDeemsterUI({"holdenmere", "--deemsterui", "--gate"}));
    EXPECT_FALSE(CLIMode::asksForDeemsterUI({"holdenmere", "--gate", "--deemsterui"}));
    EXPECT_FALSE(CLIMode::asksForDeemsterUI({"--deemsterui"}));
    EXPECT_EQ(modeOf({"-x", "--deemsterui"}), CLIMode::unknown("-x"));
    EXPECT_EQ(modeOf({"word", "--deemsterui"}), CLIMode::unknown("--deemsterui"));
}

plist::Value info(std::optional<std::string> shortVersion, std::optional<plist::Value> build) {
    plist::Dictionary entries;
    if (shortVersion) entries.emplace_back("CFBundleShortVersionString", plist::Value{*shortVersion});
    if (build) entries.emplace_back("CFBundleVersion", *build);
    return plist::Value{entries};
}

TEST(CLIModeVersionText, ThreeForms) {
    EXPECT_EQ(CLIMode::versionText(std::nullopt), "Holdenmere dev (unpackaged build)");
    EXPECT_EQ(CLIMode::versionText(info(std::nullopt, plist::Value{std::string("57")})),
              "Holdenmere dev (unpackaged build)");
    EXPECT_EQ(CLIMode::versionText(info("2.1", plist::Value{std::string("2.1")})), "Holdenmere 2.1");
    EXPECT_EQ(CLIMode::versionText(info("2.1", plist::Value{std::string("57")})), "Holdenmere 2.1 (57)");
    EXPECT_EQ(CLIMode::versionText(info("2.1", std::nullopt)), "Holdenmere 2.1");
    // Values that are present but not strings count as absent.
    EXPECT_EQ(CLIMode::versionText(info("2.1", plist::Value{std::int64_t{57}})), "Holdenmere 2.1");
    plist::Value numericShort{plist::Dictionary{{"CFBundleShortVersionString", plist::Value{2.1}}}};
    EXPECT_EQ(CLIMode::versionText(numericShort), "Holdenmere dev (unpackaged build)");
}

TEST(CLIModeUsageText, FixedLayout) {
    std::string_view usage = CLIMode::usageText;
    EXPECT_TRUE(usage.starts_with("Holdenmere \xE2\x80\x94 launches login apps only after the network is reachable.\n\n"));
    EXPECT_TRUE(usage.ends_with("\n\n  HOLDENMERE_HISTORY_PATH=/tmp/probe.json Holdenmere --gate"));
    EXPECT_NE(usage.find("\n  Holdenmere --gate     run one headless login pass (what the LaunchAgent runs)\n"),
              std::string_view::npos);
    EXPECT_NE(usage.find("\n  Holdenmere --repair-helpers --dry-run\n                        list them; change nothing\n"),
              std::string_view::npos);
    EXPECT_EQ(std::count(usage.begin(), usage.end(), '\n'), 27);
}

}  // namespace
}  // namespace holdenmere
