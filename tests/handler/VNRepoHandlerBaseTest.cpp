#include "handler/VNRepoHandlerBase.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <set>

#include "base/Regex.h"
#include "handler/VNTemplateDocument.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Preferences.h"
#include "support/TestEnvironment.h"

namespace {

using vn::test::TempDir;

// Records internal assertions instead of stopping, for the length of a test.
struct AssertionRecorder {
    AssertionRecorder() {
        previous =
            vn::setAssertionHandler([this](std::string_view text) { texts.emplace_back(text); });
    }
    ~AssertionRecorder() { vn::setAssertionHandler(previous); }
    std::vector<std::string> texts;
    vn::AssertionHandler previous;
};

// Sets an environment variable for the length of a test.
struct ScopedEnv {
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
        }
        ::setenv(name, value.c_str(), 1);
        ::tzset();
    }
    ~ScopedEnv() {
        if (old_) {
            ::setenv(name_, old_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
        ::tzset();
    }
    const char* name_;
    std::optional<std::string> old_;
};

std::vector<std::string> batchSizesOf(const VNTaskList& tasks, std::size_t baseCount) {
    std::vector<std::string> sizes;
    for (const auto& task : tasks) {
        sizes.push_back(std::to_string(task->args().size() - baseCount));
    }
    return sizes;
}

TEST(VNRepoHandlerBaseSplitting, SpreadsLongFileListsOverSeveralCommands) {
    struct Case {
        const char* name;
        std::vector<std::string> files;
        std::vector<std::string> expectedBatches;
    };
    std::vector<std::string> fiveThousandShort;
    for (int i = 0; i < 5000; ++i) {
        fiveThousandShort.push_back("f" + std::to_string(i));
    }
    std::vector<std::string> exactlyTheFileLimit(fiveThousandShort.begin(),
                                                 fiveThousandShort.begin() + 3997);
    std::vector<std::string> longPaths(200, std::string(1000, 'p'));
    // Two-byte letters: the budget counts bytes, which is what the system limits.
    std::vector<std::string> multiBytePaths(100, [] {
        std::string s;
        for (int i = 0; i < 1000; ++i) {
            s += "\xC3\xA9";
        }
        return s;
    }());
    const std::vector<Case> cases = {
        {"5000 short paths", fiveThousandShort, {"3997", "1003"}},
        {"200 paths of 1000 characters", longPaths, {"127", "73"}},
        {"exactly the file limit", exactlyTheFileLimit, {"3997"}},
        {"a path that uses up the whole budget", {std::string(128000, 'x'), "a"}, {"1", "1"}},
        {"multi-byte paths count their bytes", multiBytePaths, {"63", "37"}},
        {"no files", {}, {}},
    };
    auto handler = std::make_shared<VNRepoHandlerBase>();
    const std::vector<std::string> baseArgs = {"add", "-f", "--"};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto tasks = handler->splitTaskIfRequired("/work/copy", baseArgs, "/usr/bin/git", c.files);
        EXPECT_EQ(batchSizesOf(tasks, baseArgs.size()), c.expectedBatches);
        // Every file lands in exactly one command, in order, after the base arguments.
        std::vector<std::string> placed;
        for (const auto& task : tasks) {
            EXPECT_EQ(task->command(), "/usr/bin/git");
            EXPECT_EQ(task->workingDir(), "/work/copy");
            ASSERT_GE(task->args().size(), baseArgs.size());
            EXPECT_TRUE(std::equal(baseArgs.begin(), baseArgs.end(), task->args().begin()));
            placed.insert(placed.end(), task->args().begin() + 3, task->args().end());
            EXPECT_FALSE(task->isRunning());
        }
        EXPECT_EQ(placed, c.files);
    }
}

TEST(VNRepoHandlerBaseSplitting, RangeStartsAtTheGivenIndexAndStopsAtAnOverlongPath) {
    std::vector<std::string> files = {"a", "b", std::string(128001, 'x'), "c"};
    VNRepoHandlerBase::FileRange range{1, 99};
    VNRepoHandlerBase::determineSingleCommandFileRange(files, range);
    EXPECT_EQ(range.location, 1u);
    EXPECT_EQ(range.length, 1u);
    range = {2, 0};
    VNRepoHandlerBase::determineSingleCommandFileRange(files, range);
    EXPECT_EQ(range.length, 0u) << "a path longer than the budget fits no command";

    // The split still ends, and the over-long path is not silently dropped: it runs alone, so
    // that its failure shows.
    auto handler = std::make_shared<VNRepoHandlerBase>();
    auto tasks = handler->splitTaskIfRequired("/w", {"rm"}, "/usr/bin/git", files);
    ASSERT_EQ(tasks.size(), 3u);
    EXPECT_EQ(tasks[0]->args(), (std::vector<std::string>{"rm", "a", "b"}));
    EXPECT_EQ(tasks[1]->args().size(), 2u);
    EXPECT_EQ(tasks[2]->args(), (std::vector<std::string>{"rm", "c"}));
}

