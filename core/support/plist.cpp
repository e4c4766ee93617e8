#include "core/support/plist.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "core/support/files.h"

namespace holdenmere::plist {
namespace {

// Deeper nesting than this is no property list anyone writes; refusing it
// keeps a hostile file from exhausting the stack.
constexpr int kMaxDepth = 256;

struct NodeDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};

// libplist aborts the process (an assertion) when it hands out a dictionary
// key that holds a NUL character, which a binary property list can carry:
// its strings have explicit lengths. Such a list is refused before libplist
// reads it. A list whose layout does not hold together is left for libplist
// to reject; one that would take more than a few looks per byte to check
// (object offsets pointing into each other over and over) is refused.
class BinaryKeyCheck {
public:
    enum class Verdict { fine, keyWithNul, tooComplex };

    explicit BinaryKeyCheck(std::string_view bytes) : bytes_(bytes), budget_(64 * bytes.size() + 4096) {}

    Verdict run() {
        constexpr std::size_t kTrailer = 32;
        if (!bytes_.starts_with("bplist") || bytes_.size() < 8 + kTrailer) return Verdict::fine;
        end_ = bytes_.size() - kTrailer;
        offsetSize_ = byte(end_ + 6);
        referenceSize_ = byte(end_ + 7);
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) return Verdict::fine;
        const auto objects = number(end_ + 8, 8);
        const auto table = number(end_ + 24, 8);
        if (!objects || !table || *table >= end_ || *objects > (end_ - *table) / offsetSize_) return Verdict::fine;
        objects_ = static_cast<std::size_t>(*objects);
        table_ = static_cast<std::size_t>(*table);
        for (std::size_t index = 0; index < objects_; ++index) {
            if (!spend(1)) return Verdict::tooComplex;
            const auto at = objectAt(index);
            if (!at || byte(*at) >> 4 != 0xD) continue;  // not a dictionary
            std::size_t start = 0;
            const auto count = length(*at, start);
            if (!count || start > end_ || *count > (end_ - start) / (2 * referenceSize_)) continue;
            for (std::size_t key = 0; key < *count; ++key) {
                if (!spend(1)) return Verdict::tooComplex;
                const auto reference = number(start + key * referenceSize_, referenceSize_);
                if (!reference || *reference >= objects_) continue;
                switch (stringHasNul(static_cast<std::size_t>(*reference))) {
                    case Verdict::fine:
                        break;
                    case Verdict::keyWithNul:
                        return Verdict::keyWithNul;
                    case Verdict::tooComplex:
                        return Verdict::tooComplex;
                }
            }
        }
        return Verdict::fine;
    }

private:
    std::size_t byte(std::size_t at) const { return static_cast<unsigned char>(bytes_[at]); }

    bool spend(std::size_t steps) {
        if (steps > budget_) return false;
        budget_ -= steps;
        return true;
    }

    // A big-endian unsigned number of `size` bytes at `at`, or nothing past the end.
    std::optional<std::uint64_t> number(std::size_t at, std::size_t size) const {
        if (size > 8 || at > bytes_.size() || size > bytes_.size() - at) return std::nullopt;
        std::uint64_t value = 0;
        for (std::size_t index = 0; index < size; ++index) value = value << 8 | byte(at + index);
        return value;
    }

    // Where object `index` starts, when that is inside the object area.
    std::optional<std::size_t> objectAt(std::size_t index) const {
        const auto offset = number(table_ + index * offsetSize_, offsetSize_);
        if (!offset || *offset >= end_) return std::nullopt;
        return static_cast<std::size_t>(*offset);
    }

    // The count in the low nibble of the marker at `at`, or in the integer
    // that follows when the nibble is 0xF; `start` is set to the payload.
    std::optional<std::uint64_t> length(std::size_t at, std::size_t& start) const {
        const std::size_t nibble = byte(at) & 0xF;
        if (nibble != 0xF) {
            start = at + 1;
            return nibble;
        }
        if (at + 1 >= end_ || byte(at + 1) >> 4 != 0x1) return std::nullopt;
        if ((byte(at + 1) & 0xF) > 3) return std::nullopt;
        const std::size_t size = std::size_t{1} << (byte(at + 1) & 0xF);
        start = at + 2 + size;
        return number(at + 2, size);
    }

    Verdict stringHasNul(std::size_t index) {
        const auto at = objectAt(index);
        if (!at) return Verdict::fine;
        const std::size_t type = byte(*at) >> 4;
        if (type != 0x5 && type != 0x6) return Verdict::fine;  // ASCII, UTF-16
        const std::size_t unit = type == 0x5 ? 1 : 2;
        std::size_t start = 0;
        const auto count = length(*at, start);
        if (!count || start > end_ || *count > (end_ - start) / unit) return Verdict::fine;
        if (!spend(static_cast<std::size_t>(*count))) return Verdict::tooComplex;
        for (std::size_t character = 0; character < *count; ++character) {
            const std::size_t first = start + character * unit;
            if (byte(first) == 0 && (unit == 1 || byte(first + 1) == 0)) return Verdict::keyWithNul;
        }
        return Verdict::fine;
    }

    std::string_view bytes_;
    std::size_t budget_;
    std::size_t end_ = 0;  // where the trailer begins
    std::size_t objects_ = 0;
    std::size_t table_ = 0;
    std::size_t offsetSize_ = 1;
    std::size_t referenceSize_ = 1;
};

Value convert(plist_t node, int depth);

Array convertArray(plist_t node, int depth) {
    Array items;
    uint32_t count = plist_array_get_size(node);
    items.reserve(count);
    for (uint32_t index = 0; index < count; ++index) {
        items.push_back(convert(plist_array_get_item(node, index), depth + 1));
    }
    return items;
}

