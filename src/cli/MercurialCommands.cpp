// vrnl's write commands in a Mercurial working copy (commit, init, clone, push, pull, fetch),
// and update, merge, resolve, tag, bookmark, backout and shelve, which only Mercurial has here.

#include "cli/MercurialCommands.h"

#include <filesystem>
#include <iostream>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "git/VNRepoHandlerGit.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNFileStatusEntity.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"

namespace vn::cli {

namespace {

std::shared_ptr<VNRepoHandlerMercurial> mercurialHandler() {
    return std::dynamic_pointer_cast<VNRepoHandlerMercurial>(
        VNApplication::shared().handlerForType(VNRepositoryTypeMercurial));
}

// The Mercurial working copy of --repo (or the current folder); says why not when it is a Git
// one or none.
std::optional<history::GitWorkingCopy> mercurialCopy(Arguments& args, const std::string& command) {
    std::string start = args.option("--repo").value_or(".");
    auto copy = history::findGitWorkingCopy(start, true);
    if (copy && !copy->mercurial) {
        std::cerr << "vrnl: " << command << " works in Mercurial working copies; "
                  << display(copy->path) << " is a Git one\n";
        return std::nullopt;
    }
    return copy;
}

// "rev:short" of the working copy's first parent and its branch, as hg names them.
std::string parentLine(VNRepoHandlerMercurial& hg, const std::string& path) {
    Record summary = hg.summary(path);
    std::string line = "Working copy at " + display(summary.string("parent1"));
    std::string branch = summary.string("branch");
    if (!branch.empty()) {
        line += " on branch " + display(branch);
    }
    if (summary.boolean("ismerge")) {
        line += ", merging " + display(summary.string("parent2"));
    }
    if (int64_t unresolved = summary.integer("numfilesunresolved"); unresolved > 0) {
        line += ", " + std::to_string(unresolved) + " unresolved (see vrnl resolve --list)";
    }
    return line;
}

// What every operation answers: where, whether it worked, and the tasks it ran.
Record taskRecord(const std::string& path, bool ok, Value::Array reports) {
    return Record{{"path", path}, {"success", ok}, {"tasks", std::move(reports)}};
}

// The same with the working copy's summary afterwards (the keys of the summary record).
Record resultRecord(VNRepoHandlerMercurial& hg, const std::string& path, bool ok,
                    Value::Array reports) {
    Record result = taskRecord(path, ok, std::move(reports));
    result.set("summary", hg.summary(path));
    return result;
}

// The file names as hg takes them: relative to the working copy's root. A name outside it is
// left as written, for hg to refuse in its own words.
std::vector<std::string> rootRelative(const std::string& root, std::vector<std::string> files) {
    std::error_code error;
    std::filesystem::path base = std::filesystem::weakly_canonical(root, error);
    for (std::string& file : files) {
        if (auto relative = relativeToRoot(base, file)) {
            file = std::move(*relative);
        }
    }
    return files;
}

}  // namespace

namespace mercurial {

bool isMercurialSource(const std::string& source) {
    if (source.find("://") != std::string::npos) {
        return false;
    }
    return fs::isDirectory(fs::appendPathComponent(source, ".hg")) ||
           ((source.ends_with(".hg") || source.ends_with(".bundle")) && fs::exists(source) &&
            !fs::isDirectory(source));
}

int commit(const history::GitWorkingCopy& copy, const std::string& message,
           std::vector<std::string> files, const std::string& author, bool amend, bool json) {
    auto& hg = *copy.mercurial;
    files = rootRelative(copy.path, std::move(files));
    auto task =
        hg.commitTask(copy.path, message, files,
                      author.empty() ? std::nullopt : std::optional<std::string>(author), amend);
    if (!task) {
        std::cerr << "vrnl: cannot write the commit message to a temporary file\n";
        return 1;
    }
    Value::Array reports;
    bool ok = runTaskList({task}, json, reports);
    Record result = taskRecord(copy.path, ok, std::move(reports));
    if (ok) {
        Record details = hg.revisionDetails(copy.path, ".");
        result.set("commit", details.string("changeset"));
        result.set("rev", details.string("rev"));
        if (!json) {
            // hg leaves the branch of a changeset on "default" unnamed.
            std::string branch = details.string("branch");
            std::cout << "[" << display(branch.empty() ? "default" : branch) << " "
                      << display(details.string("rev")) << ":"
                      << details.string("changeset").substr(0, 12) << "] "
                      << display(details.string("messagefirstline")) << "\n";
        }
    }
    return finish(ok, result, json);
}

int init(const std::string& path, bool json) {
    auto hg = mercurialHandler();
    Value::Array reports;
    bool ok = hg && runTaskList({hg->createNewRepoTask(path)}, json, reports);
    if (ok && !json) {
        std::cout << "Created a Mercurial repository in " << display(path) << "\n";
    }
    return finish(ok, taskRecord(path, ok, std::move(reports)), json);
}

int clone(const std::string& source, const std::string& destination, bool noCheckout,
          const std::optional<std::string>& branch, bool quiet, bool json) {
    auto hg = mercurialHandler();
    Record options{{"clonegetworkingcopy", !noCheckout}, {"cloneVerbose", !quiet && !json}};
    if (branch) {
        options.set("clonebranch", *branch);
    }
    bool existedBefore = fs::exists(destination);
    Value::Array reports;
    bool ok =
        hg && runTaskList({hg->cloneTaskForSource(source, destination, options)}, json, reports);
    // hg leaves nothing behind on failure itself; a folder made here for it is removed.
    bool removed = !ok && VNRepoHandlerGit::discardIncompleteClone(destination, existedBefore);
    if (ok && !json) {
        std::cout << "Cloned into " << display(destination) << "\n";
    }
    return finish(ok,
                  Record{{"source", CredentialStore::redactURLPasswords(source)},
                         {"destination", destination},
                         {"success", ok},
                         {"removedIncompleteClone", removed},
                         {"tasks", reports}},
                  json);
}

int push(const history::GitWorkingCopy& copy, const std::optional<std::string>& remote,
         const std::optional<std::string>& branch, const std::optional<std::string>& revision,
         bool force, bool json) {
    auto& hg = *copy.mercurial;
    std::string target =
        remote.value_or(VNRepoHandlerMercurial::defaultPathAmong(hg.remotePaths(copy.path), true));
    if (target.empty()) {
        return usageError("name the remote to push to: this repository has no default path");
    }
    Value::Array reports;
    bool ok = runTaskList({hg.pushTask(copy.path, target, branch, revision, force)}, json, reports);
    return finish(ok, Record{{"remote", target}, {"success", ok}, {"tasks", reports}}, json);
}

int pull(const history::GitWorkingCopy& copy, const std::optional<std::string>& remote,
         const std::optional<std::string>& branch, const std::optional<std::string>& revision,
         int64_t postPull, bool json) {
    auto& hg = *copy.mercurial;
    std::string source =
        remote.value_or(VNRepoHandlerMercurial::defaultPathAmong(hg.remotePaths(copy.path), false));
    if (source.empty()) {
        return usageError("name the remote to pull from: this repository has no default path");
    }
    Value::Array reports;
    bool ok =
        runTaskList({hg.pullTask(copy.path, source, branch, revision, postPull)}, json, reports);
    Record result = resultRecord(hg, copy.path, ok, std::move(reports));
    result.set("remote", source);
    if (!json && ok) {
        std::cout << parentLine(hg, copy.path) << "\n";
    }
    return finish(ok, result, json);
}

}  // namespace mercurial

// ---- update, merge, backout ----------------------------------------------------------------

namespace {

// Runs the tasks of a command that moves the working copy and finishes with their result. The
// human form then shows where the working copy is (after a failure too when
// `parentAfterFailure`), and `nextStep` after a success.
int runThenShowParent(VNRepoHandlerMercurial& hg, const std::string& path, const VNTaskList& tasks,
                      bool json, bool parentAfterFailure, const char* nextStep = nullptr) {
    Value::Array reports;
    bool ok = runTaskList(tasks, json, reports);
    if (!json && (ok || parentAfterFailure)) {
        std::cout << parentLine(hg, path) << "\n";
        if (ok && nextStep) {
            std::cout << nextStep << "\n";
        }
    }
    return finish(ok, resultRecord(hg, path, ok, std::move(reports)), json);
}

int runUpdate(Arguments& args) {
    bool json = args.flag("--json");
    bool clean = args.flag("--clean");
    auto copy = mercurialCopy(args, "update");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("update takes at most one revision");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    return runThenShowParent(hg, copy->path,
                             rest.empty() ? hg.updateTasks(copy->path, clean, 0)
                                          : hg.updateTasks(copy->path, rest[0], clean, 0),
                             json, false);
}

int runMerge(Arguments& args) {
    bool json = args.flag("--json");
    auto copy = mercurialCopy(args, "merge");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() != 1) {
        return usageError("merge takes the revision to merge");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    return runThenShowParent(hg, copy->path, {hg.mergeTask(copy->path, rest[0], 0)}, json, true,
                             "Commit the merge with vrnl commit");
}

int runBackout(Arguments& args) {
    bool json = args.flag("--json");
    auto copy = mercurialCopy(args, "backout");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() != 1) {
        return usageError("backout takes the revision to undo");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    return runThenShowParent(hg, copy->path, {hg.backoutTask(copy->path, rest[0])}, json, true);
}

// ---- resolve -------------------------------------------------------------------------------

int runResolve(Arguments& args) {
    bool json = args.flag("--json");
    bool list = args.flag("--list");
    bool mark = args.flag("--mark");
    bool unmark = args.flag("--unmark");
    bool mine = args.flag("--mine");
    bool theirs = args.flag("--theirs");
    bool restart = args.flag("--restart");
    auto copy = mercurialCopy(args, "resolve");
    auto files = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    int actions = int(mark) + int(unmark) + int(mine) + int(theirs) + int(restart);
    if (actions > 1 || (list && actions > 0)) {
        return usageError(
            "resolve takes one of --list, --mark, --unmark, --mine, --theirs, "
            "--restart");
    }
    if (!list && actions == 0) {
        list = true;
    }
    if (!list && files.empty()) {
        return usageError("name the files to resolve");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    files = rootRelative(copy->path, std::move(files));
    Value::Array reports;
    bool ok = true;
    if (!list) {
        VNTaskList tasks;
        for (const std::string& file : files) {
            if (mark) {
                tasks.push_back(hg.markResolvedTask(copy->path, file));
            } else if (unmark) {
                tasks.push_back(hg.markUnresolvedTask(copy->path, file));
            } else if (restart) {
                auto more = hg.restartMergeTasks(copy->path, file);
                tasks.insert(tasks.end(), more.begin(), more.end());
            } else {
                auto more = hg.resolveUsingTasks(copy->path, file, mine);
                tasks.insert(tasks.end(), more.begin(), more.end());
            }
        }
        ok = runTaskList(tasks, json, reports);
    }
    // The merge's files as `hg resolve -l` lists them: resolved files carry the bit after the
    // conflict's.
    std::vector<Record> entries =
        hg.fileStatus(copy->path, VNFileStatusConflicted | (VNFileStatusConflicted << 1));
    if (json) {
        return finish(ok,
                      taskRecord(copy->path, ok, std::move(reports))
                          .set("files", Value::Array(entries.begin(), entries.end())),
                      true);
    }
    if (entries.empty()) {
        std::cout << "No merge in progress: no files to resolve\n";
    }
    for (const Record& entry : entries) {
        std::string where = entry.string(VNFileStatusKeyPath);
        std::cout << ((entry.integer(VNFileStatusKeyStatus) & VNFileStatusConflicted) ? "U " : "R ")
                  << display(where.empty() ? entry.string(VNFileStatusKeyFilename)
                                           : where + "/" + entry.string(VNFileStatusKeyFilename))
                  << "\n";
    }
    return ok ? 0 : 1;
}

// ---- tag, bookmark, shelve -----------------------------------------------------------------

int runTag(Arguments& args) {
    bool json = args.flag("--json");
    bool force = args.flag("--force");
    bool local = args.flag("--local");
    bool remove = args.flag("--remove");
    auto revision = args.option("--rev");
    auto message = args.option("--message");
    auto copy = mercurialCopy(args, "tag");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("tag takes one name");
    }
    if (remove && (rest.empty() || force || revision)) {
        return usageError("tag --remove takes a name and nothing else");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    Value::Array reports;
    bool ok = true;
    if (!rest.empty()) {
        if (rest[0].empty()) {
            return usageError("a tag needs a name");
        }
        VNTaskList tasks;
        if (remove) {
            tasks.push_back(hg.removeTagTask(copy->path, rest[0]));
        } else {
            Record options{{"local", local}};
            if (message) {
                options.set("msg", *message);
            }
            tasks = hg.tagTasks(copy->path, rest[0], revision, force, "", options);
        }
        ok = runTaskList(tasks, json, reports);
    }
    std::vector<std::string> tags = hg.tags(copy->path);
    if (json) {
        return finish(ok,
                      taskRecord(copy->path, ok, std::move(reports))
                          .set("tags", Value::Array(tags.begin(), tags.end())),
                      true);
    }
    if (rest.empty()) {
        for (const std::string& tag : tags) {
            std::cout << display(tag) << "\n";
        }
    }
    return ok ? 0 : 1;
}

int runBookmark(Arguments& args) {
    bool json = args.flag("--json");
    bool force = args.flag("--force");
    bool remove = args.flag("--delete");
    auto revision = args.option("--rev");
    auto renameTo = args.option("--rename");
    auto copy = mercurialCopy(args, "bookmark");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("bookmark takes one name");
    }
    if ((remove || renameTo || revision || force) && rest.empty()) {
        return usageError("name the bookmark");
    }
    if (remove && (renameTo || revision || force)) {
        return usageError("bookmark --delete takes a name and nothing else");
    }
    if (renameTo && (revision || renameTo->empty())) {
        return usageError("bookmark --rename takes the old name and the new one");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    Value::Array reports;
    bool ok = true;
    if (!rest.empty()) {
        std::shared_ptr<VNTask> task;
        if (remove) {
            task = hg.deleteBookmarkTask(copy->path, rest[0]);
        } else if (renameTo) {
            task = hg.renameBookmarkTask(copy->path, rest[0], *renameTo);
        } else {
            task = hg.createBookmarkTask(copy->path, rest[0], revision, force);
        }
        ok = runTaskList({task}, json, reports);
    }
    std::string active;
    std::vector<std::string> marks = hg.bookmarks(copy->path, &active);
    if (json) {
        return finish(ok,
                      taskRecord(copy->path, ok, std::move(reports))
                          .set("bookmarks", Value::Array(marks.begin(), marks.end()))
                          .set("active", active.empty() ? Value() : Value(active)),
                      true);
    }
    if (rest.empty()) {
        for (const std::string& mark : marks) {
            std::cout << (mark == active ? "* " : "  ") << display(mark) << "\n";
        }
        if (marks.empty()) {
            std::cout << "No bookmarks\n";
        }
    }
    return ok ? 0 : 1;
}

int runShelve(Arguments& args) {
    bool json = args.flag("--json");
    bool list = args.flag("--list");
    bool keep = args.flag("--keep");
    auto name = args.option("--name");
    auto message = args.option("--message");
    auto apply = args.option("--apply");
    auto remove = args.option("--delete");
    auto copy = mercurialCopy(args, "shelve");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (!rest.empty()) {
        return usageError("shelve takes its names through --name, --apply and --delete");
    }
    if (int(list) + int(apply.has_value()) + int(remove.has_value()) > 1 ||
        ((list || apply || remove) && (name || message)) || (keep && !apply)) {
        return usageError(
            "shelve takes one of: [--name N] [--message M], --list, "
            "--apply NAME [--keep], --delete NAME");
    }
    if (!copy) {
        return 1;
    }
    auto& hg = *copy->mercurial;
    Value::Array reports;
    bool ok = true;
    if (apply) {
        ok = runTaskList({hg.applyStashTask(copy->path, *apply, !keep, 0)}, json, reports);
    } else if (remove) {
        ok = hg.deleteStash(copy->path, *remove);
        if (!ok && !json) {
            std::cerr << "vrnl: no shelf \"" << display(*remove) << "\" to delete\n";
        }
    } else if (!list) {
        ok = runTaskList(
            {hg.createStashTask(copy->path, name.value_or(""), message.value_or(""), 0)}, json,
            reports);
    }
    std::vector<Record> shelves = hg.listStashes(copy->path);
    if (json) {
        return finish(ok,
                      taskRecord(copy->path, ok, std::move(reports))
                          .set("shelves", Value::Array(shelves.begin(), shelves.end())),
                      true);
    }
    if (list) {
        for (const Record& shelf : shelves) {
            std::cout << display(shelf.string("name")) << "\n";
        }
        if (shelves.empty()) {
            std::cout << "No shelves\n";
        }
    }
    return ok ? 0 : 1;
}

const OptionHelp RepoOption{"--repo DIR", "The working copy (default: the current folder)"};
const OptionHelp JsonOption{"--json", "Print the result as JSON"};

}  // namespace

const Subcommand& updateCommand() {
    static const Subcommand command{
        "update",
        {"update [REV] [--clean] [--repo DIR] [--json]"},
        "Mercurial: move the working copy to another revision",
        "Updates the working copy to REV (a revision number, hash, tag, branch or bookmark; by "
        "default the newest head of its branch), carrying uncommitted changes along unless they "
        "conflict. With --clean uncommitted changes are thrown away. Prints the new parent.",
        {{"--clean", "Discard uncommitted changes"}, RepoOption, JsonOption},
        runUpdate,
    };
    return command;
}

const Subcommand& mergeCommand() {
    static const Subcommand command{
        "merge",
        {"merge REV [--repo DIR] [--json]"},
        "Mercurial: merge another revision into the working copy",
        "Merges REV into the working copy, with the program's own merge tool; the merge is "
        "committed with vrnl commit. Conflicts are listed by vrnl resolve --list.",
        {RepoOption, JsonOption},
        runMerge,
    };
    return command;
}

const Subcommand& backoutCommand() {
    static const Subcommand command{
        "backout",
        {"backout REV [--repo DIR] [--json]"},
        "Mercurial: undo a changeset in a new one",
        "Commits the reverse of REV's changes (\"Backout changeset REV\"), merging when REV is "
        "not the working copy's parent.",
        {RepoOption, JsonOption},
        runBackout,
    };
    return command;
}

const Subcommand& resolveCommand() {
    static const Subcommand command{
        "resolve",
        {"resolve [--list] [--repo DIR] [--json]",
         "resolve (--mark | --unmark | --mine | --theirs | --restart) FILE..."},
        "Mercurial: list and resolve the conflicts of a merge",
        "Without an action lists the merge's files, \"U\" unresolved and \"R\" resolved. The "
        "actions apply to each FILE: mark it resolved or unresolved, take the working copy's "
        "side (--mine) or the other side (--theirs), or merge it again (--restart).",
        {{"--list", "List the files of the merge (the default)"},
         {"--mark", "Mark the files resolved"},
         {"--unmark", "Mark the files unresolved"},
         {"--mine", "Resolve the files with the working copy's version"},
         {"--theirs", "Resolve the files with the merged revision's version"},
         {"--restart", "Merge the files again"},
         RepoOption,
         JsonOption},
        runResolve,
    };
    return command;
}

const Subcommand& tagCommand() {
    static const Subcommand command{
        "tag",
        {"tag [--repo DIR] [--json]", "tag NAME [--rev REV] [--force] [--local] [--message TEXT]",
         "tag NAME --remove"},
        "Mercurial: list, add or remove tags",
        "Without NAME lists the tags. With NAME tags REV (default: the working copy's parent) in "
        "a new changeset, or only in this clone with --local; --force moves an existing tag.",
        {{"--rev REV", "The revision to tag"},
         {"--force", "Replace a tag of that name"},
         {"--local", "A tag of this clone only, not committed"},
         {"--message TEXT", "The message of the tagging changeset"},
         {"--remove", "Remove the tag"},
         RepoOption,
         JsonOption},
        runTag,
    };
    return command;
}

const Subcommand& bookmarkCommand() {
    static const Subcommand command{
        "bookmark",
        {"bookmark [--repo DIR] [--json]", "bookmark NAME [--rev REV] [--force]",
         "bookmark NAME (--delete | --rename NEW)"},
        "Mercurial: list, set, rename or delete bookmarks",
        "Without NAME lists the bookmarks, the active one marked \"*\". With NAME sets the "
        "bookmark on REV (default: the working copy's parent); --force moves an existing one.",
        {{"--rev REV", "The revision to set the bookmark on"},
         {"--force", "Move a bookmark that exists"},
         {"--delete", "Delete the bookmark"},
         {"--rename NEW", "Rename the bookmark to NEW"},
         RepoOption,
         JsonOption},
        runBookmark,
    };
    return command;
}

const Subcommand& shelveCommand() {
    static const Subcommand command{
        "shelve",
        {"shelve [--name N] [--message TEXT] [--repo DIR] [--json]", "shelve --list",
         "shelve --apply NAME [--keep]", "shelve --delete NAME"},
        "Mercurial: put uncommitted changes aside and bring them back",
        "Without options shelves every uncommitted change and leaves a clean working copy. "
        "--apply brings a shelf back and removes it unless --keep is given.",
        {{"--name N", "The shelf's name (default: the bookmark or branch)"},
         {"--message TEXT", "A description of the shelf"},
         {"--list", "List the shelves, newest first"},
         {"--apply NAME", "Bring shelf NAME back"},
         {"--keep", "With --apply, keep the shelf"},
         {"--delete NAME", "Delete shelf NAME"},
         RepoOption,
         JsonOption},
        runShelve,
    };
    return command;
}

}  // namespace vn::cli
