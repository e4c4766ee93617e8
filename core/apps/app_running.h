#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/apps/launch_cancellation.h"

namespace holdenmere {

// How one attempt to open an app ended.
struct [[nodiscard]] LaunchAttempt {
    enum class Result {
        opened,       // the app runs (and, when asked, was seen to stay hidden)
        unconfirmed,  // the app was opened, but its hidden state was not confirmed
        failed,       // the system refused to open it
    };

    Result result = Result::opened;
    std::string reason;  // why, for unconfirmed and failed

    static LaunchAttempt opened() { return {Result::opened, {}}; }
    static LaunchAttempt unconfirmed(std::string reason) { return {Result::unconfirmed, std::move(reason)}; }
    static LaunchAttempt failed(std::string reason) { return {Result::failed, std::move(reason)}; }

    friend bool operator==(const LaunchAttempt&, const LaunchAttempt&) = default;
};

// How an app is to be opened.
struct OpenOptions {
    static constexpr double kDefaultTimeLimit = 15.0;

    bool hidden = false;       // ask for it to start hidden, and confirm that it stays so
    bool activates = true;     // bring it to the front
    bool newInstance = false;  // start another instance even when one runs
    std::vector<std::string> arguments;
    // How long the platform may take to answer the open (and to confirm the
    // app hidden) before the launch is given up. Nothing: no limit of the
    // implementation's own, for a caller that waits under its own deadline.
    std::optional<double> timeLimit = kDefaultTimeLimit;
    // When given and cancelled, a hidden confirmation still running ends at
    // once with "launch confirmation cancelled".
    std::shared_ptr<LaunchCancellation> cancellation;
};

// Whether apps run and opening them, behind a seam so that the launcher and
// the login pass can run against a fake.
class AppRunning {
public:
    using Completion = std::function<void(LaunchAttempt)>;

    virtual ~AppRunning() = default;
    // Process identifiers of the running apps with this bundle identifier.
    virtual std::vector<int> processIdentifiers(const std::string& bundleIdentifier) = 0;
    bool isRunning(const std::string& bundleIdentifier) { return !processIdentifiers(bundleIdentifier).empty(); }
    // The arguments a running process was started with (the executable
    // first), where the platform tells them; nothing where it does not or
    // the process is gone.
    virtual std::optional<std::vector<std::string>> arguments(int processIdentifier) = 0;
    // Whether an application bundle exists at the path.
    virtual bool exists(const std::string& path) = 0;
    // Starts opening the app at `path`. `completion` is called exactly once,
    // possibly on another thread, within the options' time limit when they
    // set one.
    virtual void begin(const std::string& path, const OpenOptions& options, Completion completion) = 0;
    // Starts preparing, in the background, what the questions of the
    // launches to come will need (a pass calls it as it starts waiting for
    // the network); nothing when there is nothing to prepare.
    virtual void warmUp() {}
    // Opens and waits for the result.
    LaunchAttempt launch(const std::string& path, const OpenOptions& options);
};

// Opens nothing: no app runs, no bundle exists, every launch fails.
class InertAppRunning final : public AppRunning {
public:
    std::vector<int> processIdentifiers(const std::string&) override { return {}; }
    std::optional<std::vector<std::string>> arguments(int) override { return std::nullopt; }
    bool exists(const std::string&) override { return false; }
    void begin(const std::string& path, const OpenOptions&, Completion completion) override {
        completion(LaunchAttempt::failed("no application bundle at " + path));
    }
};

// The platform's own: the workspace on macOS; elsewhere a bundle's
// executable started as a process of its own and the process table.
class SystemAppRunning final : public AppRunning {
public:
    SystemAppRunning();
    ~SystemAppRunning() override;
    SystemAppRunning(const SystemAppRunning&) = delete;
    SystemAppRunning& operator=(const SystemAppRunning&) = delete;

    std::vector<int> processIdentifiers(const std::string& bundleIdentifier) override;
    // Read from the process table away from macOS; the workspace does not
    // tell them.
    std::optional<std::vector<std::string>> arguments(int processIdentifier) override;
    bool exists(const std::string& path) override;
    void begin(const std::string& path, const OpenOptions& options, Completion completion) override;
    // Away from macOS: reads the process table, so that the launches find
    // it fresh when the network answers at once.
    void warmUp() override;

private:
    struct Implementation;
    Implementation* implementation_;
};

}  // namespace holdenmere
