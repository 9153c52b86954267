#include <algorithm>
#include <cctype>
#include <ctime>
#include <set>

#include "base/Format.h"
#include "handler/FailureCollector.h"
#include "handler/SideBySide.h"
#include "hg/VNHgLogParser.h"
#include "hg/VNHgStatusParser.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNConfigFile.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogLabel.h"
#include "model/VNLogRowData.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/WorkQueue.h"

namespace {

std::string trimmed(std::string_view text, std::string_view characters = " \t\r\n") {
    std::size_t start = text.find_first_not_of(characters);
    if (start == std::string_view::npos) {
        return "";
    }
    std::size_t end = text.find_last_not_of(characters);
    return std::string(text.substr(start, end - start + 1));
}

bool isNumber(std::string_view text) {
    return !text.empty() && text.size() < 19 &&
           text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A revision the user named, as a revset that looks up exactly that name: numbers, hashes and
// plain names stand for themselves; anything else (blanks, quotes, operators) is quoted, so that
// a tag called "a b" or "x::y" is the tag, not an expression.
std::string revisionSymbol(const std::string& name) {
    bool plain =
        !name.empty() && name.front() != '-' && std::all_of(name.begin(), name.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
        });
    if (plain) {
        return name;
    }
    std::string quoted = "'";
    for (char c : name) {
        if (c == '\\' || c == '\'') {
            quoted.push_back('\\');
        }
        quoted.push_back(c);
    }
    return quoted + "'";
}

std::vector<std::string> withBundle(const std::optional<std::string>& bundle,
                                    std::vector<std::string> args) {
    if (!bundle) {
        return args;
    }
    args.insert(args.begin(), {"-R", *bundle});
    return args;
}

using vn::SideBySide;

std::string formatDay(const vn::Value::Date& date) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

}  // namespace

// ---- History -----------------------------------------------------------------------------------

std::vector<std::string> VNRepoHandlerMercurial::logArguments(
    const std::vector<std::string>& fileFolderPaths,
    const std::optional<std::string>& startRevision, uint64_t withLimit,
    const std::optional<std::string>& branch, bool followRenames) {
    std::vector<std::string> args{"--template", VNHgLogParser::logTemplate()};
    if (branch && !branch->empty()) {
        args.insert(args.end(), {"--branch", *branch});
    }
    if (followRenames) {
        args.emplace_back("--follow");
    }
    if (startRevision && !startRevision->empty()) {
        args.insert(args.end(), {"-r", *startRevision + ":0"});
    }
    if (withLimit > 0) {
        args.insert(args.end(), {"-l", std::to_string(withLimit)});
    }
    if (!fileFolderPaths.empty()) {
        args.emplace_back("--");
        args.insert(args.end(), fileFolderPaths.begin(), fileFolderPaths.end());
    }
    return args;
}

std::vector<vn::Record> VNRepoHandlerMercurial::logRevisions(
    const std::string& path, const std::string& latestRevision, uint64_t skip, uint64_t limit,
    const std::optional<std::string>& branch, uint64_t options) {
    if (latestRevision.empty() && skip == 0) {
        // "tip" saves the run that would ask for its number. On an empty repository hg answers
        // "tip:0" with the null revision, which is no changeset.
        std::vector<vn::Record> rows =
            logRevisions(path, {}, std::string("tip"), limit, branch, options, false);
        std::erase_if(rows, [](const vn::Record& row) { return row.string("rev") == "-1"; });
        return rows;
    }
    std::string latest = latestRevision.empty() ? this->latestRevision(path) : latestRevision;
    if (!isNumber(latest)) {
        // An empty repository ("-1") or a failure: no rows.
        return {};
    }
    uint64_t tip = std::stoull(latest);
    if (skip > tip) {
        return {};
    }
    return logRevisions(path, {}, std::to_string(tip - skip), limit, branch, options, false);
}

std::vector<vn::Record> VNRepoHandlerMercurial::logRevisions(
    const std::string& path, const std::vector<std::string>& fileFolderPaths, uint64_t withLimit,
    bool followRenames) {
    return logRevisions(path, fileFolderPaths, std::nullopt, withLimit, std::nullopt, 0,
                        followRenames);
}

std::vector<vn::Record> VNRepoHandlerMercurial::logRevisions(
    const std::string& path, const std::vector<std::string>& fileFolderPaths,
    const std::optional<std::string>& startRevision, uint64_t withLimit,
    const std::optional<std::string>& branch, uint64_t options, bool followRenames) {
    auto task =
        hgQueryTask(path, "log",
                    logArguments(fileFolderPaths, startRevision, withLimit, branch, followRenames));
    task->setLossyUTF8Output(true);
    // The log is the longest run: it starts first, the labels beside it.
    bool ok = false;
    SideBySide log([&] { ok = runQuery(task); });
    // Without a branch or files the rows are the visible revisions from the start down.
    std::optional<LabelWindow> window;
    if (fileFolderPaths.empty() && !(branch && !branch->empty()) && startRevision &&
        withLimit > 0) {
        window = LabelWindow{*startRevision, withLimit};
    }
    VNHgLogParser::LabelMap labels =
        labelsByRevision(path, options & LogIncludeClosedBranches, options & LogLabelEveryHead,
                         std::nullopt, window);
    log.wait();
    if (!ok) {
        handleHgFailure("hg log", task->exitCode(), task->errorOutput(), true);
        return {};
    }
    return VNHgLogParser::processLogResults(task->output(), labels);
}

