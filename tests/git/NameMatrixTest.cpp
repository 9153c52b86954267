// Every kind of awkward file name through every operation that reads names from git: the name
// must come back as its exact bytes, and go back to git unchanged.

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/TextEncoding.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogRowData.h"
#include "support/GitDiffSupport.h"
#include "support/StatusFixtures.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;
using vn::test::runAndParse;
using vn::test::statusRecordPath;

struct Name {
    const char* what;
    std::string bytes;
};

// One name of every byte class git quotes, splits or that a careless reader trims or decodes.
const std::vector<Name>& names() {
    static const std::vector<Name> table = {
        {"tab", "tab\there.txt"},
        {"newline", "new\nline.txt"},
        {"carriage return", "carriage\rreturn.txt"},
        {"double quote", "double\"quote.txt"},
        {"backslash", "back\\slash.txt"},
        {"bell", "bell\x07.txt"},
        {"escape sequence", "esc\x1b[31mred.txt"},
        {"delete", "del\x7f.txt"},
        {"leading blank", " leading.txt"},
        {"trailing blank", "trailing.txt "},
        {"two blanks inside", "two  blanks.txt"},
        {"b/ inside the name", "x b/y.txt"},
        {"arrow inside the name", "a -> b.txt"},
        {"Latin-1, not UTF-8", "caf\xE9.txt"},
        {"UTF-8 CJK", "\xE6\x97\xA5\xE6\x9C\xAC.txt"},
        {"begins with a dash", "-dash.txt"},
        {"octal-looking text", "\\303\\251.txt"},
    };
    return table;
}

// Names that are pathspec magic unless git is told to read paths literally.
const std::vector<Name>& magicNames() {
    static const std::vector<Name> table = {
        {"glob characters", "glob[ab]*?.txt"},
        {"pathspec magic", ":(icase)magic.txt"},
    };
    return table;
}

std::string moved(const std::string& name) {
    return "moved/" + name;
}

// A file's content unique to it, so that rename detection pairs every file with itself.
std::string content(std::size_t index, int lines) {
    std::string text;
    for (int line = 1; line <= lines; ++line) {
        text += "file " + std::to_string(index) + " line " + std::to_string(line) + "\n";
    }
    return text;
}

// A repository with every name of the table in four states:
//   first:  every name committed;
//   second: every name changed by one line (a commit);
//   index:  every name renamed into "moved/" (staged), and then changed once more in the work
//           tree; a copy of every name under "untracked/" that git does not know.
struct NameRepository {
    GitRepository repo;
    std::string first;
    std::string second;
    std::vector<Name> all;

    explicit NameRepository(bool withMagic = false) {
        all = names();
        if (withMagic) {
            all.insert(all.end(), magicNames().begin(), magicNames().end());
        }
        for (std::size_t i = 0; i < all.size(); ++i) {
            repo.write(all[i].bytes, content(i, 3));
        }
        repo.git({"add", "-A"});
        repo.git({"commit", "-q", "-m", "first"});
        first = head();
        for (std::size_t i = 0; i < all.size(); ++i) {
            repo.write(all[i].bytes, content(i, 4));
        }
        repo.git({"commit", "-q", "-a", "-m", "second"});
        second = head();
        for (std::size_t i = 0; i < all.size(); ++i) {
            std::filesystem::create_directories(
                std::filesystem::path(repo.file(moved(all[i].bytes))).parent_path());
            repo.git({"mv", "--", all[i].bytes, moved(all[i].bytes)});
            repo.write(moved(all[i].bytes), content(i, 5));
            repo.write("untracked/" + all[i].bytes, "u\n");
        }
    }

    std::string head() {
        std::string id = repo.git({"rev-parse", "HEAD"});
        return id.substr(0, id.find('\n'));
    }
};

std::map<std::string, vn::Record> byPath(const std::vector<vn::Record>& records) {
    std::map<std::string, vn::Record> result;
    for (const vn::Record& record : records) {
        result[statusRecordPath(record)] = record;
    }
    return result;
}

std::map<std::string, std::shared_ptr<VNDiffFileModel>> byName(const VNDiffModel& model) {
    std::map<std::string, std::shared_ptr<VNDiffFileModel>> files;
    for (const auto& file : model.fileEntries()) {
        files[file->filename()] = file;
    }
    return files;
}

