// The Mercurial write operations, each run against a real repository and checked with hg itself.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "handler/FailureCollector.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"
#include "support/HgRepository.h"

namespace {

using vn::test::HgRepository;
using vn::test::readFile;
using vn::test::TempDir;
using vn::test::writeFile;

// Names that break careless argument handling: blanks, quotes, a backslash, non-ASCII, a colon
// (hg's pattern prefix) and a leading dash (an option to a careless parser).
const std::vector<std::string> NastyNames = {
    "plain.txt",
    "with space.txt",
    "qu\"o'te.txt",
    "back\\slash.txt",
    "\xc3\xbcn\xc3\xaf \xe2\x82\xac.txt",
    "re:colon.txt",
    "-dash.txt",
};

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

std::vector<std::string> sortedLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

class HgWriteTest : public ::testing::Test {
  protected:
    // The handler's runs read ~/.hgrc (a fixed user and date here) and the program's own
    // "hgrc_varnel", written as the program writes it.
    void SetUp() override {
        writeFile(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc"),
                  "[ui]\nusername = Test User <test@example.com>\n"
                  "[devel]\ndefault-date = 1704164645 0\n");
        handler->writeProgramConfiguration(true);
    }

    // Replaces the program's configuration with one that enables only `extensions`.
    void writeConfig(const std::vector<std::string>& extensions,
                     const std::string& more = std::string()) {
        std::string config = "[extensions]\n";
        for (const std::string& name : extensions) {
            config += name + " =\n";
        }
        writeFile(vn::AppData::pathFor("hgrc_varnel"), config + more);
    }

    static bool run(const VNTaskList& tasks, std::string* errors = nullptr) {
        for (const auto& task : tasks) {
            if (!task) {
                return false;
            }
            if (!task->run()) {
                if (errors) {
                    *errors = task->errorOutput() + task->output();
                }
                return false;
            }
        }
        return true;
    }
    static bool run(const std::shared_ptr<VNTask>& task, std::string* errors = nullptr) {
        return run(VNTaskList{task}, errors);
    }
    static void mustRun(const VNTaskList& tasks) {
        std::string errors;
        EXPECT_TRUE(run(tasks, &errors)) << errors;
    }
    static void mustRun(const std::shared_ptr<VNTask>& task) { mustRun(VNTaskList{task}); }

    static std::string log(HgRepository& repo, const std::string& revset,
                           const std::string& templ) {
        return repo.hg({"log", "-r", revset, "--template", templ});
    }

    // Two branches that change the same line of "f.txt": "default" (checked out) and "other".
    static void makeConflict(HgRepository& repo) {
        repo.commitFile("f.txt", "base\n", "base");
        repo.hg({"branch", "other"});
        repo.commitFile("f.txt", "theirs\n", "theirs");
        repo.hg({"update", "default"});
        repo.commitFile("f.txt", "mine\n", "mine");
    }

