// Take-over and give-back as a round trip, over a few hundred random startup
// states generated from one fixed seed: launchd jobs sometimes held in the
// desktop app (some kept off by their plist alone), one or two login passes
// (the state sometimes disturbed between them, the re-registration sweep
// sometimes run), then the give-back, sometimes made in the middle of the
// second pass. What macOS started when Holdenmere found it must
// start again, exactly so; what was off stays off; what Holdenmere must not
// touch is never touched. The fakes fail the test when a change comes before
// its record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <system_error>
#include <tuple>

#include "core/discovery/reregistration_sweep.h"
#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_sources_pass.h"
#include "core/takeover/login_ownership_pass.h"
#include "core/takeover/startup_restorer.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/records.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::CheckedLaunchctl;
using testing::ConfigFile;
using testing::FakeLaunchctlRunning;
using testing::FakeLoginItem;
using testing::FakeScriptRunning;
using testing::recordsLoginItem;

constexpr unsigned kSeed = 1404;
constexpr int kCases = 250;

enum class Role { managed, blocked, leftToMacOS, unknown, own };

// By Role.
constexpr const char* kRoleNames[] = {"managed", "blocked", "left to macOS", "unknown", "Holdenmere"};

// An app on disk in two copies, each a bundle of the same identifier.
struct App {
    std::string name;
    std::string bundleIdentifier;
    std::vector<std::string> copies;
    Role role = Role::unknown;
    bool launchFails = false;  // its launch fails in the first pass
};

struct Agent {
    std::string label;
    std::string plistPath;
    std::size_t app = 0;
    bool disabled = false;  // as the user has it
    bool loaded = false;
    bool offInPlist = false;  // its plist says "Disabled": off without a mark
};

// One random startup state, and where it is kept: launchd and System Events
// in memory, config.json in memory beside a real startup mutation lock.
class World {
    std::filesystem::path folder_;

public:
    World(const std::filesystem::path& folder, const std::vector<App>& pool)
        : folder_(folder), apps(pool), file(folder / "config.json") {
        scripts.beforeEach = [this](const std::string& script) {
            if (script.find(" to delete ") == std::string::npos) return;
            for (const auto& item : scripts.loginItems.items) {
                if (script.find("\"" + item.path + "\"") != std::string::npos) {
                    EXPECT_TRUE(recordsLoginItem(file.stored, item.path)) << item.path << " removed before recorded";
                }
            }
        };
    }

    std::vector<App> apps;
    std::vector<Agent> agents;
    ConfigFile file;
    FakeLaunchctlRunning launchd;
    CheckedLaunchctl launchctl{launchd, file};
    FakeScriptRunning scripts;
    LaunchAgentScanner scanner{launchctl, {folder_ / "LaunchAgents"}};
    // What macOS started when Holdenmere found it: the Login Items (a
    // multiset) and launchd's disabled marks, by label.
    std::vector<FakeLoginItem> foundItems;
    std::map<std::string, bool> foundDisabled;
    // Login Items an app put back itself, at the end of the list.
    std::set<std::string> putBackByApp;
    std::ostringstream story;
    std::uint64_t passGeneration = 0;
    int giveBacks = 0;

    void addAgent(std::size_t app, std::size_t copy, int index, bool disabled, bool loaded, bool offInPlist) {
        const App& owner = apps[app];
        const std::string label = owner.role == Role::own ? "com.tavik.holdenmere.agent"
                                                          : owner.bundleIdentifier + ".agent" + std::to_string(index);
        Agent agent{label, {}, app, disabled, loaded, offInPlist};
        agent.plistPath = (folder_ / "LaunchAgents" / (agent.label + ".plist")).string();
        testing::writeFile(agent.plistPath, testing::xmlPlist("<key>Label</key><string>" + agent.label +
                                                              "</string><key>ProgramArguments</key><array><string>" +
                                                              owner.copies[copy] + "/Contents/MacOS/" + owner.name +
                                                              "</string></array><key>RunAtLoad</key><true/>" +
                                                              (offInPlist ? "<key>Disabled</key><true/>" : "")));
        launchd.labelOfPlist[agent.plistPath] = agent.label;
        if (disabled) launchd.disabled.insert(agent.label);
        if (loaded) launchd.loaded.insert(agent.label);
        foundDisabled[agent.label] = disabled;
        story << "  agent " << agent.label << " of copy " << copy << (disabled ? " disabled" : " enabled")
              << (offInPlist ? ", off in its plist" : "") << (loaded ? ", loaded\n" : ", not loaded\n");
        agents.push_back(agent);
    }

