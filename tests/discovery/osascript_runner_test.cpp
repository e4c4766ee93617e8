#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>

#include "core/discovery/login_items_auditor.h"
#include "core/discovery/script_running.h"
#include "core/support/child_process.h"
#include "tests/support/login_item_bundles.h"
#include "tests/support/system_events_login_items.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::FakeLoginItem;
using testing::SystemEventsLoginItems;

TEST(ShellRunner, OutputCountsOnlyWhenTheToolExitsZeroWithUTF8) {
    auto posing = [](std::vector<std::string> extra) {
        return ShellRunner(
            testing::testHelperPath(),
            [extra](const std::string& script) {
                std::vector<std::string> arguments{"pose", "--out", script};
                arguments.insert(arguments.end(), extra.begin(), extra.end());
                return arguments;
            },
            std::chrono::seconds(10));
    };
    EXPECT_EQ(posing({}).run("/Apps/A.app, /Apps/B.app\n"), "/Apps/A.app, /Apps/B.app\n");
    EXPECT_EQ(posing({}).run(""), "");
    EXPECT_EQ(posing({"--err", "noise"}).run("\u00DCber"), "\u00DCber");
    EXPECT_EQ(posing({"--exit", "1"}).run("printed anyway"), std::nullopt);
    EXPECT_EQ(posing({}).run("\xFF\xFE not UTF-8"), std::nullopt);
    // A tool that floods standard error still ends and is heard.
    EXPECT_EQ(posing({"--flood-err", "1000000"}).run("ok"), "ok");

    ShellRunner missing(
        "/nonexistent/osascript", [](const std::string&) { return std::vector<std::string>{}; },
        std::chrono::seconds(1));
    EXPECT_EQ(missing.run("anything"), std::nullopt);

    // Why there is no output: the tool's last error line after its status,
    // or the start error.
    const std::string helper = std::filesystem::path(testing::testHelperPath()).filename().string();
    EXPECT_EQ(posing({"--exit", "1", "--err", "first\n12:40: execution error: gone (-1728)\n"}).runExplaining("x"),
              (ScriptOutcome{std::nullopt, helper + " exited with status 1: 12:40: execution error: gone (-1728)"}));
    EXPECT_EQ(posing({}).runExplaining("\xFF not UTF-8").failure, helper + " printed text that is not UTF-8");
    EXPECT_EQ(missing.runExplaining("anything"),
              (ScriptOutcome{std::nullopt, "could not start /nonexistent/osascript: No such file or directory"}));
}

TEST(OSAScriptRunner, SendsTheScriptAsOneArgumentAfterDashE) {
    OSAScriptRunner runner;
    EXPECT_EQ(runner.shell().executable(), "/usr/bin/osascript");
    EXPECT_EQ(runner.shell().timeLimit(), std::chrono::seconds(10));
    const std::string script = R"(tell application "System Events" to delete login item "a b")";
    EXPECT_EQ(runner.shell().argumentsFor(script), (std::vector<std::string>{"-e", script}));
}

// The auditor through OSAScriptRunner and a fake osascript that keeps its
// Login Items in a file.
class FakeOsascriptTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    std::filesystem::path state = folder / "login-items.json";
    std::filesystem::path log = folder / "argv.log";

    OSAScriptRunner runner(std::chrono::milliseconds limit = std::chrono::seconds(10),
                           std::vector<std::string> extra = {}) {
        std::vector<std::string> changes{"FAKE_OSASCRIPT_STATE=" + state.string(), "FAKE_OSASCRIPT_LOG=" + log.string(),
                                         "FAKE_OSASCRIPT_MODE"};
        changes.insert(changes.end(), extra.begin(), extra.end());
        return OSAScriptRunner(testing::fakeOsascriptPath(), limit, environmentWith(changes));
    }
    void setItems(const std::vector<FakeLoginItem>& items) { SystemEventsLoginItems::save(state, items); }
    std::vector<FakeLoginItem> items() const { return SystemEventsLoginItems::load(state); }
    void setMode(const std::string& mode) { testing::writeFile(state.string() + ".mode", mode); }

    // Each invocation's argv (without argv[0]) and process id.
    std::vector<nlohmann::json> invocations() const {
        std::vector<nlohmann::json> result;
        std::ifstream stream(log);
        for (std::string line; std::getline(stream, line);) result.push_back(nlohmann::json::parse(line));
        return result;
    }
    std::vector<std::vector<std::string>> argvs() const {
        std::vector<std::vector<std::string>> result;
        for (const auto& entry : invocations()) result.push_back(entry.at("argv").get<std::vector<std::string>>());
        return result;
    }
};

