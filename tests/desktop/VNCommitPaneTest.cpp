#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <memory>

#include "PaneTestSupport.h"
#include "desktop/VNCommitPane.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNRepoWindow.h"
#include "desktop/VNWorkingCopyPane.h"
#include "git/VNRepoHandlerGit.h"
#include "platform/Preferences.h"
#include "support/TestEnvironment.h"

namespace {

using vn::desktop::VNCommitPane;
using vn::test::answerNextMessageBox;
using vn::test::GitRepository;
using vn::test::waitUntil;

struct CommitFixture {
    GitRepository repo;
    std::unique_ptr<VNCommitPane> pane;
    CommitFixture() {
        for (const char* key : {VNCommitPane::HistoryKey, VNCommitPane::SuppressEmptyKey,
                                VNCommitPane::SuppressAmendKey}) {
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
