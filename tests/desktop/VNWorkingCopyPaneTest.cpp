#include <QAbstractButton>
#include <QApplication>
#include <QListView>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTimer>

#include <gtest/gtest.h>

#include <filesystem>

#include "PaneTestSupport.h"
#include "desktop/VNDiffLineModel.h"
#include "desktop/VNDiffView.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNWorkingCopyPane.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNFileStatusEntity.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::answerNextMessageBox;
using vn::test::GitRepository;
using vn::test::waitUntil;

using Listing = std::vector<std::pair<std::string, uint64_t>>;

Listing listing(const VNFileListModel& model) {
    Listing rows;
    for (const auto& entry : model.entries()) {
        rows.emplace_back(entry.path, entry.status);
    }
    return rows;
}

void select(QListView* list, const std::vector<std::string>& paths) {
    auto* model = static_cast<VNFileListModel*>(list->model());
    QItemSelection selection;
    for (const std::string& path : paths) {
        int row = model->rowOfPath(path);
        ASSERT_GE(row, 0) << path;
        selection.select(model->index(row), model->index(row));
    }
    list->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

struct PaneFixture {
    GitRepository repo;
    std::unique_ptr<VNWorkingCopyPane> pane;
    PaneFixture() {
        repo.write("a.txt", "1\n");
        repo.write("dir/b.txt", "b\n");
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "base"});
        repo.write("a.txt", "2\n");
        repo.write("new file.txt", "fresh\n");
        pane =
            std::make_unique<VNWorkingCopyPane>(std::make_shared<VNRepoHandlerGit>(), repo.path());
        pane->resize(800, 600);
        pane->show();
    }
    // Runs `action` and waits for the status it leads to.
    bool refreshedAfter(const std::function<void()>& action) {
        QSignalSpy spy(pane.get(), &VNWorkingCopyPane::statusRefreshed);
        action();
        return waitUntil([&] { return spy.count() > 0; });
    }
    bool diffShownAfter(const std::function<void()>& action) {
        QSignalSpy spy(pane.get(), &VNWorkingCopyPane::diffShown);
        action();
        return waitUntil([&] { return spy.count() > 0; });
    }
};

TEST(VNWorkingCopyPane, StageAndUnstageMoveFilesBetweenTheListsAndShowTheirDiff) {
    PaneFixture f;
    std::filesystem::remove(f.repo.file("dir/b.txt"));
    vn::test::CheckedModel stagedChecked(f.pane->stagedModel());
    vn::test::CheckedModel unstagedChecked(f.pane->unstagedModel());
    ASSERT_TRUE(f.refreshedAfter([&] { f.pane->refresh(); }));
    EXPECT_EQ(listing(*f.pane->stagedModel()), Listing{});
    EXPECT_EQ(listing(*f.pane->unstagedModel()), (Listing{{"a.txt", VNFileStatusModified},
                                                          {"dir/b.txt", VNFileStatusMissing},
                                                          {"new file.txt", VNFileStatusUnknown}}));

    // The chosen file's unstaged diff.
    ASSERT_TRUE(f.diffShownAfter([&] { select(f.pane->unstagedList(), {"a.txt"}); }));
    VNDiffLineModel* lines = f.pane->diffView()->lineModel();
    ASSERT_FALSE(f.pane->diffView()->isShowingPlaceholder());
    ASSERT_EQ(lines->rowCount(), 4);
    EXPECT_EQ(lines->index(2).data().toString(), QStringLiteral("1"));
    EXPECT_EQ(lines->rowAt(2).prefix, '-');
    EXPECT_EQ(lines->rowAt(3).prefix, '+');

    // An untracked file shows all its lines as added.
    ASSERT_TRUE(f.diffShownAfter([&] { select(f.pane->unstagedList(), {"new file.txt"}); }));
    ASSERT_EQ(lines->rowCount(), 3);
    EXPECT_EQ(lines->index(2).data().toString(), QStringLiteral("fresh"));
    EXPECT_EQ(lines->rowAt(2).afterLineNumber, 1);

    QSignalSpy changed(f.pane.get(), &VNWorkingCopyPane::workingCopyChanged);
    select(f.pane->unstagedList(), {"a.txt", "dir/b.txt", "new file.txt"});
    f.pane->stageSelected();
    ASSERT_TRUE(waitUntil([&] { return f.pane->stagedModel()->entries().size() == 3; }));
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(listing(*f.pane->stagedModel()), (Listing{{"a.txt", VNFileStatusModified},
                                                        {"dir/b.txt", VNFileStatusRemoved},
                                                        {"new file.txt", VNFileStatusAdded}}));
    EXPECT_EQ(listing(*f.pane->unstagedModel()), Listing{});
    EXPECT_EQ(f.repo.git({"diff", "--cached", "--name-only"}), "a.txt\ndir/b.txt\nnew file.txt\n");
    EXPECT_TRUE(f.pane->errorText().isEmpty());

    // The staged diff of one of them, then back out of the index.
    ASSERT_TRUE(f.diffShownAfter([&] { select(f.pane->stagedList(), {"new file.txt"}); }));
    ASSERT_EQ(lines->rowCount(), 3);
    EXPECT_EQ(lines->rowAt(2).prefix, '+');
    f.pane->unstageSelected();
    ASSERT_TRUE(waitUntil([&] { return f.pane->stagedModel()->entries().size() == 2; }));
    EXPECT_EQ(listing(*f.pane->stagedModel()),
              (Listing{{"a.txt", VNFileStatusModified}, {"dir/b.txt", VNFileStatusRemoved}}));
    EXPECT_EQ(listing(*f.pane->unstagedModel()), (Listing{{"new file.txt", VNFileStatusUnknown}}));
    EXPECT_EQ(f.repo.git({"diff", "--cached", "--name-only"}), "a.txt\ndir/b.txt\n");
}

