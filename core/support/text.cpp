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

}  // namespace holdenmere::text
