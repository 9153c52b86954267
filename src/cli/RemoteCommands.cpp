// vrnl commit, init, clone, push, pull and fetch: the engine's tasks run one after the other
// with git's progress shown as it comes.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "cli/MercurialCommands.h"
#include "cli/ProgressRenderer.h"
#include "git/VNRepoHandlerGit.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/MainLoop.h"
#include "platform/NotificationCenter.h"
#include "platform/Preferences.h"

namespace vn::cli {

namespace {

std::atomic<bool> gInterrupted{false};

void noteInterrupt(int) {
    gInterrupted = true;
}

// Ctrl-C reaches git too (it shares the terminal's process group) and git cleans up after
// itself; vrnl stays to report and to remove what a clone left.
class InterruptGuard {
  public:
    InterruptGuard() {
        gInterrupted = false;
        struct sigaction action {};
        action.sa_handler = noteInterrupt;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGINT, &action, &previousInt_);
        ::sigaction(SIGTERM, &action, &previousTerm_);
    }
    ~InterruptGuard() {
        ::sigaction(SIGINT, &previousInt_, nullptr);
        ::sigaction(SIGTERM, &previousTerm_, nullptr);
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

  private:
    struct sigaction previousInt_ {};
    struct sigaction previousTerm_ {};
};

struct RunOptions {
    bool json = false;
    // Insert "--progress" after this git command word, so that git reports progress into a
    // pipe too.
    std::string progressAfter;
};

// Runs the tasks in order, stopping at the first failure; answers whether all succeeded.
bool runTasks(const VNTaskList& tasks, const RunOptions& options, Value::Array& reports) {
    MainLoop& loop = MainLoop::createMain();
    bool terminal = ::isatty(STDERR_FILENO);
    InterruptGuard interrupts;
    for (const auto& task : tasks) {
        if (!task) {
            return false;
        }
        if (!options.progressAfter.empty() && terminal && !options.json) {
            auto args = task->args();
            for (auto it = args.begin(); it != args.end(); ++it) {
                if (*it == options.progressAfter) {
                    args.insert(it + 1, "--progress");
                    break;
                }
            }
            task->setArgs(std::move(args));
        }
        ProgressRenderer progress(terminal, [](std::string_view text) {
            std::cerr.write(text.data(), static_cast<std::streamsize>(text.size()));
            std::cerr.flush();
        });
        bool completed = false;
        auto& center = NotificationCenter::defaultCenter();
        std::vector<NotificationCenter::Observation> observations;
        VNTask* observed = task.get();
        if (!options.json) {
            observations.push_back(center.addObserver(
                VNTask::ErrorOutputReceivedNotification, observed,
                [&](const auto&) { progress.feed(observed->newErrorOutput()); }));
            observations.push_back(
                center.addObserver(VNTask::OutputReceivedNotification, observed, [&](const auto&) {
                    std::string text = observed->newOutput();
                    std::cout << displayLines(CredentialStore::redactURLPasswords(text))
                              << std::flush;
                }));
        }
        observations.push_back(center.addObserver(VNTask::CompletedNotification, observed,
                                                  [&](const auto&) { completed = true; }));
        // Output arrives as git writes it only on the main loop.
        task->setReturnProgressiveOutput(true);
        task->launch();
        bool stopped = false;
        while (!completed) {
            loop.runUntil([&] { return completed || gInterrupted.load(); }, 0.2);
            if (gInterrupted && !stopped) {
                task->terminate();
                stopped = true;
            }
        }
        progress.finish();
        reports.push_back(task->jsonValue());
        if (!task->success()) {
            if (!options.json && !stopped && task->errorOutput().empty()) {
                std::cerr << "vrnl: " << display(task->displayCommand()) << "failed with code "
                          << task->exitCode() << "\n";
            }
            return false;
        }
    }
    return true;
}

// The Git or Mercurial working copy of --repo, else of the current folder.
std::optional<history::GitWorkingCopy> workingCopyFromOption(Arguments& args) {
    std::string start = args.option("--repo").value_or(".");
    return history::findGitWorkingCopy(start, true);
}

// The remote a command talks to when none is named: the current branch's upstream remote,
// else "origin", else the only remote there is.
std::string defaultRemote(VNRepoHandlerGit& handler, const std::string& path) {
    std::string branch = handler.currentBranch(path);
    std::string upstream = handler.trackingBranchesForPull(path).string(branch);
    auto remotes = handler.remotePaths(path);
    for (const Record& remote : remotes) {
        std::string name = remote.string("name");
        if (!upstream.empty() && upstream.rfind(name + "/", 0) == 0) {
            return name;
        }
    }
    for (const Record& remote : remotes) {
        if (remote.string("name") == "origin") {
            return "origin";
        }
    }
    return remotes.size() == 1 ? remotes[0].string("name") : std::string();
}

std::shared_ptr<VNRepoHandlerGit> gitHandler() {
    return std::dynamic_pointer_cast<VNRepoHandlerGit>(
        VNApplication::shared().handlerForType(VNRepositoryTypeGit));
}

std::string absolutePath(const std::string& text) {
    std::error_code error;
    auto absolute = std::filesystem::absolute(text, error);
    return error ? text : absolute.lexically_normal().string();
}

}  // namespace

bool runTaskList(const VNTaskList& tasks, bool json, Value::Array& reports) {
    return runTasks(tasks, {json, ""}, reports);
}

// ---- commit --------------------------------------------------------------------------------

int runCommit(Arguments& args) {
    bool json = args.flag("--json");
    uint64_t options = 0;
    bool amend = args.flag("--amend");
    if (amend) {
        options |= VNRepoHandlerGit::CommitAmend;
    }
    bool all = args.flag("--all") || args.flag("-a");
    if (args.flag("--signoff") || args.flag("-s")) {
        options |= VNRepoHandlerGit::CommitSignoff;
    }
    if (args.flag("--no-verify")) {
        options |= VNRepoHandlerGit::CommitBypassHooks;
    }
    auto message = args.option("--message");
    if (!message) {
        message = args.option("-m");
    }
    auto messageFile = args.option("--file");
    std::string author = args.option("--author").value_or("");
    std::string key = args.option("--sign").value_or("");
    auto copy = workingCopyFromOption(args);
    auto files = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (message && messageFile) {
        return usageError("commit takes --message or --file, not both");
    }
    if (all && !files.empty()) {
        return usageError("commit takes --all or files, not both");
    }
    if (!copy) {
        return 1;
    }
    std::string text;
    if (messageFile) {
        auto read = fs::readFile(*messageFile == "-" ? "/dev/stdin" : *messageFile);
        if (!read) {
            std::cerr << "vrnl: cannot read " << display(*messageFile) << "\n";
            return 1;
        }
        text = *read;
    } else if (message) {
        text = *message;
    } else {
        return usageError("commit needs a message: --message TEXT or --file FILE");
    }
    if (copy->mercurial) {
        if (options & (VNRepoHandlerGit::CommitSignoff | VNRepoHandlerGit::CommitBypassHooks) ||
            !key.empty()) {
            return usageError("--signoff, --no-verify and --sign are for Git");
        }
        // Mercurial has no staging area: a commit takes every tracked change, or the files.
        return mercurial::commit(*copy, text, files, author, amend, json);
    }
    if (!key.empty()) {
        options |= VNRepoHandlerGit::CommitSign;
        // A passphrase is asked on this terminal: the command's own standard input is a
        // pseudo-terminal that nobody reads.
        const char* terminal = ::isatty(STDIN_FILENO) ? ::ttyname(STDIN_FILENO) : nullptr;
        if (terminal && !std::getenv("GPG_TTY")) {
            ::setenv("GPG_TTY", terminal, 1);
        }
    }
    if (all) {
        options |= VNRepoHandlerGit::CommitAll;
    }
    std::shared_ptr<VNTask> task;
    if (files.empty()) {
        task = copy->handler->commitTask(copy->path, text, author, key, options);
    } else {
        for (std::string& file : files) {
            file = history::resolvedForMessage(file);
            std::error_code error;
            auto relative = std::filesystem::relative(file, copy->path, error);
            if (!error) {
                file = relative.string();
            }
        }
        task = copy->handler->commitTask(copy->path, files, text, author, key, options);
    }
    if (!task) {
        std::cerr << "vrnl: cannot write the commit message to a temporary file\n";
        return 1;
    }
    Value::Array reports;
    bool ok = runTasks({task}, {json, ""}, reports);
    Record result{{"path", copy->path}, {"success", ok}, {"tasks", reports}};
    if (ok) {
        Record details = copy->handler->revisionDetails(copy->path, "HEAD");
        result.set("commit", details.string("changeset"));
        if (!json) {
            std::cout << "[" << display(copy->handler->currentBranch(copy->path)) << " "
                      << details.string("changesetshort") << "] "
                      << display(details.string("message").substr(
                             0, details.string("message").find('\n')))
                      << "\n";
        }
    }
    return finish(ok, result, json);
}

const Subcommand& commitCommand() {
    static const Subcommand command{
        "commit",
        {"commit (--message TEXT | --file FILE) [--all | FILE...] [--amend] [--signoff] "
         "[--no-verify] [--sign KEY] [--author \"NAME <EMAIL>\"] [--repo DIR] [--json]"},
        "Record staged changes, every tracked change, or the named files",
        "Without files, commits what is staged (with --all, every change to tracked files). With "
        "files, commits exactly those files as they are in the working copy, whatever else is "
        "staged. An empty message is recorded as \"no message\". Hooks and the signing program "
        "may ask on the terminal. Prints the new commit's branch, short hash and subject.",
        {{"--message TEXT, -m TEXT", "The commit message"},
         {"--file FILE", "Read the message from FILE (\"-\" for standard input)"},
         {"--all, -a", "Commit every change to tracked files"},
         {"--amend", "Replace the last commit"},
         {"--signoff, -s", "Add a Signed-off-by line"},
         {"--no-verify", "Skip the commit hooks"},
         {"--sign KEY", "Sign the commit with the GnuPG key KEY"},
         {"--author A", "Record A (\"Name <email>\") as the author"},
         {"--repo DIR", "The repository (default: the current folder)"},
         {"--json", "Print the result as JSON"}},
        runCommit,
    };
    return command;
}

// ---- init ----------------------------------------------------------------------------------

int runInit(Arguments& args) {
    bool json = args.flag("--json");
    bool hg = args.flag("--hg");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("init takes at most one folder");
    }
    std::string path = absolutePath(rest.empty() ? "." : rest[0]);
    if (!fs::isDirectory(path) && !fs::makeDirectories(path)) {
        std::cerr << "vrnl: cannot create " << display(path) << "\n";
        return 1;
    }
    if (hg) {
        return mercurial::init(path, json);
    }
    Value::Array reports;
    bool ok = runTasks({gitHandler()->createNewRepoTask(path)}, {json, ""}, reports);
    return finish(ok, Record{{"path", path}, {"success", ok}, {"tasks", reports}}, json);
}

