#include <charconv>
#include <filesystem>
#include <iostream>
#include <string>
#include <tuple>
#include <vector>

#include <sys/ioctl.h>
#include <unistd.h>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "handler/VNRepoHandler.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogRowData.h"

namespace vn::cli {

namespace {

struct Location {
    std::string workingCopy;
    VNRepositoryType type = VNRepositoryTypeUnknown;
};

// The working copy that holds `start`: the nearest folder, going up, that a backend accepts.
std::optional<Location> findWorkingCopy(const std::filesystem::path& start) {
    const VNApplication& application = VNApplication::shared();
    std::filesystem::path folder = start;
    for (;;) {
        VNRepositoryType type = application.determineRepositoryType(folder.string());
        if (type != VNRepositoryTypeUnknown) {
            return Location{folder.string(), type};
        }
        if (!folder.has_parent_path() || folder.parent_path() == folder) {
            return std::nullopt;
        }
        folder = folder.parent_path();
    }
}

// Every status bit a backend reports.
constexpr uint64_t KnownStatusBits =
    VNFileStatusClean | VNFileStatusModified | VNFileStatusAdded | VNFileStatusRemoved |
    VNFileStatusConflicted | 32 | VNFileStatusMissing | VNFileStatusUnknown | VNFileStatusIgnored |
    VNFileStatusRenamed | VNFileStatusSubmoduleModified;

// A mask of known status bits, at least one of them.
std::optional<uint64_t> parseMask(const std::string& text) {
    uint64_t mask = 0;
    const char* end = text.data() + text.size();
    auto [rest, error] = std::from_chars(text.data(), end, mask);
    if (text.empty() || error != std::errc() || rest != end || mask == 0 ||
        (mask & ~KnownStatusBits) != 0) {
        return std::nullopt;
    }
    return mask;
}

const char* letterFor(uint64_t status) {
    switch (status) {
        case VNFileStatusModified:
        case VNFileStatusSubmoduleModified:
            return "M";
        case VNFileStatusAdded:
            return "A";
        case VNFileStatusRemoved:
        case VNFileStatusMissing:
            return "D";
        case VNFileStatusConflicted:
            return "U";
        case VNFileStatusUnknown:
            return "?";
        case VNFileStatusIgnored:
            return "!";
        case VNFileStatusRenamed:
            return "R";
        default:
            return " ";
    }
}

struct Row {
    uint64_t side;
    const Record* record;
};

struct Group {
    const char* title;
    const char* sgr;
    std::vector<Row> rows;
};

// Texts are built with append: chains of `+` on strings trip a false -Wrestrict in optimised
// g++ 12 builds.
std::string fullPath(const Record& record) {
    std::string path = record.string(VNFileStatusKeyPath);
    if (!path.empty()) {
        path.append("/");
    }
    return path.append(record.string(VNFileStatusKeyFilename));
}

std::string summaryLine(const Record& summary) {
    std::string branch = summary.string("branch");
    std::string line;
    if (branch == "HEAD") {
        line = "HEAD detached";
    } else if (branch.empty()) {
        line = "No branch";
    } else {
        line.append("On branch ").append(display(branch));
    }
    if (summary.boolean("ismerge")) {
        line.append(", merging");
        if (const Value* others = summary.find("otherparents");
            others && others->array() && !others->array()->empty()) {
            line.append(" ").append(std::to_string(others->array()->size() + 1)).append(" heads");
        }
    }
    std::string original = summary.string("originalbranch");
    for (auto [key, text, namesBranch] : {std::tuple{"isrebase", ", rebasing", true},
                                          {"isam", ", applying patches (am)", false},
                                          {"isbisect", ", bisecting", true},
                                          {"ischerrypick", ", cherry-picking", false},
                                          {"isrevert", ", reverting", false}}) {
        if (summary.boolean(key)) {
            line.append(text);
            if (namesBranch && !original.empty()) {
                line.append(" ").append(original);
            }
        }
    }
    line.append(":");
    bool any = false;
    if (summary.boolean("isclean")) {
        line.append(" clean");
        any = true;
    }
    for (auto [key, label] : {std::pair{"numfilesunresolved", "unresolved"},
                              {"numfilesmodified", "modified"},
                              {"numfilesadded", "added"},
                              {"numfilesremoved", "removed"},
                              {"numfilesmissing", "missing"},
                              {"numfilesunknown", "untracked"}}) {
        int64_t count = summary.integer(key);
        if (count > 0) {
            line.append(any ? ", " : " ").append(std::to_string(count)).append(" ").append(label);
            any = true;
        }
    }
    return line;
}

void printGroups(const std::vector<Record>& files) {
    Group staged{"Staged", "32", {}};
    Group unstaged{"Unstaged", "31", {}};
    Group unmerged{"Unmerged", "1;31", {}};
    Group clean{"Clean", "", {}};
    Group ignored{"Ignored", "2", {}};
    // Mercurial has no staging area: its files carry one status, listed as changed.
    Group changed{"Changed", "33", {}};
    for (const Record& file : files) {
        uint64_t status = file[VNFileStatusKeyStatus].toUInt();
        if (!file.contains(VNFileStatusKeyIndexStatus)) {
            Group& group = status == VNFileStatusConflicted ? unmerged
                           : status == VNFileStatusIgnored  ? ignored
                           : status == VNFileStatusClean    ? clean
                                                            : changed;
            group.rows.push_back({status, &file});
            continue;
        }
        uint64_t index = file[VNFileStatusKeyIndexStatus].toUInt();
        uint64_t tree = file[VNFileStatusKeyTreeStatus].toUInt();
        if (status == VNFileStatusConflicted) {
            unmerged.rows.push_back({status, &file});
        } else if (status == VNFileStatusIgnored) {
            ignored.rows.push_back({status, &file});
        } else if (status == VNFileStatusClean && index == VNFileStatusClean &&
                   tree == VNFileStatusClean) {
            clean.rows.push_back({status, &file});
        } else {
            // A file changed in the index and again in the working tree is in both groups.
            if (index != VNFileStatusClean && index != VNFileStatusUnknown) {
                staged.rows.push_back({index, &file});
            }
            if (tree != VNFileStatusClean) {
                unstaged.rows.push_back({tree, &file});
            }
        }
    }
    bool first = true;
    for (const Group* group : {&staged, &unstaged, &changed, &unmerged, &clean, &ignored}) {
        if (group->rows.empty()) {
            continue;
        }
        std::cout << (first ? "\n" : "") << group->title << ":\n";
        first = false;
        for (const Row& row : group->rows) {
            std::string line("  ");
            line.append(letterFor(row.side)).append("  ").append(display(fullPath(*row.record)));
            std::string previous = row.record->string(VNFileStatusKeyPreviousName);
            if (row.side == VNFileStatusRenamed && !previous.empty()) {
                line.append("  (from ").append(display(previous)).append(")");
            }
            if (row.side == VNFileStatusSubmoduleModified) {
                line.append("  (submodule)");
            }
            std::cout << (*group->sgr ? colour(line, group->sgr) : line) << "\n";
        }
    }
}

}  // namespace

int runStatus(Arguments& args) {
    bool json = args.flag("--json");
    std::optional<std::string> maskText = args.option("--mask");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("status takes at most one path");
    }
    uint64_t mask = VNFileStatusDefaultMask;
    if (maskText) {
        auto parsed = parseMask(*maskText);
        if (!parsed) {
            return usageError(
                "--mask takes a sum of the status bits 1, 2, 4, 8, 16, 32, 64, 128, "
                "256, 512 and 8192, such as 766, not \"" +
                *maskText + "\"");
        }
        mask = *parsed;
    }

