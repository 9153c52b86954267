// The Git diff operations: the commands whose text the diff parser reads, and the external diff
// and merge tools.

#include <algorithm>
#include <limits>

#include "base/Format.h"
#include "git/VNRepoHandlerGit.h"
#include "model/DiffOptions.h"
#include "model/VNDiffModel.h"
#include "model/VNDiffParser.h"
#include "platform/Preferences.h"

namespace {

constexpr uint64_t NoFileLimit = std::numeric_limits<uint64_t>::max();

// What every diff command adds after its command word. The prefixes are given because a user's
// diff.noprefix would drop them and the file headers would no longer read; an external diff
// program configured by the user would write no unified diff at all, and a text conversion
// would give lines that are not the file's (and a patch that cannot be applied).
void appendDiffOptions(std::vector<std::string>& args, uint64_t options, int context) {
    args.insert(args.end(),
                {"--no-ext-diff", "--no-textconv", "--src-prefix=a/", "--dst-prefix=b/", "-M"});
    args.push_back(vn::format("--unified=%d", std::max(context, 0)));
    if (options & vn::DiffIgnoreWhitespace) {
        args.push_back("-w");
    }
}

// Revisions from here on, so that one named like an option ("--output=file") stays a revision.
void appendRevisions(std::vector<std::string>& args, std::initializer_list<std::string> revisions) {
    args.push_back("--end-of-options");
    args.insert(args.end(), revisions.begin(), revisions.end());
}

void appendFiles(std::vector<std::string>& args, const std::vector<std::string>& files) {
    args.push_back("--");
    args.insert(args.end(), files.begin(), files.end());
}

// A diff names files, and a name must go back to git as the bytes git wrote: the output stays
// bytes, and the parser decodes each line it shows by itself.
std::shared_ptr<VNTask> diffTask(const std::string& git, const std::string& path,
                                 std::vector<std::string> args) {
    auto task = VNTask::taskWithCommand(git, path, std::move(args));
    task->setRawOutput(true);
    return task;
}

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
        line.pop_back();
    }
    return line;
}

std::vector<std::string> externalToolArgs(VNRepoHandlerGit& handler, const std::string& path,
                                          const std::string& command) {
    auto args = handler.defaultArgsForPath(path, command);
    args.push_back(command == "mergetool" ? "-y" : "--no-prompt");
    // The user let the program register its own tool under this name in git's configuration;
    // difftool falls back to a merge tool's settings, so the one entry serves both.
    if (vn::Preferences::standard().integerForKey("agreedToUpdateConfig") == 1) {
        args.push_back("--tool=varnel");
    }
    return args;
}

}  // namespace

// ---- Large files -------------------------------------------------------------------------------

uint64_t VNRepoHandlerGit::largeFilesDiffScanLimit() const {
    return VNDiffParser::GitLargeFilesDiffScanLimit;
}

std::optional<std::string> VNRepoHandlerGit::extractLargeFileReferenceFromLine(
    const std::string& line) const {
    return VNDiffParser::gitLargeFileReference(line);
}

// ---- Parsed diffs ------------------------------------------------------------------------------

std::shared_ptr<VNDiffModel> VNRepoHandlerGit::fileDiffAgainstBase(const std::string& path,
                                                                   const std::string& file,
                                                                   int context) {
    return fileDiffAgainstBase(path, std::vector<std::string>{file}, context);
}

std::shared_ptr<VNDiffModel> VNRepoHandlerGit::fileDiffAgainstBase(
    const std::string& path, const std::vector<std::string>& fileList, int context) {
    auto diffAgainst = [&](const std::string& base) {
        auto args = defaultArgsForPath(path, "diff");
        appendDiffOptions(args, 0, context);
        appendRevisions(args, {base});
        appendFiles(args, fileList);
        auto task = diffTask(gitPath(), path, std::move(args));
        task->run();
        return task;
    };
    auto task = diffAgainst("HEAD");
    if (!task->success() && isHarmlessHeadFailure(task->errorOutput())) {
        // Before the first commit everything in the working copy is new.
        if (auto empty = emptyTree(path)) {
            task = diffAgainst(*empty);
        }
    }
    if (!task->success()) {
        handleGitFailure(task->displayCommand(), task->exitCode(), task->errorOutput(), false);
        return nullptr;
    }
    auto model = std::make_shared<VNDiffModel>(fileList.empty() ? 20 : fileList.size());
    parseDiffToModel(task->output(), model->fileEntries(), NoFileLimit);
    return model;
}

std::optional<std::string> VNRepoHandlerGit::emptyTree(const std::string& path) {
    // Asked of git rather than written down, because its id depends on the repository's hash.
    auto args = defaultArgsForPath(path, "hash-object");
    args.insert(args.end(), {"-t", "tree", "/dev/null"});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    if (!task->run()) {
        handleGitFailure(task->displayCommand(), task->exitCode(), task->errorOutput(), false);
        return std::nullopt;
    }
    std::string id = firstLine(task->output());
    return id.empty() ? std::nullopt : std::optional<std::string>(id);
}

