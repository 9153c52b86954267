#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/VNApplication.h"
#include "base/TextEncoding.h"
#include "cli/Cli.h"
#include "handler/GitSettings.h"
#include "handler/VNRepoHandler.h"
#include "handler/VNTask.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/DiffOptions.h"
#include "model/VNDiffModel.h"
#include "model/VNDiffParser.h"
#include "platform/FileSystem.h"

namespace vn::cli {

namespace {

const char* changeTypeName(uint64_t changeType) {
    switch (changeType) {
        case VNDiffFileModel::Added:
            return "added";
        case VNDiffFileModel::Deleted:
            return "deleted";
        case VNDiffFileModel::Renamed:
            return "renamed";
        case VNDiffFileModel::Copied:
            return "copied";
        case VNDiffFileModel::Untracked:
            return "untracked";
        case VNDiffFileModel::Unchanged:
            return "unchanged";
        default:
            return "modified";
    }
}

// "-start,count" the way a patch writes a range; the count only when the range spans lines.
std::string rangeText(char side, int64_t start, int64_t end) {
    std::string text(1, side);
    text.append(std::to_string(start));
    if (end > start) {
        text.append(",").append(std::to_string(end - start + 1));
    }
    return text;
}

std::string shortReference(const std::string& ref) {
    return ref.empty() ? "-" : ref.substr(0, 12);
}

// Width of the line-number columns: the longest number the file's hunks print.
std::size_t lineNumberWidth(const VNDiffFileModel& file) {
    int64_t largest = 0;
    for (const auto& hunk : file.hunks()) {
        for (std::size_t i = 0, count = hunk->lineCount(); i < count; ++i) {
            VNDiffHunkModel::LineView line = hunk->lineAt(i);
            largest = std::max({largest, line.beforeLineNumber, line.afterLineNumber});
        }
    }
    return std::to_string(largest).size();
}

// The same as colour(), appended in place: a large diff prints millions of lines.
void appendColoured(std::string& out, std::string_view text, std::string_view sgr) {
    if (sgr.empty() || !useColour()) {
        out.append(text);
        return;
    }
    out.append("\x1b[").append(sgr).append("m").append(text).append("\x1b[0m");
}

void appendLineNumber(std::string& out, int64_t number, std::size_t width) {
    char buffer[24];
    std::size_t length = 0;
    if (number != VNDiffHunkModel::NoLineNumber) {
        length = static_cast<std::size_t>(
            std::to_chars(buffer, buffer + sizeof buffer, number).ptr - buffer);
    }
    if (length < width) {
        out.append(width - length, ' ');
    }
    out.append(buffer, length);
}

void printFile(const VNDiffFileModel& file, std::string& out) {
    std::string name = file.filename().empty() ? "(no name)" : display(file.filename());
    if (!file.rev().empty()) {
        out += colour(display(file.rev()), "33") + " ";
    }
    out += colour(changeTypeName(file.changeType()), "1") + "  ";
    if (!file.previousFilename().empty()) {
        out += colour(display(file.previousFilename()), "1") + " -> ";
    }
    out += colour(name, "1");
    if (file.linesAdded() || file.linesRemoved()) {
        out += "  " + colour("+" + std::to_string(file.linesAdded()), "32") + " " +
               colour("-" + std::to_string(file.linesRemoved()), "31");
    }
    out += "\n";
    if (file.oldFileMode() || file.newFileMode()) {
        out += "  mode " + std::to_string(file.oldFileMode()) + " -> " +
               std::to_string(file.newFileMode()) + "\n";
    }
    if (file.fileType() == VNDiffFileModel::Binary) {
        out += "  " + colour("binary file", "35") + ", no lines shown\n";
    } else if (file.fileType() == VNDiffFileModel::LargeFilePointer) {
        out += "  " + colour("Git LFS file", "35") + " " +
               shortReference(file.beforeLargeFileRef()) + " -> " +
               shortReference(file.afterLargeFileRef()) + "\n";
    }

    std::size_t width = lineNumberWidth(file);
    for (const auto& hunk : file.hunks()) {
        out += colour("@@ " + rangeText('-', hunk->startLineBefore(), hunk->endLineBefore()) + " " +
                          rangeText('+', hunk->startLineAfter(), hunk->endLineAfter()) + " @@",
                      "36") +
               "\n";
        std::string numbers;
        for (std::size_t i = 0, count = hunk->lineCount(); i < count; ++i) {
            VNDiffHunkModel::LineView line = hunk->lineAt(i);
            numbers.clear();
            appendLineNumber(numbers, line.beforeLineNumber, width);
            numbers.push_back(' ');
            appendLineNumber(numbers, line.afterLineNumber, width);
            appendColoured(out, numbers, "2");
            out.push_back(' ');
            std::string_view sgr = line.prefix == "+"    ? "32"
                                   : line.prefix == "-"  ? "31"
                                   : line.prefix == "\\" ? "2"
                                                         : "";
            // File contents keep their tabs; anything else that would steer the terminal is
            // shown escaped.
            if (sgr.empty() || !useColour()) {
                appendDisplayText(out, line.prefix, true);
                appendDisplayText(out, line.line, true);
            } else {
                out.append("\x1b[").append(sgr).append("m");
                appendDisplayText(out, line.prefix, true);
                appendDisplayText(out, line.line, true);
                out.append("\x1b[0m");
            }
            out.push_back('\n');
        }
    }
}

// A mailbox written by `git format-patch` holds one patch per "From <id> " line. Parsed as one
// text, the mail headers of each patch would run on as lines of the previous patch's last hunk.
std::vector<std::string_view> mailboxPatches(std::string_view text) {
    auto isSeparator = [&](std::size_t at) {
        if (text.compare(at, 5, "From ") != 0 || text.size() < at + 46 || text[at + 45] != ' ') {
            return false;
        }
        for (std::size_t i = at + 5; i < at + 45; ++i) {
            if (!((text[i] >= '0' && text[i] <= '9') || (text[i] >= 'a' && text[i] <= 'f'))) {
                return false;
            }
        }
        return true;
    };
    std::vector<std::string_view> patches;
    std::size_t from = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (at > from && isSeparator(at)) {
            patches.push_back(text.substr(from, at - from));
            from = at;
        }
        std::size_t end = text.find('\n', at);
        if (end == std::string_view::npos) {
            break;
        }
        at = end + 1;
    }
    patches.push_back(text.substr(from));
    return patches;
}

// `git format-patch` ends each patch with a mail signature, "-- " and the git version, which
// would otherwise read as one more removed line and one more line of the last hunk.
std::string_view withoutMailSignature(std::string_view patch) {
    std::string_view rest = patch;
    while (!rest.empty() && (rest.back() == '\n' || rest.back() == '\r')) {
        rest.remove_suffix(1);
    }
    std::size_t lastLine = rest.rfind('\n');
    // The signature is git's version; no diff line starts with a digit.
    if (lastLine == std::string_view::npos || lastLine + 1 == rest.size() ||
        rest[lastLine + 1] < '0' || rest[lastLine + 1] > '9') {
        return patch;
    }
    std::string_view before = rest.substr(0, lastLine);
    if (!before.empty() && before.back() == '\r') {
        before.remove_suffix(1);
    }
    if (before.size() < 4 || before.substr(before.size() - 4) != "\n-- ") {
        return patch;
    }
    return patch.substr(0, before.size() - 3);
}

std::optional<std::string> readPatch(const std::string& path) {
    if (path == "-") {
        return std::string(std::istreambuf_iterator<char>(std::cin), {});
    }
    return fs::readFile(path);
}

// Reads a count option of at most `highest`; nothing when it is absent, and `error` set when it
// is no count or out of range.
std::optional<uint64_t> countOption(Arguments& args, std::string_view name, std::string& error,
                                    uint64_t highest) {
    std::optional<std::string> text = args.option(name);
    if (!text) {
        return std::nullopt;
    }
    uint64_t value = 0;
    const char* end = text->data() + text->size();
    auto [rest, failure] = std::from_chars(text->data(), end, value);
    if (text->empty() || failure != std::errc() || rest != end || value > highest) {
        error = std::string(name) + " needs a number from 0 to " + std::to_string(highest) +
                ", not \"" + *text + "\"";
        return std::nullopt;
    }
    return value;
}

void printModel(const std::shared_ptr<VNDiffModel>& model, bool json) {
    if (json) {
        printJson(Value(model));
        return;
    }
    std::string out;
    bool first = true;
    for (const auto& file : model->fileEntries()) {
        if (!first) {
            out += "\n";
        }
        first = false;
        printFile(*file, out);
        if (out.size() > (1u << 20)) {
            std::cout.write(out.data(), static_cast<std::streamsize>(out.size()));
            out.clear();
        }
    }
    std::cout.write(out.data(), static_cast<std::streamsize>(out.size()));
    std::cout.flush();
}

int showPatchFile(const std::string& patchFile, uint64_t maxFiles, bool json) {
    std::optional<std::string> bytes = readPatch(patchFile);
    if (!bytes) {
        std::cerr << "vrnl: cannot read " << display(patchFile) << "\n";
        return 1;
    }
    // Read as bytes, like a diff from git: names stay exact and each line is decoded by itself.
    std::string text = std::move(*bytes);
    bytes.reset();

    auto model = std::make_shared<VNDiffModel>(std::min<uint64_t>(maxFiles, 20));
    VNDiffParser parser = VNDiffParser::git();
    for (std::string_view patch : mailboxPatches(text)) {
        parser.parseDiffToModel(withoutMailSignature(patch), model->fileEntries(), maxFiles);
    }
    printModel(model, json);
    return 0;
}

// The working copy that holds `folder`: the nearest folder upwards that has a ".git".
std::optional<std::filesystem::path> workingCopyRoot(VNRepoHandler& handler,
                                                     std::filesystem::path folder) {
    while (true) {
        if (handler.validateWorkingDirectory(folder.string())) {
            return folder;
        }
        if (folder == folder.parent_path() || folder.empty()) {
            return std::nullopt;
        }
        folder = folder.parent_path();
    }
}

std::filesystem::path resolved(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path result = std::filesystem::weakly_canonical(path, error);
    return error ? std::filesystem::absolute(path).lexically_normal() : result;
}

// A file's path with its folders resolved but not the file itself: git tracks a symbolic link
// as a file of its own.
std::filesystem::path resolvedFile(const std::filesystem::path& path) {
    std::filesystem::path normal = path.lexically_normal();
    if (!normal.has_filename() || normal.filename() == "..") {
        return resolved(normal);
    }
    return resolved(normal.parent_path()) / normal.filename();
}

}  // namespace

