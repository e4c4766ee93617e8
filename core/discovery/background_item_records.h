#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace holdenmere {

// One record of macOS's background-items record as `sfltool dumpbtm` prints
// it: right-aligned "Key: value" lines under a "#n:" header. Every field is
// kept as printed (unknown ones too); the known ones are also read into the
// members below. Nothing is resolved against the file system.
struct BackgroundItemRecord {
    // What the record stands for, from its type's code (the text when no
    // code is printed): "app (0x2)", "login item (0x4)", "agent (0x8)",
    // "daemon (0x10)", "developer (0x20)"; the 0x10000 bit marks "legacy".
    enum class Kind { app, loginItem, agent, daemon, developer, other };

    std::optional<std::string> uid;  // of the "Records for UID n" section it is in
    std::vector<std::pair<std::string, std::string>> fields;  // every "Key: value", in order
    std::vector<std::string> embeddedIdentifiers;             // "Embedded Item Identifiers:" list

    std::string name;
    std::string typeText;  // "legacy daemon"
    std::optional<std::uint64_t> typeCode;
    std::vector<std::string> disposition;  // "enabled", "allowed", "not notified"
    std::optional<std::uint64_t> dispositionCode;
    std::string identifier;  // "8.com.example.agent"
    std::optional<std::string> url;  // as printed: "file:///..." or relative to the parent; never "(null)"
    std::optional<std::string> executablePath;  // absolute, or relative to the parent app
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> parentIdentifier;

    Kind kind() const;
    bool isLegacy() const;
    // The word "enabled" in the disposition (not "disabled", which contains
    // it); the 0x1 bit of the code when no words are printed.
    bool isEnabled() const;
    // The value of a field as printed, also for fields not read above.
    std::optional<std::string> field(std::string_view key) const;
    // The identifier without the number of its type in front:
    // "8.com.example.agent" -> "com.example.agent".
    std::string unprefixedIdentifier() const;

    friend bool operator==(const BackgroundItemRecord&, const BackgroundItemRecord&) = default;
};

// What one run of `sfltool dumpbtm` printed, as records.
struct BackgroundItemDump {
    std::vector<std::string> sections;  // the UIDs of the "Records for UID" headers, in order
    std::vector<BackgroundItemRecord> records;

    // The output looked like the tool's: a section header or a record with a
    // type or an identifier. Anything else is output Holdenmere cannot read.
    bool recognised() const { return !sections.empty() || !records.empty(); }

    // Reads any text; lines that are not understood are passed over, and a
    // group of fields with neither a type nor an identifier is no record.
    static BackgroundItemDump parse(std::string_view output);

    // The path a "file://" URL names, percent-escapes decoded and a trailing
    // slash dropped; nothing for any other URL, or one that does not decode.
    static std::optional<std::string> filePath(std::string_view url);
};

}  // namespace holdenmere
