#include "git/VNGitLogParser.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <map>
#include <set>
#include <unordered_map>

#include "base/FieldReader.h"
#include "git/VNGitStatusParser.h"
#include "handler/VNRepoHandlerBase.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"
#include "platform/Localized.h"

namespace {

constexpr std::string_view Sep = VNGitLogParser::FieldSeparator;
constexpr std::string_view HeadsPrefix = "refs/heads/";
constexpr std::string_view TagsPrefix = "refs/tags/";
constexpr std::string_view RemotesPrefix = "refs/remotes/";
constexpr std::string_view RemoteTagsPrefix = "refs/remotes/tags/";

// Splits a log line at NUL into exactly `count` fields; false for any other number.
bool splitLogFields(std::string_view text, std::string_view* fields, std::size_t count) {
    std::size_t found = 0;
    for (;;) {
        std::size_t at = text.find(VNGitLogParser::LogFieldSeparator);
        if (found == count) {
            return false;
        }
        if (at == std::string_view::npos) {
            fields[found++] = text;
            return found == count;
        }
        fields[found++] = text.substr(0, at);
        text.remove_prefix(at + 1);
    }
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The parents field: first, second, and the rest as an array.
void setParents(vn::Record& row, std::string_view parents) {
    // Most commits have at most two parents; their rows share one empty array.
    static const vn::Value noOtherParents = vn::Value::Array{};
    std::string_view first, second;
    vn::Value::Array others;
    std::size_t index = 0;
    while (!parents.empty()) {
        std::size_t blank = parents.find(' ');
        std::string_view parent = parents.substr(0, blank);
        parents.remove_prefix(blank == std::string_view::npos ? parents.size() : blank + 1);
        if (parent.empty()) {
            continue;
        }
        if (index == 0) {
            first = parent;
        } else if (index == 1) {
            second = parent;
        } else {
            others.emplace_back(parent);
        }
        ++index;
    }
    row.set("parentid1", first);
    row.set("parentid2", second);
    row.set("otherparentids", others.empty() ? noOtherParents : vn::Value(std::move(others)));
}

vn::Record makeRow(std::string_view hash, std::string_view shortHash, std::string_view parents,
                   vn::Value date, std::string_view committer, std::string_view author,
                   std::string_view subject, VNLogDescriptionEntry::LabelList labels) {
    // Copying a record with every key in place sizes it exactly; keys set one by one would
    // leave room for 16, which a long history pays for in every row.
    static const vn::Record shape{
        {"rev", nullptr},
        {"changeset", nullptr},
        {"changesetshort", nullptr},
        {"parentid1", nullptr},
        {"parentid2", nullptr},
        {"otherparentids", nullptr},
        {"date", nullptr},
        {"user", nullptr},
        {"committer", nullptr},
        {"branch", nullptr},
        {"descriptionentry", nullptr},
    };
    vn::Record row = shape;
    std::string rev(hash);
    row.set("rev", rev);
    row.set("changeset", std::move(rev));
    row.set("changesetshort", shortHash);
    setParents(row, parents);
    row.set("date", std::move(date));
    row.set("user", author);
    row.set("committer", committer);
    row.set("branch", "");
    row.set("descriptionentry",
            std::make_shared<const VNLogDescriptionEntry>(std::string(subject), std::move(labels)));
    return row;
}

}  // namespace

std::string VNGitLogParser::logFormatArgument(bool authorDate) {
    std::string format = "--format=%H";
    for (std::string_view field :
         {"%h", "%P", authorDate ? "%at %aI" : "%ct %cI", "%cn <%ce>", "%an <%ae>", "%d", "%s"}) {
        format.append("%x00").append(field);
    }
    return format;
}

vn::Value VNGitLogParser::gitDate(std::string_view seconds, std::string_view zone) {
    bool negative = seconds.starts_with("-");
    std::string_view digits = negative ? seconds.substr(1) : seconds;
    if (digits.empty() || digits.size() > 4096 ||
        digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return {};
    }
    using Seconds = std::chrono::seconds;
    // A point in time counts nanoseconds: about 292 years either side of 1970.
    const int64_t latest =
        std::chrono::duration_cast<Seconds>(vn::Value::Date::max().time_since_epoch()).count();
    const int64_t earliest =
        std::chrono::duration_cast<Seconds>(vn::Value::Date::min().time_since_epoch()).count();
    int64_t value = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::result_out_of_range || value > latest) {
        value = latest;
    }
    if (negative) {
        value = std::max(-value, earliest);
    }
    vn::Value::Date date(std::chrono::duration_cast<vn::Value::Date::duration>(Seconds(value)));

