#include "base/Json.h"

#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <vector>

#include "base/Record.h"
#include "base/TextEncoding.h"

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

std::string isoDateString(const Value::Date& date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    struct tm utc;
    gmtime_r(&t, &utc);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return buffer;
}

std::string isoDateString(const Value::Date& date, int32_t offsetSeconds) {
    std::time_t t = std::chrono::system_clock::to_time_t(date) + offsetSeconds;
    struct tm wall;
    gmtime_r(&t, &wall);
    char buffer[48];
    std::size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &wall);
    int32_t magnitude = offsetSeconds < 0 ? -offsetSeconds : offsetSeconds;
    std::snprintf(buffer + length, sizeof buffer - length, "%c%02d:%02d",
                  offsetSeconds < 0 ? '-' : '+', static_cast<int>(magnitude / 3600),
                  static_cast<int>(magnitude / 60 % 60));
    return buffer;
}

struct JsonWriter::Generator {
    yajl_gen gen;
};

namespace {

constexpr std::size_t kChunk = 64 * 1024;

}  // namespace

JsonWriter::JsonWriter(bool pretty) : JsonWriter(Sink(), pretty) {}

JsonWriter::JsonWriter(Sink sink, bool pretty) : gen_(new Generator), sink_(std::move(sink)) {
    gen_->gen = yajl_gen_alloc(nullptr);
    if (pretty) {
        yajl_gen_config(gen_->gen, yajl_gen_beautify, 1);
        yajl_gen_config(gen_->gen, yajl_gen_indent_string, "  ");
    }
    // yajl hands every piece of text to this callback, so nothing is buffered twice.
    yajl_gen_config(gen_->gen, yajl_gen_print_callback, &JsonWriter::print, this);
}

void JsonWriter::print(void* ctx, const char* text, std::size_t length) {
    static_cast<JsonWriter*>(ctx)->append(text, length);
}

JsonWriter::~JsonWriter() {
    flush();
    yajl_gen_free(gen_->gen);
    delete gen_;
}

void JsonWriter::append(const char* data, std::size_t length) {
    buffer_.append(data, length);
    if (sink_ && buffer_.size() >= kChunk) {
        sink_(buffer_);
        buffer_.clear();
    }
}

void JsonWriter::flush() {
    if (sink_ && !buffer_.empty()) {
        sink_(buffer_);
        buffer_.clear();
    }
}

void JsonWriter::beginObject() {
    yajl_gen_map_open(gen_->gen);
    ++depth_;
}

void JsonWriter::endObject() {
    yajl_gen_map_close(gen_->gen);
    --depth_;
}

void JsonWriter::beginArray() {
    yajl_gen_array_open(gen_->gen);
    ++depth_;
}

void JsonWriter::endArray() {
    yajl_gen_array_close(gen_->gen);
    --depth_;
}

void JsonWriter::key(std::string_view name) {
    string(name);
}

void JsonWriter::string(std::string_view text) {
    if (isValidUTF8(text)) {
        yajl_gen_string(gen_->gen, reinterpret_cast<const unsigned char*>(text.data()),
                        text.size());
    } else {
        std::string fixed = repairUTF8(text);
        yajl_gen_string(gen_->gen, reinterpret_cast<const unsigned char*>(fixed.data()),
                        fixed.size());
    }
}

void JsonWriter::number(int64_t value) {
    char buffer[32];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    yajl_gen_number(gen_->gen, buffer, static_cast<size_t>(end - buffer));
}

void JsonWriter::number(uint64_t value) {
    char buffer[32];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    yajl_gen_number(gen_->gen, buffer, static_cast<size_t>(end - buffer));
}

void JsonWriter::number(double value) {
    if (!std::isfinite(value)) {
        null();
        return;
    }
    char buffer[64];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    yajl_gen_number(gen_->gen, buffer, static_cast<size_t>(end - buffer));
}

void JsonWriter::boolean(bool value) {
    yajl_gen_bool(gen_->gen, value);
}

void JsonWriter::null() {
    yajl_gen_null(gen_->gen);
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
    std::string out = writer.text();
    while (!out.empty() && out.back() == '\n') {
        out.pop_back();
    }
    return out;
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
