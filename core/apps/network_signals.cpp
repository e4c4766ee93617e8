#include "core/apps/network_signals.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "core/apps/installed_app.h"

namespace holdenmere {
namespace {

// Schemes of apps that sign in to an online service to chat or meet.
constexpr std::array<std::string_view, 14> kServiceSchemes = {
    "slack", "msteams", "zoommtg", "zoomus", "discord", "tg", "skype", "whatsapp", "webex", "element",
    "signal", "mattermost", "teams", "facetime"};
// Schemes of other protocols that only make sense with a network.
constexpr std::array<std::string_view, 18> kNetworkSchemes = {
    "ftp", "ftps", "sftp", "ssh", "telnet", "irc", "ircs", "xmpp", "sip", "webcal",
    "feed", "rss", "news", "nntp", "smb", "afp", "vnc", "rdp"};

// Extension points of File Provider extensions: the app keeps a cloud drive
// in sync and is useless offline.
constexpr std::array<std::string_view, 2> kFileProviderPoints = {"com.apple.fileprovider-nonui",
                                                                 "com.apple.fileprovider-ui"};

struct CategoryWeight {
    std::string_view category;
    std::string_view text;
    int weight;
};
constexpr std::array<CategoryWeight, 9> kCategories = {{
    {"social-networking", "A social networking app", 3},
    {"news", "A news app", 3},
    {"weather", "A weather app", 3},
    {"productivity", "A productivity app", 2},
    {"business", "A business app", 2},
    {"finance", "A finance app", 2},
    {"sports", "A sports app", 2},
    {"music", "A music app", 1},
    {"video", "A video app", 1},
}};

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& list, std::string_view value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string schemeList(const std::vector<std::string>& schemes) {
    std::string text;
    for (std::size_t index = 0; index < schemes.size() && index < 3; ++index) {
        if (index > 0) text += ", ";
        text += schemes[index] + ":";
    }
    return text;
}

}  // namespace

std::vector<std::string> NetworkSignals::urlSchemes(const plist::Value& info) {
    std::vector<std::string> schemes;
    const plist::Value* types = info.find("CFBundleURLTypes");
    if (types == nullptr || types->array() == nullptr) return schemes;
    for (const plist::Value& type : *types->array()) {
        const plist::Value* names = type.find("CFBundleURLSchemes");
        if (names == nullptr || names->array() == nullptr) continue;
        for (const plist::Value& name : *names->array()) {
            if (name.string() == nullptr || name.string()->empty()) continue;
            std::string scheme = foldedCase(*name.string());
            if (std::find(schemes.begin(), schemes.end(), scheme) == schemes.end()) schemes.push_back(scheme);
        }
    }
    return schemes;
}

std::vector<NetworkReason> NetworkSignals::reasons(const plist::Value& info,
                                                   const std::vector<std::string>& extensionPoints) {
    std::vector<NetworkReason> result;

    for (const std::string& point : extensionPoints) {
        if (contains(kFileProviderPoints, point)) {
            result.push_back({"Keeps files in sync with a cloud drive", 4});
            break;
        }
    }
    if (info.find("NSUbiquitousContainers") != nullptr) result.push_back({"Syncs documents with iCloud Drive", 3});

    const std::vector<std::string> schemes = urlSchemes(info);
    std::vector<std::string> service;
    std::vector<std::string> other;
    bool mail = false;
    bool web = false;
    for (const std::string& scheme : schemes) {
        if (scheme == "mailto") mail = true;
        else if (scheme == "http" || scheme == "https") web = true;
        else if (contains(kServiceSchemes, scheme)) service.push_back(scheme);
        else if (contains(kNetworkSchemes, scheme)) other.push_back(scheme);
    }
    if (mail) result.push_back({"Handles email links (mailto:)", 3});
    if (!service.empty()) result.push_back({"Signs in to an online service (" + schemeList(service) + " links)", 3});
    if (web) result.push_back({"Opens web links", 2});
    if (!other.empty()) result.push_back({"Opens network links (" + schemeList(other) + ")", 2});

    if (info.find("NSAppTransportSecurity") != nullptr) result.push_back({"Connects to servers of its own", 2});

    if (auto categoryType = info.stringAt("LSApplicationCategoryType")) {
        const std::string category = shortCategory(*categoryType);
        for (const CategoryWeight& entry : kCategories) {
            if (entry.category == category) {
                result.push_back({std::string(entry.text), entry.weight});
                break;
            }
        }
    }

    if (info.find("SUFeedURL") != nullptr) result.push_back({"Checks online for updates", 1});
    if (info.find("NSLocalNetworkUsageDescription") != nullptr || info.find("NSBonjourServices") != nullptr) {
        result.push_back({"Uses the local network", 1});
    }

    std::stable_sort(result.begin(), result.end(),
                     [](const NetworkReason& a, const NetworkReason& b) { return a.weight > b.weight; });
    return result;
}

}  // namespace holdenmere
