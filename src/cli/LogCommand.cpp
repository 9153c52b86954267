#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <tuple>

#include "base/Format.h"
#include "base/Json.h"
#include "cli/Cli.h"
#include "cli/GraphRenderer.h"
#include "cli/HistoryCli.h"
#include "git/VNGitLogParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogGraphLayout.h"
#include "model/VNLogGraphStateCache.h"
#include "model/VNLogLabel.h"
#include "model/VNLogRowData.h"
#include "platform/FileSystem.h"
#include "platform/WorkQueue.h"

namespace vn::cli {

namespace {

constexpr uint64_t DefaultPageSize = 100;

bool terminalTakesTrueColour() {
    const char* colourTerm = std::getenv("COLORTERM");
    return colourTerm &&
           (std::string_view(colourTerm) == "truecolor" || std::string_view(colourTerm) == "24bit");
}

// The rows as `printHistoryRows` writes them, appended to `out`.
void appendHistoryRows(std::string& out, const std::vector<Record>& rows, bool graph) {
    const bool coloured = useColour();
    const bool trueColour = coloured && terminalTakesTrueColour();
    for (const Record& row : rows) {
        const bool workingCopyRow = row.string("rev") == "-1";
        if (graph) {
            // Each row as wide as its own graph: rows are printed as they come, before the
            // widest is known.
            if (auto entry = row["graph"].objectAs<VNLogGraphEntry>()) {
                appendGraphText(out, *entry, workingCopyRow, coloured, trueColour);
            }
            out += ' ';
        }
        if (workingCopyRow) {
            out.append(colour("Uncommitted changes", "1"));
        } else {
            out += history::rowLine(row);
        }
        out += '\n';
    }
}

void writeOut(std::string_view text) {
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
    std::cout.flush();
}

std::vector<GraphRow> graphRowsOf(const std::vector<Record>& rows) {
    std::vector<GraphRow> graphRows;
    graphRows.reserve(rows.size());
    for (const Record& row : rows) {
        GraphRow graphRow;
        graphRow.graph = row["graph"].objectAs<VNLogGraphEntry>();
        graphRow.workingCopy = row.string("rev") == "-1";
        if (auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>()) {
            graphRow.text = display(entry->description());
        }
        graphRow.labels = history::labelsText(row["descriptionentry"]);
        if (!graphRow.labels.empty() && graphRow.labels[0] == ' ') {
            graphRow.labels.erase(0, 1);
        }
        graphRows.push_back(std::move(graphRow));
    }
    return graphRows;
}

// States are kept at this spacing while a deep page is reached, so that other deep pages start
// near one.
constexpr uint64_t StateSpacing = 10000;
// The largest page read beside the layout of the rows above it.
constexpr uint64_t PrefetchLimit = 10000;
// The shortest first page that leaves its end state for the next one. Naming the listing takes
// two more git runs on every first page, while laying out a shorter page again from the top, when
// the next page is asked for, costs less than those runs.
constexpr uint64_t KeptFirstPageRows = StateSpacing;

// The rows of one page as git prints them: the working-copy row first on a first page, each
// batch laid out when the graph is asked for, then handed on. Nothing is kept.
class PageReader {
  public:
    PageReader(VNRepoHandlerGit& handler, std::string path, VNLogRowData& page, bool graph)
        : handler_(handler), path_(std::move(path)), page_(page), graph_(graph) {}

    // Called as the page's git log is about to start (see VNRepoHandlerGit::streamLogLines).
    void setLogStarting(std::function<void()> starting) { starting_ = std::move(starting); }

    // The identity of the listing for the cache of graph states: the repository's refs, the
    // options that change which rows come in which order, and whether the working-copy row
    // leads the listing.
    std::string identity(bool dirty) { return identity(handler_.historyIdentity(path_), dirty); }
    // The same from the repository's part of it (`historyIdentity`), asked for earlier.
    std::string identity(const std::string& refs, bool dirty) {
        if (refs.empty()) {
            return {};
        }
        return vn::format("log graph v1 options=%llu branch=%@ all=%u dirty=%u\n",
                          static_cast<unsigned long long>(page_.logOptions()),
                          page_.selectedBranch(), static_cast<unsigned>(page_.allBranches()),
                          static_cast<unsigned>(dirty)) +
               refs;
    }

