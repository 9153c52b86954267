#include <filesystem>

#include "base/Format.h"
#include "git/VNGitStatusParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "model/VNFileStatusEntity.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "platform/WorkQueue.h"

namespace {

// The filter mode of the file list that hides untracked files.
constexpr int64_t FileStatusFilterModeHidesUntracked = 6;

std::string joined(const std::string& folder, const std::string& relative) {
    if (!relative.empty() && relative.front() == '/') {
        return std::filesystem::path(relative).lexically_normal().string();
    }
    return std::filesystem::path(vn::fs::appendPathComponent(folder, relative))
        .lexically_normal()
        .string();
}

std::string firstLine(const std::string& text) {
    auto lines = VNGitStatusParser::lines(text);
    if (lines.empty()) {
        return "";
    }
    std::string_view line = lines.front();
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) {
        line.remove_suffix(1);
    }
    return std::string(line);
}

// A worktree's git folder keeps its own HEAD and merge state but shares hooks and configuration
// with the main repository, named by its "commondir" file.
std::string commonGitFolder(const std::string& gitFolder) {
    auto text = vn::fs::readFile(vn::fs::appendPathComponent(gitFolder, "commondir"));
    if (!text) {
        return gitFolder;
    }
    std::string common = firstLine(*text);
    return common.empty() ? gitFolder : joined(gitFolder, common);
}

bool fileHasLineContaining(const std::string& file, std::string_view needle) {
    auto text = vn::fs::readFile(file);
    return text && VNGitStatusParser::hasLineContaining(*text, needle);
}

// Git LFS is in use when the top ".gitattributes" routes files through its filter or its
// pre-push hook is installed.
bool configuredForGitLfs(const std::string& path, const std::string& gitFolder) {
    if (fileHasLineContaining(vn::fs::appendPathComponent(path, ".gitattributes"), "filter=lfs")) {
        return true;
    }
    for (const std::string& folder : {gitFolder, commonGitFolder(gitFolder)}) {
        if (fileHasLineContaining(vn::fs::appendPathComponent(folder, "hooks/pre-push"),
                                  "lfs pre-push")) {
            return true;
        }
    }
    return false;
}

}  // namespace

