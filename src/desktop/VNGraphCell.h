#pragma once

#include <QStyledItemDelegate>

class VNLogGraphEntry;
struct VNLogGraphColour;

namespace vn::desktop {

// Paints the commit graph of a history row from its line records.
class VNGraphCell : public QStyledItemDelegate {
    Q_OBJECT
  public:
    static constexpr double LaneWidth = 11.0;
    static constexpr double LaneOffset = 5.5;
    static constexpr double StrokeWidth = 2.0;
    static constexpr double HaloWidth = 4.0;
    static constexpr double DotDiameter = 7.0;
    static constexpr double WorkingCopyDotDiameter = 10.5;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // Draws one row's graph into `rect`; `halo` is the colour the strokes are cut out of the
    // lines they cross with (the palette's base).
    static void paintGraph(QPainter& painter, const QRectF& rect, const VNLogGraphEntry& entry,
                           bool workingCopy, bool selected, const QColor& halo);
    // The centre of lane `lane`, from the cell's left edge.
    static double laneCentre(uint32_t lane) { return LaneWidth * lane + LaneOffset; }
    static QColor colourOf(const VNLogGraphColour& colour);
};

}  // namespace vn::desktop
