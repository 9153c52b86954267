#pragma once

#include <QWidget>

#include <memory>
#include <string>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class VNRepoHandlerGit;

namespace vn::desktop {

// The message and choices of the next commit, under the working-copy lists: a subject line and
// a body, the remembered messages, an author override, amend (which brings back the last
// commit's message), sign-off, hook bypass and signing. Commits what is staged, or, when nothing
// is and the user agrees, every tracked change. The commit runs off the GUI thread.
class VNCommitPane : public QWidget {
    Q_OBJECT
  public:
    // Preference keys of the remembered messages and of the confirmations one may silence.
    static constexpr const char* HistoryKey = "commitMessageHistory";
    static constexpr const char* SuppressEmptyKey = "suppressWarnOnEmptyCommit";
    static constexpr const char* SuppressAmendKey = "gitSuppressWarnOnAmend";
    static constexpr int HistoryLimit = 20;
    // Past this many characters a subject line is shown as too long.
    static constexpr int SubjectLimit = 50;

    VNCommitPane(std::shared_ptr<VNRepoHandlerGit> handler, std::string path,
                 QWidget* parent = nullptr);

    // The message as git gets it: the subject, a blank line, the body.
    QString message() const;
    void setMessage(const QString& message);
    // Whether the working copy has staged changes; the window keeps it current.
    void setStagedCount(int count);

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

  private:
    void amendToggled(bool on);
    void loadHistoryChoice();
    void loadKeys();
    void updateHint();
    void setError(const QString& text);
    // A confirmation that a preference may silence; answers whether to go on.
    bool confirm(const char* suppressKey, const QString& title, const QString& text,
                 const QString& goOn);

    std::shared_ptr<VNRepoHandlerGit> handler_;
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
    QPushButton* commitButton_;
    QLabel* error_;
    int stagedCount_ = 0;
    bool busy_ = false;
    // The message that was in the editor before amend brought back the last one.
    QString draftBeforeAmend_;
    QString amendMessage_;
};

}  // namespace vn::desktop
