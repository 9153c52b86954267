// Encodings, permissions, links, git's syntax, edits that must not change what other lines mean,
// and very large files.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <random>

#include "handler/VNTask.h"
#include "model/VNConfigFile.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::readFile;
using vn::test::TempDir;
using vn::test::writeFile;
using Entries = std::map<std::string, std::string>;

constexpr std::string_view kBOM = "\xEF\xBB\xBF";

VNConfigFile hgrcAt(const std::string& path) {
    return VNConfigFile(path, true, true, true);
}

VNConfigFile gitFileAt(const std::string& path) {
    return VNConfigFile(path, true, false, true);
}

Entries allEntries(const VNConfigFile& config) {
    return config.matchConfigEntriesForKeyPattern("(?s).*");
}

// UTF-16 of ASCII text, written out by hand so that the expectation does not come from the code
// under test.
std::string utf16(std::string_view ascii, bool bigEndian) {
    std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (char c : ascii) {
        out += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    }
    return out;
}

unsigned modeOf(const std::string& path) {
    struct stat st;
    EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
    return st.st_mode & 07777;
}

class Umask {
  public:
    explicit Umask(mode_t mask) : old_(::umask(mask)) {}
    ~Umask() { ::umask(old_); }

  private:
    mode_t old_;
};

struct EditCase {
    const char* name;
    std::string original;
    std::function<void(VNConfigFile&)> edit;
    std::string expected;
};

// Applies the edit, checks the whole file, and checks that a reload reads what the object holds.
void runEditCases(const std::vector<EditCase>& cases, const std::string& fileName,
                  const std::function<VNConfigFile(const std::string&)>& open) {
    for (const EditCase& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const std::string path = dir.file(fileName);
        writeFile(path, c.original);
        VNConfigFile config = open(path);
        c.edit(config);
        ASSERT_TRUE(config.save());
        EXPECT_EQ(readFile(path), c.expected);
        EXPECT_EQ(allEntries(open(path)), allEntries(config));
    }
}

