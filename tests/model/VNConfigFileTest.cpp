#include "model/VNConfigFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>

#include "platform/FileSystem.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::readFile;
using vn::test::TempDir;
using vn::test::writeFile;
using Entries = std::map<std::string, std::string>;

struct Flags {
    bool useSections;
    bool indentsContinue;
    bool ignoreComments;
};
constexpr Flags kMercurial{true, true, true};
constexpr Flags kSubmodules{true, false, true};
constexpr Flags kSettings{false, false, false};

VNConfigFile openConfig(const std::string& path, Flags flags) {
    return VNConfigFile(path, flags.useSections, flags.indentsContinue, flags.ignoreComments);
}

Entries allEntries(const VNConfigFile& config) {
    return config.matchConfigEntriesForKeyPattern(".*");
}

std::string replaceNewlines(std::string text, const std::string& newline) {
    std::string out;
    for (char c : text) {
        if (c == '\n') {
            out += newline;
        } else {
            out += c;
        }
    }
    return out;
}

const std::string kHgrc =
    "# Repository settings, edited by hand\n"
    "%include ~/.hgrc.shared\n"
    "\n"
    "[paths]\n"
    "default = https://hg.example.org/project\n"
    "default-push = ssh://hg@hg.example.org/project\n"
    "; mirror = https://mirror.example.org/project\n"
    "\n"
    "[ui]\n"
    "username = Jane Doe\n"
    "  <jane@example.org>\n"
    "verbose = True\n"
    "merge = internal:merge  # while kdiff3 is broken\n"
    "\n"
    "[extensions]\n"
    "rebase =\n"
    "hgext.extdiff =\n"
    "mq = !\n";

const std::string kGitmodules =
    "[submodule \"a b\"]\n"
    "\tpath = a b\n"
    "\turl = https://git.example.org/a-b.git\n"
    "[submodule \"lib\"]\n"
    "\tpath = vendor/lib\n"
    "\turl = ../lib.git\n"
    "\tbranch = main\n";

// The longer key comes first here and last in the hgrc, so that a key matched by prefix would hit
// the wrong line either way.
const std::string kSettingsFile =
    "autorefreshremotes=1\n"
    "autorefresh=1\n"
    "gpgKey=\n"
    "draftCommit=WIP{{newline}}more\n"
    "commentURLParser0.type=jira\n"
    "commentURLParser0.url=https://jira.example.org/browse/#ticket\n"
    "commentURLParser1.type=github\n"
    "commentURLParser1.url=https://github.com/o/r/issues/\n";

TEST(VNConfigFile, LoadsAMercurialConfiguration) {
    TempDir dir;
    writeFile(dir.file("hgrc"), kHgrc);
    VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);

    EXPECT_TRUE(config.alreadyExisted());
    EXPECT_EQ(config.includeFiles(), std::vector<std::string>{"~/.hgrc.shared"});
    EXPECT_EQ(allEntries(config), (Entries{
                                      {"paths.default-push", "ssh://hg@hg.example.org/project"},
                                      {"paths.default", "https://hg.example.org/project"},
                                      {"ui.username", "Jane Doe <jane@example.org>"},
                                      {"ui.verbose", "True"},
                                      {"ui.merge", "internal:merge"},
                                      {"extensions.rebase", ""},
                                      {"extensions.hgext.extdiff", ""},
                                      {"extensions.mq", "!"},
                                  }));
    EXPECT_EQ(config.getConfigValueForKey("username", "ui"), "Jane Doe <jane@example.org>");
    EXPECT_EQ(config.getConfigValueForKey("mirror", "paths"), std::nullopt);
    EXPECT_EQ(config.getConfigKeysAndValuesWithSection("extensions"),
              (Entries{{"rebase", ""}, {"hgext.extdiff", ""}, {"mq", "!"}}));
    EXPECT_EQ(config.matchConfigEntriesForKeyPattern("default.*", "paths").size(), 2u);
    EXPECT_EQ(config.matchConfigEntriesForKeyPattern("default", "paths").size(), 1u);
}

