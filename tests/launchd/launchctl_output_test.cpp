#include "core/launchd/launchctl_output.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Labels = std::set<std::string>;
using List = std::vector<std::string>;

std::string fixture(const std::string& name) {
    return testing::readFile(std::filesystem::path(HOLDENMERE_FIXTURES_DIR) / "launchctl" / name);
}

TEST(DisabledList, ReadsTheLabelsMarkedDisabledInCapturedOutput) {
    EXPECT_EQ(disabledLabelsFromOutput(fixture("print-disabled.txt")),
              (Labels{"com.apple.ScriptMenuApp", "com.apple.Siri.agent", "com.example.mail.helper"}));
    EXPECT_EQ(disabledLabelsFromOutput(fixture("print-disabled-indented.txt")), (Labels{"com.apple.Siri.agent"}));
    // The domain's own print carries a disabled block too; every line counts.
    EXPECT_EQ(disabledLabelsFromOutput(fixture("print-gui-domain.txt")), (Labels{"com.apple.Siri.agent"}));
    // Before macOS 13 launchd said "=> true"; only "=> disabled" marks a label,
    // so that output is understood and lists nothing.
    EXPECT_EQ(disabledLabelsFromOutput(fixture("print-disabled-legacy.txt")), Labels{});
}

TEST(DisabledList, CollectsDisabledAndSkipsEnabled) {
    const std::string output = "disabled services = {\n\t\"com.a\" => disabled\n\t\"com.b\" => enabled\n}\n";
    EXPECT_EQ(disabledLabelsFromOutput(output), (Labels{"com.a"}));
}

TEST(DisabledList, WithoutItsHeaderTheOutputIsNotUnderstood) {
    EXPECT_EQ(disabledLabelsFromOutput("\t\"com.a\" => disabled\n"), std::nullopt);
    EXPECT_EQ(disabledLabelsFromOutput("Could not find domain for user gui: 501\n"), std::nullopt);
    EXPECT_EQ(disabledLabelsFromOutput(""), std::nullopt);
    // A header with nothing under it is an empty answer, not an absent one.
    EXPECT_EQ(disabledLabelsFromOutput("disabled services = {\n}\n"), Labels{});
}

TEST(DisabledList, OddLinesAreReadByTheQuotesAlone) {
    const std::string output =
        "disabled services = {\n"
        "\t\"com.example.with space\" => disabled\n"
        "\t\"\" => disabled\n"
        "\tno quotes at all => disabled\n"
        "\t\"only one quote => disabled\n"
        "\t\"com.a\"b\" => disabled\n"
        "\t\"com.late\" => disabled\n";  // the block never closes
    EXPECT_EQ(disabledLabelsFromOutput(output), (Labels{"com.example.with space", "", "com.a", "com.late"}));
}

TEST(DisabledList, OneLabelIsDecidedByItsFirstQuotedLine) {
    const std::string output = fixture("print-disabled.txt");
    EXPECT_TRUE(isDisabledInOutput(output, "com.apple.Siri.agent"));
    EXPECT_FALSE(isDisabledInOutput(output, "com.docker.helper"));
    EXPECT_FALSE(isDisabledInOutput(output, "com.example.missing"));
    // A label is matched whole: "com.apple.Siri" is not "com.apple.Siri.agent".
    EXPECT_FALSE(isDisabledInOutput(output, "com.apple.Siri"));
    EXPECT_FALSE(isDisabledInOutput("", "com.apple.Siri.agent"));
    EXPECT_FALSE(isDisabledInOutput(fixture("print-disabled-legacy.txt"), "com.apple.Siri.agent"));

    // The first line naming the label decides, even against a later one; no
    // header is needed.
    const std::string twice = "\t\"com.a\" => enabled\n\t\"com.a\" => disabled\n";
    EXPECT_FALSE(isDisabledInOutput(twice, "com.a"));
    EXPECT_TRUE(isDisabledInOutput("\t\"with \"quotes\"\" => disabled", "with \"quotes\""));
}

TEST(ServiceTable, ReadsTheLastColumnOfEachRowInOrder) {
    EXPECT_EQ(serviceLabelsFromOutput(fixture("print-gui-domain.txt")),
              (List{"com.apple.x.A5EB", "com.dropbox.DropboxUpdater.wake", "com.example.mail.helper",
                    "com.apple.Kerberos.digest-service", "com.apple.Finder", "com.docker.helper"}));
}

TEST(ServiceTable, RowsAreTrimmedAndKeptAsTheyCome) {
    const std::string output =
        "gui/501 = {\n"
        "\tservices = {\n"
        "\t\t\t\tcom.a \n"             // four tabs and a trailing space
        "\t\t       0      - \tcom.example.with space\n"
        "no tab here\n"
        "\t\t       0      - \t   \n"  // nothing after the last tab
        "\t\t       0      - \tcom.a\n"
        "\n"
        "\t}\n"
        "\tservices = {\n\t\t0 - \tcom.second.block\n\t}\n"
        "}\n";
    EXPECT_EQ(serviceLabelsFromOutput(output), (List{"com.a", "com.example.with space", "com.a"}));
}

TEST(ServiceTable, AbsentUnlessABlockWithLabelsOpensAndCloses) {
    // Only the opening and closing lines: absent, not an empty list.
    EXPECT_EQ(serviceLabelsFromOutput("gui/501 = {\n\tservices = {\n\t}\n}\n"), std::nullopt);
    // Never closes.
    EXPECT_EQ(serviceLabelsFromOutput("\tservices = {\n\t\t0 - \tcom.a\n"), std::nullopt);
    // Never opens: the header must be exactly one tab and "services = {".
    EXPECT_EQ(serviceLabelsFromOutput("services = {\n\t\t0 - \tcom.a\n\t}\n"), std::nullopt);
    EXPECT_EQ(serviceLabelsFromOutput("\t\tservices = {\n\t\t0 - \tcom.a\n\t}\n"), std::nullopt);
    EXPECT_EQ(serviceLabelsFromOutput("\tservices = { \n\t\t0 - \tcom.a\n\t}\n"), std::nullopt);
    EXPECT_EQ(serviceLabelsFromOutput(fixture("print-disabled.txt")), std::nullopt);
    EXPECT_EQ(serviceLabelsFromOutput(""), std::nullopt);
    // The closing line must be exact too; "\t} " does not end the block.
    EXPECT_EQ(serviceLabelsFromOutput("\tservices = {\n\t\t0 - \tcom.a\n\t} \n"), std::nullopt);
}

}  // namespace
}  // namespace holdenmere