TEST(VNConfigFileEdit, DetectsTheEncodingAndWritesBackInIt) {
    const std::vector<EditCase> cases = {
        {"UTF-8 byte order mark kept when the first line changes",
         std::string(kBOM) + "name = old\n[ui]\nk = v\n",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("new", ".name")); },
         std::string(kBOM) + "name=new\n[ui]\nk = v\n"},
        {"key inserted before the first section goes after the byte order mark",
         std::string(kBOM) + "[ui]\nk = v\n",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("1", "early")); },
         std::string(kBOM) + "early=1\n[ui]\nk = v\n"},
        {"byte order mark kept when the first line is removed", std::string(kBOM) + "[ui]\nk = v\n",
         [](VNConfigFile& config) { config.removeSection("ui"); }, std::string(kBOM)},
        {"UTF-16LE", utf16("[ui]\r\nusername = a\r\n", false),
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("b", "ui.username")); },
         utf16("[ui]\r\nusername=b\r\n", false)},
        {"UTF-16BE with a new section", utf16("[ui]\nk = v\n", true),
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("True", "diff.git")); },
         utf16("[ui]\nk = v\n[diff]\ngit=True\n", true)},
        {"UTF-16 non-ASCII value", utf16("[ui]\n", false),
         [](VNConfigFile& config) {
             EXPECT_TRUE(config.setConfigValue("\xC3\xA9\xF0\x9F\x98\x80", "ui.n"));
         },
         utf16("[ui]\nn=", false) + std::string("\xE9\x00\x3D\xD8\x00\xDE\n\x00", 8)},
        {"Latin-1 value written in Latin-1",
         "# Gr\xFC\xDF"
         "e\n[ui]\nusername = J\xF6rg\n",
         [](VNConfigFile& config) {
             EXPECT_EQ(config.getConfigValueForKey("ui.username"), "J\xC3\xB6rg");
             EXPECT_TRUE(config.setConfigValue("Zo\xC3\xAB", "ui.username"));
         },
         "# Gr\xFC\xDF"
         "e\n[ui]\nusername=Zo\xEB\n"},
        {"Windows-1252 euro sign", "[ui]\nprice = 5 \x80\nname = \xE9t\xE9\n",
         [](VNConfigFile& config) {
             EXPECT_EQ(config.getConfigValueForKey("ui.price"), "5 \xE2\x82\xAC");
             EXPECT_TRUE(config.setConfigValue("\xE2\x82\xAC 6", "ui.price"));
         },
         "[ui]\nprice=\x80 6\nname = \xE9t\xE9\n"},
        {"a character Latin-1 lacks converts the file to UTF-8",
         "# Gr\xFC\xDF"
         "e\n[ui]\nusername = J\xF6rg\n",
         [](VNConfigFile& config) {
             EXPECT_TRUE(config.setConfigValue("\xE5\xB1\xB1\xE7\x94\xB0", "ui.username"));
         },
         "# Gr\xC3\xBC\xC3\x9F"
         "e\n[ui]\nusername=\xE5\xB1\xB1\xE7\x94\xB0\n"},
        // Without the line that made it Latin-1 the bytes would read as UTF-8 ("Ã©" as "é").
        {"a single-byte file that would read as UTF-8 after the edit is converted",
         "[a]\nx = \xC3\xA9\ny = \xFF\n", [](VNConfigFile& config) { config.removeSection("a"); },
         ""},
        {"same, one key left", "[a]\nx = \xC3\xA9\ny = \xFF\n",
         [](VNConfigFile& config) { config.removeConfigValueForKey("a.y"); },
         "[a]\nx = \xC3\x83\xC2\xA9\n"},
        {"UTF-8 byte order mark before Windows-1252 text",
         std::string(kBOM) + "[ui]\nname = \xE9\n",
         [](VNConfigFile& config) {
             EXPECT_EQ(config.getConfigValueForKey("ui.name"), "\xC3\xA9");
             EXPECT_TRUE(config.setConfigValue("\xC3\xA8", "ui.other"));
         },
         std::string(kBOM) + "[ui]\nname = \xE9\nother=\xE8\n"},
        {"byte order mark in the middle is not part of a header",
         "[a]\nk = 1\n" + std::string(kBOM) + "[b]\nk = 2\n",
         [](VNConfigFile& config) {
             EXPECT_EQ(config.getConfigValueForKey("b.k"), "2");
             EXPECT_EQ(config.getConfigValueForKey("a.k"), "1");
             EXPECT_TRUE(config.setConfigValue("3", "b.j"));
         },
         "[a]\nk = 1\n" + std::string(kBOM) + "[b]\nk = 2\nj=3\n"},
    };
    runEditCases(cases, "hgrc", hgrcAt);

    TempDir dir;
    writeFile(dir.file("hgrc"), utf16("[ui]\n", true));
    EXPECT_EQ(hgrcAt(dir.file("hgrc")).fileEncoding(), vn::FileEncoding::UTF16BE);
    writeFile(dir.file("hgrc"), "[ui]\nname = \xE9\n");
    EXPECT_EQ(hgrcAt(dir.file("hgrc")).fileEncoding(), vn::FileEncoding::Windows1252);
    writeFile(dir.file("hgrc"), "\xFF\xFE[");  // an odd number of bytes is no UTF-16
    EXPECT_EQ(hgrcAt(dir.file("hgrc")).fileEncoding(), vn::FileEncoding::Windows1252);
}