    std::shared_ptr<VNRepoHandlerMercurial> handler = std::make_shared<VNRepoHandlerMercurial>();
};

// ---- Files -------------------------------------------------------------------------------------

TEST_F(HgWriteTest, FileOperationsOnNastyNames) {
    struct Case {
        const char* name;
        // Prepares the repository (the names are committed unless `tracked` is false).
        bool tracked;
        std::function<VNTaskList(VNRepoHandlerMercurial&, const std::string&,
                                 const std::vector<std::string>&)>
            operation;
        // The expected `hg status -C` line(s) of one name.
        std::function<std::vector<std::string>(const std::string&)> status;
        bool keepsFiles;
    };
    const Case cases[] = {
        {"add", false, [](auto& h, auto& p, auto& files) { return h.addTasks(p, files); },
         [](auto& n) { return std::vector<std::string>{"A " + n}; }, true},
        {"remove", true, [](auto& h, auto& p, auto& files) { return h.removeTasks(p, files); },
         [](auto& n) { return std::vector<std::string>{"R " + n}; }, false},
        {"forget", true,
         [](auto& h, auto& p, auto& files) { return h.stopTrackingTasks(p, files); },
         [](auto& n) { return std::vector<std::string>{"R " + n}; }, true},
        {"copy", true,
         [](auto& h, auto& p, auto& files) {
             VNTaskList all;
             for (const auto& f : files) {
                 auto t = h.copyTasks(p, f, "copy of " + f);
                 all.insert(all.end(), t.begin(), t.end());
             }
             return all;
         },
         [](auto& n) {
             return std::vector<std::string>{"  " + n, "A copy of " + n};
         },
         true},
        {"rename", true,
         [](auto& h, auto& p, auto& files) {
             VNTaskList all;
             for (const auto& f : files) {
                 auto t = h.moveTasks(p, f, "moved " + f);
                 all.insert(all.end(), t.begin(), t.end());
             }
             return all;
         },
         [](auto& n) {
             return std::vector<std::string>{"  " + n, "A moved " + n, "R " + n};
         },
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HgRepository repo;
        for (const std::string& name : NastyNames) {
            repo.write(name, "content of " + name + "\n");
        }
        if (c.tracked) {
            repo.hg({"add", "--", "."});
            repo.commit("names");
        }
        mustRun(c.operation(*handler, repo.path(), NastyNames));
        std::vector<std::string> expected;
        for (const std::string& name : NastyNames) {
            auto lines = c.status(name);
            expected.insert(expected.end(), lines.begin(), lines.end());
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(sortedLines(repo.hg({"status", "-C"})), expected);
        for (const std::string& name : NastyNames) {
            EXPECT_EQ(vn::fs::exists(repo.file(name)), c.keepsFiles) << name;
        }
    }
}

TEST_F(HgWriteTest, AddRemoveFindsNewAndDeletedFilesAndRenames) {
    HgRepository repo;
    repo.commitFile("gone.txt", "gone\n", "one");
    repo.commitFile("old name.txt", "same content\n", "two");
    std::remove(repo.file("gone.txt").c_str());
    std::rename(repo.file("old name.txt").c_str(), repo.file("new n\xc3\xa4me.txt").c_str());
    repo.write("fresh.txt", "fresh\n");
    mustRun(handler->addRemoveTasks(repo.path()));
    EXPECT_EQ(sortedLines(repo.hg({"status", "-C"})),
              (std::vector<std::string>{"  old name.txt", "A fresh.txt", "A new n\xc3\xa4me.txt",
                                        "R gone.txt", "R old name.txt"}));
}

TEST_F(HgWriteTest, LongFileListsAreSplitAndAllAdded) {
    HgRepository repo;
    std::vector<std::string> files;
    // Long names so that the list overflows one command line's budget.
    std::string stem(200, 'n');
    for (int i = 0; i < 700; ++i) {
        files.push_back(stem + std::to_string(i));
        repo.write(files.back(), "x\n");
    }
    VNTaskList tasks = handler->addTasks(repo.path(), files);
    EXPECT_GT(tasks.size(), 1u);
    mustRun(tasks);
    EXPECT_EQ(sortedLines(repo.hg({"status", "-a", "-n"})).size(), files.size());
}

TEST_F(HgWriteTest, RevertRestoresFilesWithoutBackupsUnlessAsked) {
    for (bool backup : {false, true}) {
        SCOPED_TRACE(backup ? "backup" : "no backup");
        vn::Preferences::standard().set("backupOnRevert", backup);
        HgRepository repo;
        repo.commitFile("a file.txt", "one\n", "one");
        repo.commitFile("a file.txt", "two\n", "two");
        repo.write("a file.txt", "local edit\n");
        mustRun(handler->revertTasks(repo.path(), {"a file.txt"}, 0, 0));
        EXPECT_EQ(readFile(repo.file("a file.txt")), "two\n");
        EXPECT_EQ(vn::fs::exists(repo.file("a file.txt.orig")), backup);
        mustRun(handler->revertTasks(repo.path(), {"a file.txt"}, "0", 0, 0));
        EXPECT_EQ(readFile(repo.file("a file.txt")), "one\n");
        EXPECT_EQ(trimmed(repo.hg({"status", "-m", "-n"})), "a file.txt");
    }
    vn::Preferences::standard().remove("backupOnRevert");
}

TEST_F(HgWriteTest, RevertOfTheSubrepositoryStateUpdatesTheSubrepository) {
    HgRepository repo;
    vn::fs::makeDirectories(repo.file("sub"));
    HgRepository sub(repo.file("sub"));
    sub.hg({"init", "."});
    sub.commitFile("s.txt", "one\n", "sub one");
    repo.write(".hgsub", "sub = sub\n");
    repo.hg({"add", "--", ".hgsub"});
    repo.commit("with sub");
    sub.commitFile("s.txt", "two\n", "sub two");
    repo.commit("sub moved on");
    // The working copy's record goes back to "sub one" while the subrepository stays at two.
    std::string first = trimmed(log(sub, "0", "{node}"));
    VNTaskList tasks = handler->revertTasks(repo.path(), {".hgsubstate"}, "0", 0, 0);
    ASSERT_EQ(tasks.size(), 2u);
    mustRun(tasks);
    EXPECT_EQ(trimmed(sub.hg({"id", "-i", "--debug"})), first);
    EXPECT_EQ(readFile(sub.file("s.txt")), "one\n");
}

// ---- Commits -----------------------------------------------------------------------------------

TEST_F(HgWriteTest, CommitTakesTheMessageFromAFileTrimmedAndNeverEmpty) {
    struct Case {
        const char* name;
        std::string message;
        std::string recorded;
    };
    const Case cases[] = {
        {"trimmed", "  \n Fix \"quoted\" \\ thing\n\nbody line\n\n ",
         "Fix \"quoted\" \\ thing\n\nbody line"},
        {"empty", " \n\t\n", "no message"},
        {"non-ASCII",
         "Gr\xc3\xbc\xc3\x9f"
         "e \xe2\x82\xac",
         "Gr\xc3\xbc\xc3\x9f"
         "e \xe2\x82\xac"},
        {"option-like", "--amend", "--amend"},
    };
    HgRepository repo;
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        repo.write("f.txt", std::to_string(n++));
        if (n == 1) {
            repo.hg({"add", "--", "f.txt"});
        }
        auto task = handler->commitTask(repo.path(), c.message, {}, std::nullopt, false);
        ASSERT_TRUE(task);
        std::string messageFile =
            task->args()[std::find(task->args().begin(), task->args().end(), "--logfile") -
                         task->args().begin() + 1];
        mustRun(task);
        EXPECT_EQ(log(repo, ".", "{desc}"), c.recorded);
        task.reset();
        EXPECT_FALSE(vn::fs::exists(messageFile)) << "the message file outlives its task";
    }
    EXPECT_EQ(log(repo, ".", "{date|hgdate}"), "1704164645 0");
}

TEST_F(HgWriteTest, CommitOfChosenFilesWithAuthorAndAmend) {
    HgRepository repo;
    repo.commitFile("a b.txt", "1\n", "first");
    repo.commitFile("c:d.txt", "1\n", "second");
    repo.write("a b.txt", "2\n");
    repo.write("c:d.txt", "2\n");
    mustRun(handler->commitTask(repo.path(), "only a", {"a b.txt"},
                                std::string("Ann \xc3\x96 <ann@example.com>"), false));
    EXPECT_EQ(log(repo, ".", "{desc}|{author}|{files}"),
              "only a|Ann \xc3\x96 <ann@example.com>|a b.txt");
    EXPECT_EQ(trimmed(repo.hg({"status", "-n"})), "c:d.txt");
    mustRun(handler->commitTask(repo.path(), "amended", {"c:d.txt"}, std::nullopt, true));
    EXPECT_EQ(trimmed(repo.hg({"log", "--template", "{desc}\n"})), "amended\nsecond\nfirst");
    EXPECT_EQ(trimmed(repo.hg({"status"})), "");
}

TEST_F(HgWriteTest, BackoutUndoesAChangesetInANewOne) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    std::string bad = repo.commitFile("f.txt", "two\n", "two");
    repo.commitFile("g.txt", "g\n", "three");
    mustRun(handler->backoutTask(repo.path(), bad));
    EXPECT_EQ(readFile(repo.file("f.txt")), "one\n");
    EXPECT_EQ(log(repo, "tip", "{desc}"), "Backout changeset " + bad);
}

// ---- Branches, updates, merges -----------------------------------------------------------------

TEST_F(HgWriteTest, BranchResetCloseAndUpdate) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    repo.commitFile("f.txt", "two\n", "two");
    const std::string name =
        "f\xc3\xa9"
        "ature \"x\"";
    mustRun(handler->branchTask(repo.path(), name));
    EXPECT_EQ(trimmed(repo.hg({"branch"})), name);
    mustRun(handler->resetBranchTask(repo.path()));
    EXPECT_EQ(trimmed(repo.hg({"branch"})), "default");

