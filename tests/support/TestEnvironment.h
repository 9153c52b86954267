#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

class VNTask;

namespace vn::test {

// A temporary folder removed with everything in it when the object goes.
class TempDir {
  public:
    explicit TempDir(const std::string& prefix = "varnel-test");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& relative) const;

  private:
    std::string path_;
};

// The folder every test's HOME, configuration and data live in (made once per test process).
const std::string& sandboxPath();

// Points HOME, XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_STATE_HOME (the engine's log), HGRCPATH at
// temporary folders, removes inherited GIT_* variables, sets TZ=UTC, GIT_CONFIG_NOSYSTEM and
// fixed author and committer data.
void isolateEnvironment();

// Writes a file (creating folders as needed).
void writeFile(const std::string& path, const std::string& contents);
std::string readFile(const std::string& path);
// Writes an executable shell script and answers its path.
std::string writeScript(const std::string& folder, const std::string& name,
                        const std::string& body);

// Runs a program synchronously through VNTask and answers the finished task.
std::shared_ptr<VNTask> runProgram(const std::string& workingDir, const std::string& program,
                                   const std::vector<std::string>& args);

// A Git repository made with the real git in a temporary folder.
class GitRepository {
  public:
    GitRepository();
    const std::string& path() const { return dir_.path(); }
    std::string file(const std::string& relative) const { return dir_.file(relative); }

    // Runs git in the repository; a failure fails the current test with git's error output.
    std::string git(const std::vector<std::string>& args);
    void write(const std::string& relative, const std::string& contents);
    // Writes the file, stages it and commits it with the message; answers the new commit's hash.
    std::string commitFile(const std::string& relative, const std::string& contents,
                           const std::string& message);

  private:
    TempDir dir_;
};

}  // namespace vn::test