// Whatever the bytes, decoding and encoding in the detected form gives them back, so that lines a
// save does not touch keep their bytes.
TEST(VNConfigFileEdit, FileEncodingsRoundTripAnyBytes) {
    std::mt19937 random(16);
    const std::vector<std::string> prefixes = {"", std::string(kBOM), "\xFF\xFE", "\xFE\xFF"};
    for (int round = 0; round < 2000; ++round) {
        std::string bytes = prefixes[round % prefixes.size()];
        const std::size_t length = random() % 24;
        for (std::size_t i = 0; i < length; ++i) {
            // Mostly ASCII and NUL, so that UTF-8 and UTF-16 readings both come up.
            const unsigned pick = random() % 8;
            bytes += static_cast<char>(pick < 3 ? 'a' + pick : pick < 5 ? 0 : random() % 256);
        }
        SCOPED_TRACE(testing::PrintToString(bytes));
        const vn::DecodedTextFile file = vn::decodeTextFile(bytes);
        EXPECT_TRUE(vn::isValidUTF8(file.text));
        EXPECT_EQ(vn::encodeTextFile(file.text, file.encoding, file.byteOrderMark), bytes);
    }
    EXPECT_EQ(vn::encodeTextFile("\xE5\xB1\xB1", vn::FileEncoding::Windows1252, false),
              std::nullopt);
    EXPECT_EQ(vn::encodeTextFile("\xFF", vn::FileEncoding::UTF8, false), std::nullopt);
    EXPECT_EQ(vn::encodeTextFile("\xF0\x9F\x98\x80", vn::FileEncoding::UTF16BE, true),
              std::string("\xFE\xFF\xD8\x3D\xDE\x00", 6));
}

TEST(VNConfigFileEdit, NewFilesFollowTheUmaskAndCredentialFilesArePrivate) {
    struct Case {
        const char* name;
        mode_t umask;
        std::string file;
        bool markedPrivate;
        unsigned expected;
    };
    const Case cases[] = {
        {"settings, umask 022", 022, "varnelconfig", false, 0644},
        {"settings, umask 077", 077, "varnelconfig", false, 0600},
        {"settings, umask 002", 002, "varnelconfig", false, 0664},
        {"hgrc, umask 022", 022, "repo/.hg/hgrc", false, 0600},
        {"hgrc, umask 077", 077, "repo/.hg/hgrc", false, 0600},
        {"home hgrc", 022, ".hgrc", false, 0600},
        {"program hgrc", 022, "hgrc_varnel", false, 0600},
        {"git config", 022, "repo/.git/config", false, 0600},
        {"marked by the caller", 022, "accounts.ini", true, 0600},
        {"gitmodules", 022, "repo/.gitmodules", false, 0644},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        std::filesystem::create_directories(std::filesystem::path(dir.file(c.file)).parent_path());
        Umask umask(c.umask);
        VNConfigFile::Options options;
        options.holdsCredentials = c.markedPrivate;
        VNConfigFile config(dir.file(c.file), options);
        ASSERT_TRUE(config.setConfigValue("v", "s.k"));
        ASSERT_TRUE(config.save());
        EXPECT_EQ(modeOf(dir.file(c.file)), c.expected);
    }

    // An existing file keeps its mode whatever the umask and the name.
    for (unsigned mode : {0640u, 0604u, 0600u, 0755u}) {
        SCOPED_TRACE(mode);
        TempDir dir;
        writeFile(dir.file("hgrc"), "[ui]\nk = v\n");
        ASSERT_EQ(::chmod(dir.file("hgrc").c_str(), mode), 0);
        Umask umask(077);
        VNConfigFile config = hgrcAt(dir.file("hgrc"));
        ASSERT_TRUE(config.setConfigValue("w", "ui.k"));
        ASSERT_TRUE(config.save());
        EXPECT_EQ(modeOf(dir.file("hgrc")), mode);
    }
}