// The same edits on LF, CRLF and a file whose last line has no terminator.
TEST(VNConfigFile, EditsAMercurialConfigurationInPlace) {
    const std::string expected =
        "# Repository settings, edited by hand\n"
        "%include ~/.hgrc.shared\n"
        "\n"
        "[paths]\n"
        "default=https://hg.example.org/renamed\n"
        "default-push = ssh://hg@hg.example.org/project\n"
        "upstream=https://hg.example.org/upstream\n"
        "; mirror = https://mirror.example.org/project\n"
        "\n"
        "[ui]\n"
        "username=Jane Doe <jane@example.com>\n"
        "merge = internal:merge  # while kdiff3 is broken\n"
        "\n"
        "[extensions]\n"
        "rebase =\n"
        "hgext.extdiff =\n"
        "mq = !\n"
        "hgext.fetch=\n"
        "[diff]\n"
        "git=True\n";
    struct Case {
        const char* name;
        std::string original;
        std::string expected;
    };
    const Case cases[] = {
        {"LF", kHgrc, expected},
        {"CRLF", replaceNewlines(kHgrc, "\r\n"), replaceNewlines(expected, "\r\n")},
        {"no final newline", kHgrc.substr(0, kHgrc.size() - 1), expected},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        writeFile(dir.file("hgrc"), c.original);
        VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);
        config.setConfigValue("https://hg.example.org/renamed", "default", "paths");
        config.setConfigValue("https://hg.example.org/upstream", "upstream", "paths");
        config.setConfigValue("Jane Doe <jane@example.com>", "username", "ui");
        config.removeConfigValueForKey("verbose", "ui");
        config.setConfigValue("", "hgext.fetch", "extensions");
        config.setConfigValue("True", "diff.git");
        ASSERT_TRUE(config.save());
        EXPECT_EQ(readFile(dir.file("hgrc")), c.expected);

        VNConfigFile reloaded = openConfig(dir.file("hgrc"), kMercurial);
        EXPECT_EQ(allEntries(reloaded), allEntries(config));
    }
}

TEST(VNConfigFile, EditsGitSubmodulesByQuotedSubsection) {
    TempDir dir;
    writeFile(dir.file(".gitmodules"), kGitmodules);
    VNConfigFile config = openConfig(dir.file(".gitmodules"), kSubmodules);

    EXPECT_EQ(config.getNamesOfSection("submodule"), (std::set<std::string>{"a b", "lib"}));
    EXPECT_EQ(config.getConfigValueForKey("submodule{a b}.path"), "a b");
    EXPECT_EQ(config.getConfigKeysAndValuesWithSection("submodule{lib}"),
              (Entries{{"path", "vendor/lib"}, {"url", "../lib.git"}, {"branch", "main"}}));
    EXPECT_EQ(config.matchConfigEntriesForKeyPattern("url", "submodule{lib}"),
              (Entries{{"submodule{lib}.url", "../lib.git"}}));

    config.setConfigValue("https://git.example.org/ab.git", "url", "submodule{a b}");
    config.removeSection("submodule{lib}");
    config.setConfigValue("new dir", "path", "submodule{new dir}");
    config.setConfigValue("https://git.example.org/new.git", "url", "submodule{new dir}");
    ASSERT_TRUE(config.save());
    EXPECT_EQ(readFile(dir.file(".gitmodules")),
              "[submodule \"a b\"]\n"
              "\tpath = a b\n"
              "url=https://git.example.org/ab.git\n"
              "[submodule \"new dir\"]\n"
              "path=new dir\n"
              "url=https://git.example.org/new.git\n");
    EXPECT_EQ(openConfig(dir.file(".gitmodules"), kSubmodules).getNamesOfSection("submodule"),
              (std::set<std::string>{"a b", "new dir"}));
}

