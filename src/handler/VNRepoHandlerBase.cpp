#include "handler/VNRepoHandlerBase.h"

#include <cctype>
#include <charconv>
#include <ctime>

#include "base/Format.h"
#include "base/Regex.h"
#include "base/TextEncoding.h"
#include "handler/FailureCollector.h"
#include "handler/ToolPaths.h"
#include "handler/VNTemplateDocument.h"
#include "model/VNDiffParser.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/Localized.h"
#include "platform/Log.h"
#include "platform/MainLoop.h"
#include "platform/UserInterface.h"

namespace {

std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string_view line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::vector<std::string_view> splitFields(std::string_view line, char separator) {
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (true) {
        std::size_t end = line.find(separator, start);
        if (end == std::string_view::npos) {
            fields.push_back(line.substr(start));
            return fields;
        }
        fields.push_back(line.substr(start, end - start));
        start = end + 1;
    }
}

std::optional<int64_t> parseInteger(std::string_view text) {
    int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return value;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// GnuPG's colon listings write awkward bytes (the colon among them) as "\xHH".
std::string unescapeColonField(std::string_view field) {
    std::string result;
    result.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && field[i + 1] == 'x') {
            int high = hexDigit(field[i + 2]);
            int low = hexDigit(field[i + 3]);
            if (high >= 0 && low >= 0) {
                result.push_back(static_cast<char>(high * 16 + low));
                i += 3;
                continue;
            }
        }
        result.push_back(field[i]);
    }
    return result;
}

std::optional<vn::Value::Date> dateFromEpochField(std::string_view field) {
    auto seconds = parseInteger(field);
    if (!seconds) {
        return std::nullopt;
    }
    return vn::Value::Date(std::chrono::seconds(*seconds));
}

std::string yearMonthDay(const vn::Value::Date& date) {
    std::time_t time = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    ::localtime_r(&time, &local);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d", &local);
    return buffer;
}

// The parser with the handler's large-file hooks; a handler that looks at no lines gets none.
VNDiffParser diffParser(const VNRepoHandlerBase& handler) {
    uint64_t scanLimit = handler.largeFilesDiffScanLimit();
    if (scanLimit == 0) {
        return VNDiffParser();
    }
    return VNDiffParser(scanLimit, [&handler](const std::string& line) {
        return handler.extractLargeFileReferenceFromLine(line);
    });
}

}  // namespace

// ---- Shared machinery ----------------------------------------------------------------------

void VNRepoHandlerBase::determineSingleCommandFileRange(const std::vector<std::string>& files,
                                                        FileRange& range) {
    // Lengths are counted in bytes: the system's limit is on bytes, and a UTF-8 path never has
    // fewer bytes than characters, so the batch can only get safer.
    int64_t budget = static_cast<int64_t>(CommandLineBudget);
    std::size_t index = range.location;
    while (index < files.size()) {
        if (index - range.location >= MaxFilesPerCommand) {
            break;
        }
        int64_t length = static_cast<int64_t>(files[index].size());
        if (length > budget) {
            break;
        }
        budget -= length + 1;
        ++index;
    }
    range.length = index > range.location ? index - range.location : 0;
}

VNTaskList VNRepoHandlerBase::splitTaskIfRequired(const std::string& path,
                                                  const std::vector<std::string>& baseArgs,
                                                  const std::string& command,
                                                  const std::vector<std::string>& files) const {
    VNTaskList tasks;
    FileRange range;
    while (range.location < files.size()) {
        determineSingleCommandFileRange(files, range);
        if (range.length == 0) {
            // A path longer than the whole budget. Callers never pass one; should it happen,
            // it goes alone so that its run fails visibly instead of the split never ending.
            vn::Log::error(vn::format("File path of %lu bytes is longer than a command line may be",
                                      files[range.location].size()));
            range.length = 1;
        }
        std::vector<std::string> args = baseArgs;
        args.insert(args.end(), files.begin() + static_cast<std::ptrdiff_t>(range.location),
                    files.begin() + static_cast<std::ptrdiff_t>(range.location + range.length));
        tasks.push_back(VNTask::taskWithCommand(command, path, std::move(args)));
        range.location += range.length;
        range.length = 0;
    }
    return tasks;
}

std::vector<vn::Record> VNRepoHandlerBase::gpgKeyListBase(const std::string& path) const {
    std::string gpg = vn::ToolPaths::gpgPath();
    if (gpg.empty()) {
        return {};
    }
    std::string workingDir = path;
    if (!vn::fs::isDirectory(workingDir)) {
        workingDir = vn::fs::homeDirectory();
        if (!vn::fs::isDirectory(workingDir)) {
            workingDir = "/";
        }
    }
    auto task = VNTask::taskWithCommand(gpg, workingDir, {"--list-secret-keys", "--with-colons"});
    if (!task->run()) {
        vn::Log::warning(vn::format("'%@' failed with code %ld:'%@'", task->displayCommand(),
                                    task->exitCode(), task->errorOutput()));
        return {};
    }
    return parseGpgKeyList(task->output());
}

