// Names, messages and contents that hold control characters or bytes that are not UTF-8 reach
// the terminal escaped, whatever command prints them.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/TextEncoding.h"
#include "handler/VNTask.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::GitRepository;

std::shared_ptr<VNTask> vrnlIn(const std::string& folder, const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, folder, args);
    // The bytes vrnl wrote, not a decoding of them.
    task->setRawOutput(true);
    task->run();
    return task;
}

// The first byte a terminal would act on: a control character other than a line end (and a tab
// where `tabs`), DEL, a C1 control, or a byte that is not UTF-8.
std::string firstRawControl(const std::string& text, bool tabs) {
    if (!vn::isValidUTF8(text)) {
        return "bytes that are not UTF-8";
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        bool c1 = c == 0xC2 && i + 1 < text.size() &&
                  static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                  static_cast<unsigned char>(text[i + 1]) <= 0x9F;
        if ((c < 0x20 && c != '\n' && !(tabs && c == '\t')) || c == 0x7F || c1) {
            return "byte " + std::to_string(c) + " at " + std::to_string(i) +
                   " in: " + text.substr(i > 40 ? i - 40 : 0, 80);
        }
    }
    return "";
}

const std::string Replacement = "\xEF\xBF\xBD";

TEST(VrnlDisplay, EveryCommandEscapesWhatWouldSteerTheTerminal) {
    GitRepository repo;
    const std::string escName = "esc\x1b[31mred.txt";
    repo.write("tab\there.txt", "one\n");
    repo.write(escName, "plain\n");
    repo.write("caf\xE9.txt", "one\n");
    repo.write("cr\rname.txt", "one\n");
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "--author=Mal\x1b]0;title\x07lory <m@example.org>", "-m",
              "subject \x1b[2J\rwith\x7f controls\n\nbody \x1b[31m\xE9\xc2\x9b"});
    repo.write("tab\there.txt", "one\ttwo \x1b[1mbold\r\n");
    repo.write(escName, "plain\nmore \x1b[5m\n");
    repo.git({"add", escName});
    repo.git({"mv", "caf\xE9.txt", "new\nline.txt"});

    struct Case {
        const char* what;
        std::vector<std::string> args;
        std::vector<std::string> shown;  // texts the output must hold
        bool tabs;                       // file contents keep their tabs
    };
    const Case cases[] = {
        {"status",
         {"status"},
         {"tab\\there.txt", "esc\\x1b[31mred.txt", "new\\nline.txt", "caf" + Replacement + ".txt"},
         false},
        {"diff", {"diff"}, {"tab\\there.txt", "one\ttwo \\x1b[1mbold"}, true},
        {"diff --staged",
         {"diff", "--staged"},
         {"esc\\x1b[31mred.txt", "more \\x1b[5m", "caf" + Replacement + ".txt -> new\\nline.txt"},
         true},
        {"diff --rev", {"diff", "--rev", "HEAD"}, {"cr\\rname.txt", "esc\\x1b[31mred.txt"}, true},
        {"show",
         {"show"},
         {"Mal\\x1b]0;title\\alory", "subject \\x1b[2J\\rwith\\x7f controls", "body \\x1b[31m",
          "\\u009b", "cr\\rname.txt"},
         false},
        {"log",
         {"log"},
         {"Mal\\x1b]0;title\\alory", "subject \\x1b[2J\\rwith\\x7f controls"},
         false},
        {"blame", {"blame", escName}, {"more \\x1b[5m"}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto task = vrnlIn(repo.path(), c.args);
        ASSERT_EQ(task->exitCode(), 0) << task->errorOutput();
        EXPECT_EQ(firstRawControl(task->output(), c.tabs), "");
        for (const std::string& text : c.shown) {
            EXPECT_NE(task->output().find(text), std::string::npos)
                << "missing " << text << " in:\n"
                << task->output();
        }
    }

    // Error messages that quote the user or git are escaped too.
    auto missing = vrnlIn(repo.path(), {"show", "no\x1b[31mcommit"});
    EXPECT_NE(missing->exitCode(), 0);
    EXPECT_EQ(firstRawControl(missing->errorOutput(), false), "");
}

}  // namespace
