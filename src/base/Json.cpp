#include "base/Json.h"

#include <yajl/yajl_parse.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "base/Calendar.h"
#include "base/Record.h"

namespace vn {

namespace {

// Builds values while yajl parses: a stack of open containers, each with its pending key.
struct Builder {
    struct Frame {
        bool isRecord;
        Value::Array array;
        Record record;
        std::string key;
    };
    std::vector<Frame> stack;
    std::optional<Value> result;

    void add(Value v) {
        if (stack.empty()) {
            result = std::move(v);
            return;
        }
        Frame& top = stack.back();
        if (top.isRecord) {
            top.record.set(top.key, std::move(v));
        } else {
            top.array.push_back(std::move(v));
        }
    }
    void close() {
        Frame frame = std::move(stack.back());
        stack.pop_back();
        add(frame.isRecord ? Value(std::move(frame.record)) : Value(std::move(frame.array)));
    }
};

Builder& builderOf(void* ctx) {
    return *static_cast<Builder*>(ctx);
}

int onNull(void* ctx) {
    builderOf(ctx).add(Value());
    return 1;
}
int onBool(void* ctx, int b) {
    builderOf(ctx).add(Value(b != 0));
    return 1;
}
int onNumber(void* ctx, const char* s, size_t len) {
    std::string_view text(s, len);
    if (text.find_first_of(".eE") == std::string_view::npos) {
        int64_t i;
        auto [p, ec] = std::from_chars(s, s + len, i);
        if (ec == std::errc() && p == s + len) {
            builderOf(ctx).add(Value(i));
            return 1;
        }
        uint64_t u;
        auto [p2, ec2] = std::from_chars(s, s + len, u);
        if (ec2 == std::errc() && p2 == s + len) {
            builderOf(ctx).add(Value(u));
            return 1;
        }
    }
    builderOf(ctx).add(Value(std::strtod(std::string(text).c_str(), nullptr)));
    return 1;
}
int onString(void* ctx, const unsigned char* s, size_t len) {
    builderOf(ctx).add(Value(std::string(reinterpret_cast<const char*>(s), len)));
    return 1;
}
int onStartMap(void* ctx) {
    builderOf(ctx).stack.push_back({true, {}, {}, {}});
    return 1;
}
int onMapKey(void* ctx, const unsigned char* s, size_t len) {
    builderOf(ctx).stack.back().key.assign(reinterpret_cast<const char*>(s), len);
    return 1;
}
int onEnd(void* ctx) {
    builderOf(ctx).close();
    return 1;
}
int onStartArray(void* ctx) {
    builderOf(ctx).stack.push_back({false, {}, {}, {}});
    return 1;
}

const yajl_callbacks kCallbacks = {
    onNull,     onBool,   nullptr, nullptr,      onNumber, onString,
    onStartMap, onMapKey, onEnd,   onStartArray, onEnd,
};

}  // namespace

namespace {

// "YYYY-MM-DDTHH:MM:SS" for a count of seconds since 1970-01-01 00:00 into `out` (19 bytes), by
// arithmetic alone: a history writes one for every row. False for a year that does not take four
// digits, which the calendar functions write instead.
bool civilTime(int64_t seconds, char* out) {
    int64_t days, rest;
    calendar::splitSeconds(seconds, days, rest);
    const calendar::CivilDate date = calendar::civilFromDays(days);
    if (date.year < 0 || date.year > 9999) {
        return false;
    }
    auto two = [](char* at, int64_t value) {
        at[0] = static_cast<char>('0' + value / 10);
        at[1] = static_cast<char>('0' + value % 10);
    };
    two(out, date.year / 100);
    two(out + 2, date.year % 100);
    out[4] = '-';
    two(out + 5, date.month);
    out[7] = '-';
    two(out + 8, date.day);
    out[10] = 'T';
    two(out + 11, rest / 3600);
    out[13] = ':';
    two(out + 14, rest / 60 % 60);
    out[16] = ':';
    two(out + 17, rest % 60);
    return true;
}

}  // namespace

std::string isoDateString(const Value::Date& date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    char buffer[32];
    if (civilTime(t, buffer)) {
        buffer[19] = 'Z';
        return std::string(buffer, 20);
    }
    struct tm utc;
    if (!gmtime_r(&t, &utc)) {
        return "";  // a year beyond what the calendar functions hold
    }
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return buffer;
}

std::string isoDateString(const Value::Date& date, int32_t offsetSeconds) {
    std::time_t t = std::chrono::system_clock::to_time_t(date) + offsetSeconds;
    char buffer[48];
    std::size_t length = 19;
    if (!civilTime(t, buffer)) {
        struct tm wall;
        if (!gmtime_r(&t, &wall)) {
            return "";  // a year beyond what the calendar functions hold
        }
        length = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &wall);
    }
    int64_t magnitude = offsetSeconds < 0 ? -int64_t{offsetSeconds} : offsetSeconds;
    int64_t hours = magnitude / 3600;
    int64_t minutes = magnitude / 60 % 60;
    if (hours > 99) {
        std::snprintf(buffer + length, sizeof buffer - length, "%c%02d:%02d",
                      offsetSeconds < 0 ? '-' : '+', static_cast<int>(hours),
                      static_cast<int>(minutes));
        return buffer;
    }
    char* zone = buffer + length;
    zone[0] = offsetSeconds < 0 ? '-' : '+';
    zone[1] = static_cast<char>('0' + hours / 10);
    zone[2] = static_cast<char>('0' + hours % 10);
    zone[3] = ':';
    zone[4] = static_cast<char>('0' + minutes / 10);
    zone[5] = static_cast<char>('0' + minutes % 10);
    return std::string(buffer, length + 6);
}