    // Lays out the rows before the page: from the nearest state the cache knows, else from the
    // top. The states passed on the way are remembered.
    std::shared_ptr<const VNLogGraphEntry> stateBefore(VNLogGraphStateCache* cache,
                                                       const std::optional<Record>& workingCopy) {
        uint64_t skip = page_.skip();
        uint64_t from = 0;
        std::shared_ptr<const VNLogGraphEntry> state;
        if (cache) {
            if (auto known = cache->nearest(skip)) {
                std::tie(from, state) = *known;
            }
        }
        if (from == skip) {
            return state;
        }
        VNLogGraphLayout layout(state, page_.followFirst());
        if (from == 0 && workingCopy) {
            Record row = *workingCopy;
            layout.addRow(row);
        }
        uint64_t done = from;
        // Only the hashes and parents of these rows: they are laid out, never shown.
        bool ok = handler_.streamLogTopology(
            path_, from, skip - from, branch(), page_.logOptions(),
            [&](std::string_view rev, const std::vector<std::string_view>& parents) {
                layout.addRevision(rev, parents);
                if (++done % StateSpacing == 0 && cache) {
                    cache->remember(done, layout.state());
                }
            });
        return ok ? layout.state() : nullptr;
    }

    // Reads the page's rows without laying them out, to be handed to `read` later.
    void prefetch() {
        prefetchOk_ = handler_.streamLogRevisions(
            path_, page_.skip(), page_.limit(), branch(), page_.logOptions(),
            [&](std::vector<Record>& rows) {
                prefetched_.insert(prefetched_.end(), std::make_move_iterator(rows.begin()),
                                   std::make_move_iterator(rows.end()));
            });
        hasPrefetched_ = true;
    }

    // Reads the page (or takes the rows `prefetch` read), handing each batch to `emit`; answers
    // whether git succeeded. The working-copy row that leads the page is asked for when the first
    // rows are in, so that git starts without waiting for it.
    bool read(std::shared_ptr<const VNLogGraphEntry> base,
              const std::function<std::optional<Record>()>& leadingRow,
              const std::function<void(std::vector<Record>&)>& emit) {
        VNLogGraphLayout layout(std::move(base), page_.followFirst());
        uint64_t count = 0;
        bool found = false;
        bool led = false;
        std::optional<Record> workingCopy;
        auto lead = [&] {
            if (!led) {
                led = true;
                workingCopy = leadingRow();
                page_.setFirstRowIsWorkingDir(workingCopy.has_value());
            }
        };
        auto take = [&](std::vector<Record>& rows) {
            lead();
            count += rows.size();
            if (workingCopy) {
                rows.insert(rows.begin(), std::move(*workingCopy));
                workingCopy.reset();
            }
            if (graph_) {
                layout.addRows(rows);
            }
            for (const Record& row : rows) {
                if (auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>()) {
                    found = noteCurrentBranch(entry->labels()) || found;
                }
            }
            emit(rows);
        };
        bool ok;
        if (hasPrefetched_) {
            ok = prefetchOk_;
            take(prefetched_);
            prefetched_.clear();
        } else {
            ok = handler_.streamLogRevisions(path_, page_.skip(), page_.limit(), branch(),
                                             page_.logOptions(), take, starting_);
        }
        lead();
        if (workingCopy) {
            // An empty listing still shows the uncommitted changes.
            std::vector<Record> rows;
            take(rows);
        }
        page_.setMoreRevisions(ok && page_.limit() != 0 && count >= page_.limit());
        page_.setCurrentBranchFound(found);
        rowCount_ = count;
        endState_ = layout.state();
        return ok;
    }

