#include <iostream>
#include <string>

#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "general/VNLogRowData.h"
#include "git/VNRepoHandlerGit.h"

namespace vn::cli {

namespace {

constexpr uint64_t DefaultPageSize = 100;

}  // namespace

int runLog(Arguments& args) {
    bool json = args.flag("--json");
    bool remotes = args.flag("--remotes");
    bool topo = args.flag("--topo");
    bool firstParent = args.flag("--first-parent");
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
    handler.fillLogPage(workingCopy->path, *page);

    if (json) {
        printJson(Value(page));
        return 0;
    }
    std::string out;
    for (const Record& row : page->logRows()) {
        out += history::rowLine(row);
        out += "\n";
    }
    std::cout << out << std::flush;
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
        for (auto [given, flag] : {std::pair{remotes, " --remotes"}, std::pair{topo, " --topo"},
                                   std::pair{firstParent, " --first-parent"}}) {
            if (given) {
                next += flag;
            }
        }
        std::cerr << colour(std::string("More history: ").append(next), "2") << "\n";
    }
    return 0;
}

}  // namespace vn::cli
