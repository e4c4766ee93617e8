#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace holdenmere {

// Reads the run log back to tell which apps macOS itself still started,
// before the gate, at the last login whose pass is in the log.
struct LastLoginConflicts {
    struct Reading {
        std::string stamp;    // the pass's time stamp as written, e.g. 2026-03-01T08:15:02Z
        std::string version;  // the version that wrote the pass
        std::vector<std::string> conflicts;  // app names, in log order

        friend bool operator==(const Reading&, const Reading&) = default;
    };

    // "~/Library/Logs/Holdenmere.log".
    static std::filesystem::path defaultURL();
    // The override path as it stands, or the default when absent or empty.
    static std::filesystem::path resolving(const std::optional<std::string>& override);

    // The last pass in the file with the conflicts logged after it; nothing
    // for a missing or unreadable file, one that is not UTF-8 text
    // throughout, or one without a pass line. The file is read line by line,
    // never held in memory whole.
    static std::optional<Reading> read(const std::filesystem::path& url);
    static std::optional<Reading> read(std::string_view text);

    // Incremental form of the same walk, for callers that feed lines. A line
    // that is not valid UTF-8 makes the whole log unreadable as text.
    class Scanner {
    public:
        void feed(std::string_view line);
        std::optional<Reading> reading() const { return isText_ ? current_ : std::nullopt; }

    private:
        std::optional<Reading> current_;
        bool isText_ = true;
    };
};

}  // namespace holdenmere
