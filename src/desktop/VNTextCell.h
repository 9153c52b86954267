#pragma once

#include <QStyledItemDelegate>

namespace vn::desktop {

// Paints a history cell's text straight onto the row: the style's item drawing lays out every
// cell's text with a QTextLayout, which is most of a repaint of a long table.
class VNTextCell : public QStyledItemDelegate {
    Q_OBJECT
  public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

    // Fills a selected row's cell with the highlight; answers the colour its text takes.
    static QColor paintBackground(QPainter* painter, const QStyleOptionViewItem& option);
    // Draws one line of text, already short enough, vertically centred in `area`.
    static void drawLine(QPainter& painter, const QRectF& area, const QFontMetrics& metrics,
                         const QString& text);
    static constexpr int Margin = 4;
};

}  // namespace vn::desktop
