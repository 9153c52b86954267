#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/VNLogGraphEntry.h"

namespace vn::cli {

// One history row as the graph drawings need it.
struct GraphRow {
    std::shared_ptr<const VNLogGraphEntry> graph;
    bool workingCopy = false;
    std::string text;    // subject, shown beside the graph
    std::string labels;  // branch and tag names, shown before the subject
};

// Draws each row's graph as one line of box-drawing characters, two columns per lane, bends on
// the row's own line. With `colour`, each character takes its line's colour (24-bit when
// `trueColour`, the nearest of the 256-colour palette otherwise). All rows are padded to the
// same width.
std::vector<std::string> drawGraphText(const std::vector<GraphRow>& rows, bool colour,
                                       bool trueColour);

// One row's drawing as above, appended to `out`, only as wide as the row itself: for listings
// printed while they are read.
void appendGraphText(std::string& out, const VNLogGraphEntry& entry, bool workingCopy, bool colour,
                     bool trueColour);

// The page as an SVG picture: 11.0 per lane, white 4.0 strokes under 2.0 coloured ones, 7.0 dots
// (10.5 with a white inner dot for the working copy), bends near the row middle, labels and
// subjects beside the graph.
std::string drawGraphSvg(const std::vector<GraphRow>& rows);

}  // namespace vn::cli
