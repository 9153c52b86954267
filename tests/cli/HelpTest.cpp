#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/Json.h"
#include "base/Record.h"
#include "base/TextEncoding.h"
#include "handler/VNTask.h"
#include "support/TestEnvironment.h"

namespace {

std::shared_ptr<VNTask> vrnl(const std::vector<std::string>& args) {
    auto task = VNTask::taskWithCommand(VARNEL_TEST_VRNL, vn::test::sandboxPath(), args);
    task->run();
    return task;
}

struct CommandOptions {
    const char* name;
    // Every option the command takes, with a value where it needs one.
    std::vector<std::vector<std::string>> options;
};

// Written from what each command accepts, not from the help table, so that an option missing
// from the help (or a help entry for an option the command refuses) shows here.
const std::vector<CommandOptions>& everyCommand() {
    static const std::vector<CommandOptions> commands = {
        {"doctor", {{"--json"}}},
        {"check-url", {{"--json"}}},
        {"status", {{"--mask", "766"}, {"--json"}}},
        {"overview", {{"--json"}}},
        {"diff",
         {{"--staged"},
          {"--rev", "HEAD"},
          {"--range", "A", "B"},
          {"--context", "5"},
          {"--ignore-whitespace"},
          {"--max-files", "2"},
          {"--patch-file", "-"},
          {"--json"}}},
        {"log",
         {{"--skip", "1"},
          {"--limit", "5"},
          {"--branch", "main"},
          {"--remotes"},
          {"--topo"},
          {"--first-parent"},
          {"--graph"},
          {"--svg", "out.svg"},
          {"--json"}}},
        {"show", {{"--json"}}},
        {"refs", {{"--json"}}},
        {"blame", {{"--rev", "HEAD"}, {"--json"}}},
        {"search",
         {{"--message", "x"},
          {"--author", "x"},
          {"--content", "x"},
          {"--hash", "x"},
          {"--range", "x"},
          {"--since", "2020-01-01"},
          {"--until", "2020-01-01"},
          {"--json"}}},
        {"stage", {{"--hunk", "1"}, {"--lines", "1-2"}, {"--json"}}},
        {"unstage", {{"--hunk", "1"}, {"--lines", "1-2"}, {"--json"}}},
        {"discard", {{"--hunk", "1"}, {"--lines", "1-2"}, {"--yes"}, {"--json"}}},
        {"update", {{"--clean"}, {"--repo", "x"}, {"--json"}}},
        {"merge", {{"--repo", "x"}, {"--json"}}},
        {"resolve",
         {{"--list"},
          {"--mark"},
          {"--unmark"},
          {"--mine"},
          {"--theirs"},
          {"--restart"},
          {"--repo", "x"},
          {"--json"}}},
        {"tag",
         {{"--rev", "1"},
          {"--force"},
          {"--local"},
          {"--message", "m"},
          {"--remove"},
          {"--repo", "x"},
          {"--json"}}},
        {"bookmark",
         {{"--rev", "1"},
          {"--force"},
          {"--delete"},
          {"--rename", "n"},
          {"--repo", "x"},
          {"--json"}}},
        {"backout", {{"--repo", "x"}, {"--json"}}},
        {"shelve",
         {{"--name", "n"},
          {"--message", "m"},
          {"--list"},
          {"--apply", "n"},
          {"--keep"},
          {"--delete", "n"},
          {"--repo", "x"},
          {"--json"}}},
        {"help", {}},
    };
    return commands;
}

TEST(VrnlHelp, EveryCommandShowsItsUsageAndEachOptionBothWays) {
    for (const CommandOptions& command : everyCommand()) {
        SCOPED_TRACE(command.name);
        auto help = vrnl({"help", command.name});
        ASSERT_EQ(help->exitCode(), 0) << help->errorOutput();
        const std::string& text = help->output();
        EXPECT_EQ(text.rfind(std::string("Usage: vrnl ") + command.name, 0), 0u) << text;
        EXPECT_NE(text.find("--pretty"), std::string::npos) << "the global options are listed";
        for (const auto& option : command.options) {
            EXPECT_NE(text.find("\n  " + option[0]), std::string::npos) << option[0];
        }
        for (const char* flag : {"--help", "-h"}) {
            auto same = vrnl({command.name, flag});
            EXPECT_EQ(same->exitCode(), 0);
            EXPECT_EQ(same->output(), text) << flag;
        }
        // Every line fits a terminal of 80 columns.
        std::size_t start = 0;
        for (std::size_t end; (end = text.find('\n', start)) != std::string::npos;
             start = end + 1) {
            EXPECT_LE(end - start, 80u) << text.substr(start, end - start);
        }
    }
}

// Each option of the table is taken by its command: whatever else goes wrong in a folder that
// is no repository, it is not refused as unknown.
TEST(VrnlHelp, EveryListedOptionIsAccepted) {
    for (const CommandOptions& command : everyCommand()) {
        for (const auto& option : command.options) {
            SCOPED_TRACE(std::string(command.name) + " " + option[0]);
            std::vector<std::string> args{command.name};
            args.insert(args.end(), option.begin(), option.end());
            if (std::string(command.name) == "log" && option[0] == "--svg") {
                args.push_back("--graph");
            }
            auto run = vrnl(args);
            EXPECT_EQ(run->errorOutput().find("unknown option"), std::string::npos)
                << run->errorOutput();
        }
    }
}

TEST(VrnlHelp, UnknownCommandsAndOptionsExitWithTwo) {
    struct Case {
        std::vector<std::string> args;
        const char* message;
    };
    const Case cases[] = {
        {{"frobnicate"}, "unknown command \"frobnicate\""},
        {{"frobnicate", "--help"}, "unknown command \"frobnicate\""},
        {{"help", "frobnicate"}, "unknown command \"frobnicate\""},
        {{"help", "log", "diff"}, "help takes one command"},
        {{"status", "--bogus"}, "unknown option --bogus"},
        {{"log", "--json", "--colour"}, "unknown option --colour"},
        {{"--bogus"}, "unknown option --bogus"},
        {{"diff", "--context"}, "--context needs a value"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : ""));
        auto run = vrnl(c.args);
        EXPECT_EQ(run->exitCode(), 2);
        EXPECT_EQ(run->output(), "");
        EXPECT_NE(run->errorOutput().find(c.message), std::string::npos) << run->errorOutput();
    }
    // The help of vrnl itself lists every command, and a "--help" after "--" is a word, not a
    // request for help.
    auto overall = vrnl({"--help"});
    EXPECT_EQ(overall->exitCode(), 0);
    EXPECT_EQ(vrnl({"help"})->output(), overall->output());
    for (const CommandOptions& command : everyCommand()) {
        EXPECT_NE(overall->output().find(std::string("\n  ") + command.name), std::string::npos)
            << command.name;
    }
    auto literal = vrnl({"blame", "--", "--help"});
    EXPECT_EQ(literal->output().find("Usage:"), std::string::npos);
}