const Subcommand& initCommand() {
    static const Subcommand command{
        "init",
        {"init [DIR] [--hg] [--json]"},
        "Create an empty Git (or Mercurial) repository",
        "Makes DIR (default: the current folder) and its missing parents, and a Git repository "
        "in it, or a Mercurial one with --hg. An existing Git repository is left as it is; hg "
        "refuses to create one where one exists.",
        {{"--hg", "A Mercurial repository"}, {"--json", "Print the result as JSON"}},
        runInit,
    };
    return command;
}

// ---- clone ---------------------------------------------------------------------------------

int runClone(Arguments& args) {
    bool json = args.flag("--json");
    bool noCheckout = args.flag("--no-checkout");
    bool noHardlinks = args.flag("--no-hardlinks");
    bool quiet = args.flag("--quiet");
    bool hg = args.flag("--hg");
    auto branch = args.option("--branch");
    auto depthText = args.option("--depth");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.empty() || rest.size() > 2 || rest[0].empty()) {
        return usageError("clone takes a source and, optionally, a destination folder");
    }
    int64_t depth = 0;
    if (depthText) {
        auto parsed = history::parseCount(*depthText, 1, history::MaximumCount);
        if (!parsed) {
            return usageError("--depth takes a number of commits, not \"" + *depthText + "\"");
        }
        depth = static_cast<int64_t>(*parsed);
    }
    std::string source = rest[0];
    if (source.find("://") == std::string::npos && fs::exists(source)) {
        source = absolutePath(source);
    }
    std::string destination;
    if (rest.size() == 2) {
        destination = absolutePath(rest[1]);
    } else {
        std::string name = fs::lastPathComponent(source);
        while (!name.empty() && name.back() == '/') {
            name.pop_back();
        }
        if (name.size() > 4 && name.ends_with(".git")) {
            name.resize(name.size() - 4);
        }
        std::size_t colon = name.rfind(':');
        if (colon != std::string::npos) {
            name = name.substr(colon + 1);
        }
        if (name.empty()) {
            return usageError("name the destination folder: it cannot be told from the source");
        }
        destination = absolutePath(name);
    }
    if (hg || mercurial::isMercurialSource(source)) {
        if (depthText || noHardlinks) {
            return usageError("--depth and --no-hardlinks are for Git");
        }
        return mercurial::clone(source, destination, noCheckout, branch, quiet, json);
    }
    Record options{
        {"clonegetworkingcopy", !noCheckout},
        {"clonenohardlinks", noHardlinks},
        {"cloneVerbose", !quiet && !json},
        {"clonedepth", depth},
    };
    if (branch) {
        options.set("clonebranch", *branch);
    }
    bool existedBefore = fs::exists(destination);
    auto handler = gitHandler();
    Value::Array reports;
    bool ok =
        runTasks({handler->cloneTaskForSource(source, destination, options)}, {json, ""}, reports);
    bool removed = !ok && VNRepoHandlerGit::discardIncompleteClone(destination, existedBefore);
    if (!ok && !json && gInterrupted) {
        std::cerr << "vrnl: clone cancelled\n";
    }
    if (ok && !json) {
        std::cout << "Cloned into " << display(destination) << "\n";
    }
    return finish(ok,
                  Record{{"source", CredentialStore::redactURLPasswords(source)},
                         {"destination", destination},
                         {"success", ok},
                         {"cancelled", gInterrupted.load()},
                         {"removedIncompleteClone", removed},
                         {"tasks", reports}},
                  json);
}

