#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QTextBrowser>
#include <QTreeView>

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "DesktopSupport.h"
#include "desktop/VNCommitDetails.h"
#include "desktop/VNDiffLineModel.h"
#include "desktop/VNDiffView.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNHistoryView.h"
#include "desktop/VNRefsModel.h"
#include "desktop/VNRepoWindow.h"
#include "desktop/VNSidebar.h"
#include "desktop/VNTextCell.h"
#include "desktop/VNWorkingCopyPane.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNDiffModel.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogLabel.h"
#include "support/HgRepository.h"

namespace {

using namespace vn::desktop;
using namespace vn::test::desktop;

// Two named branches merged, a tag, two bookmarks (one active), a shelf and uncommitted changes
// of three kinds: what the window has to show differently from a Git working copy.
class RepoWindowHgTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        repo_ = new vn::test::HgRepository();
        vn::test::HgRepository& r = *repo_;
        r.commitFile("a.txt", "one\n", "first");  // 0
        r.hg({"branch", "-q", "feature"});
        r.commitFile("b file.txt", "feature\n", "feature work");  // 1
        r.hg({"update", "-q", "default"});
        r.commitFile("a.txt", "one\ntwo\n", "second on default");  // 2
        r.hg({"merge", "-q", "feature"});
        r.commit("merge feature");                      // 3
        r.hg({"tag", "-r", "2", "-d", "0 0", "v1.0"});  // 4
        r.hg({"bookmark", "-r", "3", "mark"});
        r.hg({"bookmark", "work"});
        r.write("a.txt", "shelved\n");
        r.hg({"--config", "extensions.shelve=", "shelve", "-q", "--name", "saved"});
        r.write("a.txt", "one\ntwo\nthree\n");
        r.write("c.txt", "added\n");
        r.hg({"add", "-q", "c.txt"});
        r.write("d.txt", "untracked\n");
    }
    static void TearDownTestSuite() { delete repo_; }

    std::unique_ptr<VNRepoWindow> openWindow() {
        auto window = std::make_unique<VNRepoWindow>(std::make_shared<VNRepoHandlerMercurial>(),
                                                     repo_->path());
        window->resize(1300, 900);
        window->show();
        return window;
    }
    static bool loaded(VNRepoWindow& window) {
        return waitInLoop([&] { return !window.historyModel()->isLoading(); });
    }
    static std::set<std::string> labelsOf(const VNHistoryRow& row) {
        std::set<std::string> names;
        if (row.description) {
            for (const auto& label : row.description->labels()) {
                names.insert(label->label() + (label->currentMarker() ? "*" : ""));
            }
        }
        return names;
    }
    static std::vector<std::string> sectionRows(const VNRefsModel& model,
                                                VNRefsModel::Section section) {
        std::vector<std::string> rows;
        QModelIndex parent = model.index(section, 0);
        for (int row = 0; row < model.rowCount(parent); ++row) {
            QModelIndex index = model.index(row, 0, parent);
            rows.push_back(index.data().toString().toStdString() +
                           (index.data(VNRefsModel::CurrentRole).toBool() ? "*" : ""));
        }
        return rows;
    }

    static vn::test::HgRepository* repo_;
};

vn::test::HgRepository* RepoWindowHgTest::repo_ = nullptr;

