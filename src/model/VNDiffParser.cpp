#include "model/VNDiffParser.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "base/Regex.h"
#include "base/TextEncoding.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Bytes that may begin a line end: LF, VT, FF, CR, and the lead bytes of NEL (C2 85) and of the
// line and paragraph separators (E2 80 A8, E2 80 A9).
constexpr std::array<bool, 256> lineEndLeads = [] {
    std::array<bool, 256> table{};
    for (int c : {0x0A, 0x0B, 0x0C, 0x0D, 0xC2, 0xE2}) {
        table[c] = true;
    }
    return table;
}();

// The first byte from `p` on that may begin a line end, or `end`. Sixteen bytes at a time where
// the processor allows: this scan is most of the parser's own work.
inline const char* nextLineEndLead(const char* p, const char* end) {
#if defined(__SSE2__)
    const __m128i first = _mm_set1_epi8(0x0A);
    const __m128i span = _mm_set1_epi8(0x0D - 0x0A);
    const __m128i nel = _mm_set1_epi8(static_cast<char>(0xC2));
    const __m128i separators = _mm_set1_epi8(static_cast<char>(0xE2));
    while (end - p >= 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        __m128i offset = _mm_sub_epi8(bytes, first);
        // Unsigned offset <= 3: LF, VT, FF or CR.
        __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(offset, span), offset);
        __m128i leads = _mm_or_si128(_mm_cmpeq_epi8(bytes, nel), _mm_cmpeq_epi8(bytes, separators));
        int mask = _mm_movemask_epi8(_mm_or_si128(control, leads));
        if (mask != 0) {
            return p + __builtin_ctz(static_cast<unsigned>(mask));
        }
        p += 16;
    }
#endif
    while (p < end && !lineEndLeads[static_cast<unsigned char>(*p)]) {
        ++p;
    }
    return p;
}

// Length of the line end at `p`, or 0 when none starts there.
inline std::size_t lineEndLength(const char* p, const char* end) {
    auto c = static_cast<unsigned char>(*p);
    if (c >= 0x0A && c <= 0x0D) {
        return 1;
    }
    if (c == 0xC2) {
        return end - p >= 2 && static_cast<unsigned char>(p[1]) == 0x85 ? 2 : 0;
    }
    if (c == 0xE2) {
        return end - p >= 3 && static_cast<unsigned char>(p[1]) == 0x80 &&
                       (static_cast<unsigned char>(p[2]) == 0xA8 ||
                        static_cast<unsigned char>(p[2]) == 0xA9)
                   ? 3
                   : 0;
    }
    return 0;
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        char a = text[i], b = prefix[i];
        if (a >= 'A' && a <= 'Z') {
            a = static_cast<char>(a - 'A' + 'a');
        }
        if (b >= 'A' && b <= 'Z') {
            b = static_cast<char>(b - 'A' + 'a');
        }
        if (a != b) {
            return false;
        }
    }
    return true;
}

// The leading decimal digits as a number, saturating rather than wrapping; 0 without digits.
int64_t decimalValue(std::string_view text) {
    int64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            break;
        }
        if (__builtin_mul_overflow(value, 10, &value) ||
            __builtin_add_overflow(value, c - '0', &value)) {
            return std::numeric_limits<int64_t>::max();
        }
    }
    return value;
}

// The last line of a range of `count` lines from `start`; a range that is empty at line 0 ends
// at 0.
int64_t lastLine(int64_t start, int64_t count) {
    int64_t sum;
    if (__builtin_add_overflow(start, count, &sum)) {
        return std::numeric_limits<int64_t>::max();
    }
    return sum == 0 ? 0 : sum - 1;
}

// Cuts text to its first `limit` characters; a character's continuation bytes stay with it.
std::string_view firstCharacters(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            if (count == limit) {
                return text.substr(0, i);
            }
            ++count;
        }
    }
    return text;
}

// Byte length of the character that starts the line (the prefix of a body line).
std::size_t firstCharacterLength(std::string_view line) {
    auto lead = static_cast<unsigned char>(line[0]);
    std::size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return std::min(length, line.size());
}