namespace {

// What a byte needs inside a JSON string: 0 nothing, 1 an escape, 2 a look at the UTF-8 sequence
// it starts.
constexpr auto kByteClass = [] {
    std::array<uint8_t, 256> table{};
    for (int c = 0; c < 0x20; ++c) {
        table[c] = 1;
    }
    table['"'] = 1;
    table['\\'] = 1;
    for (int c = 0x80; c < 0x100; ++c) {
        table[c] = 2;
    }
    return table;
}();

// Whether eight bytes are all printable ASCII other than '"' and '\\' (the common case, taken a
// word at a time).
inline bool plainWord(uint64_t w) {
    constexpr uint64_t ones = 0x0101010101010101ULL;
    constexpr uint64_t highs = 0x8080808080808080ULL;
    auto hasZero = [](uint64_t v) { return (v - ones) & ~v & highs; };
    uint64_t below = (w - ones * 0x20) & ~w & highs;  // a byte under 0x20
    return ((w & highs) | below | hasZero(w ^ (ones * '"')) | hasZero(w ^ (ones * '\\'))) == 0;
}

// The length of the valid UTF-8 sequence at `p` (lead byte 0x80 or above), or 0 with `invalid`
// set to the length of its maximal invalid subpart (at least 1).
inline std::size_t utf8Sequence(const unsigned char* p, const unsigned char* end,
                                std::size_t& invalid) {
    unsigned c = *p;
    std::size_t length;
    unsigned low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
        if (c == 0xE0) {
            low = 0xA0;
        } else if (c == 0xED) {
            high = 0x9F;  // no surrogates
        }
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
        if (c == 0xF0) {
            low = 0x90;
        } else if (c == 0xF4) {
            high = 0x8F;  // nothing above U+10FFFF
        }
    } else {
        invalid = 1;
        return 0;
    }
    std::size_t i = 1;
    for (; i < length; ++i) {
        if (p + i >= end || p[i] < low || p[i] > high) {
            invalid = i;
            return 0;
        }
        low = 0x80;
        high = 0xBF;
    }
    return length;
}

}  // namespace

