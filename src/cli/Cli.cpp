#include "cli/Cli.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "base/Json.h"
#include "base/TextEncoding.h"

namespace vn::cli {

bool Arguments::flag(std::string_view name) {
    for (auto it = words_.begin(); it != words_.end(); ++it) {
        if (*it == "--") {
            break;
        }
        if (*it == name) {
            words_.erase(it);
            return true;
        }
    }
    return false;
}

std::optional<std::string> Arguments::option(std::string_view name) {
    std::string prefix = std::string(name) + "=";
    for (auto it = words_.begin(); it != words_.end(); ++it) {
        if (*it == "--") {
            break;
        }
        if (*it == name) {
            if (it + 1 == words_.end()) {
                error_ = std::string(name) + " needs a value";
                words_.erase(it);
                return std::nullopt;
            }
            std::string value = *(it + 1);
            words_.erase(it, it + 2);
            return value;
        }
        if (it->rfind(prefix, 0) == 0) {
            std::string value = it->substr(prefix.size());
            words_.erase(it);
            return value;
        }
    }
    return std::nullopt;
}

std::vector<std::string> Arguments::positional() {
    std::vector<std::string> result;
    bool literal = false;
    for (const std::string& word : words_) {
        if (!literal && word == "--") {
            literal = true;
            continue;
        }
        if (!literal && word.size() > 1 && word[0] == '-' && error_.empty()) {
            error_ = "unknown option " + word;
        }
        result.push_back(word);
    }
    return result;
}

namespace {

bool pretty = false;

}  // namespace

void setPrettyJson(bool on) {
    pretty = on;
}

bool prettyJson() {
    return pretty;
}

void printJson(const Value& value) {
    std::cout.flush();
    std::fflush(stdout);
    // Streamed: a large diff or history is written while it is generated, not held twice. The
    // writer's chunks are already large, so they go out whole rather than through stdio's
    // small buffer (which cut each in two).
    bool failed = false;
    JsonWriter writer(
        [&failed](std::string_view chunk) {
            while (!chunk.empty() && !failed) {
                ssize_t written = ::write(STDOUT_FILENO, chunk.data(), chunk.size());
                if (written > 0) {
                    chunk.remove_prefix(static_cast<std::size_t>(written));
                } else if (!(written < 0 && errno == EINTR)) {
                    failed = true;  // a closed reader: the rest has nowhere to go
                }
            }
        },
        pretty);
    writer.value(value);
    writer.flush();
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

int finish(bool ok, const Record& result, bool json) {
    if (json) {
        printJson(result);
    }
    return ok ? 0 : 1;
}

int usageError(const std::string& message) {
    std::cerr << "vrnl: " << displayLines(message) << "\n";
    return 2;
}

std::string display(std::string_view text) {
    return displayText(text);
}

std::string displayLines(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t from = 0;
    while (from <= text.size()) {
        std::size_t end = text.find('\n', from);
        appendDisplayText(out, text.substr(from, end == std::string_view::npos ? end : end - from),
                          true);
        if (end == std::string_view::npos) {
            break;
        }
        out.push_back('\n');
        from = end + 1;
    }
    return out;
}

bool useColour() {
    static const bool enabled = [] {
        const char* noColour = std::getenv("NO_COLOR");
        const char* term = std::getenv("TERM");
        return ::isatty(STDOUT_FILENO) && !(noColour && *noColour) &&
               !(term && std::string_view(term) == "dumb");
    }();
    return enabled;
}

std::string colour(std::string_view text, std::string_view sgr) {
    if (!useColour()) {
        return std::string(text);
    }
    return "\x1b[" + std::string(sgr) + "m" + std::string(text) + "\x1b[0m";
}

const std::vector<Subcommand>& subcommands() {
    static const std::vector<Subcommand> table = {
        doctorCommand(), diffCommand(),     checkUrlCommand(), logCommand(),      showCommand(),
        refsCommand(),   blameCommand(),    searchCommand(),   overviewCommand(), statusCommand(),
        stageCommand(),  unstageCommand(),  discardCommand(),  addCommand(),      removeCommand(),
        moveCommand(),   commitCommand(),   initCommand(),     cloneCommand(),    pushCommand(),
        pullCommand(),   fetchCommand(),    updateCommand(),   mergeCommand(),    resolveCommand(),
        tagCommand(),    bookmarkCommand(), backoutCommand(),  shelveCommand(),   openCommand(),
        helpCommand(),
    };
    return table;
}

const Subcommand* findSubcommand(std::string_view name) {
    for (const Subcommand& command : subcommands()) {
        if (command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

namespace {

constexpr std::size_t kWidth = 80;

// The words of `text` in lines of at most kWidth columns: the first continues a line already at
// `column`, the others start after `indent` blanks. A word longer than a line stands alone.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t column = 0) {
    std::string out;
    bool lineEmpty = true;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t begin = text.find_first_not_of(' ', at);
        if (begin == std::string_view::npos) {
            break;
        }
        std::size_t end = std::min(text.find(' ', begin), text.size());
        std::string_view word = text.substr(begin, end - begin);
        if (!lineEmpty && column + 1 + word.size() > kWidth) {
            out.append("\n").append(indent, ' ');
            column = indent;
            lineEmpty = true;
        }
        if (!lineEmpty) {
            out.push_back(' ');
            ++column;
        }
        out.append(word);
        column += word.size();
        lineEmpty = false;
        at = end;
    }
    return out.append("\n");
}

const std::vector<OptionHelp>& globalOptions() {
    static const std::vector<OptionHelp> options = {
        {"--pretty", "With --json, indent the JSON for people to read"},
        {"--help, -h", "Show the help of vrnl, or of the command it follows"},
        {"--version, -V", "Show the version of vrnl"},
    };
    return options;
}

std::string optionTable(const std::vector<OptionHelp>& options) {
    std::size_t nameWidth = 0;
    for (const OptionHelp& option : options) {
        nameWidth = std::max(nameWidth, option.name.size());
    }
    nameWidth = std::min<std::size_t>(nameWidth, 20);
    std::size_t textColumn = 2 + nameWidth + 2;
    std::string out;
    for (const OptionHelp& option : options) {
        out.append("  ").append(option.name);
        if (option.name.size() > nameWidth) {
            out.append("\n").append(textColumn, ' ');
        } else {
            out.append(nameWidth - option.name.size() + 2, ' ');
        }
        out.append(wrapped(option.text, textColumn, textColumn));
    }
    return out;
}

// Paragraphs are separated by blank lines in the description texts.
std::vector<std::string_view> paragraphs(std::string_view text) {
    std::vector<std::string_view> out;
    while (!text.empty()) {
        std::size_t end = text.find("\n\n");
        out.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            break;
        }
        text.remove_prefix(end + 2);
    }
    return out;
}

}  // namespace

std::string commandHelp(const Subcommand& command) {
    std::string out;
    for (std::size_t i = 0; i < command.usage.size(); ++i) {
        out.append(i == 0 ? "Usage: vrnl " : "       vrnl ");
        out.append(wrapped(command.usage[i], 16, 12));
    }
    out.append("\n").append(wrapped(command.summary, 0));
    for (std::string_view paragraph : paragraphs(command.description)) {
        out.append("\n").append(wrapped(paragraph, 0));
    }
    if (!command.options.empty()) {
        out.append("\nOptions:\n").append(optionTable(command.options));
    }
    out.append("\nGlobal options:\n").append(optionTable(globalOptions()));
    return out;
}

std::string overallHelp() {
    std::string out =
        "Usage: vrnl [--pretty] [--help] [--version] [COMMAND] [ARGS]\n\n"
        "Varnel drives the real git and hg for you.\n\nCommands:\n";
    for (const Subcommand& command : subcommands()) {
        out.append("  ").append(wrapped(command.usage.front(), 8, 2));
        out.append(6, ' ').append(wrapped(command.summary, 6, 6));
    }
    out.append(
        "\nWithout a command, vrnl shows the repository it runs in at a glance: the summary "
        "line\nand a page of history with its graph.\n"
        "Every command takes --json to print its result for programs; vrnl help COMMAND or\n"
        "vrnl COMMAND --help shows a command's options.\n\nGlobal options:\n");
    out.append(optionTable(globalOptions()));
    return out;
}

namespace {

// Text for a troff line: backslashes doubled, hyphens of options kept as minus signs, and a
// line that would start with a control character protected.
std::string troff(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') {
            out.append("\\e");
        } else if (c == '-') {
            out.append("\\-");
        } else {
            out.push_back(c);
        }
    }
    if (!out.empty() && (out.front() == '.' || out.front() == '\'')) {
        out.insert(0, "\\&");
    }
    return out;
}

void manOptions(std::string& out, const std::vector<OptionHelp>& options) {
    for (const OptionHelp& option : options) {
        out.append(".TP\n.B ").append(troff(option.name)).append("\n");
        out.append(troff(option.text)).append("\n");
    }
}

}  // namespace

