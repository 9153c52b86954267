#include "model/VNConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/Format.h"
#include "base/Regex.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"

namespace {

constexpr std::string_view kNewlineToken = "{{newline}}";
// U+FEFF. At the start of the file it is the byte order mark; at the start of a later line (two
// files joined by cat) it is skipped, so that it never becomes part of a header or a key.
constexpr std::string_view kZeroWidthNoBreakSpace = "\xEF\xBB\xBF";

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// git's own isspace: no vertical tab or form feed.
bool isGitSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool isAsciiAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAsciiAlnum(char c) {
    return isAsciiAlpha(c) || (c >= '0' && c <= '9');
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    out.reserve(text.size());
    std::size_t start = 0;
    for (std::size_t at; (at = text.find(from, start)) != std::string_view::npos;
         start = at + from.size()) {
        out.append(text, start, at - start).append(to);
    }
    out.append(text.substr(start));
    return out;
}

struct Syntax {
    bool useSections;
    bool indentsContinue;
    bool ignoreComments;
    bool git;
};

enum class ItemKind : std::uint8_t {
    Include,
    Header,
    Entry,
    Continuation,
    // An indented line that continues nothing because no entry precedes it in its section. It
    // would continue an entry placed above it, so edits keep entries from landing there.
    Orphan,
};

// A line (for a git value continued by backslashes, several lines) that matters to the meaning of
// the file. Blank lines, comments and lines that are ignored are not kept: they are copied as they
// are, and a file of millions of them costs no memory.
struct Item {
    std::size_t begin = 0;
    std::size_t end = 0;  // one past the terminator
    ItemKind kind = ItemKind::Entry;
    std::uint32_t section = 0;         // index into Parsed::sections
    std::size_t lastContinuation = 0;  // Entry: index of its last continuation (itself if none)
    std::string key;                   // Entry: the name as written; Include: the target
    std::string value;                 // Entry: the value, continuations included
};

struct Parsed {
    std::vector<std::string> sections{""};
    std::vector<Item> items;

    std::string fullKey(const Item& item, bool useSections) const {
        return useSections ? sections[item.section] + "." + item.key : item.key;
    }
};

class SectionTable {
  public:
    explicit SectionTable(Parsed& parsed) : parsed_(parsed) { ids_.emplace("", 0); }
    std::uint32_t idFor(std::string name) {
        auto [it, inserted] =
            ids_.emplace(name, static_cast<std::uint32_t>(parsed_.sections.size()));
        if (inserted) {
            parsed_.sections.push_back(std::move(name));
        }
        return it->second;
    }

