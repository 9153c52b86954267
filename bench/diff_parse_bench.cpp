// Throughput of the unified diff parser on large diffs held in memory, and what parsing adds to
// the time of the `git diff` run that produces the text.
//
//   BM_ParseGeneratedDiff      ~128 MB of generated diff: many files, many hunks, some long and
//                              non-ASCII lines; with the Git hooks (pointer scan) and without
//   BM_ParseRevisionPieces     the same text cut into revisions by the separator
//   BM_ParseRealGitDiff        the diff real git writes for a generated repository (~100 MB)
//   BM_GitDiff / BM_GitDiffAndParse
//                              that `git diff`, as the Git handler prepares it, read through
//                              VNTask, without and with parsing
//   BM_GitDiffProcess          the same git, its output going to /dev/null
//   BM_VrnlDiffJson / BM_VrnlDiffForPeople
//                              `vrnl diff --json` and `vrnl diff` of the same change
//   BM_VrnlDiffJsonOfPatch     `vrnl diff --patch-file --json` of that diff saved as a file
//
// Run a single family with --benchmark_filter, for example 'Parse' or 'Git|Vrnl'.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "model/VNDiffParser.h"
#include "platform/FileSystem.h"
#include "platform/Process.h"
#include "support/BenchEnvironment.h"

