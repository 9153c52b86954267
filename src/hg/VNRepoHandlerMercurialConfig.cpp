// The program's Mercurial configuration, user names, ignore files, commit templates and the attic.
#include <dirent.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "base/Format.h"
#include "base/Regex.h"
#include "handler/VNTemplateDocument.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNConfigFile.h"
#include "platform/FileSystem.h"
#include "platform/Localized.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"
#include "platform/UserInterface.h"

namespace {

std::string trimmed(std::string_view text) {
    std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) {
        return "";
    }
    std::size_t end = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(start, end - start + 1));
}

// The names a preference holds as a list (an array, or text separated by commas or blanks).
std::set<std::string> namesInPreference(std::string_view key) {
    vn::Value value = vn::Preferences::standard().valueForKey(key);
    std::set<std::string> names;
    if (const vn::Value::Array* list = value.array()) {
        for (const vn::Value& item : *list) {
            if (!item.toString().empty()) {
                names.insert(item.toString());
            }
        }
        return names;
    }
    std::string text = value.toString();
    for (std::string_view rest = text; !rest.empty();) {
        std::size_t end = rest.find_first_of(", \t\n");
        std::string_view name = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (!name.empty()) {
            names.emplace(name);
        }
    }
    return names;
}

std::vector<std::string> lines(std::string_view text) {
    std::vector<std::string> out;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        out.emplace_back(line);
    }
    return out;
}

void splitUser(const std::string& user, std::string& name, std::string& email) {
    std::size_t open = user.find('<');
    std::size_t close = user.find('>', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) {
        name = trimmed(user);
        email.clear();
        return;
    }
    name = trimmed(user.substr(0, open));
    email = trimmed(user.substr(open + 1, close - open - 1));
}

std::string joinUser(const std::string& name, const std::string& email) {
    std::string n = trimmed(name);
    std::string e = trimmed(email);
    if (e.empty()) {
        return n;
    }
    return n.empty() ? "<" + e + ">" : n + " <" + e + ">";
}

// The file a link leads to, so that a changed installation is noticed.
std::string resolvedPath(const std::string& path) {
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::canonical(path, error);
    return error ? path : resolved.string();
}

}  // namespace

// ---- Program configuration ---------------------------------------------------------------------

std::string VNRepoHandlerMercurial::hgVarnelConfigFilename() {
    return vn::AppData::pathFor("hgrc_varnel");
}

std::string VNRepoHandlerMercurial::hgUserExtDisableFilename() {
    return vn::AppData::pathFor("hgrc_userext_disable");
}

std::vector<std::pair<std::string, std::string>> VNRepoHandlerMercurial::extensionTable() {
    std::string own = vn::Resources::pathFor("mercurial_local/hgext");
    return {
        {"rebase", ""},
        {"transplant", ""},
        {"progress", ""},
        {"hgext.extdiff", ""},
        {"hgext.hgsubversion", ""},
        {"hgext.fetch", ""},
        {"hgext.shelve", ""},
        {"hgext.mq", ""},
        {"hgext.hgflow", ""},
        {"hgext.gpg", ""},
        {"varnel_auth", vn::fs::appendPathComponent(own, "varnel_auth.py")},
        {"varnel_checklink", vn::fs::appendPathComponent(own, "varnel_checklink.py")},
    };
}

