// History, revisions and references of the Git backend: the paged log listing and its labels,
// commit details and file changes, blame, searches, branches, tags, stashes and remotes.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <random>
#include <set>

#include "base/Format.h"
#include "git/VNGitLogParser.h"
#include "git/VNGitRefsParser.h"
#include "git/VNGitRemoteInfo.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogLabel.h"
#include "model/VNLogRowData.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "platform/WorkQueue.h"

namespace {

using LabelScan = VNGitLogParser::LabelScan;

// A git command in the working copy: the default arguments, the command, then `args`.
std::shared_ptr<VNTask> gitTask(VNRepoHandlerGit& handler, const std::string& path,
                                const std::string& command, std::vector<std::string> args) {
    std::vector<std::string> all = handler.defaultArgsForPath(path, command);
    all.insert(all.end(), std::make_move_iterator(args.begin()),
               std::make_move_iterator(args.end()));
    return VNTask::taskWithCommand(handler.gitPath(), path, std::move(all));
}

// Runs the command; a failure is reported (not shown) under "git <command>" and gives null.
std::shared_ptr<VNTask> runGit(VNRepoHandlerGit& handler, const std::string& path,
                               const std::string& command, std::vector<std::string> args,
                               bool lossy = false) {
    auto task = gitTask(handler, path, command, std::move(args));
    task->setLossyUTF8Output(lossy);
    if (!task->run()) {
        handler.handleGitFailure("git " + command, task->exitCode(), task->errorOutput(), false);
        return nullptr;
    }
    return task;
}

// Runs a listing of file names: its output stays bytes, because a name goes back to git as git
// wrote it.
std::shared_ptr<VNTask> runNameListing(VNRepoHandlerGit& handler, const std::string& path,
                                       const std::string& command, std::vector<std::string> args) {
    auto task = gitTask(handler, path, command, std::move(args));
    task->setRawOutput(true);
    if (!task->run()) {
        handler.handleGitFailure("git " + command, task->exitCode(), task->errorOutput(), false);
        return nullptr;
    }
    return task;
}

// The files of a finished name-status listing; a listing too long to hold is cut, and the cut
// reported with the command.
std::vector<vn::Record> nameStatusRecords(VNRepoHandlerGit& handler, const VNTask& task) {
    bool truncated = false;
    auto records = VNGitLogParser::parseNameStatus(task.output(), &truncated);
    if (truncated) {
        handler.handleGitFailure(
            task.displayCommand(), task.exitCode(),
            vn::format("the listing names more than %ld files; only the first %ld are read",
                       static_cast<long>(VNGitLogParser::MaxFileChanges),
                       static_cast<long>(VNGitLogParser::MaxFileChanges)),
            false);
    }
    return records;
}

bool authorDatePreferred() {
    return vn::Preferences::standard().boolForKey("gitLogUseAuthorDate");
}

std::string firstLine(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
        line.pop_back();
    }
    return line;
}

// Runs `work` on the shared queue while the caller goes on with its own command; `wait` joins.
class SideBySide {
  public:
    explicit SideBySide(std::function<void()> work) {
        vn::WorkQueue::global().async(group_, std::move(work));
    }
    ~SideBySide() { group_.wait(); }
    void wait() { group_.wait(); }

  private:
    vn::WorkGroup group_;
};

// The paths of the working copy as git names them: relative, with "/" between folders.
std::string relativeToWorkingCopy(const std::string& path, const std::string& file) {
    std::filesystem::path given(file);
    if (!given.is_absolute()) {
        return file;
    }
    std::error_code error;
    std::filesystem::path relative =
        std::filesystem::relative(given, std::filesystem::path(path), error);
    return error || relative.empty() ? file : relative.generic_string();
}

// 1980-01-01 00:00 local time: git's dates before it are not worth searching.
vn::Value::Date earliestSearchDate() {
    std::tm fields{};
    fields.tm_year = 80;
    fields.tm_mon = 0;
    fields.tm_mday = 1;
    fields.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&fields));
}

