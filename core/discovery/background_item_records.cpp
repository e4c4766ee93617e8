#include "core/discovery/background_item_records.h"

#include <algorithm>
#include <charconv>
#include <tuple>

#include "core/support/text.h"

namespace holdenmere {
namespace {

constexpr std::uint64_t kLegacyBit = 0x10000;
constexpr std::string_view kNull = "(null)";
constexpr std::string_view kEmbeddedKey = "Embedded Item Identifiers";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

std::optional<std::uint64_t> hexNumber(std::string_view text) {
    if (!text.starts_with("0x") || text.size() == 2) return std::nullopt;
    std::uint64_t value = 0;
    const char* end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data() + 2, end, value, 16);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

// "legacy daemon (0x10010)" -> "legacy daemon", 0x10010; the code is
// optional.
std::pair<std::string, std::optional<std::uint64_t>> textAndCode(std::string_view value) {
    const auto open = value.rfind('(');
    if (open != std::string_view::npos && value.ends_with(')')) {
        if (auto code = hexNumber(value.substr(open + 1, value.size() - open - 2))) {
            return {std::string(trimmed(value.substr(0, open))), code};
        }
    }
    return {std::string(value), std::nullopt};
}

// "[disabled, allowed, not notified] (0x2)" -> its words.
std::vector<std::string> bracketWords(std::string_view value) {
    std::vector<std::string> words;
    const auto open = value.find('[');
    const auto close = value.find(']', open == std::string_view::npos ? 0 : open);
    if (open == std::string_view::npos || close == std::string_view::npos) return words;
    std::string_view inside = value.substr(open + 1, close - open - 1);
    while (!inside.empty()) {
        const auto comma = inside.find(',');
        auto word = trimmed(inside.substr(0, comma));
        if (!word.empty()) words.emplace_back(word);
        if (comma == std::string_view::npos) break;
        inside.remove_prefix(comma + 1);
    }
    return words;
}

std::optional<std::string> unlessNull(std::string_view value) {
    if (value.empty() || value == kNull) return std::nullopt;
    return std::string(value);
}

// "#12:" alone starts a record; "#1: value" is an element of a list field.
// Gives the value (possibly empty), or nothing when the line is neither.
std::optional<std::string_view> numberedLine(std::string_view line) {
    if (!line.starts_with('#')) return std::nullopt;
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 1) return std::nullopt;
    const auto digits = line.substr(1, colon - 1);
    if (!std::all_of(digits.begin(), digits.end(), text::isAsciiDigit)) return std::nullopt;
    return trimmed(line.substr(colon + 1));
}

// "Key: value" or "Key:"; nothing for any other line.
std::optional<std::pair<std::string_view, std::string_view>> keyAndValue(std::string_view line) {
    const auto separator = line.find(": ");
    if (separator != std::string_view::npos) {
        auto key = trimmed(line.substr(0, separator));
        if (key.empty()) return std::nullopt;
        return std::pair{key, trimmed(line.substr(separator + 2))};
    }
    if (line.size() > 1 && line.back() == ':') return std::pair{trimmed(line.substr(0, line.size() - 1)), std::string_view{}};
    return std::nullopt;
}

void assign(BackgroundItemRecord& record, std::string_view key, std::string_view value) {
    record.fields.emplace_back(key, value);
    if (key == "Name") {
        record.name = value;
    } else if (key == "Type") {
        std::tie(record.typeText, record.typeCode) = textAndCode(value);
    } else if (key == "Disposition") {
        record.disposition = bracketWords(value);
        record.dispositionCode = textAndCode(value).second;
    } else if (key == "Identifier") {
        record.identifier = value;
    } else if (key == "URL") {
        record.url = unlessNull(value);
    } else if (key == "Executable Path") {
        record.executablePath = unlessNull(value);
    } else if (key == "Bundle Identifier") {
        record.bundleIdentifier = unlessNull(value);
    } else if (key == "Parent Identifier") {
        record.parentIdentifier = unlessNull(value);
    }
}

// Reads the lines one by one; `open` is the record being read.
class Reader {
public:
    BackgroundItemDump dump;

