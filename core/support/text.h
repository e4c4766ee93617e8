#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace holdenmere::text {

// The shortest decimal form that reads back as the same double: 90 -> "90",
// 12.5 -> "12.5", 0.1 -> "0.1".
std::string number(double value);

// Items joined with a separator.
std::string joined(const std::vector<std::string>& items, std::string_view separator);

}  // namespace holdenmere::text
