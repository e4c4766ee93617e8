#include "core/apps/app_discovery.h"

#include <gtest/gtest.h>

#include "tests/support/app_bundles.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::makeAppBundle;

std::vector<std::string> names(const std::vector<InstalledApp>& apps) {
    std::vector<std::string> result;
    for (const auto& app : apps) result.push_back(app.name);
    return result;
}

class AppDiscoveryTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory root;
    std::filesystem::path applications = root / "Applications";
    std::filesystem::path userApplications = root / "home/Applications";
    std::filesystem::path systemApplications = root / "System/Applications";

    std::vector<InstalledApp> scan() { return AppDiscovery::scan({applications, userApplications, systemApplications}); }
};

TEST_F(AppDiscoveryTest, DefaultFoldersInTheirOrder) {
    EXPECT_EQ(AppDiscovery::defaultFolders("/Users/ana"),
              (std::vector<std::filesystem::path>{"/Applications", "/Users/ana/Applications", "/System/Applications"}));
}

TEST_F(AppDiscoveryTest, FindsAppsInEveryFolderAndSubfolderSortedByName) {
    makeAppBundle(applications, "zeta", "com.example.zeta");
    makeAppBundle(applications / "Utilities", "Console", "com.example.console");
    makeAppBundle(userApplications, "Alpha", "com.example.alpha");
    makeAppBundle(systemApplications, "Mail", "com.example.mail");
    EXPECT_EQ(names(scan()), (std::vector<std::string>{"Alpha", "Console", "Mail", "zeta"}));
}

TEST_F(AppDiscoveryTest, DoesNotLookInsideBundlesOrHiddenFolders) {
    auto outer = makeAppBundle(applications, "Outer", "com.example.outer");
    makeAppBundle(outer / "Contents/Library/LoginItems", "Helper", "com.example.helper");
    makeAppBundle(applications / ".hidden", "Secret", "com.example.secret");
    EXPECT_EQ(names(scan()), (std::vector<std::string>{"Outer"}));
}

TEST_F(AppDiscoveryTest, StopsBelowTheDepthLimit) {
    makeAppBundle(applications / "a/b/c", "Deep", "com.example.deep");
    makeAppBundle(applications / "a/b/c/d", "TooDeep", "com.example.toodeep");
    EXPECT_EQ(names(scan()), (std::vector<std::string>{"Deep"}));
}

TEST_F(AppDiscoveryTest, AnIdentifierFoundTwiceKeepsTheFirstPlace) {
    auto first = makeAppBundle(applications, "Notecraft", "com.example.notes");
    makeAppBundle(userApplications, "Notecraft", "com.example.notes");
    auto apps = scan();
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps[0].path, first);
}

TEST_F(AppDiscoveryTest, BundlesWithoutIdentifierAreAllListed) {
    std::filesystem::create_directories(applications / "One.app/Contents");
    std::filesystem::create_directories(userApplications / "Two.app/Contents");
    EXPECT_EQ(names(scan()), (std::vector<std::string>{"One", "Two"}));
}

TEST_F(AppDiscoveryTest, LinkedBundlesCountButLinkedFoldersAreNotEntered) {
    auto real = makeAppBundle(root / "elsewhere", "Linked", "com.example.linked");
    makeAppBundle(root / "elsewhere/more", "Behind", "com.example.behind");
    std::filesystem::create_directories(applications);
    std::filesystem::create_directory_symlink(real, applications / "Linked.app");
    std::filesystem::create_directory_symlink(root / "elsewhere/more", applications / "more");
    // A link back up would loop forever if it were followed.
    std::filesystem::create_directory_symlink(applications, applications / "loop");
    EXPECT_EQ(names(scan()), (std::vector<std::string>{"Linked"}));
}

TEST_F(AppDiscoveryTest, MissingFoldersAreSkipped) {
    EXPECT_TRUE(AppDiscovery::scan({root / "nowhere"}).empty());
    makeAppBundle(systemApplications, "Calm", "com.example.calm");
    EXPECT_EQ(names(scan()), (std::vector<std::string>{"Calm"}));
}

TEST_F(AppDiscoveryTest, AFileNamedLikeABundleIsNoApp) {
    testing::writeBytes(applications / "Fake.app", "not a folder");
    EXPECT_TRUE(scan().empty());
}

}  // namespace
}  // namespace holdenmere
