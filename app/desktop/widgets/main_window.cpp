#include "app/desktop/widgets/main_window.h"

#include <QAction>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <QStyle>
#include <QUrl>
#include <QVBoxLayout>

#include "app/desktop/app_icons.h"
#include "app/desktop/widgets/activity_page.h"
#include "app/desktop/widgets/add_apps_page.h"
#include "app/desktop/widgets/held_helpers_panel.h"
#include "app/desktop/widgets/managed_apps_page.h"
#include "app/desktop/widgets/page_header.h"
#include "app/desktop/widgets/settings_page.h"
#include "app/desktop/widgets/startup_inventory_panel.h"
#include "app/desktop/widgets/startup_items_page.h"

namespace holdenmere::desktop {
namespace {

constexpr int kNoticeMilliseconds = 6000;

QWidget* banner(QWidget* parent, const QColor& tint, QLabel*& text, QPushButton*& button, const QString& buttonText) {
    auto* frame = new QFrame(parent);
    frame->setObjectName(QStringLiteral("banner"));
    frame->setStyleSheet(QStringLiteral("#banner { background: %1; border: 1px solid %2; border-radius: 6px; }")
                             .arg(tint.lighter(185).name(), tint.lighter(130).name()));
    auto* layout = new QHBoxLayout(frame);
    text = new QLabel(frame);
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    button = new QPushButton(buttonText, frame);
    layout->addWidget(text, 1);
    layout->addWidget(button, 0, Qt::AlignTop);
    frame->hide();
    return frame;
}

}  // namespace

// Long: lays out the window and its pages and wires their signals to it, in one place to read.
MainWindow::MainWindow(DesktopContext& context, QWidget* parent) : QMainWindow(parent), context_(context) {
    setWindowTitle(QStringLiteral("Holdenmere"));
    setWindowIcon(icons::holdenmere());
    setMinimumSize(760, 520);

    auto* central = new QWidget(this);
    auto* layout = new QHBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    sidebar_ = new QListWidget(central);
    sidebar_->setFixedWidth(180);
    sidebar_->setIconSize(QSize(20, 20));
    sidebar_->setFrameShape(QFrame::NoFrame);
    sidebar_->setSpacing(2);
    sidebar_->setStyleSheet(QStringLiteral("QListWidget { background: palette(window); padding-top: 10px; }"
                                           "QListWidget::item { padding: 6px 8px; border-radius: 6px; color: palette(text); }"
                                           "QListWidget::item:selected { background: palette(highlight); "
                                           "color: palette(highlighted-text); }"));
    layout->addWidget(sidebar_);

    auto* right = new QWidget(central);
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(16, 12, 16, 8);
    QPushButton* damageButton = nullptr;
    damageBanner_ = banner(right, QColor(200, 60, 40), damageText_, damageButton,
                           QStringLiteral("Start from Defaults\u2026"));
    QPushButton* dismiss = nullptr;
    problemBanner_ = banner(right, QColor(230, 160, 20), problemText_, dismiss, QStringLiteral("OK"));
    rightLayout->addWidget(damageBanner_);
    rightLayout->addWidget(problemBanner_);
    pages_ = new QStackedWidget(right);
    rightLayout->addWidget(pages_, 1);
    layout->addWidget(right, 1);
    setCentralWidget(central);

    managedApps_ = new ManagedAppsPage(context_.managedApps, pages_);
    addApps_ = new AddAppsPage(context_.addApps, pages_);
    activity_ = new ActivityPage(context_.activity, context_.networkTest, pages_);
    settings_ = new SettingsPage(context_.settings, pages_);
    settings_->setHelpersPanel(new HeldHelpersPanel(context_.helpers));
    startupItems_ = new StartupItemsPage(context_.startupItems, pages_);
    startupItems_->addPanel(new StartupInventoryPanel(context_.inventory));
    connect(&context_.startupItems, &StartupItemsModel::gaveBack, &context_.inventory, &StartupInventoryModel::rescan);
    QStyle* look = style();
    addPage(QStringLiteral("Managed Apps"), look->standardIcon(QStyle::SP_FileDialogListView), managedApps_);
    addPage(QStringLiteral("Add Apps"), look->standardIcon(QStyle::SP_FileDialogNewFolder), addApps_);
    addPage(QStringLiteral("Activity"), look->standardIcon(QStyle::SP_FileDialogDetailedView), activity_);
    addPage(QStringLiteral("Settings"), look->standardIcon(QStyle::SP_FileDialogInfoView), settings_);
    addPage(QStringLiteral("Startup Items"), look->standardIcon(QStyle::SP_MediaPlay), startupItems_,
            kStartupItemsPosition);

    connect(sidebar_, &QListWidget::currentRowChanged, pages_, &QStackedWidget::setCurrentIndex);
    connect(managedApps_, &ManagedAppsPage::addAppsRequested, this, [this] { showPage(Page::addApps); });
    connect(activity_, &ActivityPage::showLogRequested, this, &MainWindow::showLog);
    connect(damageButton, &QPushButton::clicked, this, &MainWindow::confirmStartFromDefaults);
    connect(dismiss, &QPushButton::clicked, problemBanner_, &QWidget::hide);
    connect(&context_.session, &ConfigSession::damageChanged, this, &MainWindow::showDamage);
    connect(&context_.session, &ConfigSession::failed, this, &MainWindow::showProblem);
    connect(&context_.managedApps, &ManagedAppsModel::notice, this, &MainWindow::showNotice);
    connect(&context_.addApps, &AddAppsModel::notice, this, &MainWindow::showNotice);
    connect(&context_.settings, &SettingsModel::notice, this, &MainWindow::showProblem);
    // The pages show an action's whole outcome; the status line its first line.
    auto showOutcome = [this](const QString& text, bool) { showNotice(text.section(QLatin1Char('\n'), 0, 0)); };
    connect(&context_.startupItems, &StartupItemsModel::finished, this, showOutcome);
    connect(&context_.helpers, &HeldHelpersModel::finished, this, showOutcome);

    buildMenus();
    statusBar()->setSizeGripEnabled(false);
    sidebar_->setCurrentRow(0);
    showDamage();
}

void MainWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    QAction* add = file->addAction(QStringLiteral("Add Apps\u2026"), this, [this] { showPage(Page::addApps); });
    add->setShortcut(QKeySequence::Open);
    QAction* test = file->addAction(QStringLiteral("Test the Network Now"), this, [this] {
        showPage(Page::activity);
        context_.networkTest.start();
    });
    test->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_T));
    file->addSeparator();
    QAction* settings = file->addAction(QStringLiteral("Settings\u2026"), this, [this] { showPage(Page::settings); });
    settings->setShortcut(QKeySequence::Preferences);
    settings->setMenuRole(QAction::PreferencesRole);
    QAction* close = file->addAction(QStringLiteral("Close Window"), this, &QWidget::close);
    close->setShortcut(QKeySequence::Close);
    QAction* quit = file->addAction(QStringLiteral("Quit Holdenmere"), this, &MainWindow::quitRequested);
    quit->setShortcut(QKeySequence::Quit);
    quit->setMenuRole(QAction::QuitRole);

    QMenu* view = menuBar()->addMenu(QStringLiteral("&View"));
    for (Page page : {Page::managedApps, Page::addApps, Page::startupItems, Page::activity, Page::settings}) {
        const int index = indexOf(page);
        QAction* action = view->addAction(pageTitle(index), this, [this, page] { showPage(page); });
        action->setShortcut(QKeySequence(Qt::CTRL | static_cast<Qt::Key>(Qt::Key_1 + static_cast<int>(page))));
    }

    QMenu* help = menuBar()->addMenu(QStringLiteral("&Help"));
    help->addAction(QStringLiteral("Show Log"), this, &MainWindow::showLog);
    QAction* about = help->addAction(QStringLiteral("About Holdenmere"), this, [this] {
        QMessageBox::about(this, QStringLiteral("About Holdenmere"),
                           QStringLiteral("Holdenmere opens your login apps once the network really answers."));
    });
    about->setMenuRole(QAction::AboutRole);
}