    // "+0530", "+05:30" or "Z", possibly at the end of a longer text.
    if (zone.ends_with("Z")) {
        return vn::Value(date, 0);
    }
    std::size_t sign = zone.find_last_of("+-");
    if (sign == std::string_view::npos) {
        return vn::Value(date);
    }
    std::string_view offset = zone.substr(sign + 1);
    char hh[2], mm[2];
    if (offset.size() == 5 && offset[2] == ':') {
        hh[0] = offset[0], hh[1] = offset[1], mm[0] = offset[3], mm[1] = offset[4];
    } else if (offset.size() == 4) {
        hh[0] = offset[0], hh[1] = offset[1], mm[0] = offset[2], mm[1] = offset[3];
    } else {
        return vn::Value(date);
    }
    if (!isDigit(hh[0]) || !isDigit(hh[1]) || !isDigit(mm[0]) || !isDigit(mm[1])) {
        return vn::Value(date);
    }
    int32_t minutes = (mm[0] - '0') * 10 + (mm[1] - '0');
    if (minutes > 59) {
        return vn::Value(date);
    }
    int32_t total = ((hh[0] - '0') * 10 + (hh[1] - '0')) * 3600 + minutes * 60;
    return vn::Value(date, zone[sign] == '-' ? -total : total);
}

vn::Value VNGitLogParser::dateField(std::string_view field) {
    std::size_t blank = field.find(' ');
    if (blank == std::string_view::npos) {
        return gitDate(field, {});
    }
    return gitDate(field.substr(0, blank), field.substr(blank + 1));
}

std::string VNGitLogParser::aheadBehindAnnotation(int64_t ahead, int64_t behind) {
    std::string text;
    if (ahead > 0) {
        text = vn::localizedFormat("GitAheadAnnotate", ahead);
    }
    if (behind > 0) {
        if (!text.empty()) {
            text.push_back(' ');
        }
        text += vn::localizedFormat("GitBehindAnnotate", behind);
    }
    return text;
}

std::vector<std::shared_ptr<VNLogLabel>> VNGitLogParser::labelsFromDecoration(
    std::string_view decoration, const std::string& hash, LabelScan scan,
    const vn::Record* aheadBehind) {
    std::vector<std::shared_ptr<VNLogLabel>> labels;
    // " (HEAD -> refs/heads/main, tag: refs/tags/v1)": items are separated by ", ", which no
    // reference name can hold (names cannot contain blanks), while "," and parentheses can.
    while (!decoration.empty() && decoration.front() == ' ') {
        decoration.remove_prefix(1);
    }
    if (decoration.starts_with("(") && decoration.ends_with(")")) {
        decoration = decoration.substr(1, decoration.size() - 2);
    }
    while (!decoration.empty()) {
        std::size_t comma = decoration.find(", ");
        std::string_view item = decoration.substr(0, comma);
        decoration.remove_prefix(comma == std::string_view::npos ? decoration.size() : comma + 2);

        bool current = false;
        if (item == "HEAD") {
            labels.push_back(
                VNLogLabel::labelWithLabel("HEAD", VNLogLabel::Tag, hash, hash, "HEAD"));
            continue;
        }
        if (item.starts_with("HEAD -> ")) {
            item.remove_prefix(8);
            current = true;
        } else if (item.starts_with("tag: ")) {
            item.remove_prefix(5);
        }
        std::string_view name;
        int32_t type;
        if (item.starts_with(HeadsPrefix)) {
            name = item.substr(HeadsPrefix.size());
            type = VNLogLabel::LocalBranch;
        } else if (item.starts_with(TagsPrefix)) {
            name = item.substr(TagsPrefix.size());
            type = VNLogLabel::Tag;
        } else if (scan == LabelScan::Full && item.starts_with(RemoteTagsPrefix)) {
            name = item.substr(RemoteTagsPrefix.size());
            type = VNLogLabel::RemoteBranch;
        } else if (scan == LabelScan::Full && item.starts_with(RemotesPrefix)) {
            name = item.substr(RemotesPrefix.size());
            type = VNLogLabel::RemoteBranch;
        } else {
            continue;  // "grafted", "refs/stash", and references of other kinds
        }
        if (name.empty()) {
            continue;
        }
        auto label =
            VNLogLabel::labelWithLabel(std::string(name), type, hash, hash, std::string(item));
        label->setCurrentMarker(current);
        if (type == VNLogLabel::LocalBranch && scan == LabelScan::Full && aheadBehind) {
            if (const vn::Value* counts = aheadBehind->find(name)) {
                const vn::Value::Array* pair = counts->array();
                if (pair && pair->size() == 2) {
                    label->setAnnotation(
                        aheadBehindAnnotation((*pair)[0].toInt(), (*pair)[1].toInt()));
                }
            }
        }
        labels.push_back(std::move(label));
    }
    return labels;
}

