#include "git/VNGitRefsParser.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <set>

#include "base/FieldReader.h"
#include "git/VNGitLogParser.h"
#include "git/VNGitRemoteInfo.h"
#include "model/VNLogLabel.h"

namespace {

constexpr std::string_view HeadsPrefix = "refs/heads/";

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// The text up to the next blank, taken off the front of `text` (leading blanks skipped).
std::string_view takeWord(std::string_view& text) {
    std::size_t start = 0;
    while (start < text.size() && isBlank(text[start])) {
        ++start;
    }
    std::size_t end = start;
    while (end < text.size() && !isBlank(text[end])) {
        ++end;
    }
    std::string_view word = text.substr(start, end - start);
    text.remove_prefix(end);
    return word;
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> result;
    for (std::string_view word = takeWord(text); !word.empty(); word = takeWord(text)) {
        result.push_back(word);
    }
    return result;
}

std::optional<int64_t> integer(std::string_view text) {
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::string_view withoutPrefix(std::string_view text, std::string_view prefix) {
    if (!prefix.empty() && text.starts_with(prefix)) {
        text.remove_prefix(prefix.size());
    }
    return text;
}

// The inside of an upstream bracket: "origin/main", "origin/main: ahead 1, behind 2",
// "origin/main: gone". Reads the counts into the line.
void readUpstreamBracket(std::string_view inside, VNGitRefsParser::BranchLine& line) {
    std::size_t colon = inside.find(": ");
    line.upstream = std::string(inside.substr(0, colon));
    if (colon == std::string_view::npos) {
        return;
    }
    std::string_view details = inside.substr(colon + 2);
    // "ahead 1, behind 2": words separated by blanks and commas.
    std::vector<std::string_view> tokens;
    std::size_t i = 0;
    while (i < details.size()) {
        while (i < details.size() && (isBlank(details[i]) || details[i] == ',')) {
            ++i;
        }
        std::size_t start = i;
        while (i < details.size() && !isBlank(details[i]) && details[i] != ',') {
            ++i;
        }
        if (i > start) {
            tokens.push_back(details.substr(start, i - start));
        }
    }
    for (std::size_t t = 0; t + 1 < tokens.size(); ++t) {
        if (tokens[t] == "ahead") {
            line.ahead = integer(tokens[t + 1]).value_or(0);
        } else if (tokens[t] == "behind") {
            line.behind = integer(tokens[t + 1]).value_or(0);
        }
    }
}

// Whether `name` matches a push pattern with one "*" ("*", "feature/*"); `matched` is the part
// the star stands for.
bool matchPattern(std::string_view pattern, std::string_view name, std::string_view& matched) {
    std::size_t star = pattern.find('*');
    if (star == std::string_view::npos) {
        return false;
    }
    std::string_view prefix = pattern.substr(0, star);
    std::string_view suffix = pattern.substr(star + 1);
    if (name.size() < prefix.size() + suffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(suffix)) {
        return false;
    }
    matched = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    return !matched.empty();
}

std::string replaceStar(std::string_view pattern, std::string_view with) {
    std::size_t star = pattern.find('*');
    if (star == std::string_view::npos) {
        return std::string(pattern);
    }
    std::string result(pattern.substr(0, star));
    result.append(with).append(pattern.substr(star + 1));
    return result;
}

bool configBool(std::string_view value, bool present) {
    if (!present) {
        return false;
    }
    std::string lower;
    for (char c : trimmed(value)) {
        lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    }
    if (lower.empty() || lower == "true" || lower == "yes" || lower == "on") {
        return true;
    }
    if (auto number = integer(lower)) {
        return *number != 0;
    }
    return false;
}

}  // namespace

std::vector<std::string_view> VNGitRefsParser::lines(std::string_view text) {
    std::vector<std::string_view> result;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        std::string_view line =
            text.substr(from, end == std::string_view::npos ? std::string_view::npos : end - from);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!line.empty()) {
            result.push_back(line);
        }
        if (end == std::string_view::npos) {
            break;
        }
        from = end + 1;
    }
    return result;
}

// ---- branch -vv --------------------------------------------------------------------------------

