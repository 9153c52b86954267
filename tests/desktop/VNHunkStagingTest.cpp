#include <QAction>
#include <QApplication>
#include <QListView>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <filesystem>

#include "PaneTestSupport.h"
#include "desktop/VNDiffLineModel.h"
#include "desktop/VNDiffView.h"
#include "desktop/VNFileListModel.h"
#include "desktop/VNWorkingCopyPane.h"
#include "git/VNRepoHandlerGit.h"
#include "support/TestEnvironment.h"

namespace {

using Action = VNHunkActions::Action;
using vn::test::answerNextMessageBox;
using vn::test::waitUntil;

// Lines "l1".."l20", with the lines named in `changes` replaced.
std::string numbered(const std::vector<std::pair<int, std::string>>& changes = {},
                     const std::vector<int>& order = {}) {
    std::vector<std::string> lines;
    for (int i = 1; i <= 20; ++i) {
        lines.push_back("l" + std::to_string(i));
    }
    for (const auto& [line, text] : changes) {
        lines[static_cast<std::size_t>(line - 1)] = text;
    }
    std::string text;
    if (order.empty()) {
        for (const std::string& line : lines) {
            text += line + "\n";
        }
    } else {
        for (int line : order) {
            text += lines[static_cast<std::size_t>(line - 1)] + "\n";
        }
    }
    return text;
}

// The rows of the diff view whose prefix and text are among `wanted` ("+X17", "-l17").
std::vector<int> rowsOf(const VNDiffView& view, const std::vector<std::string>& wanted) {
    std::vector<int> rows;
    const VNDiffLineModel* model = view.lineModel();
    for (int row = 0; row < model->rowCount(); ++row) {
        VNDiffLineModel::RowView line = model->rowAt(row);
        if (line.kind != VNDiffLineModel::RowKind::Line) {
            continue;
        }
        std::string shown = std::string(1, line.prefix) + std::string(line.text);
        if (std::find(wanted.begin(), wanted.end(), shown) != wanted.end()) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::vector<std::string> selectedLines(const VNDiffView& view) {
    std::vector<std::string> lines;
    for (int row : view.selectedRows()) {
        VNDiffLineModel::RowView line = view.lineModel()->rowAt(row);
        lines.push_back(std::string(1, line.prefix) + std::string(line.text));
    }
    return lines;
}

struct HunkPane {
    vn::test::GitRepository repo;
    std::unique_ptr<VNWorkingCopyPane> pane;

    HunkPane() {
        repo.write("two.txt", numbered());
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "base"});
        // Two hunks far apart: one line replaced near the top, two near the end.
        repo.write("two.txt", numbered({{2, "L2"}, {17, "X17"}, {18, "X18"}}));
        pane =
            std::make_unique<VNWorkingCopyPane>(std::make_shared<VNRepoHandlerGit>(), repo.path());
        pane->resize(900, 700);
        pane->show();
        QSignalSpy refreshed(pane.get(), &VNWorkingCopyPane::statusRefreshed);
        pane->refresh();
        EXPECT_TRUE(waitUntil([&] { return refreshed.count() > 0; }));
    }

    // Chooses the file in one list and waits for its diff.
    void showFile(bool staged) {
        QListView* list = staged ? pane->stagedList() : pane->unstagedList();
        int row = static_cast<VNFileListModel*>(list->model())->rowOfPath("two.txt");
        ASSERT_GE(row, 0) << (staged ? "staged" : "unstaged") << " list lacks the file";
        list->selectionModel()->clearSelection();
        QSignalSpy shown(pane.get(), &VNWorkingCopyPane::diffShown);
        list->selectionModel()->select(list->model()->index(row, 0),
                                       QItemSelectionModel::ClearAndSelect);
        ASSERT_TRUE(waitUntil([&] { return shown.count() > 0; }));
    }

    void chooseRows(const std::vector<std::string>& wanted) {
        QListView* list = pane->diffView()->listView();
        std::vector<int> rows = rowsOf(*pane->diffView(), wanted);
        ASSERT_EQ(rows.size(), wanted.size());
        QItemSelection selection;
        for (int row : rows) {
            selection.select(list->model()->index(row, 0), list->model()->index(row, 0));
        }
        list->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
        list->selectionModel()->setCurrentIndex(list->model()->index(rows.front(), 0),
                                                QItemSelectionModel::NoUpdate);
    }

    bool listed(bool staged) const {
        return (staged ? pane->stagedModel() : pane->unstagedModel())->rowOfPath("two.txt") >= 0;
    }
};

TEST(VNHunkStaging, HunksAndLinesMoveBetweenIndexAndWorkingCopyThroughTheDiffView) {
    HunkPane f;
    const std::string base = numbered();
    struct Step {
        const char* what;
        bool stagedSide;
        Action action;
        std::vector<std::string> rows;
        const char* answer;  // the discard confirmation's button, or none
        bool byKeys;
        std::string index;  // the file in the index afterwards
        std::string work;   // and in the working folder
        std::string focus;  // a row chosen afterwards, when one should be
    };
    const std::string work = numbered({{2, "L2"}, {17, "X17"}, {18, "X18"}});
    const std::string afterHunk = numbered({{2, "L2"}});
    const std::vector<int> swapped = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10,
                                      11, 12, 13, 14, 15, 16, 18, 17, 19, 20};
    const std::string afterLines = numbered({{2, "L2"}, {17, "X17"}}, swapped);
    const std::string discarded = numbered({{2, "L2"}, {17, "X17"}}, swapped);
    const Step steps[] = {
        {"stage the first hunk from one of its rows",
         false,
         Action::StageHunk,
         {"+L2"},
         nullptr,
         false,
         afterHunk,
         work,
         "+X17"},
        // Two runs of one hunk, with an unchosen removal between them.
        {"stage a removed and an added line",
         false,
         Action::StageLines,
         {"-l17", "+X17"},
         nullptr,
         false,
         afterLines,
         work,
         ""},
        {"unstage those lines",
         true,
         Action::UnstageLines,
         {"-l17", "+X17"},
         nullptr,
         false,
         afterHunk,
         work,
         ""},
        {"unstage the hunk by key",
         true,
         Action::UnstageHunk,
         {"-l2"},
         nullptr,
         true,
         base,
         work,
         ""},
        {"discard lines, cancelled",
         false,
         Action::DiscardLines,
         {"-l18", "+X18"},
         "Cancel",
         false,
         base,
         work,
         ""},
        {"discard lines",
         false,
         Action::DiscardLines,
         {"-l18", "+X18"},
         "Discard",
         false,
         base,
         discarded,
         ""},
        {"discard a hunk by key",
         false,
         Action::DiscardHunk,
         {"+L2"},
         "Discard",
         true,
         base,
         numbered({{17, "X17"}}, swapped),
         ""},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        ASSERT_NO_FATAL_FAILURE(f.showFile(step.stagedSide));
        ASSERT_NO_FATAL_FAILURE(f.chooseRows(step.rows));
        QAction* action = f.pane->hunkAction(step.action);
        ASSERT_NE(action, nullptr);
        EXPECT_TRUE(action->isVisible() && action->isEnabled());
        QSignalSpy finished(f.pane.get(), &VNWorkingCopyPane::hunkActionFinished);
        QSignalSpy shown(f.pane.get(), &VNWorkingCopyPane::diffShown);
        QString question;
        if (step.answer) {
            answerNextMessageBox(QString::fromLatin1(step.answer), &question);
        }
        if (step.byKeys) {
            QListView* list = f.pane->diffView()->listView();
            f.pane->activateWindow();
            list->setFocus();
            ASSERT_TRUE(QTest::qWaitForWindowActive(f.pane.get()));
            QKeySequence keys = action->shortcut();
            QTest::keySequence(list, keys);
        } else {
            action->trigger();
        }
        bool cancelled = step.answer && QString::fromLatin1(step.answer) == "Cancel";
        if (cancelled) {
            EXPECT_TRUE(waitUntil([&] { return !question.isEmpty(); }));
        } else {
            ASSERT_TRUE(waitUntil([&] { return finished.count() > 0 && shown.count() > 0; }));
        }
        if (step.answer) {
            // The question names the file and the lines that go.
            EXPECT_TRUE(question.contains(QStringLiteral("two.txt"))) << question.toStdString();
            EXPECT_TRUE(question.contains(QString::fromStdString(step.rows.back().substr(1))))
                << question.toStdString();
        }
        EXPECT_EQ(f.pane->errorText(), QString());
        EXPECT_EQ(f.repo.git({"show", ":two.txt"}), step.index);
        EXPECT_EQ(vn::test::readFile(f.repo.file("two.txt")), step.work);
        EXPECT_EQ(f.listed(true), step.index != base);
        EXPECT_EQ(f.listed(false), step.work != step.index);
        if (!step.focus.empty()) {
            std::vector<std::string> chosen = selectedLines(*f.pane->diffView());
            EXPECT_NE(std::find(chosen.begin(), chosen.end(), step.focus), chosen.end());
        }
    }
}

