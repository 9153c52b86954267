#include "hg/VNHgLogParser.h"

#include <cctype>
#include <chrono>

#include "base/Calendar.h"
#include "base/Format.h"
#include "base/Regex.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNLogLabel.h"
#include "platform/Log.h"

namespace {

constexpr std::string_view Sep = VNRepoHandlerMercurial::FieldSeparator;

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isHex(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

// Lines without their terminators; a last line without one counts, an empty tail does not.
template <typename Fn>
void forEachLine(std::string_view text, Fn&& fn) {
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        fn(line);
    }
}

int digitsValue(std::string_view text) {
    int value = 0;
    for (char c : text) {
        value = value * 10 + (c - '0');
    }
    return value;
}

// A revision label on its revision in the map, keeping the order in which they were found.
void addLabel(VNHgLogParser::LabelMap& labels, std::string name, int32_t type, std::string rev,
              std::string shortHash, bool current = false) {
    auto label = VNLogLabel::labelWithLabel(std::move(name), type, rev, std::move(shortHash));
    label->setCurrentMarker(current);
    labels[rev].push_back(std::move(label));
}

}  // namespace

std::string VNHgLogParser::logTemplate() {
    std::string t = "{rev}";
    for (std::string_view field : {"{node|short}", "{node}", "{parents}", "{date|isodatesec}",
                                   "{author}", "{branches}", "{desc|firstline}", "{tags}"}) {
        t.append(Sep).append(field);
    }
    return t + "\n";
}

std::string VNHgLogParser::revisionDetailsTemplate() {
    std::string t;
    for (std::string_view field : {"{node}", "{parents}", "{date|isodatesec}", "{branches}",
                                   "{author}", "{desc}", "{tags}", "{svnrev}", "{node|short}"}) {
        t.append(field).append(Sep);
    }
    return t;
}

std::string VNHgLogParser::parentDetailsTemplate() {
    std::string t;
    for (std::string_view field : {"{rev}", "{node}", "{parents}", "{date|isodatesec}",
                                   "{branches}", "{author}", "{desc|firstline}", "{tags}"}) {
        t.append(field).append(Sep);
    }
    return t + "\n";
}

vn::Value VNHgLogParser::isoDate(std::string_view text) {
    text = trimmed(text);
    // "YYYY-MM-DD HH:MM:SS +HHMM"
    if (text.size() != 25 || text[4] != '-' || text[7] != '-' || text[10] != ' ' ||
        text[13] != ':' || text[16] != ':' || text[19] != ' ' ||
        (text[20] != '+' && text[20] != '-')) {
        return {};
    }
    std::string_view parts[] = {text.substr(0, 4),  text.substr(5, 2),  text.substr(8, 2),
                                text.substr(11, 2), text.substr(14, 2), text.substr(17, 2),
                                text.substr(21, 2), text.substr(23, 2)};
    for (std::string_view part : parts) {
        if (!isDigits(part)) {
            return {};
        }
    }
    int month = digitsValue(parts[1]);
    int day = digitsValue(parts[2]);
    if (month < 1 || month > 12 || day < 1 || day > 31) {
        return {};
    }
    int64_t seconds =
        vn::calendar::daysFromCivil(digitsValue(parts[0]), static_cast<unsigned>(month),
                                    static_cast<unsigned>(day)) *
            86400 +
        digitsValue(parts[3]) * 3600 + digitsValue(parts[4]) * 60 + digitsValue(parts[5]);
    int32_t offset =
        (digitsValue(parts[6]) * 3600 + digitsValue(parts[7]) * 60) * (text[20] == '-' ? -1 : 1);
    vn::Value::Date date(std::chrono::duration_cast<vn::Value::Date::duration>(
        std::chrono::seconds(seconds - offset)));
    return vn::Value(date, offset);
}

std::vector<std::string_view> VNHgLogParser::splitFields(std::string_view line) {
    std::vector<std::string_view> fields;
    for (;;) {
        std::size_t at = line.find(Sep);
        if (at == std::string_view::npos) {
            fields.push_back(line);
            return fields;
        }
        fields.push_back(line.substr(0, at));
        line.remove_prefix(at + Sep.size());
    }
}

std::string VNHgLogParser::withoutLineSeparators(std::string_view text) {
    static constexpr std::string_view lineSeparator = "\xE2\x80\xA8";
    std::string out;
    out.reserve(text.size());
    for (;;) {
        std::size_t at = text.find(lineSeparator);
        out.append(text.substr(0, at));
        if (at == std::string_view::npos) {
            return out;
        }
        text.remove_prefix(at + lineSeparator.size());
    }
}

