// The desktop diff view on a 500,000-line diff: how long until it is painted, what a repaint
// costs while scrolling, and the memory the view adds to the parsed diff.
//
//   BM_DiffViewMemory/<hunk>     heap in use (glibc's count, exact unlike the resident size)
//                                for the diff text, the parsed diff, and what a shown view adds
//   BM_ParseDiff/<hunk>          the engine's parse of the diff text (for comparison)
//   BM_DiffViewShow/<hunk>       setDiff on a shown view and its first full paint
//   BM_DiffViewScrollRepaint     one full repaint of the list after a jump to another place
//
// The diff is one file of 500,000 body lines, in one hunk or in hunks of 100 lines (<hunk> is
// the lines per hunk), with
// context, removed and added lines, some with tabs and trailing blanks.

#include <QApplication>
#include <QListView>
#include <QScrollBar>

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdlib.h>

#include <random>
#include <string>

#include "desktop/VNDiffLineModel.h"
#include "desktop/VNDiffView.h"
#include "git/VNRepoHandlerGit.h"
#include "model/VNDiffModel.h"
#include "support/BenchEnvironment.h"

namespace {

constexpr int kLines = 500000;

std::string generatedDiff(int linesPerHunk) {
    std::mt19937 random(7);
    std::string text =
        "diff --git a/big.c b/big.c\nindex 1111111..2222222 100644\n"
        "--- a/big.c\n+++ b/big.c\n";
    int before = 1;
    int after = 1;
    for (int done = 0; done < kLines; done += linesPerHunk) {
        int count = std::min(linesPerHunk, kLines - done);
        std::string body;
        int removed = 0;
        int added = 0;
        for (int i = 0; i < count; ++i) {
            unsigned kind = random() % 4;
            char prefix = kind == 0 ? '-' : kind == 1 ? '+' : ' ';
            removed += prefix != '+';
            added += prefix != '-';
            body.push_back(prefix);
            if (i % 7 == 0) {
                body.push_back('\t');
            }
            body.append("    value_").append(std::to_string(done + i));
            body.append(" = compute(state, ").append(std::to_string(random() % 100000));
            body.append(");");
            if (i % 11 == 0) {
                body.append("   ");
            }
            body.push_back('\n');
        }
        text.append("@@ -")
            .append(std::to_string(before))
            .append(",")
            .append(std::to_string(removed));
        text.append(" +").append(std::to_string(after)).append(",").append(std::to_string(added));
        text.append(" @@\n").append(body);
        before += removed + 3;
        after += added + 3;
    }
    return text;
}

std::shared_ptr<VNDiffModel> parse(const std::string& text) {
    static VNRepoHandlerGit handler;
    auto diff = std::make_shared<VNDiffModel>();
    handler.parseDiffToModel(text, diff->fileEntries(), 20);
    return diff;
}

double heapMB() {
    struct mallinfo2 info = mallinfo2();
    // Large blocks are mapped on their own and counted apart.
    return static_cast<double>(info.uordblks + info.hblkhd) / 1048576.0;
}

void paintNow(VNDiffView& view) {
    view.listView()->viewport()->repaint();
    QApplication::processEvents();
}

void BM_DiffViewMemory(benchmark::State& state) {
    for (auto _ : state) {
        double start = heapMB();
        std::string text = generatedDiff(static_cast<int>(state.range(0)));
        double afterText = heapMB();
        auto diff = parse(text);
        double afterParse = heapMB();
        auto view = std::make_unique<VNDiffView>();
        view->resize(1200, 900);
        view->show();
        QApplication::processEvents();
        double emptyView = heapMB();
        view->setDiff(diff);
        paintNow(*view);
        double shown = heapMB();
        state.counters["text_MB"] = afterText - start;
        state.counters["parsed_MB"] = afterParse - afterText;
        state.counters["view_adds_MB"] = shown - emptyView;
    }
}
BENCHMARK(BM_DiffViewMemory)->Arg(kLines)->Arg(100)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_ParseDiff(benchmark::State& state) {
    std::string text = generatedDiff(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(parse(text));
    }
    state.counters["lines"] = kLines;
}
BENCHMARK(BM_ParseDiff)->Arg(kLines)->Arg(100)->Unit(benchmark::kMillisecond);

void BM_DiffViewShow(benchmark::State& state) {
    auto diff = parse(generatedDiff(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        VNDiffView view;
        view.resize(1200, 900);
        view.show();
        QApplication::processEvents();
        auto begin = std::chrono::steady_clock::now();
        view.setDiff(diff);
        paintNow(view);
        auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
        benchmark::DoNotOptimize(view.lineModel()->rowCount());
    }
    state.counters["rows"] = static_cast<double>(diff->fileEntries()[0]->hunks().size() + kLines);
}
BENCHMARK(BM_DiffViewShow)->Arg(kLines)->Arg(100)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_DiffViewScrollRepaint(benchmark::State& state) {
    auto diff = parse(generatedDiff(100));
    VNDiffView view;
    view.resize(1200, 900);
    view.show();
    view.setDiff(diff);
    paintNow(view);
    QScrollBar* bar = view.listView()->verticalScrollBar();
    std::mt19937 random(3);
    for (auto _ : state) {
        bar->setValue(static_cast<int>(random() % static_cast<unsigned>(bar->maximum() + 1)));
        paintNow(view);
    }
}
BENCHMARK(BM_DiffViewScrollRepaint)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    vn::bench::isolateEnvironment();
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    vn::bench::removeScratchFolder();
    return 0;
}
