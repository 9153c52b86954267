#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Record.h"
#include "platform/UserInterface.h"
#include "support/TestEnvironment.h"

// Working copies in every state the status listing tells apart, and ways to read its records.
namespace vn::test {

// The path of a status record relative to the working copy ("path" and "filename" joined).
std::string statusRecordPath(const vn::Record& record);

// The records by path; a path listed twice fails the current test.
std::map<std::string, vn::Record> statusRecordsByPath(const std::vector<vn::Record>& records);

// Stops a merge in `repo` with one conflict of every kind git produces, from a common commit
// with "uu", "ud", "du" and "dd":
//   "uu" both modified (UU), "aa" both added (AA), "ud" deleted by them (UD),
//   "du" deleted by us (DU), "dd" renamed to "dd-ours" here and "dd-theirs" there (DD, AU, UA).
// The branch merged in is "theirs"; answers its commit.
std::string stopMergeWithEveryConflictKind(GitRepository& repo);

// Runs git in `folder`, allowed to fail; answers the finished task.
std::shared_ptr<VNTask> tryGit(const std::string& folder, const std::vector<std::string>& args);

// Keeps the alerts shown while it lives, instead of logging them.
class AlertRecorder {
  public:
    AlertRecorder();
    ~AlertRecorder();
    std::vector<vn::Alert> alerts() const;

  private:
    struct Recorder;
    std::shared_ptr<Recorder> recorder_;
};

}  // namespace vn::test
