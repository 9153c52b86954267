#pragma once

#include <memory>
#include <string>
#include <vector>

class VNDiffFileModel;
class VNDiffModel;
class VNRepoHandler;
class VNTask;

namespace vn::test {

class GitRepository;

// Lines of a file's content as an editor numbers them, without their line ends.
std::vector<std::string> linesOf(const std::string& text);
// "line N\n" for N from `from` to `to`, with another stem when given.
std::string numberedLines(int from, int to, const std::string& stem = "line ");

// The file's content at a revision ("HEAD", an id, or "" for the index) as git stores it.
std::string contentAt(GitRepository& repo, const std::string& revision, const std::string& file);

// Checks every numbered line of the file's hunks against the old and the new content: each is
// the line of that number, the numbers of each side run on from the hunk's start to its end, and
// the counts of added and removed lines match. Answers how many line numbers were checked.
int expectLinesAgree(const VNDiffFileModel& file, const std::string& oldText,
                     const std::string& newText);

// Runs a prepared diff task to its end and parses what it wrote with the handler (several
// revisions when `revisions`); a failed run fails the test and gives an empty model.
std::shared_ptr<VNDiffModel> runAndParse(const VNRepoHandler& handler,
                                         const std::shared_ptr<VNTask>& task,
                                         bool revisions = false);

// The text of a Git LFS pointer file whose object id is 64 times `digit`, with the version line
// git-lfs itself writes.
std::string lfsPointer(char digit, int size);

// The entry for `filename`, or null.
std::shared_ptr<VNDiffFileModel> fileNamed(const VNDiffModel& model, const std::string& filename);

}  // namespace vn::test
