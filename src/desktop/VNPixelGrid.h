#pragma once

#include <QPainter>
#include <QTransform>

#include <algorithm>
#include <cmath>

namespace vn::desktop {

// Places lines on whole device pixels. At 1.25x a 2.0 stroke centred on a lane's half point
// covers two and a half pixels and would be smeared over four; snapped it is three solid ones.
// Neighbours meet on the same rounded edge, so a line runs on unbroken from row to row.
class VNPixelGrid {
  public:
    explicit VNPixelGrid(const QPainter& painter) {
        const QTransform device = painter.deviceTransform();
        // Only a translation and a scale can be snapped; anything else is drawn as given.
        if (device.type() <= QTransform::TxScale && device.m11() > 0 && device.m22() > 0) {
            scaleX_ = device.m11();
            scaleY_ = device.m22();
            dx_ = device.dx();
            dy_ = device.dy();
            snaps_ = true;
        }
    }

    double x(double logical) const { return snap(logical, scaleX_, dx_); }
    double y(double logical) const { return snap(logical, scaleY_, dy_); }
    // A width of whole device pixels, at least one.
    double width(double logical) const {
        return snaps_ ? std::max(1.0, std::round(logical * scaleX_)) / scaleX_ : logical;
    }
    // The left edge of a band `width` wide (already snapped) centred on `centre`.
    double bandLeft(double centre, double width) const { return x(centre - width / 2); }

  private:
    double snap(double logical, double scale, double offset) const {
        return snaps_ ? (std::round(logical * scale + offset) - offset) / scale : logical;
    }
    double scaleX_ = 1;
    double scaleY_ = 1;
    double dx_ = 0;
    double dy_ = 0;
    bool snaps_ = false;
};

}  // namespace vn::desktop
