#include "core/support/plist.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include "core/support/files.h"

namespace holdenmere::plist {
namespace {

// Deeper nesting than this is no property list anyone writes; refusing it
// keeps a hostile file from exhausting the stack.
constexpr int kMaxDepth = 256;

struct NodeDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};

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
        case PLIST_ARRAY: {
            Array items;
            uint32_t count = plist_array_get_size(node);
            items.reserve(count);
            for (uint32_t index = 0; index < count; ++index) {
                items.push_back(convert(plist_array_get_item(node, index), depth + 1));
            }
            return Value{std::move(items)};
        }
        case PLIST_DICT: {
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
            return Value{std::move(entries)};
        }
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
