#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "git/VNGitPushBranchEntry.h"
#include "handler/VNRepoHandlerBase.h"

// The Git backend. This part is its frame: which git runs, the words every git command line
// starts with, credentials and password prompts for remotes, failure reports, and whether a
// folder or URL is a Git repository.
class VNRepoHandlerGit : public VNRepoHandlerBase {
  public:
    VNRepoHandlerGit() = default;
    ~VNRepoHandlerGit() override = default;

    // ---- Tools ----
    std::string gitPath() const;
    std::string gitFlowPath() const;
    std::string gitLfsPath() const;

    // ---- Identity and setup ----
    VNRepositoryType repositoryType() const override { return VNRepositoryTypeGit; }
    std::string repositoryTypeName() const override { return "Git"; }
    bool isDistributed() const override { return true; }
    bool hasHashedChangesets() const override { return true; }
    // The index: changes are staged before they are committed.
    bool hasCommitStaging() const override { return true; }
    bool hasSequentialRevisions() const override { return false; }
    // A window from the factory the front end registered (none in `vrnl`).
    std::shared_ptr<VNRepoWindowController> newWindowControllerWithDoc(
        std::shared_ptr<VNRepoDocument> doc) override;
    // "number" (the version as git prints it, such as "2.39.5"), "standard", "location",
    // "exists". `git --version` runs once per git executable; the answer is kept.
    vn::Record versionDetails() override;
    // Sets the detected version without asking git (the application's own check, and tests);
    // nothing returns to asking git.
    void setDetectedGitVersion(std::optional<std::string> version);
    // Whether git of this version has credential helpers (1.7.10 and later).
    static bool versionUsesCredentialHelper(std::string_view version);
    // The version number in what `git --version` printed (its first line when there is none).
    static std::string parseVersionOutput(std::string_view output);
    bool useGitCredHelper();
    // Whether a command talking to `url` needs the password-prompt helper: for http(s) only when
    // the credential helper is not used, for every other kind of remote always.
    bool useSshAskPass(const std::string& url);

    // "--no-pager", the shipped git's exec path, literal paths, each pinned setting of
    // vn::GitSettings as "-c" (colour and path quoting off first), the credential helper when
    // used, each of `configs` ("key=value") as "-c", then `command`.
    std::vector<std::string> defaultArgsForPath(const std::string& path,
                                                const std::string& command) override;
    std::vector<std::string> defaultArgsForPath(const std::string& path, const std::string& command,
                                                const std::vector<std::string>& configs);
    // For tasks whose executable is gitFlowPath(): just the command.
    std::vector<std::string> gitflowArgsForPath(const std::string& path,
                                                const std::string& command);

    // ---- Remotes and credentials ----
    // Resolves a remote name (or URL) to its URL and the user and host it names; missing parts
    // are empty.
    void userAndHost(const std::string& path, const std::string& remote, std::string& user,
                     std::string& host, std::string& url);
    // Prepares a task that talks to `remote` for password prompts and authentication re-runs.
    void configureSSHAskpass(const std::string& path, const std::string& remote, VNTask& task);
    // Drops the stored password of the remote's URL, so that the next prompt asks again.
    void authenticationFailed(const std::string& path, const std::string& remote) override;
    std::string urlForAlias(const std::string& path, const std::string& alias) override;

    // ---- Failures ----
    // Reports a failed git command, except the complaints of a repository without commits
    // about "HEAD", which are no error.
    void handleGitFailure(const std::string& command, int64_t exitCode,
                          const std::string& errorOutput, bool displayToUser);
    static bool isHarmlessHeadFailure(std::string_view errorOutput);

    // Appends "--template=..." to a clone or init argument list unless the user's global git
    // configuration names a template folder of its own.
    void addTemplateArguments(std::vector<std::string>& args);

    // ---- Repositories ----
    // True when the folder holds a ".git" folder or file (worktrees and submodules).
    bool validateWorkingDirectory(const std::string& path) override;
    // Whether `git ls-remote` reaches a repository at the path or URL.
    bool validatePathOrURL(const std::string& pathOrURL,
                           VNPathOrURLValidationDelegate* delegate) override;
    bool checkConfigForRepo(const std::string& path, bool fixAndPrompt) override;