TEST_F(FakeOsascriptTest, ListsPathsWithCommasQuotesAndBackslashesAndTheirHiddenFlags) {
    auto mail = testing::writeAppBundle(folder.path(), "Mail", testing::infoPlistXml("com.example.mail"));
    auto sync = testing::writeAppBundle(folder.path(), "Sync, Inc", testing::infoPlistXml("com.example.sync"));
    const std::string odd = R"(/Apps/Say "Hi" \o.app)";
    setItems({{mail, false}, {sync, true}, {odd, true}});

    auto osascript = runner();
    LoginItemsAuditor auditor{osascript};
    EXPECT_EQ(auditor.loginItems(true),
              (std::vector<LoginItemsAuditor::LoginItem>{{"Mail", mail, "com.example.mail", false},
                                                         {"Sync, Inc", sync, "com.example.sync", true},
                                                         {R"(Say "Hi" \o)", odd, std::nullopt, true}}));
    EXPECT_EQ(argvs(),
              (std::vector<std::vector<std::string>>{{"-e", std::string(LoginItemsAuditor::kListPathsScript)},
                                                     {"-e", std::string(LoginItemsAuditor::kListHiddenScript)}}));
}

TEST_F(FakeOsascriptTest, RemovesByPathAndByNameAndAddsBack) {
    const std::string odd = R"(/Apps/Q "x", \y.app)";
    setItems({{"/Apps/Mail.app", true}, {odd, false}, {"/Apps/Chat.app", false}});
    auto osascript = runner();
    LoginItemsAuditor auditor{osascript};

    EXPECT_EQ(auditor.remove(LoginItemsAuditor::LoginItem{"", odd, std::nullopt, false}), LoginItemRemoval::removed);
    EXPECT_EQ(auditor.remove(std::string_view("Chat")), LoginItemRemoval::removed);
    EXPECT_EQ(items(), (std::vector<FakeLoginItem>{{"/Apps/Mail.app", true}}));
    EXPECT_TRUE(auditor.add(odd, true));
    EXPECT_EQ(items(), (std::vector<FakeLoginItem>{{"/Apps/Mail.app", true}, {odd, true}}));

    const std::string list(LoginItemsAuditor::kListPathsScript);
    EXPECT_EQ(
        argvs(),
        (std::vector<std::vector<std::string>>{
            {"-e",
             R"(tell application "System Events" to delete (every login item whose path is "/Apps/Q \"x\", \\y.app"))"},
            {"-e", list},
            {"-e", R"(tell application "System Events" to delete login item "Chat")"},
            {"-e", list},
            {"-e",
             R"(tell application "System Events" to make new login item at end with properties {path:"/Apps/Q \"x\", \\y.app", hidden:true})"},
            {"-e", list}}));
}

