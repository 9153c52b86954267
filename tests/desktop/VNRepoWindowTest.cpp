#include <QApplication>
#include <QHeaderView>
#include <QLineEdit>
#include <QListWidget>
#include <QTest>
#include <QTextBrowser>

#include <gtest/gtest.h>

#include "DesktopSupport.h"
#include "desktop/VNCommitDetails.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNGraphCell.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNHistoryView.h"
#include "desktop/VNRepoWindow.h"
#include "desktop/VNTheme.h"
#include "desktop/VNWorkingCopyPane.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNDiffModel.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "support/HistoryFixtures.h"
#include "support/ShapedHistory.h"

namespace {

using namespace vn::desktop;
using namespace vn::test::desktop;

// One shaped repository for the window tests: building it is the slow part.
class RepoWindowTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        repo_ = new vn::test::GitRepository();
        written_ = new std::vector<std::string>(vn::test::writeShapedHistory(*repo_, 1200));
        repo_->write("main.txt", "uncommitted\n");
    }
    static void TearDownTestSuite() {
        delete repo_;
        delete written_;
    }

    std::unique_ptr<VNRepoWindow> openWindow() {
        auto window =
            std::make_unique<VNRepoWindow>(std::make_shared<VNRepoHandlerGit>(), repo_->path());
        window->resize(1300, 900);
        window->show();
        return window;
    }
    static bool loaded(VNRepoWindow& window) {
        return waitInLoop([&] { return !window.historyModel()->isLoading(); });
    }
    static int rowWithSubject(VNHistoryModel& model, const std::string& subject) {
        for (int i = 0; i < model.rowCount(); ++i) {
            const auto& description = model.row(i).description;
            if (description && description->description() == subject) {
                return i;
            }
        }
        return -1;
    }

    static vn::test::GitRepository* repo_;
    static std::vector<std::string>* written_;
};

vn::test::GitRepository* RepoWindowTest::repo_ = nullptr;
std::vector<std::string>* RepoWindowTest::written_ = nullptr;

// Ctrl+End reaches the last row of the history even when pressed while rows still arrive.
TEST_F(RepoWindowTest, ControlEndReachesTheOldestCommit) {
    auto window = openWindow();
    VNHistoryView* view = window->historyView();
    view->setFocus();
    QTest::keyClick(view, Qt::Key_End, Qt::ControlModifier);
    ASSERT_TRUE(loaded(*window));
    waitInLoop([&] { return view->currentIndex().row() == window->historyModel()->rowCount() - 1; },
               5000);
    EXPECT_EQ(view->currentIndex().row(), window->historyModel()->rowCount() - 1);
    EXPECT_EQ(view->currentIndex().data(VNHistoryModel::RevisionRole).toString().toStdString(),
              written_->front());
    // Ctrl+Home goes back to the working copy at the top.
    QTest::keyClick(view, Qt::Key_Home, Qt::ControlModifier);
    EXPECT_EQ(view->currentIndex().row(), 0);
}