TEST(VNConfigFile, EditsAFlatSettingsFile) {
    TempDir dir;
    writeFile(dir.file("varnelconfig"), kSettingsFile);
    VNConfigFile config = openConfig(dir.file("varnelconfig"), kSettings);
    EXPECT_EQ(config.getConfigValueForKey("draftCommit"), "WIP\nmore");
    // Comments are off for this file, so "#" belongs to the value.
    EXPECT_EQ(config.getConfigValueForKey("type", "commentURLParser0"), "jira");
    EXPECT_EQ(config.getConfigValueForKey("commentURLParser0.url"),
              "https://jira.example.org/browse/#ticket");

    config.setConfigValue("0", "autorefresh");
    config.setConfigValue("Fix the parser\n\nIt dropped the last line.", "draftCommit");
    config.removeAllKeysMatchingRegex("commentURLParser1\\..*");
    config.setConfigValue("2", "lastUsedView");
    ASSERT_TRUE(config.save());
    EXPECT_EQ(readFile(dir.file("varnelconfig")),
              "autorefreshremotes=1\n"
              "autorefresh=0\n"
              "gpgKey=\n"
              "draftCommit=Fix the parser{{newline}}{{newline}}It dropped the last line.\n"
              "commentURLParser0.type=jira\n"
              "commentURLParser0.url=https://jira.example.org/browse/#ticket\n"
              "lastUsedView=2\n");
    EXPECT_EQ(openConfig(dir.file("varnelconfig"), kSettings).getConfigValueForKey("draftCommit"),
              "Fix the parser\n\nIt dropped the last line.");
}

TEST(VNConfigFile, UnchangedValuesLeaveTheFileByteIdentical) {
    struct Case {
        const char* name;
        std::string text;
        Flags flags;
    };
    const Case cases[] = {
        {"hgrc", kHgrc, kMercurial},
        {"hgrc CRLF", replaceNewlines(kHgrc, "\r\n"), kMercurial},
        {"gitmodules", kGitmodules, kSubmodules},
        {"settings", kSettingsFile, kSettings},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        writeFile(dir.file("config"), c.text);
        VNConfigFile config = openConfig(dir.file("config"), c.flags);
        for (const auto& [key, value] : allEntries(config)) {
            config.setConfigValue(value, key);
        }
        ASSERT_TRUE(config.save());
        EXPECT_EQ(readFile(dir.file("config")), c.text);
    }

    // Changed and changed back before saving: the continuation line survives too.
    TempDir dir;
    writeFile(dir.file("hgrc"), kHgrc);
    VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);
    config.setConfigValue("someone else", "ui.username");
    config.setConfigValue("Jane Doe <jane@example.org>", "ui.username");
    ASSERT_TRUE(config.save());
    EXPECT_EQ(readFile(dir.file("hgrc")), kHgrc);
}