// ---- Diff tasks --------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerGit::fileDiffAgainstBaseTask(
    const std::string& path, const std::vector<std::string>& fileList, uint64_t options,
    int context) {
    auto args = defaultArgsForPath(path, "diff");
    appendDiffOptions(args, options, context);
    appendFiles(args, fileList);
    return diffTask(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::fileDiffAgainstBaseTask(
    const std::string& path, const std::vector<std::string>& fileList,
    const std::string& baseRevision, uint64_t options, int context) {
    auto args = defaultArgsForPath(path, "diff");
    args.push_back("--cached");
    appendDiffOptions(args, options, context);
    // Without a named revision git compares with HEAD, and before the first commit with
    // nothing, where naming HEAD would fail.
    if (!baseRevision.empty() && baseRevision != "HEAD") {
        appendRevisions(args, {baseRevision});
    }
    appendFiles(args, fileList);
    return diffTask(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::revisionFileDiffTask(
    const std::string& path, const std::string& revision, const std::vector<std::string>& fileList,
    uint64_t options, int context) {
    auto args = defaultArgsForPath(path, "show");
    // No commit header; a root commit shows its files even where log.showRoot is off; a merge
    // shows what it brought to its first parent, a diff that reads and applies like any other.
    args.insert(args.end(), {"--format=", "--root", "-m", "--first-parent"});
    appendDiffOptions(args, options, context);
    appendRevisions(args, {revision});
    appendFiles(args, fileList);
    return diffTask(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::revisionRangeFileDiffTask(
    const std::string& path, const std::string& revisionFrom, const std::string& revisionTo,
    const std::vector<std::string>& fileList, uint64_t options, int context) {
    auto args = defaultArgsForPath(path, "diff");
    appendDiffOptions(args, options, context);
    appendRevisions(args, {revisionFrom, revisionTo});
    appendFiles(args, fileList);
    return diffTask(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::revisionsFileDiffTask(
    const std::string& path, const std::vector<std::string>& revisions,
    const std::vector<std::string>& fileList, uint64_t options, int context) {
    auto args = defaultArgsForPath(path, "show");
    args.push_back(vn::format("--pretty=format:%@%%h %%s", VNDiffParser::RevisionSeparator));
    // The parser takes 7-digit abbreviations only; git lengthens one only where it would be
    // ambiguous.
    args.insert(args.end(), {"--abbrev=7", "--root"});
    appendDiffOptions(args, options, context);
    args.push_back("--end-of-options");
    args.insert(args.end(), revisions.begin(), revisions.end());
    appendFiles(args, fileList);
    return diffTask(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::stashDiffTask(const std::string& path,
                                                        const std::string& name) {
    auto args = defaultArgsForPath(path, "stash");
    args.insert(args.end(), {"show", "-p", "--no-color", "--no-ext-diff", "--no-textconv",
                             "--src-prefix=a/", "--dst-prefix=b/"});
    if (!name.empty()) {
        appendRevisions(args, {name});
    }
    return diffTask(gitPath(), path, std::move(args));
}

// ---- External tools ----------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerGit::externalDiffTask(const std::string& path,
                                                           const std::string& filename,
                                                           uint64_t /*options*/) {
    auto args = externalToolArgs(*this, path, "difftool");
    appendFiles(args, {filename});
    return VNTask::taskWithCommand(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::externalDiffTask(const std::string& path,
                                                           const std::string& filename,
                                                           const std::string& baseRevision,
                                                           uint64_t /*options*/) {
    auto args = externalToolArgs(*this, path, "difftool");
    args.push_back("--cached");
    if (!baseRevision.empty() && baseRevision != "HEAD") {
        appendRevisions(args, {baseRevision});
    }
    appendFiles(args, {filename});
    return VNTask::taskWithCommand(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::externalDiffTask(const std::string& path,
                                                           const std::string& filename,
                                                           const std::string& revision) {
    // A root commit has no parent to compare with; its files are compared with nothing.
    std::string parent = revision + "^";
    auto check = defaultArgsForPath(path, "rev-parse");
    check.insert(check.end(), {"--verify", "-q", "--end-of-options", parent + "^{commit}"});
    if (!VNTask::taskWithCommand(gitPath(), path, std::move(check))->run()) {
        parent = emptyTree(path).value_or(parent);
    }
    return externalDiffTask(path, filename, parent, revision);
}

std::shared_ptr<VNTask> VNRepoHandlerGit::externalDiffTask(const std::string& path,
                                                           const std::string& filename,
                                                           const std::string& revisionFrom,
                                                           const std::string& revisionTo) {
    auto args = externalToolArgs(*this, path, "difftool");
    appendRevisions(args, {revisionFrom, revisionTo});
    appendFiles(args, {filename});
    return VNTask::taskWithCommand(gitPath(), path, std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::visualMergeTask(const std::string& path,
                                                          const std::string& filename) {
    auto args = externalToolArgs(*this, path, "mergetool");
    appendFiles(args, {filename});
    return VNTask::taskWithCommand(gitPath(), path, std::move(args));
}
