#include "app/desktop/widgets/onboarding_window.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/desktop/app_icons.h"
#include "app/desktop/widgets/page_header.h"
#include "app/desktop/widgets/two_line_delegate.h"

namespace holdenmere::desktop {
namespace {

constexpr int kIdentifierRole = Qt::UserRole + 1;

QString text(const std::string& value) { return QString::fromStdString(value); }

}  // namespace

// Long: lays out the welcome steps and the buttons under them, in the order they are shown.
OnboardingWindow::OnboardingWindow(OnboardingFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
    setWindowTitle(QStringLiteral("Welcome to Holdenmere"));
    setWindowIcon(icons::holdenmere());
    setMinimumSize(560, 460);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 18);
    stack_ = new QStackedWidget(this);
    layout->addWidget(stack_, 1);

    // Welcome: what Holdenmere does, in two sentences.
    auto* welcome = new QWidget(stack_);
    auto* welcomeLayout = new QVBoxLayout(welcome);
    welcomeLayout->addStretch();
    auto* icon = new QLabel(welcome);
    icon->setPixmap(icons::holdenmere().pixmap(96, 96));
    icon->setAlignment(Qt::AlignCenter);
    auto* title = new QLabel(QStringLiteral("Welcome to Holdenmere"), welcome);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.8);
    titleFont.setBold(true);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);
    auto* introduction = new QLabel(OnboardingFlow::introduction(), welcome);
    introduction->setWordWrap(true);
    introduction->setAlignment(Qt::AlignCenter);
    welcomeLayout->addWidget(icon);
    welcomeLayout->addSpacing(8);
    welcomeLayout->addWidget(title);
    welcomeLayout->addSpacing(8);
    welcomeLayout->addWidget(introduction);
    welcomeLayout->addStretch();
    setStepPage(OnboardingFlow::Step::welcome, welcome);

    // Choosing apps from the suggestions.
    auto* choose = new QWidget(stack_);
    auto* chooseLayout = new QVBoxLayout(choose);
    chooseLayout->setContentsMargins(0, 0, 0, 0);
    chooseLayout->addWidget(pageHeader(QStringLiteral("Which apps need the network?"),
                                       QStringLiteral("These apps sign in, sync or fetch mail when they start. Tick "
                                                      "the ones Holdenmere should open once the network answers; you "
                                                      "can add others later."),
                                       choose));
    suggestions_ = new QListWidget(choose);
    suggestions_->setItemDelegate(new TwoLineDelegate(suggestions_));
    suggestions_->setIconSize(QSize(32, 32));
    suggestions_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    chooseLayout->addWidget(suggestions_, 1);
    noSuggestions_ = new QLabel(QStringLiteral("No installed app looks like it needs the network. You can add apps "
                                               "in the main window at any time."),
                                choose);
    noSuggestions_->setWordWrap(true);
    chooseLayout->addWidget(noSuggestions_);
    setStepPage(OnboardingFlow::Step::chooseApps, choose);

    problem_ = noteLabel(this, QColor(200, 60, 40));
    problem_->hide();
    layout->addWidget(problem_);
    auto* buttons = new QHBoxLayout();
    back_ = new QPushButton(QStringLiteral("Back"), this);
    skip_ = new QPushButton(QStringLiteral("Skip"), this);
    primary_ = new QPushButton(this);
    primary_->setDefault(true);
    buttons->addWidget(back_);
    buttons->addStretch();
    buttons->addWidget(skip_);
    buttons->addWidget(primary_);
    layout->addLayout(buttons);

    connect(back_, &QPushButton::clicked, &flow_, &OnboardingFlow::back);
    connect(skip_, &QPushButton::clicked, &flow_, &OnboardingFlow::skip);
    connect(primary_, &QPushButton::clicked, this, &OnboardingWindow::primary);
    connect(&flow_, &OnboardingFlow::stepChanged, this, &OnboardingWindow::showStep);
    connect(&flow_, &OnboardingFlow::completed, this, &OnboardingWindow::done);
    connect(suggestions_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        flow_.setChosen(item->data(kIdentifierRole).toString().toStdString(), item->checkState() == Qt::Checked);
        showStep();
    });
    showStep();
}

void OnboardingWindow::setStepPage(OnboardingFlow::Step step, QWidget* page) {
    if (QWidget* old = pages_.value(static_cast<int>(step))) {
        stack_->removeWidget(old);
        old->deleteLater();
    }
    page->setParent(stack_);
    stack_->addWidget(page);
    pages_.insert(static_cast<int>(step), page);
    showStep();
}

QWidget* OnboardingWindow::pageFor(OnboardingFlow::Step step) const { return pages_.value(static_cast<int>(step)); }

void OnboardingWindow::fillSuggestions() {
    if (filled_) return;
    filled_ = true;
    QSignalBlocker blocker(suggestions_);
    for (const AppChoice& choice : flow_.suggestions()) {
        auto* item = new QListWidgetItem(
            icons::forApp(choice.app.iconPath, text(choice.app.name), text(choice.app.bundleIdentifier)),
            text(choice.app.name), suggestions_);
        item->setData(kIdentifierRole, text(choice.app.bundleIdentifier));
        item->setData(TwoLineDelegate::kSubtitleRole, text(choice.reason));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(flow_.chosen().count(choice.app.bundleIdentifier) ? Qt::Checked : Qt::Unchecked);
    }
    noSuggestions_->setVisible(suggestions_->count() == 0);
    suggestions_->setVisible(suggestions_->count() > 0);
}

void OnboardingWindow::showStep() {
    if (stack_ == nullptr || primary_ == nullptr) return;  // still being built
    const OnboardingFlow::Step step = flow_.current();
    if (step == OnboardingFlow::Step::chooseApps) fillSuggestions();
    if (QWidget* page = pageFor(step)) stack_->setCurrentWidget(page);
    back_->setVisible(flow_.canGoBack());
    skip_->setVisible(step == OnboardingFlow::Step::welcome);
    if (!flow_.isLast()) {
        primary_->setText(QStringLiteral("Continue"));
    } else if (flow_.chosen().empty() || step != OnboardingFlow::Step::chooseApps) {
        primary_->setText(QStringLiteral("Done"));
    } else {
        primary_->setText(flow_.chosen().size() == 1 ? QStringLiteral("Add 1 App")
                                                     : QStringLiteral("Add %1 Apps").arg(flow_.chosen().size()));
    }
}

void OnboardingWindow::primary() {
    if (!flow_.isLast()) {
        flow_.next();
        return;
    }
    problem_->hide();
    if (!flow_.finish()) {
        problem_->setText(QStringLiteral("Holdenmere could not save your apps. Nothing was lost; try again, or skip "
                                         "and add them in the main window."));
        problem_->show();
    }
}

}  // namespace holdenmere::desktop
