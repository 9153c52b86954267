#pragma once

#include <QPointer>
#include <QWidget>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "desktop/VNFileListModel.h"
#include "desktop/VNProgressWindow.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class VNRepoHandler;
class VNRepoHandlerGit;
class VNRepoHandlerMercurial;

namespace vn::desktop {

// The message and choices of the next commit, under the working-copy lists: a subject line and
// a body, the remembered messages, an author override, amend (which brings back the last
// commit's message), and for Git sign-off, hook bypass and signing. In Git it commits what is
// staged; when nothing is, the files chosen in the unstaged list (adding the untracked ones) or,
// when none are chosen and the user agrees, every tracked change. Mercurial has no staging: the
// chosen files, or every change when none are chosen. Files to be added or removed are
// confirmed first. The commit runs off the GUI thread; the push that may follow it runs in a
// progress window.
class VNCommitPane : public QWidget {
    Q_OBJECT
  public:
    // Preference keys of the remembered messages and of the confirmations one may silence.
    static constexpr const char* HistoryKey = "commitMessageHistory";
    static constexpr const char* SuppressEmptyKey = "suppressWarnOnEmptyCommit";
    static constexpr const char* SuppressAmendKey = "gitSuppressWarnOnAmend";
    // Silences both the confirmation of files to add and that of files to remove.
    static constexpr const char* SuppressAddKey = "suppressAddCommitWarning";
    static constexpr int HistoryLimit = 20;
    // Past this many characters a subject line is shown as too long.
    static constexpr int SubjectLimit = 50;

    // For a Git or a Mercurial working copy.
    VNCommitPane(std::shared_ptr<VNRepoHandler> handler, std::string path,
                 QWidget* parent = nullptr);

    // The message as git gets it: the subject, a blank line, the body.
    QString message() const;
    void setMessage(const QString& message);
    // Whether the working copy has staged changes; the window keeps it current.
    void setStagedCount(int count);
    // The unstaged side of the working copy and the paths chosen in it; the window keeps them
    // current. Their statuses tell which files a commit would add or remove.
    void setUnstagedChanges(std::vector<VNFileListModel::Entry> entries);
    void setSelectedFiles(std::vector<std::string> paths);

    // Where a push after the commit goes: the branch's upstream, or, for a branch without one,
    // the same name on "origin" (or on the only remote), which it then tracks. In Mercurial the
    // path hg pushes to when none is named, with the branch left to hg.
    struct PushTarget {
        std::string remote;
        std::string localBranch;
        std::string remoteBranch;
        bool setUpstream = false;
    };
    // Empty with the reason in `why` for a detached HEAD or a repository without remotes.
    static std::optional<PushTarget> pushTargetFor(VNRepoHandlerGit& handler,
                                                   const std::string& path, QString* why);
    static std::optional<PushTarget> pushTargetFor(VNRepoHandlerMercurial& handler,
                                                   const std::string& path, QString* why);

    // Puts the message git prepared for a merge it stopped before committing into an empty
    // editor, without git's comment lines.
    void loadMergeMessage();

    // Asks what has to be asked and starts the commit; answers whether it started.
    bool commit();
    bool busy() const { return busy_; }
    QString errorText() const;

    QLineEdit* subjectField() const { return subject_; }
    QPlainTextEdit* bodyField() const { return body_; }
    QLineEdit* authorField() const { return author_; }
    QCheckBox* amendBox() const { return amend_; }
    QCheckBox* signoffBox() const { return signoff_; }
    QCheckBox* bypassHooksBox() const { return bypassHooks_; }
    QCheckBox* signBox() const { return sign_; }
    QComboBox* keyChoice() const { return keys_; }
    QComboBox* historyChoice() const { return history_; }
    QPushButton* commitButton() const { return commitButton_; }
    QCheckBox* pushAfterBox() const { return pushAfter_; }
    // The window of the last push after a commit, while it is open.
    VNProgressWindow* pushProgressWindow() const { return pushProgress_; }

    // The remembered messages, newest first.
    static QStringList rememberedMessages();
    static void rememberMessage(const QString& message);

  Q_SIGNALS:
    // A commit was made (the lists and the history have to be read again).
    void committed();
    // The commit failed; git's words are in errorText().
    void commitFailed();
    // The previous message was put into the editor for an amend.
    void amendMessageLoaded();
    // loadMergeMessage() has read the merge message (and used it when the editor was empty).
    void mergeMessageLoaded();
    // The push after a commit ended with the progress window's result (1 for success).
    void pushFinished(int result);

  private:
    void amendToggled(bool on);
    void loadHistoryChoice();
    void loadKeys();
    void updateHint();
    void setError(const QString& text);
    // A confirmation that a preference may silence; answers whether to go on.
    bool confirm(const char* suppressKey, const QString& title, const QString& text,
                 const QString& goOn);
    // The paths among `paths` whose unstaged status is `status`.
    std::vector<std::string> withStatus(const std::vector<std::string>& paths,
                                        uint64_t status) const;
    void startPush(const PushTarget& target);

    std::shared_ptr<VNRepoHandler> handler_;
    // The same handler as what it is; exactly one is set.
    std::shared_ptr<VNRepoHandlerGit> git_;
    std::shared_ptr<VNRepoHandlerMercurial> hg_;
    std::string path_;
    QLineEdit* subject_;
    QLabel* hint_;
    QPlainTextEdit* body_;
    QComboBox* history_;
    QLineEdit* author_;
    QCheckBox* amend_;
    QCheckBox* signoff_;
    QCheckBox* bypassHooks_;
    QCheckBox* sign_;
    QComboBox* keys_;
    QCheckBox* pushAfter_;
    QPushButton* commitButton_;
    QLabel* error_;
    int stagedCount_ = 0;
    std::vector<VNFileListModel::Entry> unstaged_;
    std::vector<std::string> selected_;
    QPointer<VNProgressWindow> pushProgress_;
    bool busy_ = false;
    // The message that was in the editor before amend brought back the last one.
    QString draftBeforeAmend_;
    QString amendMessage_;
};

}  // namespace vn::desktop
