#include "core/support/plist.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

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
