#include <QApplication>
#include <QImage>
#include <QListView>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include "PaneTestSupport.h"
#include "desktop/VNDiffLineModel.h"
#include "desktop/VNDiffView.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNDiffModel.h"

namespace {

using Kind = VNDiffLineModel::RowKind;

std::shared_ptr<VNDiffModel> parse(const std::string& text) {
    VNRepoHandlerGit handler;
    auto diff = std::make_shared<VNDiffModel>();
    handler.parseDiffToModel(text, diff->fileEntries(), 20);
    return diff;
}

// Two hunks with a tab, trailing blanks, CRLF ends and a missing final newline; a binary file;
// a rename that also changed the mode; a line that is not UTF-8.
const char* const kMixedDiff =
    "diff --git a/src/a.c b/src/a.c\n"
    "index 1111111..2222222 100644\n"
    "--- a/src/a.c\n"
    "+++ b/src/a.c\n"
    "@@ -1,3 +1,4 @@\r\n"
    " first\r\n"
    "-\told\r\n"
    "+\tnew   \r\n"
    "+added\n"
    " third\n"
    "@@ -98 +99,2 @@\n"
    "-last\n"
    "+last\n"
    "\\ No newline at end of file\n"
    "+more\n"
    "diff --git a/img.png b/img.png\n"
    "index 3333333..4444444 100644\n"
    "Binary files a/img.png and b/img.png differ\n"
    "diff --git a/run.sh b/tools/run.sh\n"
    "old mode 100644\n"
    "new mode 100755\n"
    "similarity index 100%\n"
    "rename from run.sh\n"
    "rename to tools/run.sh\n"
    "diff --git a/latin1.txt b/latin1.txt\n"
    "--- a/latin1.txt\n"
    "+++ b/latin1.txt\n"
    "@@ -7,0 +8 @@\n"
    "+caf\xe9\n";

TEST(VNDiffLineModel, RowsFollowTheDiffAndPassTheModelTester) {
    VNDiffLineModel model;
    vn::test::CheckedModel checked(&model);
    model.setDiff(parse(kMixedDiff));

    struct Row {
        Kind kind;
        char prefix;
        int64_t before, after;
        QString text;
    };
    const std::vector<Row> expected = {
        {Kind::FileHeader, ' ', -1, -1, QStringLiteral("src/a.c   +4 \u22122")},
        {Kind::HunkHeader, ' ', -1, -1, QStringLiteral("@@ -1,3 +1,4 @@")},
        {Kind::Line, ' ', 1, 1, QStringLiteral("first")},
        {Kind::Line, '-', 2, -1, QStringLiteral("\told")},
        {Kind::Line, '+', -1, 2, QStringLiteral("\tnew   ")},
        {Kind::Line, '+', -1, 3, QStringLiteral("added")},
        {Kind::Line, ' ', 3, 4, QStringLiteral("third")},
        {Kind::HunkHeader, ' ', -1, -1, QStringLiteral("@@ -98,1 +99,2 @@")},
        {Kind::Line, '-', 98, -1, QStringLiteral("last")},
        {Kind::Line, '+', -1, 99, QStringLiteral("last")},
        {Kind::Line, '\\', -1, -1, QStringLiteral(" No newline at end of file")},
        {Kind::Line, '+', -1, 100, QStringLiteral("more")},
        {Kind::FileHeader, ' ', -1, -1, QStringLiteral("img.png   +0 \u22120")},
        {Kind::Placeholder, ' ', -1, -1, QStringLiteral("Binary file: no lines to show")},
        {Kind::FileHeader, ' ', -1, -1, QStringLiteral("run.sh \u2192 tools/run.sh   +0 \u22120")},
        {Kind::Placeholder, ' ', -1, -1, QStringLiteral("Mode changed from 100644 to 100755")},
        {Kind::FileHeader, ' ', -1, -1, QStringLiteral("latin1.txt   +1 \u22120")},
        // A hunk header without the new side's count is kept with zero numbers.
        {Kind::HunkHeader, ' ', -1, -1, QStringLiteral("@@ -0,0 +0,0 @@")},
        {Kind::Line, '+', -1, 0, QStringLiteral("caf\u00e9")},
    };
    ASSERT_EQ(model.rowCount(), static_cast<int>(expected.size()));
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        const Row& want = expected[i];
        QModelIndex index = model.index(static_cast<int>(i));
        auto row = model.rowAt(static_cast<int>(i));
        EXPECT_EQ(row.kind, want.kind);
        EXPECT_EQ(index.data(Qt::DisplayRole).toString(), want.text);
        EXPECT_EQ(index.data(VNDiffLineModel::BeforeLineNumberRole).toLongLong(), want.before);
        EXPECT_EQ(index.data(VNDiffLineModel::AfterLineNumberRole).toLongLong(), want.after);
        if (want.kind == Kind::Line) {
            EXPECT_EQ(row.prefix, want.prefix);
            EXPECT_TRUE(model.flags(index) & Qt::ItemIsSelectable);
        } else {
            EXPECT_FALSE(model.flags(index) & Qt::ItemIsSelectable);
        }
    }
    EXPECT_EQ(model.largestLineNumber(), 100);

    // Too many lines for one file: its rows give way to a single placeholder.
    model.setLineLimit(5);
    model.setDiff(parse(kMixedDiff));
    EXPECT_EQ(model.rowAt(1).kind, Kind::Placeholder);
    EXPECT_TRUE(model.headerText(1).contains(QStringLiteral("too large")));
    model.setDiff(nullptr);
    EXPECT_EQ(model.rowCount(), 0);
}

