#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"
#include "base/Value.h"

// One hunk of a file's diff: its line ranges on both sides, its body as read and one line
// record per body line.
//
// A diff can hold millions of lines and a view shows a few of them, so the parser hands over
// the body with the place of each line in it, and the line records are made when they are
// first asked for. `lineCount` and `lineAt` read the lines without making records.
class VNDiffHunkModel : public vn::Object {
  public:
    // Keys of a line record; every value is text. The line numbers are decimal, or empty when the
    // line has no such side.
    static constexpr const char* PrefixKey = "prefix";
    static constexpr const char* BeforeLineNumberKey = "beforelineno";
    static constexpr const char* AfterLineNumberKey = "afterlineno";
    static constexpr const char* LineKey = "line";
    // The line number of a line that has no such side.
    static constexpr int64_t NoLineNumber = -1;

    // How a body line ended in the text the parser read: patches made from the line end it
    // the same way. Other: a line end inside the file's line (a lone CR, a form feed...), which
    // split it into pieces that no patch can put back together.
    enum class LineEnd : uint8_t { Unknown, LF, CRLF, Other };

    // Where the parser found one body line in the raw hunk.
    struct LineSpan {
        std::size_t offset = 0;  // of the line's first byte in the raw hunk
        uint32_t prefixLength = 0;
        // The line is not UTF-8: `offset` is in the decoded text given with the body, which
        // holds the line as read in the 8-bit fallback (the raw hunk keeps its bytes).
        bool decoded = false;
        LineEnd lineEnd = LineEnd::Unknown;
        std::size_t contentLength = 0;  // the content after the prefix, as far as it is kept
        int64_t beforeLineNumber = NoLineNumber;
        int64_t afterLineNumber = NoLineNumber;
    };
    // One body line; the views live as long as the hunk and its body stay as they are.
    struct LineView {
        std::string_view prefix;
        std::string_view line;
        int64_t beforeLineNumber = NoLineNumber;
        int64_t afterLineNumber = NoLineNumber;
    };

    VNDiffHunkModel() = default;
    VNDiffHunkModel(const VNDiffHunkModel&) = delete;
    VNDiffHunkModel& operator=(const VNDiffHunkModel&) = delete;

    static vn::Record lineRecord(std::string prefix, std::string beforeLineNumber,
                                 std::string afterLineNumber, std::string line);

    // 1-based position within its file.
    uint64_t index() const { return index_; }
    void setIndex(uint64_t index) { index_ = index; }
    int64_t startLineBefore() const { return startLineBefore_; }
    void setStartLineBefore(int64_t line) { startLineBefore_ = line; }
    int64_t endLineBefore() const { return endLineBefore_; }
    void setEndLineBefore(int64_t line) { endLineBefore_ = line; }
    int64_t startLineAfter() const { return startLineAfter_; }
    void setStartLineAfter(int64_t line) { startLineAfter_ = line; }
    int64_t endLineAfter() const { return endLineAfter_; }
    void setEndLineAfter(int64_t line) { endLineAfter_ = line; }
    // The ranges as the header gives them for patches, also from a header that leaves out a
    // count of 1 (which the line ranges above, and the rows' numbers, are not read from).
    struct HeaderRanges {
        bool known = false;
        int64_t startBefore = 0, countBefore = 0, startAfter = 0, countAfter = 0;
    };
    const HeaderRanges& headerRanges() const { return headerRanges_; }
    void setHeaderRanges(HeaderRanges ranges) { headerRanges_ = ranges; }
    // The body lines exactly as read (header excluded), each followed by "\n".
    const std::string& rawHunk() const { return rawHunk_; }
    void setRawHunk(std::string raw);
    // The line records ("prefix", "beforelineno", "afterlineno", "line"), made on the first call.
    const std::vector<vn::Record>& hunkLines() const;
    void setHunkLines(std::vector<vn::Record> lines);
    // The parser's way in: the raw body and where each line lies in it.
    void setBody(std::string raw, std::vector<LineSpan> lines, std::string decoded = {});

    std::size_t lineCount() const;
    LineView lineAt(std::size_t index) const;
    // Unknown for lines given as records.
    LineEnd lineEndAt(std::size_t index) const;
    // Each body line's bytes as read, prefix included, from the raw hunk (whole, however long,
    // and in the file's own encoding).
    std::vector<std::string_view> rawLines() const;

    vn::Value jsonValue() const override;
    void writeJson(vn::JsonWriter& writer) const override;

  private:
    void makeRecords() const;

    uint64_t index_ = 0;
    int64_t startLineBefore_ = 0;
    int64_t endLineBefore_ = 0;
    int64_t startLineAfter_ = 0;
    int64_t endLineAfter_ = 0;
    HeaderRanges headerRanges_;
    std::string rawHunk_;
    std::string decodedLines_;
    // While `spans_` is not empty it describes the lines and the records may not exist yet.
    std::vector<LineSpan> spans_;
    mutable std::vector<vn::Record> hunkLines_;
    mutable std::atomic<bool> recordsMade_{true};
    mutable std::mutex recordsMutex_;
};