std::vector<vn::Record> VNRepoHandlerBase::parseGpgKeyList(std::string_view output) {
    std::vector<vn::Record> keys;
    std::optional<vn::Record> current;
    for (std::string_view line : splitLines(output)) {
        if (line.substr(0, 3) == "sec") {
            auto fields = splitFields(line, ':');
            if (fields.size() < 7) {
                current.reset();
                continue;
            }
            vn::Record key{{"bits", fields[2]}, {"type", fields[3]}, {"key", fields[4]}};
            if (auto created = dateFromEpochField(fields[5])) {
                key.set("created", *created);
            }
            if (!fields[6].empty()) {
                if (auto expires = dateFromEpochField(fields[6])) {
                    key.set("expires", *expires);
                }
            }
            current = std::move(key);
        } else if (line.substr(0, 3) == "uid" && current) {
            auto fields = splitFields(line, ':');
            // The user id is field 9. GnuPG 2.1 and later print further fields after it (the
            // last one a "0" for the key's origin), so the last non-empty field, which older
            // versions leave to the user id, is only the fallback.
            std::string_view uid;
            if (fields.size() > 9 && !fields[9].empty()) {
                uid = fields[9];
            } else {
                for (auto it = fields.rbegin(); it != fields.rend(); ++it) {
                    if (!it->empty()) {
                        uid = *it;
                        break;
                    }
                }
            }
            current->set("uid", unescapeColonField(uid));
            keys.push_back(*current);
        }
    }
    return keys;
}

std::optional<std::string> VNRepoHandlerBase::ignoreGlobToPattern(std::string_view glob) {
    if (glob.empty()) {
        return std::nullopt;
    }
    std::string pattern;
    for (char c : glob) {
        if (c == '.') {
            pattern += "\\.";
        } else {
            pattern.push_back(c);
        }
    }
    std::size_t position = 0;
    if (pattern.rfind("**", 0) == 0) {
        pattern.replace(0, 2, ".*");
        position = 2;
    } else if (pattern.rfind("*", 0) == 0) {
        pattern.replace(0, 1, ".*");
        position = 2;
    }
    while (true) {
        std::size_t star = pattern.find('*', position);
        std::size_t doubleStar = pattern.find("**", position);
        if (star == std::string::npos && doubleStar == std::string::npos) {
            break;
        }
        if (doubleStar != std::string::npos && doubleStar <= star) {
            pattern.replace(doubleStar, 2, ".*");
            position = doubleStar + 2;
        } else {
            pattern.replace(star, 1, "[^/]*");
            position = star + 5;
        }
    }
    return pattern;
}

std::shared_ptr<const vn::Regex> VNRepoHandlerBase::ignoreGlobToRegex(std::string_view glob) {
    auto pattern = ignoreGlobToPattern(glob);
    if (!pattern) {
        return nullptr;
    }
    auto regex = std::make_shared<const vn::Regex>(*pattern);
    if (!regex->isValid()) {
        vn::Log::warning(vn::format("Ignore pattern '%@' gives no valid expression: %@",
                                    std::string(glob), regex->errorText()));
        return nullptr;
    }
    return regex;
}

void VNRepoHandlerBase::reportTaskFailure(const std::string& command, int64_t exitCode,
                                          const std::string& errorOutput, bool displayToUser,
                                          int logContext) {
    // Tools repeat remote URLs in their errors, and a URL may carry a password.
    std::string message = vn::CredentialStore::redactURLPasswords(
        vn::format("'%@' failed with code %ld:'%@'", command, exitCode, errorOutput));
    vn::Log::error(message, logContext);
    vn::FailureCollector::report(command, exitCode,
                                 vn::CredentialStore::redactURLPasswords(errorOutput));
    if (!displayToUser) {
        return;
    }
    vn::Alert alert;
    alert.title = vn::localized("Error encountered");
    alert.message = message;
    alert.buttons = {vn::localized("OK")};
    vn::MainLoop* main = vn::MainLoop::main();
    if (main && !vn::MainLoop::isMainThread()) {
        main->post([alert] { vn::UserInterface::current()->showAlert(alert); });
    } else {
        vn::UserInterface::current()->showAlert(alert);
    }
}

void VNRepoHandlerBase::mustOverride(const char* operation) const {
    vn::Log::error(vn::format("%@ has no implementation in this repository handler", operation));
    vn::internalAssertion("should be overridden by subclasses!");
}

// ---- Operations with an answer in the base ---------------------------------------------------

bool VNRepoHandlerBase::hasCommitStaging() const {
    return false;
}

std::shared_ptr<VNRepoWindowController> VNRepoHandlerBase::newWindowControllerWithDoc(
    std::shared_ptr<VNRepoDocument> /*doc*/) {
    vn::internalAssertion("newWindowController should be overridden by subclasses!");
    return nullptr;
}

VNRepoHandler::DateFormatter VNRepoHandlerBase::searchDateFormatter() {
    std::lock_guard<std::mutex> lock(formatterMutex_);
    if (!searchDateFormatter_) {
        searchDateFormatter_ = yearMonthDay;
    }
    return searchDateFormatter_;
}

void VNRepoHandlerBase::setSearchDateFormatter(DateFormatter formatter) {
    std::lock_guard<std::mutex> lock(formatterMutex_);
    searchDateFormatter_ = std::move(formatter);
}

void VNRepoHandlerBase::authenticationFailed(const std::string& /*path*/,
                                             const std::string& /*remote*/) {
    mustOverride("authenticationFailed");
}

std::vector<vn::Record> VNRepoHandlerBase::fileStatus(const std::string& path) {
    return fileStatus(path, VNFileStatusDefaultMask);
}

std::shared_ptr<VNDiffModel> VNRepoHandlerBase::fileDiffAgainstBase(const std::string& path,
                                                                    const std::string& file,
                                                                    uint64_t /*options*/,
                                                                    int context) {
    return fileDiffAgainstBase(path, file, context);
}

std::shared_ptr<VNDiffModel> VNRepoHandlerBase::fileDiffAgainstBase(
    const std::string& path, const std::vector<std::string>& fileList, uint64_t /*options*/,
    int context) {
    return fileDiffAgainstBase(path, fileList, context);
}

std::shared_ptr<VNTask> VNRepoHandlerBase::archiveTask(const std::string& path,
                                                       const std::string& destination,
                                                       const std::string& prefix) {
    return archiveTask(path, destination, prefix, std::nullopt);
}

