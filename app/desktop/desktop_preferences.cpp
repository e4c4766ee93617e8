#include "app/desktop/desktop_preferences.h"

#include <QSettings>

#include "core/support/environment.h"

namespace holdenmere::desktop {
namespace {

constexpr const char* kOnboardingDone = "onboardingDone";
constexpr const char* kWindowGeometry = "mainWindowGeometry";
constexpr const char* kStartupConsentAsked = "startupConsentAsked";

}  // namespace

DesktopPreferences::DesktopPreferences(const std::filesystem::path& home, const QString& suite)
    : settings_(std::make_unique<QSettings>(QString::fromStdString(fileFor(home, suite).string()),
#ifdef __APPLE__
                                            QSettings::NativeFormat
#else
                                            QSettings::IniFormat
#endif
                                            )) {
}

DesktopPreferences::~DesktopPreferences() = default;

QString DesktopPreferences::suiteFromEnvironment() {
    auto suite = environmentValue("HOLDENMERE_DEFAULTS_SUITE");
    return suite ? QString::fromStdString(*suite) : QString::fromLatin1(kDefaultSuite);
}

std::filesystem::path DesktopPreferences::fileFor(const std::filesystem::path& home, const QString& suite) {
    // A suite name is a domain, never a path.
    QString name = suite;
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
#ifdef __APPLE__
    return home / "Library" / "Preferences" / (name.toStdString() + ".plist");
#else
    return home / ".config" / "holdenmere" / (name.toStdString() + ".conf");
#endif
}

bool DesktopPreferences::onboardingDone() const { return settings_->value(kOnboardingDone, false).toBool(); }

void DesktopPreferences::setOnboardingDone(bool done) {
    settings_->setValue(kOnboardingDone, done);
    settings_->sync();
}

bool DesktopPreferences::startupConsentAsked() const {
    return settings_->value(kStartupConsentAsked, false).toBool();
}

void DesktopPreferences::setStartupConsentAsked(bool asked) {
    settings_->setValue(kStartupConsentAsked, asked);
    settings_->sync();
}

QByteArray DesktopPreferences::windowGeometry() const { return settings_->value(kWindowGeometry).toByteArray(); }

void DesktopPreferences::setWindowGeometry(const QByteArray& geometry) { settings_->setValue(kWindowGeometry, geometry); }

void DesktopPreferences::sync() { settings_->sync(); }

}  // namespace holdenmere::desktop