// The entries in the order the property list has them.
Dictionary convertDictionary(plist_t node, int depth) {
    Dictionary entries;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (value == nullptr) {
            std::free(key);
            break;
        }
        std::string name = key == nullptr ? std::string() : std::string(key);
        std::free(key);
        // Braces: clang before 16 has no parenthesised aggregate initialisation.
        entries.push_back(DictionaryEntry{std::move(name), convert(value, depth + 1)});
    }
    std::free(iterator);
    return entries;
}

Value convert(plist_t node, int depth) {
    if (depth > kMaxDepth) throw ParseError("property list nested too deeply");
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return Value{value != 0};
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            // Negative integers come back in two's complement.
            return Value{static_cast<std::int64_t>(value)};
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return Value{value};
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            return Value{text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(length))};
        }
        case PLIST_DATE: {
            int32_t seconds = 0;
            int32_t microseconds = 0;
            plist_get_date_val(node, &seconds, &microseconds);
            return Value{Date{static_cast<double>(seconds) + static_cast<double>(microseconds) / 1e6}};
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            return Value{Data{bytes == nullptr ? std::string() : std::string(bytes, static_cast<std::size_t>(length))}};
        }
        case PLIST_UID: {
            uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return Value{static_cast<std::int64_t>(value)};
        }
        case PLIST_ARRAY: return Value{convertArray(node, depth)};
        case PLIST_DICT: return Value{convertDictionary(node, depth)};
        case PLIST_NONE:
            break;
    }
    throw ParseError("property list holds a value of unknown type");
}

plist_t node(const Value& value, int depth) {
    if (depth > kMaxDepth) throw ParseError("property list nested too deeply");
    struct Maker {
        int depth;
        plist_t operator()(bool flag) const { return plist_new_bool(flag ? 1 : 0); }
        // Negative integers go in two's complement, as they come out.
        plist_t operator()(std::int64_t number) const { return plist_new_uint(static_cast<uint64_t>(number)); }
        plist_t operator()(double number) const { return plist_new_real(number); }
        plist_t operator()(const std::string& text) const { return plist_new_string(text.c_str()); }
        plist_t operator()(const Date& date) const {
            double whole = std::floor(date.secondsSinceReferenceDate);
            return plist_new_date(static_cast<int32_t>(whole),
                                  static_cast<int32_t>(std::lround((date.secondsSinceReferenceDate - whole) * 1e6)));
        }
        plist_t operator()(const Data& data) const { return plist_new_data(data.bytes.data(), data.bytes.size()); }
        plist_t operator()(const Array& items) const {
            std::unique_ptr<void, NodeDeleter> array(plist_new_array());
            for (const auto& item : items) plist_array_append_item(array.get(), node(item, depth + 1));
            return array.release();
        }
        plist_t operator()(const Dictionary& entries) const {
            std::unique_ptr<void, NodeDeleter> dictionary(plist_new_dict());
            for (const auto& [key, item] : entries) plist_dict_set_item(dictionary.get(), key.c_str(), node(item, depth + 1));
            return dictionary.release();
        }
    };
    return std::visit(Maker{depth}, value.storage);
}

}  // namespace

std::optional<bool> Value::boolean() const {
    if (auto value = std::get_if<bool>(&storage)) return *value;
    return std::nullopt;
}

std::optional<std::int64_t> Value::integer() const {
    if (auto value = std::get_if<std::int64_t>(&storage)) return *value;
    return std::nullopt;
}

std::optional<double> Value::real() const {
    if (auto value = std::get_if<double>(&storage)) return *value;
    if (auto value = std::get_if<std::int64_t>(&storage)) return static_cast<double>(*value);
    return std::nullopt;
}

const Value* Value::find(std::string_view key) const {
    const Dictionary* entries = dictionary();
    if (entries == nullptr) return nullptr;
    for (const auto& [name, value] : *entries) {
        if (name == key) return &value;
    }
    return nullptr;
}

std::optional<std::string> Value::stringAt(std::string_view key) const {
    const Value* value = find(key);
    if (value == nullptr || value->string() == nullptr) return std::nullopt;
    return *value->string();
}

Value parse(std::string_view bytes) {
    if (bytes.empty()) throw ParseError("empty property list");
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) throw ParseError("property list too large");
    switch (BinaryKeyCheck(bytes).run()) {
        case BinaryKeyCheck::Verdict::fine:
            break;
        case BinaryKeyCheck::Verdict::keyWithNul:
            throw ParseError("property list has a key with a NUL character");
        case BinaryKeyCheck::Verdict::tooComplex:
            throw ParseError("property list too complex to read");
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    if (root == nullptr) throw ParseError("not a property list (neither XML nor binary)");
    std::unique_ptr<void, NodeDeleter> owner(root);
    return convert(root, 0);
}

Value readFile(const std::filesystem::path& path) {
    std::string bytes = files::read(path);
    try {
        return parse(bytes);
    } catch (const ParseError& error) {
        throw ParseError(path.string() + ": " + error.what());
    }
}

Result<Value> tryReadFile(const std::filesystem::path& path) {
    try {
        return readFile(path);
    } catch (const files::ReadError& error) {
        return Failure{error.what()};
    } catch (const ParseError& error) {
        return Failure{error.what()};
    }
}

std::string toXml(const Value& value) {
    std::unique_ptr<void, NodeDeleter> root(node(value, 0));
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(root.get()), &xml, &length);
    if (xml == nullptr) throw ParseError("property list could not be written as XML");
    std::string result(xml, length);
    plist_to_xml_free(xml);
    return result;
}

}  // namespace holdenmere::plist