  private:
    Parsed& parsed_;
    std::unordered_map<std::string, std::uint32_t> ids_;
};

// The end of the line that starts at `pos` (before its terminator) and the start of the next.
// The plain syntax also ends lines at a lone carriage return; git reads one as a blank.
std::pair<std::size_t, std::size_t> lineBounds(std::string_view text, std::size_t pos, bool git) {
    std::size_t at = git ? text.find('\n', pos) : text.find_first_of("\r\n", pos);
    if (at == std::string_view::npos) {
        return {text.size(), text.size()};
    }
    if (text[at] == '\n') {
        if (at > pos && text[at - 1] == '\r') {
            return {at - 1, at + 1};
        }
        return {at, at + 1};
    }
    if (at + 1 < text.size() && text[at + 1] == '\n') {
        return {at, at + 2};
    }
    return {at, at + 1};
}

// A plain header's section as it appears in full keys: "name" or "name{subsection}"; nothing when
// the line has no closing bracket.
std::optional<std::string> plainHeaderSection(std::string_view trimmed) {
    std::size_t close = trimmed.rfind(']');
    if (close == std::string_view::npos || close == 0) {
        return std::nullopt;
    }
    std::string_view inner = trimmed.substr(1, close - 1);
    std::size_t open = inner.find('"');
    if (open != std::string_view::npos && open + 1 < inner.size()) {
        // The last quote, so that a quote inside the name stays part of it.
        std::size_t end = inner.rfind('"');
        if (end > open) {
            std::string result(trim(inner.substr(0, open)));
            result += '{';
            result += inner.substr(open + 1, end - open - 1);
            result += '}';
            return result;
        }
    }
    return std::string(trim(inner));
}

constexpr std::size_t kNoEntry = static_cast<std::size_t>(-1);

std::string decodePlainValue(std::string_view text) {
    return replaceAll(text, kNewlineToken, "\n");
}

void parsePlainLine(std::string_view text, std::size_t pos, std::size_t contentEnd,
                    std::size_t next, const Syntax& syntax, Parsed& parsed, SectionTable& table,
                    std::uint32_t& section, std::size_t& lastEntry) {
    std::string_view content = text.substr(pos, contentEnd - pos);
    if (content.starts_with(kZeroWidthNoBreakSpace)) {
        content.remove_prefix(kZeroWidthNoBreakSpace.size());
    }
    const bool indented = !content.empty() && isSpace(content.front());
    if (syntax.ignoreComments) {
        content = content.substr(0, content.find_first_of("#;"));
    }
    std::string_view trimmed = trim(content);
    if (trimmed.empty()) {
        return;
    }
    Item item;
    item.begin = pos;
    item.end = next;
    item.section = section;
    if (trimmed.starts_with("%include") && trimmed.size() > 8 && isSpace(trimmed[8])) {
        item.kind = ItemKind::Include;
        item.key = trim(trimmed.substr(8));
    } else if (syntax.useSections && trimmed.front() == '[') {
        std::optional<std::string> header = plainHeaderSection(trimmed);
        if (!header) {
            // Left alone: it neither opens a section nor ends the current one.
            return;
        }
        item.kind = ItemKind::Header;
        section = table.idFor(std::move(*header));
        item.section = section;
        // An indented line under a new header does not continue an entry above it.
        lastEntry = kNoEntry;
    } else if (std::size_t equals = trimmed.find('='); equals != std::string_view::npos) {
        item.kind = ItemKind::Entry;
        item.key = trim(trimmed.substr(0, equals));
        item.value = decodePlainValue(trim(trimmed.substr(equals + 1)));
        item.lastContinuation = parsed.items.size();
        lastEntry = parsed.items.size();
    } else if (syntax.indentsContinue && indented) {
        if (lastEntry != kNoEntry) {
            item.kind = ItemKind::Continuation;
            Item& entry = parsed.items[lastEntry];
            entry.value += ' ';
            entry.value += decodePlainValue(trimmed);
            entry.lastContinuation = parsed.items.size();
        } else {
            item.kind = ItemKind::Orphan;
        }
    } else {
        return;
    }
    parsed.items.push_back(std::move(item));
}

// Reads a header the way git does: [name] or [name "subsection"] with \" and \\ (any other
// backslash is dropped). `at` is at the "["; nothing for a header git refuses. `after` receives the
// position just past the "]".
std::optional<std::string> gitHeaderSection(std::string_view line, std::size_t at,
                                            std::size_t& after) {
    std::size_t i = at + 1;
    std::string name;
    while (i < line.size() && (isAsciiAlnum(line[i]) || line[i] == '-' || line[i] == '.')) {
        name += line[i++];
    }
    if (i < line.size() && line[i] == ']') {
        after = i + 1;
        return name.empty() ? std::nullopt : std::optional<std::string>(name);
    }
    if (name.empty() || i >= line.size() || (line[i] != ' ' && line[i] != '\t')) {
        return std::nullopt;
    }
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) {
        ++i;
    }
    if (i >= line.size() || line[i] != '"') {
        return std::nullopt;
    }
    std::string subsection;
    for (++i; i < line.size() && line[i] != '"'; ++i) {
        if (line[i] == '\\') {
            if (++i >= line.size()) {
                return std::nullopt;
            }
        }
        subsection += line[i];
    }
    if (i + 1 >= line.size() || line[i + 1] != ']') {
        return std::nullopt;
    }
    after = i + 2;
    return name + "{" + subsection + "}";
}

// Reads a value the way git's parser does, from `i` (after the "="), across lines ended by a
// backslash. Returns whether git accepts the value (no bad escape, no quote left open at the end
// of a line) and, either way, the position just past the line where reading stopped.
std::pair<bool, std::size_t> parseGitValue(std::string_view text, std::size_t i,
                                           std::string& value) {
    bool quoted = false;
    bool comment = false;
    std::size_t spaces = 0;
    auto nextChar = [&](char& c) {
        if (i >= text.size()) {
            c = '\n';
            return;
        }
        c = text[i++];
        if (c == '\r' && i < text.size() && text[i] == '\n') {
            c = text[i++];
        }
    };
    for (;;) {
        char c;
        nextChar(c);
        if (c == '\n') {
            return {!quoted, i};
        }
        if (comment) {
            continue;
        }
        if (isGitSpace(c) && !quoted) {
            if (!value.empty()) {
                ++spaces;
            }
            continue;
        }
        if (!quoted && (c == ';' || c == '#')) {
            comment = true;
            continue;
        }
        value.append(spaces, ' ');
        spaces = 0;
        if (c == '\\') {
            nextChar(c);
            switch (c) {
                case '\n':
                    continue;
                case 't':
                    c = '\t';
                    break;
                case 'b':
                    c = '\b';
                    break;
                case 'n':
                    c = '\n';
                    break;
                case '\\':
                case '"':
                    break;
                default: {
                    const std::size_t lineEnd = text.find('\n', i);
                    return {false, lineEnd == std::string_view::npos ? text.size() : lineEnd + 1};
                }
            }
            value += c;
            continue;
        }
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        value += c;
    }
}

