// History, revisions and references of the Git backend: the paged log listing and its labels,
// commit details and file changes, blame, searches, branches, tags, stashes and remotes.

#include <algorithm>
#include <charconv>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <deque>
#include <exception>
#include <filesystem>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "base/Format.h"
#include "git/VNGitLogParser.h"
#include "git/VNGitRefsParser.h"
#include "git/VNGitRemoteInfo.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "handler/GitSettings.h"
#include "handler/SideBySide.h"
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

// The labels of a commit are the references git decorates by default, whatever the user's
// log.excludeDecoration says.
void appendDecorationFilter(std::vector<std::string>& args) {
    const std::vector<std::string>& filter = vn::GitSettings::decorationFilterArguments();
    args.insert(args.end(), filter.begin(), filter.end());
}

std::vector<std::string> withArgs(std::vector<std::string> base,
                                  std::initializer_list<const char*> more) {
    base.insert(base.end(), more.begin(), more.end());
    return base;
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

using vn::SideBySide;

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

// The largest file blamed, in bytes and in lines: each line becomes a record of some 600
// bytes, and git takes minutes over files this large.
constexpr uint64_t BlameSizeLimit = uint64_t(32) << 20;
constexpr uint64_t BlameLineLimit = 500000;

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
    std::vector<vn::Record> all;
    bool ok = streamLogRevisions(
        path, skip, limit, branch, options, [&all](std::vector<vn::Record>& rows) {
            if (all.empty()) {
                all = std::move(rows);
            } else {
                all.insert(all.end(), std::make_move_iterator(rows.begin()),
                           std::make_move_iterator(rows.end()));
            }
        });
    return ok ? std::move(all) : std::vector<vn::Record>();
}