int runDiff(Arguments& args) {
    bool json = args.flag("--json");
    bool staged = args.flag("--staged");
    bool ignoreWhitespace = args.flag("--ignore-whitespace");
    std::optional<std::string> patchFile = args.option("--patch-file");
    std::optional<std::string> revision = args.option("--rev");
    std::string error;
    std::optional<uint64_t> maxFilesOption =
        countOption(args, "--max-files", error, std::numeric_limits<uint32_t>::max());
    // More context than any file has lines makes no difference.
    std::optional<uint64_t> context = countOption(args, "--context", error, 1u << 20);
    if (!error.empty()) {
        return usageError(error);
    }
    // An option takes one value here, so the second revision of "--range A B" is the word left
    // where the option stood.
    std::vector<std::string> wordsBefore = Arguments(args).positional();
    std::optional<std::string> rangeFrom = args.option("--range");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    std::optional<std::string> rangeTo;
    if (rangeFrom) {
        std::size_t dots = rangeFrom->find("..");
        if (dots != std::string::npos && rangeFrom->find("...") == std::string::npos) {
            rangeTo = rangeFrom->substr(dots + 2);
            rangeFrom = rangeFrom->substr(0, dots);
        } else {
            std::size_t at = 0;
            while (at < rest.size() && at < wordsBefore.size() && rest[at] == wordsBefore[at]) {
                ++at;
            }
            if (at >= rest.size()) {
                return usageError("--range needs two revisions");
            }
            rangeTo = rest[at];
            rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(at));
        }
        if (rangeFrom->empty() || rangeTo->empty()) {
            return usageError("--range needs two revisions");
        }
    }
    // An option takes the next word whatever it is; one that git would read as an option of
    // its own ("--output=FILE" writes a file) is no revision.
    for (const std::optional<std::string>* given : {&revision, &rangeFrom, &rangeTo}) {
        if (*given && GitSettings::isOptionShaped(**given)) {
            return usageError("\"" + **given + "\" is not a revision");
        }
    }
    uint64_t maxFiles = maxFilesOption.value_or(std::numeric_limits<uint64_t>::max());

    if (patchFile) {
        if (!rest.empty()) {
            return usageError("diff --patch-file takes no other arguments");
        }
        if (staged || revision || rangeFrom || context || ignoreWhitespace) {
            return usageError("diff --patch-file shows the patch as it is, without diff options");
        }
        return showPatchFile(*patchFile, maxFiles, json);
    }
    if (int(staged) + int(revision.has_value()) + int(rangeFrom.has_value()) > 1) {
        return usageError("--staged, --rev and --range exclude each other");
    }

    std::error_code cwdError;
    std::filesystem::path current = resolved(std::filesystem::current_path(cwdError));
    // The working copy is a Git or a Mercurial one: the nearest of the two that holds the folder.
    auto handler = VNApplication::shared().handlerForType(VNRepositoryTypeGit);
    auto mercurial = std::dynamic_pointer_cast<VNRepoHandlerMercurial>(
        VNApplication::shared().handlerForType(VNRepositoryTypeMercurial));
    auto nearestRoot = [&](const std::filesystem::path& folder) {
        std::optional<std::filesystem::path> gitRoot = workingCopyRoot(*handler, folder);
        std::optional<std::filesystem::path> hgRoot =
            mercurial ? workingCopyRoot(*mercurial, folder) : std::nullopt;
        bool useHg = hgRoot && (!gitRoot || hgRoot->string().size() > gitRoot->string().size());
        return std::pair{useHg ? hgRoot : gitRoot, useHg};
    };
    auto [currentRoot, currentIsHg] = nearestRoot(current);
    // The first word names the working copy when it is one, or when there is no working copy
    // here for files to belong to; otherwise every word is a file, as with git.
    std::filesystem::path base = current;
    if (!rest.empty() && fs::isDirectory(rest.front())) {
        std::filesystem::path folder = resolved(rest.front());
        if (!currentRoot || handler->validateWorkingDirectory(folder.string()) ||
            (mercurial && mercurial->validateWorkingDirectory(folder.string()))) {
            base = folder;
            rest.erase(rest.begin());
        }
    }
    auto [root, isHg] = base == current ? std::pair{currentRoot, currentIsHg} : nearestRoot(base);
    if (!root) {
        std::cerr << "vrnl: " << display(base.string()) << " is not in a Git working copy\n";
        return 1;
    }
    if (isHg && staged) {
        return usageError("--staged: Mercurial has no staging area");
    }
    std::shared_ptr<VNRepoHandler> used = handler;
    if (isHg) {
        used = mercurial;
    }
    // Files are named from the folder given (or the current one); git wants them from the root.
    std::vector<std::string> files;
    for (const std::string& word : rest) {
        std::filesystem::path relative = resolvedFile(base / word).lexically_relative(*root);
        std::string name = relative.string();
        if (name.empty() || name == ".." || name.rfind("../", 0) == 0) {
            std::cerr << "vrnl: " << display(word) << " is outside the working copy "
                      << display(root->string()) << "\n";
            return 1;
        }
        files.push_back(name);
    }

    uint64_t options = ignoreWhitespace ? DiffIgnoreWhitespace : 0;
    int lines = static_cast<int>(std::min<uint64_t>(context.value_or(3), 1u << 20));
    std::string path = root->string();
    std::shared_ptr<VNTask> task;
    if (revision) {
        task = used->revisionFileDiffTask(path, *revision, files, options, lines);
    } else if (rangeFrom) {
        task = used->revisionRangeFileDiffTask(path, *rangeFrom, *rangeTo, files, options, lines);
    } else if (staged) {
        task = used->fileDiffAgainstBaseTask(path, files, "", options, lines);
    } else {
        task = used->fileDiffAgainstBaseTask(path, files, options, lines);
    }
    if (!(isHg ? mercurial->runQuery(task) : task->run())) {
        std::cerr << displayLines(task->errorOutput());
        if (task->errorOutput().empty()) {
            std::cerr << "vrnl: " << display(task->displayCommand()) << " failed with code "
                      << task->exitCode() << "\n";
        }
        return 1;
    }
    auto model = std::make_shared<VNDiffModel>(std::min<uint64_t>(maxFiles, 20));
    used->parseDiffToModel(task->output(), model->fileEntries(), maxFiles);
    printModel(model, json);
    return 0;
}

const Subcommand& diffCommand() {
    static const Subcommand command{
        "diff",
        {"diff [PATH] [--staged | --rev R | --range A B] [--context N] [--ignore-whitespace] "
         "[--max-files N] [FILES] [--json]",
         "diff --patch-file FILE [--max-files N] [--json]"},
        "Show changes with line numbers: unstaged, staged, of a revision or between two; or a "
        "patch file's (FILE - reads standard input)",
        "Without options, shows what is changed in the working copy and not staged. FILES "
        "(after PATH, or after --) limit the diff to those files; they are taken literally. "
        "Each line shows its number before and after the change.",
        {
            {"--staged", "What is staged: the index against HEAD"},
            {"--rev R", "What revision R changed against its first parent"},
            {"--range A B", "The difference between revisions A and B (also written A..B)"},
            {"--context N", "N lines of context around each change (3 by default)"},
            {"--ignore-whitespace", "Ignore changes in white space"},
            {"--max-files N", "Stop after N files"},
            {"--patch-file FILE",
             "Show the patch in FILE as it is (- reads standard input); takes no other diff "
             "option"},
            {"--json", "Print the result as JSON for programs (compact; --pretty indents it)"},
        },
        runDiff,
    };
    return command;
}

}  // namespace vn::cli