    std::vector<LaunchRecord> records(bool firstPass) const {
        std::vector<LaunchRecord> result;
        for (const auto& app : apps) {
            if (app.role != Role::managed) continue;
            const bool fails = firstPass && app.launchFails;
            result.push_back(
                testing::launchRecord(app.bundleIdentifier, fails ? LaunchOutcome::failed : LaunchOutcome::launched));
        }
        return result;
    }

    // How launchd answers during a pass: as asked, never, or not right after
    // a disable (the switch-off cannot be confirmed).
    enum class DisabledList { readable, unreadable, unreadableAfterDisable };

    void pass(bool firstPass, DisabledList list = DisabledList::readable, bool predatesLedger = false) {
        story << (firstPass ? "first pass" : "second pass") << (predatesLedger ? ", config older than the ledger" : "")
              << (list == DisabledList::unreadable               ? ", launchd's disabled list unreadable\n"
                  : list == DisabledList::unreadableAfterDisable ? ", switch-offs unconfirmed\n"
                                                                 : "\n");
        launchd.disabledListReadable = list != DisabledList::unreadable;
        if (list == DisabledList::unreadableAfterDisable) {
            launchd.beforeDisabledList = [this] {
                const auto calls = launchd.calls();
                launchd.disabledListReadable = calls.empty() || calls.back()[0] != "disable";
            };
        }
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts);
        engine.decideUnder(passGeneration);
        const auto sources = LoginOwnership::startupSourcesPass(engine);
        const auto result = LoginOwnership::ownershipPass(engine, scanner, StartupSafety::systemEnvironment(),
                                                          {records(firstPass), {}, {}, predatesLedger, {}});
        transaction.end();
        launchd.beforeDisabledList = nullptr;
        launchd.disabledListReadable = true;
        for (const auto& line : sources.lines) story << "    " << line << '\n';
        for (const auto& line : result.lines) story << "    " << line << '\n';
    }

    // A login begins: the pass reads the configuration, and decides every
    // change of this login under the give-back generation it read.
    void login() {
        passGeneration = file.stored.giveBackGeneration;
        story << "login (generation " << passGeneration << ")\n";
    }

    // The user holds launchd jobs off in the desktop app (some of them off
    // in their plist already): recorded with their state as found.
    void holdJobs(std::mt19937& random) {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts);
        for (const auto& agent : agents) {
            const Role role = apps[agent.app].role;
            if (role == Role::own || role == Role::leftToMacOS || !std::bernoulli_distribution(0.3)(random)) continue;
            HeldStartupItem item{StartupSource::launchdJob, agent.label, apps[agent.app].bundleIdentifier,
                                 apps[agent.app].name, "", agent.plistPath, Date{0}};
            const auto outcome = engine.holdJob(item, SafetyTier{}, true);
            story << "  held " << agent.label << ": " << outcome.line() << '\n';
        }
        transaction.end();
    }

    // Held in the desktop app: Holdenmere keeps it as it holds it.
    bool held(const std::string& label) const {
        return std::any_of(file.stored.heldStartup.begin(), file.stored.heldStartup.end(),
                           [&](const HeldStartupItem& item) { return item.handle == label; });
    }

    // The apps that macOS started put their items back; the user changes
    // what Holdenmere has not touched.
    void disturb(std::mt19937& random) {
        story << "disturbed:\n";
        auto chance = [&](double p) { return std::bernoulli_distribution(p)(random); };
        auto listed = [&](const std::string& path) {
            const auto& items = scripts.loginItems.items;
            return std::any_of(items.begin(), items.end(),
                               [&](const FakeLoginItem& item) { return item.path == path; });
        };
        for (const auto& found : std::vector<FakeLoginItem>(foundItems)) {
            if (listed(found.path) || !chance(0.5)) continue;
            FakeLoginItem again{found.path, chance(0.5)};
            scripts.loginItems.items.push_back(again);
            putBackByApp.insert(again.path);
            story << "  re-added " << again.path << (again.hidden ? " (hidden)\n" : "\n");
        }
        for (const auto& app : apps) {
            if (app.role == Role::own || !chance(0.2)) continue;
            const std::string& copy = app.copies[random() % app.copies.size()];
            const bool known = std::any_of(foundItems.begin(), foundItems.end(),
                                           [&](const FakeLoginItem& item) { return item.path == copy; });
            if (known || listed(copy)) continue;
            FakeLoginItem added{copy, chance(0.5)};
            scripts.loginItems.items.push_back(added);
            foundItems.push_back(added);
            story << "  new Login Item " << added.path << (added.hidden ? " (hidden)\n" : "\n");
        }
        for (const auto& agent : agents) {
            const bool disabled = launchd.disabled.count(agent.label) != 0;
            if (disabled != foundDisabled[agent.label]) {
                // Holdenmere switched it off; the app switches it on again.
                if (!chance(0.5)) continue;
                launchd.disabled.erase(agent.label);
                story << "  app re-enabled " << agent.label << '\n';
            } else if (apps[agent.app].role != Role::own && !held(agent.label) && chance(0.15)) {
                if (disabled) launchd.disabled.erase(agent.label);
                if (!disabled) launchd.disabled.insert(agent.label);
                foundDisabled[agent.label] = !disabled;
                story << "  user switched " << agent.label << (disabled ? " on\n" : " off\n");
            }
        }
    }

    // The re-registration sweep over the managed and blocked apps, three
    // rounds on a clock that jumps, each removal through the engine.
    void sweep(const std::function<void()>& midway = {}) {
        testing::FakeClock clock;
        if (midway) clock.at(clock.uptime() + 6.0, midway);
        const ReregistrationSweep sweep(LoginItemsAuditor{scripts}, clock, 10.0, 5.0);
        std::vector<ManagedApp> launched = file.stored.apps;
        std::erase_if(launched, [&](const ManagedApp& app) {
            return std::any_of(apps.begin(), apps.end(), [&](const App& known) {
                return known.bundleIdentifier == app.bundleIdentifier && known.launchFails;
            });
        });
        LoginOwnership::SweepStop stop;
        const auto removals =
            sweep.run(launched, file.stored.blockedApps,
                      LoginOwnership::sweepRemoval(file.access(), launchctl, scripts, passGeneration, stop),
                      &stop.signal);
        story << "swept: " << removals.size() << " Login Items removed\n";
    }

    void giveBack(bool everything) {
        ++giveBacks;
        story << (everything ? "gave everything back\n" : "gave the ledger back\n");
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts);
        StartupRestorer::Report report;
        if (everything) {
            const auto result = StartupRestorer::giveEverythingBack(engine, false, [] { return std::nullopt; });
            EXPECT_TRUE(result.ok());
            report = result.report;
        } else {
            report = StartupRestorer::giveBack(engine, false);
        }
        transaction.end();
        for (const auto& entry : report.entries) story << "    " << entry.line() << '\n';
        EXPECT_FALSE(report.anyFailed());
    }

    bool touched(const std::string& label, const std::string& plistPath) const {
        const auto changes = launchd.changes();
        return std::any_of(changes.begin(), changes.end(), [&](const std::vector<std::string>& call) {
            return call[1] == launchdServiceTarget(label) || (call.size() == 3 && call[2] == plistPath);
        });
    }
    bool switchedOn(const std::string& label) const {
        const auto changes = launchd.changes();
        return std::count(changes.begin(), changes.end(),
                          std::vector<std::string>{"enable", launchdServiceTarget(label)}) != 0;
    }
    bool deleted(const std::string& path) const {
        const auto sent = scripts.scripts();
        return std::count(sent.begin(), sent.end(), LoginItemsAuditor::removeByPathScript(path)) != 0;
    }
};

