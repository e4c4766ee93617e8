#include "core/support/json.h"


#include <algorithm>
#include <cmath>
#include <limits>

namespace holdenmere::json {
namespace {

// nlohmann prefixes its messages with "[json.exception.parse_error.101] ".
std::string withoutExceptionTag(const std::string& message) {
    if (!message.empty() && message.front() == '[') {
        auto end = message.find("] ");
        if (end != std::string::npos) return message.substr(end + 2);
    }
    return message;
}

std::string quotedPath(const std::string& path) {
    return path.empty() ? std::string("the top level") : "\"" + path + "\"";
}

}  // namespace

Value parse(std::string_view text) {
    try {
        return Value::parse(text.begin(), text.end());
    } catch (const nlohmann::json::exception& error) {
        throw DecodeError("not valid JSON: " + withoutExceptionTag(error.what()));
    }
}

std::string encodePretty(const Value& value) {
    try {
        return value.dump(2) + "\n";
    } catch (const nlohmann::json::exception& error) {
        throw DecodeError(withoutExceptionTag(error.what()));
    }
}

std::string encodePrettyElement(const Value& value) {
    try {
        return value.dump(2);
    } catch (const nlohmann::json::exception& error) {
        throw DecodeError(withoutExceptionTag(error.what()));
    }
}

std::string encodePrettyArray(const std::vector<std::string>& elements) {
    if (elements.empty()) return "[]\n";
    std::size_t size = 4;
    for (const auto& element : elements) size += element.size() + 4 + 2 * static_cast<std::size_t>(std::count(element.begin(), element.end(), '\n'));
    std::string text;
    text.reserve(size);
    text += "[\n";
    bool first = true;
    for (const auto& element : elements) {
        if (!first) text += ",\n";
        first = false;
        // One level deeper: every line of the element indented by one step.
        // Strings never hold a raw line break (JSON escapes it).
        text += "  ";
        for (char c : element) {
            text += c;
            if (c == '\n') text += "  ";
        }
    }
    text += "\n]\n";
    return text;
}

std::string describeType(const Value& value) {
    switch (value.type()) {
        case Value::value_t::null: return "null";
        case Value::value_t::object: return "an object";
        case Value::value_t::array: return "an array";
        case Value::value_t::string: return "a string";
        case Value::value_t::boolean: return "a boolean";
        case Value::value_t::number_integer:
        case Value::value_t::number_unsigned:
        case Value::value_t::number_float: return "a number";
        case Value::value_t::binary: return "binary data";
        case Value::value_t::discarded: break;
    }
    return "nothing";
}

std::string ObjectReader::mismatch(const std::string& path, std::string_view expected, const Value& found) {
    std::string message = quotedPath(path) + ": expected ";
    message += expected;
    message += ", found " + describeType(found);
    return message;
}

std::string decodeString(const Value& value, const std::string& path) {
    if (!value.is_string()) throw DecodeError(ObjectReader::mismatch(path, "a string", value));
    return value.get<std::string>();
}

bool decodeBool(const Value& value, const std::string& path) {
    if (!value.is_boolean()) throw DecodeError(ObjectReader::mismatch(path, "a boolean", value));
    return value.get<bool>();
}

double decodeNumber(const Value& value, const std::string& path) {
    if (!value.is_number()) throw DecodeError(ObjectReader::mismatch(path, "a number", value));
    return value.get<double>();
}

std::int64_t decodeInteger(const Value& value, const std::string& path) {
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    if (value.is_number_integer() && !value.is_number_unsigned()) return value.get<std::int64_t>();
    if (value.is_number_unsigned()) {
        auto raw = value.get<std::uint64_t>();
        return raw > static_cast<std::uint64_t>(kMax) ? kMax : static_cast<std::int64_t>(raw);
    }
    if (value.is_number_float()) {
        double raw = value.get<double>();
        if (std::isfinite(raw) && std::floor(raw) == raw) {
            if (raw >= 9.2e18) return kMax;
            if (raw <= -9.2e18) return kMin;
            return static_cast<std::int64_t>(raw);
        }
        if (std::isinf(raw)) return raw > 0 ? kMax : kMin;
        throw DecodeError(quotedPath(path) + ": expected a whole number, found " + value.dump());
    }
    throw DecodeError(ObjectReader::mismatch(path, "a whole number", value));
}

Date decodeDate(const Value& value, const std::string& path) {
    if (!value.is_number()) throw DecodeError(ObjectReader::mismatch(path, "a date (seconds since 2001)", value));
    return Date{value.get<double>()};
}

ObjectReader::ObjectReader(const Value& value, std::string path) : object_(value), path_(std::move(path)) {
    if (!object_.is_object()) throw DecodeError(mismatch(path_, "an object", object_));
}

const Value* ObjectReader::find(std::string_view key) const {
    auto found = object_.find(key);
    if (found == object_.end() || found->is_null()) return nullptr;
    return &*found;
}

const Value& ObjectReader::require(std::string_view key) const {
    const Value* value = find(key);
    if (value == nullptr) throw DecodeError("\"" + pathOf(key) + "\": required key is missing");
    return *value;
}

std::string ObjectReader::pathOf(std::string_view key) const {
    return path_.empty() ? std::string(key) : path_ + "." + std::string(key);
}

std::optional<std::string> ObjectReader::optionalString(std::string_view key) const {
    const Value* value = find(key);
    if (value == nullptr) return std::nullopt;
    return decodeString(*value, pathOf(key));
}

bool ObjectReader::boolean(std::string_view key, bool fallback) const {
    const Value* value = find(key);
    return value == nullptr ? fallback : decodeBool(*value, pathOf(key));
}

double ObjectReader::number(std::string_view key, double fallback) const {
    const Value* value = find(key);
    return value == nullptr ? fallback : decodeNumber(*value, pathOf(key));
}

std::vector<std::string> decodeStringArray(const Value& value, const std::string& path) {
    return ObjectReader::decodeArray(value, path, decodeString);
}

}  // namespace holdenmere::json