namespace {

using vn::bench::isolateEnvironment;
using vn::bench::scratchFolder;

constexpr std::size_t kGeneratedBytes = 128u << 20;
constexpr int kRepositoryFiles = 10000;
constexpr int kLinesPerFile = 400;
constexpr uint64_t kNoLimit = ~uint64_t{0};

std::string codeLine(std::mt19937& random, int n) {
    static const char* words[] = {"value", "count", "parser", "buffer", "index",  "résumé",
                                  "token", "state", "naïve",  "offset", "length", "日本語"};
    // Appended piece by piece: "text" + string chains draw a false -Wrestrict from g++ 12 -O3.
    std::string line = "    auto ";
    line.append(words[random() % 12]).append("_").append(std::to_string(n));
    line.append(" = compute(").append(words[random() % 12]).append(", ");
    line.append(words[random() % 12]).append(", ").append(std::to_string(random() % 100000));
    line.append(");  // ").append(words[random() % 12]);
    return line;
}

void appendLine(std::string& out, char prefix, const std::string& text) {
    out.push_back(prefix);
    out.append(text);
    out.push_back('\n');
}

// A diff shaped like git's: headers, hunks of three context lines around changes, and now and
// then a line longer than the cut or a missing final newline.
const std::string& generatedDiff() {
    static const std::string text = [] {
        std::string out;
        out.reserve(kGeneratedBytes + (1 << 20));
        std::mt19937 random(42);
        for (int file = 0; out.size() < kGeneratedBytes; ++file) {
            std::string name = "src/module";
            name.append(std::to_string(file % 97)).append("/file");
            name.append(std::to_string(file)).append(".cpp");
            out.append("diff --git a/").append(name).append(" b/").append(name).append("\n");
            out.append("index 1a2b3c4..5d6e7f8 100644\n--- a/").append(name);
            out.append("\n+++ b/").append(name).append("\n");
            int line = 1;
            int hunks = 5 + static_cast<int>(random() % 40);
            for (int hunk = 0; hunk < hunks; ++hunk) {
                line += 10 + static_cast<int>(random() % 50);
                out.append("@@ -").append(std::to_string(line)).append(",7 +");
                out.append(std::to_string(line)).append(",8 @@ void function");
                out.append(std::to_string(hunk)).append("()\n");
                for (int i = 0; i < 3; ++i) {
                    appendLine(out, ' ', codeLine(random, line + i));
                }
                appendLine(out, '-', codeLine(random, line + 3));
                appendLine(out, '+', codeLine(random, line + 3));
                if (random() % 2000 == 0) {
                    appendLine(out, '+', std::string(12000, 'x'));
                } else {
                    appendLine(out, '+', codeLine(random, line + 4));
                }
                for (int i = 0; i < 3; ++i) {
                    appendLine(out, ' ', codeLine(random, line + 4 + i));
                }
            }
            if (file % 50 == 0) {
                out.append("\\ No newline at end of file\n");
            }
        }
        return out;
    }();
    return text;
}

void parseBenchmark(benchmark::State& state, const std::string& text, const VNDiffParser& parser,
                    bool pieces) {
    std::size_t files = 0;
    for (auto _ : state) {
        VNDiffModel model;
        if (pieces) {
            parser.parseDiffsToModel(text, model.fileEntries(), kNoLimit);
        } else {
            parser.parseDiffToModel(text, model.fileEntries(), kNoLimit);
        }
        files = model.fileEntries().size();
        benchmark::DoNotOptimize(files);
        // Freeing the model is not parsing.
        state.PauseTiming();
        model.fileEntries().clear();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.counters["MB"] = static_cast<double>(text.size()) / 1e6;
    state.counters["files"] = static_cast<double>(files);
}

void BM_ParseGeneratedDiff(benchmark::State& state) {
    bool gitHooks = state.range(0) != 0;
    state.SetLabel(gitHooks ? "Git hooks" : "no hooks");
    parseBenchmark(state, generatedDiff(), gitHooks ? VNDiffParser::git() : VNDiffParser(), false);
}
BENCHMARK(BM_ParseGeneratedDiff)
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(5);

void BM_ParseRevisionPieces(benchmark::State& state) {
    static const std::string text = [] {
        const std::string& diff = generatedDiff();
        std::string out;
        out.reserve(diff.size() + (1 << 20));
        std::size_t from = 0;
        for (int revision = 0; from < diff.size(); ++revision) {
            std::size_t next = diff.find("\ndiff --git", from + 200000);
            next = next == std::string::npos ? diff.size() : next + 1;
            char header[64];
            std::snprintf(header, sizeof header, "%07x Revision %d\n", revision * 7919, revision);
            out += std::string(VNDiffParser::RevisionSeparator) + header;
            out.append(diff, from, next - from);
            from = next;
        }
        return out;
    }();
    parseBenchmark(state, text, VNDiffParser::git(), true);
}
BENCHMARK(BM_ParseRevisionPieces)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5);

std::shared_ptr<VNTask> git(const std::string& folder, std::vector<std::string> args) {
    static const std::string executable = vn::fs::findExecutable("git").value_or("git");
    args.insert(args.begin(), {"-c", "core.quotepath=false", "-c", "color.diff=false"});
    auto task = VNTask::taskWithCommand(executable, folder, std::move(args));
    task->run();
    return task;
}

// A repository whose working copy changes one line in twenty of every file: `git diff` in it
// writes about 100 MB.
const std::string& repository() {
    static const std::string folder = []() -> std::string {
        std::string path = scratchFolder() + "/repo";
        std::filesystem::create_directories(path);
        if (!git(path, {"init", "-q"})->success()) {
            return "";
        }
        std::mt19937 random(7);
        std::vector<std::vector<std::string>> contents(kRepositoryFiles);
        auto writeAll = [&] {
            for (int file = 0; file < kRepositoryFiles; ++file) {
                std::string text;
                for (const std::string& line : contents[file]) {
                    text.append(line).push_back('\n');
                }
                std::string name = path + "/dir" + std::to_string(file % 40);
                std::filesystem::create_directories(name);
                vn::fs::writeFileAtomically(name + "/file " + std::to_string(file) + ".txt", text);
            }
        };
        for (int file = 0; file < kRepositoryFiles; ++file) {
            for (int line = 0; line < kLinesPerFile; ++line) {
                contents[file].push_back(codeLine(random, line));
            }
        }
        writeAll();
        if (!git(path, {"add", "-A"})->success() ||
            !git(path, {"commit", "-q", "-m", "base"})->success()) {
            return "";
        }
        for (auto& lines : contents) {
            for (std::size_t line = random() % 20; line < lines.size(); line += 20) {
                lines[line] = codeLine(random, static_cast<int>(line) + 1);
            }
        }
        writeAll();
        return path;
    }();
    return folder;
}

VNRepoHandlerGit& handler() {
    static const auto shared = std::make_shared<VNRepoHandlerGit>();
    return *shared;
}

// What `vrnl diff` runs for the working copy's unstaged changes.
std::shared_ptr<VNTask> gitDiffTask(const std::string& pipeTo = "") {
    auto task = handler().fileDiffAgainstBaseTask(repository(), {}, 0, 3);
    if (pipeTo.empty()) {
        return task;
    }
    return VNTask::taskWithCommand(task->command(), task->workingDir(), task->args(), pipeTo);
}

const std::string& realGitDiff() {
    static const std::string text = [] {
        if (repository().empty()) {
            return std::string();
        }
        auto task = gitDiffTask();
        return task->run() ? task->output() : std::string();
    }();
    return text;
}

void BM_ParseRealGitDiff(benchmark::State& state) {
    if (realGitDiff().empty()) {
        state.SkipWithError("could not make the repository");
        return;
    }
    parseBenchmark(state, realGitDiff(), VNDiffParser::git(), false);
}
BENCHMARK(BM_ParseRealGitDiff)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5);

