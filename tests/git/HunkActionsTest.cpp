#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "handler/FileType.h"
#include "handler/VNHunkActions.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "model/VNDiffParser.h"
#include "platform/FileSystem.h"
#include "platform/NotificationCenter.h"
#include "platform/UserInterface.h"
#include "support/GitDiffSupport.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::contentAt;
using vn::test::GitRepository;
using vn::test::readFile;
using Action = VNHunkActions::Action;
using State = VNHunkActions::State;

// Patches go to a temporary folder of the test's own, so that kept ones can be counted.
class PatchFolder {
  public:
    PatchFolder() {
        const char* old = std::getenv("TMPDIR");
        if (old) {
            previous_ = old;
        }
        ::setenv("TMPDIR", dir_.path().c_str(), 1);
    }
    ~PatchFolder() {
        if (previous_) {
            ::setenv("TMPDIR", previous_->c_str(), 1);
        } else {
            ::unsetenv("TMPDIR");
        }
    }
    std::vector<std::string> patches() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
            if (entry.path().filename().string().rfind("VarnelTemp.", 0) == 0) {
                names.push_back(entry.path().string());
            }
        }
        return names;
    }
    const std::string& path() const { return dir_.path(); }

  private:
    vn::test::TempDir dir_{"varnel-patches"};
    std::optional<std::string> previous_;
};

class AnsweringInterface : public vn::UserInterface {
  public:
    explicit AnsweringInterface(int answer) : answer_(answer) {}
    int showAlert(const vn::Alert& alert) override {
        titles.push_back(alert.title);
        return answer_;
    }
    std::vector<std::string> titles;

  private:
    int answer_;
};

struct Fixture {
    GitRepository repo;
    std::shared_ptr<VNRepoHandlerGit> git = std::make_shared<VNRepoHandlerGit>();
    int document = 0;

    VNHunkActions::Context context(bool confirm = false) {
        VNHunkActions::Context context;
        context.repositoryPath = repo.path();
        context.handler = git;
        context.confirmDiscard = confirm;
        context.document = &document;
        return context;
    }
    std::shared_ptr<VNDiffFileModel> diff(const std::string& file, bool staged) {
        auto task = staged ? git->fileDiffAgainstBaseTask(repo.path(), {file}, "", 0, 3)
                           : git->fileDiffAgainstBaseTask(repo.path(), {file}, 0, 3);
        auto model = vn::test::runAndParse(*git, task);
        return model->fileEntries().empty() ? nullptr : model->fileEntries().front();
    }
};

TEST(VNHunkActions, ARefusedPatchIsReportedWithGitsMessageAndKeptAndNothingIsLost) {
    PatchFolder patches;
    Fixture f;
    f.repo.commitFile("f.txt", "a\nb\nc\nd\n", "base");
    f.repo.write("f.txt", "a\nB\nc\nd\n");
    auto file = f.diff("f.txt", false);
    ASSERT_TRUE(file);
    // The index and the working file move on after the diff was taken.
    f.repo.write("f.txt", "a\nX\nc\nd\n");
    f.repo.git({"add", "f.txt"});
    f.repo.write("f.txt", "a\nY\nc\nd\n");

    for (Action action : {Action::StageLines, Action::DiscardLines, Action::DiscardHunk}) {
        SCOPED_TRACE(VNHunkActions::actionName(action));
        auto outcome =
            VNHunkActions::perform(action, f.context(), *file, *file->hunks().front(), {1, 2});
        EXPECT_EQ(outcome.state, State::Refused);
        EXPECT_NE(outcome.message.find("patch does not apply"), std::string::npos)
            << outcome.message;
        ASSERT_FALSE(outcome.keptPatchFile.empty());
        EXPECT_EQ(vn::fs::lastPathComponent(outcome.keptPatchFile).rfind("VarnelTemp.", 0), 0u);
        EXPECT_EQ(vn::fs::deletingLastPathComponent(outcome.keptPatchFile), patches.path());
        EXPECT_EQ(readFile(outcome.keptPatchFile), outcome.patch);
        EXPECT_EQ(readFile(f.repo.file("f.txt")), "a\nY\nc\nd\n");
        EXPECT_EQ(contentAt(f.repo, "", "f.txt"), "a\nX\nc\nd\n");
    }
    EXPECT_EQ(patches.patches().size(), 3u);

    // Applied patches leave no file behind.
    file = f.diff("f.txt", false);
    auto outcome =
        VNHunkActions::perform(Action::StageHunk, f.context(), *file, *file->hunks().front(), {});
    EXPECT_EQ(outcome.state, State::Applied) << outcome.message;
    EXPECT_EQ(contentAt(f.repo, "", "f.txt"), "a\nY\nc\nd\n");
    EXPECT_EQ(patches.patches().size(), 3u);
}

