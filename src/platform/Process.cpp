#include "platform/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <uv.h>

#include <cerrno>
#include <cstring>
#include <mutex>

extern char** environ;

namespace vn {

Environment processEnvironment() {
    Environment env;
    for (char** e = environ; e && *e; ++e) {
        std::string_view entry(*e);
        std::size_t eq = entry.find('=');
        if (eq == std::string_view::npos || eq == 0) {
            continue;
        }
        env.emplace(std::string(entry.substr(0, eq)), std::string(entry.substr(eq + 1)));
    }
    return env;
}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        reset(other.release());
    }
    return *this;
}

void FileHandle::reset(int fd) {
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = fd;
}

FileHandle FileHandle::openOutputFile(const std::string& path, bool append) {
    if (append && ::access(path.c_str(), F_OK) == 0) {
        return FileHandle(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    }
    return FileHandle(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
}

PseudoTerminal PseudoTerminal::open() {
    PseudoTerminal pty;
    FileHandle master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    char name[256];
    if (!master.valid() || ::grantpt(master.fd()) != 0 || ::unlockpt(master.fd()) != 0 ||
        ::ptsname_r(master.fd(), name, sizeof name) != 0) {
        pty.error = errno;
        return pty;
    }
    FileHandle slave(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!slave.valid()) {
        pty.error = errno;
        return pty;
    }
    pty.master = std::move(master);
    pty.slave = std::move(slave);
    return pty;
}

OutputPipe OutputPipe::open() {
    OutputPipe pipe;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        pipe.error = errno;
        return pipe;
    }
    // A larger pipe means fewer wake-ups when a tool prints a lot (log, diff); the system may
    // refuse, which only costs speed.
    ::fcntl(fds[0], F_SETPIPE_SZ, 1 << 20);
    pipe.readEnd.reset(fds[0]);
    pipe.writeEnd.reset(fds[1]);
    return pipe;
}

namespace {

std::atomic<bool> gMayStartSession{true};

pid_t runnerProcessGroup() {
    static pid_t group = [] {
        if (gMayStartSession.load()) {
            pid_t session = ::setsid();
            if (session != -1) {
                return session;
            }
        }
        return ::getpgrp();
    }();
    return group;
}

}  // namespace

void Process::setMayStartSession(bool may) {
    gMayStartSession.store(may);
}

struct Process::State {
    uv_process_t process{};
    uv_poll_t exitPoll{};
    FileHandle pidfd;
    pid_t pid = 0;
    uv_pipe_t out{};
    uv_pipe_t err{};
    bool outEnded = true;
    bool errEnded = true;
    bool exited = false;
    bool reported = false;
    int openHandles = 0;
    int64_t exitStatus = -1;
    int termSignal = 0;
    Callbacks callbacks;
    Process* owner = nullptr;
    std::shared_ptr<State> self;  // keeps the state alive until every handle is closed
    std::mutex ownerMutex;
    static constexpr std::size_t kBufferSize = 256 * 1024;

    void handleClosed() {
        if (--openHandles == 0) {
            self.reset();  // may destroy this object
        }
    }

    void maybeFinish() {
        if (reported || !exited || !outEnded || !errEnded) {
            return;
        }
        reported = true;
        {
            std::lock_guard<std::mutex> lock(ownerMutex);
            if (owner) {
                owner->running_.store(false);
            }
        }
        auto keep = self;  // the callback may release the owning Process
        // Dropped here so that what the callbacks hold is released with the run.
        Callbacks done = std::move(callbacks);
        callbacks = {};
        if (done.finished) {
            done.finished(exitStatus, termSignal);
        }
    }
};

namespace {

void onClose(uv_handle_t* handle) {
    static_cast<Process::State*>(handle->data)->handleClosed();
}

void onAlloc(uv_handle_t*, size_t, uv_buf_t* buf) {
    // One buffer per thread is enough: a loop reads one stream at a time and the data callbacks
    // copy what they keep before the next read.
    static thread_local std::unique_ptr<char[]> buffer(new char[Process::State::kBufferSize]);
    *buf = uv_buf_init(buffer.get(), Process::State::kBufferSize);
}

void onRead(uv_stream_t* stream, ssize_t nread, const uv_buf_t* buf) {
    auto* state = static_cast<Process::State*>(stream->data);
    bool isOut = stream == reinterpret_cast<uv_stream_t*>(&state->out);
    if (nread > 0) {
        auto& callback = isOut ? state->callbacks.stdoutData : state->callbacks.stderrData;
        if (callback) {
            callback(std::string_view(buf->base, static_cast<std::size_t>(nread)));
        }
        return;
    }
    if (nread == 0) {  // EAGAIN
        return;
    }
    uv_read_stop(stream);
    uv_close(reinterpret_cast<uv_handle_t*>(stream), onClose);
    (isOut ? state->outEnded : state->errEnded) = true;
    auto keep = state->self;
    state->maybeFinish();
}

void onExit(uv_process_t* process, int64_t exitStatus, int termSignal) {
    auto* state = static_cast<Process::State*>(process->data);
    state->exitStatus = exitStatus;
    state->termSignal = termSignal;
    state->exited = true;
    uv_close(reinterpret_cast<uv_handle_t*>(process), onClose);
    auto keep = state->self;
    state->maybeFinish();
}

}  // namespace

Process::Process() = default;

Process::~Process() {
    if (state_) {
        std::lock_guard<std::mutex> lock(state_->ownerMutex);
        state_->owner = nullptr;
    }
}

std::string Process::errorDescription(int uvError) {
    return uv_strerror(uvError);
}

namespace {

// posix_spawn starts a child without copying the parent's address space (libuv's uv_spawn forks,
// which costs more the more memory the program holds); a pidfd then tells the loop when the child
// has exited. Both need Linux 5.3; older kernels fall back to uv_spawn.
bool canUsePidfd() {
    static const bool supported = [] {
        int fd = static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0));
        if (fd < 0) {
            return false;
        }
        ::close(fd);
        return true;
    }();
    return supported;
}

