#include "core/config/history_store.h"

#include <system_error>

#include "core/support/environment.h"
#include "core/support/files.h"

namespace holdenmere {

HistoryStoreError::HistoryStoreError(Kind kind, std::string description)
    : std::runtime_error((kind == Kind::read ? "Could not read run history: " : "Could not write run history: ") +
                         description),
      kind_(kind),
      description_(std::move(description)) {}

std::filesystem::path HistoryStore::defaultURL() {
    return homeDirectory() / "Library" / "Application Support" / "Holdenmere" / "history.json";
}

HistoryStore HistoryStore::resolving(const std::optional<std::string>& override) {
    if (override && !override->empty()) return HistoryStore{*override, kDefaultLimit};
    return HistoryStore{defaultURL(), kDefaultLimit};
}

namespace {

// The records of the file and the stamp of the version read.
std::vector<LaunchRecord> readOrThrow(const std::filesystem::path& url, files::Stamp& stamp) {
    std::string text;
    try {
        text = files::read(url, &stamp);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::no_such_file_or_directory) {
            stamp = files::Stamp{};
            return {};
        }
        throw HistoryStoreError(HistoryStoreError::Kind::read, error.what());
    }
    try {
        return json::ObjectReader::decodeArray(json::parse(text), "", decodeLaunchRecord);
    } catch (const json::DecodeError& error) {
        throw HistoryStoreError(HistoryStoreError::Kind::read, error.what());
    }
}

}  // namespace

std::vector<LaunchRecord> HistoryStore::loadOrThrow() const {
    files::Stamp stamp;
    return readOrThrow(url, stamp);
}

HistoryStore::Reading HistoryStore::read() const {
    Reading reading;
    files::Stamp stamp;
    try {
        reading.records = readOrThrow(url, stamp);
        reading.stamp = stamp;
    } catch (const HistoryStoreError&) {
        return reading;
    }
    // Printed now, so that an append prints only its own records.
    try {
        reading.printed.reserve(reading.records.size());
        for (const auto& record : reading.records) reading.printed.push_back(json::encodePrettyElement(encode(record)));
    } catch (const json::DecodeError&) {
        reading.printed.clear();
    }
    return reading;
}

std::vector<LaunchRecord> HistoryStore::load() const {
    try {
        return loadOrThrow();
    } catch (const HistoryStoreError&) {
        return {};
    }
}

void HistoryStore::appendOrThrow(const std::vector<LaunchRecord>& records, const Reading* earlier) const {
    // The earlier reading stands for the file only while the file is the
    // one that was read; when that cannot be told it is read again.
    const bool current = earlier != nullptr && earlier->stamp && files::stampOf(url) == earlier->stamp;
    std::vector<LaunchRecord> readNow;
    if (!current) {
        try {
            readNow = loadOrThrow();
        } catch (const HistoryStoreError&) {
            // A damaged history is replaced by this pass's records.
        }
    }
    const std::vector<LaunchRecord>& kept = current ? earlier->records : readNow;
    const bool keptPrinted = current && earlier->printed.size() == kept.size();
    try {
        std::vector<std::string> elements;
        for (std::size_t index = 0; index < records.size() && elements.size() < limit; ++index) {
            elements.push_back(json::encodePrettyElement(encode(records[index])));
        }
        for (std::size_t index = 0; index < kept.size() && elements.size() < limit; ++index) {
            elements.push_back(keptPrinted ? earlier->printed[index] : json::encodePrettyElement(encode(kept[index])));
        }
        files::writeAtomically(url, json::encodePrettyArray(elements));
    } catch (const std::system_error& error) {
        throw HistoryStoreError(HistoryStoreError::Kind::write, error.what());
    } catch (const json::DecodeError& error) {
        throw HistoryStoreError(HistoryStoreError::Kind::write, error.what());
    }
}

void HistoryStore::append(const std::vector<LaunchRecord>& records) const {
    try {
        appendOrThrow(records);
    } catch (const HistoryStoreError&) {
        // Callers without an error channel accept a lost record.
    }
}

}  // namespace holdenmere
