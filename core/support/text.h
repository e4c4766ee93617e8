#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace holdenmere::text {

// ASCII character classes that do not depend on the C locale, for reading
// URLs, protocol lines and tool output.
constexpr bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isHexDigit(char c) { return isAsciiDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
constexpr char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

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