TEST(VNRepoHandlerBaseIgnoreGlobs, BecomeExpressionsThatMatchPathsAsIntended) {
    struct Case {
        const char* glob;
        const char* pattern;
        std::vector<const char*> matching;
        std::vector<const char*> notMatching;
    };
    const std::vector<Case> cases = {
        {"*.o", ".*\\.o", {"main.o", "src/deep/util.o"}, {"main.c", "maino"}},
        {"build/**/x", "build/.*/x", {"build/a/x", "build/a/b/c/x", "src/build/a/x"}, {"build/x"}},
        {"a*b", "a[^/]*b", {"ab", "axxb", "dir/aqb"}, {"a/b", "a/x/b"}},
        {"**/tmp", ".*/tmp", {"x/tmp", "x/y/tmp/z"}, {"tmp"}},
        {"*", ".*", {"anything/at/all"}, {}},
        {"src/*/*.log", "src/[^/]*/[^/]*\\.log", {"src/a/b.log"}, {"src/a/b/c.log", "src/b.log"}},
        {"a**", "a.*", {"a/b/c"}, {"b"}},
        {"file?.txt", "file?\\.txt", {"fil.txt", "file.txt"}, {"filetxt"}},
        {"[ab].c", "[ab]\\.c", {"a.c", "x/b.c"}, {"c.c"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.glob);
        EXPECT_EQ(VNRepoHandlerBase::ignoreGlobToPattern(c.glob), std::string(c.pattern));
        auto regex = VNRepoHandlerBase::ignoreGlobToRegex(c.glob);
        ASSERT_TRUE(regex);
        for (const char* path : c.matching) {
            EXPECT_TRUE(regex->search(path)) << path;
        }
        for (const char* path : c.notMatching) {
            EXPECT_FALSE(regex->search(path)) << path;
        }
    }
    EXPECT_FALSE(VNRepoHandlerBase::ignoreGlobToPattern(""));
    EXPECT_FALSE(VNRepoHandlerBase::ignoreGlobToRegex(""));
    EXPECT_FALSE(VNRepoHandlerBase::ignoreGlobToRegex("[unclosed")) << "no valid expression";
}

std::time_t utcSeconds(int year, int month, int day, int hour, int minute, int second) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    return ::timegm(&fields);
}

TEST(VNRepoHandlerBaseDates, ReadAsLocalTimeWhateverTheOffset) {
    ScopedEnv zone("TZ", "UTC");
    const std::time_t expected = utcSeconds(2024, 3, 5, 14, 7, 9);
    for (const char* text :
         {"2024-03-05 14:07:09 +0100", "2024-03-05 14:07:09 -0800", "2024-03-05 14:07:09 +05:30",
          "2024-03-05 14:07:09 +0000", "2024-03-05 14:07:09 Z", " 2024-03-05 14:07:09 +0100\n",
          "2024-03-05 14:07:09"}) {
        SCOPED_TRACE(text);
        auto date = vn::dateFromToolDateString(text);
        ASSERT_TRUE(date);
        EXPECT_EQ(std::chrono::system_clock::to_time_t(*date), expected);
    }
    for (const char* text :
         {"", "garbage", "2024-13-05 14:07:09 +0100", "2024-03-05T14:07:09 +0100",
          "2024-03-05 14:07 +0100", "2024-03-05 14:07:09 +01x0", "2024-03-05 25:00:00 +0000",
          "2024-03-05 14:07:09+0100"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(vn::dateFromToolDateString(text));
    }
}

TEST(VNRepoHandlerBaseDates, FollowTheLocalZoneIncludingSummerTime) {
    ScopedEnv zone("TZ", "America/New_York");
    // Noon on the wall clock in New York: 16:00 UTC in summer, 17:00 UTC in winter.
    auto summer = vn::dateFromToolDateString("2024-07-01 12:00:00 +0000");
    auto winter = vn::dateFromToolDateString("2024-01-15 12:00:00 +0900");
    ASSERT_TRUE(summer && winter);
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*summer), utcSeconds(2024, 7, 1, 16, 0, 0));
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*winter), utcSeconds(2024, 1, 15, 17, 0, 0));
}