// One line of a git file; returns where the next line starts.
std::size_t parseGitLine(std::string_view text, std::size_t pos, Parsed& parsed,
                         SectionTable& table, std::uint32_t& section) {
    auto [contentEnd, next] = lineBounds(text, pos, true);
    std::string_view line = text.substr(0, contentEnd);
    std::size_t i = pos;
    if (line.substr(i).starts_with(kZeroWidthNoBreakSpace)) {
        i += kZeroWidthNoBreakSpace.size();
    }
    while (i < line.size() && isGitSpace(line[i])) {
        ++i;
    }
    if (i >= line.size() || line[i] == '#' || line[i] == ';') {
        return next;
    }
    Item item;
    item.begin = pos;
    item.end = next;
    if (line[i] == '[') {
        std::size_t after = 0;
        std::optional<std::string> header = gitHeaderSection(line, i, after);
        if (!header) {
            return next;
        }
        item.kind = ItemKind::Header;
        section = table.idFor(std::move(*header));
        item.section = section;
        // git reads on after the "]": "[core] bare = false" is a header and an entry.
        std::size_t rest = after;
        while (rest < line.size() && isGitSpace(line[rest])) {
            ++rest;
        }
        const bool alone = rest >= line.size() || line[rest] == '#' || line[rest] == ';';
        item.end = alone ? next : after;
        parsed.items.push_back(std::move(item));
        return alone ? next : after;
    }
    if (!isAsciiAlpha(line[i])) {
        return next;
    }
    std::size_t nameStart = i;
    while (i < line.size() && (isAsciiAlnum(line[i]) || line[i] == '-')) {
        ++i;
    }
    item.kind = ItemKind::Entry;
    item.key = line.substr(nameStart, i - nameStart);
    item.section = section;
    item.lastContinuation = parsed.items.size();
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) {
        ++i;
    }
    if (i < line.size() && line[i] == '\r' && i + 1 == line.size()) {
        ++i;
    }
    if (i >= line.size()) {
        // A name alone: git's boolean "true" with no value, read back by `--get` as empty.
        parsed.items.push_back(std::move(item));
        return next;
    }
    if (line[i] != '=') {
        return next;
    }
    // A value git refuses takes the lines it ran over along: what stands in them is not read
    // apart, so that no edit elsewhere gives them a meaning.
    auto [accepted, end] = parseGitValue(text, i + 1, item.value);
    if (accepted) {
        item.end = end;
        parsed.items.push_back(std::move(item));
    }
    return end;
}

Parsed parse(std::string_view text, const Syntax& syntax) {
    Parsed parsed;
    SectionTable table(parsed);
    std::uint32_t section = 0;
    std::size_t lastEntry = kNoEntry;
    std::size_t pos = 0;
    while (pos < text.size()) {
        if (text[pos] == '\n') {
            // Empty lines mean nothing in either syntax; files of millions of them load quickly.
            ++pos;
            continue;
        }
        if (syntax.git) {
            pos = parseGitLine(text, pos, parsed, table, section);
            continue;
        }
        auto [contentEnd, next] = lineBounds(text, pos, false);
        parsePlainLine(text, pos, contentEnd, next, syntax, parsed, table, section, lastEntry);
        pos = next;
    }
    return parsed;
}

// The value each full key reads as: later occurrences win.
std::unordered_map<std::string, std::string> effectiveValues(const Parsed& parsed,
                                                             bool useSections) {
    std::unordered_map<std::string, std::string> values;
    values.reserve(parsed.items.size());
    for (const Item& item : parsed.items) {
        if (item.kind == ItemKind::Entry) {
            values[parsed.fullKey(item, useSections)] = item.value;
        }
    }
    return values;
}

std::vector<std::string> includesOf(const Parsed& parsed) {
    std::vector<std::string> includes;
    for (const Item& item : parsed.items) {
        if (item.kind == ItemKind::Include) {
            includes.push_back(item.key);
        }
    }
    return includes;
}

struct KeyParts {
    std::string section;
    std::optional<std::string> subsection;
    std::string name;

    std::string sectionKey() const {
        return subsection ? section + "{" + *subsection + "}" : section;
    }
};

// "section.key" or "section{subsection}.key"; a subsection ends at the last "}." so that it may
// hold braces and points itself.
std::optional<KeyParts> splitFullKey(std::string_view key) {
    std::size_t at = key.find_first_of(".{");
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    KeyParts parts;
    parts.section = key.substr(0, at);
    if (key[at] == '.') {
        parts.name = key.substr(at + 1);
        return parts;
    }
    std::size_t close = key.rfind("}.");
    if (close == std::string_view::npos || close <= at) {
        return std::nullopt;
    }
    parts.subsection = std::string(key.substr(at + 1, close - at - 1));
    parts.name = key.substr(close + 2);
    return parts;
}

