#pragma once

// The library window: the finished projects of the application model as a
// grid of covers with title, duration and date, in the model's order (newest
// first); an empty state that says how to record; the model's library
// message (failed recoveries, failed opens and deletes) above the grid; and a
// status line with the model's phase. Opening calls AppModel::openProject;
// deleting asks first (a window-modal dialog) and then calls
// AppModel::deleteProject. The window holds no state of its own beyond what
// it shows: every change comes from the model through its observer.
//
// The window sets the model's observer when made and clears it when
// destroyed; the model must outlive it. Colours come from the palette, so it
// follows the system's light or dark scheme.
//
// Object names, for style sheets and tests: "projectGrid" (a QListWidget whose
// items carry packageRole and coverShownRole), "emptyState", "libraryMessage",
// "openProjectButton", "deleteProjectButton", and "deleteConfirmation" for the
// dialog while it is open.

#include "app/model/AppModel.h"

#include <QMainWindow>
#include <filesystem>
#include <optional>
#include <set>
#include <vector>

class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QStackedWidget;

namespace rilo::ui {

class LibraryWindow final : public QMainWindow {
    Q_OBJECT

public:
    // The roles of the grid's items: the package path (QString), and whether
    // the item shows the project's cover yet (bool; false: a placeholder).
    static constexpr int packageRole = Qt::UserRole;
    static constexpr int coverShownRole = Qt::UserRole + 1;

    explicit LibraryWindow(AppModel& model);
    ~LibraryWindow() override;
    LibraryWindow(const LibraryWindow&) = delete;
    LibraryWindow& operator=(const LibraryWindow&) = delete;

    // Shows the model's state as it is now (the observer calls it).
    void showModelState();

protected:
    void changeEvent(QEvent* event) override;

private:
    void rebuildGrid();
    void showCovers();
    void showMessages();
    void showStatus();
    void updateButtons();
    std::optional<RecentProject> selectedProject() const;
    void openSelected();
    void askToDeleteSelected();

    AppModel& model_;
    QStackedWidget* pages_;
    QListWidget* grid_;
    QWidget* emptyState_;
    QLabel* message_;
    QPushButton* openButton_;
    QPushButton* deleteButton_;
    // What the grid shows, to rebuild it only when the list changed.
    std::vector<RecentProject> shownProjects_;
    std::set<std::filesystem::path> shownCovers_;
};

} // namespace rilo::ui
