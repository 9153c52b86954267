#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <set>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "model/VNFileStatusEntity.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "support/GitRunCounter.h"
#include "support/StatusFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::AlertRecorder;
using vn::test::GitRepository;
using vn::test::statusRecordsByPath;
using vn::test::TempDir;
using vn::test::tryGit;

struct Expected {
    uint64_t status;
    uint64_t index;
    uint64_t tree;
    std::optional<std::string> previous = std::nullopt;
};
using ExpectedFiles = std::map<std::string, Expected>;

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

std::string canonical(const std::string& path) {
    std::error_code error;
    auto resolved = std::filesystem::canonical(path, error);
    return error ? path : resolved.string();
}

void expectFiles(const std::vector<vn::Record>& records, const ExpectedFiles& expected) {
    auto byPath = statusRecordsByPath(records);
    std::set<std::string> listed;
    std::set<std::string> wanted;
    for (const auto& [path, record] : byPath) {
        listed.insert(path);
    }
    for (const auto& [path, file] : expected) {
        wanted.insert(path);
    }
    EXPECT_EQ(listed, wanted);
    for (const auto& [path, file] : expected) {
        auto found = byPath.find(path);
        if (found == byPath.end()) {
            continue;
        }
        SCOPED_TRACE(path);
        const vn::Record& record = found->second;
        EXPECT_EQ(record["status"].toUInt(), file.status);
        EXPECT_EQ(record["indexStatus"].toUInt(), file.index);
        EXPECT_EQ(record["treeStatus"].toUInt(), file.tree);
        if (file.previous) {
            EXPECT_EQ(record.string("previousName"), *file.previous);
        } else {
            EXPECT_FALSE(record.contains("previousName"));
        }
    }
}

ExpectedFiles selected(const ExpectedFiles& all, uint64_t mask) {
    ExpectedFiles result;
    for (const auto& [path, file] : all) {
        // Submodules are selected by the modified bit, before they are recognised as folders.
        uint64_t bit =
            file.status == VNFileStatusSubmoduleModified ? VNFileStatusModified : file.status;
        if (mask & bit) {
            result.emplace(path, file);
        }
    }
    return result;
}

// A working copy with one file in every state a single branch can hold.
struct EveryStateRepository {
    GitRepository repo;
    ExpectedFiles files;