std::vector<VNGitRefsParser::BranchLine> VNGitRefsParser::parseBranchVerbose(
    std::string_view output) {
    std::vector<BranchLine> result;
    for (std::string_view text : lines(output)) {
        // Two columns of markers: "*" the checked-out branch, "+" one checked out in another
        // worktree.
        if (text.size() < 3) {
            continue;
        }
        BranchLine line;
        line.current = text[0] == '*';
        std::string_view rest = text.substr(2);
        if (rest.starts_with("(")) {
            continue;  // the detached HEAD
        }
        line.name = std::string(takeWord(rest));
        line.hash = std::string(takeWord(rest));
        if (line.name.empty() || line.hash.empty()) {
            continue;
        }
        while (!rest.empty() && isBlank(rest.front())) {
            rest.remove_prefix(1);
        }
        // A branch checked out in another worktree names that worktree's folder first.
        if (text[0] == '+' && rest.starts_with("(")) {
            std::size_t close = rest.find(") ");
            rest = close == std::string_view::npos ? std::string_view() : rest.substr(close + 2);
        }
        if (rest.starts_with("[")) {
            std::size_t close = rest.find(']');
            if (close != std::string_view::npos) {
                readUpstreamBracket(rest.substr(1, close - 1), line);
            }
        }
        result.push_back(std::move(line));
    }
    return result;
}

vn::Record VNGitRefsParser::aheadBehindFromBranchVerbose(std::string_view output) {
    vn::Record result;
    for (const BranchLine& line : parseBranchVerbose(output)) {
        if (line.ahead > 0 || line.behind > 0) {
            result.set(line.name, vn::Value::Array{line.ahead, line.behind});
        }
    }
    return result;
}

vn::Record VNGitRefsParser::trackingBranchesFromBranchVerbose(std::string_view output) {
    vn::Record result;
    for (const BranchLine& line : parseBranchVerbose(output)) {
        // An upstream without "/" is a local branch, which is not pulled from a remote.
        if (line.upstream.find('/') != std::string::npos) {
            result.set(line.name, line.upstream);
        }
    }
    return result;
}

std::string VNGitRefsParser::branchRefsFormatArgument() {
    return "--format=%(HEAD)%00%(refname)%00%(upstream)%00%(upstream:track,nobracket)";
}

std::vector<VNGitRefsParser::BranchLine> VNGitRefsParser::parseBranchRefs(std::string_view output) {
    std::vector<BranchLine> result;
    for (std::string_view text : lines(output)) {
        std::string_view fields[4];
        std::size_t count = 0;
        for (; count < 4; ++count) {
            std::size_t at = text.find('\0');
            fields[count] = text.substr(0, at);
            if (at == std::string_view::npos) {
                ++count;
                break;
            }
            text.remove_prefix(at + 1);
        }
        if (count != 4 || !fields[1].starts_with(HeadsPrefix)) {
            continue;
        }
        BranchLine line;
        line.current = fields[0] == "*";
        line.name = std::string(fields[1].substr(HeadsPrefix.size()));
        std::string_view upstream = fields[2];
        if (upstream.starts_with("refs/remotes/")) {
            line.upstream = std::string(upstream.substr(13));
            line.upstreamIsRemote = true;
        } else {
            line.upstream = std::string(withoutPrefix(upstream, HeadsPrefix));
        }
        // "ahead 1, behind 2", "ahead 1", "behind 2", "gone" or nothing.
        std::string_view track = fields[3];
        while (!track.empty()) {
            std::size_t comma = track.find(", ");
            std::string_view part = track.substr(0, comma);
            track.remove_prefix(comma == std::string_view::npos ? track.size() : comma + 2);
            std::string_view rest = part;
            std::string_view word = takeWord(rest);
            std::optional<int64_t> number = integer(trimmed(rest));
            if (word == "ahead" && number && *number >= 0) {
                line.ahead = *number;
            } else if (word == "behind" && number && *number >= 0) {
                line.behind = *number;
            }
        }
        result.push_back(std::move(line));
    }
    return result;
}

vn::Record VNGitRefsParser::aheadBehindFromBranchRefs(std::string_view output) {
    vn::Record result;
    for (const BranchLine& line : parseBranchRefs(output)) {
        if (line.ahead > 0 || line.behind > 0) {
            result.set(line.name, vn::Value::Array{line.ahead, line.behind});
        }
    }
    return result;
}

vn::Record VNGitRefsParser::trackingBranchesFromBranchRefs(std::string_view output) {
    vn::Record result;
    for (const BranchLine& line : parseBranchRefs(output)) {
        if (line.upstreamIsRemote && !line.upstream.empty()) {
            result.set(line.name, line.upstream);
        }
    }
    return result;
}

// ---- Plain listings ----------------------------------------------------------------------------

std::vector<std::string> VNGitRefsParser::parseBranchList(std::string_view output) {
    std::vector<std::string> result;
    for (std::string_view line : lines(output)) {
        if (line.size() < 3) {
            continue;
        }
        std::string_view name = line.substr(2);
        bool detached = name == "HEAD" || name == "(no branch)" ||
                        name.starts_with("(HEAD detached") || name.starts_with("(detached from");
        result.emplace_back(detached ? std::string_view("HEAD") : name);
    }
    return result;
}

