#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "base/TextEncoding.h"
#include "handler/VNRepoHandlerBase.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"

namespace {

std::string userTemporaryFolder() {
    const char* folder = std::getenv("TMPDIR");
    return folder && *folder ? folder : "/tmp";
}

std::optional<std::string> findPatchCommand() {
    if (auto found = vn::fs::findExecutable("patch")) {
        return found;
    }
    static const std::string systemFolders = "/usr/bin:/bin:/usr/local/bin";
    return vn::fs::findExecutable("patch", &systemFolders);
}

}  // namespace

std::optional<std::string> VNRepoHandlerBase::writePatchFile(const std::string& patch,
                                                             vn::TextEncoding encoding,
                                                             std::string& error) {
    std::string bytes = patch;
    if (encoding != vn::TextEncoding::UTF8) {
        if (std::optional<std::string> encoded = vn::encodeText(patch, encoding)) {
            bytes = std::move(*encoded);
        }
    }
    std::string path = vn::fs::appendPathComponent(userTemporaryFolder(), "VarnelTemp.XXXXXX");
    std::vector<char> name(path.begin(), path.end());
    name.push_back('\0');
    int fd = mkstemp(name.data());
    if (fd < 0) {
        error = "cannot create a temporary file in " + userTemporaryFolder() + ": " +
                std::strerror(errno);
        return std::nullopt;
    }
    path.assign(name.data());
    std::size_t written = 0;
    while (written < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            error = "cannot write " + path + ": " + std::strerror(errno);
            ::close(fd);
            ::unlink(path.c_str());
            return std::nullopt;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        ::unlink(path.c_str());
        return std::nullopt;
    }
    return path;
}

VNRepoHandlerBase::PatchApplication VNRepoHandlerBase::applyPatch(const std::string& path,
                                                                  const std::string& patch,
                                                                  PatchTarget target, bool reverse,
                                                                  vn::TextEncoding encoding,
                                                                  uint64_t options) {
    PatchApplication result;
    bool display = !(options & PatchReducedContext);
    if (target == PatchTarget::Index) {
        result.errorOutput = repositoryTypeName() + " working copies have no index to patch";
        reportTaskFailure("patch", -1, result.errorOutput, true, vn::Log::General);
        return result;
    }
    std::optional<std::string> command = findPatchCommand();
    if (!command) {
        result.errorOutput = "Unable to locate 'patch' command!";
        reportTaskFailure("patch", -1, result.errorOutput, display, vn::Log::General);
        return result;
    }
    std::string error;
    std::optional<std::string> file = writePatchFile(patch, encoding, error);
    if (!file) {
        result.errorOutput = error;
        reportTaskFailure("patch", -1, error, display, vn::Log::General);
        return result;
    }
    // No fuzz, no guessing that a patch is reversed, no backup or reject files: the patch
    // applies exactly where it says or not at all. A dry run first, so that a patch of several
    // hunks never leaves some of them applied.
    std::vector<std::string> args = {"-p1", "--force", "--no-backup-if-mismatch", "-r", "-"};
    args.push_back((options & PatchReducedContext) ? "-F2" : "-F0");
    if (reverse) {
        args.push_back("-R");
    }
    if (options & PatchIgnoreWhitespace) {
        args.push_back("-l");
    }
    args.insert(args.end(), {"-i", *file});
    std::vector<std::string> dryRun = args;
    dryRun.insert(dryRun.begin(), "--dry-run");
    std::shared_ptr<VNTask> task;
    for (const auto& arguments : {dryRun, args}) {
        task = VNTask::taskWithCommand(*command, path, arguments);
        if (!task->run()) {
            break;
        }
    }
    result.success = task->success();
    result.exitCode = task->exitCode();
    if (result.success) {
        ::unlink(file->c_str());
        return result;
    }
    // `patch` tells what failed on its standard output.
    result.errorOutput = task->output() + task->errorOutput();
    result.keptPatchFile = *file;
    reportTaskFailure("patch", result.exitCode, result.errorOutput, display, vn::Log::General);
    return result;
}

bool VNRepoHandlerBase::applyPatchToWorkingFolder(const std::string& path, const std::string& patch,
                                                  bool reverse, vn::TextEncoding encoding,
                                                  uint64_t options) {
    return applyPatch(path, patch, PatchTarget::WorkingFolder, reverse, encoding, options).success;
}

std::string VNRepoHandlerBase::fileModeForPatch(const std::string& path, const std::string& file,
                                                bool /*inHead*/) {
    std::string full = vn::fs::appendPathComponent(path, file);
    struct stat info {};
    if (::lstat(full.c_str(), &info) != 0) {
        return "100644";
    }
    if (S_ISLNK(info.st_mode)) {
        return "120000";
    }
    return (info.st_mode & S_IXUSR) ? "100755" : "100644";
}
