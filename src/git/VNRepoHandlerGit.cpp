#include "git/VNRepoHandlerGit.h"

#include <cctype>
#include <cstdlib>

#include "base/Format.h"
#include "handler/GitSettings.h"
#include "handler/ToolPaths.h"
#include "handler/ToolVersions.h"
#include "handler/VNRepoWindowController.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"

namespace {

std::string trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

std::string firstLine(std::string_view text) {
    return trimmed(text.substr(0, text.find('\n')));
}

bool usingShippedGit() {
    return vn::Preferences::standard().integerForKey("gitWhichOne") == 0;
}

// The system's temporary folder, or the home folder when there is none.
std::string temporaryFolder() {
    const char* tmp = std::getenv("TMPDIR");
    if (tmp && *tmp && vn::fs::isDirectory(tmp)) {
        return tmp;
    }
    if (vn::fs::isDirectory("/tmp")) {
        return "/tmp";
    }
    return vn::fs::homeDirectory();
}

// A folder to run questions that concern no repository in: the home folder, else the temporary
// one, else the root.
std::string neutralFolder() {
    std::string home = vn::fs::homeDirectory();
    if (vn::fs::isDirectory(home)) {
        return home;
    }
    std::string temporary = temporaryFolder();
    return vn::fs::isDirectory(temporary) ? temporary : "/";
}

// The leading digits of a version part, as a number; 0 when there are none.
int leadingNumber(std::string_view part) {
    int value = 0;
    for (char c : part) {
        if (!std::isdigit(static_cast<unsigned char>(c))) {
            break;
        }
        value = value * 10 + (c - '0');
    }
    return value;
}

}  // namespace

// ---- Tools -------------------------------------------------------------------------------------

std::string VNRepoHandlerGit::gitPath() const {
    return vn::ToolPaths::gitPath();
}

std::string VNRepoHandlerGit::gitFlowPath() const {
    return vn::ToolPaths::gitFlowPath();
}

std::string VNRepoHandlerGit::gitLfsPath() const {
    return vn::ToolPaths::gitLfsPath();
}

// ---- Identity and setup ------------------------------------------------------------------------

std::string VNRepoHandlerGit::detectedVersionNumber() {
    std::string path = gitPath();
    std::lock_guard<std::mutex> lock(versionMutex_);
    if (versionOverride_) {
        return *versionOverride_;
    }
    if (versionNumber_ && versionGitPath_ == path) {
        return *versionNumber_;
    }
    // Every command needs the answer before its first git run; a kept one saves starting git.
    if (std::optional<std::string> kept = vn::tool_versions::cached(path)) {
        versionNumber_ = std::move(kept);
        versionGitPath_ = path;
        return *versionNumber_;
    }
    auto task = VNTask::taskWithCommand(path, neutralFolder(), {"--version"});
    if (!task->run()) {
        vn::Log::warning(vn::format("'%@' failed with code %ld:'%@'", task->displayCommand(),
                                    task->exitCode(), task->errorOutput()),
                         vn::Log::Git);
        return "";
    }
    // Only an answer is kept, so that a git installed later is found.
    versionNumber_ = parseVersionOutput(task->output());
    versionGitPath_ = path;
    vn::tool_versions::remember(path, *versionNumber_);
    return *versionNumber_;
}

std::string VNRepoHandlerGit::parseVersionOutput(std::string_view output) {
    // "git version 2.39.5" and the like: the word after "version" and its blanks.
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    for (std::size_t at = output.find("version"); at != std::string_view::npos;
         at = output.find("version", at + 1)) {
        std::size_t start = at + 7;
        std::size_t word = start;
        while (word < output.size() && blank(output[word])) {
            ++word;
        }
        std::size_t end = word;
        while (end < output.size() && !blank(output[end])) {
            ++end;
        }
        if (word > start && end > word) {
            return std::string(output.substr(word, end - word));
        }
    }
    return firstLine(output);
}

std::shared_ptr<VNRepoWindowController> VNRepoHandlerGit::newWindowControllerWithDoc(
    std::shared_ptr<VNRepoDocument> doc) {
    return VNRepoWindowController::create(std::move(doc));
}