TEST(VNConfigFile, ReadsLinesAsTheSyntaxSays) {
    struct Case {
        const char* name;
        std::string text;
        Flags flags;
        Entries expected;
    };
    const Case cases[] = {
        {"trailing comment",
         "[ui]\nname = a # note\nother = b;c\n",
         kMercurial,
         {{"ui.name", "a"}, {"ui.other", "b"}}},
        {"comment lines", "# x = 1\n; y = 2\n[s]\n  # z = 3\nk=v\n", kMercurial, {{"s.k", "v"}}},
        {"comments off",
         "url=http://h/#a;b\n# c=d\n",
         kSettings,
         {{"url", "http://h/#a;b"}, {"# c", "d"}}},
        {"continuation",
         "[ui]\nusername = a\n    b c\n\n\tz\n",
         kMercurial,
         {{"ui.username", "a b c z"}}},
        {"indented line without continuation",
         "[ui]\nusername = a\n    b\n",
         kSubmodules,
         {{"ui.username", "a"}}},
        {"indented entry is an entry",
         "[ui]\nusername = a\n  verbose = True\n",
         kMercurial,
         {{"ui.username", "a"}, {"ui.verbose", "True"}}},
        {"continuation stops at a header", "[a]\nx = 1\n[b]\n  y\n", kMercurial, {{"a.x", "1"}}},
        {"quoted subsection",
         "[submodule \"a b\"]\npath = x\n",
         kSubmodules,
         {{"submodule{a b}.path", "x"}}},
        {"blanks inside brackets",
         "[ ui ]\nk = v\n[ remote  \"origin\" ]\nurl = u\n",
         kSubmodules,
         {{"ui.k", "v"}, {"remote{origin}.url", "u"}}},
        {"entry before any header", "k = v\n[s]\n", kMercurial, {{".k", "v"}}},
        {"later occurrence wins", "[s]\nk=1\n[t]\n[s]\nk=2\n", kMercurial, {{"s.k", "2"}}},
        {"malformed header keeps the section",
         "[ui]\na=1\n[broken\nb=2\n",
         kMercurial,
         {{"ui.a", "1"}, {"ui.b", "2"}}},
        {"empty value, value with =",
         "[s]\nk =\nurl = a=b\n",
         kMercurial,
         {{"s.k", ""}, {"s.url", "a=b"}}},
        {"line without =", "[s]\njunk\nk=v\n", kMercurial, {{"s.k", "v"}}},
        {"newline token", "[s]\nmsg = a{{newline}}b\n", kMercurial, {{"s.msg", "a\nb"}}},
        {"no sections", "[s]\nk=v\n", kSettings, {{"k", "v"}}},
        {"CR line ends", "[s]\rk=v\rj=w", kMercurial, {{"s.k", "v"}, {"s.j", "w"}}},
        {"byte order mark", "\xEF\xBB\xBF[ui]\nk=v\n", kMercurial, {{"ui.k", "v"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        writeFile(dir.file("config"), c.text);
        EXPECT_EQ(allEntries(openConfig(dir.file("config"), c.flags)), c.expected);
    }
}

TEST(VNConfigFile, RecordsIncludesWithoutFollowingThem) {
    TempDir dir;
    writeFile(dir.file("other.rc"), "[ui]\nverbose = True\n");
    writeFile(dir.file("hgrc"), "%include other.rc\n[ui]\n%include  /etc/b.rc \nk=v\n");
    VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);
    EXPECT_EQ(config.includeFiles(), (std::vector<std::string>{"other.rc", "/etc/b.rc"}));
    EXPECT_EQ(allEntries(config), (Entries{{"ui.k", "v"}}));
}

TEST(VNConfigFile, SavesEditsIntoTheRightLines) {
    struct Case {
        const char* name;
        std::string original;
        std::function<void(VNConfigFile&)> edit;
        std::string expected;
    };
    const Case cases[] = {
        {"repeated section: rewrite where the key lives, add to the last block, remove all",
         "[ui]\nusername = a\neditor = vi\n[extensions]\nrebase =\n[ui]\neditor = emacs\n"
         "verbose = True\n\n# end\n",
         [](VNConfigFile& config) {
             config.setConfigValue("b", "username", "ui");
             config.setConfigValue("x", "merge", "ui");
             config.removeConfigValueForKey("editor", "ui");
         },
         "[ui]\nusername=b\n[extensions]\nrebase =\n[ui]\nverbose = True\nmerge=x\n\n# end\n"},
        {"duplicate key: the effective one is rewritten", "[ui]\neditor = vi\neditor = emacs\n",
         [](VNConfigFile& config) { config.setConfigValue("nano", "ui.editor"); },
         "[ui]\neditor = vi\neditor=nano\n"},
        {"malformed header stays and does not take new keys",
         "[ui]\nusername = a\n[broken\n[paths]\ndefault = x\n",
         [](VNConfigFile& config) {
             config.setConfigValue("y", "ui.merge");
             config.removeConfigValueForKey("paths.default");
         },
         "[ui]\nusername = a\nmerge=y\n[broken\n[paths]\n"},
        {"removing the last key leaves the header",
         "[paths]\ndefault = x\n\n[ui]\nverbose = True\n",
         [](VNConfigFile& config) { config.removeConfigValueForKey("verbose", "ui"); },
         "[paths]\ndefault = x\n\n[ui]\n"},
        {"removeSection removes the header and keeps comments",
         "[paths]\ndefault = x\n\n[extdiff]\n# graphical diff\ncmd.kdiff3 =\n"
         "opts.kdiff3 = --auto\n  --L1 base\n\n[ui]\nverbose = True\n",
         [](VNConfigFile& config) { config.removeSection("extdiff"); },
         "[paths]\ndefault = x\n\n# graphical diff\n\n[ui]\nverbose = True\n"},
        {"a removed section revived in the same run keeps its header",
         "[extdiff]\n# graphical diff\ncmd.kdiff3 =\n\n[ui]\nverbose = True\n",
         [](VNConfigFile& config) {
             config.removeSection("extdiff");
             config.setConfigValue("meld", "cmd.meld", "extdiff");
         },
         "[extdiff]\n# graphical diff\ncmd.meld=meld\n\n[ui]\nverbose = True\n"},
        {"removing a subsection leaves the plain section",
         "[remote]\nkeep = 1\n[remote \"origin\"]\nurl = u\n",
         [](VNConfigFile& config) { config.removeSection("remote{origin}"); },
         "[remote]\nkeep = 1\n"},
        {"rewriting drops the old continuation lines",
         "[ui]\nusername = a\n  b\n# note\n  c\nverbose = True\n",
         [](VNConfigFile& config) { config.setConfigValue("d", "ui.username"); },
         "[ui]\nusername=d\n# note\nverbose = True\n"},
        {"key before the first header", "# top\n[ui]\nk = v\n",
         [](VNConfigFile& config) { config.setConfigValue("1", ".early"); },
         "# top\nearly=1\n[ui]\nk = v\n"},
        {"key with a trailing comment is still found", "[ui]\nmerge = vimdiff # fast\n",
         [](VNConfigFile& config) { config.setConfigValue("meld", "ui.merge"); },
         "[ui]\nmerge=meld\n"},
        {"extensions rebuilt with deleteOthers",
         "[extensions]\nrebase =\ntransplant =\nmyext = ~/ext/myext.py\n[ui]\nk = v\n",
         [](VNConfigFile& config) {
             config.setConfigKeysAndValues({{"rebase", ""}, {"hgext.mq", ""}}, "extensions", true);
         },
         "[extensions]\nrebase =\nhgext.mq=\n[ui]\nk = v\n"},
        {"extensions added to without deleteOthers", "[extensions]\nrebase =\n",
         [](VNConfigFile& config) {
             config.setConfigKeysAndValues({{"rebase", ""}, {"hgext.mq", ""}}, "extensions", false);
         },
         "[extensions]\nrebase =\nhgext.mq=\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        writeFile(dir.file("hgrc"), c.original);
        VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);
        c.edit(config);
        ASSERT_TRUE(config.save());
        EXPECT_EQ(readFile(dir.file("hgrc")), c.expected);
    }
}

TEST(VNConfigFile, CreatesAMissingFileOnSave) {
    TempDir dir;
    VNConfigFile hgrc = openConfig(dir.file("hgrc_varnel"), kMercurial);
    EXPECT_FALSE(hgrc.alreadyExisted());
    EXPECT_TRUE(allEntries(hgrc).empty());
    hgrc.setConfigValue("True", "git", "diff");
    hgrc.setConfigValue("no", "commitsubrepos", "ui");
    hgrc.setConfigValue("!", "hgext.mq", "extensions");
    ASSERT_TRUE(hgrc.save());
    EXPECT_EQ(readFile(dir.file("hgrc_varnel")),
              "[diff]\ngit=True\n[ui]\ncommitsubrepos=no\n[extensions]\nhgext.mq=!\n");

    VNConfigFile settings = openConfig(dir.file("varnelconfig"), kSettings);
    settings.setConfigValue("1", "autorefresh");
    ASSERT_TRUE(settings.save());
    EXPECT_EQ(readFile(dir.file("varnelconfig")), "autorefresh=1\n");
}

TEST(VNConfigFile, AFailedWriteLeavesTheOldFileAndKeepsTheChanges) {
    TempDir dir;
    const std::string folder = dir.file("repo/.hg");
    const std::string hgrc = folder + "/hgrc";
    writeFile(hgrc, kHgrc);
    VNConfigFile config = openConfig(hgrc, kMercurial);
    config.setConfigValue("Jane <jane@example.com>", "ui.username");

    // The folder replaced by a regular file: no temporary file can be made beside the target.
    ASSERT_EQ(std::rename(folder.c_str(), dir.file("moved").c_str()), 0);
    writeFile(folder, "not a folder\n");
    EXPECT_FALSE(config.save());
    ASSERT_EQ(std::remove(folder.c_str()), 0);
    ASSERT_EQ(std::rename(dir.file("moved").c_str(), folder.c_str()), 0);
    EXPECT_EQ(readFile(hgrc), kHgrc);

    // A directory in the way of the target cannot be replaced, and nothing is left behind.
    const std::string blocked = dir.file("blocked");
    ASSERT_TRUE(vn::fs::makeDirectories(blocked));
    EXPECT_FALSE(config.saveAs(blocked));
    EXPECT_TRUE(vn::fs::isDirectory(blocked));
    EXPECT_TRUE(std::filesystem::is_empty(blocked));
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        (void)entry;
        ++count;
    }
    EXPECT_EQ(count, 2u);  // "repo" and "blocked"

    EXPECT_EQ(config.filename(), hgrc);
    ASSERT_TRUE(config.save());
    EXPECT_EQ(openConfig(hgrc, kMercurial).getConfigValueForKey("ui.username"),
              "Jane <jane@example.com>");
}

TEST(VNConfigFile, DoesNotOverwriteWhatItCannotRead) {
    TempDir dir;
    ASSERT_TRUE(vn::fs::makeDirectories(dir.file("hgrc")));
    writeFile(dir.file("hgrc/inside"), "x\n");
    VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);
    EXPECT_FALSE(config.alreadyExisted());
    config.setConfigValue("v", "ui.k");
    EXPECT_FALSE(config.save());
    EXPECT_EQ(readFile(dir.file("hgrc/inside")), "x\n");
}

