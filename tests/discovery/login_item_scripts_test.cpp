#include <gtest/gtest.h>

#include "core/discovery/login_items_auditor.h"

namespace holdenmere {
namespace {

using Paths = std::vector<std::string>;

TEST(LoginItemPathList, SplitsOnlyWhereANewAbsolutePathStarts) {
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/A.app, /Applications/B, C.app, /Applications/D.app"),
              (Paths{"/Applications/A.app", "/Applications/B, C.app", "/Applications/D.app"}));
    // osascript ends its answer with a line end.
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/A.app, /Users/me/Apps/Sync.app\n"),
              (Paths{"/Applications/A.app", "/Users/me/Apps/Sync.app"}));
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/A.app,/Applications/B.app"),
              (Paths{"/Applications/A.app", "/Applications/B.app"}));
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/A.app,    /Applications/B.app"),
              (Paths{"/Applications/A.app", "/Applications/B.app"}));
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/Only One.app"), (Paths{"/Applications/Only One.app"}));
}

TEST(LoginItemPathList, ACommaInsideAPathComesBackFollowedByOneSpace) {
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/B,C.app"), (Paths{"/Applications/B, C.app"}));
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/Applications/B,   C.app"), (Paths{"/Applications/B, C.app"}));
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/A/x, y, z.app, /B.app"), (Paths{"/A/x, y, z.app", "/B.app"}));
    // A tab is no space here: the comma stays and the tab with it.
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/A/x,\t/y.app"), (Paths{"/A/x, \t/y.app"}));
    // A comma at the very end belongs to the last path.
    EXPECT_EQ(LoginItemsAuditor::splitPathList("/A.app, /B,"), (Paths{"/A.app", "/B,"}));
}

TEST(LoginItemPathList, EmptyAndBlankAnswersHoldNoPaths) {
    EXPECT_TRUE(LoginItemsAuditor::splitPathList("").empty());
    EXPECT_TRUE(LoginItemsAuditor::splitPathList("\n").empty());
    EXPECT_TRUE(LoginItemsAuditor::splitPathList(" \t\r\n ").empty());
    EXPECT_TRUE(LoginItemsAuditor::splitPathList("\u00A0\u2028").empty());
    // Empty pieces between separators are dropped.
    EXPECT_EQ(LoginItemsAuditor::splitPathList(", /A.app"), (Paths{"/A.app"}));
    EXPECT_EQ(LoginItemsAuditor::splitPathList(" , /A.app, /B.app "), (Paths{"/A.app", "/B.app"}));
}

TEST(LoginItemPathList, QuotesBackslashesAndNonAsciiPassThrough) {
    EXPECT_EQ(
        LoginItemsAuditor::splitPathList("/Apps/Say \"Hi\".app, /Apps/back\\slash.app, /Apps/\u00DCber \u2318.app\n"),
        (Paths{"/Apps/Say \"Hi\".app", "/Apps/back\\slash.app", "/Apps/\u00DCber \u2318.app"}));
    // Unicode white space is trimmed at the ends only, never inside.
    EXPECT_EQ(LoginItemsAuditor::splitPathList("\u3000/Apps/A\u00A0B.app\u00A0, /C.app\u2029"),
              (Paths{"/Apps/A\u00A0B.app", "/C.app"}));
}

TEST(LoginItemScripts, InsertedValuesAreEscapedBackslashFirstAndQuoted) {
    EXPECT_EQ(LoginItemsAuditor::quoted("/Applications/Mail.app"), R"("/Applications/Mail.app")");
    EXPECT_EQ(LoginItemsAuditor::quoted(R"(say "hi")"), R"("say \"hi\"")");
    EXPECT_EQ(LoginItemsAuditor::quoted(R"(a\b)"), R"("a\\b")");
    // A backslash before a quote: escaping the quote first would double the
    // escape's backslash too and end the string early.
    EXPECT_EQ(LoginItemsAuditor::quoted(R"(x\"y)"), R"("x\\\"y")");
    EXPECT_EQ(LoginItemsAuditor::quoted(""), R"("")");
    // Nothing else is escaped, line ends and non-ASCII included.
    EXPECT_EQ(LoginItemsAuditor::quoted("a\nb\u00E9'$"), "\"a\nb\u00E9'$\"");
}

TEST(LoginItemScripts, ScriptsAreByteForByteWithTheQuotedValue) {
    EXPECT_EQ(LoginItemsAuditor::kListPathsScript,
              "tell application \"System Events\" to get path of every login item");
    EXPECT_EQ(LoginItemsAuditor::kListHiddenScript,
              "tell application \"System Events\" to get hidden of every login item");
    EXPECT_EQ(
        LoginItemsAuditor::removeByPathScript("/Applications/Sync, Inc.app"),
        R"(tell application "System Events" to delete (every login item whose path is "/Applications/Sync, Inc.app"))");
    EXPECT_EQ(LoginItemsAuditor::removeByNameScript(R"(My "Odd" \App)"),
              R"(tell application "System Events" to delete login item "My \"Odd\" \\App")");
    EXPECT_EQ(
        LoginItemsAuditor::addScript("/Applications/Mail.app", true),
        R"(tell application "System Events" to make new login item at end with properties {path:"/Applications/Mail.app", hidden:true})");
    EXPECT_EQ(
        LoginItemsAuditor::addScript(R"(/Apps/"q"\.app)", false),
        R"(tell application "System Events" to make new login item at end with properties {path:"/Apps/\"q\"\\.app", hidden:false})");
}

TEST(LoginItemRemovalMessage, TextsAreExact) {
    EXPECT_EQ(message(LoginItemRemoval::removed, "Sync"),
              "Removed Sync from Login Items \xE2\x80\x94 Holdenmere now gates it.");
    EXPECT_EQ(message(LoginItemRemoval::reregistered, "Sync"),
              "Sync adds itself back to Login Items each time it starts. Holdenmere removes it again after each "
              "login, so it keeps waiting for the network. To stop the re-adding, turn off \"start at login\" in "
              "Sync's own settings.");
    EXPECT_EQ(message(LoginItemRemoval::failed, "Sync"),
              "Could not remove Sync from Login Items. Remove it in System Settings \xE2\x80\xBA General \xE2\x80\xBA "
              "Login Items.");
}

}  // namespace
}  // namespace holdenmere
