#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "base/Json.h"
#include "base/Record.h"
#include "base/TextEncoding.h"

namespace {

vn::Value sample() {
    return vn::Record{
        {"name", "a \"b\"\\c"},
        {"list", vn::Value::Array{vn::Value(int64_t(-1)), vn::Value(uint64_t(2)), vn::Value(),
                                  vn::Value(true), vn::Value(0.5)}},
        {"empty", vn::Record()},
        {"none", vn::Value::Array()},
        {"nested", vn::Record{{"x", vn::Value::Array{vn::Value("y")}}}},
    };
}

TEST(JsonWriter, CompactHasNoWhiteSpaceAndPrettyIndentsByTwo) {
    EXPECT_EQ(vn::toJson(sample()),
              R"({"name":"a \"b\"\\c","list":[-1,2,null,true,0.5],"empty":{},"none":[],)"
              R"("nested":{"x":["y"]}})");
    EXPECT_EQ(vn::toJson(sample(), true), R"({
  "name": "a \"b\"\\c",
  "list": [
    -1,
    2,
    null,
    true,
    0.5
  ],
  "empty": {},
  "none": [],
  "nested": {
    "x": [
      "y"
    ]
  }
})");
    for (bool pretty : {false, true}) {
        auto parsed = vn::parseJson(vn::toJson(sample(), pretty));
        ASSERT_TRUE(parsed);
        EXPECT_EQ(*parsed, sample());
    }
}

TEST(JsonWriter, NumbersAtTheirLimits) {
    vn::Value::Array numbers{
        vn::Value(std::numeric_limits<int64_t>::min()),
        vn::Value(std::numeric_limits<uint64_t>::max()),
        vn::Value(0.1),
        vn::Value(-1e300),
        vn::Value(std::numeric_limits<double>::quiet_NaN()),
        vn::Value(std::numeric_limits<double>::infinity()),
    };
    EXPECT_EQ(vn::toJson(numbers),
              "[-9223372036854775808,18446744073709551615,0.1,-1e+300,null,null]");
}

TEST(JsonWriter, EscapesWhatJsonNeedsAndKeepsValidUtf8) {
    struct Case {
        const char* name;
        std::string in;
        std::string out;
    };
    const Case cases[] = {
        {"quote and backslash", "\"\\", R"("\"\\")"},
        {"short escapes", "\b\f\n\r\t", R"("\b\f\n\r\t")"},
        {"other controls", std::string("\x00\x01\x1f", 3), R"("\u0000\u0001\u001f")"},
        {"delete and slash pass", "\x7f/", "\"\x7f/\""},
        {"two, three and four bytes", "\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80",
         "\"\xc3\xa9\xe6\x97\xa5\xf0\x9f\x98\x80\""},
        {"line separator passes", "\xe2\x80\xa8", "\"\xe2\x80\xa8\""},
        {"escape after a long plain run", "0123456789abcdef\n", R"("0123456789abcdef\n")"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        vn::JsonWriter writer;
        writer.string(c.in);
        EXPECT_EQ(writer.text(), c.out);
    }
}

TEST(JsonWriter, InvalidUtf8BecomesOneReplacementPerMaximalSubpart) {
    const std::string r = "\xef\xbf\xbd";
    struct Case {
        const char* name;
        std::string in;
        std::string out;
    };
    const Case cases[] = {
        {"Latin-1 byte", "caf\xe9!", "caf" + r + "!"},
        {"lone continuation", "\x80", r},
        {"overlong two bytes", "\xc0\x80", r + r},
        {"overlong three bytes", "\xe0\x80\x80", r + r + r},
        {"surrogate", "\xed\xa0\x80", r + r + r},
        {"above U+10FFFF", "\xf4\x90\x80\x80", r + r + r + r},
        {"truncated four bytes at the end", "a\xf0\x9f\x98", "a" + r},
        {"truncated three bytes before ASCII", "\xe6\x97z", r + "z"},
        {"invalid lead bytes", "\xf5\xff\xfe", r + r + r},
        {"invalid byte before ASCII", "\xff\xfez", r + r + "z"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        vn::JsonWriter writer;
        writer.key(c.in);
        writer.string(c.in);
        EXPECT_EQ(writer.text(), "\"" + c.out + "\":\"" + c.out + "\"");
        EXPECT_EQ(c.out, vn::repairUTF8(c.in));
    }
}

// Random bytes, weighted towards the classes the writer treats differently, in strings of every
// length around the eight-byte steps of its fast path.
TEST(JsonWriter, AnyBytesGiveValidJsonThatReadsBackAsTheRepairedText) {
    const std::string alphabet = std::string("aZ \"\\\n\x01\x1f\x7f", 10) +
                                 "\x80\xbf\xc2\xc3\xdf\xe0\xe6\xed\xef\xf0\xf4\xf5\xff\xa0\x9f";
    std::mt19937 random(20261122);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes;
        std::size_t length = random() % 40;
        for (std::size_t i = 0; i < length; ++i) {
            bytes.push_back(random() % 3 == 0 ? alphabet[random() % alphabet.size()]
                                              : static_cast<char>('a' + random() % 26));
        }
        std::string json = vn::toJson(vn::Value::Array{vn::Value(bytes)}, round % 2 == 1);
        ASSERT_TRUE(vn::isValidUTF8(json)) << json;
        auto parsed = vn::parseJson(json);
        ASSERT_TRUE(parsed && parsed->array() && parsed->array()->size() == 1) << json;
        ASSERT_EQ(*(*parsed->array())[0].string(), vn::repairUTF8(bytes)) << json;
    }
}

TEST(JsonWriter, SinkReceivesTheSameTextInBoundedChunks) {
    vn::Value::Array lines;
    for (int i = 0; i < 20000; ++i) {
        lines.push_back(vn::Record{{"line", std::string(i % 50, 'x') + "\t\xe9"}, {"n", i}});
    }
    vn::Value value(lines);
    std::string whole = vn::toJson(value);
    std::string streamed;
    std::size_t chunks = 0;
    std::size_t largest = 0;
    {
        vn::JsonWriter writer([&](std::string_view chunk) {
            streamed.append(chunk);
            ++chunks;
            largest = std::max(largest, chunk.size());
        });
        writer.value(value);
    }
    EXPECT_EQ(streamed, whole);
    EXPECT_GT(chunks, 5u);
    EXPECT_LT(largest, 80u * 1024);
}

}  // namespace