vn::Record VNRepoHandlerGit::versionDetails() {
    std::string path = gitPath();
    bool standard = usingShippedGit();
    return vn::Record{
        {"number", detectedVersionNumber()},
        {"standard", standard},
        {"location", standard ? std::string("Internal") : path},
        {"exists", vn::fs::isExecutableFile(path)},
    };
}

void VNRepoHandlerGit::setDetectedGitVersion(std::optional<std::string> version) {
    std::lock_guard<std::mutex> lock(versionMutex_);
    versionOverride_ = std::move(version);
}

bool VNRepoHandlerGit::versionUsesCredentialHelper(std::string_view version) {
    int parts[3] = {0, 0, 0};
    for (int& part : parts) {
        if (version.empty()) {
            break;
        }
        std::size_t dot = version.find('.');
        part = leadingNumber(version.substr(0, dot));
        version = dot == std::string_view::npos ? std::string_view() : version.substr(dot + 1);
    }
    auto [major, minor, patch] = parts;
    return major >= 2 || (major == 1 && minor > 7) || (major == 1 && minor == 7 && patch > 9);
}

bool VNRepoHandlerGit::useGitCredHelper() {
    return versionUsesCredentialHelper(detectedVersionNumber());
}

bool VNRepoHandlerGit::useSshAskPass(const std::string& url) {
    auto address = vn::RemoteAddress::parse(url);
    if (address && address->scheme.rfind("http", 0) == 0) {
        return !useGitCredHelper();
    }
    return true;
}

std::vector<std::string> VNRepoHandlerGit::defaultArgsForPath(const std::string& path,
                                                              const std::string& command) {
    return defaultArgsForPath(path, command, {});
}

std::vector<std::string> VNRepoHandlerGit::defaultArgsForPath(
    const std::string& /*path*/, const std::string& command,
    const std::vector<std::string>& configs) {
    const std::vector<std::string>& pinned = vn::GitSettings::pinned();
    std::vector<std::string> args;
    args.reserve(pinned.size() * 2 + configs.size() * 2 + 6);
    args.push_back("--no-pager");
    if (usingShippedGit()) {
        args.push_back(
            vn::format("--exec-path=%@/%@", vn::Resources::path(), "git_local/libexec/git-core"));
    }
    // Paths from the user or from git's own listings are names, never patterns.
    args.push_back(vn::GitSettings::LiteralPathspecs);
    for (const std::string& setting : pinned) {
        args.push_back("-c");
        args.push_back(setting);
    }
    if (useGitCredHelper()) {
        args.push_back("-c");
        args.push_back("credential.helper=varnel");
    }
    for (const std::string& config : configs) {
        args.push_back("-c");
        args.push_back(config);
    }
    args.push_back(command);
    return args;
}

std::vector<std::string> VNRepoHandlerGit::gitflowArgsForPath(const std::string& /*path*/,
                                                              const std::string& command) {
    return {command};
}

bool VNRepoHandlerGit::checkConfigForRepo(const std::string& /*path*/, bool /*fixAndPrompt*/) {
    return true;
}

// ---- Remotes and credentials -------------------------------------------------------------------

std::string VNRepoHandlerGit::urlForAlias(const std::string& path, const std::string& alias) {
    // A remote name cannot hold a colon, so URLs and scp-style addresses are taken as they are
    // without asking git.
    if (alias.empty() || alias.find(':') != std::string::npos || !vn::fs::isDirectory(path)) {
        return alias;
    }
    auto args = defaultArgsForPath(path, "config");
    args.insert(args.end(), {"--get", "remote." + alias + ".url"});
    auto task = VNTask::taskWithCommand(gitPath(), path, args);
    if (task->run()) {
        std::string url = firstLine(task->output());
        if (!url.empty()) {
            return url;
        }
    }
    return alias;
}

void VNRepoHandlerGit::userAndHost(const std::string& path, const std::string& remote,
                                   std::string& user, std::string& host, std::string& url) {
    url = urlForAlias(path, remote);
    user = vn::CredentialStore::userFromURL(url);
    host = vn::CredentialStore::hostFromURL(url);
}

void VNRepoHandlerGit::configureSSHAskpass(const std::string& path, const std::string& remote,
                                           VNTask& task) {
    std::string user, host, url;
    userAndHost(path, remote, user, host, url);
    task.configureSSHAskpassForUser(user, host, url, useSshAskPass(url));
    task.setAuthenticationFailedDelegate(weak_from_this());
    task.setRemoteInfo(remote);
}

