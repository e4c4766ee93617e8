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

// The bytes as valid UTF-8: every byte that does not begin a well-formed
// sequence (stray continuation bytes, truncated or overlong sequences,
// surrogates, code points past U+10FFFF) becomes U+FFFD. Valid text is
// returned unchanged.
std::string validUtf8(std::string_view bytes);
// Whether the bytes are well-formed UTF-8 throughout, by the same rules.
bool isValidUtf8(std::string_view bytes);

}  // namespace holdenmere::text
