// The Mercurial backend against real repositories made with the installed hg.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <set>

#include "handler/VNTemplateDocument.h"
#include "hg/VNHgCommandServer.h"
#include "hg/VNHgLogParser.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/DiffOptions.h"
#include "model/VNDiffFileModel.h"
#include "model/VNDiffModel.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogLabel.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "platform/UserInterface.h"
#include "support/HgRepository.h"

namespace {

using vn::test::HgRepository;

std::string joinedPath(const vn::Record& r) {
    std::string folder = r.string("path");
    return folder.empty() ? r.string("filename") : folder + "/" + r.string("filename");
}

std::map<std::string, int64_t> byPath(const std::vector<vn::Record>& entries) {
    std::map<std::string, int64_t> out;
    for (const vn::Record& e : entries) {
        out[joinedPath(e)] = e.integer("status");
    }
    return out;
}

std::string labelsOf(const vn::Record& row) {
    auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
    std::string out;
    for (const auto& label : entry->labels()) {
        out += std::to_string(label->type()) + ":" + label->label() +
               (label->currentMarker() ? "*" : "") + ";";
    }
    return out;
}

std::string subject(const vn::Record& row) {
    return row["descriptionentry"].objectAs<VNLogDescriptionEntry>()->description();
}

// Every test runs once with the command server and once without: both paths must read alike.
class MercurialRepo : public ::testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        ::setenv("VARNEL_HG_COMMAND_SERVER", GetParam() ? "1" : "0", 1);
        if (GetParam() && !VNHgCommandServer::installedClientFor(handler->hgPath())) {
            GTEST_SKIP() << "chg is not installed";
        }
        // The user's configuration is as hostile as it gets; nothing read may change.
        vn::test::writeHostileHgConfig(vn::fs::homeDirectory());
        handler->writeProgramConfiguration(true);
    }
    void TearDown() override {
        VNHgCommandServer::stopServer(handler->hgPath(),
                                      VNRepoHandlerMercurial::plainEnvironment());
        ::unlink(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc").c_str());
        ::unsetenv("VARNEL_HG_COMMAND_SERVER");
    }
    std::shared_ptr<VNRepoHandlerMercurial> handler = std::make_shared<VNRepoHandlerMercurial>();
};

TEST_P(MercurialRepo, StatusOfEveryKind) {
    HgRepository repo;
    repo.write("keep.txt", "k\n");
    repo.write("mod.txt", "m\n");
    repo.write("gone.txt", "g\n");
    repo.write("del.txt", "d\n");
    repo.write("old name.txt", "o\n");
    repo.write("src.txt", "s\n");
    repo.write(".hgignore", "syntax: glob\n*.log\n");
    repo.hg({"add"});
    repo.commit("base");
    repo.write("mod.txt", "m2\n");
    ::unlink(repo.file("gone.txt").c_str());
    repo.hg({"remove", "del.txt"});
    repo.hg({"mv", "old name.txt", "dir/new \"name\" caf\xc3\xa9.txt"});
    repo.hg({"cp", "src.txt", "copy.txt"});
    repo.write("added.txt", "a\n");
    repo.hg({"add", "added.txt"});
    repo.write("unknown.txt", "u\n");
    repo.write("x.log", "i\n");
    // hg's own probe folders never show.
    repo.write("hg-checklink-abc/probe", "p\n");

    auto status = byPath(handler->fileStatus(repo.path(), 0x3ff));
    std::map<std::string, int64_t> expected{
        {"keep.txt", VNFileStatusClean},
        {"mod.txt", VNFileStatusModified},
        {"gone.txt", VNFileStatusMissing},
        {"del.txt", VNFileStatusRemoved},
        {"dir/new \"name\" caf\xc3\xa9.txt", VNFileStatusRenamed},
        {"copy.txt", VNFileStatusAdded},
        {"src.txt", VNFileStatusClean},
        {".hgignore", VNFileStatusClean},
        {"added.txt", VNFileStatusAdded},
        {"unknown.txt", VNFileStatusUnknown},
        {"x.log", VNFileStatusIgnored},
    };
    EXPECT_EQ(status, expected);
    for (const vn::Record& e : handler->fileStatus(repo.path(), 0x3ff)) {
        if (e.integer("status") == static_cast<int64_t>(VNFileStatusRenamed)) {
            EXPECT_EQ(e.string("previousName"), "old name.txt");
            EXPECT_EQ(e.string("path"), "dir");
        }
    }
    // The default mask leaves clean and ignored files out.
    auto defaults = byPath(handler->fileStatus(repo.path()));
    EXPECT_FALSE(defaults.contains("keep.txt"));
    EXPECT_FALSE(defaults.contains("x.log"));
    EXPECT_TRUE(defaults.contains("unknown.txt"));
    EXPECT_FALSE(handler->isClean(repo.path()));

    // hg's summary counts what it sees, probe folder included.
    vn::Record summary = handler->summary(repo.path());
    EXPECT_FALSE(summary.boolean("isclean"));
    EXPECT_EQ(summary.integer("numfilesunknown"), 2);
    EXPECT_EQ(summary.integer("numfilesmissing"), 1);
    EXPECT_EQ(summary.string("branch"), "default");
    EXPECT_EQ(summary.string("originalbranch"), "default");
    EXPECT_EQ(summary.string("parent1"), "0");
}

