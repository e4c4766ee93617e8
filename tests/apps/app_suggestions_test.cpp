#include "core/apps/app_suggestions.h"

#include <gtest/gtest.h>

namespace holdenmere {
namespace {

InstalledApp app(std::string name, std::string identifier, std::vector<NetworkReason> reasons = {},
                 std::optional<std::string> category = std::nullopt) {
    InstalledApp result;
    result.name = std::move(name);
    result.bundleIdentifier = std::move(identifier);
    result.path = "/Applications/" + result.name + ".app";
    result.hasInfoPlist = true;
    result.networkReasons = std::move(reasons);
    result.category = std::move(category);
    return result;
}

std::vector<std::string> names(const std::vector<AppChoice>& choices) {
    std::vector<std::string> result;
    for (const auto& choice : choices) result.push_back(choice.app.name);
    return result;
}

class AppSuggestionsTest : public ::testing::Test {
protected:
    HoldenmereConfig config;
    std::vector<InstalledApp> installed{
        app("Abacus", "com.example.abacus"),
        app("Cloudhaven", "com.example.cloudhaven", {{"Keeps files in sync with a cloud drive", 4}}),
        app("Driftmail", "com.example.driftmail", {{"Handles email links (mailto:)", 3}, {"Opens web links", 2}}),
        app("Holdenmere", "com.tavik.holdenmere", {{"Opens web links", 2}, {"Connects to servers of its own", 2}}),
        app("Newsbeam", "com.example.newsbeam", {{"A news app", 3}}, "news"),
        app("Patchwork", "", {{"Opens web links", 2}, {"Handles email links (mailto:)", 3}}),
        app("Updater", "com.example.updater", {{"Checks online for updates", 1}}),
    };
};

TEST_F(AppSuggestionsTest, SuggestionsFirstByScoreThenEverythingElseInOrder) {
    auto choices = AppSuggestions::arrange(installed, config);
    EXPECT_EQ(names(choices), (std::vector<std::string>{"Driftmail", "Cloudhaven", "Newsbeam", "Abacus", "Patchwork",
                                                       "Updater"}));
    EXPECT_TRUE(choices[0].suggested);
    EXPECT_EQ(choices[0].reason, "Handles email links (mailto:)");
    EXPECT_TRUE(choices[2].suggested);
    EXPECT_FALSE(choices[5].suggested);
    EXPECT_EQ(choices[5].reason, "Checks online for updates");  // shown, though not suggested
}

TEST_F(AppSuggestionsTest, HoldenmereItselfIsNeverOffered) {
    for (const auto& choice : AppSuggestions::arrange(installed, config)) {
        EXPECT_NE(choice.app.bundleIdentifier, AppSuggestions::kOwnBundleIdentifier);
    }
}

TEST_F(AppSuggestionsTest, ManagedBlockedAndUnidentifiedAppsAreMarkedAndNotSuggested) {
    config.apps.push_back(AppSuggestions::managedApp(installed[2]));
    config.blockedApps.push_back({"com.example.cloudhaven", "Cloudhaven", "/Applications/Cloudhaven.app"});
    auto choices = AppSuggestions::arrange(installed, config);
    EXPECT_EQ(names(choices), (std::vector<std::string>{"Newsbeam", "Abacus", "Cloudhaven", "Driftmail", "Patchwork",
                                                       "Updater"}));
    EXPECT_EQ(choices[2].mark, AppChoice::Mark::blocked);
    EXPECT_TRUE(choices[2].canAdd());
    EXPECT_EQ(choices[3].mark, AppChoice::Mark::managed);
    EXPECT_FALSE(choices[3].canAdd());
    EXPECT_EQ(choices[4].mark, AppChoice::Mark::noIdentifier);
    EXPECT_FALSE(choices[4].canAdd());
    EXPECT_EQ(names(AppSuggestions::suggestions(installed, config)), (std::vector<std::string>{"Newsbeam"}));
}

TEST_F(AppSuggestionsTest, SearchMatchesEveryWordInNameIdentifierOrCategory) {
    EXPECT_EQ(names(AppSuggestions::arrange(installed, config, "  MAIL ")), (std::vector<std::string>{"Driftmail"}));
    EXPECT_EQ(names(AppSuggestions::arrange(installed, config, "example news")), (std::vector<std::string>{"Newsbeam"}));
    EXPECT_EQ(names(AppSuggestions::arrange(installed, config, "news drift")), (std::vector<std::string>{}));
    EXPECT_EQ(AppSuggestions::arrange(installed, config, "").size(), 6u);
    EXPECT_TRUE(AppSuggestions::matches(app("Chat", "com.example.chat", {}, "social-networking"), "social networking"));
}

TEST_F(AppSuggestionsTest, AddingAppendsUnblocksAndSkipsWhatCannotBeAdded) {
    config.apps.push_back(AppSuggestions::managedApp(installed[0]));
    config.blockedApps.push_back({"com.example.newsbeam", "Newsbeam", "/Applications/Newsbeam.app"});
    int added = AppSuggestions::add(config, {installed[4], installed[0], installed[5], installed[3], installed[1]});
    EXPECT_EQ(added, 2);
    ASSERT_EQ(config.apps.size(), 3u);
    EXPECT_EQ(config.apps[1].bundleIdentifier, "com.example.newsbeam");
    EXPECT_EQ(config.apps[2].bundleIdentifier, "com.example.cloudhaven");
    EXPECT_TRUE(config.blockedApps.empty());
}

TEST_F(AppSuggestionsTest, ANewManagedAppStartsPlain) {
    ManagedApp managed = AppSuggestions::managedApp(installed[1]);
    EXPECT_EQ(managed.name, "Cloudhaven");
    EXPECT_EQ(managed.path, "/Applications/Cloudhaven.app");
    EXPECT_TRUE(managed.isEnabled);
    EXPECT_FALSE(managed.launchHidden);
    EXPECT_EQ(managed.delaySeconds, 0);
    EXPECT_FALSE(managed.importedFromLoginItem);
}

}  // namespace
}  // namespace holdenmere
