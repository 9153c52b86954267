// vrnl add, rm and mv: the file operations of the index, followed by the files' new status.

#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "handler/FailureCollector.h"
#include "handler/VNRepoHandler.h"
#include "handler/VNTaskList.h"
#include "model/VNFileStatusEntity.h"

namespace vn::cli {

namespace {

namespace fs = std::filesystem;

struct WorkingCopy {
    fs::path root;
    std::shared_ptr<VNRepoHandler> handler;
};

// The working copy that holds the current folder.
std::optional<WorkingCopy> currentWorkingCopy() {
    std::error_code error;
    fs::path folder = fs::current_path(error);
    if (error) {
        std::cerr << "vrnl: the current folder cannot be read: " << error.message() << "\n";
        return std::nullopt;
    }
    folder = fs::canonical(folder, error);
    const VNApplication& application = VNApplication::shared();
    for (;;) {
        VNRepositoryType type = application.determineRepositoryType(folder.string());
        if (type != VNRepositoryTypeUnknown) {
            auto handler = application.handlerForType(type);
            if (!handler) {
                break;
            }
            return WorkingCopy{folder, std::move(handler)};
        }
        if (!folder.has_parent_path() || folder.parent_path() == folder) {
            break;
        }
        folder = folder.parent_path();
    }
    std::cerr << "vrnl: not inside a repository: " << display(fs::current_path(error).string())
              << "\n";
    return std::nullopt;
}

std::string recordPath(const Record& record) {
    std::string path = record.string(VNFileStatusKeyPath);
    if (!path.empty()) {
        path.append("/");
    }
    return path.append(record.string(VNFileStatusKeyFilename));
}

bool isUnder(const std::string& path, const std::string& folderOrFile) {
    if (folderOrFile == "." || path == folderOrFile) {
        return true;
    }
    return path.size() > folderOrFile.size() &&
           path.compare(0, folderOrFile.size(), folderOrFile) == 0 &&
           path[folderOrFile.size()] == '/';
}

// The status records of the named files (and of the files in named folders), clean ones too.
std::vector<Record> statusOf(const WorkingCopy& copy, const std::vector<std::string>& paths) {
    std::vector<Record> records =
        copy.handler->fileStatus(copy.root.string(), VNFileStatusDefaultMask | VNFileStatusClean);
    std::vector<Record> chosen;
    for (Record& record : records) {
        std::string path = recordPath(record);
        std::string previous = record.string(VNFileStatusKeyPreviousName);
        for (const std::string& wanted : paths) {
            if (isUnder(path, wanted) || (!previous.empty() && isUnder(previous, wanted))) {
                chosen.push_back(std::move(record));
                break;
            }
        }
    }
    return chosen;
}

// What the tool said when the task failed, as one message.
int reportTaskFailure(const VNTask& task, const std::string& what) {
    std::string reason = task.errorOutput();
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' ')) {
        reason.pop_back();
    }
    if (reason.empty()) {
        reason = "exit code " + std::to_string(task.exitCode());
    }
    std::cerr << "vrnl: " << what << " failed: " << displayLines(reason) << "\n";
    return 1;
}

int printResult(const WorkingCopy& copy, const std::vector<std::string>& paths, bool json) {
    FailureCollector failures;
    std::vector<Record> files = statusOf(copy, paths);
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    if (json) {
        printJson(Record{{"workingCopy", copy.root.string()},
                         {"files", Value::Array(files.begin(), files.end())}});
        return 0;
    }
    if (files.empty()) {
        std::cout << "No changes in the named files.\n";
        return 0;
    }
    printStatusGroups(files);
    return 0;
}

// The files as the working copy names them; reports the first that lies outside it.
std::optional<std::vector<std::string>> rootRelative(const WorkingCopy& copy,
                                                     const std::vector<std::string>& given) {
    std::vector<std::string> paths;
    for (const std::string& file : given) {
        auto relative = relativeToRoot(copy.root, file);
        if (!relative) {
            std::cerr << "vrnl: " << display(file) << " is outside the working copy "
                      << display(copy.root.string()) << "\n";
            return std::nullopt;
        }
        paths.push_back(*relative);
    }
    return paths;
}

int runFileTasks(const VNTaskList& tasks, const std::string& what) {
    if (tasks.empty()) {
        std::cerr << "vrnl: " << what << " is not available for this repository\n";
        return 1;
    }
    if (auto failed = runTasksUntilFailure(tasks)) {
        return reportTaskFailure(*failed, what);
    }
    return 0;
}

}  // namespace