TEST_P(MercurialRepo, MergeConflictsAndTheirSummary) {
    HgRepository repo;
    repo.commitFile("f.txt", "base\n", "base");
    repo.commitFile("f.txt", "ours\n", "ours");
    repo.hg({"update", "-q", "0"});
    repo.commitFile("f.txt", "theirs\n", "theirs");
    repo.commitFile("other.txt", "o\n", "other");
    std::string out;
    EXPECT_FALSE(repo.tryHg({"merge", "1", "--tool", "internal:fail"}, &out));

    // Only the conflict bits: hg resolve -l alone.
    auto conflicts = handler->fileStatus(repo.path(), VNFileStatusConflicted | 32);
    ASSERT_EQ(conflicts.size(), 1u);
    EXPECT_EQ(joinedPath(conflicts[0]), "f.txt");
    EXPECT_EQ(conflicts[0].integer("status"), static_cast<int64_t>(VNFileStatusConflicted));
    // With the status bits, the conflict replaces the modification.
    auto all = byPath(handler->fileStatus(repo.path(), 0x3ff));
    EXPECT_EQ(all["f.txt"], static_cast<int64_t>(VNFileStatusConflicted));

    vn::Record summary = handler->summary(repo.path());
    EXPECT_TRUE(summary.boolean("ismerge"));
    EXPECT_EQ(summary.integer("numfilesunresolved"), 1);
    EXPECT_EQ(summary.string("parent1"), "3");
    EXPECT_EQ(summary.string("parent2"), "1");
    EXPECT_TRUE(handler->isMergeOutstanding(repo.path()));
    EXPECT_FALSE(handler->isRebaseInProgress(repo.path()));

    repo.write("f.txt", "merged\n");
    repo.hg({"resolve", "-m", "f.txt"});
    auto resolved = handler->fileStatus(repo.path(), VNFileStatusConflicted | 32);
    ASSERT_EQ(resolved.size(), 1u);
    EXPECT_EQ(resolved[0].integer("status"), 32);
}

TEST_P(MercurialRepo, HistoryWithBranchesHeadsTagsAndBookmarks) {
    HgRepository repo;
    repo.commitFile("a", "0\n", "root");  // 0
    repo.commitFile("a", "1\n", "one");   // 1
    repo.hg({"branch", "-q", "feature"});
    repo.commitFile("b", "2\n", "on feature");  // 2
    repo.hg({"update", "-q", "default"});
    repo.commitFile("a", "3\n", "default again");  // 3
    repo.hg({"merge", "-q", "feature"});
    repo.commit("merge feature");  // 4
    repo.hg({"branch", "-q", "closed one"});
    repo.commitFile("c", "5\n", "to close");      // 5
    repo.commit("close it", {"--close-branch"});  // 6
    repo.hg({"update", "-q", "4"});
    repo.commitFile("d", "7\n", "head one");  // 7
    repo.hg({"update", "-q", "4"});
    repo.commitFile("e", "8\n", "head two \xe2\x80\x94 caf\xc3\xa9");         // 8
    repo.hg({"tag", "-r", "1", "-d", "2024-01-02 05:00:00 +0000", "v 1.0"});  // 9
    repo.hg({"bookmark", "-r", "7", "side"});
    repo.hg({"bookmark", "here"});

    auto rows = handler->logRevisions(repo.path(), "", 0, 0, std::nullopt, 0);
    ASSERT_EQ(rows.size(), 10u);
    std::vector<std::string> revs;
    for (const auto& row : rows) {
        revs.push_back(row.string("rev"));
    }
    EXPECT_EQ(revs, (std::vector<std::string>{"9", "8", "7", "6", "5", "4", "3", "2", "1", "0"}));
    const vn::Record& merge = rows[5];
    EXPECT_EQ(merge.string("parentid1"), "3");
    EXPECT_EQ(merge.string("parentid2"), "2");
    EXPECT_EQ(rows[4].string("parentid1"), "4");  // plain predecessor, empty parents field
    EXPECT_EQ(rows[1].string("parentid1"), "4");
    EXPECT_EQ(rows[9].string("parentid1"), "");
    EXPECT_EQ(rows[6].string("branch"), "");
    EXPECT_EQ(rows[7].string("branch"), "feature");
    EXPECT_EQ(subject(rows[1]), "head two \xe2\x80\x94 caf\xc3\xa9");
    EXPECT_EQ(rows[9].string("changeset").size(), 40u);
    // Labels: the tag on 1, the bookmarks (one active), tip and branch names.
    EXPECT_EQ(labelsOf(rows[8]), "1:v 1.0;");
    EXPECT_NE(labelsOf(rows[0]).find("3:here*;"), std::string::npos) << labelsOf(rows[0]);
    EXPECT_NE(labelsOf(rows[0]).find("1:tip;"), std::string::npos) << labelsOf(rows[0]);
    EXPECT_NE(labelsOf(rows[2]).find("3:side;"), std::string::npos) << labelsOf(rows[2]);
    EXPECT_NE(labelsOf(rows[7]).find("0:feature;"), std::string::npos) << labelsOf(rows[7]);
    EXPECT_EQ(labelsOf(rows[3]).find("closed one"), std::string::npos) << labelsOf(rows[3]);
    // Closed branches on request; every head labelled with its branch on request.
    auto closed = handler->logRevisions(repo.path(), {}, std::nullopt, 0, std::nullopt,
                                        VNRepoHandlerMercurial::LogIncludeClosedBranches, false);
    EXPECT_NE(labelsOf(closed[3]).find("0:closed one;"), std::string::npos) << labelsOf(closed[3]);
    auto heads = handler->logRevisions(repo.path(), {}, std::nullopt, 0, std::nullopt,
                                       VNRepoHandlerMercurial::LogLabelEveryHead, false);
    EXPECT_NE(labelsOf(heads[2]).find("0:default;"), std::string::npos) << labelsOf(heads[2]);
    EXPECT_NE(labelsOf(heads[0]).find("0:default;"), std::string::npos) << labelsOf(heads[0]);

    // The graph of the Git backend applies: the merge has two lines coming in.
    VNRepoHandlerBase::addGraphInfoToLogRevisions(rows);
    for (const auto& row : rows) {
        EXPECT_TRUE(row["graph"].objectAs<VNLogGraphEntry>()) << row.string("rev");
    }

    // Branch filter, paging by skip, file history.
    auto onFeature = handler->logRevisions(repo.path(), "", 0, 0, std::string("feature"), 0);
    ASSERT_EQ(onFeature.size(), 1u);
    EXPECT_EQ(onFeature[0].string("rev"), "2");
    auto page = handler->logRevisions(repo.path(), "", 3, 2, std::nullopt, 0);
    ASSERT_EQ(page.size(), 2u);
    EXPECT_EQ(page[0].string("rev"), "6");
    EXPECT_EQ(page[1].string("rev"), "5");
    EXPECT_TRUE(handler->logRevisions(repo.path(), "", 11, 2, std::nullopt, 0).empty());
    auto ofA = handler->logRevisions(repo.path(), {"a"}, 0, false);
    EXPECT_EQ(ofA.size(), 3u);

    // Revision queries.
    EXPECT_EQ(handler->latestRevision(repo.path()), "9");
    EXPECT_EQ(handler->revisionCount(repo.path()), 10u);
    EXPECT_EQ(handler->currentRevisionNumber(repo.path()), "9");
    EXPECT_EQ(handler->currentRevision(repo.path()), rows[0].string("changeset"));
    EXPECT_EQ(handler->parentRevisions(repo.path(), "4"), (std::vector<std::string>{"3", "2"}));
    auto parents = handler->parentRevisionsWithDetails(repo.path(), "4");
    ASSERT_EQ(parents.size(), 2u);
    EXPECT_EQ(parents[1].string("branch"), "feature");
    EXPECT_EQ(parents[0].string("messagefirstline"), "default again");
    EXPECT_TRUE(handler->revisionIsValid(repo.path(), "v 1.0"));
    EXPECT_FALSE(handler->revisionIsValid(repo.path(), "no such"));
    EXPECT_EQ(handler->getCommitSHA(repo.path(), "v 1.0"), rows[8].string("changeset"));
    EXPECT_EQ(handler->getCommitSHA(repo.path(), "side"), rows[2].string("changeset"));
    EXPECT_FALSE(handler->getCommitSHA(repo.path(), "all()"));
    vn::Record details = handler->revisionDetails(repo.path(), "4");
    EXPECT_EQ(details.string("message"), "merge feature");
    EXPECT_EQ(details.string("rev"), "4");
    EXPECT_EQ(details["parents"].array()->size(), 2u);
    auto changes = byPath(handler->revisionFileChanges(repo.path(), "2"));
    EXPECT_EQ(changes, (std::map<std::string, int64_t>{{"b", VNFileStatusAdded}}));
    EXPECT_EQ(handler->branches(repo.path()), (std::vector<std::string>{"default", "feature"}));
    std::string active;
    auto marks = handler->bookmarks(repo.path(), &active);
    EXPECT_EQ(marks, (std::vector<std::string>{"here", "side"}));
    EXPECT_EQ(active, "here");
    auto tags = handler->tags(repo.path());
    EXPECT_EQ(tags, (std::vector<std::string>{"tip", "v 1.0"}));
}

