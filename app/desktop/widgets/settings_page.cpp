#include "app/desktop/widgets/settings_page.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QVBoxLayout>

#include "app/desktop/widgets/page_header.h"

namespace holdenmere::desktop {
namespace {

QLabel* detailLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    label->setPalette(palette);
    label->setContentsMargins(22, 0, 0, 4);
    return label;
}

// A switch with its explanation underneath.
QWidget* switchRow(QWidget* parent, QCheckBox* box, QLabel* detail) {
    auto* row = new QWidget(parent);
    auto* layout = new QVBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(box);
    if (detail) layout->addWidget(detail);
    return row;
}

}  // namespace

SettingsPage::SettingsPage(SettingsModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* outer = new QVBoxLayout(this);
    outer->addWidget(pageHeader(QStringLiteral("Settings"),
                                QStringLiteral("Changes are saved at once and apply from the next login."), this));
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* content = new QWidget(scroll);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 8, 0);
    scroll->setWidget(content);
    outer->addWidget(scroll, 1);

    layout->addWidget(makeLoginGroup(content));
    layout->addWidget(makeNetworkGroup(content));
    layout->addWidget(makePresenceGroup(content));
    layout->addStretch();

    connectControls();
    refresh();
}

QWidget* SettingsPage::makeLoginGroup(QWidget* content) {
    auto* login = new QGroupBox(QStringLiteral("At login"), content);
    auto* loginLayout = new QVBoxLayout(login);
    startAtLogin_ = new QCheckBox(QStringLiteral("Start at login"), login);
    startAtLoginDetail_ = detailLabel(login);
    startAtLoginRow_ = switchRow(login, startAtLogin_, startAtLoginDetail_);
    startAtLoginWarning_ = detailLabel(login);
    startAtLoginWarning_->setStyleSheet(QStringLiteral("QLabel { color: #b4281e; }"));
    startAtLoginWarning_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    startAtLoginRow_->layout()->addWidget(startAtLoginWarning_);
    offWarning_ = noteLabel(login, QColor(230, 160, 20));
    startAtLoginRow_->layout()->addWidget(offWarning_);
    gateEnabled_ = new QCheckBox(QStringLiteral("Wait for the network before opening apps"), login);
    auto* gateDetail = detailLabel(login);
    gateDetail->setText(QStringLiteral("When off, Holdenmere opens nothing at login."));
    launchAnyway_ = new QCheckBox(QStringLiteral("Open the apps anyway if the network never answers"), login);
    openAtLogin_ = new QCheckBox(QStringLiteral("Open Holdenmere after your apps"), login);
    openAtLoginDetail_ = detailLabel(login);
    helpers_ = new QLabel(login);
    helpersRow_ = new QWidget(login);
    auto* helpersColumn = new QVBoxLayout(helpersRow_);
    helpersColumn->setContentsMargins(0, 4, 0, 0);
    auto* helpersLayout = new QHBoxLayout();
    auto* helpersTitle = new QLabel(QStringLiteral("Held helpers:"), helpersRow_);
    helpersLayout->addWidget(helpersTitle);
    helpersLayout->addWidget(helpers_, 1);
    helpersColumn->addLayout(helpersLayout);
    loginLayout->addWidget(startAtLoginRow_);
    loginLayout->addWidget(switchRow(login, gateEnabled_, gateDetail));
    loginLayout->addWidget(switchRow(login, launchAnyway_, nullptr));
    loginLayout->addWidget(switchRow(login, openAtLogin_, openAtLoginDetail_));
    loginLayout->addWidget(helpersRow_);
    return login;
}

QWidget* SettingsPage::makeNetworkGroup(QWidget* content) {
    auto* network = new QGroupBox(QStringLiteral("Network check"), content);
    auto* form = new QFormLayout(network);
    probeURL_ = new QLineEdit(network);
    auto* reset = new QPushButton(QStringLiteral("Default"), network);
    auto* urlRow = new QHBoxLayout();
    urlRow->addWidget(probeURL_, 1);
    urlRow->addWidget(reset);
    form->addRow(QStringLiteral("Test address:"), urlRow);
    interval_ = new QDoubleSpinBox(network);
    interval_->setRange(GateSettings::kMinPollInterval, GateSettings::kMaxPollInterval);
    interval_->setSingleStep(0.5);
    interval_->setDecimals(1);
    interval_->setSuffix(QStringLiteral(" s"));
    interval_->setKeyboardTracking(false);
    form->addRow(QStringLiteral("Try every:"), interval_);
    attempts_ = new QSpinBox(network);
    attempts_->setRange(static_cast<int>(GateSettings::kMinAttempts), static_cast<int>(GateSettings::kMaxAttempts));
    attempts_->setKeyboardTracking(false);
    form->addRow(QStringLiteral("Attempts:"), attempts_);
    worstCase_ = detailLabel(network);
    worstCase_->setContentsMargins(0, 0, 0, 0);
    form->addRow(QString(), worstCase_);
    connect(reset, &QPushButton::clicked, &model_, &SettingsModel::resetProbeURL);
    return network;
}

