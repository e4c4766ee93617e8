// The ownership pass when something it needs could not be read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "tests/takeover/ownership_pass_fixture.h"

namespace holdenmere {
namespace {

using testing::Calls;
using ::testing::Contains;
using testing::OwnershipPass;

const std::string kDash = " \xE2\x80\x94 ";

TEST_F(OwnershipPass, UnreadableStateChangesNothingAndSaysSo) {
    manageAll();
    // System Events answers the paths but not the hidden flags: how to give
    // the items back is not known, so they are not removed.
    scripts.hiddenAnswer = "true";
    launchd.disabledListReadable = false;
    auto result = pass();
    EXPECT_THAT(result.lines,
                Contains("WARNING: Login Items" + kDash +
                         "the Login Items could not be read from System Events, so nothing was changed."));
    EXPECT_THAT(result.lines, Contains("Sync" + kDash +
                                       "LaunchAgent com.example.sync.agent is NOT disabled: launchd's disabled list "
                                       "could not be read, so nothing was changed."));
    EXPECT_TRUE(launchd.changes().empty());
    EXPECT_EQ(scripts.paths(), (std::vector<std::string>{mail, drive}));
    EXPECT_TRUE(file.stored.takeovers.empty());
    EXPECT_EQ(file.saves, 0);
}

// What could not be read never leads to an import, nor to removing the
// Login Item of an app Holdenmere does not manage; the pass says what it was.
struct Unread {
    std::string name;
    bool disabledListReadable;
    std::vector<std::string> unreadableDaemons;
    std::string warning;
    std::vector<std::string> appsAfter;       // managed, by name
    std::vector<std::string> loginItemsLeft;  // by name
    Calls disables;
};

void PrintTo(const Unread& row, std::ostream* out) { *out << row.name; }

class OwnershipPassUnread : public OwnershipPass, public ::testing::WithParamInterface<Unread> {};

TEST_P(OwnershipPassUnread, ImportsNothingItCannotRuleOut) {
    const Unread& row = GetParam();
    launchd.disabledListReadable = row.disabledListReadable;
    unreadableDaemons = row.unreadableDaemons;
    auto result = pass();
    EXPECT_THAT(result.lines, Contains(row.warning));
    std::vector<std::string> apps, left;
    for (const auto& app : file.stored.apps) apps.push_back(app.name);
    for (const auto& path : scripts.paths()) left.push_back(LoginItemsAuditor::itemName(path));
    EXPECT_EQ(apps, row.appsAfter);
    EXPECT_EQ(left, row.loginItemsLeft);
    EXPECT_EQ(disables(), row.disables);
}

INSTANTIATE_TEST_SUITE_P(
    , OwnershipPassUnread,
    ::testing::Values(
        // Cloud's agent may be one the user switched off: Cloud stays out;
        // Drive's Login Item is read and imported.
        Unread{"DisabledList",
               false,
               {},
               "WARNING: LaunchAgents" + kDash +
                   "launchd's disabled list could not be read, so no app was imported from them",
               {"Mail", "Sync", "Drive"},
               {},
               {}},
        Unread{"SystemDaemon",
               true,
               {"/Library/LaunchDaemons/com.example.x.plist could not be read as a property list"},
               "WARNING: system LaunchDaemons" + kDash +
                   "/Library/LaunchDaemons/com.example.x.plist could not be read as a property list; an app one of "
                   "them runs cannot be ruled out, so no app was imported and only the Login Items of managed apps "
                   "are removed",
               {"Mail", "Sync"},
               {"Drive", "Chat"},
               {{"disable", launchdServiceTarget("com.example.sync.agent")}}}),
    [](const ::testing::TestParamInfo<Unread>& row) { return row.param.name; });

}  // namespace
}  // namespace holdenmere