    // The page as `printHistoryRows` writes it, made straight from git's lines without records:
    // each batch's text goes to `write` as soon as it is made. Answers whether git succeeded.
    bool readText(std::shared_ptr<const VNLogGraphEntry> base,
                  const std::function<std::optional<Record>()>& leadingRow,
                  const std::function<void(std::string_view)>& write) {
        if (hasPrefetched_) {
            // The page was read beside the layout of the rows above it.
            std::string text;
            return read(std::move(base), leadingRow, [&](std::vector<Record>& rows) {
                text.clear();
                appendHistoryRows(text, rows, graph_);
                write(text);
            });
        }
        VNLogGraphLayout layout(std::move(base), page_.followFirst());
        const bool coloured = useColour();
        const bool trueColour = coloured && terminalTakesTrueColour();
        uint64_t count = 0;
        bool found = false;
        bool led = false;
        std::string out;
        std::vector<std::string_view> parents;
        std::string hash;
        auto lead = [&] {
            if (!led) {
                led = true;
                std::optional<Record> workingCopy = leadingRow();
                page_.setFirstRowIsWorkingDir(workingCopy.has_value());
                if (workingCopy) {
                    std::vector<Record> rows{std::move(*workingCopy)};
                    if (graph_) {
                        layout.addRows(rows);
                    }
                    appendHistoryRows(out, rows, graph_);
                }
            }
        };
        auto take = [&](std::string_view text, const Record& aheadBehind) {
            lead();
            while (!text.empty()) {
                std::size_t end = text.find('\n');
                std::string_view line = text.substr(0, end);
                text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
                std::string_view fields[VNGitLogParser::LogFieldCount];
                if (!VNGitLogParser::logLineFields(line, fields)) {
                    continue;
                }
                ++count;
                VNLogDescriptionEntry::LabelList labels;
                if (!fields[VNGitLogParser::LogDecoration].empty()) {
                    hash.assign(fields[VNGitLogParser::LogHash]);
                    labels = VNGitLogParser::labelsFromDecoration(
                        fields[VNGitLogParser::LogDecoration], hash,
                        VNGitLogParser::LabelScan::Full, &aheadBehind);
                    found = noteCurrentBranch(labels) || found;
                }
                if (graph_) {
                    VNGitLogParser::splitParents(fields[VNGitLogParser::LogParents], parents);
                    auto entry = layout.addRevision(fields[VNGitLogParser::LogHash], parents);
                    appendGraphText(out, *entry, false, coloured, trueColour);
                    out += ' ';
                }
                history::appendRowLine(out, fields[VNGitLogParser::LogShortHash],
                                       VNGitLogParser::dateField(fields[VNGitLogParser::LogDate]),
                                       fields[VNGitLogParser::LogAuthor], &labels,
                                       fields[VNGitLogParser::LogSubject]);
                out += '\n';
            }
            write(out);
            out.clear();
        };
        bool ok = handler_.streamLogLines(path_, page_.skip(), page_.limit(), branch(),
                                          page_.logOptions(), take, starting_);
        lead();
        if (!out.empty()) {
            // An empty listing still shows the uncommitted changes.
            write(out);
        }
        page_.setMoreRevisions(ok && page_.limit() != 0 && count >= page_.limit());
        page_.setCurrentBranchFound(found);
        rowCount_ = count;
        endState_ = layout.state();
        return ok;
    }

    uint64_t rowCount() const { return rowCount_; }
    const std::shared_ptr<const VNLogGraphEntry>& endState() const { return endState_; }

  private:
    // Takes the checked-out branch among a row's labels as the page's current branch (the first
    // one met); answers whether it was among them.
    bool noteCurrentBranch(const VNLogDescriptionEntry::LabelList& labels) {
        bool current = false;
        for (const auto& label : labels) {
            if (label->currentMarker()) {
                current = true;
                if (page_.currentBranch().empty()) {
                    page_.setCurrentBranch(label->label());
                }
            }
        }
        return current;
    }

    std::optional<std::string> branch() const {
        if (!page_.allBranches() && !page_.selectedBranch().empty()) {
            return page_.selectedBranch();
        }
        return std::nullopt;
    }

    VNRepoHandlerGit& handler_;
    std::string path_;
    VNLogRowData& page_;
    bool graph_;
    std::function<void()> starting_;
    uint64_t rowCount_ = 0;
    std::shared_ptr<const VNLogGraphEntry> endState_;
    std::vector<Record> prefetched_;
    bool hasPrefetched_ = false;
    bool prefetchOk_ = false;
};

// A page written as JSON while it is read from git.
class StreamedPage : public vn::Object {
  public:
    using Reader = std::function<void(const std::function<void(std::vector<Record>&)>&)>;
    StreamedPage(const VNLogRowData& page, Reader reader)
        : page_(page), reader_(std::move(reader)) {}

    Value jsonValue() const override {
        std::vector<Record> all;
        reader_([&](std::vector<Record>& rows) {
            all.insert(all.end(), std::make_move_iterator(rows.begin()),
                       std::make_move_iterator(rows.end()));
        });
        Value value = page_.jsonValue();
        Record record = value.record() ? *value.record() : Record();
        record.set("logRows", Value::Array(all.begin(), all.end()));
        return record;
    }
    void writeJson(JsonWriter& writer) const override {
        page_.writeJsonRequest(writer);
        reader_([&](std::vector<Record>& rows) {
            for (const Record& row : rows) {
                VNLogRowData::writeJsonRow(writer, row);
            }
        });
        page_.writeJsonResult(writer);
    }

