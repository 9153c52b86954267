// Every read command of vrnl in a Mercurial working copy: the human form and the JSON keys.
#include <gtest/gtest.h>

#include "base/Json.h"
#include "handler/VNTask.h"
#include "hg/VNHgCommandServer.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/FileSystem.h"
#include "support/HgRepository.h"

namespace {

using vn::test::HgRepository;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    task->setEnvironmentCustomisations(vn::Environment{{"NO_COLOR", "1"}});
    task->run();
    return task;
}

vn::Value json(const std::shared_ptr<VNTask>& task) {
    std::string error;
    auto value = vn::parseJson(task->output(), &error);
    EXPECT_TRUE(value) << error << "\n" << task->output();
    return value.value_or(vn::Value());
}

class VrnlMercurial : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        repo = new HgRepository();
        repo->commitFile("a.txt", "one\n", "first");
        repo->hg({"branch", "-q", "feature"});
        repo->commitFile("b \"q\" caf\xc3\xa9.txt", "b\n", "on feature");
        repo->hg({"update", "-q", "default"});
        repo->commitFile("a.txt", "one\ntwo\n", "second");
        repo->hg({"merge", "-q", "feature"});
        repo->commit("merge feature");
        repo->hg({"bookmark", "mark"});
        repo->write("a.txt", "one\ntwo\nthree\n");
        repo->write("new.txt", "n\n");
        vn::test::writeHostileHgConfig(vn::fs::homeDirectory());
    }
    static void TearDownTestSuite() {
        VNHgCommandServer::stopServer(VNRepoHandlerMercurial().hgPath(),
                                      VNRepoHandlerMercurial::plainEnvironment());
        ::unlink(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc").c_str());
        delete repo;
    }
    static HgRepository* repo;
};

HgRepository* VrnlMercurial::repo = nullptr;

TEST_F(VrnlMercurial, StatusAndOverview) {
    auto status = vrnlIn(repo->path(), {"status"});
    ASSERT_TRUE(status->success()) << status->errorOutput();
    EXPECT_NE(status->output().find("On branch default"), std::string::npos) << status->output();
    EXPECT_NE(status->output().find("M  a.txt"), std::string::npos) << status->output();
    EXPECT_NE(status->output().find("?  new.txt"), std::string::npos) << status->output();
    vn::Value value = json(vrnlIn(repo->path(), {"status", "--json", "--mask", "1023"}));
    ASSERT_TRUE(value.record());
    const vn::Record& record = *value.record();
    EXPECT_EQ(record["summary"].record()->string("branch"), "default");
    // a.txt modified, new.txt untracked, the file of the feature branch clean.
    EXPECT_EQ(record["files"].array()->size(), 3u);
    auto overview = vrnlIn(repo->path(), {"overview"});
    ASSERT_TRUE(overview->success()) << overview->errorOutput();
    EXPECT_NE(overview->output().find("merge feature"), std::string::npos) << overview->output();
}

