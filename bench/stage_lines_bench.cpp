// Staging one changed line, as the diff view does it with the diff it already shows: the patch
// for the row written, applied to the index by `git apply --cached`, the notifications posted.
// Beside it the same `git apply --cached` of the same patch file run alone, which is the floor:
// the aim is a ratio close to 1.
//
//   BM_StageOneLine/0    one file of 100,000 lines with 200 changed lines
//   BM_StageOneLine/1    100,000 files of 20 lines, one of them changed
//
// The repositories are made once under $TMPDIR (or /tmp) as varnel-staging-bench-*; delete them
// to start afresh.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "handler/VNHunkActions.h"
#include "handler/VNTask.h"
#include "model/VNDiffModel.h"
#include "platform/FileSystem.h"
#include "support/BenchEnvironment.h"

namespace {

std::string baseFolder() {
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp");
}

std::shared_ptr<VNRepoHandlerGit> handler() {
    static auto shared = std::make_shared<VNRepoHandlerGit>();
    return shared;
}

bool git(const std::string& folder, std::vector<std::string> args) {
    auto task = VNTask::taskWithCommand(handler()->gitPath(), folder, std::move(args));
    if (!task->run()) {
        std::fprintf(stderr, "git failed: %s\n", task->errorOutput().c_str());
        return false;
    }
    return true;
}

std::string numbered(int from, int to, const char* stem) {
    std::string text;
    for (int i = from; i <= to; ++i) {
        text += stem + std::to_string(i) + "\n";
    }
    return text;
}

// A repository with `files` files of `lines` lines each, committed, and `changed` lines of the
// first file changed in the working copy.
std::string repository(const char* name, int files, int lines, int changed) {
    std::string path = vn::fs::appendPathComponent(baseFolder(), name);
    std::string marker = vn::fs::appendPathComponent(path, ".git/varnel-bench-ready");
    if (vn::fs::exists(marker)) {
        return path;
    }
    std::system(("rm -rf '" + path + "'").c_str());
    vn::fs::makeDirectories(path);
    git(path, {"init", "-q"});
    std::string content = numbered(1, lines, "line ");
    for (int i = 0; i < files; ++i) {
        std::string folder = vn::fs::appendPathComponent(path, "d" + std::to_string(i / 100));
        if (i % 100 == 0) {
            vn::fs::makeDirectories(folder);
        }
        vn::fs::writeFileAtomically(
            vn::fs::appendPathComponent(folder, "f" + std::to_string(i) + ".txt"), content);
    }
    git(path, {"add", "-A"});
    git(path, {"-c", "user.name=bench", "-c", "user.email=bench@example.com", "commit", "-q", "-m",
               "base"});
    std::string text = content;
    std::string edited;
    int step = lines / changed;
    int n = 0;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        std::string line = text.substr(start, end - start);
        ++n;
        edited += (n % step == step / 2 ? "changed " + line : line) + "\n";
        start = end + 1;
    }
    vn::fs::writeFileAtomically(vn::fs::appendPathComponent(path, "d0/f0.txt"), edited);
    vn::fs::writeFileAtomically(marker, "");
    return path;
}

struct Setup {
    std::string path;
    std::shared_ptr<VNDiffFileModel> file;
    std::shared_ptr<VNDiffHunkModel> hunk;
    std::size_t row = 0;
};

Setup prepare(const char* name, int files, int lines, int changed) {
    Setup setup;
    setup.path = repository(name, files, lines, changed);
    git(setup.path, {"reset", "-q"});
    auto task = handler()->fileDiffAgainstBaseTask(setup.path, {"d0/f0.txt"}, 0, 3);
    task->run();
    VNDiffFileList list;
    handler()->parseDiffToModel(task->output(), list, 20);
    setup.file = list.at(0);
    // The middle hunk's added line.
    setup.hunk = setup.file->hunks().at(setup.file->hunks().size() / 2);
    for (std::size_t i = 0; i < setup.hunk->lineCount(); ++i) {
        if (setup.hunk->lineAt(i).prefix == "+") {
            setup.row = i;
            break;
        }
    }
    return setup;
}

Setup& setupFor(int which) {
    static Setup big = prepare("varnel-staging-bench-100k-lines", 1, 100000, 200);
    static Setup many = prepare("varnel-staging-bench-100k-files", 100000, 20, 1);
    return which == 0 ? big : many;
}

VNHunkActions::Context contextFor(const Setup& setup) {
    VNHunkActions::Context context;
    context.repositoryPath = setup.path;
    context.handler = handler();
    context.confirmDiscard = false;
    return context;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Each iteration stages the line through the engine and applies the same patch with a bare
// `git apply --cached`, in alternating order so that the load of a shared machine falls on
// both alike; the staged line is taken out again between them, untimed. The iteration time is
// the engine's; the counters give both medians and the median of the pairs' ratios.
void BM_StageOneLine(benchmark::State& state) {
    Setup& setup = setupFor(static_cast<int>(state.range(0)));
    auto context = contextFor(setup);
    auto patch =
        vn::createPatchForHunkLinesInRange(*setup.file, *setup.hunk, {setup.row, 1}, true, false);
    std::string error;
    auto file =
        VNRepoHandlerBase::writePatchFile(patch.value_or(""), vn::TextEncoding::UTF8, error);
    auto unstage = [&] { git(setup.path, {"apply", "--cached", "-R", *file}); };
    using Clock = std::chrono::steady_clock;
    std::vector<double> engine, bare, ratios;
    bool engineFirst = true;
    for (auto _ : state) {
        double engineTime = 0, bareTime = 0;
        for (int turn = 0; turn < 2; ++turn) {
            bool runEngine = (turn == 0) == engineFirst;
            auto start = Clock::now();
            bool ok = runEngine ? VNHunkActions::perform(VNHunkActions::Action::StageLines, context,
                                                         *setup.file, *setup.hunk, {setup.row, 1})
                                          .state == VNHunkActions::State::Applied
                                : git(setup.path, {"apply", "--cached", *file});
            double seconds = std::chrono::duration<double>(Clock::now() - start).count();
            if (!ok) {
                state.SkipWithError("the line could not be staged");
                break;
            }
            (runEngine ? engineTime : bareTime) = seconds;
            unstage();
        }
        engineFirst = !engineFirst;
        state.SetIterationTime(engineTime);
        engine.push_back(engineTime * 1000);
        bare.push_back(bareTime * 1000);
        ratios.push_back(bareTime > 0 ? engineTime / bareTime : 0);
    }
    std::remove(file->c_str());
    state.counters["engine_ms"] = median(engine);
    state.counters["git_apply_ms"] = median(bare);
    state.counters["ratio"] = median(ratios);
    state.SetLabel(state.range(0) == 0 ? "100,000-line file" : "100,000 files");
}

BENCHMARK(BM_StageOneLine)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(15);

}  // namespace

int main(int argc, char** argv) {
    if (!vn::bench::isolateEnvironment()) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    vn::bench::removeScratchFolder();
    return 0;
}