vn::Value::Date clampSearchDate(const vn::Value::Date& date) {
    vn::Value::Date latest = std::chrono::system_clock::now() + std::chrono::seconds(172800);
    return std::min(std::max(date, earliestSearchDate()), latest);
}

// A file name beside `destination` that did not exist, created empty and exclusively.
std::optional<std::string> createTemporaryBeside(const std::string& destination) {
    std::random_device random;
    for (int attempt = 0; attempt < 16; ++attempt) {
        std::string candidate = destination + vn::format(".vnexport-%u", random());
        if (std::FILE* file = std::fopen(candidate.c_str(), "wx")) {
            std::fclose(file);
            return candidate;
        }
    }
    return std::nullopt;
}

}  // namespace

// ---- Log listing -------------------------------------------------------------------------------

std::vector<vn::Record> VNRepoHandlerGit::logRevisions(const std::string& path,
                                                       const std::string& /*latestRevision*/,
                                                       uint64_t skip, uint64_t limit,
                                                       const std::optional<std::string>& branch,
                                                       uint64_t options) {
    // The annotations come from `branch -vv`, which runs beside the log. With a branch and its
    // remote the upstream must be known before the log starts, so it runs first instead.
    vn::Record aheadBehind;
    std::optional<std::string> upstream;
    std::optional<SideBySide> annotations;
    bool haveBranch = branch && !branch->empty();
    if (haveBranch && (options & LogIncludeRemotes)) {
        if (auto task = runGit(*this, path, "branch", {"-vv"})) {
            aheadBehind = VNGitRefsParser::aheadBehindFromBranchVerbose(task->output());
            vn::Record tracking =
                VNGitRefsParser::trackingBranchesFromBranchVerbose(task->output());
            if (const vn::Value* value = tracking.find(*branch)) {
                upstream = value->toString();
            }
        }
    } else {
        annotations.emplace(
            [this, &path, &aheadBehind] { aheadBehind = branchesWithCommitsAheadBehind(path); });
    }

    std::vector<std::string> args;
    if (skip != 0) {
        args.push_back(vn::format("--skip=%llu", static_cast<unsigned long long>(skip)));
    }
    if (limit != 0) {
        args.push_back(vn::format("--max-count=%llu", static_cast<unsigned long long>(limit)));
    }
    if (!haveBranch) {
        args.insert(args.end(), {"--branches", "--tags"});
        if (options & LogIncludeRemotes) {
            args.push_back("--remotes");
        }
    }
    args.push_back("--full-history");
    if (options & LogTopoOrder) {
        args.push_back("--topo-order");
    }
    if (options & LogFirstParent) {
        args.push_back("--first-parent");
    }
    args.push_back(VNGitLogParser::logFormatArgument(authorDatePreferred()));
    args.insert(args.end(), {"--decorate=full", "--date=iso"});
    // Revisions from here on, so that a branch named like an option stays a branch.
    args.push_back("--end-of-options");
    if (!(options & LogWithoutMergeHead)) {
        // The commits being merged appear in the history while the merge is outstanding.
        std::string mergeHead;
        std::vector<std::string> others;
        if (parseMergeHeadFileParents(path, mergeHead, others) && !mergeHead.empty()) {
            args.push_back(mergeHead);
        }
    }
    args.push_back(haveBranch ? *branch : std::string("HEAD"));
    if (upstream) {
        args.push_back(*upstream);
    }
    args.push_back("--");

    auto task = gitTask(*this, path, "log", std::move(args));
    task->setLossyUTF8Output(true);
    bool ok = task->run();
    if (annotations) {
        annotations->wait();
    }
    if (!ok) {
        handleGitFailure("git log", task->exitCode(), task->errorOutput(), true);
        return {};
    }
    return VNGitLogParser::parseLog(task->output(), LabelScan::Full, &aheadBehind);
}

