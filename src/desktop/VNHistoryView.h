#pragma once

#include <QTableView>

namespace vn::desktop {

// The history table: fixed row height, whole-row selection, and a Ctrl+End that reaches the last
// row of the history even while it is still arriving.
class VNHistoryView : public QTableView {
    Q_OBJECT
  public:
    explicit VNHistoryView(QWidget* parent = nullptr);

    void setModel(QAbstractItemModel* model) override;
    // Moves to the last row, and keeps moving there as rows arrive while more are coming.
    void goToEnd();
    // Whether the model is still receiving rows; told by the window.
    void setMoreRowsComing(bool coming);
    bool followingEnd() const { return followEnd_; }

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    void selectLastRow();
    bool followEnd_ = false;
    bool moreComing_ = false;
};

}  // namespace vn::desktop
