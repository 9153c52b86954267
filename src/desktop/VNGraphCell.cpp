#include "desktop/VNGraphCell.h"

#include <QApplication>
#include <QPainter>

#include "desktop/VNHistoryModel.h"
#include "desktop/VNTextCell.h"
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
    // Lines wholly right of the cell are clipped anyway; a wide graph has many.
    const double visibleRight = rect.right() + HaloWidth;
    const double height = bottom - top;
    const double quarter = height / 4;
    std::size_t position = 0;
    for (const VNLogGraphEntryLine& line : entry.lineColumns) {
        const std::size_t index = position++;
        if (line.isBlank) {
            continue;
        }
        const double fromX = line.terminates ? dotX : x(line.endCol);
        const double toX = line.originates ? dotX : x(line.startCol);
        if (fromX > visibleRight && toX > visibleRight) {
            continue;
        }
        QColor colour = colourOf(line.lineColour);
        // In a selected row the lines that only pass by step back. The line's place in the list
        // is compared with the commit lane on purpose: that is the rule the graph keeps.
        const bool faded = selected && index != entry.commitColumn && !line.terminates;
        if (faded) {
            colour.setAlphaF(0.6f);
        }
        if (!line.terminates && !line.originates && line.endCol == line.startCol) {
            // Most segments run straight down their lane: rectangles are far cheaper to fill
            // than strokes.
            if (!faded) {
                painter.fillRect(QRectF(fromX - HaloWidth / 2, top, HaloWidth, height), halo);
            }
            painter.fillRect(QRectF(fromX - StrokeWidth / 2, top, StrokeWidth, height), colour);
            continue;
        }
        // Angled segments that bend between the row's middle and its edges, so that every line
        // crosses the row's edges straight up and down and joins the rows above and below.
        QPointF points[4];
        int count = 0;
        if (line.terminates) {
            points[count++] = QPointF(dotX, middle);
        } else {
            points[count++] = QPointF(fromX, top);
            if (line.originates || line.endCol != line.startCol) {
                points[count++] = QPointF(fromX, top + quarter);
            }
        }
        if (line.originates) {
            points[count++] = QPointF(dotX, middle);
        } else {
            if (fromX != toX) {
                points[count++] = QPointF(toX, line.terminates ? bottom - quarter : middle);
            }
            points[count++] = QPointF(toX, bottom);
        }
        if (!faded) {
            pen.setWidthF(HaloWidth);
            pen.setColor(halo);
            painter.setPen(pen);
            painter.drawPolyline(points, count);
        }
        pen.setWidthF(StrokeWidth);
        pen.setColor(colour);
        painter.setPen(pen);
        painter.drawPolyline(points, count);
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
    VNTextCell::paintBackground(painter, option);

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
