#include "general/Json.h"

#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <charconv>
#include <cmath>
#include <ctime>
#include <vector>

#include "general/Record.h"
#include "general/TextEncoding.h"

namespace vn {

namespace {

void genString(yajl_gen g, std::string_view s) {
    if (isValidUTF8(s)) {
        yajl_gen_string(g, reinterpret_cast<const unsigned char*>(s.data()), s.size());
    } else {
        std::string fixed = repairUTF8(s);
        yajl_gen_string(g, reinterpret_cast<const unsigned char*>(fixed.data()), fixed.size());
    }
}

void genNumberText(yajl_gen g, std::string_view text) {
    yajl_gen_number(g, text.data(), text.size());
}

void generate(yajl_gen g, const Value& value, int depth) {
    if (depth > 200) {
        yajl_gen_null(g);
        return;
    }
    char buffer[64];
    switch (value.type()) {
        case Value::Type::Null:
            yajl_gen_null(g);
            break;
        case Value::Type::Bool:
            yajl_gen_bool(g, value.toBool());
            break;
        case Value::Type::Int: {
            auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value.toInt());
            genNumberText(g, std::string_view(buffer, end - buffer));
            break;
        }
        case Value::Type::UInt: {
            auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value.toUInt());
            genNumberText(g, std::string_view(buffer, end - buffer));
            break;
        }
        case Value::Type::Double: {
            double d = value.toDouble();
            if (!std::isfinite(d)) {
                yajl_gen_null(g);
                break;
            }
            auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, d);
            genNumberText(g, std::string_view(buffer, end - buffer));
            break;
        }
        case Value::Type::String:
            genString(g, *value.string());
            break;
        case Value::Type::Date:
            genString(g, isoDateString(*value.date()));
            break;
        case Value::Type::Array:
            yajl_gen_array_open(g);
            for (const Value& item : *value.array()) {
                generate(g, item, depth + 1);
            }
            yajl_gen_array_close(g);
            break;
        case Value::Type::Record:
            yajl_gen_map_open(g);
            for (const auto& [key, item] : *value.record()) {
                genString(g, key);
                generate(g, item, depth + 1);
            }
            yajl_gen_map_close(g);
            break;
        case Value::Type::Object: {
            const auto& object = *value.object();
            if (object) {
                generate(g, object->jsonValue(), depth + 1);
            } else {
                yajl_gen_null(g);
            }
            break;
        }
    }
}

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

std::string toJson(const Value& value, bool pretty) {
    yajl_gen g = yajl_gen_alloc(nullptr);
    if (pretty) {
        yajl_gen_config(g, yajl_gen_beautify, 1);
        yajl_gen_config(g, yajl_gen_indent_string, "  ");
    }
    generate(g, value, 0);
    const unsigned char* buffer = nullptr;
    size_t length = 0;
    yajl_gen_get_buf(g, &buffer, &length);
    std::string out(reinterpret_cast<const char*>(buffer), length);
    yajl_gen_free(g);
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