vn::Record VNHgLogParser::addLogEntry(std::string rev, std::string changeset,
                                      std::string changesetShort, std::string parent1,
                                      std::string parent2, vn::Value date, std::string user,
                                      std::string branch, std::string messageShort,
                                      LabelList labels) {
    static const vn::Value noOtherParents = vn::Value::Array{};
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
    row.set("rev", std::move(rev));
    row.set("changeset", std::move(changeset));
    row.set("changesetshort", std::move(changesetShort));
    row.set("parentid1", std::move(parent1));
    row.set("parentid2", std::move(parent2));
    row.set("otherparentids", noOtherParents);
    row.set("date", std::move(date));
    row.set("committer", user);
    row.set("user", std::move(user));
    row.set("branch", std::move(branch));
    row.set("descriptionentry", std::make_shared<const VNLogDescriptionEntry>(
                                    std::move(messageShort), std::move(labels)));
    return row;
}

void VNHgLogParser::parentsFromField(std::string_view field, std::string_view rev,
                                     std::string& parent1, std::string& parent2) {
    parent1.clear();
    parent2.clear();
    std::vector<std::string_view> parents;
    for (std::string_view rest = trimmed(field); !rest.empty();) {
        std::size_t blank = rest.find(' ');
        std::string_view word = rest.substr(0, blank);
        rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank + 1);
        if (!word.empty()) {
            parents.push_back(word.substr(0, word.find(':')));
        }
    }
    if (parents.empty()) {
        if (isDigits(rev) && rev != "0" && rev.size() < 19) {
            parent1 = std::to_string(std::stoll(std::string(rev)) - 1);
        }
        return;
    }
    // "-1" is no changeset: the null parent of a root.
    if (parents[0] != "-1") {
        parent1 = parents[0];
    }
    if (parents.size() > 1 && parents[1] != "-1") {
        parent2 = parents[1];
    }
}

vn::Record VNHgLogParser::parseLogLine(std::string_view line, const LabelMap& labels, bool* ok) {
    std::vector<std::string_view> fields = splitFields(line);
    if (fields.size() != 9) {
        if (ok) {
            *ok = false;
        }
        return addLogEntry("", "", "", "", "", isoDate("2000-01-01 00:00:00 +0000"), "", "",
                           "Error, see log", {});
    }
    if (ok) {
        *ok = true;
    }
    std::string parent1, parent2;
    parentsFromField(fields[3], fields[0], parent1, parent2);
    LabelList rowLabels;
    if (auto it = labels.find(fields[0]); it != labels.end()) {
        rowLabels = it->second;
    }
    return addLogEntry(std::string(fields[0]), std::string(fields[2]), std::string(fields[1]),
                       std::move(parent1), std::move(parent2), isoDate(fields[4]),
                       std::string(fields[5]), std::string(fields[6]), std::string(fields[7]),
                       std::move(rowLabels));
}

std::vector<vn::Record> VNHgLogParser::processLogResults(std::string_view output,
                                                         const LabelMap& labels) {
    std::string text = withoutLineSeparators(output);
    std::vector<vn::Record> rows;
    forEachLine(text, [&](std::string_view line) {
        if (line.empty()) {
            return;
        }
        bool ok = true;
        rows.push_back(parseLogLine(line, labels, &ok));
        if (!ok) {
            std::vector<std::string_view> fields = splitFields(line);
            std::string list;
            for (std::string_view field : fields) {
                list.append(field).append("\n");
            }
            vn::Log::error(vn::format("A problem occurred in hg parseLogLine: number of fields "
                                      "%lu, line was '%@', fields are: \n%@",
                                      static_cast<unsigned long>(fields.size()), line, list),
                           vn::Log::Mercurial);
        }
    });
    return rows;
}

void VNHgLogParser::addTagsBranchesOutput(std::string_view output, int32_t type, LabelMap& labels) {
    static const vn::Regex pattern("(.+?)\\s+(\\d+):([a-z0-9]+).*");
    forEachLine(output, [&](std::string_view line) {
        if (auto m = pattern.match(line)) {
            addLabel(labels, m->str(1), type, m->str(2), m->str(3));
        }
    });
}

void VNHgLogParser::addBookmarksOutput(std::string_view output, LabelMap& labels) {
    static const vn::Regex pattern(" ([ \\*]) (.+?)\\s+(\\d+):([a-z0-9]+).*");
    forEachLine(output, [&](std::string_view line) {
        if (auto m = pattern.match(line)) {
            addLabel(labels, m->str(2), BookmarkLabel, m->str(3), m->str(4), m->group(1) == "*");
        }
    });
}

