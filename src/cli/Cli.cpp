#include "cli/Cli.h"

#include <unistd.h>

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

void printJson(const Value& value) {
    // Streamed: a large diff or history is written while it is generated, not held twice.
    JsonWriter writer(
        [](std::string_view chunk) {
            std::cout.write(chunk.data(), std::streamsize(chunk.size()));
        },
        true);
    writer.value(value);
    writer.flush();
    std::cout << "\n";
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
        {"doctor", "doctor [--json]",
         "Show which git, hg and companion tools Varnel runs, and their versions", runDoctor},
        {"diff",
         "diff [PATH] [--staged | --rev R | --range A B] [--context N] [--ignore-whitespace] "
         "[--max-files N] [FILES] [--json]  |  diff --patch-file FILE [--max-files N] [--json]",
         "Show changes with line numbers: unstaged, staged, of a revision or between two; or a "
         "patch file's (FILE - reads standard input)",
         runDiff},
        {"check-url", "check-url URL [--json]",
         "Tell whether a path or URL is a Git repository that can be reached", runCheckUrl},
        {"log",
         "log [PATH] [--skip N] [--limit N] [--branch B] [--remotes] [--topo] [--first-parent] "
         "[--graph [--svg FILE]] [--json]",
         "Show a page of history (100 commits unless --limit) with branch, tag and remote labels",
         runLog},
        {"show", "show [REV] [--json]",
         "Show a commit's author, committer, dates, labels, message and changed files", runShow},
        {"refs", "refs [PATH] [--json]",
         "List branches with upstream and ahead/behind counts, tags, remotes and stashes", runRefs},
        {"blame", "blame FILE [--rev R] [--json]",
         "Show who last changed each line of a file, in the working copy or at a revision",
         runBlame},
        {"search",
         "search --message|--author|--content|--hash|--range PATTERN [--since D] "
         "[--until D] [--json]",
         "Search the history, printing commits as they are found (D is YYYY-MM-DD)", runSearch},
        {"overview", "overview [PATH] [--json]",
         "The repository at a glance: the summary line and a page of history with its graph "
         "(what plain vrnl shows)",
         runOverview},
        {"status", "status [PATH] [--mask N] [--json]",
         "Show the branch, merge or rebase state and the changed files of a working copy",
         runStatus},
    };
    return table;
}

}  // namespace vn::cli