    std::error_code error;
    std::string given = rest.empty() ? "." : rest[0];
    std::filesystem::path start = std::filesystem::canonical(given, error);
    if (error) {
        std::cerr << "vrnl: " << display(history::resolvedForMessage(given)) << ": "
                  << error.message() << "\n";
        return 1;
    }
    if (!std::filesystem::is_directory(start)) {
        start = start.parent_path();
    }
    auto location = findWorkingCopy(start);
    if (!location) {
        std::cerr << "vrnl: not inside a repository: " << display(start.string()) << "\n";
        return 1;
    }
    auto handler = VNApplication::shared().handlerForType(location->type);

    FailureCollector failures;
    VNWorkingCopyStatus status = handler->fileStatusAndSummary(location->workingCopy, mask);
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    const Record& summary = status.summary;
    const std::vector<Record>& files = status.files;
    if (summary.empty()) {
        std::cerr << "vrnl: cannot read the status of " << display(location->workingCopy) << "\n";
        return 1;
    }

    if (json) {
        printJson(Record{
            {"workingCopy", location->workingCopy},
            {"summary", summary},
            {"files", Value::Array(files.begin(), files.end())},
        });
        return 0;
    }
    std::cout << summaryLine(summary) << "\n";
    printGroups(files);
    return 0;
}

