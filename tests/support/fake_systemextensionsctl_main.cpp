// A stand-in for /usr/bin/systemextensionsctl in tests: "list" prints the
// installed system extensions in the real tool's layout (a count line, then
// per category a "--- " line, the tab-separated column header and one row
// per extension), from the JSON file named by
// HOLDENMERE_FAKE_SYSTEMEXTENSIONSCTL_STATE (tests/support/
// fake_systemextensionsctl_state.h describes it), and records every call.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fake_systemextensionsctl_state.h"

namespace {

namespace fake = holdenmere::testing::fake_systemextensionsctl;

// What macOS 15 and later print after a category with a settings pane.
std::string settingsHint(const std::string& category) {
    static const std::map<std::string, std::string> panes = {
        {"com.apple.system_extension.network_extension", "Network Extensions"},
        {"com.apple.system_extension.driver_extension", "Driver Extensions"},
        {"com.apple.system_extension.endpoint_security", "Endpoint Security Extensions"},
    };
    auto pane = panes.find(category);
    if (pane == panes.end()) return "";
    return " (Go to 'System Settings > General > Login Items & Extensions > " + pane->second +
           "' to modify these system extension(s))";
}

int list(const nlohmann::json& state) {
    std::vector<holdenmere::SystemExtension> extensions;
    if (state.contains("extensions")) {
        for (const auto& extension : state["extensions"]) extensions.push_back(fake::fromJson(extension));
    }
    std::cout << extensions.size() << " extension(s)\n";
    std::vector<std::string> categories;
    for (const auto& extension : extensions) {
        if (std::find(categories.begin(), categories.end(), extension.category) == categories.end()) {
            categories.push_back(extension.category);
        }
    }
    for (const auto& category : categories) {
        std::cout << "--- " << category << settingsHint(category) << "\n";
        std::cout << "enabled\tactive\tteamID\tbundleID (version)\tname\t[state]\n";
        for (const auto& extension : extensions) {
            if (extension.category != category) continue;
            std::cout << (extension.enabled ? "*" : "") << '\t' << (extension.active ? "*" : "") << '\t'
                      << extension.teamIdentifier << '\t' << extension.bundleIdentifier << " (" << extension.version
                      << ")\t" << extension.name << "\t[" << extension.state << "]\n";
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char* file = std::getenv(fake::kStateVariable);
    if (file == nullptr || *file == '\0') {
        std::cerr << "fake systemextensionsctl: " << fake::kStateVariable << " is not set\n";
        return 70;
    }
    try {
        nlohmann::json state = fake::read(file);
        state["calls"].push_back(std::vector<std::string>(argv + 1, argv + argc));
        fake::write(file, state);
        if (state.contains("answer")) {
            const auto& answer = state["answer"];
            std::cout << answer.value("stdout", "") << std::flush;
            std::cerr << answer.value("stderr", "") << std::flush;
            if (answer["status"] == "hang") {
                for (;;) ::pause();
            }
            return answer["status"].get<int>();
        }
        if (argc == 2 && std::string(argv[1]) == "list") return list(state);
        std::cerr << "systemextensionsctl: unknown command\n";
        return 64;
    } catch (const std::exception& error) {
        std::cerr << "fake systemextensionsctl: " << error.what() << "\n";
        return 70;
    }
}