std::vector<vn::Record> VNRepoHandlerGit::logRevisions(
    const std::string& path, const std::vector<std::string>& fileFolderPaths, uint64_t withLimit,
    bool followRenames) {
    return logRevisions(path, fileFolderPaths, std::nullopt, withLimit, std::nullopt, 0,
                        followRenames);
}

std::vector<vn::Record> VNRepoHandlerGit::logRevisions(
    const std::string& path, const std::vector<std::string>& fileFolderPaths,
    const std::optional<std::string>& startRevision, uint64_t withLimit,
    const std::optional<std::string>& branch, uint64_t options, bool followRenames) {
    vn::Record aheadBehind;
    SideBySide annotations(
        [this, &path, &aheadBehind] { aheadBehind = branchesWithCommitsAheadBehind(path); });
    std::vector<std::string> args;
    if (withLimit != 0) {
        args.push_back(vn::format("--max-count=%llu", static_cast<unsigned long long>(withLimit)));
    }
    if (options & LogTopoOrder) {
        args.push_back("--topo-order");
    }
    if (options & LogFirstParent) {
        args.push_back("--first-parent");
    }
    // Git follows renames of one file only.
    if (followRenames && fileFolderPaths.size() == 1) {
        args.push_back("--follow");
    }
    args.push_back(VNGitLogParser::logFormatArgument(authorDatePreferred()));
    args.insert(args.end(), {"--decorate=full", "--date=iso", "--end-of-options"});
    if (startRevision && !startRevision->empty()) {
        args.push_back(*startRevision);
    } else if (branch && !branch->empty()) {
        args.push_back(*branch);
    } else {
        args.push_back("HEAD");
    }
    args.push_back("--");
    for (const std::string& file : fileFolderPaths) {
        args.push_back(relativeToWorkingCopy(path, file));
    }
    auto task = gitTask(*this, path, "log", std::move(args));
    task->setLossyUTF8Output(true);
    bool ok = task->run();
    annotations.wait();
    if (!ok) {
        handleGitFailure("git log", task->exitCode(), task->errorOutput(), true);
        return {};
    }
    return VNGitLogParser::parseLog(task->output(), LabelScan::Full, &aheadBehind);
}

namespace {

std::vector<std::string> withArgs(std::vector<std::string> base,
                                  std::initializer_list<const char*> more) {
    base.insert(base.end(), more.begin(), more.end());
    return base;
}

}  // namespace

std::optional<vn::Record> VNRepoHandlerGit::workingCopyRow(const std::string& path) {
    // Tracked and untracked changes both count: either is something to commit.
    auto status = VNTask::taskWithCommand(
        gitPath(), path,
        withArgs(defaultArgsForPath(path, "status"), {"--porcelain", "--ignore-submodules=dirty"}));
    if (!status->run() || status->output().empty()) {
        return std::nullopt;
    }
    auto head = VNTask::taskWithCommand(
        gitPath(), path,
        withArgs(defaultArgsForPath(path, "rev-parse"), {"--verify", "-q", "HEAD"}));
    head->run();
    std::string parent = head->success() ? head->output() : "";
    while (!parent.empty() && (parent.back() == '\n' || parent.back() == '\r')) {
        parent.pop_back();
    }
    return vn::Record{
        {"rev", "-1"},
        {"changeset", ""},
        {"changesetshort", ""},
        {"parentid1", parent},
        {"parentid2", ""},
        {"date", vn::Value::Date(std::chrono::system_clock::now())},
        {"user", ""},
        {"committer", ""},
        {"branch", ""},
        {"descriptionentry", std::make_shared<VNLogDescriptionEntry>(
                                 "Uncommitted changes", VNLogDescriptionEntry::LabelList{})},
    };
}

