#include "core/apps/installed_app.h"

#include <gtest/gtest.h>

#include "tests/support/app_bundles.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::stringEntry;
using testing::makeAppBundle;
using testing::writeBytes;

class InstalledAppTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
};

TEST_F(InstalledAppTest, ReadsNameIdentifierCategoryAndIcon) {
    auto bundle = makeAppBundle(folder.path(), "Driftmail", "com.example.driftmail",
                                 stringEntry("CFBundleName", "Drift") + stringEntry("CFBundleIconFile", "AppIcon") +
                                     stringEntry("LSApplicationCategoryType", "public.app-category.productivity"));
    writeBytes(bundle / "Contents/Resources/AppIcon.icns", "icns");

    InstalledApp app = InstalledApp::read(bundle);
    EXPECT_EQ(app.name, "Driftmail");  // the bundle's file name, as Finder shows it
    EXPECT_EQ(app.bundleIdentifier, "com.example.driftmail");
    EXPECT_EQ(app.path, bundle);
    EXPECT_TRUE(app.hasInfoPlist);
    EXPECT_EQ(app.iconFile, "AppIcon");
    EXPECT_EQ(app.iconPath, bundle / "Contents/Resources/AppIcon.icns");
    EXPECT_EQ(app.category, "productivity");
}

TEST_F(InstalledAppTest, IconNamedWithItsExtensionOrMissing) {
    auto named = makeAppBundle(folder.path(), "Named", "com.example.named", stringEntry("CFBundleIconFile", "n.icns"));
    writeBytes(named / "Contents/Resources/n.icns", "icns");
    EXPECT_EQ(InstalledApp::read(named).iconPath, named / "Contents/Resources/n.icns");

    auto missing = makeAppBundle(folder.path(), "NoIcon", "com.example.noicon", stringEntry("CFBundleIconFile", "gone"));
    InstalledApp app = InstalledApp::read(missing);
    EXPECT_EQ(app.iconFile, "gone");
    EXPECT_EQ(app.iconPath, std::nullopt);
}

TEST_F(InstalledAppTest, BundleWithoutInfoPlistIsNamedAfterItsFolder) {
    std::filesystem::create_directories(folder / "Bare.app/Contents/MacOS");
    InstalledApp app = InstalledApp::read(folder / "Bare.app");
    EXPECT_EQ(app.name, "Bare");
    EXPECT_EQ(app.bundleIdentifier, "");
    EXPECT_FALSE(app.hasInfoPlist);
    EXPECT_EQ(app.iconPath, std::nullopt);
    EXPECT_TRUE(app.networkReasons.empty());
}

TEST_F(InstalledAppTest, DamagedInfoPlistCountsAsNone) {
    writeBytes(folder / "Broken.app/Contents/Info.plist", "<plist><dict><key>oops");
    InstalledApp app = InstalledApp::read(folder / "Broken.app");
    EXPECT_EQ(app.name, "Broken");
    EXPECT_FALSE(app.hasInfoPlist);
}

TEST_F(InstalledAppTest, TrailingSlashNamesTheSameBundle) {
    auto bundle = makeAppBundle(folder.path(), "Slash", "com.example.slash");
    InstalledApp app = InstalledApp::read(bundle.string() + "/");
    EXPECT_EQ(app.name, "Slash");
    EXPECT_EQ(app.path, bundle);
}

TEST_F(InstalledAppTest, FileProviderExtensionIsTheStrongestReason) {
    auto bundle = makeAppBundle(folder.path(), "Cloudhaven", "com.example.cloudhaven",
                                 stringEntry("SUFeedURL", "https://updates.example.com/feed.xml"));
    writeBytes(bundle / "Contents/PlugIns/Sync.appex/Contents/Info.plist",
               testing::plistDocument("<key>NSExtension</key><dict>" +
                                 stringEntry("NSExtensionPointIdentifier", "com.apple.fileprovider-nonui") +
                                 "</dict>\n"));
    InstalledApp app = InstalledApp::read(bundle);
    ASSERT_EQ(app.networkReasons.size(), 2u);
    EXPECT_EQ(app.networkReasons[0].text, "Keeps files in sync with a cloud drive");
    EXPECT_EQ(app.networkReasons[1].text, "Checks online for updates");
    EXPECT_EQ(app.networkScore(), 5);
}

TEST(CategoryText, ShortFormAndTitle) {
    EXPECT_EQ(shortCategory("public.app-category.social-networking"), "social-networking");
    EXPECT_EQ(shortCategory("games"), "games");
    EXPECT_EQ(categoryTitle("social-networking"), "Social Networking");
    EXPECT_EQ(categoryTitle(""), "");
    EXPECT_EQ(foldedCase("MiXeD Case 1"), "mixed case 1");
}

}  // namespace
}  // namespace holdenmere