namespace {

// The calendar functions' answer, which dates are written as.
std::string referenceDate(int64_t seconds, std::optional<int32_t> offset) {
    std::time_t t = static_cast<std::time_t>(seconds + offset.value_or(0));
    struct tm wall;
    if (!gmtime_r(&t, &wall)) {
        return "";
    }
    char buffer[64];
    std::size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &wall);
    if (!offset) {
        return std::string(buffer, length) + "Z";
    }
    int64_t magnitude = *offset < 0 ? -int64_t{*offset} : *offset;
    std::snprintf(buffer + length, sizeof buffer - length, "%c%02d:%02d", *offset < 0 ? '-' : '+',
                  static_cast<int>(magnitude / 3600), static_cast<int>(magnitude / 60 % 60));
    return buffer;
}

}  // namespace

TEST(JsonDates, AgreeWithTheCalendarFunctionsForAnyInstantAndOffset) {
    auto date = [](int64_t seconds) { return vn::Value::Date(std::chrono::seconds(seconds)); };
    // Dates hold nanoseconds in 64 bits: the years 1678 to 2262.
    std::vector<std::pair<int64_t, std::optional<int32_t>>> cases = {
        {0, std::nullopt},           {-1, std::nullopt},
        {951782400, std::nullopt},    // 2000-02-29
        {-8520336000, std::nullopt},  // 1700-03-01, after a 28-day February
        {4102444800, 14 * 3600},      // 2100-01-01 in the furthest zone ahead
        {0, -12 * 3600 - 1800},      {1700000000, 99 * 3600 + 59 * 60},
        {1700000000, -(120 * 3600)},  // an offset of more than two digits of hours
    };
    std::mt19937_64 random(20261122);
    std::uniform_int_distribution<int64_t> instants(-9000000000, 9000000000);
    std::uniform_int_distribution<int32_t> offsets(-60000, 60000);
    for (int i = 0; i < 20000; ++i) {
        cases.emplace_back(instants(random),
                           i % 2 ? std::optional<int32_t>(offsets(random)) : std::nullopt);
    }
    for (const auto& [seconds, offset] : cases) {
        SCOPED_TRACE(std::to_string(seconds) + " " + std::to_string(offset.value_or(0)));
        std::string written =
            offset ? vn::isoDateString(date(seconds), *offset) : vn::isoDateString(date(seconds));
        ASSERT_EQ(written, referenceDate(seconds, offset));
    }
}