    // ---- Commit, clone and init (VNRepoHandlerGitCommit.cpp) ----
    // Commit option bits.
    static constexpr uint64_t CommitAmend = 1;
    static constexpr uint64_t CommitAll = 2;
    static constexpr uint64_t CommitSignoff = 4;
    static constexpr uint64_t CommitBypassHooks = 8;
    static constexpr uint64_t CommitSign = 16;
    // Writes the message ("no message" when empty, so that git never aborts for want of one) to
    // a new file "VarnelTemp.XXXXXX" in the temporary folder; nothing when it cannot be written.
    static std::optional<std::string> writeCommitMessageFile(const std::string& message);
    // Commits the files as they are in the working copy; a non-empty `gpgKey` always signs.
    // The message file lives as long as the task. Null when the message cannot be written.
    std::shared_ptr<VNTask> commitTask(const std::string& path,
                                       const std::vector<std::string>& files,
                                       const std::string& message, const std::string& author,
                                       const std::string& gpgKey, uint64_t options);
    // Commits what is staged (every tracked change with CommitAll); signs only with CommitSign
    // and a key.
    std::shared_ptr<VNTask> commitTask(const std::string& path, const std::string& message,
                                       const std::string& author, const std::string& gpgKey,
                                       uint64_t options);
    // The signing wrapper given to git as gpg.program.
    static std::string signingWrapperPath();
    std::shared_ptr<VNTask> cloneTaskForSource(const std::string& source,
                                               const std::string& destination,
                                               const vn::Record& options) override;
    std::shared_ptr<VNTask> createNewRepoTask(const std::string& path) override;
    // Removes what a failed or cancelled clone left at `destination`, only when nothing was
    // there before it started (`existedBefore`) so that no folder of the user's is touched.
    static bool discardIncompleteClone(const std::string& destination, bool existedBefore);

    // ---- Push, pull and fetch (VNRepoHandlerGitRemote.cpp) ----
    // push.default as a mode.
    static constexpr unsigned PushDefaultMatching = 0;
    static constexpr unsigned PushDefaultUpstream = 1;
    static constexpr unsigned PushDefaultCurrent = 2;
    static constexpr unsigned PushDefaultSimple = 3;
    static constexpr unsigned PushDefaultNothing = 4;
    // Submodule option bit: do not recurse.
    static constexpr uint64_t SubmoduleNoRecursion = 1;

