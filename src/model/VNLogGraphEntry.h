#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Record.h"
#include "model/VNLogGraphColour.h"
#include "model/VNLogGraphEntryLine.h"
#include "model/VNLogGraphLines.h"

// The commit graph of one history row: where the dot stands, its colour, and every line segment
// drawn in the row.
class VNLogGraphEntry : public vn::Object {
  public:
    using Lines = VNLogGraphLines;

    // Where the pseudo-random sequence of last-resort hues starts for a history laid out from its
    // first row.
    static constexpr uint64_t InitialRandomState = 0x5EED0F1A7E5C0105ull;

    uint32_t commitColumn = 0;
    VNLogGraphColour commitColour;
    Lines lineColumns;
    // The pseudo-random sequence after this row, so that a layout continued from this entry picks
    // the same hues as one that ran through it.
    uint64_t randomState = InitialRandomState;

    std::string description() const { return "Visual Graph"; }
    vn::Value jsonValue() const override;
    void writeJson(vn::JsonWriter& writer) const override;
};

// Something drawn beside the graph that takes the row's commit colour (the description entry).
class VNLogGraphColoured {
  public:
    virtual ~VNLogGraphColoured() = default;
    virtual void setBaseColour(const VNLogGraphColour& colour) const = 0;
};

namespace vn::graph {

// Lays out the graph of rows in display order, newest first, and stores each row's entry under
// "graph". `base` is the entry of the last row of the previous page, so that a follow-on page
// continues its lines; in first-parent mode only first parents are drawn.
void addGraphInfoToLogRevisions(std::vector<Record>& rows,
                                std::shared_ptr<const VNLogGraphEntry> base, bool firstParent);

// The first line, in list order, heading for `context`; null when none does.
const VNLogGraphEntryLine* findCommonContextLine(const std::string& context,
                                                 const VNLogGraphEntry::Lines& lines);

// A colour unlike those of the entry being built, the previous row's entry and the pending merge
// lines; the same choices give the same sequence. When all thirty candidates are taken the hue
// comes from the pseudo-random sequence at `randomState`, which then advances (without one, the
// sequence starts at its initial state on every call).
VNLogGraphColour newLogGraphColourNotIn(const VNLogGraphEntry& entry,
                                        const VNLogGraphEntry* previous,
                                        const VNLogGraphEntry::Lines& pendingMerges,
                                        uint64_t* randomState = nullptr);
// The next hue of the pseudo-random sequence: a non-negative 31-bit integer times 2^-31.
float nextRandomHue(uint64_t& state);

bool isColourInLogGraphEntry(const VNLogGraphColour& colour, const VNLogGraphEntry* entry);
bool isColourInLogGraphLines(const VNLogGraphColour& colour, const VNLogGraphEntry::Lines* lines);

}  // namespace vn::graph