std::vector<std::string> VNHgLogParser::bookmarkNames(std::string_view output,
                                                      std::string* active) {
    std::vector<std::string> names;
    static const vn::Regex pattern(" ([ \\*]) (.+?)\\s+(\\d+):([a-z0-9]+).*");
    forEachLine(output, [&](std::string_view line) {
        if (auto m = pattern.match(line)) {
            names.push_back(m->str(2));
            if (active && m->group(1) == "*") {
                *active = m->str(2);
            }
        }
    });
    return names;
}

std::map<std::string, std::string> VNHgLogParser::headsByRevision(std::string_view output) {
    std::map<std::string, std::string> heads;
    forEachLine(output, [&](std::string_view line) {
        std::vector<std::string_view> fields = splitFields(line);
        if (fields.size() == 2 && isDigits(fields[0])) {
            heads[std::string(fields[0])] = std::string(fields[1]);
        }
    });
    return heads;
}

std::vector<vn::Record> VNHgLogParser::parseBlame(std::string_view output) {
    std::vector<vn::Record> lines;
    int64_t number = 0;
    forEachLine(output, [&](std::string_view line) {
        // "USER REV HASH: TEXT": the first ": " after a revision number and a changeset hash ends
        // the annotation, so that a colon in a user name does not cut it short.
        std::size_t colon = std::string_view::npos;
        std::vector<std::string_view> words;
        for (std::size_t at = line.find(':'); at != std::string_view::npos;
             at = line.find(':', at + 1)) {
            std::vector<std::string_view> candidate;
            for (std::string_view rest = line.substr(0, at); !rest.empty();) {
                std::size_t blank = rest.find_first_of(" \t");
                std::string_view word = rest.substr(0, blank);
                rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank + 1);
                if (!word.empty()) {
                    candidate.push_back(word);
                }
            }
            if (candidate.size() >= 2 && isDigits(candidate[candidate.size() - 2]) &&
                isHex(candidate.back())) {
                colon = at;
                words = std::move(candidate);
                break;
            }
        }
        if (colon == std::string_view::npos) {
            return;
        }
        std::string user;
        for (std::size_t i = 0; i + 2 < words.size(); ++i) {
            if (!user.empty()) {
                user.push_back(' ');
            }
            user.append(words[i]);
        }
        std::string_view text = line.substr(colon + 1);
        // One blank follows the colon; the rest of the line is the file's own text.
        if (!text.empty() && text.front() == ' ') {
            text.remove_prefix(1);
        }
        lines.push_back(vn::Record{
            {"line", ++number},
            {"rev", words[words.size() - 2]},
            {"changesetshort", words.back()},
            {"user", std::move(user)},
            {"linecontents", text},
        });
    });
    return lines;
}

vn::Record VNHgLogParser::parseRevisionDetails(std::string_view output) {
    std::vector<std::string_view> fields = splitFields(output);
    // Nine fields, each followed by the separator: ten pieces, the last empty.
    if (fields.size() != 10 || fields[0].empty()) {
        return {};
    }
    std::string_view message = fields[5];
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) {
        message.remove_suffix(1);
    }
    std::string_view firstLine = message.substr(0, message.find('\n'));
    vn::Value::Array parents;
    std::string parent1, parent2;
    for (std::string_view rest = trimmed(fields[1]); !rest.empty();) {
        std::size_t blank = rest.find(' ');
        if (blank != 0) {
            parents.emplace_back(rest.substr(0, blank));
        }
        rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank + 1);
    }
    LabelList labels;
    vn::Record details =
        addLogEntry("", std::string(fields[0]), std::string(fields[8]), "", "", isoDate(fields[2]),
                    std::string(fields[4]), std::string(fields[3]), std::string(firstLine), {});
    details.set("parents", std::move(parents));
    details.set("authordate", details["date"]);
    details.set("committerdate", details["date"]);
    details.set("message", message);
    details.set("messagefirstline", firstLine);
    details.set("label", trimmed(fields[6]));
    details.set("svnrev", fields[7]);
    return details;
}

std::vector<vn::Record> VNHgLogParser::parseParentDetails(std::string_view output) {
    std::vector<vn::Record> parents;
    forEachLine(output, [&](std::string_view line) {
        std::vector<std::string_view> fields = splitFields(line);
        if (fields.size() != 9 || !isDigits(fields[0])) {
            return;
        }
        std::string parent1, parent2;
        parentsFromField(fields[2], fields[0], parent1, parent2);
        parents.push_back(vn::Record{
            {"rev", fields[0]},
            {"changeset", fields[1]},
            {"parentid1", parent1},
            {"parentid2", parent2},
            {"date", isoDate(fields[3])},
            {"branch", fields[4]},
            {"user", fields[5]},
            {"messagefirstline", fields[6]},
            {"label", fields[7]},
        });
    });
    return parents;
}
