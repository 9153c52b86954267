#pragma once

#include <QDialog>
#include <QPointer>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"
#include "desktop/VNProgressWindow.h"
#include "git/VNGitPushBranchEntry.h"
#include "handler/VNRepoHandler.h"

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;
class VNRepoHandlerGit;
class VNRepoHandlerMercurial;

namespace vn::desktop {

// What the sheets show of the repository, read off the GUI thread when a sheet opens.
struct VNRemoteSheetData {
    std::vector<vn::Record> remotes;  // "name" and "path"
    std::vector<std::string> localBranches;
    std::string currentBranch;
    vn::Record upstreams;                     // local branch to "remote/branch"
    std::vector<std::string> remoteBranches;  // "remote/branch"
    bool rebaseInProgress = false;
};

// What the push, pull and fetch sheets share: the repository, the remote choice, and a run of
// the sheet's tasks in a progress window. A sheet that fails stays open so the user can change
// a choice and try again. For Mercurial the remotes are the paths of the repository's hgrc.
class VNRemoteSheet : public QDialog {
    Q_OBJECT
  public:
    VNRemoteSheet(std::shared_ptr<VNRepoHandler> handler, std::string path,
                  QWidget* parent = nullptr);

    QComboBox* remoteChoice() const { return remote_; }
    // The last run's window, while it is open.
    VNProgressWindow* progressWindow() const { return progress_; }
    // Reads the remotes (and what the sheet shows of them) off the GUI thread.
    void load();
    bool loaded() const { return loaded_; }
    // Builds the sheet's tasks and runs them; answers whether a run started.
    virtual bool start() = 0;

  Q_SIGNALS:
    void remotesLoaded();
    // The run ended with the task runner's result (1 for success; a pull that stopped at
    // conflicts gives ConflictsResult, one that left a merge to commit MergeToCommitResult).
    void runEnded(int result);
    // The repository's references changed: the window reads them again (working copy too when
    // `workingCopy` is set).
    void refreshRequested(bool workingCopy, bool metadata);
    // The branches' ahead/behind counts against their upstreams may have changed; they are
    // worked out again from what is here, without asking the remote.
    void remoteStatusCheckRequested();

  protected:
    // Fills the sheet once the repository was read.
    virtual void loadExtra(const VNRemoteSheetData& data);
    // The selected remote's name; empty for the sheet's "every remote" choice.
    std::string selectedRemote() const;
    // Chooses the remote called `name` when there is one.
    void selectRemote(const std::string& name);
    void runTasks(VNTaskList tasks, const QString& title,
                  const std::vector<std::string>& progressCommands);
    // Reacts to the end of a run; must end with endRun().
    virtual void runFinished(int result) = 0;
    void endRun(int result) { Q_EMIT runEnded(result); }
    // Closes the sheet with `code`; a progress window still showing git's words outlives it.
    void closeWith(int code);
    void addRemoteItems(const std::vector<vn::Record>& remotes);
    // Lays out a plain sheet: `form`, the switches under it, then Cancel and `goText`, which
    // starts the run.
    void layOutPlainSheet(QFormLayout* form, std::initializer_list<QWidget*> switches,
                          const QString& goText);

    std::shared_ptr<VNRepoHandler> handler_;
    // The same handler as what it is: the Git sheets are made only with Git's, the Mercurial
    // ones only with Mercurial's.
    std::shared_ptr<VNRepoHandlerGit> git_;
    std::shared_ptr<VNRepoHandlerMercurial> hg_;
    std::string path_;
    QComboBox* remote_;
    QPointer<VNProgressWindow> progress_;
    VNRemoteSheetData data_;
    bool loaded_ = false;
};

// Pushes the chosen branches, each to the branch of the remote named in its row, setting or
// removing the upstream as its Track box says.
class VNPushSheet : public VNRemoteSheet {
    Q_OBJECT
  public:
    enum Column { PushColumn, LocalColumn, RemoteBranchColumn, TrackColumn, ColumnCount };
    // The item of the remote choice that takes a URL.
    static constexpr const char* CustomRemote = "\x01custom";

    VNPushSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                QWidget* parent = nullptr);

    QTableWidget* branchTable() const { return branches_; }
    QLineEdit* urlField() const { return url_; }
    QCheckBox* forceBox() const { return force_; }
    QCheckBox* tagsBox() const { return tags_; }
    // The rows as the push list gets them.
    std::vector<VNGitPushBranchEntry> pushList() const;
    bool start() override;

