#pragma once

#include <string>
#include <vector>

#include "support/TestEnvironment.h"

namespace vn::test {

// A Mercurial repository made with the real hg in a temporary folder. hg runs with the test
// configuration only (a fixed user name, no extensions but those asked for) and every commit
// gets a fixed date, so that histories are the same on every run.
class HgRepository {
  public:
    HgRepository();
    // Wraps an existing working copy (a clone made by a test); it is not removed.
    explicit HgRepository(std::string existingPath);
    const std::string& path() const { return path_; }
    std::string file(const std::string& relative) const;

    // Runs hg in the repository; a failure fails the current test with hg's error output.
    std::string hg(const std::vector<std::string>& args);
    // Runs hg and answers whether it succeeded, without failing the test.
    bool tryHg(const std::vector<std::string>& args, std::string* output = nullptr);
    void write(const std::string& relative, const std::string& contents);
    // Writes the file, adds it and commits it with the message (date advancing one minute per
    // commit); answers the new changeset's revision number.
    std::string commitFile(const std::string& relative, const std::string& contents,
                           const std::string& message);
    // Commits what is in the working copy; answers the new revision number.
    std::string commit(const std::string& message, const std::vector<std::string>& extra = {});

  private:
    std::unique_ptr<TempDir> dir_;
    std::string path_;
    int commits_ = 0;
};

// Runs hg in `folder` with the test configuration (as HgRepository does).
std::string runHg(const std::string& folder, const std::vector<std::string>& args,
                  bool* ok = nullptr, std::string* errorOutput = nullptr);

// Writes into `home` a ".hgrc" that changes nearly everything hg prints when asked plainly:
// aliases that shadow the commands the engine runs, [defaults] for them, verbose, quiet, debug,
// colour, a pager, a changed log template and style, status settings, relative paths, diff
// settings. Answers how many such settings it wrote.
int writeHostileHgConfig(const std::string& home);

}  // namespace vn::test
