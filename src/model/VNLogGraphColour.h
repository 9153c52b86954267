#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "base/Value.h"

namespace vn {
class JsonWriter;
}

// A colour of the commit graph: a hue/saturation/brightness colour, the neutral grey kept for the
// working-copy row, or no colour at all (a line not yet given one).
struct VNLogGraphColour {
    enum class Kind { None, HSB, Grey };

    Kind kind = Kind::None;
    double hue = 0;
    double saturation = 0;
    double brightness = 0;
    double alpha = 1.0;

    static VNLogGraphColour hsb(double hue, double saturation, double brightness,
                                double alpha = 1.0) {
        return {Kind::HSB, hue, saturation, brightness, alpha};
    }
    // Calibrated white 0.5, fully opaque.
    static VNLogGraphColour grey() { return {Kind::Grey, 0, 0, 0.5, 1.0}; }

    bool isHSB() const { return kind == Kind::HSB; }
    bool isGrey() const { return kind == Kind::Grey; }

    // Whether this colour's hue and brightness are close to the given ones (hues wrap around at
    // 1.0; saturation does not count). Only hue/saturation/brightness colours can be similar.
    bool hueBrightnessSimilarTo(double otherHue, double otherBrightness) const;

    // The colour generator tries the same thirty hue and brightness pairs in the same order, so a
    // colour can answer once which of them it is similar to: bit i stands for candidate i.
    static constexpr int CandidateCount = 30;
    struct Candidate {
        double hue;
        double brightness;
    };
    static const std::array<Candidate, CandidateCount>& generatorCandidates();
    uint32_t similarCandidates() const;

    // Red, green and blue in 0...255, for drawing.
    void rgb(int& red, int& green, int& blue) const;
    // "#rrggbb".
    std::string hexString() const;

    // {"hue", "saturation", "brightness"}, {"grey": true}, or null.
    vn::Value jsonValue() const;
    // What writeJson writes, as a fragment of compact output (see JsonWriter::fragment).
    void writeCompactFragment(vn::JsonWriter& writer) const;
    void writeJson(vn::JsonWriter& writer) const;

    bool operator==(const VNLogGraphColour& other) const = default;
};