void VNRepoHandlerGit::authenticationFailed(const std::string& path, const std::string& remote) {
    std::string user, host, url;
    userAndHost(path, remote, user, host, url);
    vn::CredentialStore::shared()->authenticationFailedForURL(url);
}

// ---- Failures ----------------------------------------------------------------------------------

bool VNRepoHandlerGit::isHarmlessHeadFailure(std::string_view errorOutput) {
    for (std::string_view pattern : {"bad default revision 'HEAD'", "ambiguous argument 'HEAD'",
                                     "bad revision 'HEAD'", "can't resolve ref: \"HEAD\""}) {
        if (errorOutput.find(pattern) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

void VNRepoHandlerGit::handleGitFailure(const std::string& command, int64_t exitCode,
                                        const std::string& errorOutput, bool displayToUser) {
    // A repository without commits makes every question about HEAD fail; that is no error.
    if (isHarmlessHeadFailure(errorOutput)) {
        return;
    }
    reportTaskFailure(command, exitCode, errorOutput, displayToUser, vn::Log::Git);
}

void VNRepoHandlerGit::addTemplateArguments(std::vector<std::string>& args) {
    std::string folder = neutralFolder();
    auto configArgs = defaultArgsForPath(folder, "config");
    configArgs.insert(configArgs.end(), {"--global", "--get", "init.templatedir"});
    auto task = VNTask::taskWithCommand(gitPath(), folder, configArgs);
    if (task->run() && !trimmed(task->output()).empty()) {
        return;
    }
    if (usingShippedGit()) {
        args.push_back(vn::format("--template=%@/%@", vn::Resources::path(),
                                  "git_local/share/git-core/templates"));
    } else {
        std::string prefix =
            vn::fs::deletingLastPathComponent(vn::fs::deletingLastPathComponent(gitPath()));
        args.push_back(vn::format("--template=%@/%@", prefix, "share/git-core/templates"));
    }
}

// ---- Repositories ------------------------------------------------------------------------------

bool VNRepoHandlerGit::validateWorkingDirectory(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    if (vn::fs::exists(vn::fs::appendPathComponent(path, ".git"))) {
        return true;
    }
    // A bare repository, found as git finds one: HEAD, objects and refs. A ".git" folder, and
    // what it holds (the git folders of submodules), is the metadata of the working copy around
    // it, not a repository of its own.
    std::string name = vn::fs::lastPathComponent(path);
    return name != ".git" && path.find("/.git/") == std::string::npos &&
           vn::fs::exists(vn::fs::appendPathComponent(path, "HEAD")) &&
           !vn::fs::isDirectory(vn::fs::appendPathComponent(path, "HEAD")) &&
           vn::fs::isDirectory(vn::fs::appendPathComponent(path, "objects")) &&
           vn::fs::isDirectory(vn::fs::appendPathComponent(path, "refs"));
}

bool VNRepoHandlerGit::validatePathOrURL(const std::string& pathOrURL,
                                         VNPathOrURLValidationDelegate* delegate) {
    if (pathOrURL.empty()) {
        return false;
    }
    if (pathOrURL.front() == '-') {
        // It would be read as an option of git, not as a repository.
        vn::Log::warning(
            "Not a repository path or URL: " + vn::CredentialStore::redactURLPasswords(pathOrURL),
            vn::Log::Git);
        return false;
    }
    std::string workingDir = temporaryFolder();
    auto args = defaultArgsForPath(workingDir, "ls-remote");
    args.push_back(pathOrURL);
    auto task = VNTask::taskWithCommand(gitPath(), workingDir, std::move(args));
    configureSSHAskpass(workingDir, pathOrURL, *task);
    std::vector<vn::NotificationCenter::Observation> observations;
    if (delegate) {
        auto& center = vn::NotificationCenter::defaultCenter();
        VNTask* observed = task.get();
        for (const char* name :
             {VNTask::OutputReceivedNotification, VNTask::ErrorOutputReceivedNotification}) {
            observations.push_back(
                center.addObserver(name, observed, [delegate, observed](const auto& note) {
                    delegate->validatePathOrURLOutputReceived(note, *observed);
                }));
        }
    }
    return task->run();
}
