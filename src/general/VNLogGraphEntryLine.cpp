#include "general/VNLogGraphEntryLine.h"

#include "general/Format.h"
#include "general/Record.h"

VNLogGraphEntryLine::VNLogGraphEntryLine(uint32_t col) : endCol(col), startCol(col) {}

VNLogGraphEntryLine::VNLogGraphEntryLine(uint32_t col, VNLogGraphColour colour, std::string context)
    : endCol(col), startCol(col), lineColour(colour), lineContext(std::move(context)) {
    originates = lineContext.empty();
}

std::shared_ptr<VNLogGraphEntryLine> VNLogGraphEntryLine::newHead(uint32_t col,
                                                                  VNLogGraphColour colour,
                                                                  std::string context) {
    auto line = std::make_shared<VNLogGraphEntryLine>(col, colour, std::move(context));
    line->terminates = true;
    return line;
}

std::string VNLogGraphEntryLine::description() const {
    return vn::format(
        "endCol=%u startCol=%u lineColour=%@ lineContext=%@ terminates=%u originates=%u "
        "sharedStart=%u blank=%u",
        endCol, startCol, lineColour.hexString(), lineContext, static_cast<unsigned>(terminates),
        static_cast<unsigned>(originates), static_cast<unsigned>(sharedStart),
        static_cast<unsigned>(isBlank));
}

vn::Value VNLogGraphEntryLine::jsonValue() const {
    return vn::Record{
        {"endCol", endCol},
        {"startCol", startCol},
        {"lineColour", lineColour.jsonValue()},
        {"lineContext", lineContext},
        {"terminates", terminates},
        {"originates", originates},
        {"sharedStart", sharedStart},
        {"isBlank", isBlank},
    };
}
