#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/config/launch_record.h"
#include "core/support/files.h"

namespace holdenmere {

// A failure of the history store; what() is the user text
// ("Could not read run history: ..." / "Could not write run history: ...").
class HistoryStoreError : public std::runtime_error {
public:
    enum class Kind { read, write };
    HistoryStoreError(Kind kind, std::string description);

    Kind kind() const { return kind_; }
    const std::string& description() const { return description_; }

private:
    Kind kind_;
    std::string description_;
};

// Owns history.json: the launch records of login passes, newest first.
struct HistoryStore {
    static constexpr std::size_t kDefaultLimit = 200;

    std::filesystem::path url;
    std::size_t limit = kDefaultLimit;

    // "~/Library/Application Support/Holdenmere/history.json".
    static std::filesystem::path defaultURL();
    static HistoryStore resolving(const std::optional<std::string>& override);

    // All records, newest first; none when the file does not exist. Throws
    // HistoryStoreError read.
    std::vector<LaunchRecord> loadOrThrow() const;
    // The same, with an empty list on any error.
    std::vector<LaunchRecord> load() const;

    // The records as the file holds them at one moment, and which version of
    // the file that was, so that an append can start from a reading made
    // earlier (a pass reads while it waits for the network) as long as the
    // file has not changed since.
    struct Reading {
        std::vector<LaunchRecord> records;
        std::optional<files::Stamp> stamp;  // none when the file could not be read or was damaged
        std::vector<std::string> printed;   // each record as the file prints it, or none
    };
    // Never throws: a damaged or unreadable history reads as no records.
    Reading read() const;

    // Puts one pass's records in front of the kept ones and keeps the newest
    // `limit`. A damaged history is replaced, never an obstacle to recording.
    // With `earlier`, the kept records are that reading's while the file's
    // stamp still matches it, and are read afresh otherwise.
    // Throws HistoryStoreError write.
    void appendOrThrow(const std::vector<LaunchRecord>& records, const Reading* earlier = nullptr) const;
    // The same for callers that have nowhere to report a failure.
    void append(const std::vector<LaunchRecord>& records) const;
};

}  // namespace holdenmere
