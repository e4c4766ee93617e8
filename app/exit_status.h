#pragma once

// The process's exit statuses, shared by every mode.
namespace holdenmere::exit_status {

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kConfigUnreadable = 2;
inline constexpr int kUsage = 64;            // unknown option (EX_USAGE)
inline constexpr int kUnavailable = 69;      // --deemsterui (EX_UNAVAILABLE)
inline constexpr int kLockUnavailable = 75;  // startup mutation lock (EX_TEMPFAIL)

}  // namespace holdenmere::exit_status
