#include <gtest/gtest.h>

#include "base/Json.h"
#include "base/Record.h"
#include "handler/VNTask.h"
#include "platform/Preferences.h"
#include "support/TestEnvironment.h"

namespace {

std::shared_ptr<VNTask> vrnl(const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, vn::test::sandboxPath(), args);
    task->run();
    return task;
}

const vn::Record* toolNamed(const vn::Value& report, const std::string& name) {
    for (const vn::Value& tool : *report.record()->find("tools")->array()) {
        if (tool.record()->string("name") == name) {
            return tool.record();
        }
    }
    return nullptr;
}

TEST(Vrnl, HelpAndVersion) {
    auto help = vrnl({"--help"});
    EXPECT_TRUE(help->success());
    EXPECT_NE(help->output().find("doctor [--json]"), std::string::npos);
    auto version = vrnl({"--version"});
    EXPECT_EQ(version->output(), std::string("vrnl ") + VARNEL_VERSION + "\n");
    auto unknown = vrnl({"frobnicate"});
    EXPECT_EQ(unknown->exitCode(), 2);
    EXPECT_NE(unknown->errorOutput().find("unknown command"), std::string::npos);
}

TEST(Vrnl, DoctorReportsEveryToolWithItsVersion) {
    auto task = vrnl({"doctor", "--json"});
    ASSERT_TRUE(task->success()) << task->errorOutput();
    auto report = vn::parseJson(task->output());
    ASSERT_TRUE(report && report->record());
    for (const char* name : {"git", "hg", "git-flow", "git-lfs", "svn", "gpg2", "patch", "file"}) {
        SCOPED_TRACE(name);
        const vn::Record* tool = toolNamed(*report, name);
        ASSERT_TRUE(tool);
        for (const char* key : {"path", "source", "version", "missing", "note"}) {
            EXPECT_TRUE(tool->contains(key)) << key;
        }
    }
    const vn::Record* git = toolNamed(*report, "git");
    EXPECT_FALSE(git->boolean("missing"));
    EXPECT_EQ(git->string("source"), "shipped");
    EXPECT_NE(git->string("version").find("git version"), std::string::npos);
}

TEST(Vrnl, DoctorNamesAMissingCustomToolWithoutFailing) {
    auto& prefs = vn::Preferences::standard();
    prefs.set("gitWhichOne", 1);
    prefs.set("gitCustomPath", "/nonexistent/bin/git");
    auto json = vrnl({"doctor", "--json"});
    auto human = vrnl({"doctor"});
    prefs.remove("gitWhichOne");
    prefs.remove("gitCustomPath");

    ASSERT_TRUE(json->success()) << json->errorOutput();
    auto report = vn::parseJson(json->output());
    ASSERT_TRUE(report);
    const vn::Record* git = toolNamed(*report, "git");
    EXPECT_TRUE(git->boolean("missing"));
    EXPECT_EQ(git->string("source"), "custom");
    EXPECT_EQ(git->string("path"), "/nonexistent/bin/git");
    EXPECT_TRUE((*git)["version"].isNull());

    EXPECT_TRUE(human->success());
    EXPECT_NE(human->output().find("missing"), std::string::npos);
    EXPECT_NE(human->output().find("/nonexistent/bin/git"), std::string::npos);
}

}  // namespace