namespace {

// The log listing's run: `lines` receives whole lines of git's output as they arrive, after
// `ready` (which may wait for work done beside the run). With `topology` the format is only the
// hash and the parents, for laying out rows that are not shown.
bool runLogListing(VNRepoHandlerGit& handler, const std::string& path, uint64_t skip,
                   uint64_t limit, const std::optional<std::string>& branch, uint64_t options,
                   const std::optional<std::string>& upstream, bool topology,
                   const std::function<void(std::string_view)>& lines,
                   const std::function<void()>& starting = {}) {
    // Git counts skip and limit in an int; a larger skip is past the end of any history.
    if (skip > static_cast<uint64_t>(INT_MAX)) {
        if (starting) {
            starting();
        }
        return true;
    }
    limit = std::min<uint64_t>(limit, INT_MAX);
    bool haveBranch = branch && !branch->empty();
    std::vector<std::string> args;
    if (skip != 0) {
        args.push_back(vn::format("--skip=%llu", static_cast<unsigned long long>(skip)));
    }
    if (limit != 0) {
        args.push_back(vn::format("--max-count=%llu", static_cast<unsigned long long>(limit)));
    }
    if (!haveBranch) {
        args.insert(args.end(), {"--branches", "--tags"});
        if (options & VNRepoHandlerGit::LogIncludeRemotes) {
            args.push_back("--remotes");
        }
    }
    args.push_back("--full-history");
    if (options & VNRepoHandlerGit::LogTopoOrder) {
        args.push_back("--topo-order");
    }
    if (options & VNRepoHandlerGit::LogFirstParent) {
        args.push_back("--first-parent");
    }
    if (topology) {
        args.push_back("--format=%H %P");
    } else {
        args.push_back(VNGitLogParser::logFormatArgument(authorDatePreferred()));
        args.insert(args.end(), {"--decorate=full", "--date=iso"});
        appendDecorationFilter(args);
    }
    // Revisions from here on, so that a branch named like an option stays a branch.
    args.push_back("--end-of-options");
    if (!(options & VNRepoHandlerGit::LogWithoutMergeHead)) {
        // The commits being merged appear in the history while the merge is outstanding.
        std::string mergeHead;
        std::vector<std::string> others;
        if (handler.parseMergeHeadFileParents(path, mergeHead, others) && !mergeHead.empty()) {
            args.push_back(mergeHead);
        }
    }
    args.push_back(haveBranch ? *branch : std::string("HEAD"));
    if (upstream) {
        args.push_back(*upstream);
    }
    args.push_back("--");

    auto task = gitTask(handler, path, "log", std::move(args));
    task->setLossyUTF8Output(true);
    // Git flushes after every commit into a pipe; 80,000 small writes, each waking the reader,
    // cost more than the listing. Full buffering still hands the first rows over at once.
    task->setEnvironmentCustomisations(vn::Environment{{"GIT_FLUSH", "0"}});
    // Git runs on a thread of its own that only drains the pipe, so that git never waits on a
    // full pipe while rows are parsed, laid out and written here. Rows waiting here while this
    // side is idle are time lost at the end, so a few dozen of them are enough to wake it; when
    // it is busy, what arrived meanwhile goes on together.
    constexpr std::size_t WakeBytes = 16 << 10;
    constexpr auto LookInterval = std::chrono::milliseconds(5);
    struct Shared {
        std::mutex mutex;
        std::condition_variable arrived;
        std::deque<std::string> chunks;
        std::size_t pendingBytes = 0;
        bool finished = false;
        bool abandoned = false;
    } shared;
    task->setOutputConsumer([&shared](std::string_view chunk) {
        std::lock_guard<std::mutex> lock(shared.mutex);
        if (shared.abandoned || chunk.empty()) {
            return;
        }
        shared.chunks.emplace_back(chunk);
        shared.pendingBytes += chunk.size();
        // The reader also looks on its own every few milliseconds, for a history that comes
        // slowly.
        if (shared.pendingBytes >= WakeBytes) {
            shared.arrived.notify_one();
        }
    });
    bool ok = false;
    std::exception_ptr failure;
    std::thread runner(vn::FailureCollector::bind([&] {
        try {
            if (starting) {
                starting();
            }
            ok = task->run();
        } catch (...) {
            failure = std::current_exception();
        }
        std::lock_guard<std::mutex> lock(shared.mutex);
        shared.finished = true;
        shared.arrived.notify_one();
    }));
    // Whole lines are handed on as they arrive; a line cut at a chunk's end waits for the rest.
    // What arrived while the last batch was handled goes on together, up to a bounded size.
    constexpr std::size_t BatchSize = 1 << 20;
    std::string partial;
    try {
        std::string batch;
        for (;;) {
            batch.assign(partial);
            partial.clear();
            bool finished;
            {
                std::unique_lock<std::mutex> lock(shared.mutex);
                while (!shared.finished && shared.pendingBytes < WakeBytes) {
                    // A short wait, so that the first rows show at once on a slow history.
                    if (shared.arrived.wait_for(lock, LookInterval) == std::cv_status::timeout &&
                        !shared.chunks.empty()) {
                        break;
                    }
                }
                while (!shared.chunks.empty() && batch.size() < BatchSize) {
                    shared.pendingBytes -= shared.chunks.front().size();
                    batch.append(shared.chunks.front());
                    shared.chunks.pop_front();
                }
                finished = shared.finished && shared.chunks.empty();
            }
            std::size_t lastLine = batch.rfind('\n');
            if (lastLine == std::string::npos) {
                partial = std::move(batch);
            } else {
                partial.assign(batch, lastLine + 1);
                batch.resize(lastLine + 1);
                lines(batch);
            }
            if (finished) {
                break;
            }
        }
    } catch (...) {
        {
            // Git goes on to its end with nothing read from it.
            std::lock_guard<std::mutex> lock(shared.mutex);
            shared.abandoned = true;
            shared.chunks.clear();
        }
        runner.join();
        throw;
    }
    runner.join();
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (!partial.empty()) {
        lines(partial);
    }
    if (!ok) {
        handler.handleGitFailure("git log", task->exitCode(), task->errorOutput(), true);
    }
    return ok;
}

// The upstream of `branch` when remote branches are asked for: it is listed with the branch.
std::optional<std::string> upstreamFor(VNRepoHandlerGit& handler, const std::string& path,
                                       const std::optional<std::string>& branch, uint64_t options,
                                       vn::Record* aheadBehind) {
    if (!branch || branch->empty() || !(options & VNRepoHandlerGit::LogIncludeRemotes)) {
        return std::nullopt;
    }
    auto task = runGit(handler, path, "for-each-ref",
                       {VNGitRefsParser::branchRefsFormatArgument(), "refs/heads/"});
    if (!task) {
        return std::nullopt;
    }
    if (aheadBehind) {
        *aheadBehind = VNGitRefsParser::aheadBehindFromBranchRefs(task->output());
    }
    vn::Record tracking = VNGitRefsParser::trackingBranchesFromBranchRefs(task->output());
    if (const vn::Value* value = tracking.find(*branch)) {
        return "refs/remotes/" + value->toString();
    }
    return std::nullopt;
}

}  // namespace

