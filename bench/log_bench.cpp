// The history listing on a large generated history (200,000 commits with merges, branches and
// tags), against the plain `git log` it runs, and the log parser on text held in memory.
//
//   BM_FirstPage/Varnel, BM_FirstPage/GitLog   the first 1,000 rows
//   BM_DeepPage/Varnel, BM_DeepPage/GitLog     1,000 rows after skipping 100,000
//   BM_ParseLog                                rows per second and bytes held per row
//
// The `git log` runs go through VNTask with the argument vector the handler builds, so both
// sides pay for starting git and reading its output; the difference is what the listing adds
// (the ahead/behind listing beside it, decoding and parsing).
//
// The repository is generated once with `git fast-import` under $VARNEL_LOG_BENCH_DIR (default
// /tmp/varnel-log-bench) and reused by later runs.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "git/VNGitLogParser.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Process.h"

namespace {

constexpr int kBlocks = 20000;  // ten commits each: four on a side branch, five on main, a merge
constexpr int kCommits = kBlocks * 10;
constexpr uint64_t kPage = 1000;
constexpr uint64_t kDeepSkip = 100000;

std::string benchFolder() {
    const char* folder = std::getenv("VARNEL_LOG_BENCH_DIR");
    return folder && *folder ? folder : "/tmp/varnel-log-bench";
}

std::string repositoryPath() {
    return benchFolder() + "/repo";
}

void isolateEnvironment() {
    std::string root = benchFolder();
    for (const auto& [variable, name] :
         {std::pair{"HOME", "home"}, std::pair{"XDG_CONFIG_HOME", "config"},
          std::pair{"XDG_DATA_HOME", "data"}}) {
        std::string path = root + "/" + name;
        std::filesystem::create_directories(path);
        ::setenv(variable, path.c_str(), 1);
    }
    ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    vn::Process::setMayStartSession(false);
}

void appendData(std::string& stream, const std::string& data) {
    stream += "data " + std::to_string(data.size()) + "\n" + data + "\n";
}

// A fast-import stream: blocks of a four-commit side branch and five main commits, the side
// branch then merged; a release branch every 1,000 blocks and a tag every 250.
std::string fastImportStream() {
    std::string stream;
    stream.reserve(kCommits * 260u);
    int mark = 0;
    long time = 1262304000;  // 2010-01-01
    static const char* people[] = {"Ann Author <ann@example.com>", "Bo Builder <bo@example.com>",
                                   "Cy Coder <cy@example.com>",
                                   "J\xC3\xB6rg M\xC3\xBCller <jm@example.com>"};
    auto commit = [&](const std::string& ref, int from, int merge, const std::string& subject) {
        ++mark;
        time += 97;
        stream += "commit " + ref + "\nmark :" + std::to_string(mark) + "\n";
        std::string person = people[mark % 4];
        stream += "author " + person + " " + std::to_string(time - 3600) + " +0000\n";
        stream += "committer " + person + " " + std::to_string(time) + " +0000\n";
        appendData(stream, subject + "\n\nBody of commit " + std::to_string(mark) + ".\n");
        if (from > 0) {
            stream += "from :" + std::to_string(from) + "\n";
        }
        if (merge > 0) {
            stream += "merge :" + std::to_string(merge) + "\n";
        }
        stream += "M 100644 inline src/module" + std::to_string(mark % 97) + ".txt\n";
        appendData(stream, "line " + std::to_string(mark) + "\n");
        return mark;
    };
    int mainTip = 0;
    std::vector<int> mainMarks;
    for (int block = 0; block < kBlocks; ++block) {
        int side = 0;
        for (int i = 0; i < 4; ++i) {
            side = commit("refs/heads/topic", i == 0 ? mainTip : side, 0,
                          "Improve the parser of module " + std::to_string(mark % 97) +
                              " for request #" + std::to_string(block));
        }
        for (int i = 0; i < 5; ++i) {
            mainTip =
                commit("refs/heads/main", mainTip, 0,
                       "Fix the handling of case " + std::to_string(mark) + " in the scheduler");
            mainMarks.push_back(mainTip);
        }
        mainTip = commit("refs/heads/main", mainTip, side,
                         "Merge branch 'topic' for request #" + std::to_string(block));
        if (block % 250 == 249) {
            stream += "reset refs/tags/v" + std::to_string(block / 250) +
                      "\nfrom :" + std::to_string(mainTip) + "\n\n";
        }
        if (block % 1000 == 999) {
            stream += "reset refs/heads/release/" + std::to_string(block / 1000) +
                      "\nfrom :" + std::to_string(mainTip) + "\n\n";
        }
    }
    // The upstream of main, a few commits behind it as after a day's work.
    stream +=
        "reset refs/remotes/origin/main\nfrom :" + std::to_string(mainMarks[mainMarks.size() - 3]) +
        "\n\n";
    return stream;
}

bool generateRepository() {
    std::string repo = repositoryPath();
    std::string marker = benchFolder() + "/generated-" + std::to_string(kCommits);
    if (vn::fs::exists(marker) && vn::fs::isDirectory(repo + "/.git")) {
        return true;
    }
    std::filesystem::remove_all(repo);
    std::filesystem::create_directories(repo);
    std::string git = vn::fs::findExecutable("git").value_or("/usr/bin/git");
    auto init = VNTask::taskWithCommand(git, repo, {"init", "-q", "-b", "main"});
    if (!init->run()) {
        std::fprintf(stderr, "git init failed: %s\n", init->errorOutput().c_str());
        return false;
    }
    std::string streamFile = benchFolder() + "/import.stream";
    {
        std::ofstream out(streamFile, std::ios::binary);
        out << fastImportStream();
    }
    std::fprintf(stderr, "Generating %d commits in %s ...\n", kCommits, repo.c_str());
    // fast-import reads its standard input; a shell gives it the file.
    auto import = VNTask::taskWithCommand(
        "/bin/sh", repo, {"-c", "exec \"$0\" fast-import --quiet < \"$1\"", git, streamFile});
    if (!import->run()) {
        std::fprintf(stderr, "fast-import failed: %s\n", import->errorOutput().c_str());
        return false;
    }
    auto checkout = VNTask::taskWithCommand(git, repo, {"checkout", "-q", "-f", "main"});
    checkout->run();
    // main tracks origin/main, so that the listing has ahead/behind counts to show.
    for (const std::vector<std::string>& setting :
         {std::vector<std::string>{"remote.origin.url", "/nonexistent/origin.git"},
          {"remote.origin.fetch", "+refs/heads/*:refs/remotes/origin/*"},
          {"branch.main.remote", "origin"},
          {"branch.main.merge", "refs/heads/main"}}) {
        auto config = VNTask::taskWithCommand(git, repo, {"config", setting[0], setting[1]});
        config->run();
    }
    std::filesystem::remove(streamFile);
    std::ofstream(marker) << "ok\n";
    return true;
}

std::shared_ptr<VNRepoHandlerGit> handler() {
    static auto shared = std::make_shared<VNRepoHandlerGit>();
    return shared;
}

// The argument vector of the listing's `git log` for a page without branch or options.
std::vector<std::string> plainLogArgs(uint64_t skip, uint64_t limit) {
    std::string repo = repositoryPath();
    std::vector<std::string> args = handler()->defaultArgsForPath(repo, "log");
    if (skip) {
        args.push_back("--skip=" + std::to_string(skip));
    }
    args.push_back("--max-count=" + std::to_string(limit));
    args.insert(args.end(),
                {"--branches", "--tags", "--full-history", VNGitLogParser::logFormatArgument(false),
                 "--decorate=full", "--date=iso", "--end-of-options", "HEAD", "--"});
    return args;
}

void runListing(benchmark::State& state, uint64_t skip) {
    std::string repo = repositoryPath();
    std::size_t rows = 0;
    for (auto _ : state) {
        auto page = handler()->logRevisions(repo, "", skip, kPage, std::nullopt, 0);
        rows = page.size();
        benchmark::DoNotOptimize(page);
    }
    if (rows != kPage) {
        state.SkipWithError("the page is not full");
    }
    state.counters["rows"] = static_cast<double>(rows);
}

void runPlainGit(benchmark::State& state, uint64_t skip) {
    std::string repo = repositoryPath();
    std::vector<std::string> args = plainLogArgs(skip, kPage);
    std::size_t bytes = 0;
    for (auto _ : state) {
        auto task = VNTask::taskWithCommand(handler()->gitPath(), repo, args);
        task->setLossyUTF8Output(true);
        if (!task->run()) {
            state.SkipWithError(task->errorOutput().c_str());
            break;
        }
        bytes = task->output().size();
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}

void BM_FirstPage_Varnel(benchmark::State& state) {
    runListing(state, 0);
}
void BM_FirstPage_GitLog(benchmark::State& state) {
    runPlainGit(state, 0);
}
void BM_DeepPage_Varnel(benchmark::State& state) {
    runListing(state, kDeepSkip);
}
void BM_DeepPage_GitLog(benchmark::State& state) {
    runPlainGit(state, kDeepSkip);
}

// The output of a long listing, read once.
const std::string& listingText() {
    static const std::string text = [] {
        auto task = VNTask::taskWithCommand(handler()->gitPath(), repositoryPath(),
                                            plainLogArgs(0, 100000));
        task->setLossyUTF8Output(true);
        task->run();
        return task->output();
    }();
    return text;
}

void BM_ParseLog(benchmark::State& state) {
    const std::string& text = listingText();
    vn::Record aheadBehind{{"main", vn::Value::Array{3, 2}}};
    std::size_t rows = 0;
    for (auto _ : state) {
        auto parsed = VNGitLogParser::parseLog(text, VNGitLogParser::LabelScan::Full, &aheadBehind);
        rows = parsed.size();
        benchmark::DoNotOptimize(parsed);
    }
    // What the parsed rows hold on the heap, measured outside the timed loop.
    struct mallinfo2 before = ::mallinfo2();
    auto held = VNGitLogParser::parseLog(text, VNGitLogParser::LabelScan::Full, &aheadBehind);
    struct mallinfo2 after = ::mallinfo2();
    double perRow = held.empty() ? 0
                                 : static_cast<double>(after.uordblks - before.uordblks) /
                                       static_cast<double>(held.size());
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(rows) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
    state.counters["bytes_per_row"] = perRow;
    state.counters["text_bytes_per_row"] =
        rows ? static_cast<double>(text.size()) / static_cast<double>(rows) : 0;
    state.counters["rows"] = static_cast<double>(rows);
}

BENCHMARK(BM_FirstPage_Varnel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FirstPage_GitLog)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DeepPage_Varnel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DeepPage_GitLog)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ParseLog)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    isolateEnvironment();
    if (!generateRepository()) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