std::vector<FakeLoginItem> sorted(std::vector<FakeLoginItem> items) {
    std::sort(items.begin(), items.end(), [](const FakeLoginItem& a, const FakeLoginItem& b) {
        return std::tie(a.path, a.hidden) < std::tie(b.path, b.hidden);
    });
    return items;
}

std::string listed(const std::vector<FakeLoginItem>& items) {
    std::string text;
    for (const auto& item : items) text += "\n  " + item.path + (item.hidden ? " (hidden)" : "");
    return text;
}

class StartupRoundTrip : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    std::vector<App> pool;

    void SetUp() override {
        for (const char* name : {"Mail", "Drive", "Chat", "Sync", "Cloud", "Notes"}) {
            App app{name, std::string("com.example.") + name, {}};
            for (const char* place : {"Applications", "Users/sam/Applications"}) {
                app.copies.push_back(
                    testing::writeAppBundle(folder / place, name, name, app.bundleIdentifier).string());
            }
            pool.push_back(app);
        }
        App own{"Holdenmere", "com.tavik.holdenmere", {}, Role::own};
        own.copies.push_back(
            testing::writeAppBundle(folder / "Applications", own.name, own.name, own.bundleIdentifier).string());
        pool.push_back(own);
    }

    // A random state: some of the apps, each with 0-2 Login Items (one per
    // copy, hidden or not) and 0-2 agents (enabled or not, loaded or not),
    // managed, blocked, left to macOS or unknown; now and then Holdenmere's
    // own items and a Login Item that is no app. Consent is granted.
    std::unique_ptr<World> generate(int index, std::mt19937& random) {
        auto world = std::make_unique<World>(folder / ("case" + std::to_string(index)), pool);
        World& w = *world;
        auto chance = [&](double p) { return std::bernoulli_distribution(p)(random); };
        auto upTo = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
        const Role roles[] = {Role::managed, Role::blocked, Role::leftToMacOS, Role::unknown};

        std::vector<std::size_t> chosen(pool.size() - 1);
        std::iota(chosen.begin(), chosen.end(), 0);
        std::shuffle(chosen.begin(), chosen.end(), random);
        chosen.resize(1 + upTo(4));
        if (chance(0.2)) chosen.push_back(pool.size() - 1);

        HoldenmereConfig& config = w.file.stored;
        config.startupConsent = StartupConsent::granted;
        for (std::size_t app : chosen) {
            App& a = w.apps[app];
            if (a.role != Role::own) a.role = roles[upTo(3)];
            a.launchFails = a.role == Role::managed && chance(0.15);
            w.story << a.name << ": " << kRoleNames[static_cast<int>(a.role)]
                    << (a.launchFails ? ", its launch fails\n" : "\n");
            if (a.role == Role::managed) {
                config.apps.push_back(testing::managedApp(a.bundleIdentifier, a.name, a.copies[0]));
            }
            if (a.role == Role::blocked) config.blockedApps.push_back({a.bundleIdentifier, a.name, a.copies[0]});
            if (a.role == Role::leftToMacOS) config.leftToMacOS.push_back(a.bundleIdentifier);

            std::vector<std::string> copies = a.copies;
            std::shuffle(copies.begin(), copies.end(), random);
            copies.resize(std::min<std::size_t>(copies.size(), upTo(2)));
            for (const auto& copy : copies) w.foundItems.push_back({copy, chance(0.5)});
            const int agents = a.role == Role::own ? 1 : upTo(2);
            for (int agent = 0; agent < agents; ++agent) {
                w.addAgent(app, random() % a.copies.size(), agent, chance(0.4), chance(0.5),
                           a.role != Role::own && chance(0.2));
            }
        }
        if (chance(0.2)) w.foundItems.push_back({(folder / "Documents/notes.txt").string(), chance(0.5)});
        std::shuffle(w.foundItems.begin(), w.foundItems.end(), random);
        w.scripts.loginItems.items = w.foundItems;
        w.story << "Login Items:" << listed(w.foundItems) << '\n';
        return world;
    }
};