QWidget* SettingsPage::makePresenceGroup(QWidget* content) {
    auto* presence = new QGroupBox(QStringLiteral("Show Holdenmere"), content);
    auto* presenceLayout = new QVBoxLayout(presence);
    menuBar_ = new QRadioButton(QStringLiteral("In the menu bar"), presence);
    dock_ = new QRadioButton(QStringLiteral("In the Dock"), presence);
    auto* group = new QButtonGroup(presence);
    group->addButton(menuBar_);
    group->addButton(dock_);
    presenceLayout->addWidget(menuBar_);
    presenceLayout->addWidget(dock_);
    return presence;
}

void SettingsPage::connectControls() {
    connect(&model_, &SettingsModel::changed, this, &SettingsPage::refresh);
    connect(startAtLogin_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) model_.setStartAtLogin(on);
    });
    connect(gateEnabled_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) model_.setGateEnabled(on);
    });
    connect(launchAnyway_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) model_.setLaunchAnywayOnTimeout(on);
    });
    connect(openAtLogin_, &QCheckBox::toggled, this, [this](bool on) {
        if (!refreshing_) model_.setOpenAppAtLogin(on);
    });
    connect(probeURL_, &QLineEdit::editingFinished, this, [this] {
        if (!refreshing_ && !model_.setProbeURL(probeURL_->text())) refresh();
    });
    connect(interval_, &QDoubleSpinBox::valueChanged, this, [this](double seconds) {
        if (!refreshing_) model_.setPollInterval(seconds);
    });
    connect(attempts_, &QSpinBox::valueChanged, this, [this](int count) {
        if (!refreshing_) model_.setMaxAttempts(count);
    });
    connect(menuBar_, &QRadioButton::toggled, this, [this](bool on) {
        if (!refreshing_) model_.setMenuBarMode(on);
    });
}

void SettingsPage::setHelpersPanel(QWidget* panel) {
    panel->setParent(helpersRow_);
    helpersRow_->layout()->addWidget(panel);
}

QString SettingsPage::startAtLoginWarningText() const {
    return startAtLoginWarning_->isVisibleTo(this) ? startAtLoginWarning_->text() : QString();
}

void SettingsPage::showEvent(QShowEvent* event) {
    model_.refreshLoginAgent();
    refresh();
    QWidget::showEvent(event);
}

void SettingsPage::refresh() {
    refreshing_ = true;
    const GateSettings& settings = model_.settings();
    // While a switch runs the box shows what was asked for, and waits.
    const bool switching = model_.isSwitchingStartAtLogin();
    startAtLogin_->setChecked(switching ? model_.startAtLoginWanted() : runsAtLogin(model_.loginAgentStatus()));
    startAtLogin_->setEnabled(model_.canChangeStartAtLogin() && !switching);
    startAtLoginDetail_->setText(model_.loginAgentDetail());
    startAtLoginWarning_->setText(model_.loginAgentWarning());
    startAtLoginWarning_->setVisible(!model_.loginAgentWarning().isEmpty());
    offWarning_->setText(model_.offWarning());
    offWarning_->setVisible(!model_.offWarning().isEmpty());
    gateEnabled_->setChecked(settings.isEnabled);
    launchAnyway_->setChecked(settings.launchAnywayOnTimeout);
    launchAnyway_->setEnabled(settings.isEnabled);
    openAtLogin_->setChecked(settings.openAppAtLogin);
    openAtLoginDetail_->setText(model_.openAtLoginDetail());
    helpers_->setText(model_.helpersSummary());
    if (!probeURL_->hasFocus()) probeURL_->setText(QString::fromStdString(settings.probeURL));
    interval_->setValue(settings.pollInterval);
    attempts_->setValue(static_cast<int>(settings.maxAttempts));
    worstCase_->setText(model_.worstCaseText());
    menuBar_->setChecked(settings.menuBarMode);
    dock_->setChecked(!settings.menuBarMode);
    refreshing_ = false;
}

}  // namespace holdenmere::desktop