std::string gitQuotedSubsection(std::string_view subsection) {
    std::string out = "\"";
    for (char c : subsection) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    out += '"';
    return out;
}

std::string gitValue(std::string_view value) {
    bool quote = !value.empty() && (isGitSpace(value.front()) || isGitSpace(value.back()));
    std::string body;
    body.reserve(value.size());
    for (char c : value) {
        switch (c) {
            case '\\':
                body += "\\\\";
                break;
            case '"':
                body += "\\\"";
                break;
            case '\n':
                body += "\\n";
                break;
            case '\t':
                body += "\\t";
                break;
            case '\b':
                body += "\\b";
                break;
            case '#':
            case ';':
            case '\r':
                quote = true;
                body += c;
                break;
            default:
                body += c;
        }
    }
    return quote ? "\"" + body + "\"" : body;
}

std::string headerLine(const KeyParts& parts, bool git) {
    if (!parts.subsection) {
        return "[" + parts.section + "]";
    }
    if (git) {
        return "[" + parts.section + " " + gitQuotedSubsection(*parts.subsection) + "]";
    }
    return "[" + parts.section + " \"" + *parts.subsection + "\"]";
}

std::string entryLine(std::string_view name, std::string_view value, bool git) {
    std::string line(name);
    line += '=';
    line += git ? gitValue(value) : replaceAll(value, "\n", kNewlineToken);
    return line;
}

std::string_view terminatorOf(std::string_view line) {
    if (line.ends_with("\r\n")) {
        return line.substr(line.size() - 2);
    }
    if (line.ends_with('\n') || line.ends_with('\r')) {
        return line.substr(line.size() - 1);
    }
    return {};
}

// git ends lines at "\n" only.
bool endsWithLineBreak(std::string_view text, bool git) {
    return !text.empty() && (text.back() == '\n' || (!git && text.back() == '\r'));
}

// New lines follow the convention the file already uses.
std::string newlineOf(std::string_view text, bool git) {
    std::size_t at = git ? text.find('\n') : text.find_first_of("\r\n");
    if (at == std::string_view::npos) {
        return "\n";
    }
    if (git) {
        return at > 0 && text[at - 1] == '\r' ? "\r\n" : "\n";
    }
    if (text.substr(at).starts_with("\r\n")) {
        return "\r\n";
    }
    return std::string(1, text[at]);
}

std::string_view baseName(std::string_view path) {
    std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view parentName(std::string_view path) {
    std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : baseName(path.substr(0, slash));
}

// ".git/config", a bare repository's "x.git/config", "~/.config/git/config",
// ".git/modules/x/config".
bool isGitConfigName(std::string_view path) {
    std::string_view parent = parentName(path);
    return baseName(path) == "config" &&
           (parent == ".git" || parent.ends_with(".git") || parent == "git" ||
            path.find("/.git/") != std::string_view::npos || path.starts_with(".git/"));
}

bool looksLikeGitFile(std::string_view path) {
    std::string_view name = baseName(path);
    return name == ".gitmodules" || name == ".gitconfig" || isGitConfigName(path);
}

// Files in which users keep passwords or tokens: hgrc files ("[auth]", URLs with passwords) and
// git's configuration files (URLs with tokens, credential settings).
bool mayHoldCredentials(std::string_view path) {
    std::string_view name = baseName(path);
    return name.find("hgrc") != std::string_view::npos || name == ".gitconfig" ||
           name == ".git-credentials" || isGitConfigName(path);
}

// The file a save writes: `path`, or the end of its chain of symbolic links, also when that end
// does not exist yet (a dotfile linked into a checkout that has not been filled). Nothing for a
// loop of links.
std::optional<std::string> writeTarget(const std::string& path) {
    std::string current = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (::lstat(current.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
            return current;
        }
        std::string link(4096, '\0');
        ssize_t length = ::readlink(current.c_str(), link.data(), link.size());
        if (length < 0) {
            return current;
        }
        link.resize(static_cast<std::size_t>(length));
        if (!link.starts_with('/')) {
            std::size_t slash = current.rfind('/');
            link =
                (slash == std::string::npos ? std::string() : current.substr(0, slash + 1)) + link;
        }
        current = std::move(link);
    }
    return std::nullopt;
}

unsigned processUmask() {
    // Read rather than set and restore, which would race with other threads creating files.
    if (FILE* status = std::fopen("/proc/self/status", "re")) {
        char line[256];
        unsigned mask = 0;
        bool found = false;
        while (!found && std::fgets(line, sizeof line, status)) {
            found = std::sscanf(line, "Umask: %o", &mask) == 1;
        }
        std::fclose(status);
        if (found) {
            return mask & 0777;
        }
    }
    mode_t mask = ::umask(022);
    ::umask(mask);
    return mask & 0777;
}

unsigned modeFor(const std::string& target, bool holdsCredentials) {
    struct stat st;
    if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
        return st.st_mode & 07777;
    }
    return holdsCredentials ? 0600 : 0666 & ~processUmask();
}