    EveryStateRepository() {
        for (const char* name :
             {"changed.txt", "staged.txt", "both.txt", "removed.txt", "missing.txt", "old name.txt",
              "a->b", "x -> y.txt", "renamed then changed.txt", "q\"uote.txt", "back\\slash.txt",
              "ünïcödé.txt", "clean.txt", "dir/clean.txt", "dir/sub/deep.txt"}) {
            repo.write(name, std::string("first ") + name + "\n");
        }
        repo.write(".gitignore", "*.log\nbuild/\n");
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "first"});

        repo.write("changed.txt", "changed\n");
        repo.write("staged.txt", "staged\n");
        repo.git({"add", "staged.txt"});
        repo.write("both.txt", "index\n");
        repo.git({"add", "both.txt"});
        repo.write("both.txt", "index and tree\n");
        repo.write("added.txt", "added\n");
        repo.git({"add", "added.txt"});
        repo.write("added then changed.txt", "one\n");
        repo.git({"add", "added then changed.txt"});
        repo.write("added then changed.txt", "two\n");
        repo.git({"rm", "-q", "removed.txt"});
        std::filesystem::remove(repo.file("missing.txt"));
        repo.git({"mv", "old name.txt", "new name.txt"});
        repo.git({"mv", "a->b", "c->d"});
        repo.git({"mv", "x -> y.txt", "z -> w.txt"});
        repo.git({"mv", "renamed then changed.txt", "dir/renamed.txt"});
        repo.write("dir/renamed.txt", "changed after the rename\n");
        repo.write("q\"uote.txt", "changed\n");
        repo.write("back\\slash.txt", "changed\n");
        repo.write("ünïcödé.txt", "changed\n");
        repo.write("untracked.txt", "new\n");
        repo.write("new dir/un tracked.txt", "new\n");
        repo.write("say \"hi\".txt", "new\n");
        repo.write("debug.log", "ignored\n");
        repo.write("build/out.o", "ignored\n");

        files = {
            {"changed.txt", {2, 1, 2}},
            {"staged.txt", {2, 2, 1}},
            {"both.txt", {2, 2, 2}},
            {"added.txt", {4, 4, 1}},
            {"added then changed.txt", {4, 4, 2}},
            {"removed.txt", {8, 8, 1}},
            {"missing.txt", {64, 1, 64}},
            {"new name.txt", {512, 512, 1, "old name.txt"}},
            {"c->d", {512, 512, 1, "a->b"}},
            {"z -> w.txt", {512, 512, 1, "x -> y.txt"}},
            {"dir/renamed.txt", {2, 512, 2, "renamed then changed.txt"}},
            {"q\"uote.txt", {2, 1, 2}},
            {"back\\slash.txt", {2, 1, 2}},
            {"ünïcödé.txt", {2, 1, 2}},
            {"untracked.txt", {128, 128, 128}},
            {"new dir/un tracked.txt", {128, 128, 128}},
            {"say \"hi\".txt", {128, 128, 128}},
            {"clean.txt", {1, 1, 1}},
            {"dir/clean.txt", {1, 1, 1}},
            {"dir/sub/deep.txt", {1, 1, 1}},
            {".gitignore", {1, 1, 1}},
            {"debug.log", {256, 256, 256}},
            {"build/out.o", {256, 256, 256}},
        };
    }
};

TEST(VNRepoHandlerGitStatus, EveryStateOfAWorkingCopyUnderEveryMask) {
    EveryStateRepository fixture;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    AlertRecorder alerts;
    struct Case {
        const char* name;
        uint64_t mask;
    };
    const std::vector<Case> cases = {
        {"default", VNFileStatusDefaultMask},
        {"clean only", 1},
        {"ignored only: untracked are listed by git and dropped by the mask", 256},
        {"below the untracked bit", 127},
        {"untracked only", 128},
        {"renamed only", 512},
        {"default and clean", 767},
        {"everything", 1023 | 8192},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        expectFiles(handler->fileStatus(fixture.repo.path(), c.mask),
                    selected(fixture.files, c.mask));
    }
    EXPECT_EQ(handler->fileStatus(fixture.repo.path()),
              handler->fileStatus(fixture.repo.path(), VNFileStatusDefaultMask));
    EXPECT_TRUE(alerts.alerts().empty());

    auto records = handler->fileStatus(fixture.repo.path(), 1023);
    auto byPath = statusRecordsByPath(records);
    EXPECT_EQ(byPath.at("dir/renamed.txt").string("filename"), "renamed.txt");
    EXPECT_EQ(byPath.at("dir/renamed.txt").string("path"), "dir");
    EXPECT_EQ(byPath.at("new dir/un tracked.txt").string("path"), "new dir");
    // Clean and ignored files follow the status's files.
    bool seenClean = false;
    for (const auto& record : records) {
        uint64_t status = record["status"].toUInt();
        if (status == 1) {
            seenClean = true;
        } else if (status != 256) {
            EXPECT_FALSE(seenClean) << vn::test::statusRecordPath(record);
        }
    }
}

