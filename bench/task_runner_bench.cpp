// The cost of running a program through VNTask, against the least a caller could do with the
// same result: posix_spawn, the child's output through pipes read to their end, waitpid.
//
// The baselines call posix_spawn directly on purpose: they are the yardstick for the one process
// wrapper, so they must not go through it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "handler/VNTask.h"
#include "platform/Process.h"
#include "support/BenchEnvironment.h"

extern char** environ;

namespace {

using vn::bench::isolateEnvironment;
using vn::bench::scratchFolder;

constexpr std::size_t kOutputBytes = 200'000'000;

// A text file of numbered lines, made once and shared by every run that reads it.
const std::string& outputFile() {
    static const std::string path = [] {
        std::string file = scratchFolder() + "/output.txt";
        FILE* out = std::fopen(file.c_str(), "w");
        if (!out) {
            return std::string();
        }
        std::vector<char> block;
        block.reserve(1 << 20);
        std::size_t written = 0;
        char line[128];
        for (std::size_t n = 0; written < kOutputBytes; ++n) {
            int length = std::snprintf(
                line, sizeof line, "%09zu commit %016zx Author Name <author@example.com> %s\n", n,
                n * 2654435761u, n % 3 ? "Fix the parser" : "Merge branch 'topic'");
            std::size_t take = std::min<std::size_t>(length, kOutputBytes - written);
            if (take < static_cast<std::size_t>(length)) {
                line[take - 1] = '\n';
            }
            block.insert(block.end(), line, line + take);
            written += take;
            if (block.size() >= (1 << 20) - sizeof line || written == kOutputBytes) {
                std::fwrite(block.data(), 1, block.size(), out);
                block.clear();
            }
        }
        return std::fclose(out) == 0 ? file : std::string();
    }();
    return path;
}

// Runs `argv` with standard input from the null device and standard output and error to pipes
// that are read to their end, as VNTask does; answers the number of bytes read, or -1. Standard
// output is appended to `keep` when given, and discarded otherwise.
int64_t spawnAndDrain(const std::vector<std::string>& argv, const char* workingDir,
                      std::string* keep = nullptr) {
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        return -1;
    }
    if (::pipe2(err, O_CLOEXEC) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addchdir_np(&actions, workingDir);
    std::vector<char*> args;
    for (const std::string& a : argv) {
        args.push_back(const_cast<char*>(a.c_str()));
    }
    args.push_back(nullptr);
    pid_t pid = 0;
    int rc = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    int64_t total = 0;
    if (rc == 0) {
        static char buffer[256 * 1024];
        pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
        int open = 2;
        while (open > 0) {
            if (::poll(fds, 2, -1) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                total = -1;
                break;
            }
            for (pollfd& p : fds) {
                if (p.fd < 0 || p.revents == 0) {
                    continue;
                }
                ssize_t n = ::read(p.fd, buffer, sizeof buffer);
                if (n > 0) {
                    total += n;
                    if (keep && p.fd == out[0]) {
                        keep->append(buffer, static_cast<std::size_t>(n));
                    }
                } else if (n == 0 || errno != EINTR) {
                    p.fd = -1;
                    --open;
                }
            }
        }
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            total = -1;
        }
    } else {
        total = -1;
    }
    ::close(out[0]);
    ::close(err[0]);
    return total;
}

void BM_TrueThroughVNTask(benchmark::State& state) {
    for (auto _ : state) {
        if (!VNTask::taskWithCommand("/bin/true", "/tmp", {})->run()) {
            state.SkipWithError("/bin/true failed through VNTask");
            break;
        }
    }
}
BENCHMARK(BM_TrueThroughVNTask)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_TrueThroughPosixSpawn(benchmark::State& state) {
    const std::vector<std::string> argv = {"/bin/true"};
    for (auto _ : state) {
        if (spawnAndDrain(argv, "/tmp") != 0) {
            state.SkipWithError("/bin/true failed through posix_spawn");
            break;
        }
    }
}
BENCHMARK(BM_TrueThroughPosixSpawn)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_CatThroughVNTask(benchmark::State& state) {
    const std::string& file = outputFile();
    if (file.empty()) {
        state.SkipWithError("could not write the output file");
        return;
    }
    for (auto _ : state) {
        auto task = VNTask::taskWithCommand("/bin/cat", "/tmp", {file});
        if (!task->run() || task->output().size() != kOutputBytes) {
            state.SkipWithError("cat through VNTask failed or lost output");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kOutputBytes));
}
BENCHMARK(BM_CatThroughVNTask)->UseRealTime()->Unit(benchmark::kMillisecond);