// The diff command as `vrnl diff` runs it, its output read into the task; then, with `parse`,
// read into the model by the handler.
void gitDiffBenchmark(benchmark::State& state, bool parse) {
    if (realGitDiff().empty()) {
        state.SkipWithError("could not make the repository");
        return;
    }
    std::size_t bytes = 0;
    for (auto _ : state) {
        auto task = gitDiffTask();
        task->run();
        bytes = task->output().size();
        if (parse) {
            VNDiffModel model;
            handler().parseDiffToModel(task->output(), model.fileEntries(), kNoLimit);
            benchmark::DoNotOptimize(model.fileEntries().size());
            state.PauseTiming();
            model.fileEntries().clear();
            state.ResumeTiming();
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void BM_GitDiff(benchmark::State& state) {
    gitDiffBenchmark(state, false);
}
BENCHMARK(BM_GitDiff)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10);

void BM_GitDiffAndParse(benchmark::State& state) {
    gitDiffBenchmark(state, true);
}
BENCHMARK(BM_GitDiffAndParse)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10);

// Whole processes, their output written to /dev/null: git with the arguments vrnl gives it, and
// vrnl itself, which runs that git, parses its text and writes the model.
void BM_GitDiffProcess(benchmark::State& state) {
    if (realGitDiff().empty()) {
        state.SkipWithError("could not make the repository");
        return;
    }
    for (auto _ : state) {
        if (!gitDiffTask("/dev/null")->run()) {
            state.SkipWithError("git diff failed");
            return;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * realGitDiff().size()));
}
BENCHMARK(BM_GitDiffProcess)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10);

std::string vrnlPath() {
    std::error_code ec;
    return (std::filesystem::read_symlink("/proc/self/exe", ec).parent_path() / "vrnl").string();
}

void vrnlBenchmark(benchmark::State& state, const std::vector<std::string>& args) {
    if (realGitDiff().empty() || !vn::fs::isExecutableFile(vrnlPath())) {
        state.SkipWithError("no vrnl beside the benchmark, or no diff");
        return;
    }
    for (auto _ : state) {
        auto task = VNTask::taskWithCommand(vrnlPath(), scratchFolder(), args, "/dev/null");
        if (!task->run()) {
            state.SkipWithError("vrnl diff failed");
            return;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * realGitDiff().size()));
}

void BM_VrnlDiffJson(benchmark::State& state) {
    vrnlBenchmark(state, {"diff", repository(), "--json"});
}
BENCHMARK(BM_VrnlDiffJson)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10);

void BM_VrnlDiffForPeople(benchmark::State& state) {
    vrnlBenchmark(state, {"diff", repository()});
}
BENCHMARK(BM_VrnlDiffForPeople)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10);

// `vrnl diff --patch-file --json` of the same diff saved as a file: no git run at all.
void BM_VrnlDiffJsonOfPatch(benchmark::State& state) {
    std::string patch = scratchFolder() + "/real.patch";
    if (realGitDiff().empty() || !vn::fs::writeFileAtomically(patch, realGitDiff())) {
        state.SkipWithError("no diff");
        return;
    }
    vrnlBenchmark(state, {"diff", "--patch-file", patch, "--json"});
}
BENCHMARK(BM_VrnlDiffJsonOfPatch)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(10);

// Keeps the mean time of each run so that the closing lines can compare two of them.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (!run.error_occurred && run.iterations > 0) {
                seconds_[run.benchmark_name()] =
                    run.GetAdjustedRealTime() * benchmark::GetTimeUnitMultiplier(run.time_unit);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatio(const char* what, const std::string& a, const std::string& b) const {
        auto x = seconds_.find(a), y = seconds_.find(b);
        if (x != seconds_.end() && y != seconds_.end() && y->second > 0) {
            std::printf("%s: %.2f\n", what, x->second / y->second);
        }
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
    reporter.printRatio("git diff read and parsed / git diff read",
                        "BM_GitDiffAndParse/min_time:10.000/real_time",
                        "BM_GitDiff/min_time:10.000/real_time");
    reporter.printRatio("vrnl diff --json / git diff, whole processes",
                        "BM_VrnlDiffJson/min_time:10.000/real_time",
                        "BM_GitDiffProcess/min_time:10.000/real_time");
    reporter.printRatio("vrnl diff / git diff, whole processes",
                        "BM_VrnlDiffForPeople/min_time:10.000/real_time",
                        "BM_GitDiffProcess/min_time:10.000/real_time");
    reporter.printRatio("vrnl diff --patch-file --json / git diff, whole processes",
                        "BM_VrnlDiffJsonOfPatch/min_time:10.000/real_time",
                        "BM_GitDiffProcess/min_time:10.000/real_time");
    benchmark::Shutdown();
    vn::bench::removeScratchFolder();
    return 0;
}
