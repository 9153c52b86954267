#include "support/HistoryFixtures.h"

#include <gtest/gtest.h>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"

namespace vn::test {

std::string gitIn(const std::string& folder, const std::vector<std::string>& args,
                  const std::map<std::string, std::string>& env) {
    std::string git = fs::findExecutable("git").value_or("git");
    auto task = VNTask::taskWithCommand(git, folder, args);
    if (!env.empty()) {
        task->setEnvironmentCustomisations(env);
    }
    task->run();
    if (!task->success()) {
        ADD_FAILURE() << "git " << ::testing::PrintToString(args) << " failed (" << task->exitCode()
                      << "): " << task->errorOutput();
    }
    return task->output();
}

std::string chomp(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

std::string commitAt(GitRepository& repo, const std::string& file, const std::string& contents,
                     const std::string& message, const std::string& date,
                     const std::string& committerDate) {
    repo.write(file, contents);
    repo.git({"add", "--", file});
    gitIn(repo.path(), {"commit", "-q", "-m", message},
          {{"GIT_AUTHOR_DATE", date},
           {"GIT_COMMITTER_DATE", committerDate.empty() ? date : committerDate}});
    return chomp(repo.git({"rev-parse", "HEAD"}));
}

std::string commitRawMessage(GitRepository& repo, const std::vector<std::string>& parents,
                             const std::string& messageBytes) {
    std::string messageFile = repo.file(".git/raw-message");
    writeFile(messageFile, messageBytes);
    std::string tree = chomp(repo.git({"write-tree"}));
    std::vector<std::string> args = {"commit-tree", tree, "-F", messageFile};
    for (const std::string& parent : parents) {
        args.insert(args.end(), {"-p", parent});
    }
    std::string commit = chomp(repo.git(args));
    repo.git({"update-ref", "HEAD", commit});
    return commit;
}

UpstreamAndClone::UpstreamAndClone() {
    upstream = fs::appendPathComponent(upstreamDir.path(), "up.git");
    clone = fs::appendPathComponent(cloneDir.path(), "work");
    gitIn(upstreamDir.path(), {"init", "-q", "--bare", "-b", "main", upstream});
    GitRepository scratch;
    // Distinct dates keep the order of the history the same on every run.
    commitAt(scratch, "a.txt", "one\n", "one", "2024-01-01T00:00:00Z");
    commitAt(scratch, "a.txt", "two\n", "two", "2024-01-02T00:00:00Z");
    scratch.git({"checkout", "-q", "-b", "feature"});
    commitAt(scratch, "b.txt", "three\n", "three", "2024-01-03T00:00:00Z");
    scratch.git({"push", "-q", upstream, "main", "feature"});
    gitIn(cloneDir.path(), {"clone", "-q", url(), clone});
}

std::string UpstreamAndClone::advanceUpstream(const std::string& message) {
    TempDir scratchDir("varnel-scratch");
    std::string scratch = fs::appendPathComponent(scratchDir.path(), "w");
    gitIn(scratchDir.path(), {"clone", "-q", upstream, scratch});
    writeFile(fs::appendPathComponent(scratch, "up.txt"), message + "\n");
    gitIn(scratch, {"add", "up.txt"});
    gitIn(scratch, {"commit", "-q", "-m", message},
          {{"GIT_AUTHOR_DATE", "2024-02-01T00:00:00Z"},
           {"GIT_COMMITTER_DATE", "2024-02-01T00:00:00Z"}});
    gitIn(scratch, {"push", "-q", "origin", "main"});
    return chomp(gitIn(scratch, {"rev-parse", "HEAD"}));
}

}  // namespace vn::test