    // Every branch (`--all`) to the remote, forced or not.
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote) override;
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                     bool forcePush) override;
    std::shared_ptr<VNTask> pushTaskRemoteName(const std::string& path,
                                               const std::string& remoteName) override;
    // One reference (a branch, a tag or "src:dst") to the remote.
    std::shared_ptr<VNTask> pushTaskRef(const std::string& path, const std::string& remote,
                                        const std::string& ref);
    // A branch (or, with a revision, that commit as the branch) to the remote.
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                     const std::optional<std::string>& branch,
                                     const std::optional<std::string>& revision,
                                     bool forcePush) override;
    // The branches of a push list: one push of the entries that set their upstream, one of the
    // others that push, then an upstream removal for each untracked entry with a remote branch.
    VNTaskList pushTasks(const std::string& path, const std::string& remote,
                         const std::vector<VNGitPushBranchEntry>& branchPushList, bool forcePush);
    // With a remote branch, makes it the local branch's upstream; without, removes the upstream.
    std::shared_ptr<VNTask> setTrackingBranchTask(const std::string& path,
                                                  const std::string& localBranch,
                                                  const std::optional<std::string>& remoteBranch);
    // push.default of the repository (or, without a path, of the user), as a PushDefault mode.
    unsigned pushBranchDefaultOption(const std::optional<std::string>& path);
    // The mode a push.default value gives; unset or empty values follow the git version.
    static unsigned pushDefaultModeFor(std::string_view value, std::string_view gitVersion);
    // The fetch of the remote, then the pull with its choices, then the submodule update.
    VNTaskList pullTasks(const std::string& path, const std::string& remote,
                         const std::string& branch, bool commit, bool includeLog,
                         bool commitEvenIfFF, bool rebase, uint64_t submoduleUpdateOptions);
    // `git submodule update --init`, recursive unless SubmoduleNoRecursion.
    std::shared_ptr<VNTask> submoduleUpdateTask(const std::string& path,
                                                uint64_t submoduleUpdateOptions);
    // One fetch per remote (every remote when none is given), then the Subversion fetch when
    // the repository has a Subversion bridge.
    VNTaskList fetchTasks(const std::string& path, const std::optional<std::string>& remote,
                          bool prune, bool tags);
    // Subversion bridge: rebase onto the Subversion head, then commit to it.
    VNTaskList svnDCommitTasks(const std::string& path, const std::string& branch);
    std::shared_ptr<VNTask> svnFetchTask(const std::string& path);
    // Whether the repository has git-svn remotes; whether a remote is a Subversion one.
    bool hasSvnInterop(const std::string& path) override;
    bool isRemoteSvn(const std::string& path, const std::string& remote) override;

    // ---- Working-copy status (VNRepoHandlerGitStatus.cpp) ----
    using VNRepoHandlerBase::fileStatus;
    // `git status --porcelain` and, for the clean (1) and ignored (256) bits, `git ls-files`,
    // run side by side and merged: the status's files in its order, then clean, then ignored.
    std::vector<vn::Record> fileStatus(const std::string& path, uint64_t includeStatuses) override;
    vn::Record summary(const std::string& path) override;
    // Both from one `git status` run (and the listings of clean and ignored files the mask asks
    // for), so that a refresh that shows both runs git status once.
    VNWorkingCopyStatus fileStatusAndSummary(const std::string& path,
                                             uint64_t includeStatuses) override;
    // The summary record from a status listing; `withoutUntracked` counts no untracked file, as
    // when the file list hides them.
    vn::Record summaryFromStatus(const std::string& path, std::string_view statusOutput,
                                 bool withoutUntracked);
    // No tracked file changed (untracked files allowed); false when git cannot tell.
    bool isClean(const std::string& path) override;
    bool isMergeOutstanding(const std::string& path) override;
    bool isRebaseInProgress(const std::string& path) override;
    // What HEAD names, from `git symbolic-ref`: a branch (also one without commits yet) or a
    // detached commit. `known` is false when git could not tell (the failure is reported).
    struct HeadState {
        bool known = false;
        bool detached = false;
        std::string branch;
    };
    HeadState headState(const std::string& path);
    // The checked-out branch, also before its first commit; "HEAD" when detached; empty when git
    // could not tell.
    std::string currentBranch(const std::string& path);
    // Operations in progress, read from their markers in the git folder. A rebase of either
    // kind (not `git am`, which shares the "rebase-apply" folder).
    bool isAmInProgress(const std::string& path);
    bool isBisectInProgress(const std::string& path);
    bool isCherryPickInProgress(const std::string& path);
    bool isRevertInProgress(const std::string& path);
    // The branch a rebase or bisect started from; empty without one.
    std::string originalBranch(const std::string& path);
    // The working copy's git folder: ".git", or where a ".git" file ("gitdir: ...") points
    // (worktrees and submodules).
    std::string gitMetadataFolder(const std::string& path);
    // The commits of MERGE_HEAD after the first parent; false without a readable MERGE_HEAD.
    bool parseMergeHeadFileParents(const std::string& path, std::string& secondParent,
                                   std::vector<std::string>& otherParents);

    // ---- History, revisions and references (VNRepoHandlerGitHistory.cpp) ----
    // Log option bits.
    static constexpr uint64_t LogTopoOrder = 1;
    static constexpr uint64_t LogIncludeRemotes = 2;
    static constexpr uint64_t LogWithoutMergeHead = 16;
    static constexpr uint64_t LogFirstParent = 32;
    // History search modes.
    static constexpr uint32_t SearchMessage = 0;
    static constexpr uint32_t SearchAuthor = 1;
    static constexpr uint32_t SearchContent = 2;
    static constexpr uint32_t SearchHash = 4;
    static constexpr uint32_t SearchRange = 8;

    // One page of history, newest first: every branch and tag (and with LogIncludeRemotes the
    // remote branches), or `branch` (with its upstream under LogIncludeRemotes), and the commits
    // being merged while a merge is outstanding. Branch labels carry their ahead/behind text.
    // A failure is shown to the user and gives no rows.
    std::vector<vn::Record> logRevisions(const std::string& path, const std::string& latestRevision,
                                         uint64_t skip, uint64_t limit,
                                         const std::optional<std::string>& branch,
                                         uint64_t options) override;
    // The history of files and folders from HEAD; `followRenames` follows a single file through
    // renames.
    std::vector<vn::Record> logRevisions(const std::string& path,
                                         const std::vector<std::string>& fileFolderPaths,
                                         uint64_t withLimit, bool followRenames) override;
    // The same from `startRevision` (else `branch`, else HEAD), with the ordering bits of
    // `options`.
    std::vector<vn::Record> logRevisions(const std::string& path,
                                         const std::vector<std::string>& fileFolderPaths,
                                         const std::optional<std::string>& startRevision,
                                         uint64_t withLimit,
                                         const std::optional<std::string>& branch, uint64_t options,
                                         bool followRenames) override;
    // Answers the page `rowData` asks for: its rows, whether more may follow, and whether the
    // checked-out branch is among the labels.
    void fillLogPage(const std::string& path, class VNLogRowData& rowData);
    // The log listing of `logRevisions` read as git prints it: rows are handed to `receive` in
    // batches, in order, while git still runs, so that a whole history is never held. A failure
    // is shown to the user and answers false (after the rows that came before it).
    // `starting`, when given, is called (on another thread) as git is about to start, for work
    // that should run beside the listing without getting ahead of it.
    using LogRowsReceiver = std::function<void(std::vector<vn::Record>& rows)>;
    bool streamLogRevisions(const std::string& path, uint64_t skip, uint64_t limit,
                            const std::optional<std::string>& branch, uint64_t options,
                            const LogRowsReceiver& receive,
                            const std::function<void()>& starting = {});
    // The same listing as git's lines in the log format (VNGitLogParser::logFormatArgument), whole
    // lines at a time, for callers that read rows without making records. `aheadBehind` maps
    // branch names to their counts for the labels of VNGitLogParser::labelsFromDecoration.
    using LogLinesReceiver =
        std::function<void(std::string_view lines, const vn::Record& aheadBehind)>;
    bool streamLogLines(const std::string& path, uint64_t skip, uint64_t limit,
                        const std::optional<std::string>& branch, uint64_t options,
                        const LogLinesReceiver& receive,
                        const std::function<void()>& starting = {});
    // The same listing reduced to each revision's hash and parents (first parent first), for
    // laying out the graph of rows that are not shown.
    using LogTopologyReceiver =
        std::function<void(std::string_view rev, const std::vector<std::string_view>& parents)>;
    bool streamLogTopology(const std::string& path, uint64_t skip, uint64_t limit,
                           const std::optional<std::string>& branch, uint64_t options,
                           const LogTopologyReceiver& receive);
    // Text that changes whenever the rows of a log listing in this working copy could: the
    // repository's folder, every reference with its commit, HEAD and the merge in progress.
    // Empty when it cannot be told.
    std::string historyIdentity(const std::string& path);
    // The row that stands for uncommitted changes ("rev" "-1", first parent the checked-out
    // commit); nothing when the working copy is clean.
    std::optional<vn::Record> workingCopyRow(const std::string& path);
    std::optional<vn::Record> parseLogLine(const std::string& line) override;
    // `git log` for a search, unlaunched, decoding lossily; its lines read with parseLogLine.
    // Null for an unknown mode.
    std::shared_ptr<VNTask> searchLogTask(const std::string& path, const std::string& pattern,
                                          uint32_t mode, const vn::Value::Date& from,
                                          const vn::Value::Date& to) override;
    // The log row's keys and "parents", "authordate", "committerdate", "message" (the whole
    // message); empty when git does not know the revision.
    vn::Record revisionDetails(const std::string& path, const std::string& revision) override;
    // What the revision changed against its first parent (everything for a root commit), as
    // status records with renames.
    std::vector<vn::Record> revisionFileChanges(const std::string& path,
                                                const std::string& revision) override;
    std::vector<vn::Record> revisionRangeFileChanges(const std::string& path,
                                                     const std::string& revisionFrom,
                                                     const std::string& revisionTo) override;
    // Full hash to whole message for each of the commits.
    vn::Record fullCommitMessages(const std::string& path, const std::vector<std::string>& revs);
    std::vector<std::string> parentRevisions(const std::string& path,
                                             const std::string& revision) override;
    // revisionDetails of HEAD.
    vn::Record lastCommitDetails(const std::string& path) override;
    // Whether the text names a commit.
    bool revisionIsValid(const std::string& path, const std::string& revision) override;
    // The commit a branch, tag (annotated tags peeled) or other revision names.
    std::optional<std::string> getCommitSHA(const std::string& path,
                                            const std::string& forLabel) override;
    // The working file, or the file at `revision`, line by line.
    std::vector<vn::Record> blame(const std::string& path, const std::string& file,
                                  const std::optional<std::string>& revision) override;
    // Writes the file as it would be checked out at the revision (filters applied); the
    // destination is replaced only when the whole content was written.
    bool exportFileContentAtRevision(const std::string& path, const std::string& file,
                                     const std::string& revision,
                                     const std::string& destFile) override;
    // HEAD's commit; empty before the first commit.
    std::string currentRevision(const std::string& path) override;
    // The newest commit of the default listing (branches, tags, HEAD).
    std::string latestRevision(const std::string& path) override;
    // Commits reachable from branches, tags, remote branches and HEAD.
    uint64_t revisionCount(const std::string& path) override;

    std::vector<std::string> branches(const std::string& path) override;
    std::vector<std::string> branchesSortedByMostRecentFirst(const std::string& path) override;
    std::vector<std::string> tags(const std::string& path) override;
    std::vector<std::string> tagsSortedByMostRecentFirst(const std::string& path) override;
    // Every branch and tag, with LogIncludeRemotes in `options` the remote branches too; the
    // checked-out branch carries the current marker.
    std::vector<std::shared_ptr<VNLogLabel>> allRevisionLabels(const std::string& path,
                                                               uint64_t options) override;
    std::vector<vn::Record> listStashes(const std::string& path) override;
    // Remote name to its fetch URL.
    vn::Record remoteRepositories(const std::string& path) override;
    // Each remote as "name", "fetchUrl" and "pushUrls" (every URL pushes go to), in git's order.
    std::vector<vn::Record> remoteUrls(const std::string& path);
    // "name" and "path" (the fetch URL) of each remote.
    std::vector<vn::Record> remotePaths(const std::string& path) override;
    // Adds the remotes that are new and gives existing ones their new path; remotes not listed
    // are kept (removeRemote removes one).
    bool setRemotePaths(const std::string& path, const std::vector<vn::Record>& remotes) override;
    bool removeRemote(const std::string& path, const std::string& name) override;
    // Remote branches as "remote/branch", without the remotes' symbolic HEADs.
    std::vector<std::string> remoteBranches(const std::string& path);
    // Local branch to [ahead, behind] for branches that differ from their upstream.
    vn::Record branchesWithCommitsAheadBehind(const std::string& path);
    // Local branch to its upstream ("origin/main") where the upstream is a remote branch.
    vn::Record trackingBranchesForPull(const std::string& path);
    // `git remote show` (with -n unless `queryRemote`), the push mapping completed from the
    // configuration as git's push rules would push.
    std::shared_ptr<class VNGitRemoteInfo> remoteInfo(const std::string& path,
                                                      const std::string& remoteName,
                                                      bool queryRemote);

    // ---- Diffs (VNRepoHandlerGitDiff.cpp) ----
    // Every diff names renames as such, has `context` lines around changes (negative counts as
    // 0), ignores whitespace for vn::DiffIgnoreWhitespace in `options`, and names the files
    // after "--" (all files when the list is empty).
    using VNRepoHandlerBase::fileDiffAgainstBase;
    // Git LFS pointers: the first 20 lines of each hunk are looked at for "oid sha256:<64 hex>".
    uint64_t largeFilesDiffScanLimit() const override;
    std::optional<std::string> extractLargeFileReferenceFromLine(
        const std::string& line) const override;
    // All uncommitted changes of the files, staged or not (working copy against HEAD, or against
    // nothing before the first commit), parsed; null when git failed.
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::string& file, int context) override;
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::vector<std::string>& fileList,
                                                     int context) override;
    // What is not staged: the working copy against the index.
    std::shared_ptr<VNTask> fileDiffAgainstBaseTask(const std::string& path,
                                                    const std::vector<std::string>& fileList,
                                                    uint64_t options, int context) override;
    // What is staged: the index against `baseRevision` (HEAD when empty), or against nothing
    // before the first commit.
    std::shared_ptr<VNTask> fileDiffAgainstBaseTask(const std::string& path,
                                                    const std::vector<std::string>& fileList,
                                                    const std::string& baseRevision,
                                                    uint64_t options, int context) override;
    // What one revision changed: against its first parent; a root commit adds every file.
    std::shared_ptr<VNTask> revisionFileDiffTask(const std::string& path,
                                                 const std::string& revision,
                                                 const std::vector<std::string>& fileList,
                                                 uint64_t options, int context) override;
    // The difference between two revisions' trees.
    std::shared_ptr<VNTask> revisionRangeFileDiffTask(const std::string& path,
                                                      const std::string& revisionFrom,
                                                      const std::string& revisionTo,
                                                      const std::vector<std::string>& fileList,
                                                      uint64_t options, int context) override;
    // Each revision's changes to the files in turn, every revision starting with the revision
    // separator and a line of its abbreviated id and subject; read with parseDiffsToModel.
    std::shared_ptr<VNTask> revisionsFileDiffTask(const std::string& path,
                                                  const std::vector<std::string>& revisions,
                                                  const std::vector<std::string>& fileList,
                                                  uint64_t options, int context);
    std::shared_ptr<VNTask> stashDiffTask(const std::string& path,
                                          const std::string& name) override;
    // `git difftool` with the user's tool (or the program's own once the user let it register
    // one), without prompting: the working file against the index ...
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             uint64_t options) override;
    // ... the staged file against `baseRevision` (HEAD when empty) ...
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& baseRevision,
                                             uint64_t options) override;
    // ... the file before and after one revision (runs git to find the parent) ...
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& revision) override;
    // ... the file in two revisions.
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& revisionFrom,
                                             const std::string& revisionTo) override;
    // `git mergetool` on one conflicted file, without prompting.
    std::shared_ptr<VNTask> visualMergeTask(const std::string& path,
                                            const std::string& filename) override;
    // The id of the empty tree in the repository's hash, for comparisons with nothing.
    std::optional<std::string> emptyTree(const std::string& path);

    // ---- Applying patches (VNRepoHandlerGitApply.cpp) ----
    // `git apply` with the default arguments: "--cached" for the index, "-R" to reverse,
    // "--ignore-whitespace" for PatchIgnoreWhitespace, "-C1" for PatchReducedContext (working
    // folder only). git applies all of a patch or nothing. A refusal is reported as
    // "git apply" with git's own message, and keeps the patch file.
    PatchApplication applyPatch(const std::string& path, const std::string& patch,
                                PatchTarget target, bool reverse, vn::TextEncoding encoding,
                                uint64_t options) override;
    bool applyPatchToIndex(const std::string& path, const std::string& patch, bool reverse,
                           vn::TextEncoding encoding, uint64_t options);
    // From `git ls-files --stage` or `git ls-tree HEAD`; the working file's when git has none.
    std::string fileModeForPatch(const std::string& path, const std::string& file,
                                 bool inHead) override;

    // ---- File operations (VNRepoHandlerGitFiles.cpp) ----
    // Each list runs one git command over the files, spread over several runs when the file
    // list would make one command line too long; no files, no tasks.
    // Stages the files as they are in the working copy, ignored ones too.
    VNTaskList addTasks(const std::string& path, const std::vector<std::string>& files) override;
    // Gives the files back their committed state in the index; the working files stay.
    VNTaskList unstageTasks(const std::string& path,
                            const std::vector<std::string>& files) override;
    // Deletes the files from the index and from the disk, changed or not.
    VNTaskList removeTasks(const std::string& path, const std::vector<std::string>& files) override;
    // Deletes the files from the index only: they stay on disk, untracked.
    VNTaskList stopTrackingTasks(const std::string& path,
                                 const std::vector<std::string>& files) override;
    // Stages every change of the working copy: new files, changes and deletions.
    VNTaskList addRemoveTasks(const std::string& path) override;
    // `git mv`; git has no copy that it records, so a copy is the same move.
    VNTaskList moveTasks(const std::string& path, const std::string& source,
                         const std::string& destination) override;
    VNTaskList copyTasks(const std::string& path, const std::string& source,
                         const std::string& destination) override;
    // Gives the working files back what the index holds, dropping their unstaged changes
    // (staged changes stay); with a revision, both the index and the working files get the
    // files as that revision has them.
    VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                           uint64_t options, uint64_t submoduleOptions) override;
    VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                           const std::string& revision, uint64_t options,
                           uint64_t submoduleOptions) override;

  private:
    // The "number" of versionDetails, without the rest of the record.
    std::string detectedVersionNumber();

    std::mutex versionMutex_;
    std::optional<std::string> versionOverride_;
    std::string versionGitPath_;
    std::optional<std::string> versionNumber_;
};
