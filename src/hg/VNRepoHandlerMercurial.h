#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handler/VNRepoHandlerBase.h"
#include "model/VNLogDescriptionEntry.h"

// The Mercurial backend. Every operation is a run of `hg` (or of its command-server client `chg`
// for queries, where installed) whose output is read in a fixed plain form: the user's aliases,
// defaults, templates, colour, pager and verbosity settings never reach what the parsers read.
class VNLogRowData;

class VNRepoHandlerMercurial : public VNRepoHandlerBase {
  public:
    VNRepoHandlerMercurial() = default;
    ~VNRepoHandlerMercurial() override = default;

    // Separates the fields of every machine-readable template: U+241E, which metadata typed by
    // people practically never holds, so nothing is escaped.
    static constexpr std::string_view FieldSeparator = "\xE2\x90\x9E";

    // ---- Tools ----
    // The custom Mercurial when the preferences choose one and name it, else the shipped one.
    std::string hgPath() const;
    // Commands that talk to a remote, work on a bundle ("-R") or ask for a passphrase: they must
    // be free to prompt, so they never get "-y".
    static bool commandTakesYes(std::string_view command);

    // ---- Identity and setup ----
    VNRepositoryType repositoryType() const override { return VNRepositoryTypeMercurial; }
    std::string repositoryTypeName() const override { return "Mercurial"; }
    bool isDistributed() const override { return true; }
    bool hasHashedChangesets() const override { return true; }
    bool hasSequentialRevisions() const override { return true; }
    // A window from the factory the front end registered (none in `vrnl`).
    std::shared_ptr<VNRepoWindowController> newWindowControllerWithDoc(
        std::shared_ptr<VNRepoDocument> doc) override;

    // The command word, "-y" unless the command may prompt, and the certificate override when
    // `needsWebCacertsConfigSetting` is set. For a bundle pass "-R" as the command and append the
    // bundle and the real command.
    std::vector<std::string> defaultArgsForPath(const std::string& path,
                                                const std::string& command) override;
    bool needsWebCacertsConfigSetting() const { return needsWebCacerts_; }
    void setNeedsWebCacertsConfigSetting(bool needs) { needsWebCacerts_ = needs; }

    // ---- Tasks ----
    // The environment that makes `hg` print its plain output whatever the user configured:
    // HGPLAIN (with strict option parsing) and an empty HGPLAINEXCEPT, so that a user's own
    // exceptions cannot bring aliases or colour back.
    static vn::Environment plainEnvironment();
    // A prepared task running `hg` with the default arguments of `command` followed by `args`, in
    // the working copy `path`.
    std::shared_ptr<VNTask> hgTask(const std::string& path, const std::string& command,
                                   std::vector<std::string> args = {});
    // The same with the whole argument vector given (it must begin with default arguments).
    std::shared_ptr<VNTask> hgTaskWithArgs(const std::string& path, std::vector<std::string> args);
    // A task for a query that only reads: like hgTask, but run through the command server where
    // one can be used (see VNHgCommandServer).
    std::shared_ptr<VNTask> hgQueryTask(const std::string& path, const std::string& command,
                                        std::vector<std::string> args = {});
    std::shared_ptr<VNTask> hgQueryTaskWithArgs(const std::string& path,
                                                std::vector<std::string> args);
    // Runs a query task; when it ran through the command server and that failed to start, runs
    // it once more through plain `hg`. Answers the task's success.
    bool runQuery(const std::shared_ptr<VNTask>& task);
    // Whether queries go through the command server.
    bool usesCommandServer() const;

    // ---- Failures ----
    // Reports a failed hg command under its label ("hg status", "hg log", ...).
    void handleHgFailure(const std::string& label, int64_t exitCode, const std::string& errorOutput,
                         bool displayToUser);

    // ---- Repositories ----
    // True when the folder holds a ".hg" folder.
    bool validateWorkingDirectory(const std::string& path) override;
    // Whether `hg identify` reaches a repository at the path or URL.
    bool validatePathOrURL(const std::string& pathOrURL,
                           VNPathOrURLValidationDelegate* delegate) override;
    bool checkConfigForRepo(const std::string& path, bool fixAndPrompt) override;

