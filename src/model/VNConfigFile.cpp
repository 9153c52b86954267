#include "model/VNConfigFile.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <utility>

#include "base/Format.h"
#include "base/Regex.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"

namespace {

constexpr std::string_view kNewlineToken = "{{newline}}";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

const vn::Regex& keySplitExpression() {
    static const vn::Regex expression("^([^\\.\\{]+)(?:\\{([^}]+)\\})?\\.(.*)");
    return expression;
}

const vn::Regex& includeExpression() {
    static const vn::Regex expression("^\\%include\\s+(.*)$");
    return expression;
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
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

std::string decodeValue(std::string_view text) {
    return replaceAll(text, kNewlineToken, "\n");
}

std::string encodeValue(std::string_view value) {
    // Any line break in a value would end the line in the file and split the entry.
    std::string text = replaceAll(value, "\r\n", kNewlineToken);
    text = replaceAll(text, "\r", kNewlineToken);
    return replaceAll(text, "\n", kNewlineToken);
}

// Lines with their terminators ("\n", "\r\n" or a lone "\r"); the last may have none.
std::vector<std::string> splitLines(std::string_view text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' || text[i] == '\r') {
            if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
                ++i;
            }
            lines.emplace_back(text.substr(start, i + 1 - start));
            start = i + 1;
        }
    }
    if (start < text.size()) {
        lines.emplace_back(text.substr(start));
    }
    return lines;
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

// New lines follow the convention the file already uses.
std::string newlineOf(std::string_view text) {
    std::size_t at = text.find_first_of("\r\n");
    if (at == std::string_view::npos) {
        return "\n";
    }
    if (text.substr(at).starts_with("\r\n")) {
        return "\r\n";
    }
    return std::string(1, text[at]);
}

// A header's section as it appears in full keys: "name" or "name{subsection}"; nothing when the
// line has no closing bracket.
std::optional<std::string> headerSection(std::string_view trimmed) {
    std::size_t close = trimmed.rfind(']');
    if (close == std::string_view::npos || close == 0) {
        return std::nullopt;
    }
    std::string_view inner = trimmed.substr(1, close - 1);
    std::size_t open = inner.find('"');
    if (open != std::string_view::npos && open + 1 < inner.size()) {
        // The last quote, so that an escaped quote inside the name stays part of it.
        std::size_t end = inner.rfind('"');
        if (end > open) {
            return vn::format("%@{%@}", trim(inner.substr(0, open)),
                              inner.substr(open + 1, end - open - 1));
        }
    }
    return std::string(trim(inner));
}

enum class LineKind {
    Skipped,  // blank or comment
    Include,
    Header,
    MalformedHeader,
    Entry,
    Continuation,
    Other,
};

struct ConfigLine {
    std::string text;  // as in the file, with its terminator
    LineKind kind = LineKind::Other;
    std::string section;  // Header: its section; Entry: the section it belongs to
    std::string key;      // Entry: the trimmed name before "="
    std::string fullKey;  // Entry: its full key; Continuation: the full key it continues
    std::string value;    // Entry: decoded value; Continuation: its text; Include: the target
};

struct Syntax {
    bool useSections;
    bool indentsContinue;
    bool ignoreComments;
};