namespace {

std::optional<vn::Record> parseRow(std::string_view line, VNGitLogParser::LabelScan scan,
                                   const vn::Record* aheadBehind) {
    std::string_view fields[VNGitLogParser::LogFieldCount];
    if (!VNGitLogParser::logLineFields(line, fields)) {
        return std::nullopt;
    }
    std::string hash(fields[0]);
    VNLogDescriptionEntry::LabelList labels;
    if (!fields[6].empty()) {
        labels = VNGitLogParser::labelsFromDecoration(fields[6], hash, scan, aheadBehind);
    }
    return makeRow(hash, fields[1], fields[2], VNGitLogParser::dateField(fields[3]), fields[4],
                   fields[5], fields[7], std::move(labels));
}

}  // namespace

bool VNGitLogParser::logLineFields(std::string_view line,
                                   std::string_view (&fields)[LogFieldCount]) {
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) {
        line.remove_suffix(1);
    }
    return splitLogFields(line, fields, LogFieldCount);
}

void VNGitLogParser::splitParents(std::string_view field, std::vector<std::string_view>& parents) {
    parents.clear();
    while (!field.empty()) {
        std::size_t blank = field.find(' ');
        if (blank != 0) {
            parents.push_back(field.substr(0, blank));
        }
        field.remove_prefix(blank == std::string_view::npos ? field.size() : blank + 1);
    }
}

std::optional<vn::Record> VNGitLogParser::parseLogLine(std::string_view line, LabelScan scan,
                                                       const vn::Record* aheadBehind) {
    return parseRow(line, scan, aheadBehind);
}

std::vector<vn::Record> VNGitLogParser::parseLog(std::string_view output, LabelScan scan,
                                                 const vn::Record* aheadBehind) {
    std::vector<vn::Record> rows;
    // Rows are about 200 bytes of output each; reserving avoids regrowing a long page.
    rows.reserve(std::min<std::size_t>(output.size() / 160 + 1, 1 << 20));
    std::size_t from = 0;
    while (from < output.size()) {
        std::size_t end = output.find('\n', from);
        std::string_view line = output.substr(
            from, end == std::string_view::npos ? std::string_view::npos : end - from);
        if (auto row = parseRow(line, scan, aheadBehind)) {
            rows.push_back(std::move(*row));
        }
        if (end == std::string_view::npos) {
            break;
        }
        from = end + 1;
    }
    return rows;
}

std::string VNGitLogParser::detailsFormatArgument() {
    std::string format = "--format=%H";
    // No "%s": the subject is read from the message, which comes last and may hold anything.
    for (std::string_view field :
         {"%h", "%P", "%at %aI", "%ct %cI", "%an <%ae>", "%cn <%ce>", "%d", "%B"}) {
        format.append("%x00").append(field);
    }
    return format;
}