  private:
    const VNLogRowData& page_;
    Reader reader_;
};

}  // namespace

namespace {

// 1 with a message when `branch` names nothing the repository knows (or the check failed);
// 0 when there is no branch or it is known.
int refuseUnknownBranch(VNRepoHandler& handler, const std::string& path,
                        const std::optional<std::string>& branch,
                        const FailureCollector& failures) {
    if (!branch || handler.revisionIsValid(path, *branch)) {
        return 0;
    }
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    std::cerr << "vrnl: no branch or revision \"" << display(*branch) << "\"\n";
    return 1;
}

// A page of `limit` rows after `skip`, of `branch` or of every branch.
std::shared_ptr<VNLogRowData> newPage(uint64_t skip, uint64_t limit,
                                      const std::optional<std::string>& branch) {
    auto page = std::make_shared<VNLogRowData>();
    page->setSkip(skip);
    page->setRowNum(skip);
    page->setLimit(limit);
    page->setAllBranches(!branch);
    page->setSelectedBranch(branch.value_or(""));
    page->setLookForCurrentBranch(true);
    return page;
}

// A page of a Mercurial working copy's history: read whole (hg lists by revision number, so a
// page is one run), then printed as the Git pages are.
struct MercurialLog {
    VNRepoHandlerMercurial& handler;
    std::string path;
    uint64_t skip;
    uint64_t limit;
    std::optional<std::string> branch;
    bool graph;
    bool json;
    std::optional<std::string> svgFile;
    bool more = false;
    uint64_t rowCount = 0;

    int run() {
        FailureCollector failures;
        if (int status = refuseUnknownBranch(handler, path, branch, failures)) {
            return status;
        }
        auto page = newPage(skip, limit, branch);
        handler.fillLogPage(path, *page);
        if (!failures.empty()) {
            return history::reportFailure(failures);
        }
        more = page->moreRevisions();
        rowCount = page->logRows().size() - (page->firstRowIsWorkingDir() ? 1 : 0);
        if (svgFile) {
            std::string error;
            if (!fs::writeFileAtomically(*svgFile, drawGraphSvg(graphRowsOf(page->logRows())),
                                         &error)) {
                std::cerr << "vrnl: " << display(error) << "\n";
                return 1;
            }
        }
        if (json) {
            printJson(Value(page));
        } else {
            printHistoryRows(page->logRows(), graph);
        }
        return 0;
    }
};

}  // namespace

void printHistoryRows(const std::vector<Record>& rows, bool graph) {
    std::string out;
    appendHistoryRows(out, rows, graph);
    writeOut(out);
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
        auto value = history::parseCount(*skipText, 0, history::MaximumCount);
        if (!value) {
            return usageError("--skip takes a number from 0 to 2147483647, not \"" + *skipText +
                              "\"");
        }
        skip = *value;
    }
    if (limitText) {
        auto value = history::parseCount(*limitText, 0, history::MaximumCount);
        if (!value) {
            return usageError(
                "--limit takes a number from 0 (the whole history) to 2147483647, not \"" +
                *limitText + "\"");
        }
        limit = *value;
    }
    if (limit != 0 && skip + limit > history::MaximumCount) {
        // The next page would start past what git can skip.
        limit = history::MaximumCount - skip;
        if (limit == 0) {
            return usageError("--skip 2147483647 leaves no room for a page");
        }
    }
    if (branch && branch->empty()) {
        return usageError("--branch needs a branch name");
    }

    auto workingCopy = history::findGitWorkingCopy(rest.empty() ? "." : rest[0], true);
    if (!workingCopy) {
        return 1;
    }
    if (workingCopy->mercurial) {
        if (remotes || topo || firstParent) {
            return usageError(
                "--remotes, --topo and --first-parent are for Git; Mercurial lists revisions "
                "in their order");
        }
        MercurialLog log{
            *workingCopy->mercurial, workingCopy->path, skip, limit, branch, graph, json, svgFile};
        int status = log.run();
        if (status == 0 && !json && log.more) {
            std::string next = "vrnl log";
            if (!rest.empty()) {
                next.append(" ").append(display(rest[0]));
            }
            next.append(" --skip ").append(std::to_string(skip + log.rowCount));
            if (limitText) {
                next.append(" --limit ").append(std::to_string(limit));
            }
            if (branch) {
                next.append(" --branch ").append(display(*branch));
            }
            if (graph) {
                next.append(" --graph");
            }
            std::cerr << colour(std::string("More history: ").append(next), "2") << "\n";
        }
        return status;
    }
    auto& handler = *workingCopy->handler;
    FailureCollector failures;
    if (int status = refuseUnknownBranch(handler, workingCopy->path, branch, failures)) {
        return status;
    }

    auto page = newPage(skip, limit, branch);
    page->setShowRemotes(remotes);
    page->setFollowFirst(firstParent);
    page->setOrderingOption(topo ? VNRepoHandlerGit::LogTopoOrder : 0);
    if (svgFile && !graph) {
        return usageError("--svg goes with --graph");
    }

