#include "app/desktop/ui_fixture.h"

#include <QFile>

#include <algorithm>
#include <mutex>
#include <stdexcept>

#include "core/launchd/agent_installer.h"
#include "core/support/files.h"

namespace holdenmere::desktop {
namespace {

// A clock that stands still at the fixture's moment; a wait jumps straight
// to its end, so a network test in a fixture finishes at once.
class StillClock final : public Clock {
public:
    explicit StillClock(Date start) : now_(start) {}
    Date now() override {
        std::lock_guard lock(mutex_);
        return now_;
    }
    double uptime() override {
        std::lock_guard lock(mutex_);
        return now_.secondsSinceReferenceDate;
    }
    bool waitFor(const Signal& signal, double seconds) override {
        if (signal.isRaised()) return true;
        std::lock_guard lock(mutex_);
        now_ = now_.adding(seconds);
        return signal.isRaised();
    }

private:
    std::mutex mutex_;
    Date now_;
};

// Answers from the fixture's list, at once; "reachable" (and the end of the
// list) means the network answered.
class ScriptedProbe final : public ReachabilityProbe {
public:
    explicit ScriptedProbe(std::vector<std::string> answers) : answers_(std::move(answers)) {}
    void probe(const std::string&, double, Completion completion) override {
        std::string answer;
        {
            std::lock_guard lock(mutex_);
            if (next_ < answers_.size()) answer = answers_[next_++];
        }
        completion(answer.empty() || answer == "reachable" ? ProbeOutcome::reachable() : ProbeOutcome::failure(answer));
    }
    void warmUp(double) override {}

private:
    std::mutex mutex_;
    std::vector<std::string> answers_;
    std::size_t next_ = 0;
};

HoldenmereLoginAgentStatus statusFromRaw(const std::string& raw) {
    if (raw == "notInstalled") return HoldenmereLoginAgentStatus::notInstalled;
    if (raw == "installedNotLoaded") return HoldenmereLoginAgentStatus::installedNotLoaded;
    if (raw == "disabled") return HoldenmereLoginAgentStatus::disabled;
    if (raw == "activeAtLogin") return HoldenmereLoginAgentStatus::activeAtLogin;
    throw json::DecodeError("loginAgent: unknown status \"" + raw + "\"");
}

// Every string that begins with "~/" made to name a place under `home`.
void expandHome(json::Value& value, const std::string& home) {
    if (value.is_string()) {
        const std::string& text = value.get_ref<const std::string&>();
        if (text.starts_with("~/")) value = home + text.substr(1);
    } else if (value.is_array() || value.is_object()) {
        for (auto& item : value) expandHome(item, home);
    }
}

}  // namespace

plist::Value FixtureDesktopServices::plistFromJSON(const json::Value& value) {
    if (value.is_boolean()) return plist::Value{value.get<bool>()};
    if (value.is_number_integer()) return plist::Value{value.get<std::int64_t>()};
    if (value.is_number()) return plist::Value{value.get<double>()};
    if (value.is_string()) return plist::Value{value.get<std::string>()};
    if (value.is_array()) {
        plist::Array items;
        for (const json::Value& item : value) items.push_back(plistFromJSON(item));
        return plist::Value{std::move(items)};
    }
    if (value.is_object()) {
        plist::Dictionary entries;
        for (const auto& [key, item] : value.items()) entries.emplace_back(key, plistFromJSON(item));
        return plist::Value{std::move(entries)};
    }
    throw json::DecodeError("Info.plist values cannot be null");
}

std::unique_ptr<FixtureDesktopServices> FixtureDesktopServices::load(const QString& nameOrPath) {
    const QString path = nameOrPath == QStringLiteral("sample") ? QStringLiteral(":/holdenmere/fixtures/sample.json")
                                                                 : nameOrPath;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("cannot open UI fixture " + path.toStdString() + ": " +
                                 file.errorString().toStdString());
    }
    const QByteArray bytes = file.readAll();
    try {
        return std::make_unique<FixtureDesktopServices>(json::parse(std::string_view(bytes.constData(),
                                                                                     static_cast<std::size_t>(bytes.size()))));
    } catch (const json::DecodeError& error) {
        throw std::runtime_error("UI fixture " + path.toStdString() + ": " + error.what());
    }
}

FixtureDesktopServices::FixtureDesktopServices(const json::Value& given) {
    if (!given.is_object()) throw json::DecodeError("a UI fixture is a JSON object");
    if (!folder_.isValid()) throw std::runtime_error("cannot make a temporary folder for the UI fixture");
    json::Value fixture = given;
    expandHome(fixture, home().string());

    const Date now = fixture.contains("now") ? json::decodeDate(fixture["now"], "now") : Date::now();
    clock_ = std::make_unique<StillClock>(now);
    setUpLoginAgent(fixture.contains("loginAgent")
                        ? statusFromRaw(json::decodeString(fixture["loginAgent"], "loginAgent"))
                        : HoldenmereLoginAgentStatus::activeAtLogin);
    if (fixture.contains("onboardingDone")) onboardingDone_ = json::decodeBool(fixture["onboardingDone"], "onboardingDone");

    if (fixture.contains("config")) files::writeAtomically(configStore().url, json::encodePretty(fixture["config"]));
    if (fixture.contains("history")) files::writeAtomically(historyStore().url, json::encodePretty(fixture["history"]));
    if (fixture.contains("log")) {
        std::string log;
        for (const std::string& line : json::decodeStringArray(fixture["log"], "log")) log += line + "\n";
        files::writeAtomically(logPath(), log);
    }
    if (fixture.contains("installed")) {
        for (const json::Value& entry : fixture["installed"]) {
            json::ObjectReader reader(entry, "installed");
            std::optional<plist::Value> info;
            if (const json::Value* keys = reader.find("info")) info = plistFromJSON(*keys);
            std::vector<std::string> points;
            if (const json::Value* list = reader.find("extensionPoints")) {
                points = json::decodeStringArray(*list, reader.pathOf("extensionPoints"));
            }
            installed_.push_back(InstalledApp::fromInfoDictionary(reader.string("path"), info, points));
        }
    }
    // In the order the folder scan gives.
    std::stable_sort(installed_.begin(), installed_.end(), [](const InstalledApp& a, const InstalledApp& b) {
        return foldedCase(a.name) < foldedCase(b.name);
    });
    if (fixture.contains("missing")) {
        for (const std::string& path : json::decodeStringArray(fixture["missing"], "missing")) missing_.insert(path);
    }
    if (fixture.contains("probe")) probeAnswers_ = json::decodeStringArray(fixture["probe"], "probe");
    if (fixture.contains("startup")) setUpStartup(fixture["startup"]);
}

