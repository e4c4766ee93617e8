#pragma once

#include <QDialog>
#include <QWidget>

#include <string>
#include <vector>

#include "app/desktop/startup_items_model.h"

class QLabel;
class QListWidget;
class QPushButton;
class QVBoxLayout;

namespace holdenmere::desktop {

// The consent sheet: what taking startup items over means, the apps found
// (ticked: Holdenmere starts them; unticked: left to macOS), and the choice
// to grant or decline.
class StartupConsentDialog : public QDialog {
    Q_OBJECT

public:
    enum class Choice { none, granted, declined };

    StartupConsentDialog(const std::vector<StartupItemRow>& items, const std::vector<std::string>& leftToMacOS,
                         QWidget* parent = nullptr);

    Choice choice() const { return choice_; }
    // The apps unticked in the list.
    std::vector<std::string> leftToMacOS() const;

    QListWidget* list() const { return list_; }
    QPushButton* grantButton() const { return grant_; }
    QPushButton* declineButton() const { return decline_; }

    static QString explanation();

private:
    QListWidget* list_;
    QPushButton* grant_;
    QPushButton* decline_;
    Choice choice_ = Choice::none;
};

// What macOS starts at login: the managed apps it also starts (with a
// button to end that), the apps Holdenmere could take over, and what it
// leaves alone with the reason; the consent state and giving everything back.
class StartupItemsPage : public QWidget {
    Q_OBJECT

public:
    explicit StartupItemsPage(StartupItemsModel& model, QWidget* parent = nullptr);

    // Asks for consent with the sheet, and saves the answer.
    void askConsent();
    // The button of an item's or a conflict's row ("Take Over", "End").
    QPushButton* buttonFor(const std::string& bundleIdentifier) const;
    QString resultText() const;
    // A panel shown below the items (the startup inventory).
    void addPanel(QWidget* panel);

protected:
    void showEvent(QShowEvent* event) override;

private:
    // The page as the model has it now: its state, then the rows of each
    // section.
    void rebuild();
    void showState(bool busy);
    void clearRows();
    void addSection(const QString& title, const QString& explanation);
    // The managed apps macOS also starts, each with the button that ends it.
    void addConflictRows(bool busy);
    // The apps Holdenmere can take over, each with its button.
    void addItemRows(bool busy);
    // What is left alone, with why.
    void addIneligibleRows();
    void takeOver(const std::string& bundleIdentifier);
    void endConflict(const std::string& bundleIdentifier);
    void giveBack();
    void showResult(const QString& text, bool ok);
    void askConsentIfDue();

    StartupItemsModel& model_;
    QVBoxLayout* extras_;
    QLabel* consent_;
    QPushButton* decide_;
    QPushButton* giveBack_;
    QPushButton* rescan_;
    QLabel* scanning_;
    QLabel* problem_;
    QLabel* result_;
    QWidget* rows_;
    QVBoxLayout* rowsLayout_;
    bool askPending_ = false;
};

}  // namespace holdenmere::desktop