std::vector<std::string> VNGitRefsParser::parseNameList(std::string_view output,
                                                        std::string_view stripPrefix) {
    std::vector<std::string> result;
    for (std::string_view line : lines(output)) {
        result.emplace_back(withoutPrefix(line, stripPrefix));
    }
    return result;
}

std::vector<VNGitRefsParser::RemoteUrls> VNGitRefsParser::parseRemoteUrls(std::string_view output) {
    std::vector<RemoteUrls> result;
    for (std::string_view line : lines(output)) {
        // "name<TAB>url (fetch)": a remote name holds no tab, and the marker ends the line.
        std::size_t tab = line.find('\t');
        if (tab == std::string_view::npos || tab == 0) {
            continue;
        }
        std::string_view name = line.substr(0, tab);
        std::string_view rest = line.substr(tab + 1);
        bool fetch = rest.ends_with(" (fetch)");
        if (!fetch && !rest.ends_with(" (push)")) {
            continue;
        }
        std::string_view url = rest.substr(0, rest.size() - (fetch ? 8 : 7));
        auto remote = std::find_if(result.begin(), result.end(),
                                   [&](const RemoteUrls& known) { return known.name == name; });
        if (remote == result.end()) {
            result.push_back({std::string(name), {}, {}});
            remote = result.end() - 1;
        }
        if (fetch) {
            if (remote->fetchUrl.empty()) {
                remote->fetchUrl = std::string(url);
            }
        } else {
            remote->pushUrls.emplace_back(url);
        }
    }
    return result;
}

vn::Record VNGitRefsParser::parseRemoteVerbose(std::string_view output) {
    vn::Record result;
    for (const RemoteUrls& remote : parseRemoteUrls(output)) {
        result.set(remote.name, remote.fetchUrl.empty() && !remote.pushUrls.empty()
                                    ? remote.pushUrls.front()
                                    : remote.fetchUrl);
    }
    return result;
}

std::vector<vn::Record> VNGitRefsParser::parseRemotePaths(std::string_view output) {
    std::vector<vn::Record> result;
    for (std::string_view line : lines(output)) {
        std::size_t tab = line.find('\t');
        if (tab == std::string_view::npos || !line.ends_with(" (fetch)")) {
            continue;
        }
        std::string_view name = line.substr(0, tab);
        std::string_view url = line.substr(tab + 1, line.size() - tab - 1 - 8);
        result.push_back(vn::Record{{"name", name}, {"path", url}});
    }
    return result;
}

std::vector<std::string> VNGitRefsParser::parseLsRemoteHeads(std::string_view output) {
    std::vector<std::string> result;
    std::set<std::string, std::less<>> seen;
    for (std::string_view line : lines(output)) {
        std::vector<std::string_view> parts = words(line);
        if (parts.size() != 2 || !parts[1].starts_with(HeadsPrefix)) {
            continue;
        }
        std::string_view name = parts[1].substr(HeadsPrefix.size());
        if (seen.insert(std::string(name)).second) {
            result.emplace_back(name);
        }
    }
    return result;
}

std::vector<vn::Record> VNGitRefsParser::parseStashList(std::string_view output) {
    std::vector<vn::Record> result;
    for (std::string_view line : lines(output)) {
        std::size_t separator = line.find(VNGitLogParser::FieldSeparator);
        if (separator == std::string_view::npos) {
            continue;
        }
        result.push_back(vn::Record{
            {"name", line.substr(0, separator)},
            {"msg", line.substr(separator + VNGitLogParser::FieldSeparator.size())},
        });
    }
    return result;
}

// ---- Labels ------------------------------------------------------------------------------------

std::string VNGitRefsParser::refLabelsFormatArgument() {
    return "--format=%(HEAD)%00%(refname)%00%(objectname)%00%(*objectname)%00%(symref)";
}

