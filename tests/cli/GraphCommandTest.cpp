#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sstream>

#include "base/Json.h"
#include "cli/Cli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogRowData.h"
#include "support/GitRunCounter.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->run();
    return task;
}

// main: root, m1, merge of side (s1, s2), m2; side branch s3 on top of s2.
void buildHistory(GitRepository& repo) {
    repo.commitFile("f", "root\n", "root");
    repo.git({"checkout", "-q", "-b", "side"});
    repo.commitFile("s", "1\n", "s1");
    repo.commitFile("s", "2\n", "s2");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("f", "m1\n", "m1");
    repo.git({"merge", "-q", "--no-edit", "side"});
    repo.commitFile("f", "m2\n", "m2");
    repo.git({"checkout", "-q", "side"});
    repo.commitFile("s", "3\n", "s3");
    repo.git({"checkout", "-q", "main"});
}

TEST(HistoryGraph, WorkingCopyRowLeadsTheFirstPageOnlyWhenThereAreChanges) {
    GitRepository repo;
    buildHistory(repo);
    auto handler = std::make_shared<VNRepoHandlerGit>();
    VNLogRowData clean;
    clean.setLimit(50);
    handler->fillLogPage(repo.path(), clean);
    EXPECT_FALSE(clean.firstRowIsWorkingDir());
    ASSERT_EQ(clean.logRows().size(), 7u);

    repo.write("f", "changed\n");
    VNLogRowData dirty;
    dirty.setLimit(50);
    handler->fillLogPage(repo.path(), dirty);
    ASSERT_TRUE(dirty.firstRowIsWorkingDir());
    const vn::Record& first = dirty.logRows().front();
    EXPECT_EQ(first.string("rev"), "-1");
    std::string head = repo.git({"rev-parse", "HEAD"});
    EXPECT_EQ(first.string("parentid1") + "\n", head);
    auto graph = first["graph"].objectAs<VNLogGraphEntry>();
    ASSERT_TRUE(graph);
    EXPECT_TRUE(graph->commitColour.isGrey());
    // The checked-out commit is reached by the working copy's line and gets a colour of its own.
    auto headGraph = dirty.logRows()[1]["graph"].objectAs<VNLogGraphEntry>();
    EXPECT_TRUE(headGraph->commitColour.isHSB());

    VNLogRowData later;
    later.setSkip(2);
    later.setLimit(50);
    handler->fillLogPage(repo.path(), later);
    EXPECT_FALSE(later.firstRowIsWorkingDir()) << "only the first page has it";
}

TEST(HistoryGraph, LogGraphPagesContinueTheGraphOfThePagesBefore) {
    GitRepository repo;
    buildHistory(repo);
    auto whole = vrnlIn(repo.path(), {"log", "--graph", "--topo"});
    ASSERT_TRUE(whole->success()) << whole->errorOutput();
    EXPECT_NE(whole->output().find("●"), std::string::npos);
    std::vector<std::string> lines;
    std::string text = whole->output();
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    ASSERT_EQ(lines.size(), 7u);
    for (std::size_t skip : {1u, 3u, 4u}) {
        SCOPED_TRACE("skip " + std::to_string(skip));
        auto page = vrnlIn(repo.path(), {"log", "--graph", "--topo", "--skip", std::to_string(skip),
                                         "--limit", "2"});
        ASSERT_TRUE(page->success()) << page->errorOutput();
        // Lanes are as wide as the page needs, so compare the rows without trailing blanks.
        auto trimmed = [](std::string s) {
            std::size_t graphEnd = s.find("  ");
            return graphEnd == std::string::npos ? s : s.substr(0, graphEnd);
        };
        std::string expected = trimmed(lines[skip]) + "\n" + trimmed(lines[skip + 1]);
        std::string got = page->output();
        std::size_t cut = got.find('\n');
        ASSERT_NE(cut, std::string::npos);
        EXPECT_EQ(trimmed(got.substr(0, cut)) + "\n" +
                      trimmed(got.substr(cut + 1, got.find('\n', cut + 1) - cut - 1)),
                  expected);
    }
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
        std::string line = text.substr(start, end - start);
        // Pages pad the graph to their own width: compare without the padding.
        std::size_t graphEnd = line.find("  ");
        if (graphEnd != std::string::npos) {
            std::size_t text = line.find_first_not_of(' ', graphEnd);
            line = line.substr(0, graphEnd) + " " + line.substr(text);
        }
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> cacheFiles() {
    std::vector<std::string> files;
    std::string folder = std::string(std::getenv("XDG_CACHE_HOME")) + "/varnel/log-graph";
    std::error_code error;
    for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
        files.push_back(item.path().string());
    }
    return files;
}

