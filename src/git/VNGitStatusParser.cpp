#include "git/VNGitStatusParser.h"

#include <algorithm>
#include <cctype>
#include <unordered_set>

#include "base/FieldReader.h"
#include "base/Regex.h"
#include "handler/VNRepoHandlerBase.h"
#include "model/VNFileStatusEntity.h"

namespace {

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

// Lets the set of reported paths be searched with views of the listing's lines, so that the
// long listing of tracked files is compared without a copy per line.
struct PathHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view path) const {
        return std::hash<std::string_view>{}(path);
    }
};
using PathSet = std::unordered_set<std::string, PathHash, std::equal_to<>>;

// Git quotes a name only when it holds a double quote, a backslash, a blank or a control
// character; anything else is used as printed.
bool needsUnquoting(std::string_view path) {
    return path.find_first_of("\"\\") != std::string_view::npos;
}

// The end of the quoted name that starts `text`: the position after its closing quote.
std::size_t quotedNameEnd(std::string_view text) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            return i + 1;
        }
    }
    return std::string_view::npos;
}

}  // namespace

// ---- Status letters ----------------------------------------------------------------------------

bool VNGitStatusParser::isUnmerged(char x, char y) {
    switch (x) {
        case 'D':
            return y == 'D' || y == 'U';
        case 'A':
            return y == 'U' || y == 'A';
        case 'U':
            return y == 'D' || y == 'A' || y == 'U';
        default:
            return false;
    }
}

uint64_t VNGitStatusParser::summariseStatus(char x, char y) {
    if (isUnmerged(x, y)) {
        return VNFileStatusConflicted;
    }
    if (y == '?') {
        return VNFileStatusUnknown;
    }
    if (x == 'A') {
        return VNFileStatusAdded;
    }
    if (x == 'M' || y == 'M') {
        return VNFileStatusModified;
    }
    if (x == 'D') {
        return VNFileStatusRemoved;
    }
    if (y == 'D') {
        return VNFileStatusMissing;
    }
    if (x == 'C') {
        return VNFileStatusAdded;
    }
    if (x == 'R') {
        return VNFileStatusRenamed;
    }
    // A type change (a file become a symbolic link) changes what is committed.
    if (x == 'T' || y == 'T') {
        return VNFileStatusModified;
    }
    return VNFileStatusClean;
}

namespace {

uint64_t translateSide(char letter, uint64_t deleted) {
    switch (letter) {
        case '?':
            return VNFileStatusUnknown;
        case 'A':
        case 'C':
            return VNFileStatusAdded;
        case 'M':
        case 'T':
            return VNFileStatusModified;
        case 'R':
            return VNFileStatusRenamed;
        case 'U':
            return VNFileStatusConflicted;
        case 'D':
            return deleted;
        default:
            return VNFileStatusClean;
    }
}

}  // namespace

uint64_t VNGitStatusParser::translateIndexStatus(char x) {
    return translateSide(x, VNFileStatusRemoved);
}

uint64_t VNGitStatusParser::translateTreeStatus(char y) {
    return translateSide(y, VNFileStatusMissing);
}

// ---- Status lines ------------------------------------------------------------------------------

std::optional<std::pair<std::string_view, std::string_view>> VNGitStatusParser::splitRenamePaths(
    std::string_view text) {
    static constexpr std::string_view arrow = " -> ";
    std::size_t separator = std::string_view::npos;
    if (!text.empty() && text.front() == '"') {
        std::size_t end = quotedNameEnd(text);
        if (end != std::string_view::npos && text.substr(end, arrow.size()) == arrow) {
            separator = end;
        }
    } else {
        separator = text.find(arrow);
    }
    if (separator != std::string_view::npos) {
        // Blanks around a name are part of it; only the separator goes.
        return std::make_pair(text.substr(0, separator), text.substr(separator + arrow.size()));
    }
    std::size_t plain = text.find("->");
    if (plain == std::string_view::npos) {
        return std::nullopt;
    }
    return std::make_pair(trimmed(text.substr(0, plain)), trimmed(text.substr(plain + 2)));
}

bool VNGitStatusParser::isFolderPath(std::string_view path) {
    return !path.empty() && path.back() == '/';
}

std::optional<VNGitStatusParser::Entry> VNGitStatusParser::parseStatusLine(std::string_view line) {
    if (line.size() < 4 || line[2] != ' ') {
        return std::nullopt;
    }
    char x = line[0];
    char y = line[1];
    Entry entry;
    entry.status = summariseStatus(x, y);
    entry.indexStatus = translateIndexStatus(x);
    entry.treeStatus = translateTreeStatus(y);
    std::string_view text = line.substr(3);
    // Copies are printed "source -> copy" like renames; the copy is the file listed.
    if (entry.indexStatus == VNFileStatusRenamed || x == 'C') {
        if (auto paths = splitRenamePaths(text)) {
            if (entry.indexStatus == VNFileStatusRenamed) {
                entry.previousPath = vn::unquoteToolPath(paths->first);
            }
            text = paths->second;
        }
    }
    entry.path = vn::unquoteToolPath(text);
    return entry;
}

