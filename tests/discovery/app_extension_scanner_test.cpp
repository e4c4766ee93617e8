#include "core/discovery/app_extension_scanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/support/files.h"
#include "tests/support/fake_tool_running.h"
#include "tests/support/fake_tool_state.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::FakeToolRunning;
using Election = AppExtension::Election;

std::string fixture(const std::string& name) {
    return files::read(std::filesystem::path(HOLDENMERE_FIXTURES_DIR) / "pluginkit" / name);
}

TEST(AppExtensionScanner, ReadsTheRealLayouts) {
    auto line = AppExtensionScanner::parse(fixture("m-one-line.sierra.txt"));
    ASSERT_TRUE(line);
    ASSERT_EQ(line->size(), 1u);
    EXPECT_EQ((*line)[0].identifier, "com.objective-see.WhatsYourSignExt.FinderSync");
    EXPECT_EQ((*line)[0].version, "1.2.1");
    EXPECT_EQ((*line)[0].election, Election::ignore);
    EXPECT_FALSE((*line)[0].path);

    auto verbose = AppExtensionScanner::parse(fixture("mv-one-line.sierra.txt"));
    ASSERT_TRUE(verbose);
    EXPECT_EQ((*verbose)[0].path, "/Applications/WhatsYourSign.app/Contents/PlugIns/WhatsYourSign.appex");
    EXPECT_TRUE((*verbose)[0].isOff());

    auto block = AppExtensionScanner::parse(fixture("mAD-vvv.sequoia.txt"));
    ASSERT_TRUE(block);
    ASSERT_EQ(block->size(), 1u);
    const AppExtension& keka = (*block)[0];
    EXPECT_EQ(keka.identifier, "com.aone.keka.KekaFinderIntegration");
    EXPECT_EQ(keka.election, Election::none);
    EXPECT_EQ(keka.path, "/Applications/Keka.app/Contents/PlugIns/KekaFinderIntegration.appex");
    EXPECT_EQ(keka.extensionPoint, "com.apple.FinderSync");
    EXPECT_EQ(keka.parentBundle, "/Applications/Keka.app");
    EXPECT_EQ(keka.displayName, "Keka Finder Integration");

    // Two records of the block form, with and without a blank line between.
    const std::string two = "+    a.b(1)\n\t            Path = /A.appex\n\n-    c.d(2)\n\t             SDK = x\n";
    auto both = AppExtensionScanner::parse(two);
    ASSERT_TRUE(both);
    ASSERT_EQ(both->size(), 2u);
    EXPECT_EQ((*both)[0].election, Election::use);
    EXPECT_EQ((*both)[1].extensionPoint, "x");
}

TEST(AppExtensionScanner, AnythingElseIsNotRecognised) {
    for (const std::string garbled : {"pluginkit: unknown option\n", "*    a.b(1)\n", "+    a.b\n",
                                      "\t Path = /x\n", "+    a.b(1)\tonly-two\tfields\n", "+    a.b(1)\n\tno equals\n",
                                      "+    (1)\n"}) {
        EXPECT_FALSE(AppExtensionScanner::parse(garbled)) << garbled;
    }
    EXPECT_EQ(AppExtensionScanner::parse("\n\n")->size(), 0u);
}