int runOverview(Arguments& args) {
    bool json = args.flag("--json");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    std::error_code error;
    std::string given = rest.empty() ? "." : rest[0];
    std::filesystem::path start = std::filesystem::canonical(given, error);
    if (error) {
        std::cerr << "vrnl: " << display(history::resolvedForMessage(given)) << ": "
                  << error.message() << "\n";
        return 1;
    }
    auto location = findWorkingCopy(start);
    if (!location) {
        std::cerr << "vrnl: not inside a repository: " << display(start.string())
                  << "\n(vrnl doctor shows which tools Varnel uses; vrnl --help lists commands)\n";
        return 1;
    }
    auto handler = VNApplication::shared().handlerForType(location->type);
    auto git = std::dynamic_pointer_cast<VNRepoHandlerGit>(handler);
    FailureCollector failures;
    Record summary = handler->summary(location->workingCopy);
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    if (summary.empty()) {
        std::cerr << "vrnl: cannot read the status of " << location->workingCopy << "\n";
        return 1;
    }
    if (!json) {
        std::cout << summaryLine(summary) << "\n";
    }
    auto mercurial = std::dynamic_pointer_cast<VNRepoHandlerMercurial>(handler);
    if (!git && !mercurial) {
        if (json) {
            printJson(Record{{"workingCopy", location->workingCopy}, {"summary", summary}});
        }
        return 0;
    }
    // As many rows as fit under the summary line, leaving one for the prompt.
    uint64_t rows = 20;
    struct winsize size;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 4) {
        rows = size.ws_row - 3;
    }
    auto page = std::make_shared<VNLogRowData>();
    page->setLimit(rows);
    page->setLookForCurrentBranch(true);
    if (git) {
        git->fillLogPage(location->workingCopy, *page);
    } else {
        mercurial->fillLogPage(location->workingCopy, *page);
    }
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    if (page->firstRowIsWorkingDir() && page->logRows().size() > rows) {
        page->logRows().pop_back();
    }
    if (json) {
        printJson(Record{
            {"workingCopy", location->workingCopy}, {"summary", summary}, {"history", page}});
        return 0;
    }
    printHistoryRows(page->logRows(), true);
    return 0;
}

const Subcommand& statusCommand() {
    static const Subcommand command{
        "status",
        {"status [PATH] [--mask N] [--json]"},
        "Show the branch, merge or rebase state and the changed files of a working copy",
        "Prints the summary line (branch, merge or rebase in progress, counts of changed files) "
        "and the files grouped as staged, unstaged, unmerged, clean and ignored. PATH is any "
        "folder or file inside the working copy (the current folder by default).",
        {
            {"--mask N",
             "Which files to list, as a sum of status bits: 1 clean, 2 modified, 4 added, "
             "8 removed, 16 conflicted, 64 missing, 128 untracked, 256 ignored, 512 renamed "
             "(766, everything but clean and ignored, by default)"},
            {"--json", "Print the result as JSON for programs (compact; --pretty indents it)"},
        },
        runStatus,
    };
    return command;
}

const Subcommand& overviewCommand() {
    static const Subcommand command{
        "overview",
        {"overview [PATH] [--json]"},
        "The repository at a glance: the summary line and a page of history with its graph "
        "(what plain vrnl shows)",
        "Prints the summary line of the working copy that holds PATH (the current folder by "
        "default) and as many rows of history, with their graph, as fit the terminal. This is "
        "what vrnl runs without a command.",
        {{"--json", "Print the result as JSON for programs (compact; --pretty indents it)"}},
        runOverview,
    };
    return command;
}

}  // namespace vn::cli
