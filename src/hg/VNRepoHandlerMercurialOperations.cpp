// The Mercurial commands that change a repository: each builds its argument vector and answers
// unstarted tasks for the caller's queue.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "base/Format.h"
#include "base/Regex.h"
#include "base/TextEncoding.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Preferences.h"

namespace {

// The program's own merge tool outranks any the user configured.
constexpr const char* BulkMergePriority = "merge-tools.varnelbulkmerge.priority=999999";

// hg reads "kind:" at the start of a file argument as a pattern kind ("re:", "glob:", ...); from
// "./" on a name holding a colon is a plain path again.
std::string fileArgument(const std::string& file) {
    return file.find(':') == std::string::npos || file.starts_with('/') ? file : "./" + file;
}

std::string trimmed(std::string_view text) {
    const char* blanks = " \t\r\n\v\f";
    std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    std::size_t last = text.find_last_not_of(blanks);
    return std::string(text.substr(first, last - first + 1));
}

// A file made exclusively in the temporary folder, removed when the last owner lets go.
class TemporaryFile {
  public:
    static std::shared_ptr<TemporaryFile> create(const std::string& prefix,
                                                 std::string_view contents) {
        std::error_code ec;
        std::string folder = std::filesystem::temp_directory_path(ec).string();
        if (ec || folder.empty()) {
            folder = "/tmp";
        }
        std::string pattern = vn::fs::appendPathComponent(folder, prefix + "XXXXXX");
        int fd = ::mkstemp(pattern.data());
        if (fd < 0) {
            vn::Log::error("cannot create a temporary file: " + std::string(strerror(errno)),
                           vn::Log::Mercurial);
            return nullptr;
        }
        auto file = std::shared_ptr<TemporaryFile>(new TemporaryFile(pattern));
        std::string_view rest = contents;
        while (!rest.empty()) {
            ssize_t written = ::write(fd, rest.data(), rest.size());
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                ::close(fd);
                return nullptr;
            }
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
        ::close(fd);
        return file;
    }
    ~TemporaryFile() {
        if (!kept_) {
            ::unlink(path_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& path() const { return path_; }
    void keep() { kept_ = true; }

  private:
    explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
    std::string path_;
    bool kept_ = false;
};

// Ties `file` to the task's life: the task runs long after the operation that made it returns.
void holdWhileTaskLives(VNTask& task, std::shared_ptr<TemporaryFile> file) {
    task.setOutputSanitizer([file](const std::string& text) { return text; });
}

bool runTasks(const VNTaskList& tasks) {
    for (const auto& task : tasks) {
        if (!task || !task->run()) {
            return false;
        }
    }
    return !tasks.empty();
}

}  // namespace

// ---- Shared pieces -----------------------------------------------------------------------------

std::vector<std::string> VNRepoHandlerMercurial::hoistConfigOptions(std::vector<std::string> args) {
    // In plain mode with strict flags hg takes "--config" only before the command word, so that
    // no value further on can pose as one.
    std::vector<std::string> configs;
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--") {
            rest.insert(rest.end(), args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
            break;
        }
        if (i > 0 && args[i] == "--config" && i + 1 < args.size()) {
            configs.push_back(args[i]);
            configs.push_back(args[++i]);
            continue;
        }
        rest.push_back(std::move(args[i]));
    }
    configs.insert(configs.end(), std::make_move_iterator(rest.begin()),
                   std::make_move_iterator(rest.end()));
    return configs;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::writeTaskWithArgs(const std::string& path,
                                                                  std::vector<std::string> args) {
    return hgTaskWithArgs(path, hoistConfigOptions(std::move(args)));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::writeTask(const std::string& path,
                                                          const std::string& command,
                                                          std::vector<std::string> args) {
    std::vector<std::string> all = defaultArgsForPath(path, command);
    all.insert(all.end(), std::make_move_iterator(args.begin()),
               std::make_move_iterator(args.end()));
    return writeTaskWithArgs(path, std::move(all));
}

void VNRepoHandlerMercurial::explainMissingExtension(VNTask& task, const std::string& extension,
                                                     std::vector<std::string> markers) {
    auto explained = std::make_shared<bool>(false);
    task.setErrorOutputSanitizer(
        [extension, markers = std::move(markers), explained](const std::string& text) {
            if (*explained) {
                return text;
            }
            for (const std::string& marker : markers) {
                if (text.find(marker) != std::string::npos) {
                    *explained = true;
                    std::string note = vn::format(
                        "This needs the Mercurial extension \"%@\", which is not installed or "
                        "not enabled.\n",
                        extension);
                    return text.empty() || text.back() == '\n' ? text + note : text + "\n" + note;
                }
            }
            return text;
        });
}

VNTaskList VNRepoHandlerMercurial::fileTasks(const std::string& path, const std::string& command,
                                             std::vector<std::string> args,
                                             const std::vector<std::string>& files) {
    std::vector<std::string> base = defaultArgsForPath(path, command);
    base.insert(base.end(), std::make_move_iterator(args.begin()),
                std::make_move_iterator(args.end()));
    base = hoistConfigOptions(std::move(base));
    base.emplace_back("--");
    std::vector<std::string> arguments;
    arguments.reserve(files.size());
    for (const std::string& file : files) {
        arguments.push_back(fileArgument(file));
    }
    VNTaskList tasks = splitTaskIfRequired(path, base, hgPath(), arguments);
    for (const auto& task : tasks) {
        task->setEnvironmentCustomisations(plainEnvironment());
    }
    return tasks;
}

// ---- Repositories ------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::cloneTaskForSource(const std::string& source,
                                                                   const std::string& destination,
                                                                   const vn::Record& options) {
    std::vector<std::string> args = defaultArgsForPath(destination, "clone");
    if (!options.boolean("clonegetworkingcopy")) {
        args.emplace_back("--noupdate");
    }
    if (options.boolean("cloneVerbose")) {
        args.emplace_back("--verbose");
    }
    for (auto [key, flag] : {std::pair{"cloneupdaterev", "-u"}, std::pair{"clonerev", "-r"},
                             std::pair{"clonebranch", "-b"}}) {
        std::string value = trimmed(options.string(key));
        if (!value.empty()) {
            args.emplace_back(flag);
            args.push_back(std::move(value));
        }
    }
    args.emplace_back("--");
    args.push_back(trimmed(source));
    args.push_back(destination);
    // The clone runs beside the new folder, which does not exist yet.
    std::string parent = vn::fs::deletingLastPathComponent(destination);
    auto task = writeTaskWithArgs(parent.empty() ? "." : parent, std::move(args));
    configureSshAskPass(parent, trimmed(source), *task);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::cloneSvnTaskForSource(
    const std::string& source, int64_t fromRevision, const std::string& destination,
    const vn::Record& options) {
    std::vector<std::string> args = defaultArgsForPath(destination, "clone");
    std::string authors = options.string("authorsFiles");
    if (!authors.empty()) {
        args.emplace_back("--config");
        args.push_back("hgsubversion.authormap=" + authors);
    }
    if (fromRevision > 0) {
        args.emplace_back("--startrev");
        args.push_back(vn::format("%d", fromRevision));
    }
    args.emplace_back("--layout");
    args.emplace_back("single");
    std::string url = trimmed(source);
    if (url.rfind("svn+", 0) != 0 && url.rfind("svn://", 0) != 0) {
        url = "svn+" + url;
    }
    args.emplace_back("--");
    args.push_back(url);
    args.push_back(destination);
    std::string parent = vn::fs::deletingLastPathComponent(destination);
    auto task = writeTaskWithArgs(parent.empty() ? "." : parent, std::move(args));
    configureSshAskPass(parent, url, *task);
    // Without hgsubversion hg knows neither the options nor the "svn+" addresses.
    explainMissingExtension(*task, "hgsubversion",
                            {"option --layout not recognized", "option --startrev not recognized",
                             "repository " + url + " not found", "No module named 'hgsubversion'"});
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::createNewRepoTask(const std::string& path) {
    return writeTask(path, "init");
}

// ---- Commits -----------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::commitTask(const std::string& path,
                                                           const std::string& message,
                                                           const std::vector<std::string>& files,
                                                           const std::optional<std::string>& author,
                                                           bool amend) {
    std::string text = trimmed(message);
    if (text.empty()) {
        text = "no message";
    }
    auto messageFile = TemporaryFile::create("varnel-hg-commit-", text);
    if (!messageFile) {
        return nullptr;
    }
    std::vector<std::string> args = defaultArgsForPath(path, "commit");
    if (author && !author->empty()) {
        args.emplace_back("--user");
        args.push_back(*author);
    }
    if (amend) {
        args.emplace_back("--amend");
    }
    args.emplace_back("--logfile");
    args.push_back(messageFile->path());
    if (!files.empty()) {
        args.emplace_back("--");
        for (const std::string& file : files) {
            args.push_back(fileArgument(file));
        }
    }
    auto task = writeTaskWithArgs(path, std::move(args));
    holdWhileTaskLives(*task, std::move(messageFile));
    return task;
}

std::string VNRepoHandlerMercurial::gpgCommand() {
    std::string folder = vn::Preferences::standard().stringForKey("gpgProgram");
    if (!folder.empty()) {
        return vn::fs::appendPathComponent(folder, "gpg2");
    }
    return vn::fs::findExecutable("gpg").value_or("gpg");
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::signTask(
    const std::string& path, const std::string& key, const std::string& revision,
    const std::optional<std::string>& message, const std::optional<std::string>& tagName) {
    std::string text = message.value_or("");
    if (text.empty()) {
        text = tagName ? vn::format("Signed tag %@ for revision %@", *tagName, revision)
                       : vn::format("Signed revision %@", revision);
    }
    std::vector<std::string> args = defaultArgsForPath(path, "sign");
    args.emplace_back("--config");
    args.push_back("gpg.cmd=" + gpgCommand());
    args.emplace_back("-k");
    args.push_back(key);
    args.emplace_back("-m");
    args.push_back(std::move(text));
    args.emplace_back("--");
    args.push_back(revision);
    auto task = writeTaskWithArgs(path, std::move(args));
    explainMissingExtension(*task, "gpg", {"unknown command 'sign'"});
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::backoutTask(const std::string& path,
                                                            const std::string& revision) {
    return writeTask(
        path, "backout",
        {"--merge", "-m", vn::format("Backout changeset %@", revision), "--", revision});
}

// ---- Files -------------------------------------------------------------------------------------

VNTaskList VNRepoHandlerMercurial::addTasks(const std::string& path,
                                            const std::vector<std::string>& files) {
    return fileTasks(path, "add", {}, files);
}

VNTaskList VNRepoHandlerMercurial::addRemoveTasks(const std::string& path) {
    return {writeTask(path, "addremove", {"--similarity", "100"})};
}

VNTaskList VNRepoHandlerMercurial::removeTasks(const std::string& path,
                                               const std::vector<std::string>& files) {
    return fileTasks(path, "remove", {"-f"}, files);
}

VNTaskList VNRepoHandlerMercurial::stopTrackingTasks(const std::string& path,
                                                     const std::vector<std::string>& files) {
    return fileTasks(path, "forget", {}, files);
}

VNTaskList VNRepoHandlerMercurial::copyTasks(const std::string& path, const std::string& source,
                                             const std::string& destination) {
    return {writeTask(path, "copy", {"-f", "--", fileArgument(source), destination})};
}

VNTaskList VNRepoHandlerMercurial::moveTasks(const std::string& path, const std::string& source,
                                             const std::string& destination) {
    return {writeTask(path, "rename", {"-f", "--", fileArgument(source), destination})};
}

VNTaskList VNRepoHandlerMercurial::revertTasks(const std::string& path,
                                               const std::vector<std::string>& files,
                                               uint64_t options, uint64_t submoduleOptions) {
    return revertTasks(path, files, std::string(), options, submoduleOptions);
}

VNTaskList VNRepoHandlerMercurial::revertTasks(const std::string& path,
                                               const std::vector<std::string>& files,
                                               const std::string& revision, uint64_t /*options*/,
                                               uint64_t submoduleOptions) {
    std::vector<std::string> args;
    if (!revision.empty()) {
        args = {"-r", revision};
    }
    if (!vn::Preferences::standard().boolForKey("backupOnRevert")) {
        args.emplace_back("--no-backup");
    }
    VNTaskList tasks = fileTasks(path, "revert", std::move(args), files);
    if (tasks.empty() || !vn::fs::exists(vn::fs::appendPathComponent(path, ".hgsub"))) {
        return tasks;
    }
    // hg restores ".hgsubstate" but leaves the subrepositories where they are: each one the
    // revert touches is brought to the revision the restored state records.
    auto state =
        hgQueryTask(path, "cat", {"-r", revision.empty() ? "." : revision, "--", ".hgsubstate"});
    if (!runQuery(state)) {
        return tasks;
    }
    bool revertsState = false;
    for (const std::string& file : files) {
        revertsState = revertsState || file == ".hgsubstate";
    }
    static const vn::Regex line(R"((\S+)\s+(\S+))");
    for (std::string_view rest = state->output(); !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view text = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        auto match = line.match(text);
        if (!match) {
            continue;
        }
        std::string hash = match->str(1);
        std::string subpath = match->str(2);
        bool named = revertsState;
        for (const std::string& file : files) {
            named = named || file == subpath || file == ".";
        }
        std::string folder = vn::fs::appendPathComponent(path, subpath);
        if (!named || !vn::fs::isDirectory(vn::fs::appendPathComponent(folder, ".hg"))) {
            continue;
        }
        auto current = hgQueryTask(folder, "id", {"-i", "--debug"});
        if (!runQuery(current)) {
            continue;
        }
        std::string id = trimmed(current->output());
        id = id.substr(0, id.find('+'));
        if (id != hash) {
            VNTaskList update = updateTasks(folder, hash, false, submoduleOptions);
            tasks.insert(tasks.end(), update.begin(), update.end());
        }
    }
    return tasks;
}

// ---- Remotes -----------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::pushTask(const std::string& path,
                                                         const std::string& remote) {
    return pushTask(path, remote, std::nullopt, std::nullopt, false);
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::pushTask(const std::string& path,
                                                         const std::string& remote,
                                                         bool forcePush) {
    return pushTask(path, remote, std::nullopt, std::nullopt, forcePush);
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::pushTaskRemoteName(const std::string& path,
                                                                   const std::string& remoteName) {
    return pushTask(path, remoteName, std::nullopt, std::nullopt, false);
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::pushTask(const std::string& path,
                                                         const std::string& remote,
                                                         const std::optional<std::string>& branch,
                                                         const std::optional<std::string>& revision,
                                                         bool forcePush) {
    std::vector<std::string> args;
    if (forcePush) {
        args.emplace_back("-f");
    }
    if (branch && !branch->empty()) {
        args.emplace_back("-b");
        args.push_back(*branch);
    }
    if (revision && !revision->empty()) {
        args.emplace_back("-r");
        args.push_back(*revision);
    }
    // A new branch never blocks a push.
    args.emplace_back("--new-branch");
    args.emplace_back("--");
    args.push_back(remote);
    auto task = writeTask(path, "push", std::move(args));
    configureSshAskPass(path, remote, *task);
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::pullTask(const std::string& path,
                                                         const std::string& remote,
                                                         const std::optional<std::string>& branch,
                                                         const std::optional<std::string>& revision,
                                                         int64_t postPull,
                                                         const std::optional<std::string>& bundle) {
    std::string source = bundle && !bundle->empty() ? *bundle : remote;
    std::shared_ptr<VNTask> task;
    if (postPull == PostPullFetch) {
        std::vector<std::string> args;
        if (revision && !revision->empty()) {
            args = {"-r", *revision};
        }
        std::string message =
            vn::Preferences::standard().stringForKey("mercurialFetchCommitMessage");
        if (!message.empty()) {
            args.emplace_back("-m");
            args.push_back(message);
        }
        args.emplace_back("--");
        args.push_back(source);
        task = writeTask(path, "fetch", std::move(args));
        explainMissingExtension(*task, "fetch", {"unknown command 'fetch'"});
    } else {
        std::vector<std::string> args;
        if (branch && !branch->empty()) {
            args.emplace_back("-b");
            args.push_back(*branch);
        }
        if (revision && !revision->empty()) {
            args.emplace_back("-r");
            args.push_back(*revision);
        }
        if (postPull == PostPullUpdate) {
            args.emplace_back("-u");
        } else if (postPull == PostPullRebase) {
            args.emplace_back("--rebase");
        }
        args.emplace_back("--");
        args.push_back(source);
        task = writeTask(path, "pull", std::move(args));
        if (postPull == PostPullRebase) {
            explainMissingExtension(*task, "rebase", {"option --rebase not recognized"});
        }
    }
    configureSshAskPass(path, remote, *task);
    return task;
}

// ---- Working copy and branches -----------------------------------------------------------------

VNTaskList VNRepoHandlerMercurial::updateTasks(const std::string& path, bool clean,
                                               uint64_t submoduleUpdateOptions) {
    return updateTasks(path, std::string(), clean, submoduleUpdateOptions);
}

VNTaskList VNRepoHandlerMercurial::updateTasks(const std::string& path, const std::string& revision,
                                               bool clean, uint64_t /*submoduleUpdateOptions*/) {
    std::vector<std::string> args;
    if (!revision.empty()) {
        args = {"-r", revision};
    }
    if (clean) {
        args.emplace_back("--clean");
    }
    return {writeTask(path, "update", std::move(args))};
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::branchTask(const std::string& path,
                                                           const std::string& name) {
    return writeTask(path, "branch", {"--", name});
}

VNTaskList VNRepoHandlerMercurial::branchTasks(const std::string& path, const std::string& name,
                                               const std::optional<std::string>& revision) {
    VNTaskList tasks;
    if (revision && !revision->empty()) {
        tasks = updateTasks(path, *revision, false, 0);
    }
    tasks.push_back(branchTask(path, name));
    return tasks;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::resetBranchTask(const std::string& path) {
    return writeTask(path, "branch", {"-C"});
}

VNTaskList VNRepoHandlerMercurial::closeBranchTasks(const std::string& path,
                                                    const std::string& branch,
                                                    const std::string& returnTo) {
    VNTaskList tasks = updateTasks(path, branch, false, 0);
    tasks.push_back(writeTask(path, "commit",
                              {"--close-branch", "-m", vn::format("Closed branch %@", branch)}));
    VNTaskList back = updateTasks(path, returnTo, false, 0);
    tasks.insert(tasks.end(), back.begin(), back.end());
    return tasks;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::mergeTask(const std::string& path,
                                                          const std::string& revision,
                                                          uint64_t /*options*/) {
    return writeTask(path, "merge", {"--config", BulkMergePriority, "--", revision});
}

// ---- Conflicts ---------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::visualMergeTask(const std::string& path,
                                                                const std::string& filename) {
    return writeTask(path, "resolve",
                     {"--config", "ui.merge=varnelmerge", "--", fileArgument(filename)});
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::markResolvedTask(const std::string& path,
                                                                 const std::string& filename) {
    return writeTask(path, "resolve", {"-m", "--", fileArgument(filename)});
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::markUnresolvedTask(const std::string& path,
                                                                   const std::string& filename) {
    return writeTask(path, "resolve", {"-u", "--", fileArgument(filename)});
}

VNTaskList VNRepoHandlerMercurial::restartMergeTasks(const std::string& path,
                                                     const std::string& filename) {
    return {
        markUnresolvedTask(path, filename),
        writeTask(path, "resolve", {"--config", BulkMergePriority, "--", fileArgument(filename)})};
}

VNTaskList VNRepoHandlerMercurial::resolveUsingTasks(const std::string& path,
                                                     const std::string& filename, bool mine) {
    return {markUnresolvedTask(path, filename),
            writeTask(path, "resolve",
                      {"--config", mine ? "ui.merge=internal:local" : "ui.merge=internal:other",
                       "--", fileArgument(filename)})};
}

bool VNRepoHandlerMercurial::markResolved(const std::string& path, const std::string& filename) {
    return runTasks({markResolvedTask(path, filename)});
}

bool VNRepoHandlerMercurial::markUnresolved(const std::string& path, const std::string& filename) {
    return runTasks({markUnresolvedTask(path, filename)});
}

bool VNRepoHandlerMercurial::resolveUsingMine(const std::string& path,
                                              const std::string& filename) {
    return runTasks(resolveUsingTasks(path, filename, true));
}

bool VNRepoHandlerMercurial::resolveUsingTheirs(const std::string& path,
                                                const std::string& filename) {
    return runTasks(resolveUsingTasks(path, filename, false));
}

bool VNRepoHandlerMercurial::restartMerge(const std::string& path, const std::string& filename) {
    return runTasks(restartMergeTasks(path, filename));
}

// ---- External diff -----------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::externalDiffTask(const std::string& path,
                                                                 const std::string& filename,
                                                                 uint64_t /*options*/) {
    return externalDiffTask(path, filename, std::string("-1"), std::string("-1"));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::externalDiffTask(const std::string& path,
                                                                 const std::string& filename,
                                                                 const std::string& baseRevision,
                                                                 uint64_t /*options*/) {
    return externalDiffTask(path, filename, baseRevision.empty() ? "-1" : baseRevision,
                            std::string("-1"));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::externalDiffTask(const std::string& path,
                                                                 const std::string& filename,
                                                                 const std::string& revision) {
    std::vector<std::string> args{"--rev", revision, "--", fileArgument(filename)};
    auto task = writeTask(path, "varneldiff", std::move(args));
    explainMissingExtension(*task, "extdiff", {"unknown command 'varneldiff'"});
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::externalDiffTask(const std::string& path,
                                                                 const std::string& filename,
                                                                 const std::string& revisionFrom,
                                                                 const std::string& revisionTo) {
    std::vector<std::string> args;
    bool fromWorking = revisionFrom.empty() || revisionFrom == "-1";
    bool toWorking = revisionTo.empty() || revisionTo == "-1";
    if (!fromWorking && !toWorking) {
        args = {"--rev", vn::format("%@:%@", revisionFrom, revisionTo)};
    } else if (!fromWorking || !toWorking) {
        args = {"--rev", fromWorking ? revisionTo : revisionFrom};
    }
    args.emplace_back("--");
    args.push_back(fileArgument(filename));
    auto task = writeTask(path, "varneldiff", std::move(args));
    explainMissingExtension(*task, "extdiff", {"unknown command 'varneldiff'"});
    return task;
}

// ---- Tags --------------------------------------------------------------------------------------

VNTaskList VNRepoHandlerMercurial::tagTasks(const std::string& path, const std::string& withName,
                                            bool replaceExisting, const std::string& gpgKey,
                                            const vn::Record& options) {
    return tagTasks(path, withName, std::nullopt, replaceExisting, gpgKey, options);
}

VNTaskList VNRepoHandlerMercurial::tagTasks(const std::string& path, const std::string& withName,
                                            const std::optional<std::string>& revision,
                                            bool replaceExisting, const std::string& gpgKey,
                                            const vn::Record& options) {
    std::vector<std::string> args;
    if (revision && !revision->empty()) {
        args = {"-r", *revision};
    }
    if (replaceExisting) {
        args.emplace_back("-f");
    }
    if (options.boolean("local")) {
        args.emplace_back("-l");
    }
    args.emplace_back("--");
    args.push_back(withName);
    VNTaskList tasks{writeTask(path, "tag", std::move(args))};
    if (!gpgKey.empty()) {
        // Tagging commits ".hgtags" and moves the working parent, so the tagged changeset is
        // named by its hash before anything runs.
        std::string target = revision && !revision->empty() ? *revision : ".";
        auto node = hgQueryTask(path, "log", {"-r", target, "--template", "{node}"});
        if (runQuery(node) && !node->output().empty()) {
            target = trimmed(node->output());
        }
        tasks.push_back(signTask(path, gpgKey, target, std::nullopt, withName));
    }
    return tasks;
}

bool VNRepoHandlerMercurial::isTagLocal(const std::string& path, const std::string& name) {
    auto task = hgQueryTask(path, "tags", {"-v"});
    if (!runQuery(task)) {
        return false;
    }
    static const vn::Regex tagLine(R"((.+?)\s+(-?\d+):([a-z0-9]+)(.*))");
    std::string_view rest = task->output();
    while (!rest.empty()) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        auto match = tagLine.match(line);
        if (match && match->str(1) == name) {
            return trimmed(match->str(4)) == "local";
        }
    }
    return false;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::removeTagTask(const std::string& path,
                                                              const std::string& withName) {
    std::vector<std::string> args{"--remove"};
    if (isTagLocal(path, withName)) {
        args.emplace_back("-l");
    }
    args.emplace_back("--");
    args.push_back(withName);
    return writeTask(path, "tag", std::move(args));
}

// ---- Patches -----------------------------------------------------------------------------------

VNTaskList VNRepoHandlerMercurial::createPatchTasks(const std::string& path,
                                                    const std::vector<std::string>& revisions,
                                                    const std::string& saveToFile,
                                                    bool filePerRevision) {
    if (revisions.empty()) {
        return {};
    }
    // "%" starts one of hg's placeholders in the output name.
    std::string escaped;
    for (char c : saveToFile) {
        escaped += c == '%' ? "%%" : std::string(1, c);
    }
    std::string pattern = escaped;
    if (filePerRevision) {
        std::string name = vn::fs::lastPathComponent(escaped);
        std::size_t dot = name.rfind('.');
        if (dot != std::string::npos && dot > 0) {
            std::string stem = escaped.substr(0, escaped.size() - (name.size() - dot));
            pattern = vn::format("%@%%n.%@", stem, name.substr(dot + 1));
        } else {
            pattern = vn::format("%@%%n", escaped);
        }
    }
    std::vector<std::string> args{"--git", "-o", pattern, "--"};
    args.insert(args.end(), revisions.begin(), revisions.end());
    return {writeTask(path, "export", std::move(args))};
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::applyPatchTask(const std::string& path,
                                                               const std::string& filename,
                                                               const std::string& basePath,
                                                               uint32_t strip, uint32_t patchMode,
                                                               bool dryRun, uint64_t /*options*/) {
    if (dryRun) {
        vn::internalAssertion("You can't use the dryRun option in hg import");
        return nullptr;
    }
    std::vector<std::string> args;
    if (patchMode == 1) {
        args.emplace_back("--no-commit");
    }
    args.push_back(vn::format("-p%u", strip));
    if (!basePath.empty()) {
        args.emplace_back("--base");
        args.push_back(basePath);
    }
    args.emplace_back("--");
    args.push_back(filename);
    return writeTask(path, "import", std::move(args));
}

bool VNRepoHandlerMercurial::applyPatchToWorkingFolder(const std::string& path,
                                                       const std::string& patch, bool reverse,
                                                       vn::TextEncoding encoding,
                                                       uint64_t options) {
    std::string bytes = vn::encodeText(patch, encoding).value_or(patch);
    auto patchFile = TemporaryFile::create("varnel-patch-", bytes);
    if (!patchFile) {
        handleHgFailure("patch", -1, "cannot write the patch to a temporary file", true);
        return false;
    }
    std::vector<std::string> args{"-f", "-p1"};
    if (reverse) {
        args.emplace_back("-R");
    }
    if (options & 1) {
        args.emplace_back("--ignore-whitespace");
    }
    if (options & 2) {
        args.emplace_back("--fuzz=2");
    }
    args.push_back("--input=" + patchFile->path());
    auto task = VNTask::taskWithCommand(vn::fs::findExecutable("patch").value_or("patch"), path,
                                        std::move(args));
    if (task->run()) {
        return true;
    }
    // The patch stays for the user to look at.
    patchFile->keep();
    vn::Log::error(vn::format("patching failed, patch file was: %@", patchFile->path()),
                   vn::Log::Mercurial);
    handleHgFailure("patch", task->exitCode(), task->errorOutput() + task->output(), true);
    return false;
}

// ---- Changesets from elsewhere -----------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::transplantTask(
    const std::string& path, const std::vector<std::string>& revisions, bool /*commit*/,
    uint64_t options) {
    std::vector<std::string> args;
    bool graft = options & 1;
    if (graft) {
        args = {"--config", BulkMergePriority};
    }
    args.emplace_back("--");
    args.insert(args.end(), revisions.begin(), revisions.end());
    auto task = writeTask(path, graft ? "graft" : "transplant", std::move(args));
    if (!graft) {
        explainMissingExtension(*task, "transplant", {"unknown command 'transplant'"});
    }
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::rebaseTask(const std::string& path,
                                                           const std::string& destRevision) {
    auto task = writeTask(path, "rebase", {"--dest", destRevision, "--keepbranches"});
    explainMissingExtension(*task, "rebase", {"unknown command 'rebase'"});
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::rebaseContinueTask(const std::string& path) {
    auto task = writeTask(path, "rebase", {"--continue"});
    explainMissingExtension(*task, "rebase", {"unknown command 'rebase'"});
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::rebaseAbortTask(const std::string& path) {
    auto task = writeTask(path, "rebase", {"--abort"});
    explainMissingExtension(*task, "rebase", {"unknown command 'rebase'"});
    return task;
}

// ---- Shelves -----------------------------------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::createStashTask(const std::string& path,
                                                                const std::string& name,
                                                                const std::string& description,
                                                                uint64_t /*options*/) {
    std::vector<std::string> args;
    if (!description.empty()) {
        args = {"-m", description};
    }
    if (!name.empty()) {
        args.emplace_back("-n");
        args.push_back(name);
    }
    return writeTask(path, "shelve", std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::applyStashTask(const std::string& path,
                                                               const std::string& name,
                                                               bool deleteAfter,
                                                               uint64_t /*options*/) {
    std::vector<std::string> args;
    if (!deleteAfter) {
        args.emplace_back("--keep");
    }
    args.emplace_back("--");
    args.push_back(name);
    return writeTask(path, "unshelve", std::move(args));
}

bool VNRepoHandlerMercurial::deleteStash(const std::string& path, const std::string& name) {
    return runTasks({writeTask(path, "shelve", {"--delete", "--", name})});
}

bool VNRepoHandlerMercurial::stashExists(const std::string& path, const std::string& name) {
    // hg lists nothing, successfully, for a name it does not know.
    auto task = hgQueryTask(path, "shelve", {"--list", "--quiet", "--", name});
    if (!runQuery(task)) {
        return false;
    }
    std::string_view rest = task->output();
    while (!rest.empty()) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        if (line == name) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::stashDiffTask(const std::string& path,
                                                              const std::string& name) {
    return writeTask(path, "shelve", {"--list", "--patch", "--", name});
}

bool VNRepoHandlerMercurial::importAtticStash(const std::string& path, const std::string& atPath) {
    std::string name = vn::fs::lastPathComponent(atPath);
    if (name.empty() || !vn::fs::exists(atPath)) {
        return false;
    }
    // hg import refuses a working copy with changes, so the shelf holds the saved patch alone.
    VNTaskList tasks{writeTask(path, "import", {"--no-commit", "--", atPath}),
                     writeTask(path, "shelve", {"-n", name})};
    for (const auto& task : tasks) {
        if (!task->run()) {
            handleHgFailure("hg " + task->args().front(), task->exitCode(), task->errorOutput(),
                            true);
            return false;
        }
    }
    return deleteAtticStash(path, atPath);
}

bool VNRepoHandlerMercurial::deleteAtticStash(const std::string& path, const std::string& atPath) {
    std::string attic = vn::fs::appendPathComponent(path, ".hg/attic");
    // Only files of this repository's attic.
    if (vn::fs::deletingLastPathComponent(atPath) != attic) {
        return false;
    }
    return ::unlink(atPath.c_str()) == 0;
}

// ---- History surgery, bookmarks, archives ------------------------------------------------------

std::shared_ptr<VNTask> VNRepoHandlerMercurial::stripTask(const std::string& path,
                                                          const std::string& revision, bool keep) {
    std::vector<std::string> args;
    if (keep) {
        args.emplace_back("--keep");
    }
    args.emplace_back("--");
    args.push_back(revision);
    auto task = writeTask(path, "strip", std::move(args));
    explainMissingExtension(*task, "strip", {"unknown command 'strip'"});
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::createBookmarkTask(
    const std::string& path, const std::string& name, const std::optional<std::string>& revision,
    bool force) {
    std::vector<std::string> args;
    if (revision && !revision->empty()) {
        args = {"-r", *revision};
    }
    if (force) {
        args.emplace_back("-f");
    }
    args.emplace_back("--");
    args.push_back(name);
    return writeTask(path, "bookmark", std::move(args));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::deleteBookmarkTask(const std::string& path,
                                                                   const std::string& name) {
    return writeTask(path, "bookmark", {"-d", "--", name});
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::renameBookmarkTask(const std::string& path,
                                                                   const std::string& oldName,
                                                                   const std::string& newName) {
    return writeTask(path, "bookmark", {"-m", oldName, "--", newName});
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::archiveTask(
    const std::string& path, const std::string& destination, const std::string& prefix,
    const std::optional<std::string>& revision) {
    std::vector<std::string> args;
    if (!prefix.empty()) {
        args = {"-p", prefix};
    }
    if (revision && !revision->empty()) {
        args.emplace_back("-r");
        args.push_back(*revision);
    }
    args.emplace_back("--");
    args.push_back(destination);
    return writeTask(path, "archive", std::move(args));
}
