#include <unistd.h>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"

VNRepoHandlerGit::PatchApplication VNRepoHandlerGit::applyPatch(const std::string& path,
                                                                const std::string& patch,
                                                                PatchTarget target, bool reverse,
                                                                vn::TextEncoding encoding,
                                                                uint64_t options) {
    PatchApplication result;
    bool toIndex = target == PatchTarget::Index;
    bool display = toIndex || !(options & PatchReducedContext);
    std::string error;
    std::optional<std::string> file = writePatchFile(patch, encoding, error);
    if (!file) {
        result.errorOutput = error;
        handleGitFailure("git apply", -1, error, display);
        return result;
    }
    std::vector<std::string> args = defaultArgsForPath(path, "apply");
    if (toIndex) {
        args.push_back("--cached");
    }
    if (reverse) {
        args.push_back("-R");
    }
    if (options & PatchIgnoreWhitespace) {
        args.push_back("--ignore-whitespace");
    }
    if (!toIndex && (options & PatchReducedContext)) {
        args.push_back("-C1");
    }
    args.push_back(*file);
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    result.success = task->run();
    result.exitCode = task->exitCode();
    if (result.success) {
        ::unlink(file->c_str());
        return result;
    }
    result.errorOutput = task->errorOutput();
    result.keptPatchFile = *file;
    handleGitFailure("git apply", result.exitCode, result.errorOutput, display);
    return result;
}

bool VNRepoHandlerGit::applyPatchToIndex(const std::string& path, const std::string& patch,
                                         bool reverse, vn::TextEncoding encoding,
                                         uint64_t options) {
    return applyPatch(path, patch, PatchTarget::Index, reverse, encoding, options).success;
}

std::string VNRepoHandlerGit::fileModeForPatch(const std::string& path, const std::string& file,
                                               bool inHead) {
    std::vector<std::string> args = defaultArgsForPath(path, inHead ? "ls-tree" : "ls-files");
    if (inHead) {
        args.push_back("HEAD");
    } else {
        args.push_back("--stage");
    }
    args.insert(args.end(), {"--", file});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    // Both listings start with the mode: "100644 <id> 0\tname", "100644 blob <id>\tname".
    if (task->run() && task->output().size() > 6 && task->output()[6] == ' ') {
        return task->output().substr(0, 6);
    }
    return VNRepoHandlerBase::fileModeForPatch(path, file, inHead);
}