// The one log run over labelled changesets gives the labels the listing commands give, in the
// same order, for every combination of options: open and closed branches, branches with
// several heads, a branch whose newest head is closed, several tags and bookmarks on one
// changeset (local ones, one with a space, one on the tip) and an active bookmark.
TEST_P(MercurialRepo, LabelsFromOneRunMatchTheListings) {
    HgRepository repo;
    auto labelText = [](const VNHgLogParser::LabelMap& labels) {
        std::string out;
        for (const auto& [rev, list] : labels) {
            out += rev + "=";
            for (const auto& label : list) {
                out += std::to_string(label->type()) + ":" + label->label() + "@" +
                       label->revision() + ":" + label->commitSHA() +
                       (label->currentMarker() ? "*" : "") + ";";
            }
            out += "\n";
        }
        return out;
    };
    auto compareAll = [&](const char* stage) {
        SCOPED_TRACE(stage);
        for (int flags = 0; flags < 4; ++flags) {
            SCOPED_TRACE(flags);
            bool closed = flags & 1, everyHead = flags & 2;
            std::string listed =
                labelText(handler->labelsByRevisionFromListings(repo.path(), closed, everyHead));
            EXPECT_EQ(
                labelText(handler->labelsByRevisionFromOneRun(repo.path(), closed, everyHead)),
                listed);
            EXPECT_NE(listed, "");
            // A page's window gives the same labels for the revisions inside it (the plain
            // and the fullest options are enough: windows only leave out other tags).
            if (closed != everyHead) {
                continue;
            }
            auto full = handler->labelsByRevisionFromListings(repo.path(), closed, everyHead);
            uint64_t tip = std::stoull(handler->latestRevision(repo.path()));
            for (uint64_t top : std::set<uint64_t>{tip, tip / 2, std::min<uint64_t>(tip, 1)}) {
                for (uint64_t limit : {uint64_t{1}, uint64_t{3}}) {
                    VNRepoHandlerMercurial::LabelWindow window{
                        top == tip ? "tip" : std::to_string(top), limit};
                    auto windowed =
                        handler->labelsByRevision(repo.path(), closed, everyHead, {}, window);
                    for (uint64_t rev = top + 1; rev-- > 0 && rev + limit > top;) {
                        SCOPED_TRACE(window.start + " " + std::to_string(limit) + " rev " +
                                     std::to_string(rev));
                        auto in = [&](const VNHgLogParser::LabelMap& map) {
                            VNHgLogParser::LabelMap one;
                            if (auto it = map.find(std::to_string(rev)); it != map.end()) {
                                one.insert(*it);
                            }
                            return labelText(one);
                        };
                        EXPECT_EQ(in(windowed), in(full));
                    }
                }
            }
        }
    };
    repo.commitFile("a.txt", "1\n", "root");
    compareAll("one changeset");
    for (const char* branch : {"feature", "old", "mixed"}) {
        repo.hg({"update", "-q", "0"});
        repo.hg({"branch", "-q", "-f", branch});
        repo.commitFile(std::string(branch) + ".txt", "1\n", branch);
    }
    repo.hg({"update", "-q", "old"});
    repo.hg({"commit", "-q", "--close-branch", "-m", "close old"});
    // "mixed": an open head, then a newer closed one beside it.
    repo.hg({"update", "-q", "mixed"});
    std::string open = repo.commitFile("m.txt", "open\n", "open head");
    repo.hg({"update", "-q", "-r", "p1(" + open + ")"});
    repo.commitFile("m.txt", "closing\n", "second head");
    repo.hg({"commit", "-q", "--close-branch", "-m", "close one head"});
    // A second open head of "feature".
    repo.hg({"update", "-q", "feature"});
    std::string first = repo.commitFile("f.txt", "a\n", "feature a");
    repo.hg({"update", "-q", "-r", "p1(" + first + ")"});
    repo.commitFile("f.txt", "b\n", "feature b");
    repo.hg({"update", "-q", "default"});
    repo.hg({"tag", "-q", "-r", "0", "zeta", "alpha", "my tag"});
    repo.hg({"tag", "-q", "-l", "-r", "tip", "aaa"});
    repo.hg({"tag", "-q", "-l", "-r", "tip", "zzz"});
    repo.hg({"bookmark", "-q", "-r", "feature", "b two", "b1"});
    repo.hg({"bookmark", "-q", "-r", "0", "root mark"});
    repo.hg({"bookmark", "-q", "here"});
    compareAll("branches, tags and bookmarks");
    repo.hg({"bookmark", "-q", "--inactive"});
    compareAll("no active bookmark");
}

