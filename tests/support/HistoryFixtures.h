#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/TestEnvironment.h"

// Repositories with a shaped history for the log, revision and reference tests.
namespace vn::test {

// Runs git in `folder` with `env` added to the environment; a failure fails the current test.
// Answers standard output.
std::string gitIn(const std::string& folder, const std::vector<std::string>& args,
                  const std::map<std::string, std::string>& env = {});

// The text without trailing newlines.
std::string chomp(std::string text);

// Commits `file` with `contents` and `message` at `date` (an ISO 8601 time used for both the
// author and the committer, unless `committerDate` is given); answers the commit.
std::string commitAt(GitRepository& repo, const std::string& file, const std::string& contents,
                     const std::string& message, const std::string& date,
                     const std::string& committerDate = "");

// Makes a commit from the current index's tree with the parents and the message given as raw
// bytes (no encoding header, nothing re-encoded), and moves HEAD's branch to it.
std::string commitRawMessage(GitRepository& repo, const std::vector<std::string>& parents,
                             const std::string& messageBytes);

// A bare repository in a temporary folder, and a clone of it through a file:// URL.
struct UpstreamAndClone {
    TempDir upstreamDir{"varnel-upstream"};
    TempDir cloneDir{"varnel-clone"};
    std::string upstream;  // the bare repository's folder
    std::string clone;     // the clone's working copy

    // Fills the upstream from a scratch working copy with commits "one" and "two" on main and
    // a branch "feature" with "three" (dated 1, 2 and 3 January 2024), then clones it.
    UpstreamAndClone();
    // Adds a commit dated 1 February 2024 to the upstream's main; answers it.
    std::string advanceUpstream(const std::string& message);
    std::string url() const { return "file://" + upstream; }
};

}  // namespace vn::test