namespace {

bool hidesUntrackedFiles() {
    return vn::Preferences::standard().integerForKey("fileStatusFilterMode") ==
           FileStatusFilterModeHidesUntracked;
}

// Runs the status (with or without untracked files) and the ls-files listings `mask` asks for,
// and merges them. Nothing when the status failed, which is reported to the user; `statusText`,
// when given, receives the status listing for the summary.
std::optional<std::vector<vn::Record>> listFileStatus(VNRepoHandlerGit& handler,
                                                      const std::string& path, uint64_t mask,
                                                      bool untracked, std::string* statusText) {
    auto statusArgs = handler.defaultArgsForPath(path, "status");
    // NUL-separated: names come as their exact bytes, without quoting.
    statusArgs.insert(statusArgs.end(),
                      {"--porcelain", "-z", "--ignore-submodules=dirty",
                       untracked ? "--untracked-files=all" : "--untracked-files=no"});
    auto statusTask = VNTask::taskWithCommand(handler.gitPath(), path, std::move(statusArgs));
    statusTask->setRawOutput(true);

    // The listings of clean and ignored files can be far longer than the status, so they run on
    // the work queue while the status runs here, and their records are made there too. Each
    // listing writes only its own slot.
    struct Listing {
        std::shared_ptr<VNTask> task;
        VNGitStatusParser::ListedFiles files;
    };
    vn::WorkGroup group;
    std::optional<Listing> tracked;
    std::optional<Listing> ignored;
    auto start = [&](std::optional<Listing>& slot, std::vector<std::string> words,
                     uint64_t status) {
        auto args = handler.defaultArgsForPath(path, "ls-files");
        args.push_back("-z");
        args.insert(args.end(), words.begin(), words.end());
        slot.emplace();
        slot->task = VNTask::taskWithCommand(handler.gitPath(), path, std::move(args));
        slot->task->setRawOutput(true);
        Listing* listing = &*slot;
        vn::WorkQueue::global().async(group, [listing, status] {
            if (listing->task->run()) {
                listing->files = VNGitStatusParser::listedFiles(listing->task->output(), status);
            }
        });
    };
    if (mask & VNFileStatusClean) {
        start(tracked, {"--cached"}, VNFileStatusClean);
    }
    if (mask & VNFileStatusIgnored) {
        start(ignored, {"-o", "--ignored", "--exclude-standard"}, VNFileStatusIgnored);
    }
    statusTask->run();
    group.wait();

    auto files = [&handler](std::optional<Listing>& listing) -> VNGitStatusParser::ListedFiles* {
        if (!listing) {
            return nullptr;
        }
        if (!listing->task->success()) {
            handler.handleGitFailure("git ls-files", listing->task->exitCode(),
                                     listing->task->errorOutput(), false);
            return nullptr;
        }
        return &listing->files;
    };
    VNGitStatusParser::ListedFiles* trackedFiles = files(tracked);
    VNGitStatusParser::ListedFiles* ignoredFiles = files(ignored);
    if (!statusTask->success()) {
        // Without the status every tracked file would pass for clean.
        handler.handleGitFailure("git status", statusTask->exitCode(), statusTask->errorOutput(),
                                 true);
        return std::nullopt;
    }
    auto isFolder = [&path](const std::string& relative) {
        std::error_code error;
        // A modified symbolic link to a folder is a file of the repository, not a submodule.
        return std::filesystem::is_directory(
            std::filesystem::symlink_status(vn::fs::appendPathComponent(path, relative), error));
    };
    auto records = VNGitStatusParser::fileStatusRecords(statusTask->output(), trackedFiles,
                                                        ignoredFiles, mask, isFolder);
    if (statusText) {
        *statusText = statusTask->output();
    }
    return records;
}

}  // namespace

std::vector<vn::Record> VNRepoHandlerGit::fileStatus(const std::string& path, uint64_t mask) {
    // Any mask from the untracked bit up lists untracked files, whichever bits it holds; the
    // mask test of each line decides what is kept.
    return listFileStatus(*this, path, mask, mask >= VNFileStatusUnknown, nullptr)
        .value_or(std::vector<vn::Record>());
}

VNWorkingCopyStatus VNRepoHandlerGit::fileStatusAndSummary(const std::string& path,
                                                           uint64_t includeStatuses) {
    // One status listing serves both: it lists untracked files when either asks for them, and
    // the mask test of the file list and the summary's own count drop them where not wanted.
    bool hideUntracked = hidesUntrackedFiles();
    std::string statusText;
    auto files =
        listFileStatus(*this, path, includeStatuses,
                       includeStatuses >= VNFileStatusUnknown || !hideUntracked, &statusText);
    if (!files) {
        return {};
    }
    VNWorkingCopyStatus result;
    result.files = std::move(*files);
    result.summary = summaryFromStatus(path, statusText, hideUntracked);
    return result;
}

namespace {

std::shared_ptr<VNTask> summaryStatusTask(VNRepoHandlerGit& handler, const std::string& path) {
    auto args = handler.defaultArgsForPath(path, "status");
    bool hideUntracked = hidesUntrackedFiles();
    args.insert(args.end(), {"--porcelain", "-z",
                             hideUntracked ? "--untracked-files=no" : "--untracked-files=all",
                             "--ignore-submodules=dirty"});
    auto task = VNTask::taskWithCommand(handler.gitPath(), path, std::move(args));
    task->setRawOutput(true);
    task->run();
    return task;
}

std::string revParse(VNRepoHandlerGit& handler, const std::string& path,
                     const std::string& revision) {
    auto args = handler.defaultArgsForPath(path, "rev-parse");
    args.push_back(revision);
    auto task = VNTask::taskWithCommand(handler.gitPath(), path, std::move(args));
    if (!task->run()) {
        // HEAD^1 of a root commit and HEAD of an empty repository do not resolve; that is an
        // empty parent, not an error.
        vn::Log::debug(vn::format("'%@' failed with code %ld:'%@'", task->displayCommand(),
                                  task->exitCode(), task->errorOutput()),
                       vn::Log::Git);
        return "";
    }
    return firstLine(task->output());
}

}  // namespace