// The fake pluginkit, run as a child process, prints what the reader reads.
TEST(AppExtensionScanner, ReadsTheFakeToolsGeneratedOutputInEveryForm) {
    testing::TemporaryDirectory folder;
    std::filesystem::create_directories(folder / "tools");
    std::filesystem::create_symlink(testing::fakePluginkitPath(), folder / "tools/pluginkit");
    ::setenv(testing::fake_tool::kStateVariable, folder.path().c_str(), 1);
    files::writeAtomically(folder / "pluginkit.json", R"([
        {"identifier": "com.apple.share.Mail", "version": "1.0", "path": "/System/Library/PlugIns/Mail.appex",
         "sdk": "com.apple.share-services", "parent": "", "displayName": "Mail", "election": "none"},
        {"identifier": "com.example.drive.FinderSync", "version": "4.2", "election": "ignore",
         "path": "/Applications/Drive.app/Contents/PlugIns/DriveFinder.appex", "sdk": "com.apple.FinderSync",
         "parent": "/Applications/Drive.app", "displayName": "Drive Finder"},
        {"identifier": "com.example.notes.Share", "version": "2", "election": "use",
         "path": "/Applications/Notes.app/Contents/PlugIns/Share.appex", "sdk": "com.apple.share-services",
         "parent": "/Applications/Notes.app", "displayName": "Notes Share"}])");
    SystemToolRunning tools(folder / "tools");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{{"-mAD", "-vvv"}, {"-mAv"}}) {
        std::string failure;
        auto output = tools.output(AppExtensionScanner::kPluginkit, arguments, std::chrono::seconds(10), failure);
        ASSERT_TRUE(output) << failure;
        auto extensions = AppExtensionScanner::parse(*output);
        ASSERT_TRUE(extensions) << *output;
        ASSERT_EQ(extensions->size(), 3u);
        EXPECT_EQ((*extensions)[1].election, Election::ignore);
        EXPECT_EQ((*extensions)[2].path, "/Applications/Notes.app/Contents/PlugIns/Share.appex");
    }

    auto scan = AppExtensionScanner::scan(tools, [](const AppExtension& extension) {
        return extension.extensionPoint == "com.apple.FinderSync" ? SafetyTier::needsConfirmation({"Finder"})
                                                                  : SafetyTier::allowed();
    });
    EXPECT_FALSE(scan.unreadable);
    ASSERT_EQ(scan.entries.size(), 2u);  // macOS's own is not a row
    EXPECT_EQ(scan.entries[0].id(), "appExtension:com.example.drive.FinderSync");
    EXPECT_EQ(scan.entries[0].name, "Drive Finder");
    EXPECT_EQ(scan.entries[0].state, StartupEntry::State::off());
    EXPECT_EQ(scan.entries[0].tier, SafetyTier::needsConfirmation({"Finder"}));
    EXPECT_EQ(scan.entries[1].state, StartupEntry::State::startsAtLogin());

    // The election changes what the next list says.
    std::string failure;
    ASSERT_TRUE(tools.output(AppExtensionScanner::kPluginkit,
                             AppExtensionScanner::electionArguments("com.example.drive.FinderSync", true),
                             std::chrono::seconds(10), failure));
    EXPECT_EQ(AppExtensionScanner::scan(tools, {}).entries[0].state, StartupEntry::State::startsAtLogin());
    ::unsetenv(testing::fake_tool::kStateVariable);
}

TEST(AppExtensionScanner, AnUnreadableSlowOrGarbledToolIsUnknownNeverEmpty) {
    FakeToolRunning tools;
    const std::vector<std::pair<ChildProcessResult, std::string>> cases = {
        {FakeToolRunning::printing("", 1, "pluginkit: connection invalid\n"),
         "pluginkit -mAD -vvv: exit status 1: pluginkit: connection invalid"},
        {FakeToolRunning::timedOut(), "pluginkit -mAD -vvv: timed out after 10s"},
        {FakeToolRunning::printing("Extensions:\n  a.b\n"),
         "pluginkit printed a list this version of Holdenmere does not recognise"},
        {FakeToolRunning::printing(""), "pluginkit listed no extensions at all, not even macOS's own"},
    };
    for (const auto& [answer, reason] : cases) {
        tools.answers["pluginkit"] = answer;
        const auto scan = AppExtensionScanner::scan(tools, {});
        EXPECT_EQ(scan.unreadable, reason);
        EXPECT_TRUE(scan.entries.empty());
    }
    EXPECT_EQ(tools.calls.front(), (std::vector<std::string>{"pluginkit", "-mAD", "-vvv"}));
}

}  // namespace
}  // namespace holdenmere
