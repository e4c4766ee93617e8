#include "core/discovery/startup_discovery.h"

#include <gtest/gtest.h>

#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::xmlPlist;

plist::Value job(const std::string& body) { return plist::parse(xmlPlist(body)); }

const std::string kCannotTell = "can't take over: Holdenmere cannot tell what it runs";
const std::string kService = "can't take over: provides a system service only launchd can start";
const std::string kEvent = "can't take over: launchd starts it on an event, not an app Holdenmere opens";

TEST(StartupDiscovery, CadenceOfStartInterval) {
    auto every = [](int seconds) {
        return StartupDiscovery::cadence(job("<key>StartInterval</key><integer>" + std::to_string(seconds) + "</integer>"));
    };
    EXPECT_EQ(every(59), "every-1-minute");
    EXPECT_EQ(every(90), "every-1-minute");
    EXPECT_EQ(every(119), "every-1-minute");
    EXPECT_EQ(every(120), "every-2-minute");
    EXPECT_EQ(every(150), "every-2-minute");
    EXPECT_EQ(every(1800), "every-30-minute");
    EXPECT_EQ(every(3600), "hourly");
    EXPECT_EQ(every(7200), "every-120-minute");
    EXPECT_EQ(every(86400), "daily");
    EXPECT_EQ(every(-5), "every-1-minute");
}

TEST(StartupDiscovery, CadenceOfCalendarAndOtherJobs) {
    EXPECT_EQ(StartupDiscovery::cadence(job("")), std::nullopt);
    EXPECT_EQ(StartupDiscovery::cadence(job("<key>RunAtLoad</key><true/>")), std::nullopt);
    EXPECT_EQ(StartupDiscovery::cadence(job("<key>StartCalendarInterval</key><string>whenever</string>")), "scheduled");
    // An interval that is no integer is ignored; the calendar key decides.
    EXPECT_EQ(StartupDiscovery::cadence(job("<key>StartInterval</key><string>3600</string>"
                                            "<key>StartCalendarInterval</key><dict/>")),
              "scheduled");
    EXPECT_EQ(StartupDiscovery::cadence(job("<key>StartInterval</key><real>3600</real>")), std::nullopt);
    EXPECT_EQ(StartupDiscovery::cadence(plist::Value{plist::Array{}}), std::nullopt);
}

TEST(StartupDiscovery, ValuesThatCountAsSet) {
    auto set = [](const std::string& value) {
        auto plist = job("<key>K</key>" + value);
        return StartupDiscovery::countsAsSet(plist.find("K"));
    };
    EXPECT_TRUE(set("<true/>"));
    EXPECT_TRUE(set("<string>x</string>"));
    EXPECT_TRUE(set("<array><false/></array>"));
    EXPECT_TRUE(set("<dict><key>a</key><false/></dict>"));
    EXPECT_FALSE(set("<false/>"));
    EXPECT_FALSE(set("<string></string>"));
    EXPECT_FALSE(set("<array/>"));
    EXPECT_FALSE(set("<dict/>"));
    EXPECT_FALSE(set("<integer>1</integer>"));
    EXPECT_FALSE(set("<real>1.5</real>"));
    EXPECT_FALSE(set("<date>2024-01-01T00:00:00Z</date>"));
    EXPECT_FALSE(set("<data>AAE=</data>"));
    EXPECT_FALSE(StartupDiscovery::countsAsSet(nullptr));
}

