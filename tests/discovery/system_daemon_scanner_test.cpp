#include "core/discovery/system_daemon_scanner.h"

#include <gtest/gtest.h>

#include "core/discovery/startup_discovery.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

TEST(StartupDiscovery, OutermostAppOfAPath) {
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Applications/Foo.app/Contents/Library/LoginItems/Bar.app/Contents/MacOS/Bar"),
              "/Applications/Foo.app");
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Applications/Foo.app"), "/Applications/Foo.app");
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/usr/local/bin/tool"), std::nullopt);
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Library/Foo.appx/bin"), std::nullopt);
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/"), std::nullopt);
    EXPECT_EQ(StartupDiscovery::outermostAppPath(""), std::nullopt);
}

TEST(SystemDaemonScanner, AppsOfTheDaemonsThatCanBeReadAndWhatCouldNot) {
    testing::TemporaryDirectory folder;
    auto job = [](const std::string& body) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + body + "</dict></plist>\n";
    };
    testing::writeFile(folder / "a.plist", job("<key>Program</key><string>/Applications/Vpn.app/Contents/MacOS/vpnd</string>"));
    testing::writeFile(folder / "b.plist",
                       job("<key>ProgramArguments</key><array><string>/Library/Agent.app/Contents/Helpers/x.app/"
                           "Contents/MacOS/x</string><string>--daemon</string></array>"));
    testing::writeFile(folder / "c.plist", job("<key>Program</key><string>/usr/sbin/sshd</string>"));
    testing::writeFile(folder / "d.plist", "garbage");
    testing::writeFile(folder / "e.plist", job("<key>ProgramArguments</key><array><integer>3</integer></array>"));
    testing::writeFile(folder / "f.txt", job("<key>Program</key><string>/Applications/Ignored.app/x</string>"));
    using Apps = SystemDaemonScanner::Apps;
    // An unreadable plist may run any app, so the scan says it is not complete.
    EXPECT_EQ(SystemDaemonScanner{folder.path()}.appPaths(),
              (Apps{{"/Applications/Vpn.app", "/Library/Agent.app"},
                    {(folder / "d.plist").string() + " could not be read as a property list"}}));
    EXPECT_EQ(SystemDaemonScanner{folder / "missing"}.appPaths(), Apps{});
    EXPECT_EQ(SystemDaemonScanner{folder / "c.plist"}.appPaths(),
              (Apps{{}, {(folder / "c.plist").string() + " could not be listed: Not a directory"}}));
    EXPECT_FALSE(SystemDaemonScanner{folder / "c.plist"}.appPaths().complete());
}

}  // namespace
}  // namespace holdenmere
