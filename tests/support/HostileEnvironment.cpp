#include "support/HostileEnvironment.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace vn::test {

namespace {

constexpr const char* GermanLocaleName = "de_DE.UTF-8";

bool systemHasGermanLocale() {
    auto task = runProgram("/", "locale", {"-a"});
    if (!task->success()) {
        return false;
    }
    for (const char* name : {"\nde_DE.utf8\n", "\nde_DE.UTF-8\n"}) {
        if (("\n" + task->output()).find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// Builds the locale once for every test process of this user: into a folder of its own first,
// renamed into place, so that a process never sees half a locale.
std::optional<std::string> privateGermanLocale(std::string& why) {
    const char* tmp = std::getenv("TMPDIR");
    std::string root =
        std::string(tmp && *tmp ? tmp : "/tmp") + "/varnel-locales-" + std::to_string(::getuid());
    std::string ready = fs::appendPathComponent(root, "ready");
    if (fs::exists(fs::appendPathComponent(ready, std::string(GermanLocaleName) + "/LC_CTYPE"))) {
        return ready;
    }
    fs::makeDirectories(root, 0700);
    TempDir building("varnel-locale");
    std::string target = building.file(GermanLocaleName);
    auto task = runProgram(building.path(), "localedef", {"-i", "de_DE", "-f", "UTF-8", target});
    if (!fs::exists(fs::appendPathComponent(target, "LC_CTYPE"))) {
        why =
            "localedef could not build de_DE.UTF-8 (install the \"locales\" package, see "
            "scripts/install-deps.sh): " +
            task->errorOutput();
        return std::nullopt;
    }
    std::string staged = fs::appendPathComponent(root, "staged-" + std::to_string(::getpid()));
    std::error_code error;
    std::filesystem::rename(building.path(), staged, error);
    if (!error) {
        std::filesystem::rename(staged, ready, error);
        // Another process got there first; its copy serves as well.
        std::filesystem::remove_all(staged, error);
    }
    if (!fs::exists(fs::appendPathComponent(ready, std::string(GermanLocaleName) + "/LC_CTYPE"))) {
        why = "cannot keep the German locale in " + ready;
        return std::nullopt;
    }
    return ready;
}

}  // namespace

std::optional<Environment> germanLocale(std::string& why) {
    static std::mutex mutex;
    static std::optional<std::optional<Environment>> answer;
    static std::string reason;
    std::lock_guard<std::mutex> lock(mutex);
    if (!answer) {
        Environment env{
            {"LC_ALL", GermanLocaleName}, {"LANG", GermanLocaleName}, {"LANGUAGE", "de:en"}};
        if (systemHasGermanLocale()) {
            answer.emplace(env);
        } else if (auto folder = privateGermanLocale(reason)) {
            env["LOCPATH"] = *folder;
            answer.emplace(env);
        } else {
            answer.emplace(std::nullopt);
        }
    }
    why = reason;
    return *answer;
}

int writeHostileGitConfig(const std::string& home) {
    fs::makeDirectories(home, 0700);
    std::string external = writeScript(home, "external-diff.sh", "echo \"EXTERNAL DIFF $*\"\n");
    std::string order = fs::appendPathComponent(home, "diff-order");
    writeFile(order, "untracked.txt\nz*\n*.md\n");
    const std::string settings =
        "[column]\n\tui = always\n\tbranch = always\n\tstatus = always\n\ttag = always\n"
        "[color]\n\tui = always\n\tdiff = always\n\tstatus = always\n\tbranch = always\n"
        "\tdecorate = always\n\tgrep = always\n\tshowBranch = always\n"
        "[core]\n\tquotePath = true\n\tabbrev = 12\n\tpager = sed s/a/b/\n"
        "[diff]\n\tsuppressBlankEmpty = true\n\trenames = false\n\tnoprefix = true\n"
        "\tmnemonicPrefix = true\n\trelative = true\n\texternal = " +
        external +
        "\n\tcontext = 7\n\tinterHunkContext = 9\n\tsubmodule = log\n\tignoreSubmodules = all\n"
        "\torderFile = " +
        order +
        "\n\tsrcPrefix = SRC/\n\tdstPrefix = DST/\n"
        "[status]\n\trenames = copies\n\tbranch = true\n\tshort = true\n"
        "\tshowUntrackedFiles = no\n\tshowStash = true\n\taheadBehind = false\n"
        "\tsubmoduleSummary = true\n"
        "[log]\n\tshowSignature = true\n\tabbrevCommit = true\n\tfollow = true\n"
        "\tdate = relative\n\tshowRoot = false\n\tdecorate = short\n"
        "\texcludeDecoration = refs/tags/*\n\texcludeDecoration = refs/remotes/*\n"
        "\tinitialDecorationSet = all\n"
        "[format]\n\tpretty = oneline\n"
        "[i18n]\n\tlogOutputEncoding = ISO-8859-1\n"
        "[pager]\n\tlog = true\n\tdiff = true\n\tbranch = true\n\tstatus = true\n"
        "[branch]\n\tsort = -committerdate\n"
        "[tag]\n\tsort = -refname\n"
        "[grep]\n\tpatternType = fixed\n\textendedRegexp = true\n"
        "[advice]\n\tstatusHints = true\n\tdetachedHead = true\n"
        "[submodule]\n\trecurse = true\n"
        "[stash]\n\tshowIncludeUntracked = true\n\tshowStat = true\n"
        "[blame]\n\tshowRoot = true\n\tblankBoundary = true\n\tdate = relative\n"
        "\tshowEmail = true\n"
        "[notes]\n\tdisplayRef = refs/notes/*\n";
    writeFile(fs::appendPathComponent(home, ".gitconfig"),
              "[init]\n\tdefaultBranch = main\n[user]\n\tname = Someone Else\n"
              "\temail = else@example.com\n" +
                  settings);
    int count = 0;
    for (char c : settings) {
        count += c == '\t' ? 1 : 0;
    }
    return count;
}

Environment redirectingGitVariables(const std::string& folder) {
    runProgram("/", "git", {"init", "-q", folder});
    writeFile(fs::appendPathComponent(folder, "other.txt"), "another repository\n");
    runProgram(folder, "git", {"add", "other.txt"});
    runProgram(folder, "git", {"commit", "-q", "-m", "the other repository's commit"});
    std::string gitDir = fs::appendPathComponent(folder, ".git");
    std::string script = writeScript(folder, "external-diff.sh", "echo \"EXTERNAL DIFF $*\"\n");
    return Environment{
        {"GIT_DIR", gitDir},
        {"GIT_WORK_TREE", folder},
        {"GIT_INDEX_FILE", fs::appendPathComponent(gitDir, "index")},
        {"GIT_OBJECT_DIRECTORY", fs::appendPathComponent(gitDir, "objects")},
        {"GIT_COMMON_DIR", gitDir},
        {"GIT_NAMESPACE", "elsewhere"},
        {"GIT_CONFIG_PARAMETERS", "'core.quotepath'='true' 'color.ui'='always'"},
        {"GIT_CONFIG_COUNT", "2"},
        {"GIT_CONFIG_KEY_0", "diff.noprefix"},
        {"GIT_CONFIG_VALUE_0", "true"},
        {"GIT_CONFIG_KEY_1", "column.ui"},
        {"GIT_CONFIG_VALUE_1", "always"},
        {"GIT_EXTERNAL_DIFF", script},
        {"GIT_DIFF_OPTS", "--unified=9"},
        {"GIT_PAGER_IN_USE", "1"},
        {"GIT_PAGER", "sed s/a/b/"},
        {"GIT_ICASE_PATHSPECS", "1"},
        {"GIT_GLOB_PATHSPECS", "1"},
        {"GIT_TRACE", "1"},
        {"GIT_TRACE_SETUP", "1"},
        {"GIT_NOTES_REF", "refs/notes/other"},
        {"GIT_PRINT_SHA1_ELLIPSIS", "yes"},
    };
}

}  // namespace vn::test
