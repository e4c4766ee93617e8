#include "app/desktop/widgets/startup_inventory_panel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/desktop/widgets/page_header.h"

namespace holdenmere::desktop {

StartupInventoryPanel::StartupInventoryPanel(StartupInventoryModel& model, QWidget* parent)
    : QWidget(parent), model_(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 12, 0, 0);
    auto* heading = new QLabel(QStringLiteral("<b>Everything else macOS starts</b>"), this);
    heading->setTextFormat(Qt::RichText);
    layout->addWidget(heading);
    scanning_ = greyLabel(QStringLiteral("Looking at launchd, ServiceManagement and system extensions\u2026"), this);
    layout->addWidget(scanning_);
    sections_ = new QWidget(this);
    sectionsLayout_ = new QVBoxLayout(sections_);
    sectionsLayout_->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(sections_);
    message_ = new QLabel(this);
    message_->setWordWrap(true);
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message_->hide();
    layout->addWidget(message_);

    connect(&model_, &StartupInventoryModel::sectionsChanged, this, &StartupInventoryPanel::rebuild);
    connect(&model_, &StartupInventoryModel::busyChanged, this, &StartupInventoryPanel::rebuild);
    connect(&model_, &StartupInventoryModel::finished, this, [this](const QString& content, bool ok) {
        message_->setStyleSheet(ok ? QString() : QStringLiteral("QLabel { color: #b4281e; }"));
        message_->setText(content);
        message_->show();
    });
    rebuild();
}

void StartupInventoryPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!model_.hasScanned()) model_.rescan();
}

QPushButton* StartupInventoryPanel::buttonFor(const std::string& id) const {
    for (QPushButton* button : sections_->findChildren<QPushButton*>()) {
        if (button->property("rowId").toString().toStdString() == id) return button;
    }
    return nullptr;
}

QString StartupInventoryPanel::shownText() const {
    QStringList lines;
    for (const QLabel* label : sections_->findChildren<QLabel*>()) lines << label->text();
    return lines.join(QLatin1Char('\n'));
}

QString StartupInventoryPanel::messageText() const { return message_->isVisible() ? message_->text() : QString(); }

void StartupInventoryPanel::switchRow(const std::string& id) {
    const InventoryRow* row = model_.row(id);
    if (row == nullptr) return;
    bool confirmed = false;
    if (row->action == StartupActions::RowAction::switchOff && row->needsConfirmation()) {
        QStringList warnings;
        for (const auto& warning : row->entry.tier.warnings) warnings << QString::fromStdString(warning);
        const auto answer = QMessageBox::question(this, QStringLiteral("Switch %1 off?").arg(QString::fromStdString(row->entry.name)),
                                                  warnings.join(QStringLiteral("\n\n")));
        if (answer != QMessageBox::Yes) return;
        confirmed = true;
    }
    model_.act(id, confirmed);
}

void StartupInventoryPanel::rebuild() {
    while (QLayoutItem* item = sectionsLayout_->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
    scanning_->setVisible(!model_.hasScanned());
    for (const InventorySection& section : model_.sections()) {
        auto* header = new QLabel(section.header(), sections_);
        header->setWordWrap(true);
        QFont font = header->font();
        font.setBold(true);
        header->setFont(font);
        sectionsLayout_->addWidget(header);
        for (const InventoryRow& row : section.rows) {
            auto* line = new QWidget(sections_);
            auto* lineLayout = new QHBoxLayout(line);
            lineLayout->setContentsMargins(12, 2, 0, 2);
            QStringList details{row.stateText()};
            details << row.chips();
            auto* name = new QLabel(QStringLiteral("%1<br><small>%2</small>")
                                        .arg(row.title().toHtmlEscaped(), details.join(QStringLiteral(" \u00B7 ")).toHtmlEscaped()),
                                    line);
            name->setTextFormat(Qt::RichText);
            name->setWordWrap(true);
            lineLayout->addWidget(name, 1);
            if (!row.actionText().isEmpty()) {
                auto* button = new QPushButton(row.actionText(), line);
                const std::string id = row.entry.id();
                button->setProperty("rowId", QString::fromStdString(id));
                button->setEnabled(!model_.isBusy());
                connect(button, &QPushButton::clicked, this, [this, id] { switchRow(id); });
                lineLayout->addWidget(button, 0, Qt::AlignVCenter);
            }
            sectionsLayout_->addWidget(line);
        }
        for (const QString& gap : section.incomplete) sectionsLayout_->addWidget(greyLabel(QStringLiteral("Could not read: ") + gap, sections_));
        for (const QString& note : section.notes) sectionsLayout_->addWidget(greyLabel(QStringLiteral("Not listed: ") + note, sections_));
    }
}

}  // namespace holdenmere::desktop