    mustRun(handler->branchTasks(repo.path(), name, std::string("0")));
    repo.commit("on the branch");
    EXPECT_EQ(log(repo, ".", "{branch}|{p1rev}"), name + "|0");

    mustRun(handler->closeBranchTasks(repo.path(), name, "default"));
    EXPECT_EQ(trimmed(repo.hg({"branch"})), "default");
    EXPECT_EQ(log(repo, "tip", "{desc}|{branch}|{extras % '{key} '}"),
              "Closed branch " + name + "|" + name + "|branch close ");
    EXPECT_EQ(trimmed(repo.hg({"branches", "--template", "{branch}\n"})), "default");

    repo.write("f.txt", "dirty\n");
    mustRun(handler->updateTasks(repo.path(), "0", true, 0));
    EXPECT_EQ(trimmed(repo.hg({"id", "-n"})), "0");
    EXPECT_EQ(readFile(repo.file("f.txt")), "one\n");
    mustRun(handler->updateTasks(repo.path(), false, 0));
    EXPECT_EQ(log(repo, ".", "{rev}"), log(repo, "default", "{rev}"));
}

TEST_F(HgWriteTest, MergeAndEveryWayOfResolving) {
    struct Case {
        const char* name;
        std::function<bool(VNRepoHandlerMercurial&, const std::string&)> resolve;
        const char* resolveList;
        std::optional<std::string> content;  // nullopt: conflict markers
    };
    const Case cases[] = {
        {"mine", [](auto& h, auto& p) { return h.resolveUsingMine(p, "f.txt"); }, "R f.txt",
         "mine\n"},
        {"theirs", [](auto& h, auto& p) { return h.resolveUsingTheirs(p, "f.txt"); }, "R f.txt",
         "theirs\n"},
        {"mark resolved", [](auto& h, auto& p) { return h.markResolved(p, "f.txt"); }, "R f.txt",
         std::nullopt},
        {"restart", [](auto& h, auto& p) { return !h.restartMerge(p, "f.txt"); }, "U f.txt",
         std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HgRepository repo;
        makeConflict(repo);
        EXPECT_FALSE(run(handler->mergeTask(repo.path(), "other", 0)));
        EXPECT_EQ(trimmed(repo.hg({"resolve", "-l"})), "U f.txt");
        EXPECT_TRUE(c.resolve(*handler, repo.path()));
        EXPECT_EQ(trimmed(repo.hg({"resolve", "-l"})), c.resolveList);
        std::string content = readFile(repo.file("f.txt"));
        if (c.content) {
            EXPECT_EQ(content, *c.content);
        } else {
            EXPECT_NE(content.find("<<<<<<<"), std::string::npos) << content;
        }
        if (std::string(c.resolveList) == "R f.txt") {
            EXPECT_TRUE(handler->markUnresolved(repo.path(), "f.txt"));
            EXPECT_EQ(trimmed(repo.hg({"resolve", "-l"})), "U f.txt");
        }
    }
}

TEST_F(HgWriteTest, MergeWithoutConflictsLeavesAMergeToCommit) {
    HgRepository repo;
    repo.commitFile("f.txt", "base\n", "base");
    repo.hg({"branch", "other"});
    repo.commitFile("g.txt", "g\n", "other");
    repo.hg({"update", "default"});
    repo.commitFile("h.txt", "h\n", "mine");
    mustRun(handler->mergeTask(repo.path(), "other", 0));
    EXPECT_EQ(trimmed(repo.hg({"parents", "--template", "{rev} "})), "2 1");
}

// ---- Tags --------------------------------------------------------------------------------------

TEST_F(HgWriteTest, TagsGlobalLocalReplacedAndRemoved) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    repo.commitFile("f.txt", "two\n", "two");
    const std::string global = "v 1.0 \xe2\x80\x93 \"final\"";
    mustRun(handler->tagTasks(repo.path(), global, std::string("0"), false, "", {}));
    mustRun(handler->tagTasks(repo.path(), "mine", false, "", vn::Record{{"local", true}}));
    EXPECT_EQ(log(repo, "tag('" + global + "')", "{rev}"), "0");
    EXPECT_TRUE(handler->isTagLocal(repo.path(), "mine"));
    EXPECT_FALSE(handler->isTagLocal(repo.path(), global));
    EXPECT_NE(readFile(repo.file(".hg/localtags")).find(" mine"), std::string::npos);

    EXPECT_FALSE(run(handler->tagTasks(repo.path(), global, std::string("1"), false, "", {})));
    mustRun(handler->tagTasks(repo.path(), global, std::string("1"), true, "", {}));
    EXPECT_EQ(log(repo, "tag('" + global + "')", "{rev}"), "1");

    mustRun(handler->removeTagTask(repo.path(), "mine"));
    mustRun(handler->removeTagTask(repo.path(), global));
    EXPECT_EQ(trimmed(repo.hg({"tags", "--template", "{tag}\n"})), "tip");
}