  protected:
    void loadExtra(const VNRemoteSheetData& data) override;
    void runFinished(int result) override;

  private:
    void fillBranches();
    // A chosen remote shows its URL read-only; "Custom URL" gives back what was typed there.
    void showSelectedUrl();

    QTableWidget* branches_;
    QLineEdit* url_;
    QString customUrl_;
    QCheckBox* force_;
    QCheckBox* tags_;
};

// Fetches the chosen remote branch and merges (or rebases onto) it. While a rebase is under
// way the sheet offers to continue or abort it instead.
class VNPullSheet : public VNRemoteSheet {
    Q_OBJECT
  public:
    // Results beside the progress window's own: the pull stopped at conflicts to resolve, or
    // merged without committing (the merge waits in the index for its commit).
    static constexpr int ConflictsResult = 96;
    static constexpr int MergeToCommitResult = 98;

    VNPullSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                QWidget* parent = nullptr);
    QComboBox* branchChoice() const { return branch_; }
    QCheckBox* rebaseBox() const { return rebase_; }
    QCheckBox* noFastForwardBox() const { return noFastForward_; }
    QPushButton* continueRebaseButton() const { return continueRebase_; }
    QPushButton* abortRebaseButton() const { return abortRebase_; }
    bool start() override;
    // Runs `git rebase --continue` (or "--skip" when nothing is left to commit) or
    // `git rebase --abort`; answers whether it started. The run follows a look at what is left,
    // which takes place off the GUI thread.
    bool continueRebase();
    bool abortRebase();
    // What a run's result becomes once the repository's state is known: a failed pull that
    // left conflicts or an operation in progress, or a success that left a merge uncommitted.
    static int classifyPullResult(int result, const vn::Record& summary);

  protected:
    void loadExtra(const VNRemoteSheetData& data) override;
    void runFinished(int result) override;

  private:
    void fillBranches();
    void showRebaseState(bool inProgress);
    bool runRebaseStep(bool abort);

    QComboBox* branch_;
    QCheckBox* rebase_;
    QCheckBox* noFastForward_;
    QLabel* rebaseNote_;
    QPushButton* continueRebase_;
    QPushButton* abortRebase_;
    QPushButton* pullButton_;
    bool rebaseStepRunning_ = false;
};

// Fetches one remote or all of them.
class VNFetchSheet : public VNRemoteSheet {
    Q_OBJECT
  public:
    static constexpr const char* PruneKey = "gitFetchPrune";

    VNFetchSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                 QWidget* parent = nullptr);
    QCheckBox* pruneBox() const { return prune_; }
    QCheckBox* tagsBox() const { return tags_; }
    bool start() override;

  protected:
    void loadExtra(const VNRemoteSheetData& data) override;
    void runFinished(int result) override;

  private:
    QCheckBox* prune_;
    QCheckBox* tags_;
};

// Pushes to a Mercurial path: every branch, or only the working copy's branch; a push that
// would make new heads there needs Force. New named branches are pushed without asking.
class VNMercurialPushSheet : public VNRemoteSheet {
    Q_OBJECT
  public:
    VNMercurialPushSheet(std::shared_ptr<VNRepoHandlerMercurial> handler, std::string path,
                         QWidget* parent = nullptr);
    QCheckBox* currentBranchOnlyBox() const { return currentOnly_; }
    QCheckBox* forceBox() const { return force_; }
    bool start() override;

  protected:
    void loadExtra(const VNRemoteSheetData& data) override;
    void runFinished(int result) override;

  private:
    QCheckBox* currentOnly_;
    QCheckBox* force_;
};

// Pulls from a Mercurial path, then does what the user chose: nothing (what Git calls a fetch),
// update, rebase, or fetch's merge. The choice starts from the "mercurialPostPullAction"
// preference.
class VNMercurialPullSheet : public VNRemoteSheet {
    Q_OBJECT
  public:
    VNMercurialPullSheet(std::shared_ptr<VNRepoHandlerMercurial> handler, std::string path,
                         QWidget* parent = nullptr);
    // Items carry the action (VNRepoHandlerMercurial::PostPullAction).
    QComboBox* actionChoice() const { return action_; }
    bool start() override;

  protected:
    void loadExtra(const VNRemoteSheetData& data) override;
    void runFinished(int result) override;

  private:
    QComboBox* action_;
};

}  // namespace vn::desktop