// The graph as painted: a commit's dot in its colour at its lane's centre, and a merge line that
// leaves the merge's row in the lane its parent's dot then stands in, in the parent's colour.
TEST_F(RepoWindowTest, GraphPixelsShowDotsAndMergeLines) {
    VNTheme::apply(VNTheme::Kind::Light, false);
    auto window = openWindow();
    ASSERT_TRUE(loaded(*window));
    VNHistoryModel& model = *window->historyModel();
    VNHistoryView* view = window->historyView();
    view->horizontalHeader()->resizeSection(VNHistoryModel::GraphColumn, 200);
    int merge = rowWithSubject(model, "Merge side 400");
    int parent = rowWithSubject(model, "side 400.2");
    ASSERT_GE(merge, 0);
    ASSERT_GT(parent, merge);
    window->selectRow(0);
    view->scrollTo(model.index(merge, 0), QAbstractItemView::PositionAtTop);
    QApplication::processEvents();
    QImage image = view->viewport()->grab().toImage();

    auto dotPixel = [&](int row) {
        QRect cell = view->visualRect(model.index(row, VNHistoryModel::GraphColumn));
        const auto& graph = *model.row(row).graph;
        int x = cell.left() + static_cast<int>(VNGraphCell::laneCentre(graph.commitColumn));
        return image.pixel(x, cell.top() + cell.height() / 2);
    };
    for (int row : {merge, merge + 1, parent}) {
        SCOPED_TRACE("row " + std::to_string(row));
        QColor expected = VNGraphCell::colourOf(model.row(row).graph->commitColour);
        EXPECT_TRUE(near(dotPixel(row), expected.rgb()))
            << QColor(dotPixel(row)).name().toStdString() << " for "
            << expected.name().toStdString();
    }

    const VNLogGraphEntry& mergeGraph = *model.row(merge).graph;
    const VNLogGraphEntryLine* mergeLine = nullptr;
    for (const auto& line : mergeGraph.lineColumns) {
        if (line.terminates && line.startCol != mergeGraph.commitColumn) {
            mergeLine = &line;
        }
    }
    ASSERT_NE(mergeLine, nullptr);
    QRect cell = view->visualRect(model.index(merge, VNHistoryModel::GraphColumn));
    int laneX = cell.left() + static_cast<int>(VNGraphCell::laneCentre(mergeLine->startCol));
    QColor lineColour = VNGraphCell::colourOf(mergeLine->lineColour);
    EXPECT_TRUE(near(image.pixel(laneX, cell.bottom() - 1), lineColour.rgb()))
        << QColor(image.pixel(laneX, cell.bottom() - 1)).name().toStdString();
    // Between the lanes, below the bend, the halo leaves the base colour.
    int between = laneX - static_cast<int>(VNGraphCell::LaneWidth / 2);
    EXPECT_FALSE(near(image.pixel(between, cell.bottom() - 1), lineColour.rgb()));
    EXPECT_EQ(model.row(parent).graph->commitColumn, mergeLine->startCol);
    EXPECT_TRUE(near(dotPixel(parent), lineColour.rgb()));
}

// Choosing a commit shows its files, and the first file's diff arrives parsed.
TEST_F(RepoWindowTest, SelectingACommitShowsItsFilesAndDiff) {
    auto window = openWindow();
    ASSERT_TRUE(loaded(*window));
    VNHistoryModel& model = *window->historyModel();
    int row = rowWithSubject(model, "commit 8");
    ASSERT_GE(row, 0);
    window->selectRow(row);
    VNCommitDetails* details = window->details();
    EXPECT_EQ(details->revision(), model.row(row).rev);
    ASSERT_TRUE(waitInLoop([&] { return details->settled(); }));
    ASSERT_EQ(details->fileList()->count(), 1);
    EXPECT_TRUE(details->fileList()->item(0)->text().contains(QStringLiteral("other file.txt")));
    ASSERT_TRUE(details->diff());
    ASSERT_EQ(details->diff()->fileEntries().size(), 1u);
    EXPECT_EQ(details->diff()->fileEntries()[0]->filename(), "other file.txt");
    EXPECT_TRUE(details->summary()->toPlainText().contains(QStringLiteral("commit 8")));

    // The working-copy row shows the working copy instead of commit details; staging and
    // unstaging there moves the file between the lists and reads the history again.
    window->selectRow(0);
    VNWorkingCopyPane* pane = window->workingCopyPane();
    EXPECT_TRUE(pane->isVisible());
    EXPECT_FALSE(details->isVisible());
    ASSERT_TRUE(waitInLoop([&] { return pane->unstagedModel()->rowCount() == 1; }));
    auto chooseFirst = [](QListView* list) {
        list->selectionModel()->select(list->model()->index(0, 0),
                                       QItemSelectionModel::ClearAndSelect);
    };
    int reloads = 0;
    QObject::connect(window->historyModel(), &QAbstractItemModel::modelReset, [&] { ++reloads; });
    chooseFirst(pane->unstagedList());
    pane->stageSelected();
    ASSERT_TRUE(waitInLoop([&] {
        return pane->stagedModel()->rowCount() == 1 && pane->unstagedModel()->rowCount() == 0;
    }));
    EXPECT_EQ(vn::test::chomp(repo_->git({"diff", "--cached", "--name-only"})), "main.txt");
    chooseFirst(pane->stagedList());
    pane->unstageSelected();
    ASSERT_TRUE(waitInLoop([&] {
        return pane->stagedModel()->rowCount() == 0 && pane->unstagedModel()->rowCount() == 1;
    }));
    EXPECT_GE(reloads, 2);
    ASSERT_TRUE(loaded(*window));
    EXPECT_TRUE(window->historyModel()->row(0).isWorkingCopy());
}

