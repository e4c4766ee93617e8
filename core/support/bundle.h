#pragma once

#include <filesystem>
#include <optional>

#include "core/support/plist.h"

namespace holdenmere {

// An application bundle: Name.app/Contents/{Info.plist, MacOS/executable}.
// The executable is laid out this way on every platform, so that the same
// code finds its information dictionary here and on macOS.
struct Bundle {
    std::filesystem::path path;

    // The bundle an executable lives in: the folder two levels above a
    // "Contents/MacOS" parent. Nothing for an executable outside a bundle.
    static std::optional<Bundle> containing(const std::filesystem::path& executable);
    // The bundle of the running executable, if it lives in one.
    static std::optional<Bundle> main();

    std::filesystem::path infoPlistPath() const { return path / "Contents" / "Info.plist"; }
    // The information dictionary; nothing when it is missing or unreadable,
    // including a pipe or an oversized file in its place (files::read).
    std::optional<plist::Value> infoDictionary() const;
};

}  // namespace holdenmere