// An abbreviated revision id as the multi-revision diff prints it before a revision's files.
// Only 7-digit abbreviations are taken.
bool isShortRevisionId(std::string_view word) {
    if (word.size() != 7) {
        return false;
    }
    for (char c : word) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
            return false;
        }
    }
    return true;
}

// Line numbers beyond this are no line of any real file; a header that names one is left unread,
// so that numbering its lines can never overflow.
constexpr int64_t MaxLineNumber = std::numeric_limits<int64_t>::max() / 4;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Reads a hunk header, "@@ -A[,B] +C,D @@" with any blanks between, starting at one of the "@@"
// of the line. The new-side count is required: a header without it (@@ -1 +1 @@) is
// deliberately left unread and its hunk numbered from 0. Written out rather than as a pattern:
// each attempt stops at the next "@", so the scan stays linear on any line.
// "@@ -A[,B] +C[,D] @@" with either count left out when it is 1, as git writes it.
VNDiffHunkModel::HeaderRanges looseHunkHeader(std::string_view line) {
    VNDiffHunkModel::HeaderRanges ranges;
    std::size_t at = 2;
    auto number = [&](int64_t& value) {
        std::size_t start = at;
        value = 0;
        while (at < line.size() && line[at] >= '0' && line[at] <= '9' && at - start < 12) {
            value = value * 10 + (line[at] - '0');
            ++at;
        }
        return at > start;
    };
    auto side = [&](char sign, int64_t& start, int64_t& count) {
        while (at < line.size() && line[at] == ' ') {
            ++at;
        }
        if (at >= line.size() || line[at] != sign) {
            return false;
        }
        ++at;
        if (!number(start)) {
            return false;
        }
        count = 1;
        if (at < line.size() && line[at] == ',') {
            ++at;
            return number(count);
        }
        return true;
    };
    ranges.known = line.substr(0, 2) == "@@" && side('-', ranges.startBefore, ranges.countBefore) &&
                   side('+', ranges.startAfter, ranges.countAfter);
    return ranges;
}

bool readHunkHeader(std::string_view line, int64_t numbers[4], bool& hasOldCount) {
    auto readAt = [&](std::size_t at) {
        auto blanks = [&] {
            std::size_t start = at;
            while (at < line.size() && isBlank(line[at])) {
                ++at;
            }
            return at > start;
        };
        auto literal = [&](char c) {
            if (at < line.size() && line[at] == c) {
                ++at;
                return true;
            }
            return false;
        };
        auto number = [&](int64_t& value) {
            std::size_t start = at;
            while (at < line.size() && line[at] >= '0' && line[at] <= '9') {
                ++at;
            }
            value = decimalValue(line.substr(start, at - start));
            return at > start;
        };
        at += 2;
        if (!blanks() || !literal('-') || !number(numbers[0])) {
            return false;
        }
        literal(',');
        hasOldCount = number(numbers[1]);
        if (!blanks() || !literal('+') || !number(numbers[2]) || !literal(',') ||
            !number(numbers[3]) || !blanks()) {
            return false;
        }
        return line.substr(at, 2) == "@@";
    };
    for (std::size_t at = line.find("@@"); at != std::string_view::npos;
         at = line.find("@@", at + 1)) {
        hasOldCount = false;
        numbers[1] = 0;
        if (readAt(at)) {
            for (int i = 0; i < 4; ++i) {
                if (numbers[i] > MaxLineNumber) {
                    return false;
                }
            }
            return true;
        }
    }
    return false;
}

// The number after the first "old mode " or "new mode " (`words`) in the line.
std::optional<int64_t> modeNumber(std::string_view line, std::string_view words) {
    for (std::size_t at = line.find(words); at != std::string_view::npos;
         at = line.find(words, at + 1)) {
        std::size_t digits = at + words.size();
        if (digits < line.size() && line[digits] >= '0' && line[digits] <= '9') {
            return decimalValue(line.substr(digits));
        }
    }
    return std::nullopt;
}