TEST(VNRepoHandlerGitStatus, SummaryCountsAndCleanness) {
    EveryStateRepository fixture;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    std::string head = trimmed(fixture.repo.git({"rev-parse", "HEAD"}));
    vn::Record summary = handler->summary(fixture.repo.path());
    EXPECT_EQ(summary.keys(),
              (std::vector<std::string>{"isclean",          "ismerge",         "isrebase",
                                        "isgraft",          "isnewbranch",     "isam",
                                        "isbisect",         "ischerrypick",    "isrevert",
                                        "isdetached",       "hasLargeFiles",   "numfilesadded",
                                        "numfilesmodified", "numfilesremoved", "numfilesunresolved",
                                        "numfilesunknown",  "numfilesmissing", "parent1",
                                        "parent2",          "branch",          "originalbranch"}));
    EXPECT_FALSE(summary.boolean("isclean"));
    EXPECT_FALSE(summary.boolean("ismerge"));
    EXPECT_FALSE(summary.boolean("isrebase"));
    EXPECT_EQ(summary.integer("numfilesadded"), 2);
    // Modified files and renames: changed, staged, both, the quoted three, the renamed-and-changed
    // one and three plain renames.
    EXPECT_EQ(summary.integer("numfilesmodified"), 10);
    EXPECT_EQ(summary.integer("numfilesremoved"), 1);
    EXPECT_EQ(summary.integer("numfilesmissing"), 1);
    EXPECT_EQ(summary.integer("numfilesunknown"), 3);
    EXPECT_EQ(summary.integer("numfilesunresolved"), 0);
    EXPECT_EQ(summary.string("parent1"), head);
    EXPECT_EQ(summary.string("parent2"), "");
    EXPECT_FALSE(summary.contains("otherparents"));
    EXPECT_EQ(summary.string("branch"), "main");
    EXPECT_FALSE(handler->isClean(fixture.repo.path()));

    vn::Preferences::standard().set("fileStatusFilterMode", 6);
    vn::Record hidden = handler->summary(fixture.repo.path());
    vn::Preferences::standard().remove("fileStatusFilterMode");
    EXPECT_EQ(hidden.integer("numfilesunknown"), 0) << "filter mode 6 hides untracked files";
    EXPECT_EQ(hidden.integer("numfilesmodified"), 10);

    // Untracked files alone leave a working copy clean.
    GitRepository plain;
    plain.commitFile("a.txt", "a\n", "one");
    plain.write("new.txt", "new\n");
    EXPECT_TRUE(handler->isClean(plain.path()));
    EXPECT_TRUE(handler->summary(plain.path()).boolean("isclean"));
}

TEST(VNRepoHandlerGitStatus, FirstParentRuleAndDetachedHead) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    std::string first = repo.commitFile("a.txt", "1\n", "one");
    std::string second = repo.commitFile("a.txt", "2\n", "two");

    struct Case {
        const char* name;
        std::function<void()> prepare;
        std::string parent1;
        std::string branch;
    };
    const std::vector<Case> cases = {
        {"clean: the first parent of HEAD", [] {}, first, "main"},
        {"an untracked file: HEAD", [&] { repo.write("new.txt", "x\n"); }, second, "main"},
        {"a change: HEAD",
         [&] {
             std::filesystem::remove(repo.file("new.txt"));
             repo.write("a.txt", "changed\n");
         },
         second, "main"},
        {"detached on the root commit, clean: no parent",
         [&] {
             repo.git({"checkout", "-q", "--", "a.txt"});
             repo.git({"checkout", "-q", "--detach", first});
         },
         "", "HEAD"},
        {"detached with a change: HEAD", [&] { repo.write("a.txt", "changed\n"); }, first, "HEAD"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        c.prepare();
        vn::Record summary = handler->summary(repo.path());
        EXPECT_EQ(summary.string("parent1"), c.parent1);
        EXPECT_EQ(summary.string("branch"), c.branch);
        EXPECT_EQ(handler->currentBranch(repo.path()), c.branch);
    }
}