TEST_P(MercurialRepo, BlameDiffsAndFileContent) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\ntwo: colon\n", "first");
    repo.write("f.txt", "one\ntwo: colon\nthree\n");
    repo.commit("second");
    auto blame = handler->blame(repo.path(), "f.txt", std::nullopt);
    ASSERT_EQ(blame.size(), 3u);
    EXPECT_EQ(blame[1].string("linecontents"), "two: colon");
    EXPECT_EQ(blame[1].string("rev"), "0");
    EXPECT_EQ(blame[2].string("rev"), "1");
    EXPECT_EQ(blame[0].string("user"), "Test User <test@example.com>");
    EXPECT_EQ(handler->blame(repo.path(), "f.txt", std::string("0")).size(), 2u);
    EXPECT_TRUE(handler->blame(repo.path(), "missing.txt", std::nullopt).empty());

    repo.write("f.txt", "one\nTWO\nthree\n");
    repo.write("new file.txt", "n\n");
    repo.hg({"add", "new file.txt"});
    auto model = handler->fileDiffAgainstBase(repo.path(), std::vector<std::string>{}, 3);
    ASSERT_TRUE(model);
    ASSERT_EQ(model->fileEntries().size(), 2u);
    std::set<std::string> names;
    for (const auto& file : model->fileEntries()) {
        names.insert(file->filename());
    }
    EXPECT_EQ(names, (std::set<std::string>{"f.txt", "new file.txt"}));
    auto one = handler->fileDiffAgainstBase(repo.path(), "f.txt", 0);
    ASSERT_TRUE(one && one->fileEntries().size() == 1);
    EXPECT_EQ(one->fileEntries()[0]->linesAdded(), 1u);
    EXPECT_EQ(one->fileEntries()[0]->linesRemoved(), 1u);
    auto revision = handler->runDiffTask(handler->revisionFileDiffTask(repo.path(), "1", {}, 0, 3));
    ASSERT_TRUE(revision && revision->fileEntries().size() == 1);
    EXPECT_EQ(revision->fileEntries()[0]->linesAdded(), 1u);
    EXPECT_FALSE(handler->runDiffTask(handler->revisionFileDiffTask(repo.path(), "77", {}, 0, 3)));
    auto range =
        handler->runDiffTask(handler->revisionRangeFileDiffTask(repo.path(), "0", "1", {}, 0, 3));
    ASSERT_TRUE(range && range->fileEntries().size() == 1);
    EXPECT_EQ(range->fileEntries()[0]->linesAdded(), 1u);
    vn::test::TempDir patches;
    auto patch = handler->createPatchTask(repo.path(), {"f.txt"}, patches.file("p.diff"));
    ASSERT_TRUE(patch->run()) << patch->errorOutput();
    EXPECT_TRUE(vn::test::readFile(patches.file("p.diff")).starts_with("diff --git a/f.txt"));

    // Searches: by author or keyword, in a range of days clamped to what hg reads.
    auto day = [](int year) {
        std::tm parts{};
        parts.tm_year = year - 1900;
        parts.tm_mday = 1;
        parts.tm_isdst = -1;
        return std::chrono::system_clock::from_time_t(std::mktime(&parts));
    };
    struct Search {
        const char* pattern;
        uint32_t mode;
        int from;
        int to;
        std::size_t hits;
    };
    for (Search c : {Search{"test user", VNRepoHandlerMercurial::SearchAuthor, 1800, 2100, 2},
                     Search{"SECOND", VNRepoHandlerMercurial::SearchKeyword, 2024, 2025, 1},
                     Search{"second", VNRepoHandlerMercurial::SearchKeyword, 2025, 2100, 0},
                     Search{"nobody", VNRepoHandlerMercurial::SearchAuthor, 2000, 2100, 0}}) {
        SCOPED_TRACE(c.pattern);
        auto task = handler->searchLogTask(repo.path(), c.pattern, c.mode, day(c.from), day(c.to));
        handler->runQuery(task);
        auto rows = VNHgLogParser::processLogResults(task->output(), {});
        EXPECT_EQ(rows.size(), c.hits) << task->errorOutput();
    }

    vn::test::TempDir out;
    ASSERT_TRUE(handler->exportFileContentAtRevision(repo.path(), "f.txt", "0", out.file("f0")));
    EXPECT_EQ(vn::test::readFile(out.file("f0")), "one\ntwo: colon\n");
    EXPECT_FALSE(handler->exportFileContentAtRevision(repo.path(), "nope", "0", out.file("x")));
}