    // ---- Version (VNRepoHandlerMercurialStatus.cpp) ----
    // "number", "standard", "location", "exists"; `hg --version` runs once per executable.
    vn::Record versionDetails() override;
    // The version number in `hg --version` output; empty when there is none.
    static std::string parseVersionNumber(std::string_view output);
    // Too old to drive: a custom Mercurial before 3.1.3 as the version rule reads it. The
    // shipped tool always passes.
    static bool isIncompatibleVersion(std::string_view number);
    bool isUsingIncompatibleMercurial();
    // Warns once (unless suppressed) when the custom Mercurial is too old.
    void checkMercurialVersionSecurity();

    // ---- Working-copy state (VNRepoHandlerMercurialStatus.cpp) ----
    using VNRepoHandlerBase::fileStatus;
    // `hg status` with the options of the mask and "-C", and `hg resolve -l` for the conflict
    // bits (16, 32), merged.
    std::vector<vn::Record> fileStatus(const std::string& path, uint64_t includeStatuses) override;
    // The `hg status` options a mask asks for, in their fixed order, "-C" last; empty when the
    // mask asks for nothing `hg status` lists.
    static std::vector<std::string> statusOptionsForMask(uint64_t mask);
    vn::Record summary(const std::string& path) override;
    bool isClean(const std::string& path) override;
    bool isMergeOutstanding(const std::string& path) override;
    bool isRebaseInProgress(const std::string& path) override;
    bool isGraftInProgress(const std::string& path);
    // The working copy's parent: its full hash, or its revision number; "-1" when hg fails.
    std::string currentRevision(const std::string& path) override;
    std::string currentRevisionNumber(const std::string& path);
    // The tip's revision number; empty when hg fails.
    std::string latestRevision(const std::string& path) override;
    uint64_t revisionCount(const std::string& path) override;
    std::string currentBranch(const std::string& path);
    bool hasSubmodules(const std::string& path) override;
    // ".hgsub" entries: "local", "srcOriginal", "srcLocal", "kind" ("hg", "git", "svn"), and
    // "rev" from ".hgsubstate".
    std::vector<vn::Record> listSubmodules(const std::string& path) override;
    std::vector<vn::Record> listSubmodulesWithUncommittedChanges(const std::string& path) override;
    std::vector<vn::Record> listSubmodulesWithUnpushedChanges(const std::string& path) override;