std::optional<vn::Record> VNGitLogParser::parseDetails(std::string_view text, bool authorDate,
                                                       const vn::Record* aheadBehind) {
    std::string_view fields[9];
    std::size_t found = 0;
    for (; found < 8; ++found) {
        std::size_t at = text.find(LogFieldSeparator);
        if (at == std::string_view::npos) {
            return std::nullopt;
        }
        fields[found] = text.substr(0, at);
        text.remove_prefix(at + 1);
    }
    fields[8] = text;
    std::string hash(fields[0]);
    std::string_view message = fields[8];
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) {
        message.remove_suffix(1);
    }
    // The subject as git gives it: the first paragraph, its lines joined by blanks without
    // their trailing white space.
    std::string subject;
    for (std::string_view rest = message; !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            if (subject.empty()) {
                continue;
            }
            break;
        }
        if (!subject.empty()) {
            subject.push_back(' ');
        }
        subject.append(line);
    }
    auto labels = labelsFromDecoration(fields[7], hash, LabelScan::Full, aheadBehind);
    vn::Record details = makeRow(hash, fields[1], fields[2], dateField(fields[authorDate ? 3 : 4]),
                                 fields[6], fields[5], subject, labels);
    vn::Value::Array parents;
    for (std::string_view rest = fields[2]; !rest.empty();) {
        std::size_t blank = rest.find(' ');
        if (blank != 0) {
            parents.emplace_back(rest.substr(0, blank));
        }
        rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank + 1);
    }
    details.set("parents", std::move(parents));
    details.set("authordate", dateField(fields[3]));
    details.set("committerdate", dateField(fields[4]));
    details.set("message", message);
    return details;
}

vn::Record VNGitLogParser::parseFullMessages(std::string_view output) {
    vn::Record messages;
    vn::FieldReader entries(output);
    std::string_view entry;
    while (entries.next(entry)) {
        // Entries after the first start with the newline git ends each commit with.
        while (!entry.empty() && entry.front() == '\n') {
            entry.remove_prefix(1);
        }
        std::size_t at = entry.find(Sep);
        if (at == std::string_view::npos) {
            continue;
        }
        std::string_view message = entry.substr(at + Sep.size());
        while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) {
            message.remove_suffix(1);
        }
        messages.set(entry.substr(0, at), message);
    }
    return messages;
}

std::vector<vn::Record> VNGitLogParser::parseNameStatus(std::string_view output, bool* truncated,
                                                        std::size_t maxRecords) {
    std::vector<vn::Record> records;
    if (truncated) {
        *truncated = false;
    }
    // Fields are read one after the other, so nothing but the records grows with the listing.
    vn::FieldReader fields(output);
    std::string_view letters;
    while (fields.next(letters)) {
        // Outside -z mode a letter line would hold the path after a tab; -z keeps them apart.
        while (!letters.empty() && (letters.front() == '\n' || letters.front() == ' ')) {
            letters.remove_prefix(1);
        }
        if (letters.empty()) {
            continue;
        }
        if (records.size() >= maxRecords) {
            if (truncated) {
                *truncated = true;
            }
            break;
        }
        char letter = letters.front();
        bool twoPaths = letter == 'R' || letter == 'C';
        std::string_view first, second;
        if (!fields.next(first) || (twoPaths && !fields.next(second))) {
            break;  // cut short
        }
        uint64_t status;
        switch (letter) {
            case 'A':
            case 'C':
                status = VNFileStatusAdded;
                break;
            case 'M':
            case 'T':
                status = VNFileStatusModified;
                break;
            case 'D':
                status = VNFileStatusRemoved;
                break;
            case 'R':
                status = VNFileStatusRenamed;
                break;
            case 'U':
                status = VNFileStatusConflicted;
                break;
            default:
                status = VNFileStatusClean;
                break;
        }
        std::optional<std::string> previous;
        if (twoPaths) {
            previous = std::string(first);
        }
        std::string_view path = twoPaths ? second : first;
        records.push_back(
            VNGitStatusParser::statusRecord(path, status, status, VNFileStatusClean, previous));
    }
    return records;
}