TEST_P(MercurialRepo, IncomingAndOutgoingBetweenClones) {
    HgRepository origin;
    origin.commitFile("a", "1\n", "one");
    vn::test::TempDir clones;
    std::string clonePath = clones.file("clone");
    vn::test::runHg(clones.path(), {"clone", "-q", origin.path(), clonePath});
    HgRepository clone(clonePath);
    origin.commitFile("a", "2\n", "two upstream");
    origin.commitFile("a", "3\n", "three upstream");
    clone.commitFile("b", "x\n", "local work");

    uint64_t incoming = 99, outgoing = 99;
    EXPECT_TRUE(
        handler->incomingOutgoingChanges(clonePath, false, incoming, outgoing, std::nullopt));
    EXPECT_EQ(incoming, 2u);
    EXPECT_EQ(outgoing, 1u);
    auto remotes = handler->remotePaths(clonePath);
    ASSERT_EQ(remotes.size(), 1u);
    EXPECT_EQ(remotes[0].string("name"), "default");

    auto out = handler->outgoingChangesetLog(clonePath, "default");
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(subject(out[0]), "local work");
    EXPECT_TRUE(out[0]["graph"].objectAs<VNLogGraphEntry>());
    std::string bundle = clones.file("incoming.hg");
    auto in = handler->incomingChangesetLog(clonePath, "default", bundle);
    ASSERT_EQ(in.size(), 2u);
    EXPECT_EQ(subject(in[0]), "three upstream");
    EXPECT_TRUE(vn::fs::exists(bundle));
    // The bundle holds exactly the previewed changesets: pulling from it brings them.
    clone.hg({"pull", "-q", bundle});
    EXPECT_TRUE(handler->incomingChanges(clonePath, "default", incoming));
    EXPECT_EQ(incoming, 0u);
    std::string text = handler->incomingText(clonePath, "default");
    EXPECT_EQ(text.find("comparing with"), std::string::npos) << text;

    EXPECT_TRUE(handler->validatePathOrURL(origin.path(), nullptr));
    EXPECT_FALSE(handler->validatePathOrURL(clones.file("nowhere"), nullptr));
    EXPECT_FALSE(handler->validatePathOrURL("--config=x", nullptr));

    // A remote that is not there: a failure, no count.
    EXPECT_FALSE(handler->incomingChanges(clonePath, clones.file("nowhere"), incoming));
    EXPECT_EQ(incoming, 0u);

    // Remote paths are written back through the configuration file, other lines kept.
    ASSERT_TRUE(handler->setRemotePaths(
        clonePath, {vn::Record{{"name", "default"}, {"path", origin.path()}},
                    vn::Record{{"name", "mirror"}, {"path", "https://example.com/r"}}}));
    EXPECT_EQ(handler->urlForAlias(clonePath, "mirror"), "https://example.com/r");
    EXPECT_EQ(handler->remotePaths(clonePath).size(), 2u);
}

TEST_P(MercurialRepo, ThousandsOfChangesetsPagedWithSkip) {
    HgRepository repo;
    repo.commitFile("f", "0\n", "c0");
    // A long linear history without a commit per run.
    repo.hg({"debugbuilddag", "+2999", "--from-existing"});
    EXPECT_EQ(handler->revisionCount(repo.path()), 3000u);
    std::string latest = handler->latestRevision(repo.path());
    std::set<std::string> seen;
    uint64_t skip = 0;
    for (;;) {
        auto page = handler->logRevisions(repo.path(), latest, skip, 1000, std::nullopt, 0);
        if (page.empty()) {
            break;
        }
        for (const auto& row : page) {
            EXPECT_TRUE(seen.insert(row.string("rev")).second) << row.string("rev");
        }
        EXPECT_EQ(page.front().string("rev"), std::to_string(2999 - skip));
        skip += page.size();
    }
    EXPECT_EQ(seen.size(), 3000u);
}

