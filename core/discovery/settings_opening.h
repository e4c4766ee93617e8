#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace holdenmere {

// Opens a pane of System Settings by its URL (the Login Items pane for a
// background item only System Settings can switch off): the seam, so that
// the logic can run against a fake. The failure's text, or nothing when the
// pane was asked to open.
class SettingsOpening {
public:
    virtual ~SettingsOpening() = default;
    [[nodiscard]] virtual std::optional<std::string> open(std::string_view url) = 0;
};

// Opens nothing.
class InertSettingsOpening final : public SettingsOpening {
public:
    std::optional<std::string> open(std::string_view) override { return std::string("System Settings was not opened"); }
};

// On macOS "/usr/bin/open" with the URL, with a time limit; on any other
// system there is no System Settings, which it says.
class SystemSettingsOpening final : public SettingsOpening {
public:
    std::optional<std::string> open(std::string_view url) override;
};

}  // namespace holdenmere