TEST(VNRepoHandlerBasePaths, UnquotingRemovesQuotesAndEscapes) {
    struct Case {
        const char* name;
        const char* in;
        const char* out;
    };
    const std::vector<Case> cases = {
        {"plain", "src/main.c", "src/main.c"},
        {"quoted with a blank", "\"a b.txt\"", "a b.txt"},
        {"escaped quote", "\"q\\\"uote.txt\"", "q\"uote.txt"},
        {"escaped backslash", "\"back\\\\slash\"", "back\\slash"},
        {"non-ASCII as git prints it without path quoting",
         "\"Gr\xC3\xBC\xC3\x9F"
         "e Welt.txt\"",
         "Gr\xC3\xBC\xC3\x9F"
         "e Welt.txt"},
        {"unquoted text keeps its backslash", "a\\\xC3\xBC", "a\\\xC3\xBC"},
        {"C escapes", "\"\\a\\b\\t\\n\\v\\f\\r\\\"\\\\\"", "\a\b\t\n\v\f\r\"\\"},
        {"octal escapes are bytes", "\"caf\\303\\251 \\351\\033[1m\"", "caf\xC3\xA9 \xE9\x1B[1m"},
        {"leading and trailing blanks stay", "\" x \"", " x "},
        {"two quotes alone are too short to strip", "\"\"", "\"\""},
        {"one quoted letter", "\"x\"", "x"},
        {"only a leading quote", "\"open", "\"open"},
        {"trailing lone backslash stays", "dir\\", "dir\\"},
        {"a quote inside is not the end", "\"a\" b\"", "\"a\" b\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(vn::unquoteToolPath(c.in), c.out);
    }
}

TEST(VNRepoHandlerBaseGpg, ParsesColonListingsOfOldAndNewGnuPG) {
    const std::string listing =
        // GnuPG 2.2: fields follow the user id.
        "sec:u:3072:1:3B9BB61848BCF8CB:1700000000:1731536000::u:::scESC:::+:::23::0:\n"
        "fpr:::::::::5A6CFCE61245AACFD6EE67133B9BB61848BCF8CB:\n"
        "uid:u::::1700000000::5921786ED3::B\\x3a Second <b@y>::::::::::0:\n"
        "uid:u::::1700000000::5430BC1D4C::A <a@x>::::::::::0:\n"
        "ssb:u:3072:1:BCF6BE55228E7D8B:1700000000::::::e:::+:::23:\n"
        // A damaged key line: its user ids belong to no key.
        "sec:u:2048:1\n"
        "uid:u::::1::X::Lost <l@x>:\n"
        // GnuPG 2.0: the user id is the last field.
        "sec::1024:17:00000000DEADBEEF:1382000000:::u:::scESC:\n"
        "uid:u::::1382000000::HASH::Old <o@x>:\n";
    auto keys = VNRepoHandlerBase::parseGpgKeyList(listing);
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys[0].string("uid"), "B: Second <b@y>");
    EXPECT_EQ(keys[1].string("uid"), "A <a@x>");
    for (int i : {0, 1}) {
        EXPECT_EQ(keys[i].string("key"), "3B9BB61848BCF8CB");
        EXPECT_EQ(keys[i].string("bits"), "3072");
        EXPECT_EQ(keys[i].string("type"), "1");
        ASSERT_TRUE(keys[i]["created"].date());
        EXPECT_EQ(std::chrono::system_clock::to_time_t(*keys[i]["created"].date()), 1700000000);
        ASSERT_TRUE(keys[i]["expires"].date());
        EXPECT_EQ(std::chrono::system_clock::to_time_t(*keys[i]["expires"].date()), 1731536000);
    }
    EXPECT_EQ(keys[2].string("uid"), "Old <o@x>");
    EXPECT_EQ(keys[2].string("key"), "00000000DEADBEEF");
    EXPECT_FALSE(keys[2].contains("expires"));
}

