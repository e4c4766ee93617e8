#pragma once

#include <QSignalSpy>
#include <QTest>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/desktop/held_helpers_model.h"
#include "app/desktop/startup_items_model.h"
#include "tests/desktop/desktop_test_support.h"
#include "tests/support/app_bundles.h"
#include "tests/support/fake_launchctl_running.h"

// Startup items laid out in a temporary home for the desktop's Qt tests:
// app bundles with their executables named, LaunchAgent plists in the
// home's Library/LaunchAgents, and a launchd that lets a test look at the
// configuration on disk just before each change.
namespace holdenmere::testing {

// Home/Applications/{name}.app with an Info.plist naming its identifier and
// executable ({name} unless given); its path.
inline std::string writeApp(const std::filesystem::path& home, const std::string& name, const std::string& identifier,
                            const std::string& executable = {}) {
    return makeAppBundle(home / "Applications", name, identifier,
                         stringEntry("CFBundleExecutable", executable.empty() ? name : executable))
        .string();
}

// The app's main executable.
inline std::string mainExecutable(const std::string& appPath, const std::string& name) {
    return appPath + "/Contents/MacOS/" + name;
}

// A LaunchAgent plist in home/Library/LaunchAgents that runs `program` at
// login, with extra dictionary entries; its path.
inline std::string writeAgent(const std::filesystem::path& home, const std::string& label, const std::string& program,
                              const std::string& extraEntries = "<key>RunAtLoad</key><true/>\n") {
    const auto path = home / "Library/LaunchAgents" / (label + ".plist");
    writeBytes(path, plistDocument(stringEntry("Label", label) + "<key>ProgramArguments</key><array><string>" +
                                   program + "</string></array>\n" + extraEntries));
    return path.string();
}

// launchd that calls `beforeChange` with the arguments of every command
// that changes something, before passing it on to the fake.
class WatchedLaunchctl final : public ForwardingLaunchctl {
public:
    using ForwardingLaunchctl::ForwardingLaunchctl;
    std::function<void(const std::vector<std::string>&)> beforeChange;

    std::int32_t run(const std::vector<std::string>& arguments) override {
        if (beforeChange && !arguments.empty() && arguments[0] != "print") beforeChange(arguments);
        return ForwardingLaunchctl::run(arguments);
    }
};

// The fake services with launchd watched.
class WatchedServices : public FakeDesktopServices {
public:
    explicit WatchedServices(std::filesystem::path home) : FakeDesktopServices(std::move(home)) {}
    LaunchctlRunning& launchctl() override { return watched; }
    WatchedLaunchctl watched{fakeLaunchctl};
};

// Waits (on the event loop, for the model's own signal) until a scan is done.
inline bool scanned(desktop::StartupItemsModel& model) {
    QSignalSpy spy(&model, &desktop::StartupItemsModel::scanningChanged);
    if (!model.isScanning()) model.rescan();
    while (model.isScanning()) {
        if (!spy.wait(10000)) return false;
    }
    return model.hasScanned();
}

inline bool scanned(desktop::HeldHelpersModel& model) {
    QSignalSpy spy(&model, &desktop::HeldHelpersModel::rowsChanged);
    model.rescan();
    return spy.wait(10000) && model.hasScanned();
}

// Waits for the end of the action just started; its text and success.
struct ActionEnd {
    QString text;
    bool ok = false;
    bool arrived = false;
};

inline ActionEnd waitForAction(QSignalSpy& finished) {
    if (finished.isEmpty() && !finished.wait(10000)) return {};
    const QList<QVariant> arguments = finished.takeFirst();
    return {arguments.at(0).toString(), arguments.at(1).toBool(), true};
}

}  // namespace holdenmere::testing
