#include "model/VNLogGraphColour.h"

#include <cmath>
#include <cstdio>

#include "base/Record.h"

bool VNLogGraphColour::hueBrightnessSimilarTo(double h, double b) const {
    if (!isHSB()) {
        return false;
    }
    double ch = hue;
    if (std::fabs(brightness - b) >= 0.1) {
        return false;
    }
    return std::fabs(ch - h) < 0.12 || (h < 0.1 && std::fabs(ch - (h + 1.0)) < 0.12) ||
           (ch < 0.1 && std::fabs(ch + 1.0 - h) < 0.12);
}

void VNLogGraphColour::rgb(int& red, int& green, int& blue) const {
    double r, g, b;
    if (kind != Kind::HSB) {
        r = g = b = kind == Kind::Grey ? brightness : 0;
    } else {
        double h = std::fmod(hue, 1.0) * 6.0;
        double s = saturation, v = brightness;
        int sector = static_cast<int>(std::floor(h)) % 6;
        double f = h - std::floor(h);
        double p = v * (1 - s), q = v * (1 - s * f), t = v * (1 - s * (1 - f));
        switch (sector) {
            case 0:
                r = v, g = t, b = p;
                break;
            case 1:
                r = q, g = v, b = p;
                break;
            case 2:
                r = p, g = v, b = t;
                break;
            case 3:
                r = p, g = q, b = v;
                break;
            case 4:
                r = t, g = p, b = v;
                break;
            default:
                r = v, g = p, b = q;
                break;
        }
    }
    auto channel = [](double x) {
        return static_cast<int>(std::lround(std::fmin(1.0, std::fmax(0.0, x)) * 255.0));
    };
    red = channel(r);
    green = channel(g);
    blue = channel(b);
}

std::string VNLogGraphColour::hexString() const {
    int r, g, b;
    rgb(r, g, b);
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x", r, g, b);
    return buffer;
}

vn::Value VNLogGraphColour::jsonValue() const {
    switch (kind) {
        case Kind::HSB:
            return vn::Record{{"hue", hue}, {"saturation", saturation}, {"brightness", brightness}};
        case Kind::Grey:
            return vn::Record{{"grey", true}};
        case Kind::None:
            break;
    }
    return nullptr;
}
