#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "DesktopSupport.h"
#include "desktop/VNGraphCell.h"
#include "model/VNLogGraphEntry.h"

namespace {

using vn::desktop::VNGraphCell;
using vn::test::desktop::near;

const QColor Background(200, 200, 200);
const QColor Halo(40, 40, 40);

VNLogGraphColour hue(double h) {
    return VNLogGraphColour::hsb(h, 0.9, 0.8);
}

// Three lanes passing straight by, the commit in the fourth, and a branch line bending in from
// the sixth to the fifth.
std::shared_ptr<VNLogGraphEntry> passingLanes() {
    auto entry = std::make_shared<VNLogGraphEntry>();
    for (uint32_t lane = 0; lane < 3; ++lane) {
        entry->lineColumns.emplace_back(lane, hue(0.15 * lane), "r" + std::to_string(lane));
    }
    entry->commitColumn = 3;
    entry->commitColour = hue(0.6);
    entry->lineColumns.emplace_back(3, entry->commitColour, "parent");
    entry->lineColumns.back().terminates = true;
    VNLogGraphEntryLine bend(5, hue(0.8), "other");
    bend.startCol = 4;
    entry->lineColumns.push_back(bend);
    return entry;
}

// Two rows of the same graph painted one under the other at `scale`, the first starting
// `offset` points down so that row edges fall between device pixels at fractional scales.
QImage paintRows(const VNLogGraphEntry& entry, double scale, double offset, double rowHeight) {
    const double width = 90;
    QImage image(static_cast<int>(std::ceil(width * scale)),
                 static_cast<int>(std::ceil((offset + 2 * rowHeight) * scale)),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(Background);
    QPainter painter(&image);
    for (int row = 0; row < 2; ++row) {
        QRectF rect(0, offset + row * rowHeight, width, rowHeight);
        painter.save();
        painter.setClipRect(rect);
        VNGraphCell::paintGraph(painter, rect, entry, false, false, Halo);
        painter.restore();
    }
    return image;
}

// Straight lanes are solid device pixels at every scale: each pixel across a lane is the
// background, the halo or the line's own colour, never a blend; the stroke and the halo have the
// same whole-pixel widths in every lane, the stroke in the halo's middle; and a lane runs on
// from one row into the next without a seam.
TEST(VNGraphCell, StraightLanesAreSolidDevicePixelsAtEveryScale) {
    auto entry = passingLanes();
    const struct {
        double scale;
        double offset;
        double rowHeight;
    } cases[] = {{1.0, 0, 24}, {1.0, 3.5, 23},  {1.25, 0, 25}, {1.25, 10.4, 25},
                 {1.5, 7, 21}, {2.0, 0.25, 24}, {2.0, 5, 23},  {1.75, 1, 22}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "scale " << c.scale << " offset " << c.offset);
        QImage image = paintRows(*entry, c.scale, c.offset, c.rowHeight);
        const int strokePixels = static_cast<int>(std::round(VNGraphCell::StrokeWidth * c.scale));
        const int haloPixels = static_cast<int>(std::round(VNGraphCell::HaloWidth * c.scale));
        // A device row a quarter into the first graph row, and every device row from there to
        // a quarter into the second: away from the dot, across the edge between the rows.
        const int from = static_cast<int>((c.offset + c.rowHeight / 4) * c.scale);
        const int to = static_cast<int>((c.offset + c.rowHeight * 1.25) * c.scale);
        for (uint32_t lane = 0; lane < 3; ++lane) {
            SCOPED_TRACE(lane);
            const QRgb colour = VNGraphCell::colourOf(entry->lineColumns[lane].lineColour).rgb();
            const int centre = static_cast<int>(VNGraphCell::laneCentre(lane) * c.scale);
            for (int y = from; y <= to; ++y) {
                int stroke = 0;
                int halo = 0;
                int firstStroke = -1;
                int firstHalo = -1;
                for (int x = std::max(0, centre - haloPixels - 1); x <= centre + haloPixels + 1;
                     ++x) {
                    QRgb pixel = image.pixel(x, y);
                    if (pixel == colour) {
                        stroke++;
                        firstStroke = firstStroke < 0 ? x : firstStroke;
                    } else if (pixel == Halo.rgb()) {
                        halo++;
                        firstHalo = firstHalo < 0 ? x : firstHalo;
                    } else {
                        ASSERT_EQ(pixel, Background.rgb())
                            << "blended pixel " << QColor(pixel).name().toStdString() << " at " << x
                            << "," << y;
                    }
                }
                ASSERT_EQ(stroke, strokePixels) << "at device row " << y;
                ASSERT_EQ(halo + stroke, haloPixels) << "at device row " << y;
                // Centred: when the halo is an odd number of pixels wider, one side has one
                // more.
                EXPECT_LE(std::abs(2 * (firstStroke - firstHalo) - (haloPixels - strokePixels)), 1);
                // The line covers the lane's nominal centre.
                EXPECT_LE(firstStroke, centre);
                EXPECT_GT(firstStroke + strokePixels, centre);
            }
        }
        // The dot sits on its lane's stroke: its colour at the lane centre and the row's middle.
        const QRgb dot = VNGraphCell::colourOf(entry->commitColour).rgb();
        const int dotX = static_cast<int>(VNGraphCell::laneCentre(3) * c.scale);
        const int dotY = static_cast<int>((c.offset + c.rowHeight / 2) * c.scale);
        EXPECT_EQ(image.pixel(dotX, dotY), dot);
        // The bend reaches both of its lanes: its colour near the top of the sixth lane and
        // near the bottom of the fifth.
        const QRgb bend = VNGraphCell::colourOf(entry->lineColumns[4].lineColour).rgb();
        const int topY = static_cast<int>((c.offset + 1) * c.scale);
        const int bottomY = static_cast<int>((c.offset + c.rowHeight - 1) * c.scale);
        EXPECT_TRUE(
            near(image.pixel(static_cast<int>(VNGraphCell::laneCentre(5) * c.scale), topY), bend));
        EXPECT_TRUE(near(
            image.pixel(static_cast<int>(VNGraphCell::laneCentre(4) * c.scale), bottomY), bend));
    }
}

}  // namespace