TEST(VNRepoHandlerGitStatus, EmptyRepository) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    AlertRecorder alerts;
    EXPECT_TRUE(handler->fileStatus(repo.path(), 1023).empty());
    vn::Record empty = handler->summary(repo.path());
    EXPECT_TRUE(empty.boolean("isclean"));
    EXPECT_EQ(empty.string("branch"), "main") << "the branch HEAD names, before its first commit";
    EXPECT_EQ(empty.string("parent1"), "");

    repo.write("staged.txt", "s\n");
    repo.git({"add", "staged.txt"});
    repo.write("new.txt", "n\n");
    expectFiles(handler->fileStatus(repo.path(), 1023),
                {{"staged.txt", {4, 4, 1}}, {"new.txt", {128, 128, 128}}});
    vn::Record summary = handler->summary(repo.path());
    EXPECT_FALSE(summary.boolean("isclean"));
    EXPECT_EQ(summary.integer("numfilesadded"), 1);
    EXPECT_EQ(summary.integer("numfilesunknown"), 1);
    EXPECT_EQ(summary.string("parent1"), "");
    EXPECT_EQ(handler->currentBranch(repo.path()), "main");
    EXPECT_TRUE(alerts.alerts().empty()) << "a repository without commits is no error";
}

TEST(VNRepoHandlerGitStatus, EveryKindOfConflict) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    repo.commitFile("keep.txt", "k\n", "keep");
    std::string theirs = vn::test::stopMergeWithEveryConflictKind(repo);
    std::string ours = trimmed(repo.git({"rev-parse", "HEAD"}));

    ExpectedFiles conflicts;
    for (const char* path : {"uu", "aa", "ud", "du", "dd", "dd-ours", "dd-theirs"}) {
        conflicts[path] = {16, 16, 16};
    }
    expectFiles(handler->fileStatus(repo.path()), conflicts);
    // ls-files names unmerged files once per stage; none of them is clean.
    expectFiles(handler->fileStatus(repo.path(), 1), {{"keep.txt", {1, 1, 1}}});

    vn::Record summary = handler->summary(repo.path());
    EXPECT_TRUE(summary.boolean("ismerge"));
    EXPECT_FALSE(summary.boolean("isclean"));
    EXPECT_EQ(summary.integer("numfilesunresolved"), 7);
    EXPECT_EQ(summary.string("parent1"), ours);
    EXPECT_EQ(summary.string("parent2"), theirs);
    ASSERT_TRUE(summary["otherparents"].array());
    EXPECT_TRUE(summary["otherparents"].array()->empty());
    EXPECT_TRUE(handler->isMergeOutstanding(repo.path()));

    repo.git({"merge", "--abort"});
    EXPECT_FALSE(handler->isMergeOutstanding(repo.path()));
    vn::Record after = handler->summary(repo.path());
    EXPECT_FALSE(after.boolean("ismerge"));
    EXPECT_EQ(after.string("parent2"), "");
    EXPECT_FALSE(after.contains("otherparents"));
}

TEST(VNRepoHandlerGitStatus, OctopusMergeWithThreeParents) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    repo.commitFile("f", "base\n", "base");
    repo.git({"checkout", "-q", "-b", "b1"});
    std::string b1 = repo.commitFile("b1", "b1\n", "b1");
    repo.git({"checkout", "-q", "main"});
    repo.git({"checkout", "-q", "-b", "b2"});
    std::string b2 = repo.commitFile("f", "b2\n", "b2");
    repo.git({"checkout", "-q", "main"});
    std::string main = repo.commitFile("f", "main\n", "main");
    EXPECT_FALSE(tryGit(repo.path(), {"merge", "b1", "b2"})->success());

    vn::Record summary = handler->summary(repo.path());
    EXPECT_TRUE(summary.boolean("ismerge"));
    EXPECT_EQ(summary.string("parent1"), main);
    EXPECT_EQ(summary.string("parent2"), b1);
    ASSERT_TRUE(summary["otherparents"].array());
    EXPECT_EQ(*summary["otherparents"].array(), vn::Value::Array{vn::Value(b2)});

    std::string second;
    std::vector<std::string> others;
    EXPECT_TRUE(handler->parseMergeHeadFileParents(repo.path(), second, others));
    EXPECT_EQ(second, b1);
    EXPECT_EQ(others, std::vector<std::string>{b2});
}