TEST(VNConfigFile, SavingKeepsALinkAndThePermissions) {
    TempDir dir;
    writeFile(dir.file("dotfiles/hgrc"), kHgrc);
    ASSERT_EQ(::chmod(dir.file("dotfiles/hgrc").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("dotfiles/hgrc", dir.file(".hgrc").c_str()), 0);

    VNConfigFile config = openConfig(dir.file(".hgrc"), kMercurial);
    config.setConfigValue("no", "ui.verbose");
    ASSERT_TRUE(config.save());

    EXPECT_TRUE(std::filesystem::is_symlink(dir.file(".hgrc")));
    struct stat st;
    ASSERT_EQ(::stat(dir.file("dotfiles/hgrc").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(openConfig(dir.file("dotfiles/hgrc"), kMercurial).getConfigValueForKey("ui.verbose"),
              "no");
}

TEST(VNConfigFile, SaveAsWritesTheEditedFileElsewhere) {
    TempDir dir;
    writeFile(dir.file("hgrc"), kHgrc);
    VNConfigFile config = openConfig(dir.file("hgrc"), kMercurial);
    config.setConfigValue("False", "ui.verbose");
    ASSERT_TRUE(config.saveAs(dir.file("copy")));
    EXPECT_EQ(readFile(dir.file("hgrc")), kHgrc);

    std::string expected = kHgrc;
    expected.replace(expected.find("verbose = True"), 14, "verbose=False");
    EXPECT_EQ(readFile(dir.file("copy")), expected);
    EXPECT_EQ(config.filename(), dir.file("copy"));
}

}  // namespace
