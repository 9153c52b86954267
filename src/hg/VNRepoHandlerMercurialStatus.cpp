#include <algorithm>
#include <cctype>
#include <optional>

#include "base/Format.h"
#include "base/Regex.h"
#include "hg/VNHgStatusParser.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNConfigFile.h"
#include "model/VNFileStatusEntity.h"
#include "platform/FileSystem.h"
#include "platform/Localized.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "platform/UserInterface.h"
#include "platform/WorkQueue.h"

namespace {

std::string trimmed(std::string_view text, std::string_view characters = " \t\r\n") {
    std::size_t start = text.find_first_not_of(characters);
    if (start == std::string_view::npos) {
        return "";
    }
    std::size_t end = text.find_last_not_of(characters);
    return std::string(text.substr(start, end - start + 1));
}

int leadingNumber(std::string_view part) {
    int value = 0;
    for (char c : part) {
        if (!std::isdigit(static_cast<unsigned char>(c)) || value > 100000) {
            break;
        }
        value = value * 10 + (c - '0');
    }
    return value;
}

std::string hgMetadata(const std::string& path, std::string_view name) {
    return vn::fs::appendPathComponent(vn::fs::appendPathComponent(path, ".hg"), name);
}

}  // namespace

// ---- Version -----------------------------------------------------------------------------------

std::string VNRepoHandlerMercurial::parseVersionNumber(std::string_view output) {
    static const vn::Regex pattern("version ([0-9\\.\\+]+)");
    auto match = pattern.find(output);
    return match ? match->str(1) : std::string();
}

bool VNRepoHandlerMercurial::isIncompatibleVersion(std::string_view number) {
    number = number.substr(0, number.find('+'));
    std::vector<std::string_view> parts;
    while (!number.empty()) {
        std::size_t dot = number.find('.');
        parts.push_back(number.substr(0, dot));
        number.remove_prefix(dot == std::string_view::npos ? number.size() : dot + 1);
    }
    if (parts.size() < 3) {
        return false;
    }
    int major = leadingNumber(parts[0]);
    int minor = leadingNumber(parts[1]);
    int patch = leadingNumber(parts[2]);
    return major < 3 || (major == 3 && minor < 8 && patch < 3);
}

vn::Record VNRepoHandlerMercurial::versionDetails() {
    vn::Preferences& prefs = vn::Preferences::standard();
    bool custom = prefs.integerForKey("mercurialWhichOne") != 0;
    std::string customPath = prefs.stringForKey("mercurialCustomPath");
    if (custom && customPath.empty()) {
        prefs.set("mercurialWhichOne", int64_t{0});
        custom = false;
    }
    std::string path = hgPath();
    std::string number;
    {
        std::lock_guard<std::mutex> lock(versionMutex_);
        if (versionNumber_ && versionPath_ == path) {
            number = *versionNumber_;
        } else {
            auto task = VNTask::taskWithCommand(path, vn::fs::homeDirectory(), {"--version"});
            task->setEnvironmentCustomisations(plainEnvironment());
            if (task->run()) {
                number = parseVersionNumber(task->output());
                versionNumber_ = number;
                versionPath_ = path;
            } else {
                handleHgFailure("hg --version", task->exitCode(), task->errorOutput(), false);
            }
        }
    }
    return vn::Record{
        {"number", number},
        {"standard", !custom},
        {"location", custom ? customPath : std::string("Internal")},
        {"exists", vn::fs::isExecutableFile(path)},
    };
}

bool VNRepoHandlerMercurial::isUsingIncompatibleMercurial() {
    vn::Record details = versionDetails();
    if (details.boolean("standard")) {
        return false;
    }
    return isIncompatibleVersion(details.string("number"));
}

void VNRepoHandlerMercurial::checkMercurialVersionSecurity() {
    vn::Preferences& prefs = vn::Preferences::standard();
    if (prefs.boolForKey("suppressMercurialVersionWarning") || !isUsingIncompatibleMercurial()) {
        return;
    }
    vn::Alert alert;
    alert.title = vn::localized("MercurialVersionWarningTitle");
    alert.message = vn::format(vn::localized("MercurialVersionWarningMessage"),
                               versionDetails().string("number"));
    alert.buttons = {vn::localized("OK"), vn::localized("Do not show this again")};
    if (vn::UserInterface::current()->showAlert(alert) == 1) {
        prefs.set("suppressMercurialVersionWarning", true);
    }
}

// ---- Status ------------------------------------------------------------------------------------

std::vector<std::string> VNRepoHandlerMercurial::statusOptionsForMask(uint64_t mask) {
    if ((mask & 0x3cf) == 0) {
        return {};
    }
    static constexpr std::pair<uint64_t, const char*> options[] = {
        {VNFileStatusUnknown, "-u"}, {VNFileStatusClean, "-c"},   {VNFileStatusModified, "-m"},
        {VNFileStatusAdded, "-a"},   {VNFileStatusRemoved, "-r"}, {VNFileStatusMissing, "-d"},
        {VNFileStatusIgnored, "-i"},
    };
    std::vector<std::string> args;
    for (const auto& [bit, option] : options) {
        if (mask & bit) {
            args.emplace_back(option);
        }
    }
    args.emplace_back("-C");
    return args;
}