std::vector<VNGitStatusParser::Entry> VNGitStatusParser::parseStatusOutput(
    std::string_view output) {
    std::vector<Entry> entries;
    if (output.find('\0') == std::string_view::npos) {
        for (std::string_view line : lines(output)) {
            if (auto entry = parseStatusLine(line)) {
                entries.push_back(std::move(*entry));
            }
        }
        return entries;
    }
    vn::FieldReader fields(output);
    std::string_view field;
    while (fields.next(field)) {
        if (field.size() < 4 || field[2] != ' ') {
            continue;
        }
        char x = field[0];
        char y = field[1];
        Entry entry;
        entry.status = summariseStatus(x, y);
        entry.indexStatus = translateIndexStatus(x);
        entry.treeStatus = translateTreeStatus(y);
        entry.path = std::string(field.substr(3));
        // A rename or copy (on either side) is followed by the name it came from.
        if (x == 'R' || x == 'C' || y == 'R' || y == 'C') {
            std::string_view previous;
            if (!fields.next(previous)) {
                break;  // cut short
            }
            if (entry.indexStatus == VNFileStatusRenamed) {
                entry.previousPath = std::string(previous);
            }
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

vn::Record VNGitStatusParser::statusRecord(std::string_view path, uint64_t status,
                                           uint64_t indexStatus, uint64_t treeStatus,
                                           const std::optional<std::string>& previousPath) {
    std::size_t slash = path.rfind('/');
    std::string_view filename = slash == std::string_view::npos ? path : path.substr(slash + 1);
    std::string_view folder =
        slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
    // Built whole, so that the record's entries are allocated once.
    if (!previousPath) {
        return vn::Record{{VNFileStatusKeyStatus, status},
                          {VNFileStatusKeyIndexStatus, indexStatus},
                          {VNFileStatusKeyTreeStatus, treeStatus},
                          {VNFileStatusKeyFilename, filename},
                          {VNFileStatusKeyPath, folder}};
    }
    return vn::Record{
        {VNFileStatusKeyStatus, status},         {VNFileStatusKeyIndexStatus, indexStatus},
        {VNFileStatusKeyTreeStatus, treeStatus}, {VNFileStatusKeyFilename, filename},
        {VNFileStatusKeyPath, folder},           {VNFileStatusKeyPreviousName, *previousPath}};
}

VNGitStatusParser::ListedFiles VNGitStatusParser::listedFiles(std::string_view output,
                                                              uint64_t status) {
    ListedFiles listed;
    std::size_t count = static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n'));
    listed.records.reserve(count + 1);
    listed.paths.reserve(count + 1);
    // Records are copies of one made here: one allocation per file instead of one per key.
    vn::Record prototype = statusRecord("", status, status, status);
    for (std::string& path : names(output)) {
        if (isFolderPath(path)) {
            continue;
        }
        std::string_view view = path;
        std::size_t slash = view.rfind('/');
        vn::Record& record = listed.records.emplace_back(prototype);
        if (slash == std::string_view::npos) {
            record.set(VNFileStatusKeyFilename, view);
        } else {
            record.set(VNFileStatusKeyFilename, view.substr(slash + 1));
            record.set(VNFileStatusKeyPath, view.substr(0, slash));
        }
        listed.paths.push_back(std::move(path));
    }
    return listed;
}

std::vector<vn::Record> VNGitStatusParser::fileStatusRecords(
    std::string_view statusOutput, std::optional<std::string_view> trackedOutput,
    std::optional<std::string_view> ignoredOutput, uint64_t mask,
    const std::function<bool(const std::string& path)>& isFolder) {
    std::optional<ListedFiles> tracked;
    std::optional<ListedFiles> ignored;
    if (trackedOutput && (mask & VNFileStatusClean)) {
        tracked = listedFiles(*trackedOutput, VNFileStatusClean);
    }
    if (ignoredOutput && (mask & VNFileStatusIgnored)) {
        ignored = listedFiles(*ignoredOutput, VNFileStatusIgnored);
    }
    return fileStatusRecords(statusOutput, tracked ? &*tracked : nullptr,
                             ignored ? &*ignored : nullptr, mask, isFolder);
}

std::vector<vn::Record> VNGitStatusParser::fileStatusRecords(
    std::string_view statusOutput, ListedFiles* tracked, ListedFiles* ignored, uint64_t mask,
    const std::function<bool(const std::string& path)>& isFolder) {
    if (!(mask & VNFileStatusClean)) {
        tracked = nullptr;
    }
    if (!(mask & VNFileStatusIgnored)) {
        ignored = nullptr;
    }
    std::vector<vn::Record> records;
    records.reserve(
        static_cast<std::size_t>(std::count(statusOutput.begin(), statusOutput.end(), '\n')) +
        (tracked ? tracked->records.size() : 0) + (ignored ? ignored->records.size() : 0));
    bool keepPaths = tracked || ignored;
    PathSet reported;

    for (auto& parsed : parseStatusOutput(statusOutput)) {
        Entry* entry = &parsed;
        if (isFolderPath(entry->path)) {
            continue;
        }
        // Every path the status mentions is known not to be clean, whether or not the mask
        // lists it.
        if (keepPaths) {
            reported.insert(entry->path);
        }
        if (!(mask & entry->status)) {
            continue;
        }
        if (entry->status == VNFileStatusModified && isFolder && isFolder(entry->path)) {
            entry->status = VNFileStatusSubmoduleModified;
            if (entry->indexStatus == VNFileStatusModified) {
                entry->indexStatus = VNFileStatusSubmoduleModified;
            }
            if (entry->treeStatus == VNFileStatusModified) {
                entry->treeStatus = VNFileStatusSubmoduleModified;
            }
        } else if (entry->status == VNFileStatusConflicted) {
            entry->indexStatus = VNFileStatusConflicted;
            entry->treeStatus = VNFileStatusConflicted;
        }
        records.push_back(statusRecord(entry->path, entry->status, entry->indexStatus,
                                       entry->treeStatus, entry->previousPath));
    }

    // Unmerged files appear in the listing of tracked files once per stage; the status has
    // reported them already.
    for (ListedFiles* listed : {tracked, ignored}) {
        if (!listed) {
            continue;
        }
        for (std::size_t i = 0; i < listed->records.size(); ++i) {
            if (reported.find(listed->paths[i]) == reported.end()) {
                records.push_back(std::move(listed->records[i]));
            }
        }
    }
    return records;
}

// ---- Summary -----------------------------------------------------------------------------------

VNGitStatusParser::Counts VNGitStatusParser::countStatuses(std::string_view statusOutput) {
    Counts counts;
    for (const Entry& entry : parseStatusOutput(statusOutput)) {
        if (isFolderPath(entry.path)) {
            continue;
        }
        switch (entry.status) {
            case VNFileStatusModified:
                ++counts.modified;
                break;
            case VNFileStatusAdded:
                ++counts.added;
                break;
            case VNFileStatusRemoved:
                ++counts.removed;
                break;
            case VNFileStatusConflicted:
                ++counts.unresolved;
                break;
            case VNFileStatusMissing:
                ++counts.missing;
                break;
            case VNFileStatusUnknown:
                ++counts.unknown;
                break;
            case VNFileStatusRenamed:
                ++counts.renamed;
                break;
            default:
                break;
        }
    }
    return counts;
}

// ---- Branch and merge state --------------------------------------------------------------------

bool VNGitStatusParser::isDetachedHeadText(std::string_view text) {
    return text == "HEAD" || text == "(no branch)" || text.starts_with("(HEAD detached") ||
           text.starts_with("(detached from");
}

std::optional<std::string> VNGitStatusParser::currentBranchFromBranchOutput(
    std::string_view output) {
    for (std::string_view line : lines(output)) {
        if (line.front() != '*') {
            continue;
        }
        std::string_view name = line.size() > 2 ? line.substr(2) : std::string_view();
        if (isDetachedHeadText(name)) {
            return std::string("HEAD");
        }
        return std::string(name);
    }
    return std::nullopt;
}

bool VNGitStatusParser::parseMergeHeadParents(std::string_view text, std::string& secondParent,
                                              std::vector<std::string>& otherParents) {
    secondParent.clear();
    otherParents.clear();
    bool first = true;
    for (std::string_view line : lines(text)) {
        std::string_view id = trimmed(line);
        if (id.empty()) {
            continue;
        }
        if (first) {
            secondParent = std::string(id);
            first = false;
        } else {
            otherParents.emplace_back(id);
        }
    }
    return !first;
}

std::optional<std::string> VNGitStatusParser::gitDirFromDotGitFile(std::string_view text) {
    static const vn::Regex pattern("gitdir:[\\s]+([^\\r\\n]+)");
    auto match = pattern.find(text);
    if (!match) {
        return std::nullopt;
    }
    std::string_view folder = match->group(1);
    while (!folder.empty() && (folder.back() == ' ' || folder.back() == '\t')) {
        folder.remove_suffix(1);
    }
    if (folder.empty()) {
        return std::nullopt;
    }
    return std::string(folder);
}

bool VNGitStatusParser::hasLineContaining(std::string_view text, std::string_view needle) {
    // A needle without a line break can only be found within one line.
    return !needle.empty() && text.find(needle) != std::string_view::npos;
}

std::vector<std::string> VNGitStatusParser::names(std::string_view output) {
    std::vector<std::string> result;
    if (output.find('\0') == std::string_view::npos) {
        for (std::string_view line : lines(output)) {
            result.push_back(needsUnquoting(line) ? vn::unquoteToolPath(line) : std::string(line));
        }
        return result;
    }
    result.reserve(static_cast<std::size_t>(std::count(output.begin(), output.end(), '\0')));
    vn::FieldReader fields(output);
    std::string_view name;
    while (fields.next(name)) {
        if (!name.empty()) {
            result.emplace_back(name);
        }
    }
    return result;
}

std::vector<std::string_view> VNGitStatusParser::lines(std::string_view text) {
    std::vector<std::string_view> result;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (!line.empty()) {
            result.push_back(line);
        }
        if (end == std::string_view::npos) {
            break;
        }
        text.remove_prefix(end + 1);
    }
    return result;
}