void VNRepoHandlerGit::fillLogPage(const std::string& path, VNLogRowData& rowData) {
    std::optional<std::string> branch;
    if (!rowData.allBranches() && !rowData.selectedBranch().empty()) {
        branch = rowData.selectedBranch();
    }
    rowData.setLogRows(
        logRevisions(path, "", rowData.skip(), rowData.limit(), branch, rowData.logOptions()));
    rowData.setMoreRevisions(rowData.limit() != 0 && rowData.logRows().size() >= rowData.limit());
    rowData.setFirstRowIsWorkingDir(false);
    if (rowData.skip() == 0) {
        if (std::optional<vn::Record> row = workingCopyRow(path)) {
            rowData.logRows().insert(rowData.logRows().begin(), std::move(*row));
            rowData.setFirstRowIsWorkingDir(true);
        }
    }
    addGraphInfoToLogRevisions(
        rowData.logRows(),
        std::dynamic_pointer_cast<const VNLogGraphEntry>(rowData.baseGraphState()),
        rowData.followFirst());
    bool found = false;
    for (const vn::Record& row : rowData.logRows()) {
        auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
        if (!entry) {
            continue;
        }
        for (const auto& label : entry->labels()) {
            if (label->currentMarker()) {
                found = true;
                if (rowData.currentBranch().empty()) {
                    rowData.setCurrentBranch(label->label());
                }
            }
        }
    }
    rowData.setCurrentBranchFound(found);
}

std::optional<vn::Record> VNRepoHandlerGit::parseLogLine(const std::string& line) {
    return VNGitLogParser::parseLogLine(line, LabelScan::Reduced, nullptr);
}

std::shared_ptr<VNTask> VNRepoHandlerGit::searchLogTask(const std::string& path,
                                                        const std::string& pattern, uint32_t mode,
                                                        const vn::Value::Date& from,
                                                        const vn::Value::Date& to) {
    std::vector<std::string> args;
    switch (mode) {
        case SearchMessage:
            args.push_back("--grep=" + pattern);
            break;
        case SearchAuthor:
            args.push_back("--author=" + pattern);
            break;
        case SearchContent:
            args.insert(args.end(), {"-S", pattern, "--pickaxe-all"});
            break;
        case SearchHash:
            // The hash itself goes last, after "--end-of-options".
            args.push_back("--max-count=1");
            break;
        case SearchRange:
            args.insert(args.end(), {"-r", ".." + pattern});
            break;
        default:
            vn::Log::warning(vn::format("Unknown history search mode %u", mode), vn::Log::Git);
            return nullptr;
    }
    DateFormatter formatter = searchDateFormatter();
    args.push_back("--since=" + formatter(clampSearchDate(from)));
    args.push_back("--until=" + formatter(clampSearchDate(to)));
    if (mode != SearchHash) {
        args.push_back("-i");
    }
    // Hits always carry the committer date, whatever the history view shows.
    args.push_back(VNGitLogParser::logFormatArgument(false));
    // Full names, so that the labels of a hit are read as in the history view.
    args.insert(args.end(), {"--date=iso", "--decorate=full"});
    if (mode != SearchHash && mode != SearchRange) {
        args.insert(args.end(), {"--all", "--tags", "--full-history"});
    }
    if (mode == SearchHash) {
        args.insert(args.end(), {"--end-of-options", pattern});
    }
    args.push_back("--");
    auto task = gitTask(*this, path, "log", std::move(args));
    task->setLossyUTF8Output(true);
    return task;
}

// ---- Revisions ---------------------------------------------------------------------------------

vn::Record VNRepoHandlerGit::revisionDetails(const std::string& path, const std::string& revision) {
    vn::Record aheadBehind;
    SideBySide annotations(
        [this, &path, &aheadBehind] { aheadBehind = branchesWithCommitsAheadBehind(path); });
    auto task = runGit(*this, path, "log",
                       {"-1", VNGitLogParser::detailsFormatArgument(), "--decorate=full",
                        "--date=iso", "--end-of-options", revision, "--"},
                       true);
    annotations.wait();
    if (!task) {
        return {};
    }
    return VNGitLogParser::parseDetails(task->output(), authorDatePreferred(), &aheadBehind)
        .value_or(vn::Record());
}

