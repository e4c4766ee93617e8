#pragma once

#include <string>
#include <vector>

#include "core/support/plist.h"

namespace holdenmere {

// One hint, read from an app's Info.plist, that the app talks to the network
// when it starts; `weight` says how strong a hint it is.
struct NetworkReason {
    std::string text;  // short, shown beside the suggestion: "Syncs documents with iCloud Drive"
    int weight = 0;

    friend bool operator==(const NetworkReason&, const NetworkReason&) = default;
};

// Turns Info.plist keys into reasons to start an app only after the network
// answers. Entitlements are sealed inside the code signature and cannot be
// read here; everything comes from the information dictionaries.
struct NetworkSignals {
    // An app whose reasons weigh this much together is suggested.
    static constexpr int kSuggestionThreshold = 3;

    // The reasons for one app, strongest first (equal weights in the order
    // the keys are checked). `extensionPoints` are the NSExtensionPointIdentifier
    // values of the app's extensions.
    static std::vector<NetworkReason> reasons(const plist::Value& info,
                                              const std::vector<std::string>& extensionPoints = {});

    // The URL schemes an app registers (CFBundleURLTypes), lower-cased, in order.
    static std::vector<std::string> urlSchemes(const plist::Value& info);
};

}  // namespace holdenmere
