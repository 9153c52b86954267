#include <filesystem>
#include <iostream>
#include <string>

#include "base/TextEncoding.h"
#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"

namespace vn::cli {

int runBlame(Arguments& args) {
    bool json = args.flag("--json");
    std::optional<std::string> revision = args.option("--rev");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() != 1 || rest[0].empty()) {
        return usageError("blame takes one file");
    }
    if (revision && revision->empty()) {
        return usageError("--rev needs a revision");
    }
    std::error_code error;
    std::filesystem::path file = std::filesystem::absolute(rest[0], error).lexically_normal();
    if (error) {
        std::cerr << "vrnl: " << display(rest[0]) << ": " << error.message() << "\n";
        return 1;
    }
    // The folder holding the file finds the repository, also for a file deleted since the
    // revision.
    auto workingCopy = history::findGitWorkingCopy(file.parent_path().string(), true);
    if (!workingCopy) {
        return 1;
    }
    std::filesystem::path canonicalFolder =
        std::filesystem::weakly_canonical(file.parent_path(), error);
    std::string relative =
        (canonicalFolder / file.filename()).lexically_relative(workingCopy->path).generic_string();
    if (relative.empty() || relative.starts_with("..")) {
        std::cerr << "vrnl: " << display(rest[0]) << " is outside the repository\n";
        return 1;
    }
    VNRepoHandler& handler = history::anyHandler(*workingCopy);
    FailureCollector failures;
    if (revision && !handler.revisionIsValid(workingCopy->path, *revision)) {
        if (!failures.empty()) {
            return history::reportFailure(failures);
        }
        std::cerr << "vrnl: no commit \"" << display(*revision) << "\"\n";
        return 1;
    }
    std::vector<Record> lines = handler.blame(workingCopy->path, relative, revision);
    if (!failures.empty()) {
        // Git's own reason: an untracked file, a missing object, a file too large.
        return history::reportFailure(failures);
    }
    if (lines.empty()) {
        // Only an empty working file has no lines to show; anything else is git's refusal.
        bool emptyFile = !revision && std::filesystem::is_regular_file(file, error) &&
                         std::filesystem::file_size(file, error) == 0;
        if (!emptyFile) {
            std::cerr << "vrnl: cannot blame " << display(rest[0])
                      << (std::filesystem::exists(file, error) || revision
                              ? (workingCopy->mercurial ? " (is it tracked by hg?)\n"
                                                        : " (is it tracked by git?)\n")
                              : " (no such file)\n");
            return 1;
        }
    }
    if (json) {
        printJson(Value::Array(lines.begin(), lines.end()));
        return 0;
    }
    std::size_t shortWidth = 0, nameWidth = 0, numberWidth = 0;
    for (const Record& line : lines) {
        shortWidth = std::max(shortWidth, line.string("changesetshort").size());
        nameWidth = std::max(nameWidth, display(history::nameOnly(line.string("user"))).size());
        numberWidth = std::max(numberWidth, line.string("line").size());
    }
    nameWidth = std::min<std::size_t>(nameWidth, 24);
    std::string out;
    for (const Record& line : lines) {
        std::string name =
            std::string(truncateUTF8(display(history::nameOnly(line.string("user"))), nameWidth));
        std::string number = line.string("line");
        out += colour(line.string("changesetshort"), "33") + " " +
               colour(name + std::string(nameWidth - name.size(), ' '), "34") + " " +
               colour(history::shortDate(line["date"]).substr(0, 10), "2") + " " +
               std::string(numberWidth - number.size(), ' ') + number + " " +
               displayLines(line.string("linecontents")) + "\n";
    }
    std::cout << out << std::flush;
    return 0;
}

const Subcommand& blameCommand() {
    static const Subcommand command{
        "blame",
        {"blame FILE [--rev R] [--json]"},
        "Show who last changed each line of a file, in the working copy or at a revision",
        "Shows each line of FILE with the commit, author and date that last changed it.",
        {
            {"--rev R", "Blame the file as it is in revision R instead of the working copy"},
            {"--json", "Print the result as JSON for programs (compact; --pretty indents it)"},
        },
        runBlame,
    };
    return command;
}

}  // namespace vn::cli