TEST(NameMatrix, StatusListsEveryNameAsItsBytes) {
    NameRepository fixture;
    VNRepoHandlerGit handler;
    auto records = byPath(handler.fileStatus(fixture.repo.path(), VNFileStatusDefaultMask));
    EXPECT_EQ(records.size(), 2 * fixture.all.size());
    for (const Name& name : fixture.all) {
        SCOPED_TRACE(name.what);
        auto renamed = records.find(moved(name.bytes));
        ASSERT_NE(renamed, records.end());
        EXPECT_EQ(renamed->second.integer(VNFileStatusKeyIndexStatus), VNFileStatusRenamed);
        EXPECT_EQ(renamed->second.integer(VNFileStatusKeyTreeStatus), VNFileStatusModified);
        EXPECT_EQ(renamed->second.string(VNFileStatusKeyPreviousName), name.bytes);
        auto untracked = records.find("untracked/" + name.bytes);
        ASSERT_NE(untracked, records.end());
        EXPECT_EQ(untracked->second.integer(VNFileStatusKeyStatus), VNFileStatusUnknown);
    }

    // The clean listing names the same files as the status does, so none is listed twice.
    auto withClean = handler.fileStatus(fixture.repo.path(), VNFileStatusDefaultMask | 1);
    EXPECT_EQ(withClean.size(), 2 * fixture.all.size());

    vn::Record summary = handler.summary(fixture.repo.path());
    EXPECT_EQ(summary.integer("numfilesmodified"), static_cast<int64_t>(fixture.all.size()));
    EXPECT_EQ(summary.integer("numfilesunknown"), static_cast<int64_t>(fixture.all.size()));
}

TEST(NameMatrix, DiffsInEveryFormNameEveryFileExactly) {
    NameRepository fixture;
    VNRepoHandlerGit handler;
    const std::string& path = fixture.repo.path();
    struct Form {
        const char* what;
        std::shared_ptr<VNTask> task;
        bool movedNames;  // the files are named "moved/..."
        uint64_t changeType;
        uint64_t added;
    };
    const Form forms[] = {
        {"working copy", handler.fileDiffAgainstBaseTask(path, {}, 0, 3), true,
         VNDiffFileModel::Modified, 1},
        {"staged", handler.fileDiffAgainstBaseTask(path, {}, "", 0, 3), true,
         VNDiffFileModel::Renamed, 0},
        {"revision", handler.revisionFileDiffTask(path, fixture.second, {}, 0, 3), false,
         VNDiffFileModel::Modified, 1},
        {"range", handler.revisionRangeFileDiffTask(path, fixture.first, fixture.second, {}, 0, 3),
         false, VNDiffFileModel::Modified, 1},
    };
    for (const Form& form : forms) {
        SCOPED_TRACE(form.what);
        auto model = runAndParse(handler, form.task);
        auto files = byName(*model);
        EXPECT_EQ(files.size(), fixture.all.size());
        for (std::size_t i = 0; i < fixture.all.size(); ++i) {
            const Name& name = fixture.all[i];
            SCOPED_TRACE(name.what);
            std::string expected = form.movedNames ? moved(name.bytes) : name.bytes;
            auto file = files.find(expected);
            ASSERT_NE(file, files.end());
            EXPECT_EQ(file->second->changeType(), form.changeType);
            EXPECT_EQ(file->second->linesAdded(), form.added);
            if (form.changeType == VNDiffFileModel::Renamed) {
                EXPECT_EQ(file->second->previousFilename(), name.bytes);
            } else if (form.added == 1) {
                // Each file's own content: the parser kept the right hunk with the right name.
                ASSERT_EQ(file->second->hunks().size(), 1u);
                std::string line = "+file " + std::to_string(i) + " line " +
                                   std::to_string(form.movedNames ? 5 : 4) + "\n";
                EXPECT_NE(file->second->hunks()[0]->rawHunk().find(line), std::string::npos);
            }
        }
    }

    // Several revisions at once: each file once per revision that changed it.
    auto revisions = runAndParse(
        handler, handler.revisionsFileDiffTask(path, {fixture.second, fixture.first}, {}, 0, 3),
        true);
    std::multiset<std::string> listed;
    for (const auto& file : revisions->fileEntries()) {
        listed.insert(file->filename());
    }
    for (const Name& name : fixture.all) {
        SCOPED_TRACE(name.what);
        EXPECT_EQ(listed.count(name.bytes), 2u);
    }
}

// A name read from git goes back to git as it is: diffing or blaming one file by the name the
// status gave finds exactly that file.
void expectNamesGoBackToGit(const NameRepository& fixture, const std::vector<Name>& which) {
    VNRepoHandlerGit handler;
    const std::string& path = fixture.repo.path();
    auto records = handler.fileStatus(path, VNFileStatusDefaultMask);
    for (const Name& name : which) {
        SCOPED_TRACE(name.what);
        std::string file = moved(name.bytes);
        bool listed = false;
        for (const vn::Record& record : records) {
            listed = listed || statusRecordPath(record) == file;
        }
        EXPECT_TRUE(listed);
        auto one = runAndParse(handler, handler.fileDiffAgainstBaseTask(path, {file}, 0, 3));
        ASSERT_EQ(one->fileEntries().size(), 1u);
        EXPECT_EQ(one->fileEntries()[0]->filename(), file);
        auto staged = runAndParse(
            handler, handler.fileDiffAgainstBaseTask(path, {file, name.bytes}, "", 0, 3));
        ASSERT_EQ(staged->fileEntries().size(), 1u);
        EXPECT_EQ(staged->fileEntries()[0]->previousFilename(), name.bytes);
        auto atRevision = runAndParse(
            handler, handler.revisionFileDiffTask(path, fixture.second, {name.bytes}, 0, 3));
        ASSERT_EQ(atRevision->fileEntries().size(), 1u);
        EXPECT_EQ(atRevision->fileEntries()[0]->filename(), name.bytes);

        auto lines = handler.blame(path, name.bytes, fixture.second);
        EXPECT_EQ(lines.size(), 4u);
        auto working = handler.blame(path, file, std::nullopt);
        EXPECT_EQ(working.size(), 5u);
    }
}