const Subcommand& cloneCommand() {
    static const Subcommand command{
        "clone",
        {"clone SOURCE [DEST] [--no-checkout] [--branch B] [--depth N] [--no-hardlinks] "
         "[--hg] [--quiet] [--json]"},
        "Copy a repository, with progress",
        "Clones SOURCE (a path or any URL git reaches) into DEST (default: the source's name). "
        "Progress is shown as git reports it. A clone that fails or is cancelled with Ctrl-C "
        "leaves no folder behind, unless the folder was there before. A local Mercurial "
        "repository (or any source with --hg) is cloned with hg.",
        {{"--no-checkout", "Do not check out files"},
         {"--hg", "The source is a Mercurial repository"},
         {"--branch B", "Check out branch B instead of the remote's default"},
         {"--depth N", "Only the last N commits"},
         {"--no-hardlinks", "Copy the objects of a local source instead of linking them"},
         {"--quiet", "No progress"},
         {"--json", "Print the result as JSON"}},
        runClone,
    };
    return command;
}

// ---- push ----------------------------------------------------------------------------------

int runPush(Arguments& args) {
    bool json = args.flag("--json");
    bool force = args.flag("--force") || args.flag("-f");
    bool all = args.flag("--all");
    bool setUpstream = args.flag("--set-upstream") || args.flag("-u");
    bool noUpstream = args.flag("--no-set-upstream");
    auto hgBranch = args.option("--branch");
    auto hgRevision = args.option("--rev");
    auto copy = workingCopyFromOption(args);
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (!copy) {
        return 1;
    }
    if (copy->mercurial) {
        if (all || setUpstream || noUpstream || rest.size() > 1) {
            return usageError(
                "in a Mercurial working copy push takes a remote, --branch, --rev "
                "and --force");
        }
        std::optional<std::string> remote;
        if (!rest.empty()) {
            remote = rest[0];
        }
        return mercurial::push(*copy, remote, hgBranch, hgRevision, force, json);
    }
    if (hgBranch || hgRevision) {
        return usageError(
            "--branch and --rev are for Mercurial; name the branches after the "
            "remote");
    }
    auto& handler = *copy->handler;
    std::string remote = rest.empty() ? defaultRemote(handler, copy->path) : rest[0];
    if (remote.empty()) {
        return usageError("name the remote to push to: this repository has no default one");
    }
    VNTaskList tasks;
    if (all) {
        if (rest.size() > 1) {
            return usageError("push takes --all or branches, not both");
        }
        tasks.push_back(handler.pushTask(copy->path, remote, force));
    } else {
        std::vector<VNGitPushBranchEntry> list;
        Record upstreams = handler.trackingBranchesForPull(copy->path);
        std::vector<std::string> branches(rest.begin() + (rest.empty() ? 0 : 1), rest.end());
        if (branches.empty()) {
            std::string current = handler.currentBranch(copy->path);
            if (current.empty() || current == "HEAD") {
                return usageError("HEAD is detached: name the branch to push");
            }
            branches.push_back(current);
        }
        for (const std::string& given : branches) {
            VNGitPushBranchEntry entry;
            entry.push = true;
            std::size_t colon = given.find(':');
            entry.localBranch = given.substr(0, colon);
            entry.remoteBranch = colon == std::string::npos ? "" : given.substr(colon + 1);
            // A branch without an upstream gets this one, as a first push usually means.
            bool hasUpstream = !upstreams.string(entry.localBranch).empty();
            entry.track = setUpstream || (!hasUpstream && !noUpstream)
                              ? VNGitPushBranchEntry::TrackSet
                              : VNGitPushBranchEntry::TrackKeep;
            list.push_back(std::move(entry));
        }
        tasks = handler.pushTasks(copy->path, remote, list, force);
    }
    Value::Array reports;
    bool ok = runTasks(tasks, {json, "push"}, reports);
    return finish(ok, Record{{"remote", remote}, {"success", ok}, {"tasks", reports}}, json);
}

