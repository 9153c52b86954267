// The Git status listing on a working copy of 100,000 tracked files, about 3% of them modified,
// a thousand untracked and two hundred ignored. Each benchmark runs two ways of getting a listing
// in pairs, alternating which goes first, so that the load of a shared machine falls on both
// alike; it reports each side's median wall-clock and CPU time (this process and the git
// processes it waited for) and the median of the pairs' ratios.
//
//   BM_RefreshVsPlainStatus        what a refresh asks for, the summary and the default file list
//                                  together (fileStatusAndSummary), against one plain
//                                  `git status --porcelain --untracked-files=all`, on a second
//                                  working copy of 100,000 files with 300 changes (200 modified,
//                                  100 untracked)
//   BM_DefaultMaskVsPlainStatus    fileStatus with the mask 766 (the status parsed into records)
//                                  against `git status --porcelain --untracked-files=all` through
//                                  VNTask with the same arguments, its output not read
//   BM_WithCleanVsOneAfterAnother  the mask 767 (status and tracked files side by side) against
//                                  the same two listings one after the other, merged the same way
//   BM_EverythingVsOneAfterAnother the mask 1023 (all three listings) likewise
//   BM_ParseDefaultStatus          the reading of that status's text into records alone, with
//   / ...WithoutDisk               and without the check of modified paths for submodule folders
//
// The working copies are made once under $TMPDIR (or /tmp) as varnel-status-bench-100k and
// varnel-status-bench-100k-300 and reused; delete them to start afresh.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "git/VNGitStatusParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Process.h"
#include "support/BenchEnvironment.h"

