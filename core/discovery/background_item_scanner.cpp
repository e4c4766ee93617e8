#include "core/discovery/background_item_scanner.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <set>

#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/startup_discovery.h"
#include "core/support/plist.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

using Record = BackgroundItemRecord;

std::string appName(const std::string& appPath) { return std::filesystem::path(appPath).stem().string(); }

const Record* recordWithIdentifier(const BackgroundItemDump& dump, const std::optional<std::string>& identifier,
                                   const std::optional<std::string>& uid) {
    if (!identifier) return nullptr;
    for (const auto& record : dump.records) {
        if (record.identifier == *identifier && record.uid == uid) return &record;
    }
    return nullptr;
}

// The job a record names; nothing when it is not a regular plist of a
// sensible size (the reader refuses pipes and huge files without waiting).
std::optional<plist::Value> readPlist(const std::string& path) {
    auto value = plist::tryReadFile(path);
    if (!value || value->dictionary() == nullptr) return std::nullopt;
    return std::move(value).value();
}

// One record read against its parent and the files on disk.
class Reading {
public:
    Reading(const BackgroundItemDump& dump, const Record& record)
        : record_(record), parent_(recordWithIdentifier(dump, record.parentIdentifier, record.uid)) {
        if (parent_ != nullptr && parent_->url) parentPath_ = BackgroundItemDump::filePath(*parent_->url);
        if (record.url) urlPath_ = resolved(*record.url);
    }

    // A "file://" URL, an absolute path, or a path relative to the parent
    // app (nothing when the parent's location is unknown).
    std::optional<std::string> resolved(const std::string& text) const {
        if (text.starts_with("file:")) return BackgroundItemDump::filePath(text);
        if (text.starts_with('/')) return StartupDiscovery::standardizedPath(text);
        if (!parentPath_) return std::nullopt;
        return StartupDiscovery::standardizedPath(*parentPath_ + "/" + text);
    }

    const Record& record() const { return record_; }
    const std::optional<std::string>& urlPath() const { return urlPath_; }

    // The app that owns the item, and its bundle identifier, as far as the
    // files or the records tell.
    std::optional<std::string> ownerApp(const std::optional<std::string>& program) const {
        if (program) {
            if (auto app = StartupDiscovery::outermostAppPath(*program)) return app;
        }
        if (urlPath_) {
            if (auto app = StartupDiscovery::outermostAppPath(*urlPath_)) return app;
        }
        return parentPath_ ? StartupDiscovery::outermostAppPath(*parentPath_) : std::nullopt;
    }
    std::string ownerBundleIdentifier(const std::optional<std::string>& app) const {
        if (app) {
            if (auto identifier = StartupDiscovery::bundleIdentifier(*app)) return *identifier;
        }
        if (parent_ != nullptr && parent_->bundleIdentifier) return *parent_->bundleIdentifier;
        return record_.bundleIdentifier.value_or("");
    }
    std::string ownerName(const std::optional<std::string>& app) const {
        if (app) return appName(*app);
        if (parent_ != nullptr && !parent_->name.empty()) return parent_->name;
        return record_.name;
    }

private:
    const Record& record_;
    const Record* parent_;
    std::optional<std::string> parentPath_;
    std::optional<std::string> urlPath_;
};

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    return line;
}

bool isOwn(const Record& record) {
    const std::string label = record.unprefixedIdentifier();
    auto own = [](const std::optional<std::string>& identifier) {
        return identifier && (*identifier == StartupDiscovery::ownBundleIdentifier ||
                              StartupDiscovery::ownLaunchdLabels.count(*identifier) != 0);
    };
    return own(label) || own(record.bundleIdentifier);
}

// What a record starts and how it could be switched off.
struct Judgement {
    std::optional<std::string> program;
    std::optional<std::string> reason;
    BackgroundItemScanner::Remedy remedy = BackgroundItemScanner::OpenLoginItemsSettings{};
};

Judgement judgeAgent(const Reading& reading) {
    Judgement judgement;
    const Record& record = reading.record();
    std::optional<std::string> cadence;
    std::optional<std::string> launchdOnly;
    std::optional<std::string> plistPath;
    if (reading.urlPath() && reading.urlPath()->ends_with(".plist")) plistPath = reading.urlPath();
    if (record.executablePath) judgement.program = reading.resolved(*record.executablePath);
    if (plistPath) {
        launchdOnly = StartupDiscovery::launchdOnlyReason(std::filesystem::path(*plistPath));
        if (auto plist = readPlist(*plistPath)) {
            cadence = StartupDiscovery::cadence(*plist);
            if (!judgement.program) {
                // A job registered by its app names its program relative to
                // the app ("BundleProgram").
                if (auto agent = LaunchAgentScanner::agentFrom(*plist, *plistPath)) {
                    judgement.program = reading.resolved(agent->program);
                } else if (auto program = plist->stringAt("BundleProgram")) {
                    judgement.program = reading.resolved(*program);
                }
            }
            const std::string label = plist->stringAt("Label").value_or(record.unprefixedIdentifier());
            if (!label.empty()) judgement.remedy = BackgroundItemScanner::LaunchAgent{label, *plistPath};
        }
    }
    judgement.reason = StartupDiscovery::ineligibleReason(judgement.program, cadence, launchdOnly);
    return judgement;
}

