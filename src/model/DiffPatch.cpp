#include "model/DiffPatch.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace vn {

namespace {

// One body line as the patch writes it: its prefix and text from the diff, and how it ended.
struct SourceLine {
    char prefix = ' ';
    std::string_view text;
    std::string_view lineEnd;
    int64_t before = VNDiffHunkModel::NoLineNumber;
    int64_t after = VNDiffHunkModel::NoLineNumber;
    // Followed by the missing-newline marker: the line is the last of its side(s) without one.
    bool noNewline = false;
};

// The hunk's lines without the marker lines, which become the flag of the line before them.
std::vector<SourceLine> sourceLines(const VNDiffHunkModel& hunk, bool win32LineEndings,
                                    std::vector<std::size_t>& rowOfLine) {
    std::vector<std::string_view> raw = hunk.rawLines();
    std::size_t count = hunk.lineCount();
    bool useRaw = raw.size() == count;
    std::vector<SourceLine> lines;
    lines.reserve(count);
    rowOfLine.clear();
    std::string_view defaultEnd = win32LineEndings ? "\r\n" : "\n";
    // Rows under a header without a count are numbered from 0; the header's own starts put them
    // right.
    const VNDiffHunkModel::HeaderRanges& header = hunk.headerRanges();
    int64_t offsetBefore = header.known ? header.startBefore - hunk.startLineBefore() : 0;
    int64_t offsetAfter = header.known ? header.startAfter - hunk.startLineAfter() : 0;
    for (std::size_t row = 0; row < count; ++row) {
        VNDiffHunkModel::LineView view = hunk.lineAt(row);
        SourceLine line;
        if (useRaw && !raw[row].empty()) {
            line.prefix = raw[row][0];
            line.text = raw[row].substr(1);
        } else {
            line.prefix = view.prefix.empty() ? ' ' : view.prefix[0];
            line.text = view.line;
        }
        switch (hunk.lineEndAt(row)) {
            case VNDiffHunkModel::LineEnd::CRLF:
                line.lineEnd = "\r\n";
                break;
            case VNDiffHunkModel::LineEnd::LF:
                line.lineEnd = "\n";
                break;
            default:
                line.lineEnd = defaultEnd;
                break;
        }
        if (view.beforeLineNumber != VNDiffHunkModel::NoLineNumber) {
            line.before = view.beforeLineNumber + offsetBefore;
        }
        if (view.afterLineNumber != VNDiffHunkModel::NoLineNumber) {
            line.after = view.afterLineNumber + offsetAfter;
        }
        if (line.prefix == '\\') {
            if (!lines.empty()) {
                lines.back().noNewline = true;
            }
            continue;
        }
        lines.push_back(line);
        rowOfLine.push_back(row);
    }
    return lines;
}

// A file name as a patch header writes it: quoted the way git quotes names when it holds a
// character that would end or confuse the header, as it stands otherwise.
std::string headerName(std::string_view prefix, std::string_view name) {
    bool quote = std::any_of(name.begin(), name.end(), [](char c) {
        auto u = static_cast<unsigned char>(c);
        return u < 0x20 || u == 0x7f || c == '"' || c == '\\';
    });
    if (!quote) {
        return std::string(prefix).append(name);
    }
    std::string out = "\"";
    out.append(prefix);
    for (char c : name) {
        auto u = static_cast<unsigned char>(c);
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (u < 0x20 || u == 0x7f) {
                    char octal[5] = {'\\', static_cast<char>('0' + (u >> 6)),
                                     static_cast<char>('0' + ((u >> 3) & 7)),
                                     static_cast<char>('0' + (u & 7)), 0};
                    out += octal;
                } else {
                    out.push_back(c);
                }
        }
    }
    out += "\"";
    return out;
}

std::string fileHeader(const VNDiffFileModel& file, bool created, bool deleted,
                       const std::string& mode) {
    const std::string& name = file.filename();
    std::string header =
        "diff --git " + headerName("a/", name) + " " + headerName("b/", name) + "\n";
    if (created) {
        header += "new file mode " + mode + "\n--- /dev/null\n";
    } else {
        header += (deleted ? "deleted file mode " + mode + "\n" : std::string()) + "--- " +
                  headerName("a/", name) + "\t\n";
    }
    // The tab ends the name for git, so that a name with trailing blanks stays whole.
    header += deleted ? std::string("+++ /dev/null\n") : "+++ " + headerName("b/", name) + "\t\n";
    return header;
}

void appendRange(std::string& out, char side, int64_t start, int64_t count) {
    out.push_back(side);
    out += std::to_string(std::max<int64_t>(start, 0));
    if (count != 1) {
        out += "," + std::to_string(count);
    }
}

// A line of the patch and the sides it stands on.
struct PatchLine {
    const SourceLine* source = nullptr;
    bool oldSide = false;
    bool newSide = false;
    // The line has no newline on that side as the file has it.
    bool noNewlineOld = false;
    bool noNewlineNew = false;
};