void onPidfdReadable(uv_poll_t* handle, int, int) {
    auto* state = static_cast<Process::State*>(handle->data);
    int status = 0;
    while (::waitpid(state->pid, &status, 0) < 0 && errno == EINTR) {
    }
    state->exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    state->termSignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    state->exited = true;
    uv_poll_stop(handle);
    uv_close(reinterpret_cast<uv_handle_t*>(handle), onClose);
    auto keep = state->self;
    state->maybeFinish();
}

// The descriptor a child gets as standard input, output or error; -1 for the null device.
int childDescriptor(int fd, const OutputPipe* pipe) {
    return pipe ? pipe->writeEnd.fd() : fd;
}

}  // namespace

int Process::spawnWithPosixSpawn(uv_loop_s* loop, Options& options, char** argv, char** env,
                                 const std::shared_ptr<State>& state) {
    const int fds[3] = {options.stdinFd, childDescriptor(options.stdoutFd, options.stdoutPipe),
                        childDescriptor(-1, options.stderrPipe)};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int target = 0; target < 3; ++target) {
        if (fds[target] >= 0) {
            posix_spawn_file_actions_adddup2(&actions, fds[target], target);
        } else {
            posix_spawn_file_actions_addopen(&actions, target, "/dev/null",
                                             target == 0 ? O_RDONLY : O_WRONLY, 0);
        }
    }
    posix_spawn_file_actions_addchdir_np(&actions, options.workingDir.c_str());

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (options.joinRunnerProcessGroup) {
        // Set before exec, so there is no window in which the child is in another group.
        posix_spawnattr_setpgroup(&attributes, runnerProcessGroup());
        flags |= POSIX_SPAWN_SETPGROUP;
    }
    posix_spawnattr_setflags(&attributes, flags);

    pid_t pid = 0;
    int error = ::posix_spawn(&pid, options.executable.c_str(), &actions, &attributes, argv, env);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        return -error;  // libuv's error codes are negated errno values on Linux
    }
    int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0) {
        // Cannot happen once the probe succeeded; reap the child rather than leave it behind.
        int saved = errno;
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        return -saved;
    }
    state->pid = pid;
    state->pidfd.reset(pidfd);
    uv_poll_init(loop, &state->exitPoll, pidfd);
    state->exitPoll.data = state.get();
    uv_poll_start(&state->exitPoll, UV_READABLE, onPidfdReadable);
    return 0;
}

