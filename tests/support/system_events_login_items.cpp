#include "tests/support/system_events_login_items.h"

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace holdenmere::testing {

std::vector<FakeLoginItem> SystemEventsLoginItems::load(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return {};
    std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    std::vector<FakeLoginItem> result;
    for (const auto& entry : nlohmann::json::parse(text)) {
        result.push_back(FakeLoginItem{entry.at("path").get<std::string>(), entry.at("hidden").get<bool>()});
    }
    return result;
}

void SystemEventsLoginItems::save(const std::filesystem::path& file, const std::vector<FakeLoginItem>& items) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& item : items) list.push_back({{"path", item.path}, {"hidden", item.hidden}});
    auto temporary = file;
    temporary += ".tmp";
    {
        std::ofstream stream(temporary, std::ios::binary | std::ios::trunc);
        stream << list.dump() << '\n';
    }
    std::filesystem::rename(temporary, file);
}

}  // namespace holdenmere::testing
