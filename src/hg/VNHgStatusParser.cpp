#include "hg/VNHgStatusParser.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

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

template <typename Fn>
void forEachLine(std::string_view text, Fn&& fn) {
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        fn(line);
    }
}

// Whether a folder of the path is one of the folders hg makes for a moment to probe what the
// file system can do.
bool isInProbeFolder(std::string_view path) {
    std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return false;
    }
    for (std::string_view folders = path.substr(0, slash); !folders.empty();) {
        std::size_t next = folders.find('/');
        std::string_view name = folders.substr(0, next);
        if (name.starts_with(".hgcheck") || name.starts_with("hg-checklink-")) {
            return true;
        }
        folders.remove_prefix(next == std::string_view::npos ? folders.size() : next + 1);
    }
    return false;
}

std::string joined(const vn::Record& record) {
    std::string folder = record.string(VNFileStatusKeyPath);
    std::string name = record.string(VNFileStatusKeyFilename);
    return folder.empty() ? name : folder + "/" + name;
}

}  // namespace

vn::Record VNHgStatusParser::fileStatusEntry(std::string_view path, uint64_t status) {
    std::size_t slash = path.rfind('/');
    std::string_view filename = slash == std::string_view::npos ? path : path.substr(slash + 1);
    std::string_view folder =
        slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
    return vn::Record{{VNFileStatusKeyStatus, status},
                      {VNFileStatusKeyFilename, filename},
                      {VNFileStatusKeyPath, folder}};
}

uint64_t VNHgStatusParser::statusForLetter(char letter) {
    switch (letter) {
        case 'M':
            return VNFileStatusModified;
        case 'A':
            return VNFileStatusAdded;
        case 'R':
            return VNFileStatusRemoved;
        case '!':
            return VNFileStatusMissing;
        case '?':
            return VNFileStatusUnknown;
        case 'I':
            return VNFileStatusIgnored;
        default:
            return VNFileStatusClean;
    }
}

std::vector<vn::Record> VNHgStatusParser::parseFileStatus(std::string_view output) {
    std::vector<vn::Record> entries;
    // Added paths by their copy source, and the removed paths by their entry.
    std::vector<std::pair<std::size_t, std::string>> copies;
    std::map<std::string, std::size_t, std::less<>> removed;
    std::size_t lastAdded = std::string_view::npos;
    forEachLine(output, [&](std::string_view line) {
        if (line.size() < 3) {
            return;
        }
        std::string_view path = line.substr(2);
        if (line[0] == ' ') {
            // The copy source of the added file above.
            if (lastAdded != std::string_view::npos) {
                copies.emplace_back(lastAdded, std::string(path));
            }
            lastAdded = std::string_view::npos;
            return;
        }
        uint64_t status = statusForLetter(line[0]);
        lastAdded = std::string_view::npos;
        if (status == VNFileStatusUnknown && isInProbeFolder(path)) {
            return;
        }
        if (status == VNFileStatusAdded) {
            lastAdded = entries.size();
        } else if (status == VNFileStatusRemoved) {
            removed.emplace(std::string(path), entries.size());
        }
        entries.push_back(fileStatusEntry(path, status));
    });
    std::set<std::size_t> gone;
    for (const auto& [added, source] : copies) {
        auto it = removed.find(source);
        if (it == removed.end()) {
            continue;
        }
        entries[added].set(VNFileStatusKeyStatus, VNFileStatusRenamed);
        entries[added].set(VNFileStatusKeyPreviousName, source);
        gone.insert(it->second);
    }
    if (gone.empty()) {
        return entries;
    }
    std::vector<vn::Record> kept;
    kept.reserve(entries.size() - gone.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (!gone.contains(i)) {
            kept.push_back(std::move(entries[i]));
        }
    }
    return kept;
}