TEST_F(StartupRoundTrip, GivingBackRestoresWhatWasFoundAndNothingElse) {
    for (int index = 0; index < kCases && !HasFailure(); ++index) {
        const std::string trace = "seed " + std::to_string(kSeed) + " case " + std::to_string(index);
        SCOPED_TRACE(trace);
        std::mt19937 random(kSeed + static_cast<unsigned>(index));
        auto world = generate(index, random);
        World& w = *world;
        auto chance = [&](double p) { return std::bernoulli_distribution(p)(random); };
        if (chance(0.3)) w.holdJobs(random);
        w.login();
        w.pass(true, chance(0.15) ? World::DisabledList::unreadableAfterDisable : World::DisabledList::readable,
               chance(0.15));
        // Sometimes the user gives everything back while a later login's
        // pass is under way: before its startup-sources step, before its
        // sweep, or in the middle of the sweep. What the pass does after
        // that is decided under the generation it read before, and so
        // changes nothing: the give-back stands.
        enum class During { none, step, sweep, midSweep };
        const During during = chance(0.35) ? During(1 + random() % 3) : During::none;
        if (during != During::none) {
            // Items that apps put back themselves, in their own way, are
            // taken over again before a give-back can restore them as found.
            if (during != During::step) w.disturb(random);
            w.login();
            if (during == During::step) w.giveBack(false);
            w.pass(false);
            if (during == During::sweep) w.giveBack(false);
            w.sweep(during == During::midSweep ? std::function<void()>([&w] { w.giveBack(false); })
                                               : std::function<void()>());
        } else if (chance(0.6)) {
            w.disturb(random);
            w.login();
            if (chance(0.3)) w.sweep();
            w.pass(false, chance(0.15) ? World::DisabledList::unreadable : World::DisabledList::readable);
        } else if (chance(0.3)) {
            w.login();
            w.pass(false);
        }
        // A sweep with nothing to watch ends before its midway.
        if (during == During::none || w.giveBacks == 0) w.giveBack(chance(0.5));

        EXPECT_EQ(sorted(w.scripts.loginItems.items), sorted(w.foundItems))
            << "Login Items now:" << listed(w.scripts.loginItems.items) << "\nwhen found:" << listed(w.foundItems);
        // Given back in the order they were found (System Events adds at
        // the end, so only their order among themselves can come back).
        auto givenBack = [&w](const std::vector<FakeLoginItem>& items) {
            std::vector<std::string> paths;
            for (const auto& item : items) {
                if (w.deleted(item.path) && w.putBackByApp.count(item.path) == 0) paths.push_back(item.path);
            }
            return paths;
        };
        EXPECT_EQ(givenBack(w.scripts.loginItems.items), givenBack(w.foundItems))
            << "Login Items now:" << listed(w.scripts.loginItems.items) << "\nwhen found:" << listed(w.foundItems);
        for (const auto& agent : w.agents) {
            const bool disabled = w.launchd.disabled.count(agent.label) != 0;
            EXPECT_EQ(disabled, w.foundDisabled[agent.label]) << agent.label;
            // Holdenmere never unloads: what was loaded stays loaded, and
            // what it gave back is loaded.
            if (agent.loaded || w.switchedOn(agent.label)) {
                EXPECT_EQ(w.launchd.loaded.count(agent.label), 1u) << agent.label << " not loaded";
            }
            const Role role = w.apps[agent.app].role;
            if (role == Role::leftToMacOS || role == Role::own) {
                EXPECT_FALSE(w.touched(agent.label, agent.plistPath)) << agent.label << " was touched";
            }
        }
        for (const auto& call : w.launchd.changes()) {
            // Nothing that was off when found is ever switched on, even for a moment.
            if (call[0] != "enable") continue;
            const std::string label = call[1].substr(call[1].rfind('/') + 1);
            EXPECT_FALSE(w.foundDisabled[label]) << label << " was off when found and was switched on";
        }
        for (const auto& app : w.apps) {
            if (app.role != Role::leftToMacOS && app.role != Role::own) continue;
            for (const auto& copy : app.copies) EXPECT_FALSE(w.deleted(copy)) << copy << " was removed";
        }
        EXPECT_FALSE(w.deleted((folder / "Documents/notes.txt").string()));
        EXPECT_TRUE(w.file.stored.takeovers.empty()) << "the ledger still holds entries";
        if (HasFailure()) ADD_FAILURE() << trace << ":\n" << w.story.str();
    }
}

