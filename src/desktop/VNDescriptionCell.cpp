#include "desktop/VNDescriptionCell.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

#include "desktop/VNHistoryModel.h"
#include "desktop/VNPixelGrid.h"
#include "desktop/VNTextCell.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"

namespace vn::desktop {

namespace {

QColor blend(const QColor& a, const QColor& b, double weight) {
    return QColor::fromRgbF(static_cast<float>(a.redF() * weight + b.redF() * (1 - weight)),
                            static_cast<float>(a.greenF() * weight + b.greenF() * (1 - weight)),
                            static_cast<float>(a.blueF() * weight + b.blueF() * (1 - weight)));
}

}  // namespace

QColor VNDescriptionCell::chipColour(const VNLogLabel& label, const QPalette& palette) {
    QColor hue;
    switch (label.type()) {
        case VNLogLabel::Tag:
            hue = QColor(214, 160, 30);
            break;
        case VNLogLabel::RemoteBranch:
            hue = QColor(70, 130, 210);
            break;
        default:
            hue = QColor(60, 170, 90);
            break;
    }
    const bool dark = palette.color(QPalette::Base).lightnessF() < 0.5;
    double weight = label.currentMarker() ? 0.55 : 0.32;
    return blend(hue, palette.color(QPalette::Base), dark ? weight + 0.1 : weight);
}

QString VNDescriptionCell::chipText(const VNLogLabel& label) {
    QString text = QString::fromStdString(label.label());
    if (!label.annotation().empty()) {
        text += QStringLiteral(" ") + QString::fromStdString(label.annotation());
    }
    return text;
}

void VNDescriptionCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const {
    QColor textColour = VNTextCell::paintBackground(painter, option);
    auto pointer = index.data(VNHistoryModel::RowRole).value<quintptr>();
    const VNHistoryRow* row = pointer ? reinterpret_cast<const VNHistoryRow*>(pointer) : nullptr;
    QString subject = index.data(Qt::DisplayRole).toString();
    QFont font = option.font;
    if (row && row->isWorkingCopy()) {
        font.setItalic(true);
    }

    painter->save();
    painter->setClipRect(option.rect);
    double x = option.rect.left() + VNTextCell::Margin;
    if (row && row->description && !row->description->labels().empty()) {
        painter->setRenderHint(QPainter::Antialiasing, true);
        QRectF area = QRectF(option.rect).adjusted(3, 2, -3, -2);
        // Chip edges on whole device pixels, with the outline inside them: crisp at any scale.
        const VNPixelGrid grid(*painter);
        const double outline = grid.width(1.0);
        const double chipTop = grid.y(area.top());
        const double chipBottom = grid.y(area.bottom());
        x = area.left();
        for (const auto& label : row->description->labels()) {
            if (!label) {
                continue;
            }
            QString text = chipText(*label);
            QFont chipFont = option.font;
            chipFont.setBold(label->currentMarker());
            painter->setFont(chipFont);
            const QFontMetrics chipMetrics(chipFont);
            double width = QFontMetricsF(chipFont).horizontalAdvance(text) + 10;
            if (x + width > area.right()) {
                break;
            }
            const double chipLeft = grid.x(x);
            QRectF chip(chipLeft, chipTop, grid.x(x + width) - chipLeft, chipBottom - chipTop);
            QColor fill = chipColour(*label, option.palette);
            painter->setPen(QPen(fill.darker(130), outline));
            painter->setBrush(fill);
            painter->drawRoundedRect(
                chip.adjusted(outline / 2, outline / 2, -outline / 2, -outline / 2), 4, 4);
            painter->setPen(option.palette.color(QPalette::Text));
            VNTextCell::drawLine(*painter, chip.adjusted(5, 0, -5, 0), chipMetrics, text);
            x += width + 4;
        }
        x += 2;
    }
    painter->setFont(font);
    QRectF textRect(x, option.rect.top(), option.rect.right() - x - VNTextCell::Margin,
                    option.rect.height());
    painter->setPen(textColour);
    const QFontMetrics metrics(font);
    VNTextCell::drawLine(*painter, textRect, metrics,
                         metrics.elidedText(subject, Qt::ElideRight,
                                            static_cast<int>(std::floor(textRect.width()))));
    painter->restore();
}

}  // namespace vn::desktop