void VNRepoHandlerBase::parseDiffToModel(std::string_view diff,
                                         std::vector<std::shared_ptr<VNDiffFileModel>>& dest,
                                         uint64_t maxFiles) const {
    diffParser(*this).parseDiffToModel(diff, dest, maxFiles);
}

void VNRepoHandlerBase::parseDiffsToModel(std::string_view diffs,
                                          std::vector<std::shared_ptr<VNDiffFileModel>>& dest,
                                          uint64_t maxFiles) const {
    diffParser(*this).parseDiffsToModel(diffs, dest, maxFiles);
}

uint64_t VNRepoHandlerBase::largeFilesDiffScanLimit() const {
    return 0;
}

std::optional<std::string> VNRepoHandlerBase::extractLargeFileReferenceFromLine(
    const std::string& /*line*/) const {
    return std::nullopt;
}

std::optional<std::string> VNRepoHandlerBase::flowCurrentFeatureName(const std::string& path) {
    return flowCurrentState(path, "feature");
}

std::optional<std::string> VNRepoHandlerBase::flowCurrentReleaseName(const std::string& path) {
    return flowCurrentState(path, "release");
}

std::optional<std::string> VNRepoHandlerBase::flowCurrentHotfixName(const std::string& path) {
    return flowCurrentState(path, "hotfix");
}

std::vector<std::string> VNRepoHandlerBase::flowFeatureList(const std::string& path) {
    return flowList(path, "feature");
}

std::vector<std::string> VNRepoHandlerBase::flowReleaseList(const std::string& path) {
    return flowList(path, "release");
}

std::vector<std::string> VNRepoHandlerBase::flowHotfixList(const std::string& path) {
    return flowList(path, "hotfix");
}

std::vector<vn::Record> VNRepoHandlerBase::gpgKeyList(const std::string& path) {
    return gpgKeyListBase(path);
}

std::optional<std::string> VNRepoHandlerBase::commitMessageTemplateForDocument(
    const VNTemplateDocument& document) {
    if (document.isCommitTemplateIgnored()) {
        return std::nullopt;
    }
    auto file = templateFileForDocument(document);
    if (!file || file->empty()) {
        return std::nullopt;
    }
    std::string path = vn::fs::expandTilde(*file);
    if (!vn::fs::exists(path) || vn::fs::isDirectory(path)) {
        return std::nullopt;
    }
    auto bytes = vn::fs::readFile(path);
    if (!bytes) {
        return std::nullopt;
    }
    std::string_view text = *bytes;
    if (text.substr(0, 3) == "\xEF\xBB\xBF") {
        text.remove_prefix(3);
    }
    return vn::decodeWithFallbacks(text);
}

std::optional<std::string> VNRepoHandlerBase::templateFileForDocument(
    const VNTemplateDocument& /*document*/) {
    return std::nullopt;
}

std::optional<std::string> VNRepoHandlerBase::commitTemplateFilePathForDocument(
    const VNTemplateDocument& /*document*/) {
    return std::nullopt;
}

std::optional<std::string> VNRepoHandlerBase::defaultCommitTemplateFilePathForDocument(
    const VNTemplateDocument& /*document*/) {
    return std::nullopt;
}

bool VNRepoHandlerBase::resetCommitTemplateFromConfigForDocument(
    const VNTemplateDocument& /*document*/) {
    return false;
}

bool VNRepoHandlerBase::addCommitTemplatePath(const std::string& /*templatePath*/,
                                              const VNTemplateDocument& /*toConfigForDocument*/) {
    return false;
}

bool VNRepoHandlerBase::removeCommitTemplatePath(
    const std::string& /*templatePath*/, const VNTemplateDocument& /*fromConfigForDocument*/) {
    return false;
}

// ---- Operations each backend supplies ----------------------------------------------------------

VNRepositoryType VNRepoHandlerBase::repositoryType() const {
    mustOverride("repositoryType");
    return VNRepositoryTypeUnknown;
}

std::string VNRepoHandlerBase::repositoryTypeName() const {
    mustOverride("repositoryTypeName");
    return {};
}

bool VNRepoHandlerBase::isDistributed() const {
    mustOverride("isDistributed");
    return {};
}

bool VNRepoHandlerBase::hasHashedChangesets() const {
    mustOverride("hasHashedChangesets");
    return {};
}

bool VNRepoHandlerBase::hasSequentialRevisions() const {
    mustOverride("hasSequentialRevisions");
    return {};
}

