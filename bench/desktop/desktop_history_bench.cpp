// Measures the repository window on a large history (git.git by default): the window painted,
// the first 1,000 rows painted, the whole history loaded against a plain git log of the same
// format, the memory the whole history takes, the 95th percentile of a full-window repaint while
// scrolling. The diff view's figures on a 500,000-line diff come from diff_view_bench.
//
//   desktop_history_bench [REPOSITORY] [--runs N] [--scroll-only]
//
// --scroll-only measures the repaints alone; VARNEL_BENCH_STEPS=1 prints every scrolling step.
//
// The repository is cloned into the scratch folder first (the window runs git status, which may
// refresh the index), so the one given is never written to.

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QScrollBar>
#include <QTimer>

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "desktop/VNHistoryModel.h"
#include "desktop/VNHistoryView.h"
#include "desktop/VNMainLoopBridge.h"
#include "desktop/VNRepoWindow.h"
#include "desktop/VNTheme.h"
#include "git/VNGitLogParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/BenchEnvironment.h"

using namespace vn::desktop;

namespace {

double residentMegabytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stod(line.substr(6)) / 1024.0;
        }
    }
    return 0;
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    if (done()) {
        return true;
    }
    QEventLoop loop;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &loop, [&] {
        if (done()) {
            loop.quit();
        }
    });
    check.start(1);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    return done();
}

// Milliseconds of processor time the calling thread has used: apart from what other processes on
// a busy machine take from it.
double threadCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    if (values.empty()) {
        return 0;
    }
    auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

struct Run {
    double painted = 0;
    double firstThousand = 0;
    double whole = 0;
    int rows = 0;
};

Run openOnce(const std::string& path) {
    Run run;
    QElapsedTimer clock;
    clock.start();
    VNRepoWindow window(std::make_shared<VNRepoHandlerGit>(), path);
    window.resize(1400, 900);
    window.show();
    window.repaint();
    run.painted = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    VNHistoryModel* model = window.historyModel();
    std::vector<std::pair<double, int>> batches;
    auto connection = QObject::connect(model, &VNHistoryModel::rowsArrived, [&](int total) {
        batches.emplace_back(static_cast<double>(clock.nsecsElapsed()) / 1e6, total);
    });
    waitUntil([&] { return model->rowCount() >= 1000 || !model->isLoading(); }, 120000);
    QObject::disconnect(connection);
    if (std::getenv("VARNEL_BENCH_BATCHES")) {
        for (const auto& [at, total] : batches) {
            std::fprintf(stderr, "batch at %.1f ms: %d rows\n", at, total);
        }
    }
    window.historyView()->viewport()->repaint();
    run.firstThousand = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    waitUntil([&] { return !model->isLoading(); }, 600000);
    run.whole = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    run.rows = model->rowCount();
    window.close();
    return run;
}