// Classifies every line the way loading reads it. Saving uses the same classification, so that it
// finds exactly the lines whose values were loaded.
std::vector<ConfigLine> parseLines(std::string_view text, const Syntax& syntax) {
    std::vector<ConfigLine> lines;
    std::string section;
    bool haveLastEntry = false;
    std::string lastEntry;
    for (std::string& raw : splitLines(text)) {
        ConfigLine line;
        line.text = std::move(raw);
        std::string_view content = line.text;
        if (lines.empty() && content.starts_with(kByteOrderMark)) {
            content.remove_prefix(kByteOrderMark.size());
        }
        const bool indented = !content.empty() && isSpace(content.front()) &&
                              content.front() != '\n' && content.front() != '\r';
        if (syntax.ignoreComments) {
            if (content.starts_with('#') || content.starts_with(';')) {
                content = {};
            }
            content = content.substr(0, content.find_first_of("#;"));
        }
        std::string_view trimmed = trim(content);
        std::optional<vn::Regex::Match> include;
        if (trimmed.empty()) {
            line.kind = LineKind::Skipped;
        } else if (trimmed.front() == '%' && (include = includeExpression().find(trimmed))) {
            line.kind = LineKind::Include;
            line.value = include->str(1);
        } else if (syntax.useSections && trimmed.front() == '[') {
            if (std::optional<std::string> header = headerSection(trimmed)) {
                line.kind = LineKind::Header;
                line.section = *header;
                section = *header;
                // An indented line under a new header does not continue an entry above it.
                haveLastEntry = false;
            } else {
                // Left alone: it neither opens a section nor ends the current one.
                line.kind = LineKind::MalformedHeader;
            }
        } else if (std::size_t equals = trimmed.find('='); equals != std::string_view::npos) {
            line.kind = LineKind::Entry;
            line.section = section;
            line.key = trim(trimmed.substr(0, equals));
            line.value = decodeValue(trim(trimmed.substr(equals + 1)));
            line.fullKey = syntax.useSections ? vn::format("%@.%@", section, line.key) : line.key;
            haveLastEntry = true;
            lastEntry = line.fullKey;
        } else if (syntax.indentsContinue && indented && haveLastEntry) {
            line.kind = LineKind::Continuation;
            line.fullKey = lastEntry;
            line.value = decodeValue(trimmed);
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

// One past the continuation lines that belong to the entry at `entry`.
std::size_t endOfEntry(const std::vector<ConfigLine>& lines, std::size_t entry) {
    std::size_t end = entry + 1;
    for (std::size_t i = entry + 1; i < lines.size(); ++i) {
        if (lines[i].kind == LineKind::Entry || lines[i].kind == LineKind::Header) {
            break;
        }
        if (lines[i].kind == LineKind::Continuation) {
            end = i + 1;
        }
    }
    return end;
}

// Drops the continuation lines of the entry at `entry`, keeping comments between them.
void eraseContinuations(std::vector<ConfigLine>& lines, std::size_t entry) {
    for (std::size_t i = endOfEntry(lines, entry); i-- > entry + 1;) {
        if (lines[i].kind == LineKind::Continuation) {
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

void eraseEntry(std::vector<ConfigLine>& lines, std::size_t entry) {
    eraseContinuations(lines, entry);
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(entry));
}

std::string entryValue(const std::vector<ConfigLine>& lines, std::size_t entry) {
    std::string value = lines[entry].value;
    std::size_t end = endOfEntry(lines, entry);
    for (std::size_t i = entry + 1; i < end; ++i) {
        if (lines[i].kind == LineKind::Continuation) {
            value += " " + lines[i].value;
        }
    }
    return value;
}

void insertLine(std::vector<ConfigLine>& lines, std::size_t at, ConfigLine line,
                const std::string& newline) {
    if (at > 0 && terminatorOf(lines[at - 1].text).empty()) {
        lines[at - 1].text += newline;
    }
    line.text += newline;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), std::move(line));
}

// Where a new entry of `section` goes: after the last entry (or the header) of the section's last
// block, so that comments and stray lines leading into the next header stay with that header, and
// a malformed header line, once repaired, does not capture the new entry.
std::optional<std::size_t> insertionPoint(const std::vector<ConfigLine>& lines,
                                          const std::string& section) {
    std::optional<std::size_t> anchor;
    std::optional<std::size_t> firstHeader;
    std::string current;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const ConfigLine& line = lines[i];
        if (line.kind == LineKind::Header) {
            if (!firstHeader) {
                firstHeader = i;
            }
            current = line.section;
            if (current == section) {
                anchor = i;
            }
        } else if (current == section &&
                   (line.kind == LineKind::Entry || line.kind == LineKind::Continuation)) {
            anchor = i;
        }
    }
    if (anchor) {
        return *anchor + 1;
    }
    if (section.empty()) {
        // Entries before any header: just above the first header.
        return firstHeader ? *firstHeader : lines.size();
    }
    return std::nullopt;
}

bool readsAsText(const std::string& path, std::string& text, vn::TextEncoding* encoding) {
    std::optional<std::string> bytes = vn::fs::readFile(path);
    if (!bytes) {
        return false;
    }
    std::optional<std::string> decoded = vn::decodeWithFallbacks(*bytes, encoding);
    if (!decoded) {
        return false;
    }
    text = std::move(*decoded);
    return true;
}

// Writing through a symbolic link keeps the link (dotfiles are often links into a checkout).
std::string resolvedTarget(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
        return path;
    }
    char resolved[PATH_MAX];
    if (::realpath(path.c_str(), resolved) == nullptr) {
        return path;
    }
    return resolved;
}

// The replacement keeps the old file's permissions: an hgrc may hold passwords.
unsigned modeFor(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
        return st.st_mode & 07777;
    }
    return 0644;
}

}  // namespace