std::vector<std::shared_ptr<VNLogLabel>> VNGitRefsParser::parseRefLabels(std::string_view output,
                                                                         bool includeRemotes) {
    std::vector<std::shared_ptr<VNLogLabel>> result;
    for (std::string_view line : lines(output)) {
        std::string_view fields[5];
        std::size_t count = 0;
        std::string_view rest = line;
        while (count < 4) {
            std::size_t separator = rest.find('\0');
            if (separator == std::string_view::npos) {
                break;
            }
            fields[count++] = rest.substr(0, separator);
            rest.remove_prefix(separator + 1);
        }
        if (count != 4) {
            continue;
        }
        fields[4] = rest;
        const std::string_view ref = fields[1];
        if (!fields[4].empty()) {
            continue;  // a symbolic reference
        }
        // An annotated tag points at the tag object; the label belongs to its commit.
        std::string_view commit = fields[3].empty() ? fields[2] : fields[3];
        std::string_view name;
        int32_t type;
        if (ref.starts_with(HeadsPrefix)) {
            name = ref.substr(HeadsPrefix.size());
            type = VNLogLabel::LocalBranch;
        } else if (ref.starts_with("refs/tags/")) {
            name = ref.substr(10);
            type = VNLogLabel::Tag;
        } else if (includeRemotes && ref.starts_with("refs/remotes/")) {
            name = ref.substr(13);
            type = VNLogLabel::RemoteBranch;
        } else {
            continue;
        }
        auto label = VNLogLabel::labelWithLabel(std::string(name), type, std::string(commit),
                                                std::string(commit), std::string(ref));
        label->setCurrentMarker(fields[0] == "*");
        result.push_back(std::move(label));
    }
    return result;
}

// ---- remote show -------------------------------------------------------------------------------

VNGitRefsParser::RemoteShow VNGitRefsParser::parseRemoteShow(std::string_view output) {
    enum class List { None, RemoteBranches, Pull, Push };
    RemoteShow show;
    List open = List::None;
    for (std::string_view raw : lines(output)) {
        std::string_view line = trimmed(raw);
        if (line.empty() || line.starts_with("* remote")) {
            continue;
        }
        if (line.starts_with("Fetch URL: ")) {
            show.fetchUrl = std::string(line.substr(11));
            continue;
        }
        if (line.starts_with("Push  URL: ")) {
            show.pushUrl = std::string(line.substr(11));
            continue;
        }
        if (line.starts_with("HEAD branch: ")) {
            std::string_view head = trimmed(line.substr(13));
            // Without asking the remote git says "(not queried)"; an empty head says "(unknown)".
            if (!head.starts_with("(")) {
                show.headBranch = std::string(head);
            }
            open = List::None;
            continue;
        }
        if (line.starts_with("HEAD branch")) {
            open = List::None;  // an ambiguous remote HEAD lists its candidates next
            continue;
        }
        if (line.starts_with("Remote branch")) {
            open = List::RemoteBranches;
            continue;
        }
        if (line.starts_with("Local branch")) {
            open = List::Pull;
            continue;
        }
        if (line.starts_with("Local ref")) {
            open = List::Push;
            continue;
        }
        switch (open) {
            case List::None:
                break;
            case List::RemoteBranches: {
                std::string_view rest = line;
                std::string_view name = takeWord(rest);
                // A stale branch is gone from the remote; only its tracking copy is left.
                if (!name.empty() && trimmed(rest).find("stale") != 0) {
                    show.remoteBranches.emplace_back(name);
                }
                break;
            }
            case List::Pull: {
                std::vector<std::string_view> parts = words(line);
                // "main merges with remote main", "main rebases onto remote main"; a branch
                // merging several goes on with "and with remote other".
                bool merges = line.find(" with remote ") != std::string_view::npos ||
                              line.find(" onto remote ") != std::string_view::npos;
                if (parts.size() >= 4 && merges && !line.starts_with("and with remote ")) {
                    show.pull.emplace_back(std::string(parts.front()), std::string(parts.back()));
                }
                break;
            }
            case List::Push: {
                std::vector<std::string_view> parts = words(line);
                if (parts.size() < 4 || (parts[1] != "pushes" && parts[1] != "forces") ||
                    parts[2] != "to") {
                    break;
                }
                std::string_view local = parts[0];
                std::string_view remote = parts[3];
                if (local == "(delete)") {
                    break;
                }
                if (local == "(matching)") {
                    show.pushMatching = true;
                    show.push.emplace_back("*", "*");
                    break;
                }
                show.push.emplace_back(std::string(withoutPrefix(local, HeadsPrefix)),
                                       std::string(withoutPrefix(remote, HeadsPrefix)));
                break;
            }
        }
    }
    return show;
}