void VNRepoHandlerMercurial::writeProgramConfiguration(bool force) {
    std::lock_guard<std::mutex> lock(configMutex_);
    if (!force && configWritten_) {
        return;
    }
    std::string filename = hgVarnelConfigFilename();
    std::string stateFile = vn::AppData::pathFor("hgrc_varnel.state");
    std::set<std::string> disabled = namesInPreference("mercurialDisabledExts");
    // What the file was written for: the hg in use and the disabled extensions. While they
    // stay, the file stands (a command-line run must not pay for probing hg every time).
    std::string stamp = hgPath() + "\n" + resolvedPath(hgPath());
    for (const std::string& name : disabled) {
        stamp += "\n-" + name;
    }
    if (!force && vn::fs::exists(filename)) {
        std::string state = vn::fs::readFile(stateFile).value_or("");
        std::size_t split = state.find("\n\n");
        if (split != std::string::npos && state.substr(0, split) == stamp) {
            missingExtensions_.clear();
            for (const std::string& name : lines(state.substr(split + 2))) {
                if (!name.empty()) {
                    missingExtensions_.push_back(name);
                }
            }
            configWritten_ = true;
            return;
        }
    }
    configWritten_ = true;

    // Ask the installed hg which extensions of the table it can load: one run with all of them.
    std::vector<std::pair<std::string, std::string>> wanted;
    std::vector<std::string> probe;
    for (const auto& [name, module] : extensionTable()) {
        if (disabled.contains(name)) {
            continue;
        }
        if (!module.empty() && !vn::fs::exists(module)) {
            // Shipped by the program but not installed here: nothing to load, nothing missing.
            continue;
        }
        wanted.emplace_back(name, module);
        probe.insert(probe.end(), {"--config", "extensions." + name + "=" + module});
    }
    probe.insert(probe.end(), {"version", "-q"});
    auto task = VNTask::taskWithCommand(hgPath(), vn::fs::homeDirectory(), probe);
    vn::Environment env = plainEnvironment();
    // Only this probe's settings: the user's own configuration must not hide a failure.
    env["HGRCPATH"] = "";
    task->setEnvironmentCustomisations(env);
    task->run();
    missingExtensions_.clear();
    for (const auto& [name, module] : wanted) {
        // "failed to import extension NAME: ..." (hg 6.3 quotes the name, older ones do not).
        const std::string& error = task->errorOutput();
        if (error.find("failed to import extension " + name + ":") != std::string::npos ||
            error.find("failed to import extension \"" + name + "\"") != std::string::npos) {
            missingExtensions_.push_back(name);
        }
    }

    VNConfigFile config(filename, true, true);
    std::map<std::string, std::string> extensions;
    for (const auto& [name, module] : wanted) {
        if (std::find(missingExtensions_.begin(), missingExtensions_.end(), name) ==
            missingExtensions_.end()) {
            extensions[name] = module;
        }
    }
    config.setConfigKeysAndValues(extensions, "extensions", true);
    config.setConfigValue("True", "git", "diff");
    config.setConfigValue("no", "commitsubrepos", "ui");
    // Command servers started for the program's queries end when they are no longer used.
    config.setConfigValue("600", "idletimeout", "chgserver");
    std::string globalIgnore = globalIgnoreFilename();
    config.setConfigValue(globalIgnore, "ignore", "ui");
    if (!vn::fs::exists(globalIgnore)) {
        std::string seed =
            vn::fs::readFile(vn::Resources::pathFor("hgignore_default.txt")).value_or("");
        vn::fs::writeFileAtomically(globalIgnore, seed);
    }
    vn::fs::makeDirectories(vn::fs::deletingLastPathComponent(filename));
    if (!config.save()) {
        vn::Log::error("Cannot write " + filename, vn::Log::Mercurial);
    }

    // The user's own extensions are off unless the user chose to keep them: they may change
    // what the commands print.
    std::set<std::string> keep = namesInPreference("mercurialUserExts");
    VNConfigFile userConfig(vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc"), true,
                            true);
    std::map<std::string, std::string> off;
    for (const auto& [name, value] : userConfig.getConfigKeysAndValuesWithSection("extensions")) {
        if (!keep.contains(name) && !value.starts_with("!")) {
            off[name] = "!";
        }
    }
    VNConfigFile disable(hgUserExtDisableFilename(), true, true);
    disable.setConfigKeysAndValues(off, "extensions", true);
    disable.save();
    if (!vn::fs::exists(hgUserExtDisableFilename())) {
        vn::fs::writeFileAtomically(hgUserExtDisableFilename(), "");
    }

    std::string state = stamp + "\n\n";
    for (const std::string& name : missingExtensions_) {
        state += name + "\n";
    }
    vn::fs::writeFileAtomically(stateFile, state);
}

