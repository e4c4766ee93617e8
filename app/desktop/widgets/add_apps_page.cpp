#include "app/desktop/widgets/add_apps_page.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/desktop/app_icons.h"
#include "app/desktop/widgets/page_header.h"
#include "app/desktop/widgets/two_line_delegate.h"

namespace holdenmere::desktop {
namespace {

constexpr int kIdentifierRole = Qt::UserRole + 1;

QString text(const std::string& value) { return QString::fromStdString(value); }

QString subtitleOf(const AppChoice& choice) {
    switch (choice.mark) {
        case AppChoice::Mark::managed: return QStringLiteral("Already in your list");
        case AppChoice::Mark::blocked: return QStringLiteral("Switched off \u2014 adding it switches it back on");
        case AppChoice::Mark::noIdentifier: return QStringLiteral("No bundle identifier \u2014 cannot be opened at login");
        case AppChoice::Mark::none: break;
    }
    if (choice.suggested) return QStringLiteral("Suggested \u2014 %1").arg(text(choice.reason));
    if (!choice.reason.empty()) return text(choice.reason);
    if (choice.app.category) return text(categoryTitle(*choice.app.category));
    return text(choice.app.path.string());
}

QListWidgetItem* header(const QString& title) {
    auto* item = new QListWidgetItem(title);
    item->setData(TwoLineDelegate::kHeaderRole, true);
    item->setFlags(Qt::NoItemFlags);
    return item;
}

}  // namespace

AddAppsPage::AddAppsPage(AddAppsModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(pageHeader(QStringLiteral("Add Apps"),
                                 QStringLiteral("Apps that sign in, sync or fetch mail when they start are suggested "
                                                "first."),
                                 this));
    search_ = new QLineEdit(this);
    search_->setPlaceholderText(QStringLiteral("Search apps"));
    search_->setClearButtonEnabled(true);
    layout->addWidget(search_);
    list_ = new QListWidget(this);
    list_->setItemDelegate(new TwoLineDelegate(list_));
    list_->setIconSize(QSize(32, 32));
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    layout->addWidget(list_, 1);
    auto* buttons = new QHBoxLayout();
    auto* other = new QPushButton(QStringLiteral("Choose Another App\u2026"), this);
    auto* rescan = new QPushButton(QStringLiteral("Look Again"), this);
    rescan->setToolTip(QStringLiteral("Read the Applications folders again"));
    add_ = new QPushButton(QStringLiteral("Add"), this);
    add_->setDefault(true);
    buttons->addWidget(other);
    buttons->addWidget(rescan);
    buttons->addStretch();
    buttons->addWidget(add_);
    layout->addLayout(buttons);

    connect(search_, &QLineEdit::textChanged, &model_, &AddAppsModel::setQuery);
    connect(&model_, &AddAppsModel::choicesChanged, this, &AddAppsPage::rebuild);
    connect(list_, &QListWidget::itemSelectionChanged, this, [this] {
        const int count = static_cast<int>(list_->selectedItems().size());
        add_->setEnabled(count > 0);
        add_->setText(count > 1 ? QStringLiteral("Add %1 Apps").arg(count) : QStringLiteral("Add"));
    });
    connect(list_, &QListWidget::itemDoubleClicked, this, &AddAppsPage::addSelected);
    connect(add_, &QPushButton::clicked, this, &AddAppsPage::addSelected);
    connect(other, &QPushButton::clicked, this, &AddAppsPage::chooseOther);
    connect(rescan, &QPushButton::clicked, &model_, &AddAppsModel::rescan);
    add_->setEnabled(false);
}

void AddAppsPage::ensureScanned() {
    if (!model_.hasScanned()) model_.rescan();
}

void AddAppsPage::showEvent(QShowEvent* event) {
    ensureScanned();
    QWidget::showEvent(event);
}

void AddAppsPage::rebuild() {
    list_->clear();
    bool inSuggestions = false;
    bool inOthers = false;
    for (const AppChoice& choice : model_.choices()) {
        if (choice.suggested && !inSuggestions) {
            list_->addItem(header(QStringLiteral("Suggested")));
            inSuggestions = true;
        }
        if (!choice.suggested && !inOthers) {
            list_->addItem(header(QStringLiteral("All Apps")));
            inOthers = true;
        }
        auto* item = new QListWidgetItem(
            icons::forApp(choice.app.iconPath, text(choice.app.name), text(choice.app.bundleIdentifier)),
            text(choice.app.name));
        item->setData(kIdentifierRole, text(choice.app.bundleIdentifier));
        item->setData(TwoLineDelegate::kSubtitleRole, subtitleOf(choice));
        QStringList reasons;
        for (const NetworkReason& reason : choice.app.networkReasons) reasons << text(reason.text);
        item->setToolTip(reasons.isEmpty() ? text(choice.app.path.string()) : reasons.join(QLatin1Char('\n')));
        if (!choice.canAdd()) item->setFlags(Qt::ItemIsEnabled);
        list_->addItem(item);
    }
    if (model_.choices().empty() && model_.hasScanned()) {
        list_->addItem(header(search_->text().isEmpty() ? QStringLiteral("No apps found")
                                                         : QStringLiteral("No app matches \u201c%1\u201d")
                                                               .arg(search_->text())));
    }
}

void AddAppsPage::addSelected() {
    std::vector<std::string> identifiers;
    for (int row = 0; row < list_->count(); ++row) {
        QListWidgetItem* item = list_->item(row);
        if (item->isSelected()) identifiers.push_back(item->data(kIdentifierRole).toString().toStdString());
    }
    if (!identifiers.empty()) model_.add(identifiers);
}

void AddAppsPage::chooseOther() {
#ifdef __APPLE__
    // Application bundles are packages to the macOS open panel.
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Choose an App"),
                                                      QStringLiteral("/Applications"),
                                                      QStringLiteral("Applications (*.app)"));
#else
    const QString path = QFileDialog::getExistingDirectory(this, QStringLiteral("Choose an App"),
                                                           QStringLiteral("/Applications"));
#endif
    if (!path.isEmpty()) model_.addBundle(path.toStdString());
}

}  // namespace holdenmere::desktop
