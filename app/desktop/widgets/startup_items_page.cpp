#include "app/desktop/widgets/startup_items_page.h"

#include <QDialogButtonBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

#include "app/desktop/app_icons.h"
#include "app/desktop/widgets/page_header.h"

namespace holdenmere::desktop {
namespace {

constexpr int kIdentifierRole = Qt::UserRole + 1;

QString text(const std::string& value) { return QString::fromStdString(value); }

QLabel* sectionTitle(const QString& title, QWidget* parent) {
    auto* label = new QLabel(title, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    label->setContentsMargins(0, 10, 0, 2);
    return label;
}

// A small rounded tag beside an item: a safety warning or a state.
QLabel* chip(const QString& content, const QColor& tint, QWidget* parent) {
    auto* label = new QLabel(content, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    label->setFont(font);
    label->setStyleSheet(QStringLiteral("QLabel { background: %1; color: %2; border-radius: 8px; padding: 1px 7px; }")
                             .arg(tint.lighter(175).name(), tint.darker(160).name()));
    return label;
}

// One row: the app's icon, its name, a line about it, tags, and a button.
QFrame* itemRow(QWidget* parent, const std::optional<std::filesystem::path>& iconPath, const QString& name,
                const QString& seed, const QString& subtitle, const QList<QLabel*>& tags, QPushButton* button,
                bool warning = false) {
    auto* frame = new QFrame(parent);
    frame->setObjectName(QStringLiteral("startupRow"));
    frame->setStyleSheet(QStringLiteral("#startupRow { background: palette(base); border: 1px solid palette(mid); "
                                        "border-radius: 6px; }"));
    auto* layout = new QHBoxLayout(frame);
    layout->setContentsMargins(10, 6, 10, 6);
    auto* icon = new QLabel(frame);
    icon->setPixmap(icons::forApp(iconPath, name, seed).pixmap(28, 28));
    icon->setFixedSize(30, 30);
    layout->addWidget(icon, 0, Qt::AlignTop);
    auto* texts = new QVBoxLayout();
    texts->setSpacing(1);
    auto* title = new QLabel(name, frame);
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
    texts->addWidget(title);
    QLabel* line = greyLabel(subtitle, frame);
    if (warning) line->setStyleSheet(QStringLiteral("QLabel { color: #b4281e; }"));
    line->setTextInteractionFlags(Qt::TextSelectableByMouse);
    texts->addWidget(line);
    if (!tags.isEmpty()) {
        auto* tagRow = new QHBoxLayout();
        tagRow->setSpacing(4);
        for (QLabel* tag : tags) {
            tag->setParent(frame);
            tagRow->addWidget(tag);
        }
        tagRow->addStretch();
        texts->addLayout(tagRow);
    }
    layout->addLayout(texts, 1);
    if (button) {
        button->setParent(frame);
        layout->addWidget(button, 0, Qt::AlignVCenter);
    }
    return frame;
}

bool confirm(QWidget* parent, const QString& question, const QStringList& warnings, const QString& action) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Startup Items"), question, QMessageBox::Cancel, parent);
    box.setInformativeText(warnings.join(QStringLiteral("\n\n")));
    box.addButton(action, QMessageBox::AcceptRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.buttonRole(box.clickedButton()) == QMessageBox::AcceptRole;
}

}  // namespace

QString StartupConsentDialog::explanation() {
    return QStringLiteral(
        "macOS opens Login Items and LaunchAgents before the network answers. Holdenmere can take them over: at each "
        "login it switches the macOS start off, keeps a record so that everything can be given back, and opens the "
        "app itself once the network answers. Untick the apps you want to leave to macOS.");
}

StartupConsentDialog::StartupConsentDialog(const std::vector<StartupItemRow>& items,
                                           const std::vector<std::string>& leftToMacOS, QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(QStringLiteral("Take Over Startup Items"));
    setMinimumWidth(480);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(pageHeader(QStringLiteral("Let Holdenmere start your login apps?"), explanation(), this));
    list_ = new QListWidget(this);
    list_->setIconSize(QSize(24, 24));
    for (const StartupItemRow& row : items) {
        auto* item = new QListWidgetItem(icons::forApp(row.iconPath, text(row.name), text(row.bundleIdentifier)),
                                         QStringLiteral("%1 \u2014 %2").arg(text(row.name), sourceText(row)), list_);
        item->setData(kIdentifierRole, text(row.bundleIdentifier));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        const bool left = std::find(leftToMacOS.begin(), leftToMacOS.end(), row.bundleIdentifier) != leftToMacOS.end();
        item->setCheckState(left ? Qt::Unchecked : Qt::Checked);
    }
    if (items.empty()) {
        layout->addWidget(greyLabel(QStringLiteral("No app is a Login Item or LaunchAgent right now; Holdenmere will "
                                                   "take over the ones that appear later."),
                                    this));
        list_->hide();
    }
    layout->addWidget(list_, 1);
    auto* buttons = new QDialogButtonBox(this);
    decline_ = buttons->addButton(QStringLiteral("Leave All to macOS"), QDialogButtonBox::RejectRole);
    grant_ = buttons->addButton(QStringLiteral("Take Over"), QDialogButtonBox::AcceptRole);
    grant_->setDefault(true);
    layout->addWidget(buttons);
    connect(grant_, &QPushButton::clicked, this, [this] {
        choice_ = Choice::granted;
        accept();
    });
    connect(decline_, &QPushButton::clicked, this, [this] {
        choice_ = Choice::declined;
        reject();
    });
}

std::vector<std::string> StartupConsentDialog::leftToMacOS() const {
    std::vector<std::string> left;
    for (int row = 0; row < list_->count(); ++row) {
        QListWidgetItem* item = list_->item(row);
        if (item->checkState() != Qt::Checked) left.push_back(item->data(kIdentifierRole).toString().toStdString());
    }
    return left;
}

StartupItemsPage::StartupItemsPage(StartupItemsModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->addWidget(pageHeader(QStringLiteral("Startup Items"),
                                QStringLiteral("What macOS opens at login, before the network. Holdenmere can open "
                                               "these apps itself once the network answers."),
                                this));

    auto* consentRow = new QHBoxLayout();
    consent_ = new QLabel(this);
    consent_->setWordWrap(true);
    decide_ = new QPushButton(this);
    consentRow->addWidget(consent_, 1);
    consentRow->addWidget(decide_, 0, Qt::AlignTop);
    outer->addLayout(consentRow);

    problem_ = noteLabel(this, QColor(200, 60, 40));
    problem_->hide();
    outer->addWidget(problem_);
    result_ = noteLabel(this, QColor(90, 140, 220));
    result_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    result_->hide();
    outer->addWidget(result_);

    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* content = new QWidget(scroll);
    extras_ = new QVBoxLayout(content);
    extras_->setContentsMargins(0, 0, 0, 0);
    rows_ = new QWidget(content);
    extras_->addWidget(rows_);
    rowsLayout_ = new QVBoxLayout(rows_);
    rowsLayout_->setContentsMargins(0, 0, 8, 0);
    rowsLayout_->setSpacing(6);
    scroll->setWidget(content);
    outer->addWidget(scroll, 1);

    auto* buttons = new QHBoxLayout();
    scanning_ = greyLabel(QStringLiteral("Looking at your Login Items and LaunchAgents\u2026"), this);
    rescan_ = new QPushButton(QStringLiteral("Look Again"), this);
    giveBack_ = new QPushButton(QStringLiteral("Give Everything Back\u2026"), this);
    buttons->addWidget(scanning_, 1);
    buttons->addWidget(rescan_);
    buttons->addWidget(giveBack_);
    outer->addLayout(buttons);

    connect(&model_, &StartupItemsModel::rowsChanged, this, &StartupItemsPage::rebuild);
    connect(&model_, &StartupItemsModel::scanningChanged, this, &StartupItemsPage::rebuild);
    connect(&model_, &StartupItemsModel::busyChanged, this, &StartupItemsPage::rebuild);
    connect(&model_, &StartupItemsModel::finished, this, &StartupItemsPage::showResult);
    connect(&model_, &StartupItemsModel::gaveBack, this, [this](const QStringList& lines, bool ok) {
        showResult(lines.isEmpty() ? QStringLiteral("Nothing to give back.") : lines.join(QLatin1Char('\n')), ok);
    });
    connect(rescan_, &QPushButton::clicked, &model_, &StartupItemsModel::rescan);
    connect(decide_, &QPushButton::clicked, this, &StartupItemsPage::askConsent);
    connect(giveBack_, &QPushButton::clicked, this, &StartupItemsPage::giveBack);
    rebuild();
}

void StartupItemsPage::addPanel(QWidget* panel) { extras_->addWidget(panel); }

void StartupItemsPage::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (!model_.isScanning()) model_.rescan();
    askPending_ = true;
    askConsentIfDue();
}

void StartupItemsPage::askConsentIfDue() {
    // Asked once, on the page, when there is something to show in the list.
    if (!askPending_ || !isVisible() || !model_.hasScanned() || model_.isScanning()) return;
    askPending_ = false;
    if (!model_.shouldAskConsent()) return;
    QTimer::singleShot(0, this, [this] {
        if (isVisible() && model_.shouldAskConsent()) askConsent();
    });
}

void StartupItemsPage::askConsent() {
    StartupConsentDialog dialog(model_.items(), [this] {
        std::vector<std::string> left;
        for (const StartupItemRow& row : model_.items()) {
            if (row.leftToMacOS) left.push_back(row.bundleIdentifier);
        }
        return left;
    }(), this);
    dialog.exec();
    model_.markConsentAsked();
    switch (dialog.choice()) {
        case StartupConsentDialog::Choice::granted: model_.grantConsent(dialog.leftToMacOS()); break;
        case StartupConsentDialog::Choice::declined: model_.declineConsent(); break;
        case StartupConsentDialog::Choice::none: break;
    }
}

QPushButton* StartupItemsPage::buttonFor(const std::string& bundleIdentifier) const {
    for (QPushButton* button : rows_->findChildren<QPushButton*>()) {
        if (button->property("bundleIdentifier").toString().toStdString() == bundleIdentifier) return button;
    }
    return nullptr;
}

QString StartupItemsPage::resultText() const { return result_->isVisible() ? result_->text() : QString(); }

void StartupItemsPage::showResult(const QString& content, bool ok) {
    if (content.isEmpty()) return;
    result_->setStyleSheet(QStringLiteral("QLabel { background: %1; border: 1px solid %2; border-radius: 6px; }")
                               .arg(ok ? QStringLiteral("#e8f0fb") : QStringLiteral("#fbe9e6"),
                                    ok ? QStringLiteral("#a9c4ec") : QStringLiteral("#e6a79d")));
    result_->setText(content);
    result_->show();
}

void StartupItemsPage::takeOver(const std::string& bundleIdentifier) {
    const StartupItemRow* row = model_.item(bundleIdentifier);
    if (row == nullptr) return;
    const QStringList warnings = model_.confirmations(bundleIdentifier);
    bool confirmed = false;
    if (!warnings.isEmpty()) {
        if (!confirm(this, QStringLiteral("Take %1 over?").arg(text(row->name)), warnings,
                     QStringLiteral("Take Over"))) {
            return;
        }
        confirmed = true;
    }
    model_.takeOver(bundleIdentifier, confirmed);
}

void StartupItemsPage::endConflict(const std::string& bundleIdentifier) {
    const ConflictRow* row = model_.conflict(bundleIdentifier);
    if (row == nullptr) return;
    const QStringList warnings = model_.conflictConfirmations(bundleIdentifier);
    bool confirmed = false;
    if (!warnings.isEmpty()) {
        if (!confirm(this, QStringLiteral("Stop macOS from starting %1?").arg(text(row->name)), warnings,
                     QStringLiteral("Switch Off"))) {
            return;
        }
        confirmed = true;
    }
    model_.endConflict(bundleIdentifier, confirmed);
}

void StartupItemsPage::giveBack() {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Give Everything Back"), StartupItemsModel::giveBackQuestion(),
                    QMessageBox::Cancel, this);
    box.setInformativeText(StartupItemsModel::giveBackDetail());
    box.addButton(QStringLiteral("Give Back"), QMessageBox::DestructiveRole);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    if (box.buttonRole(box.clickedButton()) == QMessageBox::DestructiveRole) model_.giveEverythingBack();
}

void StartupItemsPage::rebuild() {
    const bool busy = model_.isBusy();
    showState(busy);
    clearRows();
    addConflictRows(busy);
    addItemRows(busy);
    addIneligibleRows();
    rowsLayout_->addStretch();
    askConsentIfDue();
}

void StartupItemsPage::showState(bool busy) {
    consent_->setText(model_.consentText());
    decide_->setText(model_.consent() == StartupConsent::undecided ? QStringLiteral("Decide\u2026")
                                                                    : QStringLiteral("Change\u2026"));
    giveBack_->setEnabled(!busy);
    rescan_->setEnabled(!model_.isScanning());
    scanning_->setText(busy                    ? QStringLiteral("Changing your startup items\u2026")
                       : model_.isScanning()   ? QStringLiteral("Looking at your Login Items and LaunchAgents\u2026")
                                               : QString());
    QStringList problems{model_.loginItemsProblem(), model_.launchAgentsProblem(), model_.backgroundItemsProblem()};
    problems.removeAll(QString());
    const QString problem = problems.join(QLatin1Char('\n'));
    problem_->setText(problem);
    problem_->setVisible(!problem.isEmpty());
}

// Rows are rebuilt whole: the lists are short.
void StartupItemsPage::clearRows() {
    while (QLayoutItem* item = rowsLayout_->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
}

void StartupItemsPage::addSection(const QString& title, const QString& explanation) {
    rowsLayout_->addWidget(sectionTitle(title, rows_));
    if (!explanation.isEmpty()) rowsLayout_->addWidget(greyLabel(explanation, rows_));
}

void StartupItemsPage::addConflictRows(bool busy) {
    if (model_.conflicts().empty()) return;
    addSection(QStringLiteral("Managed apps macOS also starts"),
               QStringLiteral("macOS opens these before the network, so they start offline."));
    for (const ConflictRow& row : model_.conflicts()) {
        QList<QLabel*> tags;
        QStringList refused;
        for (const auto& agent : row.agents) {
            for (const auto& name : agent.chips) tags << chip(text(name), QColor(220, 150, 30), nullptr);
            if (agent.tier.kind == SafetyTier::Kind::refused) refused << text(agent.tier.reason);
        }
        QString subtitle = QStringLiteral("Also started by its %1").arg(sourcesText(row));
        if (!refused.isEmpty()) subtitle += QStringLiteral("\n") + refused.join(QLatin1Char('\n'));
        const bool settingsOnly = row.loginItems.empty() && row.agents.empty();
        if (row.opensLoginItemsSettings && !settingsOnly) {
            subtitle += QStringLiteral("\nOnly System Settings can switch its background item off.");
        }
        auto* button = new QPushButton(settingsOnly ? QStringLiteral("Open Login Items Settings")
                                                    : QStringLiteral("Stop macOS Starting It"));
        button->setProperty("bundleIdentifier", text(row.bundleIdentifier));
        button->setEnabled(!busy);
        const std::string identifier = row.bundleIdentifier;
        connect(button, &QPushButton::clicked, this, [this, identifier] { endConflict(identifier); });
        rowsLayout_->addWidget(itemRow(rows_, row.iconPath, text(row.name), text(row.bundleIdentifier), subtitle, tags, button, true));
    }
}

void StartupItemsPage::addItemRows(bool busy) {
    addSection(QStringLiteral("Apps Holdenmere can start instead"), QString());
    if (model_.items().empty()) {
        rowsLayout_->addWidget(greyLabel(model_.hasScanned()
                                             ? QStringLiteral("No other app starts at login by itself.")
                                             : QStringLiteral("Looking\u2026"),
                                         rows_));
    }
    for (const StartupItemRow& row : model_.items()) {
        QList<QLabel*> tags;
        if (row.leftToMacOS) tags << chip(QStringLiteral("Left to macOS"), QColor(120, 120, 130), nullptr);
        for (const auto& name : row.chips) tags << chip(text(name), QColor(220, 150, 30), nullptr);
        QString subtitle = sourceText(row);
        if (row.hidden) subtitle += QStringLiteral(" \u00B7 opens hidden");
        const bool refused = row.tier.kind == SafetyTier::Kind::refused;
        if (refused) subtitle += QStringLiteral("\n") + text(row.tier.reason);
        auto* button = new QPushButton(row.opensLoginItemsSettings ? QStringLiteral("Open Login Items Settings")
                                                                   : QStringLiteral("Take Over"));
        button->setProperty("bundleIdentifier", text(row.bundleIdentifier));
        button->setEnabled(!busy && !refused);
        const std::string identifier = row.bundleIdentifier;
        if (row.opensLoginItemsSettings) {
            connect(button, &QPushButton::clicked, &model_, &StartupItemsModel::openLoginItemsSettings);
        } else {
            connect(button, &QPushButton::clicked, this, [this, identifier] { takeOver(identifier); });
        }
        rowsLayout_->addWidget(itemRow(rows_, row.iconPath, text(row.name), text(row.bundleIdentifier), subtitle, tags, button,
                                       refused));
    }
}

void StartupItemsPage::addIneligibleRows() {
    if (model_.ineligible().empty()) return;
    addSection(QStringLiteral("Left alone"),
               QStringLiteral("These start at login too, but Holdenmere cannot start them itself."));
    for (const IneligibleRow& row : model_.ineligible()) {
        QList<QLabel*> tags;
        if (row.ofManagedApp) tags << chip(QStringLiteral("Managed app"), QColor(90, 140, 220), nullptr);
        rowsLayout_->addWidget(itemRow(rows_, std::nullopt, text(row.name), text(row.bundleIdentifier),
                                       QStringLiteral("%1 \u2014 %2").arg(text(row.label), text(row.reason)), tags,
                                       nullptr));
    }
}

}  // namespace holdenmere::desktop
