// The commit-graph layout on a wide synthetic history (many branches alive at once, merges
// between them), laid out page by page as the history view does, and the layout's share of the
// time to produce one page of 1,000 rows from a real repository.
//
//   BM_LayoutWideHistory        1,000,000 rows in pages of 10,000, each continuing the last
//   BM_PageFromRepository       one page of 1,000 rows through the history listing (needs the
//                               repository that log_bench generates; skipped without it)
//   BM_LayoutOfThatPage         the layout of the same 1,000 rows alone

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogRowData.h"
#include "platform/Process.h"

namespace {

constexpr int kBranches = 24;
constexpr std::size_t kRows = 1'000'000;
constexpr std::size_t kPage = 10'000;

// Rows newest first: round-robin commits on each branch, every 40th commit a merge of the
// neighbouring branch, all branches grown from one root.
std::vector<vn::Record> wideHistory(std::size_t count) {
    struct Commit {
        std::string rev, p1, p2;
    };
    std::vector<Commit> oldestFirst;
    oldestFirst.reserve(count);
    oldestFirst.push_back({"root", "", ""});
    std::vector<std::string> tip(kBranches, "root");
    for (std::size_t i = 1; i < count; ++i) {
        int branch = static_cast<int>(i % kBranches);
        std::string rev = "c" + std::to_string(i);
        std::string p2;
        if (i % 40 == 0) {
            p2 = tip[(branch + 1) % kBranches];
        }
        oldestFirst.push_back({rev, tip[branch], p2});
        tip[branch] = rev;
    }
    std::vector<vn::Record> rows;
    rows.reserve(count);
    for (auto it = oldestFirst.rbegin(); it != oldestFirst.rend(); ++it) {
        vn::Record row{{"rev", it->rev}, {"parentid1", it->p1}};
        if (!it->p2.empty()) {
            row.set("parentid2", it->p2);
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

void BM_LayoutWideHistory(benchmark::State& state) {
    const std::vector<vn::Record> history = wideHistory(kRows);
    std::size_t maxLanes = 0;
    for (auto _ : state) {
        std::shared_ptr<const VNLogGraphEntry> base;
        for (std::size_t start = 0; start < history.size(); start += kPage) {
            state.PauseTiming();
            std::vector<vn::Record> page(
                history.begin() + static_cast<std::ptrdiff_t>(start),
                history.begin() + static_cast<std::ptrdiff_t>(std::min(start + kPage, kRows)));
            state.ResumeTiming();
            vn::graph::addGraphInfoToLogRevisions(page, base, false);
            base = page.back()["graph"].objectAs<VNLogGraphEntry>();
            maxLanes = std::max(maxLanes, base->lineColumns.size());
        }
    }
    state.counters["rows_per_second"] = benchmark::Counter(
        static_cast<double>(kRows), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["lines_in_last_row"] = static_cast<double>(maxLanes);
}
BENCHMARK(BM_LayoutWideHistory)->Unit(benchmark::kMillisecond)->Iterations(1);

std::string repository() {
    const char* folder = std::getenv("VARNEL_LOG_BENCH_DIR");
    return std::string(folder && *folder ? folder : "/tmp/varnel-log-bench") + "/repo";
}

void BM_PageFromRepository(benchmark::State& state) {
    if (!std::filesystem::exists(repository())) {
        state.SkipWithError("no generated repository; run log_bench first");
        return;
    }
    auto handler = std::make_shared<VNRepoHandlerGit>();
    for (auto _ : state) {
        VNLogRowData page;
        page.setLimit(1000);
        handler->fillLogPage(repository(), page);
        benchmark::DoNotOptimize(page.logRows().size());
    }
}
BENCHMARK(BM_PageFromRepository)->Unit(benchmark::kMillisecond);

void BM_LayoutOfThatPage(benchmark::State& state) {
    if (!std::filesystem::exists(repository())) {
        state.SkipWithError("no generated repository; run log_bench first");
        return;
    }
    auto handler = std::make_shared<VNRepoHandlerGit>();
    VNLogRowData page;
    page.setLimit(1000);
    handler->fillLogPage(repository(), page);
    for (auto _ : state) {
        std::vector<vn::Record> rows = page.logRows();
        vn::graph::addGraphInfoToLogRevisions(rows, nullptr, false);
        benchmark::DoNotOptimize(rows.size());
    }
}
BENCHMARK(BM_LayoutOfThatPage)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    vn::Process::setMayStartSession(false);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
