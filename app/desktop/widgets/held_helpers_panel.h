#pragma once

#include <QWidget>

#include "app/desktop/held_helpers_model.h"

class QComboBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace holdenmere::desktop {

// The held helpers in Settings: one line per helper of a managed app with
// how it starts at login, the question to switch back on helpers that an
// earlier version left off, and what the last change did.
class HeldHelpersPanel : public QWidget {
    Q_OBJECT

public:
    explicit HeldHelpersPanel(HeldHelpersModel& model, QWidget* parent = nullptr);

    QComboBox* modeBox(const std::string& label) const;
    QPushButton* repairButton() const { return repair_; }
    QString messageText() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void rebuild();

    HeldHelpersModel& model_;
    QWidget* repairBanner_;
    QLabel* repairQuestion_;
    QPushButton* repair_;
    QWidget* rows_;
    QVBoxLayout* rowsLayout_;
    QLabel* empty_;
    QLabel* message_;
};

}  // namespace holdenmere::desktop
