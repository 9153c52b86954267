#include <iostream>
#include <string>

#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"

namespace vn::cli {

namespace {

const char* changeLetter(uint64_t status) {
    switch (status) {
        case VNFileStatusAdded:
            return "A";
        case VNFileStatusRemoved:
            return "D";
        case VNFileStatusRenamed:
            return "R";
        case VNFileStatusConflicted:
            return "U";
        case VNFileStatusModified:
            return "M";
        default:
            return " ";
    }
}

std::string joinedPath(const Record& file) {
    std::string folder = file.string("path");
    std::string name = file.string("filename");
    return folder.empty() ? name : folder + "/" + name;
}

}  // namespace

int runShow(Arguments& args) {
    bool json = args.flag("--json");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("show takes one revision");
    }
    auto workingCopy = history::findGitWorkingCopy(".", true);
    if (!workingCopy) {
        return 1;
    }
    // The working copy's parent by default: HEAD in Git, "." in Mercurial.
    std::string revision = !rest.empty() ? rest[0] : workingCopy->mercurial ? "." : "HEAD";
    VNRepoHandler& handler = history::anyHandler(*workingCopy);
    FailureCollector failures;
    auto sha = handler.getCommitSHA(workingCopy->path, revision);
    if (!sha) {
        if (!failures.empty()) {
            return history::reportFailure(failures);
        }
        std::cerr << "vrnl: no commit \"" << display(revision) << "\"\n";
        return 1;
    }
    Record details = handler.revisionDetails(workingCopy->path, *sha);
    std::vector<Record> files;
    if (!details.empty()) {
        files = handler.revisionFileChanges(workingCopy->path, *sha);
    }
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    if (details.empty()) {
        std::cerr << "vrnl: cannot read commit " << display(*sha) << "\n";
        return 1;
    }

    if (json) {
        details.set("files", Value::Array(files.begin(), files.end()));
        printJson(details);
        return 0;
    }
    std::string out = colour(std::string("commit ").append(display(details.string("rev"))), "33");
    out.append(history::labelsText(details["descriptionentry"])).append("\n");
    if (const Value::Array* parents = details["parents"].array(); parents && parents->size() > 1) {
        out += "Merge:  ";
        for (const Value& parent : *parents) {
            out.append(" ").append(
                parent.toString().substr(0, details.string("changesetshort").size()));
        }
        out += "\n";
    }
    // Appended piece by piece: `"..." + text` trips a false -Wrestrict in optimised g++ 12.
    out.append("Author:  ").append(display(details.string("user"))).append("  ");
    out.append(colour(history::shortDate(details["authordate"]), "2")).append("\n");
    out.append("Commit:  ").append(display(details.string("committer"))).append("  ");
    out.append(colour(history::shortDate(details["committerdate"]), "2")).append("\n\n");
    std::string message = details.string("message");
    for (std::size_t from = 0; from <= message.size();) {
        std::size_t end = message.find('\n', from);
        std::string line = message.substr(from, end == std::string::npos ? end : end - from);
        if (!line.empty()) {
            out.append("    ").append(displayLines(line));
        }
        out.append("\n");
        if (end == std::string::npos) {
            break;
        }
        from = end + 1;
    }
    if (!files.empty()) {
        out += "\n";
    }
    for (const Record& file : files) {
        uint64_t status = static_cast<uint64_t>(file.integer("status"));
        const char* sgr = status == VNFileStatusAdded     ? "32"
                          : status == VNFileStatusRemoved ? "31"
                                                          : "36";
        out.append(" ").append(colour(changeLetter(status), sgr)).append("  ");
        if (file.contains("previousName")) {
            out.append(display(file.string("previousName"))).append(" -> ");
        }
        out.append(display(joinedPath(file))).append("\n");
    }
    std::cout << out << std::flush;
    return 0;
}

const Subcommand& showCommand() {
    static const Subcommand command{
        "show",
        {"show [REV] [--json]"},
        "Show a commit's author, committer, dates, labels, message and changed files",
        "Shows revision REV (HEAD by default) of the repository in the current folder.",
        {{"--json", "Print the result as JSON for programs (compact; --pretty indents it)"}},
        runShow,
    };
    return command;
}

}  // namespace vn::cli