void FixtureDesktopServices::setUpLoginAgent(HoldenmereLoginAgentStatus status) {
    const std::string label(AgentInstaller::kLabel);
    launchctl_.setPlist(loginAgentPlistPath().string(), label);
    if (status == HoldenmereLoginAgentStatus::notInstalled) return;
    AgentInstaller installer(launchctl_, *agentExecutable(), loginAgentPlistPath(), logPath());
    files::writeAtomically(loginAgentPlistPath(), installer.plistContents());
    launchctl_.setLoaded(label, status == HoldenmereLoginAgentStatus::activeAtLogin ||
                                    status == HoldenmereLoginAgentStatus::disabled);
    launchctl_.setDisabled(label, status == HoldenmereLoginAgentStatus::disabled);
}

void FixtureDesktopServices::setUpStartup(const json::Value& startup) {
    json::ObjectReader reader(startup, "startup");
    if (const json::Value* bundles = reader.find("bundles")) {
        for (const json::Value& bundle : *bundles) {
            json::ObjectReader entry(bundle, "startup.bundles");
            const std::filesystem::path path = entry.string("path");
            plist::Value info{plist::Dictionary{}};
            if (const json::Value* keys = entry.find("info")) info = plistFromJSON(*keys);
            files::writeAtomically(path / "Contents/Info.plist", plist::toXml(info));
            // An app that carries system extensions counts as a security or network tool.
            if (const json::Value* extensions = entry.find("systemExtensions")) {
                for (const std::string& identifier :
                     json::decodeStringArray(*extensions, entry.pathOf("systemExtensions"))) {
                    files::writeAtomically(path / "Contents/Library/SystemExtensions" /
                                               (identifier + ".systemextension") / "Contents/Info.plist",
                                           plist::toXml(plist::Value{plist::Dictionary{}}));
                }
            }
        }
    }
    if (const json::Value* items = reader.find("loginItems")) {
        for (const json::Value& item : *items) {
            json::ObjectReader entry(item, "startup.loginItems");
            const json::Value* hidden = entry.find("hidden");
            loginItems_.add({entry.string("path"), hidden != nullptr && json::decodeBool(*hidden, "hidden")});
        }
    }
    if (const json::Value* agents = reader.find("launchAgents")) {
        for (const json::Value& agent : *agents) {
            const plist::Value plist = plistFromJSON(agent);
            const auto label = plist.stringAt("Label");
            if (!label) throw json::DecodeError("startup.launchAgents: every agent needs a \"Label\"");
            const std::filesystem::path file = launchAgentDirectories().front() / (*label + ".plist");
            files::writeAtomically(file, plist::toXml(plist));
            launchctl_.setPlist(file.string(), *label);
        }
    }
    if (const json::Value* labels = reader.find("disabled")) {
        for (const std::string& label : json::decodeStringArray(*labels, "startup.disabled")) {
            launchctl_.setDisabled(label, true);
        }
    }
    if (const json::Value* labels = reader.find("loaded")) {
        for (const std::string& label : json::decodeStringArray(*labels, "startup.loaded")) {
            launchctl_.setLoaded(label, true);
        }
    }
}

std::vector<std::filesystem::path> FixtureDesktopServices::launchAgentDirectories() {
    return {home() / "Library/LaunchAgents"};
}

std::optional<std::filesystem::path> FixtureDesktopServices::agentExecutable() {
    return std::filesystem::path("/Applications/Holdenmere.app/Contents/MacOS/holdenmere");
}

std::filesystem::path FixtureDesktopServices::loginAgentPlistPath() const {
    return home() / "Library/LaunchAgents/com.tavik.holdenmere.agent.plist";
}

FixtureDesktopServices::~FixtureDesktopServices() = default;

std::filesystem::path FixtureDesktopServices::home() const { return folder_.path().toStdString(); }

ConfigStore FixtureDesktopServices::configStore() const {
    return ConfigStore{home() / "Library/Application Support/Holdenmere/config.json"};
}

HistoryStore FixtureDesktopServices::historyStore() const {
    return HistoryStore{home() / "Library/Application Support/Holdenmere/history.json"};
}

std::filesystem::path FixtureDesktopServices::logPath() const { return home() / "Library/Logs/Holdenmere.log"; }

InstalledApp FixtureDesktopServices::readBundle(const std::filesystem::path& path) {
    for (const InstalledApp& app : installed_) {
        if (app.path == path) return app;
    }
    return InstalledApp::read(path);
}

std::unique_ptr<ReachabilityProbe> FixtureDesktopServices::makeProbe() {
    return std::make_unique<ScriptedProbe>(probeAnswers_);
}

}  // namespace holdenmere::desktop
