#include "support/StatusFixtures.h"

#include <gtest/gtest.h>

#include "handler/VNTask.h"

namespace vn::test {

std::string statusRecordPath(const vn::Record& record) {
    std::string folder = record.string("path");
    std::string name = record.string("filename");
    return folder.empty() ? name : folder + "/" + name;
}

std::map<std::string, vn::Record> statusRecordsByPath(const std::vector<vn::Record>& records) {
    std::map<std::string, vn::Record> byPath;
    for (const vn::Record& record : records) {
        std::string path = statusRecordPath(record);
        if (!byPath.emplace(path, record).second) {
            ADD_FAILURE() << "listed twice: " << path;
        }
    }
    return byPath;
}

std::shared_ptr<VNTask> tryGit(const std::string& folder, const std::vector<std::string>& args) {
    return runProgram(folder, "git", args);
}

std::string stopMergeWithEveryConflictKind(GitRepository& repo) {
    for (const char* name : {"uu", "ud", "du", "dd"}) {
        repo.write(name, std::string("base ") + name + "\n");
    }
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "base"});
    std::string mainBranch = repo.git({"symbolic-ref", "--short", "HEAD"});
    mainBranch.erase(mainBranch.find_last_not_of('\n') + 1);

    repo.git({"checkout", "-q", "-b", "theirs"});
    repo.write("uu", "theirs\n");
    repo.write("ud", "theirs\n");
    repo.write("aa", "added by them\n");
    repo.git({"rm", "-q", "du"});
    repo.git({"mv", "dd", "dd-theirs"});
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "theirs"});
    std::string theirs = repo.git({"rev-parse", "HEAD"});
    theirs.erase(theirs.find_last_not_of('\n') + 1);

    repo.git({"checkout", "-q", mainBranch});
    repo.write("uu", "ours\n");
    repo.write("du", "ours\n");
    repo.write("aa", "added by us\n");
    repo.git({"rm", "-q", "ud"});
    repo.git({"mv", "dd", "dd-ours"});
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "ours"});

    auto merge = tryGit(repo.path(), {"merge", "theirs"});
    EXPECT_FALSE(merge->success()) << "the merge was meant to stop with conflicts";
    return theirs;
}

struct AlertRecorder::Recorder : vn::UserInterface {
    int showAlert(const vn::Alert& alert) override {
        std::lock_guard<std::mutex> lock(mutex);
        alerts.push_back(alert);
        return 0;
    }
    mutable std::mutex mutex;
    std::vector<vn::Alert> alerts;
};

AlertRecorder::AlertRecorder() : recorder_(std::make_shared<Recorder>()) {
    vn::UserInterface::install(recorder_);
}

AlertRecorder::~AlertRecorder() {
    vn::UserInterface::install(nullptr);
}

std::vector<vn::Alert> AlertRecorder::alerts() const {
    std::lock_guard<std::mutex> lock(recorder_->mutex);
    return recorder_->alerts;
}

}  // namespace vn::test