VNConfigFile::VNConfigFile(std::string filename, bool useSections, bool indentsContinue)
    : VNConfigFile(std::move(filename), useSections, indentsContinue, true) {}

VNConfigFile::VNConfigFile(std::string filename, bool useSections, bool indentsContinue,
                           bool ignoreComments)
    : filename_(std::move(filename)),
      useSections_(useSections),
      indentsContinue_(indentsContinue),
      ignoreComments_(ignoreComments) {
    valueDictionary_.reserve(20);
    loadFile(filename_, useSections_);
}

void VNConfigFile::loadFile(const std::string& filename, bool useSections) {
    std::string text;
    if (!readsAsText(filename, text, &fileEncoding_)) {
        if (vn::fs::exists(filename)) {
            vn::Log::warning(vn::format("Cannot read the configuration file %@", filename));
        }
        return;
    }
    alreadyExisted_ = true;
    for (ConfigLine& line :
         parseLines(text, Syntax{useSections, indentsContinue_, ignoreComments_})) {
        switch (line.kind) {
            case LineKind::Include:
                includeFiles_.push_back(std::move(line.value));
                break;
            case LineKind::Entry:
                valueDictionary_[line.fullKey] = std::move(line.value);
                break;
            case LineKind::Continuation:
                valueDictionary_[line.fullKey] += " " + line.value;
                break;
            default:
                break;
        }
    }
}