bool VNRepoHandlerGit::streamLogRevisions(const std::string& path, uint64_t skip, uint64_t limit,
                                          const std::optional<std::string>& branch,
                                          uint64_t options, const LogRowsReceiver& receive,
                                          const std::function<void()>& starting) {
    std::vector<vn::Record> rows;
    return streamLogLines(
        path, skip, limit, branch, options,
        [&](std::string_view text, const vn::Record& aheadBehind) {
            rows = VNGitLogParser::parseLog(text, LabelScan::Full, &aheadBehind);
            if (!rows.empty()) {
                receive(rows);
            }
        },
        starting);
}

bool VNRepoHandlerGit::streamLogLines(const std::string& path, uint64_t skip, uint64_t limit,
                                      const std::optional<std::string>& branch, uint64_t options,
                                      const LogLinesReceiver& receive,
                                      const std::function<void()>& starting) {
    // The annotations come from `for-each-ref`, which runs beside the log. With a branch and its
    // remote the upstream must be known before the log starts, so it runs first instead.
    vn::Record aheadBehind;
    std::optional<std::string> upstream = upstreamFor(*this, path, branch, options, &aheadBehind);
    std::optional<SideBySide> annotations;
    if (!(branch && !branch->empty() && (options & LogIncludeRemotes))) {
        annotations.emplace(
            [this, &path, &aheadBehind] { aheadBehind = branchesWithCommitsAheadBehind(path); });
    }
    bool ok = runLogListing(
        *this, path, skip, limit, branch, options, upstream, false,
        [&](std::string_view text) {
            if (annotations) {
                annotations->wait();  // the labels need the counts
            }
            receive(text, aheadBehind);
        },
        starting);
    if (annotations) {
        annotations->wait();
    }
    return ok;
}

bool VNRepoHandlerGit::streamLogTopology(const std::string& path, uint64_t skip, uint64_t limit,
                                         const std::optional<std::string>& branch, uint64_t options,
                                         const LogTopologyReceiver& receive) {
    std::optional<std::string> upstream = upstreamFor(*this, path, branch, options, nullptr);
    std::vector<std::string_view> parents;
    return runLogListing(
        *this, path, skip, limit, branch, options, upstream, true, [&](std::string_view text) {
            while (!text.empty()) {
                std::size_t end = text.find('\n');
                std::string_view line = text.substr(0, end);
                text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
                std::size_t blank = line.find(' ');
                if (blank == std::string_view::npos || blank == 0) {
                    continue;
                }
                VNGitLogParser::splitParents(line.substr(blank + 1), parents);
                receive(line.substr(0, blank), parents);
            }
        });
}