int Process::spawnWithLibuv(uv_loop_s* loop, Options& options, char** argv, char** env,
                            const std::shared_ptr<State>& state) {
    uv_stdio_container_t stdio[3];
    const int fds[3] = {options.stdinFd, childDescriptor(options.stdoutFd, options.stdoutPipe),
                        childDescriptor(-1, options.stderrPipe)};
    for (int target = 0; target < 3; ++target) {
        if (fds[target] >= 0) {
            stdio[target].flags = UV_INHERIT_FD;
            stdio[target].data.fd = fds[target];
        } else {
            stdio[target].flags = UV_IGNORE;
        }
    }
    uv_process_options_t uvOptions{};
    uvOptions.exit_cb = onExit;
    uvOptions.file = options.executable.c_str();
    uvOptions.args = argv;
    uvOptions.env = env;
    uvOptions.cwd = options.workingDir.c_str();
    uvOptions.stdio_count = 3;
    uvOptions.stdio = stdio;

    // Decided before the fork: a child made before our setsid() would be left in the old session,
    // where it cannot join the new group.
    pid_t group = options.joinRunnerProcessGroup ? runnerProcessGroup() : 0;
    state->process.data = state.get();
    int rc = uv_spawn(loop, &state->process, &uvOptions);
    if (rc != 0) {
        // A handle that failed to spawn must still be closed before its memory goes.
        state->self = state;
        state->openHandles = 1;
        state->reported = true;
        uv_close(reinterpret_cast<uv_handle_t*>(&state->process), onClose);
        return rc;
    }
    state->pid = state->process.pid;
    if (options.joinRunnerProcessGroup) {
        // May fail once the child has run exec; it then already shares our group.
        ::setpgid(state->process.pid, group);
    }
    return 0;
}

int Process::start(uv_loop_s* loop, Options& options, Callbacks callbacks) {
    auto state = std::make_shared<State>();
    state->callbacks = std::move(callbacks);
    state->owner = this;

    std::vector<std::string> envStrings;
    envStrings.reserve(options.environment.size());
    for (const auto& [key, value] : options.environment) {
        envStrings.push_back(key + "=" + value);
    }
    std::vector<char*> env;
    for (auto& s : envStrings) {
        env.push_back(s.data());
    }
    env.push_back(nullptr);
    std::vector<char*> argv;
    argv.push_back(options.executable.data());
    for (auto& a : options.args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);

    int rc = canUsePidfd() ? spawnWithPosixSpawn(loop, options, argv.data(), env.data(), state)
                           : spawnWithLibuv(loop, options, argv.data(), env.data(), state);
    if (rc != 0) {
        return rc;
    }
    state->self = state;
    state->openHandles = 1;  // the exit watcher
    pid_.store(state->pid);
    running_.store(true);

    auto attach = [&](uv_pipe_t& handle, OutputPipe* pipe, bool& ended) {
        if (!pipe) {
            return;
        }
        pipe->writeEnd.reset();
        uv_pipe_init(loop, &handle, 0);
        handle.data = state.get();
        ++state->openHandles;
        if (uv_pipe_open(&handle, pipe->readEnd.release()) != 0) {
            uv_close(reinterpret_cast<uv_handle_t*>(&handle), onClose);
            return;
        }
        ended = false;
        uv_read_start(reinterpret_cast<uv_stream_t*>(&handle), onAlloc, onRead);
    };
    attach(state->out, options.stdoutPipe, state->outEnded);
    attach(state->err, options.stderrPipe, state->errEnded);
    state_ = std::move(state);
    return 0;
}

int Process::runToCompletion(Options& options, Callbacks callbacks) {
    uv_loop_t loop;
    uv_loop_init(&loop);
    int rc = start(&loop, options, std::move(callbacks));
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
    return rc;
}

void Process::terminate() {
    pid_t pid = pid_.load();
    if (running_.load() && pid > 0) {
        ::kill(pid, SIGTERM);
    }
}

}  // namespace vn