std::vector<vn::Record> VNRepoHandlerMercurial::fileStatus(const std::string& path,
                                                           uint64_t includeStatuses) {
    std::vector<std::string> options = statusOptionsForMask(includeStatuses);
    // hg keeps the files of an unfinished merge in ".hg/merge"; without it there is nothing to
    // resolve and the run is saved.
    bool wantsResolve =
        (includeStatuses & (VNFileStatusConflicted | (VNFileStatusConflicted << 1))) &&
        vn::fs::exists(hgMetadata(path, "merge"));
    std::shared_ptr<VNTask> resolve;
    bool resolved = false;
    std::optional<vn::WorkGroup> group;
    if (wantsResolve) {
        resolve = hgQueryTask(path, "resolve", {"-l"});
        resolve->setRawOutput(true);
        if (options.empty()) {
            resolved = runQuery(resolve);
        } else {
            group.emplace();
            vn::WorkQueue::global().async(*group, [&] { resolved = runQuery(resolve); });
        }
    }
    std::vector<vn::Record> entries;
    bool statusOk = true;
    std::shared_ptr<VNTask> status;
    if (!options.empty()) {
        status = hgQueryTask(path, "status", std::move(options));
        // Names reach later commands as the exact bytes hg printed.
        status->setRawOutput(true);
        statusOk = runQuery(status);
    }
    if (group) {
        group->wait();
    }
    if (!statusOk) {
        handleHgFailure("hg status", status->exitCode(), status->errorOutput(), false);
        return {};
    }
    if (status) {
        entries = VNHgStatusParser::parseFileStatus(status->output());
    }
    if (resolve) {
        if (resolved) {
            VNHgStatusParser::mergeResolveEntries(
                entries, VNHgStatusParser::parseFileResolveStatus(resolve->output()));
        } else {
            handleHgFailure("hg resolve", resolve->exitCode(), resolve->errorOutput(), false);
        }
    }
    return entries;
}

vn::Record VNRepoHandlerMercurial::summary(const std::string& path) {
    auto task = hgQueryTask(path, "summary");
    task->setLossyUTF8Output(true);
    if (!runQuery(task)) {
        handleHgFailure("hg summary", task->exitCode(), task->errorOutput(), false);
        return {};
    }
    vn::Record record = VNHgStatusParser::parseSummary(task->output());
    record.set("isrebase", isRebaseInProgress(path));
    record.set("isgraft", isGraftInProgress(path));
    record.set("hasLargeFiles", vn::fs::exists(hgMetadata(path, "largefiles")) ||
                                    vn::fs::exists(hgMetadata(path, "store/largefiles")));
    std::string originalBranch;
    std::string parent1 = record.string("parent1");
    if (!parent1.empty()) {
        auto id = hgQueryTask(path, "id", {"-r", parent1, "-b"});
        if (runQuery(id)) {
            originalBranch = trimmed(id->output());
        }
    }
    record.set("originalbranch", originalBranch);
    return record;
}

bool VNRepoHandlerMercurial::isClean(const std::string& path) {
    auto entries = fileStatus(path, VNFileStatusModified | VNFileStatusAdded | VNFileStatusRemoved |
                                        VNFileStatusMissing | VNFileStatusConflicted);
    return std::none_of(entries.begin(), entries.end(), [](const vn::Record& entry) {
        return entry.integer(VNFileStatusKeyStatus) !=
               static_cast<int64_t>(VNFileStatusConflicted << 1);
    });
}

bool VNRepoHandlerMercurial::isMergeOutstanding(const std::string& path) {
    auto task = hgQueryTask(path, "parents", {"--template", "{rev}\n"});
    return runQuery(task) && std::count(task->output().begin(), task->output().end(), '\n') > 1;
}

bool VNRepoHandlerMercurial::isRebaseInProgress(const std::string& path) {
    return vn::fs::exists(hgMetadata(path, "rebasestate"));
}

bool VNRepoHandlerMercurial::isGraftInProgress(const std::string& path) {
    return vn::fs::exists(hgMetadata(path, "graftstate"));
}

std::string VNRepoHandlerMercurial::currentRevision(const std::string& path) {
    auto task = hgQueryTask(path, "id", {"-i", "--debug"});
    if (!runQuery(task)) {
        return "-1";
    }
    std::string id = trimmed(task->output(), "\n\t +");
    return id.substr(0, id.find('+'));
}

std::string VNRepoHandlerMercurial::currentRevisionNumber(const std::string& path) {
    auto task = hgQueryTask(path, "id", {"-n"});
    if (!runQuery(task)) {
        return "-1";
    }
    std::string id = trimmed(task->output(), "\n\t +");
    return id.substr(0, id.find('+'));
}