TEST(VNHunkActions, WholeFilesForUntrackedAddedAndDeletedFiles) {
    Fixture f;
    f.repo.commitFile("gone.txt", "one\ntwo\n", "base");
    ::chmod(f.repo.file("gone.txt").c_str(), 0755);
    f.repo.git({"commit", "-qam", "executable"});

    // Untracked: staged whole, bytes and mode as they are.
    const std::string odd = "crlf\r\nlatin \xE9\r\nno newline";
    f.repo.write("new.sh", odd);
    ::chmod(f.repo.file("new.sh").c_str(), 0755);
    VNDiffFileModel untracked;
    untracked.setFilename("new.sh");
    untracked.setChangeType(VNDiffFileModel::Untracked);
    VNDiffHunkModel none;
    auto staged = VNHunkActions::perform(Action::StageHunk, f.context(), untracked, none, {});
    EXPECT_EQ(staged.state, State::Applied) << staged.message;
    EXPECT_EQ(staged.wholeFileSummary, "Staging file");
    EXPECT_EQ(contentAt(f.repo, "", "new.sh"), odd);
    EXPECT_EQ(f.repo.git({"ls-files", "-s", "new.sh"}).substr(0, 6), "100755");

    // Added: unstaged whole, so it is untracked again and its file stays.
    auto added = f.diff("new.sh", true);
    ASSERT_TRUE(added);
    auto unstaged = VNHunkActions::perform(Action::UnstageHunk, f.context(), *added,
                                           *added->hunks().front(), {});
    EXPECT_EQ(unstaged.state, State::Applied) << unstaged.message << unstaged.patch;
    EXPECT_EQ(unstaged.wholeFileSummary, "Unstaging file");
    EXPECT_EQ(f.repo.git({"ls-files", "new.sh"}), "");
    EXPECT_EQ(readFile(f.repo.file("new.sh")), odd);

    // Deleted in the working copy: staging the hunk stages the deletion.
    std::filesystem::remove(f.repo.file("gone.txt"));
    auto removed = f.diff("gone.txt", false);
    ASSERT_TRUE(removed);
    auto deletion = VNHunkActions::perform(Action::StageHunk, f.context(), *removed,
                                           *removed->hunks().front(), {});
    EXPECT_EQ(deletion.state, State::Applied) << deletion.message << deletion.patch;
    EXPECT_EQ(f.repo.git({"ls-files", "gone.txt"}), "");

    // Deleted in the index: unstaging brings it back with its mode; the working copy still
    // lacks it.
    auto deleted = f.diff("gone.txt", true);
    ASSERT_TRUE(deleted);
    auto restored = VNHunkActions::perform(Action::UnstageHunk, f.context(), *deleted,
                                           *deleted->hunks().front(), {});
    EXPECT_EQ(restored.state, State::Applied) << restored.message << restored.patch;
    EXPECT_EQ(f.repo.git({"ls-files", "-s", "gone.txt"}).substr(0, 6), "100755");
    EXPECT_EQ(contentAt(f.repo, "", "gone.txt"), "one\ntwo\n");
    EXPECT_FALSE(vn::fs::exists(f.repo.file("gone.txt")));

    // A discard only touches modified files.
    f.repo.write("other.txt", "x\n");
    f.repo.git({"add", "-N", "other.txt"});
    auto intent = f.diff("other.txt", false);
    ASSERT_TRUE(intent);
    EXPECT_EQ(VNHunkActions::perform(Action::DiscardHunk, f.context(), *intent,
                                     *intent->hunks().front(), {})
                  .state,
              State::NotPossible);
    EXPECT_EQ(readFile(f.repo.file("other.txt")), "x\n");
}