namespace {

using vn::bench::isolateEnvironment;
using vn::bench::scratchFolder;

constexpr int kFolders = 1000;
constexpr int kFilesPerFolder = 100;  // 100,000 tracked files
constexpr int kIgnored = 200;
constexpr const char* kReadyMarker = "varnel-bench-ready-v1";

// How a working copy differs from its commit.
struct Changes {
    const char* name;
    int modifiedEvery;
    int untracked;
};
constexpr Changes kManyChanges = {"varnel-status-bench-100k", 33, 1000};  // ~3% modified
constexpr Changes kFewChanges = {"varnel-status-bench-100k-300", 500, 100};

std::string baseFolder() {
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp");
}

std::shared_ptr<VNRepoHandlerGit> handler() {
    static auto shared = std::make_shared<VNRepoHandlerGit>();
    return shared;
}

bool git(const std::string& folder, const std::vector<std::string>& args) {
    auto all = handler()->defaultArgsForPath(folder, args.front());
    all.insert(all.end(), args.begin() + 1, args.end());
    auto task = VNTask::taskWithCommand(handler()->gitPath(), folder, std::move(all));
    if (!task->run()) {
        std::fprintf(stderr, "git %s failed: %s\n", args.front().c_str(),
                     task->errorOutput().c_str());
        return false;
    }
    return true;
}

void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string fileName(int folder, int file) {
    char name[64];
    std::snprintf(name, sizeof name, "d%04d/file%03d.txt", folder, file);
    return name;
}

// Made once: committing 100,000 files takes a while.
std::string makeWorkingCopy(const Changes& changes) {
    std::string folder = baseFolder() + "/" + changes.name;
    if (vn::fs::exists(folder + "/.git/" + kReadyMarker)) {
        return folder;
    }
    std::error_code ec;
    std::filesystem::remove_all(folder, ec);
    std::filesystem::create_directories(folder);
    std::fprintf(stderr, "Making the 100,000-file working copy in %s ...\n", folder.c_str());
    for (int d = 0; d < kFolders; ++d) {
        std::filesystem::create_directories(folder + "/" + fileName(d, 0).substr(0, 5));
        for (int f = 0; f < kFilesPerFolder; ++f) {
            write(folder + "/" + fileName(d, f),
                  "file " + std::to_string(d * kFilesPerFolder + f) + "\nsecond line\n");
        }
    }
    write(folder + "/.gitignore", "*.o\n");
    // No automatic repacking in the background while the benchmarks run.
    if (!git(folder, {"init", "-q"}) || !git(folder, {"config", "gc.auto", "0"}) ||
        !git(folder, {"add", "-A"}) || !git(folder, {"commit", "-q", "-m", "100,000 files"})) {
        return std::string();
    }
    int index = 0;
    for (int d = 0; d < kFolders; ++d) {
        for (int f = 0; f < kFilesPerFolder; ++f, ++index) {
            if (index % changes.modifiedEvery == 0) {
                write(folder + "/" + fileName(d, f), "changed " + std::to_string(index) + "\n");
            }
        }
    }
    for (int i = 0; i < changes.untracked; ++i) {
        write(folder + "/" + fileName(i % kFolders, 0).substr(0, 5) + "/new" + std::to_string(i) +
                  ".txt",
              "new\n");
    }
    for (int i = 0; i < kIgnored; ++i) {
        write(folder + "/" + fileName(i * 5 % kFolders, 0).substr(0, 5) + "/build" +
                  std::to_string(i) + ".o",
              "object\n");
    }
    // Refreshes the index's file times so that every later status sees the same work.
    git(folder, {"status", "--porcelain"});
    write(folder + "/.git/" + kReadyMarker, "ready\n");
    return folder;
}

const std::string& workingCopy() {
    static const std::string path = makeWorkingCopy(kManyChanges);
    return path;
}

const std::string& fewChangesCopy() {
    static const std::string path = makeWorkingCopy(kFewChanges);
    return path;
}

std::shared_ptr<VNTask> listingTask(const std::string& command,
                                    const std::vector<std::string>& words,
                                    const std::string& path = workingCopy()) {
    auto args = handler()->defaultArgsForPath(path, command);
    args.insert(args.end(), words.begin(), words.end());
    return VNTask::taskWithCommand(handler()->gitPath(), path, std::move(args));
}

const std::vector<std::string> kStatusWords = {"--porcelain", "--ignore-submodules=dirty",
                                               "--untracked-files=all"};

bool plainStatus() {
    auto task = listingTask("status", kStatusWords);
    bool ok = task->run();
    benchmark::DoNotOptimize(task->output().size());
    return ok;
}

// `git status --porcelain --untracked-files=all` as a person would type it.
bool plainStatusOfFewChanges() {
    const std::string& path = fewChangesCopy();
    auto task = VNTask::taskWithCommand(handler()->gitPath(), path,
                                        {"status", "--porcelain", "--untracked-files=all"});
    bool ok = task->run();
    benchmark::DoNotOptimize(task->output().size());
    return ok;
}

bool refreshOfFewChanges() {
    auto both = handler()->fileStatusAndSummary(fewChangesCopy(), VNFileStatusDefaultMask);
    return !both.summary.empty() && !both.files.empty();
}

std::function<bool()> fileStatus(uint64_t mask) {
    return [mask] { return !handler()->fileStatus(workingCopy(), mask).empty(); };
}

// The listings one after another, merged exactly as fileStatus merges them.
std::function<bool()> oneAfterAnother(uint64_t mask) {
    return [mask] {
        const std::string& path = workingCopy();
        auto status = listingTask("status", kStatusWords);
        auto tracked = listingTask("ls-files", {"--cached"});
        auto ignored = listingTask("ls-files", {"-o", "--ignored", "--exclude-standard"});
        if (!status->run() || !tracked->run() || ((mask & 256) && !ignored->run())) {
            return false;
        }
        std::optional<std::string_view> ignoredText;
        if (mask & 256) {
            ignoredText = ignored->output();
        }
        auto isFolder = [&path](const std::string& relative) {
            return vn::fs::isDirectory(path + "/" + relative);
        };
        return !VNGitStatusParser::fileStatusRecords(status->output(), tracked->output(),
                                                     ignoredText, mask, isFolder)
                    .empty();
    };
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    std::size_t n = values.size();
    return n == 0 ? 0 : n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// User and system time of this process and of the children it has waited for, in seconds.
double cpuSeconds() {
    double total = 0;
    for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage;
        getrusage(who, &usage);
        for (const timeval& t : {usage.ru_utime, usage.ru_stime}) {
            total += double(t.tv_sec) + double(t.tv_usec) / 1e6;
        }
    }
    return total;
}

void paired(benchmark::State& state, const std::function<bool()>& first,
            const std::function<bool()>& second,
            const std::function<const std::string&()>& copy = workingCopy) {
    if (copy().empty()) {
        state.SkipWithError("the working copy could not be made");
        return;
    }
    struct Times {
        std::vector<double> wall;
        std::vector<double> cpu;
    };
    auto timed = [](const std::function<bool()>& work, Times& times) {
        double cpuStart = cpuSeconds();
        auto start = std::chrono::steady_clock::now();
        bool ok = work();
        times.wall.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        times.cpu.push_back(cpuSeconds() - cpuStart);
        return ok;
    };
    Times firstTimes;
    Times secondTimes;
    bool firstGoesFirst = true;
    for (auto _ : state) {
        bool ok = firstGoesFirst ? timed(first, firstTimes) && timed(second, secondTimes)
                                 : timed(second, secondTimes) && timed(first, firstTimes);
        if (!ok) {
            state.SkipWithError("a listing failed");
            return;
        }
        firstGoesFirst = !firstGoesFirst;
    }
    std::vector<double> ratios;
    std::vector<double> cpuRatios;
    for (std::size_t i = 0; i < firstTimes.wall.size(); ++i) {
        ratios.push_back(firstTimes.wall[i] / secondTimes.wall[i]);
        cpuRatios.push_back(firstTimes.cpu[i] / secondTimes.cpu[i]);
    }
    state.counters["ours_ms"] = median(firstTimes.wall) * 1e3;
    state.counters["other_ms"] = median(secondTimes.wall) * 1e3;
    state.counters["ratio"] = median(ratios);
    state.counters["ours_cpu_ms"] = median(firstTimes.cpu) * 1e3;
    state.counters["other_cpu_ms"] = median(secondTimes.cpu) * 1e3;
    state.counters["cpu_ratio"] = median(cpuRatios);
}

void BM_DefaultMaskVsPlainStatus(benchmark::State& state) {
    paired(state, fileStatus(766), plainStatus);
}

void BM_RefreshVsPlainStatus(benchmark::State& state) {
    paired(state, refreshOfFewChanges, plainStatusOfFewChanges, fewChangesCopy);
}

void BM_WithCleanVsOneAfterAnother(benchmark::State& state) {
    paired(state, fileStatus(767), oneAfterAnother(767));
}

void BM_EverythingVsOneAfterAnother(benchmark::State& state) {
    paired(state, fileStatus(1023), oneAfterAnother(1023));
}

// What fileStatus adds to the status run for the mask 766: reading the lines into records,
// with (as fileStatus does) and without the look at the disk for each modified path that tells
// submodule folders from files.
void parseDefaultStatus(benchmark::State& state, bool lookAtDisk) {
    auto task = listingTask("status", kStatusWords);
    if (workingCopy().empty() || !task->run()) {
        state.SkipWithError("git status failed");
        return;
    }
    const std::string& path = workingCopy();
    std::function<bool(const std::string&)> isFolder;
    if (lookAtDisk) {
        isFolder = [&path](const std::string& relative) {
            std::error_code error;
            return std::filesystem::is_directory(std::filesystem::symlink_status(
                vn::fs::appendPathComponent(path, relative), error));
        };
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(VNGitStatusParser::fileStatusRecords(
            task->output(), std::optional<std::string_view>(), std::nullopt, 766, isFolder));
    }
    state.counters["lines"] = static_cast<double>(VNGitStatusParser::lines(task->output()).size());
}

void BM_ParseDefaultStatus(benchmark::State& state) {
    parseDefaultStatus(state, true);
}

void BM_ParseDefaultStatusWithoutDisk(benchmark::State& state) {
    parseDefaultStatus(state, false);
}

BENCHMARK(BM_ParseDefaultStatus)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseDefaultStatusWithoutDisk)->Unit(benchmark::kMillisecond);