VNGitRefsParser::PushSettings VNGitRefsParser::pushSettingsFromConfig(
    std::string_view configList, const std::string& remote, const std::string& currentBranch) {
    PushSettings settings;
    settings.remote = remote;
    settings.currentBranch = currentBranch;
    std::set<std::string> remotes;
    int mergeCount = 0;
    vn::FieldReader entries(configList);
    std::string_view entry;
    while (entries.next(entry)) {
        std::size_t newline = entry.find('\n');
        bool hasValue = newline != std::string_view::npos;
        std::string_view key = entry.substr(0, newline);
        std::string_view value = hasValue ? entry.substr(newline + 1) : std::string_view();
        // Sections and variable names come lower-cased; the subsection between the first and
        // the last dot keeps its case and may hold dots itself.
        std::size_t firstDot = key.find('.');
        std::size_t lastDot = key.rfind('.');
        if (firstDot == std::string_view::npos) {
            continue;
        }
        std::string_view section = key.substr(0, firstDot);
        std::string_view variable = key.substr(lastDot + 1);
        std::string_view subsection =
            lastDot > firstDot ? key.substr(firstDot + 1, lastDot - firstDot - 1) : "";
        if (section == "push" && subsection.empty()) {
            if (variable == "default") {
                settings.pushDefault = std::string(trimmed(value));
            } else if (variable == "autosetupremote") {
                settings.autoSetupRemote = configBool(value, true);
            }
        } else if (section == "remote" && !subsection.empty()) {
            if (variable == "url") {
                remotes.insert(std::string(subsection));
            }
            if (subsection == remote) {
                if (variable == "push") {
                    settings.hasPushRefspecs = true;
                } else if (variable == "mirror") {
                    settings.mirror = configBool(value, true);
                }
            }
        } else if (section == "branch" && !currentBranch.empty() && subsection == currentBranch) {
            if (variable == "remote") {
                settings.currentBranchRemote = std::string(value);
            } else if (variable == "merge") {
                ++mergeCount;
                settings.currentBranchMerge = std::string(value);
            }
        }
    }
    settings.severalMerges = mergeCount > 1;
    settings.remotes.assign(remotes.begin(), remotes.end());
    return settings;
}

void VNGitRefsParser::completePushMapping(VNGitRemoteInfo& info, const RemoteShow& show,
                                          const PushSettings& settings) {
    auto& push = info.localToRemoteBranchPush();
    push.clear();
    const std::vector<std::string>& remoteBranches = info.remoteBranches();
    auto onRemote = [&](const std::string& branch) {
        return std::find(remoteBranches.begin(), remoteBranches.end(), branch) !=
               remoteBranches.end();
    };
    if (settings.mirror) {
        for (const std::string& branch : settings.localBranches) {
            push.emplace(branch, branch);
        }
        return;
    }
    if (settings.hasPushRefspecs) {
        // Named pairs first, so that a branch named outright keeps its own target when a
        // pattern also covers it.
        for (const auto& [local, remote] : show.push) {
            if (local.find('*') == std::string::npos) {
                push.emplace(local, remote);
            }
        }
        for (const auto& [local, remote] : show.push) {
            if (local.find('*') == std::string::npos) {
                continue;
            }
            bool matching = show.pushMatching && local == "*" && remote == "*";
            for (const std::string& branch : settings.localBranches) {
                std::string_view matched;
                if (!matchPattern(local, branch, matched) || (matching && !onRemote(branch))) {
                    continue;
                }
                push.emplace(branch, replaceStar(remote, matched));
            }
        }
        return;
    }

    std::string mode;
    for (char c : settings.pushDefault) {
        mode.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    }
    if (mode == "nothing") {
        return;
    }
    if (mode == "matching") {
        for (const std::string& branch : settings.localBranches) {
            if (onRemote(branch)) {
                push.emplace(branch, branch);
            }
        }
        return;
    }
    const std::string& current = settings.currentBranch;
    if (current.empty()) {
        return;  // a detached HEAD pushes nothing without a refspec
    }
    if (mode == "current") {
        push.emplace(current, current);
        return;
    }
    // The remote the checked-out branch belongs to: its configured remote, else the only
    // remote, else "origin".
    std::string branchRemote = settings.currentBranchRemote;
    if (branchRemote.empty()) {
        branchRemote = settings.remotes.size() == 1 ? settings.remotes.front() : "origin";
    }
    bool sameRemote = branchRemote == settings.remote;
    std::string upstream = settings.severalMerges ? "" : settings.currentBranchMerge;
    if (settings.currentBranchMerge.empty() && settings.autoSetupRemote) {
        upstream = std::string(HeadsPrefix) + current;
    }
    if (mode == "upstream" || mode == "tracking") {
        if (sameRemote && !upstream.empty()) {
            push.emplace(current, std::string(withoutPrefix(upstream, HeadsPrefix)));
        }
        return;
    }
    // "simple", git's default: to another remote like "current"; to the branch's own remote
    // only when the upstream has the same name.
    if (!sameRemote || upstream == std::string(HeadsPrefix) + current) {
        push.emplace(current, current);
    }
}