// The history holds hg's changesets in hg's order under the working-copy row, with the merge
// drawn on two lanes and every kind of label on its changeset; the sidebar lists Mercurial's
// references and hides Git's.
TEST_F(RepoWindowHgTest, HistoryLabelsAndSidebarFollowHg) {
    auto window = openWindow();
    ASSERT_TRUE(loaded(*window));
    ASSERT_TRUE(window->historyModel()->loadSucceeded());
    VNHistoryModel& model = *window->historyModel();

    std::vector<std::string> expected{"-1"};
    std::istringstream log(repo_->hg({"log", "--template", "{rev} {node}\n"}));
    std::vector<std::string> nodes{""};
    for (std::string rev, node; log >> rev >> node;) {
        expected.push_back(rev);
        nodes.push_back(node);
    }
    ASSERT_EQ(model.rowCount(), static_cast<int>(expected.size()));
    for (int i = 0; i < model.rowCount(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(model.row(i).rev, expected[static_cast<std::size_t>(i)]);
        EXPECT_EQ(model.row(i).node, nodes[static_cast<std::size_t>(i)]);
    }
    EXPECT_TRUE(model.row(0).isWorkingCopy());
    EXPECT_GE(model.laneCount(), 2u);
    // A hash, its prefix and the revision number all find the same row.
    EXPECT_EQ(model.rowOfRevision(nodes[3]), 3);
    EXPECT_EQ(model.rowOfRevision("2"), 3);
    ASSERT_TRUE(window->selectRevision(QString::fromStdString(nodes[4].substr(0, 12))));
    EXPECT_EQ(window->historyView()->currentIndex().row(), 4);
    EXPECT_EQ(model.index(4, VNHistoryModel::CommitColumn).data().toString().toStdString(),
              "1:" + nodes[4].substr(0, 12));
    // "rev:hash" is never cut short.
    const QFontMetrics metrics = window->historyView()->fontMetrics();
    const int commitWidth = window->historyView()->columnWidth(VNHistoryModel::CommitColumn);
    for (int i = 1; i < model.rowCount(); ++i) {
        SCOPED_TRACE(i);
        QString shown = model.index(i, VNHistoryModel::CommitColumn).data().toString();
        EXPECT_LE(metrics.horizontalAdvance(shown) + 2 * VNTextCell::Margin, commitWidth);
    }

    struct Labelled {
        const char* rev;
        std::set<std::string> labels;
    };
    const Labelled cases[] = {
        {"4", {"default", "work*"}}, {"3", {"mark"}}, {"2", {"v1.0"}},
        {"1", {"feature"}},          {"0", {}},
    };
    for (const Labelled& c : cases) {
        SCOPED_TRACE(c.rev);
        int row = model.rowOfRevision(c.rev);
        ASSERT_GE(row, 0);
        std::set<std::string> shown = labelsOf(model.row(row));
        shown.erase("tip");
        shown.erase("tip*");
        // Which branch counts as current is the branch label's business, not this test's.
        std::set<std::string> plain;
        for (std::string name : shown) {
            if (name == "default*") {
                name = "default";
            }
            plain.insert(name);
        }
        EXPECT_EQ(plain, c.labels);
    }

    VNSidebar* sidebar = window->sidebar();
    ASSERT_TRUE(waitInLoop(
        [&] { return !sectionRows(*sidebar->model(), VNRefsModel::Bookmarks).empty(); }));
    const VNRefsModel& refs = *sidebar->model();
    EXPECT_EQ(sectionRows(refs, VNRefsModel::Branches),
              (std::vector<std::string>{"default*", "feature"}));
    EXPECT_EQ(sectionRows(refs, VNRefsModel::Bookmarks),
              (std::vector<std::string>{"mark", "work*"}));
    std::vector<std::string> tags = sectionRows(refs, VNRefsModel::Tags);
    EXPECT_NE(std::find(tags.begin(), tags.end(), "v1.0"), tags.end());
    EXPECT_EQ(sectionRows(refs, VNRefsModel::Stashes), std::vector<std::string>{"saved"});
    EXPECT_TRUE(refs.index(VNRefsModel::Stashes, 0).data().toString().startsWith("Shelves"));
    QTreeView* tree = sidebar->treeView();
    for (int section = 0; section < VNRefsModel::SectionCount; ++section) {
        SCOPED_TRACE(section);
        bool gitOnly = section == VNRefsModel::RemoteBranches || section == VNRefsModel::Submodules;
        EXPECT_EQ(tree->isRowHidden(section, QModelIndex()), gitOnly);
    }
    // The working-copy pane reads its status after the history; a read still running when the
    // process exits would outlive the objects it uses.
    EXPECT_TRUE(
        waitInLoop([&] { return window->workingCopyPane()->unstagedModel()->rowCount() == 3; }));
}

// A changeset shows its files and diff; the working-copy row shows one list of changes (no
// staging) whose entries show their diff.
TEST_F(RepoWindowHgTest, CommitDetailsAndTheChangedList) {
    auto window = openWindow();
    ASSERT_TRUE(loaded(*window));
    VNHistoryModel& model = *window->historyModel();
    int row = model.rowOfRevision("1");
    ASSERT_GE(row, 0);
    window->selectRow(row);
    VNCommitDetails* details = window->details();
    EXPECT_EQ(details->revision(), "1");
    ASSERT_TRUE(waitInLoop([&] { return details->settled(); }));
    ASSERT_EQ(details->fileList()->count(), 1);
    EXPECT_TRUE(details->fileList()->item(0)->text().contains(QStringLiteral("b file.txt")));
    ASSERT_TRUE(details->diff());
    ASSERT_EQ(details->diff()->fileEntries().size(), 1u);
    EXPECT_EQ(details->diff()->fileEntries()[0]->filename(), "b file.txt");
    EXPECT_TRUE(details->summary()->toPlainText().contains(QStringLiteral("feature work")));

    window->selectRow(0);
    VNWorkingCopyPane* pane = window->workingCopyPane();
    EXPECT_TRUE(pane->isVisible());
    EXPECT_FALSE(pane->stagedList()->isVisible());
    ASSERT_TRUE(waitInLoop([&] { return pane->unstagedModel()->rowCount() == 3; }));
    std::map<std::string, uint64_t> changed;
    for (int i = 0; i < pane->unstagedModel()->rowCount(); ++i) {
        const auto& entry = pane->unstagedModel()->entry(i);
        changed[entry.path] = entry.status;
    }
    EXPECT_EQ(changed, (std::map<std::string, uint64_t>{{"a.txt", VNFileStatusModified},
                                                        {"c.txt", VNFileStatusAdded},
                                                        {"d.txt", VNFileStatusUnknown}}));
    EXPECT_EQ(pane->stagedModel()->rowCount(), 0);
    for (QPushButton* button : pane->findChildren<QPushButton*>()) {
        SCOPED_TRACE(button->text().toStdString());
        bool discard = button->text().startsWith(QStringLiteral("Discard"));
        EXPECT_EQ(button->isVisible(), discard);
    }

    int modified = pane->unstagedModel()->rowOfPath("a.txt");
    ASSERT_GE(modified, 0);
    bool shown = false;
    QObject::connect(pane, &VNWorkingCopyPane::diffShown, [&] { shown = true; });
    pane->unstagedList()->selectionModel()->select(pane->unstagedModel()->index(modified),
                                                   QItemSelectionModel::ClearAndSelect);
    ASSERT_TRUE(waitInLoop([&] { return shown; }));
    ASSERT_FALSE(pane->diffView()->isShowingPlaceholder());
    VNDiffLineModel* lines = pane->diffView()->lineModel();
    ASSERT_GE(lines->rowCount(), 3);
    int last = lines->rowCount() - 1;
    EXPECT_EQ(lines->rowAt(last).prefix, '+');
    EXPECT_EQ(lines->index(last).data().toString(), QStringLiteral("three"));
    EXPECT_EQ(lines->rowAt(last - 1).prefix, ' ');
    // Nothing may have changed the working copy in passing.
    EXPECT_EQ(repo_->hg({"status"}), "M a.txt\nA c.txt\n? d.txt\n");
}

}  // namespace