TEST_F(RepoWindowTest, SearchNarrowsTheHistoryByMessageAuthorContentAndHash) {
    auto window = openWindow();
    ASSERT_TRUE(loaded(*window));
    const int all = window->historyModel()->rowCount();
    struct Case {
        const char* name;
        QString text;
        VNRepoWindow::SearchMode mode;
        int lowest;
        int highest;
    };
    const Case cases[] = {
        {"message, any case", QStringLiteral("OCTOPUS"), VNRepoWindow::SearchMessage, 3, 3},
        {"author", QStringLiteral("ann author"), VNRepoWindow::SearchAuthor, all - 1, all - 1},
        {"content", QStringLiteral("line 1001\n"), VNRepoWindow::SearchContent, 1, 2},
        {"hash", QString::fromStdString(written_->at(5).substr(0, 12)), VNRepoWindow::SearchHash, 1,
         1},
        {"nothing", QStringLiteral("no such words anywhere"), VNRepoWindow::SearchMessage, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int hits = -1;
        auto connection = QObject::connect(window.get(), &VNRepoWindow::searchFinished,
                                           [&](int count) { hits = count; });
        window->search(c.text, c.mode);
        ASSERT_TRUE(waitInLoop([&] { return hits >= 0; }));
        QObject::disconnect(connection);
        int shown = window->historyView()->model()->rowCount();
        EXPECT_GE(shown, c.lowest) << "hits " << hits;
        EXPECT_LE(shown, c.highest);
        EXPECT_TRUE(window->historyView()->isColumnHidden(VNHistoryModel::GraphColumn));
        if (c.mode == VNRepoWindow::SearchHash) {
            EXPECT_EQ(window->historyView()
                          ->currentIndex()
                          .data(VNHistoryModel::RevisionRole)
                          .toString()
                          .toStdString(),
                      written_->at(5));
        }
    }
    window->searchField()->setText(QStringLiteral("x"));
    window->searchField()->clear();
    EXPECT_FALSE(window->searching());
    EXPECT_EQ(window->historyView()->model()->rowCount(), all);
    EXPECT_FALSE(window->historyView()->isColumnHidden(VNHistoryModel::GraphColumn));
}

// Both themes paint the history on their own base colour; column widths and splitters outlive
// the window.
TEST_F(RepoWindowTest, ThemesAndRememberedLayout) {
    auto window = openWindow();
    ASSERT_TRUE(loaded(*window));
    VNHistoryView* view = window->historyView();
    view->horizontalHeader()->resizeSection(VNHistoryModel::GraphColumn, 180);
    view->horizontalHeader()->resizeSection(VNHistoryModel::AuthorColumn, 151);
    for (VNTheme::Kind kind : {VNTheme::Kind::Dark, VNTheme::Kind::Light}) {
        SCOPED_TRACE(VNTheme::name(kind).toStdString());
        VNTheme::apply(kind, false);
        QApplication::processEvents();
        QImage image = view->viewport()->grab().toImage();
        QRect cell = view->visualRect(window->historyModel()->index(3, 0));
        QColor base = VNTheme::palette(kind).color(QPalette::Base);
        // Far right in the graph column, where no lane reaches in this history.
        EXPECT_TRUE(near(image.pixel(cell.right() - 2, cell.center().y()), base.rgb(), 6));
        EXPECT_EQ(view->palette().color(QPalette::Base), base);
    }
    window->close();
    window.reset();
    auto again = openWindow();
    EXPECT_EQ(again->historyView()->horizontalHeader()->sectionSize(VNHistoryModel::GraphColumn),
              180);
    EXPECT_EQ(again->historyView()->horizontalHeader()->sectionSize(VNHistoryModel::AuthorColumn),
              151);
    loaded(*again);
}

}  // namespace
