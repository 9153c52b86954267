#include <cstdlib>
#include <iostream>
#include <string>

#include "cli/Cli.h"
#include "cli/GraphRenderer.h"
#include "cli/HistoryCli.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogRowData.h"
#include "platform/FileSystem.h"

namespace vn::cli {

namespace {

constexpr uint64_t DefaultPageSize = 100;

bool terminalTakesTrueColour() {
    const char* colourTerm = std::getenv("COLORTERM");
    return colourTerm &&
           (std::string_view(colourTerm) == "truecolor" || std::string_view(colourTerm) == "24bit");
}

std::vector<GraphRow> graphRowsOf(const std::vector<Record>& rows) {
    std::vector<GraphRow> graphRows;
    graphRows.reserve(rows.size());
    for (const Record& row : rows) {
        GraphRow graphRow;
        graphRow.graph = row["graph"].objectAs<VNLogGraphEntry>();
        graphRow.workingCopy = row.string("rev") == "-1";
        if (auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>()) {
            graphRow.text = entry->description();
        }
        graphRow.labels = history::labelsText(row["descriptionentry"]);
        if (!graphRow.labels.empty() && graphRow.labels[0] == ' ') {
            graphRow.labels.erase(0, 1);
        }
        graphRows.push_back(std::move(graphRow));
    }
    return graphRows;
}

// The graph state of the row before `skip`, laid out from the top, so that a later page joins
// the lines of the pages before it.
std::shared_ptr<const VNLogGraphEntry> graphStateBefore(VNRepoHandlerGit& handler,
                                                        const std::string& path,
                                                        const VNLogRowData& page) {
    if (page.skip() == 0) {
        return nullptr;
    }
    VNLogRowData before;
    before.setLimit(page.skip());
    before.setShowRemotes(page.showRemotes());
    before.setAllBranches(page.allBranches());
    before.setSelectedBranch(page.selectedBranch());
    before.setFollowFirst(page.followFirst());
    before.setOrderingOption(page.orderingOption());
    handler.fillLogPage(path, before);
    if (before.logRows().empty()) {
        return nullptr;
    }
    return before.logRows().back()["graph"].objectAs<VNLogGraphEntry>();
}

}  // namespace

void printHistoryRows(const std::vector<Record>& rows, bool graph) {
    std::vector<std::string> graphText;
    if (graph) {
        graphText = drawGraphText(graphRowsOf(rows), useColour(), terminalTakesTrueColour());
    }
    std::string out;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (graph) {
            out.append(graphText[i]).append(" ");
        }
        if (rows[i].string("rev") == "-1") {
            out.append(colour("Uncommitted changes", "1"));
        } else {
            out += history::rowLine(rows[i]);
        }
        out += "\n";
    }
    std::cout << out << std::flush;
}

int runLog(Arguments& args) {
    bool json = args.flag("--json");
    bool remotes = args.flag("--remotes");
    bool topo = args.flag("--topo");
    bool firstParent = args.flag("--first-parent");
    bool graph = args.flag("--graph");
    std::optional<std::string> svgFile = args.option("--svg");
    std::optional<std::string> skipText = args.option("--skip");
    std::optional<std::string> limitText = args.option("--limit");
    std::optional<std::string> branch = args.option("--branch");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("log takes at most one repository path");
    }
    uint64_t skip = 0;
    uint64_t limit = DefaultPageSize;
    if (skipText) {
        auto value = history::parseCount(*skipText);
        if (!value) {
            return usageError("--skip needs a number");
        }
        skip = *value;
    }
    if (limitText) {
        auto value = history::parseCount(*limitText);
        if (!value || *value == 0) {
            return usageError("--limit needs a number above 0");
        }
        limit = *value;
    }
    if (branch && branch->empty()) {
        return usageError("--branch needs a branch name");
    }

    auto workingCopy = history::findGitWorkingCopy(rest.empty() ? "." : rest[0]);
    if (!workingCopy) {
        return 1;
    }
    auto& handler = *workingCopy->handler;
    if (branch && !handler.revisionIsValid(workingCopy->path, *branch)) {
        std::cerr << "vrnl: no branch or revision \"" << *branch << "\"\n";
        return 1;
    }

    auto page = std::make_shared<VNLogRowData>();
    page->setSkip(skip);
    page->setRowNum(skip);
    page->setLimit(limit);
    page->setShowRemotes(remotes);
    page->setAllBranches(!branch);
    page->setSelectedBranch(branch.value_or(""));
    page->setFollowFirst(firstParent);
    page->setOrderingOption(topo ? VNRepoHandlerGit::LogTopoOrder : 0);
    page->setLookForCurrentBranch(true);
    if (svgFile && !graph) {
        return usageError("--svg goes with --graph");
    }
    page->setBaseGraphState(graphStateBefore(handler, workingCopy->path, *page));
    handler.fillLogPage(workingCopy->path, *page);

    if (svgFile) {
        std::string error;
        if (!fs::writeFileAtomically(*svgFile, drawGraphSvg(graphRowsOf(page->logRows())),
                                     &error)) {
            std::cerr << "vrnl: " << error << "\n";
            return 1;
        }
    }
    if (json) {
        printJson(Value(page));
        return 0;
    }
    printHistoryRows(page->logRows(), graph);
    if (page->moreRevisions()) {
        // The command for the next page, with the options of this one.
        std::string next = "vrnl log";
        if (!rest.empty()) {
            next.append(" ").append(rest[0]);
        }
        next.append(" --skip ").append(std::to_string(skip + limit));
        if (limitText) {
            next.append(" --limit ").append(std::to_string(limit));
        }
        if (branch) {
            next.append(" --branch ").append(*branch);
        }
        for (auto [given, flag] :
             {std::pair{remotes, " --remotes"}, std::pair{topo, " --topo"},
              std::pair{firstParent, " --first-parent"}, std::pair{graph, " --graph"}}) {
            if (given) {
                next += flag;
            }
        }
        std::cerr << colour(std::string("More history: ").append(next), "2") << "\n";
    }
    return 0;
}

const Subcommand& logCommand() {
    static const Subcommand command{
        "log",
        {"log [PATH] [--skip N] [--limit N] [--branch B] [--remotes] [--topo] [--first-parent] "
         "[--graph [--svg FILE]] [--json]"},
        "Show a page of history (100 commits unless --limit) with branch, tag and remote labels",
        "Shows the commits of every branch and tag, newest first, each with its labels. PATH "
        "is any folder inside the working copy (the current folder by default).",
        {
            {"--skip N", "Start after the first N commits"},
            {"--limit N", "Show at most N commits (100 by default)"},
            {"--branch B", "Only the history of branch (or revision) B"},
            {"--remotes", "Include remote branches"},
            {"--topo", "Topological order: no parent before all of its children"},
            {"--first-parent", "Follow only the first parent of merges"},
            {"--graph", "Draw the commit graph beside the rows"},
            {"--svg FILE", "With --graph, also write the graph as an SVG picture to FILE"},
            {"--json", "Print the result as JSON for programs (compact; --pretty indents it)"},
        },
        runLog,
    };
    return command;
}

}  // namespace vn::cli
