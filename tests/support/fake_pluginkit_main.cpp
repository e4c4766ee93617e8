// A stand-in for /usr/bin/pluginkit in tests. It lists the extensions of
// pluginkit.json (tests/support/fake_tool_state.h) in the layouts the real
// tool prints (tests/fixtures/pluginkit):
//   -m[A][D]          "{marker}    {identifier}({version})"
//   -m[A][D] -v       the same, then TAB UUID TAB timestamp TAB path
//   -m[A][D] -vvv     the same first line, then TAB and right-aligned
//                     "Key = value" lines; a blank line between extensions
//   -i {identifier}, -p {extension point}   filter the list
//   -e use|ignore -i {identifier}           elects; "+" and "-" markers
// Each extension in pluginkit.json: identifier, version, path, sdk, parent,
// displayName, uuid, election ("none", "use", "ignore").
#include <cstdio>
#include <string>

#include "tests/support/fake_tool_state.h"

namespace {

namespace fake = holdenmere::testing::fake_tool;

constexpr int kUsage = 64;

std::string marker(const std::string& election) {
    if (election == "use") return "+";
    if (election == "ignore") return "-";
    return " ";
}

std::string field(const std::string& key, const std::string& value) {
    char padded[32];
    std::snprintf(padded, sizeof padded, "%16s", key.c_str());
    return "\t" + std::string(padded) + " = " + value + "\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (auto canned = fake::begin("pluginkit", argc, argv)) return *canned;
    bool match = false;
    int verbosity = 0;
    std::string identifier, point, election;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        const bool hasValue = index + 1 < argc;
        if (argument == "-i" && hasValue) {
            identifier = argv[++index];
        } else if (argument == "-p" && hasValue) {
            point = argv[++index];
        } else if (argument == "-e" && hasValue) {
            election = argv[++index];
        } else if (argument.starts_with("-")) {
            for (char flag : argument.substr(1)) {
                if (flag == 'm') match = true;
                if (flag == 'v') ++verbosity;
            }
        }
    }
    auto extensions = fake::readJson("pluginkit.json", nlohmann::json::array());
    if (!election.empty()) {
        if ((election != "use" && election != "ignore" && election != "default") || identifier.empty()) {
            fake::err("pluginkit: bad election\n");
            return kUsage;
        }
        for (auto& extension : extensions) {
            if (extension.at("identifier") == identifier) extension["election"] = election == "default" ? "none" : election;
        }
        fake::writeJson("pluginkit.json", extensions);
        return 0;
    }
    if (!match) {
        fake::err("usage: pluginkit -m|-e ...\n");
        return kUsage;
    }
    bool first = true;
    for (const auto& extension : extensions) {
        const std::string id = extension.at("identifier");
        if (!identifier.empty() && id != identifier) continue;
        if (!point.empty() && extension.value("sdk", "") != point) continue;
        std::string text = marker(extension.value("election", "none")) + "    " + id + "(" +
                           extension.value("version", "1.0") + ")";
        const std::string path = extension.value("path", "");
        const std::string uuid = extension.value("uuid", "AB3031DB-D94B-44D0-AD58-EA935ACEA96C");
        const std::string timestamp = "2024-08-10 21:36:21 +0000";
        if (verbosity == 1) text += "\t" + uuid + "\t" + timestamp + "\t" + path;
        text += "\n";
        if (verbosity >= 2) {
            text += field("Path", path) + field("UUID", uuid) + field("Timestamp", timestamp) +
                    field("SDK", extension.value("sdk", "")) + field("Parent Bundle", extension.value("parent", "")) +
                    field("Display Name", extension.value("displayName", ""));
            if (!first) text = "\n" + text;
        }
        first = false;
        fake::out(text);
    }
    return 0;
}