std::vector<vn::Record> VNGitLogParser::parseBlamePorcelain(std::string_view output) {
    struct Commit {
        std::string user;
        std::string_view author;
        std::string_view mail;
        std::string_view time;
        std::string_view zone;
        vn::Value date;
    };
    // Keyed by the hash as it stands in the output, which outlives the parse.
    std::unordered_map<std::string_view, Commit> commits;
    struct Line {
        Commit* commit;
        std::string_view hash;
        int64_t number;
        std::string_view contents;
    };
    std::vector<Line> lines;
    std::string_view currentHash;
    int64_t currentLine = 0;
    Commit* current = nullptr;
    std::size_t from = 0;
    while (from < output.size()) {
        std::size_t end = output.find('\n', from);
        std::string_view line = output.substr(
            from, end == std::string_view::npos ? std::string_view::npos : end - from);
        from = end == std::string_view::npos ? output.size() : end + 1;
        if (!line.empty() && line.front() == '\t') {
            std::string_view contents = line.substr(1);
            if (!contents.empty() && contents.back() == '\r') {
                contents.remove_suffix(1);
            }
            if (current) {
                lines.push_back({current, currentHash, currentLine, contents});
            }
            continue;
        }
        std::size_t blank = line.find(' ');
        std::string_view word = line.substr(0, blank);
        std::string_view value =
            blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1);
        // A line header: the commit, its line in the original file, its line here, and for the
        // first line of a group the group's size. Hashes are 40 (SHA-1) or 64 (SHA-256) digits.
        if ((word.size() == 40 || word.size() == 64) &&
            word.find_first_not_of("0123456789abcdef") == std::string_view::npos) {
            currentHash = word;
            std::string_view rest = value;
            std::size_t second = rest.find(' ');
            std::string_view finalLine =
                second == std::string_view::npos ? std::string_view() : rest.substr(second + 1);
            finalLine = finalLine.substr(0, finalLine.find(' '));
            currentLine = 0;
            auto [end, error] =
                std::from_chars(finalLine.data(), finalLine.data() + finalLine.size(), currentLine);
            if (error != std::errc()) {
                currentLine = 0;
            }
            current = &commits[word];
            continue;
        }
        if (!current) {
            continue;
        }
        if (word == "author") {
            current->author = value;
        } else if (word == "author-mail") {
            current->mail = value;
        } else if (word == "author-time") {
            current->time = value;
        } else if (word == "author-tz") {
            current->zone = value;
        }
    }
    for (auto& [hash, commit] : commits) {
        commit.user = std::string(commit.author);
        if (!commit.mail.empty()) {
            commit.user.append(" ").append(commit.mail);
        }
        commit.date = commit.time.empty() ? vn::Value() : gitDate(commit.time, commit.zone);
    }
    // The shortest abbreviation, at least 7 characters, that tells this blame's commits apart.
    std::size_t width = 7;
    std::vector<std::string_view> hashes;
    hashes.reserve(commits.size());
    for (const auto& entry : commits) {
        hashes.push_back(entry.first);
    }
    std::sort(hashes.begin(), hashes.end());
    for (std::size_t i = 1; i < hashes.size(); ++i) {
        std::size_t common = 0;
        while (common < hashes[i].size() && common < hashes[i - 1].size() &&
               hashes[i][common] == hashes[i - 1][common]) {
            ++common;
        }
        width = std::max(width, common + 1);
    }
    std::vector<vn::Record> records;
    records.reserve(lines.size());
    for (const Line& line : lines) {
        records.push_back(vn::Record{
            {"line", line.number},
            {"rev", line.hash},
            {"changesetshort", line.hash.substr(0, width)},
            {"user", line.commit->user},
            {"date", line.commit->date},
            {"linecontents", line.contents},
        });
    }
    return records;
}
