#include "core/support/plist.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/support/bundle.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

const char* kXml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Label</key>
	<string>com.example.agent</string>
	<key>ProgramArguments</key>
	<array>
		<string>/Applications/Example.app/Contents/MacOS/Example</string>
		<string>--background</string>
	</array>
	<key>RunAtLoad</key>
	<true/>
	<key>Nice</key>
	<integer>-5</integer>
	<key>Interval</key>
	<real>2.5</real>
</dict>
</plist>
)";

// A binary property list of {Label = "a"; RunAtLoad = true}, made by libplist's own writer.
std::string binaryPlist() {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "Label", plist_new_string("a"));
    plist_dict_set_item(root, "RunAtLoad", plist_new_bool(1));
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string result(bytes, length);
    plist_to_bin_free(bytes);
    plist_free(root);
    return result;
}

TEST(Plist, ReadsXml) {
    auto value = plist::parse(kXml);
    EXPECT_EQ(value.stringAt("Label"), "com.example.agent");
    ASSERT_NE(value.find("ProgramArguments"), nullptr);
    ASSERT_NE(value.find("ProgramArguments")->array(), nullptr);
    EXPECT_EQ(value.find("ProgramArguments")->array()->size(), 2u);
    EXPECT_EQ(value.find("RunAtLoad")->boolean(), true);
    EXPECT_EQ(value.find("Nice")->integer(), -5);
    EXPECT_EQ(value.find("Interval")->real(), 2.5);
    EXPECT_EQ(value.stringAt("RunAtLoad"), std::nullopt);
    EXPECT_EQ(value.find("Missing"), nullptr);
}

TEST(Plist, ReadsBinary) {
    auto value = plist::parse(binaryPlist());
    EXPECT_EQ(value.stringAt("Label"), "a");
    EXPECT_EQ(value.find("RunAtLoad")->boolean(), true);
}

TEST(Plist, RejectsWhatIsNoPropertyList) {
    EXPECT_THROW(plist::parse(""), plist::ParseError);
    EXPECT_THROW(plist::parse("{\"json\": true}"), plist::ParseError);
    EXPECT_THROW(plist::parse(binaryPlist().substr(0, 20)), plist::ParseError);
    EXPECT_THROW(plist::readFile("/nonexistent/Info.plist"), std::system_error);
}

std::string bigEndian(std::uint64_t value, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t index = size; index > 0; --index, value >>= 8) bytes[index - 1] = static_cast<char>(value & 0xFF);
    return bytes;
}

// A binary property list laid out by hand, as a hostile file could be: the
// objects in order, an offset table (two bytes an entry) whose entries point
// at the objects `table` names (each object once by default; object numbers
// are positions in the table), and the trailer, with object 0 at the top.
std::string handMadeBinaryList(const std::vector<std::string>& objects, std::size_t referenceSize,
                               std::vector<std::size_t> table = {}) {
    std::string bytes = "bplist00";
    std::vector<std::size_t> offsets;
    for (const auto& object : objects) {
        offsets.push_back(bytes.size());
        bytes += object;
    }
    if (table.empty()) {
        for (std::size_t index = 0; index < objects.size(); ++index) table.push_back(index);
    }
    const std::size_t tableOffset = bytes.size();
    for (std::size_t index : table) bytes += bigEndian(offsets[index], 2);
    bytes += std::string(6, '\0') + '\x02' + static_cast<char>(referenceSize);
    return bytes + bigEndian(table.size(), 8) + bigEndian(0, 8) + bigEndian(tableOffset, 8);
}

// libplist stops the whole process on a dictionary key with a NUL in it,
// which a binary list can hold (ASCII or UTF-16): such a list is refused
// as unreadable instead, whatever file it came from.
TEST(Plist, RefusesABinaryListWithANulInAKey) {
    using namespace std::string_literals;
    const std::string dictionary = "\xD1\x01\x02"s;  // { object 1: object 2 }
    const std::string yes = "\x09"s;
    const std::string ascii = "\x53"s;  // three bytes follow
    const std::string utf16 = "\x63"s;  // three UTF-16 units follow
    const std::vector<std::pair<std::string, std::string>> keys = {{ascii + "a-b", ascii + "a\0b"s},
                                                                   {utf16 + "\0a\0-\0b"s, utf16 + "\0a\0\0\0b"s}};
    for (const auto& [fine, hostile] : keys) {
        const auto value = plist::parse(handMadeBinaryList({dictionary, fine, yes}, 1));
        ASSERT_NE(value.find("a-b"), nullptr);
        EXPECT_EQ(value.find("a-b")->boolean(), true);
        try {
            plist::parse(handMadeBinaryList({dictionary, hostile, yes}, 1));
            ADD_FAILURE() << "a key with a NUL was read";
        } catch (const plist::ParseError& error) {
            EXPECT_STREQ(error.what(), "property list has a key with a NUL character");
        }
    }
}

// The check looks at each key a dictionary names; offset table entries that
// all point at one dictionary of long keys would have it look at the same
// bytes endlessly: such a list is refused.
TEST(Plist, RefusesABinaryListThatWouldTakeTooLongToCheck) {
    using namespace std::string_literals;
    std::string dictionary = "\xDE"s;  // 14 keys, all object 1, and 14 values, all object 2
    for (int key = 0; key < 14; ++key) dictionary += "\0\x01"s;
    for (int value = 0; value < 14; ++value) dictionary += "\0\x02"s;
    const std::string longKey = "\x5F\x11\x03\xE8"s + std::string(1000, 'x');
    std::vector<std::size_t> table = {0, 1, 2};
    table.insert(table.end(), 2000, 0);
    try {
        plist::parse(handMadeBinaryList({dictionary, longKey, "\x09"s}, 2, table));
        ADD_FAILURE() << "read";
    } catch (const plist::ParseError& error) {
        EXPECT_STREQ(error.what(), "property list too complex to read");
    }
}

TEST(Bundle, FoundFromTheExecutableLayout) {
    EXPECT_EQ(Bundle::containing("/Applications/Holdenmere.app/Contents/MacOS/holdenmere")->path,
              "/Applications/Holdenmere.app");
    EXPECT_FALSE(Bundle::containing("/usr/local/bin/holdenmere").has_value());
    EXPECT_FALSE(Bundle::containing("/x/MacOS/holdenmere").has_value());

    testing::TemporaryDirectory folder;
    Bundle bundle{folder / "Example.app"};
    EXPECT_FALSE(bundle.infoDictionary().has_value());
    testing::writeFile(bundle.infoPlistPath(), binaryPlist());
    EXPECT_EQ(bundle.infoDictionary()->stringAt("Label"), "a");
    testing::writeFile(bundle.infoPlistPath(), "<plist><array></array></plist>");
    EXPECT_FALSE(bundle.infoDictionary().has_value());
}

}  // namespace
}  // namespace holdenmere
