#pragma once

#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"
#include "base/Value.h"

namespace vn::cli {

// The words after the subcommand, with helpers to take options out of them.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {}

    // Removes "--name" and answers whether it was there.
    bool flag(std::string_view name);
    // Removes "--name VALUE" or "--name=VALUE" and answers the value. A missing value is an
    // error reported through `error()`.
    std::optional<std::string> option(std::string_view name);
    // What is left once the options are taken; an unknown "--option" left over is an error.
    std::vector<std::string> positional();
    const std::string& error() const { return error_; }

  private:
    std::vector<std::string> words_;
    std::string error_;
};

// One option of a command as its help shows it.
struct OptionHelp {
    std::string name;  // "--rev R", "--json"
    std::string text;
};

// A command's usage text: the help of `vrnl help NAME` and `vrnl NAME --help` and its section
// of the man page are all made from this.
struct Subcommand {
    std::string name;
    std::vector<std::string> usage;  // synopsis lines, each after "vrnl "
    std::string summary;             // one line for the overview
    std::string description;         // paragraphs separated by blank lines
    std::vector<OptionHelp> options;
    std::function<int(Arguments&)> run;
};

// Every command, in the order the overview lists them.
const std::vector<Subcommand>& subcommands();
const Subcommand* findSubcommand(std::string_view name);

// The usage text of one command, and of vrnl as a whole.
std::string commandHelp(const Subcommand& command);
std::string overallHelp();
// The manual page in troff, made from the same texts.
std::string manPage();

// Whether --json prints indented text (the global --pretty) or compact text (the default).
void setPrettyJson(bool pretty);
bool prettyJson();
// Prints a value as JSON followed by a newline.
void printJson(const Value& value);
// A command's end: `result` printed as JSON when asked for, and the exit status of `ok`.
int finish(bool ok, const Record& result, bool json);
// Writes an error line "vrnl: ..." to standard error and answers the exit status for usage errors.
int usageError(const std::string& message);

// Text from git, the repository or the user as human output writes it: control characters
// escaped visibly, malformed UTF-8 as U+FFFD (see vn::displayText). JSON output is not passed
// through these.
std::string display(std::string_view text);
// The same for text of several lines (messages, git's error output): line breaks and tabs stay.
std::string displayLines(std::string_view text);

// `given` (relative to the current folder) relative to the working copy's `root`, the way the
// tools take it; nothing outside the working copy. The last component is kept as written, so
// that a symbolic link names itself and not its target, and a file that no longer exists can
// still be named.
std::optional<std::string> relativeToRoot(const std::filesystem::path& root,
                                          const std::string& given);

// Whether standard output is a terminal that takes colour (and NO_COLOR is not set).
bool useColour();
std::string colour(std::string_view text, std::string_view sgr);

int runDoctor(Arguments& args);
int runDiff(Arguments& args);
int runCheckUrl(Arguments& args);
int runLog(Arguments& args);
int runShow(Arguments& args);
int runRefs(Arguments& args);
int runBlame(Arguments& args);
int runSearch(Arguments& args);
int runStatus(Arguments& args);
int runStage(Arguments& args);
int runUnstage(Arguments& args);
int runDiscard(Arguments& args);
int runAdd(Arguments& args);
int runRemove(Arguments& args);
int runMove(Arguments& args);
int runOpen(Arguments& args);
// The repository at a glance: the summary line, then a page of history with its graph.
int runOverview(Arguments& args);
int runCommit(Arguments& args);
int runInit(Arguments& args);
int runClone(Arguments& args);
int runPush(Arguments& args);
int runPull(Arguments& args);
int runFetch(Arguments& args);

// The commands, each with its usage text, defined beside the code that runs it.
const Subcommand& doctorCommand();
const Subcommand& diffCommand();
const Subcommand& checkUrlCommand();
const Subcommand& logCommand();
const Subcommand& showCommand();
const Subcommand& refsCommand();
const Subcommand& blameCommand();
const Subcommand& searchCommand();
const Subcommand& statusCommand();
const Subcommand& stageCommand();
const Subcommand& unstageCommand();
const Subcommand& discardCommand();
const Subcommand& addCommand();
const Subcommand& removeCommand();
const Subcommand& moveCommand();
const Subcommand& openCommand();
const Subcommand& overviewCommand();
const Subcommand& helpCommand();
const Subcommand& commitCommand();
const Subcommand& initCommand();
const Subcommand& cloneCommand();
const Subcommand& pushCommand();
const Subcommand& pullCommand();
const Subcommand& fetchCommand();
// Mercurial only (MercurialCommands.cpp).
const Subcommand& updateCommand();
const Subcommand& mergeCommand();
const Subcommand& resolveCommand();
const Subcommand& tagCommand();
const Subcommand& bookmarkCommand();
const Subcommand& backoutCommand();
const Subcommand& shelveCommand();

// Status records grouped as staged, unstaged, unmerged, clean and ignored, one file a line.
void printStatusGroups(const std::vector<Record>& files);

// History rows, one a line, with the graph beside them when asked.
void printHistoryRows(const std::vector<Record>& rows, bool graph);

}  // namespace vn::cli
