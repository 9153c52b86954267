#pragma once

#include <cstdint>
#include <string>

#include "general/VNLogGraphColour.h"
#include "general/Value.h"

// One segment of one line of the commit graph within one row.
class VNLogGraphEntryLine : public vn::Object {
  public:
    // Both ends in `col`, no colour, no context, no flags.
    explicit VNLogGraphEntryLine(uint32_t col);
    // As above with colour and context; a line heading for no revision (empty context) stops at
    // the dot.
    VNLogGraphEntryLine(uint32_t col, VNLogGraphColour colour, std::string context);
    // A line that starts at this row's dot and runs down.
    static std::shared_ptr<VNLogGraphEntryLine> newHead(uint32_t col, VNLogGraphColour colour,
                                                        std::string context);

    // Lane at the row's upper edge (where the line comes from the row above).
    uint32_t endCol = 0;
    // Lane at the row's lower edge (where the line continues into the row below).
    uint32_t startCol = 0;
    VNLogGraphColour lineColour;
    // The revision the line is heading for.
    std::string lineContext;
    bool terminates = false;   // the upper end is this row's dot
    bool originates = false;   // the lower end is this row's dot
    bool sharedStart = false;  // a merge line that joins its parent's existing line
    bool isBlank = false;

    std::string description() const;
    vn::Value jsonValue() const override;
};
