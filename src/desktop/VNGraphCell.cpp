#include "desktop/VNGraphCell.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

#include "desktop/VNHistoryModel.h"
#include "model/VNLogGraphEntry.h"

namespace vn::desktop {

QColor VNGraphCell::colourOf(const VNLogGraphColour& colour) {
    if (colour.kind == VNLogGraphColour::Kind::None) {
        return QColor(128, 128, 128);
    }
    int red = 0;
    int green = 0;
    int blue = 0;
    colour.rgb(red, green, blue);
    QColor result(red, green, blue);
    result.setAlphaF(static_cast<float>(colour.alpha));
    return result;
}

void VNGraphCell::paintGraph(QPainter& painter, const QRectF& rect, const VNLogGraphEntry& entry,
                             bool workingCopy, bool selected, const QColor& halo) {
    const double top = rect.top();
    const double bottom = rect.bottom();
    const double middle = rect.center().y();
    const double left = rect.left();
    auto x = [&](uint32_t lane) { return left + laneCentre(lane); };
    const double dotX = x(entry.commitColumn);

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setBrush(Qt::NoBrush);
    QPen pen;
    pen.setCapStyle(Qt::FlatCap);
    pen.setJoinStyle(Qt::RoundJoin);
    std::size_t position = 0;
    for (const VNLogGraphEntryLine& line : entry.lineColumns) {
        const std::size_t index = position++;
        if (line.isBlank) {
            continue;
        }
        // Angled segments that bend between the row's middle and its edges, so that every line
        // crosses the row's edges straight up and down and joins the rows above and below.
        const double quarter = (bottom - top) / 4;
        QPainterPath path;
        if (line.terminates) {
            path.moveTo(dotX, middle);
        } else {
            path.moveTo(x(line.endCol), top);
            if (line.originates || line.endCol != line.startCol) {
                path.lineTo(x(line.endCol), top + quarter);
            }
        }
        if (line.originates) {
            path.lineTo(dotX, middle);
        } else {
            const double toX = x(line.startCol);
            const double fromX = line.terminates ? dotX : x(line.endCol);
            if (fromX != toX) {
                path.lineTo(toX, line.terminates ? bottom - quarter : middle);
            }
            path.lineTo(toX, bottom);
        }
        QColor colour = colourOf(line.lineColour);
        // In a selected row the lines that only pass by step back. The line's place in the list
        // is compared with the commit lane on purpose: that is the rule the graph keeps.
        if (selected && index != entry.commitColumn && !line.terminates) {
            colour.setAlphaF(0.6f);
            pen.setWidthF(StrokeWidth);
            pen.setColor(colour);
            painter.setPen(pen);
            painter.drawPath(path);
            continue;
        }
        pen.setWidthF(HaloWidth);
        pen.setColor(halo);
        painter.setPen(pen);
        painter.drawPath(path);
        pen.setWidthF(StrokeWidth);
        pen.setColor(colour);
        painter.setPen(pen);
        painter.drawPath(path);
    }

    const double diameter = workingCopy ? WorkingCopyDotDiameter : DotDiameter;
    const QPointF centre(dotX, middle);
    painter.setPen(QPen(halo, 1.0));
    painter.setBrush(colourOf(entry.commitColour));
    painter.drawEllipse(centre, diameter / 2, diameter / 2);
    if (workingCopy) {
        // The hollow dot: uncommitted changes are not a commit yet.
        painter.setPen(Qt::NoPen);
        painter.setBrush(halo);
        painter.drawEllipse(centre, diameter / 4, diameter / 4);
    }
    painter.restore();
}

void VNGraphCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index) const {
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, widget);

    auto pointer = index.data(VNHistoryModel::RowRole).value<quintptr>();
    if (!pointer) {
        return;
    }
    const auto& row = *reinterpret_cast<const VNHistoryRow*>(pointer);
    if (!row.graph) {
        return;
    }
    painter->save();
    painter->setClipRect(option.rect);
    paintGraph(*painter, QRectF(option.rect), *row.graph, row.isWorkingCopy(),
               option.state.testFlag(QStyle::State_Selected), option.palette.color(QPalette::Base));
    painter->restore();
}

QSize VNGraphCell::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    auto pointer = index.data(VNHistoryModel::RowRole).value<quintptr>();
    if (pointer) {
        const auto& row = *reinterpret_cast<const VNHistoryRow*>(pointer);
        if (row.graph) {
            uint32_t lanes = row.graph->commitColumn + 1;
            for (const auto& line : row.graph->lineColumns) {
                lanes = std::max({lanes, line.startCol + 1, line.endCol + 1});
            }
            size.setWidth(static_cast<int>(LaneWidth * lanes + LaneOffset));
        }
    }
    return size;
}

}  // namespace vn::desktop