bool VNRepoHandlerMercurial::streamLogRevisions(const std::string& path,
                                                const std::optional<std::string>& startRevision,
                                                uint64_t limit,
                                                const std::optional<std::string>& branch,
                                                uint64_t options, const LogRowsReceiver& receive) {
    auto task = hgQueryTask(path, "log", logArguments({}, startRevision, limit, branch, false));
    task->setLossyUTF8Output(true);
    VNHgLogParser::LabelMap labels;
    bool labelled = false;
    SideBySide labelLookup([&] {
        labels =
            labelsByRevision(path, options & LogIncludeClosedBranches, options & LogLabelEveryHead);
    });
    // Whole lines go on as they arrive; a line cut at a chunk's end waits for the rest. The
    // rows need their labels, so the first batch waits for the lookup.
    std::string partial;
    auto handOn = [&](std::string_view text) {
        if (!labelled) {
            labelLookup.wait();
            labelled = true;
        }
        std::vector<vn::Record> rows = VNHgLogParser::processLogResults(text, labels);
        if (!rows.empty()) {
            receive(rows);
        }
    };
    task->setOutputConsumer([&](std::string_view chunk) {
        std::size_t last = chunk.rfind('\n');
        if (last == std::string_view::npos) {
            partial.append(chunk);
            return;
        }
        if (partial.empty()) {
            handOn(chunk.substr(0, last + 1));
        } else {
            partial.append(chunk.substr(0, last + 1));
            handOn(partial);
            partial.clear();
        }
        partial.assign(chunk.substr(last + 1));
    });
    bool ok = runQuery(task);
    labelLookup.wait();
    if (!partial.empty()) {
        handOn(partial);
    }
    if (!ok) {
        handleHgFailure("hg log", task->exitCode(), task->errorOutput(), true);
    }
    return ok;
}

std::optional<vn::Record> VNRepoHandlerMercurial::parseLogLine(const std::string& line) {
    bool ok = false;
    vn::Record row = VNHgLogParser::parseLogLine(line, {}, &ok);
    if (!ok) {
        vn::Log::error(
            vn::format("A problem occurred in hg parseLogLine: number of fields %lu, "
                       "line was '%@', fields are: \n%@",
                       static_cast<unsigned long>(VNHgLogParser::splitFields(line).size()), line,
                       line),
            vn::Log::Mercurial);
        row.set("descriptionentry", std::make_shared<const VNLogDescriptionEntry>(
                                        "Error: see log", VNLogDescriptionEntry::LabelList{}));
    }
    return row;
}

std::optional<bool> VNRepoHandlerMercurial::hasUncommittedChanges(const std::string& path) {
    // Tracked and untracked changes both count: either is something to commit.
    auto status = hgQueryTask(path, "status", {"-m", "-a", "-r", "-d", "-u"});
    if (!runQuery(status)) {
        handleHgFailure("hg status", status->exitCode(), status->errorOutput(), false);
        return std::nullopt;
    }
    // hg's probe folders are no change of the user's.
    return !VNHgStatusParser::parseFileStatus(status->output()).empty();
}