std::optional<std::string> relativeToRoot(const std::filesystem::path& root,
                                          const std::string& given) {
    std::error_code error;
    fs::path absolute = fs::absolute(given, error).lexically_normal();
    if (error) {
        return std::nullopt;
    }
    if (!absolute.has_filename() && absolute.has_parent_path() &&
        absolute != absolute.root_path()) {
        absolute = absolute.parent_path();
    }
    fs::path resolved;
    if (absolute == absolute.root_path()) {
        resolved = absolute;
    } else {
        fs::path parent = fs::weakly_canonical(absolute.parent_path(), error);
        if (error) {
            return std::nullopt;
        }
        resolved = parent / absolute.filename();
    }
    if (resolved == root) {
        return ".";
    }
    fs::path relative = resolved.lexically_relative(root);
    if (relative.empty() || *relative.begin() == "..") {
        return std::nullopt;
    }
    return relative.generic_string();
}

int runAdd(Arguments& args) {
    bool json = args.flag("--json");
    auto files = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (files.empty()) {
        return usageError("add needs at least one file");
    }
    auto copy = currentWorkingCopy();
    if (!copy) {
        return 1;
    }
    auto paths = rootRelative(*copy, files);
    if (!paths) {
        return 1;
    }
    const std::string root = copy->root.string();
    if (int status = runFileTasks(copy->handler->addTasks(root, *paths), "add")) {
        return status;
    }
    return printResult(*copy, *paths, json);
}

int runRemove(Arguments& args) {
    bool json = args.flag("--json");
    bool cached = args.flag("--cached");
    bool force = args.flag("--force");
    auto files = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (files.empty()) {
        return usageError("rm needs at least one file");
    }
    auto copy = currentWorkingCopy();
    if (!copy) {
        return 1;
    }
    auto paths = rootRelative(*copy, files);
    if (!paths) {
        return 1;
    }
    const std::string root = copy->root.string();
    if (!cached && !force) {
        // Removing deletes the working file; changes that were never committed would be gone
        // for good, so they need --force.
        FailureCollector failures;
        std::vector<Record> changed;
        for (Record& record : statusOf(*copy, *paths)) {
            uint64_t status = record[VNFileStatusKeyStatus].toUInt();
            if (status != VNFileStatusClean && status != VNFileStatusMissing &&
                status != VNFileStatusRemoved && status != VNFileStatusIgnored) {
                changed.push_back(std::move(record));
            }
        }
        if (!failures.empty()) {
            return history::reportFailure(failures);
        }
        if (!changed.empty()) {
            std::cerr << "vrnl: these files have changes that are not committed; rm --force "
                         "deletes them anyway, rm --cached only stops tracking them:\n";
            for (const Record& record : changed) {
                std::cerr << "  " << display(recordPath(record)) << "\n";
            }
            return 1;
        }
    }
    auto tasks = cached ? copy->handler->stopTrackingTasks(root, *paths)
                        : copy->handler->removeTasks(root, *paths);
    if (int status = runFileTasks(tasks, "rm")) {
        return status;
    }
    return printResult(*copy, *paths, json);
}

int runMove(Arguments& args) {
    bool json = args.flag("--json");
    auto files = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (files.size() != 2) {
        return usageError("mv takes a source and a destination");
    }
    auto copy = currentWorkingCopy();
    if (!copy) {
        return 1;
    }
    auto paths = rootRelative(*copy, files);
    if (!paths) {
        return 1;
    }
    const std::string root = copy->root.string();
    if (int status = runFileTasks(copy->handler->moveTasks(root, (*paths)[0], (*paths)[1]), "mv")) {
        return status;
    }
    return printResult(*copy, *paths, json);
}

const Subcommand& addCommand() {
    static const Subcommand command{
        "add",
        {"add FILE... [--json]"},
        "Stage files: their changes, new files and deletions go into the next commit",
        "Stages each FILE (or every change under a folder) as it is in the working copy, ignored "
        "files too when named, then prints the files' status. FILE is relative to the current "
        "folder and must lie inside its working copy.",
        {{"--json", "Print the files' status records as JSON (compact; --pretty indents it)"}},
        runAdd,
    };
    return command;
}

const Subcommand& removeCommand() {
    static const Subcommand command{
        "rm",
        {"rm FILE... [--cached | --force] [--json]"},
        "Delete files and stage their removal",
        "Deletes each FILE from the working copy and from the index, so that the next commit "
        "removes it, then prints the files' status. A file with changes that are not committed "
        "is refused unless --force is given, since its changes would be lost.",
        {
            {"--cached", "Only stop tracking the files: they stay on disk, untracked"},
            {"--force", "Delete files even when they have changes that are not committed"},
            {"--json", "Print the files' status records as JSON (compact; --pretty indents it)"},
        },
        runRemove,
    };
    return command;
}

const Subcommand& moveCommand() {
    static const Subcommand command{
        "mv",
        {"mv SOURCE DESTINATION [--json]"},
        "Move or rename a tracked file or folder and stage the move",
        "Moves SOURCE to DESTINATION (into it when it is a folder) and stages the rename, then "
        "prints the status of both.",
        {{"--json", "Print the files' status records as JSON (compact; --pretty indents it)"}},
        runMove,
    };
    return command;
}

}  // namespace vn::cli
