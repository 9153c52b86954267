#include "desktop/VNTheme.h"

#include <QApplication>
#include <QStyle>
#include <QStyleFactory>

#include "platform/Preferences.h"

namespace vn::desktop {

namespace {
VNTheme::Kind gCurrent = VNTheme::Kind::System;
constexpr const char* ThemeKey = "desktopTheme";
}  // namespace

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
    if (!QApplication::style() || QApplication::style()->name() != QStringLiteral("fusion")) {
        QApplication::setStyle(QStringLiteral("Fusion"));
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
