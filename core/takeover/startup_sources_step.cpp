#include "core/takeover/startup_sources_step.h"

#include <variant>

#include "core/discovery/background_item_store.h"
#include "core/takeover/background_takeover.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/startup_transaction.h"
#include "core/takeover/login_ownership_pass.h"
#include "core/takeover/startup_sources_pass.h"

namespace holdenmere {
namespace {

constexpr double kStepBase = 30;
constexpr double kStepPerItem = 25;

}  // namespace

double StartupSourcesStep::budget(const HoldenmereConfig& config) {
    const std::size_t items =
        LoginOwnership::startupOptOuts(config).size() + config.apps.size() + config.blockedApps.size();
    return kStepBase + kStepPerItem * static_cast<double>(items);
}

void StartupSourcesStep::add(LogLine line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
}

std::pair<std::vector<LogLine>, std::vector<LaunchRecord>> StartupSourcesStep::take() {
    std::lock_guard lock(mutex_);
    return {std::move(lines_), std::move(records_)};
}

void StartupSourcesStep::run(const Tools& tools, const Inputs& inputs) {
    auto begun =
        StartupTransaction::begin(ConfigAccess::of(inputs.store), StartupTransaction::Wait::untilFree, &cancel);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        // Out of time while another holder kept the lock: the pass says so
        // once the step's deadline has passed.
        if (failure->kind != StartupTransaction::Failure::Kind::outOfTime) {
            add(LogLine::error(failure->text(inputs.store.url) + ". Nothing changed."));
        }
        if (failure->kind == StartupTransaction::Failure::Kind::configUnreadable) {
            LoginOwnership::StartupSourcesTally tally;
            tally.configUnreadable = true;
            add(LoginOwnership::countsLine({}, tally));
        }
        add(LoginOwnership::doneLine(inputs.pass.records, 0));
        done.raise();
        return;
    }
    auto& transaction = std::get<StartupTransaction>(begun);
    StartupChangeEngine engine(transaction, tools.launchctl, tools.scripts, &cancel);
    engine.useSwitches(tools.switches);
    engine.decideUnder(inputs.giveBackGeneration);
    const LaunchAgentScanner scanner(tools.launchctl);

    const auto sources = LoginOwnership::startupSourcesPass(engine);
    for (const auto& line : sources.lines) add(line);
    {
        auto records = sources.records(tools.clock.now());
        std::lock_guard lock(mutex_);
        for (auto& record : records) records_.push_back(std::move(record));
    }
    const auto pass = LoginOwnership::ownershipPass(engine, scanner, StartupSafety::systemEnvironment(), inputs.pass);
    const auto background = BackgroundTakeover::pass(engine, BackgroundItemStore::besideConfig(inputs.store.url),
                                                     StartupSafety::systemEnvironment(), inputs.pass.records);
    transaction.end();
    for (const auto& line : pass.lines) add(line);
    for (const auto& line : background) add(line);
    for (const auto& line : LoginOwnership::importedFailures(inputs.pass.records, pass.config.apps)) add(line);
    add(LoginOwnership::doneLine(inputs.pass.records, pass.loginItemsNotRemoved));
    if (!sources.optOuts.empty() || sources.tally.configUnreadable) add(sources.countsLine());
    done.raise();
}

}  // namespace holdenmere