// A name as a header line writes it: C-quoted when it holds special characters, else as it is.
std::string headerName(std::string_view text) {
    std::size_t consumed = 0;
    if (auto bytes = vn::readCQuoted(text, &consumed); bytes && consumed == text.size()) {
        return std::move(*bytes);
    }
    return std::string(text);
}

std::string_view withoutPrefix(std::string_view name, std::string_view prefix) {
    return name.substr(0, prefix.size()) == prefix ? name.substr(prefix.size()) : name;
}

// The names of a "diff --git a/OLD b/NEW" line (the text after "diff --git "). Either name may
// be C-quoted. Unquoted names can hold " b/" themselves, so the line is read as git reads it: the
// two names of a file that is neither renamed nor copied are equal, which fixes where they part.
// Otherwise the split at the first " b/" is a guess (`certain` false) that the "rename to",
// "copy to" and "+++" lines correct.
bool gitHeaderNames(std::string_view rest, std::string& oldName, std::string& newName,
                    bool& certain) {
    certain = true;
    std::size_t consumed = 0;
    if (auto first = vn::readCQuoted(rest, &consumed)) {
        std::string_view second = rest.substr(consumed);
        if (second.empty() || second.front() != ' ') {
            return false;
        }
        second.remove_prefix(1);
        oldName = std::string(withoutPrefix(*first, "a/"));
        newName = headerName(second);
        newName = std::string(withoutPrefix(newName, "b/"));
        return true;
    }
    if (rest.substr(0, 2) != "a/") {
        return false;
    }
    // An unquoted name holds no double quote, so a quote starts a quoted second name.
    if (std::size_t quote = rest.find('"'); quote != std::string_view::npos) {
        if (quote < 3 || rest[quote - 1] != ' ') {
            return false;
        }
        oldName = std::string(rest.substr(2, quote - 3));
        newName = headerName(rest.substr(quote));
        newName = std::string(withoutPrefix(newName, "b/"));
        return true;
    }
    if (rest.size() >= 5 && (rest.size() - 5) % 2 == 0) {
        std::size_t length = (rest.size() - 5) / 2;
        std::string_view a = rest.substr(2, length);
        if (rest.substr(2 + length, 3) == " b/" && rest.substr(5 + length) == a) {
            oldName = newName = std::string(a);
            return true;
        }
    }
    std::size_t split = rest.find(" b/", 3);
    if (split == std::string_view::npos) {
        return false;
    }
    certain = false;
    oldName = std::string(rest.substr(2, split - 2));
    newName = std::string(rest.substr(split + 3));
    return true;
}

// The name of a "---" or "+++" line (the text after the marker and its blank): git ends a name
// that holds a blank with a tab there, and a name that itself ends with a tab comes quoted.
std::string markerName(std::string_view text, std::string_view prefix) {
    if (!text.empty() && text.front() != '"' && text.back() == '\t') {
        text.remove_suffix(1);
    }
    std::string name = headerName(text);
    return name == "/dev/null" ? name : std::string(withoutPrefix(name, prefix));
}

const vn::Regex& largeFilePointerLine() {
    static const vn::Regex regex(R"(^oid\s+sha256:([0-9a-fA-F]{64}))");
    return regex;
}

// The state of one pass over one diff text.
class Pass {
  public:
    Pass(VNDiffFileList& dest, uint64_t maxFiles, uint64_t scanLimit,
         const VNDiffParser::LargeFileReferenceExtractor& extract)
        : dest_(dest),
          maxFiles_(maxFiles),
          scanLimit_(extract ? scanLimit : 0),
          extract_(extract) {}

