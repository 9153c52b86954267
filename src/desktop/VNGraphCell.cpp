#include "desktop/VNGraphCell.h"

#include <QApplication>
#include <QPainter>

#include <cmath>

#include "desktop/VNHistoryModel.h"
#include "desktop/VNPixelGrid.h"
#include "desktop/VNTextCell.h"
#include "model/VNLogGraphEntry.h"

namespace vn::desktop {

namespace {

// Cuts a polyline that runs left to right or right to left at x = `limit`, keeping the part
// left of it. A bend may cross a hundred lanes of which the cell shows ten; stroking all of it
// and clipping afterwards costs a millisecond a row. Answers the number of points kept.
int keepLeftOf(double limit, const QPointF* points, int count, QPointF* kept) {
    int n = 0;
    for (int i = 0; i < count; ++i) {
        const QPointF& point = points[i];
        const bool inside = point.x() <= limit;
        if (i > 0) {
            const QPointF& previous = points[i - 1];
            if (inside != (previous.x() <= limit)) {
                const double t = (limit - previous.x()) / (point.x() - previous.x());
                kept[n++] = QPointF(limit, previous.y() + t * (point.y() - previous.y()));
                if (!inside) {
                    break;
                }
            }
        }
        if (inside) {
            kept[n++] = point;
        }
    }
    return n;
}

}  // namespace

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
    const VNPixelGrid grid(painter);
    const double strokeWidth = grid.width(StrokeWidth);
    const double haloWidth = grid.width(HaloWidth);
    // Every lane is centred where its snapped stroke is, so that dots, bends and straight runs
    // line up exactly.
    const double left = rect.left();
    auto x = [&](uint32_t lane) {
        return grid.bandLeft(left + laneCentre(lane), strokeWidth) + strokeWidth / 2;
    };
    const double top = grid.y(rect.top());
    const double bottom = grid.y(rect.top() + rect.height());
    const double height = bottom - top;
    const double middle = grid.y(top + height / 2);
    const double quarter = height / 4;
    const double dotX = x(entry.commitColumn);
    // Lines wholly right of the cell are clipped anyway; a wide graph has many.
    const double visibleRight = rect.right() + HaloWidth;

    const bool antialiased = painter.testRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);

    // Straight runs first: snapped rectangles need no antialiasing and are filled as blocks.
    // The bends come after, so that their halos cut across the runs they cross.
    painter.setRenderHint(QPainter::Antialiasing, false);
    bool anyBends = false;
    std::size_t position = 0;
    for (const VNLogGraphEntryLine& line : entry.lineColumns) {
        const std::size_t index = position++;
        if (line.isBlank) {
            continue;
        }
        if (line.terminates || line.originates || line.endCol != line.startCol) {
            anyBends = true;
            continue;
        }
        const double laneX = x(line.endCol);
        if (laneX > visibleRight) {
            continue;
        }
        QColor colour = colourOf(line.lineColour);
        // In a selected row the lines that only pass by step back. The line's place in the list
        // is compared with the commit lane on purpose: that is the rule the graph keeps.
        if (selected && index != entry.commitColumn) {
            colour.setAlphaF(0.6f);
        } else {
            painter.fillRect(QRectF(grid.x(laneX - haloWidth / 2), top, haloWidth, height), halo);
        }
        painter.fillRect(QRectF(laneX - strokeWidth / 2, top, strokeWidth, height), colour);
    }

    painter.setRenderHint(QPainter::Antialiasing, true);
    if (anyBends) {
        QPen pen;
        pen.setCapStyle(Qt::FlatCap);
        pen.setJoinStyle(Qt::RoundJoin);
        position = 0;
        for (const VNLogGraphEntryLine& line : entry.lineColumns) {
            const std::size_t index = position++;
            if (line.isBlank ||
                !(line.terminates || line.originates || line.endCol != line.startCol)) {
                continue;
            }
            const double fromX = line.terminates ? dotX : x(line.endCol);
            const double toX = line.originates ? dotX : x(line.startCol);
            if (fromX > visibleRight && toX > visibleRight) {
                continue;
            }
            QColor colour = colourOf(line.lineColour);
            const bool faded = selected && index != entry.commitColumn && !line.terminates;
            if (faded) {
                colour.setAlphaF(0.6f);
            }
            // Segments bend between the row's middle and its edges, so that every line crosses
            // the row's edges straight up and down and joins the rows above and below.
            QPointF points[4];
            QPointF kept[6];
            int count = 0;
            if (line.terminates) {
                points[count++] = QPointF(dotX, middle);
            } else {
                points[count++] = QPointF(fromX, top);
                points[count++] = QPointF(fromX, top + quarter);
            }
            if (line.originates) {
                points[count++] = QPointF(dotX, middle);
            } else {
                if (fromX != toX) {
                    points[count++] = QPointF(toX, line.terminates ? bottom - quarter : middle);
                }
                points[count++] = QPointF(toX, bottom);
            }
            count = keepLeftOf(visibleRight, points, count, kept);
            if (count < 2) {
                continue;
            }
            if (!faded) {
                pen.setWidthF(haloWidth);
                pen.setColor(halo);
                painter.setPen(pen);
                painter.drawPolyline(kept, count);
            }
            pen.setWidthF(strokeWidth);
            pen.setColor(colour);
            painter.setPen(pen);
            painter.drawPolyline(kept, count);
        }
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
    painter.setRenderHint(QPainter::Antialiasing, antialiased);
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
