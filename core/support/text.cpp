#include "core/support/text.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace holdenmere::text {

std::string number(double value) {
    if (value == 0) return "0";  // also for -0
    char buffer[64];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (error != std::errc()) return std::to_string(value);
    return std::string(buffer, end);
}

std::string joined(const std::vector<std::string>& items, std::string_view separator) {
    std::string result;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index > 0) result += separator;
        result += items[index];
    }
    return result;
}

namespace {

// The length of the well-formed sequence that starts at `index`, or 0.
std::size_t sequenceLength(std::string_view bytes, std::size_t index) {
    auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    const unsigned char lead = byte(index);
    if (lead < 0x80) return 1;
    std::size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;   // overlong
        if (lead == 0xED) high = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;   // overlong
        if (lead == 0xF4) high = 0x8F;  // past U+10FFFF
    } else {
        return 0;
    }
    if (index + length > bytes.size()) return 0;
    if (byte(index + 1) < low || byte(index + 1) > high) return 0;
    for (std::size_t next = 2; next < length; ++next) {
        if ((byte(index + next) & 0xC0) != 0x80) return 0;
    }
    return length;
}

}  // namespace

std::string validUtf8(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    std::size_t index = 0;
    while (index < bytes.size()) {
        std::size_t length = sequenceLength(bytes, index);
        if (length == 0) {
            result += "\xEF\xBF\xBD";
            ++index;
        } else {
            result.append(bytes.substr(index, length));
            index += length;
        }
    }
    return result;
}

bool isValidUtf8(std::string_view bytes) {
    std::size_t index = 0;
    while (index < bytes.size()) {
        const std::size_t length = sequenceLength(bytes, index);
        if (length == 0) return false;
        index += length;
    }
    return true;
}

}  // namespace holdenmere::text
