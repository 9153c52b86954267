// The commit-graph layout on a wide synthetic history (many branches alive at once, merges
// between them), laid out page by page as the history view does, and the layout's share of the
// time to produce one page of 1,000 rows from a real repository.
//
//   BM_LayoutWideHistory        1,000,000 rows in pages of 10,000, each continuing the last
//   BM_LayoutTwoHundredLanes    1,000,000 revisions with 200 branches alive at once, laid out
//                               from their ids and parents, rows dropped as they are done
//   BM_HeldTwoHundredLanes      the first 100,000 of them, every row held: memory per row
//   BM_PageFromRepository       one page of 1,000 rows through the history listing (needs the
//                               repository that log_bench generates; skipped without it)
//   BM_LayoutOfThatPage         the layout of the same 1,000 rows alone

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "git/VNRepoHandlerGit.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogGraphLayout.h"
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

// Revisions newest first: 200 branches grown round-robin from one root, each commit on its branch's
// tip, every 50th a merge of the neighbouring branch (which goes on), so that 200 lanes stay
// alive throughout.
struct Revision {
    std::string rev;
    std::vector<std::string> parents;
};

std::vector<Revision> twoHundredLanes(std::size_t count) {
    constexpr std::size_t branches = 200;
    std::vector<Revision> oldestFirst;
    oldestFirst.reserve(count);
    oldestFirst.push_back({"root", {}});
    std::vector<std::string> tip(branches, "root");
    for (std::size_t i = 1; i < count; ++i) {
        std::size_t branch = i % branches;
        // Hash-like ids of git's length, so that comparisons cost what they cost on real ones.
        char id[41];
        std::snprintf(id, sizeof id, "%08zx%032zx", i * 2654435761u % 0xFFFFFFFFu, i);
        Revision revision{id, {tip[branch]}};
        if (i % 50 == 0) {
            revision.parents.push_back(tip[(branch + 1) % branches]);
        }
        tip[branch] = revision.rev;
        oldestFirst.push_back(std::move(revision));
    }
    return {std::make_move_iterator(oldestFirst.rbegin()),
            std::make_move_iterator(oldestFirst.rend())};
}

void BM_LayoutTwoHundredLanes(benchmark::State& state) {
    const std::vector<Revision> history = twoHundredLanes(kRows);
    std::vector<std::string_view> parents;
    std::size_t lanes = 0;
    for (auto _ : state) {
        VNLogGraphLayout layout;
        for (const Revision& revision : history) {
            parents.assign(revision.parents.begin(), revision.parents.end());
            layout.addRevision(revision.rev, parents);
        }
        lanes = layout.state()->lineColumns.size();
    }
    state.counters["rows_per_second"] = benchmark::Counter(
        static_cast<double>(kRows), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["lines_in_last_row"] = static_cast<double>(lanes);
}
BENCHMARK(BM_LayoutTwoHundredLanes)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_HeldTwoHundredLanes(benchmark::State& state) {
    constexpr std::size_t held = 100'000;
    const std::vector<Revision> history = twoHundredLanes(held);
    std::vector<std::string_view> parents;
    double bytesPerRow = 0, linesPerRow = 0;
    for (auto _ : state) {
        std::vector<std::shared_ptr<const VNLogGraphEntry>> rows;
        rows.reserve(held);
        std::size_t before = mallinfo2().uordblks;
        VNLogGraphLayout layout;
        std::size_t lines = 0;
        for (const Revision& revision : history) {
            parents.assign(revision.parents.begin(), revision.parents.end());
            rows.push_back(layout.addRevision(revision.rev, parents));
            lines += rows.back()->lineColumns.size();
        }
        bytesPerRow = static_cast<double>(mallinfo2().uordblks - before) / held;
        linesPerRow = static_cast<double>(lines) / held;
    }
    state.counters["rows_per_second"] = benchmark::Counter(
        static_cast<double>(held), benchmark::Counter::kIsIterationInvariantRate);
    state.counters["bytes_per_row"] = bytesPerRow;
    state.counters["lines_per_row"] = linesPerRow;
    // What every row holding its own copy of each segment would take.
    state.counters["unshared_bytes_per_row"] = linesPerRow * sizeof(VNLogGraphEntryLine);
}
BENCHMARK(BM_HeldTwoHundredLanes)->Unit(benchmark::kMillisecond)->Iterations(1);

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
