#pragma once

#include <QWidget>

#include "app/desktop/add_apps_model.h"

class QLineEdit;
class QListWidget;
class QPushButton;

namespace holdenmere::desktop {

// The installed apps, suggestions first, with a search field; adding the
// selected ones, or any other bundle through a file dialog.
class AddAppsPage : public QWidget {
    Q_OBJECT

public:
    explicit AddAppsPage(AddAppsModel& model, QWidget* parent = nullptr);

    // Reads the Applications folders the first time the page is shown.
    void ensureScanned();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void rebuild();
    void addSelected();
    void chooseOther();

    AddAppsModel& model_;
    QLineEdit* search_;
    QListWidget* list_;
    QPushButton* add_;
};

}  // namespace holdenmere::desktop
