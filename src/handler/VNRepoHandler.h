#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"
#include "base/TextEncoding.h"
#include "base/Value.h"
#include "handler/VNTask.h"

namespace vn {
class Regex;
struct Notification;
}  // namespace vn

class VNDiffFileModel;
class VNDiffModel;
class VNLogLabel;
class VNRepoDocument;
class VNRepoWindowController;
class VNTemplateDocument;

// The version-control system of a working copy.
using VNRepositoryType = uint32_t;
inline constexpr VNRepositoryType VNRepositoryTypeMercurial = 0;
inline constexpr VNRepositoryType VNRepositoryTypeGit = 1;
inline constexpr VNRepositoryType VNRepositoryTypeUnknown = 255;

// Every file-status bit except clean (1) and ignored (256): what a file list shows by default.
inline constexpr uint64_t VNFileStatusDefaultMask = 766;

using VNTaskList = std::vector<std::shared_ptr<VNTask>>;

// What a refresh of a working copy asks for: the summary record and the status records, read
// together.
struct VNWorkingCopyStatus {
    vn::Record summary;  // empty when the status could not be read
    std::vector<vn::Record> files;
};
using VNRegexList = std::vector<std::shared_ptr<const vn::Regex>>;

// Hears the output of the command that checks whether a path or URL is a repository, as it
// arrives, on the thread that runs the check.
class VNPathOrURLValidationDelegate {
  public:
    virtual ~VNPathOrURLValidationDelegate() = default;
    // `notification` is the task's "VNTaskOutputReceived" or "VNTaskErrorOutputReceived";
    // `newOutput()` / `newErrorOutput()` of the task give the text that came with it.
    virtual void validatePathOrURLOutputReceived(const vn::Notification& notification,
                                                 VNTask& task) = 0;
};

// One backend per version-control system. Handlers are shared and keep no per-repository state:
// every operation takes the working-copy path first (the few that do not work on one repository
// say so). The result tells the kind of operation: a name ending in "Task" prepares one task
// that the caller launches, "Tasks" an ordered list that the caller runs one after the other,
// stopping at the first failure; every other operation runs its commands on the calling thread
// and answers parsed values, empty (or nothing) when a command failed.
//
// Handlers are made with std::make_shared: tasks hold them weakly as their authentication
// delegate.
class VNRepoHandler : public vn::Object, public VNAuthenticationDelegate {
  public:
    ~VNRepoHandler() override = default;

    // ---- Identity and setup --------------------------------------------------------------
    // (Construction is the constructor of each backend.)
    virtual VNRepositoryType repositoryType() const = 0;
    virtual std::string repositoryTypeName() const = 0;
    virtual bool isDistributed() const = 0;
    virtual bool hasHashedChangesets() const = 0;
    virtual bool hasSequentialRevisions() const = 0;
    // The tool in use: "number" (version text), "standard" (the shipped tool is used),
    // "location" ("Internal" or the custom path), "exists".
    virtual vn::Record versionDetails() = 0;
    virtual bool hasCommitStaging() const = 0;
    virtual std::shared_ptr<VNRepoWindowController> newWindowControllerWithDoc(
        std::shared_ptr<VNRepoDocument> doc) = 0;
    // The words every command line of this backend starts with, ending with `command`.
    virtual std::vector<std::string> defaultArgsForPath(const std::string& path,
                                                        const std::string& command) = 0;
    virtual bool validateWorkingDirectory(const std::string& path) = 0;
    // Whether `pathOrURL` names a repository that can be reached; the delegate, when given,
    // hears the tool's output as it arrives.
    virtual bool validatePathOrURL(const std::string& pathOrURL,
                                   VNPathOrURLValidationDelegate* delegate) = 0;
    virtual bool checkConfigForRepo(const std::string& path, bool fixAndPrompt) = 0;
    // Writes the dates of history searches ("yyyy-MM-dd").
    using DateFormatter = std::function<std::string(const vn::Value::Date&)>;
    virtual DateFormatter searchDateFormatter() = 0;
    virtual void setSearchDateFormatter(DateFormatter formatter) = 0;
    // authenticationFailed(path, remote) comes from VNAuthenticationDelegate.