std::vector<vn::Record> VNRepoHandlerGit::revisionFileChanges(const std::string& path,
                                                              const std::string& revision) {
    auto task = runNameListing(*this, path, "diff-tree",
                               {"-r", "-z", "--no-commit-id", "--name-status", "-M", "--root",
                                "--diff-merges=first-parent", "--end-of-options", revision, "--"});
    return task ? nameStatusRecords(*this, *task) : std::vector<vn::Record>();
}

std::vector<vn::Record> VNRepoHandlerGit::revisionRangeFileChanges(const std::string& path,
                                                                   const std::string& revisionFrom,
                                                                   const std::string& revisionTo) {
    auto task = runNameListing(
        *this, path, "diff-tree",
        {"-r", "-z", "--name-status", "-M", "--end-of-options", revisionFrom, revisionTo, "--"});
    return task ? nameStatusRecords(*this, *task) : std::vector<vn::Record>();
}

vn::Record VNRepoHandlerGit::fullCommitMessages(const std::string& path,
                                                const std::vector<std::string>& revs) {
    vn::Record messages;
    std::string format = "--format=%H" + std::string(VNGitLogParser::FieldSeparator) + "%B";
    std::vector<std::string> baseArgs = {"-z", "--no-walk=unsorted", format, "--end-of-options"};
    // Long lists are spread over several runs so that no command line grows too long.
    FileRange range;
    while (range.location < revs.size()) {
        determineSingleCommandFileRange(revs, range);
        if (range.length == 0) {
            range.length = 1;
        }
        std::vector<std::string> args = baseArgs;
        args.insert(args.end(), revs.begin() + static_cast<std::ptrdiff_t>(range.location),
                    revs.begin() + static_cast<std::ptrdiff_t>(range.location + range.length));
        args.push_back("--");
        auto task = runGit(*this, path, "log", std::move(args), true);
        if (!task) {
            return {};
        }
        for (const auto& [hash, message] : VNGitLogParser::parseFullMessages(task->output())) {
            messages.set(hash, message);
        }
        range.location += range.length;
    }
    return messages;
}

std::vector<std::string> VNRepoHandlerGit::parentRevisions(const std::string& path,
                                                           const std::string& revision) {
    auto task =
        runGit(*this, path, "log", {"-1", "--format=%P", "--end-of-options", revision, "--"});
    if (!task) {
        return {};
    }
    std::vector<std::string> parents;
    std::string line = firstLine(task->output());
    for (std::size_t from = 0; from < line.size();) {
        std::size_t blank = line.find(' ', from);
        if (blank == std::string::npos) {
            blank = line.size();
        }
        if (blank > from) {
            parents.push_back(line.substr(from, blank - from));
        }
        from = blank + 1;
    }
    return parents;
}

vn::Record VNRepoHandlerGit::lastCommitDetails(const std::string& path) {
    return revisionDetails(path, "HEAD");
}

bool VNRepoHandlerGit::revisionIsValid(const std::string& path, const std::string& revision) {
    return getCommitSHA(path, revision).has_value();
}

std::optional<std::string> VNRepoHandlerGit::getCommitSHA(const std::string& path,
                                                          const std::string& forLabel) {
    if (forLabel.empty()) {
        return std::nullopt;
    }
    // "--verify" takes exactly one revision, so a text starting with "-" cannot be an option.
    auto task = gitTask(*this, path, "rev-parse",
                        {"--verify", "--quiet", "--end-of-options", forLabel + "^{commit}"});
    if (!task->run()) {
        return std::nullopt;
    }
    std::string sha = firstLine(task->output());
    return sha.empty() ? std::nullopt : std::optional<std::string>(sha);
}

