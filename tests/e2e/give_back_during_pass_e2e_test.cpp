// A give-back made while a login pass is still under way stands, run as a
// user would: the pass runs in the background in a temporary home with the
// fake launchctl and osascript, `--restore-startup` runs while it waits for
// the network or while it sweeps for re-registered Login Items, and launchd
// and the Login Items end as they were before anything was taken over.
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <thread>

#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/launchd/launchctl_running.h"
#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_change_engine.h"
#include "tests/support/e2e_home.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/system_events_login_items.h"

namespace holdenmere {
namespace {

using testing::FakeLoginItem;
using testing::SystemEventsLoginItems;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kDash = " \xE2\x80\x94 ";
const std::string kOwnAgent = "com.tavik.holdenmere.agent";
const std::string kOwnSampler = "com.tavik.holdenmere.axsampler";

// Waits (in real time, up to 20 s) until `done` holds.
bool eventually(const std::function<bool()>& done) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
        if (std::chrono::steady_clock::now() > giveUp) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

class GiveBackDuringPass : public ::testing::Test {
protected:
    testing::E2EHome e2e;
    testing::LoopbackHTTPServer server{testing::LoopbackHTTPServer::Mode::status, 204, 120};
    SystemAppRunning apps;
    const std::string suffix = e2e.home.path().filename().string();
    // Mail is managed and already running; macOS opened it.
    const std::string mail = "com.example.mail." + suffix;
    const std::string mailLogin = mail + ".login";
    std::string mailBundle;

    // launchd's marks and what it has loaded, and the Login Items.
    struct State {
        std::map<std::string, bool> disabled;
        std::set<std::string> loaded;
        std::vector<FakeLoginItem> loginItems;
        friend bool operator==(const State&, const State&) = default;
        friend std::ostream& operator<<(std::ostream& out, const State& state) {
            for (const auto& [label, off] : state.disabled) out << label << (off ? " off" : " on") << "; ";
            for (const auto& label : state.loaded) out << label << " loaded; ";
            for (const auto& item : state.loginItems) out << item.path << (item.hidden ? " (hidden)" : "") << "; ";
            return out;
        }
    };

    void SetUp() override {
        mailBundle = testing::writeLingeringApp(e2e.home / "Applications/Mail.app", mail);
        ASSERT_EQ(apps.launch(mailBundle, OpenOptions{}), LaunchAttempt::opened());
        SystemEventsLoginItems::save(e2e.loginItemsFile(), {});
    }

    void TearDown() override {
        for (int pid : apps.processIdentifiers(mail)) ::kill(pid, SIGKILL);
    }

    // A LaunchAgent in the user's folder; `extra` goes into its plist.
    void agent(const std::string& label, bool disabled, bool loaded, const std::string& extra = {}) {
        testing::writeFile(e2e.plistOf(label),
                           testing::xmlPlist("<key>Label</key><string>" + label +
                                             "</string><key>ProgramArguments</key><array><string>" + mailBundle +
                                             "/Contents/MacOS/LingeringApp</string></array><key>RunAtLoad</key><true/>" +
                                             extra));
        if (disabled) e2e.launchd.mark(label, true);
        if (loaded) e2e.launchd.load(label, e2e.plistOf(label));
    }

    HoldenmereConfig configuration() const {
        HoldenmereConfig config;
        config.settings.probeURL = server.url();
        config.settings.pollInterval = 0.25;
        config.settings.maxAttempts = 60;
        config.apps = {ManagedApp{mail, "Mail", mailBundle}};
        config.grantStartupConsent({});
        return config;
    }
    void save(const HoldenmereConfig& config) const { ConfigStore{e2e.configPath()}.save(config); }
    HoldenmereConfig saved() const { return ConfigStore{e2e.configPath()}.load(); }

    // Whether launchd holds a job switched off: a mark of "enabled" counts
    // as no mark, which is what launchd does with it.
    bool disabled(const std::string& label) const {
        const auto state = e2e.launchd.state();
        return state.disabled.count(label) != 0 && state.disabled.at(label);
    }
    State state(const std::vector<std::string>& labels) const {
        State result;
        for (const auto& label : labels) result.disabled[label] = disabled(label);
        for (const auto& label : e2e.launchd.loadedLabels()) {
            if (std::find(labels.begin(), labels.end(), label) != labels.end()) result.loaded.insert(label);
        }
        result.loginItems = SystemEventsLoginItems::load(e2e.loginItemsFile());
        return result;
    }