TEST_F(VrnlMercurial, LogWithGraphPagesAndJson) {
    auto log = vrnlIn(repo->path(), {"log", "--graph"});
    ASSERT_TRUE(log->success()) << log->errorOutput();
    EXPECT_NE(log->output().find("Uncommitted changes"), std::string::npos);
    EXPECT_NE(log->output().find("@ bookmark: mark"), std::string::npos) << log->output();
    EXPECT_NE(log->output().find("(feature)"), std::string::npos) << log->output();
    // Two lines meet at the merge.
    EXPECT_NE(log->output().find("\xe2\x94\x80\xe2\x95\xae"), std::string::npos) << log->output();
    auto page = vrnlIn(repo->path(), {"log", "--limit", "2"});
    EXPECT_NE(page->errorOutput().find("vrnl log --skip 2 --limit 2"), std::string::npos)
        << page->errorOutput();
    vn::Value value = json(vrnlIn(repo->path(), {"log", "--skip", "2", "--json"}));
    const vn::Value::Array* rows = value.record()->find("logRows")->array();
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 2u);
    EXPECT_EQ(rows->at(0).record()->string("rev"), "1");
    EXPECT_EQ(rows->at(1).record()->string("rev"), "0");
    for (const char* key : {"changeset", "changesetshort", "parentid1", "parentid2", "date", "user",
                            "descriptionentry", "graph"}) {
        EXPECT_TRUE(rows->at(0).record()->contains(key)) << key;
    }
    // The uncommitted changes hang off the working copy's parent, found in the page or not.
    for (const char* limit : {"2", "0"}) {
        vn::Value first = json(vrnlIn(repo->path(), {"log", "--json", "--limit", limit}));
        const vn::Value::Array* top = first.record()->find("logRows")->array();
        ASSERT_TRUE(top && !top->empty());
        EXPECT_EQ(top->at(0).record()->string("rev"), "-1");
        EXPECT_EQ(top->at(0).record()->string("parentid1"), "3");
    }
    repo->hg({"update", "-q", "-C", "-r", "0"});
    vn::Value old = json(vrnlIn(repo->path(), {"log", "--json", "--limit", "1"}));
    EXPECT_EQ(old.record()->find("logRows")->array()->at(0).record()->string("parentid1"), "0");
    // Updating to the bookmark makes it active again.
    repo->hg({"update", "-q", "-C", "mark"});
    repo->write("a.txt", "one\ntwo\nthree\n");
    auto feature = vrnlIn(repo->path(), {"log", "--branch", "feature"});
    EXPECT_NE(feature->output().find("on feature"), std::string::npos) << feature->output();
    EXPECT_EQ(feature->output().find("second"), std::string::npos) << feature->output();
    EXPECT_EQ(vrnlIn(repo->path(), {"log", "--topo"})->exitCode(), 2);
}

TEST_F(VrnlMercurial, ShowRefsBlameSearchDiff) {
    auto show = vrnlIn(repo->path(), {"show", "3"});
    ASSERT_TRUE(show->success()) << show->errorOutput();
    EXPECT_NE(show->output().find("Merge:   2 1"), std::string::npos) << show->output();
    vn::Value shown = json(vrnlIn(repo->path(), {"show", "--json", "1"}));
    EXPECT_EQ(shown.record()->string("branch"), "feature");
    EXPECT_EQ(shown.record()->find("files")->array()->size(), 1u);
    EXPECT_EQ(vrnlIn(repo->path(), {"show", "nosuch"})->exitCode(), 1);

    vn::Value refs = json(vrnlIn(repo->path(), {"refs", "--json"}));
    EXPECT_EQ(refs.record()->string("currentBranch"), "default");
    EXPECT_EQ(refs.record()->string("activeBookmark"), "mark");
    EXPECT_EQ(refs.record()->find("branches")->array()->size(), 2u);

    auto blame = vrnlIn(repo->path(), {"blame", "a.txt"});
    ASSERT_TRUE(blame->success()) << blame->errorOutput();
    EXPECT_NE(blame->output().find("2024-01-02"), std::string::npos) << blame->output();
    vn::Value lines = json(vrnlIn(repo->path(), {"blame", "--json", "a.txt"}));
    // hg blames the working copy's parent: the uncommitted third line is not there yet.
    ASSERT_EQ(lines.array()->size(), 2u);
    EXPECT_EQ(lines.array()->at(1).record()->string("rev"), "2");

    auto search = vrnlIn(repo->path(), {"search", "--message", "feature"});
    EXPECT_TRUE(search->success()) << search->errorOutput();
    EXPECT_NE(search->output().find("merge feature"), std::string::npos);
    EXPECT_EQ(vrnlIn(repo->path(), {"search", "--content", "x"})->exitCode(), 2);

    auto diff = vrnlIn(repo->path(), {"diff"});
    ASSERT_TRUE(diff->success()) << diff->errorOutput();
    EXPECT_NE(diff->output().find("+three"), std::string::npos) << diff->output();
    auto rev = vrnlIn(repo->path(), {"diff", "--rev", "1", "--json"});
    EXPECT_NE(rev->output().find("caf\xc3\xa9"), std::string::npos) << rev->output();
    EXPECT_EQ(vrnlIn(repo->path(), {"diff", "--staged"})->exitCode(), 2);

    vn::Value doctor = json(vrnlIn(repo->path(), {"doctor", "--json"}));
    EXPECT_FALSE(doctor.record()->string("mercurialVersion").empty());
    EXPECT_TRUE(doctor.record()->contains("usesCommandServer"));
}

}  // namespace