TEST(StartupDiscovery, JobsOnlyLaunchdCanStart) {
    auto reason = [](const std::string& body) { return StartupDiscovery::launchdOnlyReason(job(body)); };
    EXPECT_EQ(reason("<key>MachServices</key><dict/><key>RunAtLoad</key><true/>"), std::nullopt);
    EXPECT_EQ(reason("<key>KeepAlive</key><true/>"), std::nullopt);
    EXPECT_EQ(reason("<key>MachServices</key><dict><key>com.example.xpc</key><true/></dict>"), kService);
    EXPECT_EQ(reason("<key>Sockets</key><dict><key>Listeners</key><dict/></dict>"), kService);
    EXPECT_EQ(reason("<key>WatchPaths</key><array/><key>LaunchEvents</key><dict><key>a</key><dict/></dict>"), kEvent);
    EXPECT_EQ(reason("<key>QueueDirectories</key><array><string>/tmp/q</string></array>"), kEvent);
    EXPECT_EQ(reason("<key>StartOnMount</key><true/>"), kEvent);
    EXPECT_EQ(reason("<key>StartOnMount</key><false/>"), std::nullopt);
    // Services are looked at before events.
    EXPECT_EQ(reason("<key>WatchPaths</key><array><string>/x</string></array><key>Sockets</key><string>s</string>"),
              kService);
}

TEST(StartupDiscovery, LaunchdOnlyReasonOfAPlistFile) {
    testing::TemporaryDirectory folder;
    testing::writeFile(folder / "service.plist",
                       testing::binaryPlist(xmlPlist("<key>MachServices</key><dict><key>x</key><true/></dict>")));
    testing::writeFile(folder / "plain.plist", xmlPlist("<key>RunAtLoad</key><true/>"));
    testing::writeFile(folder / "array.plist", "<plist version=\"1.0\"><array/></plist>");
    testing::writeFile(folder / "garbage.plist", "not a plist");
    testing::writeFile(folder / "empty.plist", "");
    EXPECT_EQ(StartupDiscovery::launchdOnlyReason(folder / "service.plist"), kService);
    EXPECT_EQ(StartupDiscovery::launchdOnlyReason(folder / "plain.plist"), std::nullopt);
    for (const char* name : {"array.plist", "garbage.plist", "empty.plist", "missing.plist"}) {
        EXPECT_EQ(StartupDiscovery::launchdOnlyReason(folder / name), kCannotTell) << name;
    }
}

TEST(StartupDiscovery, OutermostApp) {
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Applications/Foo.app/Contents/Library/LoginItems/Bar.app/Contents/MacOS/Bar"),
              "/Applications/Foo.app");
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Applications/Foo.app/"), "/Applications/Foo.app");
    EXPECT_EQ(StartupDiscovery::outermostAppPath("//Applications//Foo.app//Contents"), "/Applications/Foo.app");
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Foo.app"), "/Foo.app");
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Applications/Foo.APP/Contents/MacOS/Foo"), std::nullopt);
    EXPECT_EQ(StartupDiscovery::outermostAppPath("/Applications/.app/x"), std::nullopt);
    EXPECT_EQ(StartupDiscovery::outermostAppPath("Foo.app/Contents/MacOS/Foo"), std::nullopt);
}

TEST(StartupDiscovery, StandardizedPath) {
    EXPECT_EQ(StartupDiscovery::standardizedPath("/Applications/./Foo.app//Contents/MacOS/../MacOS/Foo"),
              "/Applications/Foo.app/Contents/MacOS/Foo");
    EXPECT_EQ(StartupDiscovery::standardizedPath("/Applications/Foo.app/"), "/Applications/Foo.app");
    EXPECT_EQ(StartupDiscovery::standardizedPath("/"), "/");
    EXPECT_EQ(StartupDiscovery::standardizedPath(""), "");
}

// Apps in a temporary folder: Foo.app (executable Foo) with a nested login
// item FooLauncher.app, Nameless.app whose Info.plist names no executable.
class StartupDiscoveryApps : public ::testing::Test {
protected:
    void SetUp() override {
        foo = testing::writeAppBundle(folder.path(), "Foo", "Foo", "com.example.foo").string();
        testing::writeAppBundle(foo + "/Contents/Library/LoginItems", "FooLauncher", "FooLauncher",
                                "com.example.foo.launcher");
        nameless = testing::writeAppBundle(folder.path(), "Nameless", "", "com.example.nameless").string();
    }