// The baseline: one cat, its output through a pipe that this process reads and discards.
void BM_CatThroughPosixSpawn(benchmark::State& state) {
    const std::string& file = outputFile();
    if (file.empty()) {
        state.SkipWithError("could not write the output file");
        return;
    }
    const std::vector<std::string> argv = {"/bin/cat", file};
    for (auto _ : state) {
        if (spawnAndDrain(argv, "/tmp") != static_cast<int64_t>(kOutputBytes)) {
            state.SkipWithError("cat through posix_spawn failed or lost output");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kOutputBytes));
}
BENCHMARK(BM_CatThroughPosixSpawn)->UseRealTime()->Unit(benchmark::kMillisecond);

// For reference only: the least a caller that keeps the whole output in one string pays, so that
// VNTask's own overhead can be told apart from the cost of holding 200 MB in fresh memory.
void BM_CatIntoString(benchmark::State& state) {
    const std::string& file = outputFile();
    if (file.empty()) {
        state.SkipWithError("could not write the output file");
        return;
    }
    const std::vector<std::string> argv = {"/bin/cat", file};
    for (auto _ : state) {
        std::string output;
        if (spawnAndDrain(argv, "/tmp", &output) != static_cast<int64_t>(kOutputBytes) ||
            output.size() != kOutputBytes) {
            state.SkipWithError("cat into a string failed or lost output");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kOutputBytes));
}
BENCHMARK(BM_CatIntoString)->UseRealTime()->Unit(benchmark::kMillisecond);

// For reference only: a shell and a second cat move the bytes, so nothing reaches this process.
void BM_CatPipedToDevNull(benchmark::State& state) {
    const std::string& file = outputFile();
    if (file.empty()) {
        state.SkipWithError("could not write the output file");
        return;
    }
    const std::vector<std::string> argv = {"/bin/sh", "-c", "cat \"$1\" | cat >/dev/null", "sh",
                                           file};
    for (auto _ : state) {
        if (spawnAndDrain(argv, "/tmp") != 0) {
            state.SkipWithError("the cat pipeline failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kOutputBytes));
}
BENCHMARK(BM_CatPipedToDevNull)->UseRealTime()->Unit(benchmark::kMillisecond);

// The console report, plus the time per run of each benchmark (the median when repeated) so
// that the ratios can be printed at the end.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& reports) override {
        for (const Run& run : reports) {
            if (run.error_occurred || run.iterations == 0) {
                continue;
            }
            bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (single || median) {
                seconds_[run.run_name.function_name] =
                    run.real_accumulated_time / static_cast<double>(run.iterations);
            }
        }
        ConsoleReporter::ReportRuns(reports);
    }

    void printRatio(const char* label, const char* measured, const char* baseline,
                    double aim) const {
        auto m = seconds_.find(measured);
        auto b = seconds_.find(baseline);
        if (m == seconds_.end() || b == seconds_.end() || b->second <= 0) {
            return;
        }
        std::printf("%-48s %6.2fx  (aim: at most %.1fx)\n", label, m->second / b->second, aim);
    }

  private:
    std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    if (!isolateEnvironment()) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    reporter.printRatio("/bin/true: VNTask / posix_spawn", "BM_TrueThroughVNTask",
                        "BM_TrueThroughPosixSpawn", 1.2);
    reporter.printRatio("200 MB of output: VNTask / posix_spawn cat", "BM_CatThroughVNTask",
                        "BM_CatThroughPosixSpawn", 1.5);
    reporter.printRatio("200 MB of output: VNTask / cat into a string", "BM_CatThroughVNTask",
                        "BM_CatIntoString", 1.5);
    benchmark::Shutdown();
    vn::bench::removeScratchFolder();
    return 0;
}
