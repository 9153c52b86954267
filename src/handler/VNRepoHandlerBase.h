#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handler/VNRepoHandler.h"
#include "model/VNLogGraphEntry.h"

// The machinery both backends share: splitting long file lists over several command runs, the
// GPG key listing, ignore globs as expressions, the commit-message template, failure reports.
// Every operation a backend must supply answers here with the internal assertion "should be
// overridden by subclasses!" and an empty result; the optional ones answer null, 0 or false.
class VNRepoHandlerBase : public VNRepoHandler,
                          public std::enable_shared_from_this<VNRepoHandlerBase> {
  public:
    // A stretch of a file list: the files from `location` on, `length` of them.
    struct FileRange {
        std::size_t location = 0;
        std::size_t length = 0;
    };
    // Limits that keep one command line well inside what the system accepts.
    static constexpr std::size_t MaxFilesPerCommand = 3997;
    static constexpr std::size_t CommandLineBudget = 128000;

    VNRepoHandlerBase() = default;
    ~VNRepoHandlerBase() override = default;

    // Sets `range.length` to how many files from `range.location` on fit one command: at most
    // MaxFilesPerCommand, and their lengths plus one each within CommandLineBudget. A file longer
    // than the remaining budget closes the batch, so a single over-long path gives 0.
    static void determineSingleCommandFileRange(const std::vector<std::string>& files,
                                                FileRange& range);
    // One task per batch of `files`, each running `command` with `baseArgs` followed by the
    // batch, in the working copy. No files, no tasks.
    VNTaskList splitTaskIfRequired(const std::string& path,
                                   const std::vector<std::string>& baseArgs,
                                   const std::string& command,
                                   const std::vector<std::string>& files) const;

    // The secret keys GnuPG knows ("gpg2" in the folder of the "gpgProgram" preference); empty
    // without that preference or when the listing fails.
    std::vector<vn::Record> gpgKeyListBase(const std::string& path) const;
    // Key records from `--list-secret-keys --with-colons` output, one per user id.
    static std::vector<vn::Record> parseGpgKeyList(std::string_view output);

    // An ignore glob as a regular expression that matches anywhere in a path ("*" stays within
    // one folder, "**" crosses folders); nothing for an empty glob.
    static std::optional<std::string> ignoreGlobToPattern(std::string_view glob);
    // The same, compiled; null for an empty glob or one that gives no valid expression.
    static std::shared_ptr<const vn::Regex> ignoreGlobToRegex(std::string_view glob);

    // ---- Commit graph ----
    // Lays out the graph of a page of history rows (newest first) and stores each row's entry
    // under "graph"; `baseState` is the last row's entry of the page before, so that this page
    // continues its lines. In first-parent mode only first parents are drawn.
    static void addGraphInfoToLogRevisions(std::vector<vn::Record>& rows);
    static void addGraphInfoToLogRevisions(std::vector<vn::Record>& rows,
                                           std::shared_ptr<const VNLogGraphEntry> baseState,
                                           bool firstParent);
    static const VNLogGraphEntryLine* findCommonContextLine(const std::string& context,
                                                            const VNLogGraphEntry::Lines& lines);
    static VNLogGraphColour newLogGraphColourNotIn(const VNLogGraphEntry& entry,
                                                   const VNLogGraphEntry* previous,
                                                   const VNLogGraphEntry::Lines& pendingMerges);
    static bool isColourInLogGraphEntry(const VNLogGraphColour& colour,
                                        const VNLogGraphEntry* entry);
    static bool isColourInLogGraphLines(const VNLogGraphColour& colour,
                                        const VNLogGraphEntry::Lines* lines);
    static bool hueBrightnessSimilarToColour(const VNLogGraphColour& colour, double hue,
                                             double brightness);

    // The general report of a failed command: logs "'%@' failed with code %ld:'%@'" in the given
    // log context and, when asked, shows the text in an alert "Error encountered" on the main
    // thread.
    static void reportTaskFailure(const std::string& command, int64_t exitCode,
                                  const std::string& errorOutput, bool displayToUser,
                                  int logContext);

    // VNAuthenticationDelegate
    void authenticationFailed(const std::string& path, const std::string& remote) override;

    // ---- Identity and setup --------------------------------------------------------------
    VNRepositoryType repositoryType() const override;
    std::string repositoryTypeName() const override;
    bool isDistributed() const override;
    bool hasHashedChangesets() const override;
    bool hasSequentialRevisions() const override;
    vn::Record versionDetails() override;
    bool hasCommitStaging() const override;
    std::shared_ptr<VNRepoWindowController> newWindowControllerWithDoc(
        std::shared_ptr<VNRepoDocument> doc) override;
    std::vector<std::string> defaultArgsForPath(const std::string& path,
                                                const std::string& command) override;
    bool validateWorkingDirectory(const std::string& path) override;
    bool validatePathOrURL(const std::string& pathOrURL,
                           VNPathOrURLValidationDelegate* delegate) override;
    bool checkConfigForRepo(const std::string& path, bool fixAndPrompt) override;
    DateFormatter searchDateFormatter() override;
    void setSearchDateFormatter(DateFormatter formatter) override;

    // ---- Working-copy state ----------------------------------------------------------------
    std::vector<vn::Record> fileStatus(const std::string& path, uint64_t includeStatuses) override;
    std::vector<vn::Record> fileStatus(const std::string& path) override;
    vn::Record summary(const std::string& path) override;
    // summary() and fileStatus() one after the other.
    VNWorkingCopyStatus fileStatusAndSummary(const std::string& path,
                                             uint64_t includeStatuses) override;
    bool isClean(const std::string& path) override;
    bool isMergeOutstanding(const std::string& path) override;
    bool isRebaseInProgress(const std::string& path) override;
    std::string currentRevision(const std::string& path) override;
    std::string latestRevision(const std::string& path) override;
    uint64_t revisionCount(const std::string& path) override;
    bool hasSubmodules(const std::string& path) override;
    std::vector<vn::Record> listSubmodules(const std::string& path) override;
    std::vector<vn::Record> listSubmodulesWithUncommittedChanges(const std::string& path) override;
    std::vector<vn::Record> listSubmodulesWithUnpushedChanges(const std::string& path) override;

    // ---- Diffs and patches -----------------------------------------------------------------
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::string& file, int context) override;
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::vector<std::string>& fileList,
                                                     int context) override;
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::string& file, uint64_t options,
                                                     int context) override;
    std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                     const std::vector<std::string>& fileList,
                                                     uint64_t options, int context) override;
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
    std::shared_ptr<VNTask> revisionRangeFileDiffTask(const std::string& path,
                                                      const std::string& revisionFrom,
                                                      const std::string& revisionTo,
                                                      const std::vector<std::string>& fileList,
                                                      uint64_t options, int context) override;
    std::shared_ptr<VNTask> stashDiffTask(const std::string& path,
                                          const std::string& name) override;
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             uint64_t options) override;
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& baseRevision,
                                             uint64_t options) override;
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& revision) override;
    std::shared_ptr<VNTask> externalDiffTask(const std::string& path, const std::string& filename,
                                             const std::string& revisionFrom,
                                             const std::string& revisionTo) override;
    std::shared_ptr<VNTask> visualMergeTask(const std::string& path,
                                            const std::string& filename) override;
    std::shared_ptr<VNTask> createPatchTask(const std::string& path,
                                            const std::vector<std::string>& files,
                                            const std::string& saveToFile) override;
    VNTaskList createPatchTasks(const std::string& path,
                                const std::vector<std::string>& filesInIndex,
                                const std::vector<std::string>& filesInTree,
                                const std::string& saveToFile) override;
    VNTaskList createPatchTasks(const std::string& path, const std::vector<std::string>& revisions,
                                const std::string& saveToFile, bool filePerRevision) override;
    std::shared_ptr<VNTask> applyPatchTask(const std::string& path, const std::string& filename,
                                           const std::string& basePath, uint32_t strip,
                                           uint32_t patchMode, bool dryRun,
                                           uint64_t options) override;
    // ---- Applying patch text (VNRepoHandlerBasePatch.cpp) ----
    // Option bits of a patch application.
    static constexpr uint64_t PatchIgnoreWhitespace = 4;
    // Working folder only: one line of context must match, not all.
    static constexpr uint64_t PatchReducedContext = 8;
    enum class PatchTarget { Index, WorkingFolder };
    struct PatchApplication {
        bool success = false;
        int64_t exitCode = -1;
        std::string errorOutput;
        // The patch file, kept when the tool refused it so that it can be looked at.
        std::string keptPatchFile;
    };
    // Writes the patch (converted to `encoding` where it is UTF-8 text that the encoding can
    // hold; as it is otherwise) to a new temporary file, applies it and removes the file on
    // success. A failure is reported (shown to the user except for the working folder with
    // PatchReducedContext) and keeps the file. Here the working folder is patched with
    // `patch`, all or nothing and without fuzz; a backend with an index applies to it.
    virtual PatchApplication applyPatch(const std::string& path, const std::string& patch,
                                        PatchTarget target, bool reverse, vn::TextEncoding encoding,
                                        uint64_t options);
    // The mode ("100644", "100755", "120000") a whole-file patch gives `file`: as the index has
    // it, or with `inHead` as the checked-out revision has it. Here: from the working file.
    virtual std::string fileModeForPatch(const std::string& path, const std::string& file,
                                         bool inHead);
    // applyPatch to the working folder.
    bool applyPatchToWorkingFolder(const std::string& path, const std::string& patch, bool reverse,
                                   vn::TextEncoding encoding, uint64_t options) override;
    // A new file "VarnelTemp.XXXXXX" in the user's temporary folder holding the patch; nothing
    // (and `error` set) when it could not be written.
    static std::optional<std::string> writePatchFile(const std::string& patch,
                                                     vn::TextEncoding encoding, std::string& error);
    // The diff parser with this handler's large-file hooks.
    void parseDiffToModel(std::string_view diff,
                          std::vector<std::shared_ptr<VNDiffFileModel>>& dest,
                          uint64_t maxFiles) const override;
    void parseDiffsToModel(std::string_view diffs,
                           std::vector<std::shared_ptr<VNDiffFileModel>>& dest,
                           uint64_t maxFiles) const override;
    uint64_t largeFilesDiffScanLimit() const override;
    std::optional<std::string> extractLargeFileReferenceFromLine(
        const std::string& line) const override;
    std::optional<std::string> dereferenceLargeFileContent(const std::string& path,
                                                           const std::string& file) override;
    bool exportLargeFileContent(const std::string& path, const std::string& fromRef,
                                const std::string& toFile) override;

    // ---- History ---------------------------------------------------------------------------
    std::vector<vn::Record> logRevisions(const std::string& path, const std::string& latestRevision,
                                         uint64_t skip, uint64_t limit,
                                         const std::optional<std::string>& branch,
                                         uint64_t options) override;
    std::vector<vn::Record> logRevisions(const std::string& path,
                                         const std::vector<std::string>& fileFolderPaths,
                                         uint64_t withLimit, bool followRenames) override;
    std::vector<vn::Record> logRevisions(const std::string& path,
                                         const std::vector<std::string>& fileFolderPaths,
                                         const std::optional<std::string>& startRevision,
                                         uint64_t withLimit,
                                         const std::optional<std::string>& branch, uint64_t options,
                                         bool followRenames) override;
    std::optional<vn::Record> parseLogLine(const std::string& line) override;
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
    std::optional<std::string> getCommitSHA(const std::string& path,
                                            const std::string& forLabel) override;
    std::vector<vn::Record> blame(const std::string& path, const std::string& file,
                                  const std::optional<std::string>& revision) override;
    bool exportFileContentAtRevision(const std::string& path, const std::string& file,
                                     const std::string& revision,
                                     const std::string& destFile) override;
    std::shared_ptr<VNTask> archiveTask(const std::string& path, const std::string& destination,
                                        const std::string& prefix,
                                        const std::optional<std::string>& revision) override;
    std::shared_ptr<VNTask> archiveTask(const std::string& path, const std::string& destination,
                                        const std::string& prefix) override;

    // ---- References and remotes ------------------------------------------------------------
    std::vector<std::string> branches(const std::string& path) override;
    std::vector<std::string> branchesSortedByMostRecentFirst(const std::string& path) override;
    std::vector<std::string> tags(const std::string& path) override;
    std::vector<std::string> tagsSortedByMostRecentFirst(const std::string& path) override;
    std::vector<std::shared_ptr<VNLogLabel>> allRevisionLabels(const std::string& path,
                                                               uint64_t options) override;
    std::vector<vn::Record> listStashes(const std::string& path) override;
    bool stashExists(const std::string& path, const std::string& name) override;
    vn::Record remoteRepositories(const std::string& path) override;
    std::vector<vn::Record> remotePaths(const std::string& path) override;
    bool setRemotePaths(const std::string& path, const std::vector<vn::Record>& remotes) override;
    bool removeRemote(const std::string& path, const std::string& name) override;
    std::string urlForAlias(const std::string& path, const std::string& alias) override;
    bool isRemoteSvn(const std::string& path, const std::string& remote) override;
    bool hasSvnInterop(const std::string& path) override;

    // ---- File changes and ignores ----------------------------------------------------------
    VNTaskList addTasks(const std::string& path, const std::vector<std::string>& files) override;
    VNTaskList unstageTasks(const std::string& path,
                            const std::vector<std::string>& files) override;
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
    VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                           const std::string& revision, uint64_t options,
                           uint64_t submoduleOptions) override;
    bool markResolved(const std::string& path, const std::string& filename) override;
    bool markUnresolved(const std::string& path, const std::string& filename) override;
    bool resolveUsingMine(const std::string& path, const std::string& filename) override;
    bool resolveUsingTheirs(const std::string& path, const std::string& filename) override;
    bool restartMerge(const std::string& path, const std::string& filename) override;
    bool addIgnore(const std::string& path, const std::string& pattern) override;
    bool addIgnore(const std::string& path, const std::vector<std::string>& patterns) override;
    bool addIgnores(const std::vector<std::string>& patterns, const std::string& toFile) override;
    bool addGlobalIgnore(const std::string& pattern) override;
    bool addGlobalIgnores(const std::vector<std::string>& patterns) override;
    VNRegexList ignoreListRegexes(const std::string& path) override;
    VNRegexList globalIgnoreListRegexes() override;
    std::string repositoryIgnoreFilename(const std::string& path) override;

    // ---- Commands that change the repository -----------------------------------------------
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote) override;
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                     bool forcePush) override;
    std::shared_ptr<VNTask> pushTaskRemoteName(const std::string& path,
                                               const std::string& remoteName) override;
    std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                     const std::optional<std::string>& branch,
                                     const std::optional<std::string>& revision,
                                     bool forcePush) override;
    bool incomingChanges(const std::string& path, const std::string& remote,
                         uint64_t& incoming) override;
    bool outgoingChanges(const std::string& path, const std::string& remote,
                         uint64_t& outgoing) override;
    bool incomingOutgoingChanges(const std::string& path, bool localOnly, uint64_t& incoming,
                                 uint64_t& outgoing,
                                 const std::optional<std::string>& branch) override;
    std::string incomingText(const std::string& path, const std::string& remote) override;
    std::vector<vn::Record> outgoingChangesetLog(const std::string& path,
                                                 const std::string& remote) override;
    std::shared_ptr<VNTask> cloneTaskForSource(const std::string& source,
                                               const std::string& destination,
                                               const vn::Record& options) override;
    std::shared_ptr<VNTask> cloneSvnTaskForSource(const std::string& source, int64_t fromRevision,
                                                  const std::string& destination,
                                                  const vn::Record& options) override;
    std::shared_ptr<VNTask> createNewRepoTask(const std::string& path) override;
    VNTaskList updateTasks(const std::string& path, bool clean,
                           uint64_t submoduleUpdateOptions) override;
    VNTaskList updateTasks(const std::string& path, const std::string& revision, bool clean,
                           uint64_t submoduleUpdateOptions) override;
    std::shared_ptr<VNTask> mergeTask(const std::string& path, const std::string& revision,
                                      uint64_t options) override;
    std::shared_ptr<VNTask> rebaseTask(const std::string& path,
                                       const std::string& destRevision) override;
    std::shared_ptr<VNTask> rebaseAbortTask(const std::string& path) override;
    std::shared_ptr<VNTask> rebaseContinueTask(const std::string& path) override;
    std::shared_ptr<VNTask> transplantTask(const std::string& path,
                                           const std::vector<std::string>& revisions, bool commit,
                                           uint64_t options) override;
    std::shared_ptr<VNTask> backoutTask(const std::string& path,
                                        const std::string& revision) override;
    std::shared_ptr<VNTask> resetBranchTask(const std::string& path) override;
    std::shared_ptr<VNTask> branchTask(const std::string& path, const std::string& name) override;
    VNTaskList branchTasks(const std::string& path, const std::string& name,
                           const std::optional<std::string>& revision) override;
    VNTaskList tagTasks(const std::string& path, const std::string& withName, bool replaceExisting,
                        const std::string& gpgKey, const vn::Record& options) override;
    VNTaskList tagTasks(const std::string& path, const std::string& withName,
                        const std::optional<std::string>& revision, bool replaceExisting,
                        const std::string& gpgKey, const vn::Record& options) override;
    std::shared_ptr<VNTask> removeTagTask(const std::string& path,
                                          const std::string& withName) override;
    std::shared_ptr<VNTask> createStashTask(const std::string& path, const std::string& name,
                                            const std::string& description,
                                            uint64_t options) override;
    std::shared_ptr<VNTask> applyStashTask(const std::string& path, const std::string& name,
                                           bool deleteAfter, uint64_t options) override;
    bool deleteStash(const std::string& path, const std::string& name) override;
    bool changeSubmoduleSource(const std::string& path, const std::string& localPath,
                               const std::string& source, const std::string& subtype) override;
    bool removeSubmodule(const std::string& path, const std::string& localPath) override;

    // ---- Flow (branching model) ------------------------------------------------------------
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

    // ---- Identity, signing, templates ------------------------------------------------------
    bool userInformation(std::string& username, std::string& email) override;
    bool setUserInformation(const std::string& username, const std::string& email) override;
    bool repositoryUserInformation(const std::string& path, std::string& username,
                                   std::string& email) override;
    bool setRepositoryUserInformation(const std::string& path, const std::string& username,
                                      const std::string& email) override;
    std::string getDefaultAuthor(const std::string& path) override;
    std::vector<vn::Record> gpgKeyList(const std::string& path) override;
    std::optional<std::string> commitMessageTemplateForDocument(
        const VNTemplateDocument& document) override;
    std::optional<std::string> templateFileForDocument(const VNTemplateDocument& document) override;
    std::optional<std::string> commitTemplateFilePathForDocument(
        const VNTemplateDocument& document) override;
    std::optional<std::string> defaultCommitTemplateFilePathForDocument(
        const VNTemplateDocument& document) override;
    bool resetCommitTemplateFromConfigForDocument(const VNTemplateDocument& document) override;
    bool addCommitTemplatePath(const std::string& templatePath,
                               const VNTemplateDocument& toConfigForDocument) override;
    bool removeCommitTemplatePath(const std::string& templatePath,
                                  const VNTemplateDocument& fromConfigForDocument) override;

  protected:
    // Logs which operation is missing and raises the internal assertion.
    void mustOverride(const char* operation) const;

  private:
    std::mutex formatterMutex_;
    DateFormatter searchDateFormatter_;
};

namespace vn {

// Reads "%Y-%m-%d %H:%M:%S %z" as local time: the zone offset is read but does not shift the
// result, which is what the history views expect of dates in this form.
std::optional<Value::Date> dateFromToolDateString(std::string_view text);

// A path as git prints it in listings, as its exact bytes: a name in double quotes is C-unquoted
// (octal escapes become bytes, \t \n \" \\ and the other C escapes their characters); any other
// text is the name as it stands.
std::string unquoteToolPath(std::string_view path);

}  // namespace vn