TEST(VNHunkActions, NotificationsAndTheQuestionBeforeDiscarding) {
    Fixture f;
    f.repo.commitFile("f.txt", "a\nb\nc\n", "base");
    f.repo.write("f.txt", "a\nB\nc\nd\n");
    std::vector<std::string> posted;
    auto& center = vn::NotificationCenter::defaultCenter();
    std::vector<vn::NotificationCenter::Observation> observations;
    for (const char* name :
         {VNHunkActions::StagedChangesNotification, VNHunkActions::UpdateRequestNotification}) {
        observations.push_back(center.addObserver(name, &f.document, [&](const auto& note) {
            posted.push_back(note.name);
            if (note.name == VNHunkActions::UpdateRequestNotification) {
                const vn::Record* details = note.userInfo["details"].record();
                ASSERT_TRUE(details);
                EXPECT_TRUE((*details)["repoUpdatedWorkingCopy"].toBool());
                EXPECT_TRUE((*details)["repoUpdatedManual"].toBool());
                EXPECT_EQ(note.userInfo.string("path"), f.repo.path());
            }
        }));
    }
    auto previous = vn::UserInterface::current();
    auto file = f.diff("f.txt", false);
    ASSERT_TRUE(file);
    const VNDiffHunkModel& hunk = *file->hunks().front();

    struct Case {
        const char* name;
        Action action;
        vn::HunkLineRange range;
        int answer;
        State state;
        std::vector<std::string> notifications;
        std::string work;
    };
    const std::string changed = "a\nB\nc\nd\n";
    const Case cases[] = {
        {"context rows only", Action::StageLines, {0, 1}, 0, State::NothingSelected, {}, changed},
        {"declined", Action::DiscardLines, {1, 2}, 1, State::Cancelled, {}, changed},
        {"accepted",
         Action::DiscardLines,
         {4, 1},
         0,
         State::Applied,
         {"repoUpdateRequested"},
         "a\nB\nc\n"},
        {"staged",
         Action::StageLines,
         {1, 2},
         0,
         State::Applied,
         {"stagedChanges", "repoUpdateRequested"},
         "a\nB\nc\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        posted.clear();
        auto ui = std::make_shared<AnsweringInterface>(c.answer);
        vn::UserInterface::install(ui);
        auto outcome = VNHunkActions::perform(c.action, f.context(true), *file, hunk, c.range);
        vn::UserInterface::install(previous);
        EXPECT_EQ(outcome.state, c.state) << outcome.message;
        EXPECT_EQ(posted, c.notifications);
        EXPECT_EQ(readFile(f.repo.file("f.txt")), c.work);
        if (c.action == Action::DiscardLines && c.state != State::NothingSelected) {
            EXPECT_EQ(ui->titles, std::vector<std::string>{"Discard the selected lines?"});
        }
    }
    EXPECT_EQ(contentAt(f.repo, "", "f.txt"), "a\nB\nc\n");
}

TEST(VNHunkActions, TheTextFormatOfAFileComesFromTheFileCommand) {
    vn::test::TempDir dir;
    struct Case {
        const char* name;
        std::string contents;
        bool crlf;
        vn::TextEncoding encoding;
    };
    const Case cases[] = {
        {"crlf.txt", "a\r\nb\r\n", true, vn::TextEncoding::UTF8},
        {"latin1.txt", "caf\xE9 na\xEFve\n", false, vn::TextEncoding::Latin1},
        {"utf8 crlf.txt", "d\xC3\xA9j\xC3\xA0\r\n", true, vn::TextEncoding::UTF8},
        {"mac.txt", "x \x8E\x8F y\n", false, vn::TextEncoding::MacRoman},
        // Mixed line ends are no CRLF file.
        {"mixed.txt", "a\r\nb\n", false, vn::TextEncoding::UTF8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        vn::test::writeFile(dir.file(c.name), c.contents);
        vn::TextFormat format = vn::textFormatOfFile(dir.file(c.name));
        EXPECT_EQ(format.crlf, c.crlf);
        EXPECT_EQ(format.encoding, c.encoding);
    }
    vn::TextFormat missing = vn::textFormatOfFile(dir.file("missing.txt"));
    EXPECT_FALSE(missing.crlf);
    EXPECT_EQ(missing.encoding, vn::TextEncoding::UTF8);
}

// Mercurial has no index: discarding goes through `patch` on the working file.
TEST(VNHunkActions, MercurialWorkingFilesLoseExactlyTheDiscardedLines) {
    auto hg = vn::fs::findExecutable("hg");
    if (!hg || !vn::fs::findExecutable("patch")) {
        GTEST_SKIP() << "hg or patch is not installed";
    }
    PatchFolder patches;
    vn::test::TempDir dir("varnel-hg");
    auto run = [&](std::vector<std::string> args) {
        auto task = vn::test::runProgram(dir.path(), *hg, args);
        EXPECT_TRUE(task->success()) << task->errorOutput();
        return task->output();
    };
    run({"init", "-q"});
    std::string base;
    for (int i = 1; i <= 12; ++i) {
        base += "line " + std::to_string(i) + "\n";
    }
    vn::test::writeFile(dir.file("f.txt"), base);
    run({"commit", "-q", "-A", "-u", "test", "-m", "base"});
    std::string changed = base;
    changed.replace(changed.find("line 2\n"), 7, "two\nextra\n");
    changed.replace(changed.find("line 11\n"), 8, "eleven\n");
    vn::test::writeFile(dir.file("f.txt"), changed);

    VNDiffFileList files;
    VNDiffParser().parseDiffToModel(run({"diff", "--git"}), files, 20);
    ASSERT_EQ(files.size(), 1u);
    ASSERT_EQ(files.front()->hunks().size(), 2u);
    auto handler = std::make_shared<VNRepoHandlerBase>();
    VNHunkActions::Context context;
    context.repositoryPath = dir.path();
    context.handler = handler;
    context.confirmDiscard = false;

    // Rows of hunk 1: " line 1", "-line 2", "+two", "+extra", " line 3", ...
    auto outcome = VNHunkActions::perform(Action::DiscardLines, context, *files.front(),
                                          *files.front()->hunks().front(), {3, 1});
    EXPECT_EQ(outcome.state, State::Applied) << outcome.message << outcome.patch;
    std::string expected = changed;
    expected.erase(expected.find("extra\n"), 6);
    EXPECT_EQ(readFile(dir.file("f.txt")), expected);

    // The second hunk no longer matches once its line is edited again: nothing changes, the
    // patch is kept, and `patch` leaves no backup or reject files.
    std::string edited = expected;
    edited.replace(edited.find("eleven\n"), 7, "ELEVEN\n");
    vn::test::writeFile(dir.file("f.txt"), edited);
    auto refused = VNHunkActions::perform(Action::DiscardHunk, context, *files.front(),
                                          *files.front()->hunks().back(), {});
    EXPECT_EQ(refused.state, State::Refused);
    EXPECT_FALSE(refused.message.empty());
    EXPECT_EQ(readFile(dir.file("f.txt")), edited);
    EXPECT_TRUE(vn::fs::exists(refused.keptPatchFile));
    EXPECT_EQ(run({"status", "-A"}), "M f.txt\n");
}

}  // namespace