TEST(VNHunkStaging, ARefusedPatchIsReportedAndNothingIsLost) {
    HunkPane f;
    ASSERT_NO_FATAL_FAILURE(f.showFile(false));
    // Staging a hunk and staging lines, both refused by a lock another git left.
    for (Action action : {Action::StageHunk, Action::StageLines}) {
        SCOPED_TRACE(VNHunkActions::actionName(action));
        ASSERT_NO_FATAL_FAILURE(f.chooseRows({"+X17"}));
        vn::test::writeFile(f.repo.file(".git/index.lock"), "");
        QSignalSpy finished(f.pane.get(), &VNWorkingCopyPane::hunkActionFinished);
        QSignalSpy shown(f.pane.get(), &VNWorkingCopyPane::diffShown);
        ASSERT_TRUE(f.pane->performHunkAction(action));
        ASSERT_TRUE(waitUntil([&] { return finished.count() > 0 && shown.count() > 0; }));
        std::filesystem::remove(f.repo.file(".git/index.lock"));
        QString error = f.pane->errorText();
        EXPECT_TRUE(error.contains(QStringLiteral("index.lock"))) << error.toStdString();
        qsizetype kept = error.indexOf(QStringLiteral("kept in "));
        ASSERT_GE(kept, 0) << error.toStdString();
        std::string patchFile = error.mid(kept + 8).trimmed().toStdString();
        EXPECT_NE(vn::test::readFile(patchFile).find("+X17"), std::string::npos);
        EXPECT_EQ(f.repo.git({"diff", "--cached"}), "");
        EXPECT_EQ(vn::test::readFile(f.repo.file("two.txt")),
                  numbered({{2, "L2"}, {17, "X17"}, {18, "X18"}}));
        EXPECT_TRUE(f.listed(false) && !f.listed(true));
        std::filesystem::remove(patchFile);
    }
    // Actions that do not fit the side shown, or a choice without changed lines, do nothing.
    ASSERT_NO_FATAL_FAILURE(f.chooseRows({" l16"}));
    EXPECT_FALSE(f.pane->hunkAction(Action::UnstageHunk)->isVisible());
    EXPECT_FALSE(f.pane->hunkAction(Action::StageLines)->isEnabled());
    EXPECT_FALSE(f.pane->performHunkAction(Action::UnstageHunk));
    EXPECT_FALSE(f.pane->performHunkAction(Action::StageLines));
}

}  // namespace