TEST(VNRepoHandlerGitStatus, RebaseInProgress) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    repo.commitFile("f", "base\n", "base");
    repo.git({"checkout", "-q", "-b", "topic"});
    repo.commitFile("f", "topic\n", "topic");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("f", "main\n", "main");
    repo.git({"checkout", "-q", "topic"});
    EXPECT_FALSE(handler->isRebaseInProgress(repo.path()));
    EXPECT_FALSE(tryGit(repo.path(), {"rebase", "main"})->success());

    EXPECT_TRUE(handler->isRebaseInProgress(repo.path()));
    vn::Record summary = handler->summary(repo.path());
    EXPECT_TRUE(summary.boolean("isrebase"));
    EXPECT_FALSE(summary.boolean("ismerge"));
    EXPECT_EQ(summary.integer("numfilesunresolved"), 1);
    EXPECT_NE(summary.string("branch"), "topic");
    repo.git({"rebase", "--abort"});
    EXPECT_FALSE(handler->isRebaseInProgress(repo.path()));
}

TEST(VNRepoHandlerGitStatus, SubmoduleWithChanges) {
    GitRepository library;
    library.commitFile("lib.txt", "1\n", "library");
    GitRepository app;
    app.commitFile("app.txt", "a\n", "app");
    app.git({"-c", "protocol.file.allow=always", "submodule", "add", "-q", library.path(), "sub"});
    app.git({"commit", "-q", "-m", "add the submodule"});
    auto handler = std::make_shared<VNRepoHandlerGit>();
    std::string sub = app.file("sub");

    // Changes inside the submodule alone are its own business.
    vn::test::writeFile(app.file("sub/untracked.txt"), "u\n");
    vn::test::writeFile(app.file("sub/lib.txt"), "edited\n");
    expectFiles(handler->fileStatus(app.path()), {});
    EXPECT_TRUE(handler->summary(app.path()).boolean("isclean"));

    // A new commit in the submodule changes the recorded commit.
    EXPECT_TRUE(tryGit(sub, {"commit", "-q", "-am", "library change"})->success());
    expectFiles(handler->fileStatus(app.path(), 1023),
                {{"sub", {8192, 1, 8192}}, {"app.txt", {1, 1, 1}}, {".gitmodules", {1, 1, 1}}});
    EXPECT_EQ(handler->summary(app.path()).integer("numfilesmodified"), 1);

    app.git({"add", "sub"});
    expectFiles(handler->fileStatus(app.path()), {{"sub", {8192, 8192, 1}}});

    // The submodule's ".git" is a file pointing into the app's git folder, relative to it.
    EXPECT_FALSE(vn::fs::isDirectory(app.file("sub/.git")));
    EXPECT_EQ(canonical(handler->gitMetadataFolder(sub)), canonical(app.file(".git/modules/sub")));
    EXPECT_EQ(handler->currentBranch(sub), "main");
    EXPECT_TRUE(handler->isClean(sub)) << "only an untracked file is left in it";
}