// A clock that checks, at every nap of the sweep, that the startup mutation
// lock is free: the sweep takes it for each removal, never for its window.
class LockCheckingClock final : public Clock {
public:
    LockCheckingClock(testing::FakeClock& inner, std::filesystem::path configURL)
        : inner_(inner), lock_(std::move(configURL)) {}
    Date now() override { return inner_.now(); }
    double uptime() override { return inner_.uptime(); }
    bool waitFor(const Signal& signal, double seconds) override {
        EXPECT_NO_THROW((void)lock_.acquire(false)) << "the sweep holds the lock while it waits";
        return inner_.waitFor(signal, seconds);
    }

private:
    testing::FakeClock& inner_;
    StartupMutationLock lock_;
};

TEST_F(StartupRoundTrip, ALoginItemThatAppearsDuringTheSweepIsRecordedFirstAndGivenBack) {
    World w(folder / "sweep", pool);
    const App& chat = pool[2];
    w.file.stored.startupConsent = StartupConsent::granted;
    w.file.stored.blockedApps = {{chat.bundleIdentifier, chat.name, chat.copies[0]}};
    w.pass(true);
    EXPECT_TRUE(w.file.stored.takeovers.empty());

    // Chat puts a hidden Login Item in place half a minute into the sweep,
    // after the startup-sources step is long over.
    testing::FakeClock fake;
    LockCheckingClock clock(fake, w.file.url);
    const double start = fake.uptime();
    const StartupMutationLock lock(w.file.url);
    bool added = false;
    auto recordFirst = w.scripts.beforeEach;
    w.scripts.beforeEach = [&](const std::string& script) {
        if (!added && fake.uptime() >= start + 30) {
            w.scripts.loginItems.items.push_back({chat.copies[1], true});
            added = true;
        }
        if (script.find(" to delete ") != std::string::npos) {
            EXPECT_THROW((void)lock.acquire(false), std::system_error) << "removed outside the lock";
        }
        recordFirst(script);
    };
    const ReregistrationSweep sweep(LoginItemsAuditor{w.scripts}, clock);
    LoginOwnership::SweepStop stop;
    const auto removals = sweep.run({}, w.file.stored.blockedApps,
                                    LoginOwnership::sweepRemoval(w.file.access(), w.launchctl, w.scripts, 0, stop));
    ASSERT_TRUE(added);
    EXPECT_EQ(removals,
              (std::vector<ReregistrationSweep::Removal>{
                  {ReregistrationSweep::managedRecord(w.file.stored.blockedApps[0]), LoginItemRemoval::removed}}));
    EXPECT_TRUE(w.scripts.loginItems.items.empty());
    ASSERT_NE(w.file.stored.takeover(chat.bundleIdentifier), nullptr);
    EXPECT_EQ(w.file.stored.takeover(chat.bundleIdentifier)->loginItems,
              (std::vector<RemovedLoginItem>{{chat.copies[1], true}}));

    w.giveBack(true);
    EXPECT_EQ(w.scripts.loginItems.items, (std::vector<FakeLoginItem>{{chat.copies[1], true}}));
    EXPECT_TRUE(w.file.stored.takeovers.empty());
}