TEST_F(HgWriteTest, SignedTagIsVerifiedByHg) {
    std::string gpg = vn::fs::findExecutable("gpg").value_or("");
    if (gpg.empty()) {
        GTEST_SKIP() << "gpg is not installed";
    }
    TempDir gnupg("varnel-gnupg");
    ::chmod(gnupg.path().c_str(), 0700);
    ::setenv("GNUPGHOME", gnupg.path().c_str(), 1);
    auto keygen =
        vn::test::runProgram(gnupg.path(), gpg,
                             {"--batch", "--passphrase", "", "--quick-gen-key",
                              "Signer <signer@example.com>", "default", "default", "never"});
    ASSERT_TRUE(keygen->success()) << keygen->errorOutput();
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    std::string node = trimmed(log(repo, "0", "{node}"));
    VNTaskList tasks = handler->tagTasks(repo.path(), "signed", false, "signer@example.com", {});
    ASSERT_EQ(tasks.size(), 2u);
    mustRun(tasks);
    EXPECT_EQ(log(repo, "tip", "{desc}"), "Signed tag signed for revision " + node);
    std::string sigs = repo.hg({"--config", "extensions.gpg=", "sigcheck", node});
    EXPECT_NE(sigs.find("Signer <signer@example.com>"), std::string::npos) << sigs;
    ::unsetenv("GNUPGHOME");
}

// ---- Patches -----------------------------------------------------------------------------------

TEST_F(HgWriteTest, ExportThenImportCarriesChangesetsOver) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    repo.commitFile("sp ace.txt", "two\n", "second change");
    repo.commitFile("f.txt", "three\n", "third change");
    TempDir out("varnel-export");
    std::string single = out.file("all 100%.patch");
    mustRun(handler->createPatchTasks(repo.path(), {"1", "2"}, single, false));
    std::string each = out.file("rev.patch");
    mustRun(handler->createPatchTasks(repo.path(), {"1", "2"}, each, true));
    std::string bare = out.file("bare");
    mustRun(handler->createPatchTasks(repo.path(), {"1", "2"}, bare, true));
    for (const std::string& file : {single, out.file("rev1.patch"), out.file("rev2.patch"),
                                    out.file("bare1"), out.file("bare2")}) {
        EXPECT_TRUE(vn::fs::exists(file)) << file;
    }
    EXPECT_NE(readFile(single).find("second change"), std::string::npos);
    EXPECT_NE(readFile(single).find("third change"), std::string::npos);
    EXPECT_NE(readFile(out.file("rev2.patch")).find("diff --git"), std::string::npos);

    HgRepository target;
    target.commitFile("f.txt", "one\n", "one");
    mustRun(handler->applyPatchTask(target.path(), single, "", 1, 0, false, 0));
    EXPECT_EQ(trimmed(target.hg({"log", "--template", "{desc}\n"})),
              "third change\nsecond change\none");
    EXPECT_EQ(readFile(target.file("f.txt")), "three\n");

    HgRepository uncommitted;
    uncommitted.commitFile("f.txt", "one\n", "one");
    mustRun(
        handler->applyPatchTask(uncommitted.path(), out.file("rev1.patch"), "", 1, 1, false, 0));
    EXPECT_EQ(trimmed(uncommitted.hg({"log", "--template", "{rev}\n"})), "0");
    EXPECT_EQ(trimmed(uncommitted.hg({"status"})), "A sp ace.txt");
}

TEST_F(HgWriteTest, ImportRefusesADryRun) {
    std::string assertion;
    auto previous = vn::setAssertionHandler([&](std::string_view text) { assertion = text; });
    HgRepository repo;
    EXPECT_EQ(handler->applyPatchTask(repo.path(), "x.patch", "", 1, 0, true, 0), nullptr);
    vn::setAssertionHandler(previous);
    EXPECT_EQ(assertion, "You can't use the dryRun option in hg import");
}

TEST_F(HgWriteTest, PatchToTheWorkingFolderForwardBackwardAndFailing) {
    HgRepository repo;
    repo.commitFile("a b.txt", "one\ntwo\n", "one");
    // As hg writes it: the tab after each name lets patch read names with blanks.
    const std::string patch =
        "diff --git a/a b.txt b/a b.txt\n--- a/a b.txt\t\n+++ b/a b.txt\t\n@@ -1,2 +1,2 @@\n"
        " one\n-two\n+zw\xc3\xb6lf\n";
    EXPECT_TRUE(
        handler->applyPatchToWorkingFolder(repo.path(), patch, false, vn::TextEncoding::UTF8, 0));
    EXPECT_EQ(readFile(repo.file("a b.txt")), "one\nzw\xc3\xb6lf\n");
    EXPECT_TRUE(
        handler->applyPatchToWorkingFolder(repo.path(), patch, true, vn::TextEncoding::UTF8, 0));
    EXPECT_EQ(readFile(repo.file("a b.txt")), "one\ntwo\n");
    repo.write("a b.txt", "unrelated\n");
    EXPECT_FALSE(
        handler->applyPatchToWorkingFolder(repo.path(), patch, false, vn::TextEncoding::UTF8, 0));
}

// ---- Changesets from elsewhere -----------------------------------------------------------------

