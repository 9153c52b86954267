// The Git file operations: staging, unstaging, removing, moving and restoring files. Each only
// builds its tasks; the caller runs them in order and stops at the first failure.

#include "git/VNRepoHandlerGit.h"

namespace {

std::vector<std::string> withArguments(std::vector<std::string> args,
                                       std::initializer_list<const char*> more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

}  // namespace

VNTaskList VNRepoHandlerGit::addTasks(const std::string& path,
                                      const std::vector<std::string>& files) {
    return splitTaskIfRequired(path, withArguments(defaultArgsForPath(path, "add"), {"-f", "--"}),
                               gitPath(), files);
}

VNTaskList VNRepoHandlerGit::unstageTasks(const std::string& path,
                                          const std::vector<std::string>& files) {
    return splitTaskIfRequired(path, withArguments(defaultArgsForPath(path, "reset"), {"-q", "--"}),
                               gitPath(), files);
}

VNTaskList VNRepoHandlerGit::removeTasks(const std::string& path,
                                         const std::vector<std::string>& files) {
    return splitTaskIfRequired(
        path, withArguments(defaultArgsForPath(path, "rm"), {"-q", "-f", "--"}), gitPath(), files);
}

VNTaskList VNRepoHandlerGit::stopTrackingTasks(const std::string& path,
                                               const std::vector<std::string>& files) {
    return splitTaskIfRequired(
        path, withArguments(defaultArgsForPath(path, "rm"), {"-q", "--cached", "--"}), gitPath(),
        files);
}

VNTaskList VNRepoHandlerGit::addRemoveTasks(const std::string& path) {
    return {VNTask::taskWithCommand(gitPath(), path,
                                    withArguments(defaultArgsForPath(path, "add"), {"--all"}))};
}

VNTaskList VNRepoHandlerGit::moveTasks(const std::string& path, const std::string& source,
                                       const std::string& destination) {
    auto args = defaultArgsForPath(path, "mv");
    args.push_back(source);
    args.push_back(destination);
    return {VNTask::taskWithCommand(gitPath(), path, std::move(args))};
}

VNTaskList VNRepoHandlerGit::copyTasks(const std::string& path, const std::string& source,
                                       const std::string& destination) {
    return moveTasks(path, source, destination);
}

VNTaskList VNRepoHandlerGit::revertTasks(const std::string& path,
                                         const std::vector<std::string>& files,
                                         uint64_t /*options*/, uint64_t /*submoduleOptions*/) {
    return splitTaskIfRequired(path, withArguments(defaultArgsForPath(path, "checkout"), {"--"}),
                               gitPath(), files);
}

VNTaskList VNRepoHandlerGit::revertTasks(const std::string& path,
                                         const std::vector<std::string>& files,
                                         const std::string& revision, uint64_t options,
                                         uint64_t submoduleOptions) {
    if (revision.empty()) {
        return revertTasks(path, files, options, submoduleOptions);
    }
    auto args = defaultArgsForPath(path, "checkout");
    args.insert(args.end(), {revision, "--"});
    return splitTaskIfRequired(path, args, gitPath(), files);
}