std::vector<vn::Record> VNRepoHandlerGit::blame(const std::string& path, const std::string& file,
                                                const std::optional<std::string>& revision) {
    std::vector<std::string> args = {"--porcelain"};
    if (revision && !revision->empty()) {
        // blame knows no "--end-of-options"; a revision cannot start with "-" anyway.
        if (revision->front() == '-') {
            vn::Log::warning("Not a revision: " + *revision, vn::Log::Git);
            return {};
        }
        args.push_back(*revision);
    }
    args.push_back("--");
    args.push_back(relativeToWorkingCopy(path, file));
    auto task = gitTask(*this, path, "blame", std::move(args));
    task->setLossyUTF8Output(true);
    if (!task->run()) {
        handleGitFailure("git blame", task->exitCode(), task->errorOutput(), true);
        return {};
    }
    return VNGitLogParser::parseBlamePorcelain(task->output());
}

bool VNRepoHandlerGit::exportFileContentAtRevision(const std::string& path, const std::string& file,
                                                   const std::string& revision,
                                                   const std::string& destFile) {
    auto temporary = createTemporaryBeside(destFile);
    if (!temporary) {
        vn::Log::error("Cannot create a file beside " + destFile, vn::Log::Git);
        return false;
    }
    // cat-file with filters gives the file as a checkout writes it (line endings, Git LFS).
    std::vector<std::string> args = defaultArgsForPath(path, "cat-file");
    args.insert(args.end(), {"--filters", revision + ":" + relativeToWorkingCopy(path, file)});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args), *temporary);
    std::error_code error;
    if (!task->run()) {
        std::filesystem::remove(*temporary, error);
        handleGitFailure("git cat-file", task->exitCode(), task->errorOutput(), false);
        return false;
    }
    std::filesystem::rename(*temporary, destFile, error);
    if (error) {
        vn::Log::error("Cannot write " + destFile + ": " + error.message(), vn::Log::Git);
        std::filesystem::remove(*temporary, error);
        return false;
    }
    return true;
}

std::string VNRepoHandlerGit::currentRevision(const std::string& path) {
    // Before the first commit there is none, which is no failure.
    auto task = gitTask(*this, path, "rev-parse", {"--verify", "--quiet", "HEAD^{commit}"});
    return task->run() ? firstLine(task->output()) : std::string();
}

std::string VNRepoHandlerGit::latestRevision(const std::string& path) {
    auto task =
        runGit(*this, path, "log", {"-1", "--format=%H", "--branches", "--tags", "HEAD", "--"});
    return task ? firstLine(task->output()) : std::string();
}

uint64_t VNRepoHandlerGit::revisionCount(const std::string& path) {
    auto task = runGit(*this, path, "rev-list",
                       {"--count", "--branches", "--tags", "--remotes", "HEAD", "--"});
    if (!task) {
        return 0;
    }
    std::string text = firstLine(task->output());
    uint64_t count = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return 0;
        }
        count = count * 10 + static_cast<uint64_t>(c - '0');
    }
    return count;
}

// ---- References --------------------------------------------------------------------------------

std::vector<std::string> VNRepoHandlerGit::branches(const std::string& path) {
    auto task = runGit(*this, path, "branch", {}, true);
    return task ? VNGitRefsParser::parseBranchList(task->output()) : std::vector<std::string>();
}

std::vector<std::string> VNRepoHandlerGit::branchesSortedByMostRecentFirst(
    const std::string& path) {
    auto task = runGit(*this, path, "for-each-ref",
                       {"--sort=-committerdate", "--format=%(refname)", "refs/heads/"}, true);
    return task ? VNGitRefsParser::parseNameList(task->output(), "refs/heads/")
                : std::vector<std::string>();
}

std::vector<std::string> VNRepoHandlerGit::tags(const std::string& path) {
    auto task = runGit(*this, path, "tag", {}, true);
    return task ? VNGitRefsParser::parseNameList(task->output()) : std::vector<std::string>();
}

