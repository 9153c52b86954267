#include "desktop/VNTextCell.h"

#include <QPainter>

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
    painter->drawText(area, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                      option.fontMetrics.elidedText(value, Qt::ElideRight, area.width()));
}

}  // namespace vn::desktop