TEST_F(FakeOsascriptTest, WhenSystemEventsIsNotAllowedNothingIsReadOrChanged) {
    setItems({{"/Apps/Mail.app", true}});
    setMode("denied");
    auto osascript = runner();
    LoginItemsAuditor auditor{osascript};
    EXPECT_EQ(osascript.run(std::string(LoginItemsAuditor::kListPathsScript)), std::nullopt);
    EXPECT_TRUE(auditor.loginItems(true).empty());
    EXPECT_TRUE(auditor.startupItems().empty());
    EXPECT_FALSE(auditor.add("/Apps/Chat.app", false));
    // Removal cannot be checked either; the item is not seen, so "removed".
    EXPECT_EQ(auditor.remove(LoginItemsAuditor::LoginItem{"Mail", "/Apps/Mail.app", std::nullopt, false}),
              LoginItemRemoval::removed);
    EXPECT_EQ(items(), (std::vector<FakeLoginItem>{{"/Apps/Mail.app", true}}));
}

TEST_F(FakeOsascriptTest, AnOsascriptThatHangsIsKilledAtTheTimeLimit) {
    setItems({{"/Apps/Mail.app", true}});
    auto osascript = runner(std::chrono::milliseconds(300), {"FAKE_OSASCRIPT_MODE=hang"});
    EXPECT_TRUE(LoginItemsAuditor{osascript}.loginItems(true).empty());
    auto calls = invocations();
    ASSERT_EQ(calls.size(), 1u);  // the hidden flags are not asked after a failed list
    errno = 0;
    EXPECT_EQ(::kill(calls[0].at("pid").get<pid_t>(), 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

// The fake against the captured forms of tests/fixtures/osascript: the same
// standard output, and the same error after osascript's "start:end: " range.
TEST_F(FakeOsascriptTest, PrintsWhatTheRealToolPrints) {
    auto fixture = [](const std::string& name) {
        return testing::readFile(std::filesystem::path(HOLDENMERE_FIXTURES_DIR) / "osascript" / name);
    };
    auto afterRange = [](const std::string& text) { return text.substr(text.find(": ") + 2); };
    auto fake = [&](const std::string& script, const std::string& mode = "") {
        ChildProcessRequest request;
        request.executable = testing::fakeOsascriptPath();
        request.arguments = {"-e", script};
        request.environment = environmentWith({"FAKE_OSASCRIPT_STATE=" + state.string(), "FAKE_OSASCRIPT_LOG",
                                               mode.empty() ? "FAKE_OSASCRIPT_MODE" : "FAKE_OSASCRIPT_MODE=" + mode});
        return runChildProcess(request);
    };
    const std::string paths(LoginItemsAuditor::kListPathsScript);

    auto empty = fake(paths);
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.output, fixture("empty_list.stdout.txt"));

    setItems({{"Dropbox", false}, {"iTunesHelper", true}, {"MacNoiseLoginItem", false}});
    EXPECT_EQ(fake(paths).output, fixture("list_joined.stdout.txt"));
    EXPECT_EQ(fake(std::string(LoginItemsAuditor::kListHiddenScript)).output, fixture("hidden_flags.stdout.txt"));

    auto missing = fake(LoginItemsAuditor::removeByNameScript("Nowhere"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.output, "");
    EXPECT_EQ(afterRange(missing.error), afterRange(fixture("no_such_login_item.stderr.txt")));

    auto syntax = fake("tell application \"System Events\" to frobnicate");
    EXPECT_EQ(syntax.status, 1);
    EXPECT_EQ(afterRange(syntax.error), afterRange(fixture("syntax_error.stderr.txt")));

    for (const auto& [mode, file] :
         {std::pair{"denied", "not_authorized.stderr.txt"}, std::pair{"nogui", "no_gui_session.stderr.txt"}}) {
        auto refused = fake(paths, mode);
        EXPECT_EQ(refused.status, 1) << mode;
        EXPECT_EQ(refused.output, "") << mode;
        EXPECT_EQ(afterRange(refused.error), afterRange(fixture(file))) << mode;
        EXPECT_EQ(refused.error.find_first_not_of("0123456789"), refused.error.find(':')) << refused.error;
    }
}

}  // namespace
}  // namespace holdenmere