// A GnuPG home of its own, with "gpg2" found where the preference "gpgProgram" says.
class GpgHome {
  public:
    GpgHome() : home_("gpg"), bin_("gpgbin"), env_("GNUPGHOME", home_.path()) {
        ::chmod(home_.path().c_str(), 0700);
        auto gpg = vn::fs::findExecutable("gpg");
        if (!gpg) {
            ADD_FAILURE() << "gpg is not installed";
            return;
        }
        std::string link = vn::fs::appendPathComponent(bin_.path(), "gpg2");
        if (::symlink(gpg->c_str(), link.c_str()) != 0) {
            ADD_FAILURE() << "cannot link " << link;
        }
        vn::Preferences::standard().set("gpgProgram", bin_.path());
    }
    ~GpgHome() {
        // The agent that key generation started belongs to this home and goes with it.
        vn::test::runProgram(home_.path(), "gpgconf", {"--kill", "gpg-agent"});
        vn::Preferences::standard().remove("gpgProgram");
    }
    void gpg(const std::vector<std::string>& args) {
        std::vector<std::string> all = {"--batch", "--passphrase", ""};
        all.insert(all.end(), args.begin(), args.end());
        auto task = vn::test::runProgram(home_.path(), "gpg", all);
        ASSERT_TRUE(task->success()) << task->errorOutput();
    }
    const std::string& path() const { return home_.path(); }

  private:
    TempDir home_;
    TempDir bin_;
    ScopedEnv env_;
};

TEST(VNRepoHandlerBaseGpg, ListsOneRecordPerUserIdOfARealKey) {
    GpgHome home;
    home.gpg({"--quick-gen-key", "A <a@x>", "default", "default", "never"});
    auto first = std::make_shared<VNRepoHandlerBase>()->gpgKeyListBase(home.path());
    ASSERT_EQ(first.size(), 1u);
    std::string keyId = first[0].string("key");
    EXPECT_EQ(keyId.size(), 16u);
    home.gpg({"--quick-add-uid", "A <a@x>", "B: Second <b@y>"});

    auto keys = std::make_shared<VNRepoHandlerBase>()->gpgKeyListBase(home.path());
    ASSERT_EQ(keys.size(), 2u);
    std::set<std::string> uids;
    auto now = std::chrono::system_clock::now();
    for (const vn::Record& key : keys) {
        uids.insert(key.string("uid"));
        EXPECT_EQ(key.string("key"), keyId);
        EXPECT_GE(key.integer("bits"), 255);
        ASSERT_TRUE(key["created"].date());
        EXPECT_LT(std::chrono::abs(now - *key["created"].date()), std::chrono::hours(1));
        EXPECT_FALSE(key.contains("expires")) << "the key never expires";
    }
    EXPECT_EQ(uids, (std::set<std::string>{"A <a@x>", "B: Second <b@y>"}));
}

TEST(VNRepoHandlerBaseGpg, ExpiryIsReadAndFailuresGiveNoKeys) {
    GpgHome home;
    home.gpg({"--quick-gen-key", "C <c@x>", "default", "default", "2y"});
    auto handler = std::make_shared<VNRepoHandlerBase>();
    auto keys = handler->gpgKeyListBase(home.path());
    ASSERT_EQ(keys.size(), 1u);
    ASSERT_TRUE(keys[0]["created"].date() && keys[0]["expires"].date());
    auto lifetime = *keys[0]["expires"].date() - *keys[0]["created"].date();
    EXPECT_GT(lifetime, std::chrono::hours(24 * 700));
    EXPECT_LT(lifetime, std::chrono::hours(24 * 740));

    TempDir broken("gpgbroken");
    vn::test::writeScript(broken.path(), "gpg2", "echo 'sec:u:1:1:K:1:::' ; exit 2\n");
    vn::Preferences::standard().set("gpgProgram", broken.path());
    EXPECT_TRUE(handler->gpgKeyListBase(home.path()).empty()) << "a failed run lists nothing";
    vn::Preferences::standard().remove("gpgProgram");
    EXPECT_TRUE(handler->gpgKeyListBase(home.path()).empty()) << "no gpgProgram, no keys";
}

TEST(VNRepoHandlerBaseStubs, BackendOperationsAssertAndAnswerEmpty) {
    AssertionRecorder recorder;
    auto handler = std::make_shared<VNRepoHandlerBase>();
    const std::string wc = "/nowhere";
    EXPECT_TRUE(handler->fileStatus(wc, 2).empty());
    EXPECT_TRUE(handler->fileStatus(wc).empty());
    EXPECT_TRUE(handler->summary(wc).empty());
    EXPECT_FALSE(handler->pushTask(wc, "origin"));
    EXPECT_FALSE(handler->pushTaskRemoteName(wc, "origin"));
    EXPECT_TRUE(handler->addTasks(wc, {"a"}).empty());
    EXPECT_FALSE(handler->fileDiffAgainstBase(wc, std::string("a"), uint64_t{1}, 3));
    EXPECT_FALSE(handler->archiveTask(wc, "/tmp/out.zip", "p/"));
    EXPECT_FALSE(handler->flowCurrentFeatureName(wc));
    EXPECT_EQ(handler->repositoryType(), VNRepositoryTypeUnknown);
    EXPECT_EQ(recorder.texts, std::vector<std::string>(10, "should be overridden by subclasses!"));

    recorder.texts.clear();
    EXPECT_FALSE(handler->newWindowControllerWithDoc(nullptr));
    EXPECT_EQ(recorder.texts,
              std::vector<std::string>{"newWindowController should be overridden by subclasses!"});
}

