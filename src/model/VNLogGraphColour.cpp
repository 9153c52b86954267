#include "model/VNLogGraphColour.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>

#include "base/Json.h"
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

const std::array<VNLogGraphColour::Candidate, VNLogGraphColour::CandidateCount>&
VNLogGraphColour::generatorCandidates() {
    // Computed by the same steps as the generator takes, so that the values agree to the bit.
    static const std::array<Candidate, CandidateCount> candidates = [] {
        std::array<Candidate, CandidateCount> all{};
        double hue = 0.555;
        double brightness = 0.7;
        for (int series = 0; series < 3; ++series) {
            for (int candidate = 0; candidate < 10; ++candidate) {
                all[static_cast<std::size_t>(series * 10 + candidate)] = {hue, brightness};
                hue = std::fmod(hue + 0.29, 1.0);
            }
            brightness += 0.1;
        }
        return all;
    }();
    return candidates;
}

uint32_t VNLogGraphColour::similarCandidates() const {
    if (!isHSB()) {
        return 0;
    }
    // A history uses few distinct colours; remembering the answers keeps this off the hot path.
    struct Slot {
        double hue = -1;
        double brightness = -1;
        uint32_t mask = 0;
    };
    thread_local std::array<Slot, 512> memo;
    uint64_t hueBits, brightnessBits;
    std::memcpy(&hueBits, &hue, sizeof hueBits);
    std::memcpy(&brightnessBits, &brightness, sizeof brightnessBits);
    uint64_t mixed = (hueBits ^ (brightnessBits * 0x9E3779B97F4A7C15ull)) * 0xFF51AFD7ED558CCDull;
    Slot& slot = memo[(mixed >> 40) % memo.size()];
    if (slot.hue == hue && slot.brightness == brightness) {
        return slot.mask;
    }
    uint32_t mask = 0;
    const auto& candidates = generatorCandidates();
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (hueBrightnessSimilarTo(candidates[i].hue, candidates[i].brightness)) {
            mask |= 1u << i;
        }
    }
    slot = {hue, brightness, mask};
    return mask;
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

namespace {

// The compact text of an HSB colour. A graph has few colours, each seen on many rows, while the
// shortest form of a double costs hundreds of instructions: the texts are kept, per thread.
std::string_view hsbText(const VNLogGraphColour& colour) {
    struct Key {
        uint64_t hue, saturation, brightness;
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Key& key) const {
            return std::hash<uint64_t>()(key.hue * 31 + key.saturation * 7 + key.brightness);
        }
    };
    thread_local std::unordered_map<Key, std::string, Hash> texts;
    thread_local vn::JsonWriter writer;
    Key key{std::bit_cast<uint64_t>(colour.hue), std::bit_cast<uint64_t>(colour.saturation),
            std::bit_cast<uint64_t>(colour.brightness)};
    if (auto known = texts.find(key); known != texts.end()) {
        return known->second;
    }
    if (texts.size() >= 4096) {
        texts.clear();  // a history with that many colours gains little from keeping them
    }
    writer.reset();
    writer.fragment("{\"hue\":");
    writer.fragmentNumber(colour.hue);
    writer.fragment(",\"saturation\":");
    writer.fragmentNumber(colour.saturation);
    writer.fragment(",\"brightness\":");
    writer.fragmentNumber(colour.brightness);
    writer.fragment("}");
    return texts.emplace(key, std::string(writer.view())).first->second;
}

}  // namespace

void VNLogGraphColour::writeCompactFragment(vn::JsonWriter& writer) const {
    switch (kind) {
        case Kind::HSB:
            writer.fragment(hsbText(*this));
            return;
        case Kind::Grey:
            writer.fragment("{\"grey\":true}");
            return;
        case Kind::None:
            break;
    }
    writer.fragment("null");
}

void VNLogGraphColour::writeJson(vn::JsonWriter& writer) const {
    if (!writer.isPretty() && isHSB()) {
        writer.compactValues(hsbText(*this));
        return;
    }
    switch (kind) {
        case Kind::HSB:
            writer.beginObject();
            writer.member("hue", hue);
            writer.member("saturation", saturation);
            writer.member("brightness", brightness);
            writer.endObject();
            return;
        case Kind::Grey:
            writer.beginObject();
            writer.member("grey", true);
            writer.endObject();
            return;
        case Kind::None:
            break;
    }
    writer.null();
}
