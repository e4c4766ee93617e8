// Poses as /usr/bin/osascript talking to System Events about Login Items.
//
//   fake_osascript -e SCRIPT
//
// Environment:
//   FAKE_OSASCRIPT_STATE  JSON file of the Login Items ([{"path", "hidden"}]);
//                         a missing file holds none. Required.
//   FAKE_OSASCRIPT_LOG    optional; each invocation appends one JSON line
//                         {"pid": N, "argv": [...]} (argv without argv[0]).
//   FAKE_OSASCRIPT_MODE   optional: "denied" (Automation not allowed), "nogui"
//                         (no window server session) or "hang" (waits
//                         forever, as at an unanswered permission prompt)
//                         or "slow:<ms>" (answers normally after that many
//                         milliseconds, so that a test can catch its caller
//                         in the middle of its work).
//                         Without it, the contents of "{STATE}.mode" if that
//                         file exists, so a test can switch modes between calls.
//
// Answers and errors are printed as osascript prints them (see
// tests/fixtures/osascript/README.md).
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/system_events_login_items.h"

namespace {

using holdenmere::ScriptAnswer;
using holdenmere::testing::SystemEventsLoginItems;

constexpr const char* kNotAuthorized = "execution error: Not authorized to send Apple events to System Events. (-1743)";
constexpr const char* kNoSession = "execution error: An error of type -10810 has occurred. (-10810)";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

std::string modeOf(const std::string& statePath) {
    std::string mode = environment("FAKE_OSASCRIPT_MODE");
    if (!mode.empty()) return mode;
    std::ifstream stream(statePath + ".mode");
    std::string contents((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    while (!contents.empty() && (contents.back() == '\n' || contents.back() == ' ')) contents.pop_back();
    return contents;
}

void logInvocation(const std::vector<std::string>& arguments) {
    std::string logPath = environment("FAKE_OSASCRIPT_LOG");
    if (logPath.empty()) return;
    nlohmann::json line = {{"pid", static_cast<long>(::getpid())}, {"argv", arguments}};
    std::ofstream stream(logPath, std::ios::app | std::ios::binary);
    stream << line.dump() << '\n';
}

int finish(const ScriptAnswer& answer) {
    std::cout << answer.output << std::flush;
    std::cerr << answer.error << std::flush;
    return answer.status;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    logInvocation(arguments);
    if (arguments.size() != 2 || arguments[0] != "-e") {
        std::cerr << "usage: osascript [-l language] [-e script] [-i] [-s {ehso}] [programfile] [argument ...]\n";
        return 1;
    }
    const std::string& script = arguments[1];
    const std::string statePath = environment("FAKE_OSASCRIPT_STATE");
    if (statePath.empty()) {
        std::cerr << "fake osascript: FAKE_OSASCRIPT_STATE is not set\n";
        return 70;
    }

    const std::string mode = modeOf(statePath);
    if (mode == "hang") {
        for (;;) ::pause();
    }
    if (mode.starts_with("slow:")) std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(mode.c_str() + 5)));
    if (mode == "denied") {
        return finish(ScriptAnswer{1, "", SystemEventsLoginItems::errorLine(script, kNotAuthorized)});
    }
    if (mode == "nogui") {
        return finish(ScriptAnswer{1, "", SystemEventsLoginItems::errorLine(script, kNoSession)});
    }

    try {
        SystemEventsLoginItems loginItems;
        loginItems.items = SystemEventsLoginItems::load(statePath);
        ScriptAnswer answer = loginItems.answer(script);
        if (answer.status == 0) SystemEventsLoginItems::save(statePath, loginItems.items);
        return finish(answer);
    } catch (const std::exception& error) {
        std::cerr << "fake osascript: " << error.what() << '\n';
        return 70;
    }
}
