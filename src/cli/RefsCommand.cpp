#include <iostream>
#include <string>

#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNGitLogParser.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNLogLabel.h"
#include "platform/CredentialStore.h"
#include "platform/WorkQueue.h"

namespace vn::cli {

namespace {

std::string padded(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

}  // namespace

int runRefs(Arguments& args) {
    bool json = args.flag("--json");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("refs takes at most one repository path");
    }
    auto workingCopy = history::findGitWorkingCopy(rest.empty() ? "." : rest[0]);
    if (!workingCopy) {
        return 1;
    }
    auto& handler = *workingCopy->handler;
    const std::string& path = workingCopy->path;

    // Independent listings, run side by side.
    std::vector<std::string> branches, tags;
    std::vector<std::shared_ptr<VNLogLabel>> labels;
    std::vector<Record> stashes;
    Record aheadBehind, upstreams, remotes;
    WorkGroup group;
    WorkQueue& queue = WorkQueue::global();
    queue.async(group, [&] { branches = handler.branches(path); });
    queue.async(group, [&] { labels = handler.allRevisionLabels(path, 0); });
    queue.async(group, [&] { tags = handler.tags(path); });
    queue.async(group, [&] { stashes = handler.listStashes(path); });
    queue.async(group, [&] { remotes = handler.remoteRepositories(path); });
    queue.async(group, [&] { aheadBehind = handler.branchesWithCommitsAheadBehind(path); });
    upstreams = handler.trackingBranchesForPull(path);
    group.wait();

    std::string current;
    for (const auto& label : labels) {
        if (label->currentMarker()) {
            current = label->label();
        }
    }
    for (auto& [name, url] :
         std::vector<std::pair<std::string, Value>>(remotes.begin(), remotes.end())) {
        remotes.set(name, CredentialStore::redactURLPasswords(url.toString()));
    }

    if (json) {
        printJson(Record{
            {"branches", Value::Array(branches.begin(), branches.end())},
            {"currentBranch", current},
            {"aheadBehind", aheadBehind},
            {"trackingBranches", upstreams},
            {"tags", Value::Array(tags.begin(), tags.end())},
            {"remotes", remotes},
            {"stashes", Value::Array(stashes.begin(), stashes.end())},
        });
        return 0;
    }

    std::string out;
    std::size_t width = 0;
    for (const std::string& branch : branches) {
        width = std::max(width, branch.size());
    }
    out += colour("Branches", "1") + "\n";
    for (const std::string& branch : branches) {
        bool isCurrent = branch == current || (branch == "HEAD" && current.empty());
        out += isCurrent ? colour("* ", "1;36") : "  ";
        out += colour(padded(branch, width), isCurrent ? "1;32" : "32");
        if (const Value* upstream = upstreams.find(branch)) {
            out.append("  ").append(colour(upstream->toString(), "31"));
        }
        if (const Value* counts = aheadBehind.find(branch); counts && counts->array()) {
            const Value::Array& pair = *counts->array();
            if (pair.size() == 2) {
                std::string text =
                    VNGitLogParser::aheadBehindAnnotation(pair[0].toInt(), pair[1].toInt());
                out.append("  ").append(colour(std::string("[").append(text).append("]"), "35"));
            }
        }
        out += "\n";
    }
    if (!tags.empty()) {
        out += colour("Tags", "1") + "\n";
        for (const std::string& tag : tags) {
            out.append("  ").append(colour(tag, "33")).append("\n");
        }
    }
    if (!remotes.empty()) {
        out += colour("Remotes", "1") + "\n";
        for (const auto& [name, url] : remotes) {
            out.append("  ").append(colour(name, "31")).append("  ").append(url.toString());
            out.append("\n");
        }
    }
    if (!stashes.empty()) {
        out += colour("Stashes", "1") + "\n";
        for (const Record& stash : stashes) {
            out.append("  ").append(colour(stash.string("name"), "33")).append("  ");
            out.append(stash.string("msg")).append("\n");
        }
    }
    std::cout << out << std::flush;
    return 0;
}

const Subcommand& refsCommand() {
    static const Subcommand command{
        "refs",
        {"refs [PATH] [--json]"},
        "List branches with upstream and ahead/behind counts, tags, remotes and stashes",
        "Lists the references of the repository that holds PATH (the current folder by "
        "default).",
        {{"--json", "Print the result as JSON for programs (compact; --pretty indents it)"}},
        runRefs,
    };
    return command;
}

}  // namespace vn::cli
