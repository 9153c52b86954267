#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNHunkActions.h"
#include "handler/VNRepoHandler.h"
#include "handler/VNTask.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNDiffModel.h"
#include "model/VNFileStatusEntity.h"
#include "platform/FileSystem.h"

namespace vn::cli {

namespace {

enum class Mode { Stage, Unstage, Discard };

const char* modeName(Mode mode) {
    return mode == Mode::Stage ? "stage" : mode == Mode::Unstage ? "unstage" : "discard";
}

// "A-B" or "A", rows counted from 1.
bool parseRows(const std::string& text, std::size_t& first, std::size_t& last) {
    std::size_t dash = text.find('-');
    auto number = [](std::string_view part, std::size_t& value) {
        const char* end = part.data() + part.size();
        auto [rest, error] = std::from_chars(part.data(), end, value);
        return !part.empty() && error == std::errc() && rest == end && value > 0;
    };
    std::string_view whole(text);
    if (dash == std::string::npos) {
        return number(whole, first) && ((last = first), true);
    }
    return number(whole.substr(0, dash), first) && number(whole.substr(dash + 1), last) &&
           first <= last;
}

// One porcelain-style line of the file's state: index letter, working-tree letter, name.
char statusLetter(uint64_t bits) {
    if (bits & VNFileStatusConflicted) {
        return 'U';
    }
    if (bits & VNFileStatusAdded) {
        return 'A';
    }
    if (bits & (VNFileStatusRemoved | VNFileStatusMissing)) {
        return 'D';
    }
    if (bits & VNFileStatusRenamed) {
        return 'R';
    }
    if (bits & VNFileStatusUnknown) {
        return '?';
    }
    if (bits & (VNFileStatusModified | VNFileStatusSubmoduleModified)) {
        return 'M';
    }
    return ' ';
}

std::optional<Record> statusOf(VNRepoHandler& handler, const std::string& root,
                               const std::string& name) {
    for (Record& record : handler.fileStatus(root)) {
        std::string full = record.string(VNFileStatusKeyPath);
        if (!full.empty() && full.back() != '/') {
            full.push_back('/');
        }
        if (full + record.string(VNFileStatusKeyFilename) == name) {
            return std::move(record);
        }
    }
    return std::nullopt;
}

struct Piece {
    std::shared_ptr<VNDiffHunkModel> hunk;
    vn::HunkLineRange range;
    bool whole = false;
};

bool askOnTerminal(const std::string& question) {
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer)) {
        return false;
    }
    return answer == "y" || answer == "Y" || answer == "yes";
}