const Subcommand& pushCommand() {
    static const Subcommand command{
        "push",
        {"push [REMOTE [BRANCH[:REMOTE_BRANCH]...]] [--all] [--force] [--set-upstream] "
         "[--repo DIR] [--json]",
         "push [REMOTE] [--branch B] [--rev R] [--force] [--repo DIR] [--json]   (Mercurial)"},
        "Send branches to a remote",
        "Pushes the current branch (or the named ones, or --all) to REMOTE (default: the "
        "current branch's upstream remote, else origin). A branch that has no upstream yet "
        "gets the pushed branch as its upstream. Passwords are asked for once and kept in the "
        "credential store; a password the remote refuses is dropped and asked for again. In a "
        "Mercurial working copy pushes to REMOTE (default: the default-push path, else "
        "default), new branches included.",
        {{"--all", "Push every branch"},
         {"--branch B", "Mercurial: only branch B"},
         {"--rev R", "Mercurial: only R and its ancestors"},
         {"--force, -f", "Overwrite the remote branches"},
         {"--set-upstream, -u", "Make the pushed branches the upstream of the local ones"},
         {"--no-set-upstream", "Leave every upstream as it is"},
         {"--repo DIR", "The repository (default: the current folder)"},
         {"--json", "Print the result as JSON"}},
        runPush,
    };
    return command;
}