Judgement judgeLoginItem(const Reading& reading) {
    Judgement judgement;
    if (const auto& app = reading.urlPath()) {
        if (auto executable = StartupDiscovery::executableName(*app)) {
            judgement.program = *app + "/Contents/MacOS/" + *executable;
        }
    }
    judgement.reason = StartupDiscovery::ineligibleReason(judgement.program, std::nullopt, std::nullopt);
    return judgement;
}

}  // namespace

std::vector<StartupItem> BackgroundItemScanner::Result::startupItems() const {
    std::vector<StartupItem> result;
    for (const auto& entry : items) result.push_back(entry.item);
    return result;
}

BackgroundItemScanner::BackgroundItemScanner(ToolRunning& tools, std::string uid)
    : tools_(tools), uid_(std::move(uid)) {}

std::string BackgroundItemScanner::currentUid() { return std::to_string(::getuid()); }

// Its own words for a failure, rather than ToolRunning::output's: the wait
// for an authorization is named, and the record is read as printed.
Result<std::string> BackgroundItemScanner::dump(ToolRunning& tools) {
    const ChildProcessResult result = tools.run(kSfltool, dumpArguments(), kTimeLimit);
    if (result.succeeded()) return result.output;
    switch (result.ending) {
        case ChildProcessResult::Ending::couldNotStart:
            return Failure{result.startError};
        case ChildProcessResult::Ending::timedOut:
            return Failure{"sfltool dumpbtm did not finish within " +
                           text::number(static_cast<double>(kTimeLimit.count()) / 1000.0) +
                           " s (an administrator's authorization nobody answered?)"};
        case ChildProcessResult::Ending::exited:
        case ChildProcessResult::Ending::signalled:
            break;
    }
    std::string reason = "sfltool dumpbtm failed with " + result.describe(kTimeLimit);
    if (auto line = firstLine(result.error); !line.empty()) reason += ": " + line;
    return Failure{std::move(reason)};
}

BackgroundItemScanner::Scan BackgroundItemScanner::scan() const {
    const auto output = dump(tools_);
    if (!output) return {std::nullopt, output.failure().text};
    const auto records = BackgroundItemDump::parse(*output);
    if (!records.recognised()) return {std::nullopt, "sfltool dumpbtm printed nothing Holdenmere recognises"};
    const auto& sections = records.sections;
    if (!sections.empty() && std::find(sections.begin(), sections.end(), uid_) == sections.end()) {
        return {std::nullopt, "sfltool dumpbtm printed no records for this user (UID " + uid_ + ")"};
    }
    return {interpret(records, uid_), {}};
}

BackgroundItemScanner::Result BackgroundItemScanner::interpret(const BackgroundItemDump& dump, std::string_view uid) {
    Result result;
    std::vector<Item> appRecords;
    std::set<std::string> seen;
    for (const auto& record : dump.records) {
        if (record.uid && *record.uid != uid) continue;
        if (!record.isEnabled() || isOwn(record)) continue;
        const auto kind = record.kind();
        if (kind != Record::Kind::agent && kind != Record::Kind::loginItem && kind != Record::Kind::daemon &&
            kind != Record::Kind::app) {
            continue;
        }
        if (!seen.insert(record.identifier).second) continue;

        const Reading reading(dump, record);
        Judgement judgement;
        if (kind == Record::Kind::daemon) {
            judgement.reason = std::string(kSystemWideReason);
            if (record.executablePath) judgement.program = reading.resolved(*record.executablePath);
        } else {
            // An app record names the app itself, as a login item does.
            judgement = kind == Record::Kind::agent ? judgeAgent(reading) : judgeLoginItem(reading);
        }
        const auto app = reading.ownerApp(judgement.program);
        const std::string owner = reading.ownerBundleIdentifier(app);
        if (owner == StartupDiscovery::ownBundleIdentifier) continue;
        if (!judgement.reason && app && !owner.empty()) {
            const bool appRecord = kind == Record::Kind::app;
            (appRecord ? appRecords : result.items)
                .push_back(Item{StartupItem{owner, appName(*app), *app, StartupItem::BackgroundItem{record.identifier}},
                                judgement.remedy, appRecord});
            continue;
        }
        // Something no app owns is not shown, as a bare tool's agent is not.
        if (owner.empty()) continue;
        result.ineligible.push_back(IneligibleStartupItem{
            reading.ownerName(app), owner, record.identifier,
            judgement.reason.value_or("can't take over: Holdenmere cannot tell what it runs")});
    }
    result.items.insert(result.items.end(), appRecords.begin(), appRecords.end());
    return result;
}

std::vector<BackgroundItemScanner::Conflict> BackgroundItemScanner::conflicts(const Result& result,
                                                                              const std::vector<ManagedApp>& managed) {
    std::vector<Conflict> conflicts;
    for (const auto& app : managed) {
        for (const auto& entry : result.items) {
            if (entry.item.bundleIdentifier != app.bundleIdentifier) continue;
            const auto& source = std::get<StartupItem::BackgroundItem>(entry.item.source);
            conflicts.push_back(Conflict{app, source.identifier, entry.item.name, entry.remedy});
        }
    }
    return conflicts;
}

}  // namespace holdenmere
