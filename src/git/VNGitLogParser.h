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

    // "--format=%H<sep>%h<sep>%P<sep>%ai|%ci<sep>%cn <%ce><sep>%an <%ae><sep>%d<sep>%s".
    static std::string logFormatArgument(bool authorDate);

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

    // One log row from one line in the log format; nothing when the line does not split into 8
    // fields (the subject, last, keeps any further separators). A trailing CR is dropped.
    static std::optional<vn::Record> parseLogLine(std::string_view line, LabelScan scan,
                                                  const vn::Record* aheadBehind);
    // Every row of a listing, lines that do not parse skipped.
    static std::vector<vn::Record> parseLog(std::string_view output, LabelScan scan,
                                            const vn::Record* aheadBehind);

    // "--format=" for revision details: hash, short hash, parents, author and committer with
    // their dates, decorations, then the whole message.
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
    // "user" ("Name <address>"), "date" (author time), "linecontents", in line order.
    static std::vector<vn::Record> parseBlamePorcelain(std::string_view output);
};