TEST(VNRepoHandlerGitStatus, WorktreeWithAGitFile) {
    GitRepository repo;
    auto handler = std::make_shared<VNRepoHandlerGit>();
    repo.commitFile("a.txt", "a\n", "one");
    TempDir parent("varnel-worktree");
    std::string worktree = parent.path() + "/wt";
    repo.git({"worktree", "add", "-q", "-b", "side", worktree});

    ASSERT_FALSE(vn::fs::isDirectory(worktree + "/.git"));
    std::string gitFolder = handler->gitMetadataFolder(worktree);
    EXPECT_EQ(gitFolder, repo.file(".git/worktrees/wt"));
    EXPECT_EQ(handler->gitMetadataFolder(repo.path()), repo.file(".git"));

    vn::test::writeFile(worktree + "/a.txt", "changed\n");
    vn::test::writeFile(worktree + "/b.txt", "new\n");
    expectFiles(handler->fileStatus(worktree), {{"a.txt", {2, 1, 2}}, {"b.txt", {128, 128, 128}}});
    EXPECT_EQ(handler->summary(worktree).string("branch"), "side");

    // Merge and rebase state belong to each worktree's own git folder.
    std::string head = trimmed(repo.git({"rev-parse", "HEAD"}));
    vn::test::writeFile(gitFolder + "/MERGE_HEAD", head + "\n");
    EXPECT_TRUE(handler->isMergeOutstanding(worktree));
    EXPECT_FALSE(handler->isMergeOutstanding(repo.path()));
    EXPECT_EQ(handler->summary(worktree).string("parent2"), head);
    vn::fs::makeDirectories(gitFolder + "/rebase-merge");
    EXPECT_TRUE(handler->isRebaseInProgress(worktree));
    EXPECT_FALSE(handler->isRebaseInProgress(repo.path()));

    // Hooks are shared with the main repository.
    EXPECT_FALSE(handler->summary(worktree).boolean("hasLargeFiles"));
    vn::test::writeFile(repo.file(".git/hooks/pre-push"),
                        "#!/bin/sh\ncommand -v git-lfs >/dev/null || exit 2\n"
                        "git lfs pre-push \"$@\"\n");
    EXPECT_TRUE(handler->summary(worktree).boolean("hasLargeFiles"));
    EXPECT_TRUE(handler->summary(repo.path()).boolean("hasLargeFiles"));
}

TEST(VNRepoHandlerGitStatus, LargeFilesConfiguration) {
    auto handler = std::make_shared<VNRepoHandlerGit>();
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, std::string>> files;
        bool expected;
    };
    const std::vector<Case> cases = {
        {"nothing", {}, false},
        {"attributes with the filter",
         {{".gitattributes", "*.txt text\n*.bin filter=lfs diff=lfs merge=lfs -text\n"}},
         true},
        {"attributes without it", {{".gitattributes", "*.txt text\n"}}, false},
        {"only a nested attributes file", {{"sub/.gitattributes", "* filter=lfs\n"}}, false},
        {"the pre-push hook",
         {{".git/hooks/pre-push", "#!/bin/sh\ngit lfs pre-push \"$@\"\n"}},
         true},
        {"another pre-push hook", {{".git/hooks/pre-push", "#!/bin/sh\nmake test\n"}}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        GitRepository repo;
        for (const auto& [file, text] : c.files) {
            repo.write(file, text);
        }
        EXPECT_EQ(handler->summary(repo.path()).boolean("hasLargeFiles"), c.expected);
    }
}

TEST(VNRepoHandlerGitStatus, FailuresAreReportedOnceAndGiveEmptyResults) {
    TempDir notRepository("varnel-not-a-repo");
    auto handler = std::make_shared<VNRepoHandlerGit>();
    AlertRecorder alerts;
    EXPECT_TRUE(handler->fileStatus(notRepository.path(), 1023).empty());
    auto shown = alerts.alerts();
    ASSERT_EQ(shown.size(), 1u) << "the status failure is shown, the ls-files ones only logged";
    EXPECT_NE(shown[0].message.find("git status"), std::string::npos) << shown[0].message;
    EXPECT_NE(shown[0].message.find("not a git repository"), std::string::npos);

    EXPECT_TRUE(handler->summary(notRepository.path()).empty());
    EXPECT_FALSE(handler->isClean(notRepository.path()));
    EXPECT_EQ(handler->currentBranch(notRepository.path()), "");
    EXPECT_EQ(alerts.alerts().size(), 1u) << "only the file list shows its failure";
    EXPECT_TRUE(handler->fileStatus(notRepository.path() + "/missing").empty());
}