    // The working-copy row leads a first page; its status runs beside the rest.
    std::optional<Record> workingCopyRow;
    vn::WorkGroup statusGroup;
    auto startStatus = [&] {
        vn::WorkQueue::global().async(statusGroup, FailureCollector::bind([&] {
                                          workingCopyRow =
                                              handler.workingCopyRow(workingCopy->path);
                                      }));
    };
    auto waitForStatus = [&] {
        statusGroup.wait();
        return workingCopyRow;
    };

    PageReader reader(handler, workingCopy->path, *page, graph);
    if (skip == 0) {
        // The log is what the page waits for longest: the status starts as git does, so that
        // it takes nothing from the log's start. It is in long before the first rows.
        reader.setLogStarting(startStatus);
    } else if (graph) {
        startStatus();  // the layout of the rows above the page needs it first
    }
    std::optional<VNLogGraphStateCache> cache;
    auto openCache = [&](std::string identity) {
        if (!identity.empty()) {
            cache.emplace(VNLogGraphStateCache::defaultFolder(), std::move(identity));
        }
    };
    // A long first page leaves its end state for the next one: the queries that name the
    // listing run beside the log and the status instead of before them.
    vn::WorkGroup identityGroup;
    std::string laterRefs;
    if (graph && skip > 0) {
        openCache(reader.identity(waitForStatus().has_value()));
    } else if (graph && limit >= KeptFirstPageRows) {
        vn::WorkQueue::global().async(identityGroup, FailureCollector::bind([&] {
                                          laterRefs = handler.historyIdentity(workingCopy->path);
                                      }));
    }
    if (graph && skip > 0) {
        // While the rows above the page are laid out, git reads the page itself beside it (a
        // page of bounded size: it is held until its graph can start).
        vn::WorkGroup pageGroup;
        auto known = cache ? cache->nearest(skip) : std::nullopt;
        if ((!known || known->first != skip) && limit != 0 && limit <= PrefetchLimit) {
            vn::WorkQueue::global().async(pageGroup,
                                          FailureCollector::bind([&reader] { reader.prefetch(); }));
        }
        auto state = reader.stateBefore(cache ? &*cache : nullptr, waitForStatus());
        pageGroup.wait();
        page->setBaseGraphState(state);
        if (cache && state) {
            cache->remember(skip, state);
        }
    }
    auto base = std::dynamic_pointer_cast<const VNLogGraphEntry>(page->baseGraphState());
    auto leadingRow = [&]() -> std::optional<Record> {
        return skip == 0 ? waitForStatus() : std::nullopt;
    };
    auto finishPage = [&] {
        identityGroup.wait();
        if (!laterRefs.empty()) {
            openCache(reader.identity(laterRefs, waitForStatus().has_value()));
            laterRefs.clear();
        }
        if (cache && page->moreRevisions() && reader.endState()) {
            cache->remember(skip + reader.rowCount(), reader.endState());
        }
        if (cache) {
            cache->save();
        }
    };
    auto readPage = [&](const std::function<void(std::vector<Record>&)>& emit) {
        reader.read(base, leadingRow, emit);
        finishPage();
    };

    if (svgFile) {
        readPage([&](std::vector<Record>& rows) {
            page->logRows().insert(page->logRows().end(), std::make_move_iterator(rows.begin()),
                                   std::make_move_iterator(rows.end()));
        });
        std::string error;
        if (!fs::writeFileAtomically(*svgFile, drawGraphSvg(graphRowsOf(page->logRows())),
                                     &error)) {
            std::cerr << "vrnl: " << display(error) << "\n";
            return 1;
        }
        if (json) {
            printJson(Value(page));
        } else {
            printHistoryRows(page->logRows(), graph);
        }
    } else if (json) {
        printJson(Value(std::make_shared<StreamedPage>(*page, readPage)));
    } else {
        reader.readText(base, leadingRow, writeOut);
        finishPage();
    }
    // Rows already printed stay; what cut the listing short is said last.
    if (!failures.empty()) {
        return history::reportFailure(failures);
    }
    if (json) {
        return 0;
    }
    if (page->moreRevisions()) {
        // The command for the next page, with the options of this one.
        std::string next = "vrnl log";
        if (!rest.empty()) {
            next.append(" ").append(display(rest[0]));
        }
        next.append(" --skip ").append(std::to_string(skip + reader.rowCount()));
        if (limitText) {
            next.append(" --limit ").append(std::to_string(limit));
        }
        if (branch) {
            next.append(" --branch ").append(display(*branch));
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
            {"--limit N", "Show at most N commits (100 by default; 0 for the whole history)"},
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