int MainWindow::addPage(const QString& title, const QIcon& icon, QWidget* page, int position) {
    if (position < 0 || position > pages_->count()) position = pages_->count();
    pages_->insertWidget(position, page);
    sidebar_->insertItem(position, new QListWidgetItem(icon, title));
    return position;
}

int MainWindow::indexOf(Page page) const {
    switch (page) {
        case Page::managedApps: return pages_->indexOf(managedApps_);
        case Page::addApps: return pages_->indexOf(addApps_);
        case Page::startupItems: return pages_->indexOf(startupItems_);
        case Page::activity: return pages_->indexOf(activity_);
        case Page::settings: return pages_->indexOf(settings_);
    }
    return -1;
}

void MainWindow::showPage(Page page) { showPageAt(indexOf(page)); }

void MainWindow::showPageAt(int index) { sidebar_->setCurrentRow(index); }

int MainWindow::pageCount() const { return pages_->count(); }

QWidget* MainWindow::pageAt(int index) const { return pages_->widget(index); }

QString MainWindow::pageTitle(int index) const {
    QListWidgetItem* item = sidebar_->item(index);
    return item ? item->text() : QString();
}

void MainWindow::showNotice(const QString& text) {
    if (!text.isEmpty()) statusBar()->showMessage(text, kNoticeMilliseconds);
}