// The streamed listing hands on, in several batches, exactly the rows and labels of the one
// whole run, whatever the chunk boundaries cut: long messages, line separators, tags.
TEST_P(MercurialRepo, StreamedHistoryMatchesTheWholeRun) {
    HgRepository repo;
    repo.commitFile("f", "0\n", "c0 caf\xc3\xa9 \xe2\x80\xa8 after a line separator");
    repo.hg({"debugbuilddag", "+2500", "--from-existing"});
    repo.hg({"update", "-q", "tip"});
    repo.commitFile("g", "1\n", std::string(3000, 'x') + " long \xe2\x80\xa8 separator");
    repo.hg({"tag", "-r", "7", "seven tag"});
    repo.hg({"bookmark", "-r", "100", "mark"});
    for (const auto& [start, limit] : std::vector<std::pair<std::optional<std::string>, uint64_t>>{
             {std::nullopt, 0}, {std::string("2000"), 0}, {std::nullopt, 700}}) {
        SCOPED_TRACE(start.value_or("tip") + " limit " + std::to_string(limit));
        auto whole = handler->logRevisions(repo.path(), {}, start, limit, std::nullopt, 0, false);
        std::vector<vn::Record> streamed;
        int batches = 0;
        EXPECT_TRUE(handler->streamLogRevisions(
            repo.path(), start, limit, std::nullopt, 0, [&](std::vector<vn::Record>& rows) {
                ++batches;
                EXPECT_FALSE(rows.empty());
                streamed.insert(streamed.end(), rows.begin(), rows.end());
            }));
        ASSERT_EQ(streamed.size(), whole.size());
        ASSERT_FALSE(whole.empty());
        if (limit == 0) {
            EXPECT_GT(batches, 1);
        }
        for (std::size_t i = 0; i < whole.size(); ++i) {
            SCOPED_TRACE(i);
            for (const char* key : {"rev", "changeset", "parentid1", "parentid2", "user"}) {
                ASSERT_EQ(streamed[i].string(key), whole[i].string(key)) << key;
            }
            auto a = streamed[i]["descriptionentry"].objectAs<VNLogDescriptionEntry>();
            auto b = whole[i]["descriptionentry"].objectAs<VNLogDescriptionEntry>();
            ASSERT_TRUE(a && b);
            ASSERT_EQ(a->description(), b->description());
            ASSERT_EQ(a->labels().size(), b->labels().size());
        }
    }
    // A failing run says so.
    EXPECT_FALSE(handler->streamLogRevisions(repo.path(), std::string("99999"), 0, std::nullopt, 0,
                                             [](std::vector<vn::Record>&) {}));
}

// The changes between two revisions (a rename read as one), the heads with their branches, and
// the version details of the tool in use.
TEST_P(MercurialRepo, RangeChangesHeadsAndVersion) {
    HgRepository repo;
    repo.commitFile("a.txt", "a\n", "one");
    repo.hg({"mv", "a.txt", "b c.txt"});
    repo.commit("moved");
    repo.commitFile("n.txt", "n\n", "new");
    repo.hg({"update", "-q", "0"});
    repo.hg({"branch", "-q", "side"});
    repo.commitFile("s.txt", "s\n", "side");
    auto describe = [](const std::vector<vn::Record>& entries) {
        std::string out;
        for (const auto& entry : entries) {
            out += std::to_string(entry.integer("status")) + ":" + entry.string("filename") + "<" +
                   entry.string("previousName") + ";";
        }
        return out;
    };
    EXPECT_EQ(describe(handler->revisionRangeFileChanges(repo.path(), "0", "2")),
              "512:b c.txt<a.txt;4:n.txt<;");
    EXPECT_EQ(describe(handler->revisionRangeFileChanges(repo.path(), "2", "2")), "");
    EXPECT_TRUE(handler->revisionRangeFileChanges(repo.path(), "0", "nosuch").empty());
    EXPECT_EQ(handler->headsByRevision(repo.path()),
              (std::map<std::string, std::string>{{"2", ""}, {"3", "side"}}));
    vn::Record version = handler->versionDetails();
    EXPECT_EQ(version.string("number"),
              VNRepoHandlerMercurial::parseVersionNumber(repo.hg({"--version"})));
    EXPECT_TRUE(version.boolean("standard"));
    EXPECT_EQ(version.string("location"), "Internal");
    EXPECT_TRUE(version.boolean("exists"));
    EXPECT_FALSE(handler->isUsingIncompatibleMercurial());
}

INSTANTIATE_TEST_SUITE_P(CommandServer, MercurialRepo, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "chg" : "hg"; });

TEST(MercurialCommandServer, FailingServerFallsBackToHg) {
    vn::test::TempDir tools;
    std::string hg = vn::test::writeScript(tools.path(), "hg", "exec /usr/bin/hg \"$@\"\n");
    vn::test::writeScript(tools.path(), "chg",
                          "echo 'chg: abort: failed to start cmdserver' >&2\nexit 255\n");
    auto& prefs = vn::Preferences::standard();
    prefs.set("mercurialWhichOne", int64_t{1});
    prefs.set("mercurialCustomPath", hg);
    ::setenv("VARNEL_HG_COMMAND_SERVER", "1", 1);
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    EXPECT_TRUE(handler->usesCommandServer());
    HgRepository repo;
    repo.commitFile("a", "1\n", "one");
    EXPECT_EQ(handler->latestRevision(repo.path()), "0");
    auto task = handler->hgQueryTask(repo.path(), "status", {"-A"});
    EXPECT_TRUE(handler->runQuery(task));
    EXPECT_EQ(task->output(), "C a\n");
    EXPECT_EQ(task->command(), hg);
    // A real failure of the command is not retried.
    auto bad = handler->hgQueryTask(repo.path(), "log", {"-r", "nosuch"});
    bad->setCommand(hg);
    EXPECT_FALSE(handler->runQuery(bad));
    prefs.remove("mercurialWhichOne");
    prefs.remove("mercurialCustomPath");
    ::unsetenv("VARNEL_HG_COMMAND_SERVER");
}

