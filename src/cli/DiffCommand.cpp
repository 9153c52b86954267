#include <algorithm>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Cli.h"
#include "general/TextEncoding.h"
#include "general/VNDiffModel.h"
#include "general/VNDiffParser.h"
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

std::string padLeft(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
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
    std::size_t width = 1;
    for (const auto& hunk : file.hunks()) {
        for (const Record& line : hunk->hunkLines()) {
            width = std::max({width, line.string(VNDiffHunkModel::BeforeLineNumberKey).size(),
                              line.string(VNDiffHunkModel::AfterLineNumberKey).size()});
        }
    }
    return width;
}

void printFile(const VNDiffFileModel& file, std::string& out) {
    std::string name = file.filename().empty() ? "(no name)" : file.filename();
    if (!file.rev().empty()) {
        out += colour(file.rev(), "33") + " ";
    }
    out += colour(changeTypeName(file.changeType()), "1") + "  ";
    if (!file.previousFilename().empty()) {
        out += colour(file.previousFilename(), "1") + " -> ";
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
        for (const Record& line : hunk->hunkLines()) {
            std::string prefix = line.string(VNDiffHunkModel::PrefixKey);
            std::string numbers =
                padLeft(line.string(VNDiffHunkModel::BeforeLineNumberKey), width) + " " +
                padLeft(line.string(VNDiffHunkModel::AfterLineNumberKey), width);
            std::string text = prefix + line.string(VNDiffHunkModel::LineKey);
            const char* sgr = prefix == "+"    ? "32"
                              : prefix == "-"  ? "31"
                              : prefix == "\\" ? "2"
                                               : "";
            out += colour(numbers, "2") + " " + (*sgr ? colour(text, sgr) : text) + "\n";
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

}  // namespace

int runDiff(Arguments& args) {
    bool json = args.flag("--json");
    std::optional<std::string> patchFile = args.option("--patch-file");
    std::optional<std::string> maxFilesText = args.option("--max-files");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (!patchFile) {
        return usageError("diff needs --patch-file FILE");
    }
    if (!rest.empty()) {
        return usageError("diff --patch-file takes no other arguments");
    }
    uint64_t maxFiles = std::numeric_limits<uint64_t>::max();
    if (maxFilesText) {
        std::size_t used = 0;
        try {
            maxFiles = std::stoull(*maxFilesText, &used);
        } catch (...) {
            used = 0;
        }
        if (used == 0 || used != maxFilesText->size() || (*maxFilesText)[0] == '-') {
            return usageError("--max-files needs a number");
        }
    }

    std::optional<std::string> bytes = readPatch(*patchFile);
    if (!bytes) {
        std::cerr << "vrnl: cannot read " << *patchFile << "\n";
        return 1;
    }
    // Patches are read the way tool output is: UTF-8, else the older single-byte encodings.
    std::optional<std::string> decoded = decodeWithFallbacks(*bytes);
    std::string text = decoded ? std::move(*decoded) : repairUTF8(*bytes);
    bytes.reset();

    VNDiffModel model(std::min<uint64_t>(maxFiles, 20));
    VNDiffParser parser = VNDiffParser::git();
    for (std::string_view patch : mailboxPatches(text)) {
        parser.parseDiffToModel(withoutMailSignature(patch), model.fileEntries(), maxFiles);
    }

    if (json) {
        printJson(model.jsonValue());
        return 0;
    }
    std::string out;
    bool first = true;
    for (const auto& file : model.fileEntries()) {
        if (!first) {
            out += "\n";
        }
        first = false;
        printFile(*file, out);
    }
    std::cout << out << std::flush;
    return 0;
}

}  // namespace vn::cli