// How long plain git log takes to print its first 1,000 rows in the same format.
double plainGitLogFirstThousand(const std::string& path) {
    QElapsedTimer clock;
    clock.start();
    auto task = VNTask::taskWithCommand(
        "/bin/sh", path,
        {"-c",
         "git log --branches --tags --remotes --full-history \"$1\" --decorate=full "
         "--date=iso HEAD -- | head -n 1000 > /dev/null",
         "sh", VNGitLogParser::logFormatArgument(false)});
    task->run();
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

double plainGitLog(const std::string& path) {
    std::vector<std::string> args = {"log",
                                     "--branches",
                                     "--tags",
                                     "--remotes",
                                     "--full-history",
                                     VNGitLogParser::logFormatArgument(false),
                                     "--decorate=full",
                                     "--date=iso",
                                     "HEAD",
                                     "--"};
    QElapsedTimer clock;
    clock.start();
    auto task = VNTask::taskWithCommand(vn::fs::findExecutable("git").value_or("git"), path, args);
    task->run();
    if (!task->success()) {
        std::cerr << "git log failed: " << task->errorOutput() << "\n";
    }
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    std::string source;
    int runs = 3;
    bool scrollOnly = false;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (word == "--scroll-only") {
            scrollOnly = true;
        } else if (word == "--runs" && i + 1 < argc) {
            runs = std::max(1, std::atoi(argv[++i]));
        } else {
            source = word;
        }
    }
    if (source.empty()) {
        const char* fromEnv = std::getenv("VARNEL_GIT_GIT_REPO");
        source = fromEnv ? fromEnv : "/work/benchrepos/git";
    }
    if (!vn::bench::isolateEnvironment()) {
        return 1;
    }
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    auto* bridge = new VNMainLoopBridge(&app);
    (void)bridge;
    VNTheme::apply(VNTheme::Kind::Light, false);

    std::string clone = vn::bench::scratchFolder() + "/repository";
    auto cloneTask = VNTask::taskWithCommand(vn::fs::findExecutable("git").value_or("git"),
                                             vn::bench::scratchFolder(),
                                             {"clone", "--quiet", "--local", source, clone});
    if (!cloneTask->run()) {
        std::cerr << "cannot clone " << source << ": " << cloneTask->errorOutput() << "\n";
        return 1;
    }

    const double baseline = residentMegabytes();
    // Memory and scrolling with the whole history held, in the first window of the process.
    VNRepoWindow window(std::make_shared<VNRepoHandlerGit>(), clone);
    window.resize(1400, 900);
    window.show();
    waitUntil([&] { return !window.historyModel()->isLoading(); }, 600000);
    QApplication::processEvents();
    const double loadedMemory = residentMegabytes();
    std::vector<double> viewportRepaints;
    std::vector<double> repaintCpu;
    QScrollBar* bar = window.historyView()->verticalScrollBar();
    std::vector<double> repaints;
    for (int step = 0; step < 300; ++step) {
        // Pages down through the first part of the history, then jumps through the rest.
        int value =
            step < 200 ? bar->value() + bar->pageStep() : bar->maximum() / 100 * (step - 200);
        bar->setValue(std::min(value, bar->maximum()));
        QElapsedTimer clock;
        double cpu = threadCpuMs();
        clock.start();
        window.repaint();
        repaints.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
        repaintCpu.push_back(threadCpuMs() - cpu);
        clock.restart();
        window.historyView()->viewport()->repaint();
        viewportRepaints.push_back(static_cast<double>(clock.nsecsElapsed()) / 1e6);
    }
    if (std::getenv("VARNEL_BENCH_STEPS")) {
        for (std::size_t i = 0; i < repaints.size(); ++i) {
            std::fprintf(stderr, "step %3zu: %7.2f ms, %7.2f ms processor, history %7.2f ms\n", i,
                         repaints[i], repaintCpu[i], viewportRepaints[i]);
        }
    }
    window.close();
    if (scrollOnly) {
        std::printf("full-window repaint, scrolling  %8.2f ms p95, %.2f ms median (aim <= 16)\n",
                    percentile(repaints, 0.95), median(repaints));
        std::printf("  the same in processor time    %8.2f ms p95, %.2f ms median\n",
                    percentile(repaintCpu, 0.95), median(repaintCpu));
        std::printf("history viewport repaint        %8.2f ms p95, %.2f ms median\n",
                    percentile(viewportRepaints, 0.95), median(viewportRepaints));
        vn::bench::removeScratchFolder();
        return 0;
    }

    // A cold first run fills the caches (git's and the system's); the figures are of warm runs.
    openOnce(clone);
    std::vector<double> painted, thousand, whole, gitLog, gitThousand;
    int rows = 0;
    for (int i = 0; i < runs; ++i) {
        Run run = openOnce(clone);
        painted.push_back(run.painted);
        thousand.push_back(run.firstThousand);
        whole.push_back(run.whole);
        rows = run.rows;
        gitLog.push_back(plainGitLog(clone));
        gitThousand.push_back(plainGitLogFirstThousand(clone));
    }

    std::printf("repository                      %s (%d rows with the working copy)\n",
                source.c_str(), rows);
    std::printf("window painted                  %8.1f ms (median of %d warm runs; aim <= 100)\n",
                median(painted), runs);
    std::printf(
        "first 1,000 rows painted        %8.1f ms (aim <= 250; git log's own first 1,000 "
        "lines: %.1f ms)\n",
        median(thousand), median(gitThousand));
    std::printf("whole history loaded            %8.1f ms\n", median(whole));
    std::printf("plain git log, same format      %8.1f ms (ratio %.2f; aim <= 1.5)\n",
                median(gitLog), median(whole) / median(gitLog));
    std::printf("memory, whole history           %8.1f MB resident (%.1f MB before; aim <= 300)\n",
                loadedMemory, baseline);
    std::printf(
        "full-window repaint, scrolling  %8.2f ms p95, %.2f ms median, %.2f ms max "
        "(aim <= 16)\n",
        percentile(repaints, 0.95), median(repaints),
        *std::max_element(repaints.begin(), repaints.end()));
    std::printf("  the same in processor time    %8.2f ms p95, %.2f ms median\n",
                percentile(repaintCpu, 0.95), median(repaintCpu));
    std::printf("history viewport repaint        %8.2f ms p95, %.2f ms median\n",
                percentile(viewportRepaints, 0.95), median(viewportRepaints));
    vn::bench::removeScratchFolder();
    return 0;
}