// A Mercurial the user chose that is older than 3.8.3 gets one warning per check, until the
// user silences it; the shipped one never does.
TEST(MercurialAlerts, AnOldChosenHgIsWarnedAboutUntilSilenced) {
    struct Answering : vn::UserInterface {
        int showAlert(const vn::Alert& alert) override {
            alerts.push_back(alert);
            return answer;
        }
        int answer = 0;
        std::vector<vn::Alert> alerts;
    };
    auto ui = std::make_shared<Answering>();
    vn::UserInterface::install(ui);
    vn::test::TempDir tools;
    std::string old = vn::test::writeScript(tools.path(), "hg",
                                            "echo 'Mercurial Distributed SCM (version 3.7.1)'\n");
    auto& prefs = vn::Preferences::standard();
    prefs.remove("suppressMercurialVersionWarning");
    prefs.set("mercurialWhichOne", int64_t{1});
    prefs.set("mercurialCustomPath", old);
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    handler->checkMercurialVersionSecurity();
    ASSERT_EQ(ui->alerts.size(), 1u);
    EXPECT_NE(ui->alerts[0].message.find("3.7.1"), std::string::npos) << ui->alerts[0].message;
    EXPECT_EQ(ui->alerts[0].buttons.size(), 2u);
    ui->answer = 1;  // "Do not show this again"
    handler->checkMercurialVersionSecurity();
    handler->checkMercurialVersionSecurity();
    EXPECT_EQ(ui->alerts.size(), 2u);
    EXPECT_TRUE(prefs.boolForKey("suppressMercurialVersionWarning"));

    prefs.remove("suppressMercurialVersionWarning");
    prefs.remove("mercurialWhichOne");
    prefs.remove("mercurialCustomPath");
    std::make_shared<VNRepoHandlerMercurial>()->checkMercurialVersionSecurity();
    EXPECT_EQ(ui->alerts.size(), 2u) << "the shipped hg is not warned about";
    vn::UserInterface::install(nullptr);
}

// Changes left in the attic are pointed out once per session, never when silenced, and
// never for an attic holding only the extension's own bookkeeping.
TEST(MercurialAlerts, TheAtticIsPointedOutOnceUnlessSilenced) {
    struct Recording : vn::UserInterface {
        int showAlert(const vn::Alert& alert) override {
            alerts.push_back(alert);
            return 0;
        }
        std::vector<vn::Alert> alerts;
    };
    auto ui = std::make_shared<Recording>();
    vn::UserInterface::install(ui);
    auto& prefs = vn::Preferences::standard();
    prefs.remove("supressAtticWarning");
    HgRepository repo;
    repo.commitFile("a", "1\n", "one");
    repo.write(".hg/attic/.applied", "");
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    handler->warnAboutAtticContent(repo.path());
    EXPECT_TRUE(ui->alerts.empty());
    repo.write(".hg/attic/old work", "patch\n");
    handler->warnAboutAtticContent(repo.path());
    handler->warnAboutAtticContent(repo.path());
    ASSERT_EQ(ui->alerts.size(), 1u);
    EXPECT_EQ(ui->alerts[0].title, "Saved changes in the attic");
    EXPECT_EQ(ui->alerts[0].buttons, (std::vector<std::string>{"OK", "Learn More"}));
    prefs.set("supressAtticWarning", true);
    std::make_shared<VNRepoHandlerMercurial>()->warnAboutAtticContent(repo.path());
    EXPECT_EQ(ui->alerts.size(), 1u);
    prefs.remove("supressAtticWarning");
    vn::UserInterface::install(nullptr);
}

TEST(MercurialProgramConfiguration, ExtensionTableLeavesOutWhatHgCannotLoad) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    auto& prefs = vn::Preferences::standard();
    prefs.set("mercurialDisabledExts", vn::Value::Array{vn::Value("hgext.mq")});
    vn::test::writeFile(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc"),
                        "[extensions]\ncolor =\nmyown = /nowhere/x.py\nchurn =\n");
    prefs.set("mercurialUserExts", vn::Value::Array{vn::Value("churn")});
    handler->writeProgramConfiguration(true);
    std::string config = vn::test::readFile(VNRepoHandlerMercurial::hgVarnelConfigFilename());
    EXPECT_NE(config.find("rebase="), std::string::npos) << config;
    EXPECT_NE(config.find("varnel_checklink="), std::string::npos) << config;
    EXPECT_EQ(config.find("hgext.mq"), std::string::npos) << config;
    EXPECT_NE(config.find("git=True"), std::string::npos) << config;
    auto missing = handler->missingExtensions();
    for (const std::string& name : missing) {
        // Missing extensions are left out of the file, so hg does not warn on every run.
        EXPECT_EQ(config.find(name + "="), std::string::npos) << name;
    }
    if (std::find(missing.begin(), missing.end(), "hgext.hgsubversion") != missing.end()) {
        auto error = handler->missingExtensionError("hgsubversion");
        ASSERT_TRUE(error);
        EXPECT_NE(error->find("hgsubversion"), std::string::npos);
    }
    EXPECT_FALSE(handler->missingExtensionError("rebase"));
    std::string disabled = vn::test::readFile(VNRepoHandlerMercurial::hgUserExtDisableFilename());
    EXPECT_NE(disabled.find("color=!"), std::string::npos) << disabled;
    EXPECT_NE(disabled.find("myown=!"), std::string::npos) << disabled;
    EXPECT_EQ(disabled.find("churn"), std::string::npos) << disabled;
    // hg runs cleanly with it: no complaint about an extension.
    HgRepository repo;
    auto task = handler->hgTask(repo.path(), "status");
    EXPECT_TRUE(task->run());
    EXPECT_EQ(task->errorOutput(), "");
    prefs.remove("mercurialDisabledExts");
    prefs.remove("mercurialUserExts");
    ::unlink(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc").c_str());
}

}  // namespace