int runHunkCommand(Arguments& args, Mode mode) {
    bool json = args.flag("--json");
    bool yes = mode == Mode::Discard && args.flag("--yes");
    std::optional<std::string> hunkText = args.option("--hunk");
    std::optional<std::string> linesText = args.option("--lines");
    std::vector<std::string> rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() != 1) {
        return usageError(std::string(modeName(mode)) + " takes one file");
    }
    std::size_t hunkNumber = 0, firstRow = 0, lastRow = 0;
    if (hunkText) {
        std::size_t ignored = 0;
        if (!parseRows(*hunkText, hunkNumber, ignored) || ignored != hunkNumber) {
            return usageError("--hunk needs a hunk number from 1, not \"" + *hunkText + "\"");
        }
    }
    if (linesText && !parseRows(*linesText, firstRow, lastRow)) {
        return usageError("--lines needs rows A-B (or one row A) from 1, not \"" + *linesText +
                          "\"");
    }

    std::optional<history::GitWorkingCopy> copy = history::findGitWorkingCopy(
        vn::fs::deletingLastPathComponent(
            std::filesystem::absolute(rest.front()).lexically_normal().string()),
        true);
    if (!copy) {
        return 1;
    }
    if (copy->mercurial && mode != Mode::Discard) {
        std::cerr << "vrnl: Mercurial has no staging area: vrnl commit FILE... commits files as "
                     "they are in the working copy\n";
        return 1;
    }
    std::filesystem::path given = std::filesystem::absolute(rest.front()).lexically_normal();
    std::error_code error;
    std::filesystem::path folder = std::filesystem::weakly_canonical(given.parent_path(), error);
    std::filesystem::path root = std::filesystem::weakly_canonical(copy->path, error);
    std::string name = (folder / given.filename()).lexically_relative(root).string();
    if (name.empty() || name == "." || name.rfind("..", 0) == 0) {
        std::cerr << "vrnl: " << display(rest.front()) << " is not a file of the working copy "
                  << display(root.string()) << "\n";
        return 1;
    }
    // Discarding works on the working files alone, so Mercurial's too.
    std::shared_ptr<VNRepoHandlerBase> handler = copy->handler;
    if (copy->mercurial) {
        handler = copy->mercurial;
    }
    const std::string& path = copy->path;

    auto task = mode == Mode::Unstage ? handler->fileDiffAgainstBaseTask(path, {name}, "", 0, 3)
                                      : handler->fileDiffAgainstBaseTask(path, {name}, 0, 3);
    if (!task->run()) {
        std::cerr << displayLines(task->errorOutput());
        return 1;
    }
    VNDiffFileList files;
    handler->parseDiffToModel(task->output(), files, 1);
    std::shared_ptr<VNDiffFileModel> file = files.empty() ? nullptr : files.front();

    VNHunkActions::Context context;
    context.repositoryPath = path;
    context.handler = handler;
    context.confirmDiscard = false;
    std::vector<VNHunkActions::Outcome> outcomes;

    if (!file) {
        std::optional<Record> status = statusOf(*handler, path, name);
        bool untracked =
            status && ((*status)[VNFileStatusKeyStatus].toUInt() & VNFileStatusUnknown);
        if (mode != Mode::Stage || !untracked) {
            std::cerr << "vrnl: " << display(name) << " has no "
                      << (mode == Mode::Unstage ? "staged" : "unstaged") << " changes\n";
            return 1;
        }
        if (hunkText || linesText) {
            return usageError(name + " is untracked: it is staged as a whole");
        }
        // An untracked file is staged whole, by a patch that creates it.
        VNDiffFileModel placeholder;
        placeholder.setFilename(name);
        placeholder.setChangeType(VNDiffFileModel::Untracked);
        VNDiffHunkModel none;
        outcomes.push_back(VNHunkActions::perform(VNHunkActions::Action::StageHunk, context,
                                                  placeholder, none, {}));
    } else {
        // Rows are numbered through the file, as `vrnl diff` prints them.
        std::vector<Piece> pieces;
        std::size_t rowBase = 0;
        const auto& hunks = file->hunks();
        if (hunkText && hunkNumber > hunks.size()) {
            std::cerr << "vrnl: " << display(name) << " has " << hunks.size() << " hunk"
                      << (hunks.size() == 1 ? "" : "s") << ", not " << hunkNumber << "\n";
            return 1;
        }
        for (std::size_t h = 0; h < hunks.size(); ++h) {
            std::size_t rows = hunks[h]->lineCount();
            std::size_t begin = rowBase + 1, end = rowBase + rows;
            rowBase = end;
            if (hunkText && h + 1 != hunkNumber) {
                continue;
            }
            if (!linesText) {
                pieces.push_back({hunks[h], {0, rows}, true});
                continue;
            }
            std::size_t from = std::max(firstRow, begin), to = std::min(lastRow, end);
            if (from <= to) {
                pieces.push_back({hunks[h], {from - begin, to - from + 1}, false});
            }
        }
        if (linesText) {
            std::size_t total = rowBase;
            if (lastRow > total || pieces.empty()) {
                std::cerr << "vrnl: rows " << *linesText << " are not "
                          << (hunkText ? "in hunk " + std::to_string(hunkNumber) + " of "
                                       : std::string("rows of "))
                          << display(name) << " (see vrnl diff"
                          << (mode == Mode::Unstage ? " --staged" : "") << ")\n";
                return 1;
            }
        }
        if (file->hunks().empty()) {
            std::cerr << "vrnl: " << display(name) << " has no lines to " << modeName(mode)
                      << " (a binary file or a change of mode only)\n";
            return 1;
        }
        if (mode == Mode::Discard && !yes) {
            if (!isatty(STDIN_FILENO)) {
                return usageError("discard removes changes for good; confirm with --yes");
            }
            if (!askOnTerminal("Discard the selected changes of " + display(name) + "?")) {
                std::cerr << "vrnl: nothing discarded\n";
                return 1;
            }
        }
        // Last piece first, so that the line numbers of the pieces before stay right.
        for (auto it = pieces.rbegin(); it != pieces.rend(); ++it) {
            VNHunkActions::Action action;
            if (mode == Mode::Stage) {
                action = it->whole ? VNHunkActions::Action::StageHunk
                                   : VNHunkActions::Action::StageLines;
            } else if (mode == Mode::Unstage) {
                action = it->whole ? VNHunkActions::Action::UnstageHunk
                                   : VNHunkActions::Action::UnstageLines;
            } else {
                action = it->whole ? VNHunkActions::Action::DiscardHunk
                                   : VNHunkActions::Action::DiscardLines;
            }
            outcomes.push_back(
                VNHunkActions::perform(action, context, *file, *it->hunk, it->range));
            if (outcomes.back().state != VNHunkActions::State::Applied &&
                outcomes.back().state != VNHunkActions::State::NothingSelected) {
                break;
            }
            if (!outcomes.back().wholeFileSummary.empty()) {
                break;
            }
        }
    }

    bool applied = false;
    for (const VNHunkActions::Outcome& outcome : outcomes) {
        switch (outcome.state) {
            case VNHunkActions::State::Applied:
                applied = true;
                break;
            case VNHunkActions::State::Refused:
                std::cerr << "vrnl: git refused the patch:\n" << displayLines(outcome.message);
                if (!outcome.keptPatchFile.empty()) {
                    std::cerr << "vrnl: the patch is kept in " << display(outcome.keptPatchFile)
                              << "\n";
                }
                return 1;
            case VNHunkActions::State::NotPossible:
                std::cerr << "vrnl: " << display(outcome.message) << "\n";
                return 1;
            default:
                break;
        }
    }
    if (!applied) {
        std::cerr << "vrnl: the selected rows hold no added or removed line\n";
        return 1;
    }

    std::optional<Record> status = statusOf(*handler, path, name);
    if (json) {
        printJson(Record{{"action", modeName(mode)},
                         {"file", name},
                         {"status", status ? Value(*status) : Value()}});
        return 0;
    }
    if (!status) {
        std::cout << "   " << display(name) << " (no changes left)\n";
    } else if (copy->mercurial) {
        std::cout << " " << statusLetter((*status)[VNFileStatusKeyStatus].toUInt()) << " "
                  << display(name) << "\n";
    } else {
        std::cout << statusLetter((*status)[VNFileStatusKeyIndexStatus].toUInt())
                  << statusLetter((*status)[VNFileStatusKeyTreeStatus].toUInt()) << " "
                  << display(name) << "\n";
    }
    return 0;
}