TEST(VNConfigFileEdit, WritesThroughSymbolicLinks) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, std::string>> links;  // link, target
        std::string written;                                     // the file that gets the text
    };
    const Case cases[] = {
        {"dangling link", {{".hgrc", "dotfiles/hgrc"}}, "dotfiles/hgrc"},
        {"dangling absolute link", {{".hgrc", "@/dotfiles/hgrc"}}, "dotfiles/hgrc"},
        {"chain of links ending nowhere",
         {{".hgrc", "dotfiles/hgrc"}, {"dotfiles/hgrc", "../store/hgrc"}},
         "store/hgrc"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        for (const char* folder : {"dotfiles", "store"}) {
            ASSERT_TRUE(std::filesystem::create_directory(dir.file(folder)));
        }
        for (auto [link, target] : c.links) {
            if (target.starts_with('@')) {
                target = dir.path() + target.substr(1);
            }
            ASSERT_EQ(::symlink(target.c_str(), dir.file(link).c_str()), 0);
        }
        Umask umask(022);
        VNConfigFile config = hgrcAt(dir.file(".hgrc"));
        EXPECT_FALSE(config.alreadyExisted());
        ASSERT_TRUE(config.setConfigValue("Jane", "ui.username"));
        ASSERT_TRUE(config.save());
        for (const auto& link : c.links) {
            EXPECT_TRUE(std::filesystem::is_symlink(dir.file(link.first))) << link.first;
        }
        EXPECT_EQ(readFile(dir.file(c.written)), "[ui]\nusername=Jane\n");
        EXPECT_EQ(modeOf(dir.file(c.written)), 0600u);
    }

    // A loop of links is refused, and the links stay.
    TempDir dir;
    ASSERT_EQ(::symlink("b", dir.file("a").c_str()), 0);
    ASSERT_EQ(::symlink("a", dir.file("b").c_str()), 0);
    VNConfigFile config = hgrcAt(dir.file("a"));
    ASSERT_TRUE(config.setConfigValue("v", "s.k"));
    EXPECT_FALSE(config.save());
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("a")));
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("b")));
}

// What git itself reads from the file for `key` ("section.subsection.name").
std::optional<std::string> gitReads(const std::string& file, const std::string& key) {
    auto task = vn::test::runProgram(std::filesystem::path(file).parent_path(), "git",
                                     {"config", "-f", file, "--get", key});
    if (!task->success()) {
        ADD_FAILURE() << "git config --get " << key << ": " << task->errorOutput() << "\n"
                      << readFile(file);
        return std::nullopt;
    }
    std::string out = task->output();
    if (out.ends_with('\n')) {
        out.pop_back();
    }
    return out;
}

