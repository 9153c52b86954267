#include "desktop/VNTextCell.h"

#include <QPainter>

#include <cmath>

namespace vn::desktop {

QColor VNTextCell::paintBackground(QPainter* painter, const QStyleOptionViewItem& option) {
    const bool selected = option.state.testFlag(QStyle::State_Selected);
    if (selected) {
        QPalette::ColorGroup group =
            option.state.testFlag(QStyle::State_Active) ? QPalette::Active : QPalette::Inactive;
        painter->fillRect(option.rect, option.palette.brush(group, QPalette::Highlight));
        return option.palette.color(group, QPalette::HighlightedText);
    }
    return option.palette.color(QPalette::Text);
}

void VNTextCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                       const QModelIndex& index) const {
    QColor text = paintBackground(painter, option);
    QString value = index.data(Qt::DisplayRole).toString();
    if (value.isEmpty()) {
        return;
    }
    QRect area = option.rect.adjusted(Margin, 0, -Margin, 0);
    painter->setPen(text);
    painter->setFont(option.font);
    drawLine(*painter, area, option.fontMetrics,
             option.fontMetrics.elidedText(value, Qt::ElideRight, area.width()));
}

void VNTextCell::drawLine(QPainter& painter, const QRectF& area, const QFontMetrics& metrics,
                          const QString& text) {
    // Drawn at its baseline: a rectangle with alignment flags lays the text out with a whole
    // QTextLayout, a large part of a table's repaint.
    const double baseline = area.top() + (area.height() - metrics.height()) / 2 + metrics.ascent();
    painter.drawText(QPointF(area.left(), std::round(baseline)), text);
}

}  // namespace vn::desktop