QPalette paletteWithBase(const QColor& base, const QColor& text) {
    QPalette palette = QApplication::palette();
    for (auto role : {QPalette::Base, QPalette::Window, QPalette::Button}) {
        palette.setColor(role, base);
    }
    for (auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
        palette.setColor(role, text);
    }
    return palette;
}

// The colour well right of a row's text, where only the row's background is painted.
QColor backgroundOf(const QImage& image, const QRect& row) {
    return image.pixelColor(row.right() - 4, row.center().y());
}

bool rowHasInk(const QImage& image, const QRect& area, const QColor& background) {
    for (int x = area.left(); x <= area.right(); ++x) {
        for (int y = area.top(); y <= area.bottom(); ++y) {
            if (image.pixelColor(x, y) != background) {
                return true;
            }
        }
    }
    return false;
}

TEST(VNDiffView, AddedAndRemovedLinesAreTintedAndNumberedInLightAndDarkThemes) {
    const std::string diff =
        "diff --git a/f.txt b/f.txt\n"
        "--- a/f.txt\n"
        "+++ b/f.txt\n"
        "@@ -10,3 +10,3 @@\n"
        " same\n"
        "-gone\n"
        "+came\n"
        "+x   \n"
        "+x\n";
    const std::vector<std::pair<QColor, QColor>> themes = {
        {Qt::white, Qt::black}, {QColor(30, 30, 30), QColor(220, 220, 220)}};
    for (const auto& [base, text] : themes) {
        SCOPED_TRACE(base.name().toStdString());
        VNDiffView view;
        view.setPalette(paletteWithBase(base, text));
        view.resize(600, 300);
        view.setDiff(parse(diff));
        view.show();
        ASSERT_FALSE(view.isShowingPlaceholder());
        QListView* list = view.listView();
        QImage image = list->viewport()->grab().toImage();
        auto rect = [&](int row) { return list->visualRect(view.lineModel()->index(row)); };

        QColor context = backgroundOf(image, rect(2));
        QColor removed = backgroundOf(image, rect(3));
        QColor added = backgroundOf(image, rect(4));
        EXPECT_EQ(context, base);
        EXPECT_GT(added.green(), added.red());
        EXPECT_GT(added.green(), added.blue());
        EXPECT_GT(removed.red(), removed.green());
        EXPECT_GT(removed.red(), removed.blue());
        // Tinted, yet close enough to the base that the text keeps its contrast.
        for (const QColor& tint : {added, removed}) {
            EXPECT_LT(std::abs(tint.lightness() - base.lightness()), 80);
            EXPECT_GT(std::abs(tint.lightness() - text.lightness()), 100);
        }

        // Both gutters carry a number on a context line; a removed line has only the old one.
        QRect contextRow = rect(2);
        QColor gutter = image.pixelColor(contextRow.left() + 1, contextRow.top() + 1);
        int numberWidth = QFontMetrics(list->font()).horizontalAdvance(QLatin1Char('0')) * 4;
        QRect oldNumber(contextRow.left(), contextRow.top(), numberWidth, contextRow.height());
        QRect newNumber(contextRow.left() + numberWidth, contextRow.top(), numberWidth,
                        contextRow.height());
        EXPECT_TRUE(rowHasInk(image, oldNumber, gutter));
        EXPECT_TRUE(rowHasInk(image, newNumber, gutter));
        QRect removedRow = rect(3);
        EXPECT_TRUE(
            rowHasInk(image, oldNumber.translated(0, removedRow.top() - contextRow.top()), gutter));
        EXPECT_FALSE(
            rowHasInk(image, newNumber.translated(0, removedRow.top() - contextRow.top()), gutter));

        // "x" with trailing blanks paints differently from "x": the blanks are shown.
        QImage withBlanks = image.copy(rect(5));
        QImage without = image.copy(rect(6));
        EXPECT_NE(withBlanks, without);
    }
}

TEST(VNDiffView, PlaceholdersAndChosenLines) {
    VNDiffView view;
    QSignalSpy changed(&view, &VNDiffView::selectionChanged);
    EXPECT_TRUE(view.isShowingPlaceholder());

    view.setDiff(parse("diff --git a/b.bin b/b.bin\nBinary files a/b.bin and b/b.bin differ\n"));
    EXPECT_TRUE(view.isShowingPlaceholder());
    EXPECT_TRUE(view.placeholderText().contains(QStringLiteral("Binary")));
    view.setDiff(parse(""));
    EXPECT_TRUE(view.isShowingPlaceholder());
    EXPECT_EQ(view.placeholderText(), QStringLiteral("No changes"));

    view.setDiff(parse(kMixedDiff));
    EXPECT_FALSE(view.isShowingPlaceholder());
    view.listView()->selectAll();
    std::vector<int> lines;
    for (int row = 0; row < view.lineModel()->rowCount(); ++row) {
        if (view.lineModel()->rowAt(row).kind == Kind::Line) {
            lines.push_back(row);
        }
    }
    EXPECT_EQ(view.selectedRows(), lines);
    EXPECT_GT(changed.count(), 0);

    // Copy takes the chosen lines' text without prefixes, and not the marker of a missing
    // final newline.
    QItemSelectionModel* selection = view.listView()->selectionModel();
    selection->select(QItemSelection(view.lineModel()->index(4), view.lineModel()->index(10)),
                      QItemSelectionModel::ClearAndSelect);
    EXPECT_EQ(view.selectedRows(), (std::vector<int>{4, 5, 6, 8, 9, 10}));
    EXPECT_EQ(view.selectedText(), QStringLiteral("\tnew   \nadded\nthird\nlast\nlast\n"));

    view.showPlaceholder(QStringLiteral("Loading"));
    EXPECT_TRUE(view.selectedRows().empty());
    view.clear();
    EXPECT_EQ(view.lineModel()->rowCount(), 0);
}

}  // namespace
