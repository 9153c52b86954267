#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "general/Record.h"
#include "general/Value.h"

// One hunk of a file's diff: its line ranges on both sides, its body as read and one line
// record per body line.
class VNDiffHunkModel : public vn::Object {
  public:
    // Keys of a line record; every value is text. The line numbers are decimal, or empty when the
    // line has no such side.
    static constexpr const char* PrefixKey = "prefix";
    static constexpr const char* BeforeLineNumberKey = "beforelineno";
    static constexpr const char* AfterLineNumberKey = "afterlineno";
    static constexpr const char* LineKey = "line";

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
    // The body lines exactly as read (header excluded), each followed by "\n".
    const std::string& rawHunk() const { return rawHunk_; }
    void setRawHunk(std::string raw) { rawHunk_ = std::move(raw); }
    const std::vector<vn::Record>& hunkLines() const { return hunkLines_; }
    void setHunkLines(std::vector<vn::Record> lines) { hunkLines_ = std::move(lines); }

    vn::Value jsonValue() const override;

  private:
    uint64_t index_ = 0;
    int64_t startLineBefore_ = 0;
    int64_t endLineBefore_ = 0;
    int64_t startLineAfter_ = 0;
    int64_t endLineAfter_ = 0;
    std::string rawHunk_;
    std::vector<vn::Record> hunkLines_;
};