    // ---- History (VNRepoHandlerMercurialHistory.cpp) ----
    using VNRepoHandlerBase::logRevisions;
    std::vector<vn::Record> logRevisions(const std::string& path, const std::string& latestRevision,
                                         uint64_t skip, uint64_t limit,
                                         const std::optional<std::string>& branch,
                                         uint64_t options) override;
    std::vector<vn::Record> logRevisions(const std::string& path,
                                         const std::vector<std::string>& fileFolderPaths,
                                         uint64_t withLimit, bool followRenames) override;
    // The log run and the label lookup side by side. `options` bits: 0x100 closed branches as
    // labels, 0x200 every head labelled with its branch.
    std::vector<vn::Record> logRevisions(const std::string& path,
                                         const std::vector<std::string>& fileFolderPaths,
                                         const std::optional<std::string>& startRevision,
                                         uint64_t withLimit,
                                         const std::optional<std::string>& branch, uint64_t options,
                                         bool followRenames) override;
    static constexpr uint64_t LogIncludeClosedBranches = 0x100;
    static constexpr uint64_t LogLabelEveryHead = 0x200;
    // The argument vector of a log run (without the default arguments).
    static std::vector<std::string> logArguments(const std::vector<std::string>& fileFolderPaths,
                                                 const std::optional<std::string>& startRevision,
                                                 uint64_t withLimit,
                                                 const std::optional<std::string>& branch,
                                                 bool followRenames);
    std::optional<vn::Record> parseLogLine(const std::string& line) override;
    // The row that stands for uncommitted changes ("rev" "-1", its parents those of the working
    // copy); nothing for a clean working copy.
    std::optional<vn::Record> workingCopyRow(const std::string& path);
    // One page of history as the history view asks for it: rows with labels and graph, the
    // working-copy row first on a first page. Pages after the first continue the graph of the
    // rows above them, and a branch's pages count that branch's rows.
    // The working-copy row (and the status it needs) only when asked for.
    void fillLogPage(const std::string& path, VNLogRowData& rowData,
                     bool withWorkingCopyRow = true);
    // The log from `startRevision` (the tip when none) down, `limit` rows (0: all), handed to
    // `receive` in batches with their labels as hg prints them; no graph. Answers hg's success.
    using LogRowsReceiver = std::function<void(std::vector<vn::Record>& rows)>;
    bool streamLogRevisions(const std::string& path,
                            const std::optional<std::string>& startRevision, uint64_t limit,
                            const std::optional<std::string>& branch, uint64_t options,
                            const LogRowsReceiver& receive);
    // Tags, branches (or every head) and bookmarks by revision; from the bundle when given.
    // Through the command server from the three listings, else from one log run.
    // The rows a page shows when they are consecutive: `limit` visible revisions from `start`
    // ("tip" or a revision number) down. The tags of other revisions are not looked up.
    struct LabelWindow {
        std::string start;
        uint64_t limit = 0;
    };
    std::map<std::string, VNLogDescriptionEntry::LabelList, std::less<>> labelsByRevision(
        const std::string& path, bool includeClosedBranches, bool includeMultipleHeads,
        const std::optional<std::string>& bundlePath = std::nullopt,
        const std::optional<LabelWindow>& window = std::nullopt);
    // The same from the listing commands (`hg tags`, `hg bookmarks`, `hg branches` or
    // `hg heads`) run side by side; the bundle case always reads them this way.
    std::map<std::string, VNLogDescriptionEntry::LabelList, std::less<>>
    labelsByRevisionFromListings(const std::string& path, bool includeClosedBranches,
                                 bool includeMultipleHeads,
                                 const std::optional<std::string>& bundlePath = std::nullopt);
    // The same from one log run over the labelled changesets.
    std::map<std::string, VNLogDescriptionEntry::LabelList, std::less<>> labelsByRevisionFromOneRun(
        const std::string& path, bool includeClosedBranches, bool includeMultipleHeads,
        const std::optional<LabelWindow>& window = std::nullopt);
    // The log template of the one run that finds every labelled changeset, and the labels read
    // from its output.
    static std::string labelledChangesetsTemplate();
    static std::map<std::string, VNLogDescriptionEntry::LabelList, std::less<>>
    labelsFromLabelledChangesets(std::string_view output, bool includeClosedBranches,
                                 bool includeMultipleHeads);
    std::map<std::string, std::string> headsByRevision(const std::string& path);
    // Search modes: 0 keyword (message, user, files), 1 author.
    static constexpr uint32_t SearchKeyword = 0;
    static constexpr uint32_t SearchAuthor = 1;
    std::shared_ptr<VNTask> searchLogTask(const std::string& path, const std::string& pattern,
                                          uint32_t mode, const vn::Value::Date& from,
                                          const vn::Value::Date& to) override;
    vn::Record revisionDetails(const std::string& path, const std::string& revision) override;
    std::vector<vn::Record> revisionFileChanges(const std::string& path,
                                                const std::string& revision) override;
    std::vector<vn::Record> revisionRangeFileChanges(const std::string& path,
                                                     const std::string& revisionFrom,
                                                     const std::string& revisionTo) override;
    std::vector<vn::Record> mergeRevisionFileChanges(const std::string& path,
                                                     const std::string& revision,
                                                     const std::string& parent1,
                                                     const std::string& parent2) override;
    std::vector<std::string> parentRevisions(const std::string& path,
                                             const std::string& revision) override;
    std::vector<vn::Record> parentRevisionsWithDetails(const std::string& path,
                                                       const std::string& revision) override;
    vn::Record lastCommitDetails(const std::string& path) override;
    bool revisionIsValid(const std::string& path, const std::string& revision) override;
    // The full hash of what the label names (a revision number, hash, tag, branch, bookmark).
    std::optional<std::string> getCommitSHA(const std::string& path,
                                            const std::string& forLabel) override;
    std::vector<vn::Record> blame(const std::string& path, const std::string& file,
                                  const std::optional<std::string>& revision) override;
    bool exportFileContentAtRevision(const std::string& path, const std::string& file,
                                     const std::string& revision,
                                     const std::string& destFile) override;

