#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"
#include "base/Value.h"
#include "model/VNLogDescriptionEntry.h"

// Reads what `hg log`, `hg tags`, `hg branches`, `hg heads`, `hg bookmarks`, `hg parents` and
// `hg blame` print through the templates the Mercurial backend gives them. Pure functions of
// text: running hg is the handler's part.
class VNHgLogParser {
  public:
    using LabelList = VNLogDescriptionEntry::LabelList;
    // Labels by revision number (as text).
    using LabelMap = std::map<std::string, LabelList, std::less<>>;

    // Label kinds beyond those of VNLogLabel: a Mercurial bookmark.
    static constexpr int32_t BookmarkLabel = 3;

    // The log template: revision number, short and full hash, parents, date, author, branches,
    // first message line and tags, separated by U+241E, one changeset a line.
    static std::string logTemplate();

    // "2024-01-02 03:04:05 +0100" as a point in time with its zone; null for other text.
    static vn::Value isoDate(std::string_view text);

    // The rows of a log listing, newest first as hg printed them. A line that does not hold the
    // nine fields becomes a row that says "Error, see log", so that the failure shows.
    static std::vector<vn::Record> processLogResults(std::string_view output,
                                                     const LabelMap& labels);
    // One row; `ok` tells whether the line had the nine fields.
    static vn::Record parseLogLine(std::string_view line, const LabelMap& labels,
                                   bool* ok = nullptr);
    // The row shape both backends share: "rev", "changeset", "changesetshort", "parentid1",
    // "parentid2", "otherparentids", "date", "user", "committer", "branch", "descriptionentry".
    static vn::Record addLogEntry(std::string rev, std::string changeset,
                                  std::string changesetShort, std::string parent1,
                                  std::string parent2, vn::Value date, std::string user,
                                  std::string branch, std::string messageShort, LabelList labels);
    // The first parent's revision number from a "{parents}" field; for an empty field, the
    // revision before `rev` (hg leaves out the plain predecessor), empty for revision 0.
    static void parentsFromField(std::string_view field, std::string_view rev, std::string& parent1,
                                 std::string& parent2);

    // `hg tags`, `hg branches` and the heads template "{branch}\t\t{rev}:{node|short}\n": one
    // label of `type` per line naming a revision.
    static void addTagsBranchesOutput(std::string_view output, int32_t type, LabelMap& labels);
    // `hg bookmarks`; the active bookmark ("*") gets the current marker.
    static void addBookmarksOutput(std::string_view output, LabelMap& labels);
    // Bookmark names of `hg bookmarks`, in listed order; `active` gets the marked one.
    static std::vector<std::string> bookmarkNames(std::string_view output,
                                                  std::string* active = nullptr);
    // Heads by revision from "{rev}␞{branches}\n" lines: revision to branch ("" for default).
    static std::map<std::string, std::string> headsByRevision(std::string_view output);

    // `hg blame -n -c -u -v -a` lines as records "line" (1-based), "rev", "changesetshort",
    // "user", "linecontents".
    static std::vector<vn::Record> parseBlame(std::string_view output);

    // Revision details from the template
    // "{node}␞{parents}␞{date|isodatesec}␞{branches}␞{author}␞{desc}␞{tags}␞{svnrev}␞{node|short}␞".
    static std::string revisionDetailsTemplate();
    static vn::Record parseRevisionDetails(std::string_view output);
    // Parents with details, from
    // "{rev}␞{node}␞{parents}␞{date|isodatesec}␞{branches}␞{author}␞{desc|firstline}␞{tags}␞\n".
    static std::string parentDetailsTemplate();
    static std::vector<vn::Record> parseParentDetails(std::string_view output);

    // The fields of a line split at U+241E.
    static std::vector<std::string_view> splitFields(std::string_view line);
    // Text without U+2028 (line separator), which would break a listing into false lines.
    static std::string withoutLineSeparators(std::string_view text);
};
