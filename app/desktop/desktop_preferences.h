#pragma once

#include <QByteArray>
#include <QString>

#include <filesystem>
#include <memory>

class QSettings;

namespace holdenmere::desktop {

// The desktop app's own small preferences (not the login pass's
// configuration): whether the welcome window was completed, whether the
// consent to take startup items over was asked for, and the main window's
// geometry. Kept in the user-defaults suite named by
// HOLDENMERE_DEFAULTS_SUITE, "com.tavik.holdenmere" when unset.
class DesktopPreferences {
public:
    static constexpr const char* kDefaultSuite = "com.tavik.holdenmere";

    // The suite's file under `home`: ~/Library/Preferences/{suite}.plist on
    // macOS, ~/.config/holdenmere/{suite}.conf elsewhere.
    DesktopPreferences(const std::filesystem::path& home, const QString& suite);
    ~DesktopPreferences();
    DesktopPreferences(const DesktopPreferences&) = delete;
    DesktopPreferences& operator=(const DesktopPreferences&) = delete;

    // The suite from the environment, or the default.
    static QString suiteFromEnvironment();
    static std::filesystem::path fileFor(const std::filesystem::path& home, const QString& suite);

    bool onboardingDone() const;
    void setOnboardingDone(bool done);

    // Whether the Startup Items page has asked for consent to take startup
    // items over (it asks once, while the consent is undecided).
    bool startupConsentAsked() const;
    void setStartupConsentAsked(bool asked);

    QByteArray windowGeometry() const;
    void setWindowGeometry(const QByteArray& geometry);

    // Writes pending changes to disk.
    void sync();

private:
    std::unique_ptr<QSettings> settings_;
};

}  // namespace holdenmere::desktop