void appendBodyLine(std::string& out, char prefix, const SourceLine& line, bool noNewline) {
    out.push_back(prefix);
    out.append(line.text);
    out.append(line.lineEnd);
    if (noNewline) {
        out += "\\ No newline at end of file\n";
    }
}

}  // namespace

std::string hunkPatchProblem(const VNDiffHunkModel& hunk) {
    std::vector<std::string_view> raw = hunk.rawLines();
    for (std::size_t row = 0, count = hunk.lineCount(); row < count; ++row) {
        char prefix = row < raw.size() && !raw[row].empty() ? raw[row][0] : ' ';
        if (hunk.lineEndAt(row) == VNDiffHunkModel::LineEnd::Other ||
            (prefix != ' ' && prefix != '+' && prefix != '-' && prefix != '\\')) {
            return "row " + std::to_string(row + 1) +
                   " of the hunk is part of a line that holds a line break of another kind (a "
                   "lone carriage return or a form feed); a patch cannot reproduce it";
        }
    }
    return {};
}

std::optional<std::string> createPatchForHunkLinesInRange(const VNDiffFileModel& file,
                                                          const VNDiffHunkModel& hunk,
                                                          HunkLineRange range, bool isStaging,
                                                          bool win32LineEndings) {
    std::vector<std::size_t> rowOfLine;
    std::vector<SourceLine> lines = sourceLines(hunk, win32LineEndings, rowOfLine);
    std::size_t rows = hunk.lineCount();
    std::size_t firstRow = std::min(range.location, rows);
    std::size_t endRow = firstRow + std::min(range.length, rows - firstRow);
    // The selection as lines (marker rows select nothing of their own).
    std::size_t first = 0;
    while (first < lines.size() && rowOfLine[first] < firstRow) {
        ++first;
    }
    std::size_t end = first;
    while (end < lines.size() && rowOfLine[end] < endRow) {
        ++end;
    }

    // Outside the selection a change on the side that is applied becomes context and one on the
    // other side is left out.
    char converted = isStaging ? '-' : '+';
    auto outside = [&](std::size_t i, PatchLine& out) {
        const SourceLine& line = lines[i];
        if (line.prefix == '+' || line.prefix == '-') {
            if (line.prefix != converted) {
                return false;
            }
        }
        out.source = &line;
        out.oldSide = out.newSide = true;
        return true;
    };

    std::vector<PatchLine> leading;
    for (std::size_t i = first; i-- > 0 && leading.size() < 3;) {
        PatchLine line;
        if (outside(i, line)) {
            leading.push_back(line);
        }
    }
    std::reverse(leading.begin(), leading.end());
    std::vector<PatchLine> body = std::move(leading);
    bool anyChange = false;
    for (std::size_t i = first; i < end; ++i) {
        PatchLine line;
        line.source = &lines[i];
        line.oldSide = lines[i].prefix != '+';
        line.newSide = lines[i].prefix != '-';
        anyChange |= lines[i].prefix == '+' || lines[i].prefix == '-';
        body.push_back(line);
    }
    if (!anyChange) {
        return std::nullopt;
    }
    std::size_t taken = 0;
    std::size_t next = end;
    for (; next < lines.size() && taken < 3; ++next) {
        PatchLine line;
        if (outside(next, line)) {
            body.push_back(line);
            ++taken;
        }
    }
    // Lines left out at the end change nothing on the side that stays as it is.
    while (next < lines.size() && lines[next].prefix != ' ' && lines[next].prefix != converted) {
        ++next;
    }
    bool reachesEnd = next == lines.size();

    // The side the patch must match (the index when staging, the other side when applied in
    // reverse) is a true stretch of the file: its last line lacks a newline exactly when the
    // diff says so. On the side the patch makes, only the line that stays last may lack one, and
    // only when it lacked one where it came from.
    int64_t lastFree = -1;
    for (std::size_t i = 0; i < body.size(); ++i) {
        if (isStaging ? body[i].newSide : body[i].oldSide) {
            lastFree = static_cast<int64_t>(i);
        }
    }
    for (std::size_t i = 0; i < body.size(); ++i) {
        PatchLine& line = body[i];
        bool own = line.source->noNewline;
        bool freeEnds = reachesEnd && static_cast<int64_t>(i) == lastFree && own;
        if (isStaging) {
            line.noNewlineOld = line.oldSide && own;
            line.noNewlineNew = line.newSide && freeEnds;
        } else {
            line.noNewlineNew = line.newSide && own;
            line.noNewlineOld = line.oldSide && freeEnds;
        }
    }

    // Header numbers: the matched side's start is read from the diff; the other side starts
    // after the same lines before the patch.
    int64_t oldCount = 0, newCount = 0;
    for (const PatchLine& line : body) {
        oldCount += line.oldSide;
        newCount += line.newSide;
    }
    int64_t fixedStart = -1;
    for (const PatchLine& line : body) {
        int64_t number = isStaging ? (line.oldSide ? line.source->before : -1)
                                   : (line.newSide ? line.source->after : -1);
        if (number >= 0) {
            fixedStart = number;
            break;
        }
    }
    int64_t fixedCount = isStaging ? oldCount : newCount;
    int64_t freeCount = isStaging ? newCount : oldCount;
    if (fixedStart < 0 || fixedCount == 0) {
        // Nothing of the matched side in the patch: it inserts after the line before it.
        fixedStart = -1;
        for (std::size_t i = first; i-- > 0;) {
            int64_t number = isStaging ? lines[i].before : lines[i].after;
            if (number != VNDiffHunkModel::NoLineNumber) {
                fixedStart = number;
                break;
            }
        }
        const VNDiffHunkModel::HeaderRanges& header = hunk.headerRanges();
        if (fixedStart < 0 && header.known) {
            int64_t start = isStaging ? header.startBefore : header.startAfter;
            int64_t count = isStaging ? header.countBefore : header.countAfter;
            // A side without lines is numbered by the line before it already.
            fixedStart = count == 0 ? start : start - 1;
        } else if (fixedStart < 0) {
            int64_t start = isStaging ? hunk.startLineBefore() : hunk.startLineAfter();
            int64_t last = isStaging ? hunk.endLineBefore() : hunk.endLineAfter();
            bool emptySide = last < start || (start == 0 && last == 0);
            fixedStart = emptySide ? start : start - 1;
        }
    }
    int64_t linesBefore = fixedCount > 0 ? fixedStart - 1 : fixedStart;
    int64_t freeStart = freeCount > 0 ? linesBefore + 1 : linesBefore;
    int64_t oldStart = isStaging ? fixedStart : freeStart;
    int64_t newStart = isStaging ? freeStart : fixedStart;

    std::string patch = fileHeader(file, false, false, {});
    patch += "@@ ";
    appendRange(patch, '-', oldStart, oldCount);
    patch += " ";
    appendRange(patch, '+', newStart, newCount);
    patch += " @@\n";
    for (const PatchLine& line : body) {
        const SourceLine& source = *line.source;
        if (line.oldSide && line.newSide) {
            if (line.noNewlineOld == line.noNewlineNew) {
                appendBodyLine(patch, ' ', source, line.noNewlineOld);
            } else {
                appendBodyLine(patch, '-', source, line.noNewlineOld);
                appendBodyLine(patch, '+', source, line.noNewlineNew);
            }
        } else if (line.oldSide) {
            appendBodyLine(patch, '-', source, line.noNewlineOld);
        } else {
            appendBodyLine(patch, '+', source, line.noNewlineNew);
        }
    }
    return patch;
}