void MainWindow::showProblem(const QString& text) {
    problemText_->setText(text);
    problemBanner_->setVisible(!text.isEmpty());
}

QString MainWindow::problemText() const { return problemBanner_->isVisible() ? problemText_->text() : QString(); }

void MainWindow::showDamage() {
    const bool damaged = context_.session.isDamaged();
    damageText_->setText(QStringLiteral("<b>Holdenmere cannot read its settings file, so it changes nothing.</b><br>"
                                        "%1<br>%2")
                             .arg(context_.session.damage().toHtmlEscaped(),
                                  QString::fromStdString(context_.session.store().url.string()).toHtmlEscaped()));
    damageBanner_->setVisible(damaged);
    for (int index = 0; index < pages_->count(); ++index) {
        QWidget* page = pages_->widget(index);
        // The activity page reads only the history and the log.
        if (page != activity_) page->setEnabled(!damaged);
    }
    if (!damaged) problemBanner_->hide();
}

void MainWindow::confirmStartFromDefaults() {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Start from Defaults"),
                    QStringLiteral("Start from the default settings?"), QMessageBox::Cancel, this);
    box.setInformativeText(
        QStringLiteral("Holdenmere keeps the damaged file as %1 and carries over every record of what it switched "
                       "off that can still be read, so that Give Everything Back keeps working. Your list of apps "
                       "starts empty; the run history is kept.")
            .arg(QString::fromStdString(context_.session.damagedCopyPath().filename().string())));
    box.addButton(QStringLiteral("Start from Defaults"), QMessageBox::AcceptRole);
    box.exec();
    if (box.buttonRole(box.clickedButton()) == QMessageBox::AcceptRole) startFromDefaults();
}

void MainWindow::startFromDefaults() {
    auto started = context_.session.startFromDefaults();
    if (!started) return;
    // What was lost stays in view until dismissed; the rest is a notice.
    const QString text = QString::fromStdString(started->text());
    if (started->isComplete()) {
        showNotice(text);
    } else {
        showProblem(text);
    }
}

void MainWindow::showLog() {
    const QString path = QString::fromStdString(context_.services.logPath().string());
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(path))) {
        showProblem(QStringLiteral("Could not open the log at %1.").arg(path));
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    context_.preferences.setWindowGeometry(saveGeometry());
    QMainWindow::closeEvent(event);
}

}  // namespace holdenmere::desktop