// ---- pull ----------------------------------------------------------------------------------

int runPull(Arguments& args) {
    bool json = args.flag("--json");
    bool rebase = args.flag("--rebase");
    bool noFastForward = args.flag("--no-ff");
    bool includeLog = args.flag("--log");
    bool noCommit = args.flag("--no-commit");
    bool noRecursion = args.flag("--no-recurse-submodules");
    bool update = args.flag("--update");
    auto hgRevision = args.option("--rev");
    auto copy = workingCopyFromOption(args);
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 2) {
        return usageError("pull takes at most a remote and a branch");
    }
    if (!copy) {
        return 1;
    }
    if (copy->mercurial) {
        if (noFastForward || includeLog || noCommit || noRecursion || (update && rebase)) {
            return usageError(
                "in a Mercurial working copy pull takes a remote, a branch, --rev "
                "and one of --update and --rebase");
        }
        // Without a flag, what the preferences say to do after a pull.
        int64_t postPull = update ? VNRepoHandlerMercurial::PostPullUpdate
                           : rebase
                               ? VNRepoHandlerMercurial::PostPullRebase
                               : Preferences::standard().integerForKey("mercurialPostPullAction");
        std::optional<std::string> remote, branch;
        if (!rest.empty()) {
            remote = rest[0];
        }
        if (rest.size() == 2) {
            branch = rest[1];
        }
        return mercurial::pull(*copy, remote, branch, hgRevision, postPull, json);
    }
    if (update || hgRevision) {
        return usageError("--update and --rev are for Mercurial");
    }
    auto& handler = *copy->handler;
    std::string remote = rest.empty() ? defaultRemote(handler, copy->path) : rest[0];
    if (remote.empty()) {
        return usageError("name the remote to pull from: this repository has no default one");
    }
    std::string branch;
    if (rest.size() == 2) {
        branch = rest[1];
    } else {
        std::string current = handler.currentBranch(copy->path);
        std::string upstream = handler.trackingBranchesForPull(copy->path).string(current);
        branch = upstream.rfind(remote + "/", 0) == 0 ? upstream.substr(remote.size() + 1)
                 : current == "HEAD"                  ? ""
                                                      : current;
    }
    Preferences& prefs = Preferences::standard();
    bool commit = !noCommit && prefs.boolForKey("gitCommitMergedChangesImmediately");
    includeLog = includeLog || prefs.boolForKey("gitIncludeMessagesFromCommits");
    auto tasks =
        handler.pullTasks(copy->path, remote, branch, commit, includeLog, noFastForward, rebase,
                          noRecursion ? VNRepoHandlerGit::SubmoduleNoRecursion : 0);
    Value::Array reports;
    bool ok = runTasks(tasks, {json, "pull"}, reports);
    return finish(
        ok, Record{{"remote", remote}, {"branch", branch}, {"success", ok}, {"tasks", reports}},
        json);
}