TEST(VrnlHelp, JsonIsCompactUnlessPretty) {
    auto compact = vrnl({"doctor", "--json"});
    ASSERT_EQ(compact->exitCode(), 0) << compact->errorOutput();
    const std::string& text = compact->output();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.find('\n'), text.size() - 1) << "one line";
    EXPECT_EQ(text.find("\": "), std::string::npos);
    EXPECT_EQ(text.find("\",\n"), std::string::npos);
    auto value = vn::parseJson(text);
    ASSERT_TRUE(value && value->record());

    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--pretty", "doctor", "--json"},
          std::vector<std::string>{"doctor", "--json", "--pretty"}}) {
        auto pretty = vrnl(args);
        ASSERT_EQ(pretty->exitCode(), 0) << pretty->errorOutput();
        EXPECT_EQ(pretty->output().rfind("{\n  \"version\": ", 0), 0u) << pretty->output();
        auto same = vn::parseJson(pretty->output());
        ASSERT_TRUE(same);
        EXPECT_EQ(*same, *value);
    }
}

// The build writes the manual page with the program's own texts; it must be a page that groff
// reads without a warning, with a section for every command.
TEST(VrnlHelp, ManualPageIsBuiltFromTheSameTexts) {
    std::filesystem::path bin = std::filesystem::path(VARNEL_TEST_VRNL).parent_path();
    std::string page = (bin.parent_path() / "share/man/man1/vrnl.1").string();
    ASSERT_TRUE(std::filesystem::exists(page)) << page;
    std::string source = vn::test::readFile(page);
    EXPECT_EQ(source.rfind(".TH VRNL 1", 0), 0u);
    for (const CommandOptions& command : everyCommand()) {
        std::string heading = ".SS ";
        for (const char* c = command.name; *c; ++c) {
            heading.append(*c == '-' ? "\\-" : std::string(1, *c));
        }
        EXPECT_NE(source.find(heading + "\n"), std::string::npos) << heading;
    }
    vn::test::TempDir scratch("varnel-man");
    auto written = vrnl({"--write-man-page", scratch.file("vrnl.1")});
    ASSERT_EQ(written->exitCode(), 0) << written->errorOutput();
    EXPECT_EQ(vn::test::readFile(scratch.file("vrnl.1")), source);

    auto groff = vn::test::runProgram(vn::test::sandboxPath(), "groff",
                                      {"-man", "-Tutf8", "-ww", "-P", "-cbou", page});
    if (groff->exitCode() == -1 || groff->errorOutput().find("not found") != std::string::npos) {
        GTEST_SKIP() << "groff is not installed";
    }
    ASSERT_EQ(groff->exitCode(), 0) << groff->errorOutput();
    EXPECT_EQ(groff->errorOutput(), "");
    const std::string& shown = groff->output();
    EXPECT_TRUE(vn::isValidUTF8(shown));
    auto help = vrnl({"help", "diff"});
    // The option texts read the same on the page as in the help.
    for (const char* words : {"--ignore-whitespace", "Ignore changes in white space",
                              "What revision R changed against its first parent"}) {
        EXPECT_NE(help->output().find(words), std::string::npos) << words;
        EXPECT_NE(shown.find(words), std::string::npos) << words;
    }
}

}  // namespace
