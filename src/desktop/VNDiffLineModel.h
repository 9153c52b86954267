#pragma once

#include <QAbstractListModel>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

class VNDiffModel;
class VNDiffFileModel;
class VNDiffHunkModel;

// The rows of a diff as a list: for each file a header row, then either a placeholder row (a
// binary file, a large-file pointer, a file without text, or one too large to show) or, for each
// hunk, its header row and one row per line.
//
// Rows are not stored: the model keeps one run per header and per hunk's lines and finds a row's
// run by binary search, so a diff of millions of lines costs a few bytes per hunk here, and the
// text of a line is read from the hunk only when a row is painted.
class VNDiffLineModel : public QAbstractListModel {
    Q_OBJECT
  public:
    enum class RowKind : uint8_t { FileHeader, HunkHeader, Line, Placeholder };
    enum Role {
        KindRole = Qt::UserRole + 1,  // RowKind as int
        PrefixRole,                   // "+", "-", " ", "\\"
        BeforeLineNumberRole,         // int, -1 without an old side
        AfterLineNumberRole,          // int, -1 without a new side
    };
    // One row, read without copying its text; valid while the model holds its diff.
    struct RowView {
        RowKind kind = RowKind::Line;
        const VNDiffFileModel* file = nullptr;
        const VNDiffHunkModel* hunk = nullptr;
        char prefix = ' ';
        std::string_view text;  // the line's content after its prefix (Line rows)
        int64_t beforeLineNumber = -1;
        int64_t afterLineNumber = -1;
    };

    // Files with more lines than this show a placeholder instead.
    static constexpr std::size_t DefaultLineLimit = 2'000'000;

    explicit VNDiffLineModel(QObject* parent = nullptr);
    ~VNDiffLineModel() override;

    void setDiff(std::shared_ptr<VNDiffModel> diff);
    const std::shared_ptr<VNDiffModel>& diff() const { return diff_; }
    void setLineLimit(std::size_t limit) { lineLimit_ = limit; }

    RowView rowAt(int row) const;
    // The text a header or placeholder row shows.
    QString headerText(int row) const;
    // The widest line number on either side, for the gutter.
    int64_t largestLineNumber() const { return largestLineNumber_; }
    // The longest line's length in bytes, for the horizontal extent.
    std::size_t longestLine() const { return longestLine_; }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

  private:
    struct Run {
        int firstRow = 0;
        RowKind kind = RowKind::Line;
        uint32_t file = 0;
        uint32_t hunk = 0;
    };
    void build();
    const Run& runFor(int row) const;
    QString placeholderText(const VNDiffFileModel& file) const;

    std::shared_ptr<VNDiffModel> diff_;
    std::vector<Run> runs_;
    int rowCount_ = 0;
    int64_t largestLineNumber_ = 0;
    std::size_t longestLine_ = 0;
    std::size_t lineLimit_ = DefaultLineLimit;
};