    // ---- Working-copy state ----------------------------------------------------------------
    // Status records ("status", "indexStatus", "treeStatus", "filename", "path",
    // "previousName") of the files whose status has a bit of `includeStatuses`.
    virtual std::vector<vn::Record> fileStatus(const std::string& path,
                                               uint64_t includeStatuses) = 0;
    // The same with VNFileStatusDefaultMask.
    virtual std::vector<vn::Record> fileStatus(const std::string& path) = 0;
    // The summary record ("isclean", "ismerge", ..., "branch").
    virtual vn::Record summary(const std::string& path) = 0;
    // The summary and the file list of one moment: what summary(path) and
    // fileStatus(path, includeStatuses) answer, from a single status run where the backend can.
    virtual VNWorkingCopyStatus fileStatusAndSummary(const std::string& path,
                                                     uint64_t includeStatuses) = 0;
    virtual bool isClean(const std::string& path) = 0;
    virtual bool isMergeOutstanding(const std::string& path) = 0;
    virtual bool isRebaseInProgress(const std::string& path) = 0;
    virtual std::string currentRevision(const std::string& path) = 0;
    virtual std::string latestRevision(const std::string& path) = 0;
    virtual uint64_t revisionCount(const std::string& path) = 0;
    virtual bool hasSubmodules(const std::string& path) = 0;
    // Submodule records ("local", "rev", "srcOriginal", "srcLocal", "branch").
    virtual std::vector<vn::Record> listSubmodules(const std::string& path) = 0;
    virtual std::vector<vn::Record> listSubmodulesWithUncommittedChanges(
        const std::string& path) = 0;
    virtual std::vector<vn::Record> listSubmodulesWithUnpushedChanges(const std::string& path) = 0;

