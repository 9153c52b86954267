#include <chrono>
#include <iostream>
#include <string>

#include "base/Json.h"
#include "cli/Cli.h"
#include "cli/HistoryCli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/FailureCollector.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/NotificationCenter.h"

namespace vn::cli {

namespace {

// Prints each hit as soon as its whole line has arrived.
class HitPrinter {
  public:
    HitPrinter(VNRepoHandler& handler, bool json) : handler_(handler), json_(json) {
        if (json_) {
            std::cout << "[" << std::flush;
        }
    }

    void take(const std::string& text) {
        pending_ += text;
        std::size_t from = 0;
        for (std::size_t end; (end = pending_.find('\n', from)) != std::string::npos;
             from = end + 1) {
            print(pending_.substr(from, end - from));
        }
        pending_.erase(0, from);
    }

    // The last line may come without a newline.
    std::size_t finish() {
        if (!pending_.empty()) {
            print(pending_);
            pending_.clear();
        }
        if (json_) {
            std::cout << (hits_ && prettyJson() ? "\n]\n" : "]\n") << std::flush;
        }
        return hits_;
    }

  private:
    void print(const std::string& line) {
        auto row = handler_.parseLogLine(line);
        if (!row) {
            return;
        }
        if (json_) {
            // One hit a line when pretty, so that each stays readable without indenting it.
            if (prettyJson()) {
                std::cout << (hits_ ? ",\n  " : "\n  ") << toJson(*row);
            } else {
                std::cout << (hits_ ? "," : "") << toJson(*row);
            }
            std::cout << std::flush;
        } else {
            std::cout << history::rowLine(*row) << "\n" << std::flush;
        }
        ++hits_;
    }

    VNRepoHandler& handler_;
    bool json_;
    std::string pending_;
    std::size_t hits_ = 0;
};

}  // namespace

int runSearch(Arguments& args) {
    bool json = args.flag("--json");
    struct ModeFlag {
        const char* flag;
        uint32_t mode;
    };
    static const ModeFlag modes[] = {
        {"--message", VNRepoHandlerGit::SearchMessage},
        {"--author", VNRepoHandlerGit::SearchAuthor},
        {"--content", VNRepoHandlerGit::SearchContent},
        {"--hash", VNRepoHandlerGit::SearchHash},
        {"--range", VNRepoHandlerGit::SearchRange},
    };
    std::optional<uint32_t> mode;
    std::optional<std::string> pattern;
    for (const ModeFlag& candidate : modes) {
        if (auto value = args.option(candidate.flag)) {
            if (mode) {
                return usageError(
                    "search takes one of --message, --author, --content, --hash, "
                    "--range");
            }
            mode = candidate.mode;
            pattern = value;
        }
    }
    std::optional<std::string> sinceText = args.option("--since");
    std::optional<std::string> untilText = args.option("--until");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (!mode || !rest.empty()) {
        return usageError(
            "search needs --message, --author, --content, --hash or --range with "
            "a pattern");
    }
    if (pattern->empty()) {
        return usageError("search needs a pattern that is not empty");
    }
    // Without dates the whole history is searched (the engine starts at 1980 and stops two days
    // ahead).
    Value::Date since = std::chrono::system_clock::from_time_t(0);
    Value::Date until = std::chrono::system_clock::now() + std::chrono::hours(24 * 365);
    if (sinceText) {
        auto day = history::parseDay(*sinceText);
        if (!day) {
            return usageError("--since needs a day as YYYY-MM-DD");
        }
        since = *day;
    }
    if (untilText) {
        auto day = history::parseDay(*untilText);
        if (!day) {
            return usageError("--until needs a day as YYYY-MM-DD");
        }
        until = *day;
    }

    auto workingCopy = history::findGitWorkingCopy(".", true);
    if (!workingCopy) {
        return 1;
    }
    if (workingCopy->mercurial && *mode != VNRepoHandlerGit::SearchMessage &&
        *mode != VNRepoHandlerGit::SearchAuthor) {
        return usageError("in a Mercurial working copy search takes --message or --author");
    }
    VNRepoHandler& handler = history::anyHandler(*workingCopy);
    auto task = handler.searchLogTask(workingCopy->path, *pattern, *mode, since, until);
    if (!task) {
        return usageError("unknown search mode");
    }
    task->setReturnProgressiveOutput(true);
    HitPrinter printer(handler, json);
    VNTask* observed = task.get();
    auto observation = NotificationCenter::defaultCenter().addObserver(
        VNTask::OutputReceivedNotification, observed,
        [&printer, observed](const Notification&) { printer.take(observed->newOutput()); });
    bool ok = workingCopy->mercurial ? workingCopy->mercurial->runQuery(task) : task->run();
    observation.reset();
    std::size_t hits = printer.finish();
    if (!ok) {
        std::cerr << (workingCopy->mercurial ? "vrnl: hg log failed: " : "vrnl: git log failed: ")
                  << displayLines(FailureCollector::reason(task->errorOutput(), task->exitCode()))
                  << "\n";
        return 1;
    }
    return hits > 0 ? 0 : 1;
}

const Subcommand& searchCommand() {
    static const Subcommand command{
        "search",
        {"search --message|--author|--content|--hash|--range PATTERN [--since D] [--until D] "
         "[--json]"},
        "Search the history, printing commits as they are found (D is YYYY-MM-DD)",
        "Searches the history of the repository in the current folder with one of the modes "
        "below and prints each matching commit as soon as git finds it.",
        {
            {"--message PATTERN", "Commits whose message matches PATTERN (case ignored)"},
            {"--author PATTERN", "Commits whose author matches PATTERN (case ignored)"},
            {"--content PATTERN", "Commits that add or remove text matching PATTERN"},
            {"--hash PATTERN", "The commit that PATTERN (a commit id or its start) names"},
            {"--range PATTERN", "The commits reachable from PATTERN and not from HEAD"},
            {"--since D", "Only commits made on day D (YYYY-MM-DD) or later"},
            {"--until D", "Only commits made before day D"},
            {"--json", "Print the result as JSON for programs (compact; --pretty indents it)"},
        },
        runSearch,
    };
    return command;
}

}  // namespace vn::cli
