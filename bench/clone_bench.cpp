// How soon a clone of a large repository ($VARNEL_GIT_GIT_REPO, over file:// so that git packs
// objects as it would for a server) shows progress, and how soon a cancel has it gone with no
// folder left behind.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "git/VNRepoHandlerGit.h"
#include "platform/FileSystem.h"
#include "platform/MainLoop.h"
#include "platform/NotificationCenter.h"
#include "support/BenchEnvironment.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

void BM_CloneFirstProgressThenCancel(benchmark::State& state) {
    const char* source = std::getenv("VARNEL_GIT_GIT_REPO");
    if (!source || !vn::fs::isDirectory(source)) {
        state.SkipWithError("VARNEL_GIT_GIT_REPO names no repository");
        return;
    }
    auto handler = std::make_shared<VNRepoHandlerGit>();
    vn::MainLoop& loop = vn::MainLoop::createMain();
    double firstOutput = 0, firstCount = 0, cancel = 0;
    int run = 0;
    for (auto _ : state) {
        std::string destination = vn::bench::scratchFolder() + "/clone" + std::to_string(run++);
        auto task = handler->cloneTaskForSource(
            std::string("file://") + source, destination,
            vn::Record{{"clonegetworkingcopy", true}, {"cloneVerbose", true}});
        bool anything = false, counting = false, completed = false;
        Clock::time_point start = Clock::now(), sawAnything, sawCount;
        auto& center = vn::NotificationCenter::defaultCenter();
        auto onError = center.addObserver(
            VNTask::ErrorOutputReceivedNotification, task.get(), [&](const auto&) {
                std::string text = task->newErrorOutput();
                if (!anything) {
                    anything = true;
                    sawAnything = Clock::now();
                }
                if (!counting && text.find("objects") != std::string::npos) {
                    counting = true;
                    sawCount = Clock::now();
                }
            });
        auto onDone = center.addObserver(VNTask::CompletedNotification, task.get(),
                                         [&](const auto&) { completed = true; });
        task->launch();
        loop.runUntil([&] { return counting || completed; }, 300);
        Clock::time_point cancelled = Clock::now();
        task->terminate();
        loop.runUntil([&] { return completed; }, 300);
        VNRepoHandlerGit::discardIncompleteClone(destination, false);
        Clock::time_point gone = Clock::now();
        state.SetIterationTime(seconds(sawCount - start));
        firstOutput += seconds(sawAnything - start);
        firstCount += seconds(sawCount - start);
        cancel += seconds(gone - cancelled);
        if (!counting || vn::fs::exists(destination)) {
            state.SkipWithError("no progress, or the clone left its folder");
            return;
        }
    }
    state.counters["first_message_s"] = benchmark::Counter(firstOutput / run);
    state.counters["first_count_s"] = benchmark::Counter(firstCount / run);
    state.counters["cancel_to_gone_s"] = benchmark::Counter(cancel / run);
}
BENCHMARK(BM_CloneFirstProgressThenCancel)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    if (!vn::bench::isolateEnvironment()) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    vn::bench::removeScratchFolder();
    return 0;
}
