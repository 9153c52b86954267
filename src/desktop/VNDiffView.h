#pragma once

#include <QWidget>

#include <memory>
#include <vector>

class QLabel;
class QListView;
class QStackedLayout;
class VNDiffLineModel;
class VNDiffModel;

// Shows a diff as a list of line rows: both line numbers in a gutter, added and removed lines
// tinted from the palette, hunk and file headers, tabs and trailing blanks made visible. Rows
// are painted straight from the diff's line records, so a diff of any size shows at once; a
// binary file, a large-file pointer or a file too large to show gets a placeholder instead.
// Lines can be chosen, several at a time, for staging single lines.
class VNDiffView : public QWidget {
    Q_OBJECT
  public:
    explicit VNDiffView(QWidget* parent = nullptr);
    ~VNDiffView() override;

    void setDiff(std::shared_ptr<VNDiffModel> diff);
    void clear();
    // Shows the text instead of lines (nothing selected, loading, an error).
    void showPlaceholder(const QString& text);
    // The line rows the user chose, in order; header rows are never among them.
    std::vector<int> selectedRows() const;
    // The chosen lines' text, one a line, without prefixes (what Copy puts on the clipboard).
    QString selectedText() const;

    // What the view shows, for callers that need to look closer (and tests).
    VNDiffLineModel* lineModel() const { return model_; }
    QListView* listView() const { return list_; }
    bool isShowingPlaceholder() const;
    QString placeholderText() const;

  signals:
    void selectionChanged();

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void updateMetrics();

    QStackedLayout* stack_ = nullptr;
    QListView* list_ = nullptr;
    QLabel* placeholder_ = nullptr;
    VNDiffLineModel* model_ = nullptr;
    class LineDelegate;
    LineDelegate* delegate_ = nullptr;
};