    // The launchctl calls after the first `from` that change launchd for the label.
    std::vector<std::vector<std::string>> changesOf(const std::string& label, std::size_t from = 0) const {
        const auto calls = e2e.launchd.calls();
        std::vector<std::vector<std::string>> result;
        for (std::size_t index = from; index < calls.size(); ++index) {
            const auto& call = calls[index];
            if (call[0] == "print" || call[0] == "print-disabled" || call.size() < 2) continue;
            if (call[1] == launchdServiceTarget(label) || (call.size() == 3 && call[2] == e2e.plistOf(label))) {
                result.push_back(call);
            }
        }
        return result;
    }

    // A login pass running in the background.
    struct Pass {
        std::thread thread;
        ChildProcessResult result;
        void join() { thread.join(); }
    };
    void start(Pass& pass) {
        pass.thread = std::thread([this, &pass] { pass.result = e2e.run({"--gate"}); });
    }
};

// Cases: a helper held off until the network answers, one the user had
// switched off before Holdenmere held it, and the program's own jobs listed
// as held helpers by a configuration of an older version.
TEST_F(GiveBackDuringPass, AGiveBackWhileThePassWaitsForTheNetworkStands) {
    const std::string helper = mail + ".helper";
    const std::string updater = mail + ".updater";
    agent(helper, false, true);
    agent(updater, true, false);
    const State found = state({helper, updater});
    // Holdenmere holds the helper off: switched off in launchd, recorded.
    e2e.launchd.mark(helper, true);
    HoldenmereConfig config = configuration();
    config.delayedHelpers = {{helper, e2e.plistOf(helper), mail, "Mail helper", DelayedHelper::Mode::delay},
                             {updater, e2e.plistOf(updater), mail, "Mail updater", DelayedHelper::Mode::delay}};
    config.keptOff = {updater};
    save(config);

    server.setStatus(503);
    Pass pass;
    start(pass);
    ASSERT_TRUE(eventually([&] { return !server.requests().empty(); })) << "the pass never probed";
    auto restore = e2e.run({"--restore-startup"});
    const std::size_t givenBackAt = e2e.launchd.calls().size();
    server.setStatus(204);
    pass.join();

    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_THAT(restore.output, HasSubstr("Mail helper" + kDash + helper + " switched back on\n"));
    EXPECT_THAT(restore.output, HasSubstr(updater + " was already off when Holdenmere began to hold it\n"));
    ASSERT_EQ(pass.result.status, 0) << pass.result.output << pass.result.error;
    EXPECT_THAT(pass.result.output, HasSubstr("network reachable after "));
    // The pass decided before the give-back: it starts nothing, holds
    // nothing off again, and says nothing was changed.
    EXPECT_THAT(pass.result.output, HasSubstr(std::string(StartupChangeEngine::kGivenBackSince)));
    EXPECT_TRUE(changesOf(helper, givenBackAt).empty()) << pass.result.output;
    EXPECT_TRUE(changesOf(updater).empty());
    EXPECT_EQ(state({helper, updater}), found) << pass.result.output;
    const HoldenmereConfig after = saved();
    EXPECT_TRUE(after.delayedHelpers.empty());
    EXPECT_TRUE(after.keptOff.empty());
}

TEST_F(GiveBackDuringPass, AGiveBackDuringTheReregistrationSweepStands) {
    // Chat is blocked; macOS opened it at login from its Login Item.
    const std::string chat = "com.example.chat." + suffix;
    const std::string chatBundle = testing::writeAppBundle(e2e.home / "Applications", "Chat", "Chat", chat).string();
    const std::string notes = (e2e.home / "Documents/notes.txt").string();
    testing::writeFile(notes, "");
    SystemEventsLoginItems::save(e2e.loginItemsFile(), {{chatBundle, true}, {notes, false}});
    const State found = state({});
    HoldenmereConfig config = configuration();
    config.blockedApps = {{chat, "Chat", chatBundle}};
    save(config);

    Pass pass;
    start(pass);
    // The pass takes Chat's Login Item over, then watches for two minutes
    // whether Chat puts it back.
    const bool taken = eventually([&] {
        const auto items = SystemEventsLoginItems::load(e2e.loginItemsFile());
        return items.size() == 1;
    });
    auto restore = e2e.run({"--restore-startup"});
    pass.join();

    ASSERT_TRUE(taken) << pass.result.output;
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_THAT(restore.output, HasSubstr("added " + chatBundle + " (hidden)"));
    ASSERT_EQ(pass.result.status, 0) << pass.result.output << pass.result.error;
    EXPECT_THAT(pass.result.output, HasSubstr("[Holdenmere] re-registration sweep stopped" + kDash +
                                              std::string(StartupChangeEngine::kGivenBackSince) + "\n"));
    EXPECT_THAT(pass.result.output, Not(HasSubstr("removed again")));
    // System Events adds an item at the end of the list: Chat's comes back
    // after the notes, which were never taken.
    State now = state({});
    ASSERT_EQ(now.loginItems.size(), 2u) << restore.output << pass.result.output;
    std::swap(now.loginItems[0], now.loginItems[1]);
    EXPECT_EQ(now, found) << restore.output << pass.result.output;
    EXPECT_TRUE(saved().takeovers.empty());
    EXPECT_EQ(saved().startupConsent, StartupConsent::declined);
}

TEST_F(GiveBackDuringPass, OwnJobsAndJobsOffInTheirPlistAreLeftAsTheyWereFound) {
    // A job whose plist keeps it off, held in the desktop app: off as found.
    const std::string backup = "com.example.backup." + suffix;
    agent(backup, false, false, "<key>Disabled</key><true/>");
    agent(kOwnAgent, false, true);
    agent(kOwnSampler, false, true);
    const State found = state({backup, kOwnAgent, kOwnSampler});
    HoldenmereConfig config = configuration();
    config.heldStartup = {{StartupSource::launchdJob, backup, std::nullopt, "Backup", "off", e2e.plistOf(backup), Date{0}}};
    // An older version let its own jobs be listed as held helpers.
    config.delayedHelpers = {{kOwnAgent, e2e.plistOf(kOwnAgent), "com.tavik.holdenmere", "Holdenmere agent",
                              DelayedHelper::Mode::delay},
                             {kOwnSampler, e2e.plistOf(kOwnSampler), "com.tavik.holdenmere", "Holdenmere sampler",
                              DelayedHelper::Mode::off}};
    save(config);

    for (int login = 0; login < 2; ++login) {
        auto pass = e2e.run({"--gate"});
        ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
        EXPECT_THAT(pass.output, Not(HasSubstr("switched on again"))) << pass.output;
        EXPECT_THAT(pass.output, HasSubstr("Holdenmere agent helper: failed" + kDash)) << pass.output;
    }
    for (const auto& label : {backup, kOwnAgent, kOwnSampler}) {
        EXPECT_TRUE(changesOf(label).empty()) << label << " was changed by a pass";
    }
    EXPECT_EQ(state({backup, kOwnAgent, kOwnSampler}), found);

    const std::size_t passesEnded = e2e.launchd.calls().size();
    auto restore = e2e.run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_TRUE(changesOf(backup, passesEnded).empty()) << restore.output;
    EXPECT_TRUE(changesOf(kOwnSampler, passesEnded).empty()) << restore.output;
    EXPECT_FALSE(disabled(backup));
    const HoldenmereConfig after = saved();
    EXPECT_TRUE(after.heldStartup.empty());
    EXPECT_TRUE(after.delayedHelpers.empty());
}

TEST_F(GiveBackDuringPass, AnUnconfirmedSwitchOffIsSettledByTheGiveBack) {
    agent(mailLogin, false, true);
    const State found = state({mailLogin});
    save(configuration());
    // launchd's disabled list reads until the first disable, then not.
    e2e.launchd.answer("print-disabled", 5, "", "Could not print disabled services: 5: Input/output error\n");
    e2e.launchd.answerOnlyAfter("print-disabled", "disable");

    auto pass = e2e.run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr(std::string(StartupChangeEngine::kDisabledListUnconfirmed)));
    const HoldenmereConfig afterPass = saved();
    const TakeoverRecord* record = afterPass.takeover(mail);
    ASSERT_NE(record, nullptr) << pass.output;
    ASSERT_EQ(record->agents.size(), 1u);
    EXPECT_TRUE(record->agents[0].unconfirmed);

    // launchd answers again at the give-back and shows the job switched
    // off: that settles it as Holdenmere's, and it is switched back on.
    std::filesystem::remove_all(e2e.launchd.stateFolder() / "answers");
    e2e.launchd.unload(mailLogin);
    auto restore = e2e.run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_THAT(restore.output, Not(HasSubstr("may not have been switched off")));
    EXPECT_EQ(state({mailLogin}), found) << restore.output;
    EXPECT_TRUE(saved().takeovers.empty());
}

}  // namespace
}  // namespace holdenmere
