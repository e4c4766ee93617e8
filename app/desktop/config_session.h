#pragma once

#include <QObject>
#include <QString>

#include <filesystem>
#include <functional>
#include <optional>

#include "core/config/config_store.h"
#include "core/config/damaged_config.h"

namespace holdenmere::desktop {

// The desktop app's view of config.json, which the login pass and the
// command-line modes share. Every change is made on a fresh read of the file
// (load, change, save) while holding the startup mutation lock, so that an
// edit never undoes what the login pass wrote in the meantime. A file that
// cannot be read is never overwritten: the session reports it as damaged
// until the user chooses to start from defaults.
class ConfigSession : public QObject {
    Q_OBJECT

public:
    explicit ConfigSession(ConfigStore store, QObject* parent = nullptr);

    const ConfigStore& store() const { return store_; }

    // Re-reads the file; false when it cannot be read (the session is then damaged).
    bool reload();
    // The last configuration read; the defaults while the file is damaged.
    const HoldenmereConfig& config() const { return config_; }

    bool isDamaged() const { return !damage_.isEmpty(); }
    // "Could not read config: ..." while damaged; empty otherwise.
    const QString& damage() const { return damage_; }

    // Loads the file, applies `edit` and saves the result; `edit` returns
    // false when it changed nothing, and nothing is written then. True when
    // a change was saved; false when there was nothing to change, or when
    // the change could not be made (failed() then says why).
    bool change(const std::function<bool(HoldenmereConfig&)>& edit);

    // For a damaged file: copies it to damagedCopyPath() and saves the
    // default configuration in its place, with every record of what
    // Holdenmere switched off that the file still holds. How that went, or
    // nothing when nothing was changed (failed() then says why).
    std::optional<DefaultsStart> startFromDefaults();
    // Beside the file: "config.json.damaged", or "config.json.damaged-2" and
    // up when that name is taken.
    std::filesystem::path damagedCopyPath() const;

    static QString lockBusyText();

signals:
    // config() holds a new read.
    void changed();
    // isDamaged() or damage() changed.
    void damageChanged();
    // A change or a start from defaults could not be made.
    void failed(const QString& message);

private:
    void setDamage(const QString& damage);

    ConfigStore store_;
    HoldenmereConfig config_;
    QString damage_;
};

}  // namespace holdenmere::desktop
