// Staging one changed line, as the diff view does it with the diff it already shows: the patch
// for the row written, applied to the index by `git apply --cached`, the notifications posted.
// Beside it the same `git apply --cached` of the same patch file run alone, which is the floor.
//
//   BM_StageOneLine/BigFile       one file of 100,000 lines with 200 changed lines
//   BM_StageOneLine/ManyFiles     100,000 files of 20 lines, one of them changed
//   BM_GitApplyAlone/...          the bare `git apply --cached` of that patch
//
// The repositories are made once under $TMPDIR (or /tmp) as varnel-staging-bench-*; delete them
// to start afresh. Each iteration takes the staged line out again outside the timing.

#include <benchmark/benchmark.h>

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

void BM_StageOneLine(benchmark::State& state) {
    Setup& setup = setupFor(static_cast<int>(state.range(0)));
    auto context = contextFor(setup);
    for (auto _ : state) {
        auto outcome = VNHunkActions::perform(VNHunkActions::Action::StageLines, context,
                                              *setup.file, *setup.hunk, {setup.row, 1});
        state.PauseTiming();
        if (outcome.state != VNHunkActions::State::Applied) {
            state.SkipWithError(outcome.message.c_str());
            break;
        }
        handler()->applyPatch(setup.path, outcome.patch, VNRepoHandlerBase::PatchTarget::Index,
                              true, vn::TextEncoding::UTF8, 0);
        state.ResumeTiming();
    }
    state.SetLabel(state.range(0) == 0 ? "BigFile" : "ManyFiles");
}

void BM_GitApplyAlone(benchmark::State& state) {
    Setup& setup = setupFor(static_cast<int>(state.range(0)));
    auto patch =
        vn::createPatchForHunkLinesInRange(*setup.file, *setup.hunk, {setup.row, 1}, true, false);
    std::string error;
    auto file =
        VNRepoHandlerBase::writePatchFile(patch.value_or(""), vn::TextEncoding::UTF8, error);
    for (auto _ : state) {
        bool applied = git(setup.path, {"apply", "--cached", *file});
        state.PauseTiming();
        if (!applied) {
            state.SkipWithError("git apply failed");
            break;
        }
        git(setup.path, {"apply", "--cached", "-R", *file});
        state.ResumeTiming();
    }
    std::remove(file->c_str());
    state.SetLabel(state.range(0) == 0 ? "BigFile" : "ManyFiles");
}

BENCHMARK(BM_StageOneLine)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GitApplyAlone)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

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
