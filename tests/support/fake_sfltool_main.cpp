// A stand-in for /usr/bin/sfltool in tests: `sfltool dumpbtm` prints the
// background items kept in the JSON file named by
// HOLDENMERE_FAKE_SFLTOOL_STATE, in the layout of the real tool
// (tests/fixtures/sfltool): a section for the current user, then one for each
// other UID the file names. The file:
//
//   {"records": [ {"name", "type", "disposition", "identifier", "url",
//                  "executablePath"?, "bundleIdentifier"?, "parentIdentifier"?,
//                  "uid"?}, ... ],
//    "stdout"?: text printed instead of the records,
//    "stderr"?: text, "exit"?: status, "hang"?: true (waits, as the tool does
//    while an administrator's authorization is asked for)}
//
// Every argument vector is appended to "{state}.calls", one per line.
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/background_items_text.h"

namespace {

using holdenmere::testing::FakeBackgroundItem;

constexpr int kUsage = 64;

nlohmann::json readState(const char* path) {
    std::ifstream file(path);
    if (!file) return nlohmann::json::object();
    std::stringstream text;
    text << file.rdbuf();
    return nlohmann::json::parse(text.str(), nullptr, false);
}

std::string recordsText(const nlohmann::json& state) {
    const std::string current = std::to_string(::getuid());
    std::vector<std::string> order{current};
    std::map<std::string, std::vector<FakeBackgroundItem>> sections{{current, {}}};
    for (const auto& entry : state.value("records", nlohmann::json::array())) {
        auto item = entry.get<FakeBackgroundItem>();
        const std::string uid = item.uid.value_or(current);
        if (sections.count(uid) == 0) order.push_back(uid);
        sections[uid].push_back(item);
    }
    std::string text;
    for (const auto& uid : order) text += holdenmere::testing::btmSection(uid, sections[uid]);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    const char* statePath = std::getenv("HOLDENMERE_FAKE_SFLTOOL_STATE");
    if (statePath != nullptr) {
        std::ofstream calls(std::string(statePath) + ".calls", std::ios::app);
        for (int index = 1; index < argc; ++index) calls << (index > 1 ? " " : "") << argv[index];
        calls << '\n';
    }
    if (argc != 2 || std::string(argv[1]) != "dumpbtm") {
        std::cerr << "Usage: sfltool dumpbtm | resetbtm | ...\n";
        return kUsage;
    }
    const nlohmann::json state = statePath != nullptr ? readState(statePath) : nlohmann::json::object();
    if (state.is_discarded() || !state.is_object()) {
        std::cerr << "fake sfltool: unreadable state file\n";
        return 1;
    }
    if (state.contains("stdout")) {
        std::cout << state["stdout"].get<std::string>();
    } else if (state.value("exit", 0) == 0) {
        std::cout << recordsText(state);
    }
    std::cout.flush();
    if (state.contains("stderr")) std::cerr << state["stderr"].get<std::string>() << std::flush;
    while (state.value("hang", false)) ::pause();
    return state.value("exit", 0);
}
