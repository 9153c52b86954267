#include "desktop/VNHistoryView.h"

#include <QHeaderView>
#include <QKeyEvent>

#include "desktop/VNDescriptionCell.h"
#include "desktop/VNGraphCell.h"
#include "desktop/VNHistoryModel.h"
#include "desktop/VNTextCell.h"

namespace vn::desktop {

VNHistoryView::VNHistoryView(QWidget* parent) : QTableView(parent) {
    setObjectName(QStringLiteral("history"));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setShowGrid(false);
    setWordWrap(false);
    setCornerButtonEnabled(false);
    setTabKeyNavigation(false);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    QHeaderView* rows = verticalHeader();
    rows->hide();
    // A fixed height lets the view place any row without asking the model about the others.
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(fontMetrics().height() + 8);
    QHeaderView* columns = horizontalHeader();
    columns->setHighlightSections(false);
    columns->setStretchLastSection(false);
    columns->setSectionResizeMode(QHeaderView::Interactive);
    setItemDelegateForColumn(VNHistoryModel::GraphColumn, new VNGraphCell(this));
    setItemDelegateForColumn(VNHistoryModel::DescriptionColumn, new VNDescriptionCell(this));
    auto* text = new VNTextCell(this);
    for (int column :
         {VNHistoryModel::AuthorColumn, VNHistoryModel::DateColumn, VNHistoryModel::CommitColumn}) {
        setItemDelegateForColumn(column, text);
    }
}

void VNHistoryView::setModel(QAbstractItemModel* model) {
    if (QAbstractItemModel* old = this->model()) {
        disconnect(old, nullptr, this, nullptr);
    }
    QTableView::setModel(model);
    if (model) {
        connect(model, &QAbstractItemModel::rowsInserted, this, [this] {
            if (followEnd_) {
                selectLastRow();
            }
        });
        connect(model, &QAbstractItemModel::modelReset, this, [this] { followEnd_ = false; });
        QHeaderView* columns = horizontalHeader();
        columns->setSectionResizeMode(VNHistoryModel::DescriptionColumn, QHeaderView::Stretch);
    }
}

void VNHistoryView::selectLastRow() {
    if (!model() || model()->rowCount() == 0) {
        return;
    }
    QModelIndex last = model()->index(model()->rowCount() - 1, VNHistoryModel::DescriptionColumn);
    setCurrentIndex(last);
    scrollTo(last, QAbstractItemView::PositionAtBottom);
}

void VNHistoryView::goToEnd() {
    selectLastRow();
    followEnd_ = moreComing_;
}

void VNHistoryView::setMoreRowsComing(bool coming) {
    moreComing_ = coming;
    if (!coming && followEnd_) {
        selectLastRow();
        followEnd_ = false;
    }
}

void VNHistoryView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_End && event->modifiers().testFlag(Qt::ControlModifier)) {
        goToEnd();
        event->accept();
        return;
    }
    // Any other move means the user is somewhere else now.
    followEnd_ = false;
    QTableView::keyPressEvent(event);
}

}  // namespace vn::desktop
