// The Mercurial diff operations: the commands whose text the diff parser reads.
#include <algorithm>
#include <limits>

#include "base/Format.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/DiffOptions.h"
#include "model/VNDiffModel.h"

namespace {

constexpr uint64_t NoFileLimit = std::numeric_limits<uint64_t>::max();

// "--git" whatever the configuration says: copies, renames, modes and binary files then read the
// same in every repository, and the parser gets the headers it knows.
std::vector<std::string> diffOptions(uint64_t options, int context) {
    std::vector<std::string> args{"--git", "-U", vn::format("%d", std::max(context, 0))};
    if (options & vn::DiffIgnoreWhitespace) {
        args.emplace_back("-w");
    }
    return args;
}

void appendFiles(std::vector<std::string>& args, const std::vector<std::string>& files) {
    if (!files.empty()) {
        args.emplace_back("--");
        args.insert(args.end(), files.begin(), files.end());
    }
}

}  // namespace

std::shared_ptr<VNDiffModel> VNRepoHandlerMercurial::runDiffTask(
    const std::shared_ptr<VNTask>& task) {
    if (!runQuery(task)) {
        handleHgFailure("hg diff", task->exitCode(), task->errorOutput(), false);
        return nullptr;
    }
    auto model = std::make_shared<VNDiffModel>();
    parseDiffToModel(task->output(), model->fileEntries(), NoFileLimit);
    return model;
}

std::shared_ptr<VNDiffModel> VNRepoHandlerMercurial::fileDiffAgainstBase(const std::string& path,
                                                                         const std::string& file,
                                                                         int context) {
    return fileDiffAgainstBase(path, std::vector<std::string>{file}, context);
}

std::shared_ptr<VNDiffModel> VNRepoHandlerMercurial::fileDiffAgainstBase(
    const std::string& path, const std::vector<std::string>& fileList, int context) {
    return runDiffTask(fileDiffAgainstBaseTask(path, fileList, 0, context));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::fileDiffAgainstBaseTask(
    const std::string& path, const std::vector<std::string>& fileList, uint64_t options,
    int context) {
    auto args = diffOptions(options, context);
    appendFiles(args, fileList);
    auto task = hgQueryTask(path, "diff", std::move(args));
    // Names must reach later commands as the bytes hg wrote; the parser decodes what it shows.
    task->setRawOutput(true);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::fileDiffAgainstBaseTask(
    const std::string& path, const std::vector<std::string>& fileList,
    const std::string& baseRevision, uint64_t options, int context) {
    auto args = diffOptions(options, context);
    if (!baseRevision.empty()) {
        args.insert(args.end(), {"-r", baseRevision});
    }
    appendFiles(args, fileList);
    auto task = hgQueryTask(path, "diff", std::move(args));
    task->setRawOutput(true);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::revisionFileDiffTask(
    const std::string& path, const std::string& revision, const std::vector<std::string>& fileList,
    uint64_t options, int context) {
    return revisionFileDiffTask(path, revision, fileList, options, context, std::nullopt);
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::revisionFileDiffTask(
    const std::string& path, const std::string& revision, const std::vector<std::string>& fileList,
    uint64_t options, int context, const std::optional<std::string>& bundlePath) {
    auto args = diffOptions(options, context);
    args.insert(args.end(), {"--change", revision});
    appendFiles(args, fileList);
    std::vector<std::string> all;
    if (bundlePath) {
        all = {"-R", *bundlePath};
    }
    auto defaults = defaultArgsForPath(path, "diff");
    all.insert(all.end(), defaults.begin(), defaults.end());
    all.insert(all.end(), args.begin(), args.end());
    auto task = hgQueryTaskWithArgs(path, std::move(all));
    task->setRawOutput(true);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::revisionRangeFileDiffTask(
    const std::string& path, const std::string& revisionFrom, const std::string& revisionTo,
    const std::vector<std::string>& fileList, uint64_t options, int context) {
    auto args = diffOptions(options, context);
    args.insert(args.end(), {"-r", revisionFrom, "-r", revisionTo});
    appendFiles(args, fileList);
    auto task = hgQueryTask(path, "diff", std::move(args));
    task->setRawOutput(true);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::createPatchTask(
    const std::string& path, const std::vector<std::string>& files, const std::string& saveToFile) {
    std::vector<std::string> args = defaultArgsForPath(path, "diff");
    args.emplace_back("--git");
    appendFiles(args, files);
    auto task =
        VNTask::taskWithCommand(hgPath(), path, configOptionsFirst(std::move(args)), saveToFile);
    task->setEnvironmentCustomisations(plainEnvironment());
    return task;
}
