#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"

class VNLogLabel;

// Reads git's history listings: log lines in the separated format, their decorations, file
// changes of a commit (`--name-status -z`), commit details and full messages, and blame output.
// Every function takes text and answers records; running git is the handler's part.
class VNGitLogParser {
  public:
    // U+241E, the symbol for a record separator: it cannot occur in hashes or dates and is
    // unlikely in names and subjects.
    static constexpr std::string_view FieldSeparator = "\xE2\x90\x9E";

    // Fields of a log line are separated by NUL, which git never prints inside a field (it ends
    // names and messages at a NUL byte); the line ends with a newline, which no field can hold
    // either (the subject joins its lines). So no name, address or subject can shift a field.
    static constexpr char LogFieldSeparator = '\0';
    static constexpr std::size_t LogFieldCount = 8;

    // "--format=%H%x00%h%x00%P%x00<date>%x00%cn <%ce>%x00%an <%ae>%x00%d%x00%s", the date being
    // "%at %aI" or "%ct %cI" (seconds since the epoch and the strict ISO form, which carries the
    // offset). Independent of any "--date" option.
    static std::string logFormatArgument(bool authorDate);

    // A date as git records it: seconds since the epoch and the recorder's offset ("+0530",
    // "+05:30", "Z", or the end of an ISO 8601 text that holds one). Seconds beyond what a point
    // in time holds are clamped to its range; no number gives null.
    static vn::Value gitDate(std::string_view seconds, std::string_view zone);
    // The "%at %aI" field of the log format.
    static vn::Value dateField(std::string_view field);

    // Which references become labels: all of them, or (for single lines) no remote branches and
    // no ahead/behind annotations.
    enum class LabelScan { Full, Reduced };

    // The ahead/behind text of a branch: "GitAheadAnnotate" with the ahead count when above 0,
    // a blank, "GitBehindAnnotate" with the behind count when above 0.
    static std::string aheadBehindAnnotation(int64_t ahead, int64_t behind);

    // Labels from a "%d" decoration with full reference names (" (HEAD -> refs/heads/main,
    // refs/remotes/origin/main, tag: refs/tags/v1)"), in the decoration's order. "HEAD" is a
    // label only when it is detached (not followed by "->"); the branch HEAD points at is marked
    // current. `aheadBehind` maps branch names to [ahead, behind] for the annotations.
    static std::vector<std::shared_ptr<VNLogLabel>> labelsFromDecoration(
        std::string_view decoration, const std::string& hash, LabelScan scan,
        const vn::Record* aheadBehind);

    // The fields of a line in the log format, in order.
    enum LogField : std::size_t {
        LogHash,
        LogShortHash,
        LogParents,
        LogDate,
        LogCommitter,
        LogAuthor,
        LogDecoration,
        LogSubject,
    };
    // Splits one line in the log format into its fields (views into `line`), a trailing CR or
    // newline dropped; false when the line does not hold exactly the 8 fields.
    static bool logLineFields(std::string_view line, std::string_view (&fields)[LogFieldCount]);
    // The revisions of a parents field ("%P", first parent first) into `parents`, cleared first.
    static void splitParents(std::string_view field, std::vector<std::string_view>& parents);

    // One log row from one line in the log format; nothing when the line does not hold exactly
    // the 8 fields. A trailing CR or newline is dropped.
    static std::optional<vn::Record> parseLogLine(std::string_view line, LabelScan scan,
                                                  const vn::Record* aheadBehind);
    // Every row of a listing, lines that do not parse skipped. Any run of whole lines can be
    // given at a time, so a listing can be read as it arrives.
    static std::vector<vn::Record> parseLog(std::string_view output, LabelScan scan,
                                            const vn::Record* aheadBehind);

    // "--format=" for revision details, NUL-separated: hash, short hash, parents, author and
    // committer dates, author, committer, decorations, then the whole message.
    static std::string detailsFormatArgument();
    // The details record from one commit in the details format: the log row's keys ("rev",
    // "changeset", "changesetshort", "parentid1", "parentid2", "otherparentids", "date", "user",
    // "committer", "branch", "descriptionentry") and "parents", "authordate", "committerdate",
    // "message" (the whole message), "labels" (VNLogLabel objects).
    static std::optional<vn::Record> parseDetails(std::string_view text, bool authorDate,
                                                  const vn::Record* aheadBehind);

    // `git log -z --format=%H<sep>%B`: full hash to whole message (trailing newlines dropped).
    static vn::Record parseFullMessages(std::string_view output);

    // `--name-status -z` output of a diff between two trees as status records ("status",
    // "indexStatus", "treeStatus", "filename", "path", "previousName" for renames and copies).
    // The index side carries the change; the working-tree side is clean. Names are the exact
    // bytes of the -z fields. At most `maxRecords` records are made, so that a listing of
    // hundreds of megabytes cannot exhaust memory; `truncated` tells when files were left out.
    static constexpr std::size_t MaxFileChanges = 500000;
    static std::vector<vn::Record> parseNameStatus(std::string_view output,
                                                   bool* truncated = nullptr,
                                                   std::size_t maxRecords = MaxFileChanges);

    // `git blame --porcelain`: records "line" (final line number), "rev", "changesetshort",
    // "user" ("Name <address>"), "date" (author time with its offset), "linecontents", in line
    // order. Linear in the output.
    static std::vector<vn::Record> parseBlamePorcelain(std::string_view output);
};