    // ---- References and remotes (VNRepoHandlerMercurialHistory.cpp) ----
    std::vector<std::string> branches(const std::string& path) override;
    std::vector<std::string> branchesSortedByMostRecentFirst(const std::string& path) override;
    std::vector<std::string> tags(const std::string& path) override;
    std::vector<std::string> tagsSortedByMostRecentFirst(const std::string& path) override;
    std::vector<std::string> bookmarks(const std::string& path, std::string* active = nullptr);
    // Shelves as stash records ("name", "msg" empty), newest first.
    std::vector<vn::Record> listStashes(const std::string& path) override;
    std::vector<std::shared_ptr<VNLogLabel>> allRevisionLabels(const std::string& path,
                                                               uint64_t options) override;
    vn::Record remoteRepositories(const std::string& path) override;
    std::vector<vn::Record> remotePaths(const std::string& path) override;
    // The path that a push or pull naming none goes to, as hg picks it among `paths` (as
    // remotePaths lists them): "default-push" for a push when there is one, else "default";
    // empty without either.
    static std::string defaultPathAmong(const std::vector<vn::Record>& paths, bool forPush);
    bool setRemotePaths(const std::string& path, const std::vector<vn::Record>& remotes) override;
    std::string urlForAlias(const std::string& path, const std::string& alias) override;
    bool isRemoteSvn(const std::string& path, const std::string& remote) override;
    bool hasSvnInterop(const std::string& path) override;
    void authenticationFailed(const std::string& path, const std::string& remote) override;
    // Prepares a task that talks to `remote` for password prompts.
    void configureSshAskPass(const std::string& path, const std::string& remote, VNTask& task);

    // ---- Incoming and outgoing (VNRepoHandlerMercurialHistory.cpp) ----
    bool incomingChanges(const std::string& path, const std::string& remote,
                         uint64_t& incoming) override;
    bool incomingChanges(const std::string& path, const std::string& remote, uint64_t& incoming,
                         const std::optional<std::string>& branch);
    bool outgoingChanges(const std::string& path, const std::string& remote,
                         uint64_t& outgoing) override;
    bool incomingOutgoingChanges(const std::string& path, bool localOnly, uint64_t& incoming,
                                 uint64_t& outgoing,
                                 const std::optional<std::string>& branch) override;
    std::string incomingText(const std::string& path, const std::string& remote) override;
    // The changesets a push would send, as log rows with labels and graph.
    std::vector<vn::Record> outgoingChangesetLog(const std::string& path,
                                                 const std::string& remote) override;
    // The changesets a pull would bring, read through a bundle kept at `bundlePath` so that the
    // later pull takes exactly these; rows with labels (from the bundle) and graph.
    std::vector<vn::Record> incomingChangesetLog(const std::string& path, const std::string& remote,
                                                 const std::string& bundlePath);
    // Counts "rev=" (or, against Subversion, "revision:" / "changeset:") in the output.
    static uint64_t countChanges(std::string_view output, std::string_view marker);

