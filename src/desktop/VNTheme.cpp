#include "desktop/VNTheme.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QPainter>
#include <QProxyStyle>
#include <QStyle>
#include <QStyleFactory>
#include <QStyleOption>

#include "platform/Preferences.h"

namespace vn::desktop {

namespace {
VNTheme::Kind gCurrent = VNTheme::Kind::System;
constexpr const char* ThemeKey = "desktopTheme";

// Fusion outlines check boxes, radio buttons, text fields and framed lists with the window colour
// darkened, which on a dark window is as dark as what they frame: an unticked box or an empty
// field disappears. On dark palettes this style draws those outlines again, over Fusion's own, in
// a grey between the text and the base.
class ReadableStyle : public QProxyStyle {
  public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        enum Shape { None, Box, Circle, Field, Frame };
        Shape shape = None;
        switch (element) {
            case PE_IndicatorCheckBox:
            case PE_IndicatorItemViewItemCheck:
                shape = Box;
                break;
            case PE_IndicatorRadioButton:
                shape = Circle;
                break;
            case PE_PanelLineEdit:
            case PE_FrameLineEdit: {
                // A focused field has Fusion's highlight for an outline; fields inside combo
                // and spin boxes are framed by those.
                const auto* frame = qstyleoption_cast<const QStyleOptionFrame*>(option);
                const bool inside = widget && widget->parentWidget() &&
                                    (qobject_cast<const QComboBox*>(widget->parentWidget()) ||
                                     qobject_cast<const QAbstractSpinBox*>(widget->parentWidget()));
                if (frame && frame->lineWidth > 0 && !inside &&
                    !option->state.testFlag(State_HasFocus)) {
                    shape = Field;
                }
                break;
            }
            case PE_Frame:
                shape = Frame;
                break;
            default:
                break;
        }
        if (shape == None || !VNTheme::isDark(option->palette)) {
            return;
        }
        QColor outline = VNTheme::outline(option->palette, shape == Box || shape == Circle);
        if (!option->state.testFlag(State_Enabled)) {
            outline.setAlphaF(0.5f);
        }
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing, true);
        painter->setBrush(Qt::NoBrush);
        painter->setPen(QPen(outline, 1.0));
        // The same inset as Fusion's own outline, so that it lies exactly over it.
        const QRectF area = QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5);
        switch (shape) {
            case Circle:
                painter->drawEllipse(area);
                break;
            case Field:
                painter->drawRoundedRect(area, 2, 2);
                break;
            default:
                painter->drawRect(area);
                break;
        }
        painter->restore();
    }
};

}  // namespace

bool VNTheme::isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightnessF() < 0.5;
}

QColor VNTheme::outline(const QPalette& palette, bool strong) {
    const QColor text = palette.color(QPalette::Text);
    const QColor base = palette.color(QPalette::Base);
    const float weight = strong ? 0.45f : 0.33f;
    auto mix = [weight](float a, float b) { return a * weight + b * (1 - weight); };
    return QColor::fromRgbF(mix(text.redF(), base.redF()), mix(text.greenF(), base.greenF()),
                            mix(text.blueF(), base.blueF()));
}

VNTheme::Kind VNTheme::fromName(const QString& name) {
    if (name.compare(QStringLiteral("light"), Qt::CaseInsensitive) == 0) {
        return Kind::Light;
    }
    if (name.compare(QStringLiteral("dark"), Qt::CaseInsensitive) == 0) {
        return Kind::Dark;
    }
    return Kind::System;
}

QString VNTheme::name(Kind kind) {
    switch (kind) {
        case Kind::Light:
            return QStringLiteral("light");
        case Kind::Dark:
            return QStringLiteral("dark");
        default:
            return QStringLiteral("system");
    }
}

QPalette VNTheme::palette(Kind kind) {
    if (kind == Kind::Dark) {
        QPalette p;
        const QColor window(45, 45, 48);
        const QColor base(30, 30, 32);
        const QColor text(225, 225, 228);
        const QColor disabled(130, 130, 135);
        p.setColor(QPalette::Window, window);
        p.setColor(QPalette::WindowText, text);
        p.setColor(QPalette::Base, base);
        p.setColor(QPalette::AlternateBase, QColor(38, 38, 41));
        p.setColor(QPalette::ToolTipBase, window);
        p.setColor(QPalette::ToolTipText, text);
        p.setColor(QPalette::PlaceholderText, disabled);
        p.setColor(QPalette::Text, text);
        p.setColor(QPalette::Button, window);
        p.setColor(QPalette::ButtonText, text);
        p.setColor(QPalette::BrightText, QColor(255, 90, 90));
        p.setColor(QPalette::Link, QColor(110, 170, 255));
        p.setColor(QPalette::LinkVisited, QColor(170, 140, 255));
        p.setColor(QPalette::Highlight, QColor(38, 90, 160));
        p.setColor(QPalette::HighlightedText, Qt::white);
        p.setColor(QPalette::Light, QColor(70, 70, 74));
        p.setColor(QPalette::Midlight, QColor(58, 58, 62));
        p.setColor(QPalette::Mid, QColor(40, 40, 43));
        p.setColor(QPalette::Dark, QColor(22, 22, 24));
        p.setColor(QPalette::Shadow, Qt::black);
        for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
            p.setColor(QPalette::Disabled, role, disabled);
        }
        return p;
    }
    QStyle* style = QApplication::style();
    QPalette p = style ? style->standardPalette() : QPalette();
    if (kind == Kind::Light) {
        p.setColor(QPalette::Base, Qt::white);
        p.setColor(QPalette::AlternateBase, QColor(245, 246, 248));
        p.setColor(QPalette::Highlight, QColor(48, 120, 215));
        p.setColor(QPalette::HighlightedText, Qt::white);
    }
    return p;
}

void VNTheme::apply(Kind kind, bool remember) {
    gCurrent = kind;
    if (!dynamic_cast<ReadableStyle*>(QApplication::style())) {
        QApplication::setStyle(new ReadableStyle(QStyleFactory::create(QStringLiteral("Fusion"))));
    }
    QApplication::setPalette(kind == Kind::System ? QApplication::style()->standardPalette()
                                                  : palette(kind));
    if (remember) {
        vn::Preferences::standard().set(ThemeKey, name(kind).toStdString());
    }
}

VNTheme::Kind VNTheme::current() {
    return gCurrent;
}

VNTheme::Kind VNTheme::preferred() {
    return fromName(QString::fromStdString(vn::Preferences::standard().stringForKey(ThemeKey)));
}

}  // namespace vn::desktop