    void run(std::string_view text) {
        const char* p = text.data();
        const char* end = p + text.size();
        while (p < end) {
            const char* start = p;
            std::size_t endLength = 0;
            while ((p = nextLineEndLead(p, end)) < end &&
                   (endLength = lineEndLength(p, end)) == 0) {
                ++p;
            }
            std::string_view line(start, p - start);
            // Every line end after the line goes with it, so a CR before an LF and empty lines
            // never reach the classification.
            const char* lineEnd = p;
            while (p < end && (endLength = lineEndLength(p, end)) != 0) {
                p += endLength;
            }
            terminator_ = std::string_view(lineEnd, p - lineEnd);
            if (!line.empty() && !classify(line)) {
                return;
            }
        }
        closeFile();
    }

  private:
    // Answers false when parsing must stop.
    bool classify(std::string_view line) {
        char first = line[0];
        // Body lines are by far the most common, and no header test or revision id can start
        // with these characters.
        if (hasRawHunk_ && (first == '+' || first == '-' || first == ' ' || first == '\\')) {
            bodyLine(line);
            return true;
        }
        if (startsWith(line, "diff")) {
            if (!fileSection(line)) {
                return false;
            }
        } else if (startsWith(line, "deleted file")) {
            setChangeType(VNDiffFileModel::Deleted);
        } else if (startsWith(line, "new file")) {
            setChangeType(VNDiffFileModel::Added);
        } else if (startsWith(line, "copy from")) {
            setChangeType(VNDiffFileModel::Copied);
            setPreviousFilename(line, 10);
        } else if (startsWith(line, "rename from")) {
            setChangeType(VNDiffFileModel::Renamed);
            setPreviousFilename(line, 12);
        } else if (!hasRawHunk_ && file_ &&
                   (startsWith(line, "rename to ") || startsWith(line, "copy to "))) {
            // The new name as written by itself, which the "diff --git" line may not tell.
            file_->setFilename(headerName(line.substr(line[0] == 'r' ? 10 : 8)));
            nameCertain_ = true;
        } else if (!hasRawHunk_ && file_ && !nameCertain_ && startsWith(line, "--- ")) {
            oldSideName_ = markerName(line.substr(4), "a/");
        } else if (!hasRawHunk_ && file_ && !nameCertain_ && startsWith(line, "+++ ")) {
            std::string name = markerName(line.substr(4), "b/");
            if (name == "/dev/null") {
                name = oldSideName_;
            }
            if (!name.empty() && name != "/dev/null") {
                file_->setFilename(std::move(name));
                nameCertain_ = true;
            }
        } else if (startsWithIgnoringCase(line, "GIT binary patch") ||
                   startsWithIgnoringCase(line, "Binary file")) {
            if (file_) {
                file_->setFileType(VNDiffFileModel::Binary);
            }
        } else if (startsWith(line, "@@")) {
            hunkHeaderLine(line);
        } else if (startsWithIgnoringCase(line, "old mode")) {
            if (auto mode = modeNumber(line, "old mode "); mode && file_) {
                file_->setOldFileMode(*mode);
            }
        } else if (startsWithIgnoringCase(line, "new mode")) {
            if (auto mode = modeNumber(line, "new mode "); mode && file_) {
                file_->setNewFileMode(*mode);
            }
        } else if (hasRawHunk_) {
            bodyLine(line);
        }
        tagRevision(line);
        return true;
    }

    bool fileSection(std::string_view line) {
        closeFile();
        if (dest_.size() >= maxFiles_) {
            return false;
        }
        file_ = std::make_shared<VNDiffFileModel>();
        if (!pendingRevision_.empty()) {
            file_->setRev(std::move(pendingRevision_));
            pendingRevision_.clear();
        }
        nameCertain_ = true;
        oldSideName_.clear();
        if (startsWith(line, "diff --git ")) {
            std::string oldName, newName;
            if (gitHeaderNames(line.substr(11), oldName, newName, nameCertain_)) {
                file_->setFilename(newName == "/dev/null" ? std::move(oldName)
                                                          : std::move(newName));
            }
        } else if (startsWith(line, "diff --cc ") || startsWith(line, "diff --combined ")) {
            file_->setFilename(headerName(line.substr(startsWith(line, "diff --cc ") ? 10 : 16)));
        }
        dest_.push_back(file_);
        // Header lines up to the first hunk header are not hunk lines.
        discardHunk();
        return true;
    }

