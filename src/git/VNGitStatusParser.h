#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Record.h"

// Reads what `git status --porcelain`, `git ls-files`, `git branch` and the files of the git
// folder say about a working copy. Every function takes text and answers values; running git and
// looking at the disk is the handler's part.
class VNGitStatusParser {
  public:
    // ---- Status letters ----
    // The pairs of a file with unmerged stages: "DD", "AU", "UD", "UA", "DU", "AA", "UU".
    static bool isUnmerged(char indexLetter, char treeLetter);
    // The one status a file is listed under, from its two letters.
    static uint64_t summariseStatus(char indexLetter, char treeLetter);
    static uint64_t translateIndexStatus(char indexLetter);
    static uint64_t translateTreeStatus(char treeLetter);

    // ---- Status lines ----
    struct Entry {
        uint64_t status = 0;
        uint64_t indexStatus = 0;
        uint64_t treeStatus = 0;
        std::string path;                         // relative to the working copy, unquoted
        std::optional<std::string> previousPath;  // renames only
    };
    // One porcelain line ("XY path", "XY old -> new"); nothing for a line of another form.
    // Submodule folders are the caller's to recognise.
    static std::optional<Entry> parseStatusLine(std::string_view line);
    // Every entry of a status listing, in order: `--porcelain -z` output (fields end with NUL,
    // names are exact bytes, a rename or copy is "XY new" followed by the old name), or the
    // line form when the output holds no NUL. Folder lines are included.
    static std::vector<Entry> parseStatusOutput(std::string_view output);
    // The two paths of a rename or copy line's path text, still quoted as git printed them. Names
    // with blanks come quoted, so the first " -> " outside quotes separates them; text without
    // that separator is split at its first "->".
    static std::optional<std::pair<std::string_view, std::string_view>> splitRenamePaths(
        std::string_view text);
    // Whether a listed path names a folder (ends with "/"; a trailing blank is part of a name).
    static bool isFolderPath(std::string_view path);

    // A status record: "status", "indexStatus", "treeStatus", "filename", "path" and, when
    // given, "previousName".
    static vn::Record statusRecord(std::string_view path, uint64_t status, uint64_t indexStatus,
                                   uint64_t treeStatus,
                                   const std::optional<std::string>& previousPath = std::nullopt);

    // The status records of a working copy from the status listing and, when they ran, the
    // listing of tracked files (added as clean when the status did not mention them) and of
    // ignored files. Only files whose status has a bit of `mask` are kept. `isFolder` tells
    // whether a modified path is a folder on disk (a submodule), relative to the working copy.
    static std::vector<vn::Record> fileStatusRecords(
        std::string_view statusOutput, std::optional<std::string_view> trackedOutput,
        std::optional<std::string_view> ignoredOutput, uint64_t mask,
        const std::function<bool(const std::string& path)>& isFolder);

    // The files of an ls-files listing as records with every status `status`, made ahead of the
    // merge (on the thread that ran the listing) because the listing of tracked files is long.
    struct ListedFiles {
        std::vector<vn::Record> records;
        std::vector<std::string> paths;  // each record's path, unquoted
    };
    static ListedFiles listedFiles(std::string_view output, uint64_t status);
    // The same merge with the listings made into records already; their records are moved into
    // the result.
    static std::vector<vn::Record> fileStatusRecords(
        std::string_view statusOutput, ListedFiles* tracked, ListedFiles* ignored, uint64_t mask,
        const std::function<bool(const std::string& path)>& isFolder);

    // ---- Summary ----
    struct Counts {
        uint64_t modified = 0;
        uint64_t added = 0;
        uint64_t removed = 0;
        uint64_t unresolved = 0;
        uint64_t missing = 0;
        uint64_t unknown = 0;
        uint64_t renamed = 0;
        // Untracked files do not make a working copy unclean.
        bool isClean() const {
            return modified == 0 && added == 0 && removed == 0 && unresolved == 0 && missing == 0 &&
                   renamed == 0;
        }
    };
    // Files of a status listing by summary status; folder lines are not counted.
    static Counts countStatuses(std::string_view statusOutput);

    // ---- Branch and merge state ----
    // "HEAD", "(no branch)", "(HEAD detached ...", "(detached from ...".
    static bool isDetachedHeadText(std::string_view text);
    // The current branch from `git branch`: "HEAD" when detached, nothing when no line is marked
    // current (a repository without commits).
    static std::optional<std::string> currentBranchFromBranchOutput(std::string_view output);
    // MERGE_HEAD's lines: the first is the second parent of the merge, the rest the others.
    // False when the text names no commit.
    static bool parseMergeHeadParents(std::string_view text, std::string& secondParent,
                                      std::vector<std::string>& otherParents);
    // The folder a ".git" file points to ("gitdir: PATH"), as written.
    static std::optional<std::string> gitDirFromDotGitFile(std::string_view text);
    // Whether any line of the text contains `needle`.
    static bool hasLineContaining(std::string_view text, std::string_view needle);

    // The lines of tool output without terminators; empty lines are dropped.
    static std::vector<std::string_view> lines(std::string_view text);
    // The names of a listing: NUL-separated fields of `-z` output as they are, or, for output
    // without NUL, its lines with git's quoting undone.
    static std::vector<std::string> names(std::string_view output);
};
