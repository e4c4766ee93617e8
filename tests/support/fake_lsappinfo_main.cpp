// A stand-in for /usr/bin/lsappinfo in tests: "lsappinfo list" prints the
// apps of lsappinfo.json (tests/support/fake_tool_state.h) in the record
// layout of the real tool (tests/fixtures/lsappinfo): a header
// `N) "Name" ASN:0x0-0x…:`, indented lines, a blank line between records.
// Each app: name, asn, bundleID, bundlePath, executablePath, pid, and
// optionally parentName and parentAsn.
#include <cstdio>
#include <string>

#include "tests/support/fake_tool_state.h"

namespace fake = holdenmere::testing::fake_tool;

int main(int argc, char** argv) {
    if (auto canned = fake::begin("lsappinfo", argc, argv)) return *canned;
    if (argc < 2 || std::string(argv[1]) != "list") {
        fake::err("lsappinfo: this stand-in answers \"list\" only\n");
        return 1;
    }
    const auto apps = fake::readJson("lsappinfo.json", nlohmann::json::array());
    int number = 0;
    for (const auto& app : apps) {
        char head[16];
        std::snprintf(head, sizeof head, "%2d) ", ++number);
        std::string text = (number > 1 ? "\n" : "") + std::string(head) + "\"" + app.value("name", "") +
                           "\" ASN:" + app.value("asn", "") + ": \n";
        text += "    bundleID=\"" + app.value("bundleID", "") + "\"\n";
        text += "    bundle path=\"" + app.value("bundlePath", "") + "\"\n";
        text += "    executable path=\"" + app.value("executablePath", "") + "\"\n";
        text += "    pid = " + std::to_string(app.value("pid", 0)) +
                " type=\"Foreground\" flavor=3 Version=\"1.0\" fileType=\"APPL\" creator=\"????\" Arch=ARM64 \n";
        if (app.contains("parentAsn")) {
            text += "    parentASN=\"" + app.value("parentName", "") + "\" ASN:" + app.value("parentAsn", "") + ": \n";
        }
        text += "    launch time =  2023/12/28 10:24:10 ( 20 minutes, 36.2109 seconds ago )\n"
                "    checkin time = 2023/12/28 10:24:10 ( 20 minutes, 36.016 seconds ago )\n"
                "    launch to checkin time: 0.194869 seconds\n";
        fake::out(text);
    }
    return 0;
}
