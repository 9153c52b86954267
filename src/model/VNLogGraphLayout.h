#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"
#include "model/VNLogGraphEntry.h"

// The commit graph laid out one row at a time, newest first, resumable: the entry of the last row
// laid out is the whole state, so a layout started from it continues exactly where another left
// off (lanes, colours and the pseudo-random hues alike).
//
// Rows share the runs of segments that did not change with the row above, so holding a laid-out
// history costs what changes from row to row.
class VNLogGraphLayout {
  public:
    // Starts after `base` (the entry of the row before the first one to lay out), or at the top
    // of a history without one. In first-parent mode only first parents are drawn.
    explicit VNLogGraphLayout(std::shared_ptr<const VNLogGraphEntry> base = nullptr,
                              bool firstParent = false);

    // Lays out one log row: stores its entry under "graph" and gives the row's description entry
    // its colour.
    std::shared_ptr<const VNLogGraphEntry> addRow(vn::Record& row);
    void addRows(std::vector<vn::Record>& rows);
    // Lays out one revision given by its identifier and its parents (first parent first), without
    // a row; the identifier "-1" stands for the working copy.
    std::shared_ptr<const VNLogGraphEntry> addRevision(
        std::string_view rev, const std::vector<std::string_view>& parents);

    // The entry of the last row laid out: what a later layout continues from.
    const std::shared_ptr<const VNLogGraphEntry>& state() const { return previous_; }
    bool firstParent() const { return firstParent_; }
    uint64_t rowCount() const { return rows_; }

  private:
    using SharedText = std::shared_ptr<const std::string>;
    // A segment of the row being built; its context is held by the row above or by this row's
    // parents, so building one costs no reference counting.
    struct Segment {
        uint32_t endCol;
        uint32_t startCol;
        const VNLogGraphColour* colour;
        const SharedText* context;
        bool terminates;
        bool originates;
        bool sharedStart;
        // When set, the segment stands for this whole run of the row above, taken unchanged.
        const VNLogGraphLines::RunPointer* run = nullptr;
    };

    std::shared_ptr<const VNLogGraphEntry> layout(std::string_view rev, bool workingCopy);
    VNLogGraphColour newColour(const VNLogGraphEntry& entry);
    void build(VNLogGraphEntry& entry);

    std::shared_ptr<const VNLogGraphEntry> previous_;
    bool firstParent_;
    uint64_t rows_ = 0;

    // Scratch space kept from row to row.
    SharedText parent1_;
    std::vector<SharedText> mergeParents_;
    std::vector<Segment> segments_;
    std::vector<Segment> pending_;
    std::vector<VNLogGraphColour> colours_;
    uint64_t randomState_;
};