std::string VNRepoHandlerGit::historyIdentity(const std::string& path) {
    auto heads = VNTask::taskWithCommand(
        gitPath(), path,
        withArgs(defaultArgsForPath(path, "rev-parse"),
                 {"--absolute-git-dir", "HEAD", "--symbolic-full-name", "HEAD"}));
    bool headsOk = false;
    std::shared_ptr<VNTask> refs;
    {
        SideBySide both([&] { headsOk = heads->run(); });
        refs = runGit(*this, path, "for-each-ref", {"--format=%(objectname) %(refname)"});
    }
    if (!refs || !headsOk) {
        return {};
    }
    std::string mergeHead;
    std::vector<std::string> others;
    parseMergeHeadFileParents(path, mergeHead, others);
    return heads->output() + "merge " + mergeHead + "\n" + refs->output();
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
    args.insert(args.end(), {"--decorate=full", "--date=iso"});
    appendDecorationFilter(args);
    args.push_back("--end-of-options");
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

std::optional<vn::Record> VNRepoHandlerGit::workingCopyRow(const std::string& path) {
    // A bare repository has no working copy to have changes in.
    if (!vn::fs::exists(vn::fs::appendPathComponent(path, ".git"))) {
        return std::nullopt;
    }
    // Tracked and untracked changes both count: either is something to commit. The check runs
    // beside the page's log, so it reads the index on one thread instead of taking every core
    // from the log.
    auto status = VNTask::taskWithCommand(
        gitPath(), path,
        withArgs(defaultArgsForPath(path, "status", {"core.preloadIndex=false"}),
                 {"--porcelain", "--ignore-submodules=dirty"}));
    if (!status->run()) {
        handleGitFailure("git status", status->exitCode(), status->errorOutput(), false);
        return std::nullopt;
    }
    if (status->output().empty()) {
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
    appendDecorationFilter(args);
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
    std::vector<std::string> args = {"-1", VNGitLogParser::detailsFormatArgument(),
                                     "--decorate=full", "--date=iso"};
    appendDecorationFilter(args);
    args.insert(args.end(), {"--end-of-options", revision, "--"});
    auto task = runGit(*this, path, "log", std::move(args), true);
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
        // Quietly, git answers 1 for a revision it does not know; anything else is a failure
        // of the repository (missing objects, dubious ownership) and no answer about the name.
        if (task->exitCode() != 1 || !task->errorOutput().empty()) {
            handleGitFailure("git rev-parse", task->exitCode(), task->errorOutput(), false);
            return std::nullopt;
        }
        // A name that resolves to an object git cannot read (a missing commit) is a broken
        // repository too, not an unknown name.
        auto plain = gitTask(*this, path, "rev-parse",
                             {"--verify", "--quiet", "--end-of-options", forLabel});
        if (plain->run()) {
            std::string object = firstLine(plain->output());
            auto type = gitTask(*this, path, "cat-file", {"-t", object});
            if (!type->run()) {
                handleGitFailure(
                    "git cat-file", type->exitCode(),
                    "fatal: cannot read " + forLabel + " (" + object + "), " +
                        vn::FailureCollector::reason(type->errorOutput(), type->exitCode()),
                    false);
            }
        }
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
    std::string relative = relativeToWorkingCopy(path, file);
    args.push_back(relative);

    // Each line of a blame becomes a record of several hundred bytes, so a huge file would
    // exhaust the memory; such a file is refused before git spends minutes on it.
    std::optional<uint64_t> size;
    bool atRevision = revision && !revision->empty();
    std::string blob = atRevision ? *revision + ":" + relative : std::string();
    if (atRevision) {
        auto sizeTask = gitTask(*this, path, "cat-file", {"-s", blob});
        std::string text = sizeTask->run() ? firstLine(sizeTask->output()) : "";
        uint64_t bytes = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
        if (!text.empty() && error == std::errc() && end == text.data() + text.size()) {
            size = bytes;
        }
    } else {
        std::error_code error;
        auto bytes = std::filesystem::file_size(vn::fs::appendPathComponent(path, relative), error);
        if (!error) {
            size = bytes;
        }
    }
    auto refuse = [&](const std::string& why) {
        handleGitFailure("git blame", -1,
                         "fatal: " + relative + " is too large to blame (" + why + ")", true);
        return std::vector<vn::Record>();
    };
    if (size && *size > BlameSizeLimit) {
        return refuse(vn::format("%llu MB; the limit is %llu MB",
                                 static_cast<unsigned long long>(*size >> 20),
                                 static_cast<unsigned long long>(BlameSizeLimit >> 20)));
    }
    // A file has at most one line per byte.
    if (size && *size > BlameLineLimit) {
        std::optional<std::string> content;
        if (atRevision) {
            auto contentTask = gitTask(*this, path, "cat-file", {"blob", blob});
            if (contentTask->run()) {
                content = contentTask->output();
            }
        } else {
            content = vn::fs::readFile(vn::fs::appendPathComponent(path, relative));
        }
        if (content) {
            auto lines = static_cast<uint64_t>(std::count(content->begin(), content->end(), '\n'));
            if (lines > BlameLineLimit) {
                return refuse(vn::format("%llu lines; the limit is %llu",
                                         static_cast<unsigned long long>(lines),
                                         static_cast<unsigned long long>(BlameLineLimit)));
            }
        }
    }
    auto task = gitTask(*this, path, "blame", std::move(args));
    task->setLossyUTF8Output(true);
    if (!task->run()) {
        handleGitFailure("git blame", task->exitCode(), task->errorOutput(), true);
        return {};
    }
    try {
        return VNGitLogParser::parseBlamePorcelain(task->output());
    } catch (const std::bad_alloc&) {
        handleGitFailure("git blame", -1, "fatal: not enough memory for the blame of " + relative,
                         true);
        return {};
    }
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
    args.insert(args.end(), {"--filters", "--end-of-options",
                             revision + ":" + relativeToWorkingCopy(path, file)});
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
    // The reference names, never `git branch`'s text, which names a detached HEAD or a rebase
    // in the user's language.
    auto task = runGit(*this, path, "for-each-ref", {"--format=%(refname)", "refs/heads/"}, true);
    if (!task) {
        return {};
    }
    std::vector<std::string> names = VNGitRefsParser::parseNameList(task->output(), "refs/heads/");
    HeadState head = headState(path);
    if (head.known && head.detached) {
        names.insert(names.begin(), "HEAD");
    }
    return names;
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
    std::vector<std::string> args = {VNGitRefsParser::refLabelsFormatArgument(), "refs/heads/",
                                     "refs/tags/"};
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
    // Stashes belong to a working copy; a bare repository has none.
    if (!vn::fs::exists(vn::fs::appendPathComponent(path, ".git"))) {
        return {};
    }
    std::string format = "--format=%gd" + std::string(VNGitLogParser::FieldSeparator) + "%gs";
    auto task = runGit(*this, path, "stash", {"list", format}, true);
    return task ? VNGitRefsParser::parseStashList(task->output()) : std::vector<vn::Record>();
}

std::vector<std::string> VNRepoHandlerGit::remoteBranches(const std::string& path) {
    auto task = runGit(*this, path, "for-each-ref",
                       {VNGitRefsParser::refLabelsFormatArgument(), "refs/remotes/"}, true);
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
    auto task = runGit(*this, path, "for-each-ref",
                       {VNGitRefsParser::branchRefsFormatArgument(), "refs/heads/"}, true);
    return task ? VNGitRefsParser::aheadBehindFromBranchRefs(task->output()) : vn::Record();
}

vn::Record VNRepoHandlerGit::trackingBranchesForPull(const std::string& path) {
    auto task = runGit(*this, path, "for-each-ref",
                       {VNGitRefsParser::branchRefsFormatArgument(), "refs/heads/"}, true);
    return task ? VNGitRefsParser::trackingBranchesFromBranchRefs(task->output()) : vn::Record();
}

// ---- Remotes -----------------------------------------------------------------------------------

vn::Record VNRepoHandlerGit::remoteRepositories(const std::string& path) {
    auto task = runGit(*this, path, "remote", {"-v"});
    return task ? VNGitRefsParser::parseRemoteVerbose(task->output()) : vn::Record();
}

std::vector<vn::Record> VNRepoHandlerGit::remoteUrls(const std::string& path) {
    auto task = runGit(*this, path, "remote", {"-v"});
    std::vector<vn::Record> result;
    if (!task) {
        return result;
    }
    for (const auto& remote : VNGitRefsParser::parseRemoteUrls(task->output())) {
        result.push_back(vn::Record{
            {"name", remote.name},
            {"fetchUrl", remote.fetchUrl},
            {"pushUrls", vn::Value::Array(remote.pushUrls.begin(), remote.pushUrls.end())},
        });
    }
    return result;
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
    // `remote show` words its URL lines in the user's language; `remote -v` marks them plainly.
    if (auto urls = runGit(*this, path, "remote", {"-v"})) {
        for (const auto& remote : VNGitRefsParser::parseRemoteUrls(urls->output())) {
            if (remote.name == remoteName) {
                info->setFetchUrl(remote.fetchUrl);
                info->setPushUrl(remote.pushUrls.empty() ? remote.fetchUrl
                                                         : remote.pushUrls.front());
            }
        }
    }
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
