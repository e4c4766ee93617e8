#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/support/date.h"
#include "core/support/result.h"

// Property lists (XML or binary) read into plain values, so that the code
// that interprets an Info.plist or a LaunchAgent never touches the parser.
namespace holdenmere::plist {

struct Value;
using Array = std::vector<Value>;
// A key and its value. Defined after Value (it holds one): a std::pair of
// Value named inside Value's own definition would be instantiated while
// Value is still incomplete, which clang's standard library rejects.
struct DictionaryEntry;
// Keys in file order; dictionaries in property lists are small.
using Dictionary = std::vector<DictionaryEntry>;
struct Data {
    std::string bytes;
    friend bool operator==(const Data&, const Data&) = default;
};

struct Value {
    std::variant<bool, std::int64_t, double, std::string, Date, Data, Array, Dictionary> storage;

    const std::string* string() const { return std::get_if<std::string>(&storage); }
    const Array* array() const { return std::get_if<Array>(&storage); }
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&storage); }
    std::optional<bool> boolean() const;
    std::optional<std::int64_t> integer() const;
    std::optional<double> real() const;

    // The member of a dictionary, or nullptr (also when this is no dictionary).
    const Value* find(std::string_view key) const;
    // The string member of a dictionary, or nothing when absent or not a string.
    std::optional<std::string> stringAt(std::string_view key) const;

    friend bool operator==(const Value&, const Value&) = default;
};

struct DictionaryEntry {
    std::string first;
    Value second;

    friend bool operator==(const DictionaryEntry&, const DictionaryEntry&) = default;
};

class ParseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses XML or binary property list bytes; throws ParseError.
Value parse(std::string_view bytes);

// Reads (files::read) and parses a file; throws files::ReadError or ParseError.
Value readFile(const std::filesystem::path& path);
// The same, with what stood in the way as a failure: for the readers that
// carry on without the file and say what they could not read.
Result<Value> tryReadFile(const std::filesystem::path& path);

// The value as an XML property list with the standard prologue and DOCTYPE,
// dictionaries keeping their key order. Strings are written up to their first
// NUL character, which XML cannot hold.
std::string toXml(const Value& value);

}  // namespace holdenmere::plist
