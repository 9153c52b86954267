#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct uv_loop_s;

namespace vn {

using Environment = std::map<std::string, std::string>;

// A copy of this process's environment.
Environment processEnvironment();

// An owned file descriptor, closed when released.
class FileHandle {
  public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    FileHandle(FileHandle&& other) noexcept : fd_(other.release()) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    ~FileHandle() { reset(); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    int fd() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1);

    // Opens `path` for the standard output of a child: truncated (created) unless `append` and
    // the file exists, in which case writes go to its end. errno tells why it failed.
    static FileHandle openOutputFile(const std::string& path, bool append);

  private:
    int fd_ = -1;
};

// A pseudo-terminal pair: the master side stays with us, the slave side is given to a child.
struct PseudoTerminal {
    FileHandle master;
    FileHandle slave;
    int error = 0;  // errno when opening failed
    static PseudoTerminal open();
};

// A pipe made for a child's output; `error` is errno when none could be made.
struct OutputPipe {
    FileHandle readEnd;
    FileHandle writeEnd;
    int error = 0;
    static OutputPipe open();
};

// One child process on a libuv loop: its standard output and error are read as they arrive and
// it reports once it has exited and both streams have ended.
class Process {
  public:
    struct Options {
        std::string executable;
        std::vector<std::string> args;  // without the executable
        std::string workingDir;
        Environment environment;
        int stdinFd = -1;  // -1: the null device
        // The child's standard output: a pipe read by this object, or an inherited descriptor.
        OutputPipe* stdoutPipe = nullptr;
        int stdoutFd = -1;
        OutputPipe* stderrPipe = nullptr;
        bool joinRunnerProcessGroup = true;
    };
    struct Callbacks {
        std::function<void(std::string_view)> stdoutData;
        std::function<void(std::string_view)> stderrData;
        // Called once the process has exited and both pipes are at end of file.
        std::function<void(int64_t exitStatus, int termSignal)> finished;
    };

    Process();
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Starts the child on `loop`; answers 0 or a negative libuv error code. The pipes' write ends
    // are closed here once the child holds them.
    int start(uv_loop_s* loop, Options& options, Callbacks callbacks);
    // Starts the child on a loop of its own and runs that loop until the child has finished.
    int runToCompletion(Options& options, Callbacks callbacks);

    bool isRunning() const { return running_.load(); }
    pid_t pid() const { return pid_.load(); }
    // Sends SIGTERM; nothing when the process is not running.
    void terminate();

    static std::string errorDescription(int uvError);

    // Whether a launch may make this program a session leader (setsid) so that its children
    // share its new process group. A command-line front end keeps its terminal and says no.
    static void setMayStartSession(bool may);

    // Internal: the libuv handles of one run, outliving this object until they are closed.
    struct State;

  private:
    int spawnWithPosixSpawn(uv_loop_s* loop, Options& options, char** argv, char** env,
                            const std::shared_ptr<State>& state);
    int spawnWithLibuv(uv_loop_s* loop, Options& options, char** argv, char** env,
                       const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;
    std::atomic<bool> running_{false};
    std::atomic<pid_t> pid_{0};
};

}  // namespace vn