    // ---- Diffs (VNRepoHandlerMercurialDiff.cpp) ----
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::string& file, int context) override;
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::vector<std::string>& fileList,
                                                     int context) override;
    using VNRepoHandlerBase::fileDiffAgainstBase;
    // Options: vn::DiffIgnoreWhitespace.
    std::shared_ptr<VNTask> fileDiffAgainstBaseTask(const std::string& path,
                                                    const std::vector<std::string>& fileList,
                                                    uint64_t options, int context) override;
    std::shared_ptr<VNTask> fileDiffAgainstBaseTask(const std::string& path,
                                                    const std::vector<std::string>& fileList,
                                                    const std::string& baseRevision,
                                                    uint64_t options, int context) override;
    std::shared_ptr<VNTask> revisionFileDiffTask(const std::string& path,
                                                 const std::string& revision,
                                                 const std::vector<std::string>& fileList,
                                                 uint64_t options, int context) override;
    std::shared_ptr<VNTask> revisionFileDiffTask(const std::string& path,
                                                 const std::string& revision,
                                                 const std::vector<std::string>& fileList,
                                                 uint64_t options, int context,
                                                 const std::optional<std::string>& bundlePath);
    std::shared_ptr<VNTask> revisionRangeFileDiffTask(const std::string& path,
                                                      const std::string& revisionFrom,
                                                      const std::string& revisionTo,
                                                      const std::vector<std::string>& fileList,
                                                      uint64_t options, int context) override;
    std::shared_ptr<VNTask> createPatchTask(const std::string& path,
                                            const std::vector<std::string>& files,
                                            const std::string& saveToFile) override;
    // Runs a prepared diff task and parses its output into a model; null when hg failed.
    std::shared_ptr<VNDiffModel> runDiffTask(const std::shared_ptr<VNTask>& task);

    // ---- Configuration, ignores, templates, attic (VNRepoHandlerMercurialConfig.cpp) ----
    // The program's own Mercurial configuration file, in the application data folder.
    static std::string hgVarnelConfigFilename();
    static std::string hgUserExtDisableFilename();
    // The extensions the program asks hg to load: name to module ("" for a core one).
    static std::vector<std::pair<std::string, std::string>> extensionTable();
    // Rewrites "hgrc_varnel" (extensions the installed hg has, minus the disabled ones; git
    // diffs; no automatic subrepository commits; the global ignore file) and
    // "hgrc_userext_disable". Runs once per process unless `force`.
    void writeProgramConfiguration(bool force = false);
    // Extensions of the table that the installed hg cannot load (hgsubversion, hgflow on many
    // systems), found when the configuration was written.
    std::vector<std::string> missingExtensions();
    // A clear error for an operation that needs a missing extension, or nothing.
    std::optional<std::string> missingExtensionError(const std::string& extension);
    bool repositoryUserInformation(const std::string& path, std::string& username,
                                   std::string& email) override;
    bool setRepositoryUserInformation(const std::string& path, const std::string& username,
                                      const std::string& email) override;
    bool userInformation(std::string& username, std::string& email) override;
    bool setUserInformation(const std::string& username, const std::string& email) override;
    std::string getDefaultAuthor(const std::string& path) override;
    bool addIgnore(const std::string& path, const std::string& pattern) override;
    bool addIgnore(const std::string& path, const std::vector<std::string>& patterns) override;
    bool addIgnores(const std::vector<std::string>& patterns, const std::string& toFile) override;
    // The ignore file's text with the glob patterns added (see addIgnores).
    static std::string addIgnorePatterns(const std::string& text,
                                         const std::vector<std::string>& patterns);
    bool addGlobalIgnore(const std::string& pattern) override;
    bool addGlobalIgnores(const std::vector<std::string>& patterns) override;
    VNRegexList ignoreListRegexes(const std::string& path) override;
    VNRegexList globalIgnoreListRegexes() override;
    std::string repositoryIgnoreFilename(const std::string& path) override;
    std::string globalIgnoreFilename();
    // The expressions of an ignore file's text, following its "syntax:" lines.
    static VNRegexList readIgnoreText(std::string_view text);
    std::optional<std::string> templateFileForDocument(const VNTemplateDocument& document) override;
    std::optional<std::string> defaultCommitTemplateFilePathForDocument(
        const VNTemplateDocument& document) override;
    // Files in ".hg/attic" that are saved changes (not the ".applied", ".current", ".saved"
    // bookkeeping), and the once-only warning about them.
    std::vector<std::string> atticFiles(const std::string& path);
    bool hasAtticContent(const std::string& path);
    void warnAboutAtticContent(const std::string& path);

    // Whether `hg status` lists anything to commit; nothing when it failed.
    std::optional<bool> hasUncommittedChanges(const std::string& path);
    // The working copy's parents as revision numbers, found among `rows` when they hold them.
    std::vector<std::string> workingCopyParents(const std::string& path,
                                                const std::vector<vn::Record>* rows);

  private:
    static vn::Record workingCopyRowWithParents(const std::vector<std::string>& revs);

    bool needsWebCacerts_ = false;
    std::mutex versionMutex_;
    std::optional<std::string> versionNumber_;
    std::string versionPath_;
    std::mutex configMutex_;
    bool configWritten_ = false;
    std::vector<std::string> missingExtensions_;
    bool didWarnAboutAttic_ = false;

    // ==== Commands that change the repository ====================================================
    // Each answers unstarted tasks (or a list run in order, stopping at the first failure); the
    // few answering bool run their commands at once. Commands that need an extension Mercurial
    // may lack say which one in their error output when it is missing.
    // (VNRepoHandlerMercurialOperations.cpp, VNRepoHandlerMercurialFlow.cpp)
  public:
    // Post-pull actions (the preference "mercurialPostPullAction").
    enum PostPullAction : int64_t {
        PostPullNone = 0,
        PostPullUpdate = 1,
        PostPullRebase = 2,
        PostPullFetch = 3
    };

    // Adds to the task's error output, after hg's own, which extension the command needs, when
    // hg's error holds one of `markers` (its words for an unknown command or option).
    static void explainMissingExtension(VNTask& task, const std::string& extension,
                                        std::vector<std::string> markers);

    // Clone options: "clonegetworkingcopy", "cloneVerbose", "cloneupdaterev", "clonerev",
    // "clonebranch"; for Subversion "authorsFiles".
    std::shared_ptr<VNTask> cloneTaskForSource(const std::string& source,
                                               const std::string& destination,
                                               const vn::Record& options) override;
    // Needs hgsubversion. A negative revision starts at the first one.
    std::shared_ptr<VNTask> cloneSvnTaskForSource(const std::string& source, int64_t fromRevision,
                                                  const std::string& destination,
                                                  const vn::Record& options) override;
    std::shared_ptr<VNTask> createNewRepoTask(const std::string& path) override;

    // The message goes through a file that lives as long as the task; an empty one becomes "no
    // message". No files: everything changed.
    std::shared_ptr<VNTask> commitTask(const std::string& path, const std::string& message,
                                       const std::vector<std::string>& files,
                                       const std::optional<std::string>& author, bool amend);
    // Signs `revision` with the GnuPG key; the message names the tag when one is given.
    std::shared_ptr<VNTask> signTask(const std::string& path, const std::string& key,
                                     const std::string& revision,
                                     const std::optional<std::string>& message,
                                     const std::optional<std::string>& tagName);
    // The GnuPG program hg signs with: "gpg2" in the folder of the "gpgProgram" preference,
    // else gpg from the PATH.
    static std::string gpgCommand();
    std::shared_ptr<VNTask> backoutTask(const std::string& path,
                                        const std::string& revision) override;

    VNTaskList addTasks(const std::string& path, const std::vector<std::string>& files) override;
    VNTaskList addRemoveTasks(const std::string& path) override;
    VNTaskList removeTasks(const std::string& path, const std::vector<std::string>& files) override;
    VNTaskList stopTrackingTasks(const std::string& path,
                                 const std::vector<std::string>& files) override;
    VNTaskList copyTasks(const std::string& path, const std::string& source,
                         const std::string& destination) override;
    VNTaskList moveTasks(const std::string& path, const std::string& source,
                         const std::string& destination) override;
    VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                           uint64_t options, uint64_t submoduleOptions) override;
    // Also brings back to their tracked revision the subrepositories the revert leaves
    // elsewhere.
    VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                           const std::string& revision, uint64_t options,
                           uint64_t submoduleOptions) override;

    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote) override;
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                     bool forcePush) override;
    std::shared_ptr<VNTask> pushTaskRemoteName(const std::string& path,
                                               const std::string& remoteName) override;
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                     const std::optional<std::string>& branch,
                                     const std::optional<std::string>& revision,
                                     bool forcePush) override;
    // Pulls from `remote`, or from `bundle` (a previewed incoming bundle) when given, then does
    // the post-pull action; fetch (3) needs the fetch extension and uses the commit message of
    // the preference "mercurialFetchCommitMessage".
    std::shared_ptr<VNTask> pullTask(const std::string& path, const std::string& remote,
                                     const std::optional<std::string>& branch,
                                     const std::optional<std::string>& revision, int64_t postPull,
                                     const std::optional<std::string>& bundle = std::nullopt);

    VNTaskList updateTasks(const std::string& path, bool clean,
                           uint64_t submoduleUpdateOptions) override;
    VNTaskList updateTasks(const std::string& path, const std::string& revision, bool clean,
                           uint64_t submoduleUpdateOptions) override;
    std::shared_ptr<VNTask> branchTask(const std::string& path, const std::string& name) override;
    // Updates to `revision` first when one is given.
    VNTaskList branchTasks(const std::string& path, const std::string& name,
                           const std::optional<std::string>& revision) override;
    std::shared_ptr<VNTask> resetBranchTask(const std::string& path) override;
    // Commits the close of `branch` and returns to `returnTo`.
    VNTaskList closeBranchTasks(const std::string& path, const std::string& branch,
                                const std::string& returnTo);
    std::shared_ptr<VNTask> mergeTask(const std::string& path, const std::string& revision,
                                      uint64_t options) override;

    std::shared_ptr<VNTask> visualMergeTask(const std::string& path,
                                            const std::string& filename) override;
    std::shared_ptr<VNTask> markResolvedTask(const std::string& path, const std::string& filename);
    std::shared_ptr<VNTask> markUnresolvedTask(const std::string& path,
                                               const std::string& filename);
    VNTaskList restartMergeTasks(const std::string& path, const std::string& filename);
    VNTaskList resolveUsingTasks(const std::string& path, const std::string& filename, bool mine);
    bool markResolved(const std::string& path, const std::string& filename) override;
    bool markUnresolved(const std::string& path, const std::string& filename) override;
    bool resolveUsingMine(const std::string& path, const std::string& filename) override;
    bool resolveUsingTheirs(const std::string& path, const std::string& filename) override;
    bool restartMerge(const std::string& path, const std::string& filename) override;

    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             uint64_t options) override;
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& baseRevision,
                                             uint64_t options) override;
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& revision) override;
    // "-1" as either end stands for the working copy. hg ends these with 1 once the tool has run
    // (extdiff's rule), with 0 when there is nothing to compare.
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& revisionFrom,
                                             const std::string& revisionTo) override;

    // Tag options: "local" (bool), "msg".
    VNTaskList tagTasks(const std::string& path, const std::string& withName, bool replaceExisting,
                        const std::string& gpgKey, const vn::Record& options) override;
    VNTaskList tagTasks(const std::string& path, const std::string& withName,
                        const std::optional<std::string>& revision, bool replaceExisting,
                        const std::string& gpgKey, const vn::Record& options) override;
    std::shared_ptr<VNTask> removeTagTask(const std::string& path,
                                          const std::string& withName) override;
    bool isTagLocal(const std::string& path, const std::string& name);

    // Export: one file, or one per revision ("name1.patch", "name2.patch", ...).
    VNTaskList createPatchTasks(const std::string& path, const std::vector<std::string>& revisions,
                                const std::string& saveToFile, bool filePerRevision) override;
    // Import; patchMode 1 applies without committing. A dry run is refused.
    std::shared_ptr<VNTask> applyPatchTask(const std::string& path, const std::string& filename,
                                           const std::string& basePath, uint32_t strip,
                                           uint32_t patchMode, bool dryRun,
                                           uint64_t options) override;
    // Options: 1 ignore whitespace, 2 allow fuzz.
    bool applyPatchToWorkingFolder(const std::string& path, const std::string& patch, bool reverse,
                                   vn::TextEncoding encoding, uint64_t options) override;

    // Options bit 1: graft (core); else transplant (the transplant extension).
    std::shared_ptr<VNTask> transplantTask(const std::string& path,
                                           const std::vector<std::string>& revisions, bool commit,
                                           uint64_t options) override;
    std::shared_ptr<VNTask> rebaseTask(const std::string& path,
                                       const std::string& destRevision) override;
    std::shared_ptr<VNTask> rebaseContinueTask(const std::string& path) override;
    std::shared_ptr<VNTask> rebaseAbortTask(const std::string& path) override;

    // Shelves: "name", "msg" (empty).
    std::shared_ptr<VNTask> createStashTask(const std::string& path, const std::string& name,
                                            const std::string& description,
                                            uint64_t options) override;
    std::shared_ptr<VNTask> applyStashTask(const std::string& path, const std::string& name,
                                           bool deleteAfter, uint64_t options) override;
    bool deleteStash(const std::string& path, const std::string& name) override;
    bool stashExists(const std::string& path, const std::string& name) override;
    std::shared_ptr<VNTask> stashDiffTask(const std::string& path,
                                          const std::string& name) override;

    // Turns a patch saved in ".hg/attic" (the file `atPath`) into a shelf of the same name and
    // removes the file; false, with the file kept, when the working copy has changes or the
    // patch does not apply.
    bool importAtticStash(const std::string& path, const std::string& atPath);
    bool deleteAtticStash(const std::string& path, const std::string& atPath);

    std::shared_ptr<VNTask> stripTask(const std::string& path, const std::string& revision,
                                      bool keep);
    std::shared_ptr<VNTask> createBookmarkTask(const std::string& path, const std::string& name,
                                               const std::optional<std::string>& revision,
                                               bool force);
    std::shared_ptr<VNTask> deleteBookmarkTask(const std::string& path, const std::string& name);
    std::shared_ptr<VNTask> renameBookmarkTask(const std::string& path, const std::string& oldName,
                                               const std::string& newName);
    using VNRepoHandlerBase::archiveTask;
    std::shared_ptr<VNTask> archiveTask(const std::string& path, const std::string& destination,
                                        const std::string& prefix,
                                        const std::optional<std::string>& revision) override;

    // ---- hg-flow (needs the hgflow extension) ----
    bool isFlowEnabled(const std::string& path) override;
    std::shared_ptr<VNTask> flowInitTask(const std::string& path) override;
    bool flowConfigure(const std::string& path, const std::string& productionBranch,
                       const std::string& developBranch, const std::string& featurePrefix,
                       const std::string& releasePrefix, const std::string& hotfixPrefix,
                       const std::string& versionTagPrefix) override;
    vn::Record flowPrefixes(const std::string& path) override;
    std::optional<std::string> flowCurrentState(const std::string& path,
                                                const std::string& ofType) override;
    std::optional<std::string> flowCurrentFeatureName(const std::string& path) override;
    std::optional<std::string> flowCurrentReleaseName(const std::string& path) override;
    std::optional<std::string> flowCurrentHotfixName(const std::string& path) override;
    std::vector<std::string> flowList(const std::string& path, const std::string& ofType) override;
    std::vector<std::string> flowFeatureList(const std::string& path) override;
    std::vector<std::string> flowReleaseList(const std::string& path) override;
    std::vector<std::string> flowHotfixList(const std::string& path) override;
    std::shared_ptr<VNTask> flowFeatureStartTask(const std::string& path, const std::string& name,
                                                 const std::optional<std::string>& baseRevision,
                                                 uint64_t options) override;
    VNTaskList flowFeatureFinishTasks(const std::string& path, const std::string& name,
                                      uint64_t options) override;
    std::shared_ptr<VNTask> flowReleaseStartTask(
        const std::string& path, const std::string& name,
        const std::optional<std::string>& baseRevision) override;
    VNTaskList flowReleaseFinishTasks(const std::string& path, const std::string& name,
                                      const std::string& message, uint64_t options) override;
    std::shared_ptr<VNTask> flowHotfixStartTask(const std::string& path, const std::string& name,
                                                const std::optional<std::string>& baseRevision,
                                                uint64_t options) override;
    VNTaskList flowHotfixFinishTasks(const std::string& path, const std::string& name,
                                     const std::string& message, uint64_t options) override;
    // The branch of the kind named on a "flow: ..." line hg-flow prints (current: marked "*").
    static std::optional<std::string> parseFlowCurrent(std::string_view output,
                                                       const std::string& prefix);
    static std::vector<std::string> parseFlowOpen(std::string_view output,
                                                  const std::string& prefix);

    // The argument vector with every "--config" pair (before a "--") moved in front of the
    // command word, where hg in strict plain mode takes it.
    static std::vector<std::string> hoistConfigOptions(std::vector<std::string> args);
    // The "--config" pairs of the default arguments (the certificate override) moved in front of
    // the command word; every task built here passes through it. The caller's words after the
    // default arguments stay as they are.
    static std::vector<std::string> configOptionsFirst(std::vector<std::string> args);
    // hgTask and hgTaskWithArgs with the configuration pairs hoisted.
    std::shared_ptr<VNTask> writeTask(const std::string& path, const std::string& command,
                                      std::vector<std::string> args = {});
    std::shared_ptr<VNTask> writeTaskWithArgs(const std::string& path,
                                              std::vector<std::string> args);

  private:
    // A task running hg with the default arguments of `command`, `args`, then `--` and `files`,
    // split over several runs when the list is long.
    VNTaskList fileTasks(const std::string& path, const std::string& command,
                         std::vector<std::string> args, const std::vector<std::string>& files);
    std::shared_ptr<VNTask> flowTask(const std::string& path, std::vector<std::string> args);
    std::string flowOutput(const std::string& path, const std::string& kind);
};
