// "systemextensionsctl list": the parser on captured output and on what the
// fake tool prints through a real child process, and a tool that fails,
// hangs or prints something else.
#include "core/discovery/system_extensions.h"

#include <gtest/gtest.h>

#include "core/support/files.h"
#include "tests/support/fake_systemextensionsctl_state.h"
#include "tests/support/fake_tool_running.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
namespace fake = testing::fake_systemextensionsctl;
using Extensions = std::vector<SystemExtension>;

const fs::path kFixtures = fs::path(HOLDENMERE_FIXTURES_DIR) / "systemextensionsctl";
const std::string kNetwork = "com.apple.system_extension.network_extension";
const std::string kSecurity = "com.apple.system_extension.endpoint_security";

std::optional<Extensions> fixture(const std::string& name) {
    return systemExtensionsFromOutput(files::read(kFixtures / name));
}

TEST(SystemExtensionsOutput, CapturedLists) {
    EXPECT_EQ(fixture("list-endpoint-security.txt"),
              (Extensions{{kSecurity, true, true, "EQHXZ8M8AV", "com.google.santa.daemon", "2024.9/2024.9.674285143",
                           "santad", "activated enabled"}}));
    EXPECT_EQ(fixture("list-network-macos15.txt"),
              (Extensions{{kNetwork, true, true, "S8EX82NJP6",
                           "com.macpaw.clearvpn.macos-setapp.system-network-extension", "3.2.9/202511.10.1007",
                           "SystemExtension-Setapp-Version", "activated enabled"}}));
    const auto waiting = fixture("list-waiting-for-user.excerpt.txt");
    ASSERT_TRUE(waiting.has_value());
    ASSERT_EQ(waiting->size(), 2u);
    EXPECT_FALSE((*waiting)[0].enabled);
    EXPECT_TRUE((*waiting)[0].active);
    EXPECT_EQ((*waiting)[1].bundleIdentifier, "com.f5.access.macos.PacketTunnel");
    EXPECT_EQ((*waiting)[1].state, "activated waiting for user");
    const auto uninstalling = fixture("list-uninstalling.excerpt.txt");
    ASSERT_TRUE(uninstalling.has_value());
    ASSERT_EQ(uninstalling->size(), 2u);
    EXPECT_EQ((*uninstalling)[1], (SystemExtension{kNetwork, false, false, "YHUG37CKN8",
                                                   "com.surfshark.vpnclient.macos.direct.TransparentProxy",
                                                   "4.29.0/4541", "Surfshark. TransparentProxy",
                                                   "terminated waiting to uninstall on reboot"}));
}

TEST(SystemExtensionsOutput, NoExtensionsIsAnEmptyListAndAnythingElseIsUnknown) {
    EXPECT_EQ(systemExtensionsFromOutput("0 extension(s)\n"), Extensions{});
    const std::string header = "1 extension(s)\n--- " + kNetwork + "\nenabled\tactive\tteamID\tbundleID (version)\tname\t[state]\n";
    for (const std::string& garbled : {
             std::string(),
             std::string("\n\n"),
             std::string("systemextensionsctl: permission denied\n"),
             std::string("extension(s)\n"),
             std::string("1 extension(s)\n*\t*\tT\tcom.x (1/1)\tX\t[activated enabled]\n"),  // no category
             header + "*    *    T    com.x (1/1)    X    [activated enabled]\n",         // spaces, not tabs
             header + "*\t*\tT\tcom.x\tX\t[activated enabled]\n",                           // no version
             header + "*\t*\tT\tcom.x (1/1)\tX\tactivated enabled\n",                       // no brackets
             header + "yes\t*\tT\tcom.x (1/1)\tX\t[activated enabled]\n",                   // not a flag
             header + "*\t*\tT\tcom.x (1/1)\tX\t[activated enabled]\textra\n",
             std::string("--- ") + kNetwork + "\n",
         }) {
        EXPECT_EQ(systemExtensionsFromOutput(garbled), std::nullopt) << garbled;
    }
}

class SystemExtensionTool : public ::testing::Test {
protected:
    SystemExtensionTool() {
        fs::create_directories(folder / "tools");
        fs::create_symlink(testing::fakeSystemextensionsctlPath(), folder / "tools/systemextensionsctl");
        ::setenv(fake::kStateVariable, state.c_str(), 1);
    }
    ~SystemExtensionTool() override { ::unsetenv(fake::kStateVariable); }

    testing::TemporaryDirectory folder;
    fs::path state = folder / "systemextensionsctl.json";
    SystemToolRunning tools{folder / "tools"};
};

TEST_F(SystemExtensionTool, TheFakePrintsWhatTheParserReadsBack) {
    const Extensions installed = {
        {kNetwork, true, true, "W5364U7YZB", "io.example.vpn.network-extension", "1.98.8/101.98.8", "Example VPN", "activated enabled"},
        {kSecurity, true, true, "EQHXZ8M8AV", "com.example.edr.daemon", "2024.9/1", "edrd", "activated enabled"},
        {kNetwork, false, false, "-", "com.example.proxy", "4.2/4541", "Proxy", "terminated waiting to uninstall on reboot"},
    };
    fake::install(state, installed);
    auto read = SystemExtensionsReader::list(tools);
    ASSERT_TRUE(read.has_value());
    // Listed by category, each in the order installed.
    EXPECT_EQ(*read, (Extensions{installed[0], installed[2], installed[1]}));
    EXPECT_EQ(fake::read(state)["calls"], nlohmann::json::parse(R"([["list"]])"));

    fake::install(state, {});
    EXPECT_EQ(SystemExtensionsReader::list(tools), Extensions{});
}

TEST(SystemExtensionsReader, AFailingSlowMissingOrGarbledToolCannotTell) {
    using testing::FakeToolRunning;
    FakeToolRunning tools;
    EXPECT_EQ(SystemExtensionsReader::list(tools), std::nullopt);
    tools.answers["systemextensionsctl"] =
        FakeToolRunning::printing("0 extension(s)\n", 1, "systemextensionsctl: Operation not permitted\n");
    EXPECT_EQ(SystemExtensionsReader::list(tools), std::nullopt);
    tools.answers["systemextensionsctl"] = FakeToolRunning::printing("<html>not the list</html>\n");
    EXPECT_EQ(SystemExtensionsReader::list(tools), std::nullopt);
    tools.answers["systemextensionsctl"] = FakeToolRunning::timedOut();
    EXPECT_EQ(SystemExtensionsReader::list(tools), std::nullopt);
}

TEST(CachedExtensionListing, AsksOnceUntilToldToForget) {
    testing::FakeToolRunning tools;
    CachedExtensionListing cached(tools);
    // A list that could not be read is no list, never an empty one.
    EXPECT_EQ(cached.bundleIdentifiers(), std::nullopt);
    cached.forget();
    tools.answers["systemextensionsctl"] = testing::FakeToolRunning::printing(
        "1 extension(s)\n--- " + kSecurity + "\n*\t*\tT\tcom.example.edr (1/1)\tedr\t[activated enabled]\n");
    EXPECT_EQ(cached.bundleIdentifiers(), (std::vector<std::string>{"com.example.edr"}));
    EXPECT_TRUE(cached.list().has_value());
    EXPECT_EQ(tools.calls.size(), 2u);
    cached.forget();
    cached.list();
    EXPECT_EQ(tools.calls.size(), 3u);
}

}  // namespace
}  // namespace holdenmere
