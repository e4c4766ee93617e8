#include "app/desktop/widgets/activity_page.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/desktop/presentation.h"
#include "app/desktop/widgets/page_header.h"

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

QColor outcomeColour(LaunchOutcome outcome) {
    switch (outcome) {
        case LaunchOutcome::launched:
        case LaunchOutcome::alreadyRunning: return QColor(40, 140, 60);
        case LaunchOutcome::disabled: return QColor(120, 120, 120);
        case LaunchOutcome::missing:
        case LaunchOutcome::failed: return QColor(190, 40, 30);
    }
    return {};
}

}  // namespace

ActivityPage::ActivityPage(ActivityModel& activity, NetworkTestModel& networkTest, QWidget* parent)
    : QWidget(parent), activity_(activity), networkTest_(networkTest) {
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(pageHeader(QStringLiteral("Activity"),
                                 QStringLiteral("What Holdenmere did at each login, newest first."), this));

    lastLogin_ = noteLabel(this, QColor(90, 140, 220));
    layout->addWidget(lastLogin_);
    problem_ = noteLabel(this, QColor(200, 60, 40));
    layout->addWidget(problem_);

    history_ = new QTreeWidget(this);
    history_->setColumnCount(3);
    history_->setHeaderLabels({QStringLiteral("App"), QStringLiteral("Outcome"), QStringLiteral("Detail")});
    history_->setRootIsDecorated(true);
    history_->setUniformRowHeights(true);
    history_->header()->setStretchLastSection(true);
    history_->setColumnWidth(0, 200);
    history_->setColumnWidth(1, 120);
    layout->addWidget(history_, 3);

    auto* test = new QGroupBox(QStringLiteral("Network check"), this);
    auto* testLayout = new QVBoxLayout(test);
    auto* testButtons = new QHBoxLayout();
    test_ = new QPushButton(QStringLiteral("Test the Network Now"), test);
    stop_ = new QPushButton(QStringLiteral("Stop"), test);
    busy_ = new QProgressBar(test);
    busy_->setRange(0, 0);
    busy_->setTextVisible(false);
    busy_->setMaximumWidth(120);
    auto* showLog = new QPushButton(QStringLiteral("Show Log"), test);
    testButtons->addWidget(test_);
    testButtons->addWidget(stop_);
    testButtons->addWidget(busy_);
    testButtons->addStretch();
    testButtons->addWidget(showLog);
    testLayout->addLayout(testButtons);
    attempts_ = new QListWidget(test);
    attempts_->setMaximumHeight(110);
    testLayout->addWidget(attempts_);
    summary_ = new QLabel(test);
    summary_->setWordWrap(true);
    testLayout->addWidget(summary_);
    layout->addWidget(test, 2);

    connect(&activity_, &ActivityModel::changed, this, &ActivityPage::rebuildHistory);
    connect(test_, &QPushButton::clicked, &networkTest_, &NetworkTestModel::start);
    connect(stop_, &QPushButton::clicked, &networkTest_, &NetworkTestModel::cancel);
    connect(showLog, &QPushButton::clicked, this, &ActivityPage::showLogRequested);
    connect(&networkTest_, &NetworkTestModel::started, this, &ActivityPage::showTest);
    connect(&networkTest_, &NetworkTestModel::attempted, this, &ActivityPage::showTest);
    connect(&networkTest_, &NetworkTestModel::finished, this, &ActivityPage::showTest);
    rebuildHistory();
    showTest();
}

void ActivityPage::showEvent(QShowEvent* event) {
    activity_.refresh();
    QWidget::showEvent(event);
}

void ActivityPage::rebuildHistory() {
    lastLogin_->setText(activity_.lastLoginText());
    problem_->setText(activity_.historyProblem());
    problem_->setVisible(!activity_.historyProblem().isEmpty());
    history_->clear();
    for (const LoginPass& pass : activity_.passes()) {
        auto* top = new QTreeWidgetItem(history_);
        top->setText(0, activity_.passHeading(pass));
        top->setText(1, presentation::outcomeCounts(pass.counts()));
        top->setFirstColumnSpanned(true);
        QFont font = top->font(0);
        font.setBold(true);
        top->setFont(0, font);
        top->setText(0, QStringLiteral("%1 \u2014 %2").arg(activity_.passHeading(pass),
                                                          presentation::outcomeCounts(pass.counts())));
        for (const LaunchRecord& record : pass.records) {
            auto* child = new QTreeWidgetItem(top);
            child->setText(0, text(record.name));
            child->setText(1, presentation::outcomeTitle(record.outcome));
            child->setForeground(1, outcomeColour(record.outcome));
            child->setText(2, text(record.detail));
            child->setToolTip(2, text(record.detail));
        }
    }
    if (history_->topLevelItemCount() > 0) history_->topLevelItem(0)->setExpanded(true);
    if (activity_.passes().empty()) {
        auto* none = new QTreeWidgetItem(history_);
        none->setText(0, QStringLiteral("No login recorded yet. Holdenmere records each login here."));
        none->setFirstColumnSpanned(true);
        none->setDisabled(true);
    }
}

void ActivityPage::showTest() {
    const bool running = networkTest_.isRunning();
    test_->setEnabled(!running);
    stop_->setVisible(running);
    busy_->setVisible(running);
    attempts_->clear();
    attempts_->addItems(networkTest_.lines());
    attempts_->scrollToBottom();
    attempts_->setVisible(!networkTest_.lines().isEmpty());
    summary_->setText(running ? QStringLiteral("Testing\u2026") : networkTest_.summary());
}

}  // namespace holdenmere::desktop