TEST(HistoryGraph, DeepPagesContinueFromKeptStatesOnlyWhileTheyHold) {
    GitRepository repo;
    buildHistory(repo);
    // Wider: more branches off the main line.
    for (int i = 0; i < 4; ++i) {
        repo.git({"checkout", "-q", "-b", "t" + std::to_string(i), "main~1"});
        repo.commitFile("t" + std::to_string(i), "x\n", "topic " + std::to_string(i));
    }
    repo.git({"checkout", "-q", "main"});
    for (const std::string& file : cacheFiles()) {
        std::filesystem::remove(file);
    }
    auto pages = [&](std::size_t total) {
        std::vector<std::string> lines;
        for (std::size_t skip = 0; skip < total; skip += 3) {
            auto page = vrnlIn(repo.path(),
                               {"log", "--graph", "--skip", std::to_string(skip), "--limit", "3"});
            EXPECT_TRUE(page->success()) << page->errorOutput();
            auto more = linesOf(page->output());
            lines.insert(lines.end(), more.begin(), more.end());
        }
        return lines;
    };
    auto whole = linesOf(vrnlIn(repo.path(), {"log", "--graph", "--limit", "0"})->output());
    ASSERT_EQ(whole.size(), 11u);
    EXPECT_EQ(pages(whole.size()), whole) << "pages laid out from the top";
    ASSERT_EQ(cacheFiles().size(), 1u) << "page ends are kept";
    EXPECT_EQ(pages(whole.size()), whole) << "pages continued from kept states";

    // A damaged file is ignored and replaced.
    std::string file = cacheFiles().front();
    vn::test::writeFile(file, vn::test::readFile(file).substr(0, 200));
    EXPECT_EQ(pages(whole.size()), whole);

    // New commits change the rows: the kept states no longer apply.
    repo.commitFile("f", "m3\n", "m3");
    repo.git({"checkout", "-q", "t1"});
    repo.commitFile("t1", "y\n", "topic 1 again");
    repo.git({"checkout", "-q", "main"});
    auto changed = linesOf(vrnlIn(repo.path(), {"log", "--graph", "--limit", "0"})->output());
    ASSERT_EQ(changed.size(), 13u);
    EXPECT_EQ(pages(changed.size()), changed);
    EXPECT_EQ(cacheFiles().size(), 2u);
}