TEST(VNConfigFileEdit, GitReadsBackTheSubsectionsAndValuesSet) {
    struct Case {
        const char* name;
        std::string subsection;
        std::string value;
    };
    const Case cases[] = {
        {"plain", "lib", "https://example.org/lib.git"},
        {"closing brace", "odd}name", "u"},
        {"brackets", "a]b[c", "u"},
        {"quotes", "say \"hi\"", "\"quoted\" value"},
        {"backslashes", "back\\slash\\", "C:\\path\\to\\"},
        {"comment characters", "a#b;c", "x # not a comment ; really"},
        {"blanks at the ends", " padded ", "  two spaces either side  "},
        {"tabs and newlines", "t\tab", "line one\nline two\ttabbed"},
        {"backspace and control bytes", "ctl", std::string("a\bb\x01\x1f") + "\x7f"},
        {"point and braces", "a.b}.c{d}", "{{newline}}"},
        {"unicode", "\xE6\x97\xA5\xE6\x9C\xAC", "\xC3\xA9t\xC3\xA9"},
        {"empty value", "empty", ""},
        {"carriage return inside", "cr", "a\rb"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const std::string path = dir.file(".gitmodules");
        writeFile(path, "[core]\n\tbare = false\n");
        VNConfigFile config = gitFileAt(path);
        ASSERT_EQ(config.syntax(), VNConfigFile::Syntax::Git);
        const std::string section = "submodule{" + c.subsection + "}";
        ASSERT_TRUE(config.setConfigValue(c.value, "url", section));
        ASSERT_TRUE(config.setConfigValue("p", "path", section));
        ASSERT_TRUE(config.save());

        const std::string text = readFile(path);
        EXPECT_TRUE(text.starts_with("[core]\n\tbare = false\n[submodule \"")) << text;
        EXPECT_EQ(gitReads(path, "submodule." + c.subsection + ".url"), c.value);
        EXPECT_EQ(gitReads(path, "submodule." + c.subsection + ".path"), "p");
        EXPECT_EQ(gitReads(path, "core.bare"), "false");
        VNConfigFile reloaded = gitFileAt(path);
        EXPECT_EQ(reloaded.getConfigValueForKey("url", section), c.value);
        EXPECT_EQ(reloaded.getNamesOfSection("submodule"), std::set<std::string>{c.subsection});

        // Rewriting the existing line rather than adding one.
        ASSERT_TRUE(reloaded.setConfigValue(c.value + "#2", "url", section));
        ASSERT_TRUE(reloaded.save());
        EXPECT_EQ(gitReads(path, "submodule." + c.subsection + ".url"), c.value + "#2");
        EXPECT_EQ(gitFileAt(path).getConfigValueForKey("url", section), c.value + "#2");
    }

    TempDir dir;
    writeFile(dir.file(".gitmodules"), "");
    VNConfigFile config = gitFileAt(dir.file(".gitmodules"));
    ASSERT_TRUE(config.setConfigValue("u", "url", "submodule{odd}name}"));
    ASSERT_TRUE(config.setConfigValue("a \"b\" c\\", "path", "submodule{odd}name}"));
    ASSERT_TRUE(config.save());
    EXPECT_EQ(readFile(dir.file(".gitmodules")),
              "[submodule \"odd}name\"]\nurl=u\npath=a \\\"b\\\" c\\\\\n");
}

TEST(VNConfigFileEdit, ReadsWhatGitWrote) {
    const std::vector<std::pair<std::string, std::string>> values = {
        {"submodule.a b.url", "https://example.org/a b.git"},
        {"submodule.odd}name.url", "u"},
        {"submodule.q\"uote\\d.path", "\\\"both\\\""},
        {"submodule.x.branch", " lead and trail "},
        {"submodule.x.note", "a # b ; c"},
        {"submodule.x.multi", "one\ntwo\tthree"},
        {"remote.origin.url", "ssh://h/r.git"},
    };
    TempDir dir;
    const std::string path = dir.file(".gitmodules");
    writeFile(path, "");
    for (const auto& [key, value] : values) {
        auto task = vn::test::runProgram(dir.path(), "git", {"config", "-f", path, key, value});
        ASSERT_TRUE(task->success()) << task->errorOutput();
    }
    VNConfigFile config = gitFileAt(path);
    for (const auto& [key, value] : values) {
        SCOPED_TRACE(key);
        std::size_t first = key.find('.');
        std::size_t last = key.rfind('.');
        std::string fullKey = first == last ? key
                                            : key.substr(0, first) + "{" +
                                                  key.substr(first + 1, last - first - 1) + "}" +
                                                  key.substr(last);
        EXPECT_EQ(config.getConfigValueForKey(fullKey), value);
    }

    // Lines continued by a backslash, comments after values, a name without a value.
    writeFile(path,
              "[s]\n\tk = \"a\\\n  b\"  c ; comment\n\tw = x\\\n\ty\n\tflag\n\tq = \"#\" # c\r\n");
    VNConfigFile continued = gitFileAt(path);
    EXPECT_EQ(allEntries(continued),
              (Entries{{"s.k", "a  b  c"}, {"s.w", "x y"}, {"s.flag", ""}, {"s.q", "#"}}));
    for (const auto& [key, value] : allEntries(continued)) {
        EXPECT_EQ(gitReads(path, key), value) << key;
    }
    // Editing the continued value replaces all its lines.
    ASSERT_TRUE(continued.setConfigValue("z", "s.k"));
    ASSERT_TRUE(continued.save());
    EXPECT_EQ(readFile(path), "[s]\nk=z\n\tw = x\\\n\ty\n\tflag\n\tq = \"#\" # c\r\n");

    // git reads on after a header's "]"; a lone carriage return is a blank to git, not a line end.
    writeFile(path, "[a] x = 1\n[b][c]\ty = 2 ; c\n[d]\rz = 3\n");
    VNConfigFile sameLine = gitFileAt(path);
    EXPECT_EQ(allEntries(sameLine), (Entries{{"a.x", "1"}, {"c.y", "2"}, {"d.z", "3"}}));
    for (const auto& [key, value] : allEntries(sameLine)) {
        EXPECT_EQ(gitReads(path, key), value) << key;
    }
    ASSERT_TRUE(sameLine.setConfigValue("4", "a.x"));
    ASSERT_TRUE(sameLine.setConfigValue("5", "d.w"));
    sameLine.removeSection("c");
    ASSERT_TRUE(sameLine.save());
    EXPECT_EQ(readFile(path), "[a]\nx=4\n[b][d]\rz = 3\nw=5\n");
    EXPECT_EQ(gitReads(path, "a.x"), "4");
    EXPECT_EQ(gitReads(path, "d.w"), "5");
    EXPECT_EQ(allEntries(gitFileAt(path)), (Entries{{"a.x", "4"}, {"d.z", "3"}, {"d.w", "5"}}));
}

TEST(VNConfigFileEdit, RefusesWhatTheSyntaxCannotHold) {
    struct Case {
        const char* name;
        bool git;
        std::string key;
        std::string value;
    };
    const Case cases[] = {
        {"plain: comment character", false, "ui.k", "a # b"},
        {"plain: blank at the end", false, "ui.k", "a "},
        {"plain: carriage return", false, "ui.k", "a\rb"},
        {"plain: newline token", false, "ui.k", "{{newline}}"},
        {"plain: key with =", false, "ui.a=b", "v"},
        {"plain: key that is an include", false, ".%include x", "v"},
        {"plain: key starting a header", false, ".[x", "v"},
        {"plain: empty key", false, "ui.", "v"},
        {"plain: subsection with a newline", false, "s{a\nb}.k", "v"},
        {"not UTF-8", false, "ui.k", "\xFF"},
        {"git: key with a blank", true, "s.a b", "v"},
        {"git: key starting with a digit", true, "s.1k", "v"},
        {"git: section with a blank", true, "a b.k", "v"},
        {"git: NUL in a value", true, "s.k", std::string("a\0b", 3)},
        {"git: newline in a subsection", true, "s{a\nb}.k", "v"},
        {"git: no section", true, "k", "v"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const std::string original = "[ui]\nk = v\n";
        const std::string path = dir.file(c.git ? ".gitmodules" : "hgrc");
        writeFile(path, original);
        VNConfigFile config = c.git ? gitFileAt(path) : hgrcAt(path);
        const Entries before = allEntries(config);
        EXPECT_FALSE(config.setConfigValue(c.value, c.key));
        EXPECT_EQ(allEntries(config), before);
        ASSERT_TRUE(config.save());
        EXPECT_EQ(readFile(path), original);
    }
}

TEST(VNConfigFileEdit, AnEditNeverChangesWhatOtherLinesMean) {
    const std::vector<EditCase> cases = {
        {"removed header takes its orphaned indented lines along",
         "[a]\nx = 1\n[b]\n  stray\n# note\n  more\ny = 2\n[c]\nz = 3\n",
         [](VNConfigFile& config) { config.removeSection("b"); },
         "[a]\nx = 1\n# note\n[c]\nz = 3\n"},
        {"new entry goes below indented lines that continue nothing",
         "[a]\n  stray\n%include other.rc\n  more\n[b]\nk = v\n",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("1", "a.new")); },
         "[a]\n  stray\n%include other.rc\n  more\nnew=1\n[b]\nk = v\n"},
        {"new entry after a continued value stays out of it",
         "[ui]\nusername = a\n  b\n# c\n  d\n\n[x]\n",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("True", "ui.verbose")); },
         "[ui]\nusername = a\n  b\n# c\n  d\nverbose=True\n\n[x]\n"},
        {"removed entry takes its continuation lines along",
         "[ui]\nusername = a\n  b\nverbose = True\n  x\n",
         [](VNConfigFile& config) { config.removeConfigValueForKey("ui.username"); },
         "[ui]\nverbose = True\n  x\n"},
        {"entry before the first header stays out of the header", "  stray\n[ui]\nk = v\n",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("1", "top")); },
         "  stray\ntop=1\n[ui]\nk = v\n"},
        {"set without a section revives a removed section", "[a]\nx = 1\n[b]\ny = 2\n",
         [](VNConfigFile& config) {
             config.removeSection("b");
             EXPECT_TRUE(config.setConfigValue("3", "b.z"));
         },
         "[a]\nx = 1\n[b]\nz=3\n"},
        {"value without a final newline", "[a]\nx = 1",
         [](VNConfigFile& config) {
             EXPECT_TRUE(config.setConfigValue("2", "a.y"));
             EXPECT_TRUE(config.setConfigValue("3", "b.z"));
         },
         "[a]\nx = 1\ny=2\n[b]\nz=3\n"},
        {"new sections keep their own keys together", "",
         [](VNConfigFile& config) {
             EXPECT_TRUE(config.setConfigValue("1", "a.x"));
             EXPECT_TRUE(config.setConfigValue("2", "b.y"));
             EXPECT_TRUE(config.setConfigValue("3", "a.z"));
         },
         "[a]\nx=1\nz=3\n[b]\ny=2\n"},
        {"longer key with the same prefix is not confused", "[s]\nkey2 = a\nkey = b\n",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("c", "s.key")); },
         "[s]\nkey2 = a\nkey=c\n"},
    };
    runEditCases(cases, "hgrc", hgrcAt);

    const std::vector<EditCase> gitCases = {
        {"git: a value ending in a backslash at the end of the file", "[a]\n\tx = 1\\",
         [](VNConfigFile& config) { EXPECT_TRUE(config.setConfigValue("2", "a.y")); },
         "[a]\n\tx = 1\\\n\ny=2\n"},
        // git refuses the quoted value that runs on over "st = b"; that line is not an entry, and
        // removing the first "st" must not let the refused value run on over the line after it.
        {"git: a refused value keeps the lines it ran over",
         "[a]\n\tst = a\n\tm = \"x\\\n\tst = b\n\tc = 1\n\tz = 2\"\n",
         [](VNConfigFile& config) {
             EXPECT_EQ(config.getConfigValueForKey("a.st"), "a");
             EXPECT_EQ(config.getConfigValueForKey("a.c"), "1");
             config.removeConfigValueForKey("a.st");
         },
         "[a]\n\tm = \"x\\\n\tst = b\n\tc = 1\n\tz = 2\"\n"},
        {"git: remove a subsection", "[remote \"o\"]\n\turl = u\n[core]\n\tbare = false\n",
         [](VNConfigFile& config) { config.removeSection("remote{o}"); },
         "[core]\n\tbare = false\n"},
    };
    runEditCases(gitCases, ".gitmodules", gitFileAt);
}

