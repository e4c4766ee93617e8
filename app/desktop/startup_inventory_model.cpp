#include "app/desktop/startup_inventory_model.h"

#include <QMetaObject>

#include "app/desktop/startup_work.h"
#include "core/takeover/inventory_text.h"

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

QStringList texts(const std::vector<std::string>& values) {
    QStringList result;
    for (const auto& value : values) result << text(value);
    return result;
}

}  // namespace

QString InventoryRow::title() const { return QStringLiteral("%1 \u2014 %2").arg(text(entry.name), text(entry.handle)); }

QString InventoryRow::stateText() const { return text(InventoryText::state(entry.state)); }

QStringList InventoryRow::chips() const { return texts(InventoryText::tierChips(entry.tier)); }

QString InventoryRow::actionText() const {
    switch (action) {
        case StartupActions::RowAction::switchOff: return QStringLiteral("Switch Off");
        case StartupActions::RowAction::switchOn: return QStringLiteral("Switch On");
        case StartupActions::RowAction::none: return {};
    }
    return {};
}

QString InventorySection::header() const {
    if (unreadable) return QStringLiteral("%1: unknown \u2014 %2").arg(title, *unreadable);
    return QStringLiteral("%1: %2 %3").arg(title).arg(rows.size()).arg(rows.size() == 1 ? QStringLiteral("item")
                                                                                        : QStringLiteral("items"));
}

StartupInventoryModel::StartupInventoryModel(ConfigSession& session, DesktopServices& services, QObject* parent)
    : QObject(parent), session_(session), services_(services), queue_(std::make_unique<BackgroundQueue>()) {
    // What a row allows depends on what Holdenmere holds.
    connect(&session_, &ConfigSession::changed, this, [this] {
        derive();
        emit sectionsChanged();
    });
}

StartupInventoryModel::~StartupInventoryModel() { queue_.reset(); }

void StartupInventoryModel::rescan() {
    if (scanning_) return;
    scanning_ = true;
    DesktopServices& services = services_;
    StartupInventoryModel* self = this;
    queue_->post([self, &services] {
        auto scans = services.startupInventory().scan();
        QMetaObject::invokeMethod(
            self,
            [self, scans = std::move(scans)]() mutable {
                self->scans_ = std::move(scans);
                self->scanned_ = true;
                self->scanning_ = false;
                self->derive();
                emit self->sectionsChanged();
            },
            Qt::QueuedConnection);
    });
}

void StartupInventoryModel::derive() {
    const HoldenmereConfig& config = session_.config();
    sections_.clear();
    for (const auto& scan : scans_) {
        InventorySection section;
        section.source = scan.source;
        section.title = text(InventoryText::title(scan.source));
        if (scan.unreadable) section.unreadable = text(*scan.unreadable);
        section.incomplete = texts(scan.incomplete);
        section.notes = texts(scan.notes);
        for (const auto& entry : scan.entries) {
            section.rows.push_back(InventoryRow{entry, StartupActions::actionFor(entry, config)});
        }
        sections_.push_back(std::move(section));
    }
}

const InventoryRow* StartupInventoryModel::row(const std::string& id) const {
    for (const auto& section : sections_) {
        for (const auto& row : section.rows) {
            if (row.entry.id() == id) return &row;
        }
    }
    return nullptr;
}

bool StartupInventoryModel::act(const std::string& id, bool confirmed) {
    const InventoryRow* found = row(id);
    if (found == nullptr || found->action == StartupActions::RowAction::none) return false;
    const InventoryRow target = *found;
    StartupActions actions({ConfigAccess::of(session_.store()), services_.launchctl(), services_.scripts(),
                            services_.safetyEnvironment(), services_.launchAgentDirectories(),
                            services_.startupSwitches()});
    const Date now = services_.clock().now();
    ++busy_;
    emit busyChanged();
    StartupInventoryModel* self = this;
    queue_->post([self, target, confirmed, actions = std::move(actions), now] {
        const ActionOutcome outcome = target.action == StartupActions::RowAction::switchOff
                                          ? actions.holdEntry(target.entry, confirmed, now)
                                          : actions.unholdEntry(target.entry);
        QMetaObject::invokeMethod(
            self,
            [self, outcome] {
                --self->busy_;
                emit self->busyChanged();
                QStringList lines;
                for (const auto& line : outcome.lines) lines << text(line);
                emit self->finished(lines.join(QLatin1Char('\n')), outcome.ok);
                self->session_.reload();
                self->rescan();
            },
            Qt::QueuedConnection);
    });
    return true;
}

}  // namespace holdenmere::desktop
