#include "core/discovery/background_item_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Scanner = BackgroundItemScanner;

BackgroundItemStore::Saved sample() {
    BackgroundItemStore::Saved saved;
    saved.scannedAt = Date{800000000.5};
    saved.result.items = {
        {StartupItem{"com.example.drive", "Drive", "/Applications/Drive.app",
                     StartupItem::BackgroundItem{"8.com.example.drive.agent"}},
         Scanner::LaunchAgent{"com.example.drive.agent",
                              "/Applications/Drive.app/Contents/Library/LaunchAgents/a.plist"},
         false},
        {StartupItem{"com.example.notes", "Notes", "/Applications/Notes.app", StartupItem::BackgroundItem{"4.n"}},
         Scanner::OpenLoginItemsSettings{}, false},
        {StartupItem{"com.example.drive", "Drive", "/Applications/Drive.app", StartupItem::BackgroundItem{"2.d"}},
         Scanner::OpenLoginItemsSettings{}, /*appRecord=*/true}};
    saved.result.ineligible = {{"Drive", "com.example.drive", "8.h", "can't take over: runs H, a helper inside Drive, not the app itself"}};
    return saved;
}

TEST(BackgroundItemStore, KeepsTheLastResultBesideTheConfiguration) {
    testing::TemporaryDirectory folder;
    const auto store = BackgroundItemStore::besideConfig(folder / "Holdenmere/config.json");
    EXPECT_EQ(store.url, folder / "Holdenmere/background-items.json");
    EXPECT_EQ(store.load(), std::nullopt);  // never saved
    store.save(sample());
    EXPECT_EQ(store.load(), sample());
    struct stat info {};
    ASSERT_EQ(::stat(store.url.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST(BackgroundItemStore, ADamagedFileIsNoSavedResult) {
    testing::TemporaryDirectory folder;
    const BackgroundItemStore store(folder / "background-items.json");
    for (const std::string text :
         {"", "{", "[]", "{\"format\": 1}", "{\"format\": 2, \"scannedAt\": 1, \"items\": [], \"ineligible\": []}",
          "{\"format\": 1, \"scannedAt\": 1, \"items\": [{\"bundleIdentifier\": \"a\"}], \"ineligible\": []}",
          "{\"format\": 1, \"scannedAt\": 1, \"items\": [{\"bundleIdentifier\": \"a\", \"name\": \"A\", "
          "\"identifier\": \"4.a\", \"remedy\": \"reboot\"}], \"ineligible\": []}"}) {
        testing::writeFile(store.url, text);
        EXPECT_EQ(store.load(), std::nullopt) << text;
    }
    std::filesystem::remove(store.url);
    std::filesystem::create_directory(store.url);
    EXPECT_EQ(store.load(), std::nullopt);
}

}  // namespace
}  // namespace holdenmere
