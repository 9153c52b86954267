#pragma once

#include <QWidget>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"
#include "handler/VNRepoHandler.h"

class QLabel;
class QListView;
class QPushButton;
class VNDiffView;
class VNFileListModel;

// The working copy's changes: the staged files and the unstaged ones (untracked and conflicted
// files among them) in two lists, buttons to stage, unstage and discard the chosen files, and
// the diff of the chosen files below. Status, diffs and file operations run off the GUI thread;
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
    VNDiffView* diffView_ = nullptr;
    Side diffSide_ = Side::Unstaged;
    uint64_t statusGeneration_ = 0;
    uint64_t diffGeneration_ = 0;
    bool operationRunning_ = false;
    QString operationError_;  // the last file operation's failure, until the next one starts
    QString statusError_;
};
