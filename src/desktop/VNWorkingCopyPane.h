#pragma once

#include <QWidget>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Record.h"
#include "handler/VNHunkActions.h"
#include "handler/VNRepoHandler.h"

class QAction;
class QLabel;
class QListView;
class QPushButton;
class QToolBar;
class VNDiffView;
class VNFileListModel;

// The working copy's changes: the staged files and the unstaged ones (untracked and conflicted
// files among them) in two lists, buttons to stage, unstage and discard the chosen files, and
// the diff of the chosen files below, where single hunks and lines can be staged, unstaged and
// discarded (from the bar above it, its context menu or keys). Status, diffs and file and hunk
// operations run off the GUI thread;
// every answer carries the generation of its request, and an answer to a request that a newer
// one has replaced is dropped.
class VNWorkingCopyPane : public QWidget {
    Q_OBJECT
  public:
    VNWorkingCopyPane(std::shared_ptr<VNRepoHandler> handler, std::string path,
                      QWidget* parent = nullptr);
    ~VNWorkingCopyPane() override;

    // Reads the status again (and the diff of the chosen files).
    void refresh();

    // The chosen files of each list, as paths relative to the working copy.
    std::vector<std::string> selectedStagedFiles() const;
    std::vector<std::string> selectedUnstagedFiles() const;
    void stageSelected();
    void unstageSelected();
    // Asks first; answers whether it went ahead.
    bool discardSelected();

    // Runs a hunk action on the diff view's choice: the hunk actions on every hunk holding a
    // chosen row (or the current row), the line actions on the chosen rows. Discarding asks
    // first. Answers whether the action started.
    bool performHunkAction(VNHunkActions::Action action);
    // The action that runs `performHunkAction(action)`, as the bar and the menu show it.
    QAction* hunkAction(VNHunkActions::Action action) const;
    // Chooses the rows of hunk `hunk` of `file` in the diff shown (its last hunk when it has
    // fewer) and scrolls to it; answers whether the file is shown.
    bool chooseHunk(const std::string& file, std::size_t hunk);

    VNFileListModel* stagedModel() const { return stagedModel_; }
    VNFileListModel* unstagedModel() const { return unstagedModel_; }
    QListView* stagedList() const { return stagedList_; }
    QListView* unstagedList() const { return unstagedList_; }
    VNDiffView* diffView() const { return diffView_; }
    // What the last file operation and the last status read said of their failures; empty
    // when both worked.
    QString errorText() const;

  signals:
    // A file operation changed the working copy.
    void workingCopyChanged();
    // The lists show a new status.
    void statusRefreshed();
    // The diff view shows the diff of the chosen files (or its placeholder).
    void diffShown();
    // A hunk action ended (its outcome is in errorText()); the refresh follows.
    void hunkActionFinished();

  private:
    enum class Side { Staged, Unstaged };
    void applyStatus(const VNWorkingCopyStatus& status);
    void listSelectionChanged(Side side);
    void showDiff();
    // Runs the file operation's tasks off the GUI thread, then refreshes.
    void runFileOperation(std::function<VNTaskList()> tasks, std::vector<std::string> deleteFiles);
    std::vector<std::string> selectedPaths(Side side, bool withPreviousNames) const;
    void updateButtons();
    void showErrors();
    void createHunkActions();
    void updateHunkActions();
    // Chooses the hunk the last hunk action left nearest, once the new diff is shown.
    void focusPendingHunk();

    std::shared_ptr<VNRepoHandler> handler_;
    std::string path_;
    // False for systems without an index (Mercurial): one list of changes, no staging.
    bool staging_ = true;
    VNFileListModel* stagedModel_ = nullptr;
    VNFileListModel* unstagedModel_ = nullptr;
    QListView* stagedList_ = nullptr;
    QListView* unstagedList_ = nullptr;
    QPushButton* stageButton_ = nullptr;
    QPushButton* unstageButton_ = nullptr;
    QPushButton* discardButton_ = nullptr;
    QLabel* errorLabel_ = nullptr;
    QToolBar* hunkBar_ = nullptr;
    std::vector<std::pair<VNHunkActions::Action, QAction*>> hunkActions_;
    // Where the last hunk action acted, to choose the nearest hunk in the diff that follows.
    struct HunkFocus {
        std::string file;
        std::size_t hunk = 0;
    };
    std::optional<HunkFocus> pendingFocus_;
    VNDiffView* diffView_ = nullptr;
    Side diffSide_ = Side::Unstaged;
    uint64_t statusGeneration_ = 0;
    uint64_t diffGeneration_ = 0;
    bool operationRunning_ = false;
    QString operationError_;  // the last file operation's failure, until the next one starts
    QString statusError_;
};
