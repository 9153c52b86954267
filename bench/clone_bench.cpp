// How soon a clone of a large repository ($VARNEL_GIT_GIT_REPO) shows progress, and how soon a
// cancel has it gone with no folder left behind. Two sources: the plain path, which git clones
// by linking the objects and then spends its time checking files out, and a file:// URL, for
// which git packs the objects as it would for a server.

#include <benchmark/benchmark.h>

#include <cctype>
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

// A line of git's progress with a number in it ("Updating files:  3% (150/4847)",
// "remote: Enumerating objects: 49153"), not a plain message such as "Cloning into ...".
bool hasCountedProgress(const std::string& text) {
    for (std::size_t colon = text.find(": "); colon != std::string::npos;
         colon = text.find(": ", colon + 1)) {
        std::size_t at = text.find_first_not_of(' ', colon + 1);
        if (at != std::string::npos && std::isdigit(static_cast<unsigned char>(text[at]))) {
            return true;
        }
    }
    return false;
}

void BM_CloneFirstProgressThenCancel(benchmark::State& state) {
    const char* source = std::getenv("VARNEL_GIT_GIT_REPO");
    if (!source || !vn::fs::isDirectory(source)) {
        state.SkipWithError("VARNEL_GIT_GIT_REPO names no repository");
        return;
    }
    bool overURL = state.range(0) == 1;
    state.SetLabel(overURL ? "file:// URL" : "local path");
    auto handler = std::make_shared<VNRepoHandlerGit>();
    vn::MainLoop& loop = vn::MainLoop::createMain();
    double firstOutput = 0, firstCount = 0, cancel = 0;
    int run = 0;
    for (auto _ : state) {
        std::string destination = vn::bench::scratchFolder() + "/clone" + std::to_string(run++);
        auto task = handler->cloneTaskForSource(
            overURL ? std::string("file://") + source : std::string(source), destination,
            vn::Record{{"clonegetworkingcopy", true}, {"cloneVerbose", true}});
        bool anything = false, counting = false, completed = false;
        std::string seen;
        Clock::time_point start = Clock::now(), sawAnything, sawCount;
        auto& center = vn::NotificationCenter::defaultCenter();
        auto onError = center.addObserver(VNTask::ErrorOutputReceivedNotification, task.get(),
                                          [&](const auto&) {
                                              seen += task->newErrorOutput();
                                              if (!anything) {
                                                  anything = true;
                                                  sawAnything = Clock::now();
                                              }
                                              if (!counting && hasCountedProgress(seen)) {
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
    ->Arg(0)
    ->Arg(1)
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
