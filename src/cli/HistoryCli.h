#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/Record.h"
#include "base/Value.h"

class VNLogLabel;
class VNRepoHandlerGit;

// What the history commands (log, show, refs, blame, search) share.
namespace vn::cli::history {

struct GitWorkingCopy {
    std::string path;
    std::shared_ptr<VNRepoHandlerGit> handler;
};

// The Git working copy that holds `start` (a folder or a file); reports to standard error and
// answers nothing outside one.
std::optional<GitWorkingCopy> findGitWorkingCopy(const std::string& start);

// A count given on the command line ("--skip 100"); nothing unless it is a plain number.
std::optional<uint64_t> parseCount(const std::string& text);
// "YYYY-MM-DD" as local midnight.
std::optional<Value::Date> parseDay(const std::string& text);

// "2024-01-02 03:04" in local time; empty for a value that is not a point in time.
std::string shortDate(const Value& date);
// "Name" of "Name <address>".
std::string nameOnly(const std::string& user);

// A label as the terminal shows it: "HEAD -> main 1 ahead", "origin/main", "tag: v1".
std::string labelText(const VNLogLabel& label);
// " (labels, ...)" for a row's description entry, empty without labels.
std::string labelsText(const Value& descriptionEntry);
// One history row on one line: short hash, date, author, labels, subject.
std::string rowLine(const Record& row);

}  // namespace vn::cli::history
