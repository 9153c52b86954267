#pragma once

#include <QPalette>
#include <QString>

namespace vn::desktop {

// The application's light and dark looks: Fusion with a palette of each kind, so that every
// colour the views draw with comes from the palette.
class VNTheme {
  public:
    enum class Kind { System, Light, Dark };

    static Kind fromName(const QString& name);  // "light", "dark", anything else System
    static QString name(Kind kind);
    static QPalette palette(Kind kind);
    // Applies the theme to the running application and remembers it as the preference.
    static void apply(Kind kind, bool remember = true);
    static Kind current();
    // The theme the preferences name.
    static Kind preferred();
    // Whether the palette is a dark one.
    static bool isDark(const QPalette& palette);
    // A frame colour that stands out from the base and the window of light and dark palettes;
    // `strong` for the small controls (check boxes) that must be found at a glance.
    static QColor outline(const QPalette& palette, bool strong = true);
};

}  // namespace vn::desktop