TEST(HistoryGraph, SvgAndJsonCarryTheGraph) {
    GitRepository repo;
    buildHistory(repo);
    std::string svgPath = repo.file("graph.svg");
    auto task = vrnlIn(repo.path(), {"log", "--graph", "--svg", svgPath, "--json"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    std::string svg = vn::test::readFile(svgPath);
    EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
    EXPECT_NE(svg.find("s3"), std::string::npos);
    auto page = vn::parseJson(task->output());
    ASSERT_TRUE(page);
    const vn::Value::Array* rows = (*page->record())["logRows"].array();
    ASSERT_TRUE(rows && !rows->empty());
    const vn::Record* graph = (*rows->front().record())["graph"].record();
    ASSERT_TRUE(graph);
    EXPECT_TRUE((*graph)["commitColour"].record()->contains("hue"));

    auto misuse = vrnlIn(repo.path(), {"log", "--svg", svgPath});
    EXPECT_EQ(misuse->exitCode(), 2);
}

TEST(Overview, ShowsTheSummaryLineAndTheGraphOrSaysThereIsNoRepository) {
    GitRepository repo;
    buildHistory(repo);
    repo.write("f", "changed\n");
    auto inside = vrnlIn(repo.path(), {});
    ASSERT_TRUE(inside->success()) << inside->errorOutput();
    EXPECT_EQ(inside->output().rfind("On branch main", 0), 0u) << inside->output();
    EXPECT_NE(inside->output().find("Uncommitted changes"), std::string::npos);
    EXPECT_NE(inside->output().find("m2"), std::string::npos);

    vn::test::TempDir outside;
    auto none = vrnlIn(outside.path(), {});
    EXPECT_EQ(none->exitCode(), 1);
    EXPECT_NE(none->errorOutput().find("not inside a repository"), std::string::npos);
}

}  // namespace

namespace {

// Commits whose names, subjects and dates are awkward to print (quotes, backslashes, tabs,
// escapes, bytes that are not UTF-8, CRLF, subjects of several lines, offsets east and west, dates
// before 1970 and after 2100), an octopus merge, and branches and tags with odd names on them.
void writeAwkwardHistory(GitRepository& repo) {
    struct Commit {
        std::string ref;
        std::string committer;
        std::string message;
        int from;
        std::vector<int> merges;
    };
    const Commit commits[] = {
        {"refs/heads/main",
         "Ann \"Q\" O'Neil \\ back <ann@example.com> 0 +0000",
         "root\r\n",
         0,
         {}},
        {"refs/heads/main",
         "Bob\tTab <bob@example.com> 1700000000 +0530",
         "tab\there and \x1b[31mred\x1b[0m",
         1,
         {}},
        {"refs/heads/side",
         "Side Person <s@example.com> 1700000100 +1400",
         "first line\nsecond line of the subject\n\nbody",
         1,
         {}},
        {"refs/heads/feature/\xC3\xBC,x",
         "Z\xC3\xB6\xC3\xAB <z@example.com> 4102444800 -0945",
         "non-UTF-8 \xFF\xFE bytes, a \\ backslash and \"quotes\"",
         2,
         {}},
        {"refs/heads/third",
         "<nobody@example.com> 1700000200 -1200",
         "  leading blanks and trailing   ",
         1,
         {}},
        {"refs/heads/side", "Side Person <s@example.com> 1700000300 +0100", "side two", 3, {}},
        {"refs/heads/main",
         "Merger <m@example.com> 1700000400 +0200",
         "octopus merge",
         2,
         {4, 6, 5}},
        {"refs/heads/main", "Ann <ann@example.com> 1700000500 +0000", "after the merge", 7, {}},
    };
    std::string stream;
    int mark = 0;
    for (const Commit& c : commits) {
        ++mark;
        stream += "commit " + c.ref + "\nmark :" + std::to_string(mark) + "\n";
        stream += "author " + c.committer + "\ncommitter " + c.committer + "\n";
        stream += "data " + std::to_string(c.message.size()) + "\n" + c.message + "\n";
        if (c.from) {
            stream += "from :" + std::to_string(c.from) + "\n";
        }
        for (int merge : c.merges) {
            stream += "merge :" + std::to_string(merge) + "\n";
        }
        std::string contents = "line " + std::to_string(mark) + "\n";
        stream += "M 644 inline f" + std::to_string(mark) + "\ndata " +
                  std::to_string(contents.size()) + "\n" + contents + "\n";
    }
    stream += "reset refs/tags/v1.0\nfrom :1\n\nreset refs/tags/odd(tag)\nfrom :2\n\n";
    vn::test::writeFile(repo.file(".git/awkward.fi"), stream);
    auto task = vn::test::runProgram(repo.path(), "/bin/sh",
                                     {"-c", "git fast-import --quiet < .git/awkward.fi"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    repo.git({"reset", "-q", "--hard", "main"});
    repo.git({"tag", "-a", "-m", "annotated", "release", "main~1"});
}

// What `vrnl log` prints for the page, worked out from the engine's records of it.
std::string printedFromRecords(const std::string& path, uint64_t skip,
                               const std::optional<std::string>& branch, bool graph,
                               bool firstParent, bool topo) {
    auto handler = std::make_shared<VNRepoHandlerGit>();
    VNLogRowData page;
    page.setSkip(skip);
    page.setRowNum(skip);
    page.setLimit(0);
    page.setAllBranches(!branch);
    page.setSelectedBranch(branch.value_or(""));
    page.setFollowFirst(firstParent);
    page.setOrderingOption(topo ? VNRepoHandlerGit::LogTopoOrder : 0);
    handler->fillLogPage(path, page);
    std::ostringstream out;
    std::streambuf* before = std::cout.rdbuf(out.rdbuf());
    vn::cli::printHistoryRows(page.logRows(), graph);
    std::cout.rdbuf(before);
    return out.str();
}

TEST(HistoryGraph, TextRowsAreWhatTheRecordsOfTheRowsSay) {
    GitRepository repo;
    writeAwkwardHistory(repo);
    struct Case {
        const char* name;
        std::vector<std::string> args;
        uint64_t skip;
        std::optional<std::string> branch;
        bool graph, firstParent, topo;
    };
    const Case cases[] = {
        {"rows", {}, 0, std::nullopt, false, false, false},
        {"graph", {"--graph"}, 0, std::nullopt, true, false, false},
        {"first parents", {"--graph", "--first-parent"}, 0, std::nullopt, true, true, false},
        {"topological", {"--graph", "--topo"}, 0, std::nullopt, true, false, true},
        {"one branch", {"--graph", "--branch", "side"}, 0, "side", true, false, false},
        {"a later page", {}, 3, std::nullopt, false, false, false},
    };
    // Checked out on a branch, then detached (HEAD is a label), then with changes (the
    // working-copy row leads).
    for (const char* state : {"on main", "detached", "changed"}) {
        if (std::string(state) == "detached") {
            repo.git({"checkout", "-q", "--detach", "side"});
        } else if (std::string(state) == "changed") {
            repo.write("untracked \"file\"", "new\n");
        }
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(state) + ", " + c.name);
            std::vector<std::string> args = {"log", "--limit", "0"};
            if (c.skip) {
                args = {"log", "--limit", "0", "--skip", std::to_string(c.skip)};
            }
            args.insert(args.end(), c.args.begin(), c.args.end());
            auto task = vrnlIn(repo.path(), args);
            ASSERT_TRUE(task->success()) << task->errorOutput();
            std::string expected =
                printedFromRecords(repo.path(), c.skip, c.branch, c.graph, c.firstParent, c.topo);
            EXPECT_GT(expected.size(), 100u);
            EXPECT_EQ(task->output(), expected);
        }
    }
}

}  // namespace

namespace {

TEST(HistoryGraph, EachPageRunsOnlyTheListingsItNeeds) {
    GitRepository repo;
    buildHistory(repo);
    for (const std::string& file : cacheFiles()) {
        std::filesystem::remove(file);
    }
    vn::test::GitRunCounter counter;
    struct Case {
        const char* name;
        std::vector<std::string> args;
        int logs;        // listings: the page, and the rows above it when no state is kept
        int identities;  // the refs asked for to name the listing in the cache
    };
    const Case cases[] = {
        {"a short first page", {"log", "--graph", "--limit", "3"}, 1, 0},
        {"a deep page, nothing kept", {"log", "--graph", "--skip", "3", "--limit", "2"}, 2, 1},
        {"the same page, its state kept", {"log", "--graph", "--skip", "3", "--limit", "2"}, 1, 1},
        {"the next page, from the state the last one left",
         {"log", "--graph", "--skip", "5", "--limit", "2"},
         1,
         1},
        {"a deep page as JSON", {"log", "--json", "--graph", "--skip", "4", "--limit", "2"}, 2, 1},
        {"a deep page without a graph", {"log", "--skip", "4", "--limit", "2"}, 1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        counter.clear();
        auto task = vrnlIn(repo.path(), c.args);
        ASSERT_TRUE(task->success()) << task->errorOutput();
        EXPECT_EQ(counter.runsWith(" log "), c.logs) << counter.runs();
        EXPECT_EQ(counter.runsWith("%(objectname) %(refname)"), c.identities) << counter.runs();
    }
}

}  // namespace
