#include "app/desktop/config_session.h"

#include <cerrno>
#include <optional>
#include <system_error>
#include <variant>

#include "core/takeover/startup_mutation_lock.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

// The lock is taken without waiting: a login pass that holds it is changing
// startup items, and the window must not freeze until it is done.
std::optional<StartupMutationLock::Lease> tryLock(const ConfigStore& store, QString& problem) {
    try {
        return StartupMutationLock(store.url).acquire(/*wait=*/false);
    } catch (const std::system_error& error) {
        problem = error.code().value() == EWOULDBLOCK
                      ? ConfigSession::lockBusyText()
                      : QStringLiteral("Could not lock the settings: %1").arg(text(error.what()));
        return std::nullopt;
    }
}

}  // namespace

ConfigSession::ConfigSession(ConfigStore store, QObject* parent) : QObject(parent), store_(std::move(store)) {}

QString ConfigSession::lockBusyText() {
    const StartupTransaction::Failure busy{StartupTransaction::Failure::Kind::lockBusy, {}};
    return QString::fromStdString(busy.text({}));
}

void ConfigSession::setDamage(const QString& damage) {
    if (damage == damage_) return;
    damage_ = damage;
    emit damageChanged();
}

bool ConfigSession::reload() {
    try {
        config_ = store_.load();
        setDamage({});
        emit changed();
        return true;
    } catch (const ConfigStoreError& error) {
        config_ = HoldenmereConfig{};
        setDamage(text(error.what()));
        emit changed();
        return false;
    }
}

bool ConfigSession::change(const std::function<bool(HoldenmereConfig&)>& edit) {
    // The same transaction as every change of startup state: the lock taken
    // without waiting, the file read under it, one atomic save.
    auto begun = StartupTransaction::begin(ConfigAccess::of(store_), StartupTransaction::Wait::never);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        switch (failure->kind) {
            case StartupTransaction::Failure::Kind::lockBusy:
            case StartupTransaction::Failure::Kind::outOfTime:
                emit failed(lockBusyText());
                break;
            case StartupTransaction::Failure::Kind::lockUnavailable:
                emit failed(QStringLiteral("Could not lock the settings: %1").arg(text(failure->reason)));
                break;
            case StartupTransaction::Failure::Kind::configUnreadable:
                config_ = HoldenmereConfig{};
                setDamage(text(failure->reason));
                emit changed();
                emit failed(text(failure->reason));
                break;
        }
        return false;
    }
    auto& transaction = std::get<StartupTransaction>(begun);
    setDamage({});
    HoldenmereConfig edited = transaction.config();
    if (!edit(edited)) {
        config_ = transaction.config();
        emit changed();
        return false;
    }
    if (auto failure = transaction.commit([&edit](HoldenmereConfig& fresh) { (void)edit(fresh); })) {
        // What is on disk is still what was read; show that.
        config_ = transaction.config();
        emit changed();
        emit failed(text(*failure));
        return false;
    }
    config_ = transaction.config();
    emit changed();
    return true;
}

std::filesystem::path ConfigSession::damagedCopyPath() const { return holdenmere::damagedCopyPath(store_.url); }

std::optional<DefaultsStart> ConfigSession::startFromDefaults() {
    QString problem;
    auto lease = tryLock(store_, problem);
    if (!lease) {
        emit failed(problem);
        return std::nullopt;
    }
    auto outcome = holdenmere::startFromDefaults(store_);
    if (const auto* failure = std::get_if<DefaultsStartFailure>(&outcome)) {
        emit failed(text(failure->text()));
        return std::nullopt;
    }
    auto& started = std::get<DefaultsStart>(outcome);
    config_ = started.config;
    setDamage({});
    emit changed();
    return std::move(started);
}

}  // namespace holdenmere::desktop
