// launchd's enabled/disabled marks and the fields of one service, read from
// captured launchctl output.
#include <gtest/gtest.h>

#include "core/launchd/launchctl_output.h"
#include "core/support/files.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
using Marks = std::map<std::string, bool>;

const fs::path kFixtures = fs::path(HOLDENMERE_FIXTURES_DIR) / "launchctl";

std::string fixture(const std::string& name) { return files::read(kFixtures / name); }

TEST(LaunchdMarks, BothMarksOfEveryLayout) {
    EXPECT_EQ(disabledMarksFromOutput(fixture("print-disabled.txt")),
              (Marks{{"com.apple.ScriptMenuApp", true}, {"com.apple.Siri.agent", true}, {"com.docker.helper", false},
                     {"com.example.mail.helper", true}, {"com.microsoft.update.agent", false}}));
    EXPECT_EQ(disabledMarksFromOutput(fixture("print-disabled-indented.txt")),
              (Marks{{"com.docker.helper", false}, {"com.apple.Siri.agent", true}}));
    // Before macOS 13 the marks read "true"/"false": as with the disabled
    // labels, those lines are not taken for marks, and the association
    // block's quoted pairs never are.
    EXPECT_EQ(disabledMarksFromOutput(fixture("print-disabled-legacy.txt")), Marks{});
    // The first line of a label decides; no header, no answer.
    EXPECT_EQ(disabledMarksFromOutput("disabled services = {\n\t\"a\" => enabled\n\t\"a\" => disabled\n}\n"),
              (Marks{{"a", false}}));
    EXPECT_EQ(disabledMarksFromOutput("\"com.a\" => disabled\n\"com.b\" => enabled\n"), std::nullopt);
    EXPECT_EQ(disabledMarksFromOutput(""), std::nullopt);
}

TEST(LaunchdServiceFields, TopLevelFieldsOfCapturedServices) {
    const auto submitted = serviceFieldsFromOutput(fixture("print-gui-service.txt"));
    ASSERT_TRUE(submitted.has_value());
    EXPECT_EQ(submitted->at("path"), "(submitted by smd.500)");
    EXPECT_EQ(submitted->at("parent bundle identifier"), "com.vendor.vendor");
    EXPECT_EQ(submitted->at("type"), "Submitted");
    EXPECT_EQ(submitted->count("program"), 0u);

    // Nested blocks are passed over, and a block cut short still gives what
    // it had.
    const auto helper = serviceFieldsFromOutput(fixture("print-user-service.excerpt.txt"));
    ASSERT_TRUE(helper.has_value());
    EXPECT_EQ(helper->at("program"),
              "/System/Library/PrivateFrameworks/AOSKit.framework/Versions/A/XPCServices/com.apple.iCloudHelper.xpc/"
              "Contents/MacOS/com.apple.iCloudHelper");
    EXPECT_EQ(helper->at("domain"), "user/501");
    EXPECT_EQ(helper->count("PATH"), 0u);
    EXPECT_EQ(helper->count("XPC_SERVICE_NAME"), 0u);
    EXPECT_EQ(helper->count("port"), 0u);
}

TEST(LaunchdServiceFields, AnythingButAServiceBlockIsUnknown) {
    EXPECT_EQ(serviceFieldsFromOutput(""), std::nullopt);
    EXPECT_EQ(serviceFieldsFromOutput("Could not find service \"x\" in domain for user gui: 501\n"), std::nullopt);
    EXPECT_EQ(serviceFieldsFromOutput("gui/501/x = {\n}\n"), std::nullopt);
    // The domain's own listing has fields too; a block indented as a whole
    // (as quoted with a comment prefix) has none at the top level.
    EXPECT_EQ(serviceFieldsFromOutput("# gui/501 = {\n# \ttype = login\n# }\n"), std::nullopt);
    EXPECT_EQ(serviceFieldsFromOutput("\n\ngui/501/x = {\n\tpath = /p\r\n}\n\tafter = end\n"),
              (std::map<std::string, std::string>{{"path", "/p"}}));
}

}  // namespace
}  // namespace holdenmere
