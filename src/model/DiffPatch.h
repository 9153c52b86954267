#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "model/VNDiffFileModel.h"

namespace vn {

// Rows of a hunk's body: from `location` on, `length` of them.
struct HunkLineRange {
    std::size_t location = 0;
    std::size_t length = 0;
};

// Why patches made from the hunk would not give back the file's lines; empty when they would.
// A hunk line that the diff text split at a line end inside it (a lone CR, a form feed) cannot
// be written back as it was.
std::string hunkPatchProblem(const VNDiffHunkModel& hunk);

// A patch that applies only the changed rows of `range` (clipped to the hunk): outside the
// range, when staging, removed lines become context and added lines are left out; when not
// staging (unstaging or discarding, applied in reverse) the other way round. Up to three lines
// of context on either side. Nothing when the range holds no added or removed row.
//
// Lines are written as the diff printed them, whole and in the file's own bytes, each with the
// line end it had there; `win32LineEndings` ends every line with CRLF where the hunk does not
// know its lines' ends (hunks made from records). The missing-newline marker goes after the line
// that stays the last one of its side without a newline; a line that gains or loses its newline
// in the patch is written as removed and added again.
std::optional<std::string> createPatchForHunkLinesInRange(const VNDiffFileModel& file,
                                                          const VNDiffHunkModel& hunk,
                                                          HunkLineRange range, bool isStaging,
                                                          bool win32LineEndings);

// The whole file's changes: every hunk as it is. `fileMode` (such as "100644") names the mode of
// an added or deleted file, which then gets the header that creates or deletes it, so that the
// patch applied or reversed adds or removes the file rather than emptying it.
std::string createPatch(const VNDiffFileModel& file, bool win32LineEndings,
                        const std::string& fileMode = "100644");

// A patch that creates the file `filename` with `content` (bytes as they are, lines ending as
// they do) and `fileMode`.
std::string createNewFilePatch(const std::string& filename, std::string_view content,
                               const std::string& fileMode);

}  // namespace vn
