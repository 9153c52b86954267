#include "base/TextEncoding.h"

#include <gtest/gtest.h>

namespace vn {
namespace {

TEST(TextEncoding, ValidatesUTF8ByTheStrictRules) {
    struct Case {
        const char* name;
        std::string bytes;
        bool valid;
    };
    const Case cases[] = {
        {"ascii", "plain text longer than eight bytes", true},
        {"two-byte", "caf\xC3\xA9", true},
        {"four-byte", "\xF0\x9F\x98\x80", true},
        {"overlong slash", "\xC0\xAF", false},
        {"surrogate", "\xED\xA0\x80", false},
        {"above U+10FFFF", "\xF4\x90\x80\x80", false},
        {"cut at end", "abc\xE2\x82", false},
        {"stray continuation", "a\x80z", false},
        {"latin-1 e acute", "caf\xE9", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(isValidUTF8(c.bytes), c.valid);
    }
}

TEST(TextEncoding, CompletePrefixStopsBeforeAnUnfinishedCharacter) {
    EXPECT_EQ(completeUTF8PrefixLength("ab\xE2\x82"), 2u);
    EXPECT_EQ(completeUTF8PrefixLength("ab\xE2\x82\xAC"), 5u);
    EXPECT_EQ(completeUTF8PrefixLength("ab\xF0\x9F\x98"), 2u);
    EXPECT_EQ(completeUTF8PrefixLength("ab"), 2u);
    EXPECT_EQ(completeUTF8PrefixLength(""), 0u);
}

TEST(TextEncoding, RepairReplacesEachMaximalInvalidSubpart) {
    EXPECT_EQ(repairUTF8("a\xE2\x82z"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(repairUTF8("\xFF\xFE"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(repairUTF8("ok \xC3\xA9"), "ok \xC3\xA9");
}

TEST(TextEncoding, FallsBackToMacRomanForBytesThatAreNotUTF8) {
    TextEncoding used;
    auto text = decodeWithFallbacks("caf\x8E", &used);  // 0x8E is e acute in Mac OS Roman
    ASSERT_TRUE(text);
    EXPECT_EQ(used, TextEncoding::MacRoman);
    EXPECT_EQ(*text, "caf\xC3\xA9");
    EXPECT_EQ(decodeText("caf\xE9", TextEncoding::Latin1), "caf\xC3\xA9");
    EXPECT_EQ(decodeText("\x80", TextEncoding::Windows1252), "\xE2\x82\xAC");
}

TEST(TextEncoding, EncodeRoundTripsAndRefusesWhatCannotBeWritten) {
    EXPECT_EQ(encodeText("caf\xC3\xA9", TextEncoding::Latin1), "caf\xE9");
    EXPECT_EQ(encodeText("caf\xC3\xA9", TextEncoding::MacRoman), "caf\x8E");
    EXPECT_FALSE(encodeText("\xE2\x82\xAC", TextEncoding::Latin1));
}

TEST(TextEncoding, TruncationNeverSplitsACharacter) {
    std::string text = "ab\xC3\xA9";
    EXPECT_EQ(truncateUTF8(text, 3), "ab");
    EXPECT_EQ(truncateUTF8(text, 4), text);
    EXPECT_EQ(truncateUTF8(text, 10), text);
}

}  // namespace
}  // namespace vn

namespace vn {
namespace {

TEST(TextEncoding, ReadsGitsCQuoting) {
    struct Case {
        const char* what;
        std::string text;
        std::optional<std::string> bytes;
        std::size_t consumed;
    };
    const Case cases[] = {
        {"plain", "\"abc\"", "abc", 5},
        {"C escapes", "\"\\a\\b\\t\\n\\v\\f\\r\\\"\\\\\"", "\a\b\t\n\v\f\r\"\\", 20},
        {"octal UTF-8", "\"\\346\\227\\245\"", "\xE6\x97\xA5", 14},
        {"octal Latin-1 and ESC", "\"caf\\351\\033\"", "caf\xE9\x1B", 13},
        {"short octal", "\"\\0x\"", std::string("\0x", 2), 5},
        {"text after the closing quote", "\"a b\" \"c\"", "a b", 5},
        {"unknown escape keeps its letter", "\"\\q\"", "q", 4},
        {"not quoted", "abc", std::nullopt, 0},
        {"never closed", "\"abc", std::nullopt, 0},
        {"ends in a backslash", "\"abc\\", std::nullopt, 0},
        {"escaped closing quote", "\"abc\\\"", std::nullopt, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::size_t consumed = 0;
        EXPECT_EQ(readCQuoted(c.text, &consumed), c.bytes);
        if (c.bytes) {
            EXPECT_EQ(consumed, c.consumed);
        }
    }
}

TEST(TextEncoding, DisplayTextEscapesEverythingThatSteersATerminal) {
    struct Case {
        const char* what;
        std::string text;
        std::string shown;
        bool keepTabs = false;
    };
    const Case cases[] = {
        {"plain", "plain name.txt", "plain name.txt"},
        {"C escapes", "\a\b\t\n\v\f\r", "\\a\\b\\t\\n\\v\\f\\r"},
        {"tab kept in contents", "a\tb", "a\tb", true},
        {"escape sequence", "\x1b[2J\x1b]0;t\x07", "\\x1b[2J\\x1b]0;t\\a"},
        {"NUL and DEL", std::string("a\0b\x7f", 4), "a\\x00b\\x7f"},
        {"C1 control as UTF-8",
         "a\xC2\x9B"
         "b",
         "a\\u009bb"},
        {"bidirectional override",
         "a\xE2\x80\xAE"
         "b",
         "a\\u202eb"},
        {"Latin-1 byte", "caf\xE9.txt", "caf\xEF\xBF\xBD.txt"},
        {"cut character", "ab\xE6\x97", "ab\xEF\xBF\xBD"},
        {"UTF-8 kept", "\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80 caf\xC3\xA9",
         "\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80 caf\xC3\xA9"},
        {"backslash stays", "back\\slash", "back\\slash"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string shown = displayText(c.text, c.keepTabs);
        EXPECT_EQ(shown, c.shown);
        EXPECT_TRUE(isValidUTF8(shown));
    }
    // Every byte value alone: the result is UTF-8 without a raw control character.
    for (int b = 0; b < 256; ++b) {
        std::string shown = displayText(std::string(1, static_cast<char>(b)));
        EXPECT_TRUE(isValidUTF8(shown)) << b;
        for (char c : shown) {
            EXPECT_FALSE(static_cast<unsigned char>(c) < 0x20 || c == 0x7F) << b;
        }
    }
}

TEST(TextEncoding, ToolOutputIsDecodedLineByLine) {
    const std::string mixed = "\xE6\x97\xA5\xE6\x9C\xAC.txt\ncaf\xE9.txt\n\x80\x81\nna\xC3\xAFve";
    EXPECT_EQ(decodeToolOutput(mixed, false),
              "\xE6\x97\xA5\xE6\x9C\xAC.txt\ncaf\xC3\xA9.txt\n\xE2\x82\xAC\xC2\x81\nna\xC3\xAFve");
    EXPECT_EQ(decodeToolOutput(mixed, true),
              "\xE6\x97\xA5\xE6\x9C\xAC.txt\ncaf\xEF\xBF\xBD.txt\n\xEF\xBF\xBD\xEF\xBF\xBD\n"
              "na\xC3\xAFve");
    // The 8-bit reading never fails: every byte becomes one character.
    std::string all;
    for (int b = 0; b < 256; ++b) {
        all.push_back(static_cast<char>(b));
    }
    std::string decoded = decodeLegacy8Bit(all);
    EXPECT_TRUE(isValidUTF8(decoded));
    std::size_t characters = 0;
    for (char c : decoded) {
        characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }
    EXPECT_EQ(characters, 256u);
}

}  // namespace
}  // namespace vn
