#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handler/VNRepoHandlerBase.h"

// The Mercurial backend. Every operation is a run of `hg` (or of its command-server client `chg`
// for queries, where installed) whose output is read in a fixed plain form: the user's aliases,
// defaults, templates, colour, pager and verbosity settings never reach what the parsers read.
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

    // ---- Failures ----
    // Reports a failed hg command under its label ("hg status", "hg log", ...).
    void handleHgFailure(const std::string& label, int64_t exitCode, const std::string& errorOutput,
                         bool displayToUser);

    // ---- Repositories ----
    // True when the folder holds a ".hg" folder.
    bool validateWorkingDirectory(const std::string& path) override;

  private:
    bool needsWebCacerts_ = false;

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

    // Prepares a task that reaches `remote` (a path name or an address): the password prompt
    // for ssh and, through the varnel_auth extension, for HTTP; failed logins drop the stored
    // password.
    void configureRemoteTask(const std::string& path, const std::string& remote, VNTask& task);
    // `remote` resolved through the [paths] of the repository's ".hg/hgrc".
    std::string remoteAddress(const std::string& path, const std::string& remote) const;
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
    std::vector<vn::Record> listStashes(const std::string& path) override;
    bool stashExists(const std::string& path, const std::string& name) override;
    std::shared_ptr<VNTask> stashDiffTask(const std::string& path,
                                          const std::string& name) override;

    std::shared_ptr<VNTask> stripTask(const std::string& path, const std::string& revision,
                                      bool keep);
    std::shared_ptr<VNTask> createBookmarkTask(const std::string& path, const std::string& name,
                                               const std::optional<std::string>& revision,
                                               bool force);
    std::shared_ptr<VNTask> deleteBookmarkTask(const std::string& path, const std::string& name);
    std::shared_ptr<VNTask> renameBookmarkTask(const std::string& path, const std::string& oldName,
                                               const std::string& newName);
    // Bookmark names, in hg's order.
    std::vector<std::string> bookmarks(const std::string& path);
    static std::vector<std::string> parseBookmarkNames(std::string_view output);
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
