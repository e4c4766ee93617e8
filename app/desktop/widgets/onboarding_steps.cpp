#include "app/desktop/widgets/onboarding_steps.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QRadioButton>
#include <QVBoxLayout>

#include "app/desktop/app_icons.h"
#include "app/desktop/widgets/page_header.h"
#include "app/desktop/widgets/startup_items_page.h"

namespace holdenmere::desktop {
namespace {

constexpr int kIdentifierRole = Qt::UserRole + 1;

QString text(const std::string& value) { return QString::fromStdString(value); }

QLabel* greyLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, palette.color(QPalette::PlaceholderText));
    label->setPalette(palette);
    return label;
}

}  // namespace

StartAtLoginStepPage::StartAtLoginStepPage(OnboardingFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(pageHeader(QStringLiteral("Start Holdenmere at login"),
                                 QStringLiteral("Holdenmere works at login: a small login agent waits for the network, "
                                                "then opens your apps. The window does not need to be open."),
                                 this));
    box_ = new QCheckBox(QStringLiteral("Start Holdenmere at login"), this);
    layout->addSpacing(8);
    layout->addWidget(box_);
    state_ = greyLabel(this);
    state_->setContentsMargins(22, 0, 0, 0);
    layout->addWidget(state_);
    auto* later = greyLabel(this);
    later->setText(QStringLiteral("You can change this at any time in Settings."));
    layout->addSpacing(8);
    layout->addWidget(later);
    layout->addStretch();
    connect(box_, &QCheckBox::toggled, this, [this](bool on) { flow_.setStartAtLoginWanted(on); });
    refresh();
}

void StartAtLoginStepPage::showEvent(QShowEvent* event) {
    refresh();
    QWidget::showEvent(event);
}

void StartAtLoginStepPage::refresh() {
    QSignalBlocker blocker(box_);
    if (flow_.loginAgent() == nullptr) {
        box_->setChecked(false);
        box_->setEnabled(false);
        state_->setText(QStringLiteral("This copy of Holdenmere cannot set up its login agent."));
        return;
    }
    if (flow_.startAtLoginAlreadyOn()) {
        box_->setChecked(true);
        box_->setEnabled(false);
        state_->setText(QStringLiteral("Holdenmere already starts at every login."));
        return;
    }
    box_->setEnabled(flow_.loginAgent()->canChangeStartAtLogin());
    box_->setChecked(flow_.startAtLoginWanted());
    state_->setText(flow_.loginAgent()->loginAgentDetail());
}

StartupConsentStepPage::StartupConsentStepPage(OnboardingFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(pageHeader(QStringLiteral("Apps macOS starts by itself"), StartupConsentDialog::explanation(),
                                 this));
    grant_ = new QRadioButton(QStringLiteral("Let Holdenmere take them over"), this);
    decline_ = new QRadioButton(QStringLiteral("Leave them to macOS"), this);
    auto* group = new QButtonGroup(this);
    group->addButton(grant_);
    group->addButton(decline_);
    layout->addWidget(grant_);
    layout->addWidget(decline_);
    list_ = new QListWidget(this);
    list_->setIconSize(QSize(24, 24));
    layout->addWidget(list_, 1);
    empty_ = greyLabel(this);
    layout->addWidget(empty_);
    auto* later = greyLabel(this);
    later->setText(QStringLiteral("Everything Holdenmere switches off is recorded and can be given back from Startup "
                                  "Items."));
    layout->addWidget(later);

    connect(grant_, &QRadioButton::toggled, this, [this](bool on) {
        if (on) flow_.setConsent(OnboardingFlow::Consent::grant);
        list_->setEnabled(on);
    });
    connect(decline_, &QRadioButton::toggled, this, [this](bool on) {
        if (on) flow_.setConsent(OnboardingFlow::Consent::decline);
    });
    connect(list_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        flow_.setLeftToMacOS(item->data(kIdentifierRole).toString().toStdString(), item->checkState() != Qt::Checked);
    });
    if (StartupItemsModel* model = flow_.startupItems()) {
        connect(model, &StartupItemsModel::rowsChanged, this, &StartupConsentStepPage::fill);
        connect(model, &StartupItemsModel::scanningChanged, this, &StartupConsentStepPage::fill);
    }
    list_->setEnabled(false);
    fill();
}

void StartupConsentStepPage::showEvent(QShowEvent* event) {
    if (StartupItemsModel* model = flow_.startupItems(); model && !model->hasScanned() && !model->isScanning()) {
        model->rescan();
    }
    fill();
    QWidget::showEvent(event);
}

void StartupConsentStepPage::fill() {
    QSignalBlocker blocker(list_);
    list_->clear();
    StartupItemsModel* model = flow_.startupItems();
    if (model == nullptr) {
        empty_->setText(QStringLiteral("This copy of Holdenmere cannot look at your startup items."));
        grant_->setEnabled(false);
        decline_->setEnabled(false);
        return;
    }
    for (const StartupItemRow& row : model->items()) {
        // Apps just chosen are managed once the welcome is finished.
        if (flow_.chosen().count(row.bundleIdentifier) != 0) continue;
        auto* item = new QListWidgetItem(icons::forApp(row.iconPath, text(row.name), text(row.bundleIdentifier)),
                                         QStringLiteral("%1 \u2014 %2").arg(text(row.name), sourceText(row)), list_);
        item->setData(kIdentifierRole, text(row.bundleIdentifier));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(flow_.leftToMacOS().count(row.bundleIdentifier) ? Qt::Unchecked : Qt::Checked);
    }
    if (!model->hasScanned()) {
        empty_->setText(QStringLiteral("Looking at your Login Items and LaunchAgents\u2026"));
    } else if (list_->count() == 0) {
        empty_->setText(QStringLiteral("No other app starts at login right now; Holdenmere takes over the ones that "
                                       "appear later."));
    } else {
        empty_->setText(QStringLiteral("Untick the apps you want to leave to macOS."));
    }
    list_->setVisible(list_->count() > 0);
}

}  // namespace holdenmere::desktop