    // ---- Diffs and patches -----------------------------------------------------------------
    // Working-copy changes against the base revision, parsed; null when the command failed.
    virtual std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                             const std::string& file,
                                                             int context) = 0;
    virtual std::shared_ptr<VNDiffModel> fileDiffAgainstBase(
        const std::string& path, const std::vector<std::string>& fileList, int context) = 0;
    // These drop the options and answer the forms above.
    virtual std::shared_ptr<VNDiffModel> fileDiffAgainstBase(const std::string& path,
                                                             const std::string& file,
                                                             uint64_t options, int context) = 0;
    virtual std::shared_ptr<VNDiffModel> fileDiffAgainstBase(
        const std::string& path, const std::vector<std::string>& fileList, uint64_t options,
        int context) = 0;
    virtual std::shared_ptr<VNTask> fileDiffAgainstBaseTask(
        const std::string& path, const std::vector<std::string>& fileList, uint64_t options,
        int context) = 0;
    virtual std::shared_ptr<VNTask> fileDiffAgainstBaseTask(
        const std::string& path, const std::vector<std::string>& fileList,
        const std::string& baseRevision, uint64_t options, int context) = 0;
    virtual std::shared_ptr<VNTask> revisionFileDiffTask(const std::string& path,
                                                         const std::string& revision,
                                                         const std::vector<std::string>& fileList,
                                                         uint64_t options, int context) = 0;
    virtual std::shared_ptr<VNTask> revisionRangeFileDiffTask(
        const std::string& path, const std::string& revisionFrom, const std::string& revisionTo,
        const std::vector<std::string>& fileList, uint64_t options, int context) = 0;
    virtual std::shared_ptr<VNTask> stashDiffTask(const std::string& path,
                                                  const std::string& name) = 0;
    virtual std::shared_ptr<VNTask> externalDiffTask(const std::string& path,
                                                     const std::string& filename,
                                                     uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> externalDiffTask(const std::string& path,
                                                     const std::string& filename,
                                                     const std::string& baseRevision,
                                                     uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> externalDiffTask(const std::string& path,
                                                     const std::string& filename,
                                                     const std::string& revision) = 0;
    virtual std::shared_ptr<VNTask> externalDiffTask(const std::string& path,
                                                     const std::string& filename,
                                                     const std::string& revisionFrom,
                                                     const std::string& revisionTo) = 0;
    virtual std::shared_ptr<VNTask> visualMergeTask(const std::string& path,
                                                    const std::string& filename) = 0;
    virtual std::shared_ptr<VNTask> createPatchTask(const std::string& path,
                                                    const std::vector<std::string>& files,
                                                    const std::string& saveToFile) = 0;
    virtual VNTaskList createPatchTasks(const std::string& path,
                                        const std::vector<std::string>& filesInIndex,
                                        const std::vector<std::string>& filesInTree,
                                        const std::string& saveToFile) = 0;
    virtual VNTaskList createPatchTasks(const std::string& path,
                                        const std::vector<std::string>& revisions,
                                        const std::string& saveToFile, bool filePerRevision) = 0;
    virtual std::shared_ptr<VNTask> applyPatchTask(const std::string& path,
                                                   const std::string& filename,
                                                   const std::string& basePath, uint32_t strip,
                                                   uint32_t patchMode, bool dryRun,
                                                   uint64_t options) = 0;
    // Applies the patch text to the working files; failures are reported by the handler.
    virtual bool applyPatchToWorkingFolder(const std::string& path, const std::string& patch,
                                           bool reverse, vn::TextEncoding encoding,
                                           uint64_t options) = 0;
    // Appends one entry per file section of the diff text to `dest`, stopping at a file section
    // that finds `maxFiles` entries there already; large-file pointers as this backend knows them.
    virtual void parseDiffToModel(std::string_view diff,
                                  std::vector<std::shared_ptr<VNDiffFileModel>>& dest,
                                  uint64_t maxFiles) const = 0;
    // The same for each piece of a several-revision diff between revision separators.
    virtual void parseDiffsToModel(std::string_view diffs,
                                   std::vector<std::shared_ptr<VNDiffFileModel>>& dest,
                                   uint64_t maxFiles) const = 0;
    // Lines at the start of each hunk examined for a large-file pointer.
    virtual uint64_t largeFilesDiffScanLimit() const = 0;
    // The large-file object id a hunk line holds, if any.
    virtual std::optional<std::string> extractLargeFileReferenceFromLine(
        const std::string& line) const = 0;
    // A file holding the real content of the large-file pointer `file`, if it can be had.
    virtual std::optional<std::string> dereferenceLargeFileContent(const std::string& path,
                                                                   const std::string& file) = 0;
    virtual bool exportLargeFileContent(const std::string& path, const std::string& fromRef,
                                        const std::string& toFile) = 0;

    // ---- History ---------------------------------------------------------------------------
    // Log rows ("rev", "changeset", ..., "descriptionentry"), newest first.
    virtual std::vector<vn::Record> logRevisions(const std::string& path,
                                                 const std::string& latestRevision, uint64_t skip,
                                                 uint64_t limit,
                                                 const std::optional<std::string>& branch,
                                                 uint64_t options) = 0;
    virtual std::vector<vn::Record> logRevisions(const std::string& path,
                                                 const std::vector<std::string>& fileFolderPaths,
                                                 uint64_t withLimit, bool followRenames) = 0;
    virtual std::vector<vn::Record> logRevisions(const std::string& path,
                                                 const std::vector<std::string>& fileFolderPaths,
                                                 const std::optional<std::string>& startRevision,
                                                 uint64_t withLimit,
                                                 const std::optional<std::string>& branch,
                                                 uint64_t options, bool followRenames) = 0;
    // One log row from one line of the backend's log format.
    virtual std::optional<vn::Record> parseLogLine(const std::string& line) = 0;
    virtual std::shared_ptr<VNTask> searchLogTask(const std::string& path,
                                                  const std::string& pattern, uint32_t mode,
                                                  const vn::Value::Date& from,
                                                  const vn::Value::Date& to) = 0;
    virtual vn::Record revisionDetails(const std::string& path, const std::string& revision) = 0;
    virtual std::vector<vn::Record> revisionFileChanges(const std::string& path,
                                                        const std::string& revision) = 0;
    virtual std::vector<vn::Record> revisionRangeFileChanges(const std::string& path,
                                                             const std::string& revisionFrom,
                                                             const std::string& revisionTo) = 0;
    virtual std::vector<vn::Record> mergeRevisionFileChanges(const std::string& path,
                                                             const std::string& revision,
                                                             const std::string& parent1,
                                                             const std::string& parent2) = 0;
    virtual std::vector<std::string> parentRevisions(const std::string& path,
                                                     const std::string& revision) = 0;
    virtual std::vector<vn::Record> parentRevisionsWithDetails(const std::string& path,
                                                               const std::string& revision) = 0;
    virtual vn::Record lastCommitDetails(const std::string& path) = 0;
    virtual bool revisionIsValid(const std::string& path, const std::string& revision) = 0;
    virtual std::optional<std::string> getCommitSHA(const std::string& path,
                                                    const std::string& forLabel) = 0;
    // Blame lines ("line", "rev", "changesetshort", "user", "linecontents").
    virtual std::vector<vn::Record> blame(const std::string& path, const std::string& file,
                                          const std::optional<std::string>& revision) = 0;
    virtual bool exportFileContentAtRevision(const std::string& path, const std::string& file,
                                             const std::string& revision,
                                             const std::string& destFile) = 0;
    virtual std::shared_ptr<VNTask> archiveTask(const std::string& path,
                                                const std::string& destination,
                                                const std::string& prefix,
                                                const std::optional<std::string>& revision) = 0;
    // The same without a revision (the working copy's parent).
    virtual std::shared_ptr<VNTask> archiveTask(const std::string& path,
                                                const std::string& destination,
                                                const std::string& prefix) = 0;

    // ---- References and remotes ------------------------------------------------------------
    virtual std::vector<std::string> branches(const std::string& path) = 0;
    virtual std::vector<std::string> branchesSortedByMostRecentFirst(const std::string& path) = 0;
    virtual std::vector<std::string> tags(const std::string& path) = 0;
    virtual std::vector<std::string> tagsSortedByMostRecentFirst(const std::string& path) = 0;
    virtual std::vector<std::shared_ptr<VNLogLabel>> allRevisionLabels(const std::string& path,
                                                                       uint64_t options) = 0;
    // Stash entries ("name", "msg"), newest first.
    virtual std::vector<vn::Record> listStashes(const std::string& path) = 0;
    virtual bool stashExists(const std::string& path, const std::string& name) = 0;
    // Remote name to URL.
    virtual vn::Record remoteRepositories(const std::string& path) = 0;
    // Remote records ("name", "path").
    virtual std::vector<vn::Record> remotePaths(const std::string& path) = 0;
    virtual bool setRemotePaths(const std::string& path,
                                const std::vector<vn::Record>& remotes) = 0;
    virtual bool removeRemote(const std::string& path, const std::string& name) = 0;
    // The URL of the remote called `alias`; the text as it stands when it names no remote.
    virtual std::string urlForAlias(const std::string& path, const std::string& alias) = 0;
    virtual bool isRemoteSvn(const std::string& path, const std::string& remote) = 0;
    virtual bool hasSvnInterop(const std::string& path) = 0;

    // ---- File changes and ignores ----------------------------------------------------------
    virtual VNTaskList addTasks(const std::string& path, const std::vector<std::string>& files) = 0;
    // Takes the files' staged changes back out of the index; the working files stay as they are.
    virtual VNTaskList unstageTasks(const std::string& path,
                                    const std::vector<std::string>& files) = 0;
    virtual VNTaskList addRemoveTasks(const std::string& path) = 0;
    virtual VNTaskList removeTasks(const std::string& path,
                                   const std::vector<std::string>& files) = 0;
    virtual VNTaskList stopTrackingTasks(const std::string& path,
                                         const std::vector<std::string>& files) = 0;
    virtual VNTaskList copyTasks(const std::string& path, const std::string& source,
                                 const std::string& destination) = 0;
    virtual VNTaskList moveTasks(const std::string& path, const std::string& source,
                                 const std::string& destination) = 0;
    virtual VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                                   uint64_t options, uint64_t submoduleOptions) = 0;
    virtual VNTaskList revertTasks(const std::string& path, const std::vector<std::string>& files,
                                   const std::string& revision, uint64_t options,
                                   uint64_t submoduleOptions) = 0;
    virtual bool markResolved(const std::string& path, const std::string& filename) = 0;
    virtual bool markUnresolved(const std::string& path, const std::string& filename) = 0;
    virtual bool resolveUsingMine(const std::string& path, const std::string& filename) = 0;
    virtual bool resolveUsingTheirs(const std::string& path, const std::string& filename) = 0;
    virtual bool restartMerge(const std::string& path, const std::string& filename) = 0;
    virtual bool addIgnore(const std::string& path, const std::string& pattern) = 0;
    virtual bool addIgnore(const std::string& path, const std::vector<std::string>& patterns) = 0;
    // Adds glob patterns to the ignore file `toFile` (not tied to one repository).
    virtual bool addIgnores(const std::vector<std::string>& patterns,
                            const std::string& toFile) = 0;
    virtual bool addGlobalIgnore(const std::string& pattern) = 0;
    virtual bool addGlobalIgnores(const std::vector<std::string>& patterns) = 0;
    virtual VNRegexList ignoreListRegexes(const std::string& path) = 0;
    virtual VNRegexList globalIgnoreListRegexes() = 0;
    virtual std::string repositoryIgnoreFilename(const std::string& path) = 0;

    // ---- Commands that change the repository -----------------------------------------------
    virtual std::shared_ptr<VNTask> pushTask(const std::string& path,
                                             const std::string& remote) = 0;
    virtual std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                             bool forcePush) = 0;
    virtual std::shared_ptr<VNTask> pushTaskRemoteName(const std::string& path,
                                                       const std::string& remoteName) = 0;
    virtual std::shared_ptr<VNTask> pushTask(const std::string& path, const std::string& remote,
                                             const std::optional<std::string>& branch,
                                             const std::optional<std::string>& revision,
                                             bool forcePush) = 0;
    // Counts of changes waiting at the remote (incoming) or here (outgoing); false when the
    // remote could not be asked.
    virtual bool incomingChanges(const std::string& path, const std::string& remote,
                                 uint64_t& incoming) = 0;
    virtual bool outgoingChanges(const std::string& path, const std::string& remote,
                                 uint64_t& outgoing) = 0;
    virtual bool incomingOutgoingChanges(const std::string& path, bool localOnly,
                                         uint64_t& incoming, uint64_t& outgoing,
                                         const std::optional<std::string>& branch) = 0;
    virtual std::string incomingText(const std::string& path, const std::string& remote) = 0;
    virtual std::vector<vn::Record> outgoingChangesetLog(const std::string& path,
                                                         const std::string& remote) = 0;
    // Clone options: "clonegetworkingcopy", "clonenohardlinks", "cloneVerbose", "clonedepth",
    // "clonebranch" and the backend's own keys.
    virtual std::shared_ptr<VNTask> cloneTaskForSource(const std::string& source,
                                                       const std::string& destination,
                                                       const vn::Record& options) = 0;
    virtual std::shared_ptr<VNTask> cloneSvnTaskForSource(const std::string& source,
                                                          int64_t fromRevision,
                                                          const std::string& destination,
                                                          const vn::Record& options) = 0;
    virtual std::shared_ptr<VNTask> createNewRepoTask(const std::string& path) = 0;
    virtual VNTaskList updateTasks(const std::string& path, bool clean,
                                   uint64_t submoduleUpdateOptions) = 0;
    virtual VNTaskList updateTasks(const std::string& path, const std::string& revision, bool clean,
                                   uint64_t submoduleUpdateOptions) = 0;
    virtual std::shared_ptr<VNTask> mergeTask(const std::string& path, const std::string& revision,
                                              uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> rebaseTask(const std::string& path,
                                               const std::string& destRevision) = 0;
    virtual std::shared_ptr<VNTask> rebaseAbortTask(const std::string& path) = 0;
    virtual std::shared_ptr<VNTask> rebaseContinueTask(const std::string& path) = 0;
    virtual std::shared_ptr<VNTask> transplantTask(const std::string& path,
                                                   const std::vector<std::string>& revisions,
                                                   bool commit, uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> backoutTask(const std::string& path,
                                                const std::string& revision) = 0;
    virtual std::shared_ptr<VNTask> resetBranchTask(const std::string& path) = 0;
    virtual std::shared_ptr<VNTask> branchTask(const std::string& path,
                                               const std::string& name) = 0;
    virtual VNTaskList branchTasks(const std::string& path, const std::string& name,
                                   const std::optional<std::string>& revision) = 0;
    // Tag options: "lightweight", "msg", "sign" and the backend's own keys.
    virtual VNTaskList tagTasks(const std::string& path, const std::string& withName,
                                bool replaceExisting, const std::string& gpgKey,
                                const vn::Record& options) = 0;
    virtual VNTaskList tagTasks(const std::string& path, const std::string& withName,
                                const std::optional<std::string>& revision, bool replaceExisting,
                                const std::string& gpgKey, const vn::Record& options) = 0;
    virtual std::shared_ptr<VNTask> removeTagTask(const std::string& path,
                                                  const std::string& withName) = 0;
    virtual std::shared_ptr<VNTask> createStashTask(const std::string& path,
                                                    const std::string& name,
                                                    const std::string& description,
                                                    uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> applyStashTask(const std::string& path, const std::string& name,
                                                   bool deleteAfter, uint64_t options) = 0;
    virtual bool deleteStash(const std::string& path, const std::string& name) = 0;
    virtual bool changeSubmoduleSource(const std::string& path, const std::string& localPath,
                                       const std::string& source, const std::string& subtype) = 0;
    virtual bool removeSubmodule(const std::string& path, const std::string& localPath) = 0;

    // ---- Flow (branching model) ------------------------------------------------------------
    virtual bool isFlowEnabled(const std::string& path) = 0;
    virtual std::shared_ptr<VNTask> flowInitTask(const std::string& path) = 0;
    virtual bool flowConfigure(const std::string& path, const std::string& productionBranch,
                               const std::string& developBranch, const std::string& featurePrefix,
                               const std::string& releasePrefix, const std::string& hotfixPrefix,
                               const std::string& versionTagPrefix) = 0;
    // "master", "develop", "feature", "release", "hotfix", "versiontag".
    virtual vn::Record flowPrefixes(const std::string& path) = 0;
    // The checked-out branch of the kind ("feature", "release", "hotfix"), if any.
    virtual std::optional<std::string> flowCurrentState(const std::string& path,
                                                        const std::string& ofType) = 0;
    virtual std::optional<std::string> flowCurrentFeatureName(const std::string& path) = 0;
    virtual std::optional<std::string> flowCurrentReleaseName(const std::string& path) = 0;
    virtual std::optional<std::string> flowCurrentHotfixName(const std::string& path) = 0;
    virtual std::vector<std::string> flowList(const std::string& path,
                                              const std::string& ofType) = 0;
    virtual std::vector<std::string> flowFeatureList(const std::string& path) = 0;
    virtual std::vector<std::string> flowReleaseList(const std::string& path) = 0;
    virtual std::vector<std::string> flowHotfixList(const std::string& path) = 0;
    virtual std::shared_ptr<VNTask> flowFeatureStartTask(
        const std::string& path, const std::string& name,
        const std::optional<std::string>& baseRevision, uint64_t options) = 0;
    virtual VNTaskList flowFeatureFinishTasks(const std::string& path, const std::string& name,
                                              uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> flowReleaseStartTask(
        const std::string& path, const std::string& name,
        const std::optional<std::string>& baseRevision) = 0;
    virtual VNTaskList flowReleaseFinishTasks(const std::string& path, const std::string& name,
                                              const std::string& message, uint64_t options) = 0;
    virtual std::shared_ptr<VNTask> flowHotfixStartTask(
        const std::string& path, const std::string& name,
        const std::optional<std::string>& baseRevision, uint64_t options) = 0;
    virtual VNTaskList flowHotfixFinishTasks(const std::string& path, const std::string& name,
                                             const std::string& message, uint64_t options) = 0;

    // ---- Identity, signing, templates ------------------------------------------------------
    // The user's global name and e-mail address; false when none is configured.
    virtual bool userInformation(std::string& username, std::string& email) = 0;
    virtual bool setUserInformation(const std::string& username, const std::string& email) = 0;
    virtual bool repositoryUserInformation(const std::string& path, std::string& username,
                                           std::string& email) = 0;
    virtual bool setRepositoryUserInformation(const std::string& path, const std::string& username,
                                              const std::string& email) = 0;
    // "Name <address>" as the next commit would record it.
    virtual std::string getDefaultAuthor(const std::string& path) = 0;
    // Secret-key records ("bits", "type", "key", "created", "expires", "uid"), one per user id.
    virtual std::vector<vn::Record> gpgKeyList(const std::string& path) = 0;
    virtual std::optional<std::string> commitMessageTemplateForDocument(
        const VNTemplateDocument& document) = 0;
    virtual std::optional<std::string> templateFileForDocument(
        const VNTemplateDocument& document) = 0;
    virtual std::optional<std::string> commitTemplateFilePathForDocument(
        const VNTemplateDocument& document) = 0;
    virtual std::optional<std::string> defaultCommitTemplateFilePathForDocument(
        const VNTemplateDocument& document) = 0;
    virtual bool resetCommitTemplateFromConfigForDocument(const VNTemplateDocument& document) = 0;
    virtual bool addCommitTemplatePath(const std::string& templatePath,
                                       const VNTemplateDocument& toConfigForDocument) = 0;
    virtual bool removeCommitTemplatePath(const std::string& templatePath,
                                          const VNTemplateDocument& fromConfigForDocument) = 0;
};
