#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "base/Value.h"
#include "model/VNLogGraphColour.h"

// One segment of one line of the commit graph within one row. A plain value: a row holds its
// segments by value, and the revision a line heads for is shared text, because it is carried
// from row to row for as long as the line runs.
class VNLogGraphEntryLine {
  public:
    // Both ends in `col`, no colour, no context, no flags.
    explicit VNLogGraphEntryLine(uint32_t col);
    // As above with colour and context; a line heading for no revision (empty context) stops at
    // the dot.
    VNLogGraphEntryLine(uint32_t col, VNLogGraphColour colour,
                        std::shared_ptr<const std::string> context);
    VNLogGraphEntryLine(uint32_t col, VNLogGraphColour colour, const std::string& context)
        : VNLogGraphEntryLine(col, colour, std::make_shared<const std::string>(context)) {}
    // A line that starts at this row's dot and runs down.
    static VNLogGraphEntryLine newHead(uint32_t col, VNLogGraphColour colour,
                                       std::shared_ptr<const std::string> context);

    // The revision the line is heading for.
    const std::string& lineContext() const { return context_ ? *context_ : noContext(); }
    const std::shared_ptr<const std::string>& sharedLineContext() const { return context_; }
    void setLineContext(std::shared_ptr<const std::string> context) {
        context_ = std::move(context);
        contextKey_ = contextKey(lineContext());
    }
    // A digest of a context from its length and first bytes: lines whose keys differ head for
    // different revisions, found without reading the texts. Only no context gives 0.
    static uint64_t contextKey(std::string_view context) {
        if (context.empty()) {
            return 0;
        }
        uint64_t key = 0;
        std::memcpy(&key, context.data(), context.size() < 8 ? context.size() : 8);
        return (key ^ (static_cast<uint64_t>(context.size()) << 56)) | 1;
    }
    uint64_t lineContextKey() const { return contextKey_; }

    // Lane at the row's upper edge (where the line comes from the row above).
    uint32_t endCol = 0;
    // Lane at the row's lower edge (where the line continues into the row below).
    uint32_t startCol = 0;
    VNLogGraphColour lineColour;
    bool terminates = false;   // the upper end is this row's dot
    bool originates = false;   // the lower end is this row's dot
    bool sharedStart = false;  // a merge line that joins its parent's existing line
    bool isBlank = false;

    std::string description() const;
    vn::Value jsonValue() const;
    void writeJson(vn::JsonWriter& writer) const;
    // What writeJson writes, as a fragment of compact output (see JsonWriter::fragment): a
    // wide graph writes hundreds of segments a row.
    void writeCompactFragment(vn::JsonWriter& writer) const;

  private:
    static const std::string& noContext();
    std::shared_ptr<const std::string> context_;
    uint64_t contextKey_ = 0;
};