struct Edit {
    std::size_t begin;
    std::size_t end;  // begin for an insertion
    std::string text;
    std::size_t order;
};

}  // namespace

VNConfigFile::VNConfigFile(std::string filename, bool useSections, bool indentsContinue)
    : VNConfigFile(std::move(filename), useSections, indentsContinue, true) {}

VNConfigFile::VNConfigFile(std::string filename, bool useSections, bool indentsContinue,
                           bool ignoreComments)
    : VNConfigFile(std::move(filename), Options{useSections, indentsContinue, ignoreComments,
                                                Syntax::Automatic, false}) {}

VNConfigFile::VNConfigFile(std::string filename, const Options& options)
    : filename_(std::move(filename)),
      useSections_(options.useSections),
      indentsContinue_(options.indentsContinue),
      ignoreComments_(options.ignoreComments) {
    switch (options.syntax) {
        case Syntax::Automatic:
            gitSyntax_ =
                useSections_ && !indentsContinue_ && ignoreComments_ && looksLikeGitFile(filename_);
            break;
        case Syntax::Plain:
            break;
        case Syntax::Git:
            gitSyntax_ = true;
            break;
    }
    if (gitSyntax_) {
        // What git reads: sections, comments, no indented continuation.
        useSections_ = true;
        indentsContinue_ = false;
        ignoreComments_ = true;
    }
    holdsCredentials_ = options.holdsCredentials || mayHoldCredentials(filename_);
    valueDictionary_.reserve(20);
    loadFile(filename_, useSections_);
}

void VNConfigFile::loadFile(const std::string& filename, bool useSections) {
    std::optional<std::string> bytes = vn::fs::readFile(filename);
    if (!bytes) {
        if (vn::fs::exists(filename)) {
            vn::Log::warning(vn::format("Cannot read the configuration file %@", filename));
        }
        return;
    }
    alreadyExisted_ = true;
    vn::DecodedTextFile file = vn::decodeTextFile(*bytes);
    bytes.reset();
    fileEncoding_ = file.encoding;
    byteOrderMark_ = file.byteOrderMark;
    Parsed parsed =
        parse(file.text, ::Syntax{useSections, indentsContinue_, ignoreComments_, gitSyntax_});
    for (Item& item : parsed.items) {
        if (item.kind == ItemKind::Include) {
            includeFiles_.push_back(std::move(item.key));
        } else if (item.kind == ItemKind::Entry) {
            valueDictionary_[parsed.fullKey(item, useSections)] = std::move(item.value);
        }
    }
}

std::string VNConfigFile::normalisedKey(const std::string& key) const {
    // A bare key in a file with sections lives before the first header, where it loads as ".key".
    if (useSections_ && key.find_first_of(".{") == std::string::npos) {
        return "." + key;
    }
    return key;
}

