// Poses as a tool for the child-process tests and drives the stores and the
// startup mutation lock from a second process.
//
//   pose [--out TEXT] [--err TEXT] [--exit N] [--hang] [--flood-err BYTES]
//        [--orphan] [--env NAME]
//   save-loop CONFIG_PATH          save two different configs alternately, forever
//   try-lock CONFIG_PATH           non-waiting acquire; prints "acquired" or the errno
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "core/config/config_store.h"
#include "core/takeover/startup_mutation_lock.h"

namespace {

int pose(const std::vector<std::string>& args) {
    int status = 0;
    bool hang = false;
    bool orphan = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& option = args[i];
        auto next = [&]() -> std::string { return i + 1 < args.size() ? args[++i] : std::string(); };
        if (option == "--out") {
            std::cout << next() << std::flush;
        } else if (option == "--err") {
            std::cerr << next() << std::flush;
        } else if (option == "--exit") {
            status = std::atoi(next().c_str());
        } else if (option == "--hang") {
            hang = true;
        } else if (option == "--orphan") {
            orphan = true;
        } else if (option == "--env") {
            const char* value = std::getenv(next().c_str());
            std::cout << (value ? value : "(unset)") << std::flush;
        } else if (option == "--flood-err") {
            std::string chunk(4096, 'e');
            long remaining = std::atol(next().c_str());
            while (remaining > 0) {
                std::cerr.write(chunk.data(), std::min<long>(remaining, 4096));
                remaining -= 4096;
            }
            std::cerr.flush();
        }
    }
    if (orphan && ::fork() == 0) {
        // A grandchild that keeps the output pipes open and lives on.
        for (;;) ::pause();
    }
    while (hang) ::pause();
    return status;
}

holdenmere::HoldenmereConfig sampleConfig(int variant) {
    holdenmere::HoldenmereConfig config;
    int count = variant == 0 ? 3 : 40;
    for (int index = 0; index < count; ++index) {
        holdenmere::ManagedApp app;
        app.bundleIdentifier = "com.example.app" + std::to_string(index);
        app.name = "App " + std::to_string(index) + std::string(static_cast<std::size_t>(variant * 50), 'x');
        app.path = "/Applications/App" + std::to_string(index) + ".app";
        config.apps.push_back(app);
    }
    return config;
}

int saveLoop(const std::string& path) {
    holdenmere::ConfigStore store{path};
    std::cout << "saving" << std::endl;
    for (int round = 0;; ++round) store.save(sampleConfig(round % 2));
}

int tryLock(const std::string& path) {
    try {
        auto lease = holdenmere::StartupMutationLock(path).acquire(false);
        std::cout << "acquired" << std::endl;
        return 0;
    } catch (const std::system_error& error) {
        std::cout << "errno " << error.code().value() << std::endl;
        return 1;
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Copied into an app bundle, the helper is the app: "LingeringApp" runs
    // until killed (at most a minute), "QuickApp" ends at once.
    const std::string program = argc > 0 ? argv[0] : "";
    if (program.ends_with("/LingeringApp")) {
        for (int second = 0; second < 60; ++second) ::sleep(1);
        return 0;
    }
    if (program.ends_with("/QuickApp")) return 0;
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) return 2;
    std::string command = args.front();
    args.erase(args.begin());
    if (command == "pose") return pose(args);
    if (command == "save-loop" && args.size() == 1) return saveLoop(args[0]);
    if (command == "try-lock" && args.size() == 1) return tryLock(args[0]);
    std::cerr << "test helper: unknown command " << command << "\n";
    return 2;
}
