#include "model/VNLogGraphEntryLine.h"

#include "base/Format.h"
#include "base/Json.h"
#include "base/Record.h"

VNLogGraphEntryLine::VNLogGraphEntryLine(uint32_t col) : endCol(col), startCol(col) {}

VNLogGraphEntryLine::VNLogGraphEntryLine(uint32_t col, VNLogGraphColour colour,
                                         std::shared_ptr<const std::string> context)
    : endCol(col),
      startCol(col),
      lineColour(colour),
      context_(std::move(context)),
      contextKey_(contextKey(lineContext())) {
    originates = lineContext().empty();
}

VNLogGraphEntryLine VNLogGraphEntryLine::newHead(uint32_t col, VNLogGraphColour colour,
                                                 std::shared_ptr<const std::string> context) {
    VNLogGraphEntryLine line(col, colour, std::move(context));
    line.terminates = true;
    return line;
}

const std::string& VNLogGraphEntryLine::noContext() {
    static const std::string none;
    return none;
}

std::string VNLogGraphEntryLine::description() const {
    return vn::format(
        "endCol=%u startCol=%u lineColour=%@ lineContext=%@ terminates=%u originates=%u "
        "sharedStart=%u blank=%u",
        endCol, startCol, lineColour.hexString(), lineContext(), static_cast<unsigned>(terminates),
        static_cast<unsigned>(originates), static_cast<unsigned>(sharedStart),
        static_cast<unsigned>(isBlank));
}

vn::Value VNLogGraphEntryLine::jsonValue() const {
    return vn::Record{
        {"endCol", endCol},
        {"startCol", startCol},
        {"lineColour", lineColour.jsonValue()},
        {"lineContext", lineContext()},
        {"terminates", terminates},
        {"originates", originates},
        {"sharedStart", sharedStart},
        {"isBlank", isBlank},
    };
}

void VNLogGraphEntryLine::writeCompactFragment(vn::JsonWriter& writer) const {
    writer.fragment("{\"endCol\":");
    writer.fragmentNumber(static_cast<uint64_t>(endCol));
    writer.fragment(",\"startCol\":");
    writer.fragmentNumber(static_cast<uint64_t>(startCol));
    writer.fragment(",\"lineColour\":");
    lineColour.writeCompactFragment(writer);
    writer.fragment(",\"lineContext\":");
    writer.fragmentString(lineContext());
    writer.fragment(",\"terminates\":");
    writer.fragmentBoolean(terminates);
    writer.fragment(",\"originates\":");
    writer.fragmentBoolean(originates);
    writer.fragment(",\"sharedStart\":");
    writer.fragmentBoolean(sharedStart);
    writer.fragment(",\"isBlank\":");
    writer.fragmentBoolean(isBlank);
    writer.fragment("}");
}

void VNLogGraphEntryLine::writeJson(vn::JsonWriter& writer) const {
    writer.beginObject();
    writer.member("endCol", static_cast<uint64_t>(endCol));
    writer.member("startCol", static_cast<uint64_t>(startCol));
    writer.key("lineColour");
    lineColour.writeJson(writer);
    writer.member("lineContext", lineContext());
    writer.member("terminates", terminates);
    writer.member("originates", originates);
    writer.member("sharedStart", sharedStart);
    writer.member("isBlank", isBlank);
    writer.endObject();
}