vn::Record VNRepoHandlerGit::summary(const std::string& path) {
    auto status = summaryStatusTask(*this, path);
    if (!status->success()) {
        vn::Log::error(vn::format("Git summary failed: %@", status->errorOutput()), vn::Log::Git);
        // Not shown, but the caller learns why there is no summary.
        vn::FailureCollector::report(
            "git status", status->exitCode(),
            vn::CredentialStore::redactURLPasswords(status->errorOutput()));
        return {};
    }
    return summaryFromStatus(path, status->output(), false);
}

vn::Record VNRepoHandlerGit::summaryFromStatus(const std::string& path,
                                               std::string_view statusOutput,
                                               bool withoutUntracked) {
    bool merge = isMergeOutstanding(path);
    bool rebase = isRebaseInProgress(path);
    HeadState head = headState(path);
    VNGitStatusParser::Counts counts = VNGitStatusParser::countStatuses(statusOutput);
    if (withoutUntracked) {
        // As a status run without untracked files would have counted.
        counts.unknown = 0;
    }

    vn::Record record;
    record.set("isclean", counts.isClean());
    record.set("ismerge", merge);
    record.set("isrebase", rebase);
    record.set("isgraft", false);
    record.set("isnewbranch", false);
    record.set("isam", isAmInProgress(path));
    record.set("isbisect", isBisectInProgress(path));
    record.set("ischerrypick", isCherryPickInProgress(path));
    record.set("isrevert", isRevertInProgress(path));
    record.set("isdetached", head.known && head.detached);
    std::string gitFolder = gitMetadataFolder(path);
    record.set("hasLargeFiles", configuredForGitLfs(path, gitFolder));
    record.set("numfilesadded", counts.added);
    record.set("numfilesmodified", counts.modified + counts.renamed);
    record.set("numfilesremoved", counts.removed);
    record.set("numfilesunresolved", counts.unresolved);
    record.set("numfilesunknown", counts.unknown);
    record.set("numfilesmissing", counts.missing);

    // With nothing to commit the working copy is described by the commit HEAD was made on.
    bool changed = !counts.isClean() || counts.unknown > 0 || merge;
    record.set("parent1", revParse(*this, path, changed ? "HEAD" : "HEAD^1"));
    std::string secondParent;
    std::vector<std::string> otherParents;
    if (merge && parseMergeHeadFileParents(path, secondParent, otherParents)) {
        record.set("parent2", secondParent);
        record.set("otherparents", vn::Value::Array(otherParents.begin(), otherParents.end()));
    } else {
        record.set("parent2", "");
    }
    record.set("branch", !head.known ? "" : head.detached ? "HEAD" : head.branch);
    record.set("originalbranch", originalBranch(path));
    return record;
}

bool VNRepoHandlerGit::isClean(const std::string& path) {
    auto status = summaryStatusTask(*this, path);
    if (!status->success()) {
        handleGitFailure("git status", status->exitCode(), status->errorOutput(), false);
        return false;
    }
    return VNGitStatusParser::countStatuses(status->output()).isClean();
}

bool VNRepoHandlerGit::isMergeOutstanding(const std::string& path) {
    return vn::fs::exists(vn::fs::appendPathComponent(gitMetadataFolder(path), "MERGE_HEAD"));
}

