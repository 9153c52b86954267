#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"

// Reads what `hg status -C`, `hg resolve -l` and `hg summary` print. Pure functions of text.
class VNHgStatusParser {
  public:
    // A status record: "status", "filename" (the last path component), "path" (the folder).
    static vn::Record fileStatusEntry(std::string_view path, uint64_t status);

    // The flag of a status letter: M 2, A 4, R 8, ! 64, ? 128, I 256, anything else (C) 1.
    static uint64_t statusForLetter(char letter);

    // The records of a status listing (with copy sources, "-C"): an added file whose copy
    // source is listed as removed becomes one rename (512, "previousName" the source) and the
    // source's own entry goes; a copy of a file that stays is a plain addition. Untracked files
    // in hg's own probe folders (".hgcheck...", "hg-checklink-...") are left out.
    static std::vector<vn::Record> parseFileStatus(std::string_view output);

    // `hg resolve -l`: "U path" unresolved (16), "R path" resolved (32).
    static std::vector<vn::Record> parseFileResolveStatus(std::string_view output);

    // Puts the conflict state of `resolved` over the status entries of the same file and adds
    // the rest.
    static void mergeResolveEntries(std::vector<vn::Record>& status,
                                    const std::vector<vn::Record>& resolved);

    // What `hg summary` says: "parent1", "parent2" (revision numbers), "branch", "isclean",
    // "ismerge", "isnewbranch" and the counts "numfilesadded", "numfilesmodified",
    // "numfilesremoved", "numfilesunresolved", "numfilesunknown", "numfilesmissing".
    static vn::Record parseSummary(std::string_view output);
};