JsonWriter::JsonWriter(bool pretty) : JsonWriter(Sink(), pretty) {}

JsonWriter::JsonWriter(Sink sink, bool pretty) : sink_(std::move(sink)), pretty_(pretty) {
    if (sink_) {
        buffer_.resize(kChunk + kChunk / 4);
    }
}

JsonWriter::~JsonWriter() {
    flush();
}

void JsonWriter::grow(std::size_t length) {
    buffer_.resize(std::max(buffer_.size() * 2, size_ + length + 256));
}

void JsonWriter::handOver() {
    sink_(std::string_view(buffer_.data(), size_));
    size_ = 0;
}

void JsonWriter::flush() {
    if (sink_ && size_ > 0) {
        handOver();
    }
}

void JsonWriter::newLine(std::size_t depth) {
    char* out = room(1 + depth * 2);
    out[0] = '\n';
    std::memset(out + 1, ' ', depth * 2);
    size_ += 1 + depth * 2;
}

void JsonWriter::beforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (open_.empty()) {
        return;
    }
    if (open_.back()) {
        put(',');
    }
    open_.back() = true;
    if (pretty_) {
        newLine(open_.size());
    }
}

void JsonWriter::compactValues(std::string_view json) {
    if (json.empty()) {
        return;
    }
    beforeValue();
    raw(json);
    maybeHandOver();
}

void JsonWriter::beginObject() {
    open('{');
}

void JsonWriter::endObject() {
    close('}');
}

void JsonWriter::beginArray() {
    open('[');
}

void JsonWriter::endArray() {
    close(']');
}

void JsonWriter::open(char bracket) {
    beforeValue();
    put(bracket);
    open_.push_back(false);
    ++depth_;
}

void JsonWriter::close(char bracket) {
    if (open_.empty()) {
        return;
    }
    bool any = open_.back();
    open_.pop_back();
    afterKey_ = false;
    if (pretty_ && any) {
        newLine(open_.size());
    }
    put(bracket);
    --depth_;
    maybeHandOver();
}

void JsonWriter::key(std::string_view name) {
    beforeValue();
    quoted(name);
    if (pretty_) {
        raw(": ");
    } else {
        put(':');
    }
    afterKey_ = true;
}

void JsonWriter::string(std::string_view text) {
    beforeValue();
    quoted(text);
    maybeHandOver();
}

namespace {

// Where the run of bytes that go into a JSON string as they are ends: printable ASCII other than
// '"' and '\\', and whole valid UTF-8 sequences.
inline const unsigned char* plainRunEnd(const unsigned char* p, const unsigned char* end) {
    for (;;) {
        while (end - p >= 8) {
            uint64_t word;
            std::memcpy(&word, p, sizeof word);
            if (!plainWord(word)) {
                break;
            }
            p += 8;
        }
        if (p == end) {
            return p;
        }
        uint8_t kind = kByteClass[*p];
        if (kind == 0) {
            ++p;
            continue;
        }
        if (kind == 2) {
            std::size_t invalid = 0;
            if (std::size_t length = utf8Sequence(p, end, invalid)) {
                p += length;
                continue;
            }
        }
        return p;
    }
}

}  // namespace