vn::Record VNRepoHandlerBase::versionDetails() {
    mustOverride("versionDetails");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::defaultArgsForPath(const std::string& /*path*/,
                                                               const std::string& /*command*/) {
    mustOverride("defaultArgsForPath");
    return {};
}

bool VNRepoHandlerBase::validateWorkingDirectory(const std::string& /*path*/) {
    mustOverride("validateWorkingDirectory");
    return {};
}

bool VNRepoHandlerBase::validatePathOrURL(const std::string& /*pathOrURL*/,
                                          VNPathOrURLValidationDelegate* /*delegate*/) {
    mustOverride("validatePathOrURL");
    return {};
}

bool VNRepoHandlerBase::checkConfigForRepo(const std::string& /*path*/, bool /*fixAndPrompt*/) {
    mustOverride("checkConfigForRepo");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::fileStatus(const std::string& /*path*/,
                                                      uint64_t /*includeStatuses*/) {
    mustOverride("fileStatus");
    return {};
}

vn::Record VNRepoHandlerBase::summary(const std::string& /*path*/) {
    mustOverride("summary");
    return {};
}

VNWorkingCopyStatus VNRepoHandlerBase::fileStatusAndSummary(const std::string& path,
                                                            uint64_t includeStatuses) {
    VNWorkingCopyStatus result;
    result.summary = summary(path);
    if (!result.summary.empty()) {
        result.files = fileStatus(path, includeStatuses);
    }
    return result;
}

bool VNRepoHandlerBase::isClean(const std::string& /*path*/) {
    mustOverride("isClean");
    return {};
}

bool VNRepoHandlerBase::isMergeOutstanding(const std::string& /*path*/) {
    mustOverride("isMergeOutstanding");
    return {};
}

bool VNRepoHandlerBase::isRebaseInProgress(const std::string& /*path*/) {
    mustOverride("isRebaseInProgress");
    return {};
}

std::string VNRepoHandlerBase::currentRevision(const std::string& /*path*/) {
    mustOverride("currentRevision");
    return {};
}

std::string VNRepoHandlerBase::latestRevision(const std::string& /*path*/) {
    mustOverride("latestRevision");
    return {};
}

uint64_t VNRepoHandlerBase::revisionCount(const std::string& /*path*/) {
    mustOverride("revisionCount");
    return {};
}

bool VNRepoHandlerBase::hasSubmodules(const std::string& /*path*/) {
    mustOverride("hasSubmodules");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::listSubmodules(const std::string& /*path*/) {
    mustOverride("listSubmodules");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::listSubmodulesWithUncommittedChanges(
    const std::string& /*path*/) {
    mustOverride("listSubmodulesWithUncommittedChanges");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::listSubmodulesWithUnpushedChanges(
    const std::string& /*path*/) {
    mustOverride("listSubmodulesWithUnpushedChanges");
    return {};
}

std::shared_ptr<VNDiffModel> VNRepoHandlerBase::fileDiffAgainstBase(const std::string& /*path*/,
                                                                    const std::string& /*file*/,
                                                                    int /*context*/) {
    mustOverride("fileDiffAgainstBase");
    return {};
}

std::shared_ptr<VNDiffModel> VNRepoHandlerBase::fileDiffAgainstBase(
    const std::string& /*path*/, const std::vector<std::string>& /*fileList*/, int /*context*/) {
    mustOverride("fileDiffAgainstBase");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::fileDiffAgainstBaseTask(
    const std::string& /*path*/, const std::vector<std::string>& /*fileList*/, uint64_t /*options*/,
    int /*context*/) {
    mustOverride("fileDiffAgainstBaseTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::fileDiffAgainstBaseTask(
    const std::string& /*path*/, const std::vector<std::string>& /*fileList*/,
    const std::string& /*baseRevision*/, uint64_t /*options*/, int /*context*/) {
    mustOverride("fileDiffAgainstBaseTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::revisionFileDiffTask(
    const std::string& /*path*/, const std::string& /*revision*/,
    const std::vector<std::string>& /*fileList*/, uint64_t /*options*/, int /*context*/) {
    mustOverride("revisionFileDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::revisionRangeFileDiffTask(
    const std::string& /*path*/, const std::string& /*revisionFrom*/,
    const std::string& /*revisionTo*/, const std::vector<std::string>& /*fileList*/,
    uint64_t /*options*/, int /*context*/) {
    mustOverride("revisionRangeFileDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::stashDiffTask(const std::string& /*path*/,
                                                         const std::string& /*name*/) {
    mustOverride("stashDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::externalDiffTask(const std::string& /*path*/,
                                                            const std::string& /*filename*/,
                                                            uint64_t /*options*/) {
    mustOverride("externalDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::externalDiffTask(const std::string& /*path*/,
                                                            const std::string& /*filename*/,
                                                            const std::string& /*baseRevision*/,
                                                            uint64_t /*options*/) {
    mustOverride("externalDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::externalDiffTask(const std::string& /*path*/,
                                                            const std::string& /*filename*/,
                                                            const std::string& /*revision*/) {
    mustOverride("externalDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::externalDiffTask(const std::string& /*path*/,
                                                            const std::string& /*filename*/,
                                                            const std::string& /*revisionFrom*/,
                                                            const std::string& /*revisionTo*/) {
    mustOverride("externalDiffTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::visualMergeTask(const std::string& /*path*/,
                                                           const std::string& /*filename*/) {
    mustOverride("visualMergeTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::createPatchTask(
    const std::string& /*path*/, const std::vector<std::string>& /*files*/,
    const std::string& /*saveToFile*/) {
    mustOverride("createPatchTask");
    return {};
}

VNTaskList VNRepoHandlerBase::createPatchTasks(const std::string& /*path*/,
                                               const std::vector<std::string>& /*filesInIndex*/,
                                               const std::vector<std::string>& /*filesInTree*/,
                                               const std::string& /*saveToFile*/) {
    mustOverride("createPatchTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::createPatchTasks(const std::string& /*path*/,
                                               const std::vector<std::string>& /*revisions*/,
                                               const std::string& /*saveToFile*/,
                                               bool /*filePerRevision*/) {
    mustOverride("createPatchTasks");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::applyPatchTask(
    const std::string& /*path*/, const std::string& /*filename*/, const std::string& /*basePath*/,
    uint32_t /*strip*/, uint32_t /*patchMode*/, bool /*dryRun*/, uint64_t /*options*/) {
    mustOverride("applyPatchTask");
    return {};
}

std::optional<std::string> VNRepoHandlerBase::dereferenceLargeFileContent(
    const std::string& /*path*/, const std::string& /*file*/) {
    mustOverride("dereferenceLargeFileContent");
    return {};
}

bool VNRepoHandlerBase::exportLargeFileContent(const std::string& /*path*/,
                                               const std::string& /*fromRef*/,
                                               const std::string& /*toFile*/) {
    mustOverride("exportLargeFileContent");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::logRevisions(
    const std::string& /*path*/, const std::string& /*latestRevision*/, uint64_t /*skip*/,
    uint64_t /*limit*/, const std::optional<std::string>& /*branch*/, uint64_t /*options*/) {
    mustOverride("logRevisions");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::logRevisions(
    const std::string& /*path*/, const std::vector<std::string>& /*fileFolderPaths*/,
    uint64_t /*withLimit*/, bool /*followRenames*/) {
    mustOverride("logRevisions");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::logRevisions(
    const std::string& /*path*/, const std::vector<std::string>& /*fileFolderPaths*/,
    const std::optional<std::string>& /*startRevision*/, uint64_t /*withLimit*/,
    const std::optional<std::string>& /*branch*/, uint64_t /*options*/, bool /*followRenames*/) {
    mustOverride("logRevisions");
    return {};
}

std::optional<vn::Record> VNRepoHandlerBase::parseLogLine(const std::string& /*line*/) {
    mustOverride("parseLogLine");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::searchLogTask(const std::string& /*path*/,
                                                         const std::string& /*pattern*/,
                                                         uint32_t /*mode*/,
                                                         const vn::Value::Date& /*from*/,
                                                         const vn::Value::Date& /*to*/) {
    mustOverride("searchLogTask");
    return {};
}

vn::Record VNRepoHandlerBase::revisionDetails(const std::string& /*path*/,
                                              const std::string& /*revision*/) {
    mustOverride("revisionDetails");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::revisionFileChanges(const std::string& /*path*/,
                                                               const std::string& /*revision*/) {
    mustOverride("revisionFileChanges");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::revisionRangeFileChanges(
    const std::string& /*path*/, const std::string& /*revisionFrom*/,
    const std::string& /*revisionTo*/) {
    mustOverride("revisionRangeFileChanges");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::mergeRevisionFileChanges(
    const std::string& /*path*/, const std::string& /*revision*/, const std::string& /*parent1*/,
    const std::string& /*parent2*/) {
    mustOverride("mergeRevisionFileChanges");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::parentRevisions(const std::string& /*path*/,
                                                            const std::string& /*revision*/) {
    mustOverride("parentRevisions");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::parentRevisionsWithDetails(
    const std::string& /*path*/, const std::string& /*revision*/) {
    mustOverride("parentRevisionsWithDetails");
    return {};
}

vn::Record VNRepoHandlerBase::lastCommitDetails(const std::string& /*path*/) {
    mustOverride("lastCommitDetails");
    return {};
}

bool VNRepoHandlerBase::revisionIsValid(const std::string& /*path*/,
                                        const std::string& /*revision*/) {
    mustOverride("revisionIsValid");
    return {};
}

std::optional<std::string> VNRepoHandlerBase::getCommitSHA(const std::string& /*path*/,
                                                           const std::string& /*forLabel*/) {
    mustOverride("getCommitSHA");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::blame(const std::string& /*path*/,
                                                 const std::string& /*file*/,
                                                 const std::optional<std::string>& /*revision*/) {
    mustOverride("blame");
    return {};
}

bool VNRepoHandlerBase::exportFileContentAtRevision(const std::string& /*path*/,
                                                    const std::string& /*file*/,
                                                    const std::string& /*revision*/,
                                                    const std::string& /*destFile*/) {
    mustOverride("exportFileContentAtRevision");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::archiveTask(
    const std::string& /*path*/, const std::string& /*destination*/, const std::string& /*prefix*/,
    const std::optional<std::string>& /*revision*/) {
    mustOverride("archiveTask");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::branches(const std::string& /*path*/) {
    mustOverride("branches");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::branchesSortedByMostRecentFirst(
    const std::string& /*path*/) {
    mustOverride("branchesSortedByMostRecentFirst");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::tags(const std::string& /*path*/) {
    mustOverride("tags");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::tagsSortedByMostRecentFirst(
    const std::string& /*path*/) {
    mustOverride("tagsSortedByMostRecentFirst");
    return {};
}

std::vector<std::shared_ptr<VNLogLabel>> VNRepoHandlerBase::allRevisionLabels(
    const std::string& /*path*/, uint64_t /*options*/) {
    mustOverride("allRevisionLabels");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::listStashes(const std::string& /*path*/) {
    mustOverride("listStashes");
    return {};
}

bool VNRepoHandlerBase::stashExists(const std::string& /*path*/, const std::string& /*name*/) {
    mustOverride("stashExists");
    return {};
}

vn::Record VNRepoHandlerBase::remoteRepositories(const std::string& /*path*/) {
    mustOverride("remoteRepositories");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::remotePaths(const std::string& /*path*/) {
    mustOverride("remotePaths");
    return {};
}

bool VNRepoHandlerBase::setRemotePaths(const std::string& /*path*/,
                                       const std::vector<vn::Record>& /*remotes*/) {
    mustOverride("setRemotePaths");
    return {};
}

bool VNRepoHandlerBase::removeRemote(const std::string& /*path*/, const std::string& /*name*/) {
    mustOverride("removeRemote");
    return {};
}

std::string VNRepoHandlerBase::urlForAlias(const std::string& /*path*/,
                                           const std::string& /*alias*/) {
    mustOverride("urlForAlias");
    return {};
}

bool VNRepoHandlerBase::isRemoteSvn(const std::string& /*path*/, const std::string& /*remote*/) {
    mustOverride("isRemoteSvn");
    return {};
}

bool VNRepoHandlerBase::hasSvnInterop(const std::string& /*path*/) {
    mustOverride("hasSvnInterop");
    return {};
}

VNTaskList VNRepoHandlerBase::addTasks(const std::string& /*path*/,
                                       const std::vector<std::string>& /*files*/) {
    mustOverride("addTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::unstageTasks(const std::string& /*path*/,
                                           const std::vector<std::string>& /*files*/) {
    mustOverride("unstageTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::addRemoveTasks(const std::string& /*path*/) {
    mustOverride("addRemoveTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::removeTasks(const std::string& /*path*/,
                                          const std::vector<std::string>& /*files*/) {
    mustOverride("removeTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::stopTrackingTasks(const std::string& /*path*/,
                                                const std::vector<std::string>& /*files*/) {
    mustOverride("stopTrackingTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::copyTasks(const std::string& /*path*/, const std::string& /*source*/,
                                        const std::string& /*destination*/) {
    mustOverride("copyTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::moveTasks(const std::string& /*path*/, const std::string& /*source*/,
                                        const std::string& /*destination*/) {
    mustOverride("moveTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::revertTasks(const std::string& /*path*/,
                                          const std::vector<std::string>& /*files*/,
                                          uint64_t /*options*/, uint64_t /*submoduleOptions*/) {
    mustOverride("revertTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::revertTasks(const std::string& /*path*/,
                                          const std::vector<std::string>& /*files*/,
                                          const std::string& /*revision*/, uint64_t /*options*/,
                                          uint64_t /*submoduleOptions*/) {
    mustOverride("revertTasks");
    return {};
}

bool VNRepoHandlerBase::markResolved(const std::string& /*path*/, const std::string& /*filename*/) {
    mustOverride("markResolved");
    return {};
}

bool VNRepoHandlerBase::markUnresolved(const std::string& /*path*/,
                                       const std::string& /*filename*/) {
    mustOverride("markUnresolved");
    return {};
}

bool VNRepoHandlerBase::resolveUsingMine(const std::string& /*path*/,
                                         const std::string& /*filename*/) {
    mustOverride("resolveUsingMine");
    return {};
}

bool VNRepoHandlerBase::resolveUsingTheirs(const std::string& /*path*/,
                                           const std::string& /*filename*/) {
    mustOverride("resolveUsingTheirs");
    return {};
}

bool VNRepoHandlerBase::restartMerge(const std::string& /*path*/, const std::string& /*filename*/) {
    mustOverride("restartMerge");
    return {};
}

bool VNRepoHandlerBase::addIgnore(const std::string& /*path*/, const std::string& /*pattern*/) {
    mustOverride("addIgnore");
    return {};
}

bool VNRepoHandlerBase::addIgnore(const std::string& /*path*/,
                                  const std::vector<std::string>& /*patterns*/) {
    mustOverride("addIgnore");
    return {};
}

bool VNRepoHandlerBase::addIgnores(const std::vector<std::string>& /*patterns*/,
                                   const std::string& /*toFile*/) {
    mustOverride("addIgnores");
    return {};
}

bool VNRepoHandlerBase::addGlobalIgnore(const std::string& /*pattern*/) {
    mustOverride("addGlobalIgnore");
    return {};
}

bool VNRepoHandlerBase::addGlobalIgnores(const std::vector<std::string>& /*patterns*/) {
    mustOverride("addGlobalIgnores");
    return {};
}

VNRegexList VNRepoHandlerBase::ignoreListRegexes(const std::string& /*path*/) {
    mustOverride("ignoreListRegexes");
    return {};
}

VNRegexList VNRepoHandlerBase::globalIgnoreListRegexes() {
    mustOverride("globalIgnoreListRegexes");
    return {};
}

std::string VNRepoHandlerBase::repositoryIgnoreFilename(const std::string& /*path*/) {
    mustOverride("repositoryIgnoreFilename");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::pushTask(const std::string& /*path*/,
                                                    const std::string& /*remote*/) {
    mustOverride("pushTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::pushTask(const std::string& /*path*/,
                                                    const std::string& /*remote*/,
                                                    bool /*forcePush*/) {
    mustOverride("pushTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::pushTaskRemoteName(const std::string& /*path*/,
                                                              const std::string& /*remoteName*/) {
    mustOverride("pushTaskRemoteName");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::pushTask(const std::string& /*path*/,
                                                    const std::string& /*remote*/,
                                                    const std::optional<std::string>& /*branch*/,
                                                    const std::optional<std::string>& /*revision*/,
                                                    bool /*forcePush*/) {
    mustOverride("pushTask");
    return {};
}

bool VNRepoHandlerBase::incomingChanges(const std::string& /*path*/, const std::string& /*remote*/,
                                        uint64_t& /*incoming*/) {
    mustOverride("incomingChanges");
    return {};
}

bool VNRepoHandlerBase::outgoingChanges(const std::string& /*path*/, const std::string& /*remote*/,
                                        uint64_t& /*outgoing*/) {
    mustOverride("outgoingChanges");
    return {};
}

bool VNRepoHandlerBase::incomingOutgoingChanges(const std::string& /*path*/, bool /*localOnly*/,
                                                uint64_t& /*incoming*/, uint64_t& /*outgoing*/,
                                                const std::optional<std::string>& /*branch*/) {
    mustOverride("incomingOutgoingChanges");
    return {};
}

std::string VNRepoHandlerBase::incomingText(const std::string& /*path*/,
                                            const std::string& /*remote*/) {
    mustOverride("incomingText");
    return {};
}

std::vector<vn::Record> VNRepoHandlerBase::outgoingChangesetLog(const std::string& /*path*/,
                                                                const std::string& /*remote*/) {
    mustOverride("outgoingChangesetLog");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::cloneTaskForSource(const std::string& /*source*/,
                                                              const std::string& /*destination*/,
                                                              const vn::Record& /*options*/) {
    mustOverride("cloneTaskForSource");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::cloneSvnTaskForSource(const std::string& /*source*/,
                                                                 int64_t /*fromRevision*/,
                                                                 const std::string& /*destination*/,
                                                                 const vn::Record& /*options*/) {
    mustOverride("cloneSvnTaskForSource");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::createNewRepoTask(const std::string& /*path*/) {
    mustOverride("createNewRepoTask");
    return {};
}

VNTaskList VNRepoHandlerBase::updateTasks(const std::string& /*path*/, bool /*clean*/,
                                          uint64_t /*submoduleUpdateOptions*/) {
    mustOverride("updateTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::updateTasks(const std::string& /*path*/,
                                          const std::string& /*revision*/, bool /*clean*/,
                                          uint64_t /*submoduleUpdateOptions*/) {
    mustOverride("updateTasks");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::mergeTask(const std::string& /*path*/,
                                                     const std::string& /*revision*/,
                                                     uint64_t /*options*/) {
    mustOverride("mergeTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::rebaseTask(const std::string& /*path*/,
                                                      const std::string& /*destRevision*/) {
    mustOverride("rebaseTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::rebaseAbortTask(const std::string& /*path*/) {
    mustOverride("rebaseAbortTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::rebaseContinueTask(const std::string& /*path*/) {
    mustOverride("rebaseContinueTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::transplantTask(
    const std::string& /*path*/, const std::vector<std::string>& /*revisions*/, bool /*commit*/,
    uint64_t /*options*/) {
    mustOverride("transplantTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::backoutTask(const std::string& /*path*/,
                                                       const std::string& /*revision*/) {
    mustOverride("backoutTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::resetBranchTask(const std::string& /*path*/) {
    mustOverride("resetBranchTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::branchTask(const std::string& /*path*/,
                                                      const std::string& /*name*/) {
    mustOverride("branchTask");
    return {};
}

VNTaskList VNRepoHandlerBase::branchTasks(const std::string& /*path*/, const std::string& /*name*/,
                                          const std::optional<std::string>& /*revision*/) {
    mustOverride("branchTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::tagTasks(const std::string& /*path*/, const std::string& /*withName*/,
                                       bool /*replaceExisting*/, const std::string& /*gpgKey*/,
                                       const vn::Record& /*options*/) {
    mustOverride("tagTasks");
    return {};
}

VNTaskList VNRepoHandlerBase::tagTasks(const std::string& /*path*/, const std::string& /*withName*/,
                                       const std::optional<std::string>& /*revision*/,
                                       bool /*replaceExisting*/, const std::string& /*gpgKey*/,
                                       const vn::Record& /*options*/) {
    mustOverride("tagTasks");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::removeTagTask(const std::string& /*path*/,
                                                         const std::string& /*withName*/) {
    mustOverride("removeTagTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::createStashTask(const std::string& /*path*/,
                                                           const std::string& /*name*/,
                                                           const std::string& /*description*/,
                                                           uint64_t /*options*/) {
    mustOverride("createStashTask");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::applyStashTask(const std::string& /*path*/,
                                                          const std::string& /*name*/,
                                                          bool /*deleteAfter*/,
                                                          uint64_t /*options*/) {
    mustOverride("applyStashTask");
    return {};
}

bool VNRepoHandlerBase::deleteStash(const std::string& /*path*/, const std::string& /*name*/) {
    mustOverride("deleteStash");
    return {};
}

bool VNRepoHandlerBase::changeSubmoduleSource(const std::string& /*path*/,
                                              const std::string& /*localPath*/,
                                              const std::string& /*source*/,
                                              const std::string& /*subtype*/) {
    mustOverride("changeSubmoduleSource");
    return {};
}

bool VNRepoHandlerBase::removeSubmodule(const std::string& /*path*/,
                                        const std::string& /*localPath*/) {
    mustOverride("removeSubmodule");
    return {};
}

bool VNRepoHandlerBase::isFlowEnabled(const std::string& /*path*/) {
    mustOverride("isFlowEnabled");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::flowInitTask(const std::string& /*path*/) {
    mustOverride("flowInitTask");
    return {};
}

bool VNRepoHandlerBase::flowConfigure(const std::string& /*path*/,
                                      const std::string& /*productionBranch*/,
                                      const std::string& /*developBranch*/,
                                      const std::string& /*featurePrefix*/,
                                      const std::string& /*releasePrefix*/,
                                      const std::string& /*hotfixPrefix*/,
                                      const std::string& /*versionTagPrefix*/) {
    mustOverride("flowConfigure");
    return {};
}

vn::Record VNRepoHandlerBase::flowPrefixes(const std::string& /*path*/) {
    mustOverride("flowPrefixes");
    return {};
}

std::optional<std::string> VNRepoHandlerBase::flowCurrentState(const std::string& /*path*/,
                                                               const std::string& /*ofType*/) {
    mustOverride("flowCurrentState");
    return {};
}

std::vector<std::string> VNRepoHandlerBase::flowList(const std::string& /*path*/,
                                                     const std::string& /*ofType*/) {
    mustOverride("flowList");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::flowFeatureStartTask(
    const std::string& /*path*/, const std::string& /*name*/,
    const std::optional<std::string>& /*baseRevision*/, uint64_t /*options*/) {
    mustOverride("flowFeatureStartTask");
    return {};
}

VNTaskList VNRepoHandlerBase::flowFeatureFinishTasks(const std::string& /*path*/,
                                                     const std::string& /*name*/,
                                                     uint64_t /*options*/) {
    mustOverride("flowFeatureFinishTasks");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::flowReleaseStartTask(
    const std::string& /*path*/, const std::string& /*name*/,
    const std::optional<std::string>& /*baseRevision*/) {
    mustOverride("flowReleaseStartTask");
    return {};
}

VNTaskList VNRepoHandlerBase::flowReleaseFinishTasks(const std::string& /*path*/,
                                                     const std::string& /*name*/,
                                                     const std::string& /*message*/,
                                                     uint64_t /*options*/) {
    mustOverride("flowReleaseFinishTasks");
    return {};
}

std::shared_ptr<VNTask> VNRepoHandlerBase::flowHotfixStartTask(
    const std::string& /*path*/, const std::string& /*name*/,
    const std::optional<std::string>& /*baseRevision*/, uint64_t /*options*/) {
    mustOverride("flowHotfixStartTask");
    return {};
}

VNTaskList VNRepoHandlerBase::flowHotfixFinishTasks(const std::string& /*path*/,
                                                    const std::string& /*name*/,
                                                    const std::string& /*message*/,
                                                    uint64_t /*options*/) {
    mustOverride("flowHotfixFinishTasks");
    return {};
}

bool VNRepoHandlerBase::userInformation(std::string& /*username*/, std::string& /*email*/) {
    mustOverride("userInformation");
    return {};
}

bool VNRepoHandlerBase::setUserInformation(const std::string& /*username*/,
                                           const std::string& /*email*/) {
    mustOverride("setUserInformation");
    return {};
}

bool VNRepoHandlerBase::repositoryUserInformation(const std::string& /*path*/,
                                                  std::string& /*username*/,
                                                  std::string& /*email*/) {
    mustOverride("repositoryUserInformation");
    return {};
}

bool VNRepoHandlerBase::setRepositoryUserInformation(const std::string& /*path*/,
                                                     const std::string& /*username*/,
                                                     const std::string& /*email*/) {
    mustOverride("setRepositoryUserInformation");
    return {};
}

std::string VNRepoHandlerBase::getDefaultAuthor(const std::string& /*path*/) {
    mustOverride("getDefaultAuthor");
    return {};
}

// ---- Helpers for tool output
// ---------------------------------------------------------------------

namespace vn {

namespace {

bool readDigits(std::string_view text, std::size_t at, std::size_t count, int& value) {
    if (at + count > text.size()) {
        return false;
    }
    value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

// "+0100", "-05:30", "+01", "Z": read to check the form, then ignored.
bool isZoneOffset(std::string_view zone) {
    if (zone == "Z") {
        return true;
    }
    if (zone.size() < 3 || (zone[0] != '+' && zone[0] != '-')) {
        return false;
    }
    int hours = 0;
    int minutes = 0;
    if (!readDigits(zone, 1, 2, hours)) {
        return false;
    }
    std::string_view rest = zone.substr(3);
    if (rest.empty()) {
        return true;
    }
    if (rest[0] == ':') {
        rest.remove_prefix(1);
    }
    return rest.size() == 2 && readDigits(rest, 0, 2, minutes) && minutes < 60;
}

}  // namespace

std::optional<Value::Date> dateFromToolDateString(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (text.size() < 19 || !readDigits(text, 0, 4, year) || text[4] != '-' ||
        !readDigits(text, 5, 2, month) || text[7] != '-' || !readDigits(text, 8, 2, day) ||
        text[10] != ' ' || !readDigits(text, 11, 2, hour) || text[13] != ':' ||
        !readDigits(text, 14, 2, minute) || text[16] != ':' || !readDigits(text, 17, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    std::string_view zone = text.substr(19);
    if (!zone.empty()) {
        if (zone.front() != ' ') {
            return std::nullopt;
        }
        while (!zone.empty() && zone.front() == ' ') {
            zone.remove_prefix(1);
        }
        if (!isZoneOffset(zone)) {
            return std::nullopt;
        }
    }
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = -1;
    // mktime answers -1 both for failure and for one valid second; it sets the weekday only
    // when it succeeds.
    fields.tm_wday = -1;
    std::time_t time = std::mktime(&fields);
    if (fields.tm_wday < 0) {
        return std::nullopt;
    }
    return std::chrono::system_clock::from_time_t(time);
}

std::string unquoteToolPath(std::string_view path) {
    if (path.size() >= 3 && path.front() == '"' && path.back() == '"') {
        std::size_t consumed = 0;
        if (auto bytes = readCQuoted(path, &consumed); bytes && consumed == path.size()) {
            return std::move(*bytes);
        }
    }
    // Git quotes every name that holds a quote, a backslash or a control character, so an
    // unquoted name has no escapes to undo: a backslash in it is part of the name.
    return std::string(path);
}

}  // namespace vn

void VNRepoHandlerBase::addGraphInfoToLogRevisions(std::vector<vn::Record>& rows) {
    vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
}

void VNRepoHandlerBase::addGraphInfoToLogRevisions(std::vector<vn::Record>& rows,
                                                   std::shared_ptr<const VNLogGraphEntry> baseState,
                                                   bool firstParent) {
    vn::graph::addGraphInfoToLogRevisions(rows, std::move(baseState), firstParent);
}

const VNLogGraphEntryLine* VNRepoHandlerBase::findCommonContextLine(
    const std::string& context, const VNLogGraphEntry::Lines& lines) {
    return vn::graph::findCommonContextLine(context, lines);
}

VNLogGraphColour VNRepoHandlerBase::newLogGraphColourNotIn(
    const VNLogGraphEntry& entry, const VNLogGraphEntry* previous,
    const VNLogGraphEntry::Lines& pendingMerges) {
    return vn::graph::newLogGraphColourNotIn(entry, previous, pendingMerges);
}

bool VNRepoHandlerBase::isColourInLogGraphEntry(const VNLogGraphColour& colour,
                                                const VNLogGraphEntry* entry) {
    return vn::graph::isColourInLogGraphEntry(colour, entry);
}

bool VNRepoHandlerBase::isColourInLogGraphLines(const VNLogGraphColour& colour,
                                                const VNLogGraphEntry::Lines* lines) {
    return vn::graph::isColourInLogGraphLines(colour, lines);
}

bool VNRepoHandlerBase::hueBrightnessSimilarToColour(const VNLogGraphColour& colour, double hue,
                                                     double brightness) {
    return colour.hueBrightnessSimilarTo(hue, brightness);
}
