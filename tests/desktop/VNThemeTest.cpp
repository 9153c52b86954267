#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QRadioButton>
#include <QStyle>
#include <QStyleOptionButton>
#include <QTableWidget>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "desktop/VNTheme.h"

namespace {

using vn::desktop::VNTheme;

int grey(QRgb pixel) {
    return qGray(pixel);
}

// How far the outline stands out: of every pixel in `area`, the one furthest from both the
// base and the window colour, as a difference of grey levels.
int outlineContrast(const QImage& image, const QRect& area, const QPalette& palette) {
    const int base = grey(palette.color(QPalette::Base).rgb());
    const int window = grey(palette.color(QPalette::Window).rgb());
    int best = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const int value = grey(image.pixel(x, y));
            best = std::max(best, std::min(std::abs(value - base), std::abs(value - window)));
        }
    }
    return best;
}

struct Control {
    const char* name;
    // Makes the control; answers the widget to grab and the rectangle (in its logical
    // coordinates) that holds only the empty control's outline and inside.
    std::function<std::pair<std::unique_ptr<QWidget>, QRect>()> make;
};

// Empty check boxes, radio buttons, check boxes in tables and text fields show their outline in
// both themes: on a dark window Fusion's own outline is as dark as the box it frames.
TEST(VNTheme, EmptyControlsShowTheirOutlinesInBothThemes) {
    const Control controls[] = {
        {"check box",
         [] {
             auto box = std::make_unique<QCheckBox>(QStringLiteral("Force"));
             box->adjustSize();
             QStyleOptionButton option;
             option.initFrom(box.get());
             QRect area =
                 box->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, box.get());
             return std::pair<std::unique_ptr<QWidget>, QRect>(std::move(box), area);
         }},
        {"radio button",
         [] {
             auto radio = std::make_unique<QRadioButton>(QStringLiteral("One"));
             radio->adjustSize();
             QStyleOptionButton option;
             option.initFrom(radio.get());
             QRect area = radio->style()->subElementRect(QStyle::SE_RadioButtonIndicator, &option,
                                                         radio.get());
             return std::pair<std::unique_ptr<QWidget>, QRect>(std::move(radio), area);
         }},
        {"check box in a table",
         [] {
             auto table = std::make_unique<QTableWidget>(1, 1);
             auto* item = new QTableWidgetItem();
             item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
             item->setCheckState(Qt::Unchecked);
             table->setItem(0, 0, item);
             table->setSelectionMode(QAbstractItemView::NoSelection);
             table->setShowGrid(false);
             table->resize(200, 100);
             QRect cell = table->visualItemRect(item).adjusted(1, 1, -1, -1);
             cell.translate(table->viewport()->pos());
             return std::pair<std::unique_ptr<QWidget>, QRect>(std::move(table), cell);
         }},
        {"text field",
         [] {
             auto field = std::make_unique<QLineEdit>();
             field->resize(160, field->sizeHint().height());
             QRect all = field->rect();
             return std::pair<std::unique_ptr<QWidget>, QRect>(std::move(field), all);
         }},
    };
    for (VNTheme::Kind theme : {VNTheme::Kind::Light, VNTheme::Kind::Dark}) {
        VNTheme::apply(theme, false);
        for (const Control& control : controls) {
            SCOPED_TRACE(VNTheme::name(theme).toStdString() + " " + control.name);
            auto [widget, area] = control.make();
            ASSERT_FALSE(area.isEmpty());
            QImage image = widget->grab().toImage();
            EXPECT_GE(outlineContrast(image, area, widget->palette()), 40);
        }
    }
    VNTheme::apply(VNTheme::Kind::Light, false);
}

}  // namespace
