#include "git/VNGitLogParser.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

#include "base/Json.h"
#include "model/VNFileStatusEntity.h"
#include "model/VNLogDescriptionEntry.h"
#include "model/VNLogLabel.h"

namespace {

using Scan = VNGitLogParser::LabelScan;

const std::string S(VNGitLogParser::FieldSeparator);
// The log format's field separator.
const std::string N(1, '\0');
const std::string H1 = "1111111111111111111111111111111111111111";
const std::string H2 = "2222222222222222222222222222222222222222";
const std::string H3 = "3333333333333333333333333333333333333333";
const std::string H4 = "4444444444444444444444444444444444444444";

std::string logLine(const std::string& parents, const std::string& decoration,
                    const std::string& subject, const std::string& author = "Ann Author <a@x>",
                    const std::string& date = "1704164645 2024-01-02T03:04:05+00:00") {
    return H1 + N + "1111111" + N + parents + N + date + N + "Cid Committer <c@x>" + N + author +
           N + decoration + N + subject;
}

struct LabelView {
    std::string label;
    int32_t type;
    std::string annotation;
    bool current;
    bool operator==(const LabelView&) const = default;
};

void PrintTo(const LabelView& v, std::ostream* os) {
    *os << "{" << v.label << ", " << v.type << ", \"" << v.annotation << "\", " << v.current << "}";
}

std::vector<LabelView> view(const std::vector<std::shared_ptr<VNLogLabel>>& labels) {
    std::vector<LabelView> result;
    for (const auto& label : labels) {
        result.push_back(
            {label->label(), label->type(), label->annotation(), label->currentMarker()});
    }
    return result;
}

std::shared_ptr<const VNLogDescriptionEntry> entryOf(const vn::Record& row) {
    return row["descriptionentry"].objectAs<VNLogDescriptionEntry>();
}

TEST(VNGitLogParserTest, FormatArgumentNamesTheFieldsInOrder) {
    EXPECT_EQ(VNGitLogParser::logFormatArgument(false),
              "--format=%H%x00%h%x00%P%x00%ct %cI%x00%cn <%ce>%x00%an <%ae>%x00%d%x00%s");
    EXPECT_NE(VNGitLogParser::logFormatArgument(true).find("%x00%at %aI%x00"), std::string::npos);
}

TEST(VNGitLogParserTest, DecorationsBecomeLabels) {
    vn::Record aheadBehind{{"main", vn::Value::Array{2, 0}},
                           {"topic", vn::Value::Array{0, 3}},
                           {"both", vn::Value::Array{1, 4}},
                           {"even", vn::Value::Array{0, 0}}};
    struct Case {
        const char* name;
        std::string decoration;
        Scan scan;
        std::vector<LabelView> expected;
    };
    const Case cases[] = {
        {"branch, remote and tag, HEAD attached",
         " (HEAD -> refs/heads/main, refs/remotes/origin/main, tag: refs/tags/rel1)",
         Scan::Full,
         {{"main", 0, "2 ahead", true}, {"origin/main", 2, "", false}, {"rel1", 1, "", false}}},
        {"detached HEAD alone", " (HEAD)", Scan::Full, {{"HEAD", 1, "", false}}},
        // HEAD detached at a commit that a branch also points at is still detached.
        {"detached HEAD beside a branch",
         " (HEAD, refs/heads/other)",
         Scan::Full,
         {{"HEAD", 1, "", false}, {"other", 0, "", false}}},
        {"behind only and both",
         " (refs/heads/topic, refs/heads/both)",
         Scan::Full,
         {{"topic", 0, "3 behind", false}, {"both", 0, "1 ahead 4 behind", false}}},
        {"zero counts give no text", " (refs/heads/even)", Scan::Full, {{"even", 0, "", false}}},
        {"remote tags keep their name after the prefix",
         " (refs/remotes/tags/v2)",
         Scan::Full,
         {{"v2", 2, "", false}}},
        {"other references are not labels",
         " (grafted, refs/stash, refs/notes/commits, refs/heads/x)",
         Scan::Full,
         {{"x", 0, "", false}}},
        // Commas and parentheses are allowed in reference names; only ", " separates.
        {"names with commas and parentheses",
         " (refs/heads/fix(ui),v2, tag: refs/tags/a,b)",
         Scan::Full,
         {{"fix(ui),v2", 0, "", false}, {"a,b", 1, "", false}}},
        {"non-ASCII names",
         " (refs/heads/f\xC3\xBCr-dich, tag: refs/tags/\xE2\x9C\x93)",
         Scan::Full,
         {{"f\xC3\xBCr-dich", 0, "", false}, {"\xE2\x9C\x93", 1, "", false}}},
        {"reduced scan: no remotes, no annotations",
         " (HEAD -> refs/heads/main, refs/remotes/origin/main, tag: refs/tags/rel1)",
         Scan::Reduced,
         {{"main", 0, "", true}, {"rel1", 1, "", false}}},
        {"empty", "", Scan::Full, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto labels = VNGitLogParser::labelsFromDecoration(c.decoration, H1, c.scan, &aheadBehind);
        EXPECT_EQ(view(labels), c.expected);
        for (const auto& label : labels) {
            EXPECT_EQ(label->revision(), H1);
            EXPECT_EQ(label->commitSHA(), H1);
        }
    }
}

TEST(VNGitLogParserTest, LabelsKeepTheirFullReference) {
    auto labels = VNGitLogParser::labelsFromDecoration(
        " (HEAD -> refs/heads/main, tag: refs/tags/v1, refs/remotes/origin/main)", H1, Scan::Full,
        nullptr);
    ASSERT_EQ(labels.size(), 3u);
    EXPECT_EQ(labels[0]->ref(), "refs/heads/main");
    EXPECT_EQ(labels[1]->ref(), "refs/tags/v1");
    EXPECT_EQ(labels[2]->ref(), "refs/remotes/origin/main");
}

TEST(VNGitLogParserTest, RowHoldsEveryKey) {
    auto row = VNGitLogParser::parseLogLine(logLine(H2 + " " + H3, " (refs/heads/main)", "Merge"),
                                            Scan::Full, nullptr);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->keys(),
              (std::vector<std::string>{"rev", "changeset", "changesetshort", "parentid1",
                                        "parentid2", "otherparentids", "date", "user", "committer",
                                        "branch", "descriptionentry"}));
    EXPECT_EQ(row->string("rev"), H1);
    EXPECT_EQ(row->string("changeset"), H1);
    EXPECT_EQ(row->string("changesetshort"), "1111111");
    EXPECT_EQ(row->string("parentid1"), H2);
    EXPECT_EQ(row->string("parentid2"), H3);
    EXPECT_TRUE((*row)["otherparentids"].array()->empty());
    EXPECT_EQ(row->string("user"), "Ann Author <a@x>");
    EXPECT_EQ(row->string("committer"), "Cid Committer <c@x>");
    EXPECT_EQ(row->string("branch"), "");
    ASSERT_TRUE(entryOf(*row));
    EXPECT_EQ(entryOf(*row)->description(), "Merge");
}

TEST(VNGitLogParserTest, ParentsOfRootMergeAndOctopus) {
    struct Case {
        const char* name;
        std::string parents;
        std::string first, second;
        std::vector<std::string> others;
    };
    const Case cases[] = {
        {"root", "", "", "", {}},
        {"one parent", H2, H2, "", {}},
        {"merge", H2 + " " + H3, H2, H3, {}},
        {"octopus of three", H2 + " " + H3 + " " + H4, H2, H3, {H4}},
        {"octopus of four", H2 + " " + H3 + " " + H4 + " " + H1, H2, H3, {H4, H1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto row = VNGitLogParser::parseLogLine(logLine(c.parents, "", "s"), Scan::Full, nullptr);
        ASSERT_TRUE(row);
        EXPECT_EQ(row->string("parentid1"), c.first);
        EXPECT_EQ(row->string("parentid2"), c.second);
        std::vector<std::string> others;
        for (const vn::Value& v : *(*row)["otherparentids"].array()) {
            others.push_back(v.toString());
        }
        EXPECT_EQ(others, c.others);
    }
}

TEST(VNGitLogParserTest, LinesThatDoNotSplitIntoEightFieldsAreSkipped) {
    EXPECT_FALSE(VNGitLogParser::parseLogLine("", Scan::Full, nullptr));
    EXPECT_FALSE(VNGitLogParser::parseLogLine("plain text", Scan::Full, nullptr));
    // Seven fields: the subject field is missing.
    std::string seven = H1 + N + "1" + N + "" + N + "d" + N + "c" + N + "a" + N + "deco";
    EXPECT_FALSE(VNGitLogParser::parseLogLine(seven, Scan::Full, nullptr));
    // Nine: a field cannot hold the separator, so the line is no row rather than a shifted one.
    std::string nine = logLine("", "", "s") + N + "more";
    EXPECT_FALSE(VNGitLogParser::parseLogLine(nine, Scan::Full, nullptr));
    auto rows = VNGitLogParser::parseLog("garbage\n" + logLine("", "", "kept") + "\n" + seven +
                                             "\n" + nine + "\n\n" + logLine("", "", "too"),
                                         Scan::Full, nullptr);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(entryOf(rows[0])->description(), "kept");
    EXPECT_EQ(entryOf(rows[1])->description(), "too");
}

TEST(VNGitLogParserTest, SubjectKeepsSeparatorsAndOddCharacters) {
    struct Case {
        const char* name;
        std::string subject;
        std::string author;
        std::string expectedSubject;
    };
    const Case cases[] = {
        {"record separator symbol in the subject", "a " + S + " b " + S, "Ann <a@x>",
         "a " + S + " b " + S},
        {"record separator symbol in the author", "s", "A" + S + "B " + S + " <a" + S + "@x>", "s"},
        {"control bytes", "\x01\x1b[31mred\x7f", "\x1e\x1f <x@y>", "\x01\x1b[31mred\x7f"},
        {"quotes and backslashes", "say \"hi\" \\n C:\\dir\\", "O'Brien \"OB\" <o\\b@x>",
         "say \"hi\" \\n C:\\dir\\"},
        {"blanks and tabs", "  lead\tand trail  ", "Ann  Lee <a@x>", "  lead\tand trail  "},
        // The parser works on whatever bytes it gets; repairing encodings is the task's part.
        {"bytes that are not UTF-8", "caf\xE9 \xFF", "J\xF6rg <j@x>", "caf\xE9 \xFF"},
        {"CRLF line end", "windows\r", "Ann <a@x>", "windows"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto row =
            VNGitLogParser::parseLogLine(logLine(H2, "", c.subject, c.author), Scan::Full, nullptr);
        ASSERT_TRUE(row);
        EXPECT_EQ(entryOf(*row)->description(), c.expectedSubject);
        EXPECT_EQ(row->string("user"), c.author);
    }
}

TEST(VNGitLogParserTest, CrlfOutputParsesLikeLf) {
    std::string text =
        logLine(H2, " (refs/heads/main)", "first") + "\r\n" + logLine("", "", "second") + "\r\n";
    auto rows = VNGitLogParser::parseLog(text, Scan::Full, nullptr);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(entryOf(rows[0])->description(), "first");
    EXPECT_EQ(entryOf(rows[0])->labels().size(), 1u);
    EXPECT_EQ(entryOf(rows[1])->description(), "second");
}

// Dates are an instant and the recorder's offset, the same in every time zone of the reader.
TEST(VNGitLogParserTest, DatesKeepTheirOffsetInEveryTimeZone) {
    struct Case {
        const char* field;
        int64_t seconds;
        std::optional<int32_t> offset;
        const char* json;
    };
    const Case cases[] = {
        {"1709282100 2024-03-01T14:05:00+05:30", 1709282100, 19800,
         "\"2024-03-01T14:05:00+05:30\""},
        {"1709282100 2024-03-01T00:35:00-08:00", 1709282100, -28800,
         "\"2024-03-01T00:35:00-08:00\""},
        {"1709282100 2024-03-01T22:35:00+14:00", 1709282100, 50400,
         "\"2024-03-01T22:35:00+14:00\""},
        {"1709282100 2024-02-29T20:35:00-12:00", 1709282100, -43200,
         "\"2024-02-29T20:35:00-12:00\""},
        {"1709282100 2024-03-01T08:35:00Z", 1709282100, 0, "\"2024-03-01T08:35:00+00:00\""},
        {"0 1970-01-01T00:00:00+00:00", 0, 0, "\"1970-01-01T00:00:00+00:00\""},
        // Beyond what a point in time holds: clamped, never wrapped.
        {"99999999999999999999 1970-01-01T00:00:00+00:00", 9223372036, 0,
         "\"2262-04-11T23:47:16+00:00\""},
        {"300000000000 11476-08-15T19:20:00+14:00", 9223372036, 50400,
         "\"2262-04-12T13:47:16+14:00\""},
        // No offset to be read: the instant alone, in UTC.
        {"1709282100", 1709282100, std::nullopt, "\"2024-03-01T08:35:00Z\""},
        {"1709282100 junk", 1709282100, std::nullopt, "\"2024-03-01T08:35:00Z\""},
    };
    const char* previous = std::getenv("TZ");
    std::string saved = previous ? previous : "";
    for (const char* zone : {"UTC", "Asia/Kolkata", "America/Los_Angeles", "Pacific/Kiritimati",
                             "Etc/GMT+12", "Australia/Lord_Howe"}) {
        SCOPED_TRACE(zone);
        ::setenv("TZ", zone, 1);
        ::tzset();
        for (const Case& c : cases) {
            SCOPED_TRACE(c.field);
            auto row = VNGitLogParser::parseLogLine(logLine("", "", "s", "A <a@x>", c.field),
                                                    Scan::Full, nullptr);
            ASSERT_TRUE(row);
            const vn::Value& date = (*row)["date"];
            ASSERT_TRUE(date.date());
            EXPECT_EQ(
                std::chrono::duration_cast<std::chrono::seconds>(date.date()->time_since_epoch())
                    .count(),
                c.seconds);
            EXPECT_EQ(date.dateOffset(), c.offset);
            EXPECT_EQ(vn::toJson(date), c.json);
        }
    }
    if (previous) {
        ::setenv("TZ", saved.c_str(), 1);
    } else {
        ::unsetenv("TZ");
    }
    ::tzset();
    for (const char* broken : {"", "yesterday", "-5 1969-12-31T23:59:55+00:00", "12x4 +0000"}) {
        SCOPED_TRACE(broken);
        auto row = VNGitLogParser::parseLogLine(logLine("", "", "s", "A <a@x>", broken), Scan::Full,
                                                nullptr);
        ASSERT_TRUE(row);
        if (std::string_view(broken).starts_with("-5")) {
            EXPECT_EQ(std::chrono::system_clock::to_time_t(*(*row)["date"].date()), -5);
        } else {
            EXPECT_TRUE((*row)["date"].isNull());
        }
    }
}

TEST(VNGitLogParserTest, Annotation) {
    EXPECT_EQ(VNGitLogParser::aheadBehindAnnotation(0, 0), "");
    EXPECT_EQ(VNGitLogParser::aheadBehindAnnotation(5, 0), "5 ahead");
    EXPECT_EQ(VNGitLogParser::aheadBehindAnnotation(0, 7), "7 behind");
    EXPECT_EQ(VNGitLogParser::aheadBehindAnnotation(12, 1), "12 ahead 1 behind");
}

TEST(VNGitLogParserTest, Details) {
    std::string text = H1 + N + "1111111" + N + H2 + " " + H3 + N +
                       "1704164645 2024-01-02T08:34:05+05:30" + N +
                       "1706933106 2024-02-02T20:05:06-08:00" + N + "Ann <a@x>" + N + "Cid <c@x>" +
                       N + " (HEAD -> refs/heads/main, tag: refs/tags/v1)" + N + "Subject " + S +
                       "\n  continued\n\nBody line 1\nBody line 2\n\n";
    auto details = VNGitLogParser::parseDetails(text, false, nullptr);
    ASSERT_TRUE(details);
    EXPECT_EQ(details->string("rev"), H1);
    EXPECT_EQ(details->string("user"), "Ann <a@x>");
    EXPECT_EQ(details->string("committer"), "Cid <c@x>");
    EXPECT_EQ(details->string("message"),
              "Subject " + S + "\n  continued\n\nBody line 1\nBody line 2");
    // The subject is the first paragraph on one line, as git's own subject is.
    EXPECT_EQ(entryOf(*details)->description(), "Subject " + S + "   continued");
    EXPECT_EQ(view(entryOf(*details)->labels()),
              (std::vector<LabelView>{{"main", 0, "", true}, {"v1", 1, "", false}}));
    ASSERT_EQ((*details)["parents"].array()->size(), 2u);
    EXPECT_EQ(vn::toJson(*details->find("authordate")), "\"2024-01-02T08:34:05+05:30\"");
    EXPECT_EQ(vn::toJson(*details->find("committerdate")), "\"2024-02-02T20:05:06-08:00\"");
    EXPECT_EQ(vn::toJson(*details->find("date")), "\"2024-02-02T20:05:06-08:00\"");
    auto byAuthor = VNGitLogParser::parseDetails(text, true, nullptr);
    EXPECT_EQ(vn::toJson(*byAuthor->find("date")), "\"2024-01-02T08:34:05+05:30\"");
    EXPECT_FALSE(VNGitLogParser::parseDetails("not a commit", false, nullptr));
}

TEST(VNGitLogParserTest, FullMessages) {
    std::string text = H1 + S + "First\n\nbody " + S + "\n\n" + '\0' + "\n" + H2 + S + "Second\n" +
                       '\0' + "junk without separator" + '\0';
    vn::Record messages = VNGitLogParser::parseFullMessages(text);
    EXPECT_EQ(messages.keys(), (std::vector<std::string>{H1, H2}));
    EXPECT_EQ(messages.string(H1), "First\n\nbody " + S);
    EXPECT_EQ(messages.string(H2), "Second");
}

TEST(VNGitLogParserTest, NameStatus) {
    using namespace std::string_literals;
    std::string text =
        "M\0src/a b.c\0"s
        "A\0new \"q\" \\ file\0"s
        "D\0gone\0"s
        "R087\0old/name.txt\0new/name.txt\0"s
        "C100\0orig\0copy\0"s
        "T\0link\0"s
        "M\0line\nbreak\0"s;
    auto records = VNGitLogParser::parseNameStatus(text);
    struct Expected {
        uint64_t status;
        std::string path, filename, previous;
    };
    const Expected expected[] = {
        {VNFileStatusModified, "src", "a b.c", ""},
        {VNFileStatusAdded, "", "new \"q\" \\ file", ""},
        {VNFileStatusRemoved, "", "gone", ""},
        {VNFileStatusRenamed, "new", "name.txt", "old/name.txt"},
        {VNFileStatusAdded, "", "copy", "orig"},
        {VNFileStatusModified, "", "link", ""},
        {VNFileStatusModified, "", "line\nbreak", ""},
    };
    ASSERT_EQ(records.size(), std::size(expected));
    for (std::size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE(i);
        const vn::Record& r = records[i];
        EXPECT_EQ(r.integer("status"), static_cast<int64_t>(expected[i].status));
        EXPECT_EQ(r.integer("indexStatus"), static_cast<int64_t>(expected[i].status));
        EXPECT_EQ(r.integer("treeStatus"), static_cast<int64_t>(VNFileStatusClean));
        EXPECT_EQ(r.string("path"), expected[i].path);
        EXPECT_EQ(r.string("filename"), expected[i].filename);
        EXPECT_EQ(r.string("previousName"), expected[i].previous);
        EXPECT_EQ(r.contains("previousName"), !expected[i].previous.empty());
    }
    // A listing cut short loses only the entry it cut.
    EXPECT_EQ(VNGitLogParser::parseNameStatus("M\0a\0R100\0only-old\0"s).size(), 1u);
    EXPECT_TRUE(VNGitLogParser::parseNameStatus("").empty());
}

TEST(VNGitLogParserTest, BlamePorcelain) {
    const std::string A = "abcdef1234567890abcdef1234567890abcdef12";
    const std::string B = "abcdef9999999999999999999999999999999999";
    const std::string Z(40, '0');
    std::string text = A +
                       " 1 1 2\n"
                       "author Ann Author\n"
                       "author-mail <ann@x>\n"
                       "author-time 1704164645\n"
                       "author-tz +0000\n"
                       "summary first\n"
                       "filename f.txt\n"
                       "\tline one\n" +
                       A +
                       " 2 2\n"
                       "\t\tindented\r\n" +
                       B +
                       " 3 3 1\n"
                       "author J\xC3\xB6rg \"JJ\"\n"
                       "author-mail <j@x>\n"
                       "author-time 1704250000\n"
                       "previous " +
                       A +
                       " f.txt\n"
                       "filename f.txt\n"
                       "\tauthor fake header in content\n" +
                       Z +
                       " 4 4 1\n"
                       "author Not Committed Yet\n"
                       "author-mail <not.committed.yet>\n"
                       "author-time 1704300000\n"
                       "filename f.txt\n"
                       "\t\n";
    auto lines = VNGitLogParser::parseBlamePorcelain(text);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].integer("line"), 1);
    EXPECT_EQ(lines[0].string("rev"), A);
    EXPECT_EQ(lines[0].string("user"), "Ann Author <ann@x>");
    EXPECT_EQ(lines[0].string("linecontents"), "line one");
    ASSERT_TRUE(lines[0]["date"].date());
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*lines[0]["date"].date()), 1704164645);
    EXPECT_EQ(lines[0]["date"].dateOffset(), 0);
    // No "author-tz": the instant alone.
    EXPECT_EQ(lines[2]["date"].dateOffset(), std::nullopt);
    // The second line of a group repeats no headers but has the same commit's author.
    EXPECT_EQ(lines[1].string("user"), "Ann Author <ann@x>");
    EXPECT_EQ(lines[1].string("linecontents"), "\tindented");
    EXPECT_EQ(lines[2].string("user"), "J\xC3\xB6rg \"JJ\" <j@x>");
    EXPECT_EQ(lines[2].string("linecontents"), "author fake header in content");
    EXPECT_EQ(lines[3].string("rev"), Z);
    EXPECT_EQ(lines[3].string("linecontents"), "");
    // A and B share six characters; seven tell them apart.
    EXPECT_EQ(lines[0].string("changesetshort"), "abcdef1");
    EXPECT_EQ(lines[2].string("changesetshort"), "abcdef9");
    // Commits sharing a longer prefix get longer abbreviations.
    std::string C = "abcdef1299999999999999999999999999999999";
    auto close = VNGitLogParser::parseBlamePorcelain(A + " 1 1 1\nauthor a\n\tx\n" + C +
                                                     " 1 2 1\nauthor c\n\ty\n");
    ASSERT_EQ(close.size(), 2u);
    EXPECT_EQ(close[0].string("changesetshort"), "abcdef123");
    EXPECT_EQ(close[1].string("changesetshort"), "abcdef129");
}

}  // namespace

namespace {

// A listing of hundreds of megabytes is read in one pass and cut at a bound, not held whole in
// records until memory runs out.
TEST(VNGitLogParserTest, HugeNameStatusListingIsCutNotExhausted) {
    const std::string entry = std::string("M\0dir/sub/file-with-a-long-name-00000.txt\0", 42);
    std::string listing;
    listing.reserve(100u << 20);
    while (listing.size() + entry.size() <= (100u << 20)) {
        listing += entry;
    }
    bool truncated = false;
    auto records = VNGitLogParser::parseNameStatus(listing, &truncated, 20000);
    EXPECT_TRUE(truncated);
    EXPECT_EQ(records.size(), 20000u);
    EXPECT_EQ(records.back().string("filename"), "file-with-a-long-name-00000.txt");

    std::string small = entry + entry;
    EXPECT_EQ(VNGitLogParser::parseNameStatus(small, &truncated, 2).size(), 2u);
    EXPECT_FALSE(truncated);
    // A listing that ends at the bound is whole; one more file is cut.
    EXPECT_EQ(VNGitLogParser::parseNameStatus(small + entry, &truncated, 2).size(), 2u);
    EXPECT_TRUE(truncated);
}

}  // namespace