TEST_F(HgWriteTest, GraftAndTransplantCopyAChangesetOnto) {
    for (uint64_t options : {uint64_t{1}, uint64_t{0}}) {
        SCOPED_TRACE(options ? "graft" : "transplant");
        HgRepository repo;
        repo.commitFile("f.txt", "base\n", "base");
        repo.hg({"branch", "other"});
        std::string picked = repo.commitFile("g \xc3\xa9.txt", "g\n", "picked change");
        repo.hg({"update", "default"});
        repo.commitFile("h.txt", "h\n", "mine");
        mustRun(handler->transplantTask(repo.path(), {picked}, true, options));
        EXPECT_EQ(log(repo, ".", "{desc}|{branch}"), "picked change|default");
        EXPECT_EQ(readFile(repo.file("g \xc3\xa9.txt")), "g\n");
    }
}

TEST_F(HgWriteTest, RebaseMovesABranchAndAbortRestores) {
    HgRepository repo;
    repo.commitFile("f.txt", "base\n", "base");
    repo.commitFile("g.txt", "g\n", "upstream");
    repo.hg({"update", "0"});
    repo.commitFile("h.txt", "h\n", "local");
    mustRun(handler->rebaseTask(repo.path(), "1"));
    EXPECT_EQ(trimmed(repo.hg({"log", "--template", "{desc}:{p1rev}\n"})),
              "local:1\nupstream:0\nbase:-1");

    HgRepository conflict;
    makeConflict(conflict);
    std::string before = conflict.hg({"log", "--template", "{node}\n"});
    EXPECT_FALSE(run(handler->rebaseTask(conflict.path(), "other")));
    EXPECT_TRUE(vn::fs::exists(conflict.file(".hg/rebasestate")));
    mustRun(handler->rebaseAbortTask(conflict.path()));
    EXPECT_FALSE(vn::fs::exists(conflict.file(".hg/rebasestate")));
    EXPECT_EQ(conflict.hg({"log", "--template", "{node}\n"}), before);

    EXPECT_FALSE(run(handler->rebaseTask(conflict.path(), "other")));
    conflict.write("f.txt", "both\n");
    conflict.hg({"resolve", "-m", "f.txt"});
    mustRun(handler->rebaseContinueTask(conflict.path()));
    EXPECT_EQ(log(conflict, "tip", "{desc}|{branch}|{p1rev}"), "mine|default|1");
}

// ---- Shelves -----------------------------------------------------------------------------------

TEST_F(HgWriteTest, ShelvesCreateListDiffApplyDelete) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    const std::string name = "my shelf \xc3\xa4";
    repo.write("f.txt", "shelved edit\n");
    mustRun(handler->createStashTask(repo.path(), name, "why \"not\"", 0));
    EXPECT_EQ(readFile(repo.file("f.txt")), "one\n");
    repo.write("f.txt", "second edit\n");
    mustRun(handler->createStashTask(repo.path(), "second", "", 0));

    auto shelves = handler->listStashes(repo.path());
    ASSERT_EQ(shelves.size(), 2u);
    EXPECT_EQ(shelves[0].string("name"), "second");
    EXPECT_EQ(shelves[1].string("name"), name);
    EXPECT_EQ(shelves[1].string("msg"), "");
    EXPECT_TRUE(handler->stashExists(repo.path(), name));
    EXPECT_FALSE(handler->stashExists(repo.path(), "my shelf"));

    auto diff = handler->stashDiffTask(repo.path(), name);
    mustRun(diff);
    EXPECT_NE(diff->output().find("+shelved edit"), std::string::npos) << diff->output();

    mustRun(handler->applyStashTask(repo.path(), name, false, 0));
    EXPECT_EQ(readFile(repo.file("f.txt")), "shelved edit\n");
    EXPECT_TRUE(handler->stashExists(repo.path(), name));
    EXPECT_TRUE(handler->deleteStash(repo.path(), name));
    EXPECT_FALSE(handler->stashExists(repo.path(), name));

    repo.hg({"revert", "--all", "--no-backup"});
    mustRun(handler->applyStashTask(repo.path(), "second", true, 0));
    EXPECT_EQ(readFile(repo.file("f.txt")), "second edit\n");
    EXPECT_TRUE(handler->listStashes(repo.path()).empty());
}

TEST_F(HgWriteTest, AtticPatchesBecomeShelves) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    repo.write("f.txt", "saved in the attic\n");
    std::string patch = repo.hg({"diff", "--git"});
    repo.hg({"revert", "--all", "--no-backup"});
    std::string saved = repo.file(".hg/attic/old w\xc3\xb6rk");
    writeFile(saved, patch);

    repo.write("f.txt", "uncommitted\n");
    EXPECT_FALSE(handler->importAtticStash(repo.path(), saved));
    EXPECT_TRUE(vn::fs::exists(saved));
    EXPECT_EQ(readFile(repo.file("f.txt")), "uncommitted\n");
    repo.hg({"revert", "--all", "--no-backup"});

    EXPECT_TRUE(handler->importAtticStash(repo.path(), saved));
    EXPECT_FALSE(vn::fs::exists(saved));
    EXPECT_TRUE(handler->stashExists(repo.path(), "old w\xc3\xb6rk"));
    EXPECT_EQ(readFile(repo.file("f.txt")), "one\n");
    mustRun(handler->applyStashTask(repo.path(), "old w\xc3\xb6rk", true, 0));
    EXPECT_EQ(readFile(repo.file("f.txt")), "saved in the attic\n");

    writeFile(repo.file(".hg/attic/other"), patch);
    EXPECT_FALSE(handler->deleteAtticStash(repo.path(), repo.file("f.txt")));
    EXPECT_TRUE(handler->deleteAtticStash(repo.path(), repo.file(".hg/attic/other")));
    EXPECT_FALSE(vn::fs::exists(repo.file(".hg/attic/other")));
}

