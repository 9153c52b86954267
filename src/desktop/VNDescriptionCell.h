#pragma once

#include <QStyledItemDelegate>

class VNLogLabel;

namespace vn::desktop {

// Paints a history row's labels as coloured chips before its subject.
class VNDescriptionCell : public QStyledItemDelegate {
    Q_OBJECT
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

    // The chip's fill for a label of this type, blended into the palette so that it reads on
    // light and dark bases alike.
    static QColor chipColour(const VNLogLabel& label, const QPalette& palette);
    // "main", "origin/main", "v1.0", with the ahead/behind text of a branch.
    static QString chipText(const VNLogLabel& label);
};

}  // namespace vn::desktop