BENCHMARK(BM_DefaultMaskVsPlainStatus)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(40);
BENCHMARK(BM_RefreshVsPlainStatus)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(40);
BENCHMARK(BM_WithCleanVsOneAfterAnother)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(20);
BENCHMARK(BM_EverythingVsOneAfterAnother)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(20);

// Keeps each benchmark's pair figures for the closing lines.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    using ConsoleReporter::ConsoleReporter;

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (!run.error_occurred) {
                auto counter = [&run](const char* name) {
                    auto it = run.counters.find(name);
                    return it == run.counters.end() ? 0.0 : double(it->second);
                };
                figures_[run.run_name.function_name] = {counter("ours_ms"), counter("other_ms"),
                                                        counter("ratio"), counter("cpu_ratio")};
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatio(const char* what, const std::string& name) const {
        auto it = figures_.find(name);
        if (it != figures_.end()) {
            const auto& [ours, other, ratio, cpuRatio] = it->second;
            std::printf("%-52s %7.1f ms / %7.1f ms, median ratio %.3f, CPU %.3f\n", what, ours,
                        other, ratio, cpuRatio);
        }
    }

  private:
    std::map<std::string, std::tuple<double, double, double, double>> figures_;
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
    RatioReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nMedians of the pairs:\n");
    reporter.printRatio("fileStatus 766 / plain git status", "BM_DefaultMaskVsPlainStatus");
    reporter.printRatio("summary and files / plain git status (300 changes)",
                        "BM_RefreshVsPlainStatus");
    reporter.printRatio("fileStatus 767 side by side / one after another",
                        "BM_WithCleanVsOneAfterAnother");
    reporter.printRatio("fileStatus 1023 side by side / one after another",
                        "BM_EverythingVsOneAfterAnother");
    benchmark::Shutdown();
    vn::bench::removeScratchFolder();
    return 0;
}