const std::vector<OptionHelp>& selectionOptions(Mode mode) {
    static const std::vector<OptionHelp> stage = {
        {"--hunk N", "Only hunk N of the file, as vrnl diff numbers it"},
        {"--lines A-B", "Only the changed lines among rows A to B, as vrnl diff numbers them"},
        {"--json", "Print the file's resulting status as JSON"},
    };
    static const std::vector<OptionHelp> unstage = {
        {"--hunk N", "Only hunk N of the file, as vrnl diff --staged numbers it"},
        {"--lines A-B",
         "Only the changed lines among rows A to B, as vrnl diff --staged numbers them"},
        {"--json", "Print the file's resulting status as JSON"},
    };
    static const std::vector<OptionHelp> discard = {
        {"--hunk N", "Only hunk N of the file, as vrnl diff numbers it"},
        {"--lines A-B", "Only the changed lines among rows A to B, as vrnl diff numbers them"},
        {"--yes", "Do not ask for confirmation (needed when not run from a terminal)"},
        {"--json", "Print the file's resulting status as JSON"},
    };
    return mode == Mode::Stage ? stage : mode == Mode::Unstage ? unstage : discard;
}

}  // namespace

int runStage(Arguments& args) {
    return runHunkCommand(args, Mode::Stage);
}

int runUnstage(Arguments& args) {
    return runHunkCommand(args, Mode::Unstage);
}

int runDiscard(Arguments& args) {
    return runHunkCommand(args, Mode::Discard);
}

const Subcommand& stageCommand() {
    static const Subcommand command{
        "stage",
        {"stage FILE [--hunk N] [--lines A-B] [--json]"},
        "Stage a file's changes, one hunk of them or the changed lines among some rows",
        "Stages exactly the chosen changes of FILE: the other changes stay unstaged. Hunks and "
        "rows are numbered as vrnl diff prints them (with its default context). An untracked file "
        "is staged as a whole. "
        "Prints the file's status afterwards.",
        selectionOptions(Mode::Stage),
        runStage,
    };
    return command;
}

const Subcommand& unstageCommand() {
    static const Subcommand command{
        "unstage",
        {"unstage FILE [--hunk N] [--lines A-B] [--json]"},
        "Unstage a file's staged changes, one hunk of them or the changed lines among some rows",
        "Takes exactly the chosen changes of FILE out of the index; the working file is not "
        "touched. Hunks and rows are numbered as vrnl diff --staged prints them. An added or "
        "deleted file is unstaged as a whole. Prints the file's status afterwards.",
        selectionOptions(Mode::Unstage),
        runUnstage,
    };
    return command;
}

const Subcommand& discardCommand() {
    static const Subcommand command{
        "discard",
        {"discard FILE [--hunk N] [--lines A-B] [--yes] [--json]"},
        "Throw away unstaged changes of a modified file: all, one hunk or some rows",
        "Removes exactly the chosen unstaged changes from the working file; every other change "
        "stays. Hunks and rows are numbered as vrnl diff prints them. Asks for confirmation on "
        "a terminal unless --yes is given. Prints the file's status afterwards.",
        selectionOptions(Mode::Discard),
        runDiscard,
    };
    return command;
}

}  // namespace vn::cli
