#include <functional>
#include <iostream>
#include <string>

#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNGitLogParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNLogLabel.h"
#include "platform/CredentialStore.h"
#include "platform/WorkQueue.h"

namespace vn::cli {

namespace {

std::string padded(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

}  // namespace

namespace {

// Named branches, bookmarks (the active one marked), tags, remote paths and shelves.
int mercurialRefs(VNRepoHandlerMercurial& handler, const std::string& path, bool json) {
    std::vector<std::string> branches, tags, bookmarks;
    std::string activeBookmark, currentBranch;
    std::vector<Record> remotePaths, shelves;
    FailureCollector failures;
    WorkGroup group;
    WorkQueue& queue = WorkQueue::global();
    auto async = [&](std::function<void()> work) {
        queue.async(group, FailureCollector::bind(std::move(work)));
    };
    async([&] { branches = handler.branches(path); });
    async([&] { tags = handler.tags(path); });
    async([&] { currentBranch = handler.currentBranch(path); });
    async([&] { shelves = handler.listStashes(path); });
    bookmarks = handler.bookmarks(path, &activeBookmark);
    remotePaths = handler.remotePaths(path);
    group.wait();
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    Record remotes;
    for (const Record& remote : remotePaths) {
        remotes.set(remote.string("name"),
                    CredentialStore::redactURLPasswords(remote.string("path")));
    }
    if (json) {
        printJson(Record{
            {"branches", Value::Array(branches.begin(), branches.end())},
            {"currentBranch", currentBranch},
            {"bookmarks", Value::Array(bookmarks.begin(), bookmarks.end())},
            {"activeBookmark", activeBookmark},
            {"tags", Value::Array(tags.begin(), tags.end())},
            {"remotes", remotes},
            {"stashes", Value::Array(shelves.begin(), shelves.end())},
        });
        return 0;
    }
    std::string out;
    auto section = [&](const char* title, const std::vector<std::string>& names,
                       const std::string& current, const char* sgr) {
        if (names.empty()) {
            return;
        }
        out += colour(title, "1") + "\n";
        for (const std::string& name : names) {
            bool isCurrent = name == current;
            out += isCurrent ? colour("* ", "1;36") : "  ";
            out.append(colour(display(name), isCurrent ? "1;32" : sgr)).append("\n");
        }
    };
    section("Branches", branches, currentBranch, "32");
    section("Bookmarks", bookmarks, activeBookmark, "32");
    section("Tags", tags, "", "33");
    if (!remotes.empty()) {
        out += colour("Remotes", "1") + "\n";
        for (const auto& [name, url] : remotes) {
            out.append("  ").append(colour(display(name), "31")).append("  ");
            out.append(display(url.toString())).append("\n");
        }
    }
    if (!shelves.empty()) {
        out += colour("Shelves", "1") + "\n";
        for (const Record& shelf : shelves) {
            out.append("  ").append(colour(display(shelf.string("name")), "33")).append("\n");
        }
    }
    std::cout << out << std::flush;
    return 0;
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
    auto workingCopy = history::findGitWorkingCopy(rest.empty() ? "." : rest[0], true);
    if (!workingCopy) {
        return 1;
    }
    if (workingCopy->mercurial) {
        return mercurialRefs(*workingCopy->mercurial, workingCopy->path, json);
    }
    auto& handler = *workingCopy->handler;
    const std::string& path = workingCopy->path;

    // Independent listings, run side by side.
    std::vector<std::string> branches, tags;
    std::vector<std::shared_ptr<VNLogLabel>> labels;
    std::vector<Record> stashes, remoteUrls;
    Record aheadBehind, upstreams;
    FailureCollector failures;
    WorkGroup group;
    WorkQueue& queue = WorkQueue::global();
    auto async = [&](std::function<void()> work) {
        queue.async(group, FailureCollector::bind(std::move(work)));
    };
    async([&] { branches = handler.branches(path); });
    async([&] { labels = handler.allRevisionLabels(path, 0); });
    async([&] { tags = handler.tags(path); });
    async([&] { stashes = handler.listStashes(path); });
    async([&] { remoteUrls = handler.remoteUrls(path); });
    async([&] { aheadBehind = handler.branchesWithCommitsAheadBehind(path); });
    upstreams = handler.trackingBranchesForPull(path);
    group.wait();
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }

    std::string current;
    for (const auto& label : labels) {
        if (label->currentMarker()) {
            current = label->label();
        }
    }
    // A remote's URL is where it fetches from; where pushes go apart from that is kept beside.
    Record remotes, pushUrls;
    for (const Record& remote : remoteUrls) {
        std::string fetch = CredentialStore::redactURLPasswords(remote.string("fetchUrl"));
        remotes.set(remote.string("name"), fetch);
        Value::Array pushes;
        if (const Value::Array* urls = remote["pushUrls"].array()) {
            for (const Value& url : *urls) {
                pushes.emplace_back(CredentialStore::redactURLPasswords(url.toString()));
            }
        }
        if (!(pushes.size() == 1 && pushes.front().toString() == fetch) && !pushes.empty()) {
            pushUrls.set(remote.string("name"), std::move(pushes));
        }
    }

    if (json) {
        printJson(Record{
            {"branches", Value::Array(branches.begin(), branches.end())},
            {"currentBranch", current},
            {"aheadBehind", aheadBehind},
            {"trackingBranches", upstreams},
            {"tags", Value::Array(tags.begin(), tags.end())},
            {"remotes", remotes},
            {"remotePushUrls", pushUrls},
            {"stashes", Value::Array(stashes.begin(), stashes.end())},
        });
        return 0;
    }

    std::string out;
    std::size_t width = 0;
    for (const std::string& branch : branches) {
        width = std::max(width, display(branch).size());
    }
    out += colour("Branches", "1") + "\n";
    for (const std::string& branch : branches) {
        bool isCurrent = branch == current || (branch == "HEAD" && current.empty());
        out += isCurrent ? colour("* ", "1;36") : "  ";
        out += colour(padded(display(branch), width), isCurrent ? "1;32" : "32");
        if (const Value* upstream = upstreams.find(branch)) {
            out.append("  ").append(colour(display(upstream->toString()), "31"));
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
            out.append("  ").append(colour(display(tag), "33")).append("\n");
        }
    }
    if (!remotes.empty()) {
        out += colour("Remotes", "1") + "\n";
        for (const auto& [name, url] : remotes) {
            out.append("  ").append(colour(display(name), "31")).append("  ");
            out.append(display(url.toString()));
            out.append("\n");
            if (const Value* pushes = pushUrls.find(name); pushes && pushes->array()) {
                for (const Value& push : *pushes->array()) {
                    out.append("  ").append(std::string(name.size(), ' ')).append("  ");
                    out.append(push.toString()).append(" (push)\n");
                }
            }
        }
    }
    if (!stashes.empty()) {
        out += colour("Stashes", "1") + "\n";
        for (const Record& stash : stashes) {
            out.append("  ").append(colour(display(stash.string("name")), "33")).append("  ");
            out.append(display(stash.string("msg"))).append("\n");
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
