#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Value.h"
#include "cli/HistoryCli.h"
#include "handler/VNRepoHandler.h"

// The write commands of vrnl in a Mercurial working copy, and the commands only Mercurial has.
namespace vn::cli {

// Runs the tasks in order with their output and progress shown as they come (nothing but the
// result with `json`), stopping at the first failure; answers whether all succeeded. Each task's
// record is added to `reports`.
bool runTaskList(const VNTaskList& tasks, bool json, Value::Array& reports);

namespace mercurial {

// commit, init, clone, push, pull and fetch once their options are read; the Git-only options
// are refused before these are reached.
int commit(const history::GitWorkingCopy& copy, const std::string& message,
           std::vector<std::string> files, const std::string& author, bool amend, bool json);
int init(const std::string& path, bool json);
int clone(const std::string& source, const std::string& destination, bool noCheckout,
          const std::optional<std::string>& branch, bool quiet, bool json);
// Without a remote, the repository's "default-push" path, else "default".
int push(const history::GitWorkingCopy& copy, const std::optional<std::string>& remote,
         const std::optional<std::string>& branch, const std::optional<std::string>& revision,
         bool force, bool json);
// `postPull` is one of VNRepoHandlerMercurial::PostPullAction; fetch is a pull without one.
int pull(const history::GitWorkingCopy& copy, const std::optional<std::string>& remote,
         const std::optional<std::string>& branch, const std::optional<std::string>& revision,
         int64_t postPull, bool json);

// Whether `source` names a local Mercurial repository (a folder holding ".hg", or a bundle).
bool isMercurialSource(const std::string& source);

}  // namespace mercurial
}  // namespace vn::cli