std::string manPage() {
    std::string out;
    out.append(".TH VRNL 1 \"\" \"vrnl " VARNEL_VERSION "\" \"User Commands\"\n");
    out.append(".SH NAME\nvrnl \\- a Git and Mercurial client for the command line\n");
    out.append(".SH SYNOPSIS\n");
    out.append(".B vrnl\n[\\fB\\-\\-pretty\\fR] [\\fICOMMAND\\fR] [\\fIARGS\\fR]\n");
    out.append(".SH DESCRIPTION\n");
    out.append(
        "vrnl runs the real git and hg and shows what they report: the status of a working "
        "copy, its history with the commit graph, commits, references, blame, searches and "
        "diffs with line numbers. Without a command it shows the repository it runs in at a "
        "glance: the summary line and a page of history with its graph.\n");
    out.append(
        ".PP\nEvery command takes \\fB\\-\\-json\\fR to print its result as compact JSON "
        "for programs; text that is not valid UTF\\-8 appears there with U+FFFD in its "
        "place.\n");
    out.append(".SH COMMANDS\n");
    for (const Subcommand& command : subcommands()) {
        out.append(".SS ").append(troff(command.name)).append("\n");
        for (std::size_t i = 0; i < command.usage.size(); ++i) {
            if (i > 0) {
                out.append(".br\n");
            }
            out.append("\\fBvrnl\\fR ").append(troff(command.usage[i])).append("\n");
        }
        out.append(".PP\n").append(troff(command.summary)).append(".\n");
        for (std::string_view paragraph : paragraphs(command.description)) {
            out.append(".PP\n").append(troff(paragraph)).append("\n");
        }
        manOptions(out, command.options);
    }
    out.append(".SH GLOBAL OPTIONS\n");
    manOptions(out, globalOptions());
    out.append(".SH ENVIRONMENT\n");
    manOptions(out, {
                        {"VARNEL_LOG",
                         "The level of the engine's log lines: error, warning, info, "
                         "debug or verbose"},
                        {"VARNEL_RESOURCES",
                         "The resource folder, in place of the one installed "
                         "beside vrnl"},
                        {"NO_COLOR", "When set and not empty, no colour in the output"},
                        {"XDG_CONFIG_HOME, XDG_DATA_HOME",
                         "Where the preferences (varnel/) and the application data live"},
                    });
    out.append(".SH EXIT STATUS\n");
    manOptions(out, {
                        {"0", "Success"},
                        {"1",
                         "The command failed: no repository there, git reported an error, "
                         "or what was asked for does not exist"},
                        {"2",
                         "The command line was wrong: an unknown command or option, or a "
                         "missing or bad value"},
                    });
    out.append(".SH SEE ALSO\n.BR git (1),\n.BR hg (1)\n");
    return out;
}

namespace {

int runHelp(Arguments& args) {
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("help takes one command");
    }
    if (rest.empty()) {
        std::cout << overallHelp();
        return 0;
    }
    const Subcommand* command = findSubcommand(rest[0]);
    if (!command) {
        return usageError("unknown command \"" + rest[0] + "\"; see vrnl help");
    }
    std::cout << commandHelp(*command);
    return 0;
}

}  // namespace

const Subcommand& helpCommand() {
    static const Subcommand command{
        "help",
        {"help [COMMAND]"},
        "Show the usage and options of a command, or the list of commands",
        "vrnl COMMAND --help shows the same.",
        {},
        runHelp,
    };
    return command;
}

}  // namespace vn::cli