std::vector<std::string> VNRepoHandlerGit::tagsSortedByMostRecentFirst(const std::string& path) {
    // The creation date is the tagger's for annotated tags and the commit's for plain ones.
    auto task = runGit(*this, path, "for-each-ref",
                       {"--sort=-creatordate", "--format=%(refname)", "refs/tags/"}, true);
    return task ? VNGitRefsParser::parseNameList(task->output(), "refs/tags/")
                : std::vector<std::string>();
}

std::vector<std::shared_ptr<VNLogLabel>> VNRepoHandlerGit::allRevisionLabels(
    const std::string& path, uint64_t options) {
    std::string sep(VNGitLogParser::FieldSeparator);
    std::vector<std::string> args = {"--format=%(HEAD)" + sep + "%(refname)" + sep +
                                         "%(objectname)" + sep + "%(*objectname)" + sep +
                                         "%(symref)",
                                     "refs/heads/", "refs/tags/"};
    if (options & LogIncludeRemotes) {
        args.push_back("refs/remotes/");
    }
    auto task = runGit(*this, path, "for-each-ref", std::move(args), true);
    if (!task) {
        return {};
    }
    return VNGitRefsParser::parseRefLabels(task->output(), options & LogIncludeRemotes);
}

std::vector<vn::Record> VNRepoHandlerGit::listStashes(const std::string& path) {
    std::string format = "--format=%gd" + std::string(VNGitLogParser::FieldSeparator) + "%gs";
    auto task = runGit(*this, path, "stash", {"list", format}, true);
    return task ? VNGitRefsParser::parseStashList(task->output()) : std::vector<vn::Record>();
}

std::vector<std::string> VNRepoHandlerGit::remoteBranches(const std::string& path) {
    std::string sep(VNGitLogParser::FieldSeparator);
    auto task = runGit(*this, path, "for-each-ref",
                       {"--format=%(HEAD)" + sep + "%(refname)" + sep + "%(objectname)" + sep +
                            "%(*objectname)" + sep + "%(symref)",
                        "refs/remotes/"},
                       true);
    std::vector<std::string> names;
    if (!task) {
        return names;
    }
    for (const auto& label : VNGitRefsParser::parseRefLabels(task->output(), true)) {
        names.push_back(label->label());
    }
    return names;
}

vn::Record VNRepoHandlerGit::branchesWithCommitsAheadBehind(const std::string& path) {
    auto task = runGit(*this, path, "branch", {"-vv"}, true);
    return task ? VNGitRefsParser::aheadBehindFromBranchVerbose(task->output()) : vn::Record();
}

vn::Record VNRepoHandlerGit::trackingBranchesForPull(const std::string& path) {
    auto task = runGit(*this, path, "branch", {"-vv"}, true);
    return task ? VNGitRefsParser::trackingBranchesFromBranchVerbose(task->output()) : vn::Record();
}

// ---- Remotes -----------------------------------------------------------------------------------

vn::Record VNRepoHandlerGit::remoteRepositories(const std::string& path) {
    auto task = runGit(*this, path, "remote", {"-v"});
    return task ? VNGitRefsParser::parseRemoteVerbose(task->output()) : vn::Record();
}

std::vector<vn::Record> VNRepoHandlerGit::remotePaths(const std::string& path) {
    auto task = runGit(*this, path, "remote", {"-v"});
    return task ? VNGitRefsParser::parseRemotePaths(task->output()) : std::vector<vn::Record>();
}

bool VNRepoHandlerGit::setRemotePaths(const std::string& path,
                                      const std::vector<vn::Record>& remotes) {
    std::vector<vn::Record> existing = remotePaths(path);
    auto known = [&](const std::string& name) -> const vn::Record* {
        for (const vn::Record& remote : existing) {
            if (remote.string("name") == name) {
                return &remote;
            }
        }
        return nullptr;
    };
    bool allDone = true;
    for (const vn::Record& remote : remotes) {
        std::string name = remote.string("name");
        std::string url = remote.string("path");
        if (name.empty() || url.empty() || name.front() == '-') {
            vn::Log::warning("A remote needs a name and a path: \"" + name + "\"", vn::Log::Git);
            allDone = false;
            continue;
        }
        const vn::Record* current = known(name);
        if (current && current->string("path") == url) {
            continue;
        }
        std::vector<std::string> args;
        if (current) {
            args = {"set-url", "--", name, url};
        } else {
            args = {"add", "--", name, url};
        }
        auto task = gitTask(*this, path, "remote", std::move(args));
        if (!task->run()) {
            handleGitFailure("git remote", task->exitCode(), task->errorOutput(), true);
            allDone = false;
        }
    }
    return allDone;
}

