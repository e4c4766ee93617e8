#include <gtest/gtest.h>

#include "core/discovery/background_item_records.h"
#include "core/support/files.h"
#include "tests/support/background_items_text.h"

namespace holdenmere {
namespace {

using Kind = BackgroundItemRecord::Kind;
using testing::FakeBackgroundItem;

std::string fixture(const std::string& name) {
    return files::read(std::filesystem::path(HOLDENMERE_FIXTURES_DIR) / "sfltool" / name);
}

TEST(BackgroundItemDump, ReadsASectionWithItsGroupAndLegacyDaemon) {
    const auto dump = BackgroundItemDump::parse(fixture("dumpbtm-sections.macos26.txt"));
    EXPECT_EQ(dump.sections, (std::vector<std::string>{"-2"}));
    ASSERT_EQ(dump.records.size(), 2u);

    const auto& group = dump.records[0];
    EXPECT_EQ(group.uid, "-2");
    EXPECT_EQ(group.name, "Docker");
    EXPECT_EQ(group.kind(), Kind::developer);
    EXPECT_FALSE(group.isEnabled());  // "disabled" holds the word "enabled"
    EXPECT_EQ(group.disposition, (std::vector<std::string>{"disabled", "allowed", "not notified"}));
    EXPECT_EQ(group.url, std::nullopt);  // "(null)"
    EXPECT_EQ(group.embeddedIdentifiers, (std::vector<std::string>{"16.com.docker.vmnetd"}));

    const auto& daemon = dump.records[1];
    EXPECT_EQ(daemon.kind(), Kind::daemon);
    EXPECT_TRUE(daemon.isLegacy());
    EXPECT_TRUE(daemon.isEnabled());
    EXPECT_EQ(daemon.typeText, "legacy daemon");
    EXPECT_EQ(daemon.typeCode, 0x10010u);
    EXPECT_EQ(daemon.dispositionCode, 0xbu);
    EXPECT_EQ(daemon.identifier, "16.com.docker.vmnetd");
    EXPECT_EQ(daemon.unprefixedIdentifier(), "com.docker.vmnetd");
    EXPECT_EQ(daemon.url, "file:///Library/LaunchDaemons/com.docker.vmnetd.plist");
    EXPECT_EQ(daemon.executablePath, "/Library/PrivilegedHelperTools/com.docker.vmnetd");
    EXPECT_EQ(daemon.parentIdentifier, "Docker");
    // Fields the model does not name are kept as printed.
    EXPECT_EQ(daemon.field("Assoc. Bundle IDs"), "[ com.docker.docker ]");
    EXPECT_EQ(daemon.field("Flags"), "[ legacy, curated ] (0x5)");
    EXPECT_EQ(daemon.field("Team Identifier"), "9BNSXJN65R");
}

TEST(BackgroundItemDump, ReadsRecordsWithoutHeadersAndRelativeURLs) {
    const auto dump = BackgroundItemDump::parse(fixture("dumpbtm-relative-urls.macos26.txt"));
    EXPECT_TRUE(dump.sections.empty());
    ASSERT_EQ(dump.records.size(), 2u);
    EXPECT_EQ(dump.records[0].kind(), Kind::app);
    EXPECT_EQ(dump.records[0].uid, std::nullopt);
    EXPECT_FALSE(dump.records[0].isEnabled());
    EXPECT_EQ(dump.records[0].bundleIdentifier, "com.openai.chat");
    EXPECT_EQ(dump.records[0].url, "file:///Applications/ChatGPT.app/");

    const auto& agent = dump.records[1];
    EXPECT_EQ(agent.kind(), Kind::agent);
    EXPECT_FALSE(agent.isLegacy());
    EXPECT_TRUE(agent.isEnabled());
    EXPECT_EQ(agent.url, "Contents/Library/LaunchAgents/com.openai.chat-helper.plist");
    EXPECT_EQ(agent.executablePath, "Contents/Resources/ChatGPTHelper");
    EXPECT_EQ(agent.parentIdentifier, "2.com.openai.chat");
    EXPECT_EQ(agent.field("Developer Name"), "(null)");
}

TEST(BackgroundItemDump, ReadsLeftAlignedLinesOfOneRecord) {
    const auto dump = BackgroundItemDump::parse(fixture("dumpbtm-legacy-daemon-lines.txt"));
    ASSERT_EQ(dump.records.size(), 1u);
    EXPECT_EQ(dump.records[0].kind(), Kind::daemon);
    EXPECT_EQ(dump.records[0].identifier, "");
    EXPECT_EQ(dump.records[0].executablePath, "/Library/StartupItems/WAZUH/Wazuh-launcher");
}

TEST(BackgroundItemDump, ReadsGeneratedRecordsOfEveryTypeAndDisposition) {
    struct Case {
        std::string type;
        Kind kind;
        bool legacy;
    };
    const std::vector<Case> types{{"app (0x2)", Kind::app, false},
                                  {"login item (0x4)", Kind::loginItem, false},
                                  {"agent (0x8)", Kind::agent, false},
                                  {"daemon (0x10)", Kind::daemon, false},
                                  {"developer (0x20)", Kind::developer, false},
                                  {"legacy agent (0x10008)", Kind::agent, true},
                                  {"legacy login item (0x10004)", Kind::loginItem, true},
                                  {"background tasks (0x2000)", Kind::other, false},
                                  {"quicklook (0x800)", Kind::other, false},
                                  {"curated (0x80000)", Kind::other, false}};
    const std::vector<std::pair<std::string, bool>> dispositions{
        {"[enabled, allowed, notified] (0xb)", true},   {"[disabled, allowed, not notified] (0x2)", false},
        {"[enabled, disallowed, notified] (0x9)", true}, {"[disabled, disallowed, notified] (0x8)", false},
        {"[enabled, allowed, visible, notified] (0xb)", true}};
    std::vector<FakeBackgroundItem> items;
    for (const auto& type : types) {
        for (const auto& disposition : dispositions) {
            FakeBackgroundItem item;
            item.name = "Item " + std::to_string(items.size());
            item.type = type.type;
            item.disposition = disposition.first;
            item.identifier = "8.com.example.item" + std::to_string(items.size());
            item.url = "Contents/Library/LaunchAgents/com.example.item.plist";
            items.push_back(item);
        }
    }
    const auto dump = BackgroundItemDump::parse(testing::btmSection("501", items) + testing::btmSection("502", {}));
    EXPECT_EQ(dump.sections, (std::vector<std::string>{"501", "502"}));
    ASSERT_EQ(dump.records.size(), items.size());
    for (std::size_t index = 0; index < items.size(); ++index) {
        const auto& record = dump.records[index];
        const auto& type = types[index / dispositions.size()];
        SCOPED_TRACE(items[index].type + " " + items[index].disposition);
        EXPECT_EQ(record.kind(), type.kind);
        EXPECT_EQ(record.isLegacy(), type.legacy);
        EXPECT_EQ(record.isEnabled(), dispositions[index % dispositions.size()].second);
        EXPECT_EQ(record.uid, "501");
        EXPECT_EQ(record.name, items[index].name);
        EXPECT_EQ(record.url, items[index].url);
    }
}

TEST(BackgroundItemDump, KnowsTypesAndDispositionsWithoutCodesAndUnknownLines) {
    const auto dump = BackgroundItemDump::parse(
        "Type: legacy agent\nDisposition: [enabled]\nIdentifier: com.example.a\nNew Field: kept\n"
        "\nType: login item\nDisposition: (0x1)\nIdentifier: 4.com.example.b\n"
        "\nthis line means nothing\nName: only a name\n");
    ASSERT_EQ(dump.records.size(), 2u);
    EXPECT_EQ(dump.records[0].kind(), Kind::agent);
    EXPECT_TRUE(dump.records[0].isLegacy());
    EXPECT_TRUE(dump.records[0].isEnabled());
    EXPECT_EQ(dump.records[0].field("New Field"), "kept");
    EXPECT_EQ(dump.records[0].unprefixedIdentifier(), "com.example.a");
    EXPECT_EQ(dump.records[1].kind(), Kind::loginItem);
    EXPECT_TRUE(dump.records[1].isEnabled());  // by the code's 0x1 bit
}

TEST(BackgroundItemDump, OutputThatIsNotTheToolsIsNotRecognised) {
    EXPECT_FALSE(BackgroundItemDump::parse("").recognised());
    EXPECT_FALSE(BackgroundItemDump::parse("sfltool: Operation not permitted\n").recognised());
    EXPECT_FALSE(BackgroundItemDump::parse("\x01\x02\xFF: \xFE\n#1:\n#:\n: x\n").recognised());
    EXPECT_TRUE(BackgroundItemDump::parse(testing::btmSection("501", {})).recognised());
}

TEST(BackgroundItemDump, FilePathsOfURLs) {
    EXPECT_EQ(BackgroundItemDump::filePath("file:///Applications/ChatGPT.app/"), "/Applications/ChatGPT.app");
    EXPECT_EQ(BackgroundItemDump::filePath("file:///Applications/Google%20Chrome.app/"),
              "/Applications/Google Chrome.app");
    EXPECT_EQ(BackgroundItemDump::filePath("file://localhost/Library/A.plist"), "/Library/A.plist");
    EXPECT_EQ(BackgroundItemDump::filePath("file:///"), "/");
    EXPECT_EQ(BackgroundItemDump::filePath("Contents/Library/LaunchAgents/a.plist"), std::nullopt);
    EXPECT_EQ(BackgroundItemDump::filePath("https://example.com/a"), std::nullopt);
    EXPECT_EQ(BackgroundItemDump::filePath("file:///bad%2"), std::nullopt);
    EXPECT_EQ(BackgroundItemDump::filePath("file:///bad%zz"), std::nullopt);
    EXPECT_EQ(BackgroundItemDump::filePath("file:///nul%00byte"), std::nullopt);
}

}  // namespace
}  // namespace holdenmere