std::optional<std::string> VNConfigFile::getConfigValueForKey(const std::string& key) const {
    auto found = valueDictionary_.find(key);
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
    vn::Regex expression(vn::format("%@\\{(.+)\\}.*", vn::Regex::escape(section)));
    std::set<std::string> names;
    for (const auto& entry : valueDictionary_) {
        if (auto match = expression.match(entry.first)) {
            names.insert(match->str(1));
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

void VNConfigFile::setConfigValue(const std::string& value, const std::string& key) {
    auto found = valueDictionary_.find(key);
    if (found != valueDictionary_.end() && found->second == value) {
        return;
    }
    valueDictionary_[key] = value;
    markModified(key);
}

void VNConfigFile::setConfigValue(const std::string& value, const std::string& key,
                                  const std::string& section) {
    setConfigValue(value, section.empty() ? key : vn::format("%@.%@", section, key));
    removedSections_.erase(section);
}

void VNConfigFile::removeFullKey(const std::string& fullKey) {
    valueDictionary_.erase(fullKey);
    markModified(fullKey);
}

void VNConfigFile::removeConfigValueForKey(const std::string& key) {
    removeFullKey(key);
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

void VNConfigFile::setConfigKeysAndValues(const std::map<std::string, std::string>& keysAndValues,
                                          const std::string& section, bool deleteOthers) {
    if (deleteOthers) {
        for (const auto& entry : getConfigKeysAndValuesWithSection(section)) {
            if (!keysAndValues.contains(entry.first)) {
                removeConfigValueForKey(entry.first, section);
            }
        }
    }
    for (const auto& [key, value] : keysAndValues) {
        setConfigValue(value, key, section);
    }
}

bool VNConfigFile::save() {
    return saveAs(filename_);
}

bool VNConfigFile::saveAs(const std::string& path) {
    const Syntax syntax{useSections_, indentsContinue_, ignoreComments_};
    std::string text;
    if (!readsAsText(filename_, text, nullptr) && vn::fs::exists(filename_)) {
        // Starting from nothing would throw away what the file holds.
        vn::Log::error(vn::format("Cannot save %@: the file cannot be read", filename_));
        return false;
    }
    std::vector<ConfigLine> lines = parseLines(text, syntax);
    const std::string newline = newlineOf(text);

    for (const std::string& fullKey : modifiedKeys_) {
        // A bare key in a file with sections lives before the first header, where it loads as
        // ".key".
        const bool bareKey = useSections_ && fullKey.find('.') == std::string::npos;
        auto isThisKey = [&](const ConfigLine& line) {
            return line.kind == LineKind::Entry &&
                   (line.fullKey == fullKey || (bareKey && line.fullKey == "." + fullKey));
        };
        auto value = valueDictionary_.find(fullKey);
        if (value == valueDictionary_.end()) {
            for (std::size_t i = lines.size(); i-- > 0;) {
                if (isThisKey(lines[i])) {
                    eraseEntry(lines, i);
                }
            }
            continue;
        }
        // The last occurrence is the one whose value was loaded; earlier ones are overridden.
        std::optional<std::size_t> found;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (isThisKey(lines[i])) {
                found = i;
            }
        }
        if (found) {
            if (entryValue(lines, *found) != value->second) {
                ConfigLine& line = lines[*found];
                line.text = vn::format("%@=%@", line.key, encodeValue(value->second)) +
                            std::string(terminatorOf(line.text));
                line.value = value->second;
                eraseContinuations(lines, *found);
            }
            continue;
        }

        std::string section;
        std::optional<std::string> subsection;
        std::string name = fullKey;
        if (useSections_) {
            if (auto split = keySplitExpression().find(fullKey)) {
                section = split->str(1);
                if (split->matched(2)) {
                    subsection = split->str(2);
                }
                name = split->str(3);
            } else if (fullKey.starts_with('.')) {
                name = fullKey.substr(1);
            }
        }
        const std::string sectionKey =
            subsection ? vn::format("%@{%@}", section, *subsection) : section;
        ConfigLine entry;
        entry.kind = LineKind::Entry;
        entry.section = sectionKey;
        entry.key = name;
        entry.fullKey = fullKey;
        entry.value = value->second;
        entry.text = vn::format("%@=%@", name, encodeValue(value->second));

        std::optional<std::size_t> at = useSections_ ? insertionPoint(lines, sectionKey)
                                                     : std::optional<std::size_t>(lines.size());
        if (!at) {
            ConfigLine header;
            header.kind = LineKind::Header;
            header.section = sectionKey;
            header.text = subsection ? vn::format("[%@ \"%@\"]", section, *subsection)
                                     : vn::format("[%@]", section);
            insertLine(lines, lines.size(), std::move(header), newline);
            at = lines.size();
        }
        insertLine(lines, *at, std::move(entry), newline);
    }

    // A removed section loses its header only once nothing in it remains; an entry the file
    // gained after loading would otherwise slide into the section above.
    for (std::size_t i = lines.size(); i-- > 0;) {
        if (lines[i].kind != LineKind::Header || !removedSections_.contains(lines[i].section)) {
            continue;
        }
        bool holdsEntries = false;
        for (std::size_t j = i + 1; j < lines.size() && lines[j].kind != LineKind::Header; ++j) {
            holdsEntries = holdsEntries || lines[j].kind == LineKind::Entry;
        }
        if (!holdsEntries) {
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }

    std::string output;
    output.reserve(text.size() + 64);
    for (const ConfigLine& line : lines) {
        output += line.text;
    }
    std::optional<std::string> encoded = vn::encodeText(output, fileEncoding_);
    if (!encoded) {
        vn::Log::error(vn::format("Cannot save %@: a value cannot be written in %@", path,
                                  vn::textEncodingName(fileEncoding_)));
        return false;
    }
    const std::string target = resolvedTarget(path);
    std::optional<std::string> current = vn::fs::readFile(target);
    if (!current || *current != *encoded) {
        std::string error;
        if (!vn::fs::writeFileAtomically(target, *encoded, &error, modeFor(target))) {
            vn::Log::error(vn::format("Cannot save %@: %@", path, error));
            return false;
        }
    }
    filename_ = path;
    modifiedKeys_.clear();
    modifiedKeySet_.clear();
    removedSections_.clear();
    return true;
}