    void line(std::string_view raw) {
        const std::string_view line = trimmed(raw);
        if (line.empty() || line.starts_with('=')) return close();
        if (line.starts_with("Records for UID ")) {
            close();
            auto rest = line.substr(16);
            uid_ = std::string(trimmed(rest.substr(0, rest.find(" :"))));
            dump.sections.push_back(*uid_);
            inPreamble_ = true;  // the section's own fields come before "Items:"
            return;
        }
        if (line == "Items:") {
            close();
            inPreamble_ = false;
            return;
        }
        if (auto numbered = numberedLine(line)) {
            if (numbered->empty()) return start();
            if (open_ && listKey_ == kEmbeddedKey) {
                open_->embeddedIdentifiers.emplace_back(*numbered);
            } else if (open_ && !listKey_.empty()) {
                open_->fields.emplace_back(listKey_, *numbered);
            }
            return;
        }
        auto field = keyAndValue(line);
        if (!field || inPreamble_) return;
        if (!open_) start();
        assign(*open_, field->first, field->second);
        listKey_ = field->second.empty() ? std::string(field->first) : std::string();
    }

    void close() {
        if (open_ && (!open_->identifier.empty() || !open_->typeText.empty())) dump.records.push_back(std::move(*open_));
        open_.reset();
        listKey_.clear();
    }

private:
    void start() {
        close();
        inPreamble_ = false;
        open_.emplace();
        open_->uid = uid_;
    }

    std::optional<std::string> uid_;
    std::optional<BackgroundItemRecord> open_;
    std::string listKey_;
    bool inPreamble_ = false;
};

}  // namespace

BackgroundItemRecord::Kind BackgroundItemRecord::kind() const {
    if (typeCode) {
        switch (*typeCode & ~kLegacyBit) {
            case 0x2: return Kind::app;
            case 0x4: return Kind::loginItem;
            case 0x8: return Kind::agent;
            case 0x10: return Kind::daemon;
            case 0x20: return Kind::developer;
            default: return Kind::other;
        }
    }
    std::string_view text = typeText;
    if (text.starts_with("legacy ")) text.remove_prefix(7);
    if (text == "app") return Kind::app;
    if (text == "login item") return Kind::loginItem;
    if (text == "agent") return Kind::agent;
    if (text == "daemon") return Kind::daemon;
    if (text == "developer") return Kind::developer;
    return Kind::other;
}

bool BackgroundItemRecord::isLegacy() const {
    return typeCode ? (*typeCode & kLegacyBit) != 0 : typeText.starts_with("legacy ");
}

bool BackgroundItemRecord::isEnabled() const {
    if (!disposition.empty()) return std::find(disposition.begin(), disposition.end(), "enabled") != disposition.end();
    return dispositionCode && (*dispositionCode & 0x1) != 0;
}

std::optional<std::string> BackgroundItemRecord::field(std::string_view key) const {
    for (const auto& [fieldKey, value] : fields) {
        if (fieldKey == key) return value;
    }
    return std::nullopt;
}

std::string BackgroundItemRecord::unprefixedIdentifier() const {
    const auto dot = identifier.find('.');
    if (dot == std::string::npos || dot == 0) return identifier;
    const bool numeric = std::all_of(identifier.begin(), identifier.begin() + static_cast<std::ptrdiff_t>(dot),
                                     text::isAsciiDigit);
    return numeric ? identifier.substr(dot + 1) : identifier;
}

BackgroundItemDump BackgroundItemDump::parse(std::string_view output) {
    Reader reader;
    while (!output.empty()) {
        const auto end = output.find('\n');
        reader.line(output.substr(0, end));
        if (end == std::string_view::npos) break;
        output.remove_prefix(end + 1);
    }
    reader.close();
    return std::move(reader.dump);
}

std::optional<std::string> BackgroundItemDump::filePath(std::string_view url) {
    if (!url.starts_with("file://")) return std::nullopt;
    url.remove_prefix(7);
    if (url.starts_with("localhost/")) url.remove_prefix(9);
    if (!url.starts_with('/')) return std::nullopt;
    std::string path;
    for (std::size_t index = 0; index < url.size(); ++index) {
        if (url[index] != '%') {
            path += url[index];
            continue;
        }
        std::uint64_t byte = 0;
        if (index + 2 >= url.size()) return std::nullopt;
        auto digits = url.substr(index + 1, 2);
        auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (error != std::errc() || stop != digits.data() + 2 || byte == 0) return std::nullopt;
        path += static_cast<char>(byte);
        index += 2;
    }
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace holdenmere