namespace {

bool gitFolderHas(VNRepoHandlerGit& handler, const std::string& path, const char* marker) {
    return vn::fs::exists(vn::fs::appendPathComponent(handler.gitMetadataFolder(path), marker));
}

}  // namespace

bool VNRepoHandlerGit::isRebaseInProgress(const std::string& path) {
    return gitFolderHas(*this, path, "rebase-merge") ||
           (gitFolderHas(*this, path, "rebase-apply") && !isAmInProgress(path));
}

bool VNRepoHandlerGit::isAmInProgress(const std::string& path) {
    // `git am` marks its "rebase-apply" folder with "applying"; `git rebase --apply` does not.
    return gitFolderHas(*this, path, "rebase-apply/applying");
}

bool VNRepoHandlerGit::isBisectInProgress(const std::string& path) {
    return gitFolderHas(*this, path, "BISECT_LOG");
}

bool VNRepoHandlerGit::isCherryPickInProgress(const std::string& path) {
    return gitFolderHas(*this, path, "CHERRY_PICK_HEAD");
}

bool VNRepoHandlerGit::isRevertInProgress(const std::string& path) {
    return gitFolderHas(*this, path, "REVERT_HEAD");
}

std::string VNRepoHandlerGit::originalBranch(const std::string& path) {
    std::string gitFolder = gitMetadataFolder(path);
    // A rebase keeps the full reference name ("detached HEAD" when it started detached); a
    // bisect the branch name or the commit it started from.
    for (const char* file : {"rebase-merge/head-name", "rebase-apply/head-name"}) {
        if (auto text = vn::fs::readFile(vn::fs::appendPathComponent(gitFolder, file))) {
            std::string name = firstLine(*text);
            return name.starts_with("refs/heads/") ? name.substr(11) : "";
        }
    }
    if (isBisectInProgress(path)) {
        if (auto text = vn::fs::readFile(vn::fs::appendPathComponent(gitFolder, "BISECT_START"))) {
            return firstLine(*text);
        }
    }
    return "";
}

VNRepoHandlerGit::HeadState VNRepoHandlerGit::headState(const std::string& path) {
    // symbolic-ref answers 1 for a detached HEAD; it names a branch without commits as well.
    auto args = defaultArgsForPath(path, "symbolic-ref");
    args.insert(args.end(), {"-q", "HEAD"});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    HeadState state;
    if (task->run()) {
        std::string ref = firstLine(task->output());
        state.known = true;
        state.branch = ref.starts_with("refs/heads/") ? ref.substr(11) : ref;
    } else if (task->exitCode() == 1 && task->errorOutput().empty()) {
        state.known = true;
        state.detached = true;
    } else {
        handleGitFailure("git symbolic-ref", task->exitCode(), task->errorOutput(), false);
    }
    return state;
}

std::string VNRepoHandlerGit::currentBranch(const std::string& path) {
    HeadState head = headState(path);
    if (!head.known) {
        return "";
    }
    return head.detached ? "HEAD" : head.branch;
}

std::string VNRepoHandlerGit::gitMetadataFolder(const std::string& path) {
    std::string dotGit = vn::fs::appendPathComponent(path, ".git");
    if (vn::fs::isDirectory(dotGit)) {
        return dotGit;
    }
    if (auto text = vn::fs::readFile(dotGit)) {
        if (auto folder = VNGitStatusParser::gitDirFromDotGitFile(*text)) {
            return joined(path, *folder);
        }
    }
    return dotGit;
}

bool VNRepoHandlerGit::parseMergeHeadFileParents(const std::string& path, std::string& secondParent,
                                                 std::vector<std::string>& otherParents) {
    secondParent.clear();
    otherParents.clear();
    auto text =
        vn::fs::readFile(vn::fs::appendPathComponent(gitMetadataFolder(path), "MERGE_HEAD"));
    return text && VNGitStatusParser::parseMergeHeadParents(*text, secondParent, otherParents);
}