bool VNRepoHandlerGit::removeRemote(const std::string& path, const std::string& name) {
    if (name.empty()) {
        return false;
    }
    auto task = gitTask(*this, path, "remote", {"remove", "--", name});
    if (!task->run()) {
        handleGitFailure("git remote", task->exitCode(), task->errorOutput(), true);
        return false;
    }
    return true;
}

std::shared_ptr<VNGitRemoteInfo> VNRepoHandlerGit::remoteInfo(const std::string& path,
                                                              const std::string& remoteName,
                                                              bool queryRemote) {
    auto info = std::make_shared<VNGitRemoteInfo>(remoteName);
    if (remoteName.empty() || remoteName.front() == '-') {
        return info;
    }
    std::vector<std::string> args = {"show"};
    if (!queryRemote) {
        args.push_back("-n");
    }
    args.push_back(remoteName);
    auto show = gitTask(*this, path, "remote", std::move(args));
    show->setLossyUTF8Output(true);
    configureSSHAskpass(path, remoteName, *show);
    if (!show->run()) {
        handleGitFailure("git remote show", show->exitCode(), show->errorOutput(), false);
        return info;
    }
    VNGitRefsParser::RemoteShow parsed = VNGitRefsParser::parseRemoteShow(show->output());
    info->setFetchUrl(parsed.fetchUrl);
    info->setPushUrl(parsed.pushUrl);
    info->setHeadBranch(parsed.headBranch);
    info->setRemoteBranches(parsed.remoteBranches);
    for (const auto& [local, remote] : parsed.pull) {
        info->localToRemoteBranchPull().emplace(local, remote);
    }

    if (queryRemote) {
        auto heads = gitTask(*this, path, "ls-remote", {"--heads", remoteName});
        heads->setLossyUTF8Output(true);
        configureSSHAskpass(path, remoteName, *heads);
        if (heads->run()) {
            auto& branches = info->remoteBranches();
            for (std::string& name : VNGitRefsParser::parseLsRemoteHeads(heads->output())) {
                if (std::find(branches.begin(), branches.end(), name) == branches.end()) {
                    branches.push_back(std::move(name));
                }
            }
        } else {
            handleGitFailure("git ls-remote", heads->exitCode(), heads->errorOutput(), false);
        }
    }

    // What `git push <remote>` would update depends on settings that `remote show` does not
    // weigh: it assumes "matching" where git's default has long been "simple".
    auto refs =
        runGit(*this, path, "for-each-ref", {"--format=%(HEAD)%(refname)", "refs/heads/"}, true);
    std::vector<std::string> localBranches;
    std::string current;
    if (refs) {
        for (std::string_view line : VNGitRefsParser::lines(refs->output())) {
            bool isCurrent = line.starts_with("*");
            std::string_view ref = line.substr(1);
            if (!ref.starts_with("refs/heads/")) {
                continue;
            }
            localBranches.emplace_back(ref.substr(11));
            if (isCurrent) {
                current = localBranches.back();
            }
        }
    }
    auto config = runGit(*this, path, "config", {"-z", "--list"}, true);
    VNGitRefsParser::PushSettings settings = VNGitRefsParser::pushSettingsFromConfig(
        config ? std::string_view(config->output()) : std::string_view(), remoteName, current);
    settings.localBranches = std::move(localBranches);
    VNGitRefsParser::completePushMapping(*info, parsed, settings);
    return info;
}