void JsonWriter::quoted(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    auto p = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* end = p + text.size();
    const unsigned char* run = p;
    p = plainRunEnd(p, end);
    if (p == end) {
        // Nothing to escape or repair, the common case: one copy.
        char* out = room(text.size() + 2);
        out[0] = '"';
        if (!text.empty()) {
            std::memcpy(out + 1, text.data(), text.size());
        }
        out[text.size() + 1] = '"';
        size_ += text.size() + 2;
        return;
    }
    put('"');
    for (;;) {
        raw(std::string_view(reinterpret_cast<const char*>(run),
                             static_cast<std::size_t>(p - run)));
        if (p == end) {
            break;
        }
        unsigned char c = *p;
        if (c >= 0x80) {
            std::size_t invalid = 1;
            utf8Sequence(p, end, invalid);
            raw("\xEF\xBF\xBD");
            p += invalid;
        } else {
            ++p;
            switch (c) {
                case '"':
                    raw("\\\"");
                    break;
                case '\\':
                    raw("\\\\");
                    break;
                case '\n':
                    raw("\\n");
                    break;
                case '\r':
                    raw("\\r");
                    break;
                case '\t':
                    raw("\\t");
                    break;
                case '\b':
                    raw("\\b");
                    break;
                case '\f':
                    raw("\\f");
                    break;
                default: {
                    const char escape[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
                    raw(std::string_view(escape, sizeof escape));
                }
            }
        }
        run = p;
        p = plainRunEnd(p, end);
    }
    put('"');
}

void JsonWriter::fragmentNumber(uint64_t value) {
    char digits[24];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    raw(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

void JsonWriter::fragmentNumber(double value) {
    if (!std::isfinite(value)) {
        raw("null");
        return;
    }
    char digits[64];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    raw(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

void JsonWriter::reset() {
    size_ = 0;
    open_.clear();
    afterKey_ = false;
    depth_ = 0;
}

void JsonWriter::number(int64_t value) {
    beforeValue();
    char digits[24];
    auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value);
    raw(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}

void JsonWriter::number(uint64_t value) {
    beforeValue();
    fragmentNumber(value);
}

void JsonWriter::number(double value) {
    beforeValue();
    fragmentNumber(value);
}

void JsonWriter::boolean(bool value) {
    beforeValue();
    raw(value ? "true" : "false");
}

void JsonWriter::null() {
    beforeValue();
    raw("null");
}

void JsonWriter::value(const Value& value) {
    if (depth_ > 200) {  // a cycle through model objects, or absurd nesting
        null();
        return;
    }
    switch (value.type()) {
        case Value::Type::Null:
            null();
            break;
        case Value::Type::Bool:
            boolean(value.toBool());
            break;
        case Value::Type::Int:
            number(value.toInt());
            break;
        case Value::Type::UInt:
            number(value.toUInt());
            break;
        case Value::Type::Double:
            number(value.toDouble());
            break;
        case Value::Type::String:
            string(*value.string());
            break;
        case Value::Type::Date:
            if (std::optional<int32_t> offset = value.dateOffset()) {
                string(isoDateString(*value.date(), *offset));
            } else {
                string(isoDateString(*value.date()));
            }
            break;
        case Value::Type::Array:
            beginArray();
            for (const Value& item : *value.array()) {
                this->value(item);
            }
            endArray();
            break;
        case Value::Type::Record:
            beginObject();
            for (const auto& [name, item] : *value.record()) {
                key(name);
                this->value(item);
            }
            endObject();
            break;
        case Value::Type::Object: {
            const auto& object = *value.object();
            if (object) {
                ++depth_;
                object->writeJson(*this);
                --depth_;
            } else {
                null();
            }
            break;
        }
    }
}

std::string toJson(const Value& value, bool pretty) {
    JsonWriter writer(pretty);
    writer.value(value);
    return writer.text();
}

std::optional<Value> parseJson(std::string_view text, std::string* error) {
    Builder builder;
    yajl_handle handle = yajl_alloc(&kCallbacks, nullptr, &builder);
    yajl_status status =
        yajl_parse(handle, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    if (status == yajl_status_ok) {
        status = yajl_complete_parse(handle);
    }
    if (status != yajl_status_ok) {
        if (error) {
            unsigned char* message = yajl_get_error(
                handle, 0, reinterpret_cast<const unsigned char*>(text.data()), text.size());
            *error = reinterpret_cast<const char*>(message);
            yajl_free_error(handle, message);
        }
        yajl_free(handle);
        return std::nullopt;
    }
    yajl_free(handle);
    return builder.result;
}

}  // namespace vn