// The three listings wait for each other inside a wrapper around git: run one after the other
// they would each give up waiting and say so.
TEST(VNRepoHandlerGitStatus, ListingsRunAtTheSameTime) {
    EveryStateRepository fixture;
    TempDir tools("varnel-git-wrapper");
    std::string realGit = vn::fs::findExecutable("git").value_or("/usr/bin/git");
    std::string markers = tools.path() + "/markers";
    vn::fs::makeDirectories(markers);
    std::string wrapper = vn::test::writeScript(
        tools.path(), "git",
        "m='" + markers + "'\n" +
            "case \" $* \" in\n"
            "  *' status '*) me=status ;;\n"
            "  *' --cached '*) me=tracked ;;\n"
            "  *' --ignored '*) me=ignored ;;\n"
            "  *) exec '" +
            realGit +
            "' \"$@\" ;;\n"
            "esac\n"
            "touch \"$m/$me\"\n"
            "n=0\n"
            "until [ -e \"$m/status\" ] && [ -e \"$m/tracked\" ] && [ -e \"$m/ignored\" ]; do\n"
            "  n=$((n+1))\n"
            "  if [ $n -gt 100 ]; then echo \"$me waited alone\" >> \"$m/log\"; break; fi\n"
            "  sleep 0.05\n"
            "done\n"
            "exec '" +
            realGit + "' \"$@\"\n");
    auto& prefs = vn::Preferences::standard();
    prefs.set("gitWhichOne", 1);
    prefs.set("gitCustomPath", wrapper);
    auto handler = std::make_shared<VNRepoHandlerGit>();
    auto records = handler->fileStatus(fixture.repo.path(), 1023);
    prefs.remove("gitWhichOne");
    prefs.remove("gitCustomPath");

    EXPECT_EQ(vn::test::readFile(markers + "/log"), "");
    expectFiles(records, selected(fixture.files, 1023));
}

// A refresh that wants both the summary and the file list runs git status once, and gets what
// the two separate calls give, whatever the mask and whether untracked files are hidden.
TEST(VNRepoHandlerGitStatus, SummaryAndFileListShareOneStatusRun) {
    EveryStateRepository everyState;
    GitRepository merging;
    vn::test::stopMergeWithEveryConflictKind(merging);
    std::optional<vn::test::GitRunCounter> counter(std::in_place);
    auto& prefs = vn::Preferences::standard();
    auto handler = std::make_shared<VNRepoHandlerGit>();
    AlertRecorder alerts;
    struct Case {
        const char* name;
        const std::string& path;
        uint64_t mask;
        bool hideUntracked;
    };
    const Case cases[] = {
        {"default mask", everyState.repo.path(), VNFileStatusDefaultMask, false},
        {"default mask, untracked hidden", everyState.repo.path(), VNFileStatusDefaultMask, true},
        {"below the untracked bit", everyState.repo.path(), 127, false},
        {"below the untracked bit, untracked hidden", everyState.repo.path(), 127, true},
        {"everything", everyState.repo.path(), 1023, false},
        {"merge with conflicts", merging.path(), VNFileStatusDefaultMask, false},
        {"merge with conflicts, clean files", merging.path(), 767, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.hideUntracked) {
            prefs.set("fileStatusFilterMode", 6);
        }
        vn::Record summary = handler->summary(c.path);
        std::vector<vn::Record> files = handler->fileStatus(c.path, c.mask);
        counter->clear();
        VNWorkingCopyStatus both = handler->fileStatusAndSummary(c.path, c.mask);
        EXPECT_EQ(counter->runsWith(" status --porcelain"), 1);
        prefs.remove("fileStatusFilterMode");
        EXPECT_FALSE(both.summary.empty());
        EXPECT_EQ(both.summary, summary);
        EXPECT_EQ(both.files, files);
    }
    counter.reset();
    EXPECT_TRUE(alerts.alerts().empty());

    // A folder that is no working copy: nothing, and the failure shown once.
    TempDir notRepository("varnel-not-a-repo");
    VNWorkingCopyStatus none = handler->fileStatusAndSummary(notRepository.path(), 766);
    EXPECT_TRUE(none.summary.empty());
    EXPECT_TRUE(none.files.empty());
    EXPECT_EQ(alerts.alerts().size(), 1u);
}

}  // namespace
