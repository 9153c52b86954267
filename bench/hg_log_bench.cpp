// The Mercurial backend on a repository of 51,460 changesets (620 blocks of a 40-changeset run,
// two 20-changeset branches off it and their merge, 1,240 local tags), with 2,000 tracked files
// of which 50 are modified and 20 untracked files beside them. Each with and without the
// command server (chg):
//
//   first page   fillLogPage with 1,000 rows and graph, without the working-copy row: the log
//                run and the label lookup side by side, rows parsed, graph laid out
//                against the bare `hg log` run Varnel makes for it (same arguments, output unread)
//   first page   the same with the working-copy row, against the bare `hg log` and `hg status`
//   + wc row     side by side (the row needs to know whether the working copy has changes)
//   labels       the label lookup from one log run against the three listing commands side by
//                side, both over the whole history (a page asks only for its own revisions'
//                tags, in one run; the whole history's labels come from the listings through
//                chg, from the one run without)
//   status       fileStatus with the default mask (status parsed into records)
//                against the bare `hg status` run Varnel makes for it
//
// and, once per mode, the parts of a first page one after the other (log run and parse, each
// label lookup, the status check, the working copy's parents, the graph layout).
//
// Runs alternate between the two sides so that the load of a shared machine falls on both alike;
// each side's median wall-clock time over the runs is printed, with the ratio of the medians.
// With chg the work is done in the server, so the process's own CPU time says little; the load
// average is printed instead. The repository is built once (hg debugbuilddag; some minutes)
// under $TMPDIR (or /tmp) as varnel-hg-bench-51k and reused; delete it to start afresh.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "hg/VNHgCommandServer.h"
#include "hg/VNHgLogParser.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNLogGraphEntry.h"
#include "model/VNLogRowData.h"
#include "platform/FileSystem.h"
#include "support/BenchEnvironment.h"

