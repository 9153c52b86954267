#pragma once

#include <QDialog>
#include <QPointer>

#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"
#include "desktop/VNProgressWindow.h"
#include "git/VNGitPushBranchEntry.h"
#include "handler/VNRepoHandler.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QTableWidget;
class VNRepoHandlerGit;

namespace vn::desktop {

// What the sheets show of the repository, read off the GUI thread when a sheet opens.
struct VNRemoteSheetData {
    std::vector<vn::Record> remotes;  // "name" and "path"
    std::vector<std::string> localBranches;
    std::string currentBranch;
    vn::Record upstreams;                     // local branch to "remote/branch"
    std::vector<std::string> remoteBranches;  // "remote/branch"
};

// What the push, pull and fetch sheets share: the repository, the remote choice, and a run of
// the sheet's tasks in a progress window. A sheet that fails stays open so the user can change
// a choice and try again.
class VNRemoteSheet : public QDialog {
    Q_OBJECT
  public:
    VNRemoteSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
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
    // The run ended with the task runner's result (1 for success).
    void runEnded(int result);
    // The repository's references changed: the window reads them again (working copy too when
    // `workingCopy` is set).
    void refreshRequested(bool workingCopy, bool metadata);

  protected:
    // Fills the sheet once the repository was read.
    virtual void loadExtra(const VNRemoteSheetData& data);
    // The selected remote's name; empty for the sheet's "every remote" choice.
    std::string selectedRemote() const;
    void runTasks(VNTaskList tasks, const QString& title,
                  const std::vector<std::string>& progressCommands);
    virtual void runFinished(int result) = 0;
    void addRemoteItems(const std::vector<vn::Record>& remotes);

    std::shared_ptr<VNRepoHandlerGit> handler_;
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

    QTableWidget* branches_;
    QLineEdit* url_;
    QCheckBox* force_;
    QCheckBox* tags_;
};

// Fetches the chosen remote branch and merges (or rebases onto) it.
class VNPullSheet : public VNRemoteSheet {
    Q_OBJECT
  public:
    VNPullSheet(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                QWidget* parent = nullptr);
    QComboBox* branchChoice() const { return branch_; }
    QCheckBox* rebaseBox() const { return rebase_; }
    QCheckBox* noFastForwardBox() const { return noFastForward_; }
    bool start() override;

  protected:
    void loadExtra(const VNRemoteSheetData& data) override;
    void runFinished(int result) override;

  private:
    void fillBranches();

    QComboBox* branch_;
    QCheckBox* rebase_;
    QCheckBox* noFastForward_;
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

}  // namespace vn::desktop