std::vector<std::string> VNRepoHandlerMercurial::missingExtensions() {
    writeProgramConfiguration();
    std::lock_guard<std::mutex> lock(configMutex_);
    return missingExtensions_;
}

std::optional<std::string> VNRepoHandlerMercurial::missingExtensionError(
    const std::string& extension) {
    for (const std::string& name : missingExtensions()) {
        if (name == extension || name == "hgext." + extension) {
            return vn::format(
                "The Mercurial extension \"%@\" is not installed; the installed "
                "Mercurial cannot do this without it.",
                extension);
        }
    }
    return std::nullopt;
}

// ---- User names --------------------------------------------------------------------------------

bool VNRepoHandlerMercurial::repositoryUserInformation(const std::string& path,
                                                       std::string& username, std::string& email) {
    VNConfigFile config(vn::fs::appendPathComponent(path, ".hg/hgrc"), true, true);
    auto user = config.getConfigValueForKey("username", "ui");
    if (!user || trimmed(*user).empty()) {
        username.clear();
        email.clear();
        return false;
    }
    splitUser(*user, username, email);
    return true;
}

bool VNRepoHandlerMercurial::setRepositoryUserInformation(const std::string& path,
                                                          const std::string& username,
                                                          const std::string& email) {
    VNConfigFile config(vn::fs::appendPathComponent(path, ".hg/hgrc"), true, true);
    std::string user = joinUser(username, email);
    if (user.empty()) {
        config.removeConfigValueForKey("username", "ui");
    } else {
        config.setConfigValue(user, "username", "ui");
    }
    return config.save();
}