namespace {

constexpr int kBlocks = 620;
constexpr int kTracked = 2000;
constexpr const char* kReadyMarker = ".hg/varnel-bench-ready-v1";

std::string repositoryPath() {
    const char* tmp = std::getenv("TMPDIR");
    std::string base = tmp && *tmp ? tmp : "/tmp";
    return vn::fs::appendPathComponent(base, "varnel-hg-bench-51k");
}

bool runHg(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand("/usr/bin/hg", folder, args);
    task->setEnvironmentCustomisations(
        vn::Environment{{"HGRCPATH", ""}, {"HGPLAIN", "1"}, {"HGUSER", "Bench <b@example.com>"}});
    if (!task->run()) {
        std::fprintf(stderr, "hg failed: %s\n", task->errorOutput().c_str());
        return false;
    }
    return true;
}

bool buildRepository(const std::string& path) {
    if (vn::fs::exists(vn::fs::appendPathComponent(path, kReadyMarker))) {
        return true;
    }
    std::fprintf(stderr, "Building %s (some minutes)...\n", path.c_str());
    if (!vn::fs::isDirectory(vn::fs::appendPathComponent(path, ".hg"))) {
        vn::fs::makeDirectories(path);
        if (!runHg(path, {"init", "."})) {
            return false;
        }
    }
    auto tip = VNTask::taskWithCommand("/usr/bin/hg", path, {"tip", "--template", "{rev}"});
    tip->setEnvironmentCustomisations(vn::Environment{{"HGRCPATH", ""}});
    tip->run();
    if (tip->output() == "-1") {
        std::string dag;
        for (int i = 0; i < kBlocks; ++i) {
            std::string n = std::to_string(i);
            dag += "+40:a" + n + " *a" + n + "+20:b" + n + " *a" + n + "+20 /b" + n + " ";
        }
        if (!runHg(path, {"debugbuilddag", dag})) {
            return false;
        }
    }
    runHg(path, {"update", "-q", "tip"});
    for (int i = 0; i < kTracked; ++i) {
        vn::fs::makeDirectories(vn::fs::appendPathComponent(path, "d" + std::to_string(i / 100)));
        vn::fs::writeFileAtomically(
            vn::fs::appendPathComponent(
                path, "d" + std::to_string(i / 100) + "/f" + std::to_string(i) + ".txt"),
            "line " + std::to_string(i) + "\n");
    }
    if (!runHg(path, {"commit", "-q", "-A", "-m", "files"})) {
        return false;
    }
    for (int i = 0; i < kTracked; i += kTracked / 50) {
        vn::fs::writeFileAtomically(
            vn::fs::appendPathComponent(
                path, "d" + std::to_string(i / 100) + "/f" + std::to_string(i) + ".txt"),
            "changed\n");
    }
    for (int i = 0; i < 20; ++i) {
        vn::fs::writeFileAtomically(
            vn::fs::appendPathComponent(path, "untracked" + std::to_string(i) + ".txt"), "u\n");
    }
    return vn::fs::writeFileAtomically(vn::fs::appendPathComponent(path, kReadyMarker), "");
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double loadAverage() {
    double load = 0;
    if (std::FILE* file = std::fopen("/proc/loadavg", "r")) {
        if (std::fscanf(file, "%lf", &load) != 1) {
            load = 0;
        }
        std::fclose(file);
    }
    return load;
}

double millisecondsOf(const std::function<void()>& work) {
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

void compare(const char* name, int runs, const std::function<void()>& varnel,
             const std::function<void()>& bare) {
    // One of each first, unmeasured: starts the command server, warms the caches.
    varnel();
    bare();
    std::vector<double> ours, theirs;
    for (int i = 0; i < runs; ++i) {
        if (i % 2 == 0) {
            ours.push_back(millisecondsOf(varnel));
            theirs.push_back(millisecondsOf(bare));
        } else {
            theirs.push_back(millisecondsOf(bare));
            ours.push_back(millisecondsOf(varnel));
        }
    }
    double a = median(ours), b = median(theirs);
    std::printf("%-36s varnel %8.1f ms   bare hg %8.1f ms   ratio %.2f   load %.1f\n", name, a, b,
                a / b, loadAverage());
    std::fflush(stdout);
}

// The median time of one part of a page.
void part(const char* name, int runs, const std::function<void()>& work) {
    work();
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        times.push_back(millisecondsOf(work));
    }
    std::printf("  part %-31s %8.1f ms\n", name, median(times));
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 11;
    std::string path = repositoryPath();
    if (!vn::bench::isolateEnvironment() || !buildRepository(path)) {
        return 1;
    }
    auto handler = std::make_shared<VNRepoHandlerMercurial>();
    handler->writeProgramConfiguration(true);
    std::string tip = handler->latestRevision(path);
    std::printf("Repository %s: %s changesets\n", path.c_str(),
                std::to_string(std::stoull(tip) + 1).c_str());

    for (bool server : {false, true}) {
        ::setenv("VARNEL_HG_COMMAND_SERVER", server ? "1" : "0", 1);
        if (server && !handler->usesCommandServer()) {
            std::printf("chg is not installed: no command-server figures\n");
            continue;
        }
        std::string label = server ? " (chg)" : " (hg)";
        auto logArgs = handler->defaultArgsForPath(path, "log");
        auto extra = VNRepoHandlerMercurial::logArguments({}, tip, 1000, std::nullopt, false);
        logArgs.insert(logArgs.end(), extra.begin(), extra.end());
        auto statusArgs = handler->defaultArgsForPath(path, "status");
        for (const std::string& option :
             VNRepoHandlerMercurial::statusOptionsForMask(VNFileStatusDefaultMask)) {
            statusArgs.push_back(option);
        }
        auto bareLog = [&] {
            auto task = handler->hgQueryTaskWithArgs(path, logArgs);
            handler->runQuery(task);
        };

        // The parts, one after the other.
        std::vector<vn::Record> rows;
        part(("log run and parse" + label).c_str(), runs,
             [&] { rows = handler->logRevisions(path, tip, 0, 1000, std::nullopt, 0); });
        part(("bare log run" + label).c_str(), runs, bareLog);
        part(("labels from one run" + label).c_str(), runs,
             [&] { handler->labelsByRevisionFromOneRun(path, false, false); });
        part(("labels of the page's window" + label).c_str(), runs, [&] {
            handler->labelsByRevision(path, false, false, std::nullopt,
                                      VNRepoHandlerMercurial::LabelWindow{"tip", 1000});
        });
        part(("labels from three listings" + label).c_str(), runs,
             [&] { handler->labelsByRevisionFromListings(path, false, false); });
        part(("status check (has changes)" + label).c_str(), runs,
             [&] { handler->hasUncommittedChanges(path); });
        part(("working-copy parents" + label).c_str(), runs,
             [&] { handler->workingCopyParents(path, &rows); });
        part("graph layout of 1000 rows", runs, [&] {
            std::vector<vn::Record> copy = rows;
            handler->addGraphInfoToLogRevisions(copy, nullptr, false);
        });

        compare(("first page, 1000 rows + graph" + label).c_str(), runs,
                [&] {
                    VNLogRowData page;
                    page.setLimit(1000);
                    handler->fillLogPage(path, page, false);
                    if (page.logRows().size() < 1000) {
                        std::fprintf(stderr, "short page: %zu rows\n", page.logRows().size());
                    }
                },
                bareLog);
        compare(("first page + wc row vs log + status" + label).c_str(), runs,
                [&] {
                    VNLogRowData page;
                    page.setLimit(1000);
                    handler->fillLogPage(path, page);
                },
                [&] {
                    auto status = handler->hgQueryTaskWithArgs(path, statusArgs);
                    std::thread side([&] { handler->runQuery(status); });
                    bareLog();
                    side.join();
                });
        compare(("labels, one run vs listings" + label).c_str(), runs,
                [&] { handler->labelsByRevisionFromOneRun(path, false, false); },
                [&] { handler->labelsByRevisionFromListings(path, false, false); });
        compare(("status, default mask" + label).c_str(), runs, [&] { handler->fileStatus(path); },
                [&] {
                    auto task = handler->hgQueryTaskWithArgs(path, statusArgs);
                    task->setRawOutput(true);
                    handler->runQuery(task);
                });
    }
    VNHgCommandServer::stopServer(handler->hgPath(), VNRepoHandlerMercurial::plainEnvironment());
    vn::bench::removeScratchFolder();
    return 0;
}