    std::optional<std::string> reason(const std::string& program, std::optional<std::string> cadence = std::nullopt) {
        return StartupDiscovery::ineligibleReason(program, cadence, std::nullopt);
    }

    testing::TemporaryDirectory folder;
    std::string foo;
    std::string nameless;
};

TEST_F(StartupDiscoveryApps, ExecutableNameFromInfoPlist) {
    EXPECT_EQ(StartupDiscovery::executableName(foo), "Foo");
    EXPECT_EQ(StartupDiscovery::bundleIdentifier(foo), "com.example.foo");
    EXPECT_EQ(StartupDiscovery::executableName(nameless), std::nullopt);
    EXPECT_EQ(StartupDiscovery::executableName(folder / "Missing.app"), std::nullopt);

    auto info = folder / "Odd.app" / "Contents" / "Info.plist";
    testing::writeFile(info, testing::binaryPlist(xmlPlist("<key>CFBundleExecutable</key><string>Odd</string>")));
    EXPECT_EQ(StartupDiscovery::executableName(folder / "Odd.app"), "Odd");
    testing::writeFile(info, xmlPlist("<key>CFBundleExecutable</key><integer>3</integer>"
                                      "<key>CFBundleIdentifier</key><string></string>"));
    EXPECT_EQ(StartupDiscovery::executableName(folder / "Odd.app"), std::nullopt);
    EXPECT_EQ(StartupDiscovery::bundleIdentifier(folder / "Odd.app"), std::nullopt);
    testing::writeFile(info, "<plist version=\"1.0\"><string>Odd</string></plist>");
    EXPECT_EQ(StartupDiscovery::executableName(folder / "Odd.app"), std::nullopt);
    testing::writeFile(info, testing::binaryPlist(xmlPlist("<key>CFBundleExecutable</key><string>Odd</string>")).substr(0, 30));
    EXPECT_EQ(StartupDiscovery::executableName(folder / "Odd.app"), std::nullopt);
}

TEST_F(StartupDiscoveryApps, MainExecutableAndHelpers) {
    const std::string main = foo + "/Contents/MacOS/Foo";
    EXPECT_TRUE(StartupDiscovery::launchesOwnApp(main));
    EXPECT_TRUE(StartupDiscovery::launchesOwnApp(foo + "/Contents/./MacOS//Foo"));
    EXPECT_FALSE(StartupDiscovery::launchesOwnApp(foo + "/Contents/MacOS/FooAgent"));
    EXPECT_FALSE(StartupDiscovery::launchesOwnApp(std::nullopt));
    EXPECT_FALSE(StartupDiscovery::launchesOwnApp("Foo"));
    EXPECT_FALSE(StartupDiscovery::launchesOwnApp(nameless + "/Contents/MacOS/Nameless"));
    auto service = job("<key>MachServices</key><dict><key>x</key><true/></dict>");
    auto plain = job("<key>RunAtLoad</key><true/>");
    EXPECT_FALSE(StartupDiscovery::launchesOwnApp(main, &service));
    EXPECT_TRUE(StartupDiscovery::launchesOwnApp(main, &plain));

    // isHelperBinary folds an app whose executable cannot be read into
    // false; helperInsideApp, which the safety rules ask, keeps it apart.
    struct Row {
        std::string program;
        std::optional<bool> isHelperBinary;
        std::optional<bool> helperInsideApp;
    };
    for (const Row& row :
         std::vector<Row>{{main, false, false},
                          {foo + "/Contents/MacOS/../MacOS/Foo", false, false},
                          {foo + "/Contents/MacOS/FooAgent", true, true},
                          {foo + "/Contents/Library/LoginItems/FooLauncher.app/Contents/MacOS/FooLauncher", true, true},
                          {nameless + "/Contents/MacOS/x", false, std::nullopt},
                          {"/usr/local/bin/tool", std::nullopt, false}}) {
        EXPECT_EQ(StartupDiscovery::isHelperBinary(row.program), row.isHelperBinary) << row.program;
        EXPECT_EQ(StartupDiscovery::helperInsideApp(row.program), row.helperInsideApp) << row.program;
    }
}