// ---- Strip, bookmarks, archive -----------------------------------------------------------------

TEST_F(HgWriteTest, StripRemovesChangesetsAndKeepCanSaveTheFiles) {
    for (bool keep : {false, true}) {
        SCOPED_TRACE(keep ? "keep" : "plain");
        HgRepository repo;
        repo.commitFile("f.txt", "one\n", "one");
        repo.commitFile("f.txt", "two\n", "two");
        mustRun(handler->stripTask(repo.path(), "1", keep));
        EXPECT_EQ(trimmed(repo.hg({"log", "--template", "{rev}\n"})), "0");
        EXPECT_EQ(readFile(repo.file("f.txt")), keep ? "two\n" : "one\n");
    }
}

TEST_F(HgWriteTest, BookmarksCreateMoveRenameDeleteAndList) {
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    repo.commitFile("f.txt", "two\n", "two");
    const std::string name = "b\xc3\xb6ok mark \"q\"";
    mustRun(handler->createBookmarkTask(repo.path(), name, std::string("0"), false));
    mustRun(handler->createBookmarkTask(repo.path(), "-lead", std::nullopt, false));
    EXPECT_EQ(handler->bookmarks(repo.path()), (std::vector<std::string>{"-lead", name}));
    EXPECT_EQ(log(repo, "bookmark('" + name + "')", "{rev}"), "0");
    mustRun(handler->createBookmarkTask(repo.path(), name, std::string("1"), false));
    EXPECT_EQ(log(repo, "bookmark('" + name + "')", "{rev}"), "1");
    // Moving backwards onto another bookmark's changeset needs force.
    EXPECT_FALSE(run(handler->createBookmarkTask(repo.path(), "-lead", std::string("0"), false)));
    mustRun(handler->createBookmarkTask(repo.path(), "-lead", std::string("0"), true));
    EXPECT_EQ(log(repo, "bookmark('-lead')", "{rev}"), "0");
    mustRun(handler->renameBookmarkTask(repo.path(), name, "renamed"));
    mustRun(handler->deleteBookmarkTask(repo.path(), "-lead"));
    EXPECT_EQ(handler->bookmarks(repo.path()), (std::vector<std::string>{"renamed"}));
}

TEST_F(HgWriteTest, ArchiveWritesARevisionWithAPrefix) {
    HgRepository repo;
    repo.commitFile("f \xc3\xa9.txt", "one\n", "one");
    repo.commitFile("f \xc3\xa9.txt", "two\n", "two");
    TempDir out("varnel-archive");
    std::string folder = out.file("arch ive");
    mustRun(handler->archiveTask(repo.path(), folder, "", std::string("0")));
    EXPECT_EQ(readFile(vn::fs::appendPathComponent(folder, "f \xc3\xa9.txt")), "one\n");
    std::string tarball = out.file("tip.tar");
    mustRun(handler->archiveTask(repo.path(), tarball, "pre fix"));
    auto listing = vn::test::runProgram(out.path(), "tar", {"-tf", tarball});
    EXPECT_EQ(trimmed(listing->output()), "pre fix/.hg_archival.txt\npre fix/f \xc3\xa9.txt");
}

// ---- Repositories and remotes ------------------------------------------------------------------

TEST_F(HgWriteTest, InitAndCloneWithTheirOptions) {
    TempDir dir("varnel-clone");
    std::string fresh = dir.file("new repo");
    vn::fs::makeDirectories(fresh);
    mustRun(handler->createNewRepoTask(fresh));
    EXPECT_TRUE(vn::fs::isDirectory(vn::fs::appendPathComponent(fresh, ".hg")));

    HgRepository origin;
    origin.commitFile("f.txt", "one\n", "one");
    origin.hg({"branch", "side"});
    origin.commitFile("f.txt", "side\n", "side");
    origin.hg({"update", "default"});
    origin.commitFile("f.txt", "two\n", "two");

    struct Case {
        const char* name;
        vn::Record options;
        std::string revisions;  // in the clone, newest first
        std::string parent;     // the clone's working parent ("-1": no working copy)
    };
    const Case cases[] = {
        {"bare", {}, "2 1 0", "-1"},
        {"working copy", {{"clonegetworkingcopy", true}, {"cloneVerbose", true}}, "2 1 0", "2"},
        {"update to", {{"clonegetworkingcopy", true}, {"cloneupdaterev", " 0 "}}, "2 1 0", "0"},
        {"one revision", {{"clonerev", "1"}, {"clonegetworkingcopy", true}}, "1 0", "1"},
        {"one branch", {{"clonebranch", "side\n"}}, "1 0", "-1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string target = dir.file(std::string("clone \xc3\xa9 ") + c.name);
        mustRun(handler->cloneTaskForSource(" " + origin.path() + " ", target, c.options));
        HgRepository clone(target);
        EXPECT_EQ(trimmed(clone.hg({"log", "--template", "{rev} "})), c.revisions);
        EXPECT_EQ(trimmed(clone.hg({"id", "-n"})), c.parent == "-1" ? "-1" : c.parent);
    }
}

TEST_F(HgWriteTest, PushAndEveryPostPullAction) {
    TempDir dir("varnel-remote");
    HgRepository origin;
    origin.commitFile("f.txt", "one\n", "one");

    auto cloneOf = [&](const std::string& name) {
        std::string path = dir.file(name);
        mustRun(handler->cloneTaskForSource(origin.path(), path,
                                            vn::Record{{"clonegetworkingcopy", true}}));
        return HgRepository(path);
    };
    HgRepository pusher = cloneOf("push er");
    pusher.commitFile("g.txt", "g\n", "pushed");
    mustRun(handler->pushTask(pusher.path(), "default"));
    EXPECT_EQ(log(origin, "tip", "{desc}"), "pushed");
    // A new branch goes too, without --new-branch from the caller.
    pusher.hg({"branch", "n\xc3\xa9w"});
    pusher.commitFile("g.txt", "h\n", "on a new branch");
    mustRun(handler->pushTask(pusher.path(), origin.path(), std::string("n\xc3\xa9w"), std::nullopt,
                              false));
    EXPECT_EQ(log(origin, "tip", "{branch}"), "n\xc3\xa9w");

    struct Case {
        const char* name;
        int64_t action;
        bool localCommit;
        std::string parentDesc;  // the working parent's description after the pull
        std::string tipDesc;
    };
    const Case cases[] = {
        {"none", VNRepoHandlerMercurial::PostPullNone, false, "one", "upstream"},
        {"update", VNRepoHandlerMercurial::PostPullUpdate, false, "upstream", "upstream"},
        {"rebase", VNRepoHandlerMercurial::PostPullRebase, true, "local", "local"},
        {"fetch", VNRepoHandlerMercurial::PostPullFetch, true, "Fetched \"it\"", "Fetched \"it\""},
    };
    vn::Preferences::standard().set("mercurialFetchCommitMessage", "Fetched \"it\"");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        HgRepository upstream;
        upstream.commitFile("f.txt", "one\n", "one");
        std::string pullerPath = dir.file(std::string("pull ") + c.name);
        mustRun(handler->cloneTaskForSource(upstream.path(), pullerPath,
                                            vn::Record{{"clonegetworkingcopy", true}}));
        HgRepository puller(pullerPath);
        upstream.commitFile("u.txt", "u\n", "upstream");
        if (c.localCommit) {
            puller.commitFile("l.txt", "l\n", "local");
        }
        mustRun(handler->pullTask(puller.path(), upstream.path(), std::nullopt, std::nullopt,
                                  c.action));
        EXPECT_EQ(log(puller, ".", "{desc}"), c.parentDesc);
        EXPECT_EQ(log(puller, "tip", "{desc}"), c.tipDesc);
    }
    vn::Preferences::standard().remove("mercurialFetchCommitMessage");
}