TEST(VNWorkingCopyPane, DiscardAsksFirstAndKeepsStagedWork) {
    PaneFixture f;
    f.repo.write("dir/b.txt", "staged\n");
    f.repo.git({"add", "dir/b.txt"});
    f.repo.write("dir/b.txt", "staged and then more\n");
    ASSERT_TRUE(f.refreshedAfter([&] { f.pane->refresh(); }));
    select(f.pane->unstagedList(), {"a.txt", "dir/b.txt", "new file.txt"});

    // Cancelled: nothing is touched.
    QString question;
    answerNextMessageBox(QStringLiteral("Cancel"), &question);
    EXPECT_FALSE(f.pane->discardSelected());
    EXPECT_TRUE(question.contains(QStringLiteral("new file.txt")));
    EXPECT_TRUE(question.contains(QStringLiteral("deleted")));
    EXPECT_EQ(vn::test::readFile(f.repo.file("a.txt")), "2\n");
    EXPECT_TRUE(std::filesystem::exists(f.repo.file("new file.txt")));

    answerNextMessageBox(QStringLiteral("Discard"), &question);
    QSignalSpy changed(f.pane.get(), &VNWorkingCopyPane::workingCopyChanged);
    EXPECT_TRUE(f.pane->discardSelected());
    ASSERT_TRUE(waitUntil([&] { return changed.count() > 0; }));
    ASSERT_TRUE(waitUntil([&] { return f.pane->unstagedModel()->entries().empty(); }));
    EXPECT_TRUE(f.pane->errorText().isEmpty()) << f.pane->errorText().toStdString();
    EXPECT_EQ(vn::test::readFile(f.repo.file("a.txt")), "1\n");
    EXPECT_EQ(vn::test::readFile(f.repo.file("dir/b.txt")), "staged\n");
    EXPECT_FALSE(std::filesystem::exists(f.repo.file("new file.txt")));
    EXPECT_EQ(listing(*f.pane->stagedModel()), (Listing{{"dir/b.txt", VNFileStatusModified}}));
}

