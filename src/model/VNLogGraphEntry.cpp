#include "model/VNLogGraphEntry.h"

#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "base/Json.h"

vn::Value VNLogGraphEntry::jsonValue() const {
    vn::Value::Array lines;
    lines.reserve(lineColumns.size());
    for (const auto& line : lineColumns) {
        lines.push_back(line.jsonValue());
    }
    return vn::Record{
        {"commitColumn", commitColumn},
        {"commitColour", commitColour.jsonValue()},
        {"lineColumns", std::move(lines)},
    };
}

namespace {

using RunText = std::shared_ptr<const std::string>;

}  // namespace

void VNLogGraphEntry::writeJson(vn::JsonWriter& writer) const {
    // Written in place: a wide graph has hundreds of segments a row.
    writer.beginObject();
    writer.member("commitColumn", static_cast<uint64_t>(commitColumn));
    writer.key("commitColour");
    commitColour.writeJson(writer);
    writer.key("lineColumns");
    writer.beginArray();
    if (writer.isPretty()) {
        for (const auto& line : lineColumns) {
            line.writeJson(writer);
        }
    } else {
        // Rows written one after another share most runs with the row before: each run's text
        // is kept from that row rather than written again. Holding the run keeps it unchanged.
        // A run is mostly where it was in the row before, else a few places along when lanes
        // came or went before it.
        thread_local std::vector<std::pair<VNLogGraphLines::RunPointer, RunText>> previous;
        thread_local std::vector<std::pair<VNLogGraphLines::RunPointer, RunText>> current;
        const auto& runs = lineColumns.runs();
        current.clear();
        current.reserve(runs.size());
        auto kept = [&](std::size_t i) -> std::pair<VNLogGraphLines::RunPointer, RunText>* {
            if (i < previous.size() && previous[i].first == runs[i]) {
                return &previous[i];
            }
            for (auto& candidate : previous) {
                if (candidate.first == runs[i]) {
                    return &candidate;
                }
            }
            return nullptr;
        };
        for (std::size_t i = 0; i < runs.size(); ++i) {
            if (auto* known = kept(i)) {
                current.emplace_back(*known);
            } else {
                thread_local vn::JsonWriter run;
                run.reset();
                bool first = true;
                for (const auto& line : runs[i]->lines) {
                    if (!first) {
                        run.fragment(",");
                    }
                    first = false;
                    line.writeCompactFragment(run);
                }
                current.emplace_back(runs[i], std::make_shared<const std::string>(run.view()));
            }
            writer.compactValues(*current.back().second);
        }
        previous.swap(current);
    }
    writer.endArray();
    writer.endObject();
}

namespace vn::graph {

float nextRandomHue(uint64_t& state) {
    // A 64-bit linear congruential step; its high bits are the 31-bit integer.
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    auto value = static_cast<uint32_t>(state >> 33);
    return static_cast<float>(value) * std::ldexp(1.0f, -31);
}

const VNLogGraphEntryLine* findCommonContextLine(const std::string& context,
                                                 const VNLogGraphEntry::Lines& lines) {
    for (const auto& line : lines) {
        if (line.lineContext() == context) {
            return &line;
        }
    }
    return nullptr;
}

bool isColourInLogGraphLines(const VNLogGraphColour& colour, const VNLogGraphEntry::Lines* lines) {
    if (!lines || !colour.isHSB()) {
        return false;
    }
    for (const auto& line : *lines) {
        if (line.lineColour.hueBrightnessSimilarTo(colour.hue, colour.brightness)) {
            return true;
        }
    }
    return false;
}

bool isColourInLogGraphEntry(const VNLogGraphColour& colour, const VNLogGraphEntry* entry) {
    if (!entry || !colour.isHSB()) {
        return false;
    }
    if (entry->commitColour.hueBrightnessSimilarTo(colour.hue, colour.brightness)) {
        return true;
    }
    return isColourInLogGraphLines(colour, &entry->lineColumns);
}

VNLogGraphColour newLogGraphColourNotIn(const VNLogGraphEntry& entry,
                                        const VNLogGraphEntry* previous,
                                        const VNLogGraphEntry::Lines& pendingMerges,
                                        uint64_t* randomState) {
    double hue = 0.555;
    double brightness = 0.7;
    for (int series = 0; series < 3; ++series) {
        for (int candidate = 0; candidate < 10; ++candidate) {
            VNLogGraphColour colour = VNLogGraphColour::hsb(hue, 0.6, brightness);
            if (!isColourInLogGraphEntry(colour, &entry) &&
                !isColourInLogGraphEntry(colour, previous) &&
                !isColourInLogGraphLines(colour, &pendingMerges)) {
                return colour;
            }
            hue = std::fmod(hue + 0.29, 1.0);
        }
        brightness += 0.1;
    }
    // Thirty near misses: a crowded graph. Any hue will do now.
    uint64_t state = VNLogGraphEntry::InitialRandomState;
    return VNLogGraphColour::hsb(nextRandomHue(randomState ? *randomState : state), 0.6,
                                 brightness);
}

}  // namespace vn::graph