TEST_F(HgWriteTest, PullTakesExactlyThePreviewedBundle) {
    TempDir dir("varnel-bundle");
    HgRepository origin;
    origin.commitFile("f.txt", "one\n", "one");
    std::string clonePath = dir.file("clone");
    mustRun(handler->cloneTaskForSource(origin.path(), clonePath, {}));
    HgRepository clone(clonePath);
    origin.commitFile("f.txt", "two\n", "previewed");
    std::string bundle = dir.file("in coming.hg");
    clone.hg({"incoming", "--bundle", bundle, origin.path()});
    origin.commitFile("f.txt", "three\n", "not previewed");
    mustRun(handler->pullTask(clone.path(), "default", std::nullopt, std::nullopt,
                              VNRepoHandlerMercurial::PostPullNone, bundle));
    EXPECT_EQ(log(clone, "tip", "{desc}"), "previewed");
}

TEST_F(HgWriteTest, RemoteTasksCarryTheResolvedAddressForCredentials) {
    HgRepository repo;
    const std::string url = "https://ann@hg.example.com/repo";
    repo.write(".hg/hgrc", "[paths]\ndefault = " + url + "\n");
    TempDir dir("varnel-creds");
    const std::pair<const char*, std::shared_ptr<VNTask>> tasks[] = {
        {"push", handler->pushTask(repo.path(), "default")},
        {"pull", handler->pullTask(repo.path(), "default", std::nullopt, std::nullopt, 1)},
        {"fetch", handler->pullTask(repo.path(), "default", std::nullopt, std::nullopt, 3)},
        {"clone", handler->cloneTaskForSource(url, dir.file("c"), {})},
    };
    for (const auto& [name, task] : tasks) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(task->askpassEnvironment());
        const auto& env = *task->askpassEnvironment();
        EXPECT_EQ(env.at("AUTH_URL"), url);
        EXPECT_EQ(env.at("AUTH_USERNAME"), "ann");
        EXPECT_EQ(env.at("AUTH_HOSTNAME"), "hg.example.com");
        EXPECT_FALSE(env.contains("AUTH_NO_PROMPTS"));
        EXPECT_EQ(task->remoteInfo(), std::string(name) == "clone" ? url : "default");
    }
}

// ---- External tools and missing extensions -----------------------------------------------------

