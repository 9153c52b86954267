#include "support/ShapedHistory.h"

#include <gtest/gtest.h>

#include "handler/VNTask.h"
#include "support/HistoryFixtures.h"

namespace vn::test {

namespace {

struct Writer {
    std::string stream;
    int mark = 0;
    long time = 1700000000;

    int commit(const std::string& ref, const std::string& message, int from,
               const std::vector<int>& merges, const std::string& file) {
        ++mark;
        time += 60;
        stream += "commit " + ref + "\nmark :" + std::to_string(mark) + "\n";
        stream += "author Ann Author <ann@example.com> " + std::to_string(time) + " +0100\n";
        stream += "committer Ann Author <ann@example.com> " + std::to_string(time) + " +0100\n";
        stream += "data " + std::to_string(message.size()) + "\n" + message + "\n";
        if (from) {
            stream += "from :" + std::to_string(from) + "\n";
        }
        for (int merge : merges) {
            stream += "merge :" + std::to_string(merge) + "\n";
        }
        std::string contents = "line " + std::to_string(mark) + "\n";
        stream += "M 644 inline " + file + "\ndata " + std::to_string(contents.size()) + "\n" +
                  contents + "\n";
        return mark;
    }
};

}  // namespace

std::vector<std::string> writeShapedHistory(GitRepository& repo, int commits) {
    Writer w;
    int head = 0;
    int feature = 0;
    bool octopus = false;
    for (int i = 0; i < commits;) {
        if (i > 0 && i % 40 == 0 && commits - i > 4) {
            int side = head;
            for (int k = 0; k < 3; ++k) {
                side = w.commit("refs/heads/side-last",
                                "side " + std::to_string(i) + "." + std::to_string(k), side, {},
                                "side.txt");
            }
            head = w.commit("refs/heads/main", "Merge side " + std::to_string(i), head, {side},
                            "main.txt");
            i += 4;
            continue;
        }
        if (!octopus && i >= commits / 2 && commits - i > 4) {
            octopus = true;
            int a = w.commit("refs/heads/octo-a", "octopus a", head, {}, "a.txt");
            int b = w.commit("refs/heads/octo-b", "octopus b", head, {}, "b.txt");
            head = w.commit("refs/heads/main", "Octopus merge", head, {a, b}, "main.txt");
            i += 3;
            continue;
        }
        head = w.commit("refs/heads/main", "commit " + std::to_string(i), head, {},
                        i % 3 == 0 ? "main.txt" : "other file.txt");
        if (i == 1) {
            feature = w.commit("refs/heads/feature", "feature work", head, {}, "feature.txt");
        }
        ++i;
    }
    std::string script = repo.file(".git/shaped-history.fi");
    writeFile(script, w.stream);
    auto task = runProgram(repo.path(), "/bin/sh",
                           {"-c", "git fast-import --quiet < .git/shaped-history.fi"});
    if (!task->success()) {
        ADD_FAILURE() << "git fast-import failed: " << task->errorOutput();
        return {};
    }
    (void)feature;
    repo.git({"tag", "v1", "main~10"});
    repo.git({"tag", "-a", "-m", "second", "v2", "main~2"});
    repo.git({"checkout", "-q", "-f", "main"});
    std::string listing = repo.git({"rev-list", "--all", "--reverse", "--topo-order"});
    std::vector<std::string> hashes;
    for (std::size_t start = 0; start < listing.size();) {
        std::size_t end = listing.find('\n', start);
        hashes.push_back(listing.substr(start, end - start));
        start = end == std::string::npos ? listing.size() : end + 1;
    }
    return hashes;
}

}  // namespace vn::test