struct Document : VNTemplateDocument {
    std::string path() const override { return "/repo"; }
    bool isCommitTemplateIgnored() const override { return ignored; }
    bool ignored = false;
};

// A backend whose template file is whatever the test says.
struct TemplateHandler : VNRepoHandlerBase {
    std::optional<std::string> templateFileForDocument(const VNTemplateDocument&) override {
        return file;
    }
    std::optional<std::string> file;
};

TEST(VNRepoHandlerBaseOptional, OptionalOperationsAnswerNothingWithoutAsserting) {
    AssertionRecorder recorder;
    auto handler = std::make_shared<VNRepoHandlerBase>();
    Document doc;
    EXPECT_FALSE(handler->hasCommitStaging());
    EXPECT_FALSE(handler->templateFileForDocument(doc));
    EXPECT_FALSE(handler->commitTemplateFilePathForDocument(doc));
    EXPECT_FALSE(handler->defaultCommitTemplateFilePathForDocument(doc));
    EXPECT_FALSE(handler->resetCommitTemplateFromConfigForDocument(doc));
    EXPECT_FALSE(handler->addCommitTemplatePath("/t", doc));
    EXPECT_FALSE(handler->removeCommitTemplatePath("/t", doc));
    EXPECT_EQ(handler->largeFilesDiffScanLimit(), 0u);
    EXPECT_FALSE(handler->extractLargeFileReferenceFromLine("oid sha256:" + std::string(64, 'a')));
    EXPECT_FALSE(handler->commitMessageTemplateForDocument(doc));
    EXPECT_TRUE(recorder.texts.empty());
}

TEST(VNRepoHandlerBaseTemplate, ReadsTheBackendsTemplateFileUnlessIgnored) {
    std::string home = vn::fs::homeDirectory();
    vn::test::writeFile(home + "/templates/commit.txt",
                        "Gr\xC3\xBC\xC3\x9F"
                        "e\n\n# why?\n");
    vn::test::writeFile(home + "/templates/bom.txt", "\xEF\xBB\xBFSubject\n");
    vn::test::writeFile(home + "/templates/latin1.txt", "caf\xE9\n");
    struct Case {
        const char* name;
        std::optional<std::string> file;
        bool ignored;
        std::optional<std::string> expected;
    };
    const std::vector<Case> cases = {
        {"tilde path", "~/templates/commit.txt", false,
         "Gr\xC3\xBC\xC3\x9F"
         "e\n\n# why?\n"},
        {"ignored by the user", "~/templates/commit.txt", true, std::nullopt},
        {"byte order mark dropped", home + "/templates/bom.txt", false, "Subject\n"},
        {"missing file", "~/templates/none.txt", false, std::nullopt},
        {"a folder", "~/templates", false, std::nullopt},
        {"no template", std::nullopt, false, std::nullopt},
    };
    auto handler = std::make_shared<TemplateHandler>();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        handler->file = c.file;
        Document doc;
        doc.ignored = c.ignored;
        EXPECT_EQ(handler->commitMessageTemplateForDocument(doc), c.expected);
    }
    handler->file = "~/templates/latin1.txt";
    auto decoded = handler->commitMessageTemplateForDocument(Document());
    ASSERT_TRUE(decoded) << "text in another encoding is still read";
    EXPECT_TRUE(vn::isValidUTF8(*decoded));
    EXPECT_EQ(decoded->substr(0, 3), "caf");
}

TEST(VNRepoHandlerBaseSearchDates, DefaultFormatterWritesLocalDays) {
    ScopedEnv zone("TZ", "Asia/Tokyo");
    auto handler = std::make_shared<VNRepoHandlerBase>();
    auto late = std::chrono::system_clock::from_time_t(utcSeconds(2024, 2, 28, 20, 0, 0));
    EXPECT_EQ(handler->searchDateFormatter()(late), "2024-02-29") << "20:00 UTC is next day";
    handler->setSearchDateFormatter([](const vn::Value::Date&) { return std::string("x"); });
    EXPECT_EQ(handler->searchDateFormatter()(late), "x");
}

}  // namespace