const Subcommand& pullCommand() {
    static const Subcommand command{
        "pull",
        {"pull [REMOTE [BRANCH]] [--rebase] [--no-ff] [--log] [--no-commit] "
         "[--no-recurse-submodules] [--repo DIR] [--json]",
         "pull [REMOTE [BRANCH]] [--rev R] [--update | --rebase] [--repo DIR] [--json]   "
         "(Mercurial)"},
        "Fetch from a remote and merge or rebase onto it",
        "Fetches REMOTE (default: the current branch's upstream remote, else origin), merges "
        "BRANCH (default: the current branch's upstream) into the current branch, or rebases "
        "onto it with --rebase, then updates the submodules. Whether the merge is committed "
        "follows the preference gitCommitMergedChangesImmediately; --no-commit stops before "
        "committing in any case. In a Mercurial working copy pulls from REMOTE (default: the "
        "default path), then updates (--update), rebases (--rebase) or does what the "
        "preference mercurialPostPullAction says.",
        {{"--rebase", "Rebase the current branch instead of merging"},
         {"--update", "Mercurial: update the working copy after the pull"},
         {"--rev R", "Mercurial: only R and its ancestors"},
         {"--no-ff", "Make a merge commit even when a fast-forward would do"},
         {"--log", "Add the merged commits' subjects to the merge message"},
         {"--no-commit", "Stop before committing the merge"},
         {"--no-recurse-submodules", "Update only the top-level submodules"},
         {"--repo DIR", "The repository (default: the current folder)"},
         {"--json", "Print the result as JSON"}},
        runPull,
    };
    return command;
}

// ---- fetch ---------------------------------------------------------------------------------

int runFetch(Arguments& args) {
    bool json = args.flag("--json");
    bool prune = args.flag("--prune");
    bool tags = args.flag("--tags");
    bool all = args.flag("--all");
    auto copy = workingCopyFromOption(args);
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1 || (all && !rest.empty())) {
        return usageError("fetch takes one remote, or --all");
    }
    if (!copy) {
        return 1;
    }
    if (copy->mercurial) {
        if (prune || tags || all) {
            return usageError("--prune, --tags and --all are for Git");
        }
        // Mercurial's download without touching the working copy is a pull.
        std::optional<std::string> remote;
        if (!rest.empty()) {
            remote = rest[0];
        }
        return mercurial::pull(*copy, remote, std::nullopt, std::nullopt,
                               VNRepoHandlerMercurial::PostPullNone, json);
    }
    std::optional<std::string> remote;
    if (!rest.empty()) {
        remote = rest[0];
    }
    auto tasks = copy->handler->fetchTasks(copy->path, remote, prune, tags);
    Value::Array reports;
    bool ok = runTasks(tasks, {json, "fetch"}, reports);
    if (ok && tasks.empty() && !json) {
        std::cout << "No remotes to fetch from\n";
    }
    return finish(
        ok,
        Record{{"remote", remote ? Value(*remote) : Value()}, {"success", ok}, {"tasks", reports}},
        json);
}

const Subcommand& fetchCommand() {
    static const Subcommand command{
        "fetch",
        {"fetch [REMOTE | --all] [--prune] [--tags] [--repo DIR] [--json]"},
        "Download the branches and tags of one remote or all of them",
        "Fetches REMOTE, or every remote when none is named, and the Subversion remote of a "
        "repository bridged to one. In a Mercurial working copy pulls from REMOTE (default: "
        "the default path) without touching the working copy.",
        {{"--all", "Every remote (the default without REMOTE)"},
         {"--prune", "Drop remote branches the remote no longer has"},
         {"--tags", "Fetch every tag"},
         {"--repo DIR", "The repository (default: the current folder)"},
         {"--json", "Print the result as JSON"}},
        runFetch,
    };
    return command;
}

}  // namespace vn::cli