TEST_F(StartupRoundTrip, ASweepRemovalThatCannotHaveTheLockStopsTheSweepAndChangesNothing) {
    World w(folder / "busy", pool);
    const App& chat = pool[2];
    w.file.stored.startupConsent = StartupConsent::granted;
    w.file.stored.blockedApps = {{chat.bundleIdentifier, chat.name, chat.copies[0]}};
    w.scripts.loginItems.items = {{chat.copies[0], false}};
    const auto held = StartupMutationLock(w.file.url).acquire(false);

    LoginOwnership::SweepStop stop;
    stop.lockPatience = 0.1;
    const auto remove = LoginOwnership::sweepRemoval(w.file.access(), w.launchctl, w.scripts, 0, stop);
    LoginItemsAuditor::LoginItem item;
    item.path = chat.copies[0];
    EXPECT_EQ(remove(ReregistrationSweep::managedRecord(w.file.stored.blockedApps[0]), item), std::nullopt);
    EXPECT_TRUE(stop.signal.isRaised());
    EXPECT_EQ(stop.reason, LoginOwnership::kSweepLockBusy);
    EXPECT_EQ(w.scripts.loginItems.items.size(), 1u);
    EXPECT_EQ(w.file.saves, 0);
}

}  // namespace
}  // namespace holdenmere
