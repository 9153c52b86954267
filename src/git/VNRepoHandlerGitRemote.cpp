#include <cctype>

#include "git/VNRepoHandlerGit.h"
#include "handler/GitSettings.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"

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

// Operands after the options; a remote or branch that git would read as an option is put
// behind "--".
void appendOperands(std::vector<std::string>& args, const std::vector<std::string>& operands) {
    for (const std::string& operand : operands) {
        if (vn::GitSettings::isOptionShaped(operand)) {
            args.push_back("--");
            break;
        }
    }
    args.insert(args.end(), operands.begin(), operands.end());
}

}  // namespace

// ---- Push --------------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerGit::pushTask(const std::string& path,
                                                   const std::string& remote) {
    return pushTask(path, remote, false);
}

std::shared_ptr<VNTask> VNRepoHandlerGit::pushTaskRemoteName(const std::string& path,
                                                             const std::string& remoteName) {
    return pushTask(path, remoteName, false);
}

std::shared_ptr<VNTask> VNRepoHandlerGit::pushTask(const std::string& path,
                                                   const std::string& remote, bool forcePush) {
    auto args = defaultArgsForPath(path, "push");
    if (forcePush) {
        args.push_back("-f");
    }
    args.insert(args.end(), {"-v", "--all"});
    appendOperands(args, {remote});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    configureSSHAskpass(path, remote, *task);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerGit::pushTaskRef(const std::string& path,
                                                      const std::string& remote,
                                                      const std::string& ref) {
    auto args = defaultArgsForPath(path, "push");
    args.push_back("-v");
    appendOperands(args, {remote, ref});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    configureSSHAskpass(path, remote, *task);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerGit::pushTask(const std::string& path,
                                                   const std::string& remote,
                                                   const std::optional<std::string>& branch,
                                                   const std::optional<std::string>& revision,
                                                   bool forcePush) {
    auto args = defaultArgsForPath(path, "push");
    args.push_back("-v");
    if (forcePush) {
        args.push_back("-f");
    }
    std::vector<std::string> operands{remote};
    if (branch && !branch->empty()) {
        operands.push_back(revision && !revision->empty()
                               ? *revision + ":refs/heads/" + *branch
                               : "refs/heads/" + *branch + ":refs/heads/" + *branch);
    } else if (revision && !revision->empty()) {
        operands.push_back(*revision);
    }
    appendOperands(args, operands);
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    configureSSHAskpass(path, remote, *task);
    return task;
}

VNTaskList VNRepoHandlerGit::pushTasks(const std::string& path, const std::string& remote,
                                       const std::vector<VNGitPushBranchEntry>& branchPushList,
                                       bool forcePush) {
    std::vector<const VNGitPushBranchEntry*> tracking, plain, untrack;
    for (const VNGitPushBranchEntry& entry : branchPushList) {
        if (entry.push && entry.track == VNGitPushBranchEntry::TrackSet) {
            tracking.push_back(&entry);
        } else if (entry.push) {
            plain.push_back(&entry);
        }
        // An entry that is not pushed can still drop its upstream.
        if (entry.track == VNGitPushBranchEntry::TrackRemove && !entry.remoteBranch.empty()) {
            untrack.push_back(&entry);
        }
    }
    bool allTags = vn::Preferences::standard().boolForKey("gitPushAllTags");
    auto groupTask = [&](const std::vector<const VNGitPushBranchEntry*>& group, bool setUpstream) {
        auto args = defaultArgsForPath(path, "push");
        args.push_back("-v");
        if (allTags) {
            args.push_back("--tags");
        }
        if (forcePush) {
            args.push_back("--force");
        }
        if (setUpstream) {
            args.push_back("--set-upstream");
        }
        std::vector<std::string> operands{remote};
        for (const VNGitPushBranchEntry* entry : group) {
            const std::string& target =
                entry->remoteBranch.empty() ? entry->localBranch : entry->remoteBranch;
            operands.push_back("refs/heads/" + entry->localBranch + ":refs/heads/" + target);
        }
        appendOperands(args, operands);
        auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
        configureSSHAskpass(path, remote, *task);
        return task;
    };
    VNTaskList tasks;
    if (!tracking.empty()) {
        tasks.push_back(groupTask(tracking, true));
    }
    if (!plain.empty()) {
        tasks.push_back(groupTask(plain, false));
    }
    for (const VNGitPushBranchEntry* entry : untrack) {
        tasks.push_back(setTrackingBranchTask(path, entry->localBranch, std::nullopt));
    }
    return tasks;
}

std::shared_ptr<VNTask> VNRepoHandlerGit::setTrackingBranchTask(
    const std::string& path, const std::string& localBranch,
    const std::optional<std::string>& remoteBranch) {
    std::vector<std::string> args;
    if (remoteBranch && !remoteBranch->empty()) {
        args = defaultArgsForPath(path, "branch");
        args.insert(args.end(), {"-u", *remoteBranch, localBranch});
    } else {
        args = defaultArgsForPath(path, "config");
        args.insert(args.end(),
                    {"--file", vn::fs::appendPathComponent(gitMetadataFolder(path), "config"),
                     "--unset", "branch." + localBranch + ".merge"});
    }
    return VNTask::taskWithCommand(gitPath(), path, std::move(args));
}

unsigned VNRepoHandlerGit::pushDefaultModeFor(std::string_view value, std::string_view gitVersion) {
    if (value.empty()) {
        std::string_view major = gitVersion.substr(0, gitVersion.find('.'));
        int number = 0;
        for (char c : major) {
            if (!std::isdigit(static_cast<unsigned char>(c))) {
                break;
            }
            number = number * 10 + (c - '0');
        }
        // git 2.0 changed the default from matching to simple.
        return number > 1 ? PushDefaultSimple : PushDefaultMatching;
    }
    if (value == "matching") {
        return PushDefaultMatching;
    }
    if (value == "upstream") {
        return PushDefaultUpstream;
    }
    if (value == "current") {
        return PushDefaultCurrent;
    }
    if (value == "nothing") {
        return PushDefaultNothing;
    }
    return PushDefaultSimple;
}

unsigned VNRepoHandlerGit::pushBranchDefaultOption(const std::optional<std::string>& path) {
    bool inRepository = path && vn::fs::isDirectory(*path);
    std::string folder = inRepository ? *path : vn::fs::homeDirectory();
    if (!vn::fs::isDirectory(folder)) {
        folder = "/";
    }
    auto args = defaultArgsForPath(folder, "config");
    if (!inRepository) {
        args.push_back("--global");
    }
    args.insert(args.end(), {"--get", "push.default"});
    auto task = VNTask::taskWithCommand(gitPath(), folder, std::move(args));
    // Exit status 1 means the setting is not there; that is an answer, not a failure.
    std::string value = task->run() ? trimmed(task->output()) : std::string();
    return pushDefaultModeFor(value, versionDetails().string("number"));
}

// ---- Pull and fetch ----------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerGit::submoduleUpdateTask(const std::string& path,
                                                              uint64_t submoduleUpdateOptions) {
    auto args = defaultArgsForPath(path, "submodule");
    args.insert(args.end(), {"update", "--init"});
    if (!(submoduleUpdateOptions & SubmoduleNoRecursion)) {
        args.push_back("--recursive");
    }
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    configureSSHAskpass(path, "", *task);
    return task;
}

VNTaskList VNRepoHandlerGit::pullTasks(const std::string& path, const std::string& remote,
                                       const std::string& branch, bool commit, bool includeLog,
                                       bool commitEvenIfFF, bool rebase,
                                       uint64_t submoduleUpdateOptions) {
    VNTaskList tasks = fetchTasks(path, remote, false, false);
    auto args = defaultArgsForPath(path, "pull");
    if (!commit) {
        args.push_back("--no-commit");
    }
    // Said either way: since git 2.33 a pull of diverged branches without a choice stops and
    // asks for one, and the user made it by leaving rebase unticked.
    args.push_back(rebase ? "--rebase" : "--no-rebase");
    if (includeLog) {
        args.push_back("--log");
    }
    if (commitEvenIfFF) {
        args.push_back("--no-ff");
    }
    std::vector<std::string> operands{remote};
    if (!branch.empty()) {
        operands.push_back(branch);
    }
    appendOperands(args, operands);
    auto pull = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    configureSSHAskpass(path, remote, *pull);
    tasks.push_back(std::move(pull));
    tasks.push_back(submoduleUpdateTask(path, submoduleUpdateOptions));
    return tasks;
}

VNTaskList VNRepoHandlerGit::fetchTasks(const std::string& path,
                                        const std::optional<std::string>& remote, bool prune,
                                        bool tags) {
    std::vector<std::string> remotes;
    if (remote && !remote->empty()) {
        remotes.push_back(*remote);
    } else {
        for (const vn::Record& entry : remotePaths(path)) {
            remotes.push_back(entry.string("name"));
        }
    }
    VNTaskList tasks;
    for (const std::string& name : remotes) {
        auto args = defaultArgsForPath(path, "fetch");
        if (tags) {
            args.push_back("--tags");
        }
        if (prune) {
            args.push_back("--prune");
        }
        appendOperands(args, {name});
        auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
        configureSSHAskpass(path, name, *task);
        tasks.push_back(std::move(task));
    }
    if (hasSvnInterop(path)) {
        tasks.push_back(svnFetchTask(path));
    }
    return tasks;
}

// ---- Subversion bridge -------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerGit::svnFetchTask(const std::string& path) {
    auto args = defaultArgsForPath(path, "svn");
    args.push_back("fetch");
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    configureSSHAskpass(path, "", *task);
    return task;
}

VNTaskList VNRepoHandlerGit::svnDCommitTasks(const std::string& path,
                                             const std::string& /*branch*/) {
    VNTaskList tasks;
    for (const char* step : {"rebase", "dcommit"}) {
        auto args = defaultArgsForPath(path, "svn");
        args.push_back(step);
        auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
        configureSSHAskpass(path, "", *task);
        tasks.push_back(std::move(task));
    }
    return tasks;
}

bool VNRepoHandlerGit::hasSvnInterop(const std::string& path) {
    if (!vn::fs::isDirectory(path)) {
        return false;
    }
    auto args = defaultArgsForPath(path, "config");
    args.insert(args.end(), {"--get-regexp", "^svn-remote\\."});
    auto task = VNTask::taskWithCommand(gitPath(), path, std::move(args));
    return task->run() && !trimmed(task->output()).empty();
}

bool VNRepoHandlerGit::isRemoteSvn(const std::string& path, const std::string& remote) {
    if (remote == "Subversion") {
        return hasSvnInterop(path);
    }
    std::string url = urlForAlias(path, remote);
    return url.rfind("svn://", 0) == 0 || url.rfind("svn+", 0) == 0;
}