bool VNRepoHandlerMercurial::userInformation(std::string& username, std::string& email) {
    for (const std::string& file :
         {hgVarnelConfigFilename(),
          vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgrc")}) {
        VNConfigFile config(file, true, true);
        auto user = config.getConfigValueForKey("username", "ui");
        if (user && !trimmed(*user).empty()) {
            splitUser(*user, username, email);
            return true;
        }
    }
    username.clear();
    email.clear();
    return false;
}

bool VNRepoHandlerMercurial::setUserInformation(const std::string& username,
                                                const std::string& email) {
    vn::fs::makeDirectories(vn::fs::deletingLastPathComponent(hgVarnelConfigFilename()));
    VNConfigFile config(hgVarnelConfigFilename(), true, true);
    std::string user = joinUser(username, email);
    if (user.empty()) {
        config.removeConfigValueForKey("username", "ui");
    } else {
        config.setConfigValue(user, "username", "ui");
    }
    return config.save();
}

std::string VNRepoHandlerMercurial::getDefaultAuthor(const std::string& path) {
    std::string name, email;
    if (repositoryUserInformation(path, name, email) || userInformation(name, email)) {
        return joinUser(name, email);
    }
    return "";
}

// ---- Ignore files ------------------------------------------------------------------------------

std::string VNRepoHandlerMercurial::repositoryIgnoreFilename(const std::string& path) {
    return vn::fs::appendPathComponent(path, ".hgignore");
}

std::string VNRepoHandlerMercurial::globalIgnoreFilename() {
    vn::Preferences& prefs = vn::Preferences::standard();
    std::string stored = prefs.stringForKey("mercuralGlobalIgnoreFile");
    if (!stored.empty()) {
        return vn::fs::expandTilde(stored);
    }
    std::string file = vn::fs::appendPathComponent(vn::fs::homeDirectory(), ".hgignore_global");
    prefs.set("mercuralGlobalIgnoreFile", file);
    return file;
}

std::string VNRepoHandlerMercurial::addIgnorePatterns(const std::string& text,
                                                      const std::vector<std::string>& patterns) {
    std::vector<std::string> fileLines = lines(text);
    while (!fileLines.empty() && fileLines.back().empty()) {
        fileLines.pop_back();
    }
    if (fileLines.empty()) {
        fileLines.emplace_back("syntax: glob");
    }
    static const vn::Regex globLine("^[ \\t]*syntax[ \\t]*\\:[ \\t]*glob.*");
    static const vn::Regex syntaxLine("^[ \\t]*syntax[ \\t]*\\:.*");
    std::vector<std::string> added;
    for (const std::string& pattern : patterns) {
        vn::Regex present("^[ \\t]*" + vn::Regex::escape(pattern) + "[ \\t]*$");
        bool found = std::any_of(fileLines.begin(), fileLines.end(),
                                 [&](const std::string& line) { return present.matches(line); }) ||
                     std::find(added.begin(), added.end(), pattern) != added.end();
        if (!found && !trimmed(pattern).empty()) {
            added.push_back(pattern);
        }
    }
    if (added.empty()) {
        return text;
    }
    std::size_t lastGlob = std::string::npos, lastSyntax = std::string::npos;
    for (std::size_t i = 0; i < fileLines.size(); ++i) {
        if (globLine.matches(fileLines[i])) {
            lastGlob = i;
        }
        if (syntaxLine.matches(fileLines[i])) {
            lastSyntax = i;
        }
    }
    if (lastSyntax != std::string::npos && lastSyntax != lastGlob) {
        // The file ends in another syntax: the new patterns need a glob section of their own.
        fileLines.emplace_back("syntax: glob");
        fileLines.insert(fileLines.end(), added.begin(), added.end());
    } else if (lastGlob != std::string::npos) {
        // After the glob section's last line: before the next syntax line, else at the end.
        std::size_t at = fileLines.size();
        for (std::size_t i = lastGlob + 1; i < fileLines.size(); ++i) {
            if (syntaxLine.matches(fileLines[i])) {
                at = i;
                break;
            }
        }
        fileLines.insert(fileLines.begin() + static_cast<std::ptrdiff_t>(at), added.begin(),
                         added.end());
    } else {
        // No syntax line: hg reads expressions by default, so globs get their section.
        fileLines.emplace_back("syntax: glob");
        fileLines.insert(fileLines.end(), added.begin(), added.end());
    }
    std::string out;
    for (std::size_t i = 0; i < fileLines.size(); ++i) {
        out += fileLines[i];
        out += "\n";
    }
    return out;
}

bool VNRepoHandlerMercurial::addIgnores(const std::vector<std::string>& patterns,
                                        const std::string& toFile) {
    std::string text = vn::fs::readFile(toFile).value_or("");
    std::string updated = addIgnorePatterns(text, patterns);
    if (updated == text) {
        return true;
    }
    return vn::fs::writeFileAtomically(toFile, updated);
}

bool VNRepoHandlerMercurial::addIgnore(const std::string& path, const std::string& pattern) {
    return addIgnores({pattern}, repositoryIgnoreFilename(path));
}

bool VNRepoHandlerMercurial::addIgnore(const std::string& path,
                                       const std::vector<std::string>& patterns) {
    return addIgnores(patterns, repositoryIgnoreFilename(path));
}

bool VNRepoHandlerMercurial::addGlobalIgnore(const std::string& pattern) {
    return addIgnores({pattern}, globalIgnoreFilename());
}

bool VNRepoHandlerMercurial::addGlobalIgnores(const std::vector<std::string>& patterns) {
    return addIgnores(patterns, globalIgnoreFilename());
}

VNRegexList VNRepoHandlerMercurial::readIgnoreText(std::string_view text) {
    static const vn::Regex regexpSyntax("syntax:\\s*regexp.*");
    static const vn::Regex globSyntax("syntax:\\s*glob.*");
    VNRegexList list;
    bool glob = false;
    for (const std::string& raw : lines(text)) {
        std::string line = trimmed(raw);
        if (line.empty() || line.starts_with("#")) {
            continue;
        }
        if (regexpSyntax.matches(line)) {
            glob = false;
            continue;
        }
        if (globSyntax.matches(line)) {
            glob = true;
            continue;
        }
        if (line.starts_with("syntax:")) {
            continue;
        }
        if (glob) {
            if (auto regex = ignoreGlobToRegex(line)) {
                list.push_back(std::move(regex));
            }
        } else {
            auto regex = std::make_shared<const vn::Regex>(line);
            if (regex->isValid()) {
                list.push_back(std::move(regex));
            }
        }
    }
    return list;
}

VNRegexList VNRepoHandlerMercurial::ignoreListRegexes(const std::string& path) {
    return readIgnoreText(vn::fs::readFile(repositoryIgnoreFilename(path)).value_or(""));
}

VNRegexList VNRepoHandlerMercurial::globalIgnoreListRegexes() {
    return readIgnoreText(vn::fs::readFile(globalIgnoreFilename()).value_or(""));
}

// ---- Commit message template -------------------------------------------------------------------

std::optional<std::string> VNRepoHandlerMercurial::templateFileForDocument(
    const VNTemplateDocument& document) {
    VNConfigFile config(vn::fs::appendPathComponent(document.path(), ".hg/hgrc"), true, true);
    if (auto named = config.getConfigValueForKey("desc", "committemplate")) {
        std::string file = trimmed(*named);
        if (!file.empty()) {
            if (!file.starts_with("/") && !file.starts_with("~")) {
                file = vn::fs::appendPathComponent(document.path(), file);
            }
            return file;
        }
    }
    return defaultCommitTemplateFilePathForDocument(document);
}

std::optional<std::string> VNRepoHandlerMercurial::defaultCommitTemplateFilePathForDocument(
    const VNTemplateDocument& document) {
    return document.path() + vn::format("/.hg/%@", "commit_msg_template.txt");
}

// ---- Attic -------------------------------------------------------------------------------------

std::vector<std::string> VNRepoHandlerMercurial::atticFiles(const std::string& path) {
    std::string folder = vn::format("%@/.hg/attic", path);
    std::vector<std::string> files;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) {
        return files;
    }
    static const vn::Regex applied(".applied", vn::Regex::CaseInsensitive);
    static const vn::Regex current(".current", vn::Regex::CaseInsensitive);
    static const vn::Regex saved(".saved", vn::Regex::CaseInsensitive);
    while (dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name == "." || name == ".." ||
            vn::fs::isDirectory(vn::fs::appendPathComponent(folder, name))) {
            continue;
        }
        if (!applied.matches(name) && !current.matches(name) && !saved.matches(name)) {
            files.push_back(name);
        }
    }
    ::closedir(dir);
    std::sort(files.begin(), files.end());
    return files;
}

