#include "app/desktop/widgets/managed_apps_page.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "app/desktop/app_icons.h"
#include "app/desktop/widgets/page_header.h"
#include "app/desktop/widgets/two_line_delegate.h"

namespace holdenmere::desktop {
namespace {

constexpr int kIdentifierRole = Qt::UserRole + 1;

QString text(const std::string& value) { return QString::fromStdString(value); }

QString subtitleOf(const ManagedAppRow& row) {
    if (row.missing) return QStringLiteral("Missing \u2014 %1").arg(text(row.path));
    QStringList parts;
    parts << (row.delaySeconds > 0 ? QStringLiteral("Opens %1 s after the network").arg(row.delaySeconds)
                                   : QStringLiteral("Opens at once"));
    if (row.launchHidden) parts << QStringLiteral("Hidden");
    parts << text(row.path);
    return parts.join(QStringLiteral(" \u00b7 "));
}

QListWidgetItem* itemFor(const ManagedAppRow& row, bool switchedOff) {
    auto* item = new QListWidgetItem(icons::forApp(row.iconPath, text(row.name), text(row.bundleIdentifier),
                                                   row.missing || switchedOff),
                                     text(row.name));
    item->setData(kIdentifierRole, text(row.bundleIdentifier));
    item->setData(TwoLineDelegate::kSubtitleRole,
                  switchedOff ? (row.missing ? QStringLiteral("Missing \u2014 %1").arg(text(row.path)) : text(row.path))
                              : subtitleOf(row));
    item->setData(TwoLineDelegate::kWarningRole, row.missing);
    item->setToolTip(text(row.bundleIdentifier));
    return item;
}

QListWidget* makeList(QWidget* parent) {
    auto* list = new QListWidget(parent);
    list->setItemDelegate(new TwoLineDelegate(list));
    list->setIconSize(QSize(32, 32));
    list->setUniformItemSizes(true);
    list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    return list;
}

}  // namespace

ManagedAppsPage::ManagedAppsPage(ManagedAppsModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(pageHeader(QStringLiteral("Managed Apps"),
                                 QStringLiteral("Holdenmere opens these apps in this order once the network answers. "
                                                "Drag to change the order."),
                                 this));
    warning_ = noteLabel(this, QColor(230, 160, 20));
    layout->addWidget(warning_);

    body_ = new QStackedWidget(this);
    layout->addWidget(body_, 1);
    body_->addWidget(makeEmptyView());
    auto* content = new QWidget(body_);
    auto* contentLayout = new QHBoxLayout(content);
    contentLayout->setContentsMargins(0, 0, 0, 0);
    contentLayout->addLayout(makeLists(content), 3);
    contentLayout->addWidget(makeDetails(content), 2);
    body_->addWidget(content);

    connectControls();
    rebuild();
}

QWidget* ManagedAppsPage::makeEmptyView() {
    auto* empty = new QWidget(body_);
    auto* emptyLayout = new QVBoxLayout(empty);
    emptyLayout->addStretch();
    auto* emptyText = new QLabel(QStringLiteral("No apps yet. Add the apps that sign in or sync when they start."), empty);
    emptyText->setAlignment(Qt::AlignCenter);
    emptyText->setWordWrap(true);
    auto* emptyButton = new QPushButton(QStringLiteral("Add Apps\u2026"), empty);
    emptyLayout->addWidget(emptyText);
    emptyLayout->addWidget(emptyButton, 0, Qt::AlignHCenter);
    emptyLayout->addStretch();
    connect(emptyButton, &QPushButton::clicked, this, &ManagedAppsPage::addAppsRequested);
    return empty;
}

QLayout* ManagedAppsPage::makeLists(QWidget* content) {
    auto* lists = new QVBoxLayout();
    apps_ = makeList(content);
    apps_->setDragDropMode(QAbstractItemView::InternalMove);
    apps_->setDefaultDropAction(Qt::MoveAction);
    lists->addWidget(apps_, 3);
    switchedOffTitle_ = new QLabel(QStringLiteral("Switched off \u2014 not opened at login"), content);
    lists->addWidget(switchedOffTitle_);
    switchedOff_ = makeList(content);
    switchedOff_->setMaximumHeight(2 * 46 + 6);
    lists->addWidget(switchedOff_);
    auto* offButtons = new QHBoxLayout();
    switchOn_ = new QPushButton(QStringLiteral("Switch On"), content);
    forget_ = new QPushButton(QStringLiteral("Remove"), content);
    offButtons->addWidget(switchOn_);
    offButtons->addWidget(forget_);
    offButtons->addStretch();
    lists->addLayout(offButtons);
    return lists;
}

QWidget* ManagedAppsPage::makeDetails(QWidget* content) {
    details_ = new QWidget(content);
    details_->setMinimumWidth(240);
    auto* detailsLayout = new QVBoxLayout(details_);
    name_ = new QLabel(details_);
    QFont nameFont = name_->font();
    nameFont.setBold(true);
    nameFont.setPointSizeF(nameFont.pointSizeF() * 1.15);
    name_->setFont(nameFont);
    path_ = new QLabel(details_);
    path_->setWordWrap(true);
    path_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    missing_ = noteLabel(details_, QColor(200, 60, 40));
    missing_->setText(QStringLiteral("This app is no longer at this place. Holdenmere records it as not found at "
                                     "each login until you remove it or put it back."));
    hidden_ = new QCheckBox(QStringLiteral("Open hidden"), details_);
    delayed_ = new QCheckBox(QStringLiteral("Wait after the network answers"), details_);
    delay_ = new QSpinBox(details_);
    delay_->setRange(ManagedAppChanges::kMinDelay, ManagedAppChanges::kMaxDelay);
    delay_->setSingleStep(ManagedAppChanges::kDelayStep);
    delay_->setSuffix(QStringLiteral(" s"));
    delay_->setKeyboardTracking(false);
    auto* delayRow = new QHBoxLayout();
    delayRow->addSpacing(22);
    delayRow->addWidget(delay_);
    delayRow->addStretch();
    auto* moveRow = new QHBoxLayout();
    up_ = new QPushButton(QStringLiteral("Move Up"), details_);
    down_ = new QPushButton(QStringLiteral("Move Down"), details_);
    moveRow->addWidget(up_);
    moveRow->addWidget(down_);
    auto* stateRow = new QHBoxLayout();
    switchOff_ = new QPushButton(QStringLiteral("Switch Off"), details_);
    switchOff_->setToolTip(QStringLiteral("Keep the app in Holdenmere, but do not open it at login"));
    remove_ = new QPushButton(QStringLiteral("Remove\u2026"), details_);
    stateRow->addWidget(switchOff_);
    stateRow->addWidget(remove_);
    detailsLayout->addWidget(name_);
    detailsLayout->addWidget(path_);
    detailsLayout->addWidget(missing_);
    detailsLayout->addSpacing(8);
    detailsLayout->addWidget(hidden_);
    detailsLayout->addWidget(delayed_);
    detailsLayout->addLayout(delayRow);
    detailsLayout->addSpacing(8);
    detailsLayout->addLayout(moveRow);
    detailsLayout->addLayout(stateRow);
    detailsLayout->addStretch();
    return details_;
}

void ManagedAppsPage::connectControls() {
    connect(&model_, &ManagedAppsModel::rowsChanged, this, &ManagedAppsPage::rebuild);
    connect(apps_, &QListWidget::currentRowChanged, this, &ManagedAppsPage::showSelection);
    connect(switchedOff_, &QListWidget::currentRowChanged, this, &ManagedAppsPage::showSelection);
    // A drop has moved the item already; the model is told once the view is done.
    connect(apps_->model(), &QAbstractItemModel::rowsMoved, this,
            [this] { QTimer::singleShot(0, this, &ManagedAppsPage::onRowsDropped); });
    connect(hidden_, &QCheckBox::toggled, this, [this](bool on) {
        if (!rebuilding_) model_.setLaunchHidden(selectedApp(), on);
    });
    connect(delayed_, &QCheckBox::toggled, this, [this](bool on) {
        if (!rebuilding_) model_.setDelayed(selectedApp(), on);
    });
    connect(delay_, &QSpinBox::valueChanged, this, [this](int seconds) {
        if (!rebuilding_) model_.setDelay(selectedApp(), seconds);
    });
    connect(up_, &QPushButton::clicked, this, [this] { model_.moveUp(selectedApp()); });
    connect(down_, &QPushButton::clicked, this, [this] { model_.moveDown(selectedApp()); });
    connect(switchOff_, &QPushButton::clicked, this, [this] { model_.switchOff(selectedApp()); });
    connect(remove_, &QPushButton::clicked, this, &ManagedAppsPage::confirmRemove);
    connect(switchOn_, &QPushButton::clicked, this, [this] { model_.switchOn(selectedSwitchedOff()); });
    connect(forget_, &QPushButton::clicked, this, [this] { model_.remove(selectedSwitchedOff()); });
}

void ManagedAppsPage::confirmRemove() {
    const std::string identifier = selectedApp();
    if (identifier.empty()) return;
    QMessageBox box(QMessageBox::Question, QStringLiteral("Remove App"),
                    QStringLiteral("Remove %1 from Holdenmere?").arg(apps_->currentItem()->text()),
                    QMessageBox::Cancel, this);
    box.setInformativeText(model_.removeHelp(identifier));
    box.addButton(QStringLiteral("Remove"), QMessageBox::DestructiveRole);
    box.exec();
    if (box.buttonRole(box.clickedButton()) == QMessageBox::DestructiveRole) model_.remove(identifier);
}

std::string ManagedAppsPage::selectedApp() const {
    auto* item = apps_->currentItem();
    return item ? item->data(kIdentifierRole).toString().toStdString() : std::string();
}

std::string ManagedAppsPage::selectedSwitchedOff() const {
    auto* item = switchedOff_->currentItem();
    return item ? item->data(kIdentifierRole).toString().toStdString() : std::string();
}

void ManagedAppsPage::select(const std::string& bundleIdentifier) {
    for (int row = 0; row < apps_->count(); ++row) {
        if (apps_->item(row)->data(kIdentifierRole).toString().toStdString() == bundleIdentifier) {
            apps_->setCurrentRow(row);
            return;
        }
    }
}

void ManagedAppsPage::rebuild() {
    rebuilding_ = true;
    const std::string selected = selectedApp();
    const std::string selectedOff = selectedSwitchedOff();
    apps_->clear();
    for (const ManagedAppRow& row : model_.apps()) apps_->addItem(itemFor(row, false));
    switchedOff_->clear();
    for (const ManagedAppRow& row : model_.switchedOff()) switchedOff_->addItem(itemFor(row, true));
    const bool nothing = model_.apps().empty() && model_.switchedOff().empty();
    body_->setCurrentIndex(nothing ? 0 : 1);
    switchedOffTitle_->setVisible(!model_.switchedOff().empty());
    switchedOff_->setVisible(!model_.switchedOff().empty());
    switchOn_->setVisible(!model_.switchedOff().empty());
    forget_->setVisible(!model_.switchedOff().empty());
    const QString warning = model_.offWarning();
    warning_->setText(warning);
    warning_->setVisible(!warning.isEmpty() && !model_.apps().empty());
    rebuilding_ = false;
    if (!selected.empty()) select(selected);
    if (apps_->currentRow() < 0 && apps_->count() > 0) apps_->setCurrentRow(0);
    for (int row = 0; row < switchedOff_->count(); ++row) {
        if (switchedOff_->item(row)->data(kIdentifierRole).toString().toStdString() == selectedOff) {
            switchedOff_->setCurrentRow(row);
        }
    }
    showSelection();
}

void ManagedAppsPage::showSelection() {
    if (rebuilding_) return;
    rebuilding_ = true;
    const std::string identifier = selectedApp();
    const ManagedAppRow* row = nullptr;
    int index = -1;
    for (std::size_t position = 0; position < model_.apps().size(); ++position) {
        if (model_.apps()[position].bundleIdentifier == identifier) {
            row = &model_.apps()[position];
            index = static_cast<int>(position);
        }
    }
    details_->setEnabled(row != nullptr);
    if (row != nullptr) {
        name_->setText(text(row->name));
        path_->setText(text(row->path));
        missing_->setVisible(row->missing);
        hidden_->setChecked(row->launchHidden);
        delayed_->setChecked(row->delaySeconds > 0);
        delay_->setEnabled(row->delaySeconds > 0);
        delay_->setValue(row->delaySeconds > 0 ? row->delaySeconds : ManagedAppChanges::kMinDelay);
        up_->setEnabled(index > 0);
        down_->setEnabled(index + 1 < static_cast<int>(model_.apps().size()));
    } else {
        name_->setText(QStringLiteral("No app selected"));
        path_->clear();
        missing_->setVisible(false);
    }
    switchOn_->setEnabled(!selectedSwitchedOff().empty());
    forget_->setEnabled(!selectedSwitchedOff().empty());
    rebuilding_ = false;
}

void ManagedAppsPage::onRowsDropped() {
    const std::string identifier = selectedApp();
    for (int row = 0; row < apps_->count(); ++row) {
        if (apps_->item(row)->data(kIdentifierRole).toString().toStdString() == identifier) {
            model_.move(identifier, row);
            break;
        }
    }
    // Whatever the file now says is what the list shows.
    model_.refresh();
    rebuild();
}

}  // namespace holdenmere::desktop