TEST(VNWorkingCopyPane, AFailedOperationIsShownAndTheListsStayTrue) {
    PaneFixture f;
    ASSERT_TRUE(f.refreshedAfter([&] { f.pane->refresh(); }));
    select(f.pane->unstagedList(), {"a.txt"});
    // A lock left by another git makes the stage fail.
    vn::test::writeFile(f.repo.file(".git/index.lock"), "");
    f.pane->stageSelected();
    ASSERT_TRUE(waitUntil([&] { return !f.pane->errorText().isEmpty(); }));
    EXPECT_TRUE(f.pane->errorText().contains(QStringLiteral("index.lock")));
    std::filesystem::remove(f.repo.file(".git/index.lock"));
    ASSERT_TRUE(f.refreshedAfter([&] { f.pane->refresh(); }));
    EXPECT_EQ(listing(*f.pane->stagedModel()), Listing{});
    EXPECT_EQ(listing(*f.pane->unstagedModel()).size(), 2u);
}

TEST(VNWorkingCopyPane, UntrackedFilesShowTheirLinesOrABinaryPlaceholder) {
    PaneFixture f;
    f.repo.write("blob.bin", std::string("PK\0\x01\x02 binary", 12));
    f.repo.write("no newline.txt", "one\ntwo");
    ASSERT_TRUE(f.refreshedAfter([&] { f.pane->refresh(); }));
    VNDiffView* diff = f.pane->diffView();
    ASSERT_TRUE(f.diffShownAfter([&] { select(f.pane->unstagedList(), {"blob.bin"}); }));
    EXPECT_TRUE(diff->isShowingPlaceholder());
    EXPECT_TRUE(diff->placeholderText().contains(QStringLiteral("Binary")));

    ASSERT_TRUE(f.diffShownAfter([&] { select(f.pane->unstagedList(), {"no newline.txt"}); }));
    ASSERT_FALSE(diff->isShowingPlaceholder());
    VNDiffLineModel* lines = diff->lineModel();
    ASSERT_EQ(lines->rowCount(), 5);
    EXPECT_EQ(lines->index(0).data().toString(), QStringLiteral("no newline.txt   +2 \u22120"));
    EXPECT_EQ(lines->index(3).data().toString(), QStringLiteral("two"));
    EXPECT_EQ(lines->rowAt(3).afterLineNumber, 2);
    EXPECT_EQ(lines->rowAt(4).prefix, '\\');

    // Both lists' choices together: the diff follows the list chosen last.
    ASSERT_TRUE(f.diffShownAfter([&] { select(f.pane->unstagedList(), {"a.txt", "blob.bin"}); }));
    EXPECT_FALSE(diff->isShowingPlaceholder());
    EXPECT_EQ(lines->index(0).data().toString(), QStringLiteral("a.txt   +1 \u22121"));
    EXPECT_EQ(f.pane->selectedUnstagedFiles(), (std::vector<std::string>{"a.txt", "blob.bin"}));
}

TEST(VNWorkingCopyPane, ALateDiffOfAnEarlierChoiceIsDropped) {
    PaneFixture f;
    std::string big;
    for (int i = 0; i < 200000; ++i) {
        big.append("line ").append(std::to_string(i)).append("\n");
    }
    f.repo.write("big.txt", big);
    f.repo.git({"add", "big.txt"});
    f.repo.git({"commit", "-q", "-m", "big"});
    f.repo.write("big.txt", big + "end\n");
    for (std::size_t at = 0; at < big.size(); at += 5000) {
        big[at] = 'L';
    }
    f.repo.write("big.txt", big);
    ASSERT_TRUE(f.refreshedAfter([&] { f.pane->refresh(); }));

    // The big file's diff is asked for first and answers last; only the later choice may show.
    QSignalSpy shown(f.pane.get(), &VNWorkingCopyPane::diffShown);
    select(f.pane->unstagedList(), {"big.txt"});
    select(f.pane->unstagedList(), {"a.txt"});
    ASSERT_TRUE(waitUntil([&] { return shown.count() > 0; }));
    waitUntil([&] { return shown.count() > 1; }, 3000);
    EXPECT_EQ(shown.count(), 1);
    EXPECT_EQ(f.pane->diffView()->lineModel()->index(0).data().toString(),
              QStringLiteral("a.txt   +1 \u22121"));
}

}  // namespace
