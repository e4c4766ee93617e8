#pragma once

#include <QWidget>

#include "app/desktop/activity_model.h"
#include "app/desktop/network_test_model.h"

class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTreeWidget;

namespace holdenmere::desktop {

// What the login passes did, the last login's conflicts, and the network test.
class ActivityPage : public QWidget {
    Q_OBJECT

public:
    ActivityPage(ActivityModel& activity, NetworkTestModel& networkTest, QWidget* parent = nullptr);

signals:
    void showLogRequested();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void rebuildHistory();
    void showTest();

    ActivityModel& activity_;
    NetworkTestModel& networkTest_;
    QLabel* lastLogin_;
    QLabel* problem_;
    QTreeWidget* history_;
    QPushButton* test_;
    QPushButton* stop_;
    QProgressBar* busy_;
    QListWidget* attempts_;
    QLabel* summary_;
};

}  // namespace holdenmere::desktop