    void hunkHeaderLine(std::string_view line) {
        if (!file_) {
            return;
        }
        closeHunk();
        hunk_ = std::make_shared<VNDiffHunkModel>();
        int64_t numbers[4] = {0, 0, 0, 0};
        bool hasOldCount = false;
        if (readHunkHeader(line, numbers, hasOldCount)) {
            int64_t startBefore = numbers[0];
            int64_t countBefore = hasOldCount ? numbers[1] : 1;
            int64_t startAfter = numbers[2];
            int64_t countAfter = numbers[3];
            hunk_->setStartLineBefore(startBefore);
            hunk_->setEndLineBefore(lastLine(startBefore, countBefore));
            hunk_->setStartLineAfter(startAfter);
            hunk_->setEndLineAfter(lastLine(startAfter, countAfter));
            hunk_->setHeaderRanges({true, startBefore, countBefore, startAfter, countAfter});
        } else {
            hunk_->setHeaderRanges(looseHunkHeader(line));
        }
        hunks_.push_back(hunk_);
        hunk_->setIndex(hunks_.size());
        hasRawHunk_ = true;
        beforeLine_ = hunk_->startLineBefore();
        afterLine_ = hunk_->startLineAfter();
    }

    void bodyLine(std::string_view rawLine) {
        std::size_t offset = rawHunk_.size();
        rawHunk_.append(rawLine);
        rawHunk_.push_back('\n');
        // The raw hunk keeps the bytes for patches; a line that is not UTF-8 is shown as read in
        // the 8-bit fallback, decided for that line alone.
        std::string_view line = rawLine;
        bool decoded = !vn::isValidUTF8(rawLine);
        if (decoded) {
            offset = decodedLines_.size();
            decodedLines_.append(vn::decodeLegacy8Bit(rawLine));
            line = std::string_view(decodedLines_).substr(offset);
        }
        std::size_t prefixLength = firstCharacterLength(line);
        std::string_view fullContent = line.substr(prefixLength);
        std::string_view content = firstCharacters(fullContent, VNDiffParser::MaxLineCharacters);

        std::optional<std::string> reference;
        if (lines_.size() < scanLimit_) {
            // The hook takes text of its own, the whole content; one buffer serves every line.
            scratch_.assign(fullContent);
            reference = extract_(scratch_);
            if (reference) {
                file_->setFileType(VNDiffFileModel::LargeFilePointer);
            }
        }

        VNDiffHunkModel::LineSpan span;
        span.offset = offset;
        span.decoded = decoded;
        span.prefixLength = static_cast<uint32_t>(prefixLength);
        span.contentLength = content.size();
        // A patch made from this line must end it as the file does.
        span.lineEnd = terminator_ == "\n" || terminator_.empty() ? VNDiffHunkModel::LineEnd::LF
                       : terminator_ == "\r\n"                    ? VNDiffHunkModel::LineEnd::CRLF
                                                                  : VNDiffHunkModel::LineEnd::Other;
        switch (rawLine[0]) {
            case '+':
                file_->addLinesAdded(1);
                span.afterLineNumber = afterLine_++;
                if (reference) {
                    file_->setAfterLargeFileRef(std::move(*reference));
                }
                break;
            case '-':
                file_->addLinesRemoved(1);
                span.beforeLineNumber = beforeLine_++;
                if (reference) {
                    file_->setBeforeLargeFileRef(std::move(*reference));
                }
                break;
            case '\\':
                // "\ No newline at end of file" belongs to neither side.
                break;
            default:
                span.beforeLineNumber = beforeLine_++;
                span.afterLineNumber = afterLine_++;
                if (reference) {
                    file_->setBeforeLargeFileRef(*reference);
                    file_->setAfterLargeFileRef(std::move(*reference));
                }
                break;
        }
        lines_.push_back(span);
    }

