#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace holdenmere {

// Prints macOS's background-items record: the one seam between the scanner
// and `sfltool`, so that the scanner can run against a fake. An absent
// output means the record could not be read (`failure` says why); it is never
// confused with an empty record.
class BackgroundItemsTool {
public:
    struct Reading {
        std::optional<std::string> output;
        std::string failure;
    };
    virtual ~BackgroundItemsTool() = default;
    virtual Reading dump() = 0;
};

// Reads nothing: the record is always unreadable.
class InertBackgroundItemsTool final : public BackgroundItemsTool {
public:
    Reading dump() override { return {std::nullopt, "background items are not read here"}; }
};

// Answers with what it was given, for the desktop's sample fixture and the
// tests; by default an empty record of the current user.
class CannedBackgroundItemsTool final : public BackgroundItemsTool {
public:
    CannedBackgroundItemsTool();
    Reading reading;
    Reading dump() override { return reading; }
};

// "/usr/bin/sfltool" "dumpbtm" as a child process. On a Mac the tool asks for
// an administrator's authorization first; a request nobody answers is a hang
// like any other, ended by the time limit.
class SystemBackgroundItemsTool final : public BackgroundItemsTool {
public:
    static constexpr const char* kExecutable = "/usr/bin/sfltool";
    static constexpr std::chrono::milliseconds kTimeLimit{60'000};

    explicit SystemBackgroundItemsTool(std::filesystem::path executable = kExecutable,
                                       std::chrono::milliseconds timeLimit = kTimeLimit,
                                       std::optional<std::vector<std::string>> environment = std::nullopt);
    Reading dump() override;

private:
    std::filesystem::path executable_;
    std::chrono::milliseconds timeLimit_;
    std::optional<std::vector<std::string>> environment_;
};

}  // namespace holdenmere