std::string createPatch(const VNDiffFileModel& file, bool win32LineEndings,
                        const std::string& fileMode) {
    bool created = file.changeType() == VNDiffFileModel::Added;
    bool deleted = file.changeType() == VNDiffFileModel::Deleted;
    std::string patch = fileHeader(file, created, deleted, fileMode);
    std::vector<std::size_t> rowOfLine;
    for (const auto& hunk : file.hunks()) {
        std::vector<SourceLine> lines = sourceLines(*hunk, win32LineEndings, rowOfLine);
        int64_t oldCount = 0, newCount = 0;
        for (const SourceLine& line : lines) {
            oldCount += line.prefix != '+';
            newCount += line.prefix != '-';
        }
        patch += "@@ ";
        const VNDiffHunkModel::HeaderRanges& header = hunk->headerRanges();
        appendRange(patch, '-', header.known ? header.startBefore : hunk->startLineBefore(),
                    oldCount);
        patch += " ";
        appendRange(patch, '+', header.known ? header.startAfter : hunk->startLineAfter(),
                    newCount);
        patch += " @@\n";
        for (const SourceLine& line : lines) {
            appendBodyLine(patch, line.prefix, line, line.noNewline);
        }
    }
    return patch;
}

std::string createNewFilePatch(const std::string& filename, std::string_view content,
                               const std::string& fileMode) {
    VNDiffFileModel file;
    file.setFilename(filename);
    std::string patch = fileHeader(file, true, false, fileMode);
    if (content.empty()) {
        return patch;
    }
    std::size_t count = 0;
    std::string body;
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t end = content.find('\n', start);
        body.push_back('+');
        ++count;
        if (end == std::string_view::npos) {
            body.append(content.substr(start));
            body += "\n\\ No newline at end of file\n";
            break;
        }
        body.append(content.substr(start, end + 1 - start));
        start = end + 1;
    }
    patch += "@@ -0,0 ";
    appendRange(patch, '+', 1, static_cast<int64_t>(count));
    patch += " @@\n" + body;
    return patch;
}

}  // namespace vn