bool VNRepoHandlerMercurial::hasAtticContent(const std::string& path) {
    return !atticFiles(path).empty();
}

void VNRepoHandlerMercurial::warnAboutAtticContent(const std::string& path) {
    vn::Preferences& prefs = vn::Preferences::standard();
    {
        std::lock_guard<std::mutex> lock(configMutex_);
        if (didWarnAboutAttic_ || prefs.boolForKey("supressAtticWarning")) {
            return;
        }
    }
    if (!hasAtticContent(path)) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(configMutex_);
        didWarnAboutAttic_ = true;
    }
    vn::Alert alert;
    alert.title = vn::localized("MercurialAtticWarningTitle");
    alert.message = vn::localized("MercurialAtticWarningMessage");
    alert.buttons = {vn::localized("OK"), vn::localized("MercurialAtticLearnButton")};
    vn::UserInterface::current()->showAlert(alert);
}

// ---- Repositories ------------------------------------------------------------------------------

bool VNRepoHandlerMercurial::validatePathOrURL(const std::string& pathOrURL,
                                               VNPathOrURLValidationDelegate* /*delegate*/) {
    if (pathOrURL.empty() || pathOrURL.front() == '-') {
        return false;
    }
    std::string folder = vn::fs::homeDirectory();
    auto task = hgTask(folder, "identify", {"--", pathOrURL});
    configureSshAskPass(folder, pathOrURL, *task);
    return task->run();
}

bool VNRepoHandlerMercurial::checkConfigForRepo(const std::string& path, bool /*fixAndPrompt*/) {
    return validateWorkingDirectory(path);
}
