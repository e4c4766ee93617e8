#pragma once

namespace holdenmere {

// What the lines of the log and of the command-line modes share: the tag
// each line starts with, and the dash between what a line is about and
// what is said of it ("[Holdenmere] Mail: launched — ...").
inline constexpr const char* kTag = "[Holdenmere] ";
inline constexpr const char* kDash = " \xE2\x80\x94 ";

}  // namespace holdenmere
