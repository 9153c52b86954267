#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "git/VNRepoHandlerGit.h"
#include "handler/GitSettings.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Resources.h"

namespace {

std::string temporaryDirectory() {
    const char* tmp = std::getenv("TMPDIR");
    if (tmp && *tmp && vn::fs::isDirectory(tmp)) {
        return tmp;
    }
    return "/tmp";
}

// A file removed when the last task that reads it is released.
struct TemporaryFile {
    explicit TemporaryFile(std::string p) : path(std::move(p)) {}
    ~TemporaryFile() { ::unlink(path.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    std::string path;
};

bool writeAll(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t written = ::write(fd, data.data(), data.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// git would read a source or destination that starts with "-" as an option.
void appendOperands(std::vector<std::string>& args, std::initializer_list<std::string> operands) {
    for (const std::string& operand : operands) {
        if (vn::GitSettings::isOptionShaped(operand)) {
            args.push_back("--");
            break;
        }
    }
    args.insert(args.end(), operands);
}

// Lines of Git LFS that tell the user about its own deprecated clone command: noise beside
// git's clone, which LFS has long been as fast as.
std::string withoutLfsCloneWarnings(const std::string& text) {
    if (text.find("git lfs clone") == std::string::npos &&
        text.find("'git clone' has been updated") == std::string::npos) {
        return text;
    }
    std::string kept;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        std::size_t next = end == std::string::npos ? text.size() : end + 1;
        std::string_view line(text.data() + from, next - from);
        bool warning =
            line.find("WARNING: 'git lfs clone' is deprecated") != std::string::npos ||
            line.find("'git clone' has been updated in upstream Git") != std::string::npos ||
            line.find("speeds to 'git lfs clone'") != std::string::npos;
        if (!warning) {
            kept.append(line);
        }
        from = next;
    }
    return kept;
}

}  // namespace

std::optional<std::string> VNRepoHandlerGit::writeCommitMessageFile(const std::string& message) {
    std::string pattern = vn::fs::appendPathComponent(temporaryDirectory(), "VarnelTemp.XXXXXX");
    int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        vn::Log::error(
            "Cannot create the commit message file " + pattern + ": " + std::strerror(errno),
            vn::Log::Git);
        return std::nullopt;
    }
    bool written = writeAll(fd, message.empty() ? std::string_view("no message") : message);
    if (::close(fd) != 0 || !written) {
        vn::Log::error("Cannot write the commit message file " + pattern, vn::Log::Git);
        ::unlink(pattern.c_str());
        return std::nullopt;
    }
    return pattern;
}

std::string VNRepoHandlerGit::signingWrapperPath() {
    return vn::Resources::pathFor("bin/vngpg.sh");
}

namespace {

std::shared_ptr<VNTask> finishCommitTask(VNRepoHandlerGit& handler, const std::string& path,
                                         std::vector<std::string> args,
                                         std::shared_ptr<TemporaryFile> messageFile) {
    auto task = VNTask::taskWithCommand(handler.gitPath(), path, std::move(args));
    // Hooks and the signing program may ask the user something.
    task->setAttachStdin(true);
    task->holdUntilReleased(std::move(messageFile));
    return task;
}

}  // namespace

std::shared_ptr<VNTask> VNRepoHandlerGit::commitTask(const std::string& path,
                                                     const std::vector<std::string>& files,
                                                     const std::string& message,
                                                     const std::string& author,
                                                     const std::string& gpgKey, uint64_t options) {
    auto messagePath = writeCommitMessageFile(message);
    if (!messagePath) {
        return nullptr;
    }
    auto messageFile = std::make_shared<TemporaryFile>(*messagePath);
    std::vector<std::string> configs;
    // git starts gpg.program without a shell, so the path goes in as it is, blanks and all.
    if (!gpgKey.empty()) {
        configs.push_back("gpg.program=" + signingWrapperPath());
    }
    auto args = defaultArgsForPath(path, "commit", configs);
    args.push_back("-q");
    if (options & CommitAmend) {
        args.insert(args.end(), {"--amend", "--only"});
    }
    if (options & CommitSignoff) {
        args.push_back("--signoff");
    }
    if (options & CommitBypassHooks) {
        args.push_back("--no-verify");
    }
    if (!gpgKey.empty()) {
        args.push_back("--gpg-sign=" + gpgKey);
    }
    if (!author.empty()) {
        args.insert(args.end(), {"--author", author});
    }
    args.insert(args.end(), {"-F", *messagePath, "--"});
    args.insert(args.end(), files.begin(), files.end());
    return finishCommitTask(*this, path, std::move(args), std::move(messageFile));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::commitTask(const std::string& path,
                                                     const std::string& message,
                                                     const std::string& author,
                                                     const std::string& gpgKey, uint64_t options) {
    auto messagePath = writeCommitMessageFile(message);
    if (!messagePath) {
        return nullptr;
    }
    auto messageFile = std::make_shared<TemporaryFile>(*messagePath);
    bool sign = (options & CommitSign) && !gpgKey.empty();
    std::vector<std::string> configs;
    if (sign) {
        configs.push_back("gpg.program=" + signingWrapperPath());
    }
    auto args = defaultArgsForPath(path, "commit", configs);
    args.push_back("-q");
    if (options & CommitAmend) {
        args.push_back("--amend");
    }
    if (options & CommitSignoff) {
        args.push_back("--signoff");
    }
    if (options & CommitBypassHooks) {
        args.push_back("--no-verify");
    }
    if (sign) {
        args.push_back("--gpg-sign=" + gpgKey);
    }
    if (!author.empty()) {
        args.insert(args.end(), {"--author", author});
    }
    args.insert(args.end(), {"-F", *messagePath});
    if (options & CommitAll) {
        args.push_back("-a");
    }
    return finishCommitTask(*this, path, std::move(args), std::move(messageFile));
}

std::shared_ptr<VNTask> VNRepoHandlerGit::cloneTaskForSource(const std::string& source,
                                                             const std::string& destination,
                                                             const vn::Record& options) {
    // git makes the destination and any missing folders above it; it runs from the nearest
    // folder that exists.
    std::string workingDir = vn::fs::deletingLastPathComponent(destination);
    while (!workingDir.empty() && workingDir != "/" && !vn::fs::isDirectory(workingDir)) {
        workingDir = vn::fs::deletingLastPathComponent(workingDir);
    }
    if (workingDir.empty() || !vn::fs::isDirectory(workingDir)) {
        workingDir = vn::fs::homeDirectory();
    }
    auto args = defaultArgsForPath(workingDir, "clone");
    addTemplateArguments(args);
    if (!options.boolean("clonegetworkingcopy")) {
        args.push_back("--no-checkout");
    }
    if (options.boolean("clonenohardlinks")) {
        args.push_back("--no-hardlinks");
    }
    if (options.boolean("cloneVerbose")) {
        args.insert(args.end(), {"--progress", "--verbose"});
    }
    std::string branch = options.string("clonebranch");
    if (!branch.empty()) {
        args.insert(args.end(), {"--branch", branch});
    }
    int64_t depth = options["clonedepth"].toInt();
    if (depth > 0) {
        args.insert(args.end(), {"--depth", std::to_string(depth)});
    }
    appendOperands(args, {source, destination});
    auto task = VNTask::taskWithCommand(gitPath(), workingDir, std::move(args));
    configureSSHAskpass(workingDir, source, *task);
    // git holds the checkout's progress back for a second in case it ends sooner; a local clone
    // of a large repository spends most of its time there, so it is shown from the start.
    task->setAskpassEnvironmentValue("GIT_PROGRESS_DELAY", "0");
    task->setErrorOutputSanitizer(withoutLfsCloneWarnings);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerGit::createNewRepoTask(const std::string& path) {
    auto args = defaultArgsForPath(path, "init");
    addTemplateArguments(args);
    return VNTask::taskWithCommand(gitPath(), path, std::move(args));
}

bool VNRepoHandlerGit::discardIncompleteClone(const std::string& destination, bool existedBefore) {
    if (existedBefore || destination.empty() || !vn::fs::exists(destination)) {
        return false;
    }
    std::error_code error;
    std::filesystem::remove_all(destination, error);
    if (error) {
        vn::Log::error("Cannot remove the incomplete clone " + destination + ": " + error.message(),
                       vn::Log::Git);
        return false;
    }
    vn::Log::info("Removed the incomplete clone " + destination, vn::Log::Git);
    return true;
}