std::optional<std::string> VNConfigFile::getConfigValueForKey(const std::string& key) const {
    auto found = valueDictionary_.find(normalisedKey(key));
    if (found == valueDictionary_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::optional<std::string> VNConfigFile::getConfigValueForKey(const std::string& key,
                                                              const std::string& section) const {
    return getConfigValueForKey(vn::format("%@.%@", section, key));
}

std::map<std::string, std::string> VNConfigFile::getConfigKeysAndValuesWithSection(
    const std::string& section) const {
    std::string prefix = section + ".";
    std::map<std::string, std::string> result;
    for (const auto& [key, value] : valueDictionary_) {
        if (key.starts_with(prefix)) {
            result.emplace(key.substr(prefix.size()), value);
        }
    }
    return result;
}

std::set<std::string> VNConfigFile::getNamesOfSection(const std::string& section) const {
    std::set<std::string> names;
    for (const auto& entry : valueDictionary_) {
        std::optional<KeyParts> parts = splitFullKey(entry.first);
        if (parts && parts->subsection && parts->section == section &&
            !parts->subsection->empty()) {
            names.insert(*parts->subsection);
        }
    }
    return names;
}

std::map<std::string, std::string> VNConfigFile::matchConfigEntriesForKeyPattern(
    const std::string& pattern) const {
    std::map<std::string, std::string> result;
    vn::Regex expression(pattern);
    if (!expression.isValid()) {
        vn::Log::error(vn::format("Invalid key pattern %@: %@", pattern, expression.errorText()));
        return result;
    }
    for (const auto& [key, value] : valueDictionary_) {
        if (expression.matches(key)) {
            result.emplace(key, value);
        }
    }
    return result;
}

std::map<std::string, std::string> VNConfigFile::matchConfigEntriesForKeyPattern(
    const std::string& pattern, const std::string& section) const {
    return matchConfigEntriesForKeyPattern(
        vn::format("%@\\.%@", vn::Regex::escape(section), pattern));
}

void VNConfigFile::markModified(const std::string& fullKey) {
    if (modifiedKeySet_.insert(fullKey).second) {
        modifiedKeys_.push_back(fullKey);
    }
}

bool VNConfigFile::setConfigValue(const std::string& value, const std::string& key) {
    const std::string fullKey = normalisedKey(key);
    auto found = valueDictionary_.find(fullKey);
    if (found != valueDictionary_.end() && found->second == value) {
        return true;
    }
    // The entry (and its header) written alone must read back as exactly this key and value;
    // whatever the syntax cannot say is refused here rather than written wrong.
    const ::Syntax syntax{useSections_, indentsContinue_, ignoreComments_, gitSyntax_};
    std::optional<KeyParts> parts;
    std::string sample;
    bool valid = vn::isValidUTF8(fullKey) && vn::isValidUTF8(value) &&
                 (!gitSyntax_ || (fullKey.find('\0') == std::string::npos &&
                                  value.find('\0') == std::string::npos));
    if (valid && useSections_) {
        parts = splitFullKey(fullKey);
        valid = parts && !parts->name.empty() &&
                (!parts->subsection || !parts->subsection->empty()) &&
                !(gitSyntax_ && parts->section.empty());
        if (valid && !parts->section.empty()) {
            sample = headerLine(*parts, gitSyntax_) + "\n";
        }
    }
    if (valid) {
        sample += entryLine(parts ? parts->name : fullKey, value, gitSyntax_) + "\n";
        Parsed parsed = parse(sample, syntax);
        auto entry = std::find_if(parsed.items.begin(), parsed.items.end(),
                                  [](const Item& item) { return item.kind == ItemKind::Entry; });
        valid = entry != parsed.items.end() && parsed.fullKey(*entry, useSections_) == fullKey &&
                entry->value == value &&
                std::count_if(parsed.items.begin(), parsed.items.end(), [](const Item& item) {
                    return item.kind == ItemKind::Entry || item.kind == ItemKind::Include;
                }) == 1;
    }
    if (!valid) {
        vn::Log::error(
            vn::format("Cannot store the value of %@ in %@: the file's syntax cannot "
                       "hold that key or value",
                       fullKey, filename_));
        return false;
    }
    valueDictionary_[fullKey] = value;
    markModified(fullKey);
    if (parts) {
        removedSections_.erase(parts->sectionKey());
    }
    return true;
}

bool VNConfigFile::setConfigValue(const std::string& value, const std::string& key,
                                  const std::string& section) {
    return setConfigValue(value, section.empty() ? key : vn::format("%@.%@", section, key));
}

void VNConfigFile::removeFullKey(const std::string& fullKey) {
    valueDictionary_.erase(fullKey);
    markModified(fullKey);
}

void VNConfigFile::removeConfigValueForKey(const std::string& key) {
    removeFullKey(normalisedKey(key));
}

void VNConfigFile::removeConfigValueForKey(const std::string& key, const std::string& section) {
    removeFullKey(vn::format("%@.%@", section, key));
}

void VNConfigFile::removeAllConfigValuesInSection(const std::string& section) {
    std::string prefix = section + ".";
    std::vector<std::string> doomed;
    for (const auto& entry : valueDictionary_) {
        if (entry.first.starts_with(prefix)) {
            doomed.push_back(entry.first);
        }
    }
    for (const std::string& key : doomed) {
        removeFullKey(key);
    }
}

void VNConfigFile::removeSection(const std::string& section) {
    removeAllConfigValuesInSection(section);
    removedSections_.insert(section);
}

void VNConfigFile::removeAllKeysMatchingRegex(const std::string& regex) {
    std::vector<std::string> doomed;
    for (const auto& entry : matchConfigEntriesForKeyPattern(regex)) {
        doomed.push_back(entry.first);
    }
    for (const std::string& key : doomed) {
        removeFullKey(key);
    }
}

bool VNConfigFile::setConfigKeysAndValues(const std::map<std::string, std::string>& keysAndValues,
                                          const std::string& section, bool deleteOthers) {
    if (deleteOthers) {
        for (const auto& entry : getConfigKeysAndValuesWithSection(section)) {
            if (!keysAndValues.contains(entry.first)) {
                removeConfigValueForKey(entry.first, section);
            }
        }
    }
    bool allSet = true;
    for (const auto& [key, value] : keysAndValues) {
        allSet = setConfigValue(value, key, section) && allSet;
    }
    return allSet;
}

bool VNConfigFile::save() {
    return saveAs(filename_);
}

bool VNConfigFile::saveAs(const std::string& path) {
    const ::Syntax syntax{useSections_, indentsContinue_, ignoreComments_, gitSyntax_};
    vn::DecodedTextFile current{std::string(), fileEncoding_, byteOrderMark_};
    if (std::optional<std::string> bytes = vn::fs::readFile(filename_)) {
        current = vn::decodeTextFile(*bytes);
    } else if (vn::fs::exists(filename_)) {
        // Starting from nothing would throw away what the file holds.
        vn::Log::error(vn::format("Cannot save %@: the file cannot be read", filename_));
        return false;
    }
    const std::string& text = current.text;
    const Parsed parsed = parse(text, syntax);
    const std::string newline = newlineOf(text, gitSyntax_);

    std::unordered_map<std::string, std::vector<std::size_t>> entriesByKey;
    entriesByKey.reserve(parsed.items.size());
    // Per section: the last header, entry or continuation of any of its blocks.
    std::vector<std::optional<std::size_t>> anchors(parsed.sections.size());
    std::optional<std::size_t> firstHeader;
    for (std::size_t i = 0; i < parsed.items.size(); ++i) {
        const Item& item = parsed.items[i];
        if (item.kind == ItemKind::Entry) {
            entriesByKey[parsed.fullKey(item, useSections_)].push_back(i);
        }
        if (item.kind == ItemKind::Header && !firstHeader) {
            firstHeader = i;
        }
        if (item.kind == ItemKind::Header || item.kind == ItemKind::Entry ||
            item.kind == ItemKind::Continuation) {
            anchors[item.section] = i;
        }
    }
    std::unordered_map<std::string, std::uint32_t> sectionIds;
    for (std::uint32_t id = 0; id < parsed.sections.size(); ++id) {
        sectionIds.emplace(parsed.sections[id], id);
    }

    std::unordered_map<std::string, std::string> expected = effectiveValues(parsed, useSections_);
    std::vector<Edit> edits;
    std::vector<bool> removed(parsed.items.size(), false);
    auto removeEntry = [&](std::size_t entry) {
        for (std::size_t i = entry; i <= parsed.items[entry].lastContinuation; ++i) {
            if (i == entry || parsed.items[i].kind == ItemKind::Continuation) {
                removed[i] = true;
                edits.push_back({parsed.items[i].begin, parsed.items[i].end, "", edits.size()});
            }
        }
    };
    // Sections the file lacks, appended at its end in the order they were first needed.
    std::vector<std::pair<std::string, std::string>> newBlocks;
    std::unordered_map<std::string, std::size_t> newBlockIndex;

    for (const std::string& fullKey : modifiedKeys_) {
        auto occurrences = entriesByKey.find(fullKey);
        auto value = valueDictionary_.find(fullKey);
        if (value == valueDictionary_.end()) {
            expected.erase(fullKey);
            if (occurrences != entriesByKey.end()) {
                for (std::size_t entry : occurrences->second) {
                    removeEntry(entry);
                }
            }
            continue;
        }
        expected[fullKey] = value->second;
        std::optional<KeyParts> parts;
        if (useSections_) {
            parts = splitFullKey(fullKey);
            if (!parts) {
                continue;  // refused when it was set
            }
        }
        const std::string name = parts ? parts->name : fullKey;
        if (occurrences != entriesByKey.end()) {
            // The last occurrence is the one whose value was loaded; earlier ones are overridden.
            const std::size_t entry = occurrences->second.back();
            const Item& item = parsed.items[entry];
            if (item.value != value->second) {
                removeEntry(entry);
                std::string line = entryLine(item.key, value->second, gitSyntax_);
                line +=
                    terminatorOf(std::string_view(text).substr(item.begin, item.end - item.begin));
                edits.push_back({item.begin, item.begin, std::move(line), edits.size()});
            }
            continue;
        }

        std::string line = entryLine(name, value->second, gitSyntax_) + newline;
        const std::string sectionKey = parts ? parts->sectionKey() : std::string();
        std::optional<std::size_t> at;
        if (!useSections_) {
            at = text.size();
        } else if (auto id = sectionIds.find(sectionKey);
                   id != sectionIds.end() && anchors[id->second]) {
            std::size_t anchor = *anchors[id->second];
            // Past indented lines that continue nothing (and includes among them): under the new
            // entry they would become part of its value.
            while (anchor + 1 < parsed.items.size() &&
                   (parsed.items[anchor + 1].kind == ItemKind::Orphan ||
                    parsed.items[anchor + 1].kind == ItemKind::Include) &&
                   parsed.items[anchor + 1].section == id->second) {
                ++anchor;
            }
            at = parsed.items[anchor].end;
        } else if (sectionKey.empty()) {
            at = firstHeader ? parsed.items[*firstHeader].begin : text.size();
        }
        if (at) {
            edits.push_back({*at, *at, std::move(line), edits.size()});
            continue;
        }
        auto [block, inserted] = newBlockIndex.emplace(sectionKey, newBlocks.size());
        if (inserted) {
            newBlocks.emplace_back(headerLine(*parts, gitSyntax_) + newline, std::string());
        }
        newBlocks[block->second].second += line;
    }

    // A removed section loses its header only once nothing in it remains; an entry the file
    // gained after loading would otherwise slide into the section above. Indented lines that
    // continue nothing under it go too: under the section above they would continue its last
    // value.
    for (std::size_t i = 0; i < parsed.items.size(); ++i) {
        const Item& header = parsed.items[i];
        if (header.kind != ItemKind::Header ||
            !removedSections_.contains(parsed.sections[header.section])) {
            continue;
        }
        std::size_t blockEnd = i + 1;
        bool holdsEntries = false;
        for (; blockEnd < parsed.items.size() && parsed.items[blockEnd].kind != ItemKind::Header;
             ++blockEnd) {
            holdsEntries = holdsEntries ||
                           (parsed.items[blockEnd].kind == ItemKind::Entry && !removed[blockEnd]);
        }
        if (holdsEntries) {
            continue;
        }
        for (std::size_t j = i; j < blockEnd; ++j) {
            const ItemKind kind = parsed.items[j].kind;
            if (kind == ItemKind::Header || kind == ItemKind::Orphan) {
                edits.push_back({parsed.items[j].begin, parsed.items[j].end, "", edits.size()});
            }
        }
    }

    // Insertions come before a removal at the same place; otherwise in the order they were made.
    std::sort(edits.begin(), edits.end(), [](const Edit& a, const Edit& b) {
        if (a.begin != b.begin) {
            return a.begin < b.begin;
        }
        const bool aInserts = a.begin == a.end;
        const bool bInserts = b.begin == b.end;
        if (aInserts != bInserts) {
            return aInserts;
        }
        return a.order < b.order;
    });
    std::string output;
    output.reserve(text.size() + 256);
    auto startLine = [&] {
        if (!output.empty() && !endsWithLineBreak(output, gitSyntax_)) {
            // A git value ending in a backslash would run on into the next line.
            if (gitSyntax_ && output.back() == '\\') {
                output += newline;
            }
            output += newline;
        }
    };
    std::size_t cursor = 0;
    for (const Edit& edit : edits) {
        if (edit.begin > cursor) {
            output.append(text, cursor, edit.begin - cursor);
            cursor = edit.begin;
        }
        if (!edit.text.empty()) {
            startLine();
            output += edit.text;
        }
        cursor = std::max(cursor, edit.end);
    }
    output.append(text, cursor);
    for (const auto& [header, entries] : newBlocks) {
        startLine();
        output += header;
        output += entries;
    }

    // The result must read back as intended. A single-byte file whose edited text would be taken
    // for UTF-8, or that cannot hold a new character, is converted to UTF-8 as a whole: every
    // character it had stays the same character.
    const std::vector<std::string> includes = includesOf(parsed);
    std::optional<std::string> encoded;
    vn::FileEncoding encoding = current.encoding;
    for (vn::FileEncoding candidate : {current.encoding, vn::FileEncoding::UTF8}) {
        std::optional<std::string> bytes =
            vn::encodeTextFile(output, candidate, current.byteOrderMark);
        if (!bytes) {
            continue;
        }
        vn::DecodedTextFile reread = vn::decodeTextFile(*bytes);
        Parsed check = parse(reread.text, syntax);
        if (effectiveValues(check, useSections_) == expected && includesOf(check) == includes) {
            encoded = std::move(bytes);
            encoding = candidate;
            break;
        }
    }
    if (!encoded) {
        vn::Log::error(vn::format(
            "Cannot save %@: the edited file would not read back with the values set", path));
        return false;
    }
    if (encoding != current.encoding) {
        vn::Log::info(vn::format("%@ is converted from %@ to UTF-8 so that it holds the new values",
                                 path, vn::fileEncodingName(current.encoding)));
    }

    const std::optional<std::string> target = writeTarget(path);
    if (!target) {
        vn::Log::error(vn::format("Cannot save %@: too many levels of symbolic links", path));
        return false;
    }
    std::optional<std::string> present = vn::fs::readFile(*target);
    if (!present || *present != *encoded) {
        std::string error;
        if (!vn::fs::writeFileAtomically(
                *target, *encoded, &error,
                modeFor(*target, holdsCredentials_ || mayHoldCredentials(*target)))) {
            vn::Log::error(vn::format("Cannot save %@: %@", path, error));
            return false;
        }
    }
    filename_ = path;
    fileEncoding_ = encoding;
    byteOrderMark_ = current.byteOrderMark;
    modifiedKeys_.clear();
    modifiedKeySet_.clear();
    removedSections_.clear();
    return true;
}
