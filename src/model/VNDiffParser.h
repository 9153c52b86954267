#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "model/VNDiffFileModel.h"

// Reads the text of `git diff`, `git show` or `hg diff` into diff file entries in one forward pass
// over its lines. It never fails: lines it does not recognise are skipped and a header it cannot
// read leaves the defaults (modified, text, no name, zero line numbers).
//
// Large-file pointers are a backend matter, so the parser takes them as two hooks: how many lines
// at the start of each hunk to examine, and the function that finds an object id in one line's
// content. A default parser examines none.
class VNDiffParser {
  public:
    using LargeFileReferenceExtractor =
        std::function<std::optional<std::string>(const std::string& line)>;

    // Separates the revisions of a multi-revision diff (`git show` with a format that starts each
    // revision with it).
    static constexpr std::string_view RevisionSeparator = ">>__@@@@__<<";
    static constexpr uint64_t GitLargeFilesDiffScanLimit = 20;
    // Longer line contents are cut to this many characters; the raw hunk keeps them whole.
    static constexpr std::size_t MaxLineCharacters = 10000;

    VNDiffParser() = default;
    VNDiffParser(uint64_t largeFilesDiffScanLimit,
                 LargeFileReferenceExtractor extractLargeFileReferenceFromLine);

    // A parser that finds Git LFS pointers in the first 20 lines of each hunk.
    static VNDiffParser git();
    // The object id of a Git LFS pointer line ("oid sha256:" and 64 hexadecimal digits), given
    // the line without its prefix.
    static std::optional<std::string> gitLargeFileReference(const std::string& line);

    uint64_t largeFilesDiffScanLimit() const { return scanLimit_; }

    // Appends one entry per file section of `diff` to `dest`. Parsing stops at a file section
    // that finds `maxFiles` entries in `dest` already, counting those that were there before.
    void parseDiffToModel(std::string_view diff, VNDiffFileList& dest, uint64_t maxFiles) const;
    // Parses each non-empty piece of `diffs` between revision separators in turn into the same
    // destination, with the same limit.
    void parseDiffsToModel(std::string_view diffs, VNDiffFileList& dest, uint64_t maxFiles) const;

  private:
    uint64_t scanLimit_ = 0;
    LargeFileReferenceExtractor extract_;
};