TEST(NameMatrix, NamesGoBackToGitUnchanged) {
    NameRepository fixture;
    expectNamesGoBackToGit(fixture, fixture.all);
}

TEST(NameMatrix, PathspecCharactersInNamesAreLiteral) {
    NameRepository fixture(true);
    expectNamesGoBackToGit(fixture, magicNames());
}

TEST(NameMatrix, ShowListsTheFilesOfACommitExactly) {
    NameRepository fixture;
    VNRepoHandlerGit handler;
    const std::string& path = fixture.repo.path();
    fixture.repo.git({"commit", "-q", "-m", "third"});
    auto changed = byPath(handler.revisionFileChanges(path, fixture.second));
    auto renames = handler.revisionFileChanges(path, fixture.head());
    auto range = byPath(handler.revisionRangeFileChanges(path, fixture.first, fixture.second));
    std::map<std::string, std::string> renamedFrom;
    for (const vn::Record& record : renames) {
        renamedFrom[statusRecordPath(record)] = record.string(VNFileStatusKeyPreviousName);
    }
    EXPECT_EQ(changed.size(), fixture.all.size());
    EXPECT_EQ(range.size(), fixture.all.size());
    for (const Name& name : fixture.all) {
        SCOPED_TRACE(name.what);
        ASSERT_TRUE(changed.count(name.bytes));
        EXPECT_EQ(changed[name.bytes].integer(VNFileStatusKeyStatus), VNFileStatusModified);
        EXPECT_TRUE(range.count(name.bytes));
        EXPECT_EQ(renamedFrom[moved(name.bytes)], name.bytes);
    }
}

// One Latin-1 name or line decides nothing for the UTF-8 beside it, and keeps its own bytes
// where it is a name.
TEST(NameMatrix, OneLatin1NameOrLineLeavesTheUTF8BesideItAlone) {
    GitRepository repo;
    const std::string cjk = "\xE6\x97\xA5\xE6\x9C\xAC.txt";
    const std::string latin1 = "caf\xE9.txt";
    repo.write(cjk, "\xE6\x97\xA5\xE6\x9C\xAC\n");
    repo.write(latin1, "one\n");
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "\xE6\x97\xA5\xE6\x9C\xAC subject"});
    repo.write(latin1, "two\n");
    repo.git({"commit", "-q", "-a", "-m", "caf\xE9 subject"});
    repo.write(cjk, "\xE6\x97\xA5\xE6\x9C\xAC\ncaf\xE9 line\nna\xC3\xAFve line\n");

    VNRepoHandlerGit handler;
    auto status = byPath(handler.fileStatus(repo.path(), VNFileStatusDefaultMask | 1));
    EXPECT_TRUE(status.count(cjk));
    EXPECT_TRUE(status.count(latin1));

    auto model = runAndParse(handler, handler.fileDiffAgainstBaseTask(repo.path(), {}, 0, 3));
    ASSERT_EQ(model->fileEntries().size(), 1u);
    auto file = model->fileEntries()[0];
    EXPECT_EQ(file->filename(), cjk);
    ASSERT_EQ(file->hunks().size(), 1u);
    const auto& hunk = *file->hunks()[0];
    // The patch keeps the bytes; each line shows by itself.
    EXPECT_NE(hunk.rawHunk().find("+caf\xE9 line\n"), std::string::npos);
    ASSERT_EQ(hunk.lineCount(), 3u);
    EXPECT_EQ(hunk.lineAt(0).line, "\xE6\x97\xA5\xE6\x9C\xAC");
    EXPECT_EQ(hunk.lineAt(1).line, "caf\xC3\xA9 line");
    EXPECT_EQ(hunk.lineAt(2).line, "na\xC3\xAFve line");

    auto page = std::make_shared<VNLogRowData>();
    page->setLimit(10);
    handler.fillLogPage(repo.path(), *page);
    std::vector<std::string> subjects;
    for (const vn::Record& row : page->logRows()) {
        if (row.string("rev") == "-1") {
            continue;  // the row of uncommitted changes
        }
        if (auto entry = row["descriptionentry"].objectAs<VNLogDescriptionEntry>()) {
            subjects.push_back(entry->description());
        }
    }
    ASSERT_EQ(subjects.size(), 2u);
    EXPECT_TRUE(vn::isValidUTF8(subjects[0]));
    EXPECT_EQ(subjects[0].substr(0, 3), "caf");
    EXPECT_EQ(subjects[1], "\xE6\x97\xA5\xE6\x9C\xAC subject");
}

}  // namespace