TEST_F(StartupDiscoveryApps, EligibilityReasons) {
    const std::string main = foo + "/Contents/MacOS/Foo";
    EXPECT_EQ(reason(main), std::nullopt);
    EXPECT_EQ(reason(main, "hourly"), "can't take over: runs on a schedule, not at login");
    EXPECT_EQ(StartupDiscovery::ineligibleReason(main, std::nullopt, "given text"), "given text");
    EXPECT_EQ(reason("Foo"), kCannotTell);
    EXPECT_EQ(StartupDiscovery::ineligibleReason(std::nullopt, std::nullopt, std::nullopt), kCannotTell);
    EXPECT_EQ(reason("/usr/local/bin/tool"), "can't take over: runs /usr/local/bin/tool, not an app");
    EXPECT_EQ(reason(nameless + "/Contents/MacOS/x"), kCannotTell);
    EXPECT_EQ(reason(foo + "/Contents/MacOS/FooAgent", "hourly"),
              "can't take over: hourly updater inside Foo, not an app Holdenmere starts");
    EXPECT_EQ(reason(foo + "/Contents/Helpers/sync", "every-30-minute"),
              "can't take over: every-30-minute updater inside Foo, not an app Holdenmere starts");
    EXPECT_EQ(reason(foo + "/Contents/MacOS/FooAgent"),
              "can't take over: runs FooAgent, a helper inside Foo, not the app itself");
    EXPECT_EQ(reason(foo + "/Contents/Library/LoginItems/FooLauncher.app/Contents/MacOS/FooLauncher"),
              "can't take over: runs FooLauncher, a helper inside Foo, not the app itself");
    // Two nested apps: the outer one owns it, the innermost names the helper.
    EXPECT_EQ(reason(foo + "/Contents/Library/LoginItems/Outer Helper.app/Contents/Helpers/Inner.app/Contents/MacOS/x"),
              "can't take over: runs Inner, a helper inside Foo, not the app itself");
    // An inner app named like the outer one is no helper name.
    EXPECT_EQ(reason(foo + "/Contents/Helpers/Foo.app/Contents/MacOS/agent"),
              "can't take over: runs agent, a helper inside Foo, not the app itself");
}

StartupItem item(const std::string& identifier, std::optional<std::string> path, StartupItem::Source source) {
    return StartupItem{identifier, identifier, std::move(path), std::move(source)};
}

TEST(StartupDiscovery, UnmanagedKeepsTheFirstItemOfEachApp) {
    StartupItem::LaunchAgent agent{"com.example.mail.agent", "/Library/LaunchAgents/com.example.mail.agent.plist"};
    std::vector<StartupItem> items{
        item("com.example.mail", "/Applications/Mail.app", StartupItem::LoginItem{}),
        item("com.tavik.holdenmere", "/Applications/Holdenmere.app", StartupItem::LoginItem{}),
        item("com.example.nopath", std::nullopt, StartupItem::LoginItem{}),
        item("com.example.drive", "/Applications/Drive.app", StartupItem::LoginItem{}),
        item("com.example.chat", "/Applications/Chat.app", agent),
        item("com.example.mail", "/Applications/Mail.app", agent),
        item("com.example.chat", "/Applications/Chat.app", StartupItem::BackgroundItem{"chat"}),
        item("com.example.Drive2", "/Applications/Drive2.app", StartupItem::BackgroundItem{"drive2"}),
    };
    ManagedApp drive{"com.example.drive", "Drive", "/Applications/Drive.app"};
    ManagedApp otherCase{"com.example.drive2", "Drive 2", "/Applications/Drive2.app"};
    EXPECT_EQ(StartupDiscovery::unmanaged(items, {drive, otherCase}),
              (std::vector<StartupItem>{items[0], items[4], items[7]}));
    EXPECT_TRUE(StartupDiscovery::unmanaged({}, {drive}).empty());
}

}  // namespace
}  // namespace holdenmere