TEST_F(HgWriteTest, ExternalDiffGetsTheRevisionsAsked) {
    HgRepository repo;
    repo.commitFile("a b.txt", "one\n", "one");
    repo.commitFile("a b.txt", "two\n", "two");
    repo.write("a b.txt", "three\n");
    TempDir tool("varnel-extdiff");
    std::string record = tool.file("calls");
    std::string script = vn::test::writeScript(
        tool.path(), "diff.sh",
        "for f in \"$1\" \"$2\"; do cat \"$f/a b.txt\" 2>/dev/null || cat \"$f\"; done >> '" +
            record + "'\necho -- >> '" + record + "'\n");
    writeConfig({"extdiff"}, "[extdiff]\ncmd.varneldiff = " + script + "\n");
    struct Case {
        const char* name;
        std::function<std::shared_ptr<VNTask>()> task;
        std::string seen;
    };
    const Case cases[] = {
        {"working copy", [&] { return handler->externalDiffTask(repo.path(), "a b.txt", 0); },
         "two\nthree\n--\n"},
        {"against a base",
         [&] { return handler->externalDiffTask(repo.path(), "a b.txt", "0", uint64_t{0}); },
         "one\nthree\n--\n"},
        {"range", [&] { return handler->externalDiffTask(repo.path(), "a b.txt", "0", "1"); },
         "one\ntwo\n--\n"},
        {"range to the working copy",
         [&] { return handler->externalDiffTask(repo.path(), "a b.txt", "1", "-1"); },
         "two\nthree\n--\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::remove(record.c_str());
        auto task = c.task();
        task->run();
        // extdiff ends with 1 once the tool has run (0: nothing to compare).
        EXPECT_EQ(task->exitCode(), 1);
        EXPECT_EQ(task->errorOutput(), "");
        EXPECT_EQ(readFile(record), c.seen);
    }
}

TEST_F(HgWriteTest, MissingExtensionsAreNamedInTheError) {
    writeConfig({});
    HgRepository repo;
    repo.commitFile("f.txt", "one\n", "one");
    TempDir dir("varnel-missing");
    struct Case {
        const char* name;
        std::shared_ptr<VNTask> task;
        const char* extension;
    };
    const Case cases[] = {
        {"hg-flow", handler->flowFeatureStartTask(repo.path(), "x", std::nullopt, 0), "hgflow"},
        {"hg-flow init", handler->flowInitTask(repo.path()), "hgflow"},
        {"hg-flow release", handler->flowReleaseStartTask(repo.path(), "1.0", std::nullopt),
         "hgflow"},
        {"hg-flow hotfix", handler->flowHotfixStartTask(repo.path(), "h", std::string("0"), 0),
         "hgflow"},
        {"subversion",
         handler->cloneSvnTaskForSource("http://127.0.0.1:9/svn", 5, dir.file("svn"),
                                        vn::Record{{"authorsFiles", "/tmp/authors"}}),
         "hgsubversion"},
        {"transplant", handler->transplantTask(repo.path(), {"0"}, true, 0), "transplant"},
        {"fetch",
         handler->pullTask(repo.path(), repo.path(), std::nullopt, std::nullopt,
                           VNRepoHandlerMercurial::PostPullFetch),
         "fetch"},
        {"pull and rebase",
         handler->pullTask(repo.path(), repo.path(), std::nullopt, std::nullopt,
                           VNRepoHandlerMercurial::PostPullRebase),
         "rebase"},
        {"rebase", handler->rebaseTask(repo.path(), "0"), "rebase"},
        {"strip", handler->stripTask(repo.path(), "0", false), "strip"},
        {"sign", handler->signTask(repo.path(), "k", "0", std::nullopt, std::nullopt), "gpg"},
        {"external diff", handler->externalDiffTask(repo.path(), "f.txt", 0), "extdiff"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string errors;
        EXPECT_FALSE(run(c.task, &errors));
        EXPECT_NE(errors.find(std::string("the Mercurial extension \"") + c.extension + "\""),
                  std::string::npos)
            << errors;
    }
    // A finish is a list of tasks: the first one already says what is missing.
    auto finish = handler->flowFeatureFinishTasks(repo.path(), "x", 0);
    ASSERT_FALSE(finish.empty());
    std::string errors;
    EXPECT_FALSE(run(finish, &errors));
    EXPECT_NE(errors.find("the Mercurial extension \"hgflow\""), std::string::npos) << errors;
    // Queries report the same failure and answer nothing.
    {
        vn::FailureCollector failures;
        EXPECT_TRUE(handler->flowFeatureList(repo.path()).empty());
        EXPECT_EQ(handler->flowCurrentReleaseName(repo.path()), std::nullopt);
        EXPECT_NE(failures.message().find("hgflow"), std::string::npos) << failures.message();
    }
    // Everything else keeps working.
    mustRun(handler->branchTask(repo.path(), "still fine"));
    EXPECT_FALSE(handler->logRevisions(repo.path(), "", 0, 10, std::nullopt, 0).empty());
}

TEST(HgFlowOutput, CurrentAndOpenBranchesOfAKind) {
    const std::string output =
        "flow: Currently using source stream: develop\n"
        "flow: Open feature branches:\n"
        "flow: feature/login#\n"
        "flow: feature/sp ace \xc3\xa4#*\n"
        "flow: feature/no-hash\n"
        "flow: release/1.0#\n";
    EXPECT_EQ(VNRepoHandlerMercurial::parseFlowCurrent(output, "feature/"),
              std::optional<std::string>("sp ace \xc3\xa4"));
    EXPECT_EQ(VNRepoHandlerMercurial::parseFlowCurrent(output, "hotfix/"), std::nullopt);
    EXPECT_EQ(VNRepoHandlerMercurial::parseFlowOpen(output, "feature/"),
              (std::vector<std::string>{"login", "sp ace \xc3\xa4", "no-hash"}));
    EXPECT_EQ(VNRepoHandlerMercurial::parseFlowOpen(output, "release/"),
              (std::vector<std::string>{"1.0"}));
    // Before the "Open" line nothing is listed.
    EXPECT_TRUE(VNRepoHandlerMercurial::parseFlowOpen("flow: feature/x#\n", "feature/").empty());
}

TEST_F(HgWriteTest, FlowConfigurationFileRoundTrip) {
    HgRepository repo;
    EXPECT_FALSE(handler->isFlowEnabled(repo.path()));
    EXPECT_EQ(handler->flowPrefixes(repo.path()).string("feature"), "feature/");
    ASSERT_TRUE(handler->flowConfigure(repo.path(), "stable", "dev", "feat-", "rel-", "fix-", "v"));
    EXPECT_TRUE(handler->isFlowEnabled(repo.path()));
    vn::Record prefixes = handler->flowPrefixes(repo.path());
    EXPECT_EQ(prefixes.string("master"), "stable");
    EXPECT_EQ(prefixes.string("develop"), "dev");
    EXPECT_EQ(prefixes.string("feature"), "feat-");
    EXPECT_EQ(prefixes.string("release"), "rel-");
    EXPECT_EQ(prefixes.string("hotfix"), "fix-");
    EXPECT_EQ(prefixes.string("versiontag"), "v");
    EXPECT_EQ(prefixes.string("support"), "support/");
}

}  // namespace