std::string VNRepoHandlerMercurial::latestRevision(const std::string& path) {
    auto task = hgQueryTask(path, "tip", {"--template", "{rev}"});
    if (!runQuery(task)) {
        handleHgFailure("hg tip", task->exitCode(), task->errorOutput(), false);
        return "";
    }
    return trimmed(task->output());
}

uint64_t VNRepoHandlerMercurial::revisionCount(const std::string& path) {
    std::string tip = latestRevision(path);
    if (tip.empty() || tip.find_first_not_of("0123456789") != std::string::npos ||
        tip.size() > 18) {
        return 0;
    }
    return std::stoull(tip) + 1;
}

std::string VNRepoHandlerMercurial::currentBranch(const std::string& path) {
    auto task = hgQueryTask(path, "branch");
    return runQuery(task) ? trimmed(task->output()) : std::string();
}

// ---- Subrepositories ---------------------------------------------------------------------------

bool VNRepoHandlerMercurial::hasSubmodules(const std::string& path) {
    return vn::fs::exists(vn::fs::appendPathComponent(path, ".hgsub"));
}

std::vector<vn::Record> VNRepoHandlerMercurial::listSubmodules(const std::string& path) {
    std::string hgsub = vn::fs::appendPathComponent(path, ".hgsub");
    if (!vn::fs::exists(hgsub)) {
        return {};
    }
    VNConfigFile config(hgsub, true, true);
    std::map<std::string, std::string> revisions;
    static const vn::Regex statePattern("(\\S+)\\s+(\\S+)");
    std::string state =
        vn::fs::readFile(vn::fs::appendPathComponent(path, ".hgsubstate")).value_or("");
    for (std::string_view rest = state; !rest.empty();) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        // The match points into the text it was given: keep that alive.
        std::string entry = trimmed(line);
        if (auto m = statePattern.match(entry)) {
            revisions[m->str(2)] = m->str(1);
        }
    }
    // Source rewrites: each key of [subpaths] is an expression, its value the replacement.
    std::vector<std::pair<std::shared_ptr<vn::Regex>, std::string>> rewrites;
    for (const auto& [pattern, replacement] :
         config.getConfigKeysAndValuesWithSection("subpaths")) {
        auto regex = std::make_shared<vn::Regex>(pattern);
        if (!regex->isValid()) {
            continue;
        }
        // hg writes groups as Python does ("\1"); the expression engine reads "$1".
        std::string converted;
        for (std::size_t i = 0; i < replacement.size(); ++i) {
            char c = replacement[i];
            if (c == '\\' && i + 1 < replacement.size() &&
                std::isdigit(static_cast<unsigned char>(replacement[i + 1]))) {
                converted.push_back('$');
            } else if (c == '$') {
                converted.append("\\$");
            } else {
                converted.push_back(c);
            }
        }
        rewrites.emplace_back(std::move(regex), converted);
    }
    std::vector<vn::Record> records;
    for (const auto& [local, value] : config.getConfigKeysAndValuesWithSection("")) {
        std::string source = value;
        std::string kind = "hg";
        std::string bare = source;
        for (std::string_view prefix : {"[git]", "[svn]", "[hg]"}) {
            if (source.starts_with(prefix)) {
                kind = std::string(prefix.substr(1, prefix.size() - 2));
                bare = trimmed(source.substr(prefix.size()));
            }
        }
        std::string rewritten = bare;
        for (const auto& [regex, replacement] : rewrites) {
            rewritten = regex->replaceAll(rewritten, replacement);
        }
        auto rev = revisions.find(local);
        records.push_back(vn::Record{
            {"local", local},
            {"kind", kind},
            {"srcOriginal", kind == "hg" ? bare : "[" + kind + "]" + bare},
            {"srcLocal", rewritten},
            {"rev", rev == revisions.end() ? std::string() : rev->second},
        });
    }
    return records;
}

std::vector<vn::Record> VNRepoHandlerMercurial::listSubmodulesWithUncommittedChanges(
    const std::string& path) {
    std::vector<vn::Record> changed;
    for (vn::Record& sub : listSubmodules(path)) {
        std::string folder = vn::fs::appendPathComponent(path, sub.string("local"));
        if (sub.string("kind") != "hg" || !validateWorkingDirectory(folder)) {
            continue;
        }
        if (!isClean(folder)) {
            changed.push_back(std::move(sub));
        }
    }
    return changed;
}

std::vector<vn::Record> VNRepoHandlerMercurial::listSubmodulesWithUnpushedChanges(
    const std::string& path) {
    std::vector<vn::Record> unpushed;
    for (vn::Record& sub : listSubmodules(path)) {
        std::string folder = vn::fs::appendPathComponent(path, sub.string("local"));
        if (sub.string("kind") != "hg" || !validateWorkingDirectory(folder)) {
            continue;
        }
        uint64_t outgoing = 0;
        if (outgoingChanges(folder, "default", outgoing) && outgoing > 0) {
            unpushed.push_back(std::move(sub));
        }
    }
    return unpushed;
}