namespace {

struct TemplateDocument : VNTemplateDocument {
    std::string root;
    std::string path() const override { return root; }
    bool isCommitTemplateIgnored() const override { return false; }
};

TEST(MercurialRepositoryFiles, SubrepositoriesAtticAndCommitTemplate) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    HgRepository repo;
    EXPECT_FALSE(handler->hasSubmodules(repo.path()));
    repo.write(".hgsub",
               "libs/one = https://example.com/one\n"
               "libs/two = [git]https://example.com/two.git\n"
               "three = [svn]svn://example.com/three\n"
               "[subpaths]\n"
               "https://example\\.com/(.*) = file:///mirror/\\1\n");
    repo.write(".hgsubstate", "0123abcd libs/one\nfeedbeef libs/two\n");
    ASSERT_TRUE(handler->hasSubmodules(repo.path()));
    auto subs = handler->listSubmodules(repo.path());
    ASSERT_EQ(subs.size(), 3u);
    std::map<std::string, vn::Record> byLocal;
    for (const auto& sub : subs) {
        byLocal[sub.string("local")] = sub;
    }
    EXPECT_EQ(byLocal["libs/one"].string("rev"), "0123abcd");
    EXPECT_EQ(byLocal["libs/one"].string("kind"), "hg");
    EXPECT_EQ(byLocal["libs/one"].string("srcLocal"), "file:///mirror/one");
    EXPECT_EQ(byLocal["libs/two"].string("srcOriginal"), "[git]https://example.com/two.git");
    EXPECT_EQ(byLocal["libs/two"].string("kind"), "git");
    EXPECT_EQ(byLocal["three"].string("kind"), "svn");
    EXPECT_EQ(byLocal["three"].string("rev"), "");

    EXPECT_FALSE(handler->hasAtticContent(repo.path()));
    for (const char* name : {".applied", ".current", ".saved", "old work", "fix.patch"}) {
        repo.write(std::string(".hg/attic/") + name, "x\n");
    }
    EXPECT_EQ(handler->atticFiles(repo.path()),
              (std::vector<std::string>{"fix.patch", "old work"}));

    TemplateDocument document;
    document.root = repo.path();
    EXPECT_EQ(handler->templateFileForDocument(document),
              repo.path() + "/.hg/commit_msg_template.txt");
    EXPECT_FALSE(handler->commitMessageTemplateForDocument(document));
    repo.write(".hg/commit_msg_template.txt", "Summary:\n");
    EXPECT_EQ(handler->commitMessageTemplateForDocument(document), "Summary:\n");
    repo.write(".hg/hgrc", "[committemplate]\ndesc = my template.txt\n");
    repo.write("my template.txt", "Mine\n");
    EXPECT_EQ(handler->commitMessageTemplateForDocument(document), "Mine\n");
}

TEST(MercurialRepositoryFiles, UserNamesAndIgnoreFiles) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    HgRepository repo;
    repo.write(".hg/hgrc", "# mine\n[paths]\ndefault = /x\n");
    ASSERT_TRUE(handler->setRepositoryUserInformation(repo.path(), "Ann Example", "ann@x.org"));
    std::string name, email;
    ASSERT_TRUE(handler->repositoryUserInformation(repo.path(), name, email));
    EXPECT_EQ(name, "Ann Example");
    EXPECT_EQ(email, "ann@x.org");
    EXPECT_NE(vn::test::readFile(repo.file(".hg/hgrc")).find("# mine"), std::string::npos);
    // hg itself reads what was written.
    EXPECT_EQ(repo.hg({"config", "ui.username"}), "Ann Example <ann@x.org>\n");
    EXPECT_EQ(handler->getDefaultAuthor(repo.path()), "Ann Example <ann@x.org>");
    ASSERT_TRUE(handler->setRepositoryUserInformation(repo.path(), "", ""));
    EXPECT_FALSE(handler->repositoryUserInformation(repo.path(), name, email));

    ASSERT_TRUE(handler->setUserInformation("Global Name", "g@x.org"));
    ASSERT_TRUE(handler->userInformation(name, email));
    EXPECT_EQ(name, "Global Name");
    EXPECT_NE(vn::test::readFile(VNRepoHandlerMercurial::hgVarnelConfigFilename())
                  .find("username=Global Name <g@x.org>"),
              std::string::npos);

    repo.write("build.o", "o\n");
    repo.write("keep.c", "c\n");
    ASSERT_TRUE(handler->addIgnore(repo.path(), std::vector<std::string>{"*.o", "*.o"}));
    std::string before = vn::test::readFile(repo.file(".hgignore"));
    ASSERT_TRUE(handler->addIgnore(repo.path(), "*.o"));
    EXPECT_EQ(vn::test::readFile(repo.file(".hgignore")), before);
    // hg agrees: the file is ignored.
    EXPECT_EQ(repo.hg({"status", "-i"}), "I build.o\n");
    auto regexes = handler->ignoreListRegexes(repo.path());
    ASSERT_EQ(regexes.size(), 1u);
    EXPECT_EQ(handler->repositoryIgnoreFilename(repo.path()), repo.file(".hgignore"));
}

TEST(MercurialRepositoryFiles, CheckLinkProbesStayOutOfTheWorkingFolder) {
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    handler->writeProgramConfiguration(true);
    HgRepository repo;
    repo.commitFile("a", "1\n", "one");
    // Without the cache folder hg would probe in the working folder itself.
    std::filesystem::remove_all(repo.file(".hg/wcache"));
    repo.write("a", "2\n");
    auto status = handler->fileStatus(repo.path());
    ASSERT_EQ(status.size(), 1u);
    for (const auto& entry : std::filesystem::directory_iterator(repo.path())) {
        std::string name = entry.path().filename().string();
        EXPECT_FALSE(name.starts_with("hg-checklink-") || name.starts_with(".hgcheck")) << name;
    }
}

}  // namespace
