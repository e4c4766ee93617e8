#include "app/desktop/widgets/held_helpers_panel.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/desktop/widgets/page_header.h"

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

constexpr HelperRow::Mode kModes[] = {HelperRow::Mode::notHeld, HelperRow::Mode::delay, HelperRow::Mode::off};

}  // namespace

HeldHelpersPanel::HeldHelpersPanel(HeldHelpersModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    repairBanner_ = new QWidget(this);
    auto* bannerLayout = new QHBoxLayout(repairBanner_);
    bannerLayout->setContentsMargins(0, 0, 0, 0);
    repairQuestion_ = noteLabel(repairBanner_, QColor(230, 160, 20));
    repair_ = new QPushButton(QStringLiteral("Switch Back On"), repairBanner_);
    bannerLayout->addWidget(repairQuestion_, 1);
    bannerLayout->addWidget(repair_, 0, Qt::AlignVCenter);
    layout->addWidget(repairBanner_);

    auto* explanation = new QLabel(QStringLiteral("Helpers your apps install start with macOS, before the network. "
                                                  "Holdenmere can hold one until the network answers, or keep it off."),
                                   this);
    explanation->setWordWrap(true);
    QPalette palette = explanation->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    explanation->setPalette(palette);
    layout->addWidget(explanation);

    rows_ = new QWidget(this);
    rowsLayout_ = new QVBoxLayout(rows_);
    rowsLayout_->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(rows_);
    empty_ = new QLabel(this);
    empty_->setPalette(palette);
    layout->addWidget(empty_);
    message_ = new QLabel(this);
    message_->setWordWrap(true);
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message_->hide();
    layout->addWidget(message_);

    connect(&model_, &HeldHelpersModel::rowsChanged, this, &HeldHelpersPanel::rebuild);
    connect(&model_, &HeldHelpersModel::busyChanged, this, &HeldHelpersPanel::rebuild);
    connect(&model_, &HeldHelpersModel::finished, this, [this](const QString& content, bool ok) {
        message_->setStyleSheet(ok ? QString() : QStringLiteral("QLabel { color: #b4281e; }"));
        message_->setText(content);
        message_->show();
        rebuild();
    });
    connect(repair_, &QPushButton::clicked, &model_, &HeldHelpersModel::repair);
    rebuild();
}

void HeldHelpersPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    model_.rescan();
}

QComboBox* HeldHelpersPanel::modeBox(const std::string& label) const {
    for (QComboBox* box : rows_->findChildren<QComboBox*>()) {
        if (box->property("label").toString().toStdString() == label) return box;
    }
    return nullptr;
}

QString HeldHelpersPanel::messageText() const { return message_->isVisible() ? message_->text() : QString(); }

void HeldHelpersPanel::rebuild() {
    const QString question = model_.repairQuestion();
    repairQuestion_->setText(question);
    repairBanner_->setVisible(!question.isEmpty());
    repair_->setEnabled(!model_.isBusy());

    while (QLayoutItem* item = rowsLayout_->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
    for (const HelperRow& row : model_.rows()) {
        auto* line = new QWidget(rows_);
        auto* lineLayout = new QHBoxLayout(line);
        lineLayout->setContentsMargins(0, 2, 0, 2);
        auto* name = new QLabel(QStringLiteral("<b>%1</b><br><small>%2</small>")
                                    .arg(text(row.name).toHtmlEscaped(), row.detail().toHtmlEscaped()),
                                line);
        name->setTextFormat(Qt::RichText);
        auto* box = new QComboBox(line);
        box->setProperty("label", text(row.label));
        for (HelperRow::Mode mode : kModes) box->addItem(HelperRow::modeText(mode), static_cast<int>(mode));
        box->setCurrentIndex(static_cast<int>(row.mode));
        box->setEnabled(!model_.isBusy());
        const std::string label = row.label;
        connect(box, &QComboBox::activated, this, [this, box, label](int index) {
            if (!model_.setMode(label, kModes[index])) {
                // Refused or unchanged: show what is so.
                if (const HelperRow* current = model_.row(label)) box->setCurrentIndex(static_cast<int>(current->mode));
            }
        });
        lineLayout->addWidget(name, 1);
        lineLayout->addWidget(box);
        rowsLayout_->addWidget(line);
    }
    empty_->setText(model_.hasScanned() ? QStringLiteral("No managed app has a helper that starts at login.")
                                        : QStringLiteral("Looking for helpers\u2026"));
    empty_->setVisible(model_.rows().empty());
}

}  // namespace holdenmere::desktop
