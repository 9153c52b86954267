#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"
#include "base/Value.h"

class VNLogLabel;
class VNRepoHandlerGit;
class VNRepoHandlerMercurial;
class VNRepoHandler;

// What the history commands (log, show, refs, blame, search) share.
namespace vn {
class FailureCollector;
}

namespace vn::cli::history {

struct GitWorkingCopy {
    std::string path;
    // One of the two is set: the Git handler, or the Mercurial one for a command that takes
    // Mercurial working copies too.
    std::shared_ptr<VNRepoHandlerGit> handler;
    std::shared_ptr<VNRepoHandlerMercurial> mercurial;
};

// The Git working copy that holds `start` (a folder or a file); reports to standard error and
// answers nothing outside one. With `acceptMercurial` a Mercurial working copy answers too.
std::optional<GitWorkingCopy> findGitWorkingCopy(const std::string& start,
                                                 bool acceptMercurial = false);

// The working copy's handler, whichever backend it is.
VNRepoHandler& anyHandler(const GitWorkingCopy& workingCopy);

// A count given on the command line ("--skip 100"); nothing unless it is a plain number from
// `lowest` to `highest`.
std::optional<uint64_t> parseCount(const std::string& text, uint64_t lowest = 0,
                                   uint64_t highest = UINT64_MAX);
// The most git counts in a skip or limit.
constexpr uint64_t MaximumCount = 2147483647;

// A path the user gave, made absolute for messages, also when the current folder is gone.
std::string resolvedForMessage(const std::string& given);
// Prints the collected failures' sentence ("vrnl: git log failed: <git's reason>") to standard
// error and answers the exit status 1.
int reportFailure(const FailureCollector& failures);
// "YYYY-MM-DD" as local midnight.
std::optional<Value::Date> parseDay(const std::string& text);

// "2024-01-02 03:04 +0530": the wall-clock time of whoever recorded it, with their offset, as
// git shows it (so the same in every time zone); a point in time without a recorded offset in
// local time, without one. Empty for a value that is not a point in time.
std::string shortDate(const Value& date);
// "Name" of "Name <address>".
std::string nameOnly(const std::string& user);

// A label as the terminal shows it: "HEAD -> main 1 ahead", "origin/main", "tag: v1".
std::string labelText(const VNLogLabel& label);
// " (labels, ...)" for a row's description entry, empty without labels.
std::string labelsText(const Value& descriptionEntry);
// One history row on one line: short hash, date, author, labels, subject.
std::string rowLine(const Record& row);
// The same from the row's parts, appended to `out`: `user` is "Name <address>", `labels` may be
// null.
void appendRowLine(std::string& out, std::string_view shortHash, const Value& date,
                   std::string_view user, const std::vector<std::shared_ptr<VNLogLabel>>* labels,
                   std::string_view subject);
// `shortDate`, appended to `out`.
void appendShortDate(std::string& out, const Value& date);

}  // namespace vn::cli::history