    void tagRevision(std::string_view line) {
        std::string_view word = line.substr(0, line.find(' '));
        if (word != "index" && isShortRevisionId(word)) {
            pendingRevision_ = std::string(word);
        }
    }

    void setChangeType(uint64_t type) {
        if (file_) {
            file_->setChangeType(type);
        }
    }

    void setPreviousFilename(std::string_view line, std::size_t from) {
        if (file_) {
            file_->setPreviousFilename(line.size() > from ? headerName(line.substr(from)) : "");
        }
    }

    void closeHunk() {
        if (hunk_) {
            // Copies of their exact size: the buffers, grown once, serve every hunk after this.
            hunk_->setBody(rawHunk_, std::vector<VNDiffHunkModel::LineSpan>(lines_), decodedLines_);
            hunk_.reset();
        }
        discardHunk();
    }

    void discardHunk() {
        hunk_.reset();
        hasRawHunk_ = false;
        rawHunk_.clear();
        decodedLines_.clear();
        lines_.clear();
    }

    void closeFile() {
        if (!file_) {
            return;
        }
        closeHunk();
        file_->setHunks(std::move(hunks_));
        hunks_.clear();
        file_.reset();
    }

    VNDiffFileList& dest_;
    const uint64_t maxFiles_;
    const uint64_t scanLimit_;
    const VNDiffParser::LargeFileReferenceExtractor& extract_;

    std::shared_ptr<VNDiffFileModel> file_;
    std::shared_ptr<VNDiffHunkModel> hunk_;
    std::vector<std::shared_ptr<VNDiffHunkModel>> hunks_;
    // Set from the first hunk header of the current file on; until then lines are headers.
    bool hasRawHunk_ = false;
    std::string rawHunk_;
    // The line end that followed the line being classified, as read.
    std::string_view terminator_;
    std::string decodedLines_;
    std::vector<VNDiffHunkModel::LineSpan> lines_;
    // Whether the current file's name is known for sure; a guess from an ambiguous "diff --git"
    // line gives way to the "---"/"+++" lines (`oldSideName_` holds the "---" one).
    bool nameCertain_ = true;
    std::string oldSideName_;
    std::string scratch_;
    int64_t beforeLine_ = 0;
    int64_t afterLine_ = 0;
    std::string pendingRevision_;
};

}  // namespace

VNDiffParser::VNDiffParser(uint64_t largeFilesDiffScanLimit,
                           LargeFileReferenceExtractor extractLargeFileReferenceFromLine)
    : scanLimit_(largeFilesDiffScanLimit), extract_(std::move(extractLargeFileReferenceFromLine)) {}

VNDiffParser VNDiffParser::git() {
    return VNDiffParser(GitLargeFilesDiffScanLimit, &VNDiffParser::gitLargeFileReference);
}

std::optional<std::string> VNDiffParser::gitLargeFileReference(const std::string& line) {
    // The pattern is anchored, so most lines are turned away without running it.
    if (!startsWith(line, "oid")) {
        return std::nullopt;
    }
    auto match = largeFilePointerLine().find(line);
    if (!match || match->groupCount() != 2) {
        return std::nullopt;
    }
    return match->str(1);
}

void VNDiffParser::parseDiffToModel(std::string_view diff, VNDiffFileList& dest,
                                    uint64_t maxFiles) const {
    Pass(dest, maxFiles, scanLimit_, extract_).run(diff);
}

void VNDiffParser::parseDiffsToModel(std::string_view diffs, VNDiffFileList& dest,
                                     uint64_t maxFiles) const {
    std::size_t from = 0;
    while (from <= diffs.size()) {
        std::size_t next = diffs.find(RevisionSeparator, from);
        std::string_view piece = diffs.substr(
            from, next == std::string_view::npos ? std::string_view::npos : next - from);
        if (!piece.empty()) {
            parseDiffToModel(piece, dest, maxFiles);
        }
        if (next == std::string_view::npos) {
            break;
        }
        from = next + RevisionSeparator.size();
    }
}