TEST(VNConfigFileEdit, Handles10MegabytesOfEmptyLines) {
    TempDir dir;
    const std::string path = dir.file("blank");
    const std::string blank(10 * 1024 * 1024, '\n');
    writeFile(path, blank + "[s]\nk = v\n");
    VNConfigFile config = hgrcAt(path);
    EXPECT_EQ(config.getConfigKeysAndValuesWithSection("s"), (Entries{{"k", "v"}}));
    ASSERT_TRUE(config.setConfigValue("w", "s.k"));
    ASSERT_TRUE(config.save());
    EXPECT_TRUE(readFile(path) == blank + "[s]\nk=w\n");
}

TEST(VNConfigFileEdit, Removes100000KeysInOneSave) {
    TempDir dir;
    const std::string path = dir.file("many");
    std::string text = "[keep]\na = 1\n[s]\n";
    for (int i = 0; i < 100000; ++i) {
        text += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    }
    writeFile(path, text);
    VNConfigFile config = hgrcAt(path);
    ASSERT_EQ(config.getConfigValueForKey("s.key99999"), "value 99999");
    for (int i = 0; i < 100000; ++i) {
        config.removeConfigValueForKey("key" + std::to_string(i), "s");
    }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(config.setConfigValue("v", "k" + std::to_string(i), "t"));
    }
    ASSERT_TRUE(config.save());
    VNConfigFile reloaded = hgrcAt(path);
    EXPECT_TRUE(reloaded.getConfigKeysAndValuesWithSection("s").empty());
    EXPECT_EQ(reloaded.getConfigKeysAndValuesWithSection("t").size(), 1000u);
    EXPECT_EQ(reloaded.getConfigValueForKey("keep.a"), "1");
    EXPECT_TRUE(readFile(path).starts_with("[keep]\na = 1\n[s]\n[t]\nk0=v\nk1=v\n"));
}