std::vector<std::string> VNRepoHandlerMercurial::workingCopyParents(
    const std::string& path, const std::vector<vn::Record>* rows) {
    // The parents' hashes lead the dirstate file (in its first format); when the page holds
    // them, their numbers are known without asking hg.
    std::string requirements =
        vn::fs::readFile(vn::fs::appendPathComponent(path, ".hg/requires")).value_or("dirstate-v2");
    std::optional<std::string> dirstate;
    if (rows && requirements.find("dirstate-v2") == std::string::npos) {
        dirstate = vn::fs::readFile(vn::fs::appendPathComponent(path, ".hg/dirstate"));
    }
    if (dirstate && dirstate->size() >= 40) {
        static constexpr char digits[] = "0123456789abcdef";
        std::vector<std::string> revs;
        bool all = true;
        for (int i = 0; i < 2 && all; ++i) {
            std::string node;
            for (int b = 0; b < 20; ++b) {
                unsigned char byte = static_cast<unsigned char>((*dirstate)[i * 20 + b]);
                node.push_back(digits[byte >> 4]);
                node.push_back(digits[byte & 15]);
            }
            if (node == std::string(40, '0')) {
                continue;
            }
            auto it = std::find_if(rows->begin(), rows->end(), [&](const vn::Record& row) {
                return row.string("changeset") == node;
            });
            if (it == rows->end()) {
                all = false;
            } else {
                revs.push_back(it->string("rev"));
            }
        }
        if (all) {
            return revs;
        }
    }
    auto parents = hgQueryTask(path, "parents", {"--template", "{rev}\n"});
    std::vector<std::string> revs;
    if (!runQuery(parents)) {
        return revs;
    }
    for (std::string_view rest = parents->output(); !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string rev = trimmed(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (isNumber(rev)) {
            revs.push_back(rev);
        }
    }
    return revs;
}

vn::Record VNRepoHandlerMercurial::workingCopyRowWithParents(const std::vector<std::string>& revs) {
    return VNHgLogParser::addLogEntry(
        "-1", "", "", revs.empty() ? "" : revs[0], revs.size() > 1 ? revs[1] : "",
        vn::Value::Date(std::chrono::time_point_cast<vn::Value::Date::duration>(
            std::chrono::system_clock::now())),
        "", "", "Uncommitted changes", {});
}

std::optional<vn::Record> VNRepoHandlerMercurial::workingCopyRow(const std::string& path) {
    std::vector<std::string> revs;
    SideBySide parentLookup([&] { revs = workingCopyParents(path, nullptr); });
    std::optional<bool> changed = hasUncommittedChanges(path);
    parentLookup.wait();
    if (!changed || !*changed) {
        return std::nullopt;
    }
    return workingCopyRowWithParents(revs);
}

void VNRepoHandlerMercurial::fillLogPage(const std::string& path, VNLogRowData& rowData,
                                         bool withWorkingCopyRow) {
    std::optional<std::string> branch;
    if (!rowData.allBranches() && !rowData.selectedBranch().empty()) {
        branch = rowData.selectedBranch();
    }
    const uint64_t skip = rowData.skip();
    const uint64_t limit = rowData.limit();
    std::optional<bool> changed;
    std::optional<SideBySide> workingLookup;
    if (skip == 0 && withWorkingCopyRow) {
        workingLookup.emplace([&] { changed = hasUncommittedChanges(path); });
    }
    // Revision numbers count every branch: a branch's page, and the graph of the rows above a
    // later page, are read from the top.
    bool fromTop = skip > 0 && (branch || !rowData.baseGraphState());
    std::vector<vn::Record> rows;
    if (fromTop) {
        rows = logRevisions(path, {}, std::nullopt, limit == 0 ? 0 : skip + limit, branch,
                            rowData.logOptions(), false);
    } else {
        rows = logRevisions(path, "", skip, limit, branch, rowData.logOptions());
    }
    std::optional<vn::Record> working;
    if (workingLookup) {
        workingLookup->wait();
        if (changed && *changed) {
            working = workingCopyRowWithParents(workingCopyParents(path, &rows));
        }
    }
    rowData.setFirstRowIsWorkingDir(false);
    if (working) {
        rows.insert(rows.begin(), std::move(*working));
        rowData.setFirstRowIsWorkingDir(true);
    }
    addGraphInfoToLogRevisions(
        rows,
        fromTop ? nullptr
                : std::dynamic_pointer_cast<const VNLogGraphEntry>(rowData.baseGraphState()),
        rowData.followFirst());
    if (fromTop) {
        rows.erase(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(
                                                    std::min<uint64_t>(skip, rows.size())));
    }
    rowData.setMoreRevisions(limit != 0 && rows.size() - (working ? 1 : 0) >= limit);
    bool found = false;
    for (const vn::Record& row : rows) {
        auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
        if (!entry) {
            continue;
        }
        for (const auto& label : entry->labels()) {
            if (label->currentMarker()) {
                found = true;
                if (rowData.currentBranch().empty()) {
                    rowData.setCurrentBranch(label->label());
                }
            }
        }
    }
    rowData.setCurrentBranchFound(found);
    rowData.setLogRows(std::move(rows));
}

VNHgLogParser::LabelMap VNRepoHandlerMercurial::labelsByRevision(
    const std::string& path, bool includeClosedBranches, bool includeMultipleHeads,
    const std::optional<std::string>& bundlePath, const std::optional<LabelWindow>& window) {
    // A page's window leaves out the tags of every other revision, which are most of the work
    // in a history with many tags. Without a window the command server answers the three
    // listings from hg's caches side by side sooner than the one run over every labelled
    // changeset; without the server each run pays hg's start-up, so the one run wins.
    if (!bundlePath && (window || !usesCommandServer())) {
        return labelsByRevisionFromOneRun(path, includeClosedBranches, includeMultipleHeads,
                                          window);
    }
    return labelsByRevisionFromListings(path, includeClosedBranches, includeMultipleHeads,
                                        bundlePath);
}

VNHgLogParser::LabelMap VNRepoHandlerMercurial::labelsByRevisionFromOneRun(
    const std::string& path, bool includeClosedBranches, bool includeMultipleHeads,
    const std::optional<LabelWindow>& window) {
    // Every head stays in: a branch's label goes to its newest open head, wherever that is.
    std::string revisions = "head() or bookmark() or tag()";
    if (window && window->limit > 0 && (window->start == "tip" || isNumber(window->start))) {
        revisions = vn::format("head() or bookmark() or (tag() and last(0:%@, %@))", window->start,
                               std::to_string(window->limit));
    }
    auto task =
        hgQueryTask(path, "log", {"-r", revisions, "--template", labelledChangesetsTemplate()});
    task->setLossyUTF8Output(true);
    if (runQuery(task)) {
        return labelsFromLabelledChangesets(task->output(), includeClosedBranches,
                                            includeMultipleHeads);
    }
    handleHgFailure("hg log", task->exitCode(), task->errorOutput(), false);
    return {};
}

std::string VNRepoHandlerMercurial::labelledChangesetsTemplate() {
    // head() is computed once per run: hg keeps a template's revset results.
    std::string sep(FieldSeparator);
    return "{rev}" + sep + "{node|short}" + sep + "{branch}" + sep + "{get(extras, 'close')}" +
           sep + "{ifcontains(rev, revset('head()'), 'head')}" + sep + "{join(tags, '" + sep +
           "')}" + sep + "\\x1f" + sep + "{join(bookmarks, '" + sep + "')}" + sep + "\\x1f" + sep +
           "{activebookmark}\\n";
}

VNHgLogParser::LabelMap VNRepoHandlerMercurial::labelsFromLabelledChangesets(
    std::string_view output, bool includeClosedBranches, bool includeMultipleHeads) {
    struct Changeset {
        uint64_t rev = 0;
        std::string id;  // "rev:node"
        std::string branch;
        bool closes = false;
        bool head = false;
        std::vector<std::string> tags, bookmarks;
    };
    std::vector<Changeset> changesets;
    std::string active;
    for (std::string_view rest = output; !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        std::vector<std::string_view> fields = VNHgLogParser::splitFields(line);
        if (fields.size() < 9 || !isNumber(std::string(fields[0]))) {
            continue;
        }
        Changeset c;
        c.rev = std::stoull(std::string(fields[0]));
        c.id = std::string(fields[0]) + ":" + std::string(fields[1]);
        c.branch = fields[2];
        c.closes = fields[3] == "1";
        c.head = fields[4] == "head";
        std::size_t i = 5;
        for (; i < fields.size() && fields[i] != "\x1f"; ++i) {
            if (!fields[i].empty()) {
                c.tags.emplace_back(fields[i]);
            }
        }
        for (++i; i < fields.size() && fields[i] != "\x1f"; ++i) {
            if (!fields[i].empty()) {
                c.bookmarks.emplace_back(fields[i]);
            }
        }
        if (i + 1 < fields.size() && !fields[i + 1].empty()) {
            active = fields[i + 1];
        }
        changesets.push_back(std::move(c));
    }
    // Newest first, as the listing commands print.
    std::sort(changesets.begin(), changesets.end(),
              [](const Changeset& a, const Changeset& b) { return a.rev > b.rev; });

    // The lines `hg heads` or `hg branches`, `hg bookmarks` and `hg tags` print, read by the
    // same parsers, so that the labels and their order are those of the three commands.
    std::string branches, bookmarks, tags;
    std::vector<std::pair<std::string, std::string>> bookmarkLines;
    // A branch's tip as `hg branches` names it: its newest open head, else its newest head.
    std::map<std::string, const Changeset*> tips;
    std::set<std::string> openBranches;
    for (const Changeset& c : changesets) {
        // Within one changeset `hg tags` lists names from last to first.
        for (auto tag = c.tags.rbegin(); tag != c.tags.rend(); ++tag) {
            tags += *tag + " " + c.id + "\n";
        }
        for (const std::string& bookmark : c.bookmarks) {
            bookmarkLines.emplace_back(bookmark, c.id);
        }
        if (!c.head) {
            continue;
        }
        if (includeMultipleHeads) {
            if (!c.closes) {
                branches += c.branch + "\t\t" + c.id + "\n";
            }
            continue;
        }
        if (!c.closes && openBranches.insert(c.branch).second) {
            tips[c.branch] = &c;
        } else if (!tips.count(c.branch)) {
            tips[c.branch] = &c;
        }
    }
    if (!includeMultipleHeads) {
        for (const auto& [branch, tip] : tips) {
            if (openBranches.count(branch) || includeClosedBranches) {
                branches += branch + " " + tip->id + "\n";
            }
        }
    }
    std::sort(bookmarkLines.begin(), bookmarkLines.end());
    for (const auto& [name, id] : bookmarkLines) {
        bookmarks += std::string(name == active ? " * " : "   ") + name + " " + id + "\n";
    }
    VNHgLogParser::LabelMap labels;
    VNHgLogParser::addTagsBranchesOutput(branches, VNLogLabel::LocalBranch, labels);
    VNHgLogParser::addBookmarksOutput(bookmarks, labels);
    VNHgLogParser::addTagsBranchesOutput(tags, VNLogLabel::Tag, labels);
    return labels;
}

VNHgLogParser::LabelMap VNRepoHandlerMercurial::labelsByRevisionFromListings(
    const std::string& path, bool includeClosedBranches, bool includeMultipleHeads,
    const std::optional<std::string>& bundlePath) {
    std::string tagsOutput, branchesOutput, bookmarksOutput;
    auto run = [&](std::vector<std::string> args, std::string& out, const char* label) {
        auto task = hgQueryTaskWithArgs(path, withBundle(bundlePath, std::move(args)));
        task->setLossyUTF8Output(true);
        if (runQuery(task)) {
            out = task->output();
        } else {
            handleHgFailure(label, task->exitCode(), task->errorOutput(), false);
        }
    };
    {
        SideBySide tags([&] { run(defaultArgsForPath(path, "tags"), tagsOutput, "hg tags"); });
        SideBySide bookmarks(
            [&] { run(defaultArgsForPath(path, "bookmarks"), bookmarksOutput, "hg bookmarks"); });
        std::vector<std::string> args;
        if (includeMultipleHeads) {
            args = defaultArgsForPath(path, "heads");
            args.insert(args.end(), {"--template", "{branch}\t\t{rev}:{node|short}\n"});
        } else {
            args = defaultArgsForPath(path, "branches");
            if (includeClosedBranches) {
                args.emplace_back("-c");
            }
        }
        run(std::move(args), branchesOutput, "hg branches");
    }
    VNHgLogParser::LabelMap labels;
    VNHgLogParser::addTagsBranchesOutput(branchesOutput, VNLogLabel::LocalBranch, labels);
    VNHgLogParser::addBookmarksOutput(bookmarksOutput, labels);
    VNHgLogParser::addTagsBranchesOutput(tagsOutput, VNLogLabel::Tag, labels);
    // The branch of the working copy's parent is the current one.
    return labels;
}

std::map<std::string, std::string> VNRepoHandlerMercurial::headsByRevision(
    const std::string& path) {
    std::string tmpl = "{rev}" + std::string(FieldSeparator) + "{branches}\n";
    auto task = hgQueryTask(path, "heads", {"--template", tmpl});
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        return {};
    }
    return VNHgLogParser::headsByRevision(task->output());
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::searchLogTask(const std::string& path,
                                                              const std::string& pattern,
                                                              uint32_t mode,
                                                              const vn::Value::Date& from,
                                                              const vn::Value::Date& to) {
    std::vector<std::string> args{mode == SearchAuthor ? "-u" : "-k", pattern, "--template",
                                  VNHgLogParser::logTemplate()};
    if (from != vn::Value::Date() || to != vn::Value::Date()) {
        // Clamped to what hg can read: not before 1902, not after now.
        static const auto earliest = [] {
            std::tm parts{};
            parts.tm_year = 2;
            parts.tm_mday = 1;
            parts.tm_isdst = -1;
            return std::chrono::system_clock::from_time_t(std::mktime(&parts));
        }();
        auto now = std::chrono::system_clock::now();
        auto clamp = [&](vn::Value::Date date) { return std::clamp(date, earliest, now); };
        DateFormatter formatter = searchDateFormatter();
        auto day = [&](const vn::Value::Date& date) {
            return formatter ? formatter(date) : formatDay(date);
        };
        args.insert(args.end(), {"-d", day(clamp(from)) + " to " + day(clamp(to))});
    }
    auto task = hgQueryTask(path, "log", std::move(args));
    task->setLossyUTF8Output(true);
    return task;
}

vn::Record VNRepoHandlerMercurial::revisionDetails(const std::string& path,
                                                   const std::string& revision) {
    auto task = hgQueryTask(path, "log",
                            {"--template", VNHgLogParser::revisionDetailsTemplate(), "-r",
                             revisionSymbol(revision), "-l", "1"});
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg log", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    vn::Record details = VNHgLogParser::parseRevisionDetails(task->output());
    if (details.empty()) {
        return details;
    }
    // The revision number, and the labels as the history shows them.
    auto number =
        hgQueryTask(path, "log", {"--template", "{rev}", "-r", details.string("changeset")});
    if (runQuery(number)) {
        std::string rev = trimmed(number->output());
        details.set("rev", rev);
        // Parents by revision number, the plain predecessor included (hg leaves it out).
        std::string field;
        if (const vn::Value::Array* parents = details["parents"].array()) {
            for (const vn::Value& parent : *parents) {
                field.append(parent.toString()).append(" ");
            }
        }
        std::string parent1, parent2;
        VNHgLogParser::parentsFromField(field, rev, parent1, parent2);
        details.set("parentid1", parent1);
        details.set("parentid2", parent2);
        vn::Value::Array numbers;
        for (const std::string& parent : {parent1, parent2}) {
            if (!parent.empty()) {
                numbers.emplace_back(parent);
            }
        }
        details.set("parents", std::move(numbers));
        auto labels = labelsByRevision(path, true, false);
        auto it = labels.find(rev);
        auto entry = details["descriptionentry"].objectAs<VNLogDescriptionEntry>();
        if (entry && it != labels.end()) {
            details.set("descriptionentry", std::make_shared<const VNLogDescriptionEntry>(
                                                entry->description(), it->second));
        }
    }
    return details;
}

std::vector<vn::Record> VNRepoHandlerMercurial::revisionFileChanges(const std::string& path,
                                                                    const std::string& revision) {
    auto task = hgQueryTask(path, "status", {"-C", "--change", revisionSymbol(revision)});
    task->setRawOutput(true);
    if (!runQuery(task)) {
        handleHgFailure("hg status", task->exitCode(), task->errorOutput(), false);
        return {VNHgStatusParser::fileStatusEntry("Error", 0)};
    }
    return VNHgStatusParser::parseFileStatus(task->output());
}

std::vector<vn::Record> VNRepoHandlerMercurial::revisionRangeFileChanges(
    const std::string& path, const std::string& revisionFrom, const std::string& revisionTo) {
    auto task = hgQueryTask(
        path, "status",
        {"-C", "--rev", revisionSymbol(revisionFrom) + ":" + revisionSymbol(revisionTo)});
    task->setRawOutput(true);
    if (!runQuery(task)) {
        handleHgFailure("hg status", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    return VNHgStatusParser::parseFileStatus(task->output());
}

std::vector<vn::Record> VNRepoHandlerMercurial::mergeRevisionFileChanges(
    const std::string& path, const std::string& revision, const std::string& parent1,
    const std::string& /*parent2*/) {
    // What the merge brought in against its first parent.
    return revisionRangeFileChanges(path, parent1.empty() ? revision + "^" : parent1, revision);
}

std::vector<std::string> VNRepoHandlerMercurial::parentRevisions(const std::string& path,
                                                                 const std::string& revision) {
    std::vector<std::string> args{"--template", "{rev}" + std::string(FieldSeparator)};
    if (!revision.empty()) {
        args.insert(args.end(), {"-r", revisionSymbol(revision)});
    }
    auto task = hgQueryTask(path, "parents", std::move(args));
    if (!runQuery(task)) {
        return {};
    }
    std::vector<std::string> parents;
    for (std::string_view field : VNHgLogParser::splitFields(task->output())) {
        std::string rev = trimmed(field);
        if (!rev.empty()) {
            parents.push_back(rev);
        }
    }
    return parents;
}

std::vector<vn::Record> VNRepoHandlerMercurial::parentRevisionsWithDetails(
    const std::string& path, const std::string& revision) {
    std::vector<std::string> args{"--template", VNHgLogParser::parentDetailsTemplate()};
    if (!revision.empty()) {
        args.insert(args.end(), {"-r", revisionSymbol(revision)});
    }
    auto task = hgQueryTask(path, "parents", std::move(args));
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        return {};
    }
    return VNHgLogParser::parseParentDetails(task->output());
}

vn::Record VNRepoHandlerMercurial::lastCommitDetails(const std::string& path) {
    return revisionDetails(path, ".");
}

bool VNRepoHandlerMercurial::revisionIsValid(const std::string& path, const std::string& revision) {
    auto task = hgQueryTask(
        path, "log", {"-r", revisionSymbol(revision), "-l", "1", "--template='rev={node}\\n'"});
    return runQuery(task) && task->output().find("rev=") != std::string::npos;
}

std::optional<std::string> VNRepoHandlerMercurial::getCommitSHA(const std::string& path,
                                                                const std::string& forLabel) {
    if (forLabel.empty()) {
        return std::nullopt;
    }
    auto task = hgQueryTask(path, "log",
                            {"-r", revisionSymbol(forLabel), "-l", "1", "--template", "{node}"});
    if (!runQuery(task)) {
        return std::nullopt;
    }
    std::string node = trimmed(task->output());
    if (node.size() != 40 || node == std::string(40, '0')) {
        return std::nullopt;
    }
    return node;
}

std::vector<vn::Record> VNRepoHandlerMercurial::blame(const std::string& path,
                                                      const std::string& file,
                                                      const std::optional<std::string>& revision) {
    std::vector<std::string> args{"-n", "-c", "-u", "-v", "-a"};
    if (revision && !revision->empty()) {
        args.insert(args.end(), {"-r", revisionSymbol(*revision)});
    }
    args.insert(args.end(), {"--", file});
    auto task = hgQueryTask(path, "blame", std::move(args));
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg blame", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    std::vector<vn::Record> lines = VNHgLogParser::parseBlame(task->output());
    // The dates of the changesets named, from one log run, so that a line reads as in Git.
    std::set<std::string> revs;
    for (const vn::Record& line : lines) {
        revs.insert(line.string("rev"));
    }
    if (!revs.empty()) {
        std::string revset;
        for (const std::string& rev : revs) {
            revset.append(revset.empty() ? "" : "+").append(rev);
        }
        auto dates = hgQueryTask(path, "log",
                                 {"-r", revset, "--template",
                                  "{rev}" + std::string(FieldSeparator) + "{date|isodatesec}\n"});
        std::map<std::string, vn::Value> byRev;
        if (runQuery(dates)) {
            for (std::string_view rest = dates->output(); !rest.empty();) {
                std::size_t end = rest.find('\n');
                auto fields = VNHgLogParser::splitFields(rest.substr(0, end));
                rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
                if (fields.size() == 2) {
                    byRev[std::string(fields[0])] = VNHgLogParser::isoDate(fields[1]);
                }
            }
        }
        for (vn::Record& line : lines) {
            auto it = byRev.find(line.string("rev"));
            line.set("date", it == byRev.end() ? vn::Value() : it->second);
        }
    }
    return lines;
}

bool VNRepoHandlerMercurial::exportFileContentAtRevision(const std::string& path,
                                                         const std::string& file,
                                                         const std::string& revision,
                                                         const std::string& destFile) {
    std::vector<std::string> args = defaultArgsForPath(path, "-R");
    args.insert(args.end(), {path, "cat", "-r", revisionSymbol(revision), "--", file});
    auto task =
        VNTask::taskWithCommand(hgPath(), path, configOptionsFirst(std::move(args)), destFile);
    task->setEnvironmentCustomisations(plainEnvironment());
    if (!task->run()) {
        handleHgFailure("hg cat", task->exitCode(), task->errorOutput(), false);
        return false;
    }
    return true;
}

// ---- References --------------------------------------------------------------------------------

namespace {

// The non-empty lines of a listing whose template prints one name a line.
std::vector<std::string> namesOf(std::string_view output) {
    std::vector<std::string> names;
    for (std::string_view rest = output; !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (!line.empty()) {
            names.emplace_back(line);
        }
    }
    return names;
}

}  // namespace

std::vector<std::string> VNRepoHandlerMercurial::branches(const std::string& path) {
    auto task = hgQueryTask(path, "branches", {"--template", "{branch}\n"});
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg branches", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    return namesOf(task->output());
}

std::vector<std::string> VNRepoHandlerMercurial::branchesSortedByMostRecentFirst(
    const std::string& path) {
    // hg lists branches by their newest changeset already.
    return branches(path);
}

std::vector<std::string> VNRepoHandlerMercurial::tags(const std::string& path) {
    auto task = hgQueryTask(path, "tags", {"--template", "{tag}\n"});
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg tags", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    return namesOf(task->output());
}

std::vector<std::string> VNRepoHandlerMercurial::tagsSortedByMostRecentFirst(
    const std::string& path) {
    return tags(path);
}

std::vector<std::string> VNRepoHandlerMercurial::bookmarks(const std::string& path,
                                                           std::string* active) {
    auto task = hgQueryTask(path, "bookmarks");
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg bookmarks", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    return VNHgLogParser::bookmarkNames(task->output(), active);
}

std::vector<vn::Record> VNRepoHandlerMercurial::listStashes(const std::string& path) {
    auto task = hgQueryTask(path, "shelve", {"--list", "-q"});
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg shelve", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    std::vector<vn::Record> shelves;
    for (std::string_view rest = task->output(); !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string name = trimmed(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (!name.empty()) {
            shelves.push_back(vn::Record{{"name", name}, {"msg", ""}});
        }
    }
    return shelves;
}

std::vector<std::shared_ptr<VNLogLabel>> VNRepoHandlerMercurial::allRevisionLabels(
    const std::string& path, uint64_t options) {
    auto labels =
        labelsByRevision(path, options & LogIncludeClosedBranches, options & LogLabelEveryHead);
    std::vector<std::shared_ptr<VNLogLabel>> all;
    for (auto& [rev, list] : labels) {
        all.insert(all.end(), list.begin(), list.end());
    }
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
        if (a->type() != b->type()) {
            return a->type() < b->type();
        }
        return a->compareCaseInsensitive(*b) < 0;
    });
    return all;
}

// ---- Remotes -----------------------------------------------------------------------------------

std::vector<vn::Record> VNRepoHandlerMercurial::remotePaths(const std::string& path) {
    std::string hgrc = vn::fs::appendPathComponent(path, ".hg/hgrc");
    if (!vn::fs::exists(hgrc)) {
        return {};
    }
    VNConfigFile config(hgrc, true, true);
    std::vector<vn::Record> remotes;
    for (const auto& [name, url] : config.getConfigKeysAndValuesWithSection("paths")) {
        remotes.push_back(vn::Record{{"name", name}, {"path", url}});
    }
    return remotes;
}

std::string VNRepoHandlerMercurial::defaultPathAmong(const std::vector<vn::Record>& paths,
                                                     bool forPush) {
    std::string fallback;
    for (const vn::Record& remote : paths) {
        std::string name = remote.string("name");
        if (forPush && name == "default-push") {
            return name;
        }
        if (name == "default") {
            fallback = name;
        }
    }
    return fallback;
}

bool VNRepoHandlerMercurial::setRemotePaths(const std::string& path,
                                            const std::vector<vn::Record>& remotes) {
    VNConfigFile config(vn::fs::appendPathComponent(path, ".hg/hgrc"), true, true);
    std::map<std::string, std::string> values;
    for (const vn::Record& remote : remotes) {
        std::string name = trimmed(remote.string("name"));
        if (!name.empty()) {
            values[name] = trimmed(remote.string("path"));
        }
    }
    return config.setConfigKeysAndValues(values, "paths", true) && config.save();
}

vn::Record VNRepoHandlerMercurial::remoteRepositories(const std::string& path) {
    vn::Record remotes;
    for (const vn::Record& remote : remotePaths(path)) {
        remotes.set(remote.string("name"), remote.string("path"));
    }
    return remotes;
}

std::string VNRepoHandlerMercurial::urlForAlias(const std::string& path, const std::string& alias) {
    for (const vn::Record& remote : remotePaths(path)) {
        if (remote.string("name") == alias) {
            return remote.string("path");
        }
    }
    return alias;
}

bool VNRepoHandlerMercurial::isRemoteSvn(const std::string& path, const std::string& remote) {
    std::string url = urlForAlias(path, remote);
    return url.starts_with("svn+") || url.starts_with("svn://");
}

bool VNRepoHandlerMercurial::hasSvnInterop(const std::string& path) {
    return vn::fs::exists(vn::fs::appendPathComponent(path, ".hg/svn"));
}

void VNRepoHandlerMercurial::configureSshAskPass(const std::string& path, const std::string& remote,
                                                 VNTask& task) {
    std::string url = urlForAlias(path, remote);
    std::string user = vn::CredentialStore::userFromURL(url);
    std::string host = vn::CredentialStore::hostFromURL(url);
    bool ssh = url.starts_with("ssh:") ||
               (url.find("://") == std::string::npos && url.find('@') != std::string::npos);
    task.configureSSHAskpassForUser(user, host, url, ssh);
    task.setAuthenticationFailedDelegate(weak_from_this());
    task.setRemoteInfo(remote);
}

void VNRepoHandlerMercurial::authenticationFailed(const std::string& path,
                                                  const std::string& remote) {
    vn::CredentialStore::shared()->authenticationFailedForURL(urlForAlias(path, remote));
}

// ---- Incoming and outgoing ---------------------------------------------------------------------

uint64_t VNRepoHandlerMercurial::countChanges(std::string_view output, std::string_view marker) {
    uint64_t count = 0;
    for (std::size_t at = output.find(marker); at != std::string_view::npos;
         at = output.find(marker, at + marker.size())) {
        ++count;
    }
    return count;
}

bool VNRepoHandlerMercurial::incomingChanges(const std::string& path, const std::string& remote,
                                             uint64_t& incoming) {
    return incomingChanges(path, remote, incoming, std::nullopt);
}

bool VNRepoHandlerMercurial::incomingChanges(const std::string& path, const std::string& remote,
                                             uint64_t& incoming,
                                             const std::optional<std::string>& branch) {
    incoming = 0;
    std::vector<std::string> args;
    if (branch && !branch->empty()) {
        args.insert(args.end(), {"-b", *branch});
    }
    args.insert(args.end(), {"--template='rev={node}\\n'", "-q", "--", remote});
    auto task = hgTask(path, "incoming", std::move(args));
    configureSshAskPass(path, remote, *task);
    task->setSuppressUserPrompts(true);
    bool ok = task->run();
    bool svn = hasSvnInterop(path) && isRemoteSvn(path, remote);
    incoming = countChanges(task->output(), svn ? "revision:" : "rev=");
    // hg answers 1 when there is nothing to bring; only a failure with a reason is one.
    return ok || trimmed(task->errorOutput()).empty();
}

bool VNRepoHandlerMercurial::outgoingChanges(const std::string& path, const std::string& remote,
                                             uint64_t& outgoing) {
    outgoing = 0;
    auto task = hgTask(path, "outgoing", {"--template='rev={node}\\n'", "-q", "--", remote});
    configureSshAskPass(path, remote, *task);
    task->setSuppressUserPrompts(true);
    bool ok = task->run();
    bool svn = hasSvnInterop(path) && isRemoteSvn(path, remote);
    outgoing = countChanges(task->output(), svn ? "changeset:" : "rev=");
    return ok || trimmed(task->errorOutput()).empty();
}

bool VNRepoHandlerMercurial::incomingOutgoingChanges(const std::string& path, bool localOnly,
                                                     uint64_t& incoming, uint64_t& outgoing,
                                                     const std::optional<std::string>& branch) {
    incoming = 0;
    outgoing = 0;
    std::string pull, push;
    for (const vn::Record& remote : remotePaths(path)) {
        if (remote.string("name") == "default") {
            pull = "default";
        } else if (remote.string("name") == "default-push") {
            push = "default-push";
        }
    }
    if (push.empty()) {
        push = pull;
    }
    if (pull.empty() && push.empty()) {
        return false;
    }
    if (localOnly) {
        // Remotes on this machine only: a network round trip is not wanted.
        auto isLocal = [&](const std::string& name) {
            std::string url = urlForAlias(path, name);
            return url.find("://") == std::string::npos || url.starts_with("file://");
        };
        if (!pull.empty() && !isLocal(pull)) {
            pull.clear();
        }
        if (!push.empty() && !isLocal(push)) {
            push.clear();
        }
    }
    bool ok = true;
    std::optional<SideBySide> in;
    if (!pull.empty()) {
        in.emplace([&] { ok = incomingChanges(path, pull, incoming, branch) && ok; });
    }
    bool outOk = push.empty() || outgoingChanges(path, push, outgoing);
    if (in) {
        in->wait();
    }
    return ok && outOk;
}

std::string VNRepoHandlerMercurial::incomingText(const std::string& path,
                                                 const std::string& remote) {
    auto task = hgTask(path, "incoming", {"--", remote});
    configureSshAskPass(path, remote, *task);
    task->setLossyUTF8Output(true);
    task->run();
    std::string text;
    for (std::string_view rest = task->output(); !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line =
            rest.substr(0, end == std::string_view::npos ? rest.size() : end + 1);
        rest.remove_prefix(line.size());
        if (line.starts_with("http authorization") || line.starts_with("realm:") ||
            line.starts_with("user:") || line.starts_with("comparing with ") ||
            line.starts_with("searching for changes")) {
            continue;
        }
        text.append(line);
    }
    if (task->errorOutput().find("failed") != std::string::npos) {
        text.append(task->errorOutput());
    }
    return text;
}

std::vector<vn::Record> VNRepoHandlerMercurial::outgoingChangesetLog(const std::string& path,
                                                                     const std::string& remote) {
    VNHgLogParser::LabelMap labels;
    SideBySide lookup([&] { labels = labelsByRevision(path, false, false); });
    auto task =
        hgTask(path, "outgoing", {"--template", VNHgLogParser::logTemplate(), "-n", "--", remote});
    configureSshAskPass(path, remote, *task);
    task->setLossyUTF8Output(true);
    task->run();
    lookup.wait();
    // Everything after hg's own chatter ("comparing with", "searching for changes").
    std::string rows;
    for (std::string_view rest = task->output(); !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line =
            rest.substr(0, end == std::string_view::npos ? rest.size() : end + 1);
        rest.remove_prefix(line.size());
        if (line.find(FieldSeparator) != std::string_view::npos) {
            rows.append(line);
        }
    }
    auto result = VNHgLogParser::processLogResults(rows, labels);
    addGraphInfoToLogRevisions(result);
    return result;
}

std::vector<vn::Record> VNRepoHandlerMercurial::incomingChangesetLog(
    const std::string& path, const std::string& remote, const std::string& bundlePath) {
    auto task = hgTask(
        path, "incoming",
        {"--bundle", bundlePath, "--template", VNHgLogParser::logTemplate(), "-n", "--", remote});
    configureSshAskPass(path, remote, *task);
    task->setLossyUTF8Output(true);
    task->run();
    std::string rows;
    for (std::string_view rest = task->output(); !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line =
            rest.substr(0, end == std::string_view::npos ? rest.size() : end + 1);
        rest.remove_prefix(line.size());
        if (line.find(FieldSeparator) != std::string_view::npos) {
            rows.append(line);
        }
    }
    if (rows.empty()) {
        return {};
    }
    auto labels = labelsByRevision(path, false, false, bundlePath);
    auto result = VNHgLogParser::processLogResults(rows, labels);
    addGraphInfoToLogRevisions(result);
    return result;
}
