#include "core/apps/network_signals.h"

#include <gtest/gtest.h>

#include "tests/support/app_bundles.h"

namespace holdenmere {
namespace {

using testing::plistDocument;
using testing::stringEntry;
using testing::urlSchemesEntry;

std::vector<NetworkReason> reasonsFor(const std::string& body, const std::vector<std::string>& points = {}) {
    return NetworkSignals::reasons(plist::parse(plistDocument(body)), points);
}

std::vector<std::string> texts(const std::vector<NetworkReason>& reasons) {
    std::vector<std::string> result;
    for (const auto& reason : reasons) result.push_back(reason.text);
    return result;
}

TEST(NetworkSignals, NothingForAPlainApp) {
    EXPECT_TRUE(reasonsFor(stringEntry("CFBundleIdentifier", "com.example.calc")).empty());
    EXPECT_TRUE(reasonsFor(stringEntry("LSApplicationCategoryType", "public.app-category.games")).empty());
}

TEST(NetworkSignals, MailAndWebSchemes) {
    auto reasons = reasonsFor(urlSchemesEntry({"MAILTO", "https", "http", "mailto"}));
    EXPECT_EQ(texts(reasons), (std::vector<std::string>{"Handles email links (mailto:)", "Opens web links"}));
    EXPECT_EQ(reasons[0].weight, 3);
    EXPECT_EQ(reasons[1].weight, 2);
}

TEST(NetworkSignals, ServiceAndProtocolSchemesAreNamed) {
    EXPECT_EQ(texts(reasonsFor(urlSchemesEntry({"slack", "myapp-callback"}))),
              (std::vector<std::string>{"Signs in to an online service (slack: links)"}));
    EXPECT_EQ(texts(reasonsFor(urlSchemesEntry({"ssh", "sftp", "vnc", "rdp"}))),
              (std::vector<std::string>{"Opens network links (ssh:, sftp:, vnc:)"}));
    // A private scheme on its own says nothing about the network.
    EXPECT_TRUE(reasonsFor(urlSchemesEntry({"myapp"})).empty());
}

TEST(NetworkSignals, SchemesAreReadInOrderWithoutDuplicates) {
    auto info = plist::parse(plistDocument(urlSchemesEntry({"Feed", "feed", "webcal"})));
    EXPECT_EQ(NetworkSignals::urlSchemes(info), (std::vector<std::string>{"feed", "webcal"}));
    EXPECT_TRUE(NetworkSignals::urlSchemes(plist::parse(plistDocument(stringEntry("CFBundleURLTypes", "x")))).empty());
}

TEST(NetworkSignals, StrongestFirstAcrossKeys) {
    auto reasons = reasonsFor(stringEntry("SUFeedURL", "https://example.com/appcast.xml") +
                              "<key>NSAppTransportSecurity</key><dict/>\n" +
                              "<key>NSUbiquitousContainers</key><dict/>\n" +
                              stringEntry("LSApplicationCategoryType", "public.app-category.social-networking") +
                              stringEntry("NSLocalNetworkUsageDescription", "finds printers"));
    EXPECT_EQ(texts(reasons), (std::vector<std::string>{"Syncs documents with iCloud Drive", "A social networking app",
                                                       "Connects to servers of its own", "Checks online for updates",
                                                       "Uses the local network"}));
}

TEST(NetworkSignals, UpdateFeedAloneIsBelowTheThreshold) {
    auto reasons = reasonsFor(stringEntry("SUFeedURL", "https://example.com/appcast.xml"));
    ASSERT_EQ(reasons.size(), 1u);
    EXPECT_LT(reasons[0].weight, NetworkSignals::kSuggestionThreshold);
}

TEST(NetworkSignals, CategoriesWeighDifferently) {
    EXPECT_EQ(reasonsFor(stringEntry("LSApplicationCategoryType", "public.app-category.news"))[0].weight, 3);
    EXPECT_EQ(reasonsFor(stringEntry("LSApplicationCategoryType", "public.app-category.business"))[0].text,
              "A business app");
    EXPECT_EQ(reasonsFor(stringEntry("LSApplicationCategoryType", "public.app-category.music"))[0].weight, 1);
}

TEST(NetworkSignals, FileProviderExtension) {
    auto reasons = reasonsFor("", {"com.apple.share-services", "com.apple.fileprovider-nonui"});
    EXPECT_EQ(texts(reasons), (std::vector<std::string>{"Keeps files in sync with a cloud drive"}));
    EXPECT_TRUE(reasonsFor("", {"com.apple.share-services"}).empty());
}

}  // namespace
}  // namespace holdenmere