// Random edits on real-shaped files; after every save a reload must give exactly what the object
// holds, and a second object that saw no edits must see the changes and nothing else.
TEST(VNConfigFileEdit, RandomEditsReadBackExactly) {
    const std::vector<std::pair<std::string, std::string>> files = {
        {"hgrc",
         "# settings\n%include ~/.hgrc.d/x\n[paths]\ndefault = https://h/p\n[ui]\n"
         "username = Jane\n  <j@x>\n  stray\nmerge = kdiff3 # fast\n[extensions]\nrebase =\n"
         "[ui]\nverbose = True\n"},
        {".gitmodules",
         "[submodule \"a b\"]\n\tpath = a b\n\turl = \"x # y\"\n[core]\n\tk = a\\\n\tb\n"},
        {"varnelconfig", "a=1\nb={{newline}}x\n#c=2\n"},
    };
    const std::vector<std::string> keys = {
        "paths.default",       "ui.username", "ui.merge", "ui.new", "new.key", "submodule{a b}.url",
        "submodule{o}n}.path", "core.k",      ".top",     "a",      "b",       "c"};
    const std::vector<std::string> values = {"",      "x",           "two words", "a#b",
                                             " pad ", "line\nbreak", "q\"uo\\te", "\xC3\xA9",
                                             "t\tab", "{{newline}}"};
    std::mt19937 random(20261122);
    for (const auto& [name, text] : files) {
        for (int round = 0; round < 30; ++round) {
            SCOPED_TRACE(name + " round " + std::to_string(round));
            TempDir dir;
            const std::string path = dir.file(name);
            writeFile(path, text);
            const bool sections = name != "varnelconfig";
            const bool continues = name == "hgrc";
            VNConfigFile config(path, sections, continues, sections);
            const Entries original = allEntries(config);
            std::map<std::string, std::optional<std::string>> changes;
            for (int step = 0; step < 6; ++step) {
                const std::string& key = keys[random() % keys.size()];
                switch (random() % 4) {
                    case 0:
                    case 1: {
                        const std::string& value = values[random() % values.size()];
                        if (config.setConfigValue(value, key)) {
                            changes[key] = value;
                        }
                        break;
                    }
                    case 2:
                        config.removeConfigValueForKey(key);
                        changes[key] = std::nullopt;
                        break;
                    default: {
                        std::string section = key.substr(0, key.find_first_of(".{"));
                        config.removeSection(section);
                        for (const auto& entry : original) {
                            if (entry.first.starts_with(section + ".")) {
                                changes[entry.first] = std::nullopt;
                            }
                        }
                        for (auto& [changed, value] : changes) {
                            if (changed.starts_with(section + ".")) {
                                value = std::nullopt;
                            }
                        }
                    }
                }
            }
            ASSERT_TRUE(config.save());
            Entries expected = original;
            for (const auto& [key, value] : changes) {
                std::string fullKey =
                    sections && key.find_first_of(".{") == std::string::npos ? "." + key : key;
                if (value) {
                    expected[fullKey] = *value;
                } else {
                    expected.erase(fullKey);
                }
            }
            EXPECT_EQ(allEntries(config), expected);
            EXPECT_EQ(allEntries(VNConfigFile(path, sections, continues, sections)), expected)
                << readFile(path);
        }
    }
}

}  // namespace
