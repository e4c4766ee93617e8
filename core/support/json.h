#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/support/date.h"

// Strict JSON reading and the one way files are written. nlohmann's own
// conversions are lenient (a boolean reads as a number, 2.7 as an integer), so
// decoding goes through ObjectReader, which checks every type and names the
// key that failed.
namespace holdenmere::json {

using Value = nlohmann::json;

class DecodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses JSON text; a syntax error (or invalid UTF-8) throws DecodeError.
Value parse(std::string_view text);

// Pretty-printed with two-space indentation, keys sorted at every level and a
// final newline. Throws DecodeError when a string is not valid UTF-8.
std::string encodePretty(const Value& value);

// An array printed as encodePretty prints it, from its elements printed
// apart (`encodePrettyElement`): a list kept in a file can be written again
// without printing the elements it already held once more.
std::string encodePrettyElement(const Value& value);
std::string encodePrettyArray(const std::vector<std::string>& elements);

// "an object", "a string", ... for messages.
std::string describeType(const Value& value);

// Decoders of single values, for array elements and keys alike. `path` names
// the value in messages ("apps[2].name").
std::string decodeString(const Value& value, const std::string& path);
bool decodeBool(const Value& value, const std::string& path);
double decodeNumber(const Value& value, const std::string& path);
// Any integral number; values beyond the 64-bit range saturate (callers clamp).
std::int64_t decodeInteger(const Value& value, const std::string& path);
Date decodeDate(const Value& value, const std::string& path);

// Reads the keys of one JSON object. Missing keys and JSON null count as absent.
class ObjectReader {
public:
    // Throws DecodeError when `value` is not an object.
    ObjectReader(const Value& value, std::string path);

    // The value at `key`, or nullptr when it is missing or null.
    const Value* find(std::string_view key) const;
    // The value at `key`; throws when it is missing or null.
    const Value& require(std::string_view key) const;
    std::string pathOf(std::string_view key) const;

    std::string string(std::string_view key) const { return decodeString(require(key), pathOf(key)); }
    bool boolean(std::string_view key) const { return decodeBool(require(key), pathOf(key)); }
    double number(std::string_view key) const { return decodeNumber(require(key), pathOf(key)); }
    std::int64_t integer(std::string_view key) const { return decodeInteger(require(key), pathOf(key)); }
    Date date(std::string_view key) const { return decodeDate(require(key), pathOf(key)); }

    std::optional<std::string> optionalString(std::string_view key) const;
    bool boolean(std::string_view key, bool fallback) const;
    double number(std::string_view key, double fallback) const;

    // Decodes an array with `element(value, path)` for each member.
    template <class Decode>
    auto array(std::string_view key, Decode element) const {
        return decodeArray(require(key), pathOf(key), element);
    }
    // Same, with an empty list for a missing key.
    template <class Decode>
    auto optionalArray(std::string_view key, Decode element) const {
        using T = decltype(element(std::declval<const Value&>(), std::string()));
        const Value* value = find(key);
        if (value == nullptr) return std::vector<T>();
        return decodeArray(*value, pathOf(key), element);
    }

    template <class Decode>
    static auto decodeArray(const Value& value, const std::string& path, Decode element) {
        using T = decltype(element(std::declval<const Value&>(), std::string()));
        if (!value.is_array()) throw DecodeError(mismatch(path, "an array", value));
        std::vector<T> result;
        result.reserve(value.size());
        for (std::size_t index = 0; index < value.size(); ++index) {
            result.push_back(element(value[index], path + "[" + std::to_string(index) + "]"));
        }
        return result;
    }

    static std::string mismatch(const std::string& path, std::string_view expected, const Value& found);

private:
    const Value& object_;
    std::string path_;
};

std::vector<std::string> decodeStringArray(const Value& value, const std::string& path);

}  // namespace holdenmere::json