std::vector<vn::Record> VNHgStatusParser::parseFileResolveStatus(std::string_view output) {
    std::vector<vn::Record> entries;
    forEachLine(output, [&](std::string_view line) {
        if (line.size() < 3 || line[1] != ' ') {
            return;
        }
        if (line[0] == 'U') {
            entries.push_back(fileStatusEntry(line.substr(2), VNFileStatusConflicted));
        } else if (line[0] == 'R') {
            entries.push_back(fileStatusEntry(line.substr(2), VNFileStatusConflicted << 1));
        }
    });
    return entries;
}

void VNHgStatusParser::mergeResolveEntries(std::vector<vn::Record>& status,
                                           const std::vector<vn::Record>& resolved) {
    std::map<std::string, std::size_t> byPath;
    for (std::size_t i = 0; i < status.size(); ++i) {
        byPath.emplace(joined(status[i]), i);
    }
    for (const vn::Record& entry : resolved) {
        auto it = byPath.find(joined(entry));
        if (it != byPath.end()) {
            status[it->second].set(VNFileStatusKeyStatus, entry[VNFileStatusKeyStatus]);
        } else {
            status.push_back(entry);
        }
    }
}

vn::Record VNHgStatusParser::parseSummary(std::string_view output) {
    vn::Record summary{
        {"isclean", false},        {"ismerge", false},      {"isnewbranch", false},
        {"numfilesadded", 0},      {"numfilesmodified", 0}, {"numfilesremoved", 0},
        {"numfilesunresolved", 0}, {"numfilesunknown", 0},  {"numfilesmissing", 0},
        {"parent1", ""},           {"parent2", ""},         {"branch", ""},
    };
    int parents = 0;
    uint64_t added = 0, modified = 0, removed = 0, unresolved = 0, unknown = 0, missing = 0;
    forEachLine(output, [&](std::string_view line) {
        // Indented lines continue the entry above (a parent's message), whatever they hold.
        if (line.empty() || std::isspace(static_cast<unsigned char>(line.front()))) {
            return;
        }
        std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            return;
        }
        std::string_view label = trimmed(line.substr(0, colon));
        std::string_view value = trimmed(line.substr(colon + 1));
        if (label == "parent") {
            std::string_view id = value.substr(0, value.find(' '));
            std::string_view rev = id.substr(0, id.find(':'));
            summary.set(parents++ == 0 ? "parent1" : "parent2", rev);
        } else if (label == "branch") {
            summary.set("branch", value);
        } else if (label == "commit") {
            summary.set("isclean", value.find("(clean)") != std::string_view::npos);
            summary.set("isnewbranch", value.find("(new branch") != std::string_view::npos);
            summary.set("ismerge", value.find("(merge)") != std::string_view::npos);
            std::string_view counts = value.substr(0, value.find('('));
            while (!counts.empty()) {
                std::size_t comma = counts.find(", ");
                std::string_view entry = trimmed(counts.substr(0, comma));
                counts.remove_prefix(comma == std::string_view::npos ? counts.size() : comma + 2);
                std::size_t blank = entry.find(' ');
                if (blank == std::string_view::npos) {
                    continue;
                }
                std::string_view number = entry.substr(0, blank);
                std::string_view word = trimmed(entry.substr(blank + 1));
                if (number.empty() ||
                    number.find_first_not_of("0123456789") != std::string_view::npos ||
                    number.size() > 18) {
                    continue;
                }
                uint64_t n = std::stoull(std::string(number));
                if (word == "added" || word == "copied") {
                    added += n;
                } else if (word == "modified" || word == "renamed") {
                    modified += n;
                } else if (word == "removed") {
                    removed += n;
                } else if (word == "unresolved") {
                    unresolved += n;
                } else if (word == "unknown") {
                    unknown += n;
                } else if (word == "deleted") {
                    missing += n;
                }
            }
        }
    });
    summary.set("numfilesadded", added);
    summary.set("numfilesmodified", modified);
    summary.set("numfilesremoved", removed);
    summary.set("numfilesunresolved", unresolved);
    summary.set("numfilesunknown", unknown);
    summary.set("numfilesmissing", missing);
    return summary;
}
