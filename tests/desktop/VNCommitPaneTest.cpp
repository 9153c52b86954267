#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "PaneTestSupport.h"
#include "desktop/VNCommitPane.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNRepoWindow.h"
#include "desktop/VNWorkingCopyPane.h"
#include "git/VNRepoHandlerGit.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNFileStatusEntity.h"
#include "platform/Preferences.h"
#include "support/HgRepository.h"
#include "support/TestEnvironment.h"

namespace {

using vn::desktop::VNCommitPane;
using vn::desktop::VNProgressWindow;
using vn::test::answerNextMessageBox;
using vn::test::GitRepository;
using vn::test::TempDir;
using vn::test::waitUntil;
using vn::test::desktop::idleFor;

struct CommitFixture {
    GitRepository repo;
    std::unique_ptr<VNCommitPane> pane;
    CommitFixture() {
        for (const char* key : {VNCommitPane::HistoryKey, VNCommitPane::SuppressEmptyKey,
                                VNCommitPane::SuppressAmendKey, VNCommitPane::SuppressAddKey}) {
            vn::Preferences::standard().remove(key);
        }
        repo.commitFile("a.txt", "1\n", "base");
        pane = std::make_unique<VNCommitPane>(std::make_shared<VNRepoHandlerGit>(), repo.path());
        pane->resize(700, 220);
        pane->show();
    }
    // Starts the commit and waits for its end; answers whether a commit was made.
    bool commitAndWait() {
        QSignalSpy done(pane.get(), &VNCommitPane::committed);
        QSignalSpy failed(pane.get(), &VNCommitPane::commitFailed);
        if (!pane->commit()) {
            return false;
        }
        EXPECT_TRUE(waitUntil([&] { return done.count() + failed.count() > 0; }));
        return done.count() == 1;
    }
    std::string log(const char* format = "%s|%b") {
        return repo.git({"log", std::string("--format=") + format});
    }
};

TEST(VNCommitPane, CommitsTheStagedChangesWithSubjectBodyAndOptions) {
    CommitFixture f;
    f.repo.write("a.txt", "1\n2\n");
    f.repo.write("b.txt", "staged half\n");
    f.repo.git({"add", "b.txt"});
    f.pane->setStagedCount(1);
    f.pane->subjectField()->setText(QStringLiteral("  Add b: \"quoted\" \\ and ünïcode  "));
    f.pane->bodyField()->setPlainText(QStringLiteral("First line.\n\nSecond paragraph.\n\n\n"));
    f.pane->authorField()->setText(QStringLiteral("Other Person <other@example.com>"));
    f.pane->signoffBox()->setChecked(true);
    // A hook that always refuses, which the bypass has to skip.
    vn::test::writeScript(f.repo.file(".git/hooks"), "pre-commit", "exit 1\n");
    f.pane->bypassHooksBox()->setChecked(true);
    ASSERT_TRUE(f.commitAndWait()) << f.pane->errorText().toStdString();

    EXPECT_EQ(f.repo.git({"log", "-1", "--format=%B"}),
              "Add b: \"quoted\" \\ and ünïcode\n\nFirst line.\n\nSecond paragraph.\n\n"
              "Signed-off-by: Test Committer <committer@example.com>\n\n");
    EXPECT_EQ(f.repo.git({"log", "-1", "--format=%an <%ae>"}),
              "Other Person <other@example.com>\n");
    // Only the staged file went in; the unstaged change stays.
    EXPECT_EQ(f.repo.git({"show", "--format=", "--name-only", "HEAD"}), "b.txt\n");
    EXPECT_EQ(f.repo.git({"diff", "--name-only"}), "a.txt\n");
    // The editor is empty again and the message is remembered, newest first.
    EXPECT_TRUE(f.pane->message().isEmpty());
    ASSERT_EQ(VNCommitPane::rememberedMessages().size(), 1);
    EXPECT_TRUE(VNCommitPane::rememberedMessages()[0].startsWith(QStringLiteral("Add b:")));
    EXPECT_EQ(f.pane->historyChoice()->count(), 2);

    // Without the bypass the refusing hook stops the commit, and git's words are shown.
    f.pane->bypassHooksBox()->setChecked(false);
    f.pane->signoffBox()->setChecked(false);
    f.pane->authorField()->clear();
    f.repo.git({"add", "a.txt"});
    f.pane->setMessage(QStringLiteral("Blocked"));
    EXPECT_FALSE(f.commitAndWait());
    EXPECT_EQ(f.log("%s"), "Add b: \"quoted\" \\ and ünïcode\nbase\n");
    EXPECT_EQ(f.pane->message(), QStringLiteral("Blocked"));  // nothing typed is lost
}

TEST(VNCommitPane, AmendBringsBackTheLastMessageAndReplacesTheCommit) {
    CommitFixture f;
    f.repo.commitFile("b.txt", "b\n", "Second\n\nits body");
    std::string before = f.repo.git({"rev-parse", "HEAD"});
    f.pane->setMessage(QStringLiteral("draft"));
    QSignalSpy loaded(f.pane.get(), &VNCommitPane::amendMessageLoaded);
    f.pane->amendBox()->setChecked(true);
    ASSERT_TRUE(waitUntil([&] { return loaded.count() == 1; }));
    // A typed draft wins over the old message; unticking gives the draft back.
    EXPECT_EQ(f.pane->message(), QStringLiteral("draft"));
    f.pane->amendBox()->setChecked(false);
    f.pane->setMessage({});
    f.pane->amendBox()->setChecked(true);
    ASSERT_TRUE(waitUntil([&] { return loaded.count() == 2; }));
    EXPECT_EQ(f.pane->subjectField()->text(), QStringLiteral("Second"));
    EXPECT_EQ(f.pane->bodyField()->toPlainText(), QStringLiteral("its body"));

    // Declining the confirmation commits nothing.
    QString asked;
    answerNextMessageBox(QStringLiteral("Cancel"), &asked);
    EXPECT_FALSE(f.pane->commit());
    EXPECT_FALSE(asked.isEmpty());
    EXPECT_EQ(f.repo.git({"rev-parse", "HEAD"}), before);

    f.pane->subjectField()->setText(QStringLiteral("Second, reworded"));
    answerNextMessageBox(QStringLiteral("Amend"), &asked);
    ASSERT_TRUE(f.commitAndWait()) << f.pane->errorText().toStdString();
    EXPECT_NE(f.repo.git({"rev-parse", "HEAD"}), before);
    EXPECT_EQ(f.log("%s"), "Second, reworded\nbase\n");
    EXPECT_FALSE(f.pane->amendBox()->isChecked());

    // With the confirmation silenced, amend asks nothing.
    vn::Preferences::standard().set(VNCommitPane::SuppressAmendKey, true);
    f.pane->amendBox()->setChecked(true);
    ASSERT_TRUE(waitUntil([&] { return loaded.count() == 3; }));
    f.pane->subjectField()->setText(QStringLiteral("Third wording"));
    ASSERT_TRUE(f.commitAndWait());
    EXPECT_EQ(f.log("%s"), "Third wording\nbase\n");
}

TEST(VNCommitPane, NothingStagedAsksBeforeCommittingEveryTrackedChange) {
    CommitFixture f;
    f.repo.write("a.txt", "changed\n");
    f.repo.write("untracked.txt", "stays out\n");
    f.pane->setStagedCount(0);
    f.pane->setMessage(QStringLiteral("All of it"));
    QString asked;
    answerNextMessageBox(QStringLiteral("Cancel"), &asked);
    EXPECT_FALSE(f.pane->commit());
    EXPECT_FALSE(asked.isEmpty());
    EXPECT_EQ(f.log("%s"), "base\n");

    answerNextMessageBox(QStringLiteral("Commit All"), &asked);
    ASSERT_TRUE(f.commitAndWait()) << f.pane->errorText().toStdString();
    EXPECT_EQ(f.log("%s"), "All of it\nbase\n");
    EXPECT_EQ(f.repo.git({"show", "--format=", "--name-only", "HEAD"}), "a.txt\n");
    EXPECT_EQ(f.repo.git({"status", "--porcelain"}), "?? untracked.txt\n");

    // With nothing changed at all git refuses, and says why.
    f.pane->setMessage(QStringLiteral("Nothing"));
    answerNextMessageBox(QStringLiteral("Commit All"), &asked);
    EXPECT_FALSE(f.commitAndWait());
    EXPECT_FALSE(f.pane->errorText().isEmpty());
    EXPECT_EQ(f.log("%s"), "All of it\nbase\n");
}

TEST(VNCommitPane, AnEmptyMessageIsConfirmedUnlessSilenced) {
    CommitFixture f;
    f.repo.write("a.txt", "x\n");
    f.repo.git({"add", "a.txt"});
    f.pane->setStagedCount(1);
    QString asked;
    answerNextMessageBox(QStringLiteral("Cancel"), &asked);
    EXPECT_FALSE(f.pane->commit());
    EXPECT_FALSE(asked.isEmpty());
    answerNextMessageBox(QStringLiteral("Commit"), &asked);
    ASSERT_TRUE(f.commitAndWait());
    EXPECT_EQ(f.log("%s"), "no message\nbase\n");
    // An empty message is not remembered.
    EXPECT_TRUE(VNCommitPane::rememberedMessages().isEmpty());

    vn::Preferences::standard().set(VNCommitPane::SuppressEmptyKey, true);
    f.repo.write("a.txt", "y\n");
    f.repo.git({"add", "a.txt"});
    ASSERT_TRUE(f.commitAndWait());
    EXPECT_EQ(f.log("%s"), "no message\nno message\nbase\n");
}

TEST(VNCommitPane, MessagesSplitIntoSubjectAndBodyAndTheHistoryKeepsTheNewest) {
    CommitFixture f;
    struct Case {
        const char* text;
        const char* subject;
        const char* body;
        const char* message;
    };
    const Case cases[] = {
        {"One line", "One line", "", "One line"},
        {"Subject\n\nBody", "Subject", "Body", "Subject\n\nBody"},
        {"Subject\r\nBody right after\r\n", "Subject", "Body right after",
         "Subject\n\nBody right after"},
        {"Subject\n\n\n\nBody\n\n", "Subject", "Body", "Subject\n\nBody"},
        {"\nBody only", "", "Body only", "\n\nBody only"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        f.pane->setMessage(QString::fromUtf8(c.text));
        EXPECT_EQ(f.pane->subjectField()->text(), QString::fromUtf8(c.subject));
        EXPECT_EQ(f.pane->bodyField()->toPlainText(), QString::fromUtf8(c.body));
        EXPECT_EQ(f.pane->message(), QString::fromUtf8(c.message));
    }

    for (int i = 0; i < VNCommitPane::HistoryLimit + 5; ++i) {
        VNCommitPane::rememberMessage(QStringLiteral("message %1").arg(i));
    }
    VNCommitPane::rememberMessage(QStringLiteral("message 10"));
    VNCommitPane::rememberMessage(QStringLiteral("   "));
    QStringList remembered = VNCommitPane::rememberedMessages();
    ASSERT_EQ(remembered.size(), VNCommitPane::HistoryLimit);
    EXPECT_EQ(remembered[0], QStringLiteral("message 10"));
    EXPECT_EQ(remembered[1], QStringLiteral("message 24"));
    EXPECT_EQ(remembered.count(QStringLiteral("message 10")), 1);
}

// With nothing staged the pane commits the chosen files (or, without a choice, every tracked
// change); files the commit would add or remove are confirmed, and a cancel anywhere leaves the
// repository as it was.
TEST(VNCommitPane, ChosenOrAllChangesConfirmWhatTheCommitAddsOrRemoves) {
    struct Case {
        const char* name;
        std::vector<std::string> chosen;
        QStringList answers;
        bool silenced;
        int asked;            // message boxes shown
        const char* changed;  // git show --name-status of the new commit; null: no commit
        const char* status;   // git status --porcelain afterwards
    };
    const char* untouched = " M a.txt\n D b.txt\n?? new.txt\n?? other.txt\n";
    const std::vector<Case> cases = {
        {"cancel at the first question", {"a.txt"}, {"Cancel"}, false, 1, nullptr, untouched},
        {"a chosen tracked file asks nothing more",
         {"a.txt"},
         {"Commit Chosen"},
         false,
         1,
         "M\ta.txt\n",
         " D b.txt\n?? new.txt\n?? other.txt\n"},
        {"declining the addition adds nothing",
         {"new.txt", "a.txt"},
         {"Commit Chosen", "Cancel"},
         false,
         2,
         nullptr,
         untouched},
        {"an untracked file is added and committed",
         {"new.txt", "a.txt"},
         {"Commit Chosen", "Add and Commit"},
         false,
         2,
         "M\ta.txt\nA\tnew.txt\n",
         " D b.txt\n?? other.txt\n"},
        {"declining the removal keeps the file in the repository",
         {"b.txt"},
         {"Commit Chosen", "Cancel"},
         false,
         2,
         nullptr,
         untouched},
        {"a missing file is removed",
         {"b.txt"},
         {"Commit Chosen", "Remove and Commit"},
         false,
         2,
         "D\tb.txt\n",
         " M a.txt\n?? new.txt\n?? other.txt\n"},
        {"commit all asks about the missing file",
         {},
         {"Commit All", "Cancel"},
         false,
         2,
         nullptr,
         untouched},
        {"commit all removes it once confirmed",
         {},
         {"Commit All", "Remove and Commit"},
         false,
         2,
         "M\ta.txt\nD\tb.txt\n",
         "?? new.txt\n?? other.txt\n"},
        {"commit all instead of the choice",
         {"new.txt"},
         {"Commit All", "Remove and Commit"},
         false,
         2,
         "M\ta.txt\nD\tb.txt\n",
         "?? new.txt\n?? other.txt\n"},
        {"silenced, adding and removing ask nothing",
         {"new.txt", "b.txt"},
         {"Commit Chosen"},
         true,
         1,
         "D\tb.txt\nA\tnew.txt\n",
         " M a.txt\n?? other.txt\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommitFixture f;
        vn::Preferences::standard().set(VNCommitPane::SuppressAddKey, c.silenced);
        f.repo.commitFile("b.txt", "b\n", "add b");
        f.repo.write("a.txt", "changed\n");
        std::filesystem::remove(f.repo.file("b.txt"));
        f.repo.write("new.txt", "new\n");
        f.repo.write("other.txt", "other\n");
        f.pane->setStagedCount(0);
        f.pane->setUnstagedChanges({{"a.txt", "", VNFileStatusModified},
                                    {"b.txt", "", VNFileStatusMissing},
                                    {"new.txt", "", VNFileStatusUnknown},
                                    {"other.txt", "", VNFileStatusUnknown}});
        f.pane->setSelectedFiles(c.chosen);
        f.pane->setMessage(QStringLiteral("Change"));
        std::string before = f.repo.git({"rev-parse", "HEAD"});
        bool made = false;
        {
            vn::test::MessageBoxAnswers answers(c.answers);
            made = f.commitAndWait();
            EXPECT_EQ(answers.texts().size(), c.asked) << answers.texts().join('|').toStdString();
        }
        EXPECT_EQ(made, c.changed != nullptr) << f.pane->errorText().toStdString();
        if (c.changed) {
            EXPECT_EQ(f.repo.git({"show", "--format=", "--name-status", "HEAD"}), c.changed);
            EXPECT_EQ(f.log("%s"), "Change\nadd b\nbase\n");
        } else {
            EXPECT_EQ(f.repo.git({"rev-parse", "HEAD"}), before);
            EXPECT_EQ(f.pane->message(), QStringLiteral("Change"));
        }
        EXPECT_EQ(f.repo.git({"status", "--porcelain"}), c.status);
    }
    vn::Preferences::standard().remove(VNCommitPane::SuppressAddKey);
}

// The push after a commit goes where the branch's upstream is, or gives a new branch one on
// "origin"; when it cannot be made nothing is committed, and a push that fails keeps the commit.
TEST(VNCommitPane, PushAfterCommitFollowsTheUpstreamAndAFailedPushKeepsTheCommit) {
    using Setup = std::function<void(GitRepository&, const std::string& bare)>;
    struct Case {
        const char* name;
        Setup setup;
        bool committed;
        int pushResult;        // -100: no push
        const char* pushedTo;  // remote ref that must hold the new commit
        const char* upstream;  // the branch's upstream afterwards
        const char* error;     // part of the pane's error text
    };
    const std::vector<Case> cases = {
        {"a tracked branch goes to its upstream, whatever its name",
         [](GitRepository& repo, const std::string&) {
             repo.git({"push", "-q", "-u", "origin", "main:trunk"});
         },
         true, VNProgressWindow::ResultSuccess, "refs/heads/trunk", "origin/trunk\n", ""},
        {"a new branch goes to origin and tracks it",
         [](GitRepository& repo, const std::string&) {
             repo.git({"push", "-q", "origin", "main"});
             repo.git({"checkout", "-q", "-b", "topic"});
         },
         true, VNProgressWindow::ResultSuccess, "refs/heads/topic", "origin/topic\n", ""},
        {"a rejected push keeps the commit and says so",
         [](GitRepository& repo, const std::string& bare) {
             repo.git({"push", "-q", "-u", "origin", "main"});
             GitRepository other;
             other.git({"pull", "-q", "file://" + bare, "main"});
             other.commitFile("theirs.txt", "theirs\n", "theirs");
             other.git({"push", "-q", "file://" + bare, "main"});
         },
         true, VNProgressWindow::ResultFailed, nullptr, "origin/main\n", "push to origin failed"},
        {"without a remote nothing is committed",
         [](GitRepository& repo, const std::string&) {
             repo.git({"remote", "remove", "origin"});
         },
         false, -100, nullptr, nullptr, "no remote"},
        {"a detached HEAD is not committed",
         [](GitRepository& repo, const std::string&) {
             repo.git({"checkout", "-q", "--detach"});
         },
         false, -100, nullptr, nullptr, "no branch"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommitFixture f;
        TempDir remoteDir("varnel-push-after");
        std::string bare = remoteDir.file("remote.git");
        f.repo.git({"init", "-q", "--bare", bare});
        f.repo.git({"remote", "add", "origin", "file://" + bare});
        c.setup(f.repo, bare);
        f.repo.write("a.txt", "pushed\n");
        f.repo.git({"add", "a.txt"});
        f.pane->setStagedCount(1);
        f.pane->setMessage(QStringLiteral("Push me"));
        f.pane->pushAfterBox()->setChecked(true);
        std::string before = f.repo.git({"rev-parse", "HEAD"});
        QSignalSpy pushed(f.pane.get(), &VNCommitPane::pushFinished);
        EXPECT_EQ(f.commitAndWait(), c.committed);
        auto errorShown = [&] {
            EXPECT_TRUE(f.pane->errorText().contains(QString::fromUtf8(c.error)))
                << f.pane->errorText().toStdString();
        };
        if (!c.committed) {
            errorShown();
            EXPECT_EQ(f.repo.git({"rev-parse", "HEAD"}), before);
            EXPECT_EQ(f.pane->message(), QStringLiteral("Push me"));
            idleFor(100);
            EXPECT_EQ(pushed.count(), 0);
            continue;
        }
        ASSERT_TRUE(waitUntil([&] { return pushed.count() == 1; }, 60000));
        EXPECT_EQ(pushed[0][0].toInt(), c.pushResult);
        errorShown();
        std::string head = f.repo.git({"rev-parse", "HEAD"});
        if (c.pushedTo) {
            EXPECT_EQ(f.repo.git({"--git-dir=" + bare, "rev-parse", c.pushedTo}), head);
        } else {
            ASSERT_TRUE(f.pane->pushProgressWindow());
            EXPECT_TRUE(f.pane->pushProgressWindow()->isVisible());
            EXPECT_TRUE(
                f.pane->pushProgressWindow()->transcript().contains(QStringLiteral("rejected")));
            EXPECT_NE(f.repo.git({"--git-dir=" + bare, "rev-parse", "refs/heads/main"}), head);
        }
        EXPECT_EQ(f.repo.git({"rev-parse", "--abbrev-ref", "@{upstream}"}), c.upstream);
        EXPECT_EQ(f.log("%s").substr(0, 8), "Push me\n");
        EXPECT_TRUE(f.pane->commitButton()->isEnabled());
        if (f.pane->pushProgressWindow()) {
            f.pane->pushProgressWindow()->close();
        }
    }
}

// A merge that git stopped before its commit (asked to, or at conflicts) is committed from the
// pane with the message git prepared, less the comment lines meant for an editor.
TEST(VNCommitPane, AMergeStoppedBeforeItsCommitIsCommittedWithGitsMessage) {
    struct Case {
        const char* name;
        const char* theirs;  // side's a.txt; null: side leaves it
        const char* typed;   // already in the editor
        const char* subject;
    };
    const Case cases[] = {
        {"stopped as asked", nullptr, "", "Merge branch 'side'"},
        {"stopped at a conflict, then resolved", "side\n", "", "Merge branch 'side'"},
        {"a typed message wins", nullptr, "My merge", "My merge"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommitFixture f;
        f.repo.git({"checkout", "-q", "-b", "side"});
        if (c.theirs) {
            f.repo.commitFile("a.txt", c.theirs, "side a");
        }
        f.repo.commitFile("s.txt", "s\n", "side s");
        f.repo.git({"checkout", "-q", "main"});
        f.repo.commitFile("a.txt", "main\n", "main a");
        auto merge =
            vn::test::runProgram(f.repo.path(), "git", {"merge", "--no-commit", "--no-ff", "side"});
        if (!merge->success()) {
            f.repo.write("a.txt", "resolved\n");
            f.repo.git({"add", "a.txt"});
        }
        f.pane->setMessage(QString::fromUtf8(c.typed));
        QSignalSpy loaded(f.pane.get(), &VNCommitPane::mergeMessageLoaded);
        f.pane->loadMergeMessage();
        ASSERT_TRUE(waitUntil([&] { return loaded.count() == 1; }));
        EXPECT_EQ(f.pane->subjectField()->text(), QString::fromUtf8(c.subject));
        EXPECT_FALSE(f.pane->message().contains(QLatin1Char('#')))
            << f.pane->message().toStdString();
        f.pane->setStagedCount(1);
        ASSERT_TRUE(f.commitAndWait()) << f.pane->errorText().toStdString();
        EXPECT_EQ(f.repo.git({"log", "-1", "--format=%s|%p"}).find(c.subject), 0u);
        EXPECT_EQ(f.repo.git({"rev-list", "--count", "--merges", "HEAD"}), "1\n");
        EXPECT_EQ(f.repo.git({"status", "--porcelain"}), "");
    }
}

// In the window the pane learns what is staged from the working-copy lists, and a commit
// brings the history and the lists up to date.
TEST(VNCommitPane, InTheWindowACommitRefreshesTheHistoryAndTheLists) {
    GitRepository repo;
    repo.commitFile("a.txt", "1\n", "base");
    repo.write("a.txt", "2\n");
    repo.write("b.txt", "new\n");
    repo.git({"add", "b.txt"});
    vn::desktop::VNRepoWindow window(std::make_shared<VNRepoHandlerGit>(), repo.path());
    window.resize(1200, 800);
    window.show();
    VNCommitPane* pane = window.commitPane();
    ASSERT_TRUE(pane);
    VNWorkingCopyPane* lists = window.workingCopyPane();
    ASSERT_TRUE(waitUntil([&] { return lists->stagedModel()->rowCount() == 1; }));
    pane->setMessage(QStringLiteral("Add b"));
    // One file is staged, so nothing is asked and only it is committed.
    ASSERT_TRUE(pane->commit());
    ASSERT_TRUE(waitUntil([&] {
        return lists->stagedModel()->rowCount() == 0 && !window.historyModel()->isLoading() &&
               window.historyModel()->rowCount() == 3;
    })) << pane->errorText().toStdString();
    EXPECT_EQ(repo.git({"log", "--format=%s"}), "Add b\nbase\n");
    EXPECT_EQ(repo.git({"status", "--porcelain"}), " M a.txt\n");
    EXPECT_EQ(lists->unstagedModel()->rowCount(), 1);
}

}  // namespace

namespace {

// In Mercurial there is nothing to stage: the chosen files are committed (untracked ones added,
// missing ones removed, after asking), or every change when none are chosen; amend brings back
// the parent's message; the push after a commit goes to the "default" path. Git's own choices
// are not offered.
TEST(VNCommitPane, MercurialCommitsChosenFilesOrEverythingAndPushesToTheDefaultPath) {
    for (const char* key : {VNCommitPane::HistoryKey, VNCommitPane::SuppressAddKey,
                            VNCommitPane::SuppressAmendKey, VNCommitPane::SuppressEmptyKey}) {
        vn::Preferences::standard().remove(key);
    }
    vn::test::HgRepository upstream;
    upstream.commitFile("a.txt", "1\n", "base");
    upstream.commitFile("gone.txt", "g\n", "add gone");
    TempDir folder("varnel-hg-commit");
    vn::test::runHg(folder.path(), {"clone", "-q", upstream.path(), folder.file("clone")});
    vn::test::HgRepository repo(folder.file("clone"));
    VNCommitPane pane(std::make_shared<VNRepoHandlerMercurial>(), repo.path());
    pane.resize(700, 220);
    pane.show();
    for (QWidget* gitOnly : std::initializer_list<QWidget*>{
             pane.signoffBox(), pane.bypassHooksBox(), pane.signBox(), pane.keyChoice()}) {
        EXPECT_TRUE(gitOnly->isHidden());
    }
    auto commitAndWait = [&] {
        QSignalSpy done(&pane, &VNCommitPane::committed);
        QSignalSpy failed(&pane, &VNCommitPane::commitFailed);
        if (!pane.commit()) {
            return false;
        }
        EXPECT_TRUE(waitUntil([&] { return done.count() + failed.count() > 0; }));
        return done.count() == 1;
    };
    auto status = [&] { return repo.hg({"status"}); };

    // The chosen files, one of them new and named awkwardly.
    repo.write("a.txt", "1\n2\n");
    repo.write("new \"file\".txt", "n\n");
    repo.write("other.txt", "o\n");
    pane.setUnstagedChanges({{"a.txt", "", VNFileStatusModified},
                             {"new \"file\".txt", "", VNFileStatusUnknown},
                             {"other.txt", "", VNFileStatusUnknown}});
    pane.setSelectedFiles({"a.txt", "new \"file\".txt"});
    pane.setMessage(QStringLiteral("Chosen: ünïcode\n\nWith a body."));
    pane.authorField()->setText(QStringLiteral("Other Person <other@example.com>"));
    {
        vn::test::MessageBoxAnswers answers({QStringLiteral("Add and Commit")});
        ASSERT_TRUE(commitAndWait()) << pane.errorText().toStdString();
        EXPECT_EQ(answers.texts().size(), 1);
    }
    EXPECT_EQ(repo.hg({"log", "-r", ".", "--template", "{author}|{desc}|{files}"}),
              "Other Person <other@example.com>|Chosen: ünïcode\n\nWith a body.|a.txt new "
              "\"file\".txt");
    EXPECT_EQ(status(), "? other.txt\n");

    // Nothing chosen: every change, a missing file removed with it; the new file stays out.
    repo.write("a.txt", "1\n2\n3\n");
    std::filesystem::remove(repo.file("gone.txt"));
    pane.setUnstagedChanges({{"a.txt", "", VNFileStatusModified},
                             {"gone.txt", "", VNFileStatusMissing},
                             {"other.txt", "", VNFileStatusUnknown}});
    pane.setSelectedFiles({});
    pane.authorField()->clear();
    pane.setMessage(QStringLiteral("Everything"));
    {
        vn::test::MessageBoxAnswers answers({QStringLiteral("Remove and Commit")});
        ASSERT_TRUE(commitAndWait()) << pane.errorText().toStdString();
        EXPECT_EQ(answers.texts().size(), 1);
    }
    EXPECT_EQ(repo.hg({"log", "-r", ".", "--template", "{desc}|{file_mods}|{file_dels}"}),
              "Everything|a.txt|gone.txt");
    EXPECT_EQ(status(), "? other.txt\n");

    // Amend brings the message back; the amended commit replaces the last one.
    QSignalSpy loaded(&pane, &VNCommitPane::amendMessageLoaded);
    pane.amendBox()->setChecked(true);
    ASSERT_TRUE(waitUntil([&] { return loaded.count() == 1; }));
    EXPECT_EQ(pane.message(), QStringLiteral("Everything"));
    pane.setMessage(QStringLiteral("Everything, amended"));
    pane.setUnstagedChanges({});
    {
        vn::test::MessageBoxAnswers answers({QStringLiteral("Amend")});
        ASSERT_TRUE(commitAndWait()) << pane.errorText().toStdString();
    }
    EXPECT_EQ(repo.hg({"log", "--template", "{desc|firstline}\n"}),
              "Everything, amended\nChosen: ünïcode\nadd gone\nbase\n");

    // Pushed to the default path after the commit.
    repo.write("a.txt", "pushed\n");
    pane.setUnstagedChanges({{"a.txt", "", VNFileStatusModified}});
    pane.setMessage(QStringLiteral("Push me"));
    pane.pushAfterBox()->setChecked(true);
    QSignalSpy pushed(&pane, &VNCommitPane::pushFinished);
    ASSERT_TRUE(commitAndWait()) << pane.errorText().toStdString();
    ASSERT_TRUE(waitUntil([&] { return pushed.count() == 1; }, 60000));
    EXPECT_EQ(pushed[0][0].toInt(), VNProgressWindow::ResultSuccess)
        << (pane.pushProgressWindow() ? pane.pushProgressWindow()->transcript().toStdString()
                                      : std::string());
    EXPECT_EQ(upstream.hg({"log", "-r", "tip", "--template", "{desc}"}), "Push me");

    // Without a path to push to, nothing is committed.
    std::filesystem::remove(repo.file(".hg/hgrc"));
    repo.write("a.txt", "kept\n");
    pane.setMessage(QStringLiteral("Not pushed"));
    EXPECT_FALSE(commitAndWait());
    EXPECT_TRUE(pane.errorText().contains(QStringLiteral("no path")))
        << pane.errorText().toStdString();
    EXPECT_EQ(repo.hg({"log", "-r", ".", "--template", "{desc}"}), "Push me");
    if (pane.pushProgressWindow()) {
        pane.pushProgressWindow()->close();
    }
}

}  // namespace
